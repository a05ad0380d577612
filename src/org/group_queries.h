// The group queries behind the group tree and the group form of the pages
// (request codes 101, 103, 105). Each opens its own connection, writes its
// whole answer to the context and returns nothing.
//
// The statement builders are public so that tests and bench/ run exactly
// the statements the operations send.
#pragma once

#include <string>

#include "data/sql.h"
#include "dispatch/request_context.h"

namespace orvane::org {

// The whole tree as "SEC_CD,JOI_SEC,SEC_NM" triples: the first top section,
// then every other section, parents before children.
void GetAllGroupList(RequestContext& ctx);
// One section: SEC_CD,SEC_NM,DSP_NM,BUSHO_CD,SEC_SEQ,IMAIL_LIST,UPD_YMD,UPD_HMS.
void GetGroupProperty(RequestContext& ctx, const std::string& sec_cd);
// The children of `joi_sec` as triples.
void GetSpecificGroup(RequestContext& ctx, const std::string& joi_sec, const std::string& sort_key,
                      const std::string& desc);

data::Sql TopGroupSql(const RequestContext& ctx);
data::Sql OtherGroupsSql(const RequestContext& ctx);
data::Sql GroupPropertySql(const RequestContext& ctx, const std::string& sec_cd);
data::Sql SpecificGroupSql(const RequestContext& ctx, const std::string& joi_sec, const std::string& sort_key,
                           const std::string& desc);

}  // namespace orvane::org
