// How the HTTP service answers.
#include "http/answers.h"

#include <cstdio>

#include "frame/answer.h"

namespace mrpcalc::http {

thread_local int32_t request_user = 0;
thread_local bool request_takes_gzip = false;

void Answer(httplib::Response& res, int status, const std::string& body) {
  AnswerBuffer out(body.size() >= kGzipFrom);
  out.Append(body);
  out.Send(res, status);
}

void DemandLineValues(JsonWriter& w, const mrp::DemandLine& d) {
  w.Value(Variant(d.tran_type), 0);
  w.Raw(",");
  w.String(d.bill_no);
  for (int32_t v : {d.inter_id, d.entry_id, d.item_id}) {
    w.Raw(",");
    w.Value(Variant(v), 0);
  }
}

namespace {

// Cells of rows made as they are written, each written as it comes.
class CompactCells final : public CellVisitor {
 public:
  explicit CompactCells(JsonWriter& w) : w_(w) {}
  void Start() { first_ = true; }
  void Null() override { Next(Variant::Null()); }
  void Long(int32_t value) override { Next(Variant(value)); }
  void Double(double value) override { Next(Variant(value)); }
  void Text(std::string_view value) override {
    Separate();
    w_.String(value);
  }
  void DateValue(const Date& value) override { Next(Variant(value)); }

 private:
  void Separate() {
    if (!first_) w_.Raw(",");
    first_ = false;
  }
  void Next(const Variant& v) {
    Separate();
    w_.Value(v, 0);
  }
  JsonWriter& w_;
  bool first_ = true;
};

}  // namespace

// Rows of one shape as arrays of their values, the names once ahead,
// without blanks.
void CompactRows(JsonWriter& w, const VectorPtr& rows) {
  if (const RowSource* source = rows ? rows->source() : nullptr) {
    // Rows not built yet are written from their source, never built.
    w.Raw("{\"columns\":[");
    const KeyList& keys = source->keys();
    for (size_t k = 0; keys && k < keys->size(); ++k) {
      if (k) w.Raw(",");
      w.String((*keys)[k]);
    }
    w.Raw("],\"rows\":[");
    CompactCells cells(w);
    for (size_t i = 0; i < source->size(); ++i) {
      w.Raw(i ? ",[" : "[");
      cells.Start();
      source->Visit(i, cells);
      w.Raw("]");
    }
    w.Raw("]}");
    return;
  }
  w.Raw("{\"columns\":[");
  const auto& list = rows ? rows->rows() : std::vector<DictionaryPtr>{};
  if (!list.empty()) {
    for (size_t k = 0; k < list[0]->size(); ++k) {
      if (k) w.Raw(",");
      w.String(list[0]->key(k));
    }
  }
  w.Raw("],\"rows\":[");
  for (size_t i = 0; i < list.size(); ++i) {
    w.Raw(i ? ",[" : "[");
    for (size_t k = 0; k < list[i]->size(); ++k) {
      if (k) w.Raw(",");
      w.Value(list[i]->value(k), 0);
    }
    w.Raw("]");
  }
  w.Raw("]}");
}

void Refuse(httplib::Response& res, int status, const std::string& why) {
  Answer(res, status, ErrorAnswerText(-status, why));
}

// The one table from an error's category to the answer's status. Database
// and internal failures are the service's business: their text goes to
// the log, the caller learns only that the service failed.
int StatusOf(ErrorCategory category) {
  switch (category) {
    case ErrorCategory::kInvalidInput: return 422;
    case ErrorCategory::kNotFound: return 404;
    case ErrorCategory::kRefused: return 403;
    case ErrorCategory::kNotImplemented: return 501;
    case ErrorCategory::kDatabase:
    case ErrorCategory::kInternal: return 500;
  }
  return 500;
}

std::string ErrorAnswerFor(const Error& e, int indent) {
  if (StatusOf(e.category()) < 500) return ErrorAnswerText(e.number(), e.what(), indent);
  std::fprintf(stderr, "%s error (%s): %s%s%s\n", Date::Now().ToString().c_str(),
               CategoryName(e.category()), e.what(), e.context().empty() ? "" : "\n",
               e.context().c_str());
  return ErrorAnswerText(e.number(), "the service failed; its log says why", indent);
}

void AnswerError(httplib::Response& res, const Error& e) {
  Answer(res, StatusOf(e.category()), ErrorAnswerFor(e));
}

bool ParseBody(const httplib::Request& req, httplib::Response& res, Json& body) {
  try {
    body = ParseJsonText(req.body, "the body");
    return true;
  } catch (const Error& e) {
    Refuse(res, 400, e.what());
    return false;
  }
}

}  // namespace mrpcalc::http
