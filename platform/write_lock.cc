#include "platform/write_lock.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <ctime>

#include "platform/files.h"

namespace kvt {
namespace {

constexpr off_t kNumberLocksAt = off_t{1} << 42;
// A holder that dies wakes nobody, so who waits looks after it now and then.
constexpr timespec kNowAndThen = {0, 2'000'000};
constexpr int kPoliteSteps = 20;
constexpr unsigned kPoliteStepUs = 50;

bool is_alive(int fd, std::uint32_t number) { return is_byte_locked(fd, kNumberLocksAt + number); }

void sleep_while(std::uint32_t* word, std::uint32_t value) {
  syscall(SYS_futex, word, FUTEX_WAIT, value, &kNowAndThen, nullptr, 0);
}

void wake_all(std::uint32_t* word) { syscall(SYS_futex, word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0); }

}  // namespace

// A number is never given twice, so that nobody takes the lock away from a living handle in place of a dead one.
int WriteLock::get_number(int fd, std::uint32_t* number) {
  for (int tries = 0; tries < 64; ++tries) {
    const std::uint32_t next = std::atomic_ref(words_->numbers).fetch_add(1) + 1;
    const int error = next ? lock_byte(fd, kNumberLocksAt + next, F_WRLCK, false) : EAGAIN;
    if (!error) *number = next;
    if (error != EAGAIN && error != EACCES) return error;
  }
  return ENOLCK;
}

int WriteLock::take(int fd, std::uint32_t* number, bool wait) {
  if (!*number) {
    if (const int error = get_number(fd, number)) return error;
  }
  // Who waited when this process gave the lock takes longer to wake than the process to come again.
  if (polite_ && wait) {
    for (int i = 0; i < kPoliteSteps && !holder().load(std::memory_order_relaxed); ++i) usleep(kPoliteStepUs);
  }
  polite_ = false;
  for (;;) {
    std::uint32_t other = 0;
    if (holder().compare_exchange_strong(other, *number)) return 0;
    if (!is_alive(fd, other)) {
      if (holder().compare_exchange_strong(other, *number)) return 0;
      continue;
    }
    if (!wait) return EAGAIN;
    // Whoever gives the lock sees this, or it is given before the sleep looks at it.
    std::atomic_ref(words_->waiting).store(1);
    sleep_while(&words_->holder, other);
  }
}

void WriteLock::give() {
  holder().store(0);
  std::atomic_ref waiting(words_->waiting);
  if (!waiting.load() || !waiting.exchange(0)) return;
  polite_ = true;
  wake_all(&words_->holder);
}

}  // namespace kvt
