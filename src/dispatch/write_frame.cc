#include "dispatch/write_frame.h"

#include "base/clock.h"
#include "dispatch/field_rules.h"
#include "dispatch/history_fields.h"
#include "dispatch/read_step_code.h"
#include "dispatch/session_check.h"

namespace orvane {

bool WriteFrame::Failed(const Status& status) {
  ctx_.NoteFailure(status);
  return !status.ok();
}

std::string WriteFrame::OwnCode(std::string_view code, const Status& status) const {
  std::string out(code);
  if (rules_.frame_trail) out += status.trail();
  return out;
}

bool WriteFrame::Start(std::initializer_list<RequiredKey> keys, std::vector<std::string>& values) {
  if (!ReadRequiredKeys(ctx_, keys, values)) return false;
  size_t i = 0;
  for (const RequiredKey& k : keys) {
    if (k.key == "LOCAL_DB_DSN") {
      dsn_ = values[i];
      dsn_read_ = true;
    }
    ++i;
  }
  Com_subGetDate(ctx_.clock(), stamp_.ymd, stamp_.hms);
  stamp_.usr = ctx_.session().Get("PUB_USR_ID");
  Status session = Com_funChkSession(ctx_, ctx_.CookieValue("pubCookie", "cookie_Userid"),
                                     ctx_.CookieValue("pubCookie", "cookie_Passwd"));
  if (Failed(session)) {
    ctx_.Write(OwnCode("ERROR:SESSIONCHECK", session));
    return false;
  }
  // The values are checked only once the request would go on to write.
  return CheckFields(ctx_, ctx_.field_rules);
}

bool WriteFrame::Start() {
  std::vector<std::string> values;
  return Start({{"LOCAL_DB_DSN", "ERROR:READINFOFILE_SV_FOLDER"}}, values);
}

bool WriteFrame::Open() {
  if (!dsn_read_ && !ReadRequiredKey(ctx_, "LOCAL_DB_DSN", "ERROR:READINFOFILE_SV_FOLDER", dsn_)) return false;
  if (Enlisted()) return true;
  Status open = data::Com_funDbOpen(dsn_, "", "", conn_);
  if (!Failed(open)) return true;
  ctx_.Write(OwnCode("ERROR:DBOPEN", open));
  return false;
}

bool WriteFrame::Begin(std::string_view lock_table) {
  if (lock_table.empty()) return Begin(std::initializer_list<std::string_view>{});
  return Begin({lock_table});
}

bool WriteFrame::Begin(std::initializer_list<std::string_view> lock_tables) {
  if (Enlisted()) {
    // The larger change holds the transaction and its entry; a table it
    // holds already is held again at no cost.
    Status lock = Status::Ok();
    for (std::string_view table : lock_tables)
      if (lock.ok()) lock = data::LockTable(conn(), table);
    if (Failed(lock)) {
      ctx_.Write(OwnCode("ERROR:BEGINTRANSACTION", lock));
      return false;
    }
    in_transaction_ = true;
    return true;
  }
  Status begin = data::Com_funBeginTrans(conn_);
  if (begin.ok()) {
    // The entry first: it reads nothing the locks protect, so the tables
    // are held one round trip less. A caller that names itself (a restore,
    // an undo) answers with its entry's id; a request saves the statement
    // that reads it.
    begin = ctx_.history.code.empty() ? data::OpenHistoryEntry(conn_, Entry("OK"))
                                      : data::OpenHistoryEntry(conn_, Entry("OK"), history_entry_);
    // The entry's failure is the one to answer; the pool rolls back again if this fails.
    if (!begin.ok()) data::Com_funRollbackTrans(conn_).IgnoreError();
  }
  for (std::string_view table : lock_tables) {
    if (!begin.ok()) break;
    begin = data::LockTable(conn_, table);
    if (!begin.ok()) data::Com_funRollbackTrans(conn_).IgnoreError();  // the lock's failure is the one to answer
  }
  if (!Failed(begin)) {
    in_transaction_ = true;
    return true;
  }
  CloseAndAnswer(OwnCode("ERROR:BEGINTRANSACTION", begin));
  return false;
}

void WriteFrame::Fail(std::string_view code, const Status& status) {
  Failed(status);
  std::string main;
  if (!status.answered()) main = std::string(code) + (rules_.step_trail ? status.trail() : std::string());
  if (in_transaction_ && !Enlisted()) {
    in_transaction_ = false;
    Status rollback = data::Com_funRollbackTrans(conn_);
    if (Failed(rollback) && !rules_.rollback_failure.empty()) main = OwnCode(rules_.rollback_failure, rollback);
  }
  RecordRefusal(main.empty() ? ctx_.response() : main);
  CloseAndAnswer(std::move(main));
}

void WriteFrame::Fail(std::string_view code) { Fail(code, Status::Ok()); }

bool WriteFrame::Step(std::string_view code, const Status& status) {
  if (status.ok()) return true;
  Fail(code, status);
  return false;
}

bool WriteFrame::ReadValue(const data::Sql& sql, const std::string& column, std::string_view select_failed,
                           std::string_view fetch_failed, std::string& value) {
  data::ReadStep step = data::ReadStep::kSelect;
  bool found = false;
  Status read = data::SelectFirstValue(conn(), sql, column, value, &found, &step);
  if (!read.ok()) {
    Fail(CodeOfReadStep(step, {.select = select_failed, .fetch = fetch_failed}), read);
    return false;
  }
  if (!found) Fail(fetch_failed);
  return found;
}

void WriteFrame::FailWithoutRollback(std::string_view code, const Status& status) {
  Failed(status);
  in_transaction_ = false;
  std::string main(code);
  if (rules_.step_trail) main += status.trail();
  RecordRefusal(main);
  CloseAndAnswer(std::move(main));
}

bool WriteFrame::Commit() {
  if (Enlisted()) {
    in_transaction_ = false;
    return true;
  }
  if (Status closed = data::CloseHistoryEntry(conn_, 0); Failed(closed)) {
    FailWithoutRollback(OwnCode("ERROR:DBCOMMIT", closed), Status::Ok());
    return false;
  }
  Status commit = data::Com_funCommitTrans(conn_);
  if (!Failed(commit)) {
    in_transaction_ = false;
    return true;
  }
  FailWithoutRollback(OwnCode("ERROR:DBCOMMIT", commit), Status::Ok());
  return false;
}

void WriteFrame::Finish(std::string_view answer) {
  if (Enlisted()) return ctx_.Write(answer);
  Status close = data::Com_funDbClose(conn_);
  ctx_.Write(Failed(close) ? OwnCode("ERROR:DBCLOSE", close) : std::string(answer));
}

data::HistoryEntry WriteFrame::Entry(std::string answer) const {
  data::HistoryEntry entry{.time = HistoryTime(stamp_.ymd, stamp_.hms),
                           .user = stamp_.usr,
                           .address = ctx_.client_address,
                           .code = ctx_.history.code.empty() ? ctx_.Field("ReqNo") : ctx_.history.code,
                           .fields = HistoryFieldsJson(ctx_.fields),
                           .answer = std::move(answer),
                           .undoes = ctx_.history.undoes};
  return entry;
}

void WriteFrame::RecordRefusal(const std::string& answer) {
  if (!conn_.IsOpen()) return;
  // A refusal the history could not keep changes no answer; the access
  // log has the request all the same.
  // A refusal reversed nothing: it names no entry as undone.
  data::HistoryEntry refusal = Entry(answer);
  refusal.undoes = 0;
  data::RecordHistoryEntry(conn_, refusal, &refusal_entry_).IgnoreError();
}

void WriteFrame::AfterCommit(AfterCommitStep step) {
  if (Enlisted()) {
    ctx_.enlistment->after_commit.push_back(std::move(step));
    return;
  }
  step(ctx_, conn_);
}

void WriteFrame::CloseAndAnswer(std::string main) {
  if (Enlisted()) return ctx_.Write(main);
  Status close = data::Com_funDbClose(conn_);
  if (!Failed(close)) {
    ctx_.Write(main);
    return;
  }
  std::string closing = OwnCode("ERROR:DBCLOSE", close);
  switch (rules_.close_failure) {
    case WriteRules::CloseFailure::kBefore:
      ctx_.Write(closing + main);
      break;
    case WriteRules::CloseFailure::kAfter:
      ctx_.Write(main + closing);
      break;
    case WriteRules::CloseFailure::kInstead:
      ctx_.Write(closing);
      break;
  }
}

}  // namespace orvane
