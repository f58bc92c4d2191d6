// Engine differences, in one place. Callers never test which engine they
// talk to; they ask the dialect for the piece of SQL that differs.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace mrpcalc::db {

enum class Engine { kSqlite, kPostgres, kSqlServer };

// Abstract column types of the ERP schema and of working tables.
enum class ColumnType {
  kInt,       // 32-bit integer
  kSmallInt,  // 16-bit integer
  kBigInt,
  kDecimal,   // decimal(23,10): quantities and prices
  kMoney,     // decimal(18,4): amounts stored by the ERP
  kFloat,     // float: rates
  kVarchar,   // varchar(length)
  kText,      // long text
  kDateTime,
  kBit,
};

struct ColumnDef {
  std::string name;
  ColumnType type;
  int length = 0;            // kVarchar only
  std::string default_sql;   // a literal such as "0" or "''", empty for none
  bool not_null = false;
};

class Dialect {
 public:
  virtual ~Dialect() = default;
  virtual Engine engine() const = 0;
  virtual const char* name() const = 0;

  virtual std::string TypeName(ColumnType type, int length) const = 0;
  std::string ColumnSql(const ColumnDef& column) const;
  std::string CreateTable(std::string_view table, const std::vector<ColumnDef>& columns,
                          const std::vector<std::string>& primary_key = {}) const;

  // Session-local working tables. TempTable("Data2222") gives the name to use
  // in statements ("#Data2222" on SQL Server, "Data2222" elsewhere).
  virtual std::string TempTable(std::string_view name) const = 0;
  virtual std::string CreateTempTable(std::string_view name,
                                      const std::vector<ColumnDef>& columns) const = 0;
  virtual std::string DropTempTableIfExists(std::string_view name) const = 0;
  // A query taking the bare name as its one parameter; a row when this
  // session holds that working table.
  virtual std::string TempTableExists() const = 0;

  // "select <rest> ... limit n" in whatever form the engine takes. The select
  // list and the tail (from, where, order by) are given apart.
  virtual std::string SelectTop(int n, std::string_view select_list,
                                std::string_view tail) const = 0;
  virtual std::string Concat(const std::vector<std::string>& parts) const = 0;
  // The server's local date and time.
  virtual std::string Now() const = 0;
  // Insert that leaves an existing row with the same key alone.
  virtual std::string InsertIgnore(std::string_view table, std::string_view columns,
                                   std::string_view values,
                                   std::string_view key_columns) const = 0;
  // A batch that reserves the next interior id of a table through the ERP's
  // own stored procedure (one parameter: the table name; one row back), or
  // empty where the ERP database has no such procedure.
  virtual std::string InteriorIdProcedure() const { return {}; }
  // A text column or expression as the ERP's server compares it: without
  // regard to case. Compare it with values folded by FoldKey (letters A-Z to
  // a-z) in =, in and like, and order by it for the server's order; only the
  // ASCII letters fold, on every engine we test. The ERP's SQL Server compares
  // so by its collation and takes the expression as it is.
  virtual std::string CaseFolded(std::string_view expr) const = 0;
  // "<folded column> = ?": bind the value through FoldKey.
  std::string TextIs(std::string_view column) const { return CaseFolded(column) + " = ?"; }
  // True when the engine folds unquoted names to lower case in result labels.
  virtual bool FoldsNames() const { return false; }
  // A set of integers bound as one parameter, for "x in (<IntSet>)": the
  // parameter is a JSON array ("[3,5]") that the engine unpacks itself, so
  // one statement serves any number of ids. Empty where the engine has no
  // such function; callers then bind the ids as lists of parameters.
  virtual std::string IntSet() const { return {}; }
  // The same for texts: a JSON array of strings.
  virtual std::string TextSet() const { return {}; }
  // True when one statement over such a set is cheaper than a few over
  // lists of parameters (a server that plans every statement anew).
  virtual bool PrefersSets() const { return false; }
  // Parameters one statement may take for an id list (SQL Server takes
  // 2,100 in all).
  virtual size_t IdsPerStatement() const { return 500; }
};

std::unique_ptr<Dialect> MakeDialect(Engine engine);
// Chooses the dialect from the DBMS name an ODBC driver reports
// ("PostgreSQL", "Microsoft SQL Server", ...); throws for engines we do not speak.
Engine EngineFromDbmsName(std::string_view dbms_name);

// "?,?,?" for n parameters.
std::string Placeholders(size_t n);

}  // namespace mrpcalc::db
