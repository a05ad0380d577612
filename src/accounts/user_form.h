// The user screen's fields as the request table reads them for 204 to 206,
// and what the storage and mail routines take from them by name.
#pragma once

#include <string>

namespace orvane::accounts {

// User_cd, User_KJ, User_KN, User_PS, Mail_AD (the alias), Mail_FL ("1":
// the alias is in use), Ext_TEL, Post_NM, Disp_NM, Mail_UFL ("1": the user
// has a mail account), Mail_NM; a delete (206) reads no Mail_NM.
// Every member starts empty, so a caller names only the ones it gives.
struct UserForm {
  std::string user_cd{}, user_kj{}, user_kn{}, user_ps{}, mail_ad{}, mail_fl{}, ext_tel{}, post_nm{}, disp_nm{},
      mail_ufl{}, mail_nm{};
};

// The mail values before the change, which the mail server is to forget:
// the page's OldMail_UFL, OldAlias and OldAlias_FL on add and change, the
// stored user's on delete.
struct MailBefore {
  std::string mail_ufl{}, alias{}, alias_fl{};
};

}  // namespace orvane::accounts
