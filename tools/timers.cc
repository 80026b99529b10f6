// timers: what is armed, for whom, and due when; with --run it is dispatched as it becomes due.
#include <time.h>
#include <zarn_wlan/zarn_wlan.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/commands.h"
#include "tools/store.h"
#include "tools/text.h"

namespace wlanctl {
namespace {

constexpr std::int64_t kUsecPerSec = 1000000, kNsecPerUsec = 1000;
constexpr unsigned kMostInOneTransaction = 256;

std::vector<std::string> expired;

std::string seconds(const kvt_time& time) {
  const bool negative = time.sec < 0;
  const std::int64_t sec = negative && time.usec ? time.sec + 1 : time.sec;
  const std::int64_t usec = negative && time.usec ? kUsecPerSec - time.usec : time.usec;
  char text[48];
  std::snprintf(text, sizeof text, "%s%lld.%06lld", negative ? "-" : "",
                negative ? -static_cast<long long>(sec) : static_cast<long long>(sec), static_cast<long long>(usec));
  return text;
}

kvt_time until(const kvt_time& due, const kvt_time& now) {
  const kvt_time back = {-now.sec, -now.usec};
  kvt_time left;
  kvtlib_tv_add(&left, &due, &back);
  return left;
}

// The queue, made if the database has none; what the transaction does not commit is not there afterwards.
kvt_timer_queue* queue_of(const Store& store, const Transaction& transaction) {
  int err = 0;
  void* queue = wlan_timer_queue_init(store.handle(), transaction.txn(), &err);
  if (queue == nullptr) throw Failure("the queue of timers cannot be made" + reason(err));
  return static_cast<kvt_timer_queue*>(queue);
}

std::string owner_text(kvt_handle* handle, std::uint32_t owner) {
  int err = 0;
  void* object = kvt_ref_at(owner);
  const char* name = kvt_get_name(handle, KVT_NO_TXN, object, &err);
  if (name == nullptr) return "nobody";
  return std::strcmp(name, profiles().payload) == 0 ? describe(handle, profiles(), object) : name;
}

void list_timers(const Store& store) {
  // Nothing is changed: the lock keeps the queue as it is meanwhile.
  const Transaction transaction(store);
  const kvt_timer_queue* queue = queue_of(store, transaction);
  kvt_handle* handle = store.handle();
  const kvt_time now = kvt_clock_now();
  std::vector<std::vector<std::string>> lines = {{"DUE", "IN", "EVERY", "FOR"}};
  for (const kvt_timer* timer = timer_rb_tree_VS_RB_MINMAX(handle->store, transaction.txn(), &queue->root, -1);
       timer != nullptr; timer = timer_rb_tree_VS_RB_NEXT(handle->store, transaction.txn(), timer)) {
    const bool repeats = timer->interval.sec != 0 || timer->interval.usec != 0;
    lines.push_back({seconds(timer->due), seconds(until(timer->due, now)), repeats ? seconds(timer->interval) : "-",
                     owner_text(handle, timer->owner)});
  }
  write_output(table_lines(lines));
}

// Dispatches what is due, a bounded number in one transaction so that other writers have their turn.
// @return whether there may be more; else `next` has the time of the next expiry, or -1 seconds
bool dispatch_due(const Store& store, std::int32_t* next) {
  Transaction transaction(store);
  void* queue = queue_of(store, transaction);
  expired.clear();
  unsigned taken = 0;
  int err = 0;
  while (taken < kMostInOneTransaction &&
         wlan_timer_dispatch(store.handle(), transaction.txn(), queue, nullptr, next, &err) != 0) {
    ++taken;
    if (err != 0) expired.push_back("not handled" + reason(err));
    err = 0;
  }
  if (err != 0) throw Failure("the timers cannot be dispatched" + reason(err));
  if (taken != 0) transaction.commit();
  for (const std::string& line : expired) write_output(line + "\n");
  return taken == kMostInOneTransaction;
}

void sleep_until(const std::int32_t* when) {
  const timespec time = {when[0], when[1] * kNsecPerUsec};
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) == EINTR) {
  }
}

}  // namespace

void run_timers(const Options& options) {
  const Store store = Store::open_database(options, Open::kExisting);
  if (!options.run) return list_timers(store);
  for (std::int32_t next[2] = {0, 0};;) {
    if (dispatch_due(store, next)) continue;
    if (next[0] == -1) return;
    sleep_until(next);
  }
}

}  // namespace wlanctl

// The tool's own handler: it says whose timer it was.
int32_t st_wlan_ref_cleanup_timer_timer_callback(kvt_handle* handle, void*, void* owner, int32_t*, int32_t*, int*) {
  wlanctl::expired.push_back("expired: " + wlanctl::owner_text(handle, kvt_ref_of(owner)));
  return 0;
}
