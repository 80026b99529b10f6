#include "platform/readers.h"

#include <fcntl.h>

#include <algorithm>

#include "platform/files.h"

namespace kvt {
namespace {

constexpr off_t kSlotLocksAt = off_t{1} << 40;

// Without waiting.
bool set_slot_lock(int fd, int slot, short type) { return lock_byte(fd, kSlotLocksAt + slot, type, false) == 0; }

}  // namespace

int Readers::used() const {
  const auto used = std::atomic_ref(area_->slots_used).load(std::memory_order_relaxed);
  return static_cast<int>(std::min(used, kReaderSlots));
}

bool Readers::take(int fd, ReaderPlace* place) {
  for (int slot = 0; slot < static_cast<int>(kReaderSlots); ++slot) {
    if (!set_slot_lock(fd, slot, F_WRLCK)) continue;
    epoch(slot).store(0, std::memory_order_relaxed);  // a dead reader's
    std::atomic_ref used(area_->slots_used);
    std::uint32_t seen = used.load();
    while (seen <= static_cast<std::uint32_t>(slot) && !used.compare_exchange_weak(seen, slot + 1u)) {
    }
    place->slot = slot;
    return true;
  }
  return false;
}

std::uint32_t Readers::oldest(std::uint32_t none) const {
  std::atomic_thread_fence(std::memory_order_seq_cst);
  std::uint32_t oldest = none;
  for (int slot = 0, count = used(); slot < count; ++slot) {
    const std::uint64_t seen = epoch(slot).load(std::memory_order_acquire);
    if (seen && is_before(static_cast<std::uint32_t>(seen), oldest)) oldest = static_cast<std::uint32_t>(seen);
  }
  return oldest;
}

bool Readers::any() const {
  std::atomic_thread_fence(std::memory_order_seq_cst);
  for (int slot = 0, count = used(); slot < count; ++slot) {
    if (epoch(slot).load(std::memory_order_acquire)) return true;
  }
  return false;
}

void Readers::clear_dead(int fd, int own, std::uint32_t before) {
  for (int slot = 0, count = used(); slot < count; ++slot) {
    const std::uint64_t seen = epoch(slot).load(std::memory_order_relaxed);
    if (slot == own || !seen || !is_before(static_cast<std::uint32_t>(seen), before)) continue;
    // While its lock is held here nobody takes the slot, so what is cleared is the dead reader's.
    if (!set_slot_lock(fd, slot, F_WRLCK)) continue;
    epoch(slot).store(0, std::memory_order_relaxed);
    set_slot_lock(fd, slot, F_UNLCK);
  }
}

}  // namespace kvt
