#include "dispatch/config.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "base/text.h"

namespace orvane {

ConfigEntries ParseConfigText(std::string_view contents) {
  ConfigEntries entries;
  for (std::string line : text::Split(contents, "\n")) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    line = text::Trim(text::RemoveAll(line, '\t'));
    if (line.empty()) continue;
    if (size_t hash = line.find('#'); hash != std::string::npos) line.erase(hash);
    // The value ends at a second "=": "KEY=a=b" means "a". Kept on purpose.
    std::vector<std::string> parts = text::Split(line, "=");
    std::string key = text::ToUpperAscii(text::Trim(parts[0]));
    std::string value = parts.size() > 1 ? text::Trim(parts[1]) : std::string();
    entries.emplace(std::move(key), std::move(value));  // first line wins
  }
  return entries;
}

ConfigFile::ConfigFile(std::string path) : path_(std::move(path)) {}

ConfigFile::ConfigFile(const ConfigFile& source) : path_(source.path_), source_(&source) {}

std::string ConfigFile::Folder() const {
  size_t slash = path_.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path_.substr(0, slash);
}

std::shared_ptr<const ConfigEntries> ConfigFile::Load(std::string& error) const {
  if (source_) {
    std::lock_guard lock(mu_);
    if (!read_) cached_ = source_->Load(read_error_), read_ = true;
    error = read_error_;
    return cached_;
  }
  struct stat st {};
  if (::stat(path_.c_str(), &st) != 0) {
    error = std::strerror(errno);
    return nullptr;
  }
  Identity id{static_cast<unsigned long long>(st.st_dev), static_cast<unsigned long long>(st.st_ino),
              static_cast<long long>(st.st_size),
              static_cast<long long>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec,
              static_cast<long long>(st.st_ctim.tv_sec) * 1000000000LL + st.st_ctim.tv_nsec};
  {
    std::lock_guard lock(mu_);
    if (cached_ && cached_id_ == id) return cached_;
  }
  std::ifstream in(path_, std::ios::binary);
  if (!in) {
    error = std::strerror(errno);
    return nullptr;
  }
  std::ostringstream contents;
  contents << in.rdbuf();
  auto parsed = std::make_shared<const ConfigEntries>(ParseConfigText(contents.str()));
  std::lock_guard lock(mu_);
  cached_id_ = id;
  cached_ = parsed;
  return parsed;
}

Status ConfigFile::ComIniFileLoad(std::string_view key, std::string& value) const {
  value.clear();
  std::string error;
  std::shared_ptr<const ConfigEntries> entries = Load(error);
  if (!entries) return Status::Failure("環境ファイル(" + path_ + ")を開けません。" + error);
  auto it = entries->find(text::ToUpperAscii(key));
  if (it == entries->end())
    return Status::Failure("環境ファイル(" + path_ + ")に『" + std::string(key) + "』が存在しません。");
  if (it->second.empty())
    return Status::Failure("環境ファイル(" + path_ + ")の\"" + std::string(key) + "\"は無効な設定です");
  value = it->second;
  return Status::Ok();
}

std::string ConfigFile::Get(std::string_view key) const {
  std::string value;
  ComIniFileLoad(key, value).IgnoreError();  // a missing key reads as empty here, by design
  return value;
}

}  // namespace orvane
