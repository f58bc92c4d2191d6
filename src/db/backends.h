// Constructors of the two engine backends; private to the database layer.
#pragma once

#include <string>

#include "db/connection.h"

namespace mrpcalc::db {

ConnectionPtr OpenSqlite(const std::string& path, const OpenOptions& options);
ConnectionPtr OpenOdbc(const std::string& connection_string, const OpenOptions& options);

// Maps a result label to the spelling the ERP schema uses, for engines that
// fold unquoted names to lower case. Unknown labels come back unchanged.
std::string CanonicalLabel(const std::string& label);

}  // namespace mrpcalc::db
