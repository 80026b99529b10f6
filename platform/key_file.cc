// Key files are read and made here; what stands in them is on the stack for that long, and is wiped.
#include "platform/key_file.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "platform/files.h"
#include "platform/xml_text.h"

namespace kvt {
namespace {

constexpr std::size_t kFileSize = 2 * kKeySize + 1;

// Bytes that are wiped when they go.
template <class T, std::size_t kSize>
struct Wiped {
  ~Wiped() { OPENSSL_cleanse(at, sizeof at); }
  T at[kSize];
};

int fail(const KeyFileRequest& request, int code) { return key_file_fail(request, code, std::strerror(code)); }

bool parse(const char* text, std::uint8_t* key) {
  for (std::size_t i = 0; i < kKeySize; ++i) {
    const int high = hex_value(text[2 * i]), low = hex_value(text[2 * i + 1]);
    if (high < 0 || low < 0) return false;
    key[i] = static_cast<std::uint8_t>(high << 4 | low);
  }
  return text[2 * kKeySize] == '\n';
}

int read_file(const KeyFileRequest& request, std::uint8_t* key) {
  // O_NONBLOCK: a FIFO in the file's place must not stop us before the type is known.
  const File file(open(request.path, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  if (file.fd() < 0)
    return errno == ELOOP ? key_file_fail(request, EACCES, "is a symbolic link") : fail(request, errno);
  struct stat status;
  if (fstat(file.fd(), &status)) return fail(request, errno);
  if (!S_ISREG(status.st_mode)) return key_file_fail(request, EACCES, "is not a regular file");
  if (status.st_uid != geteuid()) return key_file_fail(request, EACCES, "belongs to another user");
  if ((status.st_mode & 07777) != 0600) return key_file_fail(request, EACCES, "has a mode other than 0600");
  Wiped<char, kFileSize + 1> text;
  const ssize_t length = read(file.fd(), text.at, sizeof text.at);
  if (length < 0) return fail(request, errno);
  const bool good = length == static_cast<ssize_t>(kFileSize) && parse(text.at, key);
  return good ? 0 : key_file_fail(request, EINVAL, "does not hold 64 hexadecimal digits and a line end");
}

// Digit by digit: a formatting function would leave them in a buffer of its own.
int write_key(int fd, const std::uint8_t* key) {
  constexpr char kDigits[] = "0123456789abcdef";
  Wiped<char, kFileSize> text;
  for (std::size_t i = 0; i < kKeySize; ++i) {
    text.at[2 * i] = kDigits[key[i] >> 4];
    text.at[2 * i + 1] = kDigits[key[i] & 15];
  }
  text.at[kFileSize - 1] = '\n';
  const ssize_t length = write(fd, text.at, sizeof text.at);
  if (length != static_cast<ssize_t>(sizeof text.at)) return length < 0 ? errno : ENOSPC;
  return fchmod(fd, 0600) || fsync(fd) ? errno : 0;  // the umask may have taken more than it should
}

int make_key_file(const KeyFileRequest& request) {
  Wiped<std::uint8_t, kKeySize> key;
  if (RAND_bytes(key.at, sizeof key.at) != 1) return key_file_fail(request, EIO, "no random numbers");
  const int error = make_file(request.path, [&](int fd) { return write_key(fd, key.at); });
  return !error || error == EEXIST ? 0 : fail(request, error);
}

}  // namespace

int key_file_fail(const KeyFileRequest& request, int code, const char* reason) {
  if (request.message && request.message_size)
    std::snprintf(request.message, request.message_size, "key file \"%s\": %s", request.path, reason);
  return code;
}

KeyHold key_file_open(const KeyFileRequest& request, int* err) {
  Wiped<std::uint8_t, kKeySize> bytes;
  *err = read_file(request, bytes.at);
  if (*err == ENOENT && request.create) {
    *err = make_key_file(request);
    // What is read is what stands there: another process may have been faster.
    if (!*err) *err = read_file(request, bytes.at);
  }
  if (*err) return nullptr;
  if (request.message && request.message_size) *request.message = 0;
  KeyHold key = keyring_add(bytes.at);
  if (!key) *err = fail(request, ENOMEM);
  return key;
}

}  // namespace kvt
