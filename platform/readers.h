// Who reads a database under the guard: a slot of the file for each handle, so that a writer knows which memory
// somebody may stand on. A slot belongs to whoever holds the lock of its own byte far behind the file's end; a dead
// process holds no locks. See docs/design/readers.md.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "platform/ref.h"
#include "platform/write_lock.h"

namespace kvt {

inline constexpr std::uint32_t kReaderSlots = 63;

// Stored format. What a writer must know of readers and of the writer before it; nothing here is ever rolled back.
struct ReaderArea {
  std::uint32_t slots_used;  // the slots behind this many were never taken
  std::uint32_t owner;       // process that holds the write lock; 0 when it gave it back itself
  std::uint32_t undone;      // a change of the owner's was taken back
  WriteLockWords lock;
  std::uint32_t reserved[10];
  struct Slot {
    std::uint64_t epoch;  // 0: nobody reads; else kReading and the generation at which the reader came
    std::uint32_t reserved[14];
  } slots[kReaderSlots];
};
STORED_SIZE(ReaderArea, 0x1000);
static_assert(offsetof(ReaderArea, slots) == 64 && sizeof(ReaderArea::Slot) == 64);

// A handle's place among the readers.
struct ReaderPlace {
  int slot = -1;
  std::uint32_t depth = 0;    // sections that are open
  std::uint32_t unsound = 0;  // begins in a row that met the same unfinished change
  std::uint32_t unsound_generation = 0;
};

// Of two generations, whether `a` came before. They wrap.
inline bool is_before(std::uint32_t a, std::uint32_t b) { return static_cast<std::int32_t>(a - b) < 0; }

class Readers {
 public:
  void attach(ReaderArea* area) { area_ = area; }
  ReaderArea* area() const { return area_; }
  bool is_sound() const { return area_->slots_used <= kReaderSlots; }

  // Takes a slot for the descriptor and its handle. False when all are taken.
  bool take(int fd, ReaderPlace* place);
  // What lies in the slot's database is safe to stand on from here until leave().
  void enter(const ReaderPlace& place, std::uint32_t generation) {
    // A full barrier, which pairs with the fence of oldest(): the writer sees this reader, or the reader sees all that
    // the writer did.
    epoch(place.slot).exchange(kReading | generation);
    std::atomic_thread_fence(std::memory_order_acquire);
  }
  void leave(const ReaderPlace& place) { epoch(place.slot).store(0, std::memory_order_release); }

  // The generation at which the oldest of all present readers came; `none` when nobody reads.
  std::uint32_t oldest(std::uint32_t none) const;
  bool any() const;
  // Frees slots of dead processes whose reader came before that generation; `own` is the caller's slot.
  void clear_dead(int fd, int own, std::uint32_t before);

 private:
  static constexpr std::uint64_t kReading = std::uint64_t{1} << 32;
  std::atomic_ref<std::uint64_t> epoch(int slot) const { return std::atomic_ref(area_->slots[slot].epoch); }
  int used() const;

  ReaderArea* area_ = nullptr;
};

}  // namespace kvt
