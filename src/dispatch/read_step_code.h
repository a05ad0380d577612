// The answer code of a read that failed, by the step it failed at: every
// frame's reads answer the select's, the fetch's or the close's code, and
// only the texts differ between operations.
#pragma once

#include <string_view>

#include "data/db.h"

namespace orvane {

struct ReadCodes {
  std::string_view select = "ERROR:DBSELECT";
  std::string_view fetch = "ERROR:DBFETCH";
  std::string_view close = "ERROR:RSCLOSE";
};

constexpr std::string_view CodeOfReadStep(data::ReadStep step, const ReadCodes& codes = {}) {
  switch (step) {
    case data::ReadStep::kFetch:
      return codes.fetch;
    case data::ReadStep::kClose:
      return codes.close;
    case data::ReadStep::kSelect:
      break;
  }
  return codes.select;
}

}  // namespace orvane
