// Tokens: random bytes from OpenSSL, SHA-256 hashes in mrpcalc_Token.
#include "http/tokens.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include "record/error.h"
#include "schema/erp_schema.h"

namespace mrpcalc::http {
namespace {

std::string Hex(const unsigned char* bytes, size_t n) {
  static const char* digits = "0123456789abcdef";
  std::string out;
  out.reserve(n * 2);
  for (size_t i = 0; i < n; ++i) {
    out += digits[bytes[i] >> 4];
    out += digits[bytes[i] & 15];
  }
  return out;
}

void EnsureTable(db::Connection& c) {
  if (!c.TableExists("mrpcalc_Token")) schema::EnsureOwnTables(c);
}

}  // namespace

std::string Sha256Hex(const std::string& text) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  if (EVP_Digest(text.data(), text.size(), digest, &n, EVP_sha256(), nullptr) != 1) {
    throw Error(ErrorCategory::kInternal, "SHA-256 failed");
  }
  return Hex(digest, n);
}

std::string CreateToken(db::Connection& c, int32_t user_id) {
  unsigned char bytes[32];
  if (RAND_bytes(bytes, sizeof bytes) != 1) {
    throw Error(ErrorCategory::kInternal, "no random bytes for a token");
  }
  const std::string token = "mrp_" + Hex(bytes, sizeof bytes);
  EnsureTable(c);
  c.Execute(
      "insert into mrpcalc_Token (FTokenHash, FUserID, FCreated, FRevoked) values (?, ?, ?, 0)",
      {Sha256Hex(token), user_id, Date::Now()});
  return token;
}

bool RevokeToken(db::Connection& c, const std::string& token) {
  EnsureTable(c);
  return c.Execute("update mrpcalc_Token set FRevoked = 1 where FTokenHash = ? and FRevoked = 0",
                   {Sha256Hex(token)}) > 0;
}

int64_t RevokeUserTokens(db::Connection& c, int32_t user_id) {
  EnsureTable(c);
  return c.Execute("update mrpcalc_Token set FRevoked = 1 where FUserID = ? and FRevoked = 0",
                   {user_id});
}

std::optional<int32_t> UserOfToken(db::Connection& c, const std::string& token) {
  if (token.empty() || !c.TableExists("mrpcalc_Token")) return std::nullopt;
  const Variant user =
      c.QueryValue("select FUserID from mrpcalc_Token where FTokenHash = ? and FRevoked = 0",
                   {Sha256Hex(token)});
  if (user.IsEmpty() || user.IsNull()) return std::nullopt;
  return user.ToLong();
}

}  // namespace mrpcalc::http
