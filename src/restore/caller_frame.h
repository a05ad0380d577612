// The write frame of a restore or an undo: the request is named for its
// history entry by the caller's own code and fields (not a request's), and
// what it answers is read back as an Outcome with the entry that records
// it, done or refused.
#pragma once

#include <initializer_list>
#include <string>
#include <utility>

#include "dispatch/write_frame.h"
#include "restore/outcome.h"

namespace orvane::restore {

class CallerFrame : public WriteFrame {
 public:
  CallerFrame(RequestContext& ctx, WriteRules rules, std::string code,
              std::initializer_list<std::pair<const char*, std::string>> fields);

  // What the request has answered so far, with its entry.
  Outcome Result() const;
  // A check's refusal: rolled back and answered `answer`.
  Outcome Refuse(const std::string& answer);

 private:
  const RequestContext& ctx_;
};

}  // namespace orvane::restore
