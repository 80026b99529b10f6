// The runtime's own trace messages and its fatal stop.
#pragma once

#include <cstdint>

#include "kvt/trace.h"

namespace kvt {

enum class Message : std::uint32_t {
#define KVT_MESSAGE(family, name, level, text) name,
#include "platform/messages.def"
#undef KVT_MESSAGE
  kCount,
};

void trace(Message message);
void trace(Message message, std::int64_t number);
void trace(Message message, const char* text);
void trace(Message message, const void* address);
// Traces the message and ends the process.
[[noreturn]] void stop(Message message);

}  // namespace kvt
