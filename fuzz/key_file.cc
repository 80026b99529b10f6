// Key files. Input: the file. It opens if and only if it is 64 hexadecimal digits and a line end.
#include "fuzz/key_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include "fuzz/target.h"

namespace fuzz {
namespace {

constexpr std::size_t kDigits = 64;
bool is_key(const std::string& text) {
  return text.size() == kDigits + 1 && text.back() == '\n' &&
         std::all_of(text.begin(), text.end() - 1, [](unsigned char c) { return std::isxdigit(c); });
}

int open_with(const std::string& path, char* message, std::size_t size) {
  int err = 0;
  kvt_handle* handle = handle_with_key(path, message, size, &err);
  FUZZ_CHECK((handle == nullptr) == (err != 0), "a handle and an error");
  kvt_handle_close(handle);
  return err;
}

void run(const std::uint8_t* data, std::size_t size) {
  static const std::string path = scratch_directory() + "/key";
  const std::string text(reinterpret_cast<const char*>(data), size);
  const bool good = is_key(text);
  write_private_file(path, text);
  char message[400] = "untouched";
  const int code = open_with(path, message, sizeof message);
  FUZZ_CHECK(code == (good ? 0 : EINVAL), "error " + std::to_string(code));
  FUZZ_CHECK((message[0] == 0) == good, std::string("message ") + message);
  FUZZ_CHECK(good || !std::strpbrk(message, "\n"), "a message of two lines");
  char tight[8];
  open_with(path, tight, sizeof tight);
  FUZZ_CHECK(std::memchr(tight, 0, sizeof tight), "a message without its end");
}

void seeds(const Sow& sow) {
  const std::string digits = "0123456789abcdefABCDEF0123456789fedcba98765432100f1e2d3c4b5a6978";
  sow("key", digits + "\n");
  sow("no_line_end", digits);
  sow("two_lines", digits + "\n\n");
  sow("short", digits.substr(1) + "\n");
  sow("no_digit", "x" + digits.substr(1) + "\n");
  sow("empty", "");
}

}  // namespace

void write_private_file(const std::string& path, const std::string& bytes) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  FUZZ_CHECK(fd >= 0 && write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "cannot write");
  close(fd);
}

kvt_handle* handle_with_key(const std::string& path, char* message, std::size_t size, int* err) {
  kvt_handle_options options;
  kvt_handle_options_init(&options);
  options.key_file = path.c_str();
  options.message = message;
  options.message_size = size;
  return kvt_handle_open_private(&options, err);
}

const std::string& fixed_key_file() {
  static const std::string path = [] {
    const std::string name = scratch_directory() + "/fixed.key";
    write_private_file(name, std::string(kDigits, '5') + "\n");
    return name;
  }();
  return path;
}

const Target kKeyFile{"key_file", run, seeds, nullptr};

}  // namespace fuzz
