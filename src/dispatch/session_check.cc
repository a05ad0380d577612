#include "dispatch/session_check.h"

namespace orvane {

void Com_funChkSession(RequestContext& ctx, const std::string& user_id, const std::string& password,
                       std::string& error, int& result) {
  result = 1;
  std::string dsn, message;
  bool found = false;
  ctx.config().ComIniFileLoad("LOCAL_DB_DSN", dsn, message, found);
  if (!found) {
    error = message;
    ctx.Write("ERROR:READINFOFILE_SV_FOLDER");
    return;
  }
  if (!ctx.session().Get("PUB_USR_ID").empty()) result = 0;
}

}  // namespace orvane
