// WriteFrame: the road every changing request takes, written once.
//
//   Start   the configuration keys in the operation's order, each missing or
//           empty one answering its own code; then the session check
//           ("ERROR:SESSIONCHECK"), with no database opened; then the
//           request's field rules ("ERROR:INVALIDVALUE", dispatch/field_rules.h)
//   Open    "ERROR:DBOPEN"
//   Begin   "ERROR:BEGINTRANSACTION", after closing the connection
//   ...     the operation's statements on conn(); a failed step calls
//           Fail(code, status): roll back, close, answer
//   Commit  "ERROR:DBCOMMIT", after closing the connection (the open
//           transaction goes with it)
//   ...     what follows a commit, on the same connection
//   Finish  close, then the operation's answer ("OK"), or "ERROR:DBCLOSE"
//
// What differs between operations is said once in WriteRules: whether the
// frame's own codes carry the error trail behind them, where the
// "ERROR:DBCLOSE" of a close that fails after another failure stands, and
// whether a failed rollback answers a code of its own.
//
// The frame cannot forget a rollback or a close: the connection it holds
// goes back to the pool rolled back whenever the frame goes away, whatever
// path the operation took. Every failing status's database cause is noted
// on the request for the access log.
//
// Every change is kept in the change history (data/history_store.h): Begin
// opens the request's entry inside the transaction, so the triggers file
// the rows it writes under it, and Commit closes it; a rolled-back change
// leaves no entry of a change. A request refused once the database was
// opened gets an entry of its own with its answer, outside the rolled-back
// transaction.
//
// A request can also run as one step of a larger change (an undo made of
// several requests): enlisted, its frame writes on the larger change's
// connection inside its transaction and history entry; Open, Begin,
// Commit and Finish touch neither the connection nor the transaction, a
// failure only answers (the larger change rolls back), and what follows
// the step's commit waits for the larger change's own.
//
// One frame per request; not shared between threads.
#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "base/status.h"
#include "data/db.h"
#include "data/history_store.h"
#include "dispatch/request_context.h"
#include "dispatch/required_keys.h"

namespace orvane {

// What follows a commit: run with the request (or, for an enlisted step,
// the larger change) and its connection once the rows are committed.
using AfterCommitStep = std::function<void(RequestContext&, data::Connection&)>;

// The larger change a step is enlisted in: its connection, and the steps
// its commit is to be followed by.
struct Enlistment {
  data::Connection& conn;
  std::vector<AfterCommitStep> after_commit;
  // The steps put back values their rows held before (an undo): a rule
  // that only new values must meet (a department code's length) does not
  // refuse them.
  bool puts_back_stored_values = false;
  // A step changed the tree: its redraw is queued once, whatever the
  // number of such steps.
  bool tree_redraw_queued = false;
};

struct WriteRules {
  // Where "ERROR:DBCLOSE" goes when the close that follows another failure
  // fails too.
  enum class CloseFailure {
    kBefore,   // in front of the main error
    kAfter,    // behind it
    kInstead,  // in its place
  };
  CloseFailure close_failure = CloseFailure::kBefore;
  // The frame's own codes (SESSIONCHECK, DBOPEN, BEGINTRANSACTION,
  // DBCOMMIT, DBCLOSE) are followed directly by the error trail.
  bool frame_trail = false;
  // A failed step's code is followed directly by the step's trail.
  bool step_trail = true;
  // Non-empty: a rollback that fails answers this code instead of the
  // failed step's. Empty: the rollback's failure changes no answer.
  std::string_view rollback_failure;
};

class WriteFrame {
 public:
  WriteFrame(RequestContext& ctx, WriteRules rules)
      : ctx_(ctx), rules_(rules), conn_in_use_(ctx.enlistment ? &ctx.enlistment->conn : &conn_) {}
  ~WriteFrame() = default;  // `conn_` returns to the pool rolled back
  WriteFrame(const WriteFrame&) = delete;
  WriteFrame& operator=(const WriteFrame&) = delete;

