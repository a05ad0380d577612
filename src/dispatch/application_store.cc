#include "dispatch/application_store.h"

#include <algorithm>
#include <fstream>

#include "base/text.h"
#include "dispatch/config.h"

namespace orvane {

Status LoadMenuCatalogue(const std::string& path, MenuCatalogue& out) {
  out.clear();
  std::ifstream in(path, std::ios::binary);
  if (!in) return Status::Ok();  // no catalogue file: no menus
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (number == 1 && line.rfind("\xEF\xBB\xBF", 0) == 0) line.erase(0, 3);  // UTF-8 mark
    if (text::Trim(line).empty()) continue;
    std::vector<std::string> parts = text::Split(line, ",");
    for (auto& p : parts) p = text::Trim(p);
    bool well_formed = (parts.size() == 2 || parts.size() == 3) && parts[0].size() == 2 &&
                       isdigit(static_cast<unsigned char>(parts[0][0])) &&
                       isdigit(static_cast<unsigned char>(parts[0][1])) &&
                       (parts.size() == 2 || parts[2] == "0" || parts[2] == "1" || parts[2].empty());
    if (!well_formed) {
      out.clear();
      return Status::Failure(path + " line " + std::to_string(number) +
                             ": expected \"number,name[,shown]\" with a two-digit number and shown 0 or 1: " + line);
    }
    out.push_back({parts[0], parts[1], parts.size() == 3 && parts[2] == "1"});
  }
  return Status::Ok();
}

std::string DisplayedMenus(const MenuCatalogue& catalogue) {
  std::string out = "/";
  for (const MenuEntry& m : catalogue)
    if (m.shown) out += m.number + "/";
  return out;
}

ApplicationStore::ApplicationStore() : menuinfo_(std::make_shared<const MenuCatalogue>()), disp_menu_("/") {}

std::shared_ptr<const MenuCatalogue> ApplicationStore::Menuinfo() const {
  std::lock_guard lock(mu_);
  return menuinfo_;
}

std::string ApplicationStore::DispMenu() const {
  std::lock_guard lock(mu_);
  return disp_menu_;
}

std::string ApplicationStore::AdminColumn() const {
  std::lock_guard lock(mu_);
  return admin_column_;
}

void ApplicationStore::SetAdminColumn(std::string column) {
  std::lock_guard lock(mu_);
  admin_column_ = std::move(column);
}

void ApplicationStore::SetMenuinfo(MenuCatalogue catalogue) {
  std::string disp = DisplayedMenus(catalogue);
  auto value = std::make_shared<const MenuCatalogue>(std::move(catalogue));
  std::lock_guard lock(mu_);
  menuinfo_ = std::move(value);
  disp_menu_ = std::move(disp);
}

namespace {

SecTreeLines LinesOf(const Array2D& tree) {
  SecTreeLines lines;
  const size_t rows = RowCount(tree), columns = std::min<size_t>(ColumnCount(tree), 12);
  lines.reserve(rows);
  for (size_t r = 0; r < rows; ++r) {
    auto line = std::make_shared<SecTreeLine>();
    for (size_t c = 0; c < columns; ++c) (*line)[c] = tree[c][r];
    lines.push_back(std::move(line));
  }
  return lines;
}

Array2D ArrayOf(const SecTreeLines& lines) {
  Array2D tree(12, std::vector<std::string>(lines.size()));
  // Column by column: the array is [column][row].
  for (size_t c = 0; c < 12; ++c)
    for (size_t r = 0; r < lines.size(); ++r) tree[c][r] = (*lines[r])[c];
  return tree;
}

}  // namespace

std::shared_ptr<const Array2D> ApplicationStore::SecHierarchical() const {
  long long version;
  return SecHierarchical(version);
}

long long ApplicationStore::SecHierarchicalVersion() const {
  std::lock_guard lock(mu_);
  return sec_hierarchical_version_;
}

std::shared_ptr<const Array2D> ApplicationStore::SecHierarchical(long long& version) const {
  std::lock_guard lock(mu_);
  if (!sec_hierarchical_ && sec_tree_lines_)
    sec_hierarchical_ = std::make_shared<const Array2D>(ArrayOf(*sec_tree_lines_));
  version = sec_hierarchical_version_;
  return sec_hierarchical_;
}

void ApplicationStore::SetSecHierarchical(Array2D tree, long long version) {
  auto lines = std::make_shared<const SecTreeLines>(LinesOf(tree));
  auto value = std::make_shared<const Array2D>(std::move(tree));
  std::lock_guard lock(mu_);
  if (sec_tree_lines_ && version < sec_hierarchical_version_) return;
  sec_hierarchical_ = std::move(value);
  sec_tree_lines_ = std::move(lines);
  sec_hierarchical_version_ = version;
}

std::shared_ptr<const SecTreeLines> ApplicationStore::SecTreeLinesHeld(long long& version) const {
  std::lock_guard lock(mu_);
  version = sec_hierarchical_version_;
  return sec_tree_lines_;
}

bool ApplicationStore::ReplaceSecTreeLines(long long expected_version, SecTreeLines lines, long long version) {
  auto value = std::make_shared<const SecTreeLines>(std::move(lines));
  std::lock_guard lock(mu_);
  if (!sec_tree_lines_ || sec_hierarchical_version_ != expected_version) return false;
  sec_tree_lines_ = std::move(value);
  sec_hierarchical_ = nullptr;
  sec_hierarchical_version_ = version;
  return true;
}

std::shared_ptr<const std::string> ApplicationStore::TreeAnswer(const std::string& key, long long version) const {
  std::lock_guard lock(mu_);
  auto it = tree_answers_.find(key);
  return it != tree_answers_.end() && it->second.version == version ? it->second.answer : nullptr;
}

void ApplicationStore::KeepTreeAnswer(const std::string& key, long long version, std::string answer) {
  auto value = std::make_shared<const std::string>(std::move(answer));
  std::lock_guard lock(mu_);
  TreeAnswerKept& kept = tree_answers_[key];
  if (kept.answer && kept.version > version) return;
  kept = {version, std::move(value)};
}

Status LoadApplicationValues(const ConfigFile& config, ApplicationStore& app) {
  MenuCatalogue catalogue;
  if (Status s = LoadMenuCatalogue(config.Folder() + "/menuinfo.csv", catalogue); !s.ok()) return s;
  app.SetMenuinfo(std::move(catalogue));
  return Status::Ok();
}

}  // namespace orvane
