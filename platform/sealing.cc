// Sealing and opening with AES-256-GCM.
#include "platform/sealing.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <cstring>
#include <memory>

namespace {

constexpr std::size_t kNonceSize = 12;
constexpr std::size_t kTagSize = 16;
constexpr std::size_t kNonceOffset = kvt::kKeyIdSize;
constexpr std::size_t kTagOffset = kNonceOffset + kNonceSize;
static_assert(kTagOffset + kTagSize == kvt::kSealOverhead);

struct FreeContext {
  void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};
using Context = std::unique_ptr<EVP_CIPHER_CTX, FreeContext>;

}  // namespace

namespace kvt {

bool seal(const Key& key, const void* plain, std::size_t length, std::uint8_t* sealed) {
  const Context context(EVP_CIPHER_CTX_new());
  if (!context) return false;
  std::memcpy(sealed, key.id, kKeyIdSize);
  int done = 0, rest = 0;
  std::uint8_t* text = sealed + kSealOverhead;
  return RAND_bytes(sealed + kNonceOffset, kNonceSize) == 1 &&
         EVP_EncryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key.bytes, sealed + kNonceOffset) == 1 &&
         EVP_EncryptUpdate(context.get(), text, &done, static_cast<const std::uint8_t*>(plain),
                           static_cast<int>(length)) == 1 &&
         EVP_EncryptFinal_ex(context.get(), text + done, &rest) == 1 &&
         EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, kTagSize, sealed + kTagOffset) == 1;
}

bool unseal(const std::uint8_t* sealed, std::size_t sealed_length, std::uint8_t* plain) {
  if (sealed_length < kSealOverhead) return false;
  const KeyHold key = keyring_find(sealing_key_id(sealed));
  const Context context(key ? EVP_CIPHER_CTX_new() : nullptr);
  if (!context) return false;
  const std::size_t length = sealed_length - kSealOverhead;
  std::uint8_t tag[kTagSize];
  std::memcpy(tag, sealed + kTagOffset, sizeof tag);
  int done = 0, rest = 0;
  const bool good =
      EVP_DecryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key->bytes, sealed + kNonceOffset) == 1 &&
      EVP_DecryptUpdate(context.get(), plain, &done, sealed + kSealOverhead, static_cast<int>(length)) == 1 &&
      EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_TAG, kTagSize, tag) == 1 &&
      EVP_DecryptFinal_ex(context.get(), plain + done, &rest) == 1;
  if (!good) OPENSSL_cleanse(plain, length);
  return good;
}

}  // namespace kvt
