// The trace facility: calls go to a ring as raw arguments; text is made only for a sink, and for the line of a process
// that is about to stop. A call that nobody hears allocates nothing and takes no lock.
#include "platform/trace.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>

#include "platform/trace_texts.h"

extern "C" {
std::uint32_t fenlog_threshold = KVT_LEVEL_NOTICE;
}

namespace {

using kvt::kTraceArguments;
using kvt::kTraceEntries;
using kvt::kTraceTextSize;
using kvt::TraceArgument;
using kvt::TraceEntry;

constexpr std::size_t kEntryWords = sizeof(TraceEntry) / sizeof(std::uint64_t);
constexpr std::size_t kHeadWords = offsetof(TraceEntry, arguments) / sizeof(std::uint64_t);
constexpr std::size_t kArgumentWords = sizeof(TraceArgument) / sizeof(std::uint64_t);
constexpr std::size_t kLineSize = 1024;

// `state` is 0 for never used, odd while call number (state - 1) / 2 is written, and 2 * ticket + 2 when it is there.
// The content is kept in atomic words, so that a reader who comes in the middle reads nonsense, not undefined
// behaviour, and finds out by `state`: a word that is already new brings the odd state with it.
struct Slot {
  std::atomic<std::uint64_t> state;
  std::atomic<std::uint64_t> words[kEntryWords];
};

constinit Slot g_ring[kTraceEntries]{};
constinit std::atomic<std::uint64_t> g_next{0};

// A sink is two words that belong together; version is odd while they are being changed.
constinit std::mutex g_sink_change;
constinit std::atomic<std::uint32_t> g_sink_version{0};
constinit std::atomic<fenlog_sink> g_sink{nullptr};
constinit std::atomic<void*> g_sink_argument{nullptr};
thread_local bool t_in_sink = false;

constexpr std::size_t kFileSize = 4096;
constinit std::mutex g_file_change;
char g_file[kFileSize];
std::atomic<bool> g_file_set{false};

constexpr std::size_t kMaxModules = 256;
constexpr std::size_t kModuleNameSize = 64;
constinit std::mutex g_modules_change;
char g_module_names[kMaxModules][kModuleNameSize];
std::uint16_t g_module_count = 0;

// Both sides give up after a few tries: a line less is better than a caller who waits.
bool current_sink(fenlog_sink* sink, void** argument) {
  for (int tries = 0; tries < 100; ++tries) {
    const std::uint32_t before = g_sink_version.load(std::memory_order_acquire);
    *sink = g_sink.load(std::memory_order_acquire);
    *argument = g_sink_argument.load(std::memory_order_acquire);
    if (before % 2 == 0 && g_sink_version.load(std::memory_order_acquire) == before) return *sink != nullptr;
  }
  return false;
}

void keep(const TraceEntry& entry) {
  const std::uint64_t ticket = g_next.fetch_add(1, std::memory_order_relaxed);
  Slot& slot = g_ring[ticket % kTraceEntries];
  std::uint64_t state = slot.state.load(std::memory_order_relaxed);
  // A writer that was overtaken by the whole ring still owns its slot: this call is dropped, not mixed with that one.
  if (state % 2 || state > 2 * ticket ||
      !slot.state.compare_exchange_strong(state, 2 * ticket + 1, std::memory_order_acquire, std::memory_order_relaxed))
    return;
  std::uint64_t words[kEntryWords];
  const std::size_t used = kHeadWords + entry.argument_count * kArgumentWords;
  std::memcpy(words, &entry, used * sizeof words[0]);
  for (std::size_t i = 0; i < used; ++i) slot.words[i].store(words[i], std::memory_order_release);
  slot.state.store(2 * ticket + 2, std::memory_order_release);
}

void copy_argument(const fenlog_arg& from, TraceArgument* to) {
  std::memset(static_cast<void*>(to), 0, sizeof *to);
  to->kind = from.kind;
  if (from.kind != FENLOG_TEXT) {
    to->word = from.value.word;
    return;
  }
  const char* text = from.value.text ? from.value.text : "(null)";
  const std::size_t length = strnlen(text, kTraceTextSize - 1);
  std::memcpy(to->text, text, length);
}

class Line {
 public:
  Line(char* at, std::size_t size) : at_(at), end_(at + size - 1) {}
  ~Line() { *at_ = 0; }
  void put(char c) {
    if (at_ < end_) *at_++ = c;
  }
  void put(std::string_view text) {
    for (const char c : text) put(c);
  }
  // Text that a caller's data brought along can neither end the line nor reach the terminal as a control character.
  void put_foreign(const char* text) {
    for (; *text; ++text) put(static_cast<unsigned char>(*text) < 0x20 || *text == 0x7F ? '?' : *text);
  }
  template <class T>
  void put_formatted(const char* format, T value) {
    char digits[32];
    std::snprintf(digits, sizeof digits, format, value);
    put(std::string_view(digits));
  }

