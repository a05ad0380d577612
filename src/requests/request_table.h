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
// An operation that takes several fields as one form gets them as one
// argument: Form<org::GroupForm>(Text("Group_cd"), Text("Group_nm"), ...).
//
// Call<> checks at compile time that the arguments match the function's
// parameters in number and kind: a Text or Fixed argument for a text
// parameter, an Int16 argument for a `short`, a Form giving every member
// for a form.
#pragma once

#include <array>
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

// Several fields that the operation takes as one form: a struct of texts,
// one member per argument in the struct's order.
template <typename FormType, std::size_t N>
struct FormArg {
  std::array<ArgSource, N> fields;
};
template <typename FormType, typename... Fields>
constexpr FormArg<FormType, sizeof...(Fields)> Form(Fields... fields) {
  static_assert(((std::is_same_v<Fields, TextArg> || std::is_same_v<Fields, FixedArg>)&&...),
                "a form's members are texts: Text or Fixed");
  return {{static_cast<const ArgSource&>(fields)...}};
}

// Converts one argument. A 16-bit field that holds anything else than a
// whole number in range fails with "ERROR:TYPEMISMATCH ..." as its trail.
Status ConvertArgument(const ArgSource& arg, const NamedValues& fields, std::string& out);
Status ConvertArgument(const ArgSource& arg, const NamedValues& fields, short& out);
// The text a Text or Fixed argument gives.
std::string TextOf(const ArgSource& arg, const NamedValues& fields);

// Runs the operation with its arguments converted; fails as ConvertArgument
// when one cannot be converted (the operation is then not called).
using Invoker = Status (*)(RequestContext& ctx, std::span<const ArgSource> args);

struct Binding {
  std::vector<ArgSource> args;  // a form's members one by one
  Invoker invoke = nullptr;
};

namespace request_table_internal {

// A form parameter: a struct (an aggregate) of texts.
template <typename Param>
constexpr bool kIsForm = std::is_aggregate_v<std::decay_t<Param>> && !std::is_array_v<std::decay_t<Param>>;

template <typename FormType, std::size_t... I>
constexpr bool TakesTexts(std::index_sequence<I...>) {
  return requires { FormType{((void)I, std::string())...}; };
}
// The number of members: as many texts as initialise it, one more does not.
template <typename FormType, std::size_t N = 0>
constexpr std::size_t MemberCount() {
  if constexpr (!TakesTexts<FormType>(std::make_index_sequence<N + 1>())) {
    return N;
  } else {
    return MemberCount<FormType, N + 1>();
  }
}

template <typename Param, typename Arg>
constexpr bool kFits = std::is_same_v<std::decay_t<Param>, short>
                           ? std::is_same_v<Arg, Int16Arg>
                           : std::is_constructible_v<Param, const std::string&> &&
                                 (std::is_same_v<Arg, TextArg> || std::is_same_v<Arg, FixedArg>);
// A form argument fits its form parameter when it gives every member.
template <typename Param, typename FormType, std::size_t N>
constexpr bool kFits<Param, FormArg<FormType, N>> =
    std::is_same_v<std::decay_t<Param>, FormType>&& MemberCount<FormType>() == N;

template <typename Param>
using Stored = std::conditional_t<std::is_same_v<std::decay_t<Param>, short>, short,
                                  std::conditional_t<kIsForm<Param>, std::decay_t<Param>, std::string>>;

// How many of the row's arguments a parameter takes.
template <typename Param>
constexpr std::size_t Width() {
  if constexpr (kIsForm<Param>) {
    return MemberCount<std::decay_t<Param>>();
  } else {
    return 1;
  }
}
template <typename... Params>
constexpr std::array<std::size_t, sizeof...(Params)> Offsets() {
  std::array<std::size_t, sizeof...(Params)> offsets{};
  const std::size_t widths[] = {Width<Params>()..., 0};
  for (std::size_t i = 1; i < offsets.size(); ++i) offsets[i] = offsets[i - 1] + widths[i - 1];
  return offsets;
}

template <typename FormType, std::size_t... I>
FormType MakeForm(std::span<const ArgSource> args, const NamedValues& fields, std::index_sequence<I...>) {
  return FormType{TextOf(args[I], fields)...};
}

template <typename Value>
Status Convert(std::span<const ArgSource> args, const NamedValues& fields, Value& out) {
  if constexpr (kIsForm<Value>) {
    out = MakeForm<Value>(args, fields, std::make_index_sequence<MemberCount<Value>()>());
    return Status::Ok();
  } else {
    return ConvertArgument(args[0], fields, out);
  }
}

template <auto Operation, typename... Params, std::size_t... I>
Status Invoke(RequestContext& ctx, [[maybe_unused]] std::span<const ArgSource> args, std::index_sequence<I...>) {
  [[maybe_unused]] constexpr auto offsets = Offsets<Params...>();
  std::tuple<Stored<Params>...> values;
  Status converted;
  // Left to right, stopping at the first that fails.
  ((converted.ok()
        ? (void)(converted = Convert(args.subspan(offsets[I], Width<Params>()), ctx.fields, std::get<I>(values)))
        : (void)0),
   ...);
  if (!converted.ok()) return converted;
  Operation(ctx, std::get<I>(values)...);
  return Status::Ok();
}

inline void Append(std::vector<ArgSource>& out, const ArgSource& arg) { out.push_back(arg); }
template <typename FormType, std::size_t N>
void Append(std::vector<ArgSource>& out, const FormArg<FormType, N>& form) {
  out.insert(out.end(), form.fields.begin(), form.fields.end());
}

template <auto Operation, typename Signature>
struct Binder;

template <auto Operation, typename... Params>
struct Binder<Operation, void (*)(RequestContext&, Params...)> {
  template <typename... Args>
  static Binding Make(Args... args) {
    static_assert(sizeof...(Args) == sizeof...(Params), "the row must give every parameter of the operation");
    static_assert((kFits<Params, Args> && ...),
                  "an argument does not fit its parameter (Int16 for short, a Form with every member for a form)");
    Binding binding;
    (Append(binding.args, args), ...);
    binding.invoke = [](RequestContext& ctx, std::span<const ArgSource> row_args) {
      return Invoke<Operation, Params...>(ctx, row_args, std::index_sequence_for<Params...>{});
    };
    return binding;
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
