// tree_bench: times the tree changes that rewrite a whole subtree, in
// process, on a SQLite organisation of 20,000 sections: request 212 moving
// a group with 5,000 (and 500) descendants, and request 202 renaming it,
// each including the rebuild of the drawn tree of all 20,000 sections. Next
// to each, the same number of single-row updates of the same columns run in
// one transaction through the same driver.
//
//   build/release/bench/tree_bench [--dir DIR] [--repeat N]
//
// Sections: 00000 at the top; below it 00001 with 5,000 descendants, 00002
// with 500, 00003 with the rest, and 00004, an empty group the moves go
// under and back. Each subtree is an 8-ary tree.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "base/clock.h"
#include "bench_checks.h"
#include "data/db.h"
#include "data/schema.h"
#include "dispatch/request_fields.h"
#include "org/sec_tree.h"
#include "requests/web_class.h"
#include "timing.h"

namespace orvane::bench {
namespace {

using data::Quoted;
using data::Table;

constexpr int kSections = 20000;
constexpr int kBig = 5000, kSmall = 500;

// The organisation described above, parents before children.
std::vector<Section> Organisation() {
  std::vector<Section> out = {{Code(0), "9999", "001", Code(0), "本社"}};
  int next = 5;
  auto subtree = [&](int root, int seq, int descendants) {
    std::vector<size_t> nodes = {out.size()};
    out.push_back({Code(root), Code(0), "00" + std::to_string(seq), Code(0) + "/" + Code(root), "/ 部" + Code(root)});
    for (int k = 1; k <= descendants; ++k) {
      const Section parent = out[nodes[(k - 1) / 8]];
      std::string code = Code(next++);
      nodes.push_back(out.size());
      out.push_back({code, parent.code, "00" + std::to_string((k - 1) % 8 + 1), parent.tree + "/" + code,
                     parent.tree_nm + " / 課" + code});
    }
  };
  subtree(1, 1, kBig);
  subtree(2, 2, kSmall);
  subtree(3, 3, kSections - 5 - kBig - kSmall);
  subtree(4, 4, 0);
  return out;
}

void Generate(data::Connection& conn, const std::vector<Section>& sections) {
  Check(data::Com_funBeginTrans(conn), "begin");
  InsertSections(conn, sections);
  Check(data::Com_funCommitTrans(conn), "commit");
}

int Main(const std::string& dir, int repeat) {
  ::mkdir(dir.c_str(), 0755);
  const std::string db = dir + "/tree.db";
  std::remove(db.c_str());
  std::ofstream(dir + "/tree.ini") << "LOCAL_DB_DSN=orvane_tree_bench\nJNJI_MODE=0\nML_FOLDER=" << dir << "\n";
  std::ofstream(dir + "/odbc.ini") << "[orvane_tree_bench]\nDriver=SQLite3\nDatabase=" << db
                                   << "\nJournalMode=WAL\nTimeout=5000\n";
  data::UseOdbcIniBeside(dir);
  ConfigFile config(dir + "/tree.ini");
  const std::vector<Section> sections = Organisation();
  data::Connection conn;
  Check(data::Com_funDbOpen("orvane_tree_bench", "", "", conn), "open");
  Check(data::CreateSchema(conn), "create tables");
  Generate(conn, sections);

  Session session;
  session.Set("PUB_USR_ID", "bench");
  ApplicationStore app;
  auto request = [&](const std::string& query) { RunOk(config, session, app, query); };
  // The same count of single-row updates of the columns the change writes,
  // with real changes (an unchanged value costs an index less): for a move
  // the paths there and back (two transactions, like the move's two
  // requests), for a rename the name path.
  auto updates = [&](int root, bool paths) {
    std::vector<const Section*> rows;
    for (const Section& s : sections)
      if (s.tree.starts_with(Code(0) + "/" + Code(root))) rows.push_back(&s);
    auto run = [&conn, rows, paths](const std::string& tree_head, const std::string& name_head) {
      Check(data::Com_funBeginTrans(conn), "begin");
      for (const Section* s : rows) {
        data::Sql sql;
        sql << "update " << Table("T_SECTION") << " set";
        if (paths) sql << " SEC_TREE = " << Quoted(tree_head + s->tree) << " ,";
        sql << " TREE_NM = " << Quoted(name_head + s->tree_nm) << " ,UPD_KBN = '2'"
            << " ,UPD_YMD = " << Quoted("20261123") << " ,UPD_HMS = " << Quoted("120000")
            << " ,UPD_USR = " << Quoted("bench") << " where SEC_CD = " << Quoted(s->code);
        Check(data::Com_funExecsql(conn, sql), "update");
      }
      Check(data::Com_funCommitTrans(conn), "commit");
    };
    int turn = 0;
    return [run, paths, turn]() mutable {
      if (paths) {
        run("X/", "/ X");
        run("", "");
      } else {
        run("", "/ " + std::to_string(turn++));
      }
    };
  };
  // A move there and back counts as two moves; a rename alternates names.
  auto move = [&](int root) {
    return [&, root] {
      request("ReqNo=212&Group_cd1=" + Code(root) + "&Group_cd2=" + Code(4));
      request("ReqNo=212&Group_cd1=" + Code(root) + "&Group_cd2=" + Code(0));
    };
  };
  int renames = 0;
  auto rename = [&](int root) {
    return [&, root] { request("ReqNo=202&Group_cd=" + Code(root) + "&Group_nm=部" + std::to_string(renames++)); };
  };
  std::vector<double> ms = MediansMs(repeat, {move(2), move(1), rename(2), rename(1), updates(2, true),
                                              updates(1, true), updates(2, false), updates(1, false)});
  // A move there and back, and its updates, count as two.
  for (int i : {0, 1, 4, 5}) ms[i] /= 2;
  std::printf("SQLite, %d sections, median of %d\n\n", kSections, repeat);
  std::printf("| change | %d rows ms | %d rows ms | growth (goal <= 12) |\n|---|---:|---:|---:|\n", kSmall + 1,
              kBig + 1);
  const char* names[] = {"move (212)", "rename (202)", "updates of both paths", "updates of the name path"};
  for (int i = 0; i < 4; ++i)
    std::printf("| %s | %.1f | %.1f | %.2f |\n", names[i], ms[2 * i], ms[2 * i + 1], ms[2 * i + 1] / ms[2 * i]);
  std::printf("\n| change | ratio to its updates at %d rows | at %d rows (goal <= 2) |\n|---|---:|---:|\n", kSmall + 1,
              kBig + 1);
  std::printf("| move (212) | %.2f | %.2f |\n", ms[0] / ms[4], ms[1] / ms[5]);
  std::printf("| rename (202) | %.2f | %.2f |\n", ms[2] / ms[6], ms[3] / ms[7]);

  // The fixed part of a tree change: changes of one or two rows, each with
  // what follows its commit (the held drawn tree brought up to date), next
  // to drawing the whole tree from the table.
  const std::string leaf = sections.back().code;
  int leaf_renames = 0, swaps = 0;
  auto rename_leaf = [&] { request("ReqNo=202&Group_cd=" + leaf + "&Group_nm=課" + std::to_string(leaf_renames++)); };
  // 201 under the empty group numbers the new group "0000" (max + 1 of five-digit codes, four digits kept).
  auto add_delete = [&] {
    request("ReqNo=201&Group_cd=" + Code(4) + "&Group_nm=new");
    request("ReqNo=203&Group_cd=0000");
  };
  auto swap = [&] {
    bool odd = swaps++ % 2;
    request("ReqNo=210&Group_cd1=" + Code(odd ? 2 : 1) + "&Group_cd2=" + Code(odd ? 1 : 2) + "&Group_cd3=" + Code(0));
  };
  auto draw = [&] {
    Array2D hier;
    Check(org::Com_funGet_sec_info(conn, "T_SECTION", hier), "draw");
  };
  std::vector<double> fixed = MediansMs(repeat * 3, {rename_leaf, add_delete, swap, draw});
  std::printf("\n| change of a few rows | ms |\n|---|---:|\n");
  std::printf("| rename of a leaf (202) | %.2f |\n", fixed[0]);
  std::printf("| add of a leaf and its delete (201, 203), per request | %.2f |\n", fixed[1] / 2);
  std::printf("| reorder of two groups at the top (210) | %.2f |\n", fixed[2]);
  std::printf("| the whole tree drawn from the table (Com_funGet_sec_info) | %.2f |\n", fixed[3]);
  Check(data::Com_funDbClose(conn), "close");
  return 0;
}

}  // namespace
}  // namespace orvane::bench

int main(int argc, char** argv) {
  std::string dir = "/tmp/orvane-bench";
  int repeat = 5;
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string flag = argv[i], value = argv[i + 1];
    if (flag == "--dir") {
      dir = value;
    } else if (flag == "--repeat") {
      repeat = std::atoi(value.c_str());
    } else {
      std::cerr << "usage: tree_bench [--dir DIR] [--repeat N]\n";
      return 2;
    }
  }
  if (argc % 2 == 0) {
    std::cerr << "usage: tree_bench [--dir DIR] [--repeat N]\n";
    return 2;
  }
  return orvane::bench::Main(dir, repeat);
}
