#include "dispatch/read_step_code.h"

#include <gtest/gtest.h>

namespace orvane {
namespace {

TEST(ReadStepCode, EachStepAnswersItsOwnCode) {
  using data::ReadStep;
  const ReadCodes standard, member_order{.select = "ERROR:DBSELECT "},
      row_of_two{.select = "ERROR:DBSELECT", .fetch = "ERROR:DBFETCH USER2"},
      routine{.select = "funUpdUser(select MAIL_USE_FLG)", .fetch = "funUpdUser(fetch)", .close = "funUpdUser(close)"};
  struct Case {
    ReadStep step;
    const ReadCodes& codes;
    std::string_view want;
  } cases[] = {
      {ReadStep::kSelect, standard, "ERROR:DBSELECT"},
      {ReadStep::kFetch, standard, "ERROR:DBFETCH"},
      {ReadStep::kClose, standard, "ERROR:RSCLOSE"},
      {ReadStep::kSelect, member_order, "ERROR:DBSELECT "},
      {ReadStep::kFetch, member_order, "ERROR:DBFETCH"},
      {ReadStep::kFetch, row_of_two, "ERROR:DBFETCH USER2"},
      {ReadStep::kClose, row_of_two, "ERROR:RSCLOSE"},
      {ReadStep::kSelect, routine, "funUpdUser(select MAIL_USE_FLG)"},
      {ReadStep::kClose, routine, "funUpdUser(close)"},
  };
  for (const Case& c : cases) EXPECT_EQ(CodeOfReadStep(c.step, c.codes), c.want) << c.want;
}

}  // namespace
}  // namespace orvane
