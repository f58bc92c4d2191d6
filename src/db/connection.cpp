// Engine-independent parts of the database layer.
#include "db/connection.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <set>

#include "db/backends.h"
#include "record/error.h"
#include "record/json.h"
#include "record/text.h"

namespace mrpcalc::db {

std::string LabelAsSpelled(std::string_view sql, const std::string& label) {
  auto word_char = [](char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
  };
  size_t i = 0;
  while (i < sql.size()) {
    if (!word_char(sql[i])) {
      ++i;
      continue;
    }
    size_t end = i;
    while (end < sql.size() && word_char(sql[end])) ++end;
    const std::string_view word = sql.substr(i, end - i);
    if (EqualsIgnoringCase(word, label)) return std::string(word);
    i = end;
  }
  return label;
}

RecordSetPtr Connection::Query(std::string_view sql, const Params& params) {
  std::vector<std::string> columns;
  std::vector<std::vector<Variant>> rows;
  QueryRows(sql, params, [&](std::vector<Variant>& row) { rows.push_back(std::move(row)); }, &columns);
  return std::make_shared<RecordSet>(std::move(columns), std::move(rows));
}

namespace {

// A row of variants seen as a view.
class VariantRowView : public RowView {
 public:
  explicit VariantRowView(const std::vector<Variant>& row) : row_(row) {}
  Kind kind(int column) const override {
    const Variant& v = row_[static_cast<size_t>(column)];
    switch (v.type()) {
      case VariantType::kEmpty:
      case VariantType::kNull:
        return Kind::kNull;
      case VariantType::kLong:
        return Kind::kInteger;
      case VariantType::kDouble:
        return Kind::kFloat;
      case VariantType::kString:
        return Kind::kText;
      default:
        return Kind::kOther;
    }
  }
  int64_t integer(int column) const override { return *row_[static_cast<size_t>(column)].AsLong(); }
  double number(int column) const override { return row_[static_cast<size_t>(column)].ToDouble(); }
  std::string_view text(int column) const override {
    return *row_[static_cast<size_t>(column)].AsString();
  }
  Variant value(int column) const override { return row_[static_cast<size_t>(column)]; }

