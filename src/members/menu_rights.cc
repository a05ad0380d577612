#include "members/menu_rights.h"

#include "base/clock.h"
#include "base/text.h"
#include "data/schema.h"
#include "dispatch/query_frame.h"
#include "dispatch/write_frame.h"

namespace orvane::members {
namespace {

constexpr std::string_view kFacilityNumber = "02";
constexpr std::string_view kFacilityName = "施設予約";

// Menus the rights form never shows.
bool Hidden(std::string_view number) { return number == "00" || number == "52" || number == "53"; }

// Facility reservation and its sub-menus; "11" to "18" is a text range.
bool FacilityGroup(std::string_view number) {
  return number == "02" || number == "20" || (number >= "11" && number <= "18");
}

bool Has(const std::string& rights, std::string_view number) {
  // Built by appends: GCC 12 warns falsely on literal + temporary.
  std::string framed = "/";
  framed.append(number).append("/");
  return rights.find(framed) != std::string::npos;
}

}  // namespace

data::Sql MenuPropertySql(const RequestContext& ctx, const std::string& user_id) {
  std::vector<std::string> parts = {"'/'"};
  for (const std::string& code : text::Split(data::kMenuCodeList, ",")) {
    parts.push_back("MENU" + code);
    parts.push_back("'/'");
  }
  data::Sql sql;
  sql << "select USER_ID"
      << "," << data::Concat(std::move(parts)) << " as MENU"
      << " from " << data::Table(ctx.USR_MNU) << " where USER_ID = " << data::Quoted(user_id);
  return sql;
}

MenuRights WalkMenuCatalogue(const MenuCatalogue& catalogue, const std::string& rights) {
  MenuRights out;
  bool facility_done = false;
  for (const MenuEntry& menu : catalogue) {
    if (Hidden(menu.number)) continue;
    if (FacilityGroup(menu.number)) {
      if (facility_done) continue;
      facility_done = true;
      out.numbers.append("/").append(kFacilityNumber);
      out.names.append("/").append(kFacilityName);
      out.granted.append("/").append(Has(rights, kFacilityNumber) ? kFacilityNumber : "ZZ");
      continue;
    }
    out.numbers += "/" + menu.number;
    out.names += "/" + menu.name;
    out.granted += Has(rights, menu.number) ? "/" + menu.number : std::string("/ZZ");
  }
  out.numbers += "/";
  out.names += "/";
  out.granted += "/";
  return out;
}

data::Sql ChangeUserMenuSql(const RequestContext& ctx, const std::string& marker, const std::string& user_id,
                            const std::string& rights_text, const std::string& date, const std::string& time) {
  data::Sql sql;
  sql << "update " << data::Table(ctx.USR_MNU) << " set";
  bool first = true;
  for (const std::string& code : text::Split(data::kMenuCodeList, ",")) {
    // The first fragment has a blank in front, the others a comma.
    sql << (first ? data::SqlText(" ") : data::SqlText(",")) << data::Identifier("MENU" + code) << " = "
        << data::Quoted(Has(rights_text, code) ? code : std::string("ZZ"));
    first = false;
  }
  sql << ",UPD_KBN = " << data::Quoted(marker) << ",UPD_YMD = " << data::Quoted(date)
      << ",UPD_HMS = " << data::Quoted(time) << ",UPD_USR = " << data::Quoted(ctx.session().Get("PUB_USR_ID"))
      << " where USER_ID = " << data::Quoted(user_id);
  return sql;
}

void ChangeUserMenu(RequestContext& ctx, const std::string& marker, const std::string& user_id,
                    const std::string& rights_text) {
  // Codes carry the trail; a failing close writes "ERROR:DBCLOSE" first.
  constexpr WriteRules kRules = {.close_failure = WriteRules::CloseFailure::kBefore,
                                 .frame_trail = true,
                                 .step_trail = true,
                                 .rollback_failure = {}};
  WriteFrame frame(ctx, kRules);
  if (!frame.Start()) return;
  data::Sql sql = ChangeUserMenuSql(ctx, marker, user_id, rights_text, frame.stamp().ymd, frame.stamp().hms);
  if (!frame.Open() || !frame.Begin() ||
      !frame.Step("ERROR:SQLEXEC", data::Com_funExecsql(frame.conn(), sql).Prefixed("ChangeUserMenu")))
    return;
  if (frame.Commit()) frame.Finish();
}

void GetMenuProperty(RequestContext& ctx, const std::string& user_id) {
  std::string id, rights;
  auto keep = [&](const std::vector<std::string>& values) {
    id = values[0];
    rights = values[1];
    return true;
  };
  if (!RunQuery(ctx, MenuPropertySql(ctx, user_id), {"USER_ID", "MENU"}, Rows::kFirstOnly, keep)) return;
  MenuRights walk = WalkMenuCatalogue(*ctx.app().Menuinfo(), rights);
  ctx.Write(id + "," + walk.numbers + "," + walk.names + "," + walk.granted);
}

}  // namespace orvane::members
