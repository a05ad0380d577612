// FileSystem: direct access to the mail server's folders when they are
// reachable from this machine (the system's "Scripting.FileSystemObject").
//
// Paths arrive in the system's "\" form, built from ML_FOLDER; each "\"
// becomes "/" just before the file system is touched, so ML_FOLDER can be
// an ordinary Linux folder. Failures are errno values (0 = success).
// Stateless; safe to use from several threads.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/status.h"

namespace orvane::accounts {

// "\" to "/".
std::string LocalPath(std::string_view system_path);

class FileSystem {
 public:
  bool FolderExists(std::string_view path) const;
  bool FileExists(std::string_view path) const;
  // Names of the sub-folders, sorted by name ignoring ASCII case (the order
  // the mail server's own file system lists them in). Empty when `path` is
  // not a folder.
  std::vector<std::string> SubFolderNames(std::string_view path) const;
  int ReadAll(std::string_view path, std::string& content) const;
  // Writes `content` to a temporary file in the same folder and renames it
  // over `path`, so a reader or a crash never meets a torn or empty file.
  // Keeps the permissions of the file it replaces.
  int ReplaceFile(std::string_view path, std::string_view content) const;
  // Deletes a folder with everything in it. Refuses (EINVAL) a path with a
  // "." or ".." component, so no user ID can point outside its folder.
  int DeleteFolder(std::string_view path) const;
};

// "エラー番号 " number " " description, the shape every object failure of
// the mail routines is reported in.
std::string ErrorNumberText(int number);

// Makes the file-system object. Statuses as the other mail routines: code 0,
// or -1 with the ErrorNumberText of ENOMEM.
Status funCreateObject_FileSystem(std::unique_ptr<FileSystem>& fso);

// Deletes `folder` (system "\" form) through `fso`; the user registration
// uses it for a deleted user's mail folder. Failure: code -1, the trail the
// ErrorNumberText of the errno.
Status funDeleteFolder(const FileSystem& fso, std::string_view folder);

}  // namespace orvane::accounts
