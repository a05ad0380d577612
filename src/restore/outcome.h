// What a restore or an undo answers its caller (the command line and the
// JSON endpoints): done with the history entry that records it, or refused
// with the answer's code and a sentence naming what blocks.
#pragma once

#include <string>

namespace orvane::restore {

struct Outcome {
  bool ok = false;
  long entry = 0;       // the entry that records it, done or refused
  std::string error;    // "ERROR:RESTORETAKEN", ...
  std::string message;  // what blocks, in a sentence
};

// The outcome of an operation's answer: "OK", or "ERROR:CODE" followed by
// the reason (a CR LF between them, or the operation's own trail).
Outcome OutcomeOf(const std::string& answer, long entry);

}  // namespace orvane::restore
