// A buffer whose last byte is the last that may be touched.
#pragma once

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace module_test {

class GuardedBuffer {
 public:
  GuardedBuffer() {
    map_ = static_cast<char*>(mmap(nullptr, kSize + kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(map_ + kSize, kPage, PROT_NONE);
  }
  ~GuardedBuffer() { munmap(map_, kSize + kPage); }
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;
  std::uint8_t* with_room(std::size_t room) {
    std::memset(map_ + kSize - room - margin(room), 0xCC, room + margin(room));
    return reinterpret_cast<std::uint8_t*>(map_ + kSize - room);
  }
  bool untouched_before(std::size_t room) const {
    const char* begin = map_ + kSize - room;
    return std::all_of(begin - margin(room), begin, [](char byte) { return byte == '\xCC'; });
  }

 private:
  static constexpr std::size_t kPage = 65536, kSize = 65536, kMargin = 512;
  static std::size_t margin(std::size_t room) { return std::min(kMargin, kSize - room); }
  char* map_;
};

}  // namespace module_test
