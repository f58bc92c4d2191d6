// Warehouses, stock on hand and each user's stored stock scope: the SQL of
// t_Item (warehouse class), t_Stock, ICInventory and ICMrpStockPlan.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "db/connection.h"

namespace mrpcalc::repo {

// A warehouse (t_Item of the warehouse class) with what t_Stock says of it.
struct Warehouse {
  int32_t id = 0;
  std::string number, name;
  int32_t level = 0, detail = 0;
  int32_t stock_parent = 0;  // t_Stock.FParentID, 0 when none
  bool is_virtual = false;   // t_Stock.FTypeID is the virtual type
  std::string right_users;   // FRightUserID
  std::string Entry() const { return number + " - " + name; }
};

// Every warehouse, by id.
std::vector<Warehouse> Warehouses(db::Connection& connection);

// The items of a class with their t_Stock type, by code (letter case aside)
// then id, as the warehouse list shows them: FItemID, FName, FNumber,
// FParentID, FDetail, FDeleted, FTypeID, then FRightUserID.
std::vector<std::vector<Variant>> ItemsOfClassWithStockType(db::Connection& connection,
                                                            int32_t item_class);

// The virtual warehouses among the items of a class, by code then id.
std::vector<Warehouse> VirtualItemsOfClass(db::Connection& connection, int32_t item_class);

// Whether any of the ids is a virtual warehouse.
bool AnyVirtualWarehouse(db::Connection& connection, const std::vector<int32_t>& ids);

// The virtual warehouses of t_Stock with their rights text, by id.
std::vector<std::pair<int32_t, std::string>> VirtualStocks(db::Connection& connection);

using ItemProperty = std::pair<int32_t, int32_t>;  // item, auxiliary property
struct StockOnHand {
  double all = 0, actual = 0;  // actual: without virtual warehouses
};
// Stock per item and property in the listed warehouses.
std::map<ItemProperty, StockOnHand> StockIn(db::Connection& connection,
                                            const std::vector<int32_t>& warehouses);
// Stock per item and property in the listed warehouses, or in every
// warehouse when there is no list.
using OnHandStock = std::map<ItemProperty, double>;
OnHandStock OnHand(db::Connection& connection,
                   const std::optional<std::vector<int32_t>>& warehouses);

// A stored scope of a form (ICMrpStockPlan). The user id is text there; it
// and the sub-id compare as the server compares text.
struct StoredScope {
  std::string str, key, info;
};
std::optional<StoredScope> ReadScope(db::Connection& connection, int32_t user, int32_t form_type,
                                     const std::string& sub_id);
void DeleteScope(db::Connection& connection, int32_t user, int32_t form_type,
                 const std::string& sub_id);
// Every stored scope of the user for the form type, whatever its sub-id.
void DeleteScopesOfForm(db::Connection& connection, int32_t user, int32_t form_type);
void InsertScope(db::Connection& connection, int32_t user, const StoredScope& scope,
                 int32_t form_type, const std::string& sub_id);

}  // namespace mrpcalc::repo