  // Reads `keys` in order into `values` (a failing key writes its code),
  // then checks the session with the "pubCookie" values, then the request's
  // field rules. False when the request has been answered.
  bool Start(std::initializer_list<RequiredKey> keys, std::vector<std::string>& values);
  // The same with LOCAL_DB_DSN alone ("ERROR:READINFOFILE_SV_FOLDER").
  bool Start();

  // The stamp of every row this request writes: UPD_YMD and UPD_HMS of the
  // moment Start ran (Com_subGetDate), UPD_USR the session's PUB_USR_ID.
  struct Stamp {
    std::string ymd, hms, usr;
  };
  const Stamp& stamp() const { return stamp_; }
  // Opens LOCAL_DB_DSN (read by Start when among its keys).
  bool Open();
  // Begins the transaction; with `lock_table`, also holds that table
  // against other writers until it ends (a failure answers as the begin's).
  bool Begin(std::string_view lock_table = {});
  // The same holding several tables, locked in the order given: callers
  // that lock more than one table name them in one order, so that no two
  // writers wait for each other.
  bool Begin(std::initializer_list<std::string_view> lock_tables);
  data::Connection& conn() { return *conn_in_use_; }
  // True when the request is a step of a larger change (see above).
  bool Enlisted() const { return ctx_.enlistment != nullptr; }
  // After the commit (the larger change's, when enlisted): `step`, with
  // whatever it needs captured by value.
  void AfterCommit(AfterCommitStep step);
  // LOCAL_DB_DSN as read by Start or Open.
  const std::string& Dsn() const { return dsn_; }
  bool InTransaction() const { return in_transaction_; }
  // The history entry of this request: the refusal's once one was kept,
  // else the one Begin opened (0 before Begin).
  long HistoryEntryId() const { return refusal_entry_ ? refusal_entry_ : history_entry_; }

  // A step failed: roll back (when a transaction is open), close, and
  // answer `code`, followed directly by the status's trail when the rules
  // say so. An answered status (Status::Answered) adds nothing: the answer
  // already written stands.
  void Fail(std::string_view code, const Status& status);
  // The same with no trail behind the code (a check's own refusal).
  void Fail(std::string_view code);
  // A failure that closes without an explicit rollback: the open
  // transaction is discarded with the connection.
  void FailWithoutRollback(std::string_view code, const Status& status);

  bool Commit();
  // Closes and answers `answer`, or "ERROR:DBCLOSE" when the close fails.
  void Finish(std::string_view answer = "OK");

  // One step of the operation: true when `status` succeeded; otherwise
  // Fail(code, status) and false.
  bool Step(std::string_view code, const Status& status);

  // The first row's `column` of `sql` into `value`. A failing select answers
  // `select_failed`, a failing fetch or no row at all `fetch_failed`, a
  // failing close "ERROR:RSCLOSE" (each through Fail); false then.
  bool ReadValue(const data::Sql& sql, const std::string& column, std::string_view select_failed,
                 std::string_view fetch_failed, std::string& value);

  // Notes `status`'s cause on the request; true when it failed.
  bool Failed(const Status& status);

 private:
  // The history entry of this request, answered `answer`.
  data::HistoryEntry Entry(std::string answer) const;
  // A refused request's entry, after its transaction was rolled back.
  void RecordRefusal(const std::string& answer);
  // The frame's own code, with the trail when the rules say so.
  std::string OwnCode(std::string_view code, const Status& status) const;
  void CloseAndAnswer(std::string main);

  RequestContext& ctx_;
  WriteRules rules_;
  std::string dsn_;
  bool dsn_read_ = false;
  Stamp stamp_;
  data::Connection conn_;          // the request's own, unused when enlisted
  data::Connection* conn_in_use_;  // conn_ or the larger change's
  bool in_transaction_ = false;
  long history_entry_ = 0;  // the open entry when a caller named itself, else 0
  long refusal_entry_ = 0;  // a refusal's own entry, 0 for none
};

}  // namespace orvane
