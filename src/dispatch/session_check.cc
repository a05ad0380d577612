#include "dispatch/session_check.h"

namespace orvane {

Status Com_funChkSession(RequestContext& ctx, const std::string& user_id, const std::string& password) {
  std::string dsn;
  if (Status s = ctx.config().ComIniFileLoad("LOCAL_DB_DSN", dsn); !s.ok()) {
    ctx.Write("ERROR:READINFOFILE_SV_FOLDER");
    return Status::Failure(s.trail(), Status::kDbFailed);
  }
  if (ctx.session().Get("PUB_USR_ID").empty()) return Status::Failure("", Status::kDbFailed);
  return Status::Ok();
}

}  // namespace orvane
