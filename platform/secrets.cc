// kvt_aes_vstring: text that lies sealed in the object's block, under the key of the store that the block is in. Plain
// text never reaches the cage or a wire buffer; where it is needed for a moment, it is in memory of this process alone
// and is wiped. See docs/design/secrets.md.
#include <openssl/crypto.h>

#include <cstdlib>
#include <cstring>

#include "kvt/primitives.h"
#include "platform/content.h"
#include "platform/handle.h"
#include "platform/print_line.h"
#include "platform/ref.h"
#include "platform/sealing.h"
#include "platform/super_fast_hash.h"
#include "platform/wire_inline.h"
#include "platform/xml_values.h"
#include "platform/xml_write.h"

namespace {

using kvt::kSealOverhead;

STORED_SIZE(kvt_aes_vstring, 12);
STORED_FIELD(kvt_aes_vstring, sealed, 0, std::uint32_t);
STORED_FIELD(kvt_aes_vstring, length, 4, std::uint32_t);
STORED_FIELD(kvt_aes_vstring, plain_length, 8, std::uint32_t);

constexpr std::uint32_t kLengthSize = sizeof(std::uint32_t);
constexpr kvt_aes_vstring kEmpty{};
constexpr std::string_view kMask = "********";  // whatever the length of the text

struct Sealed {
  const std::uint8_t* bytes;
  std::uint32_t length;
  std::uint32_t plain_length;
};

Sealed sealed_of(const void* p) {
  if (!p) return {};
  const auto field = kvt::load<kvt_aes_vstring>(p);
  const auto* bytes = static_cast<const std::uint8_t*>(kvt::cage_at(field.sealed));
  if (!bytes || field.length < kSealOverhead) return {};
  return {bytes, field.length, static_cast<std::uint32_t>(field.length - kSealOverhead)};
}

// The text of a secret for as long as it is looked at or sealed anew.
class PlainText {
 public:
  explicit PlainText(const Sealed& sealed) : length_(sealed.plain_length) {
    at_ = length_ <= sizeof near_ ? near_ : static_cast<std::uint8_t*>(std::malloc(length_));
    open_ = !sealed.bytes || (at_ && kvt::unseal(sealed.bytes, sealed.length, at_));
  }
  ~PlainText() {
    if (at_) OPENSSL_cleanse(at_, length_);
    if (at_ != near_) std::free(at_);
  }
  PlainText(const PlainText&) = delete;
  PlainText& operator=(const PlainText&) = delete;
  bool open() const { return open_; }
  bool no_memory() const { return !at_; }
  const void* data() const { return at_; }
  std::size_t size() const { return length_; }

