// The flag byte of an object's header.
#pragma once

#include "platform/ref.h"

namespace kvt {

inline constexpr std::size_t kFlagsAt = 6;

inline std::uint8_t object_flags(const void* object) { return load<std::uint8_t>(at_offset(object, kFlagsAt)); }
inline void set_object_flag(kvt_handle* handle, std::uint32_t txn, void* object, std::uint8_t flag, bool on) {
  const std::uint8_t before = object_flags(object);
  const auto after = static_cast<std::uint8_t>(on ? before | flag : before & ~flag);
  if (after != before) store_announced(handle, txn, at_offset(object, kFlagsAt), after);
}

}  // namespace kvt
