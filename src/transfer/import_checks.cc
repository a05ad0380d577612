#include "transfer/import_checks.h"

#include <algorithm>
#include <set>

#include "base/text.h"
#include "data/schema.h"
#include "dispatch/field_rules.h"

namespace orvane::transfer {
namespace {

constexpr std::string_view kNoParent = "9999";  // the top section's parent

int Col(FileKind kind, std::string_view name) { return SpecOf(kind).ExportedIndex(name); }

const std::string& Value(const Row& row, FileKind kind, std::string_view column) { return row[Col(kind, column)]; }

bool AllDigits(std::string_view s) {
  return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// "/01/21/" in the order of the menu-code list; false for a code the list
// does not hold or a text not framed by "/".
bool NormalRights(std::string_view text, std::string& out) {
  out.clear();
  if (text.empty()) return true;
  if (text.front() != '/' || text.back() != '/') return false;
  std::set<std::string> granted;
  for (const std::string& code : text::Split(text.substr(1, text.size() - 2), "/")) granted.insert(code);
  std::vector<std::string> codes = text::Split(data::kMenuCodeList, ",");
  size_t known = 0;
  for (const std::string& code : codes)
    if (granted.count(code)) {
      out += "/" + code;
      ++known;
    }
  if (known != granted.size()) return false;
  if (!out.empty()) out += "/";
  return true;
}

// The next three-digit order among `orders` (max + 1).
std::string NextOrder(const std::vector<std::string>& orders) {
  long max = 0;
  for (const std::string& o : orders)
    if (AllDigits(o) && o.size() < 9) max = std::max(max, std::stol(o));
  return text::Right("000" + std::to_string(max + 1), 3);
}

void Fail(PlanLine& line, std::string error) {
  if (line.action == Action::kError) return;
  line.action = Action::kError;
  line.error = std::move(error);
}

// What the reference checks look up, indexed once over the organisation as
// the import leaves it, so that each line costs a lookup, not a scan.
struct Index {
  std::map<std::string, std::vector<std::string>> sections_of_busho;
  std::map<std::string, std::vector<const Row*>> primaries_of_user;
  std::map<std::string, std::vector<std::string>> children_of;

  explicit Index(const WorkState& state) {
    for (const auto& [code, row] : state.Of(FileKind::kSections)) {
      if (!Value(row, FileKind::kSections, "department_code").empty())
        sections_of_busho[Value(row, FileKind::kSections, "department_code")].push_back(code);
      children_of[Value(row, FileKind::kSections, "parent")].push_back(code);
    }
    for (const auto& [key, row] : state.Of(FileKind::kMemberships))
      if (Value(row, FileKind::kMemberships, "kind") == "1")
        primaries_of_user[Value(row, FileKind::kMemberships, "user")].push_back(&row);
  }
};

void CheckSection(const WorkState& state, const Index& index, PlanLine& line) {
  constexpr FileKind kS = FileKind::kSections;
  const auto& sections = state.Of(kS);
  const std::string code = Value(line.after, kS, "code");
  const std::string parent = Value(line.after, kS, "parent");
  if (parent != kNoParent && !sections.count(parent)) return Fail(line, "unknown parent: " + parent);
  // Up the parents from the new one: reaching the section again is a cycle.
  std::string path = code, at = parent;
  for (size_t steps = 0; at != kNoParent && steps <= sections.size(); ++steps) {
    path += " -> " + at;
    if (at == code) return Fail(line, "parent " + parent + " makes a cycle: " + path);
    auto up = sections.find(at);
    if (up == sections.end()) break;
    at = Value(up->second, kS, "parent");
  }
  const std::string busho = Value(line.after, kS, "department_code");
  auto holders = index.sections_of_busho.find(busho);
  if (!busho.empty() && holders != index.sections_of_busho.end())
    for (const std::string& other : holders->second)
      if (other != code) return Fail(line, "department code " + busho + " is section " + other + "'s");
}

void CheckMembership(const WorkState& state, const Index& index, PlanLine& line) {
  constexpr FileKind kM = FileKind::kMemberships;
  const std::string user = Value(line.after, kM, "user"), section = Value(line.after, kM, "section");
  if (!state.Of(FileKind::kUsers).count(user)) return Fail(line, "unknown user: " + user);
  if (!state.Of(FileKind::kSections).count(section)) return Fail(line, "unknown section: " + section);
  if (Value(line.after, kM, "kind") != "1") return;
  auto primaries = index.primaries_of_user.find(user);
  if (primaries == index.primaries_of_user.end()) return;
  const std::string start = Value(line.after, kM, "start"), end = Value(line.after, kM, "end");
  for (const Row* row : primaries->second) {
    if (Value(*row, kM, "section") == section) continue;
    // Dates of eight digits order as text.
    if (Value(*row, kM, "start") <= end && Value(*row, kM, "end") >= start)
      return Fail(line, "another primary membership at the same time: section " + Value(*row, kM, "section"));
  }
}

// Whether the line's row needs an order: a new row without one, or a
// section moved to another parent without one.
bool NeedsOrder(const PlanLine& line) {
  if (line.kind != FileKind::kSections && line.kind != FileKind::kMemberships) return false;
  const bool section = line.kind == FileKind::kSections;
  const int order = Col(line.kind, "order"), group = Col(line.kind, section ? "parent" : "section");
  if (line.action == Action::kAdd) return line.after[order].empty();
  return line.action == Action::kChange && section && line.after[group] != line.before[group] &&
         line.after[order] == line.before[order];
}

// New rows without an order, and sections moved without one, go after
// their new siblings, in line order.
void PlaceInOrder(WorkState& state, std::vector<PlanLine>& lines) {
  for (FileKind kind : {FileKind::kSections, FileKind::kMemberships}) {
    const FileSpec& layout = SpecOf(kind);
    const int order = Col(kind, "order"), group = Col(kind, kind == FileKind::kSections ? "parent" : "section");
    std::set<std::string> placed;
    for (const PlanLine& line : lines)
      if (line.kind == kind && NeedsOrder(line)) placed.insert(KeyOf(layout, line.after));
    if (placed.empty()) continue;
    std::map<std::string, std::vector<std::string>> orders;  // group -> orders of the rows staying put
    for (const auto& [key, row] : state.Of(kind))
      if (!placed.count(key)) orders[row[group]].push_back(row[order]);
    for (PlanLine& line : lines) {
      if (line.kind != kind || !NeedsOrder(line)) continue;
      std::vector<std::string>& siblings = orders[line.after[group]];
      const std::string next = NextOrder(siblings);
      siblings.assign(1, next);  // the maximum is all the next one needs
      if (line.action == Action::kChange && next != line.before[order])
        line.changes.push_back({"order", line.before[order], next});
      line.after[order] = next;
      state.Of(kind)[KeyOf(layout, line.after)] = line.after;
    }
  }
}

}  // namespace

WorkState::WorkState(const Organisation& current) {
  for (const FileSpec& layout : FileSpecs())
    for (const Row& r : current.Of(layout.kind)) Of(layout.kind).emplace(KeyOf(layout, r), r);
}

void WorkState::Remove(FileKind kind, const std::string& key) {
  Of(kind).erase(key);
  auto& members = Of(FileKind::kMemberships);
  const int column = kind == FileKind::kUsers      ? Col(FileKind::kMemberships, "user")
                     : kind == FileKind::kSections ? Col(FileKind::kMemberships, "section")
                                                   : -1;
  if (column < 0) return;
  for (auto it = members.begin(); it != members.end();) it = it->second[column] == key ? members.erase(it) : ++it;
  if (kind == FileKind::kUsers) Of(FileKind::kMenuRights).erase(key);
}

Organisation WorkState::ToOrganisation() const {
  Organisation out;
  for (const FileSpec& layout : FileSpecs())
    for (const auto& [key, row] : Of(layout.kind)) out.Of(layout.kind).push_back(row);
  return out;
}

std::string CheckGivenValues(const FileSpec& layout,
                             const std::vector<std::pair<const ColumnSpec*, std::string>>& given, const Row& before,
                             Row& row) {
  const bool adding = before.empty();
  bool parent_given = false;
  for (const auto& [column, value] : given) {
    const std::string name(column->name);
    auto fail = [&name](std::string_view reason) { return name + ": " + std::string(reason); };
    if (column->key && value.empty()) return fail("must not be empty");
    const int at = layout.ExportedIndex(name);
    const std::string start = layout.kind == FileKind::kMemberships ? row[layout.ExportedIndex("start")] : "";
    FieldRule rule{column->name, column->kind, true, column->kind == FieldKind::kId && column->key && adding, {}, {}};
    if (std::string reason = CheckValue(rule, value, start); !reason.empty()) return fail(reason);
    if (name == "parent") parent_given = true;
    if (name == "order" && !value.empty()) {
      if (!AllDigits(value) || value.size() > 3) return fail("must be 1 to 3 digits");
      row[at] = text::Right("000" + value, 3);
    } else if (name == "kind" && value != "0" && value != "1") {
      return fail("must be 1 (primary) or 0 (concurrent)");
    } else if (name == "end" && value.empty()) {
      row[at] = "99999999";
    } else if (name == "rights") {
      std::string normal;
      if (!NormalRights(value, normal))
        return fail("must be menu numbers framed by \"/\" (\"/01/21/\"), each one of the menu list");
      row[at] = normal;
    }
  }
  if (adding && layout.kind == FileKind::kSections && !parent_given) return "parent: needed for a new section";
  return {};
}

void CheckReferences(WorkState& state, std::vector<PlanLine>& lines) {
  const Index index(state);
  for (PlanLine& line : lines) {
    if (line.action != Action::kAdd && line.action != Action::kChange) continue;
    if (line.kind == FileKind::kSections) CheckSection(state, index, line);
    if (line.kind == FileKind::kMemberships) CheckMembership(state, index, line);
    if (line.kind == FileKind::kMenuRights && !state.Of(FileKind::kUsers).count(line.key))
      Fail(line, "unknown user: " + line.key);
  }
  for (PlanLine& line : lines) {
    if (line.action != Action::kDelete || line.kind != FileKind::kSections) continue;
    auto children = index.children_of.find(line.key);
    if (children != index.children_of.end() && !children->second.empty())
      Fail(line, "a section with children is not removed (children: " + text::Join(children->second, " ") + ")");
  }
  PlaceInOrder(state, lines);
}

}  // namespace orvane::transfer
