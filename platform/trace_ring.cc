#include "platform/trace_ring.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string_view>

#include "platform/trace_texts.h"

namespace kvt {
namespace {

constexpr std::string_view kMagic = "KVTRING\n";
constexpr std::uint32_t kVersion = 1;
constexpr off_t kSizeMost = off_t{64} << 20;  // far above what the ring can hold

template <class T>
void put(std::string* out, T value) {
  for (std::size_t i = 0; i < sizeof value; ++i) *out += static_cast<char>(value >> 8 * i);
}

void put_text(std::string* out, std::string_view text) {
  text = text.substr(0, UINT16_MAX);
  put(out, static_cast<std::uint16_t>(text.size()));
  *out += text;
}

void put_call(std::string* out, std::uint64_t ticket, std::uint16_t table, const TraceEntry& entry) {
  put(out, ticket);
  put(out, entry.index);
  put(out, entry.level);
  put(out, table);
  put(out, static_cast<std::uint16_t>(entry.module));
  put(out, static_cast<std::uint16_t>(entry.argument_count));
  for (std::uint32_t i = 0; i < entry.argument_count; ++i) {
    const TraceArgument& argument = entry.arguments[i];
    put(out, static_cast<std::uint16_t>(argument.kind));
    if (argument.kind == FENLOG_TEXT) {
      put_text(out, argument.text);
    } else {
      put(out, argument.word);
    }
  }
}

// Gives nothing beyond the end, and remembers that it was asked to.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : bytes_(bytes) {}
  std::string_view take(std::size_t size) {
    if (size > bytes_.size()) {
      cut_ = true;
      bytes_ = {};
      return {};
    }
    const std::string_view part = bytes_.substr(0, size);
    bytes_.remove_prefix(size);
    return part;
  }
  template <class T>
  T number() {
    const std::string_view part = take(sizeof(T));
    T value = 0;
    for (std::size_t i = 0; i < part.size(); ++i)
      value = static_cast<T>(value | T{static_cast<unsigned char>(part[i])} << 8 * i);
    return value;
  }
  std::string_view text() { return take(number<std::uint16_t>()); }
  bool cut() const { return cut_; }
  bool at_end() const { return bytes_.empty(); }

 private:
  std::string_view bytes_;
  bool cut_ = false;
};

bool read_argument(Reader* in, TraceArgument* argument) {
  argument->kind = in->number<std::uint16_t>();
  if (argument->kind > FENLOG_ADDRESS) return false;
  if (argument->kind != FENLOG_TEXT) {
    argument->word = in->number<std::uint64_t>();
    return true;
  }
  const std::string_view text = in->text();
  if (text.size() >= kTraceTextSize) return false;
  std::memset(argument->text, 0, sizeof argument->text);
  text.copy(argument->text, text.size());
  return true;
}

bool read_call(Reader* in, const RingFile& ring, RingCall* call) {
  call->ticket = in->number<std::uint64_t>();
  call->entry.table = nullptr;
  call->entry.index = in->number<std::uint32_t>();
  call->entry.level = in->number<std::uint32_t>();
  call->table = in->number<std::uint16_t>();
  call->entry.module = in->number<std::uint16_t>();
  call->entry.argument_count = in->number<std::uint16_t>();
  if (call->table >= ring.tables.size() || call->entry.argument_count > kTraceArguments) return false;
  for (std::uint32_t i = 0; i < call->entry.argument_count; ++i) {
    if (!read_argument(in, &call->entry.arguments[i])) return false;
  }
  return true;
}

// As another process finds it: the program is only called /proc/self/exe by itself.
std::string absolute(const std::string& path) {
  char* const real = realpath(path.c_str(), nullptr);
  const std::string found = real ? real : path;
  free(real);
  return found;
}

// @return an errno
int slurp(const std::string& path, std::string* bytes) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return errno;
  struct stat about;
  int error = fstat(fd, &about) ? errno : S_ISDIR(about.st_mode) ? EISDIR : about.st_size > kSizeMost ? EFBIG : 0;
  char part[1 << 16];
  for (ssize_t n = 1; !error && n;) {
    n = read(fd, part, sizeof part);
    if (n < 0) error = errno;
    if (n > 0) bytes->append(part, static_cast<std::size_t>(n));
    if (bytes->size() > static_cast<std::size_t>(kSizeMost)) error = EFBIG;
  }
  close(fd);
  return error;
}

