// A fuzz target: what is done with bytes from a stranger, and bytes to begin with. The fuzzer runs one target; the
// replay program runs them all over the corpus.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace fuzz {

// Takes a name and the bytes of a seed.
using Sow = std::function<void(const std::string& name, const std::string& bytes)>;

struct Target {
  const char* name;
  void (*run)(const std::uint8_t* data, std::size_t size);
  void (*seeds)(const Sow& sow);             // inputs made from real objects, files and documents
  std::vector<std::string> (*dictionary)();  // words that a random change would not hit; may be null
};

extern const Target kObject, kRecord, kXml, kSchema, kDatabase, kKeyFile, kSealed, kCare;
inline const Target* const kTargets[] = {&kObject, &kRecord, &kXml, &kSchema, &kDatabase, &kKeyFile, &kSealed, &kCare};

// Prints what does not hold and stops the process, which the fuzzer takes for a crash.
[[noreturn]] void broken(const char* file, int line, const std::string& what);
#define FUZZ_CHECK(holds, what) ((holds) ? void() : ::fuzz::broken(__FILE__, __LINE__, what))

// Bytes in a block of exactly their size, so that a sanitizer sees every read beyond them.
class Exact {
 public:
  explicit Exact(std::size_t size);
  Exact(const void* bytes, std::size_t size);
  ~Exact();
  Exact(const Exact&) = delete;
  Exact& operator=(const Exact&) = delete;
  std::uint8_t* bytes() const { return bytes_; }
  char* text() const { return reinterpret_cast<char*>(bytes_); }
  std::size_t size() const { return size_; }
  std::int32_t room() const { return static_cast<std::int32_t>(size_); }

 private:
  std::uint8_t* bytes_;
  std::size_t size_;
};

// A directory of this process that goes with it.
const std::string& scratch_directory();

}  // namespace fuzz
