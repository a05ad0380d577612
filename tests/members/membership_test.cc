// Memberships (207-209), member order (211) and menu rights (213) on a real
// SQLite and PostgreSQL database, checked by the rows they leave.
#include <gtest/gtest.h>

#include <thread>

#include "base/text.h"
#include "support/db_fixture.h"
#include "support/exe_proxy_peer.h"
#include "support/mail_env.h"

namespace orvane::members {
namespace {

using data::Quoted;
using data::Table;

class Memberships : public orvane::testing::DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    session().Set("PUB_USR_ID", "admin");
  }
  void Member(const char* table, std::vector<std::string> values) {
    InsertRows(
        table,
        {"SEC_CD", "USER_ID", "SEC_KBN", "USER_SEQ", "POST_CD", "ST_YMD", "ED_YMD", "UPD_KBN", "UPD_YMD", "UPD_HMS"},
        {values});
  }
  // "USER_ID:SEC_KBN:USER_SEQ:ST_YMD:ED_YMD:UPD_KBN:UPD_HMS " per member of the section.
  std::string Members(const char* sec_cd, const char* table = "T_SECMEMBER") {
    return Joined(data::Sql() << "select USER_ID,SEC_KBN,USER_SEQ,ST_YMD,ED_YMD,UPD_KBN,UPD_HMS from " << Table(table)
                              << " where SEC_CD = " << Quoted(sec_cd) << " order by USER_ID",
                  ":", " ");
  }
};

TEST_P(Memberships, AddNumbersPositionsAndAnExistingMemberOnlyChangesItsKind) {
  Insert("T_SECTION", {{"SEC_CD", "0001"}});
  for (const char* user : {"u1", "u2", "u3", "u4"}) Insert("T_USER", {{"USER_ID", user}});
  Member("T_SECMEMBER", {"0002", "u9", "1", "004", "01", "20200101", "20301231", "2", "20240301", "090000"});
  struct Case {
    const char* section;
    const char* user;
    const char* members;
  } cases[] = {
      {"0001", "u1", "u1:0:001:20240401:99999999:3:102030 "},
      {"0001", "u2", "u1:0:001:20240401:99999999:3:102030 u2:0:002:20240401:99999999:3:102030 "},
      {"0002", "u9", "u9:0:004:20200101:20301231:2:090000 "},  // only the kind changes
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Request(std::string("ReqNo=207&Group_cd=") + c.section + "&User_cd=" + c.user), "OK") << c.user;
    EXPECT_EQ(Members(c.section), c.members) << c.user;
  }
  Exec(data::Sql() << "update " << Table("T_SECMEMBER") << " set USER_SEQ = '999' where USER_ID = 'u2'");
  EXPECT_EQ(Request("ReqNo=207&Group_cd=0001&User_cd=u3"), "OK");
  // The maximum is a text maximum: "99999" is above "999", and above 32766.
  Exec(data::Sql() << "update " << Table("T_SECMEMBER") << " set USER_SEQ = '99999' where USER_ID = 'u3'");
  EXPECT_EQ(Request("ReqNo=207&Group_cd=0001&User_cd=u4"),
            "ERROR:RECINSERTfunNextSortidx\r\nMAX_IDX 99999 does not fit a 16-bit integer plus 1");
  EXPECT_EQ(Members("0001").find("u4"), std::string::npos);
  Exec(data::Sql() << "update " << Table("T_SECMEMBER") << " set USER_SEQ = '000' where USER_ID = 'u3'");
  EXPECT_EQ(Request("ReqNo=207&Group_cd=0001&User_cd=u4"), "OK");
  EXPECT_EQ(Members("0001"),
            "u1:0:001:20240401:99999999:3:102030 u2:0:999:20240401:99999999:3:102030 "
            "u3:0:000:20240401:99999999:3:102030 u4:0:000:20240401:99999999:3:102030 ");
}

// A new membership names an existing section and user, as a foreign key
// would have it; the refusal writes nothing.
TEST_P(Memberships, AddOfAMissingUserOrSectionIsRefused) {
  Insert("T_SECTION", {{"SEC_CD", "0001"}});
  Insert("T_USER", {{"USER_ID", "u1"}});
  Insert("T_SECTION_WORK", {{"SEC_CD", "0001"}});
  const std::string refused = "ERROR:RECINSERTfunInsCirMember\r\nno such ";
  ExpectAnswers("ReqNo=207&", {{"Group_cd=0001&User_cd=nobody", refused + "user: nobody"},
                               {"Group_cd=0001&User_cd=", refused + "user: "},
                               {"Group_cd=0009&User_cd=u1", refused + "section: 0009"},
                               {"Group_cd=0009&User_cd=nobody", refused + "section: 0009"},
                               {"DBFlg=1&Group_cd=0001&User_cd=u1", refused + "user: u1"}});
  EXPECT_EQ(Count("T_SECMEMBER") + Count("T_SECMEMBER_WORK"), "00");
  EXPECT_EQ(Request("ReqNo=207&Group_cd=0001&User_cd=u1"), "OK");
}

