// The write lock of a database: a word in the file that names its holder, taken and given without a call of the system
// while nobody waits. A holder is alive as long as the byte of its number is locked, far behind the file's end; a dead
// process holds no locks. See docs/design/readers.md.
#pragma once

#include <atomic>
#include <cstdint>

namespace kvt {

struct WriteLockWords {   // stored format
  std::uint32_t holder;   // number of the handle that has the lock; 0: nobody
  std::uint32_t waiting;  // not 0: somebody may sleep until `holder` changes
  std::uint32_t numbers;  // given out so far
};

class WriteLock {
 public:
  void attach(WriteLockWords* words) { words_ = words; }

  // `number` is the taker's own, in its open file; 0 at first. 0, EAGAIN if it had to wait and may not, or what locking
  // a byte gives. Who held the lock before may have died holding it.
  int take(int fd, std::uint32_t* number, bool wait);
  void give();

 private:
  std::atomic_ref<std::uint32_t> holder() const { return std::atomic_ref(words_->holder); }
  int get_number(int fd, std::uint32_t* number);

  WriteLockWords* words_ = nullptr;
  bool polite_ = false;  // somebody waited when the lock was given
};

}  // namespace kvt