 private:
  std::uint8_t near_[256];
  std::uint8_t* at_;
  std::size_t length_;
  bool open_;
};

// The wiped block is announced: when the transaction is undone it is the secret again.
void release(kvt_handle* handle, std::uint32_t txn, const Sealed& old) {
  if (!old.bytes) return;
  void* block = const_cast<std::uint8_t*>(old.bytes);
  handle->set_range(handle, block, old.length, txn, nullptr);
  OPENSSL_cleanse(block, old.length);
  handle->store_free(handle->store, txn, block);
}

void replace(kvt_handle* handle, std::uint32_t txn, void* p, void* block, std::size_t length, bool free_old) {
  const Sealed old = sealed_of(p);
  kvt_aes_vstring fresh = kEmpty;
  if (block)
    fresh = {kvt::cage_ref(block), static_cast<std::uint32_t>(length),
             static_cast<std::uint32_t>(length - kSealOverhead)};
  kvt::content_store(handle, txn, p, fresh);
  if (free_old) release(handle, txn, old);
}

bool assign_plain(kvt_handle* handle, std::uint32_t txn, void* p, const void* bytes, std::size_t length, int* err,
                  bool free_old = true) {
  void* block = nullptr;
  if (length > kvt::kMaxContent - kSealOverhead) {
    kvt::report_error(handle, ENOMEM, err);
    return false;
  }
  if (length) {
    block = kvt::content_alloc(handle, txn, kSealOverhead + length, err);
    if (!block) return false;
    const kvt::Key* key = handle->runtime->store->sealing_key();
    if (!key || !kvt::seal(*key, bytes, length, static_cast<std::uint8_t*>(block))) {
      handle->store_free(handle->store, txn, block);
      kvt::report_error(handle, EIO, err);
      return false;
    }
  }
  replace(handle, txn, p, block, kSealOverhead + length, free_old);
  return true;
}

// Whether the sealed form is under the key of the handle's store.
bool is_own(kvt_handle* handle, const std::uint8_t* sealed) {
  const kvt::Key* key = handle->runtime->store->sealing_key();
  return key && !std::memcmp(kvt::sealing_key_id(sealed), key->id, kvt::kKeyIdSize);
}

// A secret from elsewhere is sealed anew, so that a store's secrets need no key but its own; one that no key at hand
// opens is kept as it came.
bool assign_sealed(kvt_handle* handle, std::uint32_t txn, void* p, const std::uint8_t* bytes, std::size_t length,
                   int* err, bool free_old = true) {
  void* block = nullptr;
  if (length) {
    if (length < kSealOverhead) {
      kvt::report_error(handle, EINVAL, err);
      return false;
    }
    if (!is_own(handle, bytes)) {
      const PlainText text(
          {bytes, static_cast<std::uint32_t>(length), static_cast<std::uint32_t>(length - kSealOverhead)});
      if (text.open()) return assign_plain(handle, txn, p, text.data(), text.size(), err, free_old);
      if (text.no_memory()) {
        kvt::report_error(handle, ENOMEM, err);
        return false;
      }
    }
    // A sealed form of the same length takes the place of the old one, where no transaction may want that back.
    const Sealed old = sealed_of(p);
    if (free_old && old.bytes && old.length == length && handle->set_range == kvt_set_range_private) {
      std::memmove(const_cast<std::uint8_t*>(old.bytes), bytes, length);
      return true;
    }
    block = kvt::content_alloc(handle, txn, length, err);
    if (!block) return false;
    std::memcpy(block, bytes, length);
  }
  replace(handle, txn, p, block, length, free_old);
  return true;
}

}  // namespace

