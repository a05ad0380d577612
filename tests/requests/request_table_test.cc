#include "requests/request_table.h"

#include <gtest/gtest.h>

#include "requests/web_class.h"

namespace orvane {
namespace {

// A row's arguments as texts, each converted as the call converts it (a
// 16-bit field in its canonical form); the first conversion error stops.
struct ArgumentTexts {
  std::vector<std::string> args;
  std::string error;
};
ArgumentTexts BuildArguments(const RequestRoute& route, const NamedValues& fields) {
  ArgumentTexts out;
  for (const ArgSource& arg : route.call.args) {
    std::string value;
    short number = 0;
    Status converted = arg.kind == ArgSource::Kind::kInt16 ? ConvertArgument(arg, fields, number)
                                                           : ConvertArgument(arg, fields, value);
    out.error = converted.trail();
    if (!converted.ok()) return out;
    out.args.push_back(arg.kind == ArgSource::Kind::kInt16 ? std::to_string(number) : value);
  }
  return out;
}

// Every field the pages can send, each valued by its own name, spelled in
// other letter cases than the table uses: names match without regard to case.
NamedValues AllFields() {
  NamedValues f;
  for (const char* name :
       {"s_kbn",    "S_OPT",       "S_COL",     "s_type",     "S_POS",     "b_pos",    "GROUP_CD",  "s_col",
        "group_nm", "DISP_NM",     "m_list",    "busho_cd",   "USER_CD",   "user_kj",  "User_kn",   "USER_PS",
        "mail_ad",  "Mail_fl",     "EXT_TEL",   "post_nm",    "mail_ufl",  "MAIL_NM",  "primary",   "POST_CD",
        "st_ymd",   "ED_YMD",      "group_cd1", "GROUP_CD2",  "Group_Cd3", "user_cd2", "USER_MENU", "upd_ymd",
        "UPD_HMS",  "oldmail_ufl", "OLDALIAS",  "OldAlias_fl"}) {
    std::string value = name;
    if (value == "S_POS") value = "-3";
    if (value == "b_pos") value = "+40";
    f.Add(name, value);
  }
  return f;
}

TEST(RequestTable, EveryCodePassesItsFieldsInTheOperationsOrder) {
  using V = std::vector<std::string>;
  const V user = {"USER_CD", "user_kj", "User_kn", "USER_PS", "mail_ad",
                  "Mail_fl", "EXT_TEL", "post_nm", "DISP_NM", "mail_ufl"};
  auto with = [](V head, V rest, V tail) {
    head.insert(head.end(), rest.begin(), rest.end());
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
  };
  struct Case {
    const char* code;
    const char* operation;
    V args;
  } cases[] = {
      {"001", "GetServerInformation", {}},
      {"002", "GetAllCount", {"s_kbn", "S_OPT"}},
      {"101", "GetAllGroupList", {}},
      {"102", "GetAllUserList", {"S_COL", "s_type", "S_OPT", "-3", "40"}},
      {"103", "GetSpecificGroup", {"GROUP_CD", "S_COL", "s_type"}},
      {"104", "GetSpecificMember", {"GROUP_CD", "S_COL", "s_type", "S_OPT"}},
      {"105", "GetGroupProperty", {"GROUP_CD"}},
      {"106", "GetUserProperty", {"USER_CD"}},
      {"107", "Create_IMailList_Combo", {"m_list"}},
      {"108", "GetUsersGroup", {"USER_CD"}},
      {"109", "GetPostMaster", {}},
      {"110", "GetMenuProperty", {"USER_CD"}},
      {"201", "RegistGroup", {"3", "GROUP_CD", "group_nm", "DISP_NM", "busho_cd", "m_list"}},
      {"202", "RegistGroup", {"2", "GROUP_CD", "group_nm", "DISP_NM", "", "m_list"}},
      {"203", "RegistGroup", {"1", "GROUP_CD", "group_nm", "DISP_NM", "busho_cd", "m_list"}},
      {"204", "RegistUser1", with({"3"}, user, {"MAIL_NM", "oldmail_ufl", "OLDALIAS", "OldAlias_fl"})},
      {"205", "RegistUser1", with({"2"}, user, {"MAIL_NM", "oldmail_ufl", "OLDALIAS", "OldAlias_fl"})},
      {"206", "RegistUser1", with({"1"}, user, {"", "", "", ""})},
      {"207", "RegistMember", {"3", "GROUP_CD", "USER_CD", "0", "", "", "", "upd_ymd", "UPD_HMS"}},
      {"208",
       "RegistMember",
       {"2", "GROUP_CD", "USER_CD", "primary", "POST_CD", "st_ymd", "ED_YMD", "upd_ymd", "UPD_HMS"}},
      {"209", "RegistMember", {"1", "GROUP_CD", "USER_CD", "0", "", "", "", "upd_ymd", "UPD_HMS"}},
      {"210", "ChangeGroupDisp", {"group_cd1", "GROUP_CD2", "Group_Cd3"}},
      {"211", "ChangeUserDisp", {"USER_CD", "user_cd2", "GROUP_CD"}},
      {"212", "ChangeGroupTree", {"group_cd1", "GROUP_CD2"}},
      {"213", "ChangeUserMenu", {"2", "USER_CD", "USER_MENU"}},
  };
  ASSERT_EQ(RequestTable().size(), std::size(cases));
  for (const Case& c : cases) {
    const RequestRoute* route = FindRoute(c.code);
    ASSERT_NE(route, nullptr) << c.code;
    EXPECT_EQ(route->operation, c.operation) << c.code;
    ArgumentTexts built = BuildArguments(*route, AllFields());
    EXPECT_EQ(built.error, "") << c.code;
    EXPECT_EQ(built.args, c.args) << c.code;
  }
}

TEST(RequestTable, FieldsReadAndWritesDeriveFromTheRows) {
  using V = std::vector<std::string_view>;
  EXPECT_EQ(FindRoute("102")->Fields(), (V{"S_Col", "S_Type", "S_OPT", "S_pos", "B_pos"}));
  EXPECT_EQ(FindRoute("202")->Fields(), (V{"Group_cd", "Group_nm", "Disp_NM", "M_LIST"}));  // no BUSHO_CD
  EXPECT_EQ(FindRoute("205")->Fields().back(), "OldAlias_FL");
  EXPECT_EQ(FindRoute("206")->Fields().back(), "Mail_UFL");  // no Mail_NM, no old values
  EXPECT_EQ(FindRoute("209")->Fields(), (V{"Group_cd", "User_cd", "Upd_Ymd", "Upd_Hms"}));
  std::string writes;
  for (const RequestRoute& r : RequestTable())
    if (r.changes_data) writes += std::string(r.code) + " ";
  EXPECT_EQ(writes, "201 202 203 204 205 206 207 208 209 210 211 212 213 ");
}

TEST(RequestTable, CodesMatchWholeTexts) {
  EXPECT_EQ(FindRoute("1"), nullptr);
  EXPECT_EQ(FindRoute("0001"), nullptr);
  EXPECT_EQ(FindRoute(""), nullptr);
  ASSERT_NE(FindRoute("001"), nullptr);
}

TEST(RequestTable, PagePositionsMustBeSixteenBitIntegers) {
  const RequestRoute& route = *FindRoute("102");
  struct Case {
    const char* s_pos;
    const char* b_pos;
    const char* error;
  } cases[] = {
      {"1", "32767", ""},
      {"-32768", "0", ""},
      {"32768", "1", "ERROR:TYPEMISMATCH S_pos is not a 16-bit integer"},
      {"", "1", "ERROR:TYPEMISMATCH S_pos is not a 16-bit integer"},
      {"1x", "1", "ERROR:TYPEMISMATCH S_pos is not a 16-bit integer"},
      {"1", "", "ERROR:TYPEMISMATCH B_pos is not a 16-bit integer"},
      {"1", "1.5", "ERROR:TYPEMISMATCH B_pos is not a 16-bit integer"},
      {"1", "-", "ERROR:TYPEMISMATCH B_pos is not a 16-bit integer"},
  };
  for (const Case& c : cases) {
    NamedValues f;
    f.Add("S_pos", c.s_pos);
    f.Add("B_pos", c.b_pos);
    EXPECT_EQ(BuildArguments(route, f).error, c.error) << c.s_pos << " " << c.b_pos;
  }
}

TEST(WebClassStart, DbFlgChoosesTheTableSet) {
  ConfigFile config("/nonexistent/ORVANE.ini");
  Session session;
  ApplicationStore app;
  struct Case {
    const char* dbflg;  // null: field not sent
    const char *user, *section, *member, *menu;
  } cases[] = {
      {"1", "T_USER_WORK", "T_SECTION_WORK", "T_SECMEMBER_WORK", "MENU_USER_WORK"},
      {"0", "T_USER", "T_SECTION", "T_SECMEMBER", "MENU_USER"},
      {"", "T_USER", "T_SECTION", "T_SECMEMBER", "MENU_USER"},
      {nullptr, "T_USER", "T_SECTION", "T_SECMEMBER", "MENU_USER"},
      {"2", "T_USER", "T_SECTION", "T_SECMEMBER", "MENU_USER"},
  };
  for (const Case& c : cases) {
    RequestContext ctx(config, session, app, SystemClock::Instance());
    ctx.fields.Add("ReqNo", "999");
    if (c.dbflg) ctx.fields.Add("dbflg", c.dbflg);
    EXPECT_EQ(WebClass_Start(ctx), nullptr);
    EXPECT_EQ(ctx.response(), "ERROR:NOREQUESTCODE");
    const char* label = c.dbflg ? c.dbflg : "(missing)";
    EXPECT_EQ(ctx.USR_MST, c.user) << label;
    EXPECT_EQ(ctx.SEC_MST, c.section) << label;
    EXPECT_EQ(ctx.SEC_MEM, c.member) << label;
    EXPECT_EQ(ctx.USR_MNU, c.menu) << label;
    EXPECT_EQ(ctx.PST_MST, "T_POST_MST") << label;
    EXPECT_EQ(ctx.menu_codes.size(), 26u);
    EXPECT_EQ(ctx.menu_upper, 25);
    EXPECT_EQ(ctx.menu_codes[7], "21");
  }
}

}  // namespace
}  // namespace orvane
