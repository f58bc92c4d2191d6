// The embedded engine, through the sqlite3 C API.
#include <sqlite3.h>

#include <cstring>

#include "db/backends.h"
#include "record/error.h"

namespace mrpcalc::db {
namespace {

[[noreturn]] void ThrowSqlite(sqlite3* db, int rc, std::string_view sql = {}) {
  const char* text = db ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
  const int code = db ? sqlite3_extended_errcode(db) : rc;
  Error error(ErrorCategory::kDatabase, text ? text : "SQLite error", -1,
              sqlite3_errstr(code) ? sqlite3_errstr(code) : "", code);
  if (!sql.empty()) error.AddContext("while running: " + std::string(sql.substr(0, 300)));
  throw error;
}

struct StmtDeleter {
  void operator()(sqlite3_stmt* s) const { sqlite3_finalize(s); }
};
using StmtPtr = std::unique_ptr<sqlite3_stmt, StmtDeleter>;

enum class Declared { kNone, kLong, kDouble, kText, kDate, kBoolean };

Declared FromDecltype(const char* decl) {
  if (!decl) return Declared::kNone;
  const std::string t = FoldKey(decl);
  if (t.find("char") != std::string::npos || t.find("text") != std::string::npos ||
      t.find("clob") != std::string::npos) {
    return Declared::kText;
  }
  if (t.find("date") != std::string::npos || t.find("time") != std::string::npos) {
    return Declared::kDate;
  }
  if (t.find("dec") != std::string::npos || t.find("num") != std::string::npos ||
      t.find("real") != std::string::npos || t.find("floa") != std::string::npos ||
      t.find("doub") != std::string::npos || t.find("money") != std::string::npos) {
    return Declared::kDouble;
  }
  if (t == "bit" || t == "bool" || t == "boolean") return Declared::kBoolean;
  if (t.find("int") != std::string::npos) return Declared::kLong;
  return Declared::kNone;
}

// How a column's value comes out: by its declared type where the engine
// gives one, else by the value itself.
RowView::Kind KindOf(sqlite3_stmt* stmt, int i, Declared declared) {
  using Kind = RowView::Kind;
  const int storage = sqlite3_column_type(stmt, i);
  if (storage == SQLITE_NULL) return Kind::kNull;
  switch (declared) {
    case Declared::kDouble:
      if (storage == SQLITE_TEXT) break;  // a text in a numeric column stays what it is
      return Kind::kFloat;
    case Declared::kLong:
      break;
    case Declared::kBoolean:
      if (storage == SQLITE_INTEGER) return Kind::kOther;
      break;
    case Declared::kText:
      return Kind::kText;
    case Declared::kDate:
      if (storage == SQLITE_TEXT) return Kind::kOther;
      break;
    case Declared::kNone:
      break;
  }
  switch (storage) {
    case SQLITE_INTEGER:
      return Kind::kInteger;
    case SQLITE_FLOAT:
      return Kind::kFloat;
    default:
      return Kind::kText;
  }
}

std::string_view TextOf(sqlite3_stmt* stmt, int i) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, i));
  return {text ? text : "", static_cast<size_t>(sqlite3_column_bytes(stmt, i))};
}

Variant ReadColumn(sqlite3_stmt* stmt, int i, Declared declared) {
  switch (KindOf(stmt, i, declared)) {
    case RowView::Kind::kNull:
      return Variant::Null();
    case RowView::Kind::kInteger:
      return Variant::FromInt64(sqlite3_column_int64(stmt, i));
    case RowView::Kind::kFloat:
      return Variant(sqlite3_column_double(stmt, i));
    case RowView::Kind::kText:
      return Variant(std::string(TextOf(stmt, i)));
    case RowView::Kind::kOther:
      break;
  }
  if (declared == Declared::kBoolean) return Variant(sqlite3_column_int64(stmt, i) != 0);
  // A date column holding text: the date it names, else the text as it is.
  std::string s(TextOf(stmt, i));
  if (auto d = Date::Parse(s)) return Variant(*d);
  return Variant(std::move(s));
}

// The current row of a statement.
class StatementRow : public RowView {
 public:
  StatementRow(sqlite3_stmt* stmt, const std::vector<Declared>& declared)
      : stmt_(stmt), declared_(declared) {}
  Kind kind(int i) const override { return KindOf(stmt_, i, declared_[static_cast<size_t>(i)]); }
  int64_t integer(int i) const override { return sqlite3_column_int64(stmt_, i); }
  double number(int i) const override { return sqlite3_column_double(stmt_, i); }
  std::string_view text(int i) const override { return TextOf(stmt_, i); }
  Variant value(int i) const override {
    return ReadColumn(stmt_, i, declared_[static_cast<size_t>(i)]);
  }

