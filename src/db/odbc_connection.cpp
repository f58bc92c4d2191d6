// Server engines through the unixODBC C API (PostgreSQL via psqlODBC, SQL
// Server via FreeTDS or its vendor's driver). Texts travel as UTF-16 wide
// characters so that drivers never guess an encoding.
#include <sql.h>
#include <sqlext.h>

#include <cstring>
#include <mutex>
#include <unordered_map>

#include "db/backends.h"
#include "record/error.h"

namespace mrpcalc::db {
namespace {

std::u16string Utf8ToUtf16(std::string_view in) {
  std::u16string out;
  out.reserve(in.size());
  for (size_t i = 0; i < in.size();) {
    const unsigned char c = static_cast<unsigned char>(in[i]);
    uint32_t cp;
    size_t len;
    if (c < 0x80) {
      cp = c;
      len = 1;
    } else if ((c >> 5) == 0x6) {
      cp = c & 0x1F;
      len = 2;
    } else if ((c >> 4) == 0xE) {
      cp = c & 0x0F;
      len = 3;
    } else if ((c >> 3) == 0x1E) {
      cp = c & 0x07;
      len = 4;
    } else {
      cp = 0xFFFD;
      len = 1;
    }
    if (i + len > in.size()) {
      cp = 0xFFFD;
      len = in.size() - i;
    } else {
      for (size_t k = 1; k < len; ++k)
        cp = (cp << 6) | (static_cast<unsigned char>(in[i + k]) & 0x3F);
    }
    i += len;
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(cp));
    }
  }
  return out;
}

std::string Utf16ToUtf8(const char16_t* in, size_t n) {
  std::string out;
  out.reserve(n);
  for (size_t i = 0; i < n; ++i) {
    uint32_t cp = in[i];
    if (cp >= 0xD800 && cp < 0xDC00 && i + 1 < n && in[i + 1] >= 0xDC00 && in[i + 1] < 0xE000) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (in[i + 1] - 0xDC00);
      ++i;
    }
    if (cp < 0x80) {
      out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
  }
  return out;
}

SQLWCHAR* W(std::u16string& s) { return reinterpret_cast<SQLWCHAR*>(s.data()); }

// Collects the driver's diagnostics into one Error; the first record's text
// is the description, unchanged.
[[noreturn]] void ThrowOdbc(SQLSMALLINT handle_type, SQLHANDLE handle, std::string_view action,
                            std::string_view sql = {}) {
  std::string description;
  std::string state;
  SQLINTEGER native = 0;
  for (SQLSMALLINT rec = 1;; ++rec) {
    SQLWCHAR sqlstate[6] = {};
    SQLWCHAR text[2048] = {};
    SQLINTEGER rec_native = 0;
    SQLSMALLINT len = 0;
    const SQLRETURN rc = SQLGetDiagRecW(handle_type, handle, rec, sqlstate, &rec_native, text,
                                        static_cast<SQLSMALLINT>(std::size(text)), &len);
    if (!SQL_SUCCEEDED(rc)) break;
    const size_t text_len = std::min<size_t>(static_cast<size_t>(len), std::size(text) - 1);
    const std::string message = Utf16ToUtf8(reinterpret_cast<const char16_t*>(text), text_len);
    if (rec == 1) {
      state = Utf16ToUtf8(reinterpret_cast<const char16_t*>(sqlstate), 5);
      native = rec_native;
      description = message;
    } else if (!message.empty() && description.find(message) == std::string::npos) {
      description += "\n" + message;
    }
  }
  if (description.empty()) description = "ODBC call failed while " + std::string(action);
  Error error(ErrorCategory::kDatabase, description, -1, state, native);
  error.AddContext("while " + std::string(action));
  if (!sql.empty()) error.AddContext("statement: " + std::string(sql.substr(0, 300)));
  throw error;
}

void Check(SQLRETURN rc, SQLSMALLINT type, SQLHANDLE handle, std::string_view action,
           std::string_view sql = {}) {
  if (!SQL_SUCCEEDED(rc) && rc != SQL_NO_DATA) ThrowOdbc(type, handle, action, sql);
}

