// The variant value that crosses every public interface, and the two
// collection types built on it: the keyed Dictionary row and the 1-based
// Vector of rows. Dictionaries and Vectors are reference types, as in the
// ERP host: copying a Variant copies the reference, not the rows.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "record/date.h"

namespace mrpcalc {

class Dictionary;
class Vector;
class Object;
using DictionaryPtr = std::shared_ptr<Dictionary>;
using VectorPtr = std::shared_ptr<Vector>;
using ObjectPtr = std::shared_ptr<Object>;

enum class VariantType {
  kEmpty,  // never assigned (an omitted optional argument, a missing key)
  kNull,   // a database NULL
  kBoolean,
  kLong,  // 32-bit signed
  kDouble,
  kString,  // UTF-8
  kDate,
  kDictionary,
  kVector,
  kObject,  // opaque object, in practice a record set
};

const char* VariantTypeName(VariantType type);

// An opaque object held by a Variant (a record set, for instance).
class Object {
 public:
  virtual ~Object() = default;
  virtual std::string TypeName() const = 0;
};

class Variant {
 public:
  struct EmptyTag {
    bool operator==(const EmptyTag&) const = default;
  };
  struct NullTag {
    bool operator==(const NullTag&) const = default;
  };

  Variant() = default;
  Variant(bool value) : value_(value) {}
  Variant(int32_t value) : value_(value) {}
  Variant(double value) : value_(value) {}
  Variant(const char* value) : value_(std::string(value)) {}
  Variant(std::string value) : value_(std::move(value)) {}
  Variant(std::string_view value) : value_(std::string(value)) {}
  Variant(Date value) : value_(value) {}
  Variant(DictionaryPtr value) : value_(std::move(value)) {}
  Variant(VectorPtr value) : value_(std::move(value)) {}
  Variant(ObjectPtr value) : value_(std::move(value)) {}

  static Variant Null() { return Variant(NullTag{}); }
  // Long when the value fits 32 bits, Double otherwise.
  static Variant FromInt64(int64_t value);

  VariantType type() const { return static_cast<VariantType>(value_.index()); }
  bool IsEmpty() const { return type() == VariantType::kEmpty; }
  bool IsNull() const { return type() == VariantType::kNull; }
  bool IsNumeric() const {
    return type() == VariantType::kLong || type() == VariantType::kDouble ||
           type() == VariantType::kBoolean;
  }

  // Strict accessors: nullptr when the variant holds another type.
  const bool* AsBoolean() const { return std::get_if<bool>(&value_); }
  const int32_t* AsLong() const { return std::get_if<int32_t>(&value_); }
  const double* AsDouble() const { return std::get_if<double>(&value_); }
  const std::string* AsString() const { return std::get_if<std::string>(&value_); }
  const Date* AsDate() const { return std::get_if<Date>(&value_); }
  DictionaryPtr AsDictionary() const;
  VectorPtr AsVector() const;
  // The same without copying the reference; a null pointer when the
  // variant holds another type.
  const DictionaryPtr& AsDictionaryRef() const;
  const VectorPtr& AsVectorRef() const;
  ObjectPtr AsObject() const;

  // Conversions in the manner of the host's automation: Empty converts to 0,
  // "" or the zero date; Null and unconvertible values throw an invalid-input
  // Error that names the value. Doubles convert to Long by rounding half to even.
  int32_t ToLong() const;
  double ToDouble() const;
  std::string ToText() const;
  bool ToBoolean() const;
  Date ToDate() const;
  // The numeric value of a text the way the ERP's Val() reads it: leading
  // number, anything else 0. Never throws.
  double ToValue() const;

  bool operator==(const Variant& other) const { return value_ == other.value_; }

