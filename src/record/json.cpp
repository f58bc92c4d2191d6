// Variant <-> JSON: through a document, or streamed.
#include "record/json.h"

#include <charconv>
#include <condition_variable>
#include <cstring>
#include <future>
#include <mutex>
#include <thread>
// The fast parser's header trips GCC's may-be-uninitialized analysis in
// its own inline code; the warning says nothing about ours.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <simdjson.h>
#pragma GCC diagnostic pop
#include <cmath>
#include <limits>
#include <utility>

#include "record/error.h"
#include "record/recordset.h"

namespace mrpcalc {

Json ToJson(const Variant& value) {
  switch (value.type()) {
    case VariantType::kEmpty:
    case VariantType::kNull:
      return nullptr;
    case VariantType::kBoolean:
      return *value.AsBoolean();
    case VariantType::kLong:
      return *value.AsLong();
    case VariantType::kDouble: {
      const double d = *value.AsDouble();
      if (!std::isfinite(d)) return nullptr;
      return d;
    }
    case VariantType::kString:
      return *value.AsString();
    case VariantType::kDate:
      return value.AsDate()->ToString();
    case VariantType::kDictionary: {
      Json out = Json::object();
      const auto& d = *value.AsDictionary();
      for (size_t i = 0; i < d.size(); ++i) out[d.key(i)] = ToJson(d.value(i));
      return out;
    }
    case VariantType::kVector: {
      Json out = Json::array();
      for (const auto& row : value.AsVector()->rows()) out.push_back(ToJson(Variant(row)));
      return out;
    }
    case VariantType::kObject: {
      Json out = Json::array();
      if (auto rs = std::dynamic_pointer_cast<RecordSet>(value.AsObject())) {
        for (const auto& row : rs->rows()) {
          Json obj = Json::object();
          for (size_t i = 0; i < rs->columns().size(); ++i) obj[rs->columns()[i]] = ToJson(row[i]);
          out.push_back(std::move(obj));
        }
      }
      return out;
    }
  }
  return nullptr;
}

Variant FromJson(const Json& json) {
  switch (json.type()) {
    case Json::value_t::null:
      return Variant::Null();
    case Json::value_t::boolean:
      return Variant(json.get<bool>());
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned: {
      if (json.is_number_unsigned() &&
          json.get<uint64_t>() > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
        return Variant(json.get<double>());
      }
      return Variant::FromInt64(json.get<int64_t>());
    }
    case Json::value_t::number_float: {
      const double d = json.get<double>();
      if (std::trunc(d) == d && d >= std::numeric_limits<int32_t>::min() &&
          d <= std::numeric_limits<int32_t>::max()) {
        return Variant(static_cast<int32_t>(d));
      }
      return Variant(d);
    }
    case Json::value_t::string:
      return Variant(json.get<std::string>());
    case Json::value_t::object: {
      auto dict = Dictionary::Create();
      for (auto it = json.begin(); it != json.end(); ++it)
        dict->Set(it.key(), FromJson(it.value()));
      return Variant(dict);
    }
    case Json::value_t::array: {
      auto vec = Vector::Create();
      for (const auto& element : json) {
        if (!element.is_object()) {
          ThrowInvalid("a JSON array stands for a Vector of rows and may hold objects only");
        }
        vec->Add(FromJson(element).AsDictionary());
      }
      return Variant(vec);
    }
    default:
      ThrowInvalid("unsupported JSON value");
  }
}

namespace {

constexpr const char* kNotRows =
    "a JSON array stands for a Vector of rows and may hold objects only";

Variant FromJsonFloat(double d) {
  if (std::trunc(d) == d && d >= std::numeric_limits<int32_t>::min() &&
      d <= std::numeric_limits<int32_t>::max()) {
    return Variant(static_cast<int32_t>(d));
  }
  return Variant(d);
}

// Builds variants from the parser's events. Values are made as FromJson
// makes them from the document the same text would give: a key repeated in
// one object keeps its first place and its last value, then the members
// become a Dictionary in order. Errors of meaning are kept until the whole
// text has parsed, so that a syntax error anywhere is what is reported, as
// when the document is built first.
bool IsValidUtf8(std::string_view s);

[[noreturn]] void TooDeep(std::string_view what) {
  ThrowInvalid(std::string(what) + ": arrays and objects nested more than " +
               std::to_string(kMaxJsonDepth) + " levels deep");
}

// The library's message about a caller's text, safe to put in an answer:
// bytes that are not UTF-8 (the library quotes what it last read) shown
// as "?", control characters as blanks.
std::string MessageOf(const Json::exception& e) {
  std::string text = e.what();
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < 0x20) c = ' ';
  }
  if (!IsValidUtf8(text)) {
    for (char& c : text) {
      if (static_cast<unsigned char>(c) >= 0x80) c = '?';
    }
  }
  return text;
}

