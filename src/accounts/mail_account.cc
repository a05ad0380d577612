#include "accounts/mail_account.h"

#include "accounts/exe_proxy.h"
#include "accounts/mail_config.h"
#include "accounts/tool_runner.h"
#include "base/text.h"

namespace orvane::accounts {
namespace {

// The two tables differ on purpose: through the proxy, delete and change
// carry no "-u"; locally they do. Create is the same in both.
std::string AccountCommand(bool local, std::string_view mode, const std::string& id, const std::string& password) {
  if (mode == "1") return AccountDeleteCommand(local, id);
  if (mode == "2") return (local ? "adduser.exe -m -u " : "adduser.exe -m ") + id + " -p " + password;
  if (mode == "3") return "adduser.exe -u " + id + " -p " + password;
  return {};
}

}  // namespace

std::string AccountDeleteCommand(bool local, std::string_view userID) {
  return (local ? "adduser.exe -kill -u " : "adduser.exe -kill ") + std::string(userID);
}

Status funAdmMailMember(const RequestContext& ctx, std::string_view mode, std::string_view toolFolder,
                        const UserForm& user, std::string& output) {
  bool local = ToolsRunLocally(ctx.config());
  std::string command = AccountCommand(local, mode, user.user_cd, user.user_ps);
  if (!local) {
    if (command.empty()) return Status::Failure("Invalid Case").Prefixed("funAdmMailMember");
    return funExeProxyCommand(ctx, std::string(toolFolder) + command, "user");
  }
  // An unknown mode runs nothing; this channel has no text for it.
  if (command.empty()) return Status::Untold();
  ToolRunner runner(ExeProxyTimeout(ctx.config()));
  output = runner.Run(std::string(toolFolder) + command);
  if (text::StartsWithIgnoreCase(output, "OK:") && runner.Result() == 0) return Status::Ok();
  return Status::Failure(output);
}

}  // namespace orvane::accounts