extern "C" {

void kvt_aes_vstring_set(kvt_handle* handle, std::uint32_t txn, void* p, const void* source, int* err) {
  if (*err || p == source) return;
  const Sealed from = sealed_of(source);
  const bool shared = from.bytes && from.bytes == sealed_of(p).bytes;
  // After a raw copy the block is the source's; whatever comes of the copy, this field must not keep it.
  if (!assign_sealed(handle, txn, p, from.bytes, from.length, err, !shared) && shared)
    kvt::content_store(handle, txn, p, kEmpty);
}

void kvt_aes_vstring_destroy_internal(kvt_handle* handle, std::uint32_t txn, void* p, int) {
  if (sealed_of(p).bytes) replace(handle, txn, p, nullptr, 0, true);
}

// Secrets that no key opens have an order too, behind all others, so that a sorted list stays one.
std::int32_t kvt_aes_vstring_compare(const void* a, const void* b) {
  const Sealed left = sealed_of(a), right = sealed_of(b);
  const std::int32_t sealed_order = kvt::bytes_compare(left.bytes, left.length, right.bytes, right.length);
  if (!sealed_order) return 0;
  const PlainText left_text(left), right_text(right);
  if (left_text.open() != right_text.open()) return left_text.open() ? -1 : 1;
  if (!left_text.open()) return sealed_order;
  return kvt::bytes_compare(left_text.data(), left_text.size(), right_text.data(), right_text.size());
}

std::uint32_t kvt_aes_vstring_print(kvt_handle* handle, std::uint32_t, char* buffer, std::uint32_t indent,
                                    const char* label, const void* p, std::int32_t room, int* err) {
  const bool empty = !sealed_of(p).bytes;
  return kvt::print_line(handle, buffer, indent, label, "kvt_aes_vstring", room, err, [&](kvt::TextSink& sink) {
    if (!empty) sink.put(kMask);
  });
}

// By the plain text: each sealing of one text gives other bytes. What no key opens is equal only to its own bytes.
std::uint32_t kvt_aes_vstring_hash(const void* p, std::uint32_t seed) {
  const Sealed field = sealed_of(p);
  const PlainText text(field);
  if (!text.open()) return kvt::hash_content(field.bytes, field.length, seed);
  return kvt::hash_content(text.data(), text.size(), seed);
}

void kvt_aes_vstring_assign(kvt_handle* handle, std::uint32_t txn, void* p, const void* bytes, std::size_t length,
                            int* err) {
  if (!*err) assign_plain(handle, txn, p, bytes, length, err);
}

std::uint32_t kvt_aes_vstring_len(kvt_handle*, std::uint32_t, const void* p) {
  return kLengthSize + sealed_of(p).length;
}

std::uint32_t kvt_aes_vstring_marshal(kvt_handle* handle, std::uint32_t, std::uint8_t* buffer, const void* p,
                                      std::int32_t room, int* err) {
  const Sealed field = sealed_of(p);
  if (!kvt::wire_room(handle, std::uint64_t{kLengthSize} + field.length, room, err)) return 0;
  kvt::wire_put(handle, buffer, field.length, room, err);
  if (field.length) std::memcpy(buffer + kLengthSize, field.bytes, field.length);
  return kLengthSize + field.length;
}

std::uint32_t kvt_aes_vstring_unmarshal(kvt_handle* handle, std::uint32_t txn, const std::uint8_t* buffer, void* p,
                                        std::int32_t room, std::uint32_t, int* err) {
  std::uint32_t length;
  if (!kvt::wire_get(handle, buffer, &length, room, err)) return 0;
  if (!kvt::wire_room(handle, std::uint64_t{kLengthSize} + length, room, err)) return 0;
  if (!assign_sealed(handle, txn, p, buffer + kLengthSize, length, err)) return 0;
  return kLengthSize + length;
}

std::uint32_t kvt_aes_vstring_to_xml(kvt_handle* handle, std::uint32_t, const char* label, char* buffer, const void* p,
                                     std::int32_t room, std::uint32_t state, int* err) {
  if (*err) return 0;
  const Sealed field = sealed_of(p);
  return kvt::xml_write_element(handle, buffer, label, kvt::XmlForm::kSealed, field.bytes, field.length, room, state,
                                err);
}

void kvt_aes_vstring_from_xml(kvt_handle* handle, std::uint32_t txn, const char* path, kvt_xml_document* document,
                              void* p, int* err, char* message, std::size_t size) {
  kvt::XmlBytes bytes;
  bool sealed;
  if (!kvt::xml_read_secret(handle, path, document, &bytes, &sealed, err, message, size)) return;
  if (!sealed) {
    assign_plain(handle, txn, p, bytes.data(), bytes.size(), err);
  } else if (bytes.size() && bytes.size() < kSealOverhead) {
    kvt::xml_fail(handle, path, document, "the sealed form is cut short", err, message, size);
  } else {
    assign_sealed(handle, txn, p, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), err);
  }
}

std::int64_t kvt_aes_vstring_text(const void* p, char* buffer, std::size_t size) {
  const Sealed field = sealed_of(p);
  if (field.bytes && !kvt::keyring_find(kvt::sealing_key_id(field.bytes))) return -1;
  if (size <= field.plain_length) return field.plain_length;
  if (field.bytes && !kvt::unseal(field.bytes, field.length, reinterpret_cast<std::uint8_t*>(buffer))) return -1;
  buffer[field.plain_length] = 0;
  return field.plain_length;
}

std::size_t kvt_aes_vstring_length(const void* p) { return sealed_of(p).plain_length; }

}  // extern "C"
