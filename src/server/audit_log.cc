#include "server/audit_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "server/access_log.h"

namespace orvane {
namespace {

bool IsPasswordField(std::string_view name) {
  std::string upper = text::ToUpperAscii(name);
  return upper.ends_with("_PS") || text::ContainsIgnoreCase(upper, "PASSW");
}

// "2026-11-23" from "2026-11-23", "20261123" or an audit time.
std::string DateOf(std::string_view s) {
  std::string digits;
  for (char c : s.substr(0, 10))
    if (c >= '0' && c <= '9') digits += c;
  return digits.substr(0, 8);
}

std::string StringAt(const nlohmann::json& j, const char* key) {
  return j.contains(key) && j[key].is_string() ? j[key].get<std::string>() : std::string();
}

std::string Readable(const nlohmann::json& j) {
  auto text = [&j](const char* key) { return StringAt(j, key); };
  std::string line = text("time") + "  " + (text("user").empty() ? "-" : text("user")) + "@" + text("client") + "  ";
  line += text("code").empty() ? text("event") : text("code");
  line += "  " + text("answer");
  if (!text("throttled").empty()) line += "  throttled=" + text("throttled");
  if (j.contains("fields") && j["fields"].is_object())
    for (const auto& [name, value] : j["fields"].items())
      if (value.is_string() && !text::EqualsIgnoreCase(name, "ReqNo")) line += "  " + name + "=" + value.get<std::string>();
  return line;
}

}  // namespace

std::string AnswerCode(std::string_view answer) {
  if (answer == "OK") return "OK";
  if (!answer.starts_with("ERROR:")) return "data";
  size_t end = answer.find_first_of(" \r\n<", 6);
  return std::string(answer.substr(0, end));
}

std::string FormatAuditLine(const AuditEntry& e, std::string_view time) {
  nlohmann::json j;
  j["time"] = time;
  j["event"] = e.event;
  j["user"] = e.user;
  j["client"] = e.client;
  if (!e.code.empty()) j["code"] = e.code;
  if (e.fields) {
    nlohmann::json fields = nlohmann::json::object();
    for (const auto& [name, value] : e.fields->items())
      if (!fields.contains(name)) fields[name] = IsPasswordField(name) ? "***" : value;  // the value the request read
    j["fields"] = std::move(fields);
  }
  j["answer"] = AnswerCode(e.answer);
  if (!e.throttled.empty()) j["throttled"] = e.throttled;
  // Bytes that are not UTF-8 are replaced rather than refused: the line is
  // written whatever a client sent.
  return j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

AuditLog::~AuditLog() {
  if (fd_ >= 0) ::close(fd_);
}

Status AuditLog::Open(const std::string& path) {
  int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
  if (fd < 0) return Status::Failure("cannot open the audit log " + path + ": " + std::strerror(errno));
  std::lock_guard lock(mu_);
  if (fd_ >= 0) ::close(fd_);
  fd_ = fd;
  path_ = path;
  return Status::Ok();
}

void AuditLog::Write(const AuditEntry& e) {
  std::string line = FormatAuditLine(e, WallTimeWithZone()) + "\n";
  std::lock_guard lock(mu_);
  if (fd_ < 0) return;
  for (size_t done = 0; done < line.size();) {
    ssize_t n = ::write(fd_, line.data() + done, line.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      std::cerr << "orvane: cannot write the audit log " << path_ << ": " << std::strerror(errno) << "\n";
      return;
    }
    done += static_cast<size_t>(n);
  }
}

std::vector<std::string> ReadableAuditLines(std::istream& log, const AuditFilter& filter) {
  std::vector<std::string> out;
  const std::string since = DateOf(filter.since);
  for (std::string line; std::getline(log, line);) {
    if (line.empty()) continue;
    nlohmann::json j = nlohmann::json::parse(line, nullptr, /*allow_exceptions=*/false);
    if (!j.is_object()) {
      out.push_back("(not an audit line) " + line);
      continue;
    }
    auto text = [&j](const char* key) { return StringAt(j, key); };
    if (!since.empty() && DateOf(text("time")) < since) continue;
    if (!filter.user.empty() && text("user") != filter.user) continue;
    if (!filter.code.empty() && text("code") != filter.code && text("event") != filter.code) continue;
    out.push_back(Readable(j));
  }
  return out;
}

}  // namespace orvane