// One administrator adds a user to a section while another deletes the
// user: either the add finds the user gone, or the delete takes the new
// membership with it. No membership of a missing user is left.
TEST_P(Memberships, AnAddAndTheUsersDeleteAtOnceLeaveNoOrphan) {
  Insert("T_SECTION_WORK", {{"SEC_CD", "0001"}});
  for (int round = 0; round < 10; ++round) {
    Insert("T_USER_WORK", {{"USER_ID", "v"}});
    std::string add, remove;
    std::thread adding([&] { add = Request("ReqNo=207&DBFlg=1&Group_cd=0001&User_cd=v"); });
    std::thread removing([&] { remove = Request("ReqNo=206&DBFlg=1&User_cd=v"); });
    adding.join();
    removing.join();
    EXPECT_EQ(remove, "OK") << "round " << round;
    EXPECT_TRUE(add == "OK" || add == "ERROR:RECINSERTfunInsCirMember\r\nno such user: v") << add;
    EXPECT_EQ(Members("0001", "T_SECMEMBER_WORK"), "") << "round " << round;
  }
}

TEST_P(Memberships, ChangeGuardsTheOnePrimaryAndItsDates) {
  Member("T_SECMEMBER", {"0001", "u1", "1", "001", "", "20240101", "20240331", "3", "20240101", "090000"});
  Member("T_SECMEMBER", {"0002", "u1", "0", "001", "", "20240101", "99999999", "3", "20240101", "090000"});
  const std::string before = Members("0002");
  ExpectAnswers("ReqNo=208&Group_cd=0002&User_cd=u1&Primary=1&Post_cd=02",
                {{"&ST_Ymd=20240301&ED_Ymd=", "ERROR:ALREADYPRIMARY"},
                 {"&ST_Ymd=20240331&ED_Ymd=20241231", "ERROR:ALREADYPRIMARY"},  // one day in common
                 {"&ST_Ymd=20240230&ED_Ymd=", "ERROR:RECUPDATE"},
                 {"&ST_Ymd=20240401&ED_Ymd=2025-1-1", "ERROR:RECUPDATE"},
                 {"&ST_Ymd=&ED_Ymd=", "ERROR:RECUPDATE"}});
  EXPECT_EQ(Members("0002"), before);
  // The adjacent period passes; an empty end is stored open.
  EXPECT_EQ(Request("ReqNo=208&Group_cd=0002&User_cd=u1&Primary=1&Post_cd=02&ST_Ymd=20240401&ED_Ymd="), "OK");
  EXPECT_EQ(Members("0002"), "u1:1:001:20240401:99999999:2:102030 ");
  // Its own row does not count against itself.
  EXPECT_EQ(Request("ReqNo=208&Group_cd=0002&User_cd=u1&Primary=1&ST_Ymd=20240401&ED_Ymd=99999999"), "OK");
  EXPECT_EQ(Request("ReqNo=208&Group_cd=0002&User_cd=u1&Primary=1&ST_Ymd=20240229&ED_Ymd=99999999"),
            "ERROR:ALREADYPRIMARY");
}

TEST_P(Memberships, TheTimeStampRefusesChangesSinceThePageLoaded) {
  Member("T_SECMEMBER", {"0001", "u1", "0", "001", "", "20240101", "99999999", "3", "20240401", "100000"});
  Insert("T_USER", {{"USER_ID", "u1"}});
  Insert("T_SECTION", {{"SEC_CD", "0001"}});
  const char* remove = "ReqNo=209&Group_cd=0001&User_cd=u1";
  // Changed at 10:00:00 on the page's day, after the page loaded at 09:00:00.
  EXPECT_EQ(Request(std::string(remove) + "&Upd_Ymd=20240401&Upd_Hms=090000"), "ERROR:TIMESTAMP");
  // The date and the time are compared each on its own: a change on a later
  // day at an earlier hour is no change.
  EXPECT_EQ(Request(std::string(remove) + "&Upd_Ymd=20240331&Upd_Hms=110000"), "OK");
  Member("T_SECMEMBER", {"0001", "u1", "0", "001", "", "20240101", "99999999", "3", "20240401", "100000"});
  // Without fields, the moment of the session's last member list decides.
  clock().Set(LocalTime{2024, 4, 1, 9, 0, 0});
  EXPECT_EQ(Request("ReqNo=104&Group_cd=0001").substr(0, 3), ",u1");
  EXPECT_EQ(Request(remove), "ERROR:TIMESTAMP");
  clock().Set(LocalTime{2024, 4, 1, 10, 0, 0});
  EXPECT_EQ(Request("ReqNo=108&User_cd=u1").substr(0, 2), "u1");
  EXPECT_EQ(Request(remove), "OK");
  EXPECT_EQ(Members("0001"), "");
}

