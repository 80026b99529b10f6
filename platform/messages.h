// The runtime's own trace messages and its fatal stop.
#pragma once

#include <cstdint>

#include "kvt/trace.h"

namespace kvt {

enum class Message : std::uint32_t {
  kNoCage,
  kOutsideCage,
  kBadFree,
  kLogFull,
  kRangeRefused,
  kFreeRefused,
  kBadLog,
  kCount,
};

void trace(Message message, std::uint32_t level, std::uint64_t number = 0);
// Traces the message at level 0 and ends the process.
[[noreturn]] void stop(Message message);

}  // namespace kvt