SQLHENV SharedEnvironment() {
  static SQLHENV env = [] {
    SQLHENV h = SQL_NULL_HENV;
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &h))) {
      throw Error(ErrorCategory::kDatabase, "cannot allocate the ODBC environment");
    }
    SQLSetEnvAttr(h, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    return h;
  }();
  return env;
}

// Buffers of the bound parameters; they must outlive SQLExecute.
struct BoundParams {
  std::vector<int32_t> longs;
  std::vector<double> doubles;
  std::vector<std::u16string> texts;
  std::vector<SQL_TIMESTAMP_STRUCT> stamps;
  std::vector<SQLLEN> indicators;
};

void BindParams(SQLHSTMT stmt, const Params& params, BoundParams& b, std::string_view sql) {
  b = BoundParams{};
  b.longs.reserve(params.size());
  b.doubles.reserve(params.size());
  b.texts.reserve(params.size());
  b.stamps.reserve(params.size());
  b.indicators.assign(params.size(), 0);
  for (size_t k = 0; k < params.size(); ++k) {
    const Variant& v = params[k];
    const auto n = static_cast<SQLUSMALLINT>(k + 1);
    SQLLEN* ind = &b.indicators[k];
    SQLRETURN rc;
    switch (v.type()) {
      case VariantType::kEmpty:
      case VariantType::kNull:
        *ind = SQL_NULL_DATA;
        rc = SQLBindParameter(stmt, n, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR, 1, 0, nullptr, 0,
                              ind);
        break;
      case VariantType::kBoolean:
      case VariantType::kLong:
        b.longs.push_back(v.AsBoolean() ? (*v.AsBoolean() ? 1 : 0) : *v.AsLong());
        rc = SQLBindParameter(stmt, n, SQL_PARAM_INPUT, SQL_C_SLONG, SQL_INTEGER, 0, 0,
                              &b.longs.back(), 0, ind);
        break;
      case VariantType::kDouble:
        b.doubles.push_back(*v.AsDouble());
        rc = SQLBindParameter(stmt, n, SQL_PARAM_INPUT, SQL_C_DOUBLE, SQL_DOUBLE, 15, 0,
                              &b.doubles.back(), 0, ind);
        break;
      case VariantType::kString: {
        b.texts.push_back(Utf8ToUtf16(*v.AsString()));
        std::u16string& t = b.texts.back();
        *ind = static_cast<SQLLEN>(t.size() * sizeof(char16_t));
        const SQLULEN size = std::max<SQLULEN>(1, t.size());
        rc = SQLBindParameter(stmt, n, SQL_PARAM_INPUT, SQL_C_WCHAR,
                              size > 4000 ? SQL_WLONGVARCHAR : SQL_WVARCHAR, size, 0, W(t), *ind,
                              ind);
        break;
      }
      case VariantType::kDate: {
        const Date& d = *v.AsDate();
        SQL_TIMESTAMP_STRUCT ts{};
        ts.year = static_cast<SQLSMALLINT>(d.year());
        ts.month = static_cast<SQLUSMALLINT>(d.month());
        ts.day = static_cast<SQLUSMALLINT>(d.day());
        ts.hour = static_cast<SQLUSMALLINT>(d.hour());
        ts.minute = static_cast<SQLUSMALLINT>(d.minute());
        ts.second = static_cast<SQLUSMALLINT>(d.second());
        b.stamps.push_back(ts);
        rc = SQLBindParameter(stmt, n, SQL_PARAM_INPUT, SQL_C_TYPE_TIMESTAMP, SQL_TYPE_TIMESTAMP,
                              19, 0, &b.stamps.back(), 0, ind);
        break;
      }
      default:
        throw Error(ErrorCategory::kInvalidInput,
                    std::string("a ") + VariantTypeName(v.type()) + " cannot be a SQL parameter");
    }
    Check(rc, SQL_HANDLE_STMT, stmt, "binding parameter " + std::to_string(n), sql);
  }
}

