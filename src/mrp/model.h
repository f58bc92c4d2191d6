// What the MRP calculation takes in and gives back. The loader fills these
// from the ERP database; the calculation core never sees a connection.
//
// Nullable database values are std::optional: NULL is not zero, and the
// report keeps the NULLs the ERP's own statements leave (a material without
// a unit row has no code or name, a row without a supplier has none).
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "record/date.h"
#include "record/erp_codes.h"

namespace mrpcalc::mrp {

using OptInt = std::optional<int32_t>;
using OptNum = std::optional<double>;
using OptText = std::optional<std::string>;


// Which task bills the demand may hold ("SubID").
struct TaskKind {
  int32_t code = 0;          // 85 production, 91 outsourcing; 0 none
  std::string header_table;  // "ICMO" / "ICOutMO"
  std::string entry_table;   // "ICMOEntry" / "ICOutMOEntry"
};
// "SC" and "WW"; anything else gives the empty kind, which the calculation
// refuses as the database refused the statements naming no table.
TaskKind TaskKindFromSubId(const std::string& sub_id);

// One demand line after its required date is known.
// A row written by the BOM child expansion (the session table Data2222).
struct ChildRow {
  int32_t item_id = 0;  // component
  int32_t inter_id = 0;
  int32_t entry_id = 0;
  int32_t p_item_id = 0;  // the top-level parent given to the expansion
  OptNum suggest_qty;
  OptInt aux_prop_id;
  OptNum qty;        // the parent quantity the line refers to
  OptNum child_qty;  // the bill line's quantity
  OptNum scrap;
  std::optional<Date> date;
  OptText note;
};

struct DemandLine {
  int32_t tran_type = 0;
  int32_t item_id = 0;
  int32_t inter_id = 0;
  int32_t entry_id = 0;
  std::string bill_no;  // may name several bills joined by "/"
  double qty = 0;
  Date date;
};

struct Item {
  OptInt erp_cls;
  OptText number, name, model;
  OptInt unit_id;
  OptNum sec_inv;
  OptInt qty_decimal;
  OptInt source;  // default supplier
};

struct BomHeader {
  int32_t inter_id = 0;
  int32_t item_id = 0;
  OptNum qty;
  OptInt aux_prop_id;
  OptInt use_status;
  OptInt status;
};

struct BomChild {
  int32_t inter_id = 0;
  int32_t entry_id = 0;
  int32_t item_id = 0;
  OptNum qty;
  OptNum scrap;
  OptInt aux_prop_id;
  OptInt unit_id;
  OptText note;
};

struct TaskHeader {
  int32_t inter_id = 0;
  OptInt item_id;
  OptNum qty;
};

struct TaskEntry {
  int32_t inter_id = 0;
  int32_t entry_id = 0;
  int32_t item_id = 0;
  OptNum plan_qty;
  OptInt aux_prop_id;
  OptNum scrap_rate;
  OptText note;
};

// Quantity already issued to the demand's tasks, per material and property.
struct Issued {
  int32_t item_id = 0;
  OptInt aux_prop_id;
  OptNum qty;
};

using ItemAux = std::pair<int32_t, OptInt>;  // material and auxiliary property

// An earlier purchase document of a material: order, receipt or invoice.
struct PurchaseHistory {
  int32_t item_id = 0;
  OptInt supply_id;
  std::optional<Date> date;
};

struct Supplier {
  OptText number;
  OptText name;
  OptText right_user_ids;
  OptInt deleted;
};

struct Options {
  bool expand = false;           // "Expand" = 1: all BOM levels
  TaskKind task;                 // from "SubID"
  int bom_type = 1;              // system profile IC/BOMType: 1 yield loss, 2 surcharge
  bool now_stock = false, save_stock = false, moving = false, unsale = false;
  bool producing = false, produc = false, mid_stock = false;
  int frm_type = 0;              // form kind; 0 resets and suggests suppliers
  int32_t user_id = 0;
  bool peg = false;  // record each row's demand lines (ReportRow::pegs)
  // The multi-level explosion shares its demand rows with a second thread
  // from this many on (at a few hundred rows the thread saves nothing).
  size_t two_threads_from = 1000;
};

struct UserRights {
  bool administrator = false;
  bool group_right = false;
  bool supplier_data_rights = false;
};

// Everything the calculation reads.
struct Input {
  Options options;
  std::vector<DemandLine> demand;
  std::vector<std::string> demand_bill_numbers;  // the demand's own bills, unquoted

  std::unordered_map<int32_t, Item> items;
  std::unordered_map<int32_t, std::string> unit_names;  // t_MeasureUnit
  std::unordered_map<int32_t, OptText> aux_names;       // t_AuxItem
  std::vector<BomHeader> boms;                          // every bill the demand can reach
  std::vector<BomChild> bom_children;
  std::set<int32_t> approved_use_status;                // T_submessage FID 'zt01'

  std::unordered_map<int32_t, TaskHeader> task_headers;  // the demand's tasks
  std::vector<TaskEntry> task_entries;                   // their material plans
  std::vector<Issued> issued;                            // issues to them

  // Supply figures per material and property: stock on hand over the chosen
  // warehouses, open purchase quantity, open sales quantity, and production
  // in progress outside the demand's own tasks.
  std::map<ItemAux, OptNum> stock, moving, unsold, producing;
  std::vector<PurchaseHistory> history;
  std::unordered_map<int32_t, Supplier> suppliers;
  UserRights rights;
};

// One result row: every column of the working table, in its order.
// A demand line's share of a report row's gross requirement: the index of
// the line in Input::demand and the quantity it brings.
struct Peg {
  int32_t demand;
  double qty;
};

struct ReportRow {
  OptInt item_id;       // FItemID
  OptInt bom_item_id;   // FBOMItemID
  OptInt inter_id, entry_id, bom_inter_id, bom_entry_id, tran_type;
  OptInt item_prop_id;
  OptText item_prop, item_number, item_name, item_model;
  OptInt aux_prop_id;
  OptText aux_prop;
  OptInt unit_id;
  OptText unit_name;
  OptNum destroy_rate;
  OptInt qty_decimal;
  OptNum need_qty = 0.0, save_qty = 0.0, current_qty = 0.0, moving_qty = 0.0, unstock_qty = 0.0,
         producing_qty = 0.0, produc_qty = 0.0, mid_stock_qty = 0.0, suggest_qty = 0.0, qty = 0.0;
  OptText source_no, supply_number, supply_name, memo;
  OptInt final;
  std::optional<Date> date;
  std::vector<Peg> pegs;  // with Options::peg, by demand line
};

// The report's rows, in the report's order. A deque: tens of thousands of
// rows grow without moving.
using ReportRows = std::deque<ReportRow>;

// The working table's column names, in order, as its table spells them.
const std::vector<std::string>& ReportColumns();

}  // namespace mrpcalc::mrp
