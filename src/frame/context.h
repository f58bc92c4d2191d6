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

#include <memory>
#include <string>

#include "db/connection.h"

namespace mrpcalc {

class TransContext {
 public:
  virtual ~TransContext() = default;
  // Binds to sDsn and begins (or joins) the unit of work.
  virtual void Bind(const std::string& dsn) = 0;
  // The open session of the current bind; throws when nothing is bound.
  virtual db::Connection& connection() = 0;
  virtual void SetAbort() = 0;
  virtual void SetComplete() = 0;
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

class StandaloneContext : public TransContext {
 public:
  explicit StandaloneContext(db::OpenOptions options = {}) : options_(options) {}
  ~StandaloneContext() override;

  void Bind(const std::string& dsn) override;
  db::Connection& connection() override;
  void SetAbort() override;
  void SetComplete() override;

 private:
  void EndTransaction(bool commit);

  db::OpenOptions options_;
  std::string dsn_;
  db::ConnectionPtr own_;       // our session, when not joined
  UnitOfWork* joined_ = nullptr;
  int depth_ = 0;               // nested binds not yet completed or aborted
  bool aborted_ = false;
};

}  // namespace mrpcalc
