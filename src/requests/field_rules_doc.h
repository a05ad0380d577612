// The field rules of the changing requests as a newcomer reads them
// (docs/field-rules.md, which a test keeps equal to FieldRulesMarkdown)
// and as data for the pages (FieldRulesDocument, the JSON a field-rules
// endpoint would serve). Both derive from the request table.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace orvane {

std::string FieldRulesMarkdown();
nlohmann::json FieldRulesDocument();

}  // namespace orvane