Variant ReadText(SQLHSTMT stmt, SQLUSMALLINT col, std::string_view sql) {
  std::u16string text;
  char16_t buf[2048];
  while (true) {
    SQLLEN ind = 0;
    const SQLRETURN rc = SQLGetData(stmt, col, SQL_C_WCHAR, buf, sizeof buf, &ind);
    if (rc == SQL_NO_DATA) break;
    Check(rc, SQL_HANDLE_STMT, stmt, "reading a text column", sql);
    if (ind == SQL_NULL_DATA) return Variant::Null();
    const size_t capacity = std::size(buf) - 1;
    const size_t got = (ind == SQL_NO_TOTAL || static_cast<size_t>(ind) / 2 > capacity)
                           ? capacity
                           : static_cast<size_t>(ind) / 2;
    text.append(buf, got);
    if (rc == SQL_SUCCESS) break;
  }
  return Variant(Utf16ToUtf8(text.data(), text.size()));
}

Variant ReadColumn(SQLHSTMT stmt, SQLUSMALLINT col, SQLSMALLINT type, std::string_view sql) {
  SQLLEN ind = 0;
  switch (type) {
    case SQL_INTEGER:
    case SQL_SMALLINT:
    case SQL_TINYINT:
    case SQL_BIGINT: {
      SQLBIGINT value = 0;
      Check(SQLGetData(stmt, col, SQL_C_SBIGINT, &value, 0, &ind), SQL_HANDLE_STMT, stmt,
            "reading an integer column", sql);
      if (ind == SQL_NULL_DATA) return Variant::Null();
      return Variant::FromInt64(value);
    }
    case SQL_BIT: {
      SQLBIGINT value = 0;
      Check(SQLGetData(stmt, col, SQL_C_SBIGINT, &value, 0, &ind), SQL_HANDLE_STMT, stmt,
            "reading a bit column", sql);
      if (ind == SQL_NULL_DATA) return Variant::Null();
      return Variant(value != 0);
    }
    case SQL_DECIMAL:
    case SQL_NUMERIC:
    case SQL_REAL:
    case SQL_FLOAT:
    case SQL_DOUBLE: {
      double value = 0;
      Check(SQLGetData(stmt, col, SQL_C_DOUBLE, &value, 0, &ind), SQL_HANDLE_STMT, stmt,
            "reading a numeric column", sql);
      if (ind == SQL_NULL_DATA) return Variant::Null();
      return Variant(value);
    }
    case SQL_TYPE_DATE:
    case SQL_TYPE_TIMESTAMP: {
      SQL_TIMESTAMP_STRUCT ts{};
      Check(SQLGetData(stmt, col, SQL_C_TYPE_TIMESTAMP, &ts, sizeof ts, &ind), SQL_HANDLE_STMT,
            stmt, "reading a date column", sql);
      if (ind == SQL_NULL_DATA) return Variant::Null();
      return Variant(Date::FromParts(ts.year, ts.month, ts.day, ts.hour, ts.minute, ts.second));
    }
    default:
      return ReadText(stmt, col, sql);
  }
}

// A result column's concise SQL type. The verbose type is the same for all
// but dates and times, which alone need the concise one asked for.
SQLSMALLINT ColumnType(SQLHSTMT stmt, SQLUSMALLINT column, std::string_view sql) {
  SQLLEN type = 0;
  Check(SQLColAttributeW(stmt, column, SQL_DESC_TYPE, nullptr, 0, nullptr, &type), SQL_HANDLE_STMT,
        stmt, "describing a column", sql);
  if (type == SQL_DATETIME || type == SQL_INTERVAL) {
    Check(SQLColAttributeW(stmt, column, SQL_DESC_CONCISE_TYPE, nullptr, 0, nullptr, &type),
          SQL_HANDLE_STMT, stmt, "describing a column", sql);
  }
  return static_cast<SQLSMALLINT>(type);
}

// Rows fetched in blocks: each column bound to an array of kBlockRows
// values, one SQLFetch a block, instead of one SQLFetch a row and one
// SQLGetData a value. Columns of unknown or very long width keep the
// row-by-row path (see BlockReader::Fits).
constexpr SQLULEN kBlockRows = 256;
constexpr SQLULEN kLongestBoundText = 4000;  // characters

class BlockReader {
 public:
  enum class Kind { kInteger, kBit, kDouble, kTimestamp, kText };

