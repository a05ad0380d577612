// A history entry in words an administrator reads: what the request was
// ("group saved") and what it changed ("group 営業部 (0001): name 営業 ->
// 営業部"), names before codes.
#pragma once

#include <string>
#include <string_view>

#include "history/history_read.h"

namespace orvane::history {

// "group saved" for 202, "undo" and "restore user" for the callers' own
// codes; the code itself when it is none of them.
std::string OperationName(std::string_view code);

// One change in words: "group 営業部 (0001): name 営業 -> 営業部",
// "membership sato in 0002: added".
std::string DescribeChange(const RowChange& change);

// The entry's summary: up to three changes, "; " between them, and
// "(+N more)"; a refused request's first line of its answer.
std::string Summary(const Entry& entry);

}  // namespace orvane::history

namespace orvane::history {

// An entry an undo may reverse: a committed rename, move, order change,
// membership change or menu-rights change, not undone yet.
bool Undoable(const Entry& entry);

}  // namespace orvane::history
