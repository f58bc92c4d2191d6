// The transaction context every public method works through: bind to a
// connection description, hand out the open session, and end the unit of
// work with SetComplete (commit) or SetAbort (roll back).
//
// The stand-alone context opens the database that sDsn names and keeps that
// session for later binds to the same sDsn. Calls nest (a public method may
// call another public method of the same instance): only the outermost
// SetComplete commits; an abort anywhere rolls the whole unit back.
// A caller that holds a UnitOfWork on the same sDsn is joined instead: its
// transaction is used and is never committed behind its back.
#pragma once

#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "db/connection.h"

namespace mrpcalc {

// Before a session's first unit of work on a database that holds the ERP's
// tables, creates mrpcalc's own tables where they are missing (a database
// made before them), each in a unit of work of its own; a note of each goes
// to standard error. Later units on the same session do nothing.
void BringOwnTablesUpToDate(db::Connection& connection);

class TransContext {
 public:
  virtual ~TransContext() = default;
  // Binds to sDsn and begins (or joins) the unit of work.
  virtual void Bind(const std::string& dsn) = 0;
  // The open session of the current bind; throws when nothing is bound.
  virtual db::Connection& connection() = 0;
  virtual void SetAbort() = 0;
  virtual void SetComplete() = 0;
  // What opens a session for reads on another thread beside the bound one
  // (Connection::ReaderOpener), where that is sound: only for a call's own
  // unit of work, whose reads come before any change of its own. Empty
  // when the call joined a caller's unit (it may hold changes not
  // committed) or is nested in another call.
  virtual std::function<db::ConnectionPtr()> ReaderOpener() { return {}; }
  db::ConnectionPtr OpenReader() {
    const auto open = ReaderOpener();
    return open ? open() : nullptr;
  }
};

// A unit of work owned by a library user: every context of this thread that
// binds to the same description joins it. Rolls back on destruction unless
// committed, and refuses to commit when a joined call aborted.
class UnitOfWork {
 public:
  explicit UnitOfWork(const std::string& dsn, const db::OpenOptions& options = {});
  ~UnitOfWork();
  UnitOfWork(const UnitOfWork&) = delete;
  UnitOfWork& operator=(const UnitOfWork&) = delete;

  db::Connection& connection() { return *connection_; }
  const std::string& dsn() const { return dsn_; }
  bool aborted() const { return aborted_; }
  void MarkAborted() { aborted_ = true; }
  // Throws when a joined call aborted; the work is then rolled back.
  void Commit();

  // The unit of work of this thread bound to dsn, or nullptr.
  static UnitOfWork* Find(const std::string& dsn);

 private:
  std::string dsn_;
  db::ConnectionPtr connection_;
  std::unique_ptr<db::Transaction> transaction_;
  bool aborted_ = false;
  UnitOfWork* previous_;  // units of work nest per thread
};

// Open sessions kept for the next unit of work on the same description, so
// that a service answering many calls does not log in for each. A session
// comes back only when no transaction is open on it.
class ConnectionPool {
 public:
  explicit ConnectionPool(db::OpenOptions options = {}, size_t max_idle = 16)
      : options_(options), max_idle_(max_idle) {}
  // Waits for a session opened ahead on dsn, or takes an idle one, or opens
  // one. A session opened ahead that failed to open throws its error here.
  db::ConnectionPtr Take(const std::string& dsn);
  void Give(const std::string& dsn, db::ConnectionPtr connection);
  // Starts opening a session on dsn on a thread of its own, for the next
  // Take(dsn): a caller that has other work first (reading its request)
  // need not wait for a server's login after it. A session opened ahead
  // and never taken is closed with the pool, which waits for its login.
  void OpenAhead(const std::string& dsn);

 private:
  db::OpenOptions options_;
  size_t max_idle_;
  std::mutex mutex_;
  std::vector<std::pair<std::string, db::ConnectionPtr>> idle_;
  std::string ahead_dsn_;
  std::future<db::ConnectionPtr> ahead_;
};

class StandaloneContext : public TransContext {
 public:
  explicit StandaloneContext(db::OpenOptions options = {},
                             std::shared_ptr<ConnectionPool> pool = nullptr)
      : options_(options), pool_(std::move(pool)) {}
  ~StandaloneContext() override;

  void Bind(const std::string& dsn) override;
  db::Connection& connection() override;
  void SetAbort() override;
  void SetComplete() override;
  std::function<db::ConnectionPtr()> ReaderOpener() override;

 private:
  void EndTransaction(bool commit);

  db::OpenOptions options_;
  std::shared_ptr<ConnectionPool> pool_;  // where sessions come from and go back, if any
  std::string dsn_;
  db::ConnectionPtr own_;       // our session, when not joined
  UnitOfWork* joined_ = nullptr;
  int depth_ = 0;               // nested binds not yet completed or aborted
  bool aborted_ = false;
};

}  // namespace mrpcalc
