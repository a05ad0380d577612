#include "accounts/mail_alias.h"

#include <utility>
#include <vector>

#include "accounts/exe_proxy.h"
#include "accounts/mail_account.h"
#include "accounts/mail_config.h"
#include "accounts/tool_runner.h"
#include "base/text.h"

namespace orvane::accounts {
namespace {

struct AliasCommands {
  std::string del, add, undo;  // empty: not prepared
};

// The commands of `mode` for the alias before and after.
AliasCommands PrepareCommands(bool local, std::string_view mode, std::string_view toolFolder, const UserForm& user,
                              const MailBefore& before, std::string_view server) {
  const bool in_use = text::Trim(user.mail_fl) == "1", was_in_use = text::Trim(before.alias_fl) == "1";
  const std::string folder(toolFolder);
  const std::string del = folder + "addalias.exe -d " + before.alias;
  const std::string add = folder + "addalias.exe -a " + user.mail_ad + "=" + user.user_cd + "@" + std::string(server);
  AliasCommands c;
  if (mode == "1") {
    if (was_in_use) c.del = del;
  } else if (mode == "3") {
    if (in_use) {
      c.add = add;
      c.undo = folder + AccountDeleteCommand(local, user.user_cd);
    }
  } else if (mode == "2") {
    if (in_use && !was_in_use) {
      c.add = add;
    } else if (!in_use && was_in_use) {
      c.del = del;
    } else if (in_use && was_in_use && user.mail_ad != before.alias) {
      c.del = del;
      c.add = add;
    }
  }
  return c;
}

// One alias command; a refusal's trail is the reply or the error text.
Status Run(const RequestContext& ctx, bool local, const std::string& command, std::string_view expectedWord) {
  if (!local) return funExeProxyCommand(ctx, command, expectedWord);
  ToolRunner runner(ExeProxyTimeout(ctx.config()));
  std::string reply = runner.Run(command);
  if (ReplyAccepted(reply, expectedWord) && runner.Result() == 0) return Status::Ok();
  return Status::Failure(reply);
}

std::string Collision(std::string_view second_line) {
  std::string nl(text::kCrLf);
  return "funAdmMailAlias1" + nl + nl + "入力された【エイリアス】は" + nl + std::string(second_line) + nl +
         "違う【エイリアス】を設定してください。";
}

// Success when no other user holds `alias`.
Status CheckAlias(RequestContext& ctx, data::Connection& conn, std::string_view userID, std::string_view alias) {
  data::Sql sql;
  sql << "select USER_ID ,NAME_KJ ,NAME_KN ,MAIL ,IMAIL_FLG from " << data::Table(ctx.USR_MST)
      << " where (USER_ID=" << data::Quoted(alias) << ") or (MAIL =" << data::Quoted(alias) << " And IMAIL_FLG = '1')";
  std::string collision;
  auto check = [&](const std::vector<std::string>& row) {
    if (row[0] != userID && collision.empty())
      collision = alias == row[0] ? Collision("すでに別のユーザーが「ユーザーID」として使用しています。")
                                  : Collision("すでに別のユーザーが「同じエイリアス」で使用しています。");
    return true;
  };
  if (Status s = data::SelectRows(conn, sql, {"USER_ID", "NAME_KJ", "NAME_KN", "MAIL", "IMAIL_FLG"}, check); !s.ok())
    return std::move(s).From("Com052_funAdmMailAlias1");
  if (!collision.empty()) return Status::Failure(collision);
  return Status::Ok();
}

}  // namespace

Status funAdmMailAlias1(RequestContext& ctx, data::Connection& conn, std::string_view mode, std::string_view toolFolder,
                        const UserForm& user, const MailBefore& before) {
  std::string server;
  if (!ReadRequiredKey(ctx, "ML_SERVER", "ERROR:READINFOFILE_SV_FOLDER", server)) return Status::Answered();
  if (text::Trim(user.mail_fl) == "1") {
    if (Status s = CheckAlias(ctx, conn, user.user_cd, user.mail_ad); !s.ok()) return s;
  }

  bool local = ToolsRunLocally(ctx.config());
  AliasCommands c = PrepareCommands(local, mode, toolFolder, user, before, server);
  if (!c.del.empty()) {
    if (Status s = Run(ctx, local, c.del, "deleted"); !s.ok()) return s;
  }
  if (c.add.empty()) return Status::Ok();
  Status added = Run(ctx, local, c.add, "added");
  // The account made for a new user goes again when its alias is taken on
  // the mail server; the undo's own reply is not judged: the refusal of the
  // alias is what the caller reports.
  if (!added.ok() && !c.undo.empty() && text::ContainsIgnoreCase(added.trail(), "alias exists"))
    Run(ctx, local, c.undo, "user").IgnoreError();
  return added;
}

}  // namespace orvane::accounts
