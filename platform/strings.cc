// kvt_vstring and qep_bytestr: bytes in a block that the object owns. The two are alike but for their XML form.
#include <cstring>

#include "kvt/primitives.h"
#include "platform/content.h"
#include "platform/print_line.h"
#include "platform/ref.h"
#include "platform/super_fast_hash.h"
#include "platform/wire_inline.h"
#include "platform/xml_values.h"
#include "platform/xml_write.h"

namespace {

// Both types, as stored: a reference and a length.
struct OwnedBytes {
  kvt::ref<char> at;
  std::uint32_t length;
};
STORED_SIZE(OwnedBytes, 8);
STORED_SIZE(kvt_vstring, 8);
STORED_FIELD(kvt_vstring, text, 0, std::uint32_t);
STORED_FIELD(kvt_vstring, length, 4, std::uint32_t);
STORED_SIZE(qep_bytestr, 8);
STORED_FIELD(qep_bytestr, bytes, 0, std::uint32_t);
STORED_FIELD(qep_bytestr, length, 4, std::uint32_t);

constexpr std::uint32_t kLengthSize = sizeof(std::uint32_t);
constexpr OwnedBytes kEmpty{};

OwnedBytes owned(const void* p) {
  if (!p) return kEmpty;
  OwnedBytes field = kvt::load<OwnedBytes>(p);
  if (!field.at) field.length = 0;
  return field;
}

void release(kvt_handle* handle, std::uint32_t txn, OwnedBytes field) {
  if (field.at) handle->store_free(handle->store, txn, field.at.get());
}

// The new content stands before the old is freed: a failure leaves the field as it was, and `bytes` may lie in the old.
bool assign(kvt_handle* handle, std::uint32_t txn, void* p, const void* bytes, std::size_t length, int* err,
            bool free_old = true) {
  const OwnedBytes old = owned(p);
  OwnedBytes fresh = kEmpty;
  if (length > kvt::kMaxContent - 1) {
    kvt::report_error(handle, ENOMEM, err);
    return false;
  }
  const bool announced = handle->set_range != kvt_set_range_private;
  if (free_old && kvt::text_replaced_in_place(announced, p, bytes, length)) return true;
  if (length) {
    char* block = static_cast<char*>(kvt::content_alloc(handle, txn, length + 1, err));
    if (!block) return false;
    std::memcpy(block, bytes, length);
    block[length] = 0;
    fresh = {kvt::ref<char>::of(block), static_cast<std::uint32_t>(length)};
  }
  kvt::content_store(handle, txn, p, fresh);
  if (free_old) release(handle, txn, old);
  return true;
}

void set(kvt_handle* handle, std::uint32_t txn, void* p, const void* source, int* err) {
  if (*err || p == source) return;
  const OwnedBytes from = owned(source);
  const bool shared = from.at && from.at == owned(p).at;
  // After a raw copy the block is the source's; whatever comes of the copy, this field must not keep it.
  if (!assign(handle, txn, p, from.at.get(), from.length, err, !shared) && shared)
    kvt::content_store(handle, txn, p, kEmpty);
}

void destroy(kvt_handle* handle, std::uint32_t txn, void* p) {
  const OwnedBytes old = owned(p);
  if (!old.at) return;
  kvt::content_store(handle, txn, p, kEmpty);
  release(handle, txn, old);
}

std::int32_t compare(const void* a, const void* b) {
  const OwnedBytes left = owned(a), right = owned(b);
  return kvt::bytes_compare(left.at.get(), left.length, right.at.get(), right.length);
}

std::uint32_t marshal(kvt_handle* handle, std::uint8_t* buffer, const void* p, std::int32_t room, int* err) {
  const OwnedBytes field = owned(p);
  if (!kvt::wire_room(handle, std::uint64_t{kLengthSize} + field.length, room, err)) return 0;
  kvt::wire_put(handle, buffer, field.length, room, err);
  if (field.length) std::memcpy(buffer + kLengthSize, field.at.get(), field.length);
  return kLengthSize + field.length;
}

std::uint32_t unmarshal(kvt_handle* handle, std::uint32_t txn, const std::uint8_t* buffer, void* p, std::int32_t room,
                        int* err) {
  std::uint32_t length;
  if (!kvt::wire_get(handle, buffer, &length, room, err)) return 0;
  if (!kvt::wire_room(handle, std::uint64_t{kLengthSize} + length, room, err)) return 0;
  if (!assign(handle, txn, p, buffer + kLengthSize, length, err)) return 0;
  return kLengthSize + length;
}

void put_hexadecimal(kvt::TextSink& sink, std::string_view bytes) { sink.put_hex(bytes); }

template <class Put>
std::uint32_t print(kvt_handle* handle, char* buffer, std::uint32_t indent, const char* label, const char* type,
                    const void* p, Put put, std::int32_t room, int* err) {
  const OwnedBytes field = owned(p);
  return kvt::print_line(handle, buffer, indent, label, type, room, err, [&](kvt::TextSink& sink) {
    put(sink, std::string_view(field.length ? field.at.get() : "", field.length));
  });
}

std::uint32_t to_xml(kvt_handle* handle, const char* label, char* buffer, const void* p, kvt::XmlForm form,
                     std::int32_t room, std::uint32_t state, int* err) {
  if (*err) return 0;
  const OwnedBytes field = owned(p);
  return kvt::xml_write_element(handle, buffer, label, form, field.at.get(), field.length, room, state, err);
}

void from_xml(kvt_handle* handle, std::uint32_t txn, const char* path, kvt_xml_document* document, void* p, int* err,
              char* message, std::size_t size) {
  kvt::XmlBytes bytes;
  if (kvt::xml_read_bytes(handle, path, document, &bytes, err, message, size))
    assign(handle, txn, p, bytes.data(), bytes.size(), err);
}

}  // namespace

