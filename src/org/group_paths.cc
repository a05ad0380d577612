#include "org/group_paths.h"

#include <climits>
#include <optional>

#include "base/text.h"
#include "base/whole_number.h"
#include "data/schema.h"
#include "org/sec_tree.h"

namespace orvane::org {

using data::Quoted;
using data::Table;

std::string PathName(std::string_view name) {
  return name.find("/ ") == std::string_view::npos ? std::string(name) : text::RemoveAll(name, ' ');
}

std::string ChildTreeNm(std::string_view parent_code, std::string_view parent_tree_nm, std::string_view name) {
  if (parent_code == kTopSection) return "/ " + std::string(name);
  return std::string(parent_tree_nm) + " / " + std::string(name);
}

size_t Levels(std::string_view sec_tree) { return text::Split(sec_tree, "/").size(); }

std::string NamesFrom(std::string_view tree_nm, size_t level) {
  std::vector<std::string> parts = text::Split(tree_nm, "/ ");
  std::vector<std::string> tail;
  for (size_t i = level; i < parts.size(); ++i) tail.push_back(text::Trim(parts[i]));
  return text::Join(tail, " / ");
}

Status NextNumber(std::string_view routine, const std::string& max_text, size_t width, std::string& next) {
  long long number = 0;  // no group yet: the first is 1
  if (!text::Trim(max_text).empty()) {
    std::optional<long long> max = ParseWholeNumber(max_text, LONG_MIN, LONG_MAX - 1, {.blanks_around = true});
    if (!max) return Status::Failure("MAX_IDX is not a whole number: " + max_text, Status::kDbFailed).Prefixed(routine);
    number = *max;
  }
  next = text::Right(std::string(width, '0') + std::to_string(number + 1), width);
  return Status::Ok();
}

Status funGetUpperTree1(const RequestContext& ctx, data::Connection& conn, const std::string& sec_cd, UpperTree& out,
                        data::ReadStep* failed_step) {
  data::Sql sql;
  sql << "select SEC_TREE,TREE_NM"
      << " from " << Table(ctx.SEC_MST) << " where SEC_CD = " << Quoted(sec_cd);
  std::vector<std::string> row = {"", ""};
  bool found = false;
  Status s = data::SelectFirstRow(conn, sql, {"SEC_TREE", "TREE_NM"}, row, found, failed_step);
  out = {.SEC_TREE = row[0], .TREE_NM = row[1], .exists = found};
  return std::move(s).Prefixed("funGetUpperTree1");
}

Status Com043_funJoiTreeNm(const RequestContext& ctx, data::Connection& conn, const std::string& sec_cd,
                           std::string& tree_nm) {
  data::Sql sql;
  sql << "select TREE_NM"
      << " from " << Table(ctx.SEC_MST) << " where (SEC_CD = " << Quoted(sec_cd) << ")";
  return data::SelectFirstValue(conn, sql, "TREE_NM", tree_nm).Prefixed("Com043_funJoiTreeNm");
}

// The name the subtree read carries in the system's trails.
constexpr char kSubtreeRoutine[] = "Com043_funUpdAdmRecord";

Status ReadSubtree(const RequestContext& ctx, data::Connection& conn, const std::string& prefix,
                   std::vector<TreeRow>& rows, data::ReadStep* failed_step) {
  data::Sql sql;
  sql << "Select SEC_CD,SEC_TREE,SEC_NM,TREE_NM From " << Table(ctx.SEC_MST);
  if (ctx.WorkTables()) {
    sql << " Where UPD_KBN <> '1' and SEC_TREE Like " << Quoted(prefix + "%");
  } else {
    sql << " Where SEC_TREE Like " << Quoted(prefix + "%");
  }
  rows.clear();
  auto add = [&rows](const std::vector<std::string>& v) {
    rows.push_back({v[0], v[1], v[2], v[3]});
    return true;
  };
  return data::SelectRows(conn, sql, {"SEC_CD", "SEC_TREE", "SEC_NM", "TREE_NM"}, add, failed_step)
      .Prefixed(kSubtreeRoutine);
}

Status Group_funNextSortidx(const RequestContext& ctx, data::Connection& conn, const std::string& joi_sec,
                            std::string& seq, data::ReadStep* failed_step) {
  data::Sql sql;
  sql << "select max(SEC_SEQ) as MAX_IDX"
      << " from " << Table(ctx.SEC_MST) << " where JOI_SEC = " << Quoted(joi_sec);
  std::string max;
  if (Status s = data::SelectFirstValue(conn, sql, "MAX_IDX", max, nullptr, failed_step); !s.ok())
    return std::move(s).Prefixed("Group_funNextSortidx");
  return NextNumber("Group_funNextSortidx", max, 3, seq);
}

}  // namespace orvane::org