  // Whether every column can be bound; `sizes` are the column sizes the
  // driver described (characters for texts).
  static bool Fits(const std::vector<SQLSMALLINT>& types, const std::vector<SQLULEN>& sizes) {
    for (size_t i = 0; i < types.size(); ++i) {
      if (KindOf(types[i]) == Kind::kText && (sizes[i] == 0 || sizes[i] > kLongestBoundText)) {
        return false;
      }
    }
    return true;
  }

  BlockReader(SQLHSTMT stmt, const std::vector<SQLSMALLINT>& types,
              const std::vector<SQLULEN>& sizes, std::string_view sql)
      : stmt_(stmt), sql_(sql), columns_(types.size()) {
    Check(SQLSetStmtAttr(stmt, SQL_ATTR_ROW_BIND_TYPE,
                         reinterpret_cast<SQLPOINTER>(SQL_BIND_BY_COLUMN), 0),
          SQL_HANDLE_STMT, stmt, "binding columns", sql);
    Check(
        SQLSetStmtAttr(stmt, SQL_ATTR_ROW_ARRAY_SIZE, reinterpret_cast<SQLPOINTER>(kBlockRows), 0),
        SQL_HANDLE_STMT, stmt, "binding columns", sql);
    Check(SQLSetStmtAttr(stmt, SQL_ATTR_ROWS_FETCHED_PTR, &fetched_, 0), SQL_HANDLE_STMT, stmt,
          "binding columns", sql);
    for (size_t i = 0; i < types.size(); ++i) {
      Column& c = columns_[i];
      c.kind = KindOf(types[i]);
      c.indicators.resize(kBlockRows);
      SQLSMALLINT target = SQL_C_SBIGINT;
      switch (c.kind) {
        case Kind::kInteger:
        case Kind::kBit:
          c.width = sizeof(SQLBIGINT);
          break;
        case Kind::kDouble:
          c.width = sizeof(double);
          target = SQL_C_DOUBLE;
          break;
        case Kind::kTimestamp:
          c.width = sizeof(SQL_TIMESTAMP_STRUCT);
          target = SQL_C_TYPE_TIMESTAMP;
          break;
        case Kind::kText:
          // Two UTF-16 units a character (characters beyond the basic
          // plane), and the terminator.
          c.width = (sizes[i] * 2 + 1) * sizeof(char16_t);
          target = SQL_C_WCHAR;
          break;
      }
      c.data.resize(c.width * kBlockRows);
      Check(SQLBindCol(stmt, static_cast<SQLUSMALLINT>(i + 1), target, c.data.data(),
                       static_cast<SQLLEN>(c.width), c.indicators.data()),
            SQL_HANDLE_STMT, stmt, "binding columns", sql);
    }
  }

  // Hands every row to the sink, a block at a time.
  void ReadAll(const RowSink& sink) {
    std::vector<Variant> row;
    while (true) {
      const SQLRETURN rc = SQLFetch(stmt_);
      if (rc == SQL_NO_DATA) break;
      Check(rc, SQL_HANDLE_STMT, stmt_, "fetching rows", sql_);
      for (SQLULEN r = 0; r < fetched_; ++r) {
        row.clear();
        row.reserve(columns_.size());
        for (const Column& c : columns_) row.push_back(Value(c, r));
        sink(row);
      }
    }
  }

 private:
  struct Column {
    Kind kind;
    size_t width = 0;
    std::vector<unsigned char> data;
    std::vector<SQLLEN> indicators;
  };

  static Kind KindOf(SQLSMALLINT type) {
    switch (type) {
      case SQL_INTEGER:
      case SQL_SMALLINT:
      case SQL_TINYINT:
      case SQL_BIGINT:
        return Kind::kInteger;
      case SQL_BIT:
        return Kind::kBit;
      case SQL_DECIMAL:
      case SQL_NUMERIC:
      case SQL_REAL:
      case SQL_FLOAT:
      case SQL_DOUBLE:
        return Kind::kDouble;
      case SQL_TYPE_DATE:
      case SQL_TYPE_TIMESTAMP:
        return Kind::kTimestamp;
      default:
        return Kind::kText;
    }
  }

