// Confirmation data, purchase-order generation, the supplier credit check
// and the completion of source documents.
#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include "mrpserver/mrp_data_server.h"
#include "mrpserver/source_repository.h"
#include "record/column_value.h"
#include "record/text.h"
#include "schema/erp_schema.h"
#include "services/base_data_repository.h"
#include "services/order_repository.h"
#include "services/profile.h"
#include "services/purchase_lines.h"

namespace mrpcalc {
namespace {

using Row = std::vector<Variant>;



std::string Where(const char* key, size_t row) {
  return std::string("\"") + key + "\" of vctListData row " + std::to_string(row);
}

[[noreturn]] void DivideByZero(const std::string& what) {
  throw Error(ErrorCategory::kInvalidInput, "division by zero: " + what);
}

// --- Purchase orders --------------------------------------------------------

struct OrderLine {
  int32_t entry_id = 0, supply_id = 0, item_id = 0;
  double qty = 0, aux_qty = 0, aux_price = 0, price = 0, discount_rate = 0, tax_rate = 0;
  int32_t unit_id = 0, aux_unit_id = 0, aux_prop_id = 0;
  std::string note;
  Date date;
};

// Line numbers per supplier, 1, 2, ... in the order of the rows; the key
// is the supplier id as the row carries it.
class LineNumbers {
 public:
  int32_t Next(const Variant& supplier) { return ++counters_[TextValue(supplier)]; }

