// Record set conversion into Dictionary rows.
#include "record/recordset.h"

#include "record/error.h"

namespace mrpcalc {

int RecordSet::ColumnIndex(std::string_view name) const {
  const std::string folded = FoldKey(name);
  for (size_t i = 0; i < columns_.size(); ++i) {
    if (FoldKey(columns_[i]) == folded) return static_cast<int>(i);
  }
  return -1;
}

const Variant& RecordSet::Field(std::string_view name) const {
  if (Eof()) ThrowInvalid("record set is at EOF; no field " + std::string(name));
  const int i = ColumnIndex(name);
  if (i < 0) {
    throw Error(ErrorCategory::kNotFound, "record set has no field " + std::string(name));
  }
  return rows_[position_][static_cast<size_t>(i)];
}

namespace {

// The keys rows of a record set share, and the key each column lands on: a
// column whose name repeats an earlier one (ignoring case) overwrites it,
// as setting the same key twice does.
struct RowShape {
  KeyList keys;
  std::vector<size_t> slot;
};

RowShape ShapeOf(const std::vector<std::string>& columns) {
  std::vector<std::string> keys;
  RowShape shape;
  for (const auto& column : columns) {
    size_t i = 0;
    while (i < keys.size() && !EqualsIgnoringCase(keys[i], column)) ++i;
    if (i == keys.size()) keys.push_back(column);
    shape.slot.push_back(i);
  }
  shape.keys = MakeKeyList(std::move(keys));
  return shape;
}

DictionaryPtr ShapedRow(const RowShape& shape, const std::vector<Variant>& values) {
  auto row = Dictionary::Create(shape.keys);
  for (size_t i = 0; i < shape.slot.size(); ++i) row->SetAt(shape.slot[i], values[i]);
  return row;
}

}  // namespace

DictionaryPtr RowToDictionary(const RecordSet& rs) {
  if (rs.Eof()) return Dictionary::Create();
  return ShapedRow(ShapeOf(rs.columns()), rs.rows()[rs.position()]);
}

VectorPtr RecordsetToVector(RecordSet& rs) {
  auto out = Vector::Create();
  if (rs.Eof()) return out;
  const RowShape shape = ShapeOf(rs.columns());
  for (; !rs.Eof(); rs.MoveNext()) out->Add(ShapedRow(shape, rs.rows()[rs.position()]));
  return out;
}

}  // namespace mrpcalc
