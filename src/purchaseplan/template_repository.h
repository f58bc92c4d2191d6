// The bill template's relations of purchase orders to base data: the SQL
// of ICTemplate and ICTemplateEntry, and the statements that copy related
// values into new orders. Every table and column name a relation holds is
// checked before use.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "db/connection.h"

namespace mrpcalc::repo {

// A user-defined field of new orders that the bill template "P02" relates
// to base data: a relation "x,col,table2,key2,col2,table3,key3,value"
// copies table3.value where key3 equals table2.col2 of the row whose key2
// is the order's col.
struct TemplateRelation {
  bool lines;  // of ICTemplateEntry: a field of the order lines
  std::string field;
  std::vector<std::string> parts;  // [1] .. [7] as above
};

// The template's relations, read once for a whole push. A relation of
// fewer than seven parts, or with a name that is not a plain identifier,
// is refused.
std::vector<TemplateRelation> TemplateRelations(db::Connection& connection);

// Copies the related values into the new order. The database takes one
// value per field and refuses a relation step that finds more than one
// row; such a relation fails with the order, line and field.
void CopyTemplateRelations(db::Connection& connection,
                           const std::vector<TemplateRelation>& relations, int32_t order_id,
                           int32_t supplier);

}  // namespace mrpcalc::repo
