// Sql: the statement builder. It reads like the system's concatenation but
// keeps values apart from statement text:
//
//   Sql sql;
//   sql << "SELECT SEC_CD,SEC_NM from " << Table(ctx.SEC_MST)
//       << " where SEC_CD = " << Quoted(code);
//
// - Text pieces are SqlText, constructible only from string literals, so no
//   runtime value can become statement text.
// - Table(...) accepts only the system's table names (the request's five
//   table members, their _WORK twins, the fixed groupware names); any other
//   name makes the statement invalid and it fails without being sent.
// - Quoted(v) renders as 'v' (quotes not doubled, exactly as the system's
//   text reads) and is sent as a bound parameter.
// - Number(digits) renders as a bare number, as the system writes dates in
//   some comparisons; the dialect decides how it is sent.
// - Len(...) and Concat(...) are the constructs whose spelling depends on
//   the database (len() and "+" in the system's text).
//
// Render() gives the system's text, used in error trails and logs;
// Statement(dialect) and Parameters() are what is sent.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::data {

class Dialect;

struct SqlText {
  consteval SqlText(const char* s) : text(s) {}  // NOLINT: literals only, on purpose
  std::string_view text;
};

struct TablePiece {
  std::string_view name;
};
inline TablePiece Table(std::string_view name) { return {name}; }

struct QuotedPiece {
  std::string_view value;
};
inline QuotedPiece Quoted(std::string_view value) { return {value}; }

struct NumberPiece {
  std::string_view digits;
};
inline NumberPiece Number(std::string_view digits) { return {digits}; }

// len(column): column is an identifier (letters, digits, "_", ".").
struct LenPiece {
  std::string_view column;
};
inline LenPiece Len(std::string_view column) { return {column}; }

// a+b+c: each part is an identifier or a quoted literal without a quote
// inside ('/'); anything else makes the statement invalid.
struct ConcatPiece {
  std::vector<std::string> parts;
};
inline ConcatPiece Concat(std::vector<std::string> parts) { return {std::move(parts)}; }

// A column name built at run time ("MENU" + code): identifier characters only.
struct IdentifierPiece {
  std::string_view name;
};
inline IdentifierPiece Identifier(std::string_view name) { return {name}; }

// A select list written once: each column as the statement names it
// ("NAME_KJ", "U.NAME_KJ", "S.USER_ID as S_USER_ID") and the separator the
// statement puts between them ("," or " ,"). The fetch names come from the
// same list (the alias after " as ", else the name after the table's "."),
// so a query cannot fetch a column it does not select.
class Columns {
 public:
  Columns(std::initializer_list<SqlText> columns, SqlText separator = ",") : columns_(columns), separator_(separator) {}
  const std::vector<SqlText>& columns() const { return columns_; }
  SqlText separator() const { return separator_; }
  // The names to fetch the columns by, in select order.
  std::vector<std::string> FetchNames() const;

 private:
  std::vector<SqlText> columns_;
  SqlText separator_;
};

// True for the table names a statement may name: those of SchemaTables(),
// compared without regard to case.
bool IsKnownTable(std::string_view name);

class Sql {
 public:
  Sql() = default;

  Sql& operator<<(SqlText piece);
  Sql& operator<<(TablePiece piece);
  Sql& operator<<(QuotedPiece piece);
  Sql& operator<<(NumberPiece piece);
  Sql& operator<<(LenPiece piece);
  Sql& operator<<(ConcatPiece piece);
  Sql& operator<<(IdentifierPiece piece);
  Sql& operator<<(const Columns& columns);  // the columns joined by their separator

  // Asks the database for `limit` rows from row `offset` (0-based) on,
  // where the dialect can (Dialect::PageClause). Not part of Render(): the
  // trail shows the statement as the system writes it.
  Sql& Page(long offset, long limit);
  // The same clause at this point of the statement (a subquery's page).
  Sql& PageHere(long offset, long limit);
  // Appends `other`'s pieces (a statement behind an EXPLAIN, say).
  Sql& operator<<(const Sql& other);
  // Appends the row of `other`, an insert built as this one is (the same
  // pieces up to the one that opens the values with "values ("), so that
  // this statement inserts it too. False, nothing changed, for any other.
  bool AppendValuesOf(const Sql& other);
  // The bound values so far (one for each value piece).
  size_t ValueCount() const;

  // The statement as the system's concatenation reads, values inlined.
  std::string Render() const;
  // False when a piece was refused (unknown table, bad identifier); such a
  // statement is never sent. `Problem()` says which piece.
  bool Valid() const { return problem_.empty(); }
  const std::string& Problem() const { return problem_; }
  bool Empty() const { return pieces_.empty(); }

  // What is sent: "?" for each bound value, constructs spelled for `dialect`.
  std::string Statement(const Dialect& dialect) const;
  // The bound values, in order of their "?".
  std::vector<std::string> Parameters(const Dialect& dialect) const;

 private:
  enum class Kind { kText, kTable, kQuoted, kNumber, kLen, kConcat, kIdentifier, kPage };
  struct Piece {
    Kind kind;
    std::string text;                // text, table, value, digits, column, identifier
    std::vector<std::string> parts;  // concat parts
  };
  void Refuse(std::string why);

  std::vector<Piece> pieces_;
  std::string problem_;
  long page_offset_ = -1, page_limit_ = -1;  // -1: no page
};

}  // namespace orvane::data
