// Request "107": the mailing lists a section may still choose, for the
// list box of the group screen.
#pragma once

#include <string_view>

#include "dispatch/request_context.h"

namespace orvane::accounts {

// Writes the free lists (folders of the list root not yet given to any
// section) in folder order, joined with ",". Names beginning "#" are left
// out and a name is cut at its first blank (extra words in a proxy reply).
// `M_List`, the section's current list, stays among the names when its
// folder exists, so the page can show the current choice. Database failures
// answer "ERROR:DBOPEN", "ERROR:DBSELECT", "ERROR:RSCLOSE", "ERROR:DBCLOSE".
void Create_IMailList_Combo(RequestContext& ctx, std::string_view M_List);

}  // namespace orvane::accounts
