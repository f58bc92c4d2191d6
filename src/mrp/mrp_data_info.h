// ZUVMMrpCalculate.MrpDataInfo: the MRP calculation report and BOM expansion.
#pragma once

#include <optional>

#include "frame/component.h"
#include "mrp/open_demand.h"
#include "mrp/phased.h"

#include <functional>

namespace mrpcalc::mrp {
class BomIndex;
}

namespace mrpcalc {

inline constexpr const char* kMrpDataInfoProgId = "ZUVMMrpCalculate.MrpDataInfo";

class MrpDataInfo : public ComponentObject {
 public:
  using ComponentObject::ComponentObject;

  // The MRP report for the demand lines of vctListData: one row per
  // material, auxiliary property and memo, keyed by every column of the
  // working table, in material-code order. dctFilter holds "SubID" ("SC" or
  // "WW"), "Expand" (1 = all BOM levels), "SourceData" (the selected source
  // rows) and the netting switches "NowStock", "SaveStock", "Moving",
  // "UnSale", "Producing", "Produc", "MidStockQty" (each on when 1) and
  // "Virtual" (0: virtual warehouses do not count). sStockKey lists the
  // warehouses whose stock counts ("" = none). With Expand 1, a demand line
  // whose product's bills lead back to it is removed from vctListData and
  // named in a message; the others are still calculated.
  VectorPtr GetMrpReportData(const std::string& dsn, const VectorPtr& vctListData,
                             const DictionaryPtr& dctFilter, const std::string& sStockKey,
                             int32_t user_id, int frm_type);

  // The same report with each row's pegging: the demand lines behind its
  // gross requirement (FNeedQty), one row each with "FTranType", "FBillNo",
  // "FInterID", "FEntryID", "FItemID" and "FQty" (the line's share).
  struct PeggedReport {
    VectorPtr rows;
    std::vector<VectorPtr> pegging;  // by report row
  };
  PeggedReport GetMrpReportPegged(const std::string& dsn, const VectorPtr& vctListData,
                                  const DictionaryPtr& dctFilter, const std::string& sStockKey,
                                  int32_t user_id, int frm_type);

  // The pegged report with its pegging by demand line, for large reports:
  // the demand lines once, and each row's shares as (index of the line,
  // share). What GetMrpReportPegged answers, without a row per share.
  struct PeggedByLine {
    VectorPtr rows;
    std::vector<mrp::DemandLine> demand;
    std::vector<std::vector<mrp::Peg>> pegs;  // by report row
  };
  PeggedByLine GetMrpReportPeggedByLineFor(const std::string& dsn,
                                           const mrp::ReportRequest& request);

  // A planner's request as the report's arguments: the open demand lines
  // it names (all open demand when it names no bill) and its filter, read
  // in a unit of work of their own.
  mrp::ReportArguments ArgumentsFor(const std::string& dsn, const mrp::ReportRequest& request);
  // The report, plain or pegged, for a planner's request; invalid input
  // when no open demand matches the bills it names.
  VectorPtr GetMrpReportFor(const std::string& dsn, const mrp::ReportRequest& request);
  PeggedReport GetMrpReportPeggedFor(const std::string& dsn, const mrp::ReportRequest& request);

  // The time-phased plan for a planner's request, as of `today`: the same
  // demand as the report, every bill level, netted by date (see
  // mrp/phased_bridge.h for what the switches choose).
  struct PhasedPlan {
    mrp::phased::Input input;
    mrp::phased::Result result;
  };
  PhasedPlan GetPhasedPlanFor(const std::string& dsn, const mrp::ReportRequest& request,
                              mrp::phased::Day today);

  // Wall time of the last report, split into loading and calculating.
  struct Timings {
    double load_seconds = 0;
    double calculate_seconds = 0;
  };
  const Timings& last_timings() const { return timings_; }

  // Writes every leaf component of the bill, over all levels, into the
  // session's working table Data2222 (created when the caller has not).
  void GetBomAllChildRs(const std::string& dsn, int32_t bom_inter_id, int32_t p_item_id,
                        double suggest_qty, double qty, const std::string& date);

 private:
  VectorPtr Report(const std::string& dsn, const VectorPtr& lines, const DictionaryPtr& dctFilter,
                   const std::string& sStockKey, int32_t user_id, int frm_type,
                   std::vector<VectorPtr>* pegging, PeggedByLine* by_line = nullptr,
                   const std::function<void(db::Connection&, mrp::Input&, const mrp::BomIndex&)>*
                       instead = nullptr);

  // System profile IC/BOMType, read once per instance.
  int BomType(db::Connection& connection);
  std::optional<int> bom_type_;
  Timings timings_;
};

ClassSpec MrpDataInfoClass();

}  // namespace mrpcalc
