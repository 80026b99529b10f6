// What the tests of the product share: commands run as a user runs them, a directory of their own, golden files.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "tests/golden_file.h"

namespace product_test {

namespace fs = std::filesystem;

inline const std::string kSource = ZARN_SOURCE_DIR;
inline const std::string kBuild = ZARN_BINARY_DIR;
inline const std::string kCompiler = ZARN_PRODUCT_CXX " " ZARN_PRODUCT_FLAGS " ";
inline const std::string kCCompiler = ZARN_PRODUCT_CC " " ZARN_PRODUCT_FLAGS " ";

using golden::expect_golden;
using golden::golden_path;
using golden::slurp;
using golden::spill;
using golden::updating_golden;

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

inline std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

}  // namespace product_test
