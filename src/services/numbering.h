// Bill numbers and interior ids, reserved inside the caller's unit of work.
//
// Interior ids: the ERP's stored procedure GetICMaxNum where the database
// has it (SQL Server); elsewhere the table mrpcalc_InteriorID holds the last
// id given per table, never below the table's own largest FInterID.
//
// Bill numbers: a counter per bill type and day in mrpcalc_BillNumber. The
// number is a prefix, the day as yyyymmdd and a serial of at least four
// digits: purchase orders (type "71") are POORD202611220001, other types
// B<type>-202611220001.
//
// Both counters are updated before they are read, so the row stays locked
// until the caller's unit of work ends: concurrent callers, in this process
// or another, queue on the lock and never get the same value. An id or
// number drawn in a unit of work that rolls back is given again.
#pragma once

#include "frame/host.h"

namespace mrpcalc {

// Holds the named lock until the caller's unit of work ends: callers in any
// process that hold the same name run one after another.
void HoldLock(db::Connection& connection, const std::string& name);

class DatabaseNumbering : public Numbering {
 public:
  std::string NewBillNumber(db::Connection& connection, const std::string& bill_type,
                            const Date& date) override;
  int32_t NextInteriorId(db::Connection& connection, const std::string& table) override;
};

}  // namespace mrpcalc
