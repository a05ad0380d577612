#include "server/access.h"

#include "members/login.h"

namespace orvane {
namespace {

bool IsAdministrator(const Session& session) {
  return !session.Get("PUB_USR_ID").empty() && session.Get(members::kAdminRight) == "1";
}

}  // namespace

bool MayCall(const AccessRule& rule, const Session& session, const RequestRoute* route) {
  if (IsAdministrator(session)) return true;
  return rule.anonymous_reads && !(route && route->changes_data);
}

bool MayReadTree(const AccessRule& rule, const Session* session) {
  return rule.anonymous_reads || (session && IsAdministrator(*session));
}

}  // namespace orvane