  Variant Value(const Column& c, SQLULEN r) const {
    const SQLLEN ind = c.indicators[r];
    if (ind == SQL_NULL_DATA) return Variant::Null();
    const unsigned char* at = c.data.data() + r * c.width;
    switch (c.kind) {
      case Kind::kInteger: {
        SQLBIGINT v;
        std::memcpy(&v, at, sizeof v);
        return Variant::FromInt64(v);
      }
      case Kind::kBit: {
        SQLBIGINT v;
        std::memcpy(&v, at, sizeof v);
        return Variant(v != 0);
      }
      case Kind::kDouble: {
        double v;
        std::memcpy(&v, at, sizeof v);
        return Variant(v);
      }
      case Kind::kTimestamp: {
        SQL_TIMESTAMP_STRUCT ts;
        std::memcpy(&ts, at, sizeof ts);
        return Variant(Date::FromParts(ts.year, ts.month, ts.day, ts.hour, ts.minute, ts.second));
      }
      case Kind::kText: {
        const size_t capacity = c.width / sizeof(char16_t) - 1;
        if (ind == SQL_NO_TOTAL || static_cast<size_t>(ind) / 2 > capacity) {
          throw Error(
              ErrorCategory::kDatabase,
              "a text longer than its column's described size came back: " + std::string(sql_));
        }
        std::u16string text(static_cast<size_t>(ind) / 2, u'\0');
        std::memcpy(text.data(), at, text.size() * sizeof(char16_t));
        return Variant(Utf16ToUtf8(text.data(), text.size()));
      }
    }
    return Variant();
  }

  SQLHSTMT stmt_;
  std::string_view sql_;
  std::vector<Column> columns_;
  SQLULEN fetched_ = 0;
};

class StmtHandle {
 public:
  explicit StmtHandle(SQLHDBC dbc) {
    Check(SQLAllocHandle(SQL_HANDLE_STMT, dbc, &h_), SQL_HANDLE_DBC, dbc, "allocating a statement");
  }
  ~StmtHandle() {
    if (h_) SQLFreeHandle(SQL_HANDLE_STMT, h_);
  }
  StmtHandle(const StmtHandle&) = delete;
  StmtHandle& operator=(const StmtHandle&) = delete;
  SQLHSTMT get() const { return h_; }

 private:
  SQLHSTMT h_ = SQL_NULL_HSTMT;
};

class OdbcStatement : public Statement {
 public:
  OdbcStatement(SQLHDBC dbc, std::string sql) : stmt_(dbc), sql_(std::move(sql)) {
    std::u16string text = Utf8ToUtf16(sql_);
    Check(SQLPrepareW(stmt_.get(), W(text), static_cast<SQLINTEGER>(text.size())), SQL_HANDLE_STMT,
          stmt_.get(), "preparing a statement", sql_);
  }
  int64_t Execute(const Params& params) override {
    SQLFreeStmt(stmt_.get(), SQL_CLOSE);
    SQLFreeStmt(stmt_.get(), SQL_RESET_PARAMS);
    BindParams(stmt_.get(), params, bound_, sql_);
    const SQLRETURN rc = SQLExecute(stmt_.get());
    Check(rc, SQL_HANDLE_STMT, stmt_.get(), "running a statement", sql_);
    SQLLEN count = 0;
    if (rc != SQL_NO_DATA) SQLRowCount(stmt_.get(), &count);
    return count < 0 ? 0 : count;
  }

 private:
  StmtHandle stmt_;
  std::string sql_;
  BoundParams bound_;
};

class OdbcConnection : public Connection {
 public:
  OdbcConnection(SQLHDBC dbc, std::unique_ptr<Dialect> dialect, std::string description,
                 std::string connection_string, OpenOptions options)
      : dbc_(dbc),
        dialect_(std::move(dialect)),
        description_(std::move(description)),
        connection_string_(std::move(connection_string)),
        options_(options) {}
  // A second login: the server's process for it costs less than the reads
  // it takes off this session. Read-only where the driver honours it.
  std::function<ConnectionPtr()> ReaderOpener() const override {
    return [connection_string = connection_string_, options = options_] {
      ConnectionPtr reader = db::OpenOdbc(connection_string, options);
      SQLSetConnectAttr(static_cast<OdbcConnection&>(*reader).dbc_, SQL_ATTR_ACCESS_MODE,
                        reinterpret_cast<SQLPOINTER>(SQL_MODE_READ_ONLY), 0);
      return reader;
    };
  }
  ~OdbcConnection() override {
    if (in_transaction_) {
      SQLEndTran(SQL_HANDLE_DBC, dbc_, SQL_ROLLBACK);
    }
    SQLDisconnect(dbc_);
    SQLFreeHandle(SQL_HANDLE_DBC, dbc_);
  }

