// Pushing purchase plan lines into purchase orders.
#include <algorithm>
#include <map>
#include <set>

#include "purchaseplan/purchase_plan.h"
#include "record/column_value.h"
#include "record/erp_codes.h"
#include "record/text.h"
#include "services/profile.h"
#include "services/purchase_lines.h"

namespace mrpcalc {
namespace {

using Row = std::vector<Variant>;

// A purchase order line to make, and the plan lines behind it.
struct PushLine {
  std::string key;
  int32_t supply_id = 0, item_id = 0;
  double qty = 0, price = 0, discount_rate = 0, tax_rate = 0;
  int32_t unit_id = 0, aux_unit_id = 0, aux_prop_id = 0;
  double aux_qty = 0, aux_price = 0;
  std::string note, plan_numbers;
  Date date;
};

struct PlanPart {
  std::string key;
  int32_t plan_inter_id = 0, plan_entry_id = 0, item_id = 0;
  double qty = 0;
};

std::string Where(const char* key, const std::string& row) {
  return std::string("\"") + key + "\" of " + row;
}

// Reads the lines and their plan parts as the working tables hold them.
// A value the working table could not take fails the call before anything
// is written: a merge flag or merged quantity that is not a number, a line
// without its plan lines.
void ReadPushLines(const VectorPtr& rows, std::vector<PushLine>& lines,
                   std::vector<PlanPart>& parts) {
  std::set<std::string> keys;  // as the server compares them, without regard to case
  if (!rows) return;
  for (size_t i = 0; i < rows->rows().size(); ++i) {
    const Dictionary& row = *rows->rows()[i];
    const std::string at = "vctListData row " + std::to_string(i + 1);
    PushLine l;
    l.key = TextValue(row.Get("FKey"));
    if (!keys.insert(FoldKey(l.key)).second) {
      ThrowInvalid(at + " repeats the key \"" + l.key +
                   "\" (letter case aside): each order line needs its own FKey");
    }
    l.supply_id = IntValue(row.Get("FSupplyID"), Where("FSupplyID", at));
    l.item_id = IntValue(row.Get("FItemID"), Where("FItemID", at));
    l.qty = RoundDecimal(NumberValue(row.Get("FPushQty"), Where("FPushQty", at)));
    l.price = RoundDecimal(NumberValue(row.Get("FPrice"), Where("FPrice", at)));
    l.discount_rate =
        RoundDecimal(NumberValue(row.Get("FDiscountRate"), Where("FDiscountRate", at)));
    l.tax_rate = RoundDecimal(NumberValue(row.Get("FTaxRate"), Where("FTaxRate", at)));
    if (1 + l.tax_rate / 100 == 0)
      ThrowInvalid(Where("FTaxRate", at) + " is -100: division by zero");
    l.unit_id = IntValue(row.Get("FUnitID"), Where("FUnitID", at));
    l.aux_prop_id = IntValue(row.Get("FAuxPropID"), Where("FAuxPropID", at));
    l.note = TextValue(row.Get("FMemo"));
    l.date = QuotedDateValue(row.Get("FFinishDate"), Where("FFinishDate", at));
    l.plan_numbers = TextValue(row.Get("FBillNo"));
    NumberValue(row.Get("FIsMerge"), Where("FIsMerge", at));
    NumberValue(row.Get("FMergeSumQty"), Where("FMergeSumQty", at));
    const VectorPtr entries = row.Get("EntryDataVct").AsVector();
    if (!entries) {
      ThrowInvalid(at + " has no \"EntryDataVct\": give the plan lines behind the order line"
                        " (an empty list when there are none)");
    }
    for (size_t k = 0; k < entries->rows().size(); ++k) {
      const Dictionary& e = *entries->rows()[k];
      const std::string in = "EntryDataVct row " + std::to_string(k + 1) + " of " + at;
      parts.push_back({TextValue(e.Get("FKey")),
                       IntValue(e.Get("FInterID"), Where("FInterID", in)),
                       IntValue(e.Get("FEntryID"), Where("FEntryID", in)),
                       IntValue(e.Get("FItemID"), Where("FItemID", in)),
                       RoundDecimal(NumberValue(e.Get("FPushQty"), Where("FPushQty", in)))});
    }
    lines.push_back(std::move(l));
  }
}

// The purchase unit: the item's order unit, else the line's own unit; a
// line in another unit gives quantity and price in it to every line of
// its material (the first such line, where the unit's coefficient is not 0).
void PurchaseUnits(db::Connection& c, std::vector<PushLine>& lines) {
  std::set<int32_t> items;
  for (const auto& l : lines) items.insert(l.item_id);
  std::map<int32_t, int32_t> order_unit;
  db::QueryIn(c, std::vector<int32_t>(items.begin(), items.end()),
              "select FItemID, FOrderUnitID from t_ICItem where FItemID in (%IDS%)", [&](Row& r) {
                order_unit.emplace(r[0].ToLong(), r[1].IsNull() ? 0 : r[1].ToLong());
              });
  std::set<int32_t> units;
  for (auto& l : lines) {
    if (auto u = order_unit.find(l.item_id); u != order_unit.end()) l.aux_unit_id = u->second;
    if (l.aux_unit_id == 0) l.aux_unit_id = l.unit_id;
    if (l.aux_unit_id == l.unit_id) {
      l.aux_qty = l.qty;
      l.aux_price = l.price;
    } else {
      units.insert(l.aux_unit_id);
    }
  }
  std::map<int32_t, double> coefficient;  // by t_MeasureUnit.FItemID, the first non-zero
  db::QueryIn(c, std::vector<int32_t>(units.begin(), units.end()),
              "select FItemID, FCoefficient from t_MeasureUnit where FItemID in (%IDS%)"
              " and FCoefficient <> 0 order by FMeasureUnitID",
              [&](Row& r) { coefficient.emplace(r[0].ToLong(), r[1].ToDouble()); });
  for (auto& l : lines) {
    for (const auto& other : lines) {
      if (other.item_id != l.item_id || other.aux_unit_id == other.unit_id) continue;
      auto u = coefficient.find(other.aux_unit_id);
      if (u == coefficient.end()) continue;
      l.aux_qty = RoundDecimal(other.qty / u->second);
      l.aux_price = RoundDecimal(other.price * u->second);
      break;
    }
  }
}

// A user-defined field of new orders that the bill template "P02" relates
// to base data: a relation "x,col,table2,key2,col2,table3,key3,value"
// copies table3.value where key3 equals table2.col2 of the row whose key2
// is the order's col. Every name is checked before use.
struct TemplateRelation {
  bool lines;  // of ICTemplateEntry: a field of the order lines
  std::string field;
  std::vector<std::string> parts;  // [1] .. [7] as above
};

// The template's relations, read once for the whole push.
std::vector<TemplateRelation> LoadTemplateRelations(db::Connection& c) {
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

// Copies the related values into the new order. The database takes one
// value per field and refuses a relation step that finds more than one
// row; such a relation fails the push with the order, line and field.
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

}  // namespace

VectorPtr PurchasePlanUpdate::PushBill(const std::string& dsn, const VectorPtr& vctListData,
                                       int32_t BillerID, std::string& StrOutInterids,
                                       const Date& SysDate) {
  return Run(dsn, [&](db::Connection& c) -> VectorPtr {
    const int32_t currency = OrderCurrencyId(c);
    const int scale = BaseCurrencyScale(c);
    int32_t style = kPurchaseStyle;
    std::string style_name = host_.ini ? host_.ini->Get("frmBill", "DefaultCGStyle") : "";
    std::transform(style_name.begin(), style_name.end(), style_name.begin(),
                   [](unsigned char ch) { return static_cast<char>(std::toupper(ch)); });
    if (!style_name.empty()) {
      const Variant found =
          c.QueryValue("select FInterID from t_SubMessage where FTypeID = ? and " +
                           c.dialect().TextIs("FID"),
                       {kPurchaseStyleType, FoldKey(style_name)});
      if (!found.IsEmpty() && !found.IsNull()) style = found.ToLong();
    }

    std::vector<PushLine> lines;
    std::vector<PlanPart> parts;
    ReadPushLines(vctListData, lines, parts);
    std::set<int32_t> suppliers;
    for (const auto& l : lines) suppliers.insert(l.supply_id);
    if (suppliers.empty()) {
      throw Error(ErrorCategory::kInvalidInput, "no purchase line to push: vctListData is empty",
                  -1);
    }
    PurchaseUnits(c, lines);
    std::map<int32_t, std::pair<int32_t, int32_t>> staff;  // supplier -> employee, department
    db::QueryIn(c, std::vector<int32_t>(suppliers.begin(), suppliers.end()),
                "select FItemID, FEmployee, FDepartment from t_Supplier where FItemID in (%IDS%)",
                [&](Row& r) {
                  staff.try_emplace(r[0].ToLong(), static_cast<int32_t>(r[1].ToValue()),
                                    static_cast<int32_t>(r[2].ToValue()));
                });

    PurchaseOrderWriter orders(c, *host_.numbering);
    OrderLineWriter entry(c);
    auto link = c.Prepare(
        "insert into PurchasePlanOrder (FInterID, FItemID, FPurchasePlanKey, FPurchasePlanInterID,"
        " FPurchasePlanEntryID, FQty) values (?, ?, ?, ?, ?, ?)");
    const std::vector<TemplateRelation> relations = LoadTemplateRelations(c);
    for (int32_t supplier : suppliers) {
      const auto people =
          staff.count(supplier) ? staff[supplier] : std::pair<int32_t, int32_t>{0, 0};
      OrderHeader header;
      header.supplier = supplier;
      header.date = SysDate;  // without one, the zero date 1899-12-30
      header.currency = currency;
      header.biller = BillerID;
      header.style = style;
      header.employee = people.first;
      header.department = people.second;
      header.settle_zero = false;
      const int32_t order = orders.Header(header);
      int32_t e = 0;
      for (const PushLine& l : lines) {
        if (l.supply_id != supplier) continue;
        entry.Write(order, ++e,
                    {l.item_id, l.aux_prop_id, l.aux_unit_id, l.date, l.qty, l.aux_qty, l.price,
                     l.aux_price, l.discount_rate, l.tax_rate, l.note, l.plan_numbers, l.key},
                    scale);
        for (const PlanPart& p : parts) {
          if (EqualsIgnoringCase(p.key, l.key)) {
            link->Execute({order, p.item_id, p.key, p.plan_inter_id, p.plan_entry_id, p.qty});
          }
        }
      }
      CopyTemplateRelations(c, relations, order, supplier);
    }

    // The plan lines take what was pushed; every fully purchased line of
    // every plan is closed.
    std::map<std::pair<int32_t, int32_t>, double> pushed;
    for (const PlanPart& p : parts) pushed[{p.plan_inter_id, p.plan_entry_id}] += p.qty;
    auto progress = c.Prepare(
        "update PurchasePlanEntry set FPushQty = 0, FPurchaseFinishQty = FPurchaseFinishQty + ?"
        " where FInterID = ? and FEntryID = ?");
    for (const auto& [plan_line, qty] : pushed) {
      progress->Execute({RoundDecimal(qty), plan_line.first, plan_line.second});
    }
    c.Execute("update PurchasePlanEntry set FClosed = 1 where FPurchaseFinishQty >= FQty");

    const std::vector<int32_t>& made = orders.made();
    StrOutInterids = db::JoinIds(made);
    auto out = Vector::Create();
    const KeyList keys = MakeKeyList({"FSupplyName", "FBillNO", "FInterID", "FDate"});
    db::QueryIn(c, made,
                "select S.FName, P.FBillNo, P.FInterID, P.FDate from POOrder P"
                " inner join t_Supplier S on P.FSupplyID = S.FItemID"
                " where P.FInterID in (%IDS%) order by P.FInterID",
                [&](Row& r) {
                  auto row = Dictionary::Create(keys);
                  for (size_t i = 0; i < r.size(); ++i) row->SetAt(i, std::move(r[i]));
                  out->Add(row);
                });
    return out;
  });
}

}  // namespace mrpcalc
