// Template relations on the ERP database.
#include "purchaseplan/template_repository.h"

#include "record/column_value.h"
#include "record/error.h"
#include "record/text.h"

namespace mrpcalc::repo {
namespace {

using Row = std::vector<Variant>;

}  // namespace

std::vector<TemplateRelation> TemplateRelations(db::Connection& c) {
  const db::Dialect& d = c.dialect();
  const std::string filter = " where " + d.CaseFolded("FID") +
                             " = 'p02' and FDefaultCtl = 0 and FCtlType = 30 and FNeedSave = 1"
                             " and FRelationID <> '' and " +
                             d.CaseFolded("FAction") + " like '%a3%'";
  std::vector<TemplateRelation> out;
  for (const char* table : {"ICTemplate", "ICTemplateEntry"}) {
    const bool lines = std::string(table) == "ICTemplateEntry";
    c.QueryRows(std::string("select FFieldName, FRelationID from ") + table + filter, {},
                [&](Row& r) {
                  const std::string field = TextValue(r[0]), relation = TextValue(r[1]);
                  std::vector<std::string> parts;
                  std::string rest = relation;
                  while (!rest.empty()) parts.push_back(SplitFirst(rest, ","));
                  if (parts.size() <= 1) return;
                  if (parts.size() < 8) {
                    ThrowInvalid(std::string(table) + " relation \"" + relation + "\" of field " +
                                 field + " names fewer than the seven parts a relation needs");
                  }
                  const std::string what =
                      std::string("a name in the ") + table + " relation of " + field;
                  db::CheckIdentifier(field, what);
                  for (size_t k = 1; k <= 7; ++k) db::CheckIdentifier(parts[k], what);
                  out.push_back({lines, field, std::move(parts)});
                });
  }
  return out;
}

void CopyTemplateRelations(db::Connection& c, const std::vector<TemplateRelation>& relations,
                           int32_t order_id, int32_t supplier) {
  for (const TemplateRelation& t : relations) {
    const auto& p = t.parts;
    const std::string target = t.lines ? "POOrderEntry" : "POOrder";
    const std::string own =
        t.lines ? "(select e." + p[1] +
                      " from POOrderEntry e where e.FInterID = POOrderEntry.FInterID"
                      " and e.FEntryID = POOrderEntry.FEntryID)"
                : "(select " + p[1] + " from POOrder where FInterID = " +
                      std::to_string(order_id) + ")";
    const std::string middle_rows = " from " + p[2] + " where " + p[3] + " = " + own;
    const std::string middle = "select " + p[4] + middle_rows;
    const std::string value_rows = " from " + p[5] + " where " + p[6] + " = (" + middle + ")";
    const std::string value = "select coalesce(" + p[7] + ", '')" + value_rows;
    for (const auto& looked_up : {std::pair{p[2], middle_rows}, std::pair{p[5], value_rows}}) {
      const std::string& step = looked_up.first;  // a plain name: the lambda below uses it
      const std::string counted = "(select count(*)" + looked_up.second + ")";
      c.QueryRows("select " + std::string(t.lines ? "FEntryID" : "0") + ", " + counted +
                      " from " + target + " where FInterID = ?",
                  {order_id}, [&](Row& r) {
                    const int64_t rows = r[1].ToLong();
                    if (rows <= 1) return;
                    ThrowInvalid(
                        "the template relation of " + target + "." + t.field + " finds " +
                        std::to_string(rows) + " rows in " + step + " for the order of supplier " +
                        std::to_string(supplier) +
                        (t.lines ? ", line " + std::to_string(r[0].ToLong()) : std::string()) +
                        "; the field takes one value: correct the relation or the base data");
                  });
    }
    c.Execute("update " + target + " set " + t.field + " = (" + value + ") where FInterID = ?",
              {order_id});
  }
}

}  // namespace mrpcalc::repo
