// Trace points: which message, and how its arguments go to the trace facility. Formats nothing.
#pragma once

#include <cstdint>
#include <cstring>

#include "kvt/trace.h"

namespace kvt {

// Places of messages within their families; see messages.def.
#define KVT_MESSAGE(family, name, level, text) name,
enum MessagePlace : std::uint32_t {
#include "frame/messages.def"
  kMessageEnd
};
#undef KVT_MESSAGE

constexpr std::uint32_t kStructMessages = kMsgStructCorruptHandle;
constexpr std::uint32_t kReferenceMessages = kMsgReferenceReleaseFailed;
constexpr std::uint32_t kEnumMessages = kMsgEnumNoVarinfo;
constexpr std::uint32_t kTableMessages = kMsgTableNoLock;
constexpr std::uint32_t kKeyMessages = kMsgInsertExists;
constexpr std::uint32_t kModuleMessages = kMsgModuleNoVarinfo;
constexpr std::uint32_t kTimerMessages = kMsgTimerNone;
constexpr std::uint32_t kTimerFieldMessages = kMsgTimerTooLarge;

// The level word of each message, by place.
constexpr std::uint32_t kMessageLevel[] = {
#define KVT_MESSAGE(family, name, level, text) (level##u) << 24,
#include "frame/messages.def"
#undef KVT_MESSAGE
};

inline fenlog_arg trace_arg(const char* text) {
  fenlog_arg a;
  a.kind = FENLOG_TEXT;
  a.value.text = text ? text : "(null)";
  return a;
}
inline fenlog_arg trace_arg(const void* address) {
  fenlog_arg a;
  a.kind = FENLOG_ADDRESS;
  a.value.word = reinterpret_cast<std::uintptr_t>(address);
  return a;
}
inline fenlog_arg trace_arg(std::uint32_t word) {
  fenlog_arg a;
  a.kind = FENLOG_WORD;
  a.value.word = word;
  return a;
}
inline fenlog_arg trace_arg(std::int32_t word) {
  fenlog_arg a;
  a.kind = FENLOG_SIGNED;
  a.value.word = static_cast<std::uint64_t>(static_cast<std::int64_t>(word));
  return a;
}
inline fenlog_arg trace_arg(std::int64_t word) {
  fenlog_arg a;
  a.kind = FENLOG_LONG;
  a.value.word = static_cast<std::uint64_t>(word);
  return a;
}

// What a member of a family needs to trace: the table of its module, its first index there, the module's id.
struct TracePlace {
  const fenlog_table* table;
  std::uint32_t first;
  const std::uint16_t* module;
};

// `place` less the family's first place is the index within the member's run of messages.
template <class... Args>
void trace(const TracePlace& where, std::uint32_t family, MessagePlace place, Args... args) {
  const std::uint32_t level = kMessageLevel[place];
  if (!fenlog_on(level)) return;
  const fenlog_arg list[sizeof...(args) + 1] = {trace_arg(args)..., fenlog_arg{}};
  fenlog_trace(where.table, where.first + place - family, *where.module, level, sizeof...(args), list);
}

}  // namespace kvt
