// The row images a history entry kept (docs/history.md), read back for a
// restore or an undo: the entry itself, its images in the order written,
// the deletion that removed a user or a group, and the two uses of an
// image: putting a deleted row back, and telling whether a row is still
// as a change left it.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/status.h"
#include "data/db.h"
#include "dispatch/config.h"

namespace orvane::restore {

// A row as an image keeps it: column (upper case) to value, null as nullopt.
using RowValues = std::map<std::string, std::optional<std::string>>;

struct Image {
  std::string table, action, key;  // action: "insert", "update" or "delete"
  RowValues before, after;
};

struct EntryHead {
  long id = 0;
  std::string time, code, answer, fields;  // fields: the request's, as JSON
  long undone_by = 0;                      // the latest entry undoing this one, 0 for none
};

// The entry `id`; `found` false when there is none. Its `undone_by` leaves
// out the entry `other_than` (an undo's own, open in its transaction).
Status ReadEntry(data::Connection& conn, long id, EntryHead& head, bool& found, long other_than = 0);
// Its images, in the order they were written.
Status ReadImages(data::Connection& conn, long id, std::vector<Image>& images);

// The oldest moment of the retention period (history/history_retention.h):
// a deletion before it is no longer restorable.
std::string RetentionStart(const ConfigFile& config, const Clock& clock);

// The latest committed entry of `code` that deleted the row `key` of
// `table` at or after `since`; 0 when none.
Status FindDeletion(data::Connection& conn, std::string_view table, std::string_view code, const std::string& key,
                    const std::string& since, long& entry);

// The key columns of a table the requests write ("SEC_CD", "USER_ID", or
// both for a membership), as an image's key joins them with "/".
std::vector<std::string> KeyColumns(std::string_view table);

// The `columns` of the row of `table` that `key` names, as it is now (a
// NULL as ""); `found` false when there is none.
Status ReadRow(data::Connection& conn, std::string_view table, const std::string& key,
               const std::vector<std::string>& columns, RowValues& row, bool& found);

// Inserts `values` as a row of `table`: null columns left out, a masked
// password stored empty (a restored user has none).
Status InsertRow(data::Connection& conn, std::string_view table, const RowValues& values);

// Whether the row `image` describes is still as the change left it: for an
// insert or an update the columns the change wrote hold what it wrote, for
// a delete the row is still gone. Otherwise `what` says what changed since
// ("group 0002: name is now 経理, the change left 総務").
Status StillAsLeft(data::Connection& conn, const Image& image, bool& same, std::string& what);

// The table's rows in words, for the answers: "group 0002", "membership
// of sato in 0004", "menu rights of sato".
std::string RowWords(std::string_view table, const std::string& key);

}  // namespace orvane::restore
