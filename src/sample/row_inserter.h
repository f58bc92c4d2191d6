// Inserts sample rows into whatever form of the ERP tables a database has:
// values for columns the table lacks (those `init` adds for its own
// databases) are left out, so the same samples fill an `init` database and
// one with exactly the ERP's columns.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "db/connection.h"

namespace mrpcalc::sample {

class RowInserter {
 public:
  // `columns` as "FItemID,FName"; the table must exist.
  RowInserter(db::Connection& connection, const std::string& table, const std::string& columns);
  // One row, a value per column named at construction.
  void Insert(const db::Params& row);

 private:
  std::vector<bool> kept_;
  std::unique_ptr<db::Statement> insert_;
};

}  // namespace mrpcalc::sample
