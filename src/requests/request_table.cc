#include "requests/request_table.h"

#include "accounts/mail_list_combo.h"
#include "base/text.h"
#include "dispatch/server_information.h"
#include "members/member_queries.h"
#include "members/menu_rights.h"
#include "members/user_queries.h"
#include "org/group_queries.h"

namespace orvane {
namespace {

using K = ArgSource::Kind;
constexpr ArgSource F(std::string_view name) { return {K::kField, name}; }
constexpr ArgSource C(std::string_view value) { return {K::kConstant, value}; }
constexpr ArgSource I(std::string_view name) { return {K::kInt16Field, name}; }

// A kInt16Field argument, already checked by BuildArguments.
short Int16(const std::string& arg) {
  short value = 0;
  text::ParseInt16(arg, value);
  return value;
}

std::vector<RequestRoute> MakeTable() {
  auto user_args = [](std::string_view flag, bool with_mail_nm) {
    std::vector<ArgSource> a = {C(flag),      F("User_cd"), F("User_KJ"), F("User_KN"), F("User_PS"), F("Mail_AD"),
                                F("Mail_FL"), F("Ext_TEL"), F("Post_NM"), F("Disp_NM"), F("Mail_UFL")};
    a.push_back(with_mail_nm ? F("Mail_NM") : C(""));
    return a;
  };
  const std::vector<std::string_view> user_reads = {"User_cd", "User_KJ", "User_KN", "User_PS",  "Mail_AD", "Mail_FL",
                                                    "Ext_TEL", "Post_NM", "Disp_NM", "Mail_UFL", "Mail_NM"};
  const std::vector<std::string_view> user_reads_no_name(user_reads.begin(), user_reads.end() - 1);
  auto group_args = [](std::string_view flag, bool with_busho) {
    return std::vector<ArgSource>{
        C(flag), F("Group_cd"), F("Group_nm"), F("Disp_NM"), with_busho ? F("BUSHO_CD") : C(""), F("M_LIST")};
  };
  auto member_args_short = [](std::string_view flag) {
    return std::vector<ArgSource>{C(flag), F("Group_cd"), F("User_cd"), C("0"), C(""), C(""), C("")};
  };

  return {
      {"001", {}, {}, "GetServerInformation", [](RequestContext& c, const Arguments&) { GetServerInformation(c); }},
      {"002",
       {"S_Kbn", "S_OPT"},
       {F("S_Kbn"), F("S_OPT")},
       "GetAllCount",
       [](RequestContext& c, const Arguments& a) { members::GetAllCount(c, a[0], a[1]); }},
      {"101", {}, {}, "GetAllGroupList", [](RequestContext& c, const Arguments&) { org::GetAllGroupList(c); }},
      {"102",
       {"S_Col", "S_Type", "S_OPT", "S_pos", "B_pos"},
       {F("S_Col"), F("S_Type"), F("S_OPT"), I("S_pos"), I("B_pos")},
       "GetAllUserList",
       [](RequestContext& c, const Arguments& a) {
         members::GetAllUserList(c, a[0], a[1], a[2], Int16(a[3]), Int16(a[4]));
       }},
      {"103",
       {"Group_cd", "S_Col", "S_Type"},
       {F("Group_cd"), F("S_Col"), F("S_Type")},
       "GetSpecificGroup",
       [](RequestContext& c, const Arguments& a) { org::GetSpecificGroup(c, a[0], a[1], a[2]); }},
      {"104",
       {"Group_cd", "S_Col", "S_Type", "S_OPT"},
       {F("Group_cd"), F("S_Col"), F("S_Type"), F("S_OPT")},
       "GetSpecificMember",
       [](RequestContext& c, const Arguments& a) { members::GetSpecificMember(c, a[0], a[1], a[2], a[3]); }},
      {"105",
       {"Group_cd"},
       {F("Group_cd")},
       "GetGroupProperty",
       [](RequestContext& c, const Arguments& a) { org::GetGroupProperty(c, a[0]); }},
      {"106",
       {"User_cd"},
       {F("User_cd")},
       "GetUserProperty",
       [](RequestContext& c, const Arguments& a) { members::GetUserProperty(c, a[0]); },
       /*answer_is_secret=*/true},
      {"107",
       {"M_List"},
       {F("M_List")},
       "Create_IMailList_Combo",
       [](RequestContext& c, const Arguments& a) { accounts::Create_IMailList_Combo(c, a[0]); }},
      {"108",
       {"User_cd"},
       {F("User_cd")},
       "GetUsersGroup",
       [](RequestContext& c, const Arguments& a) { members::GetUsersGroup(c, a[0]); }},
      {"109", {}, {}, "GetPostMaster", [](RequestContext& c, const Arguments&) { members::GetPostMaster(c); }},
      {"110",
       {"User_cd"},
       {F("User_cd")},
       "GetMenuProperty",
       [](RequestContext& c, const Arguments& a) { members::GetMenuProperty(c, a[0]); }},
      {"201", {"Group_cd", "Group_nm", "Disp_NM", "M_LIST", "BUSHO_CD"}, group_args("3", true), "RegistGroup"},
      // 202 does not read BUSHO_CD: a change never moves the department code.
      {"202", {"Group_cd", "Group_nm", "Disp_NM", "M_LIST"}, group_args("2", false), "RegistGroup"},
      {"203", {"Group_cd", "Group_nm", "Disp_NM", "M_LIST", "BUSHO_CD"}, group_args("1", true), "RegistGroup"},
      {"204", user_reads, user_args("3", true), "RegistUser1"},
      {"205", user_reads, user_args("2", true), "RegistUser1"},
      {"206", user_reads_no_name, user_args("1", false), "RegistUser1"},
      {"207", {"Group_cd", "User_cd"}, member_args_short("3"), "RegistMember"},
      {"208",
       {"Group_cd", "User_cd", "Primary", "Post_cd", "ST_Ymd", "ED_Ymd"},
       {C("2"), F("Group_cd"), F("User_cd"), F("Primary"), F("Post_cd"), F("ST_Ymd"), F("ED_Ymd")},
       "RegistMember"},
      {"209", {"Group_cd", "User_cd"}, member_args_short("1"), "RegistMember"},
      {"210",
       {"Group_cd1", "Group_cd2", "Group_cd3"},
       {F("Group_cd1"), F("Group_cd2"), F("Group_cd3")},
       "ChangeGroupDisp"},
      {"211", {"Group_cd", "User_cd", "User_cd2"}, {F("User_cd"), F("User_cd2"), F("Group_cd")}, "ChangeUserDisp"},
      {"212", {"Group_cd1", "Group_cd2"}, {F("Group_cd1"), F("Group_cd2")}, "ChangeGroupTree"},
      {"213", {"User_cd", "User_Menu"}, {C("2"), F("User_cd"), F("User_Menu")}, "ChangeUserMenu"},
  };
}

}  // namespace

const std::vector<RequestRoute>& RequestTable() {
  static const std::vector<RequestRoute> table = MakeTable();
  return table;
}

const RequestRoute* FindRoute(std::string_view code) {
  for (const RequestRoute& route : RequestTable())
    if (text::EqualsIgnoreCase(route.code, code)) return &route;
  return nullptr;
}

BuiltArguments BuildArguments(const RequestRoute& route, const NamedValues& fields) {
  BuiltArguments out;
  for (const ArgSource& source : route.args) {
    switch (source.kind) {
      case K::kConstant:
        out.args.emplace_back(source.text);
        break;
      case K::kField:
        out.args.push_back(fields.Get(source.text));
        break;
      case K::kInt16Field: {
        std::string value = fields.Get(source.text);
        short number = 0;
        if (!text::ParseInt16(value, number)) {
          out.error = "ERROR:TYPEMISMATCH " + std::string(source.text) + " is not a 16-bit integer";
          return out;
        }
        out.args.push_back(std::to_string(number));
        break;
      }
    }
  }
  return out;
}

}  // namespace orvane
