#include "server/database_session_store.h"

#include <openssl/evp.h>

#include <algorithm>
#include <stdexcept>

#include "dispatch/request_fields.h"

namespace orvane {
namespace {

using data::Quoted;
using data::Table;

constexpr char kTable[] = "ORVANE_SESSION";

// What a request's session was loaded as, so that Keep knows what changed.
class StoredSession final : public Session {
 public:
  bool in_table = false;    // false: made by Create, not inserted yet
  std::string loaded;       // SESSION_VALUES as read
  long long last_used = 0;  // LAST_USED as read
};

// Ids are ours only when they look like NewSessionId's: anything else
// (no cookie, a forged one) is refused without a statement.
bool LooksLikeId(const std::string& id) {
  return id.size() == 32 &&
         std::all_of(id.begin(), id.end(), [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

// Twelve digits: text order is time order, on every backend.
std::string Seconds(long long s) {
  std::string digits = std::to_string(std::max(0LL, s));
  return std::string(digits.size() < 12 ? 12 - digits.size() : 0, '0') + digits;
}

long long ParseSeconds(const std::string& text) {
  long long s = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return 0;
    s = s * 10 + (c - '0');
  }
  return s;
}

void PercentEncode(std::string_view s, std::string& out) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  for (unsigned char c : s) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-' ||
        c == '.') {
      out.push_back(static_cast<char>(c));
    } else {
      out.push_back('%');
      out.push_back(kHex[c >> 4]);
      out.push_back(kHex[c & 15]);
    }
  }
}

}  // namespace

DatabaseSessionStore::DatabaseSessionStore(std::string config_path, std::chrono::seconds idle_timeout, TimeSource now)
    : config_(std::move(config_path)),
      idle_timeout_(idle_timeout),
      touch_interval_(std::max<std::chrono::seconds>(std::chrono::seconds(1), idle_timeout / 20)),
      now_(std::move(now)) {}

std::string DatabaseSessionStore::HashId(const std::string& id) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  if (EVP_Digest(id.data(), id.size(), digest, &size, EVP_sha256(), nullptr) != 1)
    throw std::runtime_error("SHA-256 failed");
  static constexpr char kHex[] = "0123456789abcdef";
  std::string hex;
  for (unsigned int i = 0; i < size; ++i) {
    hex.push_back(kHex[digest[i] >> 4]);
    hex.push_back(kHex[digest[i] & 15]);
  }
  return hex;
}

std::string DatabaseSessionStore::SerialiseValues(const Session& session) {
  std::string out;
  for (const auto& [name, value] : session.Values()) {
    if (!out.empty()) out.push_back('&');
    PercentEncode(name, out);
    out.push_back('=');
    PercentEncode(value, out);
  }
  return out;
}

void DatabaseSessionStore::ParseValues(const std::string& text, Session& session) {
  NamedValues values;
  ParseUrlEncoded(text, values);
  for (const auto& [name, value] : values.items()) session.Set(name, value);
}

long long DatabaseSessionStore::NowSeconds() const {
  return std::chrono::duration_cast<std::chrono::seconds>(now_().time_since_epoch()).count();
}

Status DatabaseSessionStore::Open(data::Connection& conn) const {
  std::string dsn;
  if (Status s = config_.ComIniFileLoad("LOCAL_DB_DSN", dsn); !s.ok()) return s;
  return data::Com_funDbOpen(dsn, "", "", conn);
}

std::shared_ptr<Session> DatabaseSessionStore::Find(const std::string& id) {
  if (!LooksLikeId(id)) return nullptr;
  data::Connection conn;
  if (!Open(conn).ok()) return nullptr;  // no database, no session: writes answer SESSIONCHECK
  const std::string hash = HashId(id);
  data::Sql sql;
  sql << "select SESSION_VALUES,LAST_USED,EXPIRES from " << Table(kTable) << " where SESSION_HASH = " << Quoted(hash);
  std::vector<std::string> row = {"", "", ""};
  bool found = false;
  if (!data::SelectFirstRow(conn, sql, {"SESSION_VALUES", "LAST_USED", "EXPIRES"}, row, found).ok() || !found)
    return nullptr;
  const long long now = NowSeconds();
  if (ParseSeconds(row[2]) <= now) {
    data::Sql drop;
    drop << "delete from " << Table(kTable) << " where SESSION_HASH = " << Quoted(hash);
    // Gone either way: a row left behind is removed by a later login.
    data::Com_funExecsql(conn, drop).IgnoreError();
    return nullptr;
  }
  auto session = std::make_shared<StoredSession>();
  ParseValues(row[0], *session);
  session->in_table = true;
  session->loaded = std::move(row[0]);
  session->last_used = ParseSeconds(row[1]);
  return session;
}

std::shared_ptr<Session> DatabaseSessionStore::Create(std::string& id) {
  id = NewSessionId();
  return std::make_shared<StoredSession>();
}

