// Our thin database interface over the sqlite3 and ODBC C APIs: a connection
// runs statements with bound parameters and returns typed rows.
//
// Values map to variants by the declared column type where the engine gives
// one (decimal, numeric, float, real -> Double; int -> Long; char, text ->
// String; date, datetime -> Date), else by the value itself. No caller text is
// ever spliced into SQL: values travel as parameters, id lists through
// ParseIdList, identifiers through CheckIdentifier.
//
// A Connection is used from one thread at a time.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "db/dialect.h"
#include "record/recordset.h"
#include "record/variant.h"

namespace mrpcalc::db {

using Params = std::vector<Variant>;

// Receives each row of a query as it is read. The vector is reused for the
// next row; a sink may move values out of it.
using RowSink = std::function<void(std::vector<Variant>& row)>;

// A row being read, column by column, without building a variant for each
// value: the loaders' path through tables of tens of thousands of rows.
// kind() says how the value would come out of QueryRows: NULL, a whole
// number (a Long, or a Double beyond 32 bits), a Double or a String; any
// other (a declared date or bit) is kOther. value() gives any column as
// QueryRows gives it.
class RowView {
 public:
  enum class Kind { kNull, kInteger, kFloat, kText, kOther };
  virtual ~RowView() = default;
  virtual Kind kind(int column) const = 0;
  virtual int64_t integer(int column) const = 0;        // of a kInteger
  virtual double number(int column) const = 0;          // of a kInteger or kFloat
  virtual std::string_view text(int column) const = 0;  // of a kText, valid until the next row
  virtual Variant value(int column) const = 0;
};
using RowViewSink = std::function<void(const RowView& row)>;

// A statement prepared once and run many times (bulk inserts).
class Statement {
 public:
  virtual ~Statement() = default;
  virtual int64_t Execute(const Params& params) = 0;
};

class Connection {
 public:
  virtual ~Connection() = default;

  virtual const Dialect& dialect() const = 0;
  // The description this connection was opened with, without secrets.
  virtual std::string description() const = 0;

  // Runs one statement and hands its rows to the sink one at a time, without
  // keeping them. `columns`, when given, receives the column labels first.
  virtual void QueryRows(std::string_view sql, const Params& params, const RowSink& sink,
                         std::vector<std::string>* columns = nullptr) = 0;
  // The same rows as views. By default through QueryRows.
  virtual void QueryView(std::string_view sql, const Params& params, const RowViewSink& sink);
  // Runs one statement and returns every row it produced, cursor on the first.
  RecordSetPtr Query(std::string_view sql, const Params& params = {});
  // Runs one statement; returns the number of rows it changed (0 for DDL).
  virtual int64_t Execute(std::string_view sql, const Params& params = {}) = 0;
  virtual std::unique_ptr<Statement> Prepare(std::string_view sql) = 0;

  virtual void Begin() = 0;
  virtual void Commit() = 0;
  virtual void Rollback() = 0;
  virtual bool InTransaction() const = 0;

  // What opens a second session on the same database, for reads on another
  // thread beside this one (an SQLite file opened read-only, a second login
  // to a server); empty where one could not see the same data (an in-memory
  // database). The session sees what is committed, never this session's
  // open transaction. The opener stands alone: it may be called on any
  // thread, after this session is gone.
  virtual std::function<std::unique_ptr<Connection>()> ReaderOpener() const { return {}; }
  // Opens one at once; nullptr where none can be opened.
  std::unique_ptr<Connection> OpenReader() const {
    const auto open = ReaderOpener();
    return open ? open() : nullptr;
  }

  // Whether the frame has checked mrpcalc's own tables on this session (it
  // does once, before the session's first unit of work).
  bool own_tables_checked() const { return own_tables_checked_; }
  void set_own_tables_checked() { own_tables_checked_ = true; }

  // Convenience: first column of the first row, Empty when there is no row.
  Variant QueryValue(std::string_view sql, const Params& params = {});
  bool TableExists(std::string_view table);
  // Which of the tables exist, in one statement: their names as given.
  std::vector<std::string> ExistingTables(const std::vector<std::string>& tables);

 private:
  bool own_tables_checked_ = false;
};

using ConnectionPtr = std::unique_ptr<Connection>;

struct OpenOptions {
  int login_timeout_seconds = 5;   // ODBC: SQL_ATTR_LOGIN_TIMEOUT
  int busy_timeout_ms = 30000;     // SQLite: wait for another writer
};

// Opens "sqlite:PATH" or "odbc:CONNECTION-STRING". Throws a database error
// with the engine's text when the connection fails, invalid input when the
// description names no known engine.
ConnectionPtr Open(std::string_view dsn, const OpenOptions& options = {});
// Whether the description names a database server (a login) rather than a
// database file.
bool NamesServer(std::string_view dsn);

// Rolls back on scope exit unless Commit() was called.
class Transaction {
 public:
  explicit Transaction(Connection& connection);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void Commit();

 private:
  Connection& connection_;
  bool done_ = false;
};

// Runs `sql`, "%IDS%" standing for the keys, handing each row to `each`:
// once with the keys as one set parameter where the engine unpacks such a
// set itself, else once per chunk of keys bound as a parameter list.
// `leading` are the parameters that come before "%IDS%" in the text.
void QueryIn(Connection& connection, const std::vector<int32_t>& keys, std::string_view sql,
             const RowSink& each, const Params& leading = {});
void QueryIn(Connection& connection, const std::vector<std::string>& keys, std::string_view sql,
             const RowSink& each, const Params& leading = {});

void QueryIn(Connection& connection, const std::vector<int32_t>& keys, std::string_view sql,
             const RowViewSink& each, const Params& leading = {});

// The same for a statement without rows (update, delete).
void ExecuteIn(Connection& connection, const std::vector<int32_t>& keys, std::string_view sql,
               const Params& leading = {});

// Parses "3,5" (blanks around ids allowed) into integers. An empty or blank
// text gives an empty list. Anything else throws invalid input naming `what`
// and the offending piece.
std::vector<int32_t> ParseIdList(std::string_view text, std::string_view what);
// Joins ids with "," (no blanks), the ERP's stored form.
std::string JoinIds(const std::vector<int32_t>& ids);

// Identifiers read from configuration (table and column names) must match
// [A-Za-z_][A-Za-z0-9_]* and be at most 128 characters; throws otherwise.
const std::string& CheckIdentifier(const std::string& name, std::string_view what);

}  // namespace mrpcalc::db