 private:
  const std::vector<Variant>& row_;
};

}  // namespace

void Connection::QueryView(std::string_view sql, const Params& params, const RowViewSink& sink) {
  QueryRows(sql, params, [&](std::vector<Variant>& row) { sink(VariantRowView(row)); });
}

Variant Connection::QueryValue(std::string_view sql, const Params& params) {
  auto rs = Query(sql, params);
  if (rs->Eof() || rs->columns().empty()) return Variant();
  return rs->rows()[0][0];
}

bool Connection::TableExists(std::string_view table) {
  return !ExistingTables({std::string(table)}).empty();
}

std::vector<std::string> Connection::ExistingTables(const std::vector<std::string>& tables) {
  std::vector<std::string> out;
  if (tables.empty()) return out;
  std::string sql;
  switch (dialect().engine()) {
    case Engine::kSqlite:
      sql = "select lower(name) from sqlite_master where type='table' and lower(name) in (";
      break;
    case Engine::kPostgres:
      // The catalogue itself: the information schema's view costs a login's
      // first statement some milliseconds.
      sql = "select lower(relname) from pg_catalog.pg_class"
            " where relnamespace = current_schema()::regnamespace and relkind in ('r', 'p')"
            " and relname in (";
      break;
    case Engine::kSqlServer:
      sql = "select lower(table_name) from information_schema.tables where lower(table_name) in (";
      break;
  }
  Params params;
  for (const auto& t : tables) {
    sql += params.empty() ? "?" : ", ?";
    params.emplace_back(FoldKey(t));
  }
  sql += ")";
  std::set<std::string> found;
  QueryRows(sql, params, [&](std::vector<Variant>& r) { found.insert(FoldKey(r[0].ToText())); });
  for (const auto& t : tables) {
    if (found.count(FoldKey(t))) out.push_back(t);
  }
  return out;
}

namespace {
std::string SchemeOf(std::string_view dsn) {
  const size_t colon = dsn.find(':');
  return colon == std::string_view::npos ? "" : FoldKey(dsn.substr(0, colon));
}
}  // namespace

bool NamesServer(std::string_view dsn) { return SchemeOf(dsn) == "odbc"; }

ConnectionPtr Open(std::string_view dsn, const OpenOptions& options) {
  const size_t colon = dsn.find(':');
  const std::string scheme = SchemeOf(dsn);
  const std::string_view rest = colon == std::string_view::npos ? "" : dsn.substr(colon + 1);
  if (scheme == "sqlite") {
    if (rest.empty()) ThrowInvalid("connection description \"sqlite:\" names no database file");
    return OpenSqlite(std::string(rest), options);
  }
  if (scheme == "odbc") {
    if (Trim(rest).empty()) ThrowInvalid("connection description \"odbc:\" has no connection string");
    return OpenOdbc(std::string(rest), options);
  }
  ThrowInvalid("connection description must start with \"sqlite:\" or \"odbc:\"");
}

Transaction::Transaction(Connection& connection) : connection_(connection) { connection_.Begin(); }

Transaction::~Transaction() {
  if (!done_) {
    try {
      connection_.Rollback();
    } catch (...) {
      // A failed rollback leaves the connection unusable; the original error matters more.
    }
  }
}

void Transaction::Commit() {
  connection_.Commit();
  done_ = true;
}

std::vector<int32_t> ParseIdList(std::string_view text, std::string_view what) {
  std::vector<int32_t> ids;
  if (Trim(text).empty()) return ids;
  size_t pos = 0;
  while (true) {
    size_t comma = text.find(',', pos);
    if (comma == std::string_view::npos) comma = text.size();
    const std::string piece = Trim(text.substr(pos, comma - pos));
    int64_t value = 0;
    const char* begin = piece.data();
    const char* end = piece.data() + piece.size();
    if (!piece.empty() && *begin == '+') ++begin;
    auto [ptr, ec] = std::from_chars(begin, end, value);
    if (piece.empty() || ec != std::errc() || ptr != end ||
        value < std::numeric_limits<int32_t>::min() ||
        value > std::numeric_limits<int32_t>::max()) {
      ThrowInvalid(std::string(what) + " \"" + std::string(text) +
                   "\" is not a comma-separated list of integer ids: \"" + piece +
                   "\" is not an id");
    }
    ids.push_back(static_cast<int32_t>(value));
    if (comma == text.size()) break;
    pos = comma + 1;
  }
  return ids;
}

namespace {

// Runs `sql` over the keys: `run(text, params)` once per statement.
template <class Key, class Run>
void InChunks(Connection& c, const std::vector<Key>& keys, std::string_view sql,
              const Params& leading, Run&& run) {
  if (keys.empty()) return;
  const Dialect& d = c.dialect();
  const std::string set = std::is_same_v<Key, std::string> ? d.TextSet() : d.IntSet();
  const size_t at = sql.find("%IDS%");
  if (at == std::string_view::npos) ThrowInvalid("QueryIn: the statement has no %IDS%");
  auto with = [&](std::string_view list) {
    std::string text(sql.substr(0, at));
    text += list;
    text += sql.substr(at + 5);
    return text;
  };
  if (!set.empty() && d.PrefersSets()) {
    Params params = leading;
    params.emplace_back(Json(keys).dump());
    run(with(set), params);
    return;
  }
  const size_t chunk = d.IdsPerStatement();
  for (size_t from = 0; from < keys.size(); from += chunk) {
    const size_t n = std::min(chunk, keys.size() - from);
    Params params = leading;
    for (size_t i = from; i < from + n; ++i) params.emplace_back(keys[i]);
    run(with(Placeholders(n)), params);
  }
}

}  // namespace

void QueryIn(Connection& c, const std::vector<int32_t>& keys, std::string_view sql,
             const RowSink& each, const Params& leading) {
  InChunks(c, keys, sql, leading,
           [&](const std::string& text, const Params& p) { c.QueryRows(text, p, each); });
}

void QueryIn(Connection& c, const std::vector<int32_t>& keys, std::string_view sql,
             const RowViewSink& each, const Params& leading) {
  InChunks(c, keys, sql, leading,
           [&](const std::string& text, const Params& p) { c.QueryView(text, p, each); });
}

void QueryIn(Connection& c, const std::vector<std::string>& keys, std::string_view sql,
             const RowSink& each, const Params& leading) {
  InChunks(c, keys, sql, leading,
           [&](const std::string& text, const Params& p) { c.QueryRows(text, p, each); });
}

void ExecuteIn(Connection& c, const std::vector<int32_t>& keys, std::string_view sql,
               const Params& leading) {
  InChunks(c, keys, sql, leading,
           [&](const std::string& text, const Params& p) { c.Execute(text, p); });
}

std::string JoinIds(const std::vector<int32_t>& ids) {
  std::string out;
  for (size_t i = 0; i < ids.size(); ++i) {
    if (i) out += ',';
    out += std::to_string(ids[i]);
  }
  return out;
}

const std::string& CheckIdentifier(const std::string& name, std::string_view what) {
  bool ok = !name.empty() && name.size() <= 128;
  for (size_t i = 0; ok && i < name.size(); ++i) {
    const char c = name[i];
    const bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
    const bool digit = c >= '0' && c <= '9';
    ok = letter || (digit && i > 0);
  }
  if (!ok) ThrowInvalid(std::string(what) + " \"" + name + "\" is not a valid SQL identifier");
  return name;
}

}  // namespace mrpcalc::db