#define DEFINE_STRING(X, FORM, PUT)                                                                                    \
  void X##_set(kvt_handle* handle, std::uint32_t txn, void* p, const void* source, int* err) {                         \
    set(handle, txn, p, source, err);                                                                                  \
  }                                                                                                                    \
  void X##_destroy_internal(kvt_handle* handle, std::uint32_t txn, void* p, int) { destroy(handle, txn, p); }          \
  std::int32_t X##_compare(const void* a, const void* b) { return compare(a, b); }                                     \
  void X##_assign(kvt_handle* handle, std::uint32_t txn, void* p, const void* bytes, std::size_t length, int* err) {   \
    if (!*err) assign(handle, txn, p, bytes, length, err);                                                             \
  }                                                                                                                    \
  std::uint32_t X##_print(kvt_handle* handle, std::uint32_t, char* buffer, std::uint32_t indent, const char* label,    \
                          const void* p, std::int32_t room, int* err) {                                                \
    return print(handle, buffer, indent, label, #X, p, PUT, room, err);                                                \
  }                                                                                                                    \
  std::uint32_t X##_hash(const void* p, std::uint32_t seed) {                                                          \
    const OwnedBytes field = owned(p);                                                                                 \
    return kvt::hash_content(field.at.get(), field.length, seed);                                                      \
  }                                                                                                                    \
  std::uint32_t X##_len(kvt_handle*, std::uint32_t, const void* p) { return kLengthSize + owned(p).length; }           \
  std::uint32_t X##_marshal(kvt_handle* handle, std::uint32_t, std::uint8_t* buffer, const void* p, std::int32_t room, \
                            int* err) {                                                                                \
    return marshal(handle, buffer, p, room, err);                                                                      \
  }                                                                                                                    \
  std::uint32_t X##_unmarshal(kvt_handle* handle, std::uint32_t txn, const std::uint8_t* buffer, void* p,              \
                              std::int32_t room, std::uint32_t, int* err) {                                            \
    return unmarshal(handle, txn, buffer, p, room, err);                                                               \
  }                                                                                                                    \
  std::uint32_t X##_to_xml(kvt_handle* handle, std::uint32_t, const char* label, char* buffer, const void* p,          \
                           std::int32_t room, std::uint32_t state, int* err) {                                         \
    return to_xml(handle, label, buffer, p, FORM, room, state, err);                                                   \
  }                                                                                                                    \
  void X##_from_xml(kvt_handle* handle, std::uint32_t txn, const char* path, kvt_xml_document* document, void* p,      \
                    int* err, char* message, std::size_t size) {                                                       \
    from_xml(handle, txn, path, document, p, err, message, size);                                                      \
  }

extern "C" {

DEFINE_STRING(kvt_vstring, kvt::XmlForm::kText, kvt::put_quoted)
DEFINE_STRING(qep_bytestr, kvt::XmlForm::kHex, put_hexadecimal)

const char* kvt_vstring_text(const void* p) {
  const OwnedBytes field = owned(p);
  return field.at ? field.at.get() : "";
}
std::size_t kvt_vstring_length(const void* p) { return owned(p).length; }
const std::uint8_t* qep_bytestr_bytes(const void* p) {
  return reinterpret_cast<const std::uint8_t*>(kvt_vstring_text(p));
}
std::size_t qep_bytestr_length(const void* p) { return owned(p).length; }

}  // extern "C"
