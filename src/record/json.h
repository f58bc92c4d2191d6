// The one JSON form of variants:
//   Empty, Null     -> null (the call's "resultType" tells them apart)
//   Boolean         -> true / false
//   Long, Double    -> number
//   String          -> string
//   Date            -> "YYYY-MM-DD HH:MM:SS"
//   Dictionary      -> object, keys in insertion order
//   Vector          -> array of objects
//   Record set      -> array of objects, every row from the first
// Reading JSON: integral numbers within 32 bits become Long, other numbers
// Double; strings stay strings (the caller turns them into Dates where a
// parameter is declared Date); arrays must hold objects only.
//
// Two ways in and out: ToJson/FromJson go through a JSON document (small
// values, tests); ReadJsonArguments and JsonWriter stream, for argument
// lists and results of any size. Both give the same values and, for the
// writer, the same text as ToJson(value).dump(2).
#pragma once

#include <deque>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "record/variant.h"

namespace mrpcalc {

using Json = nlohmann::ordered_json;

Json ToJson(const Variant& value);
Variant FromJson(const Json& json);

// JSON read from a caller nests at most this many arrays and objects: the
// argument lists, scripts and bodies of real calls take a handful, and
// every reader and writer of values stays within a small, fixed depth.
constexpr int kMaxJsonDepth = 64;

// A caller's JSON text as a document. Text that is not JSON, that is not
// valid UTF-8, that holds a number beyond a double's range or nests deeper
// than kMaxJsonDepth is refused as invalid input naming `what` ("the
// body", "--script").
Json ParseJsonText(std::string_view text, std::string_view what);

// An argument list: the elements of a top-level JSON array, each read as
// FromJson reads it, without building a document first.
struct JsonArguments {
  bool is_array = false;  // false: the text holds some other value, nothing read
  std::vector<Variant> values;
};
// Throws invalid input on malformed text (with the library's own message),
// invalid UTF-8, a number beyond a double or nesting beyond kMaxJsonDepth,
// before anything else is judged; then invalid input, as FromJson does, for
// an array nested in the list that holds anything but objects. A text of
// `split_from` bytes or more is read by two threads. A text followed by
// `room_after` >= kJsonReadRoom bytes that may be read (not written: a
// string's unused capacity) is read in place, else from a copy.
constexpr size_t kJsonReadRoom = 64;
constexpr size_t kJsonSplitFrom = 256 << 10;
JsonArguments ReadJsonArguments(std::string_view text, size_t split_from = kJsonSplitFrom,
                                size_t room_after = 0);

// Writes JSON text in the layout of Json::dump(2): two blanks per level,
// "key": value, empty containers as {} and []. Text goes to the sink in
// chunks as the buffer fills, so a result of any size is never held as text.
// Strings must be valid UTF-8: check a value with CheckJsonText before
// writing any of it, so that a bad string fails the whole answer rather
// than cutting it off half-way.
class JsonWriter {
 public:
  using Sink = std::function<void(std::string_view chunk)>;
  explicit JsonWriter(Sink sink, size_t buffer_bytes = 1 << 16);
  JsonWriter(const JsonWriter&) = delete;
  JsonWriter& operator=(const JsonWriter&) = delete;
  // Does not flush: call Flush() when the text is complete.
  ~JsonWriter() = default;

  // Text as it is, for the punctuation of an envelope the caller lays out.
  void Raw(std::string_view text);
  // A quoted, escaped string.
  void String(std::string_view text);
  // A value whose nested lines start `indent` blanks in, as dump(2) lays
  // out a value that stands at that depth.
  void Value(const Variant& value, int indent);
  // An array of strings, laid out the same way.
  void Strings(const std::vector<std::string>& values, int indent);
  void Flush();

 private:
  void Newline(int indent);
  void Long(int32_t value);
  void Double(double value);
  void Object(const Dictionary& row, int indent);
  template <class Element>
  void Array(size_t count, int indent, Element&& element);

  Sink sink_;
  std::string buffer_;
  size_t limit_;
  // Rows of one shape are laid out alike: their keys, each with the
  // punctuation and indentation before it, are rendered once. A few shapes
  // are kept (a report row, a filter holding rows of another shape...).
  struct Shape {
    KeyList keys;  // held, so that its address is not reused
    int indent;
    std::vector<std::string> prefixes;
  };
  const Shape* ShapeOf(const KeyList& keys, int indent);
  // The text around a source's values, put together once: a row's opening
  // (after a comma) and closing, and before each value its key, or the key
  // and a null.
  struct SourceLayout {
    SourceLayout(const KeyList& keys, int indent);
    std::string open, close;
    std::vector<std::string> before, null;
  };
  void SourceRows(const RowSource& source, int indent);
  void SourceRowRange(const RowSource& source, const SourceLayout& layout, size_t from, size_t to);
  std::deque<Shape> shapes_;
};

// Throws the error Json::dump throws (type_error 316) when a string of the
// value, a key or column name included, is not valid UTF-8.
void CheckJsonText(const Variant& value);
void CheckJsonString(std::string_view text);

}  // namespace mrpcalc
