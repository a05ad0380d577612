// The user and post queries behind the user list, the user form and the
// post pick-list (request codes 002, 102, 106, 109). Each opens its own
// connection and writes its whole answer to the context.
//
// The statement builders are public so that tests and bench/ run exactly
// the statements the operations send.
#pragma once

#include <string>

#include "data/sql.h"
#include "dispatch/request_context.h"

namespace orvane::members {

// Number of users, all of them or one kana row's ("U"); any other kind builds
// no statement and answers "ERROR:DBSELECT".
void GetAllCount(RequestContext& ctx, const std::string& kind, const std::string& kana_row);
// One page of the user list: rows NAME_KJ,USER_ID,POST_NM,DSP_NM,MAIL,UPD_KBN
// from the 1-based `start_pos` on, at least one row and at most `page_rows`.
void GetAllUserList(RequestContext& ctx, const std::string& sort_column, const std::string& sort_type,
                    const std::string& kana_row, short start_pos, short page_rows);
// Rows POST_CD,POST_NAME.
void GetPostMaster(RequestContext& ctx);
// Twelve values of one user; an unknown user gives eleven commas. In the
// argon2id password mode the PASSWORD value is always empty.
void GetUserProperty(RequestContext& ctx, const std::string& user_id);

// Appends the kana-row clause for `kana_row` ("0" to "9"); other codes add none.
void AppendKanaRow(data::Sql& sql, const std::string& kana_row);

data::Sql AllCountSql(const RequestContext& ctx, const std::string& kind, const std::string& kana_row);
data::Sql AllUserListSql(const RequestContext& ctx, const std::string& sort_column, const std::string& sort_type,
                         const std::string& kana_row);
// A page of the user list by key, where a sort key is given (empty
// otherwise): the page's keys skipped to through the sort key's index alone
// (for a kana row by name, the index that holds the row and the name order),
// then the page's rows read by key. Rows equal in the sort key come in
// USER_ID order. Needs a dialect with a page clause.
data::Sql KeyedUserPageSql(const RequestContext& ctx, const std::string& sort_column, const std::string& sort_type,
                           const std::string& kana_row, long offset, long limit);
data::Sql PostMasterSql(const RequestContext& ctx);
data::Sql UserPropertySql(const RequestContext& ctx, const std::string& user_id);

}  // namespace orvane::members
