#include "load/load_mix.h"

#include <httplib.h>

#include <random>
#include <thread>

namespace orvane::bench {
namespace {

using Clock = std::chrono::steady_clock;
constexpr const char* kDemoUsers[] = {"admin", "yamada", "sato", "ito", "watanabe", "tanaka"};

std::string Encode(const std::string& s) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : s) {
    if (std::isalnum(c) || c == '-' || c == '_' || c == '.') {
      out.push_back(static_cast<char>(c));
    } else {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    }
  }
  return out;
}

using Fields = std::vector<std::pair<std::string, std::string>>;

std::string Body(const Fields& fields) {
  std::string body;
  for (const auto& [name, value] : fields) body += (body.empty() ? "" : "&") + name + "=" + Encode(value);
  return body;
}

bool Contains(const std::string& s, const char* what) { return s.find(what) != std::string::npos; }

// "OK", "data" or the answer's code ("ERROR:ILLEGALTREE"), without the
// trail behind it. A trail that starts with a capitalised routine
// ("ERROR:SQLEXECRegistGroup") lends the code its first letter; the codes
// such trails follow are known.
std::string Kind(const std::string& answer) {
  if (answer == "OK") return "OK";
  if (answer.rfind("ERROR:", 0) != 0) return "data";
  size_t end = 6;
  while (end < answer.size() && (std::isupper(static_cast<unsigned char>(answer[end])) ||
                                 std::isdigit(static_cast<unsigned char>(answer[end])) || answer[end] == '_'))
    ++end;
  if (end < answer.size() && std::islower(static_cast<unsigned char>(answer[end]))) {
    for (const char* code : {"ERROR:SQLEXEC", "ERROR:DBSELECT"})
      if (answer.compare(0, end - 1, code) == 0) --end;
  }
  return answer.substr(0, end);
}

bool IsChange(const std::string& code) { return code[0] == '2'; }

class Session {
 public:
  Session(int index, const std::string& host, int port, const std::string& cookie, const std::set<std::string>& only,
          SharedView& view, ClientStats& stats)
      : only_(only), index_(index), host_(host), port_(port), cookie_(cookie), view_(view), stats_(stats), random_(index + 1),
        client_(host, port) {
    client_.set_keep_alive(true);
    client_.set_tcp_nodelay(true);
    client_.set_read_timeout(60);
  }

  // Sends one request and records it under `label` (the code, or "212x"
  // for a crossed move). Returns the answer ("" when none came).
  std::string Send(httplib::Client& client, const std::string& label, const Fields& fields) {
    std::string body = Body(fields);
    auto t0 = Clock::now();
    auto res = client.Post("/orvane", {{"Cookie", cookie_}}, body, "application/x-www-form-urlencoded");
    double us = std::chrono::duration<double, std::micro>(Clock::now() - t0).count();
    std::lock_guard lock(record_mutex_);
    stats_.latency_us[label].push_back(us);
    if (!res) {
      stats_.answers[label]["no answer"]++;
      stats_.unexpected.push_back(label + " " + body + " -> no answer (" + httplib::to_string(res.error()) + ")");
      return "";
    }
    std::string kind = res->status == 200 ? Kind(res->body) : "HTTP " + std::to_string(res->status);
    stats_.answers[label][kind]++;
    const std::string& a = res->body;
    bool bad = res->status != 200 || (IsChange(label) && kind == "data") || Contains(a, "locked") ||
               Contains(a, "busy") || Contains(a, "deadlock") || Contains(a, "could not serialize");
    if (bad) stats_.unexpected.push_back(label + " " + body + " -> " + std::to_string(res->status) + " " + a.substr(0, 300));
    return res->status == 200 ? a : "";
  }
  std::string Send(const std::string& code, Fields fields) {
    fields.insert(fields.begin(), {"ReqNo", code});
    return Send(client_, code, fields);
  }

  template <typename T>
  const T& Pick(const std::vector<T>& v) {
    return v[random_() % v.size()];
  }
  int Roll(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }
  std::string Name(const char* stem) { return std::string(stem) + std::to_string(index_) + "_" + std::to_string(++serial_); }

