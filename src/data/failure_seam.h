// The failure seam: a test says "the Nth open (statement, fetch, ...) from
// now on fails with this SQLSTATE, message and native error", and the data
// layer then fails that call as if the database had refused it, on a real
// database, through the same code that handles the database's own failures:
// the same trail and Status, the same state left behind.
//
// It exists only where ORVANE_FAILURE_SEAM is defined, which is the test
// executable's copy of the data layer (orvane_data_seam). Elsewhere nothing
// here is declared and every hook is the constant false, so the executable
// and the benchmarks carry no trace of it.
//
// Each point counts the calls of its routines that pass this layer's own
// checks (connection open, statement built without a refused piece, unit
// not failed, recordset open, ...); a call those checks refuse never counts
// and never fires. What a fired failure leaves behind:
//
//   kOpen            Com_funDbOpen: no connection is taken from the pool.
//   kStatement       Com_funExecsql, Com_funSelect, Com_funSelectP (and
//                    SelectRows' select), instead of sending it: a refused
//                    statement, so an open transaction is rolled back and
//                    the unit fails until rolled back; no recordset.
//   kFetch           Com_funfetchData, also the call at the end of the
//                    result; `values` and `eof` are left as they were.
//   kRecordsetClose  Com_funRecordsetClose: the statement is freed all the
//                    same; the failure is reported.
//   kArrayCopy       Com_funRecodsetToArray: nothing copied, `out` untouched.
//   kBegin           Com_funBeginTrans: no transaction is opened.
//   kCommit          Com_funCommitTrans with a transaction open: a refused
//                    commit, which this layer rolls back, so nothing of the
//                    unit is committed and no transaction is left open.
//   kRollback        Com_funRollbackTrans, with or without a transaction
//                    open: an open one stays open (the pool rolls it back
//                    when the connection is returned).
//   kClose           Com_funDbClose: the connection goes back to the pool
//                    all the same; the failure is reported.
//
// Except at kOpen, the connection also notes the failure: a connection-loss
// SQLSTATE (class 08, 57P01) keeps it out of the pool, as a real loss does.
//
// Thread-safe: requests run on server threads while a test arms failures.
#pragma once

#ifdef ORVANE_FAILURE_SEAM

#include <string>

#include "base/status.h"

namespace orvane::data::seam {

enum class Point { kOpen, kStatement, kFetch, kRecordsetClose, kArrayCopy, kBegin, kCommit, kRollback, kClose };

// Arms a failure of the `nth` call at `point` counted from now (1: the next
// one). Several may be armed at once, at one point or several, each counting
// on its own; a fired one is used up. When several at one point come due on
// the same call, the one armed first fires and the others fire on the calls
// after it, one each. Throws std::invalid_argument when `nth` is below 1.
void FailAt(Point point, int nth, std::string sqlstate, std::string message, long native = 0);
// Disarms every armed failure.
void ClearFailures();

// The hook: counts a call at `point`; true when it is to fail, with the
// armed failure in `diag`.
bool Fails(Point point, Cause& diag);

}  // namespace orvane::data::seam

#define ORVANE_SEAM_FAILS(point, diag) (::orvane::data::seam::Fails(::orvane::data::seam::Point::point, diag))

#else

#define ORVANE_SEAM_FAILS(point, diag) false

#endif