 private:
  char* at_;
  char* end_;
};

// The argument's own kind decides how it is read; the conversion only whether a number is signed, and its base.
void put_argument(Line* line, char conversion, const TraceArgument& argument) {
  const auto word = argument.word;
  switch (static_cast<fenlog_kind>(argument.kind)) {
    case FENLOG_TEXT:
      return line->put_foreign(argument.text);
    case FENLOG_ADDRESS:
      return line->put_formatted("0x%llx", static_cast<unsigned long long>(word));
    case FENLOG_SIGNED:
      return line->put_formatted("%lld", static_cast<long long>(word));
    case FENLOG_WORD:
      if (conversion == 'd' || conversion == 'i')
        return line->put_formatted("%d", static_cast<std::int32_t>(static_cast<std::uint32_t>(word)));
      if (conversion == 'x') return line->put_formatted("%x", static_cast<std::uint32_t>(word));
      return line->put_formatted("%u", static_cast<std::uint32_t>(word));
    case FENLOG_LONG:
      if (conversion == 'd' || conversion == 'i') return line->put_formatted("%lld", static_cast<long long>(word));
      if (conversion == 'x') return line->put_formatted("%llx", static_cast<unsigned long long>(word));
      return line->put_formatted("%llu", static_cast<unsigned long long>(word));
  }
}

}  // namespace

namespace kvt {

std::uint64_t trace_count() { return g_next.load(std::memory_order_acquire); }

bool trace_read(std::uint64_t ticket, TraceEntry* entry) {
  Slot& slot = g_ring[ticket % kTraceEntries];
  if (slot.state.load(std::memory_order_acquire) != 2 * ticket + 2) return false;
  std::uint64_t words[kEntryWords];
  for (std::size_t i = 0; i < kEntryWords; ++i) words[i] = slot.words[i].load(std::memory_order_acquire);
  if (slot.state.load(std::memory_order_relaxed) != 2 * ticket + 2) return false;
  std::memcpy(entry, words, sizeof *entry);
  return true;
}

void trace_format(const TraceEntry& entry, char* out, std::size_t size) {
  const fenlog_table* table = entry.table;
  trace_format_as(table ? message_text(*table, entry.index) : std::string_view(), table ? table->number : 0, entry, out,
                  size);
}

void trace_format_as(std::string_view text, unsigned table_number, const TraceEntry& entry, char* out,
                     std::size_t size) {
  Line line(out, size);
  if (text.empty()) {
    line.put_formatted("message %u", entry.index);
    line.put_formatted(" of table %u", table_number);
    for (std::uint32_t i = 0; i < entry.argument_count; ++i) {
      line.put(i ? ", " : ": ");
      put_argument(&line, 'u', entry.arguments[i]);
    }
    return;
  }
  std::uint32_t next = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '%') {
      line.put(text[at]);
      continue;
    }
    at = text.find_first_not_of("0123456789.-+ #lzh", at + 1);
    if (at == text.npos) break;
    if (text[at] == '%') {
      line.put('%');
    } else if (next < entry.argument_count) {
      put_argument(&line, text[at], entry.arguments[next++]);
    } else {
      line.put('?');
    }
  }
}

