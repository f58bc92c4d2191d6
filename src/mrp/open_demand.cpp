// Open demand query.
#include "mrp/open_demand.h"

#include <set>

#include "record/text.h"

namespace mrpcalc::mrp {

using db::Connection;

namespace {

// Bill numbers order as the ERP's server orders text, letter case aside.
std::string OpenSalesLines(const db::Dialect& d) {
  return "select v.FBillNo, u.FInterID, u.FEntryID, u.FItemID, i.FNumber, i.FName,"
    " u.FQty - u.FCommitQty, m.FName, u.FDate, u.FPurchasePlanBillNo"
    " from SEOrderEntry u inner join SEOrder v on u.FInterID = v.FInterID"
    " inner join t_ICItem i on u.FItemID = i.FItemID"
    " left join t_MeasureUnit m on i.FUnitID = m.FMeasureUnitID"
    " where v.FStatus in (1,2) and u.FQty > u.FCommitQty"
    " order by " + d.CaseFolded("v.FBillNo") + ", u.FInterID, u.FEntryID";
}

// The task tables share one layout; the table name comes from code only.
std::string OpenTasks(const db::Dialect& d, const char* table) {
  return std::string(
             "select t.FBillNo, t.FInterID, 0, t.FItemID, i.FNumber, i.FName,"
             " t.FQty - t.FStockFinishQty, m.FName, t.FBeginDate, t.FPurchasePlanBillNo from ") +
         table +
         " t inner join t_ICItem i on t.FItemID = i.FItemID"
         " left join t_MeasureUnit m on i.FUnitID = m.FMeasureUnitID"
         " where t.FStatus in (1,2) order by " + d.CaseFolded("t.FBillNo") + ", t.FInterID";
}

void Collect(Connection& c, const std::string& sql, int tran_type,
             std::vector<OpenDemandLine>& out) {
  auto rs = c.Query(sql);
  for (const auto& row : rs->rows()) {
    OpenDemandLine line;
    line.tran_type = tran_type;
    line.bill_no = row[0].ToText();
    line.inter_id = row[1].ToLong();
    line.entry_id = row[2].ToLong();
    line.item_id = row[3].ToLong();
    line.item_number = row[4].IsNull() ? "" : row[4].ToText();
    line.item_name = row[5].IsNull() ? "" : row[5].ToText();
    line.open_qty = row[6].IsNull() ? 0 : row[6].ToDouble();
    line.unit_name = row[7].IsNull() ? "" : row[7].ToText();
    line.date = row[8].AsDate() ? *row[8].AsDate() : Date();
    // The ERP writes "0" for a list that names no plan.
    const std::string plans = row[9].IsNull() ? "" : Trim(row[9].ToText());
    line.plans = plans == "0" ? "" : plans;
    out.push_back(std::move(line));
  }
}

}  // namespace

std::vector<OpenDemandLine> ListOpenDemand(Connection& connection) {
  std::vector<OpenDemandLine> out;
  const db::Dialect& d = connection.dialect();
  Collect(connection, OpenSalesLines(d), kTranSalesOrder, out);
  Collect(connection, OpenTasks(d, "ICMO"), kTranProductionTask, out);
  Collect(connection, OpenTasks(d, "ICOutMO"), kTranOutsourcingTask, out);
  return out;
}

std::vector<OpenDemandLine> OpenDemandOf(Connection& connection,
                                         const std::vector<std::string>& bills) {
  std::set<std::string> wanted;
  for (const auto& bill : bills) wanted.insert(FoldKey(bill));
  std::vector<OpenDemandLine> out = ListOpenDemand(connection);
  if (!wanted.empty()) {
    std::erase_if(out, [&](const OpenDemandLine& l) { return !wanted.count(FoldKey(l.bill_no)); });
  }
  return out;
}

DemandSelection SelectDemand(Connection& connection, const std::vector<std::string>& bills,
                             int task_code, const std::vector<DemandLineKey>& only) {
  DemandSelection out{Vector::Create(), Vector::Create()};
  const std::set<DemandLineKey> wanted(only.begin(), only.end());
  for (const auto& l : OpenDemandOf(connection, bills)) {
    if (l.tran_type != kTranSalesOrder && l.tran_type != task_code) continue;
    if (!wanted.empty() && !wanted.count({l.tran_type, l.inter_id, l.entry_id})) continue;
    auto row = Dictionary::Create();
    row->Set("Ftrantype", l.tran_type);
    row->Set("FItemID", l.item_id);
    row->Set("FinterID", l.inter_id);
    row->Set("FEntryID", l.entry_id);
    row->Set("FBillNo", l.bill_no);
    row->Set("FQty", l.open_qty);
    row->Set("FItemName", l.item_name);
    row->Set("FItemNumber", l.item_number);
    out.lines->Add(row);
    auto source = Dictionary::Create();
    source->Set("FBillNO", l.bill_no);
    source->Set("Ftrantype", l.tran_type);
    source->Set("finterid", l.inter_id);
    source->Set("fentryid", l.entry_id);
    out.source->Add(source);
  }
  return out;
}

ReportArguments ArgumentsOf(Connection& connection, const ReportRequest& r) {
  const int task_code = r.sub_id == "WW" ? kTranOutsourcingTask : kTranProductionTask;
  DemandSelection selection = SelectDemand(connection, r.bills, task_code, r.lines);
  ReportArguments out{selection.lines, Dictionary::Create()};
  out.filter->Set("SubID", r.sub_id);
  out.filter->Set("Expand", int32_t{r.single_level ? 0 : 1});
  out.filter->Set("SourceData", selection.source);
  const std::pair<const char*, bool> switches[] = {
      {"NowStock", r.now_stock},    {"SaveStock", r.save_stock}, {"Moving", r.moving},
      {"UnSale", r.unsale},         {"Producing", r.producing},  {"Produc", r.produc},
      {"MidStockQty", r.mid_stock}, {"Virtual", r.virtual_stock}};
  for (const auto& [key, on] : switches) {
    if (on) out.filter->Set(key, int32_t{1});
  }
  return out;
}

ReportRequest BenchReportRequest() {
  ReportRequest r;
  r.now_stock = r.save_stock = r.moving = r.unsale = r.producing = r.produc = r.mid_stock = true;
  r.warehouses = "1";
  r.user = 1;
  r.form = 1;
  return r;
}

}  // namespace mrpcalc::mrp
