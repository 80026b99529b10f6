// Golden files: what a format or an output was when it was last decided on. With ZARN_UPDATE_GOLDEN=1 in the
// environment they are rewritten instead of compared.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace golden {

namespace fs = std::filesystem;

inline std::string slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}
inline void spill(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

inline bool updating_golden() {
  const char* update = std::getenv("ZARN_UPDATE_GOLDEN");
  return update && std::string(update) == "1";
}
inline fs::path golden_path(const std::string& name) { return fs::path(ZARN_SOURCE_DIR) / "tests/golden" / name; }

inline void expect_golden(const std::string& name, const std::string& text) {
  const fs::path path = golden_path(name);
  if (updating_golden()) return spill(path, text);
  const std::string golden = slurp(path);
  if (golden == text) return;
  std::istringstream expected(golden), found(text);
  std::string a, b;
  for (int line = 1; expected || found; ++line) {
    if (!std::getline(expected, a)) a = "(end)";
    if (!std::getline(found, b)) b = "(end)";
    if (a == b && a != "(end)") continue;
    ADD_FAILURE() << name << ":" << line << "\n  golden: " << a << "\n  now:    " << b;
    return;
  }
  ADD_FAILURE() << name << ": differs in its line ends";
}

}  // namespace golden