TEST_P(Memberships, RemovalKeepsTheGapsAndOnTheWorkTablesLeavesTheList) {
  orvane::testing::ExeProxyPeer peer(dir().File("imail"), "D:\\IMail\\");
  dir().Write("imail/Lists/sales/users.lst", "u1@example.jp\r\nu2@example.jp\r\n");
  WriteConfig("ML_FOLDER=D:\\IMail\\\n" + peer.Ini());
  Insert("T_SECTION_WORK", {{"SEC_CD", "0001"}, {"IMAIL_LIST", "sales"}});
  for (const char* table : {"T_SECMEMBER", "T_SECMEMBER_WORK"})
    for (auto [user, seq] : {std::pair("u1", "001"), {"u2", "002"}, {"u3", "003"}})
      Member(table, {"0001", user, "0", seq, "", "20240101", "99999999", "3", "20240101", "090000"});
  EXPECT_EQ(Request("ReqNo=209&Group_cd=0001&User_cd=u2"), "OK");
  EXPECT_EQ(Members("0001"), "u1:0:001:20240101:99999999:3:090000 u3:0:003:20240101:99999999:3:090000 ");
  EXPECT_EQ(orvane::testing::ReadFile(dir().File("imail/Lists/sales/users.lst")), "u1@example.jp\r\nu2@example.jp\r\n");
  EXPECT_EQ(Request("ReqNo=209&DBFlg=1&Group_cd=0001&User_cd=u2"), "OK");
  EXPECT_EQ(Members("0001", "T_SECMEMBER_WORK"),
            "u1:0:001:20240101:99999999:3:090000 u3:0:003:20240101:99999999:3:090000 ");
  EXPECT_EQ(orvane::testing::ReadFile(dir().File("imail/Lists/sales/users.lst")), "u1@example.jp\r\n");
}

TEST_P(Memberships, MemberOrderTurnsThePositionsBetweenTheTwo) {
  auto section = [&] {
    Exec(data::Sql() << "delete from " << Table("T_SECMEMBER"));
    for (auto [user, seq] : {std::pair("A", "001"), {"X", "002"}, {"M", "003"}})
      Member("T_SECMEMBER", {"0001", user, "0", seq, "", "", "", "3", "", ""});
    Member("T_SECMEMBER", {"0002", "Z", "0", "001", "", "", "", "3", "", ""});
  };
  auto order = [&] {
    return Joined(data::Sql() << "select USER_ID,USER_SEQ from " << Table("T_SECMEMBER")
                              << " where SEC_CD = '0001' order by USER_SEQ",
                  "", " ");
  };
  struct Case {
    const char* target;
    const char* moved;
    const char* answer;
    const char* order;
  } cases[] = {
      {"A", "M", "OK", "M001 A002 X003 "},  // M onto A
      {"M", "A", "OK", "X001 A002 M003 "},  // A onto M
      {"X", "A", "OK", "A001 X002 M003 "},  // already just above: unchanged
      {"X", "M", "OK", "A001 M002 X003 "},  // adjacent, moved below: a swap
      {"Z", "M", "ERROR:DBFETCH USER1", "A001 X002 M003 "},
      {"A", "nobody", "ERROR:DBFETCH USER2", "A001 X002 M003 "},
  };
  for (const Case& c : cases) {
    section();
    EXPECT_EQ(Request(std::string("ReqNo=211&Group_cd=0001&User_cd=") + c.target + "&User_cd2=" + c.moved), c.answer)
        << c.target << " " << c.moved;
    EXPECT_EQ(order(), c.order) << c.target << " " << c.moved;
  }
}

TEST_P(Memberships, MenuRightsAreWrittenFromTheRightsText) {
  Insert("MENU_USER", {{"USER_ID", "u1"}, {"MENU02", "02"}});
  EXPECT_EQ(Request("ReqNo=213&User_cd=u1&User_Menu=%2F01%2F21%2F"), "OK");
  EXPECT_EQ(Request("ReqNo=213&User_cd=nobody&User_Menu=%2F01%2F"), "OK");
  auto rows = Rows(data::Sql() << "select * from " << Table("MENU_USER"));
  ASSERT_EQ(rows.size(), 1u);
  std::string menus = text::Join(std::vector<std::string>(rows[0].begin() + 1, rows[0].begin() + 27), "/");
  EXPECT_EQ(menus, "01/ZZ/ZZ/ZZ/ZZ/ZZ/ZZ/21/ZZ/ZZ/ZZ/ZZ/ZZ/ZZ/ZZ/ZZ/ZZ/ZZ/ZZ/ZZ/ZZ/ZZ/ZZ/ZZ/ZZ/ZZ");
  EXPECT_EQ(text::Join(std::vector<std::string>(rows[0].begin() + 27, rows[0].end()), "|"), "2|20240401|102030|admin");
}

ORVANE_DB_TEST_SUITE(Memberships);

}  // namespace
}  // namespace orvane::members
