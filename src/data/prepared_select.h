// A keyed select run on every request (the administrator right) costs
// mostly the database's planning of it. On PostgreSQL it is therefore
// prepared once per pooled connection (PREPARE name AS ...) and then run
// by EXECUTE with its values bound, whatever the data source's
// UseServerSidePrepare says. SQLite plans in-process, SQL Server keeps
// plans of its own: there the statement runs as it is. Never an answer is
// kept, only the plan.
#pragma once

#include <string>

#include "data/db.h"

namespace orvane::data {

// SelectFirstValue of `sql`, kept planned under `name` (identifier
// characters only; one statement per name).
Status SelectFirstValuePrepared(Connection& conn, const std::string& name, const Sql& sql, const std::string& column,
                                std::string& value, bool* found = nullptr);

}  // namespace orvane::data
