// Each user's stock scope (which warehouses count as available stock),
// virtual warehouses, and the bill forms' stock-status option.
#include <algorithm>
#include <map>

#include "mrpserver/mrp_data_server.h"
#include "record/column_value.h"
#include "record/text.h"
#include "services/rights.h"

namespace mrpcalc {
namespace {

using Row = std::vector<Variant>;


// A warehouse (t_Item of class 5) with what t_Stock says of it.
struct Warehouse {
  int32_t id = 0;
  std::string number, name;
  int32_t level = 0, detail = 0;
  int32_t stock_parent = 0;  // t_Stock.FParentID, 0 when none
  bool is_virtual = false;   // t_Stock.FTypeID is 502
  std::string right_users;
  std::string Entry() const { return number + " - " + name; }
};

// A user's stored scope of a form: the user id is text in ICMrpStockPlan,
// and it and the sub-id compare as the server compares text (bind the
// sub-id through FoldKey).
std::string ScopeKey(db::Connection& c) {
  const db::Dialect& d = c.dialect();
  return d.TextIs("FUserID") + " and FFrmType = ? and " + d.TextIs("FSubID");
}

std::string HideColumns(db::Connection& c) {
  return c.dialect().CaseFolded("FKey") + " = 'hidecolumns'";
}

std::vector<Warehouse> LoadWarehouses(db::Connection& c) {
  std::vector<Warehouse> out;
  c.QueryRows(
      "select a.FItemID, a.FNumber, a.FName, a.FLevel, a.FDetail, b.FParentID, b.FTypeID,"
      " a.FRightUserID from t_Item a left join t_Stock b on a.FItemID = b.FItemID"
      " where a.FItemClassID = ? order by a.FItemID",
      {kWarehouseClass}, [&](Row& r) {
        Warehouse w;
        w.id = r[0].ToLong();
        w.number = TextValue(r[1]);
        w.name = TextValue(r[2]);
        w.level = r[3].IsNull() ? 0 : r[3].ToLong();
        w.detail = r[4].IsNull() ? 0 : r[4].ToLong();
        w.stock_parent = r[5].IsNull() ? 0 : r[5].ToLong();
        w.is_virtual = !r[6].IsNull() && r[6].ToLong() == kVirtualWarehouse;
        w.right_users = TextValue(r[7]);
        out.push_back(std::move(w));
      });
  return out;
}

std::string DropLastComma(std::string text) {
  if (!text.empty() && text.back() == ',') text.pop_back();
  return text;
}

// The scope standing for every real warehouse the user may see: the
// top-level entries, the leaf ids and the ids of every level.
struct Scope {
  std::string str, key, info;
};
Scope WholeScope(const std::vector<Warehouse>& all, const UserRights& rights, int32_t user) {
  Scope s;
  for (const auto& w : all) {
    if (w.is_virtual) continue;
    if (rights.Filtered() && !RightsTextNamesUser(w.right_users, user)) continue;
    if (w.level == 1) s.str += w.Entry() + ",";
    if (w.detail == 1) s.key += std::to_string(w.id) + ",";
    s.info += std::to_string(w.id) + ",";
  }
  return {DropLastComma(s.str), DropLastComma(s.key), DropLastComma(s.info)};
}

// Keeps the elements of a comma list that equal an element of `allowed`,
// each followed by ",".
std::string KeepAllowed(const std::string& list, const std::string& allowed) {
  std::vector<std::string> ok;
  std::string rest = allowed;
  while (!rest.empty()) ok.push_back(SplitFirst(rest, ","));
  std::string out;
  rest = list;
  while (!rest.empty()) {
    const std::string element = SplitFirst(rest, ",");
    if (!element.empty() && std::find(ok.begin(), ok.end(), element) != ok.end())
      out += element + ",";
  }
  return out;
}

// The display text of a scope: a group whose real warehouses are all
// chosen stands for them; an entry already in the text is not repeated.
std::string ScopeText(const std::vector<Warehouse>& all, const std::vector<int32_t>& chosen) {
  std::map<int32_t, const Warehouse*> by_id;
  std::map<int32_t, int> under;  // real warehouses per t_Stock parent
  for (const auto& w : all) {
    by_id[w.id] = &w;
    if (!w.is_virtual && w.stock_parent > 0) ++under[w.stock_parent];
  }
  std::vector<const Warehouse*> picked;
  std::map<int32_t, int> picked_under;
  for (const auto& w : all) {
    if (w.is_virtual || std::find(chosen.begin(), chosen.end(), w.id) == chosen.end()) continue;
    picked.push_back(&w);
    ++picked_under[w.stock_parent];
  }
  std::string text;
  for (const Warehouse* w : picked) {
    int32_t shown = w->id;
    if (w->stock_parent > 0 && picked_under[w->stock_parent] == under[w->stock_parent]) {
      shown = w->stock_parent;
    }
    auto it = by_id.find(shown);
    if (it == by_id.end()) continue;
    const std::string entry = it->second->Entry();
    if (text.find(entry) == std::string::npos) text += entry + ",";
  }
  return DropLastComma(text);
}

// Takes `text`, then ",text" and "text" out of a list, as the forms' stored
// strings are cleaned of one warehouse.
std::string Without(std::string list, const std::string& text) {
  list = ReplaceAll(list, text + ",", "");
  list = ReplaceAll(list, "," + text, "");
  return ReplaceAll(list, text, "");
}

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
    std::vector<Row> rows;
    c.QueryRows(
        "select a.FItemID, a.FName, a.FNumber, a.FParentID, a.FDetail, a.FDeleted, b.FTypeID,"
        " a.FRightUserID from t_Item a left join t_Stock b on a.FItemID = b.FItemID"
        " where a.FItemClassID = ? and a.FItemID > 0 order by " +
            c.dialect().CaseFolded("a.FNumber") + ", a.FItemID",
        {TypeID}, [&](Row& r) {
          const bool is_virtual = !r[6].IsNull() && r[6].ToLong() == kVirtualWarehouse;
          if (!IsVirtual && is_virtual) return;
          if (rights.Filtered() && !RightsTextNamesUser(TextValue(r[7]), UserID)) return;
          r.pop_back();
          rows.push_back(std::move(r));
        });
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
    const Scope s = WholeScope(LoadWarehouses(c), rights, UserID);
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
    const std::string user = std::to_string(UserID);
    c.Execute("delete from ICMrpStockPlan where " + ScopeKey(c),
              {user, FrmType, FoldKey(sSubID)});
    c.Execute(
        "insert into ICMrpStockPlan (FUserID, FStockStr, FStockKey, FStockInfo, FFrmType,"
        " FSubID) values (?, ?, ?, ?, ?, ?)",
        {user, sStockStr, sStockKey, sStockInfo, FrmType, sSubID});
    return true;
  });
}

