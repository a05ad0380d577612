// docs/field-rules.md is the request table's field rules as a newcomer
// reads them, and the JSON document carries the same rules as data.
// ORVANE_UPDATE_DOCS=1 rewrites the file from the table.
#include "requests/field_rules_doc.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

namespace orvane {
namespace {

TEST(FieldRulesDoc, TheDocumentIsTheRequestTables) {
  const std::string path = std::string(ORVANE_SOURCE_DIR) + "/docs/field-rules.md";
  if (const char* update = std::getenv("ORVANE_UPDATE_DOCS"); update && std::string(update) == "1")
    std::ofstream(path, std::ios::binary) << FieldRulesMarkdown();
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  EXPECT_EQ(text.str(), FieldRulesMarkdown()) << "run this test with ORVANE_UPDATE_DOCS=1 to rewrite " << path;
}

TEST(FieldRulesDoc, TheRulesAsData) {
  nlohmann::json doc = FieldRulesDocument();
  std::string codes;
  for (const auto& r : doc["requests"]) codes += r["code"].get<std::string>() + " ";
  EXPECT_EQ(codes, "201 202 203 204 205 206 207 208 209 210 211 212 213 ");
  EXPECT_EQ(doc["requests"][3]["fields"][0].dump(),
            R"({"checked":true,"field":"User_cd","kind":"id","required":true})");
  EXPECT_EQ(doc["requests"][4]["fields"][0].dump(),
            R"({"checked":false,"field":"User_cd","kind":"id","required":false})");
  EXPECT_EQ(doc["requests"][7]["fields"][5].dump(),
            R"({"checked":true,"field":"ED_Ymd","kind":"end date","own_answer":"ERROR:RECUPDATE","required":false})");
  EXPECT_EQ(doc["kinds"]["name"], "no comma, no control character, valid UTF-8, at most 100 characters");
}

}  // namespace
}  // namespace orvane
