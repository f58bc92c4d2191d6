// Tokens: random bytes from OpenSSL, SHA-256 hashes in mrpcalc_Token.
#include "http/tokens.h"

#include <cstdio>

#include <openssl/evp.h>
#include <openssl/rand.h>

#include "record/error.h"

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
  if (c.Query("select FUserID from t_User where FUserID = ?", {user_id})->Eof()) {
    throw Error(ErrorCategory::kNotFound,
                "no user " + std::to_string(user_id) + " in t_User: a token signs in a user of the ERP");
  }
  c.Execute(
      "insert into mrpcalc_Token (FTokenHash, FUserID, FCreated, FRevoked) values (?, ?, ?, 0)",
      {Sha256Hex(token), user_id, Date::Now()});
  // The log names the user, never the token.
  std::fprintf(stderr, "%s token created for user %d\n", Date::Now().ToString().c_str(), user_id);
  return token;
}

bool RevokeToken(db::Connection& c, const std::string& token) {
  const Variant user = c.QueryValue(
      "select FUserID from mrpcalc_Token where FTokenHash = ? and FRevoked = 0", {Sha256Hex(token)});
  const bool revoked =
      c.Execute("update mrpcalc_Token set FRevoked = 1 where FTokenHash = ? and FRevoked = 0",
                {Sha256Hex(token)}) > 0;
  if (revoked) {
    std::fprintf(stderr, "%s token revoked of user %d\n", Date::Now().ToString().c_str(),
                 user.IsEmpty() || user.IsNull() ? 0 : user.ToLong());
  }
  return revoked;
}

int64_t RevokeUserTokens(db::Connection& c, int32_t user_id) {
  const int64_t n =
      c.Execute("update mrpcalc_Token set FRevoked = 1 where FUserID = ? and FRevoked = 0",
                {user_id});
  std::fprintf(stderr, "%s %lld token(s) revoked of user %d\n", Date::Now().ToString().c_str(),
               static_cast<long long>(n), user_id);
  return n;
}

// The token is looked up by its SHA-256: what the database compares is a
// hash of the caller's text, so how long a comparison takes tells nothing
// about a stored token.
std::optional<int32_t> UserOfToken(db::Connection& c, const std::string& token) {
  if (token.empty()) return std::nullopt;
  const Variant user =
      c.QueryValue("select FUserID from mrpcalc_Token where FTokenHash = ? and FRevoked = 0",
                   {Sha256Hex(token)});
  if (user.IsEmpty() || user.IsNull()) return std::nullopt;
  return user.ToLong();
}

}  // namespace mrpcalc::http
