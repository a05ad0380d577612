// Writing the change history: the entry a changing transaction opens, so
// that the triggers file its row images under it, and the entries written
// on their own (a refused request). These are the server's bookkeeping, not
// the system's statements: they go past the failure seam's counting, as the
// password mode's read does, so a test that fails an operation's Nth
// statement counts only the operation's.
#pragma once

#include <string>

#include "base/status.h"
#include "data/db.h"

namespace orvane::data {

struct HistoryEntry {
  std::string time;     // "YYYY-MM-DD HH:MM:SS"
  std::string user;     // the session's PUB_USR_ID
  std::string address;  // the client's address ("local" from a shell)
  std::string code;     // the request code, or a caller's own ("undo", ...)
  std::string fields;   // a JSON object of the request's fields, passwords masked
  std::string answer;   // "OK" for a change; the refusal's answer otherwise
  long undoes = 0;      // the entry this one undid, 0 for none
};

// Inside the transaction that makes the change, before its first write:
// adds `entry` and makes it the one every row image written by this
// transaction belongs to, until CloseHistoryEntry or the transaction's end.
Status OpenHistoryEntry(Connection& conn, const HistoryEntry& entry, long& id);
// Right before the commit: the entry takes no more row images.
Status CloseHistoryEntry(Connection& conn, long id);
// Whether the write frame keeps entries at all (default: yes). Off only
// for the benchmark's "without history" figures, on a database whose
// triggers it dropped; process-wide.
void SetHistoryKept(bool kept);
bool HistoryKept();

// An entry without row images, committed at once: outside a transaction
// (an open one, already failed, is rolled back first).
Status RecordHistoryEntry(Connection& conn, const HistoryEntry& entry, long* id = nullptr);

}  // namespace orvane::data
