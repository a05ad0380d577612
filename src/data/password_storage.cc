#include "data/password_storage.h"

#include <atomic>
#include <thread>

#include "base/password_hash.h"
#include "base/text.h"

namespace orvane::data {
namespace {

constexpr const char* kUserTables[] = {"T_USER", "T_USER_WORK"};
constexpr const char* kPassgenTables[] = {"T_PASSGEN", "T_PASSGEN_WORK"};

std::vector<std::string> PassgenColumns() {
  std::vector<std::string> out;
  for (int g = 1; g <= 10; ++g) out.push_back((g < 10 ? "GEN0" : "GEN") + std::to_string(g) + "_PASS");
  return out;
}

bool IsPasswordColumn(const std::string& table, const std::string& column) {
  const std::string t = text::ToUpperAscii(table), c = text::ToUpperAscii(column);
  if (t == "T_USER" || t == "T_USER_WORK") return c == "PASSWORD";
  if (t == "T_PASSGEN" || t == "T_PASSGEN_WORK") return c.starts_with("GEN") && c.ends_with("_PASS");
  return false;
}

// One stored value to convert.
struct Item {
  size_t table;  // index into `counts`
  std::string column, user_id, old, hash;
};

Status CollectItems(Connection& conn, std::vector<ConversionCount>& counts, std::vector<Item>& items) {
  auto collect = [&](const char* table, const std::vector<std::string>& columns) {
    const size_t index = counts.size();
    counts.push_back({table, 0});
    Sql sql;
    sql << "select USER_ID";
    std::vector<std::string> names = {"USER_ID"};
    for (const std::string& c : columns) {
      sql << ", " << Identifier(c);
      names.push_back(c);
    }
    sql << " from " << Table(table);
    auto keep = [&](const std::vector<std::string>& row) {
      for (size_t i = 1; i < row.size(); ++i)
        if (!row[i].empty() && !IsPasswordHash(row[i])) items.push_back({index, names[i], row[0], row[i], {}});
      return true;
    };
    return SelectRows(conn, sql, names, keep);
  };
  for (const char* table : kUserTables)
    if (Status s = collect(table, {"PASSWORD"}); !s.ok()) return s;
  for (const char* table : kPassgenTables)
    if (Status s = collect(table, PassgenColumns()); !s.ok()) return s;
  return Status::Ok();
}

// Hashes every item on as many threads as hashes may run at once.
Status HashItems(std::vector<Item>& items) {
  std::atomic<size_t> next{0};
  std::atomic<bool> failed{false};
  auto work = [&] {
    for (size_t i = next++; i < items.size() && !failed; i = next++)
      if (!HashPassword(items[i].old, items[i].hash).ok()) failed = true;
  };
  std::vector<std::thread> threads;
  for (unsigned t = 1; t < ConcurrentHashLimit(); ++t) threads.emplace_back(work);
  work();
  for (std::thread& t : threads) t.join();
  if (failed) return Status::Failure("HashPassword\r\nargon2id: out of memory");
  return Status::Ok();
}

}  // namespace

Status WidenPasswordColumns(Connection& conn, std::vector<std::string>& widened) {
  constexpr char kRoutine[] = "WidenPasswordColumns";
  widened.clear();
  const Dialect::Kind kind = conn.dialect().kind();
  if (kind == Dialect::Kind::kSqlite) return Status::Ok();
  Sql find;
  find << "select table_name, column_name from information_schema.columns where table_schema = "
       << (kind == Dialect::Kind::kPostgres ? SqlText("current_schema()") : SqlText("SCHEMA_NAME()"))
       << " and character_maximum_length is not null and character_maximum_length > 0"
       << " and character_maximum_length < 128";
  static_assert(kPasswordHashMaxLength == 128);
  std::vector<std::pair<std::string, std::string>> narrow;
  auto keep = [&](const std::vector<std::string>& row) {
    if (IsPasswordColumn(row[0], row[1])) narrow.emplace_back(row[0], row[1]);
    return true;
  };
  if (Status s = SelectRows(conn, find, {"table_name", "column_name"}, keep); !s.ok())
    return std::move(s).Prefixed(kRoutine);
  if (narrow.empty()) return Status::Ok();
  if (Status s = Com_funBeginTrans(conn); !s.ok()) return std::move(s).Prefixed(kRoutine);
  for (const auto& [table, column] : narrow) {
    // A wider type of the same family: the stored text is kept as it is.
    Sql alter;
    alter << "ALTER TABLE " << Table(table) << " ALTER COLUMN " << Identifier(column)
          << (kind == Dialect::Kind::kPostgres ? SqlText(" TYPE TEXT") : SqlText(" nvarchar(255)"));
    if (Status s = Com_funExecsql(conn, alter); !s.ok()) {
      Com_funRollbackTrans(conn).IgnoreError();  // the statement's failure is the one to report
      return std::move(s).Prefixed(kRoutine);
    }
    widened.push_back(table + "." + column);
  }
  return Com_funCommitTrans(conn).Prefixed(kRoutine);
}

Status ChoosePasswordMode(Connection& conn, bool plain_requested, ModeChoice& choice) {
  constexpr char kRoutine[] = "ChoosePasswordMode";
  choice = {};
  if (Status s = Com_funBeginTrans(conn); !s.ok()) return std::move(s).Prefixed(kRoutine);
  auto fail = [&conn, kRoutine](Status s) {
    Com_funRollbackTrans(conn).IgnoreError();  // nothing was written; the cause is `s`
    return std::move(s).Prefixed(kRoutine);
  };
  if (Status s = ReadPasswordMode(conn, choice.mode, &choice.was_recorded); !s.ok()) return fail(std::move(s));
  if (choice.was_recorded) {
    Com_funRollbackTrans(conn).IgnoreError();  // read only
    if (plain_requested && choice.mode == PasswordMode::kArgon2id)
      return Status::Failure("the database keeps argon2id hashes, which cannot be turned back into plain passwords");
    return Status::Ok();
  }
  long users = 0;
  for (const char* table : kUserTables) {
    Sql count;
    count << "select count(USER_ID) as CNT from " << Table(table);
    long n = 0;
    if (Status s = SelectCount(conn, count, n); !s.ok()) return fail(std::move(s));
    users += n;
  }
  choice.existing_users = users > 0;
  choice.mode = plain_requested || choice.existing_users ? PasswordMode::kPlain : PasswordMode::kArgon2id;
  if (Status s = WritePasswordMode(conn, choice.mode); !s.ok()) return fail(std::move(s));
  return Com_funCommitTrans(conn).Prefixed(kRoutine);
}

Status HashStoredPasswords(Connection& conn, std::vector<ConversionCount>& counts) {
  constexpr char kRoutine[] = "HashStoredPasswords";
  counts.clear();
  if (Status s = Com_funBeginTrans(conn); !s.ok()) return std::move(s).Prefixed(kRoutine);
  auto fail = [&conn, kRoutine](Status s) {
    Com_funRollbackTrans(conn).IgnoreError();  // the unit's own failure is the one to report
    return std::move(s).Prefixed(kRoutine);
  };
  // The mode row first: a transaction that read the old mode to store a
  // password ends before this goes on, and one that reads it from now on
  // waits and reads argon2id. Then writers of users wait until the
  // conversion is committed, so no value in clear slips in behind the select.
  if (Status s = WritePasswordMode(conn, PasswordMode::kArgon2id); !s.ok()) return fail(std::move(s));
  for (const char* table : kUserTables)
    if (Status s = LockTable(conn, table); !s.ok()) return fail(std::move(s));
  for (const char* table : kPassgenTables)
    if (Status s = LockTable(conn, table); !s.ok()) return fail(std::move(s));
  std::vector<Item> items;
  if (Status s = CollectItems(conn, counts, items); !s.ok()) return fail(std::move(s));
  if (Status s = HashItems(items); !s.ok()) return fail(std::move(s));
  for (const Item& item : items) {
    // By id and old value: T_PASSGEN has no key of its own.
    Sql update;
    update << "update " << Table(counts[item.table].table) << " set " << Identifier(item.column) << " = "
           << Quoted(item.hash) << " where USER_ID = " << Quoted(item.user_id) << " and " << Identifier(item.column)
           << " = " << Quoted(item.old);
    if (Status s = Com_funExecsql(conn, update); !s.ok()) return fail(std::move(s));
    ++counts[item.table].converted;
  }
  return Com_funCommitTrans(conn).Prefixed(kRoutine);
}

}  // namespace orvane::data
