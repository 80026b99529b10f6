// The primitive field types: what each takes in an object and what its value is in C.
#include "schema/compiler/model.h"

namespace zarnc {

namespace {

constexpr Primitive kPrimitives[] = {
    {"u_int8", Kind::kInteger, 1, 1, "uint8_t"},
    {"u_int16", Kind::kInteger, 2, 2, "uint16_t"},
    {"u_int32", Kind::kInteger, 4, 4, "uint32_t"},
    {"u_int64", Kind::kInteger, 8, 8, "uint64_t"},
    {"kvt_boolean", Kind::kBoolean, 4, 4, "kvt_boolean"},
    {"kvt_vstring", Kind::kVstring, 8, 4, ""},
    {"kvt_aes_vstring", Kind::kAesVstring, 12, 4, ""},
    {"qep_bytestr", Kind::kBytestr, 8, 4, ""},
    {"kvt_oid", Kind::kReference, 48, 8, ""},
    {"timer", Kind::kTimer, 64, 8, ""},
};

}  // namespace

const Primitive* primitive(const std::string& name) {
  for (const Primitive& one : kPrimitives) {
    if (name == one.name) return &one;
  }
  return nullptr;
}

}  // namespace zarnc
