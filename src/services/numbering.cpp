// Numbering on the ERP database.
#include "services/numbering.h"

#include <cstdio>

#include "record/error.h"

namespace mrpcalc {
namespace {

// Bumps the counter row (creating it at `initial` first) and returns the new value.
int32_t Bump(db::Connection& c, const std::string& table, const std::string& counter,
             const std::string& key_where, const std::string& key_columns,
             const db::Params& key, int32_t initial) {
  const std::string update =
      "update " + table + " set " + counter + " = " + counter + " + 1 where " + key_where;
  if (c.Execute(update, key) == 0) {
    db::Params values = key;
    values.push_back(initial);
    c.Execute(c.dialect().InsertIgnore(table, key_columns + "," + counter,
                                       db::Placeholders(values.size()), key_columns),
              values);
    if (c.Execute(update, key) == 0) {
      throw Error(ErrorCategory::kDatabase, "cannot reserve a number in " + table);
    }
  }
  return c.QueryValue("select " + counter + " from " + table + " where " + key_where, key).ToLong();
}

}  // namespace

void HoldLock(db::Connection& c, const std::string& name) {
  Bump(c, "mrpcalc_Lock", "FCount", "FName = ?", "FName", {name}, 0);
}

int32_t DatabaseNumbering::NextInteriorId(db::Connection& c, const std::string& table) {
  db::CheckIdentifier(table, "table name");
  if (const std::string proc = c.dialect().InteriorIdProcedure(); !proc.empty()) {
    return c.QueryValue(proc, {table}).ToLong();
  }
  int32_t id = Bump(c, "mrpcalc_InteriorID", "FLastID", "FTableName = ?", "FTableName", {table}, 0);
  // Bills written by other programs keep their own ids: never hand out one
  // the table already holds.
  const Variant max = c.QueryValue("select max(FInterID) from " + table);
  if (!max.IsNull() && !max.IsEmpty() && max.ToLong() >= id) {
    id = max.ToLong() + 1;
    c.Execute("update mrpcalc_InteriorID set FLastID = ? where FTableName = ?", {id, table});
  }
  return id;
}

std::string DatabaseNumbering::NewBillNumber(db::Connection& c, const std::string& bill_type,
                                             const Date& date) {
  if (bill_type.empty() || bill_type.size() > 30) {
    ThrowInvalid("bill type \"" + bill_type + "\" is not a bill type code");
  }
  char day[16];
  std::snprintf(day, sizeof day, "%04d%02d%02d", date.year(), date.month(), date.day());
  const int32_t serial = Bump(c, "mrpcalc_BillNumber", "FLastSerial", "FBillType = ? and FDay = ?",
                              "FBillType,FDay", {bill_type, std::string(day)}, 0);
  char number[32];
  std::snprintf(number, sizeof number, "%04d", serial);
  const std::string prefix = bill_type == "71" ? "POORD" : "B" + bill_type + "-";
  return prefix + day + number;
}

}  // namespace mrpcalc
