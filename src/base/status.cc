#include "base/status.h"

#include "base/text.h"

namespace orvane {

Status Status::Prefixed(std::string_view routine) && {
  if (!ok()) trail_ = std::string(routine) + std::string(text::kCrLf) + trail_;
  return std::move(*this);
}

Status Status::Suffixed(std::string_view routine) && {
  if (!ok()) trail_ += std::string(routine) + std::string(text::kCrLf);
  return std::move(*this);
}

Status Status::From(std::string_view routine) && {
  if (ok()) return std::move(*this);
  code_ = kFailed;
  return std::move(*this).Prefixed(routine);
}

}  // namespace orvane
