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
short CheckListExists(const RequestContext& ctx, ListChange& change, std::string& errorText) {
  if (!IsPlainListName(change.list)) {
    errorText = SocketErrorText("List Exist Error(", 0);
    return -1;
  }
  std::string folder = ListFolderPath(change.folder, change.list);
  if (change.local) {
    if (FileSystem().FolderExists(folder)) return 0;
    errorText = SocketErrorText("List Exist Error(", 0);
    return -1;
  }
  if (!OpenExeProxy(ctx, change.socket, errorText)) return -1;
  int rc = change.socket->Write("FOLIST " + folder);
  if (rc != 0) {
    errorText = SocketErrorText("Socket Write Error(", rc);
    return -1;
  }
  std::string reply;
  rc = change.socket->readLine(reply);
  if (reply.empty()) {
    errorText = SocketErrorText("List Exist Error(", rc);
    return -1;
  }
  return 0;
}

// One line per entry that is not blank, each ended by CR LF.
std::string MemberFileContent(const std::vector<std::string>& entries) {
  std::string content;
  for (const std::string& e : entries)
    if (!text::Trim(e).empty()) content.append(e).append(text::kCrLf);
  return content;
}

short Quit(ListChange& change, std::string& errorText) {
  if (int rc = QuitExeProxy(*change.socket); rc < 0) {
    errorText = SocketErrorText("Socket Write Error(", rc);
    return -1;
  }
  return 0;
}

// users.lst, then users.txt; through the proxy the exchange ends with QUIT.
short WriteMemberFiles(ListChange& change, std::string_view content, std::string& errorText) {
  for (std::string_view file : {"users.lst", "users.txt"}) {
    std::string path = MemberFilePath(change.folder, change.list, file);
    if (change.local) {
      if (int err = FileSystem().ReplaceFile(path, content); err != 0) {
        errorText = ErrorNumberText(err);
        return -1;
      }
    } else if (ProxyFwrite(*change.socket, path, content, errorText) != 0) {
      return -1;
    }
  }
  return change.local ? 0 : Quit(change, errorText);
}

bool IsAmong(std::string_view address, const std::vector<std::string>& addresses) {
  for (const std::string& a : addresses)
    if (text::EqualsIgnoreCase(a, address)) return true;
  return false;
}

}  // namespace

short funDelMailListUser(RequestContext& ctx, std::string_view listName, std::string_view addresses,
                         std::string& errorText) {
  short status = -1;
  std::vector<std::string> v;
  if (!ReadRequiredKeys(ctx,
                        {{"ML_FOLDER", "ERROR:READINFOFILE_DELMAILLIST_FOLDER"},
                         {"ML_SERVER", "ERROR:READINFOFILE_DELMAILLIST_SERVER"},
                         {"ML_SERVERIP", "ERROR:READINFOFILE_DELMAILLIST_SERVERIP"},
                         {"ML_EXEPROXY_PORT", "ERROR:READINFOFILE_DELMAILLIST_PORT"},
                         {"ML_ISLOCAL", "ERROR:READINFOFILE_DELMAILLIST_ISLOCAL"}},
                        v))
    return status;
  if (text::Trim(listName).empty()) {
    errorText = kNoListName;
    return status;
  }
  if (text::Trim(addresses).empty()) {
    errorText = kNoAddresses;
    return status;
  }
  ListChange change{v[0], std::string(listName), IsTruthValue(v[4]), nullptr};
  if (CheckListExists(ctx, change, errorText) != 0) return status;

  std::vector<std::string> members;
  if (funMailListUserGet(ctx, listName, members) != 0) {
    errorText = kMembersUnreadable;
    return status;
  }
  std::vector<std::string> removed = text::Split(addresses, ","), kept;
  for (const std::string& m : members)
    if (!IsAmong(m, removed)) kept.push_back(m);
  std::string kept_text = text::Join(kept, ",");
  if (!kept_text.empty() && kept_text.back() == ',') kept_text.pop_back();

  if (WriteMemberFiles(change, MemberFileContent(text::Split(kept_text, ",")), errorText) != 0) return status;
  status = 0;
  return status;
}

short funAddMailListUser(RequestContext& ctx, std::string_view listName, std::string_view addresses,
                         std::string_view clearFlag, std::string& errorText) {
  short status = -1;
  std::vector<std::string> v;
  if (!ReadRequiredKeys(ctx,
                        {{"ML_FOLDER", "ERROR:READINFOFILE_ADDMAILLIST_FOLDER"},
                         {"ML_SERVERIP", "ERROR:READINFOFILE_ADDMAILLIST_SERVERIP"},
                         {"ML_EXEPROXY_PORT", "ERROR:READINFOFILE_ADDMAILLIST_PORT"},
                         {"ML_ISLOCAL", "ERROR:READINFOFILE_ADDMAILLIST_ISLOCAL"}},
                        v))
    return status;
  if (text::Trim(listName).empty()) {
    errorText = kNoListName;
    return status;
  }
  ListChange change{v[0], std::string(listName), IsTruthValue(v[3]), nullptr};
  if (CheckListExists(ctx, change, errorText) != 0) return status;

  if (text::Trim(addresses).empty()) {
    if (clearFlag == "1") {
      if (WriteMemberFiles(change, "", errorText) != 0) return status;
    } else if (!change.local) {
      if (Quit(change, errorText) != 0) return status;
    }
    status = 0;
    return status;
  }
  std::vector<std::string> members;
  if (funMailListUserGet(ctx, listName, members) != 0) {
    errorText = kMembersUnreadable;
    return status;
  }
  for (const std::string& a : text::Split(addresses, ","))
    if (!text::Trim(a).empty() && !IsAmong(a, members)) members.push_back(a);
  if (WriteMemberFiles(change, MemberFileContent(members), errorText) != 0) return status;
  status = 0;
  return status;
}

}  // namespace orvane::accounts
