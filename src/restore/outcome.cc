#include "restore/outcome.h"

namespace orvane::restore {

Outcome OutcomeOf(const std::string& answer, long entry) {
  Outcome out;
  out.entry = entry;
  if (answer == "OK") {
    out.ok = true;
    return out;
  }
  // The code is "ERROR:" and its capitals; what follows is the reason.
  size_t end = answer.starts_with("ERROR:") ? 6 : 0;
  while (end < answer.size() && answer[end] >= 'A' && answer[end] <= 'Z') ++end;
  out.error = answer.substr(0, end);
  if (out.error.empty() || out.error == "ERROR:") out.error = "ERROR:RESTORE";
  std::string rest = answer.substr(end);
  while (rest.starts_with("\r\n") || rest.starts_with(" ")) rest.erase(0, rest.starts_with(" ") ? 1 : 2);
  for (size_t at; (at = rest.find("\r\n")) != std::string::npos;) rest.replace(at, 2, ": ");
  out.message = rest.empty() ? "the change was refused (" + out.error + ")" : rest;
  return out;
}

}  // namespace orvane::restore
