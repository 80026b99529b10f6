// Runs each target over its inputs without a fuzzer, and makes inputs to begin with.
//   replay CORPUS [TARGET...]   each file CORPUS/TARGET/* goes through its target
//   replay --seeds DIRECTORY    writes DIRECTORY/TARGET/* and DIRECTORY/TARGET.dict
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "fuzz/target.h"

namespace {

namespace fs = std::filesystem;

int replay(const fs::path& corpus, const std::vector<std::string>& names) {
  for (const fuzz::Target* target : fuzz::kTargets) {
    if (!names.empty() && !std::count(names.begin(), names.end(), target->name)) continue;
    std::vector<fs::path> inputs;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(corpus / target->name, error)) inputs.push_back(entry.path());
    if (inputs.empty()) {
      std::cerr << "no inputs in " << (corpus / target->name) << '\n';
      return 1;
    }
    std::sort(inputs.begin(), inputs.end());
    for (const fs::path& path : inputs) {
      std::ifstream in(path, std::ios::binary);
      const std::string bytes(std::istreambuf_iterator<char>(in), {});
      std::cerr << path.string() << '\n';  // the last one named is the one that broke
      target->run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    std::cout << target->name << ": " << inputs.size() << " inputs\n";
  }
  return 0;
}

int sow_all(const fs::path& directory) {
  for (const fuzz::Target* target : fuzz::kTargets) {
    const fs::path place = directory / target->name;
    fs::create_directories(place);
    target->seeds([&](const std::string& name, const std::string& bytes) {
      std::ofstream(place / name, std::ios::binary) << bytes;
    });
    if (!target->dictionary) continue;
    std::ofstream words(directory / (std::string(target->name) + ".dict"));
    for (const std::string& word : target->dictionary()) {
      words << '"';
      for (const unsigned char c : word) {
        char code[8];
        std::snprintf(code, sizeof code, "\\x%02x", c);
        words << code;
      }
      words << "\"\n";
    }
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.size() == 2 && words[0] == "--seeds") return sow_all(words[1]);
  if (!words.empty() && words[0][0] != '-') return replay(words[0], {words.begin() + 1, words.end()});
  std::cerr << "usage: replay CORPUS [TARGET...] | replay --seeds DIRECTORY\n";
  return 2;
}