 private:
  std::map<std::string, int32_t> counters_;
};

// The column spelling of the ERP's tables, for labels an engine folded.
std::string Spelled(const std::string& label, std::initializer_list<const char*> tables) {
  for (const auto& t : schema::ErpTables()) {
    if (std::find_if(tables.begin(), tables.end(), [&](const char* n) { return t.name == n; }) ==
        tables.end()) {
      continue;
    }
    for (const auto& col : t.columns) {
      if (EqualsIgnoringCase(col.name, label)) return col.name;
    }
  }
  return label;
}

}  // namespace

VectorPtr MrpDataServer::GetMrpConfirmData(const std::string& dsn, const VectorPtr& vctListData) {
  return Run(dsn, [&](db::Connection& c) {
    std::vector<PricedLine> lines = ReadPricedLines(vctListData, LineIds::kQuoted);
    PricingFacts facts = PricingFacts::Load(c, lines);
    auto out = Vector::Create();
    for (auto& l : lines) {
      facts.ResolveUnitAndSupplier(l);
      // Price: any supplier's band for the quantity, else the last invoice
      // from this supplier, else the item's order price.
      facts.PriceFromAnyBand(l);
      if (l.price.value_or(0) == 0) l.price = facts.LastPrice(c, LastPriceSource::kInvoice, l);
      facts.OrderPriceFallback(l);
      facts.ConvertToPurchaseUnit(l);
      // The supplier's own band for the quantity, after the unit price.
      facts.PriceFromOwnBand(l);
      facts.TaxRate(l);
      facts.Decimals(l);
      out->Add(l.ToRow());
    }
    return out;
  });
}

VectorPtr MrpDataServer::MakePOOrderBill(const std::string& dsn, const VectorPtr& vctListData,
                                         int32_t BillerID, const Date& g_dteSysDate) {
  return Run(dsn, [&](db::Connection& c) -> VectorPtr {
    const int32_t currency = OrderCurrencyId(c);

    std::vector<OrderLine> lines;
    LineNumbers numbers;
    std::set<int32_t> items, suppliers;
    if (vctListData) {
      for (size_t i = 0; i < vctListData->rows().size(); ++i) {
        const Dictionary& row = *vctListData->rows()[i];
        const size_t n = i + 1;
        OrderLine l;
        l.entry_id = numbers.Next(row.Get("FSupplyID"));
        l.supply_id = IntValue(row.Get("FSupplyID"), Where("FSupplyID", n));
        l.item_id = IntValue(row.Get("FItemID"), Where("FItemID", n));
        l.aux_qty = RoundDecimal(NumberValue(row.Get("FAuxQty"), Where("FAuxQty", n)));
        l.qty = RoundDecimal(NumberValue(row.Get("FQty"), Where("FQty", n)));
        // The purchase-unit price, rounded to the item's price decimals.
        const double raw = NumberValue(row.Get("FPrice"), Where("FPrice", n));
        const double coefficient = NumberValue(row.Get("FCoefficient"), Where("FCoefficient", n));
        const int decimals = std::clamp(row.Get("FPriceDecimal").ToLong(), 0, 10);
        l.aux_price = RoundDecimal(std::stod(RoundedText(raw * coefficient, decimals)));
        l.price = RoundDecimal(raw);
        l.discount_rate =
            RoundDecimal(NumberValue(row.Get("FDiscountRate"), Where("FDiscountRate", n)));
        l.tax_rate = RoundDecimal(NumberValue(row.Get("FTaxRate"), Where("FTaxRate", n)));
        l.unit_id = IntValue(row.Get("FUnitID"), Where("FUnitID", n));
        l.aux_prop_id = IntValue(row.Get("FAuxPropID"), Where("FAuxPropID", n));
        l.note = TextValue(row.Get("FNote"));
        l.date = QuotedDateValue(row.Get("FDate"), Where("FDate", n));
        if (1 + l.tax_rate / 100 == 0) DivideByZero(Where("FTaxRate", n) + " is -100");
        items.insert(l.item_id);
        suppliers.insert(l.supply_id);
        lines.push_back(std::move(l));
      }
    }
    if (suppliers.empty()) return nullptr;

    // The purchase unit: the item's order unit, else the line's own unit.
    const std::map<int32_t, int32_t> order_unit =
        repo::OrderUnits(c, std::vector<int32_t>(items.begin(), items.end()));
    for (auto& l : lines) {
      if (auto u = order_unit.find(l.item_id); u != order_unit.end()) l.aux_unit_id = u->second;
      if (l.aux_unit_id == 0) l.aux_unit_id = l.unit_id;
    }

    PurchaseOrderWriter orders(c, *host_.numbering);
    OrderLineWriter entry(c);
    for (int32_t supplier : suppliers) {
      OrderHeader header;
      header.supplier = supplier;
      header.date = g_dteSysDate;  // without one, the zero date 1899-12-30
      header.currency = currency;
      header.biller = BillerID;
      const int32_t inter_id = orders.Header(header);
      for (const OrderLine& l : lines) {
        if (l.supply_id != supplier) continue;
        entry.Write(inter_id, l.entry_id,
                    {l.item_id, l.aux_prop_id, l.aux_unit_id, l.date, l.qty, l.aux_qty, l.price,
                     l.aux_price, l.discount_rate, l.tax_rate, l.note, "", ""},
                    std::nullopt);
      }
    }
    last_orders_ = db::JoinIds(orders.made());
    return repo::OrderSummaries(c, orders.made());
  });
}

RecordSetPtr MrpDataServer::getPOOrderBills(const std::string& dsn) {
  return Run(dsn, [&](db::Connection& c) {
    std::vector<std::string> columns;
    std::vector<Row> rows = repo::AllOrderLines(c, columns);
    for (auto& label : columns) label = Spelled(label, {"POOrder"});
    return std::make_shared<RecordSet>(std::move(columns), std::move(rows));
  });
}

bool MrpDataServer::CheckCreditDegrees(const std::string& dsn, const VectorPtr& vctListData,
                                       std::string& strCheckType, std::string& SupplyName) {
  return Run(dsn, [&](db::Connection& c) {
    const Variant check = SystemProfileValue(c, "ic", "creditdegreecg");
    if (!check.IsEmpty()) strCheckType = TextValue(check);
    if (strCheckType != "1") return true;

    // The batch's amount per supplier, net of discount and of tax.
    std::map<int32_t, double> amount;
    if (vctListData) {
      for (size_t i = 0; i < vctListData->rows().size(); ++i) {
        const Dictionary& row = *vctListData->rows()[i];
        const size_t n = i + 1;
        const int32_t supplier = IntValue(row.Get("FSupplyID"), Where("FSupplyID", n));
        IntValue(row.Get("FItemID"), Where("FItemID", n));
        const double qty = RoundDecimal(NumberValue(row.Get("FPushQty"), Where("FPushQty", n)));
        const double price = RoundDecimal(NumberValue(row.Get("FPrice"), Where("FPrice", n)));
        const double discount =
            RoundDecimal(NumberValue(row.Get("FDiscountRate"), Where("FDiscountRate", n)));
        const double tax = RoundDecimal(NumberValue(row.Get("FTaxRate"), Where("FTaxRate", n)));
        if (1 + tax / 100 == 0) DivideByZero(Where("FTaxRate", n) + " is -100");
        amount[supplier] += price * qty * (1 - discount / 100) / (1 + tax / 100);
      }
    }
    std::vector<int32_t> ids;
    for (const auto& [id, sum] : amount) ids.push_back(id);
    const std::map<int32_t, repo::SupplierCredit> limits = repo::SupplierCredits(c, ids);
    std::string over;
    for (const auto& [id, sum] : amount) {
      auto it = limits.find(id);
      if (it == limits.end() || it->second.credit.IsNull() || it->second.credit.IsEmpty())
        continue;
      const double credit = it->second.credit.ToDouble();
      if (RoundDecimal(sum) > credit && credit > 0) {
        over += it->second.name + "[" + it->second.number + "]、";
      }
    }
    SupplyName += over;
    if (Trim(SupplyName).empty()) return true;
    // The last character goes: the final "、" (or, when nothing was
    // appended, whatever the caller's text ended with).
    size_t cut = SupplyName.size() - 1;
    while (cut > 0 && (static_cast<unsigned char>(SupplyName[cut]) & 0xC0) == 0x80) --cut;
    SupplyName.resize(cut);
    return false;
  });
}

VectorPtr MrpDataServer::RefreshPOOrderBill(const std::string& dsn,
                                            const std::string& StrInterIDs) {
  return Run(dsn, [&](db::Connection& c) {
    const auto ids = db::ParseIdList(StrInterIDs, "order list StrInterIDs");
    if (ids.empty())
      ThrowInvalid("order list StrInterIDs is empty: give purchase-order interior ids");
    return repo::OrderSummaries(c, ids);
  });
}

void MrpDataServer::UpdateBillStockFinishQty(const std::string& dsn, const VectorPtr& vctStockBill,
                                             const std::string&) {
  Run(dsn, [&](db::Connection& c) {
    // Quantities per task bill number (85, 91; letter case aside) and per
    // sales-order line, in row order.
    std::map<std::string, std::vector<double>> tasks[2];
    std::map<std::pair<int32_t, int32_t>, std::vector<double>> sales;
    if (vctStockBill) {
      for (size_t i = 0; i < vctStockBill->rows().size(); ++i) {
        const Dictionary& row = *vctStockBill->rows()[i];
        const size_t n = i + 1;
        int32_t type = 0;
        try {
          type = QuotedIntValue(row.Get("Ftrantype"), "Ftrantype");
        } catch (const Error&) {
          continue;  // not a type that is completed here
        }
        if (type != kTranSalesOrder && type != kTranProductionTask && type != kTranOutsourcingTask) continue;
        const double qty = RoundDecimal(NumberValue(row.Get("FQty"), Where("FQty", n)));
        if (type == kTranSalesOrder) {
          sales[{IntValue(row.Get("FInterID"), Where("FInterID", n)),
                 IntValue(row.Get("FEntryID"), Where("FEntryID", n))}]
              .push_back(qty);
        } else {
          tasks[type == kTranProductionTask ? 0 : 1][FoldKey(TextValue(row.Get("FBillNO")))].push_back(qty);
        }
      }
    }
    // Divided by the coefficient of the document's own unit (0 counts as 1).
    auto per_unit = [](double qty, const Variant& coefficient) -> Variant {
      if (coefficient.IsNull()) return Variant::Null();
      const double k = coefficient.ToDouble();
      return RoundDecimal(qty / (k == 0 ? 1 : k));
    };
    const int32_t task_types[] = {kTranProductionTask, kTranOutsourcingTask};
    for (int t = 0; t < 2; ++t) {
      if (tasks[t].empty()) continue;
      std::vector<std::string> bills;
      for (const auto& [bill, q] : tasks[t]) bills.push_back(bill);
      std::vector<std::pair<int32_t, Variant>> updates;
      for (const repo::TaskUnit& task : repo::TasksByBillNumber(c, task_types[t], bills)) {
        Variant total = 0.0;
        for (double q : tasks[t][FoldKey(task.bill_no)]) {
          const Variant part = per_unit(q, task.coefficient);
          total = part.IsNull() || total.IsNull() ? Variant::Null()
                                                  : Variant(total.ToDouble() + part.ToDouble());
        }
        updates.emplace_back(task.inter_id, total);
      }
      repo::AddTaskFinished(c, task_types[t], updates);
    }
    if (!sales.empty()) {
      std::set<int32_t> orders;
      for (const auto& [key, q] : sales) orders.insert(key.first);
      std::vector<std::tuple<int32_t, int32_t, Variant, double>> updates;
      for (const repo::SalesLineUnit& line :
           repo::SalesLineUnits(c, std::vector<int32_t>(orders.begin(), orders.end()))) {
        auto it = sales.find({line.inter_id, line.entry_id});
        if (it == sales.end()) continue;
        // Each row set the finished figure from the base figure before
        // it: the last row's share, on top of the others.
        double before_last = 0, all = 0;
        for (size_t k = 0; k < it->second.size(); ++k) {
          all += it->second[k];
          if (k + 1 < it->second.size()) before_last += it->second[k];
        }
        const Variant last = per_unit(it->second.back(), line.coefficient);
        updates.emplace_back(line.inter_id, line.entry_id,
                             last.IsNull() ? last : Variant(before_last + last.ToDouble()), all);
      }
      repo::AddSalesLineFinished(c, updates);
    }
  });
}

}  // namespace mrpcalc
