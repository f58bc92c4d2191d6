// The ERP tables and columns that mrpcalc reads or writes, and the tables it
// owns. mrpcalc works on any database holding the ERP's own columns, whatever
// their declared types and with extra columns allowed; `mrpcalc init` creates
// them, with a few columns and keys of its own, for a database that has
// nothing yet.
#pragma once

#include <string>
#include <vector>

#include "db/connection.h"

namespace mrpcalc::schema {

struct TableDef {
  std::string name;
  std::vector<db::ColumnDef> columns;
  std::vector<std::string> primary_key;
  // Secondary indexes, each a list of columns, as the ERP keeps them for
  // the lookups mrpcalc makes.
  std::vector<std::vector<std::string>> indexes = {};
  // Columns that `init` adds for its own databases (line numbers, names the
  // demo data carries). The ERP's table may lack them: nothing reads them.
  std::vector<std::string> init_only = {};
};

// How much of the schema to create.
enum class SchemaForm {
  // What `init` makes: the ERP tables with keys, indexes and the init-only
  // columns, and mrpcalc's own tables.
  kInit,
  // The ERP's tables as the ERP database has them: exactly the ERP's
  // columns, no keys, no indexes, "FBrNo" a number, none of mrpcalc's own
  // tables. What a buyer's database looks like before mrpcalc first runs.
  kErpColumnsOnly,
};

// Every ERP table the component touches, in creation order.
const std::vector<TableDef>& ErpTables();
// Tables that mrpcalc itself owns: numbering, locks, tokens.
const std::vector<TableDef>& OwnTables();

// Creates every ERP table and owned table in one transaction. Throws when a
// table already exists, unless `replace` drops it first.
void CreateErpSchema(db::Connection& connection, bool replace,
                     SchemaForm form = SchemaForm::kInit);
// When UpgradeOwnTables creates what is missing.
enum class Upgrade {
  kAlways,          // `init`, `upgrade`, the service's start, token commands
  kWithErpTables,   // only a database that holds the ERP's tables
};
// Brings mrpcalc's own tables up to date on a database made before them:
// creates those missing in a unit of work of its own, so never inside a
// caller's (the connection must not be in a transaction). Safe to run from
// several processes at once. Returns the names of the tables it created.
std::vector<std::string> UpgradeOwnTables(db::Connection& connection,
                                          Upgrade when = Upgrade::kAlways);

}  // namespace mrpcalc::schema
