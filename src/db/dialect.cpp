// The three dialects: SQLite, PostgreSQL and SQL Server.
#include "db/dialect.h"

#include "record/error.h"
#include "record/variant.h"

namespace mrpcalc::db {

std::string Dialect::ColumnSql(const ColumnDef& column) const {
  std::string sql = column.name + " " + TypeName(column.type, column.length);
  if (column.not_null) sql += " not null";
  if (!column.default_sql.empty()) sql += " default " + column.default_sql;
  return sql;
}

std::string Dialect::CreateTable(std::string_view table, const std::vector<ColumnDef>& columns,
                                 const std::vector<std::string>& primary_key) const {
  std::string sql = "create table " + std::string(table) + " (";
  for (size_t i = 0; i < columns.size(); ++i) {
    if (i) sql += ", ";
    sql += ColumnSql(columns[i]);
  }
  if (!primary_key.empty()) {
    sql += ", primary key (";
    for (size_t i = 0; i < primary_key.size(); ++i) sql += (i ? "," : "") + primary_key[i];
    sql += ")";
  }
  return sql + ")";
}

std::string Placeholders(size_t n) {
  std::string out;
  out.reserve(n * 2);
  for (size_t i = 0; i < n; ++i) out += i ? ",?" : "?";
  return out;
}

namespace {

class SqliteDialect : public Dialect {
 public:
  Engine engine() const override { return Engine::kSqlite; }
  const char* name() const override { return "SQLite"; }
  std::string TypeName(ColumnType type, int length) const override {
    switch (type) {
      case ColumnType::kInt:
      case ColumnType::kSmallInt:
      case ColumnType::kBigInt: return type == ColumnType::kInt ? "int" : "integer";
      case ColumnType::kDecimal: return "decimal(23,10)";
      case ColumnType::kMoney: return "decimal(18,4)";
      case ColumnType::kFloat: return "float";
      case ColumnType::kVarchar: return "varchar(" + std::to_string(length) + ")";
      case ColumnType::kText: return "text";
      case ColumnType::kDateTime: return "datetime";
      case ColumnType::kBit: return "bit";
    }
    return "text";
  }
  std::string TempTable(std::string_view name) const override { return "temp." + std::string(name); }
  std::string CreateTempTable(std::string_view name,
                              const std::vector<ColumnDef>& columns) const override {
    return "create temp table " + CreateTable(name, columns).substr(std::string("create table ").size());
  }
  std::string DropTempTableIfExists(std::string_view name) const override {
    return "drop table if exists temp." + std::string(name);
  }
  std::string TempTableExists() const override {
    return "select 1 from sqlite_temp_master where type = 'table' and lower(name) = lower(?)";
  }
  std::string SelectTop(int n, std::string_view select_list,
                        std::string_view tail) const override {
    return "select " + std::string(select_list) + " " + std::string(tail) + " limit " +
           std::to_string(n);
  }
  std::string Concat(const std::vector<std::string>& parts) const override {
    std::string out;
    for (size_t i = 0; i < parts.size(); ++i) out += (i ? " || " : "") + parts[i];
    return out;
  }
  // SQLite's lower() folds the ASCII letters alone.
  std::string CaseFolded(std::string_view expr) const override {
    return "lower(" + std::string(expr) + ")";
  }
  std::string Now() const override { return "datetime('now','localtime')"; }
  std::string InsertIgnore(std::string_view table, std::string_view columns,
                           std::string_view values, std::string_view) const override {
    return "insert or ignore into " + std::string(table) + " (" + std::string(columns) +
           ") values (" + std::string(values) + ")";
  }
  // Lists of parameters read as fast here; sets serve where a list would
  // run past the engine's limit of parameters.
  std::string IntSet() const override { return "select value from json_each(?)"; }
  std::string TextSet() const override { return "select value from json_each(?)"; }
};

class PostgresDialect : public Dialect {
 public:
  Engine engine() const override { return Engine::kPostgres; }
  const char* name() const override { return "PostgreSQL"; }
  std::string TypeName(ColumnType type, int length) const override {
    switch (type) {
      case ColumnType::kInt: return "integer";
      case ColumnType::kSmallInt: return "smallint";
      case ColumnType::kBigInt: return "bigint";
      case ColumnType::kDecimal: return "numeric(23,10)";
      case ColumnType::kMoney: return "numeric(18,4)";
      case ColumnType::kFloat: return "double precision";
      case ColumnType::kVarchar: return "varchar(" + std::to_string(length) + ")";
      case ColumnType::kText: return "text";
      case ColumnType::kDateTime: return "timestamp";
      case ColumnType::kBit: return "smallint";
    }
    return "text";
  }
  std::string TempTable(std::string_view name) const override { return std::string(name); }
  std::string CreateTempTable(std::string_view name,
                              const std::vector<ColumnDef>& columns) const override {
    return "create temporary table " +
           CreateTable(name, columns).substr(std::string("create table ").size());
  }
  std::string DropTempTableIfExists(std::string_view name) const override {
    return "drop table if exists pg_temp." + std::string(name);
  }
  std::string TempTableExists() const override {
    return "select 1 from pg_catalog.pg_class c where c.relnamespace = pg_my_temp_schema()"
           " and c.relname = lower(?)";
  }
  std::string SelectTop(int n, std::string_view select_list,
                        std::string_view tail) const override {
    return "select " + std::string(select_list) + " " + std::string(tail) + " limit " +
           std::to_string(n);
  }
  std::string Concat(const std::vector<std::string>& parts) const override {
    std::string out;
    for (size_t i = 0; i < parts.size(); ++i) out += (i ? " || " : "") + parts[i];
    return out;
  }
  // Under the "C" collation lower() folds the ASCII letters alone, whatever
  // the database's locale, and orders by bytes.
  std::string CaseFolded(std::string_view expr) const override {
    return "lower(" + std::string(expr) + " collate \"C\")";
  }
  std::string Now() const override { return "localtimestamp(0)"; }
  std::string InsertIgnore(std::string_view table, std::string_view columns,
                           std::string_view values, std::string_view key) const override {
    return "insert into " + std::string(table) + " (" + std::string(columns) + ") values (" +
           std::string(values) + ") on conflict (" + std::string(key) + ") do nothing";
  }
  bool FoldsNames() const override { return true; }
  // Each statement of many parameters is parsed and planned anew by the
  // server: one JSON parameter keeps a load at a statement per table.
  std::string IntSet() const override {
    return "select cast(value as integer) from json_array_elements_text(cast(? as json))";
  }
  std::string TextSet() const override {
    return "select value from json_array_elements_text(cast(? as json))";
  }
  bool PrefersSets() const override { return true; }
};

class SqlServerDialect : public Dialect {
 public:
  Engine engine() const override { return Engine::kSqlServer; }
  const char* name() const override { return "SQL Server"; }
  std::string TypeName(ColumnType type, int length) const override {
    switch (type) {
      case ColumnType::kInt: return "int";
      case ColumnType::kSmallInt: return "smallint";
      case ColumnType::kBigInt: return "bigint";
      case ColumnType::kDecimal: return "decimal(23,10)";
      case ColumnType::kMoney: return "decimal(18,4)";
      case ColumnType::kFloat: return "float";
      case ColumnType::kVarchar: return "nvarchar(" + std::to_string(length) + ")";
      case ColumnType::kText: return "nvarchar(max)";
      case ColumnType::kDateTime: return "datetime";
      case ColumnType::kBit: return "bit";
    }
    return "nvarchar(max)";
  }
  std::string TempTable(std::string_view name) const override { return "#" + std::string(name); }
  std::string CreateTempTable(std::string_view name,
                              const std::vector<ColumnDef>& columns) const override {
    return CreateTable("#" + std::string(name), columns);
  }
  std::string DropTempTableIfExists(std::string_view name) const override {
    return "if object_id('tempdb..#" + std::string(name) + "') is not null drop table #" +
           std::string(name);
  }
  std::string TempTableExists() const override {
    return "select 1 where object_id('tempdb..#' + ?) is not null";
  }
  std::string SelectTop(int n, std::string_view select_list,
                        std::string_view tail) const override {
    return "select top " + std::to_string(n) + " " + std::string(select_list) + " " +
           std::string(tail);
  }
  std::string Concat(const std::vector<std::string>& parts) const override {
    std::string out;
    for (size_t i = 0; i < parts.size(); ++i) out += (i ? " + " : "") + parts[i];
    return out;
  }
  // The ERP's database compares text under a case-insensitive collation.
  std::string CaseFolded(std::string_view expr) const override { return std::string(expr); }
  std::string Now() const override { return "getdate()"; }
  std::string InteriorIdProcedure() const override {
    return "set nocount on; declare @FInterID int; "
           "exec GetICMaxNum @TableName = ?, @FInterID = @FInterID output; "
           "select @FInterID as FInterID";
  }
  std::string InsertIgnore(std::string_view table, std::string_view columns,
                           std::string_view values, std::string_view) const override {
    // Callers hold the key in their own transaction; a duplicate raises and
    // is retried by the caller's lock.
    return "insert into " + std::string(table) + " (" + std::string(columns) + ") values (" +
           std::string(values) + ")";
  }
};

}  // namespace

std::unique_ptr<Dialect> MakeDialect(Engine engine) {
  switch (engine) {
    case Engine::kSqlite: return std::make_unique<SqliteDialect>();
    case Engine::kPostgres: return std::make_unique<PostgresDialect>();
    case Engine::kSqlServer: return std::make_unique<SqlServerDialect>();
  }
  return std::make_unique<SqliteDialect>();
}

Engine EngineFromDbmsName(std::string_view dbms_name) {
  const std::string folded = FoldKey(dbms_name);
  if (folded.find("postgres") != std::string::npos) return Engine::kPostgres;
  if (folded.find("sql server") != std::string::npos) return Engine::kSqlServer;
  if (folded.find("sqlite") != std::string::npos) return Engine::kSqlite;
  throw Error(ErrorCategory::kInvalidInput,
              "unsupported database server \"" + std::string(dbms_name) +
                  "\": mrpcalc speaks PostgreSQL and SQL Server through ODBC");
}

}  // namespace mrpcalc::db