  const Dialect& dialect() const override { return *dialect_; }
  std::string description() const override { return description_; }

  void QueryRows(std::string_view sql, const Params& params, const RowSink& sink,
                 std::vector<std::string>* columns) override {
    StmtHandle stmt(dbc_);
    BoundParams bound;
    RunDirect(stmt.get(), sql, params, bound);
    SQLSMALLINT ncols = 0;
    Check(SQLNumResultCols(stmt.get(), &ncols), SQL_HANDLE_STMT, stmt.get(), "reading columns",
          sql);
    std::vector<SQLSMALLINT> types;
    std::vector<SQLULEN> sizes;
    for (SQLUSMALLINT c = 1; c <= static_cast<SQLUSMALLINT>(ncols); ++c) {
      SQLWCHAR name[512] = {};
      SQLSMALLINT name_len = 0, digits = 0;
      SQLULEN size = 0;
      // Neither the concise type nor the nullability is asked here: for
      // either, some drivers (psqlODBC) look the column up in the server's
      // catalog, a query of its own for every table a statement reads.
      Check(SQLDescribeColW(stmt.get(), c, name, static_cast<SQLSMALLINT>(std::size(name)),
                            &name_len, nullptr, &size, &digits, nullptr),
            SQL_HANDLE_STMT, stmt.get(), "describing a column", sql);
      const SQLSMALLINT type = ColumnType(stmt.get(), c, sql);
      std::string label =
          Utf16ToUtf8(reinterpret_cast<const char16_t*>(name),
                      std::min<size_t>(static_cast<size_t>(name_len), std::size(name) - 1));
      if (columns) columns->push_back(dialect_->FoldsNames() ? LabelAsSpelled(sql, label) : label);
      types.push_back(type);
      sizes.push_back(size);
    }
    if (ncols > 0 && BlockReader::Fits(types, sizes)) {
      BlockReader(stmt.get(), types, sizes, sql).ReadAll(sink);
      return;
    }
    std::vector<Variant> row;
    if (ncols > 0) {
      while (true) {
        const SQLRETURN rc = SQLFetch(stmt.get());
        if (rc == SQL_NO_DATA) break;
        Check(rc, SQL_HANDLE_STMT, stmt.get(), "fetching a row", sql);
        row.clear();
        row.reserve(static_cast<size_t>(ncols));
        for (SQLUSMALLINT c = 1; c <= static_cast<SQLUSMALLINT>(ncols); ++c) {
          row.push_back(ReadColumn(stmt.get(), c, types[c - 1], sql));
        }
        sink(row);
      }
    }
  }

  int64_t Execute(std::string_view sql, const Params& params) override {
    StmtHandle stmt(dbc_);
    BoundParams bound;
    const SQLRETURN rc = RunDirect(stmt.get(), sql, params, bound);
    SQLLEN count = 0;
    if (rc != SQL_NO_DATA) SQLRowCount(stmt.get(), &count);
    return count < 0 ? 0 : count;
  }

  std::unique_ptr<Statement> Prepare(std::string_view sql) override {
    return std::make_unique<OdbcStatement>(dbc_, std::string(sql));
  }

