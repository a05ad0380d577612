// The request table: the one place that lists request codes. Each row names
// its code, the operation function and the operation's arguments once; the
// fields a code reads, the conversion of each field to the parameter type
// and the call all derive from that row. Dispatch, `orvane request --help`
// and the tests read it.
//
//   {.code = "102", .operation = "GetAllUserList",
//    .call = Call<members::GetAllUserList>(Text("S_Col"), Text("S_Type"), Text("S_OPT"),
//                                          Int16("S_pos"), Int16("B_pos"))}
//
// A field of a changing request also names its kind and whether the
// request stores it (dispatch/field_rules.h); the validation step checks
// the stored ones: Text("Group_nm", Stores(FieldKind::kName)).
//
// Call<> checks at compile time that the arguments match the function's
// parameters in number and kind: a Text or Fixed argument for a text
// parameter, an Int16 argument for a `short`.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "dispatch/field_rules.h"
#include "dispatch/request_context.h"

namespace orvane {

// How a changing request uses a field: its kind, and whether the request
// stores the value (then the validation step checks it).
struct FieldUse {
  FieldKind kind = FieldKind::kFreeText;
  bool stored = false;
  bool required = false;        // a new id or password
  std::string_view own_answer;  // the request's own answer for a value that fails its kind
};
// A value the request stores.
constexpr FieldUse Stores(FieldKind kind, std::string_view own_answer = {}) { return {kind, true, false, own_answer}; }
// A new id or password: stored, and never empty.
constexpr FieldUse Creates(FieldKind kind) { return {kind, true, true, {}}; }
// A key naming an existing row, or a value the request does not store:
// existing data that breaks today's rules keeps working.
constexpr FieldUse Names(FieldKind kind) { return {kind, false, false, {}}; }

// One argument of an operation as a row names it.
struct ArgSource {
  enum class Kind {
    kText,   // the text of a request field
    kFixed,  // a fixed text
    kInt16,  // a request field that must be a signed 16-bit integer
  };
  Kind kind;
  std::string_view text;  // field name or fixed value
  FieldUse use = {};      // a field's kind and whether it is stored
};

struct TextArg : ArgSource {};
struct FixedArg : ArgSource {};
struct Int16Arg : ArgSource {};
constexpr TextArg Text(std::string_view field, FieldUse use = {}) { return {{ArgSource::Kind::kText, field, use}}; }
constexpr FixedArg Fixed(std::string_view value) { return {{ArgSource::Kind::kFixed, value}}; }
constexpr Int16Arg Int16(std::string_view field) { return {{ArgSource::Kind::kInt16, field}}; }

// Converts one argument. A 16-bit field that holds anything else than a
// whole number in range fails with "ERROR:TYPEMISMATCH ..." as its trail.
Status ConvertArgument(const ArgSource& arg, const NamedValues& fields, std::string& out);
Status ConvertArgument(const ArgSource& arg, const NamedValues& fields, short& out);

// Runs the operation with its arguments converted; fails as ConvertArgument
// when one cannot be converted (the operation is then not called).
using Invoker = Status (*)(RequestContext& ctx, std::span<const ArgSource> args);

struct Binding {
  std::vector<ArgSource> args;
  Invoker invoke = nullptr;
};

namespace request_table_internal {

template <typename Param, typename Arg>
constexpr bool kFits = std::is_same_v<std::decay_t<Param>, short>
                           ? std::is_same_v<Arg, Int16Arg>
                           : std::is_constructible_v<Param, const std::string&> &&
                                 (std::is_same_v<Arg, TextArg> || std::is_same_v<Arg, FixedArg>);

template <typename Param>
using Stored = std::conditional_t<std::is_same_v<std::decay_t<Param>, short>, short, std::string>;

template <auto Operation, typename... Params, std::size_t... I>
Status Invoke(RequestContext& ctx, [[maybe_unused]] std::span<const ArgSource> args, std::index_sequence<I...>) {
  std::tuple<Stored<Params>...> values;
  Status converted;
  // Left to right, stopping at the first that fails.
  ((converted.ok() ? (void)(converted = ConvertArgument(args[I], ctx.fields, std::get<I>(values))) : (void)0), ...);
  if (!converted.ok()) return converted;
  Operation(ctx, std::get<I>(values)...);
  return Status::Ok();
}

template <auto Operation, typename Signature>
struct Binder;

template <auto Operation, typename... Params>
struct Binder<Operation, void (*)(RequestContext&, Params...)> {
  template <typename... Args>
  static Binding Make(Args... args) {
    static_assert(sizeof...(Args) == sizeof...(Params), "the row must give every parameter of the operation");
    static_assert((kFits<Params, Args> && ...), "an argument does not fit its parameter (Int16 for short)");
    return Binding{{static_cast<const ArgSource&>(args)...},
                   [](RequestContext& ctx, std::span<const ArgSource> row_args) {
                     return Invoke<Operation, Params...>(ctx, row_args, std::index_sequence_for<Params...>{});
                   }};
  }
};

}  // namespace request_table_internal

// Binds `Operation` (void(RequestContext&, ...)) to the row's arguments.
template <auto Operation, typename... Args>
Binding Call(Args... args) {
  return request_table_internal::Binder<Operation, decltype(Operation)>::Make(args...);
}

struct RequestRoute {
  std::string_view code;
  std::string_view operation;  // the operation's name
  bool changes_data = false;   // a write: the session check comes first
  Binding call;
  bool answer_is_secret = false;  // the answer holds a password: never log it

  // The fields the row reads, in argument order, each once.
  std::vector<std::string_view> Fields() const;
  // The same fields with their kinds (what the validation step checks),
  // filled from the arguments when the table is built.
  std::vector<FieldRule> field_rules = {};
};

const std::vector<RequestRoute>& RequestTable();

// The field rules of every changing request, in table order.
std::vector<RequestRules> AllFieldRules();

// The first row whose code equals `code` without regard to case, or null.
const RequestRoute* FindRoute(std::string_view code);

}  // namespace orvane
