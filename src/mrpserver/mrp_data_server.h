// ZUVMMrpCalculate.MrpDataServer: source selection, lookups, purchase-order
// generation, stock scope, virtual stock and validation for the MRP forms.
//
// Each method loads what it needs with a few set-based queries, works in
// memory and writes with set-based statements, inside the unit of work of
// its call: a method that fails leaves the database as it was.
#pragma once

#include <string>

#include "frame/component.h"
#include "record/erp_codes.h"
#include "record/recordset.h"
#include "services/rights.h"

namespace mrpcalc {

inline constexpr const char* kMrpDataServerProgId = "ZUVMMrpCalculate.MrpDataServer";

class MrpDataServer : public ComponentObject {
 public:
  using ComponentObject::ComponentObject;

  // --- Source selection --------------------------------------------------
  // One row per picked line (type 81: a sales-order line; 85 and 91: a
  // production or outsourcing task, planned once however often picked),
  // with its open quantity in base units and its stock in the warehouses
  // of sStockKey (FAllStockQty, and FActualQty without virtual ones). A
  // picked row's "FQty" replaces the open quantity. With blnStockQty the
  // open quantities are netted against stock, first picked first served.
  // nullptr (Nothing) when vctData is Nothing or empty.
  VectorPtr GetSelectData(const std::string& dsn, const VectorPtr& vctData,
                          const std::string& sStockKey, bool blnStockQty, bool blnchkVirtual,
                          bool blnchkVirtualValue);

  // --- Lookups ---------------------------------------------------------
  // True when the bills in use of the listed items number exactly intSize.
  bool CheckBOMExist(const std::string& dsn, const std::string& strID, int32_t intSize);
  bool IsBOMParent(const std::string& dsn, int32_t lItemID);
  // The name of the live supplier with this code; an error when none.
  std::string GetSupplierNameByNumber(const std::string& dsn, const std::string& sNumber);
  // FValue of the system profile entry; Empty when there is none.
  Variant getSysInfo(const std::string& dsn, const std::string& sCategory, const std::string& sKey);

  // --- Confirmation and purchase orders ----------------------------------
  // Confirmed MRP lines completed with purchase unit, quantity in it, price
  // (supplier band, last invoice, item order price, then the supplier's own
  // band) and tax rate. A row's "FMemo" gets its apostrophes replaced by "｀".
  VectorPtr GetMrpConfirmData(const std::string& dsn, const VectorPtr& vctListData);
  // One purchase order per supplier of the lines; FSupplyName, FBillNO,
  // FInterID and FDate of each. nullptr when there are no lines.
  VectorPtr MakePOOrderBill(const std::string& dsn, const VectorPtr& vctListData, int32_t BillerID,
                            const Date& g_dteSysDate);
  // Every purchase-order line with its header's columns.
  RecordSetPtr getPOOrderBills(const std::string& dsn);
  // False when this batch would owe a supplier more than its credit limit;
  // SupplyName then lists them as name[code] joined by "、".
  bool CheckCreditDegrees(const std::string& dsn, const VectorPtr& vctListData,
                          std::string& strCheckType, std::string& SupplyName);
  VectorPtr RefreshPOOrderBill(const std::string& dsn, const std::string& StrInterIDs);
  // Adds received quantities (base units) to the source documents.
  void UpdateBillStockFinishQty(const std::string& dsn, const VectorPtr& vctStockBill,
                                const std::string& BillType);
  // The interior ids of the orders made by the last MakePOOrderBill, "3,4".
  const std::string& last_orders() const { return last_orders_; }

  // --- Stock status option (state kept on the object) ------------------
  void GetFStockStatus(const std::string& dsn, const std::string& BillType, int32_t& FVisible,
                       std::string& FValue, int32_t UserID);
  void SetFStockStatus(const std::string& dsn, const std::string& BillType, int32_t& FVisible,
                       std::string& FValue);
  void UpdateFStockStatus(const std::string& dsn, const std::string& BillType,
                          int32_t& FStockStatus);

  // --- Stock scope and virtual stock -------------------------------------
  // nullptr when the user may choose from no warehouse.
  RecordSetPtr GetItemStock(const std::string& dsn, int32_t TypeID, int32_t UserID, bool IsVirtual);
  bool GetStockInfo(const std::string& dsn, int32_t UserID, std::string& sStockStr,
                    std::string& sStockKey, std::string& sStockInfo, int32_t FrmType,
                    const std::string& sSubID);
  bool UpdateStockInfo(const std::string& dsn, int32_t UserID, const std::string& sStockStr,
                       const std::string& sStockKey, const std::string& sStockInfo, int32_t FrmType,
                       const std::string& sSubID);
  bool ReturnEmptyStockInfo(const std::string& dsn, int32_t UserID, std::string& sStockStr,
                            std::string& sStockKey, std::string& sStockInfo);
  bool UpdateVirtualStockInfo(const std::string& dsn, int32_t TypeID, int32_t UserID,
                              std::string& sStockStr, std::string& sStockKey,
                              std::string& sStockInfo, bool IsVirtual, int32_t FrmType,
                              const std::string& sSubID);
  bool IsVirtualsStockKey(const std::string& dsn, std::string& sStockKey);
  bool IsVirtualStock(const std::string& dsn, const std::string& sStockKey);
  std::string GetVirtualStock(const std::string& dsn);

  // --- Validation ----------------------------------------------------------
  bool IsSupplierright(const std::string& dsn, const std::string& sNumber, int32_t UserID);
  bool IsMustInput(const std::string& dsn);
  std::string checkMustInput(const std::string& dsn, int32_t i, const Variant& itemID,
                             const Variant& itemCode, const Variant& AuxPropID);
  bool IsBomExpand(const std::string& dsn, const VectorPtr& vctListData,
                   std::string& UnContinueString);

  // The server's date and time.
  Date GetSysDate() const { return Date::Now(); }
  // The date a new bill takes: today, at midnight. The argument is kept for
  // the forms that pass it; both answers come from this machine's clock.
  Date GetNewBillDate(bool get_system_date) const { return Date::Now().StartOfDay(); }

 private:
  std::string VirtualStockOf(db::Connection& c);
  bool DataRightsApply(int32_t user_id, int16_t object_type);
  // Administrator, rights-group-1 right and data rights of the user.
  UserRights RightsOf(db::Connection& c, int32_t user_id, int16_t object_type);

  // Remembered by GetFStockStatus for the two writers.
  int32_t status_user_ = 0;
  int32_t status_type_ = 0;
  int32_t status_scheme_ = 0;
  std::string last_orders_;
};

ClassSpec MrpDataServerClass();

}  // namespace mrpcalc