 private:
  sqlite3_stmt* stmt_;
  const std::vector<Declared>& declared_;
};

void Bind(sqlite3* db, sqlite3_stmt* stmt, const Params& params) {
  const int expected = sqlite3_bind_parameter_count(stmt);
  if (expected != static_cast<int>(params.size())) {
    throw Error(ErrorCategory::kInternal, "statement takes " + std::to_string(expected) +
                                              " parameters, " + std::to_string(params.size()) +
                                              " given");
  }
  for (size_t k = 0; k < params.size(); ++k) {
    const int i = static_cast<int>(k) + 1;
    const Variant& v = params[k];
    int rc = SQLITE_OK;
    switch (v.type()) {
      case VariantType::kEmpty:
      case VariantType::kNull:
        rc = sqlite3_bind_null(stmt, i);
        break;
      case VariantType::kBoolean:
        rc = sqlite3_bind_int(stmt, i, *v.AsBoolean() ? 1 : 0);
        break;
      case VariantType::kLong:
        rc = sqlite3_bind_int(stmt, i, *v.AsLong());
        break;
      case VariantType::kDouble:
        rc = sqlite3_bind_double(stmt, i, *v.AsDouble());
        break;
      case VariantType::kString:
        rc = sqlite3_bind_text(stmt, i, v.AsString()->data(),
                               static_cast<int>(v.AsString()->size()), SQLITE_TRANSIENT);
        break;
      case VariantType::kDate: {
        const std::string text = v.AsDate()->ToString();
        rc = sqlite3_bind_text(stmt, i, text.data(), static_cast<int>(text.size()),
                               SQLITE_TRANSIENT);
        break;
      }
      default:
        throw Error(ErrorCategory::kInvalidInput,
                    std::string("a ") + VariantTypeName(v.type()) + " cannot be a SQL parameter");
    }
    if (rc != SQLITE_OK) ThrowSqlite(db, rc);
  }
}

sqlite3* OpenHandle(const std::string& path, int flags, const OpenOptions& options) {
  sqlite3* db = nullptr;
  const int rc = sqlite3_open_v2(path.c_str(), &db, flags | SQLITE_OPEN_NOMUTEX, nullptr);
  if (rc != SQLITE_OK) {
    std::string text = db ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
    sqlite3_close_v2(db);
    throw Error(ErrorCategory::kDatabase, "cannot open SQLite database " + path + ": " + text, -1,
                sqlite3_errstr(rc), rc);
  }
  sqlite3_busy_timeout(db, options.busy_timeout_ms);
  sqlite3_extended_result_codes(db, 1);
  return db;
}

class SqliteStatement : public Statement {
 public:
  SqliteStatement(sqlite3* db, StmtPtr stmt, std::string sql)
      : db_(db), stmt_(std::move(stmt)), sql_(std::move(sql)) {}
  int64_t Execute(const Params& params) override {
    sqlite3_reset(stmt_.get());
    sqlite3_clear_bindings(stmt_.get());
    Bind(db_, stmt_.get(), params);
    int rc;
    while ((rc = sqlite3_step(stmt_.get())) == SQLITE_ROW) {
    }
    if (rc != SQLITE_DONE) ThrowSqlite(db_, rc, sql_);
    return sqlite3_changes(db_);
  }

 private:
  sqlite3* db_;
  StmtPtr stmt_;
  std::string sql_;
};

class SqliteConnection : public Connection {
 public:
  SqliteConnection(sqlite3* db, std::string path, OpenOptions options)
      : db_(db),
        path_(std::move(path)),
        options_(options),
        dialect_(MakeDialect(Engine::kSqlite)) {}
  ~SqliteConnection() override { sqlite3_close_v2(db_); }

  const Dialect& dialect() const override { return *dialect_; }
  std::string description() const override { return "sqlite:" + path_; }

  void QueryRows(std::string_view sql, const Params& params, const RowSink& sink,
                 std::vector<std::string>* columns) override {
    StmtPtr stmt = PrepareRaw(sql);
    Bind(db_, stmt.get(), params);
    const int n = sqlite3_column_count(stmt.get());
    std::vector<Declared> declared;
    for (int i = 0; i < n; ++i) {
      if (columns) columns->emplace_back(sqlite3_column_name(stmt.get(), i));
      declared.push_back(FromDecltype(sqlite3_column_decltype(stmt.get(), i)));
    }
    std::vector<Variant> row;
    int rc;
    while ((rc = sqlite3_step(stmt.get())) == SQLITE_ROW) {
      row.clear();
      row.reserve(static_cast<size_t>(n));
      for (int i = 0; i < n; ++i)
        row.push_back(ReadColumn(stmt.get(), i, declared[static_cast<size_t>(i)]));
      sink(row);
    }
    if (rc != SQLITE_DONE) ThrowSqlite(db_, rc, sql);
  }

