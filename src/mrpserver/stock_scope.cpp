// Each user's stock scope (which warehouses count as available stock),
// virtual warehouses, and the bill forms' stock-status option.
#include <algorithm>
#include <map>

#include "mrpserver/form_option_repository.h"
#include "mrpserver/mrp_data_server.h"
#include "mrpserver/stock_repository.h"
#include "mrpserver/stock_scope_rules.h"
#include "record/column_value.h"
#include "record/text.h"
#include "services/rights.h"

namespace mrpcalc {
namespace {

using repo::Warehouse;
using namespace scope;

constexpr const char* kSuggestionCaption = "生成采购建议标志$";
constexpr const char* kPlanCaption = "生成采购计划标志$";
constexpr const char* kStockStatusEntry = "||0##<&1000##<&2##<&FStockStatus##<&3";

}  // namespace

// --- Stock scope ---------------------------------------------------------------

RecordSetPtr MrpDataServer::GetItemStock(const std::string& dsn, int32_t TypeID, int32_t UserID,
                                         bool IsVirtual) {
  return Run(dsn, [&](db::Connection& c) -> RecordSetPtr {
    const UserRights rights = RightsOf(c, UserID, kDataRightWarehouses);
    if (rights.SeesNothing()) return nullptr;
    std::vector<std::vector<Variant>> rows;
    for (auto& r : repo::ItemsOfClassWithStockType(c, TypeID)) {
      const bool is_virtual = !r[6].IsNull() && r[6].ToLong() == kVirtualWarehouse;
      if (!IsVirtual && is_virtual) continue;
      if (rights.Filtered() && !RightsTextNamesUser(TextValue(r[7]), UserID)) continue;
      r.pop_back();
      rows.push_back(std::move(r));
    }
    return std::make_shared<RecordSet>(
        std::vector<std::string>{"FItemID", "FName", "FNumber", "FParentID", "fDetail", "FDeleted",
                                 "FTypeId"},
        std::move(rows));
  });
}

bool MrpDataServer::ReturnEmptyStockInfo(const std::string& dsn, int32_t UserID,
                                         std::string& sStockStr, std::string& sStockKey,
                                         std::string& sStockInfo) {
  return Run(dsn, [&](db::Connection& c) {
    const UserRights rights = RightsOf(c, UserID, kDataRightWarehouses);
    if (rights.SeesNothing()) return false;
    const Scope s = WholeScope(repo::Warehouses(c), rights, UserID);
    sStockStr = s.str;
    sStockKey = s.key;
    sStockInfo = s.info;
    return true;
  });
}

bool MrpDataServer::UpdateStockInfo(const std::string& dsn, int32_t UserID,
                                    const std::string& sStockStr, const std::string& sStockKey,
                                    const std::string& sStockInfo, int32_t FrmType,
                                    const std::string& sSubID) {
  return Run(dsn, [&](db::Connection& c) {
    repo::DeleteScope(c, UserID, FrmType, sSubID);
    repo::InsertScope(c, UserID, {sStockStr, sStockKey, sStockInfo}, FrmType, sSubID);
    return true;
  });
}

bool MrpDataServer::GetStockInfo(const std::string& dsn, int32_t UserID, std::string& sStockStr,
                                 std::string& sStockKey, std::string& sStockInfo, int32_t FrmType,
                                 const std::string& sSubID) {
  return Run(dsn, [&](db::Connection& c) {
    const UserRights rights = RightsOf(c, UserID, kDataRightWarehouses);
    // A user who lost his rights loses his stored scope.
    if (rights.SeesNothing()) repo::DeleteScope(c, UserID, FrmType, sSubID);
    const std::optional<repo::StoredScope> stored = repo::ReadScope(c, UserID, FrmType, sSubID);
    auto clear = [&] { sStockStr = sStockKey = sStockInfo = ""; };
    if (!stored) {
      clear();
      return false;
    }
    sStockStr = stored->str;
    sStockKey = stored->key;
    sStockInfo = stored->info;
    if (Trim(sStockKey).empty() || !rights.Filtered()) return true;

    // Trim the stored scope to what the user may still see.
    const std::vector<Warehouse> all = repo::Warehouses(c);
    const Scope allowed = WholeScope(all, rights, UserID);
    sStockKey = KeepAllowed(sStockKey, allowed.key);
    sStockInfo = DropLastComma(KeepAllowed(sStockInfo, allowed.info));
    if (sStockKey.empty()) {
      clear();
      return true;
    }
    sStockKey = DropLastComma(sStockKey);
    sStockStr = ScopeText(all, db::ParseIdList(sStockKey, "stored warehouse list"));
    return true;
  });
}

// --- Virtual stock ---------------------------------------------------------------

bool MrpDataServer::UpdateVirtualStockInfo(const std::string& dsn, int32_t TypeID, int32_t UserID,
                                           std::string& sStockStr, std::string& sStockKey,
                                           std::string& sStockInfo, bool IsVirtual, int32_t FrmType,
                                           const std::string& sSubID) {
  return Run(dsn, [&](db::Connection& c) {
    // Every stored scope of the form type goes; the one for sSubID is written again.
    repo::DeleteScopesOfForm(c, UserID, FrmType);
    const UserRights rights = RightsOf(c, UserID, kDataRightWarehouses);
    if (rights.SeesNothing()) return false;
    std::string keys, infos, names;
    for (const Warehouse& w : repo::VirtualItemsOfClass(c, TypeID)) {
      if (rights.Filtered() && !RightsTextNamesUser(w.right_users, UserID)) continue;
      const std::string id = std::to_string(w.id);
      const std::string entry = Trim(w.number) + " - " + Trim(w.name);
      sStockKey = Without(sStockKey, id);
      sStockInfo = Without(sStockInfo, id);
      sStockStr = Without(sStockStr, entry);
      keys += id + ",";
      infos += id + ",";
      names += entry + ",";
    }
    if (IsVirtual && !keys.empty()) {
      keys = DropLastComma(keys);
      infos = DropLastComma(infos);
      names = DropLastComma(names);
      if (!Trim(sStockKey).empty()) {
        sStockKey += "," + keys;
        sStockInfo += "," + infos;
        sStockStr += "," + names;
      } else {
        sStockKey = keys;
        sStockInfo = infos;
        sStockStr = names;
      }
    }
    repo::InsertScope(c, UserID, {sStockStr, sStockKey, sStockInfo}, FrmType, sSubID);
    return true;
  });
}

bool MrpDataServer::IsVirtualsStockKey(const std::string& dsn, std::string& sStockKey) {
  return Run(dsn, [&](db::Connection& c) {
    const auto ids = db::ParseIdList(sStockKey, "warehouse list sStockKey");
    if (ids.empty()) ThrowInvalid("warehouse list sStockKey is empty: give warehouse ids");
    return repo::AnyVirtualWarehouse(c, ids);
  });
}

bool MrpDataServer::IsVirtualStock(const std::string& dsn, const std::string& sStockKey) {
  return Run(dsn, [&](db::Connection& c) {
    // A textual test: a virtual warehouse's id anywhere in the text counts.
    for (const auto& [id, rights_text] : repo::VirtualStocks(c)) {
      if (sStockKey.find(std::to_string(id)) != std::string::npos) return true;
    }
    return false;
  });
}

// --- Stock status option -------------------------------------------------------------

void MrpDataServer::GetFStockStatus(const std::string& dsn, const std::string& BillType,
                                    int32_t& FVisible, std::string& FValue, int32_t UserID) {
  Run(dsn, [&](db::Connection& c) {
    int32_t tran_type = 32;
    status_type_ = 61;
    if (BillType == "生产任务单") {
      status_type_ = 90;
      tran_type = 36;
    } else if (BillType == "委外加工单") {
      status_type_ = 301;
      tran_type = 201;
    }
    status_user_ = UserID;
    status_scheme_ = repo::ActiveScheme(c, tran_type, status_user_);
    FVisible = repo::CaptionVisible(c, kSuggestionCaption, status_type_);
    if (auto hidden = repo::HiddenColumns(c, status_scheme_)) FValue = *hidden;
  });
}

void MrpDataServer::SetFStockStatus(const std::string& dsn, const std::string&, int32_t& FVisible,
                                    std::string& FValue) {
  Run(dsn, [&](db::Connection& c) {
    repo::SetCaptionVisible(c, kSuggestionCaption, status_type_, FVisible);
    repo::SetHiddenColumns(c, status_scheme_, FValue);
  });
}

void MrpDataServer::UpdateFStockStatus(const std::string& dsn, const std::string&,
                                       int32_t& FStockStatus) {
  Run(dsn, [&](db::Connection& c) {
    repo::SetCaptionVisible(c, kPlanCaption, status_type_, FStockStatus);
    // Shows the stock-status column: its entry leaves the hidden columns.
    if (FStockStatus == 1) repo::ShowColumn(c, status_scheme_, kStockStatusEntry);
  });
}

}  // namespace mrpcalc
