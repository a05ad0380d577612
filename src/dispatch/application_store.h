// Values shared by every request of one server: the menu catalogue
// ("App_A_strMenuinfo", "App_strDispMenu"), the drawn section tree
// ("App_A_strSec_hierarchical") and the administrator's menu-rights column
// (MENU50 unless `serve --admin-column` names another).
//
// Thread-safe. Values are immutable snapshots behind shared pointers and are
// replaced whole, so a reader never sees half a tree.
#pragma once

#include <array>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/array2d.h"
#include "base/status.h"

namespace orvane {

struct MenuEntry {
  std::string number;  // two digits, as text
  std::string name;
  bool shown = false;
};
using MenuCatalogue = std::vector<MenuEntry>;

// Reads menuinfo.csv: UTF-8, one menu a line, "number,name[,shown]". Blank
// lines are skipped. A malformed line fails with a trail naming the line; a
// missing file is an empty catalogue.
Status LoadMenuCatalogue(const std::string& path, MenuCatalogue& out);

// "/02/20/11/" from the shown menus in catalogue order; "/" alone when none.
std::string DisplayedMenus(const MenuCatalogue& catalogue);

// The drawn tree line by line (the twelve values of a row), as the tree
// changes patch it: a patched version shares every line it did not change
// with the version before.
using SecTreeLine = std::array<std::string, 12>;
using SecTreeLines = std::vector<std::shared_ptr<const SecTreeLine>>;

class ApplicationStore;
class ConfigFile;

// Loads what the store holds at start: the menu catalogue from
// menuinfo.csv beside the configuration file. Fails as LoadMenuCatalogue.
Status LoadApplicationValues(const ConfigFile& config, ApplicationStore& app);

class ApplicationStore {
 public:
  ApplicationStore();

  std::shared_ptr<const MenuCatalogue> Menuinfo() const;  // App_A_strMenuinfo
  std::string DispMenu() const;                           // App_strDispMenu
  void SetMenuinfo(MenuCatalogue catalogue);              // sets both

  // The menu-rights column whose own number marks an administrator. A new
  // user's menu row never grants it: only 213 does.
  std::string AdminColumn() const;
  void SetAdminColumn(std::string column);

  std::shared_ptr<const Array2D> SecHierarchical() const;  // may be null
  // The tree version (ORVANE_TREE_VERSION) the held tree was drawn from; -1
  // when none is held.
  long long SecHierarchicalVersion() const;
  // The held tree and, in `version`, the version it was drawn from, read
  // together.
  std::shared_ptr<const Array2D> SecHierarchical(long long& version) const;
  // Keeps `tree`, drawn from `version`, unless the held one is from a newer
  // version already (two requests may draw at once).
  void SetSecHierarchical(Array2D tree, long long version);
  // The held tree's lines and version (null and -1 when none is held).
  std::shared_ptr<const SecTreeLines> SecTreeLinesHeld(long long& version) const;
  // Keeps `lines`, drawn from `version`, only when the held tree is still
  // the one of `expected_version` (false otherwise: another change came
  // first). The array of SecHierarchical is made from them when next asked.
  bool ReplaceSecTreeLines(long long expected_version, SecTreeLines lines, long long version);

  // An answer read from the live section table that only a tree change can
  // change (the group list, 101), kept under `key` with the tree version it
  // was read at. Null when none is kept for `version`.
  std::shared_ptr<const std::string> TreeAnswer(const std::string& key, long long version) const;
  // Keeps `answer` for `version` unless one of a newer version is kept.
  void KeepTreeAnswer(const std::string& key, long long version, std::string answer);

 private:
  mutable std::mutex mu_;
  std::shared_ptr<const MenuCatalogue> menuinfo_;  // guarded by mu_
  std::string disp_menu_;                          // guarded by mu_
  std::string admin_column_ = "MENU50";            // guarded by mu_
  // The held tree: its lines always, its array once asked for.
  mutable std::shared_ptr<const Array2D> sec_hierarchical_;  // guarded by mu_
  std::shared_ptr<const SecTreeLines> sec_tree_lines_;       // guarded by mu_
  long long sec_hierarchical_version_ = -1;                  // guarded by mu_
  struct TreeAnswerKept {
    long long version;
    std::shared_ptr<const std::string> answer;
  };
  std::map<std::string, TreeAnswerKept> tree_answers_;  // guarded by mu_
};

}  // namespace orvane
