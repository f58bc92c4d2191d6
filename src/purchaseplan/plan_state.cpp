// Closing, reopening and deleting purchase plans, and the write-back of
// purchase-order changes into the plans.
#include <map>
#include <set>

#include "purchaseplan/plan_link_repository.h"
#include "purchaseplan/plan_repository.h"
#include "purchaseplan/plan_source_repository.h"
#include "purchaseplan/purchase_plan.h"
#include "purchaseplan/source_links.h"
#include "record/column_value.h"
#include "record/text.h"
#include "services/messages.h"
#include "services/numbering.h"

namespace mrpcalc {
namespace {

constexpr const char* kAlreadyClosed = "该记录已经关闭，不能再次关闭！";
constexpr const char* kHasClosedLines = "该采购计划单中存在已关闭记录！";
constexpr const char* kLinkedToOrders = "该采购计划单已与采购订单";
constexpr const char* kLinkedTail = "关联！";

constexpr int32_t kOpen = kPlanLineOpen;
constexpr int32_t kFullyPurchased = kPlanLineFullyPurchased;
constexpr int32_t kClosedByHand = kPlanLineClosedByHand;

using LineKey = repo::PlanLineKey;

LineKey KeyOf(const Dictionary& row) {
  return {row.GetOr("FInterID", 0).ToLong(), row.GetOr("FEntryID", 0).ToLong()};
}

// The closing state of the lines the rows name, Null-free: a missing line
// is absent from the map.
std::map<LineKey, int32_t> ClosingStates(db::Connection& c, const VectorPtr& rows) {
  std::set<int32_t> plans;
  for (const auto& row : rows->rows()) plans.insert(KeyOf(*row).first);
  return repo::ClosingStates(c, {plans.begin(), plans.end()});
}

}  // namespace

VectorPtr PurchasePlanUpdate::ClosePurchasePlan(const std::string& dsn,
                                                const VectorPtr& vctListData) {
  return Run(dsn, [&](db::Connection& c) {
    auto out = Vector::Create();
    if (!vctListData || vctListData->Count() == 0) return out;
    std::map<LineKey, int32_t> states = ClosingStates(c, vctListData);
    Messages messages(host_.login, host_.resources);
    std::vector<LineKey> closing;
    for (const auto& row : vctListData->rows()) {
      const LineKey key = KeyOf(*row);
      auto it = states.find(key);
      if (it == states.end() || it->second != kOpen) {
        row->Set("Error", messages.LoadResText(kAlreadyClosed, kSpacingNone));
        row->Set("Succeed", 0);
      } else {
        closing.push_back(key);
        row->Set("FClosed", kOpen);  // the state read before the close
        row->Set("Succeed", 1);
        it->second = kClosedByHand;
      }
      out->Add(row);
    }
    repo::SetClosingState(c, closing, kOpen, kClosedByHand);
    return out;
  });
}

VectorPtr PurchasePlanUpdate::UnClosePurchasePlan(const std::string& dsn,
                                                  const VectorPtr& vctListData) {
  return Run(dsn, [&](db::Connection& c) {
    auto out = Vector::Create();
    if (!vctListData || vctListData->Count() == 0) return out;
    std::map<LineKey, int32_t> states = ClosingStates(c, vctListData);
    std::vector<LineKey> reopening;
    for (const auto& row : vctListData->rows()) {
      const LineKey key = KeyOf(*row);
      auto it = states.find(key);
      if (it != states.end() && it->second == kClosedByHand) {
        reopening.push_back(key);
        it->second = kOpen;
        row->Set("Succeed", 1);
      } else {
        row->Set("Succeed", 0);
      }
      if (it != states.end())
        row->Set("FClosed", it->second < 0 ? Variant::Null() : Variant(it->second));
      out->Add(row);
    }
    repo::SetClosingState(c, reopening, kClosedByHand, kOpen);
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
    const std::vector<int32_t> closed_list = repo::PlansWithClosedLines(c, id_list);
    const std::set<int32_t> with_closed(closed_list.begin(), closed_list.end());
    std::map<int32_t, std::string> orders = repo::OrderNumbersOfPlans(c, id_list);
    const std::vector<repo::SourceLink> links = repo::SourceLinksOfPlans(c, id_list);
    std::set<int32_t> task_ids[2], sales_ids;
    for (const repo::SourceLink& l : links) {
      const int32_t source = l.source.value_or(0);
      if (l.type == plan::kProductionTask) task_ids[0].insert(source);
      if (l.type == plan::kOutsourcingTask) task_ids[1].insert(source);
      if (l.type == plan::kSalesOrder) sales_ids.insert(source);
    }
    // The sources as they still exist: tasks by interior id, sales-order
    // lines with their order's number.
    std::map<int32_t, std::string> task_bill[2];
    const int32_t task_types[] = {plan::kProductionTask, plan::kOutsourcingTask};
    for (int t = 0; t < 2; ++t) {
      for (auto& [id, bill] :
           repo::BillNumbers(c, task_types[t], {task_ids[t].begin(), task_ids[t].end()})) {
        task_bill[t][id] = bill;
      }
    }
    const std::map<std::pair<int32_t, int32_t>, std::string> sales_bill =
        repo::SalesLineBillNumbers(c, {sales_ids.begin(), sales_ids.end()});

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
        for (const repo::SourceLink& l : links) {
          if (l.plan != id) continue;
          plan::SourceLine s;
          s.type = l.type.value_or(0);
          s.inter_id = l.source.value_or(0);
          s.qty = l.qty;
          if (l.type == plan::kProductionTask || l.type == plan::kOutsourcingTask) {
            auto& bills = task_bill[l.type == plan::kProductionTask ? 0 : 1];
            auto it = bills.find(s.inter_id);
            if (it == bills.end()) continue;  // the source was deleted meanwhile
            s.bill_no = it->second;
          } else if (l.type == plan::kSalesOrder) {
            auto it = sales_bill.find({s.inter_id, l.line});
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
    repo::DeletePlans(c, {deleted.begin(), deleted.end()});
    return out;
  });
}

}  // namespace mrpcalc
