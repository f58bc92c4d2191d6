// Synthetic ERP data: items in 7 levels (0 products .. 6 raw materials), a
// bill for every made item whose lines point one level down, stock, open
// purchase orders, history, and open sales orders for the products.
#include "sample/synthetic.h"

#include <algorithm>
#include <cmath>
#include <random>

#include "sample/row_inserter.h"

namespace mrpcalc::sample {

void GenerateSynthetic(db::Connection& c, double scale) {
  const int items = std::max(50, static_cast<int>(10000 * scale));
  const int bills = std::max(10, static_cast<int>(2000 * scale));
  const int demand = std::max(5, static_cast<int>(2500 * scale));
  constexpr int kLevels = 6;
  constexpr int kTasks = 20;
  std::mt19937 rng(20261122);
  auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };

  // Made items (one bill each) spread over levels 0..5; the rest purchased,
  // spread over levels 1..6.
  std::vector<std::vector<int>> made(kLevels + 1), bought(kLevels + 1);
  db::Transaction tx(c);
  RowInserter(c, "t_MeasureUnit", "FMeasureUnitID,FItemID,FNumber,FName,FCoefficient")
      .Insert({1, 1, "PCS", "pcs", 1.0});
  RowInserter(c, "t_SubMessage", "FInterID,FTypeID,FID,FName").Insert({1072, 30, "zt01", "in use"});
  RowInserter(c, "t_SystemProfile", "FCategory,FKey,FValue").Insert({"IC", "BOMType", "1"});
  RowInserter(c, "t_Stock", "FItemID,FNumber,FName,FTypeID").Insert({1, "01", "main", 500});
  RowInserter supplier(c, "t_Supplier", "FItemID,FNumber,FName,FDeleted");
  supplier.Insert({1, "S1", "one", 0});
  supplier.Insert({2, "S2", "two", 0});
  RowInserter item(c, "t_ICItem", "FItemID,FNumber,FName,FErpClsID,FUnitID,FSecInv,FSource");
  for (int i = 1; i <= items; ++i) {
    const bool is_made = i <= bills;
    const int level = is_made ? (i - 1) * kLevels / bills : 1 + (i - bills) % kLevels;
    (is_made ? made : bought)[level].push_back(i);
    char number[16];
    std::snprintf(number, sizeof number, "%05d", i);
    item.Insert({i, std::string(number), "item " + std::string(number), is_made ? 2 : 1, 1,
                 is_made ? 0.0 : 5.0, (i % 2) + 1});
  }
  // Bills: 4 to 6 lines one level down, about one in four of them made.
  RowInserter bom(c, "ICBOM", "FInterID,FBOMNumber,FItemID,FQty,FAuxPropID,FUnitID,FUseStatus,FStatus");
  RowInserter line(c, "ICBOMChild", "FInterID,FEntryID,FItemID,FQty,FScrap,FAuxPropID,FUnitID,FNote");
  std::vector<std::vector<std::pair<int, double>>> lines_of(static_cast<size_t>(bills) + 1);
  for (int level = 0; level < kLevels; ++level) {
    for (int parent : made[level]) {
      bom.Insert({parent, "BOM" + std::to_string(parent), parent, 1.0, 0, 1, 1072, 1});
      const int n = pick(4, 6);
      for (int e = 1; e <= n; ++e) {
        const auto& pool = (level + 1 < kLevels && !made[level + 1].empty() && pick(1, 4) == 1)
                               ? made[level + 1]
                               : bought[level + 1];
        const int child = pool[static_cast<size_t>(pick(0, static_cast<int>(pool.size()) - 1))];
        const double qty = pick(1, 4);
        line.Insert({parent, e, child, qty, pick(0, 1) ? 2.0 : 0.0, 0, 1, ""});
        lines_of[static_cast<size_t>(parent)].emplace_back(child, qty);
      }
    }
  }
  RowInserter stock(c, "ICInventory", "FItemID,FAuxPropID,FStockID,FQty");
  RowInserter po(c, "POOrder", "FInterID,FBillNo,FSupplyID,FDate,FStatus");
  RowInserter po_line(c, "POOrderEntry", "FInterID,FEntryID,FItemID,FQty,FCommitQty");
  int order = 0;
  for (int i = bills + 1; i <= items; ++i) {
    if (i % 3 == 0) stock.Insert({i, 0, 1, static_cast<double>(pick(0, 500))});
    if (i % 4 == 0) {
      ++order;
      po.Insert({order, "PO" + std::to_string(order), (i % 2) + 1,
                 Date::FromParts(2026, 1 + i % 12, 1 + i % 28), 1});
      po_line.Insert({order, 1, i, 100.0, static_cast<double>(pick(0, 100))});
    }
  }
  // Open sales orders: 10 lines each, for the top-level products.
  RowInserter so(c, "SEOrder", "FInterID,FBillNo,FTranType,FDate,FStatus");
  RowInserter so_line(c, "SEOrderEntry", "FInterID,FEntryID,FItemID,FQty,FCommitQty,FUnitID,FDate");
  for (int k = 0; k < demand; ++k) {
    const int inter = k / 10 + 1;
    if (k % 10 == 0)
      so.Insert({inter, "SO" + std::to_string(inter), 81, Date::FromParts(2026, 11, 1), 1});
    const int product = made[0][static_cast<size_t>(k) % made[0].size()];
    so_line.Insert({inter, k % 10 + 1, product, static_cast<double>(pick(1, 50)), 0.0, 1,
                    Date::FromParts(2026, 12, 1 + k % 28)});
  }
  // Open production tasks for products, each with its material plan (one
  // bill level) and a checked issue of part of its first material.
  RowInserter mo(c, "ICMO",
                 "FInterID,FBillNo,FTranType,FStatus,FItemID,FQty,FUnitID,FStockFinishQty,"
                 "FBeginDate,FDate");
  RowInserter mo_line(c, "ICMOEntry",
                      "FInterID,FEntryID,FItemID,FPlanQty,FAuxPropID,FScrapRate,FUnitID,FNote");
  RowInserter issue(c, "ICStockBill", "FInterID,FBillNo,FTranType,FDate,FCheckerID");
  RowInserter issue_line(c, "ICStockBillEntry",
                         "FInterID,FEntryID,FItemID,FQty,FSourceInterId,FSourceEntryID");
  for (int k = 1; k <= kTasks; ++k) {
    const int product = made[0][static_cast<size_t>(k * 7) % made[0].size()];
    const double qty = pick(5, 40);
    const Date start = Date::FromParts(2026, 12, k);
    mo.Insert({k, "MO" + std::to_string(k), 85, 1, product, qty, 1, 0.0, start, start});
    const auto& plan = lines_of[static_cast<size_t>(product)];
    for (size_t e = 0; e < plan.size(); ++e) {
      mo_line.Insert(
          {k, static_cast<int>(e) + 1, plan[e].first, plan[e].second * qty, 0, 0.0, 1, ""});
    }
    issue.Insert({k, "SOUT" + std::to_string(k), 24, start, 1});
    issue_line.Insert({k, 1, plan[0].first, plan[0].second * qty / 2, k, 1});
  }
  tx.Commit();
}

}  // namespace mrpcalc::sample
