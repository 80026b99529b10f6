// What the tests of the product share: commands run as a user runs them, a directory of their own, golden files.
// With ZARN_UPDATE_GOLDEN=1 in the environment golden files are rewritten instead of compared.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace product_test {

namespace fs = std::filesystem;

inline const std::string kSource = ZARN_SOURCE_DIR;
inline const std::string kBuild = ZARN_BINARY_DIR;
inline const std::string kCompiler = ZARN_PRODUCT_CXX " " ZARN_PRODUCT_FLAGS " ";
inline const std::string kCCompiler = ZARN_PRODUCT_CC " " ZARN_PRODUCT_FLAGS " ";

inline std::string slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}
inline void spill(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

struct Result {
  int status;
  std::string out;  // standard output and error
};

class Product : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "zarn_product.XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir = pattern;
  }
  void TearDown() override { fs::remove_all(dir); }

  Result shell(const std::string& command) const {
    const std::string out = (dir / "command.out").string();
    const int status = std::system(("cd '" + dir.string() + "' && { " + command + "\n} >'" + out + "' 2>&1").c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, slurp(out)};
  }
  // The output of a command that must succeed.
  std::string done(const std::string& command) const {
    const Result result = shell(command);
    EXPECT_EQ(result.status, 0) << command << "\n" << result.out;
    return result.out;
  }

  fs::path dir;
};

inline bool updating_golden() {
  const char* update = std::getenv("ZARN_UPDATE_GOLDEN");
  return update && std::string(update) == "1";
}
inline fs::path golden_path(const std::string& name) { return fs::path(kSource) / "tests/golden" / name; }

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

inline std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

}  // namespace product_test
