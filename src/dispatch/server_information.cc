#include "dispatch/server_information.h"

#include "base/text.h"

namespace orvane {
namespace {

// Keys in the order they are read. The answer's first failing key ends it.
constexpr std::string_view kKeys[] = {"LOCAL_DB_DSN", "MAINFORM_BACK_COLOR", "ML_MODE",          "ML_USEFLG",
                                      "ML_ISLOCAL",   "ML_ADDUSEFLG",        "ML_EXEPROXY_PORT", "ML_SERVERIP",
                                      "ML_SERVER",    "ML_FOLDER",           "JNJI_MODE"};

std::string MenuItems(const MenuCatalogue& catalogue, std::string_view number) {
  for (size_t i = 0; i < catalogue.size(); ++i)
    if (catalogue[i].number == number) return "1," + std::to_string(i) + "," + catalogue[i].name;
  return "0,,";
}

}  // namespace

void GetServerInformation(RequestContext& ctx) {
  std::string values[std::size(kKeys)];
  for (size_t i = 0; i < std::size(kKeys); ++i) {
    bool found = ctx.config().ComIniFileLoad(kKeys[i], values[i]).ok();
    if (kKeys[i] == "MAINFORM_BACK_COLOR") {
      if (!found || text::CodePointLength(values[i]) != 6) values[i] = "FFFFFF";
      continue;
    }
    if (!found) {
      ctx.Write(kKeys[i] == "LOCAL_DB_DSN" ? std::string("ERROR:READINFOFILE_SV_FOLDER")
                                           : "ERROR:READINFOFILE_" + std::string(kKeys[i]));
      return;
    }
  }
  auto catalogue = ctx.app().Menuinfo();
  ctx.Write(values[1] + "," + values[2] + "," + values[3] + "," + values[5] + "," + MenuItems(*catalogue, "23") + "," +
            MenuItems(*catalogue, "07"));
}

}  // namespace orvane