bool MrpDataServer::GetStockInfo(const std::string& dsn, int32_t UserID, std::string& sStockStr,
                                 std::string& sStockKey, std::string& sStockInfo, int32_t FrmType,
                                 const std::string& sSubID) {
  return Run(dsn, [&](db::Connection& c) {
    const UserRights rights = RightsOf(c, UserID, kDataRightWarehouses);
    const std::string user = std::to_string(UserID);
    const db::Params key = {user, FrmType, FoldKey(sSubID)};
    // A user who lost his rights loses his stored scope.
    if (rights.SeesNothing()) {
      c.Execute("delete from ICMrpStockPlan where " + ScopeKey(c),
                key);
    }
    auto rs = c.Query(
        "select FStockStr, FStockKey, FStockInfo from ICMrpStockPlan where " + ScopeKey(c),
        key);
    auto clear = [&] { sStockStr = sStockKey = sStockInfo = ""; };
    if (rs->Eof()) {
      clear();
      return false;
    }
    sStockStr = TextValue(rs->Field("FStockStr"));
    sStockKey = TextValue(rs->Field("FStockKey"));
    sStockInfo = TextValue(rs->Field("FStockInfo"));
    if (Trim(sStockKey).empty() || !rights.Filtered()) return true;

    // Trim the stored scope to what the user may still see.
    const std::vector<Warehouse> all = LoadWarehouses(c);
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
    const std::string user = std::to_string(UserID);
    // Every stored scope of the form type goes; the one for sSubID is written again.
    c.Execute("delete from ICMrpStockPlan where " + c.dialect().TextIs("FUserID") +
                  " and FFrmType = ?",
              {user, FrmType});
    const UserRights rights = RightsOf(c, UserID, kDataRightWarehouses);
    if (rights.SeesNothing()) return false;
    std::string keys, infos, names;
    c.QueryRows(
        "select a.FItemID, a.FNumber, a.FName, a.FRightUserID from t_Item a"
        " left join t_Stock b on a.FItemID = b.FItemID"
        " where a.FItemClassID = ? and a.FItemID > 0 and b.FTypeID = ? order by " +
            c.dialect().CaseFolded("a.FNumber") + ", a.FItemID",
        {TypeID, kVirtualWarehouse}, [&](Row& r) {
          if (rights.Filtered() && !RightsTextNamesUser(TextValue(r[3]), UserID)) return;
          const std::string id = r[0].ToText();
          const std::string entry = Trim(TextValue(r[1])) + " - " + Trim(TextValue(r[2]));
          sStockKey = Without(sStockKey, id);
          sStockInfo = Without(sStockInfo, id);
          sStockStr = Without(sStockStr, entry);
          keys += id + ",";
          infos += id + ",";
          names += entry + ",";
        });
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
    c.Execute(
        "insert into ICMrpStockPlan (FUserID, FStockStr, FStockKey, FStockInfo, FFrmType,"
        " FSubID) values (?, ?, ?, ?, ?, ?)",
        {user, sStockStr, sStockKey, sStockInfo, FrmType, sSubID});
    return true;
  });
}