  void QueryView(std::string_view sql, const Params& params, const RowViewSink& sink) override {
    StmtPtr stmt = PrepareRaw(sql);
    Bind(db_, stmt.get(), params);
    const int n = sqlite3_column_count(stmt.get());
    std::vector<Declared> declared;
    for (int i = 0; i < n; ++i)
      declared.push_back(FromDecltype(sqlite3_column_decltype(stmt.get(), i)));
    const StatementRow row(stmt.get(), declared);
    int rc;
    while ((rc = sqlite3_step(stmt.get())) == SQLITE_ROW) sink(row);
    if (rc != SQLITE_DONE) ThrowSqlite(db_, rc, sql);
  }

  int64_t Execute(std::string_view sql, const Params& params) override {
    StmtPtr stmt = PrepareRaw(sql);
    Bind(db_, stmt.get(), params);
    int rc;
    while ((rc = sqlite3_step(stmt.get())) == SQLITE_ROW) {
    }
    if (rc != SQLITE_DONE) ThrowSqlite(db_, rc, sql);
    return sqlite3_changes(db_);
  }

  std::unique_ptr<Statement> Prepare(std::string_view sql) override {
    return std::make_unique<SqliteStatement>(db_, PrepareRaw(sql), std::string(sql));
  }

  // IMMEDIATE takes the write lock at once, so two writers queue on the busy
  // timeout instead of deadlocking when both upgrade from a read.
  void Begin() override {
    Exec("begin immediate");
    in_transaction_ = true;
  }
  void Commit() override {
    Exec("commit");
    in_transaction_ = false;
  }
  void Rollback() override {
    in_transaction_ = false;
    if (!sqlite3_get_autocommit(db_)) Exec("rollback");
  }
  bool InTransaction() const override { return in_transaction_; }

  std::function<ConnectionPtr()> ReaderOpener() const override {
    if (path_.empty() || path_ == ":memory:" || path_.rfind("file:", 0) == 0) return {};
    return [path = path_, options = options_]() -> ConnectionPtr {
      sqlite3* db = OpenHandle(path, SQLITE_OPEN_READONLY, options);
      return std::make_unique<SqliteConnection>(db, path, options);
    };
  }

 private:
  StmtPtr PrepareRaw(std::string_view sql) {
    sqlite3_stmt* raw = nullptr;
    const char* tail = nullptr;
    const int rc = sqlite3_prepare_v2(db_, sql.data(), static_cast<int>(sql.size()), &raw, &tail);
    if (rc != SQLITE_OK) ThrowSqlite(db_, rc, sql);
    StmtPtr stmt(raw);
    if (!stmt) ThrowInvalid("empty SQL statement");
    while (tail && *tail &&
           (*tail == ' ' || *tail == '\n' || *tail == '\r' || *tail == '\t' || *tail == ';'))
      ++tail;
    if (tail && *tail) {
      throw Error(ErrorCategory::kInternal,
                  "one statement expected, more given: " + std::string(sql.substr(0, 200)));
    }
    return stmt;
  }
  void Exec(const char* sql) {
    char* message = nullptr;
    const int rc = sqlite3_exec(db_, sql, nullptr, nullptr, &message);
    if (rc != SQLITE_OK) {
      std::string text = message ? message : sqlite3_errstr(rc);
      sqlite3_free(message);
      throw Error(ErrorCategory::kDatabase, text, -1, sqlite3_errstr(rc), rc);
    }
  }

  sqlite3* db_;
  std::string path_;
  OpenOptions options_;
  std::unique_ptr<Dialect> dialect_;
  bool in_transaction_ = false;
};

}  // namespace

ConnectionPtr OpenSqlite(const std::string& path, const OpenOptions& options) {
  sqlite3* db = OpenHandle(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, options);
  auto connection = std::make_unique<SqliteConnection>(db, path, options);
  // WAL lets readers go on while one process writes; foreign keys stay off,
  // as in the ERP's own schema.
  connection->Query("pragma journal_mode=wal");
  return connection;
}

}  // namespace mrpcalc::db
