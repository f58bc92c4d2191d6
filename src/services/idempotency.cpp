// Keyed writes on the ERP database.
#include "services/idempotency.h"

#include <optional>

#include "frame/context.h"
#include "record/column_value.h"
#include "record/error.h"

namespace mrpcalc {
namespace {

constexpr const char* kFind =
    "select FDigest, FAnswer from mrpcalc_Request where FUserID = ? and FKey = ?";
constexpr const char* kClaim =
    "insert into mrpcalc_Request (FUserID, FKey, FDigest, FAnswer, FCreated)"
    " values (?, ?, ?, '', ?)";
constexpr const char* kKeep =
    "update mrpcalc_Request set FAnswer = ? where FUserID = ? and FKey = ?";

struct Kept {
  std::string digest, answer;
};

std::optional<Kept> Find(db::Connection& c, int32_t user, const std::string& key) {
  auto rs = c.Query(kFind, {user, key});
  if (rs->Eof()) return std::nullopt;
  return Kept{TextValue(rs->Field("FDigest")), TextValue(rs->Field("FAnswer"))};
}

KeyedAnswer Replay(const Kept& kept, const std::string& key, const std::string& digest) {
  if (kept.digest != digest) {
    ThrowInvalid("the idempotency key \"" + key +
                 "\" was sent before with another request: give each write a key of its own");
  }
  return {kept.answer, true};
}

}  // namespace

void CheckIdempotencyKey(const std::string& key) {
  bool printable = !key.empty() && key.size() <= 100;
  for (unsigned char ch : key) printable = printable && ch > 0x20 && ch < 0x7f;
  if (!printable) {
    ThrowInvalid("an idempotency key is 1 to 100 printable characters without blanks");
  }
}

KeyedAnswer AnswerOnce(const std::string& dsn, const db::OpenOptions& options, int32_t user,
                       const std::string& key, const std::string& digest,
                       const std::function<std::string()>& write) {
  CheckIdempotencyKey(key);
  std::optional<UnitOfWork> unit;
  unit.emplace(dsn, options);
  try {
    unit->connection().Execute(kClaim, {user, key, digest, Date::Now()});
  } catch (const Error& e) {
    if (e.category() != ErrorCategory::kDatabase) throw;
    // The key is taken: by a request that has finished (the insert failed
    // at once) or one that was at work (it waited for it to end).
    unit.reset();
    auto c = db::Open(dsn, options);
    if (const auto kept = Find(*c, user, key)) return Replay(*kept, key, digest);
    throw;
  }
  std::string answer = write();
  unit->connection().Execute(kKeep, {answer, user, key});
  unit->Commit();
  return {std::move(answer), false};
}

}  // namespace mrpcalc
