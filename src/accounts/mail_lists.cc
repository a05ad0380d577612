#include "accounts/mail_lists.h"

#include <memory>

#include "accounts/file_system.h"
#include "accounts/mail_config.h"
#include "accounts/proxy_files.h"
#include "base/text.h"

namespace orvane::accounts {

std::string ListRootPath(std::string_view folder) {
  std::string path(folder);
  if (path.empty() || path.back() != '\\') path += '\\';
  return path + "Lists";
}

std::string ListFolderPath(std::string_view folder, std::string_view listName) {
  return ListRootPath(folder) + "\\" + std::string(listName);
}

std::string MemberFilePath(std::string_view folder, std::string_view listName, std::string_view fileName) {
  return ListFolderPath(folder, listName) + "\\" + std::string(fileName);
}

bool IsPlainListName(std::string_view listName) {
  return !listName.empty() && listName != "." && listName != ".." &&
         listName.find_first_of("\\/") == std::string_view::npos && listName.find('\0') == std::string_view::npos;
}

Status funMailListGet(RequestContext& ctx, std::string& listText) {
  std::vector<std::string> v;
  if (!ReadRequiredKeys(ctx,
                        {{"ML_FOLDER", "ERROR:READINFOFILE_MAILLIST_FOLDER"},
                         {"ML_MODE", "ERROR:READINFOFILE_MAILLIST_MODE"},
                         {"ML_SERVERIP", "ERROR:READINFOFILE_MAILLIST_SERVERIP"},
                         {"ML_EXEPROXY_PORT", "ERROR:READINFOFILE_MAILLIST_PORT"},
                         {"ML_ISLOCAL", "ERROR:READINFOFILE_MAILLIST_ISLOCAL"}},
                        v))
    return Status::Answered();
  const std::string &folder = v[0], &mode = v[1], &is_local = v[4];
  if (mode != "2") return Status::Ok();
  listText.clear();
  std::string root = ListRootPath(folder);

  if (IsTruthValue(is_local)) {
    FileSystem fso;
    for (const std::string& name : fso.SubFolderNames(root)) listText += name + std::string(text::kCrLf);
    return Status::Ok();
  }
  // A failed exchange is not reported: the caller sees no lists.
  std::unique_ptr<Socket> socket;
  if (!OpenExeProxy(ctx, socket).ok()) return Status::Ok();
  // Only a positive code counts as a failed write here, as the lists were
  // always read; Write never returns one, so a failure shows at the read.
  if (socket->Write("FOLIST " + root + "\\*") > 0) return Status::Ok();
  std::string reply;
  if (socket->readLine(reply) != 0) return Status::Ok();
  listText = text::ReplaceAll(reply, "|", text::kCrLf);
  QuitExeProxy(*socket);  // tested "> 0" like the other writes here: never a failure
  return Status::Ok();
}

Status funMailListUserGet(RequestContext& ctx, std::string_view listName, std::vector<std::string>& members) {
  members.clear();
  std::vector<std::string> v;
  // The callers report an unreadable list in their own words.
  if (!ReadRequiredKeys(ctx,
                        {{"ML_FOLDER", "ERROR:READINFOFILE_MAILLISTUSER_FOLDER"},
                         {"ML_SERVERIP", "ERROR:READINFOFILE_MAILLISTUSER_SERVERIP"},
                         {"ML_EXEPROXY_PORT", "ERROR:READINFOFILE_MAILLISTUSER_PORT"},
                         {"ML_ISLOCAL", "ERROR:READINFOFILE_MAILLISTUSER_ISLOCAL"}},
                        v))
    return Status::Answered();
  const std::string &folder = v[0], &is_local = v[3];

  std::string lists;
  if (Status s = funMailListGet(ctx, lists); !s.ok()) return s;
  bool found = false;
  // Containment, not equality: a list named "sales" counts as existing when
  // only "sales-east" does, as the lists were always looked up.
  for (const std::string& name : text::Split(lists, text::kCrLf)) {
    std::string trimmed = text::Trim(name);
    if (!trimmed.empty() && text::ContainsIgnoreCase(trimmed, listName)) found = true;
  }
  if (!found || !IsPlainListName(listName)) return Status::Untold();

  std::string path = MemberFilePath(folder, listName);
  std::string content;
  if (IsTruthValue(is_local)) {
    FileSystem fso;
    if (fso.FileExists(path) && fso.ReadAll(path, content) != 0) return Status::Untold();
  } else {
    std::unique_ptr<Socket> socket;
    if (!OpenExeProxy(ctx, socket).ok() || !ProxyFread(*socket, path, content).ok() || QuitExeProxy(*socket) < 0)
      return Status::Untold();
  }
  if (!content.empty()) members = text::Split(content, text::kCrLf);
  return Status::Ok();
}

}  // namespace orvane::accounts
