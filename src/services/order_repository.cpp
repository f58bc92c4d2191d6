// Purchase-order reads on the ERP database.
#include "services/order_repository.h"

namespace mrpcalc::repo {
namespace {

using Row = std::vector<Variant>;

VectorPtr Summaries(db::Connection& c, const std::vector<int32_t>& orders, const char* sql) {
  auto out = Vector::Create();
  const KeyList keys = MakeKeyList({"FSupplyName", "FBillNO", "FInterID", "FDate"});
  db::QueryIn(c, orders, sql, [&](Row& r) {
    auto row = Dictionary::Create(keys);
    for (size_t i = 0; i < r.size(); ++i) row->SetAt(i, std::move(r[i]));
    out->Add(row);
  });
  return out;
}

}  // namespace

VectorPtr OrderSummaries(db::Connection& c, const std::vector<int32_t>& orders) {
  return Summaries(
      c, orders,
      "select (select FName from t_Supplier where FItemID = POOrder.FSupplyID),"
      " FBillNo, FInterID, FDate from POOrder where FInterID in (%IDS%) order by FInterID");
}

VectorPtr OrderSummariesOfKnownSuppliers(db::Connection& c, const std::vector<int32_t>& orders) {
  return Summaries(c, orders,
                   "select S.FName, P.FBillNo, P.FInterID, P.FDate from POOrder P"
                   " inner join t_Supplier S on P.FSupplyID = S.FItemID"
                   " where P.FInterID in (%IDS%) order by P.FInterID");
}

std::vector<Row> AllOrderLines(db::Connection& c, std::vector<std::string>& columns) {
  std::vector<Row> rows;
  c.QueryRows(
      "select u1.FEntryID, v1.* from POOrder v1"
      " inner join POOrderEntry u1 on v1.FInterID = u1.FInterID"
      " order by v1.FInterID, u1.FEntryID",
      {}, [&](Row& r) { rows.push_back(std::move(r)); }, &columns);
  return rows;
}

}  // namespace mrpcalc::repo
