// Where references from one place of the cage may lead. Who reads a database beside its writer can meet a word that is
// neither the old nor the new one, and follows it only inside of the file.
#pragma once

#include "platform/cage.h"

namespace kvt {

inline constexpr std::uint32_t kSegmentsAt = 24;  // in a database's header: how many there are
inline constexpr std::uint32_t kHeaderSize = 0x1000;

class Reach {
 public:
  // Of an address in a database its file, which never shrinks; of any other everything but null.
  explicit Reach(const void* from) : begin_(1), size_(0xFFFFFFFE) {
    const std::uint32_t at = cage_ref(from);
    if (at < kDatabaseBegin || !in_cage(from)) return;
    begin_ = at & ~(kSlotSize - 1);
    size_ = load<std::uint32_t>(kvt_cage_base + begin_ + kSegmentsAt) * kSegmentSize;
    // The header is left out, for who takes a place in a block may step in front of it.
    begin_ += kHeaderSize;
    size_ -= kHeaderSize;
  }
  bool has(std::uint32_t to) const { return to - begin_ < size_; }
  bool has(std::uint32_t to, std::uint32_t length) const { return has(to) && length <= size_ - (to - begin_); }

 private:
  std::uint32_t begin_, size_;
};
static_assert(kDatabaseBegin % kSlotSize == 0);

}  // namespace kvt
