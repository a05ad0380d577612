#include "dispatch/field_rules.h"

#include <nlohmann/json.hpp>

#include "base/text.h"
#include "base/text_checks.h"
#include "dispatch/request_context.h"

namespace orvane {
namespace {

constexpr size_t kNameMax = 100, kMailMax = 254, kPhoneMax = 32, kIdMax = 64;
constexpr std::string_view kOpenEnd = "99999999";

bool HasControl(std::string_view s) {
  for (char c : s)
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return true;
  return false;
}

bool IsIdChar(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
}

// It names a mail account and files: a shape every mail server and file
// system takes.
bool IsNewId(std::string_view s) {
  if (s.empty() || s.size() > kIdMax || s.front() == '.' || s.front() == '-') return false;
  for (char c : s)
    if (!IsIdChar(c)) return false;
  return true;
}

bool IsPhone(std::string_view s) {
  if (s.size() > kPhoneMax) return false;
  for (char c : s)
    if (!((c >= '0' && c <= '9') || c == ' ' || c == '+' || c == '-' || c == '(' || c == ')')) return false;
  return true;
}

std::string AtMost(size_t n) { return "must be at most " + std::to_string(n) + " characters"; }

}  // namespace

std::string_view KindName(FieldKind kind) {
  switch (kind) {
    case FieldKind::kCode:
      return "code";
    case FieldKind::kId:
      return "id";
    case FieldKind::kName:
      return "name";
    case FieldKind::kReading:
      return "reading";
    case FieldKind::kMail:
      return "mail address";
    case FieldKind::kPhone:
      return "phone";
    case FieldKind::kDate:
      return "date";
    case FieldKind::kEndDate:
      return "end date";
    case FieldKind::kFlag:
      return "flag";
    case FieldKind::kPassword:
      return "password";
    case FieldKind::kFreeText:
      return "free text";
  }
  return "free text";
}

std::string KindRule(FieldKind kind) {
  const std::string safe = "no comma, no control character, valid UTF-8";
  switch (kind) {
    case FieldKind::kCode:
      return safe;
    case FieldKind::kId:
      return safe +
             "; a new user id (204): 1 to 64 of ASCII letters, digits, \".\", \"_\", \"-\", not starting "
             "with \".\" or \"-\"";
    case FieldKind::kName:
    case FieldKind::kReading:
      return safe + ", at most 100 characters";
    case FieldKind::kMail:
      return safe + ", at most 254 characters";
    case FieldKind::kPhone:
      return "at most 32 of digits, blanks, \"+\", \"-\", \"(\", \")\"";
    case FieldKind::kDate:
      return "a calendar date, yyyymmdd";
    case FieldKind::kEndDate:
      return "a calendar date, yyyymmdd, not before the start; \"99999999\" or empty for no end";
    case FieldKind::kFlag:
      return "empty or one character, " + safe;
    case FieldKind::kPassword:
      return "no control character, valid UTF-8 (a comma is allowed); not empty where required";
    case FieldKind::kFreeText:
      return "not checked";
  }
  return "not checked";
}

std::string CheckValue(const FieldRule& rule, std::string_view value, std::string_view period_start) {
  const FieldKind kind = rule.kind;
  if (kind == FieldKind::kFreeText) return {};
  if (rule.required && value.empty()) return "must not be empty";
  if (!text::IsValidUtf8(value)) return "must be valid UTF-8";
  if (HasControl(value)) return "must not hold a control character";
  if (kind != FieldKind::kPassword && value.find(',') != std::string_view::npos) return "must not hold a comma";
  switch (kind) {
    case FieldKind::kId:
      if (rule.required && !IsNewId(value))
        return "must be 1 to 64 of ASCII letters, digits, \".\", \"_\" and \"-\", not starting with \".\" or \"-\"";
      break;
    case FieldKind::kName:
    case FieldKind::kReading:
      if (text::CodePointLength(value) > kNameMax) return AtMost(kNameMax);
      break;
    case FieldKind::kMail:
      if (text::CodePointLength(value) > kMailMax) return AtMost(kMailMax);
      break;
    case FieldKind::kPhone:
      if (!IsPhone(value)) return "must be at most 32 of digits, blanks, \"+\", \"-\", \"(\" and \")\"";
      break;
    case FieldKind::kDate:
      if (!text::IsCalendarDate(value)) return "must be a calendar date written yyyymmdd";
      break;
    case FieldKind::kEndDate:
      if (value.empty() || value == kOpenEnd) break;
      if (!text::IsCalendarDate(value)) return "must be a calendar date written yyyymmdd, or 99999999 for no end";
      // Eight-digit dates order as text.
      if (text::IsCalendarDate(period_start) && value < period_start) return "the period ends before it starts";
      break;
    case FieldKind::kFlag:
      if (text::CodePointLength(value) > 1) return "must be empty or one character";
      break;
    default:
      break;
  }
  return {};
}

bool CheckFields(RequestContext& ctx, std::span<const FieldRule> rules) {
  auto checked = [&ctx](const FieldRule& r) { return r.stored && (r.when.empty() || ctx.Field(r.when) == "1"); };
  std::string start;  // the value of the row's period start
  for (const FieldRule& r : rules)
    if (r.stored && r.kind == FieldKind::kDate) start = ctx.Field(r.field);
  // Values the request refused with an answer of its own before come first,
  // so that it still answers so whatever else it carries.
  for (const FieldRule& r : rules) {
    if (!checked(r) || r.own_answer.empty() || CheckValue(r, ctx.Field(r.field)).empty()) continue;
    ctx.Write(r.own_answer);
    return false;
  }
  // Then every stored value in order; the period's order is a new rule, so
  // it is refused as one.
  for (const FieldRule& r : rules) {
    if (!checked(r)) continue;
    std::string reason = CheckValue(r, ctx.Field(r.field), start);
    if (reason.empty()) continue;
    std::string answer = "ERROR:INVALIDVALUE";
    answer.append(text::kCrLf).append(r.field).append(": ").append(reason);
    ctx.Write(answer);
    return false;
  }
  return true;
}

nlohmann::json FieldRulesJson(std::span<const RequestRules> requests) {
  nlohmann::json kinds = nlohmann::json::object();
  for (FieldKind k :
       {FieldKind::kCode, FieldKind::kId, FieldKind::kName, FieldKind::kReading, FieldKind::kMail, FieldKind::kPhone,
        FieldKind::kDate, FieldKind::kEndDate, FieldKind::kFlag, FieldKind::kPassword, FieldKind::kFreeText})
    kinds[std::string(KindName(k))] = KindRule(k);
  nlohmann::json list = nlohmann::json::array();
  for (const RequestRules& req : requests) {
    nlohmann::json fields = nlohmann::json::array();
    for (const FieldRule& f : req.fields) {
      nlohmann::json j = {
          {"field", f.field}, {"kind", KindName(f.kind)}, {"checked", f.stored}, {"required", f.required}};
      if (!f.own_answer.empty()) j["own_answer"] = f.own_answer;
      if (!f.when.empty()) j["when"] = f.when;
      fields.push_back(std::move(j));
    }
    list.push_back({{"code", req.code}, {"operation", req.operation}, {"fields", std::move(fields)}});
  }
  return {{"kinds", std::move(kinds)}, {"requests", std::move(list)}};
}

}  // namespace orvane
