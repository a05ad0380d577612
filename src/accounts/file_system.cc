#include "accounts/file_system.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <new>
#include <system_error>

#include "base/text.h"

namespace orvane::accounts {
namespace fs = std::filesystem;

namespace {

int WriteAll(int fd, std::string_view content) {
  while (!content.empty()) {
    ssize_t n = ::write(fd, content.data(), content.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    content.remove_prefix(static_cast<size_t>(n));
  }
  return 0;
}

}  // namespace

std::string LocalPath(std::string_view system_path) { return text::ReplaceAll(system_path, "\\", "/"); }

std::string ErrorNumberText(int number) {
  return "エラー番号 " + std::to_string(number) + " " + std::system_category().message(number);
}

bool FileSystem::FolderExists(std::string_view path) const {
  std::error_code ec;
  return fs::is_directory(LocalPath(path), ec);
}

bool FileSystem::FileExists(std::string_view path) const {
  std::error_code ec;
  return fs::is_regular_file(LocalPath(path), ec);
}

std::vector<std::string> FileSystem::SubFolderNames(std::string_view path) const {
  std::vector<std::string> names;
  std::error_code ec;
  for (fs::directory_iterator it(LocalPath(path), ec), end; !ec && it != end; it.increment(ec)) {
    std::error_code dir_ec;
    if (it->is_directory(dir_ec)) names.push_back(it->path().filename().string());
  }
  std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
    std::string ua = text::ToUpperAscii(a), ub = text::ToUpperAscii(b);
    return ua != ub ? ua < ub : a < b;
  });
  return names;
}

int FileSystem::ReadAll(std::string_view path, std::string& content) const {
  content.clear();
  int fd = ::open(LocalPath(path).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno;
  char chunk[8192];
  for (;;) {
    ssize_t n = ::read(fd, chunk, sizeof chunk);
    if (n > 0) {
      content.append(chunk, static_cast<size_t>(n));
    } else if (n == 0 || errno != EINTR) {
      int err = n == 0 ? 0 : errno;
      ::close(fd);
      return err;
    }
  }
}

int FileSystem::ReplaceFile(std::string_view path, std::string_view content) const {
  std::string target = LocalPath(path);
  fs::path p(target);
  // Built by appends: GCC 12 warns falsely on literal + temporary.
  std::string name = ".";
  name.append(p.filename().string()).append(".XXXXXX");
  std::string temp = (p.parent_path() / name).string();
  int fd = ::mkostemp(temp.data(), O_CLOEXEC);
  if (fd < 0) return errno;
  struct stat old {};
  mode_t mode = ::stat(target.c_str(), &old) == 0 ? (old.st_mode & 07777) : 0644;
  int err = ::fchmod(fd, mode) != 0 ? errno : 0;
  if (!err) err = WriteAll(fd, content);
  if (!err && ::fsync(fd) != 0) err = errno;
  if (::close(fd) != 0 && !err) err = errno;
  if (!err && ::rename(temp.c_str(), target.c_str()) != 0) err = errno;
  if (err) ::unlink(temp.c_str());
  return err;
}

int FileSystem::DeleteFolder(std::string_view path) const {
  std::string local = LocalPath(path);
  for (const std::string& part : text::Split(local, "/"))
    if (part == "." || part == "..") return EINVAL;
  std::error_code ec;
  fs::file_status st = fs::symlink_status(local, ec);
  if (st.type() == fs::file_type::not_found) return ENOENT;
  if (st.type() != fs::file_type::directory) return ec ? ec.value() : ENOTDIR;
  fs::remove_all(local, ec);
  return ec.value();
}

Status funCreateObject_FileSystem(std::unique_ptr<FileSystem>& fso) {
  fso.reset(new (std::nothrow) FileSystem());
  if (!fso) return Status::Failure(ErrorNumberText(ENOMEM));
  return Status::Ok();
}

Status funDeleteFolder(const FileSystem& fso, std::string_view folder) {
  if (int err = fso.DeleteFolder(folder); err != 0) return Status::Failure(ErrorNumberText(err));
  return Status::Ok();
}

}  // namespace orvane::accounts
