// Probe areas: short-lived zeroed memory in the cage, a small stack for each thread. A search builds the record it
// looks for here, because the trees compare records by reference.
#include <cstring>
#include <mutex>

#include "kvt/frame.h"
#include "platform/cage.h"

namespace kvt {
namespace {

constexpr std::uint32_t kAreaSize = 0x10000;
constexpr std::uint32_t kAreas = (kStoreBegin - kProbeBegin) / kAreaSize;

struct Area {
  char* base;
  std::uint32_t used;
  bool thread_ends;
};
// Reached on every search, hence the cheapest form of thread-local access.
__attribute__((tls_model("initial-exec"))) thread_local Area area;

std::mutex areas_mutex;
std::uint32_t areas_made;
char* areas_free;  // a stack; the link is the first word of a free area

// Gives the thread's area to the next thread.
struct AreaReturn {
  bool armed = false;
  ~AreaReturn() {
    if (!area.base) return;
    std::lock_guard lock(areas_mutex);
    std::memcpy(area.base, &areas_free, sizeof areas_free);
    areas_free = area.base;
    area = {nullptr, 0, true};
  }
};
thread_local AreaReturn area_return;

void take_area() {
  {
    std::lock_guard lock(areas_mutex);
    if (areas_free) {
      area.base = areas_free;
      std::memcpy(&areas_free, area.base, sizeof areas_free);
    } else if (areas_made < kAreas) {
      area.base = static_cast<char*>(cage_at(kProbeBegin + areas_made++ * kAreaSize));
    }
  }
  area_return.armed = true;
}

std::uint32_t rounded(std::uint32_t size) { return (size + 15u) & ~15u; }

}  // namespace
}  // namespace kvt

void* kvt_probe_push(uint32_t size) {
  using namespace kvt;
  if (!area.base && !area.thread_ends) take_area();
  if (area.base && size <= kAreaSize && rounded(size) <= kAreaSize - area.used) {
    void* p = area.base + area.used;
    area.used += rounded(size);
    return std::memset(p, 0, size);
  }
  void* p = kvt_cage_alloc(size);
  return p ? std::memset(p, 0, size) : nullptr;
}

void kvt_probe_pop(void* area_given, uint32_t size) {
  using namespace kvt;
  if (!area_given) return;
  char* p = static_cast<char*>(area_given);
  if (area.base && p >= area.base && p < area.base + kAreaSize) {
    area.used -= rounded(size);
  } else {
    kvt_cage_free(area_given);
  }
}
