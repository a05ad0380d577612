#include "requests/web_class.h"

#include <exception>

#include "base/text.h"
#include "data/schema.h"

namespace orvane {

const RequestRoute* WebClass_Start(RequestContext& ctx) {
  std::string code = ctx.Field("ReqNo");
  ctx.DBFlg = ctx.Field("DBFlg");
  if (text::EqualsIgnoreCase(ctx.DBFlg, "1")) ctx.table_suffix = "_WORK";
  if (ctx.DBFlg != "0") {
    ctx.USR_MST = "T_USER" + ctx.table_suffix;
    ctx.SEC_MST = "T_SECTION" + ctx.table_suffix;
    ctx.SEC_MEM = "T_SECMEMBER" + ctx.table_suffix;
    ctx.PST_MST = "T_POST_MST";  // the post master has no work copy
    ctx.USR_MNU = "MENU_USER" + ctx.table_suffix;
  } else {
    ctx.USR_MST = "T_USER";
    ctx.SEC_MST = "T_SECTION";
    ctx.SEC_MEM = "T_SECMEMBER";
    ctx.PST_MST = "T_POST_MST";
    ctx.USR_MNU = "MENU_USER";
  }
  ctx.menu_list = std::string(data::kMenuCodeList);
  ctx.menu_codes = text::Split(ctx.menu_list, ",");
  ctx.menu_upper = static_cast<int>(ctx.menu_codes.size()) - 1;

  const RequestRoute* route = FindRoute(code);
  if (!route) {
    ctx.Write("ERROR:NOREQUESTCODE");
    return nullptr;
  }
  ctx.field_rules = route->field_rules;
  if (Status converted = route->call.invoke(ctx, route->call.args); !converted.ok()) {
    // A field that cannot become its parameter's type ends the request
    // before the operation runs, as an unhandled conversion error would.
    ctx.http_status = 500;
    ctx.Write(converted.trail());
  }
  return route;
}

const RequestRoute* RunRequest(RequestContext& ctx) {
  try {
    return WebClass_Start(ctx);
  } catch (const std::exception& e) {
    ctx.http_status = 500;
    ctx.Write(std::string("ERROR:INTERNAL ") + e.what());
  } catch (...) {
    ctx.http_status = 500;
    ctx.Write("ERROR:INTERNAL");
  }
  return FindRoute(ctx.Field("ReqNo"));
}

}  // namespace orvane
