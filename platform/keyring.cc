// The keyring: it knows the keys and holds none of them.
#include "platform/keyring.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

namespace kvt {
namespace {

struct Ring {
  std::mutex mutex;
  std::vector<std::weak_ptr<const Key>> keys;
  std::weak_ptr<const Key> process_key;

  KeyHold find(const std::uint8_t* id) const {
    for (const auto& known : keys)
      if (KeyHold key = known.lock(); key && !std::memcmp(key->id, id, kKeyIdSize)) return key;
    return nullptr;
  }
  KeyHold add(const std::uint8_t* bytes) {
    std::uint8_t digest[SHA256_DIGEST_LENGTH];
    if (!SHA256(bytes, kKeySize, digest)) return nullptr;
    if (KeyHold known = find(digest)) return known;
    std::shared_ptr<Key> key(new (std::nothrow) Key);
    if (!key) return nullptr;
    std::memcpy(key->id, digest, sizeof key->id);
    std::memcpy(key->bytes, bytes, kKeySize);
    std::erase_if(keys, [](const auto& one) { return one.expired(); });
    keys.push_back(key);
    return key;
  }
};

Ring& ring() {
  static Ring* ring = new Ring;  // never destroyed: handles may outlive every static destructor
  return *ring;
}

}  // namespace

Key::~Key() { OPENSSL_cleanse(bytes, sizeof bytes); }

KeyHold keyring_add(const std::uint8_t* bytes) {
  const std::lock_guard lock(ring().mutex);
  return ring().add(bytes);
}

KeyHold keyring_find(const std::uint8_t* id) {
  const std::lock_guard lock(ring().mutex);
  return ring().find(id);
}

KeyHold keyring_process_key() {
  const std::lock_guard lock(ring().mutex);
  if (KeyHold key = ring().process_key.lock()) return key;
  std::uint8_t bytes[kKeySize];
  KeyHold key = RAND_bytes(bytes, sizeof bytes) == 1 ? ring().add(bytes) : nullptr;
  OPENSSL_cleanse(bytes, sizeof bytes);
  ring().process_key = key;
  return key;
}

}  // namespace kvt
