// Lookups and validation rules the MRP and purchase forms ask while lines
// are edited.
#include "mrp/loader.h"
#include "mrpserver/mrp_data_server.h"
#include "record/column_value.h"
#include "record/text.h"
#include "services/base_data_repository.h"
#include "services/messages.h"
#include "services/profile.h"
#include "services/rights.h"

namespace mrpcalc {

bool MrpDataServer::CheckBOMExist(const std::string& dsn, const std::string& strID,
                                  int32_t intSize) {
  return Run(dsn, [&](db::Connection& c) {
    std::vector<int32_t> ids = db::ParseIdList(strID, "item list strID");
    if (ids.empty()) ThrowInvalid("item list strID is empty: give the ids of the items to check");
    // Bills are counted, not items: an item with two bills in use counts twice.
    return repo::BillsInUse(c, ids) == intSize;
  });
}

bool MrpDataServer::IsBOMParent(const std::string& dsn, int32_t lItemID) {
  return Run(dsn, [&](db::Connection& c) {
    return repo::HasBillInUse(c, lItemID);
  });
}

std::string MrpDataServer::GetSupplierNameByNumber(const std::string& dsn,
                                                   const std::string& sNumber) {
  return Run(dsn, [&](db::Connection& c) {
    const auto supplier = repo::LiveSupplier(c, sNumber);
    if (!supplier) {
      throw Error(ErrorCategory::kNotFound, "no supplier with the code \"" + sNumber +
                                                "\" (deleted suppliers are not found)");
    }
    return supplier->name;
  });
}

Variant MrpDataServer::getSysInfo(const std::string& dsn, const std::string& sCategory,
                                  const std::string& sKey) {
  return Run(dsn, [&](db::Connection& c) {
    return SystemProfileValue(c, sCategory, sKey);
  });
}

bool MrpDataServer::IsSupplierright(const std::string& dsn, const std::string& sNumber,
                                    int32_t UserID) {
  return Run(dsn, [&](db::Connection& c) {
    const UserRights r = RightsOf(c, UserID, kDataRightSuppliers);
    if (r.administrator) return true;
    if (!r.group_right) return false;
    if (!r.data_rights) return true;
    for (const std::string& text : repo::SupplierRightsTexts(c, sNumber)) {
      if (RightsTextNamesUser(text, UserID)) return true;
    }
    return false;
  });
}

bool MrpDataServer::IsMustInput(const std::string& dsn) {
  return Run(dsn, [&](db::Connection& c) {
    return repo::AuxPropertyMustBeInput(c);
  });
}

std::string MrpDataServer::checkMustInput(const std::string& dsn, int32_t i, const Variant& itemID,
                                          const Variant& itemCode, const Variant& AuxPropID) {
  return Run(dsn, [&](db::Connection& c) -> std::string {
    if (!Trim(TextValue(AuxPropID)).empty()) return {};
    const int32_t item = QuotedIntValue(itemID, "itemID");
    if (!repo::HasAuxClass(c, item)) return {};
    Messages messages(host_.login, host_.resources);
    return messages.LoadResText("第", kSpacingAfter) + std::to_string(i) +
           messages.LoadResText("行，物料【", kSpacingNone) + TextValue(itemCode) +
           messages.LoadResText("】的辅助属性不能为空！", kSpacingNone) + "\n";
  });
}

bool MrpDataServer::IsBomExpand(const std::string& dsn, const VectorPtr& vctListData,
                                std::string& UnContinueString) {
  return Run(dsn, [&](db::Connection& c) {
    std::vector<int32_t> items;
    if (vctListData) {
      for (const auto& row : vctListData->rows()) items.push_back(row->Get("FItemID").ToLong());
    }
    const std::vector<bool> loops = mrp::BomsLoopBack(c, items);
    for (size_t k = items.size(); k-- > 0;) {
      if (!loops[k]) continue;
      const Dictionary& row = *vctListData->rows()[k];
      UnContinueString +=
          TextValue(row.Get("FItemName")) + "(" + TextValue(row.Get("FItemNumber")) + ")\r\n";
    }
    if (UnContinueString.empty()) return false;
    Messages messages(host_.login, host_.resources);
    UnContinueString =
        messages.LoadResText(kBomLoopMessage, kSpacingNone) + "\r\n" + UnContinueString;
    return true;
  });
}

}  // namespace mrpcalc