class ArgumentReader {
 public:
  explicit ArgumentReader(JsonArguments& out) : out_(out) {}

  bool null() { return Done(Variant::Null()); }
  bool boolean(bool b) { return Done(Variant(b)); }
  bool number_integer(int64_t v) { return Done(Variant::FromInt64(v)); }
  bool number_unsigned(uint64_t v) {
    if (v > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
      return Done(Variant(static_cast<double>(v)));
    }
    return Done(Variant::FromInt64(static_cast<int64_t>(v)));
  }
  bool number_float(double v, const std::string& text) {
    if (!std::isfinite(v)) ThrowInvalid("the number " + text + " is beyond a double's range");
    return Done(FromJsonFloat(v));
  }
  bool string(std::string& v) { return Done(Variant(std::move(v))); }
  bool binary(Json::binary_t&) { return Unsupported(); }

  bool start_object(std::size_t) {
    Push(Frame::kObject);
    return true;
  }
  bool key(std::string& k) {
    Top().key = std::move(k);
    return true;
  }
  bool end_object() {
    Frame& frame = frames_[--depth_];
    DictionaryPtr row = MakeRow(frame);
    frame.members.clear();  // its room serves the next object at this depth
    return Done(Variant(std::move(row)));
  }
  bool start_array(std::size_t) {
    if (depth_ == 0) {
      out_.is_array = true;
      Push(Frame::kList);
    } else {
      Push(Frame::kRows).rows = Vector::Create();
    }
    return true;
  }
  bool end_array() {
    Frame& frame = frames_[--depth_];
    if (frame.kind == Frame::kList) return true;
    return Done(Variant(std::move(frame.rows)));
  }

  template <class Exception>
  bool parse_error(std::size_t, const std::string&, const Exception& ex) {
    throw ex;
  }

  void Finish() {
    if (!out_.is_array) {
      out_.values.clear();
      return;
    }
    if (!error_.empty()) ThrowInvalid(error_);
  }
  const std::string& error() const { return error_; }

 private:
  struct Frame {
    enum Kind { kList, kRows, kObject } kind = kList;
    VectorPtr rows;                                        // kRows
    std::vector<std::pair<std::string, Variant>> members;  // kObject
    std::string key;                                       // kObject: the member being read
    KeyList shape;  // kRows: the keys of the last row, shared by rows alike
  };

  bool Unsupported() {
    if (error_.empty()) error_ = "unsupported JSON value";
    return Done(Variant());
  }

  bool Done(Variant value) {
    if (depth_ == 0) return true;  // a lone value, not an argument list
    Frame& parent = Top();
    switch (parent.kind) {
      case Frame::kList:
        out_.values.push_back(std::move(value));
        break;
      case Frame::kRows:
        if (value.type() != VariantType::kDictionary) {
          if (error_.empty()) error_ = kNotRows;
        } else {
          parent.rows->Add(value.AsDictionary());
        }
        break;
      case Frame::kObject: {
        for (auto& [name, slot] : parent.members) {
          if (name == parent.key) {
            slot = std::move(value);
            return true;
          }
        }
        parent.members.emplace_back(std::move(parent.key), std::move(value));
        break;
      }
    }
    return true;
  }

