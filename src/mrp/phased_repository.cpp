// Time-phased planning's own tables, and the dated open supply of the ERP.
#include "mrp/phased_repository.h"

#include <algorithm>

#include "record/column_value.h"
#include "record/error.h"
#include "services/numbering.h"

namespace mrpcalc::repo {
namespace {

using Row = std::vector<Variant>;

constexpr const char* kParameterColumns =
    "FItemID, FSupplyID, FLeadTime, FProdLeadTime, FProdLeadPerUnit, FSafetyQty, FSafetyDays,"
    " FMinQty, FMultiple, FMaxQty, FOrderPeriod, FFirmFence";

double Number(const Variant& v) { return v.IsNull() ? 0 : v.ToDouble(); }
int32_t Whole(const Variant& v) { return v.IsNull() ? 0 : v.ToLong(); }

Variant DateValue(phased::Day day) { return Variant(phased::DateOf(day)); }

}  // namespace

std::vector<PlanningParameters> ReadPlanningParameters(db::Connection& c,
                                                       const std::vector<int32_t>& items) {
  std::vector<PlanningParameters> out;
  // Read in place: a factory has a row for most of its items.
  auto each = [&](const db::RowView& r) {
    using Kind = db::RowView::Kind;
    auto number = [&](int k) {
      switch (r.kind(k)) {
        case Kind::kNull:
          return 0.0;
        case Kind::kInteger:
        case Kind::kFloat:
          return r.number(k);
        default:
          return r.value(k).ToDouble();
      }
    };
    auto whole = [&](int k) {
      return r.kind(k) == Kind::kInteger ? int32_t(r.integer(k)) : int32_t(number(k));
    };
    PlanningParameters p;
    p.item = whole(0);
    p.supplier = whole(1);
    p.lead_time = whole(2);
    p.production_lead_time = whole(3);
    p.production_lead_per_unit = number(4);
    p.safety_qty = number(5);
    p.safety_days = number(6);
    p.min_qty = number(7);
    p.multiple = number(8);
    p.max_qty = number(9);
    p.order_period = whole(10);
    p.firm_fence = whole(11);
    out.push_back(p);
  };
  const std::string select = std::string("select ") + kParameterColumns + " from mrpcalc_PlanParam";
  if (items.empty()) {
    c.QueryView(select, {}, each);
  } else {
    db::QueryIn(c, items, select + " where FItemID in (%IDS%)", each);
  }
  std::sort(out.begin(), out.end(), [](const PlanningParameters& a, const PlanningParameters& b) {
    return std::pair(a.item, a.supplier) < std::pair(b.item, b.supplier);
  });
  return out;
}

void WritePlanningParameters(db::Connection& c, const PlanningParameters& p) {
  const double figures[] = {double(p.lead_time),   double(p.production_lead_time),
                            p.production_lead_per_unit, p.safety_qty,
                            p.safety_days,         p.min_qty,
                            p.multiple,            p.max_qty,
                            double(p.order_period), double(p.firm_fence)};
  for (double f : figures) {
    if (f < 0) ThrowInvalid("planning parameters are never negative");
  }
  if (p.supplier < 0) ThrowInvalid("the supplier id is never negative");
  if (c.QueryValue("select count(*) from t_ICItem where FItemID = ?", {p.item}).ToLong() == 0) {
    throw Error(ErrorCategory::kNotFound, "no item " + std::to_string(p.item));
  }
  c.Execute("delete from mrpcalc_PlanParam where FItemID = ? and FSupplyID = ?",
            {p.item, p.supplier});
  c.Execute(std::string("insert into mrpcalc_PlanParam (") + kParameterColumns +
                ") values (?,?,?,?,?,?,?,?,?,?,?,?)",
            {p.item, p.supplier, p.lead_time, p.production_lead_time, p.production_lead_per_unit,
             p.safety_qty, p.safety_days, p.min_qty, p.multiple, p.max_qty, p.order_period,
             p.firm_fence});
}

bool DeletePlanningParameters(db::Connection& c, int32_t item, int32_t supplier) {
  return c.Execute("delete from mrpcalc_PlanParam where FItemID = ? and FSupplyID = ?",
                   {item, supplier}) > 0;
}

phased::Calendar ReadCalendar(db::Connection& c) {
  phased::Calendar calendar;
  c.QueryRows("select FWeekday, FWorking from mrpcalc_WorkWeek", {}, [&](Row& r) {
    const int32_t weekday = Whole(r[0]);
    if (weekday >= 1 && weekday <= 7) calendar.working[size_t(weekday - 1)] = Whole(r[1]) != 0;
  });
  c.QueryRows("select FDate from mrpcalc_Holiday", {}, [&](Row& r) {
    if (!r[0].IsNull()) calendar.holidays.insert(phased::DayOf(r[0].ToDate()));
  });
  return calendar;
}

void WriteWorkingWeek(db::Connection& c, const std::array<bool, 7>& working) {
  if (std::none_of(working.begin(), working.end(), [](bool w) { return w; })) {
    ThrowInvalid("the calendar needs at least one working weekday");
  }
  c.Execute("delete from mrpcalc_WorkWeek");
  for (int d = 0; d < 7; ++d) {
    c.Execute("insert into mrpcalc_WorkWeek (FWeekday, FWorking) values (?, ?)",
              {d + 1, working[size_t(d)] ? 1 : 0});
  }
}

void AddHoliday(db::Connection& c, phased::Day day) {
  c.Execute("delete from mrpcalc_Holiday where FDate = ?", {DateValue(day)});
  c.Execute("insert into mrpcalc_Holiday (FDate) values (?)", {DateValue(day)});
}

bool RemoveHoliday(db::Connection& c, phased::Day day) {
  return c.Execute("delete from mrpcalc_Holiday where FDate = ?", {DateValue(day)}) > 0;
}

std::vector<DatedSupply> ReadOpenSupply(db::Connection& c) {
  std::vector<DatedSupply> out;
  auto add = [&](int32_t tran_type, Row& r, const std::string& id) {
    DatedSupply s;
    s.item = Whole(r[0]);
    s.tran_type = tran_type;
    s.inter_id = Whole(r[1]);
    s.id = id;
    s.dated = !r[3].IsNull();
    if (s.dated) s.day = phased::DayOf(r[3].ToDate());
    s.qty = Number(r[4]);
    out.push_back(std::move(s));
  };
  c.QueryRows(
      "select u.FItemID, u.FInterID, v.FBillNo, coalesce(u.FDate, v.FDate), u.FQty - u.FCommitQty,"
      " u.FEntryID"
      " from POOrderEntry u inner join POOrder v on u.FInterID = v.FInterID"
      " where v.FStatus in (1,2) and u.FQty > u.FCommitQty order by u.FInterID, u.FEntryID",
      {}, [&](Row& r) { add(71, r, TextValue(r[2]) + "/" + std::to_string(Whole(r[5]))); });
  for (const auto& [table, tran_type] : {std::pair("ICMO", 85), std::pair("ICOutMO", 91)}) {
    c.QueryRows(std::string("select FItemID, FInterID, FBillNo, FBeginDate,"
                            " FQty - coalesce(FStockFinishQty, 0) from ") +
                    table +
                    " where FStatus in (1,2) and FQty > coalesce(FStockFinishQty, 0)"
                    " order by FInterID",
                {}, [&, tran_type = tran_type](Row& r) { add(tran_type, r, TextValue(r[2])); });
  }
  return out;
}

int32_t SaveRun(db::Connection& c, int32_t user, const std::string& settings,
                const std::vector<SavedOrder>& orders) {
  // Run ids are drawn under a lock, so two saves never take the same one.
  HoldLock(c, "mrpcalc_PhasedRun");
  const Variant last = c.QueryValue("select max(FRunID) from mrpcalc_PhasedRun");
  const int32_t id = (last.IsNull() ? 0 : last.ToLong()) + 1;
  c.Execute("insert into mrpcalc_PhasedRun (FRunID, FCreated, FUserID, FSettings)"
            " values (?, ?, ?, ?)",
            {id, Date::Now(), user, settings});
  // A hundred orders a statement.
  constexpr size_t kRowsPerStatement = 100;
  const std::string head =
      "insert into mrpcalc_PhasedOrder (FRunID, FLine, FItemID, FItemNumber, FQty, FDue,"
      " FRelease, FLate, FReasons) values ";
  for (size_t from = 0; from < orders.size(); from += kRowsPerStatement) {
    const size_t to = std::min(orders.size(), from + kRowsPerStatement);
    std::string sql = head;
    db::Params params;
    for (size_t k = from; k < to; ++k) {
      const SavedOrder& o = orders[k];
      sql += k == from ? "(?,?,?,?,?,?,?,?,?)" : ",(?,?,?,?,?,?,?,?,?)";
      params.insert(params.end(),
                    {id, static_cast<int32_t>(k + 1), o.item, o.number, o.qty, DateValue(o.due),
                     DateValue(o.release), o.late ? 1 : 0, o.reasons.substr(0, 2000)});
    }
    c.Execute(sql, params);
  }
  return id;
}

namespace {

constexpr const char* kRunColumns =
    "select FRunID, FCreated, FUserID, FSettings from mrpcalc_PhasedRun";

SavedRun RunOf(const Row& r) {
  return {Whole(r[0]), r[1].IsNull() ? Date() : r[1].ToDate(), Whole(r[2]), TextValue(r[3])};
}

}  // namespace

std::vector<SavedRun> ReadRuns(db::Connection& c) {
  std::vector<SavedRun> out;
  c.QueryRows(std::string(kRunColumns) + " order by FRunID desc", {},
              [&](Row& r) { out.push_back(RunOf(r)); });
  return out;
}

std::optional<SavedRun> ReadRun(db::Connection& c, int32_t id) {
  std::optional<SavedRun> out;
  c.QueryRows(std::string(kRunColumns) + " where FRunID = ?", {id},
              [&](Row& r) { out = RunOf(r); });
  return out;
}

std::vector<SavedOrder> ReadRunOrders(db::Connection& c, int32_t id) {
  std::vector<SavedOrder> out;
  c.QueryRows("select FItemID, FItemNumber, FQty, FDue, FRelease, FLate, FReasons"
              " from mrpcalc_PhasedOrder where FRunID = ? order by FLine",
              {id}, [&](Row& r) {
                SavedOrder o;
                o.item = Whole(r[0]);
                o.number = TextValue(r[1]);
                o.qty = Number(r[2]);
                o.due = phased::DayOf(r[3].ToDate());
                o.release = phased::DayOf(r[4].ToDate());
                o.late = Whole(r[5]) != 0;
                o.reasons = TextValue(r[6]);
                out.push_back(std::move(o));
              });
  return out;
}

}  // namespace mrpcalc::repo

