// What the fuzzer calls. The build names the target.
#include <cstring>

#include "fuzz/target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::Target* const target = [] {
    for (const fuzz::Target* one : fuzz::kTargets) {
      if (!std::strcmp(one->name, FUZZ_TARGET)) return one;
    }
    fuzz::broken(__FILE__, __LINE__, "no target " FUZZ_TARGET);
  }();
  target->run(data, size);
  return 0;
}