  // Rows of one shape (the common case: every row of a list has the same
  // keys) share one key list; anything else goes through Set.
  DictionaryPtr MakeRow(Frame& object) {
    Frame* rows = depth_ == 0 || Top().kind != Frame::kRows ? nullptr : &Top();
    auto& members = object.members;
    if (rows && rows->shape && rows->shape->size() == members.size()) {
      bool same = true;
      for (size_t i = 0; i < members.size() && same; ++i)
        same = (*rows->shape)[i] == members[i].first;
      if (same) return Fill(Dictionary::Create(rows->shape), members);
    }
    auto row = Dictionary::Create();
    for (auto& [name, value] : members) row->Set(name, std::move(value));
    if (rows && row->size() == members.size()) {
      std::vector<std::string> keys;
      keys.reserve(members.size());
      for (size_t i = 0; i < row->size(); ++i) keys.push_back(row->key(i));
      rows->shape = MakeKeyList(std::move(keys));
      auto shared = Dictionary::Create(rows->shape);
      for (size_t i = 0; i < row->size(); ++i) shared->SetAt(i, row->value(i));
      return shared;
    }
    return row;
  }

  static DictionaryPtr Fill(DictionaryPtr row,
                            std::vector<std::pair<std::string, Variant>>& members) {
    for (size_t i = 0; i < members.size(); ++i) row->SetAt(i, std::move(members[i].second));
    return row;
  }

  JsonArguments& out_;
  // Open containers, frames_[0 .. depth_); the frames above stay for reuse.
  Frame& Top() { return frames_[depth_ - 1]; }
  Frame& Push(Frame::Kind kind) {
    if (depth_ >= static_cast<size_t>(kMaxJsonDepth)) TooDeep("the arguments");
    if (depth_ == frames_.size()) frames_.emplace_back();
    Frame& f = frames_[depth_++];
    f.kind = kind;
    f.rows.reset();
    f.members.clear();
    f.key.clear();
    f.shape.reset();
    return f;
  }
  std::vector<Frame> frames_;
  size_t depth_ = 0;
  std::string error_;  // the first error of meaning, reported after parsing
};

// Valid UTF-8 as the JSON library checks it: no overlong forms, no
// surrogates, nothing past U+10FFFF, no sequence cut short.
bool IsValidUtf8(std::string_view s) {
  const auto* p = reinterpret_cast<const unsigned char*>(s.data());
  const size_t n = s.size();
  size_t i = 0;
  // Most texts are ASCII: eight bytes at a time while no high bit is set.
  for (uint64_t word; i + 8 <= n; i += 8) {
    std::memcpy(&word, p + i, 8);
    if (word & 0x8080808080808080ULL) break;
  }
  while (i < n) {
    const unsigned char c = p[i];
    if (c < 0x80) {
      ++i;
      continue;
    }
    size_t len = 0;
    unsigned char lo = 0x80, hi = 0xBF;  // range of the second byte
    if (c >= 0xC2 && c <= 0xDF) {
      len = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
      len = 3;
      if (c == 0xE0) lo = 0xA0;
      if (c == 0xED) hi = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      len = 4;
      if (c == 0xF0) lo = 0x90;
      if (c == 0xF4) hi = 0x8F;
    } else {
      return false;
    }
    if (i + len > n || p[i + 1] < lo || p[i + 1] > hi) return false;
    for (size_t k = 2; k < len; ++k) {
      if ((p[i + k] & 0xC0) != 0x80) return false;
    }
    i += len;
  }
  return true;
}

// A record set's row as ToJson builds it: a column name given twice is one
// member, at its first place, with the value of its last column.
std::vector<std::pair<const std::string*, size_t>> DistinctColumns(const RecordSet& rs) {
  std::vector<std::pair<const std::string*, size_t>> out;
  for (size_t i = 0; i < rs.columns().size(); ++i) {
    bool seen = false;
    for (auto& [name, index] : out) {
      if (*name == rs.columns()[i]) {
        index = i;
        seen = true;
      }
    }
    if (!seen) out.emplace_back(&rs.columns()[i], i);
  }
  return out;
}

