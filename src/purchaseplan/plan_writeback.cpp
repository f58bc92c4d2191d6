// The plan follows its purchase orders. PurchasePlanOrder says how much of
// which plan line each order line took (by the line's FPurchasePlanKey);
// when an order is edited, loses lines, or is cancelled or restored, the
// plan lines' purchased quantity and closing state follow.
//
// The ERP's statements update a plan line from a join with its links: a
// line matched by several links takes one of them (the first here), and
// the statement for a deleted order line runs once per link of that line.
// Both are kept. Keys match as the server matches text, letter case aside.
#include <map>
#include <set>

#include "purchaseplan/plan_link_repository.h"
#include "purchaseplan/plan_repository.h"
#include "purchaseplan/purchase_plan.h"
#include "record/column_value.h"
#include "record/text.h"

namespace mrpcalc {
namespace {

using LineKey = repo::PlanLineKey;
using PlanLine = repo::PlanLineProgress;
using Link = repo::OrderLink;

std::map<LineKey, PlanLine> LoadPlanLines(db::Connection& c, const std::vector<Link>& links) {
  std::set<int32_t> plans;
  for (const auto& l : links) plans.insert(l.line.first);
  return repo::PlanLineProgresses(c, {plans.begin(), plans.end()});
}

// Takes back what the links of one order line gave their plan lines:
// each plan line once, by its first link; a line closed because it was
// fully purchased opens again.
void TakeBack(const std::vector<Link>& links, int32_t order, int32_t item, const std::string& key,
              std::map<LineKey, PlanLine>& lines) {
  std::set<LineKey> done;
  for (const Link& l : links) {
    if (!l.Of(order, item, key) || !done.insert(l.line).second) continue;
    auto it = lines.find(l.line);
    if (it == lines.end()) continue;
    it->second.finished = RoundDecimal(it->second.finished - l.qty);
    if (it->second.closed == 1) it->second.closed = 0;
    it->second.dirty = true;
  }
}


}  // namespace

void PurchasePlanUpdate::UpdatePurchasePlanQtyOfCancelBill(const std::string& dsn,
                                                           int32_t lOrderInterID,
                                                           bool blnIsCancel) {
  Run(dsn, [&](db::Connection& c) {
    repo::AddPurchased(c, repo::PlanLinesTakenByOrder(c, lOrderInterID), blnIsCancel);
  });
}

void PurchasePlanUpdate::UpdatePurchasePlanQtyOfDeleteRow(const std::string& dsn,
                                                          int32_t lOrderInterID) {
  Run(dsn, [&](db::Connection& c) {
    const std::vector<Link> orphans = repo::OrderLinksOf(c, lOrderInterID, true);
    if (orphans.empty()) return;
    std::map<LineKey, PlanLine> lines = LoadPlanLines(c, orphans);
    for (const Link& o : orphans) TakeBack(orphans, o.order, o.item, o.key, lines);
    repo::WritePlanLineProgress(c, lines);
    repo::DeleteOrphanOrderLinks(c, lOrderInterID);
  });
}

VectorPtr PurchasePlanUpdate::UpdatePurchasePlanQty(const std::string& dsn, int32_t lOrderInterID) {
  return Run(dsn, [&](db::Connection& c) -> VectorPtr {
    const std::vector<repo::ChangedOrderLine> changed = repo::ChangedOrderLines(c, lOrderInterID);
    if (changed.empty()) return nullptr;
    std::vector<Link> links = repo::OrderLinksOf(c, lOrderInterID);
    std::map<LineKey, PlanLine> lines = LoadPlanLines(c, links);

    auto result = Vector::Create();
    for (const repo::ChangedOrderLine& line : changed) {
      TakeBack(links, line.order, line.item, line.key, lines);
      // The links with each plan line's open quantity, read before the walk.
      struct Open {
        LineKey plan;
        double open;
      };
      std::vector<Open> walk;
      for (const Link& l : links) {
        auto it = lines.find(l.line);
        if (!l.Of(line.order, line.item, line.key) || it == lines.end()) continue;
        walk.push_back({l.line, it->second.qty - it->second.push_qty - it->second.finished});
      }
      // Every link of the order to that plan line takes the quantity.
      auto set_links = [&](const LineKey& plan, double qty) {
        for (Link& l : links)
          if (l.order == line.order && l.line == plan) l.qty = qty;
      };
      double remaining = line.order_qty;
      std::string bills, key;
      for (size_t i = 0; i < walk.size(); ++i) {
        PlanLine& p = lines[walk[i].plan];
        double given = 0;
        if (walk[i].open <= remaining) {
          given = RoundDecimal(i + 1 == walk.size() ? remaining : walk[i].open);
          p.finished = RoundDecimal(p.finished + given);
          if (p.finished >= p.qty && p.closed == 0) p.closed = 1;
          set_links(walk[i].plan, given);
          remaining -= walk[i].open;
        } else if (remaining <= 0) {
          std::erase_if(links, [&](const Link& l) {
            return l.order == line.order && l.line == walk[i].plan;
          });
          continue;
        } else {
          given = RoundDecimal(remaining);
          p.finished = RoundDecimal(p.finished + given);
          set_links(walk[i].plan, given);
          remaining = 0;
        }
        p.dirty = true;
        bills += Trim(p.bill_no) + ",";
        key += std::to_string(walk[i].plan.first) + "_" + std::to_string(walk[i].plan.second) + ",";
      }
      if (bills.empty()) continue;
      bills.pop_back();
      key.pop_back();
      repo::SetOrderLinePlan(c, line.order, line.item, line.key, bills, key);
      for (Link& l : links)
        if (l.Of(line.order, line.item, line.key)) l.key = key;
      auto row = Dictionary::Create();
      row->Set("FInterID", line.order);
      row->Set("FNumber", line.item_number);
      row->Set("FPurchasePlanBillNo", bills);
      row->Set("OldFPurchasePlanKey", line.key);
      row->Set("NewFPurchasePlanKey", key);
      result->Add(row);
    }
    repo::WritePlanLineProgress(c, lines);
    // The order's links as they stand now.
    repo::ReplaceOrderLinks(c, lOrderInterID, links);
    return result;
  });
}

}  // namespace mrpcalc
