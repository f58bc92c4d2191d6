// Constructors of the two engine backends; private to the database layer.
#pragma once

#include <string>
#include <string_view>

#include "db/connection.h"

namespace mrpcalc::db {

ConnectionPtr OpenSqlite(const std::string& path, const OpenOptions& options);
ConnectionPtr OpenOdbc(const std::string& connection_string, const OpenOptions& options);

// The spelling a statement gives a result label, for engines that fold
// unquoted names to lower case: the first identifier of the statement text
// equal to the label but for case. A label the text does not spell (the
// columns of "select *") comes back as the engine gives it.
std::string LabelAsSpelled(std::string_view sql, const std::string& label);

}  // namespace mrpcalc::db