  void Step() {
    auto groups = view_.Groups();
    if (groups.empty() || Roll(20) == 0) {
      view_.TakeGroupList(Send("101", {}));
      return;
    }
    auto group = [&] { return Pick(groups).first; };
    // The mix: the share of each kind of step, in percent.
    static const std::pair<int, const char*> kMix[] = {
        {30, "read"}, {8, "201"}, {7, "202"}, {2, "203"}, {7, "212"}, {3, "212x"}, {5, "210"}, {7, "207"},
        {4, "208"},  {4, "209"}, {4, "211"}, {6, "204"}, {4, "206"}, {4, "213"},  {5, "101"}};
    std::string kind;
    do {
      int r = Roll(100);
      for (const auto& [share, name] : kMix) {
        if (r < share) {
          kind = name;
          break;
        }
        r -= share;
      }
    } while (!only_.empty() && !only_.count(kind));
    if (kind == "read") return Read(group());
    if (kind == "201") return void(Send("201", {{"Group_cd", group()}, {"Group_nm", Name("負荷部署")}, {"Disp_NM", "負荷"}, {"BUSHO_CD", ""}, {"M_LIST", ""}}));
    if (kind == "202") return void(Send("202", {{"Group_cd", group()}, {"Group_nm", Name("改名")}, {"Disp_NM", "改名"}, {"M_LIST", ""}}));
    if (kind == "203") return void(Send("203", {{"Group_cd", group()}, {"Group_nm", ""}, {"Disp_NM", ""}, {"BUSHO_CD", ""}, {"M_LIST", ""}}));
    if (kind == "212") return void(Send("212", {{"Group_cd1", group()}, {"Group_cd2", group()}}));
    if (kind == "212x") return CrossedMove(group(), group());
    if (kind == "210") return Reorder(groups);
    if (kind == "207") return AddMember(group());
    if (kind == "208") return ChangeMember();
    if (kind == "209") return RemoveMember();
    if (kind == "211") return ReorderMembers();
    if (kind == "204") return CreateUser();
    if (kind == "206") return DeleteUser();
    if (kind == "213") return ChangeMenu();
    view_.TakeGroupList(Send("101", {}));
  }

 private:
  void Read(const std::string& group) {
    auto users = view_.Users();
    switch (Roll(6)) {
      case 0: return void(Send("102", {{"S_Col", "1"}, {"S_Type", "0"}, {"S_OPT", ""}, {"S_pos", "1"}, {"B_pos", "50"}}));
      case 1: return void(Send("103", {{"Group_cd", group}, {"S_Col", "1"}, {"S_Type", "0"}}));
      case 2: return void(Send("104", {{"Group_cd", group}, {"S_Col", "1"}, {"S_Type", "0"}, {"S_OPT", "0"}}));
      case 3: return void(Send("105", {{"Group_cd", group}}));
      case 4: return void(Send("106", {{"User_cd", Pick(users)}}));
      default: return void(Send("108", {{"User_cd", Pick(users)}}));
    }
  }

  // Two administrators at the same moment: a under b and b under a. At
  // most one can be right; both would make a cycle.
  void CrossedMove(const std::string& a, const std::string& b) {
    if (!second_) {
      second_ = std::make_unique<httplib::Client>(host_, port_);
      second_->set_keep_alive(false);  // a kept connection would hold a server worker idle
      second_->set_tcp_nodelay(true);
      second_->set_read_timeout(60);
    }
    std::thread other([&] { Send(*second_, "212x", {{"ReqNo", "212"}, {"Group_cd1", b}, {"Group_cd2", a}}); });
    Send(client_, "212x", {{"ReqNo", "212"}, {"Group_cd1", a}, {"Group_cd2", b}});
    other.join();
  }

  void Reorder(const std::vector<std::pair<std::string, std::string>>& groups) {
    const std::string& parent = Pick(groups).second;
    std::vector<std::string> siblings;
    for (const auto& [code, p] : groups)
      if (p == parent) siblings.push_back(code);
    if (siblings.size() < 2) return;
    Send("210", {{"Group_cd1", Pick(siblings)}, {"Group_cd2", Pick(siblings)}, {"Group_cd3", parent}});
  }

  void AddMember(const std::string& group) {
    std::string user = Pick(view_.Users());
    if (Send("207", {{"Group_cd", group}, {"User_cd", user}, {"Upd_Ymd", ""}, {"Upd_Hms", ""}}) == "OK")
      view_.AddMember(group, user);
  }
  void ChangeMember() {
    auto members = view_.Members();
    if (members.empty()) return;
    auto [group, user] = Pick(members);
    Send("208", {{"Group_cd", group}, {"User_cd", user}, {"Primary", Roll(2) ? "1" : "0"}, {"Post_cd", "02"},
                 {"ST_Ymd", "20240401"}, {"ED_Ymd", "99999999"}, {"Upd_Ymd", ""}, {"Upd_Hms", ""}});
  }
  void RemoveMember() {
    auto members = view_.Members();
    if (members.empty()) return;
    auto [group, user] = Pick(members);
    if (Send("209", {{"Group_cd", group}, {"User_cd", user}, {"Upd_Ymd", ""}, {"Upd_Hms", ""}}) == "OK")
      view_.RemoveMember(group, user);
  }
  void ReorderMembers() {
    auto members = view_.Members();
    if (members.size() < 2) return;
    auto [group, user] = Pick(members);
    std::vector<std::string> others;
    for (const auto& [g, u] : members)
      if (g == group && u != user) others.push_back(u);
    if (others.empty()) return;
    Send("211", {{"User_cd", user}, {"User_cd2", Pick(others)}, {"Group_cd", group}});
  }

