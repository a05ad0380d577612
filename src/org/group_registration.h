// Group registration (requests 201 add, 202 change, 203 delete):
// RegistGroup and the statements and readers it runs. One request is one
// transaction: the group, the TREE_NM of every descendant and, on delete,
// the group's rows of the groupware tables change together or not at all.
// After a commit on the live tables the drawn tree is rebuilt; after a
// commit that gave a group a new list name, the group's current members
// are added to that list.
#pragma once

#include <string>
#include <vector>

#include "base/status.h"
#include "data/db.h"
#include "dispatch/request_context.h"

namespace orvane::org {

// The group screen's fields as the request table reads them for 201 to
// 203: Group_cd (the parent on an add), Group_nm, Disp_NM, BUSHO_CD (202
// reads none), M_LIST.
struct GroupForm {
  std::string sec_cd, sec_nm, dsp_nm, busho_cd, imail_list;
};

// `mode` "3" add, "2" change, "1" delete. Writes "OK" or one "ERROR:"
// answer.
void RegistGroup(RequestContext& ctx, const std::string& mode, const GroupForm& form);

// The group record in the order the statements take it.
struct GroupRecord {
  std::string SEC_CD, SEC_NM, DSP_NM, JOI_SEC, SEC_SEQ, SEC_TREE, IMAIL_LIST, UPD_KBN, UPD_YMD, UPD_HMS, UPD_USR,
      BUSHO_CD, TREE_NM;
};

// The statements; `with_busho` is false when JNJI_MODE is "2" (the
// department code belongs to another system then).
data::Sql InsertGroupSql(const RequestContext& ctx, const GroupRecord& r, bool with_busho);
data::Sql UpdateGroupSql(const RequestContext& ctx, const GroupRecord& r, bool with_busho);

Status funInsGroup(const RequestContext& ctx, data::Connection& conn, const GroupRecord& r, bool with_busho);
Status funUpdGroup(const RequestContext& ctx, data::Connection& conn, const GroupRecord& r, bool with_busho);
// Deletes the group (marks it on the work tables), its memberships and its
// groupware rows. A group with children is left alone: `has_children` is
// "1" and the call succeeds.
Status funDelGroup(const RequestContext& ctx, data::Connection& conn, const std::string& sec_cd,
                   std::string& has_children);
// The next section code: max + 1 over every code but "ADMN" and "VIPS",
// four digits; 9999 wraps to "0000".
Status funGetRespidx(const RequestContext& ctx, data::Connection& conn, std::string& code);
// The values of a stored group that a change or delete goes by.
struct StoredGroup {
  std::string UPD_YMD, UPD_HMS, SEC_NM, JOI_SEC, IMAIL_LIST;
};
// Reads the stored row's stamps, name, parent and list name (`out` is left
// as it was when there is no such group). Its trail carries the name
// "Com_funAdmGrpTimeStamp1".
Status ReadStoredGroup(const RequestContext& ctx, data::Connection& conn, const std::string& sec_cd, StoredGroup& out);
// An empty code passes; one that is not 9 characters, or that another
// group uses, fails with the message for the administrator.
Status funCheckBUSHO_CD(const RequestContext& ctx, data::Connection& conn, const std::string& own_sec_cd,
                        const std::string& busho_cd);

}  // namespace orvane::org
