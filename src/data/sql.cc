#include "data/sql.h"

#include "base/text.h"
#include "data/dialect.h"

namespace orvane::data {
namespace {

// The system's five tables with their work twins, the tables of the
// surrounding groupware that user and section deletes clear, and the
// groupware tables a new user gets rows in.
constexpr std::string_view kKnownTables[] = {
    "T_USER",
    "T_USER_WORK",
    "T_SECTION",
    "T_SECTION_WORK",
    "T_SECMEMBER",
    "T_SECMEMBER_WORK",
    "T_POST_MST",
    "MENU_USER",
    "MENU_USER_WORK",
    "T_PASSGEN",
    "T_PASSGEN_WORK",
    "T_SCHOPEN",
    "T_SCHOPEN_WORK",
    "t_bbsopen",
    "t_rsvopen",
    "t_linkopen",
    "t_cabopen",
    "t_adbkopen",
    "T_TOPICOPEN",
    "WF_KENGEN",
    "rsv_approver_member",
    "rsv_approve_status",
    "custom_info",
    "custom_master",
    "top_setting",
    "user_setting",
    "mail_setting",
    "MYLINK_INFO",
    "TODO_INFO",
    "PSADGP_INFO",
    "PSADDR_INFO",
    "ZAISEKI_INFO",
    "MESSAGE_MAIL",
    "MESSAGE_INFO",
    "ACCESS_INFO",
    "ACCESS_TIME_BAT",
    "ACCESS_PAGE_BAT",
    "LOG_GET",
    "LOG_GET_BAT",
    "LOG_BBS_GET",
    "LOG_BBS_BAT",
    "EVENT_GPINFO",
    "schedule_info",
    "WF_NENKYU",
    "WF_SYUKKINBO",
    "WF_SYUKKINBO_RIREKI",
};

bool IsIdentifier(std::string_view s) {
  if (s.empty()) return false;
  for (char c : s) {
    bool ok = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '.';
    if (!ok) return false;
  }
  return true;
}

// A quoted literal with no quote inside, such as '/'.
bool IsPlainLiteral(std::string_view s) {
  return s.size() >= 2 && s.front() == '\'' && s.back() == '\'' &&
         s.substr(1, s.size() - 2).find('\'') == std::string_view::npos;
}

bool IsNumber(std::string_view s) {
  if (!s.empty() && s.front() == '-') s.remove_prefix(1);
  if (s.empty()) return false;
  for (char c : s)
    if (c < '0' || c > '9') return false;
  return true;
}

// The text a database makes of the number when it stores it in a text
// column: no leading zeros.
std::string NumberAsText(std::string_view digits) {
  bool negative = !digits.empty() && digits.front() == '-';
  if (negative) digits.remove_prefix(1);
  size_t first = digits.find_first_not_of('0');
  std::string out = first == std::string_view::npos ? "0" : std::string(digits.substr(first));
  return negative && out != "0" ? "-" + out : out;
}

}  // namespace

bool IsKnownTable(std::string_view name) {
  for (std::string_view t : kKnownTables)
    if (text::EqualsIgnoreCase(t, name)) return true;
  return false;
}

void Sql::Refuse(std::string why) {
  if (problem_.empty()) problem_ = std::move(why);
}

Sql& Sql::operator<<(SqlText piece) {
  pieces_.push_back({Kind::kText, std::string(piece.text), {}});
  return *this;
}

Sql& Sql::operator<<(TablePiece piece) {
  if (!IsKnownTable(piece.name)) Refuse("unknown table name \"" + std::string(piece.name) + "\"");
  pieces_.push_back({Kind::kTable, std::string(piece.name), {}});
  return *this;
}

Sql& Sql::operator<<(QuotedPiece piece) {
  pieces_.push_back({Kind::kQuoted, std::string(piece.value), {}});
  return *this;
}

Sql& Sql::operator<<(NumberPiece piece) {
  if (!IsNumber(piece.digits)) Refuse("not a number: \"" + std::string(piece.digits) + "\"");
  pieces_.push_back({Kind::kNumber, std::string(piece.digits), {}});
  return *this;
}

Sql& Sql::operator<<(LenPiece piece) {
  if (!IsIdentifier(piece.column)) Refuse("not a column name: \"" + std::string(piece.column) + "\"");
  pieces_.push_back({Kind::kLen, std::string(piece.column), {}});
  return *this;
}

Sql& Sql::operator<<(ConcatPiece piece) {
  for (const std::string& part : piece.parts)
    if (!IsIdentifier(part) && !IsPlainLiteral(part)) Refuse("not a column or plain literal: \"" + part + "\"");
  if (piece.parts.empty()) Refuse("empty concatenation");
  pieces_.push_back({Kind::kConcat, {}, std::move(piece.parts)});
  return *this;
}

Sql& Sql::operator<<(IdentifierPiece piece) {
  if (!IsIdentifier(piece.name)) Refuse("not a column name: \"" + std::string(piece.name) + "\"");
  pieces_.push_back({Kind::kIdentifier, std::string(piece.name), {}});
  return *this;
}

std::string Sql::Render() const {
  std::string out;
  for (const Piece& p : pieces_) {
    switch (p.kind) {
      case Kind::kQuoted:
        out += "'" + p.text + "'";  // quotes not doubled: the system's text reads so
        break;
      case Kind::kLen:
        out += "len(" + p.text + ")";
        break;
      case Kind::kConcat:
        out += text::Join(p.parts, "+");
        break;
      default:
        out += p.text;
    }
  }
  return out;
}

std::string Sql::Statement(const Dialect& dialect) const {
  std::string out;
  for (const Piece& p : pieces_) {
    switch (p.kind) {
      case Kind::kQuoted:
        out += "?";
        break;
      case Kind::kNumber:
        out += dialect.BindsBareNumbers() ? "?" : p.text;
        break;
      case Kind::kLen:
        out += dialect.Length(p.text);
        break;
      case Kind::kConcat:
        out += dialect.Concat(p.parts);
        break;
      default:
        out += p.text;
    }
  }
  return out;
}

std::vector<std::string> Sql::Parameters(const Dialect& dialect) const {
  std::vector<std::string> out;
  for (const Piece& p : pieces_) {
    if (p.kind == Kind::kQuoted) out.push_back(p.text);
    if (p.kind == Kind::kNumber && dialect.BindsBareNumbers()) out.push_back(NumberAsText(p.text));
  }
  return out;
}

}  // namespace orvane::data
