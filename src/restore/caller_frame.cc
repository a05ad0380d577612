#include "restore/caller_frame.h"

namespace orvane::restore {
namespace {

RequestContext& Named(RequestContext& ctx, std::string code,
                      std::initializer_list<std::pair<const char*, std::string>> fields) {
  ctx.history.code = std::move(code);
  ctx.fields = NamedValues();
  for (const auto& [name, value] : fields) ctx.fields.Add(name, value);
  return ctx;
}

}  // namespace

CallerFrame::CallerFrame(RequestContext& ctx, WriteRules rules, std::string code,
                         std::initializer_list<std::pair<const char*, std::string>> fields)
    : WriteFrame(Named(ctx, std::move(code), fields), rules), ctx_(ctx) {}

Outcome CallerFrame::Result() const { return OutcomeOf(ctx_.response(), HistoryEntryId()); }

Outcome CallerFrame::Refuse(const std::string& answer) {
  Fail(answer);
  return Result();
}

}  // namespace orvane::restore