int spill(const char* path, const std::string& bytes) {
  const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) return errno;
  int error = 0;
  for (std::size_t at = 0; at < bytes.size() && !error;) {
    const ssize_t n = write(fd, bytes.data() + at, bytes.size() - at);
    if (n < 0 && errno != EINTR) error = errno;
    if (n > 0) at += static_cast<std::size_t>(n);
  }
  if (close(fd) && !error) error = errno;
  return error;
}

}  // namespace

bool read_ring(const std::string& path, RingFile* ring, std::string* why) {
  std::string bytes;
  if (const int error = slurp(path, &bytes)) {
    *why = std::strerror(error);
    return false;
  }
  Reader in(bytes);
  if (in.take(kMagic.size()) != kMagic) {
    *why = "is no trace ring";
    return false;
  }
  if (const auto version = in.number<std::uint32_t>(); version != kVersion && !in.cut()) {
    *why = "is a trace ring of version " + std::to_string(version) + ", which is not known here";
    return false;
  }
  const auto tables = in.number<std::uint16_t>(), modules = in.number<std::uint16_t>();
  const auto calls = in.number<std::uint32_t>();
  RingFile read;
  read.made = in.number<std::uint64_t>();
  for (unsigned i = 0; i < tables && !in.cut(); ++i) {
    RingTable& table = read.tables.emplace_back();
    const std::string_view id = in.take(table.id.size());
    std::copy(id.begin(), id.end(), table.id.begin());
    table.number = in.number<std::uint16_t>();
    table.path = in.text();
  }
  for (unsigned i = 0; i < modules && !in.cut(); ++i) read.modules.emplace_back(in.text());
  bool sound = calls <= kTraceEntries;
  for (std::uint32_t i = 0; i < calls && sound && !in.cut(); ++i)
    sound = read_call(&in, read, &read.calls.emplace_back());
  if (in.cut()) {
    *why = "is cut short";
  } else if (!sound || !in.at_end()) {
    *why = "is damaged";
  } else {
    *ring = std::move(read);
  }
  return why->empty();
}

}  // namespace kvt

int fenlog_save(const char* path) {
  using namespace kvt;
  std::string tables, calls;
  std::map<const fenlog_table*, std::uint16_t> places;
  const std::uint64_t made = trace_count();
  std::uint32_t count = 0;
  for (std::uint64_t ticket = made > kTraceEntries ? made - kTraceEntries : 0; ticket < made; ++ticket) {
    TraceEntry entry;
    if (!trace_read(ticket, &entry)) continue;
    const auto [place, is_new] = places.try_emplace(entry.table, static_cast<std::uint16_t>(places.size()));
    if (is_new) {
      TableId id{};
      std::string home;
      const bool there = table_home(entry.table, &home, &id);
      tables.append(reinterpret_cast<const char*>(id.data()), id.size());
      put(&tables, there ? entry.table->number : kNoTable);
      put_text(&tables, there ? absolute(home) : home);
    }
    put_call(&calls, ticket, place->second, entry);
    ++count;
  }
  const std::vector<std::string> names = trace_modules();
  std::string out(kMagic);
  put(&out, kVersion);
  put(&out, static_cast<std::uint16_t>(places.size()));
  put(&out, static_cast<std::uint16_t>(names.size()));
  put(&out, count);
  put(&out, made);
  out += tables;
  for (const std::string& name : names) put_text(&out, name);
  return spill(path, out + calls);
}
