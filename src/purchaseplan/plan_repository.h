// Purchase plans and their lines: the SQL of PurchasePlan and
// PurchasePlanEntry.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "db/connection.h"
#include "record/date.h"

namespace mrpcalc::repo {

using PlanLineKey = std::pair<int32_t, int32_t>;  // plan interior id, line

// --- Numbers and headers -------------------------------------------------------

// The server's clock.
Date ServerNow(db::Connection& connection);
// The largest plan interior id; nullopt when there is no plan.
std::optional<int32_t> LargestPlanId(db::Connection& connection);
// The numbers of plans whose number starts with the prefix (folded by
// FoldKey), as stored.
std::vector<std::string> PlanNumbersStartingWith(db::Connection& connection,
                                                 const std::string& folded_prefix);
void InsertPlanHeader(db::Connection& connection, const std::string& bill_no, int32_t inter_id,
                      const Date& date, int32_t biller);
// The interior id of each listed plan number found (by the number folded
// by FoldKey; the first plan where two share a number).
std::map<std::string, int32_t> PlanIdsByNumber(db::Connection& connection,
                                               const std::vector<std::string>& numbers);
// FDate of the first plan with the number (letter case aside); Empty when none.
Variant PlanDate(db::Connection& connection, const std::string& bill_no);

// --- Lines ---------------------------------------------------------------------

// A new plan line as saved.
struct NewPlanLine {
  int32_t entry_id = 0, item_id = 0, aux_prop_id = 0, supply_id = 0, unit_id = 0;
  double qty = 0, price = 0, amount = 0, aux_qty = 0, aux_price = 0, tax_rate = 0;
  Date date;
  std::string note;
};
void InsertPlanLines(db::Connection& connection, const std::string& bill_no, int32_t inter_id,
                     const std::vector<NewPlanLine>& lines);

// The editable columns of a plan line; the amount follows the price.
struct PlanLineEdit {
  int32_t supply_id = 0;
  Date date;
  double price = 0, push_qty = 0, tax_rate = 0;
  Variant discount_rate;  // FCess, as given
  std::string note;
  PlanLineKey line;
};
void UpdatePlanLines(db::Connection& connection, const std::vector<PlanLineEdit>& edits);

// FClosed of every line of the listed plans; -1 where it is NULL.
std::map<PlanLineKey, int32_t> ClosingStates(db::Connection& connection,
                                             const std::vector<int32_t>& plans);
// Sets FClosed from `from` to `to` on each listed line still in state `from`.
void SetClosingState(db::Connection& connection, const std::vector<PlanLineKey>& lines,
                     int32_t from, int32_t to);
// The listed plans that have a line not open.
std::vector<int32_t> PlansWithClosedLines(db::Connection& connection,
                                          const std::vector<int32_t>& plans);

// A plan line's purchase progress.
struct PlanLineProgress {
  double qty = 0, push_qty = 0, finished = 0;  // NULL reads as 0
  int32_t closed = 0;
  std::string bill_no;
  bool dirty = false;  // to be written back
};
std::map<PlanLineKey, PlanLineProgress> PlanLineProgresses(db::Connection& connection,
                                                           const std::vector<int32_t>& plans);
// Writes FPurchaseFinishQty and FClosed of the dirty lines.
void WritePlanLineProgress(db::Connection& connection,
                           const std::map<PlanLineKey, PlanLineProgress>& lines);
// Adds (or takes back) purchased quantities, then sets the lines not
// closed by hand to fully purchased or open by their quantities.
void AddPurchased(db::Connection& connection, const std::map<PlanLineKey, double>& quantities,
                  bool take_back);
// Pushed lines: their push quantity goes to 0 and the quantity joins the
// purchased one.
void RecordPushed(db::Connection& connection, const std::map<PlanLineKey, double>& quantities);
// Closes every fully purchased line of every plan.
void CloseFullyPurchased(db::Connection& connection);

// --- The plan report -----------------------------------------------------------

// Which lines the report shows. Texts compare as the server compares them.
struct PlanReportFilter {
  std::optional<std::string> bill_no;  // one plan; the rest is then ignored
  std::optional<Date> from, to;        // plan dates, inclusive
  std::optional<std::string> item_from, item_to, bill_from, bill_to;
  bool open_only = false;
};
// The report's rows, by plan date, number, item code and line: the plan
// line's columns up to FFinishDate, then FQtyDecimal, FPriceDecimal and
// the supplier's rights text.
void PlanReportRows(db::Connection& connection, const PlanReportFilter& filter,
                    const db::RowSink& each);

// --- Deletion ------------------------------------------------------------------

// Deletes the plans with their lines, order links and source links.
void DeletePlans(db::Connection& connection, const std::vector<int32_t>& plans);

}  // namespace mrpcalc::repo
