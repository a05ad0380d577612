// docs/field-rules.md is the request table's field rules as a newcomer
// reads them.
// ORVANE_UPDATE_DOCS=1 rewrites the file from the table.
#include "requests/field_rules_doc.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
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

}  // namespace
}  // namespace orvane
