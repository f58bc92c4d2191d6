// GetSelectData: the picked demand lines with open quantity and stock.
#include <map>
#include <optional>
#include <set>

#include "frame/props.h"
#include "mrpserver/mrp_data_server.h"
#include "mrpserver/selection_rules.h"
#include "mrpserver/source_repository.h"
#include "mrpserver/stock_repository.h"
#include "record/column_value.h"
#include "record/text.h"
#include "services/rights.h"

namespace mrpcalc {
namespace {

constexpr int32_t kSalesOrder = kTranSalesOrder;
constexpr int32_t kProductionTask = kTranProductionTask;
constexpr int32_t kOutsourcingTask = kTranOutsourcingTask;

// The columns of a selected line, in the order the selection form reads
// them; FAuxQty is selected twice there and keeps its first place.
const KeyList& SelectionKeys() {
  static const KeyList keys = MakeKeyList(
      {"FTranType", "FBillNO", "FItemID", "FAuxPropID", "FAuxPropName", "FAuxQty", "FInterID",
       "FEntryID", "FItemName", "FItemNumber", "FItemModel", "FBSUnitID", "FAuxUnitID",
       "FBSUnitName", "FAllStockQty", "FActualQty", "FQty", "FQtyDecimal", "FPriceDecimal"});
  return keys;
}
enum Col {
  kTranType,
  kBillNo,
  kItemID,
  kAuxPropID,
  kAuxPropName,
  kAuxQty,
  kInterID,
  kEntryID,
  kItemName,
  kItemNumber,
  kItemModel,
  kBSUnitID,
  kAuxUnitID,
  kBSUnitName,
  kAllStockQty,
  kActualQty,
  kQty,
  kQtyDecimal,
  kPriceDecimal
};

Variant Num(const Variant& v) { return v.IsNull() ? v : Variant(v.ToDouble()); }
Variant Int(const Variant& v) { return v.IsNull() ? v : Variant(v.ToLong()); }

using Stock = repo::StockOnHand;
using StockKey = repo::ItemProperty;

// The line as a selection row: the query's 17 columns with the stock of
// its item and property put in.
DictionaryPtr LineRow(const std::vector<Variant>& r, const std::map<StockKey, Stock>& stock) {
  auto row = Dictionary::Create(SelectionKeys());
  const int query_columns[] = {kTranType,   kBillNo,      kItemID,    kAuxPropID,  kAuxPropName,
                               kAuxQty,     kInterID,     kEntryID,   kItemName,   kItemNumber,
                               kItemModel,  kBSUnitID,    kAuxUnitID, kBSUnitName, kQty,
                               kQtyDecimal, kPriceDecimal};
  for (size_t i = 0; i < std::size(query_columns); ++i) row->SetAt(query_columns[i], r[i]);
  for (int c : {kTranType, kItemID, kAuxPropID, kInterID, kEntryID, kBSUnitID, kAuxUnitID,
                kQtyDecimal, kPriceDecimal}) {
    row->SetAt(c, Int(row->value(c)));
  }
  for (int c : {kAuxQty, kQty}) row->SetAt(c, Num(row->value(c)));
  Stock s;
  const Variant& item = row->value(kItemID);
  const Variant& prop = row->value(kAuxPropID);
  if (!item.IsNull() && !prop.IsNull()) {
    auto it = stock.find({item.ToLong(), prop.ToLong()});
    if (it != stock.end()) s = it->second;
  }
  row->SetAt(kAllStockQty, s.all);
  row->SetAt(kActualQty, s.actual);
  return row;
}

DictionaryPtr Copy(const Dictionary& row) { return std::make_shared<Dictionary>(row); }

// The picked rows' keys, read as the row filter reads them.
struct Pick {
  int32_t type = 0;
  int32_t inter_id = 0;
  int32_t entry_id = 0;
  bool known = true;  // 81, 85 or 91
};

Pick ReadPick(const Dictionary& row, size_t position) {
  const std::string where = "vctData row " + std::to_string(position);
  Pick p;
  p.type = QuotedIntValue(row.Get("Ftrantype"), where + " \"Ftrantype\"");
  p.known = p.type == kSalesOrder || p.type == kProductionTask || p.type == kOutsourcingTask;
  p.inter_id = QuotedIntValue(row.Get("FinterID"), where + " \"FinterID\"");
  if (p.type == kSalesOrder)
    p.entry_id = QuotedIntValue(row.Get("FEntryID"), where + " \"FEntryID\"");
  return p;
}

}  // namespace

bool MrpDataServer::DataRightsApply(int32_t user_id, int16_t object_type) {
  return host_.data_rights && host_.data_rights->Applies(user_id, object_type);
}

UserRights MrpDataServer::RightsOf(db::Connection& c, int32_t user_id, int16_t object_type) {
  UserRights r;
  r.administrator = IsAdministrator(c, user_id);
  r.group_right = HoldsRightsGroupOneRight(c, user_id);
  r.data_rights = DataRightsApply(user_id, object_type);
  return r;
}

// The virtual warehouses, filtered by the login user's data rights.
std::string MrpDataServer::VirtualStockOf(db::Connection& c) {
  int32_t user = 0;
  if (host_.login) {
    user =
        static_cast<int32_t>(Variant(GetPropValue(PropsString(*host_.login), "UserID")).ToValue());
  }
  const bool filtered = DataRightsApply(user, kDataRightWarehouses);
  std::string out;
  for (const auto& [id, rights_text] : repo::VirtualStocks(c)) {
    if (filtered && !RightsTextNamesUser(rights_text, user)) continue;
    if (!out.empty()) out += ",";
    out += std::to_string(id);
  }
  return out;
}

std::string MrpDataServer::GetVirtualStock(const std::string& dsn) {
  return Run(dsn, [&](db::Connection& c) { return VirtualStockOf(c); });
}

VectorPtr MrpDataServer::GetSelectData(const std::string& dsn, const VectorPtr& vctData,
                                       const std::string& sStockKey, bool blnStockQty,
                                       bool blnchkVirtual, bool blnchkVirtualValue) {
  if (!vctData || vctData->Count() == 0) return nullptr;
  return Run(dsn, [&](db::Connection& c) -> VectorPtr {
    // The warehouse list: doubled commas and a stray comma at either end go
    // (",,3,,5," is "3,5").
    std::string key = Trim(sStockKey);
    while (key.find(",,") != std::string::npos) key = ReplaceAll(key, ",,", ",");
    key = Trim(key);
    if (!key.empty() && key.front() == ',') key.erase(0, 1);
    if (!key.empty() && key.back() == ',') key.pop_back();
    if (key.empty()) key = "0";
    const std::vector<int32_t> warehouses = db::ParseIdList(key, "warehouse list sStockKey");

    std::vector<Pick> picks;
    std::set<int32_t> sales, production, outsourcing;
    for (size_t i = 0; i < vctData->rows().size(); ++i) {
      const Pick p = ReadPick(*vctData->rows()[i], i + 1);
      if (!p.known && picks.empty()) {
        ThrowInvalid("vctData row 1 has source type " + std::to_string(p.type) +
                     ": only sales orders (81), production tasks (85) and outsourcing tasks "
                     "(91) can be selected");
      }
      if (p.type == kSalesOrder) sales.insert(p.inter_id);
      if (p.type == kProductionTask) production.insert(p.inter_id);
      if (p.type == kOutsourcingTask) outsourcing.insert(p.inter_id);
      picks.push_back(p);
    }

    // Stock of the listed warehouses per item and property, and the same
    // without virtual warehouses.
    const std::map<StockKey, Stock> stock = repo::StockIn(c, warehouses);

    std::map<std::pair<int32_t, int32_t>, DictionaryPtr> sales_lines;  // inter, entry
    std::map<std::pair<int32_t, int32_t>, DictionaryPtr> tasks;        // type, inter
    repo::SalesLinesToSelect(c, std::vector<int32_t>(sales.begin(), sales.end()),
                             [&](std::vector<Variant>& r) {
                               sales_lines[{r[6].ToLong(), r[7].ToLong()}] = LineRow(r, stock);
                             });
    for (auto [type, ids] : {std::pair{kProductionTask, &production},
                             std::pair{kOutsourcingTask, &outsourcing}}) {
      repo::TasksToSelect(c, type, std::vector<int32_t>(ids->begin(), ids->end()),
                          [&, type = type](std::vector<Variant>& r) {
                            tasks[{type, r[6].ToLong()}] = LineRow(r, stock);
                          });
    }

    // Each pick selects its line (or task); a pick of another type narrows
    // the previous pick's selection to its own document id.
    auto result = Vector::Create();
    std::vector<DictionaryPtr> last;
    for (size_t i = 0; i < picks.size(); ++i) {
      const Pick& p = picks[i];
      std::vector<DictionaryPtr> fetched;
      if (p.type == kSalesOrder) {
        if (auto it = sales_lines.find({p.inter_id, p.entry_id}); it != sales_lines.end())
          fetched.push_back(it->second);
      } else if (p.known) {
        if (auto it = tasks.find({p.type, p.inter_id}); it != tasks.end())
          fetched.push_back(it->second);
      } else {
        for (const auto& row : last)
          if (row->value(kInterID).ToLong() == p.inter_id) fetched.push_back(row);
      }
      last = fetched;
      const Dictionary& input = *vctData->rows()[i];
      for (const auto& row : fetched) {
        const Variant tran = row->value(kTranType);
        if (!tran.IsNull() &&
            (tran.ToLong() == kProductionTask || tran.ToLong() == kOutsourcingTask)) {
          bool seen = false;
          for (const auto& r : result->rows()) {
            seen =
                seen || (r->value(kTranType) == tran && r->value(kInterID) == row->value(kInterID));
          }
          if (seen) continue;
        }
        auto out = Copy(*row);
        if (const Variant* qty = input.Find("FQty")) out->SetAt(kQty, *qty);
        result->Add(out);
      }
    }

    // Netting against stock on hand, first picked first served.
    std::string netting_list = key;
    bool net = blnStockQty;
    if (blnchkVirtual) {
      if (blnchkVirtualValue) {
        netting_list = VirtualStockOf(c);
      } else {
        net = false;
      }
    }
    if (net) {
      repo::OnHandStock on_hand =
          Trim(netting_list).empty()
              ? repo::OnHand(c, std::nullopt)
              : repo::OnHand(c, db::ParseIdList(netting_list, "warehouse list"));
      NetAgainstStock(*result, std::move(on_hand));
    }
    return result;
  });
}

}  // namespace mrpcalc
