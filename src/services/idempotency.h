// Writes that are safe to repeat: a client sends each write with a key of
// its own choosing, and the first answer per user and key is kept (table
// mrpcalc_Request) and given again for a repeat, which writes nothing.
//
// The key's row is written first, in the same unit of work as the write
// and its answer: a repeat that comes while the first is at work waits for
// it and then gets its answer; a write that fails keeps no row, so that
// its repeat runs again. Kept answers outlive the service.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "db/connection.h"

namespace mrpcalc {

// What a keyed write answers.
struct KeyedAnswer {
  std::string body;
  bool replayed = false;  // the kept answer of an earlier request
};

// A key is 1 to 100 printable ASCII characters; else invalid input.
void CheckIdempotencyKey(const std::string& key);

// Runs `write` once per (user, key) on the database `dsn`: inside one unit
// of work that the calls of `write` join (UnitOfWork), with the key's row
// and the answer it returns. `digest` names the request (its method and
// body): a key sent again with another request is invalid input.
KeyedAnswer AnswerOnce(const std::string& dsn, const db::OpenOptions& options, int32_t user,
                       const std::string& key, const std::string& digest,
                       const std::function<std::string()>& write);

}  // namespace mrpcalc
