// Integers and the boolean: wire and XML form. Access to them is inline in the header.
#include "kvt/primitives.h"
#include "platform/content.h"
#include "platform/print_line.h"
#include "platform/ref.h"
#include "platform/super_fast_hash.h"
#include "platform/wire_inline.h"
#include "platform/xml_values.h"
#include "platform/xml_write.h"

namespace {

template <class T>
std::uint32_t to_xml(kvt_handle* handle, const char* label, char* buffer, const void* p, std::int32_t room,
                     std::uint32_t state, int* err) {
  return *err ? 0 : kvt::xml_write_number(handle, buffer, label, p ? kvt::load<T>(p) : T{0}, room, state, err);
}

template <class T>
void from_xml(kvt_handle* handle, std::uint32_t txn, const char* path, kvt_xml_document* document, void* p, int* err,
              char* message, std::size_t size) {
  std::uint64_t value;
  if (kvt::xml_read_number(handle, path, document, T(~T{0}), &value, err, message, size))
    kvt::content_store(handle, txn, p, static_cast<T>(value));
}

template <class T>
std::uint32_t print(kvt_handle* handle, char* buffer, std::uint32_t indent, const char* label, const char* type,
                    const void* p, std::int32_t room, int* err) {
  return kvt::print_line(handle, buffer, indent, label, type, room, err,
                         [&](kvt::TextSink& sink) { sink.put_number(p ? kvt::load<T>(p) : T{0}); });
}

}  // namespace

#define DEFINE_INTEGER(X, T)                                                                                           \
  std::uint32_t X##_len(kvt_handle*, std::uint32_t, const void*) { return sizeof(T); }                                 \
  std::uint32_t X##_marshal(kvt_handle* handle, std::uint32_t, std::uint8_t* buffer, const void* p, std::int32_t room, \
                            int* err) {                                                                                \
    return kvt::wire_put(handle, buffer, p ? kvt::load<T>(p) : T{0}, room, err);                                       \
  }                                                                                                                    \
  std::uint32_t X##_unmarshal(kvt_handle* handle, std::uint32_t txn, const std::uint8_t* buffer, void* p,              \
                              std::int32_t room, std::uint32_t, int* err) {                                            \
    return kvt::wire_get_field<T>(handle, txn, buffer, p, room, err);                                                  \
  }                                                                                                                    \
  std::uint32_t X##_print(kvt_handle* handle, std::uint32_t, char* buffer, std::uint32_t indent, const char* label,    \
                          const void* p, std::int32_t room, int* err) {                                                \
    return print<T>(handle, buffer, indent, label, #X, p, room, err);                                                  \
  }                                                                                                                    \
  std::uint32_t X##_hash(const void* p, std::uint32_t seed) { return kvt::hash_bytes<sizeof(T)>(p, seed); }            \
  std::uint32_t X##_to_xml(kvt_handle* handle, std::uint32_t, const char* label, char* buffer, const void* p,          \
                           std::int32_t room, std::uint32_t state, int* err) {                                         \
    return to_xml<T>(handle, label, buffer, p, room, state, err);                                                      \
  }                                                                                                                    \
  void X##_from_xml(kvt_handle* handle, std::uint32_t txn, const char* path, kvt_xml_document* document, void* p,      \
                    int* err, char* message, std::size_t size) {                                                       \
    from_xml<T>(handle, txn, path, document, p, err, message, size);                                                   \
  }

extern "C" {

DEFINE_INTEGER(u_int8, std::uint8_t)
DEFINE_INTEGER(u_int16, std::uint16_t)
DEFINE_INTEGER(u_int32, std::uint32_t)
DEFINE_INTEGER(u_int64, std::uint64_t)

std::uint32_t kvt_boolean_len(kvt_handle*, std::uint32_t, const void*) { return 1; }

std::uint32_t kvt_boolean_marshal(kvt_handle* handle, std::uint32_t, std::uint8_t* buffer, const void* p,
                                  std::int32_t room, int* err) {
  return kvt::wire_put_boolean(handle, buffer, p ? kvt::load<kvt_boolean>(p) : 0, room, err);
}

std::uint32_t kvt_boolean_unmarshal(kvt_handle* handle, std::uint32_t txn, const std::uint8_t* buffer, void* p,
                                    std::int32_t room, std::uint32_t, int* err) {
  return kvt::wire_get_boolean_field(handle, txn, buffer, p, room, err);
}

std::uint32_t kvt_boolean_print(kvt_handle* handle, std::uint32_t, char* buffer, std::uint32_t indent,
                                const char* label, const void* p, std::int32_t room, int* err) {
  return kvt::print_line(handle, buffer, indent, label, "kvt_boolean", room, err, [&](kvt::TextSink& sink) {
    sink.put(std::string_view(p && kvt::load<kvt_boolean>(p) ? "true" : "false"));
  });
}

std::uint32_t kvt_boolean_hash(const void* p, std::uint32_t seed) {
  return kvt::hash_boolean(kvt::load<kvt_boolean>(p), seed);
}

std::uint32_t kvt_boolean_to_xml(kvt_handle* handle, std::uint32_t, const char* label, char* buffer, const void* p,
                                 std::int32_t room, std::uint32_t state, int* err) {
  if (*err) return 0;
  const bool value = p && kvt::load<kvt_boolean>(p);
  return kvt::xml_write_element(handle, buffer, label, kvt::XmlForm::kText, value ? "true" : "false", value ? 4 : 5,
                                room, state, err);
}

void kvt_boolean_from_xml(kvt_handle* handle, std::uint32_t txn, const char* path, kvt_xml_document* document, void* p,
                          int* err, char* message, std::size_t size) {
  bool value;
  if (kvt::xml_read_boolean(handle, path, document, &value, err, message, size))
    kvt::content_store(handle, txn, p, kvt_boolean{value});
}

std::int32_t kvt_boolean_compare(const void* a, const void* b) {
  const bool left = kvt::load<kvt_boolean>(a), right = kvt::load<kvt_boolean>(b);
  return left - right;
}

}  // extern "C"
