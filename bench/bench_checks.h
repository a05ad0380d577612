// Small pieces the benchmark drivers share: stop on a failed step, the
// five-digit section codes their generated organisations use, and writing
// those sections.
#pragma once

#include <errno.h>  // program_invocation_short_name

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/status.h"
#include "data/db.h"
#include "dispatch/application_store.h"
#include "dispatch/config.h"
#include "dispatch/request_fields.h"
#include "dispatch/session.h"
#include "requests/web_class.h"

namespace orvane::bench {

// A benchmark without its set-up measures nothing: say which step failed and stop.
inline void Check(const Status& status, const std::string& what) {
  if (status.ok()) return;
  std::cerr << program_invocation_short_name << ": " << what << ": " << status.trail() << "\n";
  std::exit(1);
}

inline std::string Code(int i) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%05d", i);
  return buf;
}

// A generated section: its code, its parent's, its order and both paths.
struct Section {
  std::string code, parent, seq, tree, tree_nm;
};

// Writes `sections` (parents first) 200 rows a statement, in the open
// transaction on `conn`; each row's name is its code.
inline void InsertSections(data::Connection& conn, const std::vector<Section>& sections) {
  using data::Quoted;
  for (size_t i = 0; i < sections.size(); i += 200) {
    data::Sql sql;
    sql << "insert into " << data::Table("T_SECTION")
        << " (SEC_CD,JOI_SEC,SEC_NM,DSP_NM,SEC_SEQ,SEC_TREE,TREE_NM,UPD_KBN) values ";
    for (size_t j = i; j < std::min(i + 200, sections.size()); ++j) {
      const Section& s = sections[j];
      if (j > i) sql << ",";
      sql << "(" << Quoted(s.code) << "," << Quoted(s.parent) << "," << Quoted(s.code) << "," << Quoted(s.code) << ","
          << Quoted(s.seq) << "," << Quoted(s.tree) << "," << Quoted(s.tree_nm) << ",'3')";
    }
    Check(data::Com_funExecsql(conn, sql), "sections");
  }
}

// Runs the request `query` as `session`'s user, in process as the server
// would; anything but "OK" stops the benchmark.
inline void RunOk(const ConfigFile& config, Session& session, ApplicationStore& app, const std::string& query) {
  RequestContext ctx(config, session, app, SystemClock::Instance());
  ParseUrlEncoded(query, ctx.fields);
  RunRequest(ctx);
  if (ctx.response() == "OK") return;
  std::cerr << program_invocation_short_name << ": " << query << ": " << ctx.response() << "\n";
  std::exit(1);
}

}  // namespace orvane::bench