// Hands a document of the fast parser to the reader, event by event, as
// the library's parser would have.
void Walk(simdjson::dom::element e, ArgumentReader& reader) {
  using T = simdjson::dom::element_type;
  switch (e.type()) {
    case T::ARRAY: {
      reader.start_array(0);
      const simdjson::dom::array items = e.get_array().value_unsafe();
      for (simdjson::dom::element item : items) Walk(item, reader);
      reader.end_array();
      return;
    }
    case T::OBJECT: {
      reader.start_object(0);
      const simdjson::dom::object members = e.get_object().value_unsafe();
      for (simdjson::dom::key_value_pair member : members) {
        std::string key(member.key);
        reader.key(key);
        Walk(member.value, reader);
      }
      reader.end_object();
      return;
    }
    case T::INT64:
      reader.number_integer(e.get_int64().value_unsafe());
      return;
    case T::UINT64:
      reader.number_unsigned(e.get_uint64().value_unsafe());
      return;
    case T::DOUBLE: {
      static const std::string unused;
      reader.number_float(e.get_double().value_unsafe(), unused);
      return;
    }
    case T::STRING: {
      std::string text(e.get_string().value_unsafe());
      reader.string(text);
      return;
    }
    case T::BOOL:
      reader.boolean(e.get_bool().value_unsafe());
      return;
    case T::NULL_VALUE:
      reader.null();
      return;
  }
}

}  // namespace

// The list's arguments in three parts, the second (a report's filter, as
// large as its lines) read by a helper thread: the values in their order,
// then the first error of meaning in the arguments' order.
JsonArguments WalkInParts(simdjson::dom::array list) {
  std::vector<simdjson::dom::element> items(list.begin(), list.end());
  JsonArguments parts[3];
  std::string errors[3];
  auto walk = [&](size_t part, size_t from, size_t to) {
    ArgumentReader reader(parts[part]);
    reader.start_array(0);
    for (size_t i = from; i < to; ++i) Walk(items[i], reader);
    reader.end_array();
    errors[part] = reader.error();
  };
  auto helper = std::async(std::launch::async, [&] { walk(1, 1, 2); });
  walk(0, 0, 1);
  walk(2, 2, items.size());
  helper.get();
  JsonArguments out;
  out.is_array = true;
  for (auto& part : parts) {
    for (auto& v : part.values) out.values.push_back(std::move(v));
  }
  for (const auto& e : errors) {
    if (!e.empty()) ThrowInvalid(e);
  }
  return out;
}

static_assert(kJsonReadRoom >= simdjson::SIMDJSON_PADDING);

JsonArguments ReadJsonArguments(std::string_view text, size_t split_from, size_t room_after) {
  // The fast parser reads what it accepts; it accepts only valid JSON, and
  // refuses some valid texts too (a byte order mark, integers beyond 64
  // bits, exponents beyond a double). Whatever it refuses goes to the
  // library's parser, which reads it or reports it in its own words.
  {
    simdjson::dom::parser parser;
    simdjson::padded_string padded;
    if (room_after < kJsonReadRoom) padded = simdjson::padded_string(text);
    const std::string_view read = room_after < kJsonReadRoom ? std::string_view(padded) : text;
    simdjson::dom::element root;
    if (parser.parse(read.data(), read.size(), false).get(root) == simdjson::SUCCESS) {
      simdjson::dom::array list;
      if (text.size() >= split_from && root.get_array().get(list) == simdjson::SUCCESS &&
          list.size() >= 2) {
        return WalkInParts(list);
      }
      JsonArguments out;
      ArgumentReader reader(out);
      Walk(root, reader);
      reader.Finish();
      return out;
    }
  }
  JsonArguments out;
  ArgumentReader reader(out);
  try {
    Json::sax_parse(text, &reader);
  } catch (const Json::exception& e) {
    ThrowInvalid("the arguments are not valid JSON: " + MessageOf(e));
  }
  reader.Finish();
  return out;
}

