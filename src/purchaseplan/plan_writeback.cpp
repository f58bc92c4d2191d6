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

#include "purchaseplan/purchase_plan.h"
#include "record/column_value.h"
#include "record/text.h"

namespace mrpcalc {
namespace {

using Row = std::vector<Variant>;
using LineKey = std::pair<int32_t, int32_t>;  // plan interior id, line

struct PlanLine {
  double qty = 0, push_qty = 0, finished = 0;
  int32_t closed = 0;
  std::string bill_no;
  bool dirty = false;
};

struct Link {
  int32_t order = 0, item = 0;
  std::string key;
  LineKey line;
  double qty = 0;
  bool Of(int32_t o, int32_t i, const std::string& k) const {
    return order == o && item == i && EqualsIgnoringCase(key, k);
  }
};

std::map<LineKey, PlanLine> LoadPlanLines(db::Connection& c, const std::vector<Link>& links) {
  std::set<int32_t> plans;
  for (const auto& l : links) plans.insert(l.line.first);
  std::map<LineKey, PlanLine> lines;
  db::QueryIn(c, std::vector<int32_t>(plans.begin(), plans.end()),
              "select FInterID, FEntryID, FQty, FPushQty, FPurchaseFinishQty, FClosed, FBillNo"
              " from PurchasePlanEntry where FInterID in (%IDS%)",
              [&](Row& r) {
                PlanLine p;
                p.qty = r[2].IsNull() ? 0 : r[2].ToDouble();
                p.push_qty = r[3].IsNull() ? 0 : r[3].ToDouble();
                p.finished = r[4].IsNull() ? 0 : r[4].ToDouble();
                p.closed = r[5].IsNull() ? 0 : r[5].ToLong();
                p.bill_no = TextValue(r[6]);
                lines[{r[0].ToLong(), r[1].ToLong()}] = p;
              });
  return lines;
}

void WritePlanLines(db::Connection& c, const std::map<LineKey, PlanLine>& lines) {
  auto update = c.Prepare(
      "update PurchasePlanEntry set FPurchaseFinishQty = ?, FClosed = ? where FInterID = ? and "
      "FEntryID = ?");
  for (const auto& [key, p] : lines) {
    if (p.dirty) update->Execute({p.finished, p.closed, key.first, key.second});
  }
}

// An order line's link by its key: "<order line> = <link>" over key columns.
std::string SameKey(const db::Dialect& d, const char* line, const char* link) {
  return d.CaseFolded(line) + " = " + d.CaseFolded(link);
}

std::string Orphans(const db::Dialect& d, const char* links) {
  return std::string(" and not exists (select 1 from POOrderEntry PE where PE.FInterID = ") +
         links + ".FInterID and " +
         SameKey(d, "PE.FPurchasePlanKey", (std::string(links) + ".FPurchasePlanKey").c_str()) +
         " and PE.FItemID = " + links + ".FItemID)";
}

std::vector<Link> LinksOfOrder(db::Connection& c, int32_t order,
                               const std::string& condition = "") {
  std::vector<Link> links;
  c.QueryRows(
      "select PPO.FInterID, PPO.FItemID, PPO.FPurchasePlanKey, PPO.FPurchasePlanInterID,"
      " PPO.FPurchasePlanEntryID, PPO.FQty from PurchasePlanOrder PPO where PPO.FInterID = ?" +
          condition + " order by PPO.FPurchasePlanInterID, PPO.FPurchasePlanEntryID",
      {order}, [&](Row& r) {
        links.push_back({r[0].ToLong(),
                         r[1].ToLong(),
                         TextValue(r[2]),
                         {r[3].ToLong(), r[4].ToLong()},
                         r[5].IsNull() ? 0 : r[5].ToDouble()});
      });
  return links;
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
    std::map<LineKey, double> taken;  // each plan line's first link
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
        {lOrderInterID}, [&](Row& r) {
          taken.try_emplace({r[0].ToLong(), r[1].ToLong()}, r[2].IsNull() ? 0 : r[2].ToDouble());
        });
    auto quantity = c.Prepare(std::string("update PurchasePlanEntry set FPurchaseFinishQty = "
                                          "FPurchaseFinishQty ") +
                              (blnIsCancel ? "-" : "+") + " ? where FInterID = ? and FEntryID = ?");
    auto state = c.Prepare(
        "update PurchasePlanEntry set FClosed = case when FPurchaseFinishQty >= FQty then 1 else 0 "
        "end"
        " where FInterID = ? and FEntryID = ? and FClosed <> 2");
    for (const auto& [line, qty] : taken) quantity->Execute({qty, line.first, line.second});
    for (const auto& [line, qty] : taken) state->Execute({line.first, line.second});
  });
}