  void Begin() override {
    Check(SQLSetConnectAttr(dbc_, SQL_ATTR_AUTOCOMMIT,
                            reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_OFF), 0),
          SQL_HANDLE_DBC, dbc_, "beginning a transaction");
    in_transaction_ = true;
  }
  void Commit() override { EndTransaction(SQL_COMMIT, "committing"); }
  void Rollback() override { EndTransaction(SQL_ROLLBACK, "rolling back"); }
  bool InTransaction() const override { return in_transaction_; }

 private:
  SQLRETURN RunDirect(SQLHSTMT stmt, std::string_view sql, const Params& params,
                      BoundParams& bound) {
    std::u16string text = Utf8ToUtf16(sql);
    if (!params.empty()) BindParams(stmt, params, bound, sql);
    const SQLRETURN rc = SQLExecDirectW(stmt, W(text), static_cast<SQLINTEGER>(text.size()));
    Check(rc, SQL_HANDLE_STMT, stmt, "running a statement", sql);
    return rc;
  }

  void EndTransaction(SQLSMALLINT how, const char* action) {
    if (!in_transaction_) return;
    in_transaction_ = false;
    const SQLRETURN rc = SQLEndTran(SQL_HANDLE_DBC, dbc_, how);
    SQLSetConnectAttr(dbc_, SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_ON),
                      0);
    Check(rc, SQL_HANDLE_DBC, dbc_, action);
  }

  SQLHDBC dbc_;
  std::unique_ptr<Dialect> dialect_;
  std::string description_;
  std::string connection_string_;
  OpenOptions options_;
  bool in_transaction_ = false;
};

// Hides PWD=... in texts shown to people.
std::string WithoutSecrets(const std::string& connection_string) {
  std::string out;
  size_t pos = 0;
  while (pos < connection_string.size()) {
    size_t end = connection_string.find(';', pos);
    if (end == std::string::npos) end = connection_string.size();
    std::string pair = connection_string.substr(pos, end - pos);
    const std::string key = FoldKey(pair.substr(0, pair.find('=')));
    if (key == "pwd" || key == "password") pair = pair.substr(0, pair.find('=') + 1) + "***";
    out += pair;
    if (end < connection_string.size()) out += ';';
    pos = end + 1;
  }
  return out;
}

}  // namespace

ConnectionPtr OpenOdbc(const std::string& connection_string, const OpenOptions& options) {
  SQLHENV env = SharedEnvironment();
  SQLHDBC dbc = SQL_NULL_HDBC;
  Check(SQLAllocHandle(SQL_HANDLE_DBC, env, &dbc), SQL_HANDLE_ENV, env, "allocating a connection");
  // Without a login timeout a server that accepts and never answers blocks
  // the caller forever.
  const auto timeout = static_cast<SQLULEN>(options.login_timeout_seconds);
  SQLSetConnectAttr(dbc, SQL_ATTR_LOGIN_TIMEOUT, reinterpret_cast<SQLPOINTER>(timeout), 0);
  SQLSetConnectAttr(dbc, SQL_ATTR_CONNECTION_TIMEOUT, reinterpret_cast<SQLPOINTER>(timeout), 0);
  std::u16string in = Utf8ToUtf16(connection_string);
  SQLWCHAR out[1024];
  SQLSMALLINT out_len = 0;
  const SQLRETURN rc =
      SQLDriverConnectW(dbc, nullptr, W(in), static_cast<SQLSMALLINT>(in.size()), out,
                        static_cast<SQLSMALLINT>(std::size(out)), &out_len, SQL_DRIVER_NOPROMPT);
  if (!SQL_SUCCEEDED(rc)) {
    try {
      ThrowOdbc(SQL_HANDLE_DBC, dbc, "connecting to " + WithoutSecrets(connection_string));
    } catch (...) {
      SQLFreeHandle(SQL_HANDLE_DBC, dbc);
      throw;
    }
  }
  SQLWCHAR dbms[256] = {};
  SQLSMALLINT dbms_len = 0;
  SQLGetInfoW(dbc, SQL_DBMS_NAME, dbms, sizeof dbms, &dbms_len);
  const std::string dbms_name =
      Utf16ToUtf8(reinterpret_cast<const char16_t*>(dbms),
                  std::min<size_t>(static_cast<size_t>(dbms_len) / 2, 255));
  std::unique_ptr<Dialect> dialect;
  try {
    dialect = MakeDialect(EngineFromDbmsName(dbms_name));
  } catch (...) {
    SQLDisconnect(dbc);
    SQLFreeHandle(SQL_HANDLE_DBC, dbc);
    throw;
  }
  return std::make_unique<OdbcConnection>(dbc, std::move(dialect),
                                          "odbc:" + WithoutSecrets(connection_string),
                                          connection_string, options);
}

}  // namespace mrpcalc::db
