#include "data/statement.h"

#include <sqlext.h>
#include <sqlucode.h>

#include "base/text.h"
#include "data/utf16.h"

namespace orvane::data {

SQLRETURN ExecuteText(SQLHSTMT stmt, TextMode mode, const std::string& text, const std::vector<std::string>& params) {
  // The buffers must outlive SQLExecDirect: they are kept here until it returns.
  std::vector<std::u16string> wide;
  std::vector<SQLLEN> lengths(params.size());
  if (mode == TextMode::kUtf16) wide.reserve(params.size());
  for (size_t i = 0; i < params.size(); ++i) {
    SQLUSMALLINT number = static_cast<SQLUSMALLINT>(i + 1);
    SQLRETURN r;
    if (mode == TextMode::kUtf16) {
      wide.push_back(ToUtf16(params[i]));
      const std::u16string& w = wide.back();
      lengths[i] = static_cast<SQLLEN>(w.size() * sizeof(char16_t));
      r = SQLBindParameter(stmt, number, SQL_PARAM_INPUT, SQL_C_WCHAR, SQL_WVARCHAR, w.empty() ? 1 : w.size(), 0,
                           const_cast<char16_t*>(w.data()), lengths[i], &lengths[i]);
    } else {
      const std::string& s = params[i];
      lengths[i] = static_cast<SQLLEN>(s.size());
      r = SQLBindParameter(stmt, number, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR, s.empty() ? 1 : s.size(), 0,
                           const_cast<char*>(s.data()), lengths[i], &lengths[i]);
    }
    if (!SQL_SUCCEEDED(r)) return r;
  }
  SQLRETURN r;
  if (mode == TextMode::kUtf16) {
    std::u16string w = ToUtf16(text);
    r = SQLExecDirectW(stmt, reinterpret_cast<SQLWCHAR*>(w.data()), static_cast<SQLINTEGER>(w.size()));
  } else {
    r = SQLExecDirect(stmt, reinterpret_cast<SQLCHAR*>(const_cast<char*>(text.data())),
                      static_cast<SQLINTEGER>(text.size()));
  }
  return r == SQL_NO_DATA ? SQL_SUCCESS : r;
}

bool ReadColumnLabels(SQLHSTMT stmt, TextMode mode, std::vector<std::string>& labels) {
  labels.clear();
  SQLSMALLINT count = 0;
  if (!SQL_SUCCEEDED(SQLNumResultCols(stmt, &count))) return false;
  for (SQLUSMALLINT c = 1; c <= static_cast<SQLUSMALLINT>(count); ++c) {
    SQLSMALLINT length = 0;
    std::string label;
    if (mode == TextMode::kUtf16) {
      SQLWCHAR buf[256] = {};
      if (!SQL_SUCCEEDED(SQLColAttributeW(stmt, c, SQL_DESC_LABEL, buf, sizeof buf, &length, nullptr))) return false;
      size_t chars = std::min<size_t>(length / sizeof(SQLWCHAR), 255);
      label = ToUtf8(std::u16string_view(reinterpret_cast<const char16_t*>(buf), chars));
    } else {
      SQLCHAR buf[512] = {};
      if (!SQL_SUCCEEDED(SQLColAttribute(stmt, c, SQL_DESC_LABEL, buf, sizeof buf, &length, nullptr))) return false;
      label.assign(reinterpret_cast<const char*>(buf), std::min<size_t>(length, sizeof buf - 1));
    }
    labels.push_back(text::ToUpperAscii(label));
  }
  return true;
}

namespace {

// SQLGetData in pieces until the whole value is read. `Unit` is the
// character unit of the C type; the driver always writes a terminator.
template <typename Unit, typename Text>
bool ReadPieces(SQLHSTMT stmt, SQLUSMALLINT column, SQLSMALLINT c_type, Text& acc, bool& is_null) {
  Unit buf[2048];
  constexpr size_t kRoom = sizeof buf / sizeof(Unit) - 1;
  is_null = false;
  for (;;) {
    SQLLEN indicator = 0;
    SQLRETURN r = SQLGetData(stmt, column, c_type, buf, sizeof buf, &indicator);
    if (r == SQL_NO_DATA) return true;
    if (!SQL_SUCCEEDED(r)) return false;
    if (indicator == SQL_NULL_DATA) {
      is_null = true;
      return true;
    }
    size_t units = (indicator == SQL_NO_TOTAL) ? kRoom : static_cast<size_t>(indicator) / sizeof(Unit);
    acc.append(buf, std::min(units, kRoom));
    if (r == SQL_SUCCESS || units <= kRoom) return true;
  }
}

}  // namespace

bool ReadColumn(SQLHSTMT stmt, TextMode mode, SQLUSMALLINT column, std::string& out) {
  out.clear();
  bool is_null = false;
  if (mode == TextMode::kUtf16) {
    std::u16string acc;
    if (!ReadPieces<char16_t>(stmt, column, SQL_C_WCHAR, acc, is_null)) return false;
    if (!is_null) out = ToUtf8(acc);
  } else {
    if (!ReadPieces<char>(stmt, column, SQL_C_CHAR, out, is_null)) return false;
    if (is_null) out.clear();
  }
  return true;
}

}  // namespace orvane::data
