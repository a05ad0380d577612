#include "requests/request_table.h"

#include "accounts/mail_list_combo.h"
#include "accounts/user_registration.h"
#include "base/text.h"
#include "dispatch/optional_fields.h"
#include "dispatch/server_information.h"
#include "members/member_order.h"
#include "members/member_queries.h"
#include "members/membership.h"
#include "members/menu_rights.h"
#include "members/user_queries.h"
#include "org/group_move.h"
#include "org/group_order.h"
#include "org/group_queries.h"
#include "org/group_registration.h"

namespace orvane {
namespace {

using K = FieldKind;

std::vector<RequestRoute> MakeTable() {
  // 201 to 203: a delete names the group and stores nothing; 202 does not
  // read BUSHO_CD (a change passes it empty).
  auto group = [](std::string_view mode) {
    const bool remove = mode == "1";
    auto kept = [remove](FieldKind kind) { return remove ? Names(kind) : Stores(kind); };
    auto form = [&](auto busho_cd) {
      return Form<org::GroupForm>(Text("Group_cd", Names(K::kCode)), Text("Group_nm", kept(K::kName)),
                                  Text("Disp_NM", kept(K::kName)), busho_cd, Text("M_LIST", kept(K::kCode)));
    };
    if (mode == "2") return Call<org::RegistGroup>(Fixed(mode), form(Fixed("")));
    return Call<org::RegistGroup>(Fixed(mode), form(Text("BUSHO_CD", kept(K::kCode))));
  };
  // 204 to 206: the user form, then the page's old mail values; 206 reads
  // neither the mail name nor those: a delete takes the old values from the
  // stored user. The old values steer the mail server and are not stored;
  // only an add creates the id (and needs a password); a delete stores
  // nothing.
  auto user = [](std::string_view flag) {
    const bool add = flag == "3", remove = flag == "1";
    auto kept = [remove](FieldKind kind) { return remove ? Names(kind) : Stores(kind); };
    auto form = [&](auto mail_nm) {
      return Form<accounts::UserForm>(
          Text("User_cd", add ? Creates(K::kId) : Names(K::kId)), Text("User_KJ", kept(K::kName)),
          Text("User_KN", kept(K::kReading)), Text("User_PS", add ? Creates(K::kPassword) : kept(K::kPassword)),
          Text("Mail_AD", kept(K::kMail)), Text("Mail_FL", kept(K::kFlag)), Text("Ext_TEL", kept(K::kPhone)),
          Text("Post_NM", kept(K::kName)), Text("Disp_NM", kept(K::kName)), Text("Mail_UFL", kept(K::kFlag)), mail_nm);
    };
    if (remove)
      return Call<accounts::RegistUser1>(Fixed(flag), form(Fixed("")),
                                         Form<accounts::MailBefore>(Fixed(""), Fixed(""), Fixed("")));
    return Call<accounts::RegistUser1>(
        Fixed(flag), form(Text("Mail_NM", Stores(K::kName))),
        Form<accounts::MailBefore>(Text("OldMail_UFL", Names(K::kFlag)), Text("OldAlias", Names(K::kMail)),
                                   Text("OldAlias_FL", Names(K::kFlag))));
  };
  // 207 to 209: an add or a removal names an existing user and section and
  // reads nothing else of the form; the page's load moment is compared, not
  // stored. An impossible date of 208 keeps the request's own answer.
  auto member = [](std::string_view flag) {
    auto loaded = Form<members::MembersLoaded>(Text("Upd_Ymd", Names(K::kDate)), Text("Upd_Hms", Names(K::kFreeText)));
    auto form = [](auto sec_kbn, auto post_cd, auto st_ymd, auto ed_ymd) {
      return Form<members::MemberForm>(Text("Group_cd", Names(K::kCode)), Text("User_cd", Names(K::kId)), sec_kbn,
                                       post_cd, st_ymd, ed_ymd);
    };
    if (flag != "2")
      return Call<members::RegistMember>(Fixed(flag), form(Fixed("0"), Fixed(""), Fixed(""), Fixed("")), loaded);
    return Call<members::RegistMember>(Fixed(flag),
                                       form(Text("Primary", Stores(K::kFlag)), Text("Post_cd", Stores(K::kCode)),
                                            Text("ST_Ymd", Stores(K::kDate, "ERROR:RECUPDATE")),
                                            Text("ED_Ymd", Stores(K::kEndDate, "ERROR:RECUPDATE"))),
                                       loaded);
  };
  return {
      {.code = "001", .operation = "GetServerInformation", .call = Call<GetServerInformation>()},
      {.code = "002", .operation = "GetAllCount", .call = Call<members::GetAllCount>(Text("S_Kbn"), Text("S_OPT"))},
      {.code = "101", .operation = "GetAllGroupList", .call = Call<org::GetAllGroupList>()},
      {.code = "102",
       .operation = "GetAllUserList",
       .call =
           Call<members::GetAllUserList>(Text("S_Col"), Text("S_Type"), Text("S_OPT"), Int16("S_pos"), Int16("B_pos"))},
      {.code = "103",
       .operation = "GetSpecificGroup",
       .call = Call<org::GetSpecificGroup>(Text("Group_cd"), Text("S_Col"), Text("S_Type"))},
      {.code = "104",
       .operation = "GetSpecificMember",
       .call = Call<members::GetSpecificMember>(Text("Group_cd"), Text("S_Col"), Text("S_Type"), Text("S_OPT"))},
      {.code = "105", .operation = "GetGroupProperty", .call = Call<org::GetGroupProperty>(Text("Group_cd"))},
      {.code = "106",
       .operation = "GetUserProperty",
       .call = Call<members::GetUserProperty>(Text("User_cd")),
       .answer_is_secret = true},
      {.code = "107",
       .operation = "Create_IMailList_Combo",
       .call = Call<accounts::Create_IMailList_Combo>(Text("M_List"))},
      {.code = "108", .operation = "GetUsersGroup", .call = Call<members::GetUsersGroup>(Text("User_cd"))},
      {.code = "109", .operation = "GetPostMaster", .call = Call<members::GetPostMaster>()},
      {.code = "110", .operation = "GetMenuProperty", .call = Call<members::GetMenuProperty>(Text("User_cd"))},
      {.code = "201", .operation = "RegistGroup", .changes_data = true, .call = group("3")},
      {.code = "202", .operation = "RegistGroup", .changes_data = true, .call = group("2")},
      {.code = "203", .operation = "RegistGroup", .changes_data = true, .call = group("1")},
      {.code = "204", .operation = "RegistUser1", .changes_data = true, .call = user("3")},
      {.code = "205", .operation = "RegistUser1", .changes_data = true, .call = user("2")},
      {.code = "206", .operation = "RegistUser1", .changes_data = true, .call = user("1")},
      {.code = "207", .operation = "RegistMember", .changes_data = true, .call = member("3")},
      {.code = "208", .operation = "RegistMember", .changes_data = true, .call = member("2")},
      {.code = "209", .operation = "RegistMember", .changes_data = true, .call = member("1")},
      {.code = "210",
       .operation = "ChangeGroupDisp",
       .changes_data = true,
       .call = Call<org::ChangeGroupDisp>(Text("Group_cd1", Names(K::kCode)), Text("Group_cd2", Names(K::kCode)),
                                          Text("Group_cd3", Names(K::kCode)))},
      {.code = "211",
       .operation = "ChangeUserDisp",
       .changes_data = true,
       .call = Call<members::ChangeUserDisp>(Text("User_cd", Names(K::kId)), Text("User_cd2", Names(K::kId)),
                                             Text("Group_cd", Names(K::kCode)))},
      {.code = "212",
       .operation = "ChangeGroupTree",
       .changes_data = true,
       .call = Call<org::ChangeGroupTree>(Text("Group_cd1", Names(K::kCode)), Text("Group_cd2", Names(K::kCode)))},
      {.code = "213",
       .operation = "ChangeUserMenu",
       .changes_data = true,
       // The rights text only selects which columns are granted.
       .call = Call<members::ChangeUserMenu>(Fixed("2"), Text("User_cd", Names(K::kId)),
                                             Text("User_Menu", Names(K::kFreeText)))},
  };
}

// Optional fields of newer pages, after the row's own: the operation reads
// them itself (dispatch/optional_fields.h), so a request without them runs
// exactly as before.
struct OptionalField {
  std::string_view code;
  std::string_view field;
  FieldUse use;
  std::string_view when = {};  // checked only when this field is "1"
};
constexpr OptionalField kOptionalFields[] = {
    {"202", kBushoSet, Names(K::kFlag)},
    {"202", "BUSHO_CD", Stores(K::kCode), kBushoSet},
    {"202", kUpdStamp, Names(K::kFreeText)},
    {"205", kUpdStamp, Names(K::kFreeText)},
};

}  // namespace

std::string TextOf(const ArgSource& arg, const NamedValues& fields) {
  return arg.kind == ArgSource::Kind::kFixed ? std::string(arg.text) : fields.Get(arg.text);
}

Status ConvertArgument(const ArgSource& arg, const NamedValues& fields, std::string& out) {
  out = TextOf(arg, fields);
  return Status::Ok();
}

Status ConvertArgument(const ArgSource& arg, const NamedValues& fields, short& out) {
  if (text::ParseInt16(fields.Get(arg.text), out)) return Status::Ok();
  return Status::Failure("ERROR:TYPEMISMATCH " + std::string(arg.text) + " is not a 16-bit integer");
}

std::vector<std::string_view> RequestRoute::Fields() const {
  std::vector<std::string_view> out;
  for (const ArgSource& a : call.args) {
    if (a.kind == ArgSource::Kind::kFixed) continue;
    bool seen = false;
    for (std::string_view f : out) seen = seen || f == a.text;
    if (!seen) out.push_back(a.text);
  }
  return out;
}

const std::vector<RequestRoute>& RequestTable() {
  static const std::vector<RequestRoute> table = [] {
    std::vector<RequestRoute> rows = MakeTable();
    for (RequestRoute& row : rows) {
      for (std::string_view field : row.Fields()) {
        for (const ArgSource& a : row.call.args) {
          if (a.kind == ArgSource::Kind::kFixed || a.text != field) continue;
          row.field_rules.push_back({a.text, a.use.kind, a.use.stored, a.use.required, a.use.own_answer, {}});
          break;
        }
      }
      for (const OptionalField& o : kOptionalFields)
        if (o.code == row.code)
          row.field_rules.push_back({o.field, o.use.kind, o.use.stored, o.use.required, o.use.own_answer, o.when});
    }
    return rows;
  }();
  return table;
}

std::vector<RequestRules> AllFieldRules() {
  std::vector<RequestRules> out;
  for (const RequestRoute& row : RequestTable())
    if (row.changes_data) out.push_back({row.code, row.operation, row.field_rules});
  return out;
}

const RequestRoute* FindRoute(std::string_view code) {
  for (const RequestRoute& route : RequestTable())
    if (text::EqualsIgnoreCase(route.code, code)) return &route;
  return nullptr;
}

}  // namespace orvane