Json ParseJsonText(std::string_view text, std::string_view what) {
  // The library reads nested values with a stack of its own; the callback
  // stops a text that goes deeper than the limit as soon as it opens one
  // level too many.
  const auto limit = [&](int depth, Json::parse_event_t event, Json&) {
    if ((event == Json::parse_event_t::object_start ||
         event == Json::parse_event_t::array_start) &&
        depth >= kMaxJsonDepth) {
      TooDeep(what);
    }
    return true;
  };
  try {
    return Json::parse(text, limit);
  } catch (const Json::exception& e) {
    ThrowInvalid(std::string(what) + " is not valid JSON: " + MessageOf(e));
  }
}

void CheckJsonString(std::string_view text) {
  if (!IsValidUtf8(text)) {
    // The library's own error, with its own wording.
    static_cast<void>(Json(std::string(text)).dump());
  }
}

namespace {

void CheckRow(const Dictionary& row, KeyList& checked_keys);

void CheckSource(const RowSource& source, KeyList& checked_keys);
void CheckValue(const Variant& value, KeyList& checked_keys) {
  switch (value.type()) {
    case VariantType::kString:
      CheckJsonString(*value.AsString());
      break;
    case VariantType::kDictionary:
      if (const auto& d = value.AsDictionaryRef()) CheckRow(*d, checked_keys);
      break;
    case VariantType::kVector:
      if (const RowSource* source = value.AsVectorRef()->source()) {
        CheckSource(*source, checked_keys);
        break;
      }
      for (const auto& row : value.AsVectorRef()->rows()) {
        if (row) CheckRow(*row, checked_keys);
      }
      break;
    case VariantType::kObject:
      if (auto rs = std::dynamic_pointer_cast<RecordSet>(value.AsObject())) {
        for (const auto& c : rs->columns()) CheckJsonString(c);
        for (const auto& row : rs->rows()) {
          for (const auto& v : row) CheckValue(v, checked_keys);
        }
      }
      break;
    default:
      break;
  }
}

// Rows of one shape share their keys: those are checked once.
void CheckRow(const Dictionary& row, KeyList& checked_keys) {
  if (!row.keys() || row.keys() != checked_keys) {
    for (size_t i = 0; i < row.size(); ++i) CheckJsonString(row.key(i));
    checked_keys = row.keys();
  }
  for (size_t i = 0; i < row.size(); ++i) CheckValue(row.value(i), checked_keys);
}

void CheckSource(const RowSource& source, KeyList& checked_keys) {
  const KeyList& keys = source.keys();
  if (!keys || source.size() == 0) return;
  if (keys != checked_keys) {
    for (const auto& k : *keys) CheckJsonString(k);
    checked_keys = keys;
  }
  struct Texts final : CellVisitor {
    void Null() override {}
    void Long(int32_t) override {}
    void Double(double) override {}
    void Text(std::string_view v) override { CheckJsonString(v); }
    void DateValue(const Date&) override {}
  } texts;
  for (size_t r = 0; r < source.size(); ++r) source.Visit(r, texts);
}

}  // namespace

void CheckJsonText(const Variant& value) {
  KeyList checked_keys;
  CheckValue(value, checked_keys);
}

JsonWriter::JsonWriter(Sink sink, size_t buffer_bytes)
    : sink_(std::move(sink)), limit_(buffer_bytes) {
  buffer_.reserve(limit_ + 256);
}

void JsonWriter::Flush() {
  if (buffer_.empty()) return;
  sink_(buffer_);
  buffer_.clear();
}

void JsonWriter::Raw(std::string_view text) {
  buffer_.append(text);
  if (buffer_.size() >= limit_) Flush();
}

void JsonWriter::Newline(int indent) {
  buffer_.push_back('\n');
  buffer_.append(static_cast<size_t>(indent), ' ');
}

