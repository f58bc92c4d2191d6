// Stand-alone transaction context and caller-held units of work.
#include "frame/context.h"

#include <iostream>

#include "record/error.h"
#include "schema/erp_schema.h"

namespace mrpcalc {
namespace {
thread_local UnitOfWork* current_unit = nullptr;
}  // namespace

void BringOwnTablesUpToDate(db::Connection& connection) {
  if (connection.own_tables_checked()) return;
  const std::vector<std::string> created =
      schema::UpgradeOwnTables(connection, schema::Upgrade::kWithErpTables);
  for (const auto& table : created) {
    std::cerr << "mrpcalc: created its table " << table << " in " << connection.description()
              << "\n";
  }
  connection.set_own_tables_checked();
}

UnitOfWork::UnitOfWork(const std::string& dsn, const db::OpenOptions& options)
    : dsn_(dsn), connection_(db::Open(dsn, options)), previous_(current_unit) {
  BringOwnTablesUpToDate(*connection_);
  transaction_ = std::make_unique<db::Transaction>(*connection_);
  current_unit = this;
}

UnitOfWork::~UnitOfWork() {
  transaction_.reset();  // rolls back unless committed
  current_unit = previous_;
}

void UnitOfWork::Commit() {
  if (aborted_) {
    transaction_.reset();
    throw Error(ErrorCategory::kInvalidInput,
                "the unit of work was aborted by a call inside it and has been rolled back");
  }
  transaction_->Commit();
}

UnitOfWork* UnitOfWork::Find(const std::string& dsn) {
  for (UnitOfWork* u = current_unit; u; u = u->previous_) {
    if (u->dsn_ == dsn) return u;
  }
  return nullptr;
}

db::ConnectionPtr ConnectionPool::Take(const std::string& dsn) {
  std::future<db::ConnectionPtr> ahead;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (ahead_.valid() && ahead_dsn_ == dsn) {
      ahead = std::move(ahead_);
    } else {
      for (auto it = idle_.rbegin(); it != idle_.rend(); ++it) {
        if (it->first == dsn) {
          db::ConnectionPtr c = std::move(it->second);
          idle_.erase(std::next(it).base());
          return c;
        }
      }
    }
  }
  return ahead.valid() ? ahead.get() : db::Open(dsn, options_);
}

void ConnectionPool::OpenAhead(const std::string& dsn) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (ahead_.valid()) return;  // one at a time
  ahead_dsn_ = dsn;
  // The login, and the look at mrpcalc's own tables that the session's
  // first unit of work would make, on a thread of their own.
  ahead_ = std::async(std::launch::async, [dsn, options = options_] {
    db::ConnectionPtr c = db::Open(dsn, options);
    BringOwnTablesUpToDate(*c);
    return c;
  });
}

void ConnectionPool::Give(const std::string& dsn, db::ConnectionPtr connection) {
  if (!connection || connection->InTransaction()) return;
  std::lock_guard<std::mutex> lock(mutex_);
  if (idle_.size() < max_idle_) idle_.emplace_back(dsn, std::move(connection));
}

StandaloneContext::~StandaloneContext() {
  if (own_ && own_->InTransaction()) {
    try {
      own_->Rollback();
    } catch (...) {
      own_.reset();  // a session that cannot roll back is not given back
    }
  }
  if (pool_ && own_) pool_->Give(dsn_, std::move(own_));
}

void StandaloneContext::Bind(const std::string& dsn) {
  if (depth_ > 0 && dsn == dsn_) {
    ++depth_;  // a nested call on the same session
    return;
  }
  if (depth_ > 0) {
    throw Error(ErrorCategory::kInvalidInput,
                "a call nested in a unit of work on " + dsn_ + " cannot bind to another database");
  }
  aborted_ = false;
  if (UnitOfWork* unit = UnitOfWork::Find(dsn)) {
    joined_ = unit;
  } else {
    joined_ = nullptr;
    if (!own_ || dsn != dsn_) {
      if (pool_ && own_) pool_->Give(dsn_, std::move(own_));
      own_ = pool_ ? pool_->Take(dsn) : db::Open(dsn, options_);
    }
    BringOwnTablesUpToDate(*own_);
    own_->Begin();
  }
  dsn_ = dsn;
  depth_ = 1;
}

db::Connection& StandaloneContext::connection() {
  if (joined_) return joined_->connection();
  if (!own_ || depth_ == 0) {
    throw Error(ErrorCategory::kInternal, "the transaction context is not bound to a database");
  }
  return *own_;
}

std::function<db::ConnectionPtr()> StandaloneContext::ReaderOpener() {
  if (joined_ || !own_ || depth_ != 1) return {};  // not a nested call either
  return own_->ReaderOpener();
}

void StandaloneContext::SetAbort() {
  if (depth_ == 0) return;
  aborted_ = true;
  if (--depth_ == 0) EndTransaction(false);
}

void StandaloneContext::SetComplete() {
  if (depth_ == 0) return;
  if (--depth_ == 0) EndTransaction(!aborted_);
}

void StandaloneContext::EndTransaction(bool commit) {
  if (joined_) {
    if (!commit) joined_->MarkAborted();
    joined_ = nullptr;
    return;
  }
  if (!own_) return;
  if (commit) {
    own_->Commit();
  } else {
    own_->Rollback();
  }
}

}  // namespace mrpcalc