void PurchasePlanUpdate::UpdatePurchasePlanQtyOfDeleteRow(const std::string& dsn,
                                                          int32_t lOrderInterID) {
  Run(dsn, [&](db::Connection& c) {
    const std::vector<Link> orphans = LinksOfOrder(c, lOrderInterID, Orphans(c.dialect(), "PPO"));
    if (orphans.empty()) return;
    std::map<LineKey, PlanLine> lines = LoadPlanLines(c, orphans);
    for (const Link& o : orphans) TakeBack(orphans, o.order, o.item, o.key, lines);
    WritePlanLines(c, lines);
    c.Execute("delete from PurchasePlanOrder where FInterID = ?" +
                  Orphans(c.dialect(), "PurchasePlanOrder"),
              {lOrderInterID});
  });
}

VectorPtr PurchasePlanUpdate::UpdatePurchasePlanQty(const std::string& dsn, int32_t lOrderInterID) {
  return Run(dsn, [&](db::Connection& c) -> VectorPtr {
    struct Changed {
      std::string key, number;
      int32_t item, order;
      double order_qty;
    };
    std::vector<Changed> changed;
    const db::Dialect& d = c.dialect();
    // The links grouped by key as the server groups text, letter case aside.
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
        {lOrderInterID}, [&](Row& r) {
          changed.push_back({TextValue(r[0]), TextValue(r[1]), r[2].ToLong(), r[3].ToLong(),
                             r[4].IsNull() ? 0 : r[4].ToDouble()});
        });
    if (changed.empty()) return nullptr;
    std::vector<Link> links = LinksOfOrder(c, lOrderInterID);
    std::map<LineKey, PlanLine> lines = LoadPlanLines(c, links);

    auto result = Vector::Create();
    auto order_line = c.Prepare(
        "update POOrderEntry set FPurchasePlanBillNo = ?, FPurchasePlanKey = ?"
        " where FInterID = ? and FItemID = ? and " +
        d.TextIs("FPurchasePlanKey"));
    for (const Changed& line : changed) {
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
      order_line->Execute({bills, key, line.order, line.item, FoldKey(line.key)});
      for (Link& l : links)
        if (l.Of(line.order, line.item, line.key)) l.key = key;
      auto row = Dictionary::Create();
      row->Set("FInterID", line.order);
      row->Set("FNumber", line.number);
      row->Set("FPurchasePlanBillNo", bills);
      row->Set("OldFPurchasePlanKey", line.key);
      row->Set("NewFPurchasePlanKey", key);
      result->Add(row);
    }
    WritePlanLines(c, lines);
    // The order's links as they stand now.
    c.Execute("delete from PurchasePlanOrder where FInterID = ?", {lOrderInterID});
    auto insert = c.Prepare(
        "insert into PurchasePlanOrder (FInterID, FItemID, FPurchasePlanKey, FPurchasePlanInterID,"
        " FPurchasePlanEntryID, FQty) values (?, ?, ?, ?, ?, ?)");
    for (const Link& l : links) {
      insert->Execute({l.order, l.item, l.key, l.line.first, l.line.second, l.qty});
    }
    return result;
  });
}

}  // namespace mrpcalc