namespace {

// Escapes as the library does without ensure_ascii: the quote, the
// backslash and control characters; everything else as it is.
// True when one of the eight bytes of `word` is a control character, a
// quote or a backslash.
inline bool NeedsEscape(uint64_t word) {
  constexpr uint64_t kOnes = 0x0101010101010101ULL, kHigh = 0x8080808080808080ULL;
  auto zero_byte = [&](uint64_t x) { return (x - kOnes) & ~x & kHigh; };
  const uint64_t control = (word - kOnes * 0x20) & ~word & kHigh;  // a byte below 0x20
  return (control | zero_byte(word ^ (kOnes * '"')) | zero_byte(word ^ (kOnes * '\\'))) != 0;
}

void AppendQuoted(std::string& out, std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  // Most texts need no escape: checked eight bytes at a time, then copied
  // in one piece.
  size_t clean = 0;
  for (uint64_t word; clean + 8 <= text.size(); clean += 8) {
    std::memcpy(&word, text.data() + clean, 8);
    if (NeedsEscape(word)) break;
  }
  while (clean < text.size()) {
    const auto c = static_cast<unsigned char>(text[clean]);
    if (c < 0x20 || c == '"' || c == '\\') break;
    ++clean;
  }
  if (clean == text.size()) {
    const size_t at = out.size();
    out.resize(at + text.size() + 2);
    char* p = out.data() + at;
    p[0] = '"';
    std::memcpy(p + 1, text.data(), text.size());
    p[text.size() + 1] = '"';
    return;
  }
  out.push_back('"');
  size_t run = 0;  // start of the characters not yet copied
  for (size_t i = clean; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c >= 0x20 && c != '"' && c != '\\') continue;
    out.append(text.substr(run, i - run));
    run = i + 1;
    switch (c) {
      case '"':
        out.append("\\\"");
        break;
      case '\\':
        out.append("\\\\");
        break;
      case '\b':
        out.append("\\b");
        break;
      case '\f':
        out.append("\\f");
        break;
      case '\n':
        out.append("\\n");
        break;
      case '\r':
        out.append("\\r");
        break;
      case '\t':
        out.append("\\t");
        break;
      default: {
        const char escaped[] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 15]};
        out.append(escaped, sizeof escaped);
      }
    }
  }
  out.append(text.substr(run));
  out.push_back('"');
}

}  // namespace

void JsonWriter::String(std::string_view text) {
  AppendQuoted(buffer_, text);
  if (buffer_.size() >= limit_) Flush();
}

void JsonWriter::Double(double value) {
  if (!std::isfinite(value)) {
    Raw("null");
    return;
  }
  // A whole number below 10^15 prints as its digits and ".0" in the
  // library's form too; quantities mostly are whole.
  if (std::fabs(value) < 1e15 && value == std::trunc(value) && !std::signbit(value)) {
    char digits[24];
    char* end = std::to_chars(digits, digits + sizeof digits, static_cast<int64_t>(value)).ptr;
    *end++ = '.';
    *end++ = '0';
    Raw(std::string_view(digits, static_cast<size_t>(end - digits)));
    return;
  }
  // The library's own shortest form (a whole number gets ".0").
  char digits[64];
  char* end = nlohmann::detail::to_chars(digits, digits + sizeof digits, value);
  Raw(std::string_view(digits, static_cast<size_t>(end - digits)));
}

const JsonWriter::Shape* JsonWriter::ShapeOf(const KeyList& keys, int indent) {
  constexpr size_t kShapes = 16;
  for (const Shape& s : shapes_) {
    if (s.keys == keys && s.indent == indent) return &s;
  }
  // Only key lists that rows share are worth rendering ahead.
  if (shapes_.size() >= kShapes || keys.use_count() < 2) return nullptr;
  Shape& shape = shapes_.emplace_back(Shape{keys, indent, {}});
  for (size_t i = 0; i < keys->size(); ++i) {
    std::string prefix = i ? ",\n" : "\n";
    prefix.append(static_cast<size_t>(indent + 2), ' ');
    AppendQuoted(prefix, (*keys)[i]);
    prefix.append(": ");
    shape.prefixes.push_back(std::move(prefix));
  }
  return &shape;
}

void JsonWriter::Object(const Dictionary& row, int indent) {
  if (row.empty()) {
    Raw("{}");
    return;
  }
  buffer_.push_back('{');
  if (const Shape* shape = ShapeOf(row.keys(), indent)) {
    for (size_t i = 0; i < row.size(); ++i) {
      buffer_.append(shape->prefixes[i]);
      Value(row.value(i), indent + 2);
    }
  } else {
    for (size_t i = 0; i < row.size(); ++i) {
      if (i) buffer_.push_back(',');
      Newline(indent + 2);
      AppendQuoted(buffer_, row.key(i));
      buffer_.append(": ");
      Value(row.value(i), indent + 2);
    }
  }
  Newline(indent);
  Raw("}");
}

