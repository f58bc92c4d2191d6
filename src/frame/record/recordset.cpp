// Record set conversion into Dictionary rows.
#include "frame/record/recordset.h"

#include "frame/record/error.h"

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

DictionaryPtr RowToDictionary(const RecordSet& rs) {
  auto row = Dictionary::Create();
  if (rs.Eof()) return row;
  const auto& values = rs.rows()[rs.position()];
  for (size_t i = 0; i < rs.columns().size(); ++i) row->Set(rs.columns()[i], values[i]);
  return row;
}

VectorPtr RecordsetToVector(RecordSet& rs) {
  auto out = Vector::Create();
  while (!rs.Eof()) {
    out->Add(RowToDictionary(rs));
    rs.MoveNext();
  }
  return out;
}

}  // namespace mrpcalc
