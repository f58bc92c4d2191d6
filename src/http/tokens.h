// Bearer tokens of the HTTP service. A token is shown once, when it is
// made; the database keeps only its SHA-256, with the user it signs in.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "db/connection.h"

namespace mrpcalc::http {

// A new random token for the user ("mrp_" and 64 hexadecimal digits).
std::string CreateToken(db::Connection& connection, int32_t user_id);
// Revokes one token; false when it is unknown or already revoked.
bool RevokeToken(db::Connection& connection, const std::string& token);
// Revokes every token of the user; how many.
int64_t RevokeUserTokens(db::Connection& connection, int32_t user_id);
// The user a live token signs in, or nullopt.
std::optional<int32_t> UserOfToken(db::Connection& connection, const std::string& token);

std::string Sha256Hex(const std::string& text);

}  // namespace mrpcalc::http