 private:
  explicit Variant(NullTag tag) : value_(tag) {}
  std::variant<EmptyTag, NullTag, bool, int32_t, double, std::string, Date, DictionaryPtr,
               VectorPtr, ObjectPtr>
      value_;
};

// Text form of a double as the host prints it: up to 15 significant digits,
// no trailing zeros, "." as decimal point whatever the locale.
std::string FormatDouble(double value);

// The keys of a Dictionary, shared by rows of one shape (the columns of a
// record set, the columns of a report).
using KeyList = std::shared_ptr<const std::vector<std::string>>;
KeyList MakeKeyList(std::vector<std::string> keys);

// A keyed record. Keys keep their first spelling and insertion order; lookup
// ignores ASCII letter case ("FBillNO" finds "FBillNo"). Rows hold a few
// dozen keys, so lookup is a scan: no folded copies, no hash nodes. Rows
// made from one KeyList share it until one of them adds or removes a key.
class Dictionary {
 public:
  Dictionary() = default;
  // A row with these keys, every value Empty.
  explicit Dictionary(KeyList keys);
  static DictionaryPtr Create() { return std::make_shared<Dictionary>(); }
  static DictionaryPtr Create(KeyList keys) {
    return std::make_shared<Dictionary>(std::move(keys));
  }

  size_t size() const { return values_.size(); }
  bool empty() const { return values_.empty(); }
  // Position i, 0-based, in insertion order.
  const std::string& key(size_t i) const { return (*keys_)[i]; }
  // The key list, shared with rows of the same shape; nullptr while empty.
  const KeyList& keys() const { return keys_; }
  const Variant& value(size_t i) const { return values_[i]; }
  void SetAt(size_t i, Variant value) { values_[i] = std::move(value); }

  bool Contains(std::string_view key) const { return Find(key) != nullptr; }
  const Variant* Find(std::string_view key) const;
  // The value under key; Empty when absent.
  Variant Get(std::string_view key) const;
  Variant GetOr(std::string_view key, Variant fallback) const;
  // Inserts at the end, or overwrites in place keeping the stored spelling.
  void Set(std::string_view key, Variant value);
  bool Remove(std::string_view key);

 private:
  int IndexOf(std::string_view key) const;
  std::vector<std::string>& OwnKeys();

  KeyList keys_;  // nullptr while there are none
  std::vector<Variant> values_;
};

// A row's values handed over one by one, in key order, without building a
// Variant for each: what a RowSource gives a reader.
class CellVisitor {
 public:
  virtual ~CellVisitor() = default;
  virtual void Null() = 0;
  virtual void Long(int32_t value) = 0;
  virtual void Double(double value) = 0;
  virtual void Text(std::string_view value) = 0;
  virtual void DateValue(const Date& value) = 0;
};

// Rows that another representation holds until somebody asks for them: a
// large result that is only written out is then never built as Dictionary
// rows. Every row has the same keys, and its values are Null, Long, Double,
// String or Date.
class RowSource {
 public:
  virtual ~RowSource() = default;
  virtual size_t size() const = 0;
  virtual const KeyList& keys() const = 0;
  // Row i's values, one call of `cells` per key.
  virtual void Visit(size_t i, CellVisitor& cells) const = 0;
  // Row i as a Dictionary with keys().
  DictionaryPtr Row(size_t i) const;
};

// An ordered list of Dictionary rows. Its public interface is 1-based, like
// the host's collection; internal code iterates rows() from 0. A Vector
// over a RowSource builds its rows at the first question that needs them
// (rows(), Item, Add, Remove); writers read the source directly until then.
class Vector {
 public:
  Vector() = default;
  explicit Vector(std::shared_ptr<const RowSource> source) : source_(std::move(source)) {}
  static VectorPtr Create() { return std::make_shared<Vector>(); }
  static VectorPtr Create(std::shared_ptr<const RowSource> source) {
    return std::make_shared<Vector>(std::move(source));
  }

  int32_t Count() const;
  void Add(DictionaryPtr row);
  // Throws invalid input when position is outside 1..Count().
  const DictionaryPtr& Item(int32_t position) const;
  void Remove(int32_t position);
  const std::vector<DictionaryPtr>& rows() const;
  // The source while its rows have not been built, else nullptr.
  const RowSource* source() const;

 private:
  void Build() const;

  std::shared_ptr<const RowSource> source_;
  mutable std::once_flag built_;
  mutable std::atomic<bool> is_built_{false};
  mutable std::vector<DictionaryPtr> rows_;
};

std::string FoldKey(std::string_view key);
bool EqualsIgnoringCase(std::string_view a, std::string_view b);

}  // namespace mrpcalc
