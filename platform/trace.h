// The trace ring behind kvt/trace.h, for whoever decodes it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kvt/trace.h"

namespace kvt {

constexpr std::uint32_t kTraceArguments = 8;
constexpr std::size_t kTraceTextSize = 64;  // with the NUL
constexpr std::uint64_t kTraceEntries = 4096;

struct TraceArgument {
  std::uint64_t kind;  // fenlog_kind
  union {
    std::uint64_t word;
    char text[kTraceTextSize];
  };
};

struct TraceEntry {
  const fenlog_table* table;
  std::uint32_t index;
  std::uint32_t level;
  std::uint32_t module;
  std::uint32_t argument_count;
  TraceArgument arguments[kTraceArguments];
};
static_assert(sizeof(TraceEntry) % sizeof(std::uint64_t) == 0);

// The number of trace calls kept so far; the ring holds the last kTraceEntries of them.
KVT_EXPORT std::uint64_t trace_count();
// Copies call number `ticket` (from 0). False when it is overwritten, dropped or still being written.
KVT_EXPORT bool trace_read(std::uint64_t ticket, TraceEntry* entry);
// Formats an entry as a line; always NUL-terminated, cut to `size`.
KVT_EXPORT void trace_format(const TraceEntry& entry, char* line, std::size_t size);
// As above, with the message's text given; without one (empty) the line tells the numbers and the raw arguments.
KVT_EXPORT void trace_format_as(std::string_view text, unsigned table_number, const TraceEntry& entry, char* line,
                                std::size_t size);
// The names of the modules that have been bound; the first has id 1.
std::vector<std::string> trace_modules();

}  // namespace kvt
