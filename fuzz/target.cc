#include "fuzz/target.h"

#include <stdlib.h>

#include <cstdio>
#include <cstring>
#include <filesystem>

namespace fuzz {

void broken(const char* file, int line, const std::string& what) {
  std::fprintf(stderr, "%s:%d: broken: %s\n", file, line, what.c_str());
  std::fflush(stderr);
  abort();
}

Exact::Exact(std::size_t size) : bytes_(static_cast<std::uint8_t*>(std::malloc(size))), size_(size) {
  FUZZ_CHECK(bytes_ || !size, "no memory");
}

Exact::Exact(const void* bytes, std::size_t size) : Exact(size) {
  if (size) std::memcpy(bytes_, bytes, size);
}

Exact::~Exact() { std::free(bytes_); }

const std::string& scratch_directory() {
  struct Directory {
    std::string path;
    Directory() {
      // In memory where there is such a place: most of these files live for one input.
      std::string pattern = std::filesystem::is_directory("/dev/shm")
                                ? "/dev/shm/zarn_fuzz_XXXXXX"
                                : std::filesystem::temp_directory_path().string() + "/zarn_fuzz_XXXXXX";
      FUZZ_CHECK(mkdtemp(pattern.data()), "no scratch directory");
      path = pattern;
    }
    ~Directory() {
      std::error_code ignored;
      std::filesystem::remove_all(path, ignored);
    }
  };
  static const Directory directory;
  return directory.path;
}

}  // namespace fuzz
