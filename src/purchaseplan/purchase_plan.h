// ZUVMMrpCalculate.PurchasePlanUpdate (plan maintenance) and
// ZUVMMrpCalculate.PurchasePlanInfo (plan queries).
//
// A purchase plan is a saved list of materials to buy, made from MRP
// suggestions for a set of source documents: header (PurchasePlan), lines
// (PurchasePlanEntry), links to the source lines (PurchaseLink), the plan's
// number in the sources' FPurchasePlanBillNo lists, and the quantities the
// plan covers in the sources' FStockFinishQty. Pushing plan lines makes
// purchase orders (PurchasePlanOrder ties order lines to plan lines), and
// later changes of those orders flow back into the plan.
#pragma once

#include <string>

#include "frame/component.h"

namespace mrpcalc {

inline constexpr const char* kPurchasePlanUpdateProgId = "ZUVMMrpCalculate.PurchasePlanUpdate";
inline constexpr const char* kPurchasePlanInfoProgId = "ZUVMMrpCalculate.PurchasePlanInfo";

class PurchasePlanUpdate : public ComponentObject {
 public:
  using ComponentObject::ComponentObject;

  // Saves a new plan of the MRP lines vctListData, made from the source
  // lines vctStockBill; returns its number, "CJ" + the server's date +
  // a daily serial. Saves queue on one another, so that no two read the
  // same largest number.
  std::string UpdatePurchasePlan(const std::string& dsn, const VectorPtr& vctStockBill,
                                 const VectorPtr& vctListData, int32_t UserID);
  // Prices the MRP lines and inserts them as lines of the plan, on the
  // caller's connection and unit of work.
  void InsertPurchasePlanEntry(db::Connection& cn, const VectorPtr& vctListData,
                               int32_t lMaxFInterID, const std::string& strMaxFBillNo);
  // Rewrites the editable columns of existing plan lines.
  void UpdatePurchasePlanEntry(const std::string& dsn, const VectorPtr& vctListData);

  // One purchase order per supplier of the lines; the plan lines behind
  // each order line take the pushed quantities. StrOutInterids receives the
  // new orders' interior ids.
  VectorPtr PushBill(const std::string& dsn, const VectorPtr& vctListData, int32_t BillerID,
                     std::string& StrOutInterids, const Date& SysDate);

  // Close by hand (state 2) and reopen; each row gets "Succeed" (and on a
  // refused close, "Error"), and "FClosed".
  VectorPtr ClosePurchasePlan(const std::string& dsn, const VectorPtr& vctListData);
  VectorPtr UnClosePurchasePlan(const std::string& dsn, const VectorPtr& vctListData);
  // Deletes plans without closed lines or purchase orders and releases
  // their sources; each row gets "Succeed" and, when refused, "Error".
  VectorPtr DeletePurchasePlan(const std::string& dsn, const VectorPtr& vctListData);

  // The plan follows its purchase orders: edited quantities, deleted
  // lines, a cancelled or restored order.
  VectorPtr UpdatePurchasePlanQty(const std::string& dsn, int32_t lOrderInterID);
  void UpdatePurchasePlanQtyOfDeleteRow(const std::string& dsn, int32_t lOrderInterID);
  void UpdatePurchasePlanQtyOfCancelBill(const std::string& dsn, int32_t lOrderInterID,
                                         bool blnIsCancel);
};

class PurchasePlanInfo : public ComponentObject {
 public:
  using ComponentObject::ComponentObject;

  // The plan lines the user may see: of one plan when StrPurchasePlanBillNo
  // is given, else by the filter's "BDate", "EDate", "BItemNumber",
  // "EItemNumber", "BBillNo", "EBillNo" and "Closed" (1: open lines only).
  VectorPtr GetRptData(const std::string& dsn, const DictionaryPtr& Filter, int32_t UserID,
                       std::string& StrPurchasePlanBillNo);
  // The live supplier's id by code (0 when none); its VAT rate.
  int32_t GetSupplierID(const std::string& dsn, const std::string& sNumber,
                        double& dblValueAddRate);
  // Price list band, else an invoice of the supplier, else the order price.
  double GetPurchasePlanPrice(const std::string& dsn, int32_t lSupplyID, int32_t lItemID,
                              double dblQty);
  std::string GetBillDate(const std::string& dsn, const std::string& StrPurchasePlanBillNo);
};

ClassSpec PurchasePlanUpdateClass();
ClassSpec PurchasePlanInfoClass();

}  // namespace mrpcalc
