#include "data/sql.h"

#include <set>

#include "base/text.h"
#include "data/dialect.h"
#include "data/history_schema.h"
#include "data/schema.h"

namespace orvane::data {
namespace {

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
  // The tables init-db creates are the ones a statement may name.
  static const std::set<std::string, std::less<>> known = [] {
    std::set<std::string, std::less<>> names;
    for (const TableDef& t : SchemaTables()) names.insert(text::ToUpperAscii(t.name));
    for (std::string_view history : {kHistoryTable, kHistoryRowTable}) names.insert(std::string(history));
    return names;
  }();
  return known.contains(text::ToUpperAscii(name));
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
  // A text column ends a value at a NUL byte (the drivers pass C strings):
  // stored, the value would be cut short and every path built from it with it.
  if (piece.value.find('\0') != std::string_view::npos) Refuse("a value holds a NUL byte");
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

std::vector<std::string> Columns::FetchNames() const {
  std::vector<std::string> names;
  for (SqlText c : columns_) {
    std::string_view name = c.text;
    if (size_t as = text::FindIgnoreCase(name, " as "); as != std::string_view::npos) {
      name = name.substr(as + 4);
    } else if (size_t dot = name.rfind('.'); dot != std::string_view::npos) {
      name = name.substr(dot + 1);
    }
    names.emplace_back(name);
  }
  return names;
}

Sql& Sql::operator<<(const Columns& columns) {
  for (size_t i = 0; i < columns.columns().size(); ++i) {
    if (i > 0) *this << columns.separator();
    *this << columns.columns()[i];
  }
  return *this;
}

Sql& Sql::operator<<(IdentifierPiece piece) {
  if (!IsIdentifier(piece.name)) Refuse("not a column name: \"" + std::string(piece.name) + "\"");
  pieces_.push_back({Kind::kIdentifier, std::string(piece.name), {}});
  return *this;
}

Sql& Sql::Page(long offset, long limit) {
  page_offset_ = offset;
  page_limit_ = limit;
  return *this;
}

Sql& Sql::PageHere(long offset, long limit) {
  pieces_.push_back({Kind::kPage, std::to_string(offset), {std::to_string(limit)}});
  return *this;
}

Sql& Sql::operator<<(const Sql& other) {
  pieces_.insert(pieces_.end(), other.pieces_.begin(), other.pieces_.end());
  if (problem_.empty()) problem_ = other.problem_;
  return *this;
}

bool Sql::AppendValuesOf(const Sql& other) {
  auto opening = [](const std::vector<Piece>& pieces) {
    for (size_t i = 0; i < pieces.size(); ++i)
      if (pieces[i].kind == Kind::kText && pieces[i].text.find("values (") != std::string::npos) return i;
    return pieces.size();
  };
  const size_t at = opening(pieces_);
  if (at == pieces_.size() || at != opening(other.pieces_) || !problem_.empty() || !other.problem_.empty() ||
      page_limit_ >= 0 || other.page_limit_ >= 0)
    return false;
  for (size_t i = 0; i <= at; ++i) {
    const Piece &a = pieces_[i], &b = other.pieces_[i];
    if (a.kind != b.kind || a.text != b.text || a.parts != b.parts) return false;
  }
  const std::string& head = other.pieces_[at].text;
  pieces_.push_back({Kind::kText, " ,(" + head.substr(head.find("values (") + 8), {}});
  pieces_.insert(pieces_.end(), other.pieces_.begin() + static_cast<std::ptrdiff_t>(at) + 1, other.pieces_.end());
  return true;
}

size_t Sql::ValueCount() const {
  size_t n = 0;
  for (const Piece& p : pieces_) n += p.kind == Kind::kQuoted;
  return n;
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
      case Kind::kPage:
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
      case Kind::kPage:
        out += dialect.PageClause(std::stol(p.text), std::stol(p.parts[0]));
        break;
      default:
        out += p.text;
    }
  }
  if (page_limit_ >= 0) out += dialect.PageClause(page_offset_, page_limit_);
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
