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
