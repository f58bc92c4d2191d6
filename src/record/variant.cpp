// Variant conversions and the two collections.
#include "record/variant.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "record/error.h"

namespace mrpcalc {

const char* VariantTypeName(VariantType type) {
  switch (type) {
    case VariantType::kEmpty:
      return "Empty";
    case VariantType::kNull:
      return "Null";
    case VariantType::kBoolean:
      return "Boolean";
    case VariantType::kLong:
      return "Long";
    case VariantType::kDouble:
      return "Double";
    case VariantType::kString:
      return "String";
    case VariantType::kDate:
      return "Date";
    case VariantType::kDictionary:
      return "Dictionary";
    case VariantType::kVector:
      return "Vector";
    case VariantType::kObject:
      return "Object";
  }
  return "Empty";
}

Variant Variant::FromInt64(int64_t value) {
  if (value >= std::numeric_limits<int32_t>::min() &&
      value <= std::numeric_limits<int32_t>::max()) {
    return Variant(static_cast<int32_t>(value));
  }
  return Variant(static_cast<double>(value));
}

DictionaryPtr Variant::AsDictionary() const {
  const auto* p = std::get_if<DictionaryPtr>(&value_);
  return p ? *p : nullptr;
}
VectorPtr Variant::AsVector() const {
  const auto* p = std::get_if<VectorPtr>(&value_);
  return p ? *p : nullptr;
}
const DictionaryPtr& Variant::AsDictionaryRef() const {
  static const DictionaryPtr none;
  const auto* p = std::get_if<DictionaryPtr>(&value_);
  return p ? *p : none;
}
const VectorPtr& Variant::AsVectorRef() const {
  static const VectorPtr none;
  const auto* p = std::get_if<VectorPtr>(&value_);
  return p ? *p : none;
}
ObjectPtr Variant::AsObject() const {
  const auto* p = std::get_if<ObjectPtr>(&value_);
  return p ? *p : nullptr;
}

std::string FormatDouble(double value) {
  if (value == 0) return "0";
  // As "%.15g" prints it. Very small or large values take the exponent
  // form, which reads back in every engine, so it stays.
  char buf[40];
  const auto result = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::general, 15);
  return std::string(buf, result.ptr);
}

namespace {

[[noreturn]] void CannotConvert(const Variant& v, const char* target) {
  std::string shown = v.AsString() ? "\"" + *v.AsString() + "\"" : VariantTypeName(v.type());
  ThrowInvalid(std::string("cannot convert ") + shown + " to " + target);
}

std::optional<double> ParseNumber(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  if (text.empty()) return std::nullopt;
  double value = 0;
  const char* begin = text.data();
  if (*begin == '+') ++begin;
  auto [ptr, ec] = std::from_chars(begin, text.data() + text.size(), value);
  if (ec != std::errc() || ptr != text.data() + text.size()) return std::nullopt;
  return value;
}

int32_t RoundToLong(double value, const Variant& source) {
  const double rounded = std::nearbyint(value);  // default mode: half to even
  if (!std::isfinite(rounded) || rounded < std::numeric_limits<int32_t>::min() ||
      rounded > std::numeric_limits<int32_t>::max()) {
    CannotConvert(source, "Long (out of range)");
  }
  return static_cast<int32_t>(rounded);
}

}  // namespace

int32_t Variant::ToLong() const {
  switch (type()) {
    case VariantType::kEmpty:
      return 0;
    case VariantType::kBoolean:
      return *AsBoolean() ? -1 : 0;
    case VariantType::kLong:
      return *AsLong();
    case VariantType::kDouble:
      return RoundToLong(*AsDouble(), *this);
    case VariantType::kString: {
      if (auto n = ParseNumber(*AsString())) return RoundToLong(*n, *this);
      CannotConvert(*this, "Long");
    }
    default:
      CannotConvert(*this, "Long");
  }
}

double Variant::ToDouble() const {
  switch (type()) {
    case VariantType::kEmpty:
      return 0;
    case VariantType::kBoolean:
      return *AsBoolean() ? -1 : 0;
    case VariantType::kLong:
      return *AsLong();
    case VariantType::kDouble:
      return *AsDouble();
    case VariantType::kString: {
      if (auto n = ParseNumber(*AsString())) return *n;
      CannotConvert(*this, "Double");
    }
    default:
      CannotConvert(*this, "Double");
  }
}

double Variant::ToValue() const {
  if (const auto* s = AsString()) {
    size_t i = 0;
    while (i < s->size() && ((*s)[i] == ' ' || (*s)[i] == '\t')) ++i;
    const char* begin = s->data() + i;
    char* end = nullptr;
    const double value = std::strtod(begin, &end);
    return end == begin ? 0 : value;
  }
  if (IsNull() || type() >= VariantType::kDate) return 0;
  return ToDouble();
}

std::string Variant::ToText() const {
  switch (type()) {
    case VariantType::kEmpty:
      return "";
    case VariantType::kBoolean:
      return *AsBoolean() ? "True" : "False";
    case VariantType::kLong:
      return std::to_string(*AsLong());
    case VariantType::kDouble:
      return FormatDouble(*AsDouble());
    case VariantType::kString:
      return *AsString();
    case VariantType::kDate:
      return AsDate()->ToString();
    default:
      CannotConvert(*this, "String");
  }
}

