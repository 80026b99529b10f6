#include "objects/flag_set.h"

#include <cstring>

namespace kvt {

void flag_set(kvt_handle* h, std::uint32_t txn, void* object, const void* source, int* err) {
  if (*err) return;
  kvt_clear_last_error(h);
  h->set_range(h, object, kScalarObjectSize, txn, nullptr);
  std::memmove(object, source, kScalarObjectSize);
}

std::uint32_t flag_get_value(const EnumDesc& type, kvt_handle* h, const void* object, std::uint32_t bit, int* err) {
  if (*err) return 0;
  if (!object || !flag_in_range(type, bit)) {
    kvt_store_epoch_err(h, kEidrm, err);
    return 0;
  }
  return load<std::uint8_t>(at_offset(object, kFlagBitsOffset)) >> bit & 1u;
}

void flag_set_value(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, void* object, std::uint32_t bit,
                    std::uint32_t on, int* err) {
  if (*err) return;
  kvt_clear_last_error(h);
  adjust_variant(h, txn, object, type.cap, err);
  if (!flag_in_range(type, bit) && kvt_get_instance_variant(object, 1, 0) <= type.cap) {
    kvt_store_epoch_err(h, kEidrm, err);
    return;
  }
  if (!object || !flag_in_range(type, bit)) return;
  void* bits = at_offset(object, kFlagBitsOffset);
  const std::uint8_t mask = static_cast<std::uint8_t>(1u << bit);
  const std::uint8_t old = load<std::uint8_t>(bits);
  store_announced(h, txn, bits, static_cast<std::uint8_t>(on ? old | mask : old & ~mask));
}

bool flag_is_valid(const EnumDesc& type, kvt_handle* h, std::uint32_t bit) {
  kvt_domain_lookup_variant(h, &h->domain, type.record, &h->last_error);
  return flag_in_range(type, bit);
}

}  // namespace kvt
