// Synthetic ERP data: items in 7 levels (0 products .. 6 raw materials), a
// bill for every made item whose lines point one level down, stock, open
// purchase orders, history, and open sales orders for the products.
#include "sample/synthetic.h"

#include <algorithm>
#include <cmath>
#include <random>

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
  c.Execute(
      "insert into t_MeasureUnit (FMeasureUnitID, FItemID, FNumber, FName, FCoefficient) values "
      "(1, 1, 'PCS', 'pcs', 1)");
  c.Execute(
      "insert into t_SubMessage (FInterID, FTypeID, FID, FName) values (1072, 30, 'zt01', 'in "
      "use')");
  c.Execute("insert into t_SystemProfile (FCategory, FKey, FValue) values ('IC', 'BOMType', '1')");
  c.Execute("insert into t_Stock (FItemID, FNumber, FName, FTypeID) values (1, '01', 'main', 500)");
  c.Execute(
      "insert into t_Supplier (FItemID, FNumber, FName, FDeleted) values (1, 'S1', 'one', 0)");
  c.Execute(
      "insert into t_Supplier (FItemID, FNumber, FName, FDeleted) values (2, 'S2', 'two', 0)");
  auto item = c.Prepare(
      "insert into t_ICItem (FItemID, FNumber, FName, FErpClsID, FUnitID, FSecInv, FSource) values "
      "(?,?,?,?,1,?,?)");
  for (int i = 1; i <= items; ++i) {
    const bool is_made = i <= bills;
    const int level = is_made ? (i - 1) * kLevels / bills : 1 + (i - bills) % kLevels;
    (is_made ? made : bought)[level].push_back(i);
    char number[16];
    std::snprintf(number, sizeof number, "%05d", i);
    item->Execute({i, std::string(number), "item " + std::string(number), is_made ? 2 : 1,
                   is_made ? 0.0 : 5.0, (i % 2) + 1});
  }
  // Bills: 4 to 6 lines one level down, about one in four of them made.
  auto bom = c.Prepare(
      "insert into ICBOM (FInterID, FBOMNumber, FItemID, FQty, FAuxPropID, FUnitID, FUseStatus, "
      "FStatus) values (?,?,?,1,0,1,1072,1)");
  auto line = c.Prepare(
      "insert into ICBOMChild (FInterID, FEntryID, FItemID, FQty, FScrap, FAuxPropID, FUnitID, "
      "FNote) values (?,?,?,?,?,0,1,'')");
  std::vector<std::vector<std::pair<int, double>>> lines_of(static_cast<size_t>(bills) + 1);
  for (int level = 0; level < kLevels; ++level) {
    for (int parent : made[level]) {
      bom->Execute({parent, "BOM" + std::to_string(parent), parent});
      const int n = pick(4, 6);
      for (int e = 1; e <= n; ++e) {
        const auto& pool = (level + 1 < kLevels && !made[level + 1].empty() && pick(1, 4) == 1)
                               ? made[level + 1]
                               : bought[level + 1];
        const int child = pool[static_cast<size_t>(pick(0, static_cast<int>(pool.size()) - 1))];
        const double qty = pick(1, 4);
        line->Execute({parent, e, child, qty, pick(0, 1) ? 2.0 : 0.0});
        lines_of[static_cast<size_t>(parent)].emplace_back(child, qty);
      }
    }
  }
  auto stock =
      c.Prepare("insert into ICInventory (FItemID, FAuxPropID, FStockID, FQty) values (?,0,1,?)");
  auto po = c.Prepare(
      "insert into POOrder (FInterID, FBillNo, FSupplyID, FDate, FStatus) values (?,?,?,?,1)");
  auto po_line = c.Prepare(
      "insert into POOrderEntry (FInterID, FEntryID, FItemID, FQty, FCommitQty) values "
      "(?,1,?,?,?)");
  int order = 0;
  for (int i = bills + 1; i <= items; ++i) {
    if (i % 3 == 0) stock->Execute({i, static_cast<double>(pick(0, 500))});
    if (i % 4 == 0) {
      ++order;
      po->Execute({order, "PO" + std::to_string(order), (i % 2) + 1,
                   Date::FromParts(2026, 1 + i % 12, 1 + i % 28)});
      po_line->Execute({order, i, 100.0, static_cast<double>(pick(0, 100))});
    }
  }
  // Open sales orders: 10 lines each, for the top-level products.
  auto so = c.Prepare(
      "insert into SEOrder (FInterID, FBillNo, FTranType, FDate, FStatus) values (?,?,81,?,1)");
  auto so_line = c.Prepare(
      "insert into SEOrderEntry (FInterID, FEntryID, FItemID, FQty, FCommitQty, FUnitID, FDate) "
      "values (?,?,?,?,0,1,?)");
  for (int k = 0; k < demand; ++k) {
    const int inter = k / 10 + 1;
    if (k % 10 == 0)
      so->Execute({inter, "SO" + std::to_string(inter), Date::FromParts(2026, 11, 1)});
    const int product = made[0][static_cast<size_t>(k) % made[0].size()];
    so_line->Execute({inter, k % 10 + 1, product, static_cast<double>(pick(1, 50)),
                      Date::FromParts(2026, 12, 1 + k % 28)});
  }
  // Open production tasks for products, each with its material plan (one
  // bill level) and a checked issue of part of its first material.
  auto mo = c.Prepare(
      "insert into ICMO (FInterID, FBillNo, FTranType, FStatus, FItemID, FQty, FUnitID, "
      "FStockFinishQty, FBeginDate, FDate) values (?,?,85,1,?,?,1,0,?,?)");
  auto mo_line = c.Prepare(
      "insert into ICMOEntry (FInterID, FEntryID, FItemID, FPlanQty, FAuxPropID, FScrapRate, "
      "FUnitID, FNote) values (?,?,?,?,0,0,1,'')");
  auto issue = c.Prepare(
      "insert into ICStockBill (FInterID, FBillNo, FTranType, FDate, FCheckerID) values "
      "(?,?,24,?,1)");
  auto issue_line = c.Prepare(
      "insert into ICStockBillEntry (FInterID, FEntryID, FItemID, FQty, FSourceInterId, "
      "FSourceEntryID) values (?,1,?,?,?,1)");
  for (int k = 1; k <= kTasks; ++k) {
    const int product = made[0][static_cast<size_t>(k * 7) % made[0].size()];
    const double qty = pick(5, 40);
    const Date start = Date::FromParts(2026, 12, k);
    mo->Execute({k, "MO" + std::to_string(k), product, qty, start, start});
    const auto& plan = lines_of[static_cast<size_t>(product)];
    for (size_t e = 0; e < plan.size(); ++e) {
      mo_line->Execute({k, static_cast<int>(e) + 1, plan[e].first, plan[e].second * qty});
    }
    issue->Execute({k, "SOUT" + std::to_string(k), start});
    issue_line->Execute({k, plan[0].first, plan[0].second * qty / 2, k});
  }
  tx.Commit();
}

}  // namespace mrpcalc::sample
