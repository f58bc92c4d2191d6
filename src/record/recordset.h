// A disconnected record set: the rows a query returned, with a cursor.
// RowToDictionary and RecordsetToVector turn it into host rows.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "record/variant.h"

namespace mrpcalc {

class RecordSet : public Object {
 public:
  RecordSet(std::vector<std::string> columns, std::vector<std::vector<Variant>> rows)
      : columns_(std::move(columns)), rows_(std::move(rows)) {}

  std::string TypeName() const override { return "Recordset"; }

  const std::vector<std::string>& columns() const { return columns_; }
  const std::vector<std::vector<Variant>>& rows() const { return rows_; }
  size_t RecordCount() const { return rows_.size(); }

  // Cursor, 0-based; EOF when it is past the last row.
  bool Eof() const { return position_ >= rows_.size(); }
  void MoveFirst() { position_ = 0; }
  void MoveNext() {
    if (!Eof()) ++position_;
  }
  void Move(size_t position) { position_ = position; }
  size_t position() const { return position_; }
  // Column index by name ignoring case, or -1.
  int ColumnIndex(std::string_view name) const;
  // Value of a column in the current row; throws when at EOF or unknown name.
  const Variant& Field(std::string_view name) const;

 private:
  std::vector<std::string> columns_;
  std::vector<std::vector<Variant>> rows_;
  size_t position_ = 0;
};

using RecordSetPtr = std::shared_ptr<RecordSet>;

// The current row as a new Dictionary (field order, names as the columns
// spell them); an empty Dictionary when the record set has no fields or is at
// EOF. The cursor does not move.
DictionaryPtr RowToDictionary(const RecordSet& rs);

// Every row from the current one to the end, then leaves the cursor at EOF.
// A record set already at EOF gives an empty Vector, never nothing.
VectorPtr RecordsetToVector(RecordSet& rs);

}  // namespace mrpcalc