Status DatabaseSessionStore::Keep(const std::string& id, const std::shared_ptr<Session>& session) {
  constexpr char kRoutine[] = "DatabaseSessionStore::Keep";
  auto stored = std::dynamic_pointer_cast<StoredSession>(session);
  if (!stored || !LooksLikeId(id)) return Status::Ok();  // not one of ours: an anonymous request's
  const long long now = NowSeconds();
  std::string values = SerialiseValues(*stored);
  const bool changed = !stored->in_table || values != stored->loaded;
  if (!changed && now - stored->last_used < touch_interval_.count()) return Status::Ok();

  const std::string hash = HashId(id), last_used = Seconds(now),
                    expires = Seconds(now + idle_timeout_.count() + touch_interval_.count());
  data::Connection conn;
  if (Status s = Open(conn); !s.ok()) return std::move(s).Prefixed(kRoutine);
  data::Sql sql;
  if (!stored->in_table) {
    sql << "insert into " << Table(kTable) << " (SESSION_HASH,SESSION_VALUES,LAST_USED,EXPIRES) values ("
        << Quoted(hash) << "," << Quoted(values) << "," << Quoted(last_used) << "," << Quoted(expires) << ")";
  } else if (changed) {
    // Only when this request changed a value: a request that merely
    // touches must not write back values another instance changed since.
    sql << "update " << Table(kTable) << " set SESSION_VALUES = " << Quoted(values)
        << " ,LAST_USED = " << Quoted(last_used) << " ,EXPIRES = " << Quoted(expires)
        << " where SESSION_HASH = " << Quoted(hash);
  } else {
    sql << "update " << Table(kTable) << " set LAST_USED = " << Quoted(last_used) << " ,EXPIRES = " << Quoted(expires)
        << " where SESSION_HASH = " << Quoted(hash);
  }
  // An update of a row another instance deleted (logout) changes nothing:
  // the session stays ended.
  if (Status s = data::Com_funExecsql(conn, sql); !s.ok()) return std::move(s).Prefixed(kRoutine);
  if (!stored->in_table) {
    stored->in_table = true;
    // Logins add rows, so logins take the expired ones away.
    if (Status s = RemoveExpired(conn, now); !s.ok()) return std::move(s).Prefixed(kRoutine);
  }
  stored->loaded = std::move(values);
  stored->last_used = now;
  return data::Com_funDbClose(conn).Prefixed(kRoutine);
}

Status DatabaseSessionStore::RemoveExpired(data::Connection& conn, long long now) const {
  data::Sql sql;
  // Bounded, through the EXPIRES index: a login never pays for a scan.
  if (conn.dialect().HasPageClause()) {
    sql << "delete from " << Table(kTable) << " where SESSION_HASH in (select SESSION_HASH from " << Table(kTable)
        << " where EXPIRES <= " << Quoted(Seconds(now)) << " limit 100)";
  } else {
    sql << "delete top (100) from " << Table(kTable) << " where EXPIRES <= " << Quoted(Seconds(now));
  }
  return data::Com_funExecsql(conn, sql);
}

void DatabaseSessionStore::Remove(const std::string& id) {
  if (!LooksLikeId(id)) return;
  data::Connection conn;
  if (!Open(conn).ok()) return;
  data::Sql sql;
  sql << "delete from " << Table(kTable) << " where SESSION_HASH = " << Quoted(HashId(id));
  // Remove has no answer to give; the row expires by itself if this fails.
  data::Com_funExecsql(conn, sql).IgnoreError();
}

Status DatabaseSessionStore::RemoveUserSessions(const std::string& user_id, const std::string& except_id) {
  constexpr char kRoutine[] = "DatabaseSessionStore::RemoveUserSessions";
  if (user_id.empty()) return Status::Ok();
  data::Connection conn;
  if (Status s = Open(conn); !s.ok()) return std::move(s).Prefixed(kRoutine);
  std::string pattern = "%PUB_USR_ID=";
  PercentEncode(user_id, pattern);
  pattern += '%';  // "_" in an id matches any byte: the values are compared below
  data::Sql sql;
  sql << "select SESSION_HASH,SESSION_VALUES from " << Table(kTable) << " where SESSION_VALUES like "
      << Quoted(pattern);
  const std::string keep = LooksLikeId(except_id) ? HashId(except_id) : std::string();
  std::vector<std::string> doomed;
  auto note = [&](const std::vector<std::string>& row) {
    Session values;
    ParseValues(row[1], values);
    if (row[0] != keep && values.Get("PUB_USR_ID") == user_id) doomed.push_back(row[0]);
    return true;
  };
  if (Status s = data::SelectRows(conn, sql, {"SESSION_HASH", "SESSION_VALUES"}, note); !s.ok())
    return std::move(s).Prefixed(kRoutine);
  for (const std::string& hash : doomed) {
    data::Sql drop;
    drop << "delete from " << Table(kTable) << " where SESSION_HASH = " << Quoted(hash);
    if (Status s = data::Com_funExecsql(conn, drop); !s.ok()) return std::move(s).Prefixed(kRoutine);
  }
  return data::Com_funDbClose(conn).Prefixed(kRoutine);
}

}  // namespace orvane
