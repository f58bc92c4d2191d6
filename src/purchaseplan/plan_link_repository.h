// What ties plans to their sources and to purchase orders: the SQL of
// PurchaseLink, PurchasePlanOrder and the plan columns of POOrderEntry.
// Keys (FPurchasePlanKey) match as the server matches text, letter case
// aside.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "db/connection.h"
#include "purchaseplan/plan_repository.h"

namespace mrpcalc::repo {

// --- Source links (PurchaseLink) -------------------------------------------------

struct SourceLink {
  std::string bill_no;  // the plan's
  int32_t plan = 0, position = 0;
  std::optional<int32_t> type, source;  // FSourceTranType, FSourceInterId
  int32_t line = 0;                     // FSourceFEntryID, 0 when NULL
  double qty = 0;                       // 0 when NULL
};
void InsertSourceLinks(db::Connection& connection, const std::vector<SourceLink>& links);
// The links of the listed plans, by plan and position.
std::vector<SourceLink> SourceLinksOfPlans(db::Connection& connection,
                                           const std::vector<int32_t>& plans);

// --- Order links (PurchasePlanOrder) ---------------------------------------------

// How much of a plan line an order line took.
struct OrderLink {
  int32_t order = 0, item = 0;
  std::string key;  // the order line's FPurchasePlanKey
  PlanLineKey line;
  double qty = 0;
  bool Of(int32_t o, int32_t i, const std::string& k) const;
};
void InsertOrderLinks(db::Connection& connection, const std::vector<OrderLink>& links);
// The order's links by plan line; with `orphans_only`, only those whose
// order line (same key and item) no longer exists.
std::vector<OrderLink> OrderLinksOf(db::Connection& connection, int32_t order,
                                    bool orphans_only = false);
void DeleteOrphanOrderLinks(db::Connection& connection, int32_t order);
// Replaces every link of the order.
void ReplaceOrderLinks(db::Connection& connection, int32_t order,
                       const std::vector<OrderLink>& links);
// The order numbers of each listed plan's links, "0001,0002" by number.
std::map<int32_t, std::string> OrderNumbersOfPlans(db::Connection& connection,
                                                   const std::vector<int32_t>& plans);

// Each plan line's first link (by key, plan line) to a line of the order
// that still carries the link's key and item, with that link's quantity.
std::map<PlanLineKey, double> PlanLinesTakenByOrder(db::Connection& connection, int32_t order);

// An order line whose quantity differs from what its links took (links
// grouped by key, letter case aside, item and order), by line.
struct ChangedOrderLine {
  std::string key, item_number;
  int32_t item = 0, order = 0;
  double order_qty = 0;
};
std::vector<ChangedOrderLine> ChangedOrderLines(db::Connection& connection, int32_t order);
// Gives the order lines of an item and key their plan numbers and new key.
void SetOrderLinePlan(db::Connection& connection, int32_t order, int32_t item,
                      const std::string& key, const std::string& plan_numbers,
                      const std::string& new_key);

}  // namespace mrpcalc::repo
