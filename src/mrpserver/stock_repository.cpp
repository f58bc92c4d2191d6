// Warehouses, stock and stored scopes on the ERP database.
#include "mrpserver/stock_repository.h"

#include "record/column_value.h"
#include "record/erp_codes.h"
#include "record/text.h"

namespace mrpcalc::repo {
namespace {

using Row = std::vector<Variant>;

// Stock per item and property in a list of warehouses, and the part of it
// outside virtual warehouses.
constexpr const char* kStockInWarehouses =
    "select ven.FItemID, ven.FAuxPropID, sum(ven.FQty),"
    " sum(case when s.FTypeID <> ? then ven.FQty else 0 end)"
    " from ICInventory ven inner join t_Stock s on ven.FStockID = s.FItemID"
    " where ven.FStockID in (%IDS%) group by ven.FItemID, ven.FAuxPropID";

std::string ScopeKey(db::Connection& c) {
  const db::Dialect& d = c.dialect();
  return d.TextIs("FUserID") + " and FFrmType = ? and " + d.TextIs("FSubID");
}

}  // namespace

std::vector<Warehouse> Warehouses(db::Connection& c) {
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

std::vector<Row> ItemsOfClassWithStockType(db::Connection& c, int32_t item_class) {
  std::vector<Row> rows;
  c.QueryRows(
      "select a.FItemID, a.FName, a.FNumber, a.FParentID, a.FDetail, a.FDeleted, b.FTypeID,"
      " a.FRightUserID from t_Item a left join t_Stock b on a.FItemID = b.FItemID"
      " where a.FItemClassID = ? and a.FItemID > 0 order by " +
          c.dialect().CaseFolded("a.FNumber") + ", a.FItemID",
      {item_class}, [&](Row& r) { rows.push_back(std::move(r)); });
  return rows;
}

std::vector<Warehouse> VirtualItemsOfClass(db::Connection& c, int32_t item_class) {
  std::vector<Warehouse> out;
  c.QueryRows(
      "select a.FItemID, a.FNumber, a.FName, a.FRightUserID from t_Item a"
      " left join t_Stock b on a.FItemID = b.FItemID"
      " where a.FItemClassID = ? and a.FItemID > 0 and b.FTypeID = ? order by " +
          c.dialect().CaseFolded("a.FNumber") + ", a.FItemID",
      {item_class, kVirtualWarehouse}, [&](Row& r) {
        Warehouse w;
        w.id = r[0].ToLong();
        w.number = TextValue(r[1]);
        w.name = TextValue(r[2]);
        w.is_virtual = true;
        w.right_users = TextValue(r[3]);
        out.push_back(std::move(w));
      });
  return out;
}

bool AnyVirtualWarehouse(db::Connection& c, const std::vector<int32_t>& ids) {
  bool any = false;
  db::QueryIn(c, ids,
              "select a.FItemID from t_Item a left join t_Stock b on a.FItemID = b.FItemID"
              " where a.FItemClassID = ? and a.FItemID > 0 and b.FTypeID = ?"
              " and a.FItemID in (%IDS%)",
              [&](Row&) { any = true; }, {kWarehouseClass, kVirtualWarehouse});
  return any;
}

std::vector<std::pair<int32_t, std::string>> VirtualStocks(db::Connection& c) {
  std::vector<std::pair<int32_t, std::string>> out;
  c.QueryRows("select FItemID, FRightUserID from t_Stock where FTypeID = ? order by FItemID",
              {kVirtualWarehouse},
              [&](Row& r) { out.emplace_back(r[0].ToLong(), TextValue(r[1])); });
  return out;
}

std::map<ItemProperty, StockOnHand> StockIn(db::Connection& c,
                                            const std::vector<int32_t>& warehouses) {
  std::map<ItemProperty, StockOnHand> stock;
  db::QueryIn(c, warehouses, kStockInWarehouses,
              [&](Row& r) {
                if (r[0].IsNull() || r[1].IsNull()) return;
                stock[{r[0].ToLong(), r[1].ToLong()}] = {r[2].ToDouble(), r[3].ToDouble()};
              },
              {kVirtualWarehouse});
  return stock;
}

OnHandStock OnHand(db::Connection& c, const std::optional<std::vector<int32_t>>& warehouses) {
  OnHandStock on_hand;
  auto take = [&](Row& r) {
    if (!r[0].IsNull() && !r[1].IsNull()) on_hand[{r[0].ToLong(), r[1].ToLong()}] = r[2].ToDouble();
  };
  const std::string sum =
      "select ven.FItemID, ven.FAuxPropID, sum(ven.FQty) from ICInventory ven"
      " inner join t_Stock s on ven.FStockID = s.FItemID";
  if (!warehouses) {
    c.QueryRows(sum + " group by ven.FItemID, ven.FAuxPropID", {}, take);
  } else {
    db::QueryIn(c, *warehouses,
                sum + " where ven.FStockID in (%IDS%) group by ven.FItemID, ven.FAuxPropID", take);
  }
  return on_hand;
}

std::optional<StoredScope> ReadScope(db::Connection& c, int32_t user, int32_t form_type,
                                     const std::string& sub_id) {
  auto rs = c.Query("select FStockStr, FStockKey, FStockInfo from ICMrpStockPlan where " +
                        ScopeKey(c),
                    {std::to_string(user), form_type, FoldKey(sub_id)});
  if (rs->Eof()) return std::nullopt;
  return StoredScope{TextValue(rs->Field("FStockStr")), TextValue(rs->Field("FStockKey")),
                     TextValue(rs->Field("FStockInfo"))};
}

void DeleteScope(db::Connection& c, int32_t user, int32_t form_type, const std::string& sub_id) {
  c.Execute("delete from ICMrpStockPlan where " + ScopeKey(c),
            {std::to_string(user), form_type, FoldKey(sub_id)});
}

void DeleteScopesOfForm(db::Connection& c, int32_t user, int32_t form_type) {
  c.Execute("delete from ICMrpStockPlan where " + c.dialect().TextIs("FUserID") +
                " and FFrmType = ?",
            {std::to_string(user), form_type});
}

void InsertScope(db::Connection& c, int32_t user, const StoredScope& s, int32_t form_type,
                 const std::string& sub_id) {
  c.Execute(
      "insert into ICMrpStockPlan (FUserID, FStockStr, FStockKey, FStockInfo, FFrmType,"
      " FSubID) values (?, ?, ?, ?, ?, ?)",
      {std::to_string(user), s.str, s.key, s.info, form_type, sub_id});
}

}  // namespace mrpcalc::repo
