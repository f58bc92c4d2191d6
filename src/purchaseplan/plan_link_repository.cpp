// Plan links on the ERP database.
#include "purchaseplan/plan_link_repository.h"

#include "record/column_value.h"
#include "record/text.h"

namespace mrpcalc::repo {
namespace {

using Row = std::vector<Variant>;

// An order line's link by its key: "<order line> = <link>" over key columns.
std::string SameKey(const db::Dialect& d, const std::string& line, const std::string& link) {
  return d.CaseFolded(line) + " = " + d.CaseFolded(link);
}

// Links (under the name `links`) whose order line is gone.
std::string Orphans(const db::Dialect& d, const std::string& links) {
  return " and not exists (select 1 from POOrderEntry PE where PE.FInterID = " + links +
         ".FInterID and " + SameKey(d, "PE.FPurchasePlanKey", links + ".FPurchasePlanKey") +
         " and PE.FItemID = " + links + ".FItemID)";
}

constexpr const char* kInsertOrderLink =
    "insert into PurchasePlanOrder (FInterID, FItemID, FPurchasePlanKey, FPurchasePlanInterID,"
    " FPurchasePlanEntryID, FQty) values (?, ?, ?, ?, ?, ?)";

}  // namespace

bool OrderLink::Of(int32_t o, int32_t i, const std::string& k) const {
  return order == o && item == i && EqualsIgnoringCase(key, k);
}

void InsertSourceLinks(db::Connection& c, const std::vector<SourceLink>& links) {
  auto insert = c.Prepare(
      "insert into PurchaseLink (FBillNo, FInterID, FEntryID, FSourceTranType, FSourceInterId,"
      " FSourceFEntryID, FQty) values (?, ?, ?, ?, ?, ?, ?)");
  auto cell = [](const std::optional<int32_t>& v) { return v ? Variant(*v) : Variant::Null(); };
  for (const SourceLink& l : links) {
    insert->Execute(
        {l.bill_no, l.plan, l.position, cell(l.type), cell(l.source), l.line, l.qty});
  }
}

std::vector<SourceLink> SourceLinksOfPlans(db::Connection& c, const std::vector<int32_t>& plans) {
  std::vector<SourceLink> out;
  db::QueryIn(c, plans,
              "select FInterID, FSourceTranType, FSourceInterId, FSourceFEntryID, FQty"
              " from PurchaseLink where FInterID in (%IDS%) order by FInterID, FEntryID",
              [&](Row& r) {
                SourceLink l;
                l.plan = r[0].ToLong();
                if (!r[1].IsNull()) l.type = r[1].ToLong();
                if (!r[2].IsNull()) l.source = r[2].ToLong();
                l.line = r[3].IsNull() ? 0 : r[3].ToLong();
                l.qty = r[4].IsNull() ? 0.0 : r[4].ToDouble();
                out.push_back(std::move(l));
              });
  return out;
}

void InsertOrderLinks(db::Connection& c, const std::vector<OrderLink>& links) {
  auto insert = c.Prepare(kInsertOrderLink);
  for (const OrderLink& l : links) {
    insert->Execute({l.order, l.item, l.key, l.line.first, l.line.second, l.qty});
  }
}

std::vector<OrderLink> OrderLinksOf(db::Connection& c, int32_t order, bool orphans_only) {
  std::vector<OrderLink> links;
  c.QueryRows(
      "select PPO.FInterID, PPO.FItemID, PPO.FPurchasePlanKey, PPO.FPurchasePlanInterID,"
      " PPO.FPurchasePlanEntryID, PPO.FQty from PurchasePlanOrder PPO where PPO.FInterID = ?" +
          (orphans_only ? Orphans(c.dialect(), "PPO") : std::string()) +
          " order by PPO.FPurchasePlanInterID, PPO.FPurchasePlanEntryID",
      {order}, [&](Row& r) {
        links.push_back({r[0].ToLong(),
                         r[1].ToLong(),
                         TextValue(r[2]),
                         {r[3].ToLong(), r[4].ToLong()},
                         r[5].IsNull() ? 0 : r[5].ToDouble()});
      });
  return links;
}

void DeleteOrphanOrderLinks(db::Connection& c, int32_t order) {
  c.Execute("delete from PurchasePlanOrder where FInterID = ?" +
                Orphans(c.dialect(), "PurchasePlanOrder"),
            {order});
}

void ReplaceOrderLinks(db::Connection& c, int32_t order, const std::vector<OrderLink>& links) {
  c.Execute("delete from PurchasePlanOrder where FInterID = ?", {order});
  InsertOrderLinks(c, links);
}

std::map<int32_t, std::string> OrderNumbersOfPlans(db::Connection& c,
                                                   const std::vector<int32_t>& plans) {
  std::map<int32_t, std::string> orders;
  db::QueryIn(
      c, plans,
      "select distinct P.FPurchasePlanInterID, O.FBillNo from PurchasePlanOrder P"
      " inner join POOrder O on P.FInterID = O.FInterID"
      " where P.FPurchasePlanInterID in (%IDS%) order by P.FPurchasePlanInterID, O.FBillNo",
      [&](Row& r) {
        std::string& list = orders[r[0].ToLong()];
        list += (list.empty() ? "" : ",") + TextValue(r[1]);
      });
  return orders;
}

std::map<PlanLineKey, double> PlanLinesTakenByOrder(db::Connection& c, int32_t order) {
  std::map<PlanLineKey, double> taken;
  const db::Dialect& d = c.dialect();
  c.QueryRows(
      "select PPE.FInterID, PPE.FEntryID, PPO.FQty from PurchasePlanEntry PPE"
      " inner join PurchasePlanOrder PPO on PPO.FPurchasePlanInterID = PPE.FInterID"
      " and PPO.FPurchasePlanEntryID = PPE.FEntryID"
      " inner join POOrderEntry POE on PPO.FInterID = POE.FInterID"
      " and PPO.FItemID = POE.FItemID and " +
          SameKey(d, "PPO.FPurchasePlanKey", "POE.FPurchasePlanKey") +
          " where POE.FInterID = ? order by " + d.CaseFolded("PPO.FPurchasePlanKey") +
          ", PPO.FPurchasePlanInterID, PPO.FPurchasePlanEntryID",
      {order}, [&](Row& r) {
        taken.try_emplace({r[0].ToLong(), r[1].ToLong()}, r[2].IsNull() ? 0 : r[2].ToDouble());
      });
  return taken;
}

std::vector<ChangedOrderLine> ChangedOrderLines(db::Connection& c, int32_t order) {
  std::vector<ChangedOrderLine> changed;
  const db::Dialect& d = c.dialect();
  c.QueryRows(
      "select PPO.FPurchasePlanKey, T.FNumber, PPO.FItemID, PPO.FInterID, PE.FQty"
      " from POOrderEntry PE inner join (select min(FPurchasePlanKey) as FPurchasePlanKey,"
      " FItemID, FInterID, sum(FQty) as FQty from PurchasePlanOrder group by " +
          d.CaseFolded("FPurchasePlanKey") +
          ", FItemID, FInterID) PPO on " +
          SameKey(d, "PE.FPurchasePlanKey", "PPO.FPurchasePlanKey") +
          " and PE.FItemID = PPO.FItemID and PE.FInterID = PPO.FInterID"
          " inner join t_ICItem T on PE.FItemID = T.FItemID"
          " where PE.FQty <> PPO.FQty and PE.FInterID = ? order by PE.FEntryID",
      {order}, [&](Row& r) {
        changed.push_back({TextValue(r[0]), TextValue(r[1]), r[2].ToLong(), r[3].ToLong(),
                           r[4].IsNull() ? 0 : r[4].ToDouble()});
      });
  return changed;
}

void SetOrderLinePlan(db::Connection& c, int32_t order, int32_t item, const std::string& key,
                      const std::string& plan_numbers, const std::string& new_key) {
  c.Execute(
      "update POOrderEntry set FPurchasePlanBillNo = ?, FPurchasePlanKey = ?"
      " where FInterID = ? and FItemID = ? and " + c.dialect().TextIs("FPurchasePlanKey"),
      {plan_numbers, new_key, order, item, FoldKey(key)});
}

}  // namespace mrpcalc::repo
