#include "base/password_hash.h"

#include <sodium.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <semaphore>
#include <thread>

namespace orvane {
namespace {

static_assert(kPasswordHashMaxLength == crypto_pwhash_argon2id_STRBYTES);

void InitSodium() {
  static std::once_flag once;
  // sodium_init only fails when no random source exists; the first hash
  // then fails and says so.
  std::call_once(once, [] {
    if (sodium_init() < 0) return;
  });
}

std::counting_semaphore<>& HashSlots() {
  static std::counting_semaphore<> slots(ConcurrentHashLimit());
  return slots;
}

// Holds one of the hash slots for its life.
class HashSlot {
 public:
  HashSlot() { HashSlots().acquire(); }
  ~HashSlot() { HashSlots().release(); }
  HashSlot(const HashSlot&) = delete;
  HashSlot& operator=(const HashSlot&) = delete;
};

}  // namespace

unsigned ConcurrentHashLimit() {
  static const unsigned limit = std::max(1u, std::thread::hardware_concurrency());
  return limit;
}

bool IsPasswordHash(std::string_view stored) {
  if (!stored.starts_with(crypto_pwhash_argon2id_STRPREFIX) || stored.size() >= crypto_pwhash_argon2id_STRBYTES)
    return false;
  // The library parses the parameters, salt and hash: a password that only
  // begins like a hash is not one.
  InitSodium();
  char str[crypto_pwhash_argon2id_STRBYTES] = {};
  std::memcpy(str, stored.data(), stored.size());
  return crypto_pwhash_argon2id_str_needs_rehash(str, kHashPasses, kHashMemoryBytes) != -1;
}

Status HashPassword(std::string_view password, std::string& hash) {
  InitSodium();
  char out[crypto_pwhash_argon2id_STRBYTES];
  int result;
  {
    HashSlot slot;
    result = crypto_pwhash_argon2id_str(out, password.data(), password.size(), kHashPasses, kHashMemoryBytes);
  }
  if (result != 0) return Status::Failure("HashPassword" + std::string("\r\n") + "argon2id: out of memory");
  hash.assign(out);
  return Status::Ok();
}

bool VerifyPassword(std::string_view hash, std::string_view password) {
  if (!IsPasswordHash(hash)) return false;
  InitSodium();
  char str[crypto_pwhash_argon2id_STRBYTES] = {};
  std::memcpy(str, hash.data(), hash.size());
  HashSlot slot;
  return crypto_pwhash_argon2id_str_verify(str, password.data(), password.size()) == 0;
}

void VerifyNothing(std::string_view password) {
  static std::string dummy;
  static std::once_flag once;
  std::call_once(once, [] {
    // Hashing cannot fail here but for memory; a failed one leaves the
    // dummy empty and the unknown id answers sooner, nothing worse.
    HashPassword("orvane: no such user", dummy).IgnoreError();
  });
  (void)VerifyPassword(dummy, password);
}

}  // namespace orvane
