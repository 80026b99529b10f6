// watch: the changes of a database as they happen.
#include <poll.h>
#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "tools/commands.h"
#include "tools/store.h"
#include "tools/text.h"

namespace wlanctl {
namespace {

volatile sig_atomic_t stopped;

// While it lives, the signals that stop the command are only taken while it waits.
class StopSignals {
 public:
  StopSignals() {
    struct sigaction action {};
    action.sa_handler = [](int) { stopped = 1; };
    sigset_t held;
    sigemptyset(&held);
    for (int signal : {SIGINT, SIGTERM}) {
      sigaddset(&held, signal);
      sigaction(signal, &action, nullptr);
    }
    sigprocmask(SIG_BLOCK, &held, &before_);
  }
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;
  ~StopSignals() { sigprocmask(SIG_SETMASK, &before_, nullptr); }

  /// Until the descriptor is readable or a signal came; takes a signal without waiting unless `waiting`.
  void take(int fd, bool waiting) const {
    pollfd wanted = {fd, POLLIN, 0};
    const timespec at_once{};
    if (ppoll(&wanted, 1, waiting ? nullptr : &at_once, &before_) < 0 && errno != EINTR)
      throw Failure(std::string("cannot wait (") + std::strerror(errno) + ")");
  }

 private:
  sigset_t before_;
};

class Watch {
 public:
  Watch(const Store& store, const std::string& from) {
    std::uint64_t position = from.empty() ? KVT_WATCH_FROM_NOW : KVT_WATCH_FROM_OLDEST;
    if (!from.empty() && from != "oldest") position = std::max(std::strtoull(from.c_str(), nullptr, 10), 1ull);
    int err = 0;
    watch_ = kvtdb_watch_open(store.handle(), position, &err);
    if (err == EINVAL) throw Failure("change " + from + " is not there yet");
    if (watch_ == nullptr) throw Failure("the database cannot be watched" + reason(err));
  }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
  ~Watch() { kvtdb_watch_close(watch_); }

  bool next(kvt_change& change) { return kvtdb_watch_next(watch_, &change) != 0; }
  int fd() const { return kvtdb_watch_fd(watch_); }

 private:
  kvt_watch* watch_;
};

const Table* table_of(const kvt_change& change) {
  for (const Table& table : tables()) {
    if (change.type != nullptr && std::memcmp(change.type->luid, table.record_type->luid, 16) == 0) return &table;
  }
  return nullptr;
}

// The primary key in words, `field value` in parts; nothing when it cannot be read.
std::pair<std::string, std::string> key_of(kvt_handle* scratch, const Table& table, const kvt_change& change) {
  void* holder = nullptr;
  int err = 0;
  if (change.key_length <= sizeof change.key)
    table.read_key(scratch, 0, &holder, change.key, static_cast<std::int32_t>(change.key_length), &err);
  std::pair<std::string, std::string> key;
  if (holder != nullptr && err == 0)
    key = {table.keys.front().field, key_text(scratch, table, table.keys.front(), holder)};
  if (holder != nullptr) table.destroy_payload(scratch, 0, holder);
  return key;
}

std::string clock_text(std::uint64_t nanoseconds) {
  const auto seconds = static_cast<std::time_t>(nanoseconds / 1000000000);
  std::tm parts{};
  localtime_r(&seconds, &parts);
  char text[64];
  const std::size_t length = std::strftime(text, sizeof text, "%H:%M:%S", &parts);
  std::snprintf(text + length, sizeof text - length, ".%03u", static_cast<unsigned>(nanoseconds / 1000000 % 1000));
  return text;
}

const char* kind_name(std::uint32_t kind) {
  constexpr const char* kNames[] = {"create", "modify", "delete", "missed"};
  return kind >= KVT_RECORD_CREATED && kind <= KVT_RECORDS_MISSED ? kNames[kind - 1] : "unknown";
}

std::string line_of(const Store& scratch, const Table* table, const kvt_change& change, bool json) {
  const std::string number = std::to_string(change.number);
  const std::string kind = kind_name(change.kind);
  if (change.kind == KVT_RECORDS_MISSED) {
    const std::string missed = std::to_string(change.missed);
    if (json) return "{\"number\": " + number + ", \"kind\": \"missed\", \"missed\": " + missed + "}\n";
    return number + "  missed " + missed + (change.missed == 1 ? " change\n" : " changes\n");
  }
  const std::string name = table != nullptr ? table->name : "unknown";
  std::pair<std::string, std::string> key;
  if (table != nullptr) key = key_of(scratch.handle(), *table, change);
  if (json) {
    return "{\"number\": " + number + ", \"kind\": \"" + kind + "\", \"table\": " + json_string(name) +
           ", \"field\": " + json_string(key.first) + ", \"key\": " + json_string(key.second) +
           ", \"tenant\": " + std::to_string(change.tenant) + ", \"source\": " + std::to_string(change.source) +
           ", \"txn\": " + std::to_string(change.txn) + ", \"time_ns\": " + std::to_string(change.time) + "}\n";
  }
  return number + "  " + clock_text(change.time) + "  " + kind + "  " + name + "  " + key.first + " " +
         one_line(key.second) + (change.tenant != 0 ? "  tenant " + std::to_string(change.tenant) : "") +
         (change.source != 1 ? "  source " + std::to_string(change.source) : "") + "\n";
}

bool is_wanted(const Options& options, const Table* table) {
  if (options.tables.empty()) return true;
  return table != nullptr &&
         std::find(options.tables.begin(), options.tables.end(), table->name) != options.tables.end();
}

}  // namespace

void run_watch(const Options& options) {
  const Store store = Store::open_database(options, Open::kExisting);
  const Store scratch = Store::open_private();
  const StopSignals signals;
  Watch watch(store, options.from);
  std::uint64_t shown = 0;
  for (kvt_change change; !stopped;) {
    const bool is_new = watch.next(change);
    signals.take(watch.fd(), !is_new);
    if (!is_new) continue;
    const Table* table = table_of(change);
    if (change.kind != KVT_RECORDS_MISSED && !is_wanted(options, table)) continue;
    write_output(line_of(scratch, table, change, options.json));
    if (++shown == options.count) return;
  }
}

}  // namespace wlanctl