std::vector<std::string> trace_modules() {
  const std::lock_guard lock(g_modules_change);
  return {g_module_names, g_module_names + g_module_count};
}

}  // namespace kvt

extern "C" {

void fenlog_module_init_fn(const char* name, std::uint16_t* id, std::uint32_t* state) {
  if (__atomic_load_n(state, __ATOMIC_ACQUIRE)) return;
  const std::lock_guard lock(g_modules_change);
  std::uint16_t found = 0;
  while (found < g_module_count && std::strncmp(g_module_names[found], name, kModuleNameSize - 1)) ++found;
  if (found == g_module_count) {
    if (g_module_count == kMaxModules) {
      found = kMaxModules - 1;  // the last id is shared by whoever comes too late
    } else {
      std::strncpy(g_module_names[found], name, kModuleNameSize - 1);
      ++g_module_count;
    }
  }
  __atomic_store_n(id, static_cast<std::uint16_t>(found + 1), __ATOMIC_RELAXED);
  __atomic_store_n(state, 1u, __ATOMIC_RELEASE);
}

int fenlog_module_test(std::uint16_t, std::uint32_t level) { return fenlog_on(level); }

void fenlog_trace(const fenlog_table* table, std::uint32_t index, std::uint16_t module, std::uint32_t level,
                  std::uint32_t argument_count, const fenlog_arg* arguments) {
  if (!fenlog_on(level)) return;
  TraceEntry entry;
  entry.table = table;
  entry.index = index;
  entry.level = level;
  entry.module = module;
  entry.argument_count = std::min(argument_count, kTraceArguments);
  for (std::uint32_t i = 0; i < entry.argument_count; ++i) copy_argument(arguments[i], &entry.arguments[i]);
  keep(entry);

  fenlog_sink sink = nullptr;
  void* argument = nullptr;
  const bool heard = !t_in_sink && current_sink(&sink, &argument);
  if (!heard && level != KVT_LEVEL_FATAL) return;
  char line[kLineSize];
  kvt::trace_format(entry, line, sizeof line - 1);
  if (heard) {
    t_in_sink = true;  // what a sink does may trace again
    sink(argument, level, line);
    t_in_sink = false;
  }
  if (level == KVT_LEVEL_FATAL) {
    std::size_t length = std::strlen(line);
    line[length++] = '\n';
    for (std::size_t at = 0; at < length;) {
      const ssize_t n = write(STDERR_FILENO, line + at, length - at);
      if (n <= 0) break;
      at += static_cast<std::size_t>(n);
    }
  }
}

void fenlog_set_sink(fenlog_sink sink, void* argument) {
  const std::lock_guard lock(g_sink_change);
  g_sink_version.fetch_add(1, std::memory_order_acq_rel);
  g_sink.store(sink, std::memory_order_release);
  g_sink_argument.store(argument, std::memory_order_release);
  g_sink_version.fetch_add(1, std::memory_order_acq_rel);
}

void fenlog_set_level(unsigned level) { __atomic_store_n(&fenlog_threshold, level << 24, __ATOMIC_RELAXED); }

int fenlog_set_file(const char* path) {
  const std::lock_guard lock(g_file_change);
  if (path && std::strlen(path) >= sizeof g_file) return EINVAL;
  std::strcpy(g_file, path ? path : "");
  g_file_set = true;
  return 0;
}

void kvt_fatal(void) {
  char file[kFileSize];
  {
    const std::lock_guard lock(g_file_change);
    std::memcpy(file, g_file, sizeof file);
  }
  const char* path = g_file_set ? file : secure_getenv("FENLOG_FILE");
  if (path && *path) fenlog_save(path);  // that it failed has nobody left to be told
  std::abort();
}

}  // extern "C"
