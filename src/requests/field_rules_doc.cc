#include "requests/field_rules_doc.h"

#include <nlohmann/json.hpp>

#include "dispatch/field_rules.h"
#include "requests/request_table.h"

namespace orvane {
namespace {

constexpr FieldKind kKinds[] = {FieldKind::kCode, FieldKind::kId,       FieldKind::kName,    FieldKind::kReading,
                                FieldKind::kMail, FieldKind::kPhone,    FieldKind::kDate,    FieldKind::kEndDate,
                                FieldKind::kFlag, FieldKind::kPassword, FieldKind::kFreeText};

std::string Checking(const FieldRule& f) {
  if (!f.stored) return "not checked (names an existing row, or not stored)";
  std::string out = f.required ? "checked, required" : "checked";
  if (!f.when.empty()) out += " when `" + std::string(f.when) + "` is 1";
  if (!f.own_answer.empty()) out += "; an impossible date answers `" + std::string(f.own_answer) + "`";
  return out;
}

}  // namespace

std::string FieldRulesMarkdown() {
  std::string out =
      "# Field rules\n"
      "\n"
      "<!-- Generated from the request table (src/requests/request_table.cc); "
      "tests/requests/field_rules_doc_test.cc keeps it equal. -->\n"
      "\n"
      "Every field of a changing request (201 to 213) has a kind. Before the operation\n"
      "writes anything (after the session check), one step checks each value the request\n"
      "stores against its kind. The first value that fails is answered\n"
      "`ERROR:INVALIDVALUE`, CR LF, `<field>: <reason>`, and nothing changes: no row, no\n"
      "list file, no mail command. List answers join fields with \",\" and cannot escape,\n"
      "so no stored value may hold a comma or a control character.\n"
      "\n"
      "Values that pass are stored exactly as given (no trimming, no case change). Keys\n"
      "that name existing rows are not checked: existing data that breaks these rules keeps\n"
      "working, and `orvane check-data` lists it. Lengths count characters (code points).\n"
      "\n"
      "202 and 205 also take optional fields that newer pages send (`BUSHO_Set`,\n"
      "`Upd_Stamp`; see docs/api.md). Without them a request answers and stores exactly\n"
      "as before; 202's `BUSHO_CD` is checked only when `BUSHO_Set` is 1.\n"
      "\n"
      "## Kinds\n"
      "\n"
      "| kind | rule |\n"
      "|---|---|\n";
  for (FieldKind k : kKinds) out += "| " + std::string(KindName(k)) + " | " + KindRule(k) + " |\n";
  out +=
      "\n"
      "## Fields of the changing requests\n"
      "\n"
      "| request | field | kind | checking |\n"
      "|---|---|---|---|\n";
  for (const RequestRules& r : AllFieldRules()) {
    for (const FieldRule& f : r.fields)
      out += "| " + std::string(r.code) + " " + std::string(r.operation) + " | " + std::string(f.field) + " | " +
             std::string(KindName(f.kind)) + " | " + Checking(f) + " |\n";
  }
  return out;
}

nlohmann::json FieldRulesDocument() {
  std::vector<RequestRules> rules = AllFieldRules();
  return FieldRulesJson(rules);
}

}  // namespace orvane
