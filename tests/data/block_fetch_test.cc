// Rows read in blocks into bound buffers give exactly what reading cell by
// cell gives (the positionable select still reads cell by cell): nulls,
// empty and multi-byte text, values at and past the buffer's width (read
// whole by SQLGetData), numbers, across block boundaries.
#include <gtest/gtest.h>

#include "base/text.h"
#include "data/db.h"
#include "support/db_fixture.h"

namespace orvane::data {
namespace {

std::string Repeat(std::string_view piece, size_t times) {
  std::string out;
  for (size_t i = 0; i < times; ++i) out += piece;
  return out;
}

// The name of user i: null, empty, short kanji, exactly 256 and 257
// characters (the cell's width in characters; far more bytes in UTF-8), a
// long value of four-byte characters (surrogate pairs in UTF-16), and
// punctuation.
bool NameOf(size_t i, std::string& name) {
  const std::string names[] = {"",
                               "",
                               "山田太郎" + std::to_string(i),
                               Repeat("あ", 256),
                               Repeat("a", 257),
                               Repeat("𠮷a", 1500) + std::to_string(i),
                               "x,y'z\"%_",
                               Repeat("b", 255)};
  name = names[i % 8];
  return i % 8 != 0;  // 0: null
}

class BlockFetchTest : public orvane::testing::DbTest {};

TEST_P(BlockFetchTest, BlocksGiveWhatCellByCellGives) {
  constexpr size_t kUsers = 600;  // more than two blocks
  for (size_t first = 0; first < kUsers; first += 50) {
    Sql insert;
    insert << "insert into " << Table("T_USER") << " (USER_ID,NAME_KJ,MAIL) values ";
    for (size_t i = first; i < first + 50; ++i) {
      std::string id = text::Right("0000" + std::to_string(i), 4), name;
      if (i > first) insert << ",";
      insert << "(" << Quoted("u" + id) << ",";
      if (NameOf(i, name)) {
        insert << Quoted(name);
      } else {
        insert << "NULL";
      }
      insert << "," << Quoted(i % 3 == 0 ? std::string() : "m" + id + "@例え.jp") << ")";
    }
    Exec(insert);
  }
  Sql sql;
  sql << "select USER_ID,NAME_KJ,MAIL,PASSWORD," << Len("NAME_KJ") << " as N,count(*) over () as TOTAL,1.5 as R from "
      << Table("T_USER") << " order by USER_ID";

  Connection conn;
  ASSERT_TRUE(Com_funDbOpen(Dsn(), "", "", conn).ok());
  Array2D blocks, cells;
  Recordset rs;
  ASSERT_TRUE(Com_funSelect(conn, sql, rs).ok());
  ASSERT_TRUE(Com_funRecodsetToArray(rs, blocks).ok());
  ASSERT_TRUE(Com_funSelectP(conn, sql, rs).ok());
  ASSERT_TRUE(Com_funRecodsetToArray(rs, cells).ok());
  ASSERT_EQ(blocks.size(), 7u);
  ASSERT_EQ(blocks[0].size(), kUsers);
  EXPECT_EQ(blocks, cells);

  for (size_t i = 0; i < kUsers; ++i) {
    std::string name;
    bool has_name = NameOf(i, name);
    EXPECT_EQ(blocks[1][i], name) << i;
    EXPECT_EQ(blocks[3][i], "") << i;  // PASSWORD: null everywhere
    EXPECT_EQ(blocks[4][i], has_name ? std::to_string(text::CodePointLength(name)) : "") << i;
  }
  EXPECT_EQ(blocks[2][4], "m0004@例え.jp");
  EXPECT_EQ(blocks[5][599], "600");
  EXPECT_EQ(blocks[6][0], "1.5");

  // Fetching by name, and stopping in the middle of a block, read the same.
  std::vector<std::string> values;
  bool eof = false;
  ASSERT_TRUE(Com_funSelect(conn, sql, rs).ok());
  for (size_t i = 0; i < 300; ++i) {
    ASSERT_TRUE(Com_funfetchData(rs, {"NAME_KJ", "USER_ID"}, values, eof).ok());
    ASSERT_FALSE(eof);
    EXPECT_EQ(values[0], blocks[1][i]) << i;
  }
  ASSERT_TRUE(Com_funRecordsetClose(rs).ok());
}

ORVANE_DB_TEST_SUITE(BlockFetchTest);

}  // namespace
}  // namespace orvane::data
