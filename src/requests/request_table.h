// The request table: the one place that lists request codes. Each row names
// the fields a code reads, how they become the operation's arguments and the
// operation itself. Dispatch, `orvane request --help` and the tests all
// derive from it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "dispatch/request_context.h"

namespace orvane {

using Arguments = std::vector<std::string>;
using Operation = void (*)(RequestContext& ctx, const Arguments& args);

struct ArgSource {
  enum class Kind {
    kField,       // the text of a request field
    kConstant,    // a fixed text
    kInt16Field,  // a request field that must be a signed 16-bit integer
  };
  Kind kind;
  std::string_view text;  // field name or constant
};

struct RequestRoute {
  std::string_view code;
  std::vector<std::string_view> reads;  // fields read, in this order
  std::vector<ArgSource> args;          // the operation's arguments, in order
  std::string_view operation;           // the operation's name
  Operation run = nullptr;              // null: not built yet
  bool answer_is_secret = false;        // the answer holds a password: never log it
};

const std::vector<RequestRoute>& RequestTable();

// The first row whose code equals `code` without regard to case, or null.
const RequestRoute* FindRoute(std::string_view code);

struct BuiltArguments {
  Arguments args;
  std::string error;  // non-empty when a field could not be converted
};
BuiltArguments BuildArguments(const RequestRoute& route, const NamedValues& fields);

}  // namespace orvane
