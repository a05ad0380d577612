#include "requests/request_table.h"

#include "accounts/mail_list_combo.h"
#include "accounts/user_registration.h"
#include "base/text.h"
#include "dispatch/server_information.h"
#include "members/member_order.h"
#include "members/member_queries.h"
#include "members/membership.h"
#include "members/menu_rights.h"
#include "members/user_queries.h"
#include "org/group_move.h"
#include "org/group_order.h"
#include "org/group_queries.h"
#include "org/group_registration.h"

namespace orvane {
namespace {

std::vector<RequestRoute> MakeTable() {
  // The user form's fields after the update flag, then the mail name and
  // the page's old mail values; 206 reads neither: a delete takes the old
  // values from the stored user.
  auto user = [](std::string_view flag) {
    return Call<accounts::RegistUser1>(Fixed(flag), Text("User_cd"), Text("User_KJ"), Text("User_KN"), Text("User_PS"),
                                       Text("Mail_AD"), Text("Mail_FL"), Text("Ext_TEL"), Text("Post_NM"),
                                       Text("Disp_NM"), Text("Mail_UFL"), Text("Mail_NM"), Text("OldMail_UFL"),
                                       Text("OldAlias"), Text("OldAlias_FL"));
  };
  auto member = [](std::string_view flag) {
    return Call<members::RegistMember>(Fixed(flag), Text("Group_cd"), Text("User_cd"), Fixed("0"), Fixed(""), Fixed(""),
                                       Fixed(""), Text("Upd_Ymd"), Text("Upd_Hms"));
  };
  return {
      {.code = "001", .operation = "GetServerInformation", .call = Call<GetServerInformation>()},
      {.code = "002", .operation = "GetAllCount", .call = Call<members::GetAllCount>(Text("S_Kbn"), Text("S_OPT"))},
      {.code = "101", .operation = "GetAllGroupList", .call = Call<org::GetAllGroupList>()},
      {.code = "102",
       .operation = "GetAllUserList",
       .call =
           Call<members::GetAllUserList>(Text("S_Col"), Text("S_Type"), Text("S_OPT"), Int16("S_pos"), Int16("B_pos"))},
      {.code = "103",
       .operation = "GetSpecificGroup",
       .call = Call<org::GetSpecificGroup>(Text("Group_cd"), Text("S_Col"), Text("S_Type"))},
      {.code = "104",
       .operation = "GetSpecificMember",
       .call = Call<members::GetSpecificMember>(Text("Group_cd"), Text("S_Col"), Text("S_Type"), Text("S_OPT"))},
      {.code = "105", .operation = "GetGroupProperty", .call = Call<org::GetGroupProperty>(Text("Group_cd"))},
      {.code = "106",
       .operation = "GetUserProperty",
       .call = Call<members::GetUserProperty>(Text("User_cd")),
       .answer_is_secret = true},
      {.code = "107",
       .operation = "Create_IMailList_Combo",
       .call = Call<accounts::Create_IMailList_Combo>(Text("M_List"))},
      {.code = "108", .operation = "GetUsersGroup", .call = Call<members::GetUsersGroup>(Text("User_cd"))},
      {.code = "109", .operation = "GetPostMaster", .call = Call<members::GetPostMaster>()},
      {.code = "110", .operation = "GetMenuProperty", .call = Call<members::GetMenuProperty>(Text("User_cd"))},
      {.code = "201",
       .operation = "RegistGroup",
       .changes_data = true,
       .call = Call<org::RegistGroup>(Fixed("3"), Text("Group_cd"), Text("Group_nm"), Text("Disp_NM"), Text("BUSHO_CD"),
                                      Text("M_LIST"))},
      // 202 does not read BUSHO_CD: a change passes it empty.
      {.code = "202",
       .operation = "RegistGroup",
       .changes_data = true,
       .call = Call<org::RegistGroup>(Fixed("2"), Text("Group_cd"), Text("Group_nm"), Text("Disp_NM"), Fixed(""),
                                      Text("M_LIST"))},
      {.code = "203",
       .operation = "RegistGroup",
       .changes_data = true,
       .call = Call<org::RegistGroup>(Fixed("1"), Text("Group_cd"), Text("Group_nm"), Text("Disp_NM"), Text("BUSHO_CD"),
                                      Text("M_LIST"))},
      {.code = "204", .operation = "RegistUser1", .changes_data = true, .call = user("3")},
      {.code = "205", .operation = "RegistUser1", .changes_data = true, .call = user("2")},
      {.code = "206",
       .operation = "RegistUser1",
       .changes_data = true,
       .call =
           Call<accounts::RegistUser1>(Fixed("1"), Text("User_cd"), Text("User_KJ"), Text("User_KN"), Text("User_PS"),
                                       Text("Mail_AD"), Text("Mail_FL"), Text("Ext_TEL"), Text("Post_NM"),
                                       Text("Disp_NM"), Text("Mail_UFL"), Fixed(""), Fixed(""), Fixed(""), Fixed(""))},
      {.code = "207", .operation = "RegistMember", .changes_data = true, .call = member("3")},
      {.code = "208",
       .operation = "RegistMember",
       .changes_data = true,
       .call =
           Call<members::RegistMember>(Fixed("2"), Text("Group_cd"), Text("User_cd"), Text("Primary"), Text("Post_cd"),
                                       Text("ST_Ymd"), Text("ED_Ymd"), Text("Upd_Ymd"), Text("Upd_Hms"))},
      {.code = "209", .operation = "RegistMember", .changes_data = true, .call = member("1")},
      {.code = "210",
       .operation = "ChangeGroupDisp",
       .changes_data = true,
       .call = Call<org::ChangeGroupDisp>(Text("Group_cd1"), Text("Group_cd2"), Text("Group_cd3"))},
      {.code = "211",
       .operation = "ChangeUserDisp",
       .changes_data = true,
       .call = Call<members::ChangeUserDisp>(Text("User_cd"), Text("User_cd2"), Text("Group_cd"))},
      {.code = "212",
       .operation = "ChangeGroupTree",
       .changes_data = true,
       .call = Call<org::ChangeGroupTree>(Text("Group_cd1"), Text("Group_cd2"))},
      {.code = "213",
       .operation = "ChangeUserMenu",
       .changes_data = true,
       .call = Call<members::ChangeUserMenu>(Fixed("2"), Text("User_cd"), Text("User_Menu"))},
  };
}

}  // namespace

bool ConvertArgument(const ArgSource& arg, const NamedValues& fields, std::string& out, std::string& error) {
  out = arg.kind == ArgSource::Kind::kFixed ? std::string(arg.text) : fields.Get(arg.text);
  return true;
}

bool ConvertArgument(const ArgSource& arg, const NamedValues& fields, short& out, std::string& error) {
  if (text::ParseInt16(fields.Get(arg.text), out)) return true;
  error = "ERROR:TYPEMISMATCH " + std::string(arg.text) + " is not a 16-bit integer";
  return false;
}

std::vector<std::string_view> RequestRoute::Fields() const {
  std::vector<std::string_view> out;
  for (const ArgSource& a : call.args) {
    if (a.kind == ArgSource::Kind::kFixed) continue;
    bool seen = false;
    for (std::string_view f : out) seen = seen || f == a.text;
    if (!seen) out.push_back(a.text);
  }
  return out;
}

const std::vector<RequestRoute>& RequestTable() {
  static const std::vector<RequestRoute> table = MakeTable();
  return table;
}

const RequestRoute* FindRoute(std::string_view code) {
  for (const RequestRoute& route : RequestTable())
    if (text::EqualsIgnoreCase(route.code, code)) return &route;
  return nullptr;
}

}  // namespace orvane
