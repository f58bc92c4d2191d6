// Closing, reopening and deleting purchase plans, and the write-back of
// purchase-order changes into the plans.
#include <map>
#include <set>

#include "purchaseplan/purchase_plan.h"
#include "purchaseplan/source_links.h"
#include "record/column_value.h"
#include "record/text.h"
#include "services/messages.h"
#include "services/numbering.h"

namespace mrpcalc {
namespace {

using Row = std::vector<Variant>;

constexpr const char* kAlreadyClosed = "该记录已经关闭，不能再次关闭！";
constexpr const char* kHasClosedLines = "该采购计划单中存在已关闭记录！";
constexpr const char* kLinkedToOrders = "该采购计划单已与采购订单";
constexpr const char* kLinkedTail = "关联！";

constexpr int32_t kOpen = kPlanLineOpen;
constexpr int32_t kFullyPurchased = kPlanLineFullyPurchased;
constexpr int32_t kClosedByHand = kPlanLineClosedByHand;

using LineKey = std::pair<int32_t, int32_t>;  // plan interior id, line

LineKey KeyOf(const Dictionary& row) {
  return {row.GetOr("FInterID", 0).ToLong(), row.GetOr("FEntryID", 0).ToLong()};
}

// The closing state of the lines the rows name, Null-free: a missing line
// is absent from the map.
std::map<LineKey, int32_t> ClosingStates(db::Connection& c, const VectorPtr& rows) {
  std::set<int32_t> plans;
  for (const auto& row : rows->rows()) plans.insert(KeyOf(*row).first);
  std::map<LineKey, int32_t> states;
  db::QueryIn(c, std::vector<int32_t>(plans.begin(), plans.end()),
              "select FInterID, FEntryID, FClosed from PurchasePlanEntry where FInterID in (%IDS%)",
              [&](Row& r) {
                states[{r[0].ToLong(), r[1].ToLong()}] = r[2].IsNull() ? -1 : r[2].ToLong();
              });
  return states;
}

}  // namespace

VectorPtr PurchasePlanUpdate::ClosePurchasePlan(const std::string& dsn,
                                                const VectorPtr& vctListData) {
  return Run(dsn, [&](db::Connection& c) {
    auto out = Vector::Create();
    if (!vctListData || vctListData->Count() == 0) return out;
    std::map<LineKey, int32_t> states = ClosingStates(c, vctListData);
    Messages messages(host_.login, host_.resources);
    auto close = c.Prepare(
        "update PurchasePlanEntry set FClosed = 2 where FClosed = 0 and FInterID = ? and FEntryID "
        "= ?");
    for (const auto& row : vctListData->rows()) {
      const LineKey key = KeyOf(*row);
      auto it = states.find(key);
      if (it == states.end() || it->second != kOpen) {
        row->Set("Error", messages.LoadResText(kAlreadyClosed, kSpacingNone));
        row->Set("Succeed", 0);
      } else {
        close->Execute({key.first, key.second});
        row->Set("FClosed", kOpen);  // the state read before the close
        row->Set("Succeed", 1);
        it->second = kClosedByHand;
      }
      out->Add(row);
    }
    return out;
  });
}

VectorPtr PurchasePlanUpdate::UnClosePurchasePlan(const std::string& dsn,
                                                  const VectorPtr& vctListData) {
  return Run(dsn, [&](db::Connection& c) {
    auto out = Vector::Create();
    if (!vctListData || vctListData->Count() == 0) return out;
    std::map<LineKey, int32_t> states = ClosingStates(c, vctListData);
    auto reopen = c.Prepare(
        "update PurchasePlanEntry set FClosed = 0 where FClosed = 2 and FInterID = ? and FEntryID "
        "= ?");
    for (const auto& row : vctListData->rows()) {
      const LineKey key = KeyOf(*row);
      auto it = states.find(key);
      if (it != states.end() && it->second == kClosedByHand) {
        reopen->Execute({key.first, key.second});
        it->second = kOpen;
        row->Set("Succeed", 1);
      } else {
        row->Set("Succeed", 0);
      }
      if (it != states.end())
        row->Set("FClosed", it->second < 0 ? Variant::Null() : Variant(it->second));
      out->Add(row);
    }
    return out;
  });
}

VectorPtr PurchasePlanUpdate::DeletePurchasePlan(const std::string& dsn,
                                                 const VectorPtr& vctListData) {
  return Run(dsn, [&](db::Connection& c) {
    auto out = Vector::Create();
    if (!vctListData || vctListData->Count() == 0) return out;
    // Deletion changes the sources' plan lists as saving does: one at a time.
    HoldLock(c, "PurchasePlan");
    std::set<int32_t> ids;
    for (const auto& row : vctListData->rows()) {
      ids.insert(IntValue(row->Get("FInterID"), "\"FInterID\" of a plan to delete"));
    }
    const std::vector<int32_t> id_list(ids.begin(), ids.end());
    std::set<int32_t> with_closed;
    db::QueryIn(c, id_list,
                "select distinct FInterID from PurchasePlanEntry where FClosed <> 0"
                " and FInterID in (%IDS%)",
                [&](Row& r) { with_closed.insert(r[0].ToLong()); });
    std::map<int32_t, std::string> orders;  // plan -> its order numbers, "0001,0002"
    db::QueryIn(
        c, id_list,
        "select distinct P.FPurchasePlanInterID, O.FBillNo from PurchasePlanOrder P"
        " inner join POOrder O on P.FInterID = O.FInterID"
        " where P.FPurchasePlanInterID in (%IDS%) order by P.FPurchasePlanInterID, O.FBillNo",
        [&](Row& r) {
          std::string& list = orders[r[0].ToLong()];
          list += (list.empty() ? "" : ",") + TextValue(r[1]);
        });
    struct Link {
      int32_t plan, type, source, line;
      double qty;
    };
    std::vector<Link> links;
    std::set<int32_t> task_ids[2], sales_ids;
    db::QueryIn(c, id_list,
                "select FInterID, FSourceTranType, FSourceInterId, FSourceFEntryID, FQty"
                " from PurchaseLink where FInterID in (%IDS%) order by FInterID, FEntryID",
                [&](Row& r) {
                  Link l{r[0].ToLong(), r[1].IsNull() ? 0 : r[1].ToLong(),
                         r[2].IsNull() ? 0 : r[2].ToLong(), r[3].IsNull() ? 0 : r[3].ToLong(),
                         r[4].IsNull() ? 0.0 : r[4].ToDouble()};
                  if (l.type == plan::kProductionTask) task_ids[0].insert(l.source);
                  if (l.type == plan::kOutsourcingTask) task_ids[1].insert(l.source);
                  if (l.type == plan::kSalesOrder) sales_ids.insert(l.source);
                  links.push_back(l);
                });
    // The sources as they still exist: tasks by interior id, sales-order
    // lines with their order's number.
    std::map<int32_t, std::string> task_bill[2];
    const char* tables[] = {"ICMO", "ICOutMO"};
    for (int t = 0; t < 2; ++t) {
      db::QueryIn(
          c, std::vector<int32_t>(task_ids[t].begin(), task_ids[t].end()),
          std::string("select FInterID, FBillNo from ") + tables[t] + " where FInterID in (%IDS%)",
          [&](Row& r) { task_bill[t][r[0].ToLong()] = TextValue(r[1]); });
    }
    std::map<std::pair<int32_t, int32_t>, std::string> sales_bill;
    db::QueryIn(c, std::vector<int32_t>(sales_ids.begin(), sales_ids.end()),
                "select SE.FInterID, SE.FEntryID, S.FBillNo from SEOrder S"
                " inner join SEOrderEntry SE on S.FInterID = SE.FInterID"
                " where SE.FInterID in (%IDS%)",
                [&](Row& r) {
                  sales_bill[{r[0].ToLong(), r[1].ToLong()}] = TextValue(r[2]);
                });

    Messages messages(host_.login, host_.resources);
    std::vector<std::pair<std::vector<plan::SourceLine>, std::string>> released;
    std::set<int32_t> deleted;
    std::set<std::string> returned;  // plan numbers in the result
    for (const auto& row : vctListData->rows()) {
      const int32_t id = row->Get("FInterID").ToLong();
      const std::string plan_no = TextValue(row->Get("FBillNo"));
      const bool gone = deleted.count(id) > 0;  // deleted earlier in this call
      row->Set("Succeed", 1);
      bool deletable = true;
      if (!gone && with_closed.count(id)) {
        deletable = false;
        row->Set("Succeed", 0);
        row->Set("Error", messages.LoadResText(kHasClosedLines, kSpacingNone));
      }
      if (!gone && orders.count(id)) {
        deletable = false;
        row->Set("Succeed", 0);
        row->Set("Error", messages.LoadResText(kLinkedToOrders, kSpacingAfter) + orders[id] +
                              messages.LoadResText(kLinkedTail, kSpacingNone));
      }
      if (deletable && !gone) {
        std::vector<plan::SourceLine> sources;
        for (const Link& l : links) {
          if (l.plan != id) continue;
          plan::SourceLine s;
          s.type = l.type;
          s.inter_id = l.source;
          s.qty = l.qty;
          if (l.type == plan::kProductionTask || l.type == plan::kOutsourcingTask) {
            auto& bills = task_bill[l.type == plan::kProductionTask ? 0 : 1];
            auto it = bills.find(l.source);
            if (it == bills.end()) continue;  // the source was deleted meanwhile
            s.bill_no = it->second;
          } else if (l.type == plan::kSalesOrder) {
            auto it = sales_bill.find({l.source, l.line});
            if (it == sales_bill.end()) continue;
            s.bill_no = it->second;
            s.entry_id = l.line;
          } else {
            continue;
          }
          sources.push_back(s);
        }
        released.emplace_back(std::move(sources), plan_no);
        deleted.insert(id);
      }
      // Refused rows always; a deleted plan once.
      if (returned.insert(plan_no).second || !deletable) out->Add(row);
    }
    plan::ApplySourceLinks(c, released, plan::Sign::kRemove);
    const std::vector<int32_t> gone(deleted.begin(), deleted.end());
    for (const char* statement :
         {"delete from PurchasePlan where FInterID in (%IDS%)",
          "delete from PurchasePlanEntry where FInterID in (%IDS%)",
          "delete from PurchasePlanOrder where FPurchasePlanInterID in (%IDS%)",
          "delete from PurchaseLink where FInterID in (%IDS%)"}) {
      db::ExecuteIn(c, gone, statement);
    }
    return out;
  });
}

}  // namespace mrpcalc
