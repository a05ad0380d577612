#include "accounts/mail_list_members.h"

#include <memory>
#include <vector>

#include "accounts/exe_proxy.h"
#include "accounts/file_system.h"
#include "accounts/mail_config.h"
#include "accounts/mail_lists.h"
#include "accounts/proxy_files.h"
#include "base/text.h"

namespace orvane::accounts {
namespace {

constexpr std::string_view kNoListName = "メーリングリスト名が空です。";
constexpr std::string_view kNoAddresses = "削除者がいません";
constexpr std::string_view kMembersUnreadable = "メーリングリストの登録者一覧の取得に失敗";

// One list change: where the list lives and, through the proxy, the
// connection that checked it and carries the writes.
struct ListChange {
  std::string folder;
  std::string list;
  bool local = false;
  std::unique_ptr<Socket> socket;
};

// The list's folder must exist: directly, or as a non-empty FOLIST reply.
Status CheckListExists(const RequestContext& ctx, ListChange& change) {
  if (!IsPlainListName(change.list)) return Status::Failure(SocketErrorText("List Exist Error(", 0));
  std::string folder = ListFolderPath(change.folder, change.list);
  if (change.local) {
    if (FileSystem().FolderExists(folder)) return Status::Ok();
    return Status::Failure(SocketErrorText("List Exist Error(", 0));
  }
  if (Status s = OpenExeProxy(ctx, change.socket); !s.ok()) return s;
  int rc = change.socket->Write("FOLIST " + folder);
  if (rc != 0) return Status::Failure(SocketErrorText("Socket Write Error(", rc));
  std::string reply;
  rc = change.socket->readLine(reply);
  if (reply.empty()) return Status::Failure(SocketErrorText("List Exist Error(", rc));
  return Status::Ok();
}

// One line per entry that is not blank, each ended by CR LF.
std::string MemberFileContent(const std::vector<std::string>& entries) {
  std::string content;
  for (const std::string& e : entries)
    if (!text::Trim(e).empty()) content.append(e).append(text::kCrLf);
  return content;
}

Status Quit(ListChange& change) {
  if (int rc = QuitExeProxy(*change.socket); rc < 0) return Status::Failure(SocketErrorText("Socket Write Error(", rc));
  return Status::Ok();
}

// users.lst, then users.txt; through the proxy the exchange ends with QUIT.
Status WriteMemberFiles(ListChange& change, std::string_view content) {
  for (std::string_view file : {"users.lst", "users.txt"}) {
    std::string path = MemberFilePath(change.folder, change.list, file);
    if (change.local) {
      if (int err = FileSystem().ReplaceFile(path, content); err != 0) return Status::Failure(ErrorNumberText(err));
    } else if (Status s = ProxyFwrite(*change.socket, path, content); !s.ok()) {
      return s;
    }
  }
  return change.local ? Status::Ok() : Quit(change);
}

bool IsAmong(std::string_view address, const std::vector<std::string>& addresses) {
  for (const std::string& a : addresses)
    if (text::EqualsIgnoreCase(a, address)) return true;
  return false;
}

}  // namespace

Status funDelMailListUser(RequestContext& ctx, std::string_view listName, std::string_view addresses) {
  std::vector<std::string> v;
  if (!ReadRequiredKeys(ctx,
                        {{"ML_FOLDER", "ERROR:READINFOFILE_DELMAILLIST_FOLDER"},
                         {"ML_SERVER", "ERROR:READINFOFILE_DELMAILLIST_SERVER"},
                         {"ML_SERVERIP", "ERROR:READINFOFILE_DELMAILLIST_SERVERIP"},
                         {"ML_EXEPROXY_PORT", "ERROR:READINFOFILE_DELMAILLIST_PORT"},
                         {"ML_ISLOCAL", "ERROR:READINFOFILE_DELMAILLIST_ISLOCAL"}},
                        v))
    return Status::Answered();
  if (text::Trim(listName).empty()) return Status::Failure(std::string(kNoListName));
  if (text::Trim(addresses).empty()) return Status::Failure(std::string(kNoAddresses));
  ListChange change{v[0], std::string(listName), IsTruthValue(v[4]), nullptr};
  if (Status s = CheckListExists(ctx, change); !s.ok()) return s;

  std::vector<std::string> members;
  if (!funMailListUserGet(ctx, listName, members).ok()) return Status::Failure(std::string(kMembersUnreadable));
  std::vector<std::string> removed = text::Split(addresses, ","), kept;
  for (const std::string& m : members)
    if (!IsAmong(m, removed)) kept.push_back(m);
  std::string kept_text = text::Join(kept, ",");
  if (!kept_text.empty() && kept_text.back() == ',') kept_text.pop_back();

  return WriteMemberFiles(change, MemberFileContent(text::Split(kept_text, ",")));
}

Status funAddMailListUser(RequestContext& ctx, std::string_view listName, std::string_view addresses,
                          std::string_view clearFlag) {
  std::vector<std::string> v;
  if (!ReadRequiredKeys(ctx,
                        {{"ML_FOLDER", "ERROR:READINFOFILE_ADDMAILLIST_FOLDER"},
                         {"ML_SERVERIP", "ERROR:READINFOFILE_ADDMAILLIST_SERVERIP"},
                         {"ML_EXEPROXY_PORT", "ERROR:READINFOFILE_ADDMAILLIST_PORT"},
                         {"ML_ISLOCAL", "ERROR:READINFOFILE_ADDMAILLIST_ISLOCAL"}},
                        v))
    return Status::Answered();
  if (text::Trim(listName).empty()) return Status::Failure(std::string(kNoListName));
  ListChange change{v[0], std::string(listName), IsTruthValue(v[3]), nullptr};
  if (Status s = CheckListExists(ctx, change); !s.ok()) return s;

  if (text::Trim(addresses).empty()) {
    if (clearFlag == "1") return WriteMemberFiles(change, "");
    return change.local ? Status::Ok() : Quit(change);
  }
  std::vector<std::string> members;
  if (!funMailListUserGet(ctx, listName, members).ok()) return Status::Failure(std::string(kMembersUnreadable));
  for (const std::string& a : text::Split(addresses, ","))
    if (!text::Trim(a).empty() && !IsAmong(a, members)) members.push_back(a);
  return WriteMemberFiles(change, MemberFileContent(members));
}

}  // namespace orvane::accounts