bool MrpDataServer::IsVirtualsStockKey(const std::string& dsn, std::string& sStockKey) {
  return Run(dsn, [&](db::Connection& c) {
    const auto ids = db::ParseIdList(sStockKey, "warehouse list sStockKey");
    if (ids.empty()) ThrowInvalid("warehouse list sStockKey is empty: give warehouse ids");
    bool any = false;
    db::QueryIn(c, ids,
                "select a.FItemID from t_Item a left join t_Stock b on a.FItemID = b.FItemID"
                " where a.FItemClassID = ? and a.FItemID > 0 and b.FTypeID = ?"
                " and a.FItemID in (%IDS%)",
                [&](Row&) { any = true; }, {kWarehouseClass, kVirtualWarehouse});
    return any;
  });
}

bool MrpDataServer::IsVirtualStock(const std::string& dsn, const std::string& sStockKey) {
  return Run(dsn, [&](db::Connection& c) {
    // A textual test: a virtual warehouse's id anywhere in the text counts.
    bool any = false;
    c.QueryRows("select FItemID from t_Stock where FTypeID = ?", {kVirtualWarehouse},
                [&](Row& r) { any = any || sStockKey.find(r[0].ToText()) != std::string::npos; });
    return any;
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
    const Variant scheme = c.QueryValue(
        "select FSchemeID from ICSchemeProfile where FStatus = 2 and FTranType = ? and FUserID = ?",
        {tran_type, status_user_});
    status_scheme_ = scheme.IsEmpty() || scheme.IsNull() ? 0 : scheme.ToLong();
    const Variant visible =
        c.QueryValue("select FVisible from ICChatBillTitle where FColCaption = ? and FTypeID = ?",
                     {kSuggestionCaption, status_type_});
    FVisible = visible.IsEmpty() || visible.IsNull() ? 0 : visible.ToLong();
    auto rs = c.Query(
        "select FValue from ICSchemeProfileEntry where " + HideColumns(c) + " and FSchemeID = ?",
        {status_scheme_});
    if (!rs->Eof()) FValue = TextValue(rs->Field("FValue"));
  });
}

void MrpDataServer::SetFStockStatus(const std::string& dsn, const std::string&, int32_t& FVisible,
                                    std::string& FValue) {
  Run(dsn, [&](db::Connection& c) {
    c.Execute("update ICChatBillTitle set FVisible = ? where FColCaption = ? and FTypeID = ?",
              {FVisible, kSuggestionCaption, status_type_});
    c.Execute(
        "update ICSchemeProfileEntry set FValue = ? where " + HideColumns(c) + " and FSchemeID = ?",
        {FValue, status_scheme_});
  });
}

void MrpDataServer::UpdateFStockStatus(const std::string& dsn, const std::string&,
                                       int32_t& FStockStatus) {
  Run(dsn, [&](db::Connection& c) {
    c.Execute("update ICChatBillTitle set FVisible = ? where FTypeID = ? and FColCaption = ?",
              {FStockStatus, status_type_, kPlanCaption});
    if (FStockStatus != 1) return;
    // Shows the stock-status column: its entry leaves the hidden columns.
    c.Execute(
        "update ICSchemeProfileEntry set FValue = replace(FValue, ?, '')"
        " where " + HideColumns(c) + " and FSchemeID = ?",
        {kStockStatusEntry, status_scheme_});
  });
}

}  // namespace mrpcalc
