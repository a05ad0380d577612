// The load's client side: what one administrator session sends, what the
// clients know of the organisation they change, and what they measured.
#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace orvane::bench {

// What the clients have seen of the organisation: the sections from the
// last group list (101), the users and memberships their own requests
// created. Only a source of plausible fields: the server decides.
class SharedView {
 public:
  SharedView();
  void TakeGroupList(const std::string& answer);  // "code,parent,name,..." triples
  std::vector<std::pair<std::string, std::string>> Groups() const;  // code, parent
  void AddUser(const std::string& id);
  void RemoveUser(const std::string& id);
  std::vector<std::string> Users() const;      // the demo's and the created ones
  std::vector<std::string> LoadUsers() const;  // the created ones only
  void AddMember(const std::string& sec, const std::string& user);
  void RemoveMember(const std::string& sec, const std::string& user);
  std::vector<std::pair<std::string, std::string>> Members() const;

 private:
  mutable std::mutex mutex_;
  std::vector<std::pair<std::string, std::string>> groups_;
  std::set<std::string> users_, load_users_;
  std::set<std::pair<std::string, std::string>> members_;
};

struct ClientStats {
  std::map<std::string, std::vector<double>> latency_us;             // by request code
  std::map<std::string, std::map<std::string, long>> answers;         // code -> "OK"/"ERROR:X"/"data" -> count
  std::vector<std::string> unexpected;                                // request and answer, one line each
  void Merge(ClientStats& other);
};

// Sends requests as one logged-in administrator (`cookie`, "ORVANE_SID=...")
// until `stop`: a random mix of steps, or only the kinds named in `only`
// ("read", "101", "201" ... "213", "212x" for a crossed move) when it is
// not empty.
void RunClient(int index, const std::string& host, int port, const std::string& cookie,
               std::chrono::steady_clock::time_point stop, const std::set<std::string>& only, SharedView& view,
               ClientStats& stats);

}  // namespace orvane::bench
