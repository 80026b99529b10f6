// Sealed secrets. Input: the bytes of one secret, as they lie in an object and travel on the wire.
#include <cerrno>

#include "fuzz/key_file.h"
#include "fuzz/rig.h"
#include "platform/sealing.h"

namespace fuzz {
namespace {

// Seals under the fixed key, and keeps it in the process: what was sealed with it once is opened by every handle.
kvt_handle* fixed_key_handle() {
  static kvt_handle* const handle = [] {
    int err = 0;
    kvt_handle* made = handle_with_key(fixed_key_file(), nullptr, 0, &err);
    FUZZ_CHECK(made, "no key");
    return made;
  }();
  return handle;
}

class Secret {
 public:
  explicit Secret(Rig& rig) : rig_(rig) {}
  ~Secret() { kvt_aes_vstring_destroy_internal(rig_.h, rig_.txn, &words_, 0); }
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  kvt_aes_vstring* get() { return &words_; }
  // -1 when no key opens it.
  std::int64_t text(std::string* out) {
    Exact room(kvt_aes_vstring_length(&words_) + 1);
    const std::int64_t length = kvt_aes_vstring_text(&words_, room.text(), room.size());
    FUZZ_CHECK(length == -1 || length == static_cast<std::int64_t>(room.size() - 1), "an opened secret's length");
    if (length >= 0) *out = std::string(room.text(), room.size() - 1);
    return length;
  }

 private:
  Rig& rig_;
  kvt_aes_vstring words_{};
};

void check_unseal(const Exact& sealed) {
  const Exact plain(sealed.size() > kvt::kSealOverhead ? sealed.size() - kvt::kSealOverhead : 0);
  std::memset(plain.bytes(), 0xA5, plain.size());
  const bool opened = kvt::unseal(sealed.bytes(), sealed.size(), plain.bytes());
  FUZZ_CHECK(!opened || sealed.size() >= kvt::kSealOverhead, "too short, and opened");
}

void run(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kLengthSize = 4;
  fixed_key_handle();
  Rig& rig = rig_for(Options(0));
  const Balance balance(rig);
  const Exact sealed(data, size);
  check_unseal(sealed);

  Secret secret(rig), copy(rig), other(rig);
  Exact wire(kLengthSize + size);
  for (unsigned i = 0; i < kLengthSize; ++i) wire.bytes()[i] = static_cast<std::uint8_t>(size >> (24 - 8 * i));
  if (size) std::memcpy(wire.bytes() + kLengthSize, data, size);
  int err = 0;
  const std::uint32_t read =
      kvt_aes_vstring_unmarshal(rig.h, rig.txn, wire.bytes(), secret.get(), wire.room(), 0, &err);
  const bool sound = size == 0 || size >= kvt::kSealOverhead;
  FUZZ_CHECK(err == (sound ? 0 : EINVAL) && read == (sound ? wire.size() : 0), "read: error " + std::to_string(err));

  std::string text, again;
  const std::int64_t length = secret.text(&text);
  err = 0;
  kvt_aes_vstring_set(rig.h, rig.txn, copy.get(), secret.get(), &err);
  FUZZ_CHECK(err == 0 && kvt_aes_vstring_compare(secret.get(), copy.get()) == 0, "a copy differs");
  kvt_aes_vstring_assign(rig.h, rig.txn, other.get(), text.data(), text.size(), &err);
  const int order = kvt_aes_vstring_compare(secret.get(), other.get());
  FUZZ_CHECK(order == -kvt_aes_vstring_compare(other.get(), secret.get()), "an order that depends on the side");
  FUZZ_CHECK(length < 0 ? order > 0 : order == 0, "opened ones stand first, and equal texts beside each other");

  const Exact room(2 * size + 100);
  const std::uint32_t written =
      kvt_aes_vstring_to_xml(rig.h, rig.txn, "s", room.text(), secret.get(), room.room(), 0, &err);
  FUZZ_CHECK(err == 0, "no XML");
  kvt_xml_document* document = kvt_xml_parse(room.text(), written, nullptr, 0);
  FUZZ_CHECK(document, "its XML is refused");
  kvt_aes_vstring_from_xml(rig.h, rig.txn, "//s", document, other.get(), &err, nullptr, 0);
  kvt_xml_free(document);
  FUZZ_CHECK(err == 0 && kvt_aes_vstring_compare(secret.get(), other.get()) == 0, "read from XML it differs");
  FUZZ_CHECK(other.text(&again) == length && (length < 0 || again == text), "read from XML its text differs");
}

void seeds(const Sow& sow) {
  kvt_handle* h = fixed_key_handle();
  for (const std::string text : {"a", "correct horse battery staple", "\xFF\x01\x80"}) {
    kvt_aes_vstring secret{};
    int err = 0;
    kvt_aes_vstring_assign(h, h->default_txn, &secret, text.data(), text.size(), &err);
    FUZZ_CHECK(err == 0, "not sealed");
    std::string sealed(static_cast<const char*>(kvt_ref_at(secret.sealed)), secret.length);
    kvt_aes_vstring_destroy_internal(h, h->default_txn, &secret, 0);
    sow("text_" + std::to_string(text.size()), sealed);
    sow("cut_" + std::to_string(text.size()), sealed.substr(0, sealed.size() - 1));
    sealed.back() ^= 1;
    sow("flipped_" + std::to_string(text.size()), sealed);
    sealed[0] ^= 1;
    sow("other_key_" + std::to_string(text.size()), sealed);
  }
  sow("empty", "");
  sow("too_short", std::string(kvt::kSealOverhead - 1, 'k'));
  sow("bare", std::string(kvt::kSealOverhead, 'k'));
}

}  // namespace

const Target kSealed{"sealed", run, seeds, nullptr};

}  // namespace fuzz