  void CreateUser() {
    std::string id = Name("ld");
    Fields f = {{"User_cd", id},     {"User_KJ", "負荷 " + id}, {"User_KN", "フカ " + id}, {"User_PS", id},
                {"Mail_AD", id},     {"Mail_FL", "0"},          {"Ext_TEL", "123"},        {"Post_NM", ""},
                {"Disp_NM", "500"},  {"Mail_UFL", "0"},         {"Mail_NM", ""},           {"OldMail_UFL", ""},
                {"OldAlias", ""},    {"OldAlias_FL", ""}};
    if (Send("204", f) == "OK") view_.AddUser(id);
  }
  void DeleteUser() {
    auto users = view_.LoadUsers();
    if (users.empty()) return;
    std::string id = Pick(users);
    Fields f = {{"User_cd", id}, {"User_KJ", ""}, {"User_KN", ""},  {"User_PS", ""}, {"Mail_AD", ""},
                {"Mail_FL", ""}, {"Ext_TEL", ""}, {"Post_NM", ""}, {"Disp_NM", ""}, {"Mail_UFL", ""}};
    if (Send("206", f) == "OK") view_.RemoveUser(id);
  }
  void ChangeMenu() {
    auto users = view_.LoadUsers();
    if (users.empty()) return;
    Send("213", {{"User_cd", Pick(users)}, {"User_Menu", Roll(2) ? "/01/21/" : "/01/02/23/"}});
  }

  const std::set<std::string>& only_;
  int index_;
  std::string host_;
  int port_;
  std::string cookie_;
  SharedView& view_;
  ClientStats& stats_;
  std::mt19937 random_;
  httplib::Client client_;
  std::unique_ptr<httplib::Client> second_;
  std::mutex record_mutex_;  // the crossed move records from two threads
  int serial_ = 0;
};

}  // namespace

SharedView::SharedView() : users_(std::begin(kDemoUsers), std::end(kDemoUsers)) {}

void SharedView::TakeGroupList(const std::string& answer) {
  if (answer.empty() || answer.rfind("ERROR:", 0) == 0) return;
  std::vector<std::string> cells;
  size_t start = 0;
  while (true) {
    size_t comma = answer.find(',', start);
    cells.push_back(answer.substr(start, comma - start));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  std::vector<std::pair<std::string, std::string>> groups;
  for (size_t i = 0; i + 2 < cells.size(); i += 3) groups.emplace_back(cells[i], cells[i + 1]);
  std::lock_guard lock(mutex_);
  groups_ = std::move(groups);
}

std::vector<std::pair<std::string, std::string>> SharedView::Groups() const {
  std::lock_guard lock(mutex_);
  return groups_;
}
void SharedView::AddUser(const std::string& id) {
  std::lock_guard lock(mutex_);
  users_.insert(id);
  load_users_.insert(id);
}
void SharedView::RemoveUser(const std::string& id) {
  std::lock_guard lock(mutex_);
  users_.erase(id);
  load_users_.erase(id);
}
std::vector<std::string> SharedView::Users() const {
  std::lock_guard lock(mutex_);
  return {users_.begin(), users_.end()};
}
std::vector<std::string> SharedView::LoadUsers() const {
  std::lock_guard lock(mutex_);
  return {load_users_.begin(), load_users_.end()};
}
void SharedView::AddMember(const std::string& sec, const std::string& user) {
  std::lock_guard lock(mutex_);
  members_.insert({sec, user});
}
void SharedView::RemoveMember(const std::string& sec, const std::string& user) {
  std::lock_guard lock(mutex_);
  members_.erase({sec, user});
}
std::vector<std::pair<std::string, std::string>> SharedView::Members() const {
  std::lock_guard lock(mutex_);
  return {members_.begin(), members_.end()};
}

void ClientStats::Merge(ClientStats& other) {
  for (auto& [code, lat] : other.latency_us) latency_us[code].insert(latency_us[code].end(), lat.begin(), lat.end());
  for (auto& [code, kinds] : other.answers)
    for (auto& [kind, n] : kinds) answers[code][kind] += n;
  unexpected.insert(unexpected.end(), other.unexpected.begin(), other.unexpected.end());
}

void RunClient(int index, const std::string& host, int port, const std::string& cookie, Clock::time_point stop,
               const std::set<std::string>& only, SharedView& view, ClientStats& stats) {
  Session session(index, host, port, cookie, only, view, stats);
  while (Clock::now() < stop) session.Step();
}

}  // namespace orvane::bench