namespace mrpcalc::repo {
namespace {

int32_t IdByNumber(db::Connection& c, const char* table, const char* what,
                   const std::string& number) {
  int32_t id = 0;
  c.QueryRows(std::string("select FItemID from ") + table + " where " +
                  c.dialect().TextIs("FNumber") + " order by FItemID",
              {number}, [&](std::vector<Variant>& r) {
                if (id == 0) id = r[0].ToLong();
              });
  if (id == 0) throw Error(ErrorCategory::kNotFound, std::string("no ") + what + " \"" + number + "\"");
  return id;
}

}  // namespace

int32_t ItemIdByNumber(db::Connection& c, const std::string& number) {
  return IdByNumber(c, "t_ICItem", "item", number);
}

int32_t SupplierIdByNumber(db::Connection& c, const std::string& number) {
  return IdByNumber(c, "t_Supplier", "supplier", number);
}

std::map<int32_t, std::string> SupplierNumbers(db::Connection& c, const std::vector<int32_t>& ids) {
  std::map<int32_t, std::string> out;
  if (ids.empty()) return out;
  db::QueryIn(c, ids, "select FItemID, FNumber from t_Supplier where FItemID in (%IDS%)",
              [&](std::vector<Variant>& r) { out[r[0].ToLong()] = TextValue(r[1]); });
  return out;
}

}  // namespace mrpcalc::repo