JsonWriter::SourceLayout::SourceLayout(const KeyList& keys, int indent) {
  const size_t width = keys ? keys->size() : 0;
  const std::string pad(static_cast<size_t>(indent + 2), ' ');
  open = ",\n" + pad + (width ? "{" : "{}");
  close = width ? "\n" + pad + "}" : "";
  before.resize(width);
  null.resize(width);
  for (size_t i = 0; i < width; ++i) {
    before[i] = i ? ",\n" : "\n";
    before[i].append(pad).append("  ");
    AppendQuoted(before[i], (*keys)[i]);
    before[i].append(": ");
    null[i] = before[i] + "null";
  }
}

// Rows [from, to) of a source as Array and Object lay them out: each after
// "," (but the first of all) and a new line, then its keys and values, each
// value written as Value writes the Variant a Dictionary row would hold.
void JsonWriter::SourceRowRange(const RowSource& source, const SourceLayout& layout, size_t from,
                                size_t to) {
  const std::vector<std::string>& before = layout.before;
  const std::vector<std::string>& null = layout.null;
  const size_t width = before.size();
  const std::string& open = layout.open;
  const std::string& close = layout.close;
  struct Cells final : CellVisitor {
    JsonWriter& out;
    const std::vector<std::string>& before;
    const std::vector<std::string>& null;
    size_t at = 0;
    Cells(JsonWriter& o, const std::vector<std::string>& b, const std::vector<std::string>& n)
        : out(o), before(b), null(n) {}
    void Null() override { out.buffer_.append(null[at++]); }
    void Long(int32_t v) override {
      char text[64];
      const std::string& key = before[at++];
      if (key.size() > sizeof text - 16) {
        out.buffer_.append(key);
        out.Long(v);
        return;
      }
      std::memcpy(text, key.data(), key.size());
      char* end = std::to_chars(text + key.size(), text + sizeof text, v).ptr;
      out.buffer_.append(text, static_cast<size_t>(end - text));
    }
    void Double(double v) override {
      out.buffer_.append(before[at++]);
      out.Double(v);
    }
    void Text(std::string_view v) override {
      out.buffer_.append(before[at++]);
      AppendQuoted(out.buffer_, v);
    }
    void DateValue(const Date& v) override {
      out.buffer_.append(before[at++]);
      AppendQuoted(out.buffer_, v.ToString());
    }
  } cells(*this, before, null);
  for (size_t r = from; r < to; ++r) {
    // The first row of all has no comma before it.
    buffer_.append(r ? std::string_view(open) : std::string_view(open).substr(1));
    if (width) {
      cells.at = 0;
      source.Visit(r, cells);
      buffer_.append(close);
    }
    if (buffer_.size() >= limit_) Flush();
  }
}

