#include "server/access.h"

#include "members/admin_right.h"

namespace orvane {
namespace {

AccessDecision IsAdministrator(const AccessRule& rule, const ConfigFile& config, const Session& session) {
  const std::string user = session.Get("PUB_USR_ID");
  if (user.empty()) return {};  // no login: nothing to ask
  AccessDecision decision;
  decision.failure = members::ReadAdminRight(config, user, rule.admin_column, decision.allowed);
  if (!decision.failure.ok()) decision.allowed = false;  // closed when the database cannot say
  return decision;
}

}  // namespace

AccessDecision MayCall(const AccessRule& rule, const ConfigFile& config, const Session& session,
                       const RequestRoute* route) {
  if (rule.anonymous_reads && !(route && route->changes_data)) return {.allowed = true};
  return IsAdministrator(rule, config, session);
}

AccessDecision MayReadTree(const AccessRule& rule, const ConfigFile& config, const Session* session) {
  if (rule.anonymous_reads) return {.allowed = true};
  if (!session) return {};
  return IsAdministrator(rule, config, *session);
}

std::string UserWhosePasswordChanged(std::string_view request_code, std::string_view answer, const std::string& user_id,
                                     const std::string& new_password) {
  if (request_code != "205" || answer != "OK" || new_password.empty()) return {};
  return user_id;
}

}  // namespace orvane