bool Variant::ToBoolean() const {
  switch (type()) {
    case VariantType::kEmpty:
      return false;
    case VariantType::kBoolean:
      return *AsBoolean();
    case VariantType::kLong:
      return *AsLong() != 0;
    case VariantType::kDouble:
      return *AsDouble() != 0;
    case VariantType::kString: {
      const std::string folded = FoldKey(*AsString());
      if (folded == "true") return true;
      if (folded == "false") return false;
      if (auto n = ParseNumber(*AsString())) return *n != 0;
      CannotConvert(*this, "Boolean");
    }
    default:
      CannotConvert(*this, "Boolean");
  }
}

Date Variant::ToDate() const {
  switch (type()) {
    case VariantType::kEmpty:
      return Date();
    case VariantType::kDate:
      return *AsDate();
    case VariantType::kString: {
      if (auto d = Date::Parse(*AsString())) return *d;
      CannotConvert(*this, "Date");
    }
    default:
      CannotConvert(*this, "Date");
  }
}

std::string FoldKey(std::string_view key) {
  std::string folded(key);
  for (char& c : folded) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return folded;
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

KeyList MakeKeyList(std::vector<std::string> keys) {
  return std::make_shared<std::vector<std::string>>(std::move(keys));
}

Dictionary::Dictionary(KeyList keys) : keys_(std::move(keys)) {
  if (keys_) values_.resize(keys_->size());
}

int Dictionary::IndexOf(std::string_view key) const {
  for (size_t i = 0; i < values_.size(); ++i) {
    if (EqualsIgnoringCase((*keys_)[i], key)) return static_cast<int>(i);
  }
  return -1;
}

// Copy on write: a key list still shared with other rows is copied first.
// Every key list is created non-const (MakeKeyList, or here), so writing to
// the one this row owns alone is sound.
std::vector<std::string>& Dictionary::OwnKeys() {
  if (!keys_ || keys_.use_count() > 1) {
    keys_ = std::make_shared<std::vector<std::string>>(keys_ ? *keys_ : std::vector<std::string>{});
  }
  return const_cast<std::vector<std::string>&>(*keys_);
}

const Variant* Dictionary::Find(std::string_view key) const {
  const int i = IndexOf(key);
  return i < 0 ? nullptr : &values_[static_cast<size_t>(i)];
}

Variant Dictionary::Get(std::string_view key) const {
  const Variant* v = Find(key);
  return v ? *v : Variant();
}

Variant Dictionary::GetOr(std::string_view key, Variant fallback) const {
  const Variant* v = Find(key);
  return v ? *v : fallback;
}

void Dictionary::Set(std::string_view key, Variant value) {
  const int i = IndexOf(key);
  if (i >= 0) {
    values_[static_cast<size_t>(i)] = std::move(value);
    return;
  }
  OwnKeys().emplace_back(key);
  values_.push_back(std::move(value));
}

bool Dictionary::Remove(std::string_view key) {
  const int i = IndexOf(key);
  if (i < 0) return false;
  auto& keys = OwnKeys();
  keys.erase(keys.begin() + i);
  values_.erase(values_.begin() + i);
  return true;
}

DictionaryPtr RowSource::Row(size_t i) const {
  struct ToRow final : CellVisitor {
    Dictionary& row;
    size_t at = 0;
    explicit ToRow(Dictionary& r) : row(r) {}
    void Null() override { row.SetAt(at++, Variant::Null()); }
    void Long(int32_t v) override { row.SetAt(at++, v); }
    void Double(double v) override { row.SetAt(at++, v); }
    void Text(std::string_view v) override { row.SetAt(at++, std::string(v)); }
    void DateValue(const Date& v) override { row.SetAt(at++, v); }
  };
  auto row = Dictionary::Create(keys());
  ToRow cells(*row);
  Visit(i, cells);
  return row;
}

void Vector::Build() const {
  if (!source_) return;
  std::call_once(built_, [this] {
    const size_t n = source_->size();
    rows_.reserve(n);
    for (size_t i = 0; i < n; ++i) rows_.push_back(source_->Row(i));
    is_built_.store(true, std::memory_order_release);
  });
}

const RowSource* Vector::source() const {
  return source_ && !is_built_.load(std::memory_order_acquire) ? source_.get() : nullptr;
}

int32_t Vector::Count() const {
  if (const RowSource* s = source()) return static_cast<int32_t>(s->size());
  return static_cast<int32_t>(rows_.size());
}

const std::vector<DictionaryPtr>& Vector::rows() const {
  Build();
  return rows_;
}

void Vector::Add(DictionaryPtr row) {
  Build();
  rows_.push_back(std::move(row));
}

const DictionaryPtr& Vector::Item(int32_t position) const {
  Build();
  if (position < 1 || position > Count()) {
    ThrowInvalid("Vector position " + std::to_string(position) + " is outside 1.." +
                 std::to_string(Count()));
  }
  return rows_[static_cast<size_t>(position - 1)];
}

void Vector::Remove(int32_t position) {
  Item(position);  // range check
  rows_.erase(rows_.begin() + (position - 1));
}

}  // namespace mrpcalc