// A large source is laid out by two threads: a helper renders every other
// block of rows into text of its own, a few blocks ahead at most, while
// this writer renders the blocks between and hands both to the sink in
// order.
void JsonWriter::SourceRows(const RowSource& source, int indent) {
  constexpr size_t kBlock = 256;  // rows
  constexpr size_t kRowsForTwo = 4 * kBlock;
  constexpr size_t kAhead = 4;  // blocks the helper may hold
  const size_t n = source.size();
  if (n == 0) {
    Raw("[]");
    return;
  }
  buffer_.push_back('[');
  const SourceLayout layout(source.keys(), indent);  // shared by both threads, read only
  if (n < kRowsForTwo) {
    SourceRowRange(source, layout, 0, n);
  } else {
    const size_t blocks = (n + kBlock - 1) / kBlock;
    std::vector<std::string> text(blocks);
    std::mutex mutex;
    std::condition_variable_any changed;
    size_t rendered = 0;  // blocks below this the helper has finished
    size_t written = 0;   // blocks below this this writer has finished
    std::exception_ptr error;
    std::jthread helper([&](std::stop_token stop) {
      try {
        for (size_t b = 1; b < blocks; b += 2) {
          {
            std::unique_lock lock(mutex);
            if (!changed.wait(lock, stop, [&] { return b < written + 2 * kAhead; })) return;
          }
          std::string out;
          JsonWriter part([&](std::string_view chunk) { out.append(chunk); }, 1 << 20);
          part.SourceRowRange(source, layout, b * kBlock, std::min(n, (b + 1) * kBlock));
          if (out.empty()) {
            out = std::move(part.buffer_);
          } else {
            part.Flush();
          }
          std::lock_guard lock(mutex);
          text[b] = std::move(out);
          rendered = b + 1;
          changed.notify_all();
        }
      } catch (...) {
        std::lock_guard lock(mutex);
        error = std::current_exception();
        rendered = blocks;
        changed.notify_all();
      }
    });
    for (size_t b = 0; b < blocks; ++b) {
      if (b % 2 == 0) {
        SourceRowRange(source, layout, b * kBlock, std::min(n, (b + 1) * kBlock));
      } else {
        std::string block;
        {
          std::unique_lock lock(mutex);
          changed.wait(lock, [&] { return rendered > b; });
          if (error) std::rethrow_exception(error);
          block = std::move(text[b]);
        }
        Flush();
        sink_(block);
      }
      std::lock_guard lock(mutex);
      written = b + 1;
      changed.notify_all();
    }
  }
  Newline(indent);
  Raw("]");
}

void JsonWriter::Long(int32_t value) {
  char digits[16];
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  Raw(std::string_view(digits, static_cast<size_t>(end - digits)));
}

void JsonWriter::Value(const Variant& value, int indent) {
  switch (value.type()) {
    case VariantType::kEmpty:
    case VariantType::kNull:
      Raw("null");
      return;
    case VariantType::kBoolean:
      Raw(*value.AsBoolean() ? "true" : "false");
      return;
    case VariantType::kLong:
      Long(*value.AsLong());
      return;
    case VariantType::kDouble:
      Double(*value.AsDouble());
      return;
    case VariantType::kString:
      String(*value.AsString());
      return;
    case VariantType::kDate:
      String(value.AsDate()->ToString());
      return;
    case VariantType::kDictionary: {
      const auto& row = value.AsDictionaryRef();
      Object(row ? *row : Dictionary(), indent);
      return;
    }
    case VariantType::kVector: {
      if (const RowSource* source = value.AsVectorRef()->source()) {
        SourceRows(*source, indent);
        return;
      }
      const auto& rows = value.AsVectorRef()->rows();
      Array(rows.size(), indent,
            [&](size_t i) { Object(rows[i] ? *rows[i] : Dictionary(), indent + 2); });
      return;
    }
    case VariantType::kObject: {
      auto rs = std::dynamic_pointer_cast<RecordSet>(value.AsObject());
      if (!rs) {
        Raw("[]");
        return;
      }
      const auto columns = DistinctColumns(*rs);
      Array(rs->rows().size(), indent, [&](size_t r) {
        if (columns.empty()) {
          Raw("{}");
          return;
        }
        buffer_.push_back('{');
        for (size_t i = 0; i < columns.size(); ++i) {
          if (i) buffer_.push_back(',');
          Newline(indent + 4);
          String(*columns[i].first);
          buffer_.append(": ");
          Value(rs->rows()[r][columns[i].second], indent + 4);
        }
        Newline(indent + 2);
        Raw("}");
      });
      return;
    }
  }
}

// [] when empty; else one element a line, two blanks in from `indent`.
template <class Element>
void JsonWriter::Array(size_t count, int indent, Element&& element) {
  if (count == 0) {
    Raw("[]");
    return;
  }
  buffer_.push_back('[');
  for (size_t i = 0; i < count; ++i) {
    if (i) buffer_.push_back(',');
    Newline(indent + 2);
    element(i);
  }
  Newline(indent);
  Raw("]");
}

void JsonWriter::Strings(const std::vector<std::string>& values, int indent) {
  Array(values.size(), indent, [&](size_t i) { String(values[i]); });
}

}  // namespace mrpcalc
