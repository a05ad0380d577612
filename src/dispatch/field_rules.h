// Field rules: the kind of every field a changing request reads, and the one
// validation step that checks them before the operation writes anything.
//
// The request table (requests/request_table.cc) declares each field's kind
// and whether the request stores it; WebClass_Start hands the row's rules to
// the request, and the write frame runs CheckFields right after the session
// check, so a refused value costs no database connection and an anonymous
// request still answers "ERROR:SESSIONCHECK" first.
//
// Why these rules: list answers join fields with "," and cannot escape, so
// a stored value holding a comma or a control character would shift every
// later column of the rows it is answered in. Keys that name existing rows
// are not checked: existing data that breaks the rules keeps working.
//
// Everything here is pure and thread-safe.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

class RequestContext;

enum class FieldKind {
  kCode,      // a code or a list name: list-safe
  kId,        // a user id: list-safe; a new one (required) also 1-64 of [A-Za-z0-9._-]
  kName,      // a name, display or post name: list-safe, at most 100 characters
  kReading,   // the reading of a name: as a name
  kMail,      // a mail address or alias: list-safe, at most 254 characters
  kPhone,     // an extension number: at most 32 of digits, blanks, + - ( )
  kDate,      // yyyymmdd, a real calendar date
  kEndDate,   // the end of the period the row's kDate field starts: a date, "99999999" or empty (open)
  kFlag,      // empty or one character, list-safe
  kPassword,  // no control characters, valid UTF-8; a comma is allowed
  kFreeText,  // anything: never stored as given
};

struct FieldRule {
  std::string_view field;
  FieldKind kind = FieldKind::kFreeText;
  bool stored = false;    // the request stores the value: the step checks it
  bool required = false;  // a new id or password: must not be empty (a new id: the id shape too)
  // Non-empty: the request's own answer when this value fails its kind
  // (an impossible date in 208 answers "ERROR:RECUPDATE" as it always has).
  std::string_view own_answer;
  // Non-empty: an optional field's switch; the value is checked only when
  // the request sends that field as "1" (202's BUSHO_CD with BUSHO_Set).
  std::string_view when;
};

// "code", "id", "name", ... as the table and `--help` show them.
std::string_view KindName(FieldKind kind);
// The kind's rule in plain words, for the documentation table.
std::string KindRule(FieldKind kind);

// Why `value` breaks `rule` (plain words), or empty when it passes. The
// period check of a kEndDate field needs the start date: `period_start`.
std::string CheckValue(const FieldRule& rule, std::string_view value, std::string_view period_start = {});

// The validation step: checks every stored field of `rules` against its
// kind, values read from the request. Refusal of the first field that
// fails: "ERROR:INVALIDVALUE" CR LF "<field>: <reason>" (or the field's own
// answer) written to the request; false then.
bool CheckFields(RequestContext& ctx, std::span<const FieldRule> rules);

// One request's rules as data: {"code": ..., "operation": ..., "fields":
// [{"field", "kind", "checked", "required", "own_answer"?}...]}.
struct RequestRules {
  std::string_view code;
  std::string_view operation;
  std::vector<FieldRule> fields;
};
// The kinds with their rules, and each request's fields, as one JSON
// document (what a field-rules endpoint would serve).
nlohmann::json FieldRulesJson(std::span<const RequestRules> requests);

}  // namespace orvane
