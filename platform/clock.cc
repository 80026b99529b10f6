// The clock of timers, and sums of times.
#include <time.h>

#include <atomic>

#include "kvt/timer.h"

namespace {

constexpr int64_t kUsecPerSec = 1000000, kNsecPerUsec = 1000;

kvt_time machine_time() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return {now.tv_sec, now.tv_nsec / kNsecPerUsec};
}

constinit std::atomic<kvt_time (*)()> replaced{nullptr};

int64_t capped_sum(int64_t a, int64_t b) {
  int64_t sum;
  return __builtin_add_overflow(a, b, &sum) ? (a < 0 ? INT64_MIN : INT64_MAX) : sum;
}

int compare(int64_t a, int64_t b) { return (a > b) - (a < b); }

}  // namespace

kvt_time kvt_clock_now(void) {
  const auto now = replaced.load(std::memory_order_relaxed);
  return now ? now() : machine_time();
}

void kvt_clock_replace(kvt_time (*now)(void)) { replaced.store(now, std::memory_order_relaxed); }

int kvtlib_tv_compare(const kvt_time* a, const kvt_time* b) {
  const int seconds = compare(a->sec, b->sec);
  return seconds ? seconds : compare(a->usec, b->usec);
}

void kvtlib_tv_add(kvt_time* sum, const kvt_time* a, const kvt_time* b) {
  // Each part below a second first, so that no sum of microseconds overflows; C++ divides towards 0.
  int64_t carry = a->usec / kUsecPerSec + b->usec / kUsecPerSec, usec = a->usec % kUsecPerSec + b->usec % kUsecPerSec;
  if (usec >= kUsecPerSec) ++carry, usec -= kUsecPerSec;
  while (usec < 0) --carry, usec += kUsecPerSec;
  *sum = {capped_sum(capped_sum(a->sec, b->sec), carry), usec};
}
