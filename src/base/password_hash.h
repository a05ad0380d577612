// Password hashes: argon2id strings made and checked with libsodium
// (crypto_pwhash_str). Each hash costs kHashMemoryBytes of memory and
// kHashPasses passes over it, so at most as many are computed at once as
// the machine has cores: a flood of logins waits its turn instead of
// taking the process's memory. Thread-safe.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "base/status.h"

namespace orvane {

// OWASP's minimum for argon2id: 19 MiB, two passes, one lane.
inline constexpr size_t kHashMemoryBytes = 19 * 1024 * 1024;
inline constexpr unsigned long long kHashPasses = 2;
// A column that holds a hash must take this many characters.
inline constexpr size_t kPasswordHashMaxLength = 128;

// Whether `stored` is a well-formed argon2id hash string ("$argon2id$v=19$
// m=...,t=...,p=...$salt$hash"), as opposed to a password kept in clear.
bool IsPasswordHash(std::string_view stored);

// A fresh argon2id hash of `password` (random salt) in `hash`. Fails only
// when the library cannot get the memory.
Status HashPassword(std::string_view password, std::string& hash);

// Whether `password` is the one `hash` was made from. A value that is not
// an argon2id hash matches nothing.
bool VerifyPassword(std::string_view hash, std::string_view password);

// Spends the time of one verification on nothing, so that an unknown user
// id answers no faster than a wrong password.
void VerifyNothing(std::string_view password);

// How many hashes may be computed at once (the number of cores, at least 1).
unsigned ConcurrentHashLimit();

}  // namespace orvane
