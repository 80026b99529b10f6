// Runs the schema compiler on files of the source tree or on text, and keeps what it says.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "schema/compiler/driver.h"

namespace zarnc {

// The build names the root of the source tree.
inline const std::filesystem::path kRoot = ZARN_SOURCE_DIR;
inline const std::filesystem::path kCases = kRoot / "tests/schema/cases";

inline std::string read_text(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in) << path;
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

inline std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != text.npos; at += to.size()) text.replace(at, from.size(), to);
  return text;
}

inline std::vector<std::string> real_schema() {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(kRoot / "schema")) {
    if (entry.path().extension() == ".zs") files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

struct Outcome {
  int status = 0;
  std::string out, messages;  // paths in messages are from the root of the source tree
};

inline Outcome compile(const std::vector<std::string>& arguments) {
  std::ostringstream out, messages;
  Outcome run;
  run.status = zarnc::run(arguments, out, messages);
  run.out = out.str();
  run.messages = replaced(messages.str(), kRoot.string() + "/", "");
  return run;
}

// A directory of this test's own, gone when the test is.
class Scratch {
 public:
  Scratch() {
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    path_ = std::filesystem::temp_directory_path() /
            replaced(std::string("zarnc_") + test->test_suite_name() + "_" + test->name(), "/", "_");
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~Scratch() { std::filesystem::remove_all(path_); }

  std::string write(const std::string& name, const std::string& text) const {
    std::ofstream(path_ / name, std::ios::binary) << text;
    return (path_ / name).string();
  }

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace zarnc
