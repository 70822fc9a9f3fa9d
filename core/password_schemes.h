// core/password_schemes.h - the names of the password-hashing schemes the
// directory client library understands, and their codes. The core context
// holds the codes and a case-insensitive table from each name to the address
// of its code; start-up builds the table last and shut-down destroys it
// first. Internal to the library (C++ only).
#ifndef QUILLOMAT_CORE_PASSWORD_SCHEMES_H
#define QUILLOMAT_CORE_PASSWORD_SCHEMES_H

#include <cstdint>

#include "core/context_internal.h"

namespace gslu {

struct PasswordScheme {
  int32_t code;
  const char *name;
};

// In insertion order. The codes are fixed identifiers, not positions: the
// gap between 7006 and 7011 is part of them.
inline constexpr PasswordScheme kPasswordSchemes[kPasswordSchemeCount] = {
    {7001, "md4"},     {7002, "md5"},     {7003, "sha"},       {7004, "ssha"},   {7005, "smd5"},
    {7006, "crypt"},   {7011, "sha256"},  {7012, "sha384"},    {7013, "sha512"}, {7014, "ssha256"},
    {7015, "ssha384"}, {7016, "ssha512"}, {7017, "mr-sha512"},
};

// Buckets of the table: with 16, names that differ only in the case of ASCII
// letters share a bucket, so the case-insensitive lookup finds them.
inline constexpr uint32_t kPasswordSchemeBuckets = 16;

// Stores the codes in ctx and builds ctx->password_schemes. 0, or 2 when a
// step fails; the names inserted so far then stay in the table (or there is
// no table at all when its creation failed).
[[nodiscard]] int buildPasswordSchemes(gsluctx *ctx);

// Destroys ctx->password_schemes, if any, and clears it.
void destroyPasswordSchemes(gsluctx *ctx);

}  // namespace gslu

#endif  // QUILLOMAT_CORE_PASSWORD_SCHEMES_H
