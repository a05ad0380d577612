#include "accounts/mail_alias.h"

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

AliasCommands PrepareCommands(bool local, std::string_view mode, std::string_view toolFolder, std::string_view userID,
                              std::string_view alias, bool in_use, std::string_view oldAlias, bool was_in_use,
                              std::string_view server) {
  std::string folder(toolFolder);
  std::string del = folder + "addalias.exe -d " + std::string(oldAlias);
  std::string add =
      folder + "addalias.exe -a " + std::string(alias) + "=" + std::string(userID) + "@" + std::string(server);
  AliasCommands c;
  if (mode == "1") {
    if (was_in_use) c.del = del;
  } else if (mode == "3") {
    if (in_use) {
      c.add = add;
      c.undo = folder + AccountDeleteCommand(local, userID);
    }
  } else if (mode == "2") {
    if (in_use && !was_in_use) {
      c.add = add;
    } else if (!in_use && was_in_use) {
      c.del = del;
    } else if (in_use && was_in_use && alias != oldAlias) {
      c.del = del;
      c.add = add;
    }
  }
  return c;
}

// One alias command; `reply` receives the reply or the error text.
short Run(const RequestContext& ctx, bool local, const std::string& command, std::string_view expectedWord,
          std::string& reply) {
  if (!local) return funExeProxyCommand(ctx, command, expectedWord, reply);
  ToolRunner runner(ExeProxyTimeout(ctx.config()));
  reply = runner.Execute2(command, 1);
  return ReplyAccepted(reply, expectedWord) && runner.Result() == 0 ? 0 : -1;
}

std::string Collision(std::string_view second_line) {
  std::string nl(text::kCrLf);
  return "funAdmMailAlias1" + nl + nl + "入力された【エイリアス】は" + nl + std::string(second_line) + nl +
         "違う【エイリアス】を設定してください。";
}

// 0 when no other user holds `alias`; -1 with `errorText` otherwise.
short CheckAlias(RequestContext& ctx, data::Connection& conn, std::string_view userID, std::string_view alias,
                 std::string& errorText) {
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
  if (Status s = data::SelectRows(conn, sql, {"USER_ID", "NAME_KJ", "NAME_KN", "MAIL", "IMAIL_FLG"}, check); !s.ok()) {
    errorText = "Com052_funAdmMailAlias1" + std::string(text::kCrLf) + s.trail();
    return -1;
  }
  if (!collision.empty()) {
    errorText = collision;
    return -1;
  }
  return 0;
}

}  // namespace

short funAdmMailAlias1(RequestContext& ctx, data::Connection& conn, std::string_view mode, std::string_view toolFolder,
                       std::string_view userID, std::string_view alias, std::string_view aliasFlag,
                       std::string_view oldAlias, std::string_view oldAliasFlag, std::string& errorText) {
  short status = -1;
  std::string server;
  if (!ReadRequiredKey(ctx, "ML_SERVER", "ERROR:READINFOFILE_SV_FOLDER", server)) return status;
  bool in_use = text::Trim(aliasFlag) == "1";
  if (in_use && CheckAlias(ctx, conn, userID, alias, errorText) != 0) return status;

  bool local = ToolsRunLocally(ctx.config());
  AliasCommands c = PrepareCommands(local, mode, toolFolder, userID, alias, in_use, oldAlias,
                                    text::Trim(oldAliasFlag) == "1", server);
  if (!c.del.empty() && Run(ctx, local, c.del, "deleted", errorText) != 0) return status;
  if (c.add.empty()) {
    status = 0;
    return status;
  }
  if (Run(ctx, local, c.add, "added", errorText) == 0) {
    status = 0;
    return status;
  }
  // The account made for a new user goes again when its alias is taken on
  // the mail server; the undo's own reply is not judged.
  if (!c.undo.empty() && text::ContainsIgnoreCase(errorText, "alias exists")) {
    std::string ignored;
    Run(ctx, local, c.undo, "user", ignored);
  }
  return status;
}

}  // namespace orvane::accounts
