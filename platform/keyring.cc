// The keyring and its key files.
#include "platform/keyring.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <openssl/sha.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <string>

#include "platform/secrets.h"
#include "platform/xml_text.h"

namespace {

using kvt::hex_value;
using kvt::Key;
using kvt::kKeySize;

constexpr std::size_t kKeyFileSize = 2 * kKeySize + 1;

// Keys are only ever added, so whoever looks one up needs no lock.
constinit std::mutex g_change;
constinit std::atomic<const Key*> g_keys{nullptr};
constinit std::atomic<const Key*> g_sealing{nullptr};
constinit std::atomic<const Key*> g_transient{nullptr};

const Key* add_key(const std::uint8_t* bytes) {
  std::uint8_t digest[SHA256_DIGEST_LENGTH];
  if (!SHA256(bytes, kKeySize, digest)) return nullptr;
  if (const Key* known = kvt::keyring_find(digest)) return known;
  Key* key = new (std::nothrow) Key;
  if (!key) return nullptr;
  std::memcpy(key->id, digest, sizeof key->id);
  std::memcpy(key->bytes, bytes, kKeySize);
  key->next = g_keys.load(std::memory_order_relaxed);
  g_keys.store(key, std::memory_order_release);
  return key;
}

// What one key file call tells its caller.
struct Report {
  char* message;
  std::size_t size;
  const char* file;

  int operator()(int code, const char* reason) const {
    if (message && size) std::snprintf(message, size, "key file \"%s\": %s", file, reason);
    return code;
  }
  int operator()(int code) const { return (*this)(code, std::strerror(code)); }
};

class File {
 public:
  explicit File(int fd) : fd_(fd) {}
  ~File() {
    if (fd_ >= 0) close(fd_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  int fd() const { return fd_; }

 private:
  int fd_;
};

bool parse_key(const char* text, std::uint8_t* key) {
  for (std::size_t i = 0; i < kKeySize; ++i) {
    const int high = hex_value(text[2 * i]), low = hex_value(text[2 * i + 1]);
    if (high < 0 || low < 0) return false;
    key[i] = static_cast<std::uint8_t>(high << 4 | low);
  }
  return text[2 * kKeySize] == '\n';
}

int read_key_file(const Report& report, std::uint8_t* key) {
  // O_NONBLOCK: a FIFO in the file's place must not stop us before the type is known.
  const File file(open(report.file, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  if (file.fd() < 0) return errno == ELOOP ? report(EACCES, "is a symbolic link") : report(errno);
  struct stat status;
  if (fstat(file.fd(), &status)) return report(errno);
  if (!S_ISREG(status.st_mode)) return report(EACCES, "is not a regular file");
  if (status.st_uid != geteuid()) return report(EACCES, "belongs to another user");
  if ((status.st_mode & 07777) != 0600) return report(EACCES, "has a mode other than 0600");
  char text[kKeyFileSize + 1];
  const ssize_t length = read(file.fd(), text, sizeof text);
  const int read_error = length < 0 ? errno : 0;
  const bool good = length == static_cast<ssize_t>(kKeyFileSize) && parse_key(text, key);
  OPENSSL_cleanse(text, sizeof text);
  if (read_error) return report(read_error);
  return good ? 0 : report(EINVAL, "does not hold 64 hexadecimal digits and a line end");
}

int write_key(int fd, const std::uint8_t* key) {
  char text[kKeyFileSize + 1];
  for (std::size_t i = 0; i < kKeySize; ++i) std::snprintf(text + 2 * i, 3, "%02x", key[i]);
  text[kKeyFileSize - 1] = '\n';
  const ssize_t length = write(fd, text, kKeyFileSize);
  const int code = length < 0 ? errno : length != static_cast<ssize_t>(kKeyFileSize) ? ENOSPC : 0;
  OPENSSL_cleanse(text, sizeof text);
  if (code) return code;
  return fchmod(fd, 0600) || fsync(fd) ? errno : 0;  // the umask may have taken more than it should
}

// The name is part of the promise that secrets can be opened tomorrow, so it has to reach the disk too.
void sync_folder(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const File file(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (file.fd() >= 0) fsync(file.fd());
}

// The file appears under its name with all its content or not at all; of two that make it at once, one wins.
int make_key_file(const Report& report) {
  std::uint8_t key[kKeySize], tag[8];
  if (RAND_bytes(key, sizeof key) != 1 || RAND_bytes(tag, sizeof tag) != 1) return report(EIO, "no random numbers");
  std::string temporary = std::string(report.file) + ".new-";
  for (const std::uint8_t byte : tag) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", byte);
    temporary += digits;
  }
  const File file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  int code = file.fd() < 0 ? errno : 0;
  if (!code) {
    code = write_key(file.fd(), key);
    if (!code && link(temporary.c_str(), report.file) && errno != EEXIST) code = errno;
    unlink(temporary.c_str());
    sync_folder(temporary);
  }
  OPENSSL_cleanse(key, sizeof key);
  return code ? report(code) : 0;
}

}  // namespace

namespace kvt {

const Key* keyring_find(const std::uint8_t* id) {
  for (const Key* key = g_keys.load(std::memory_order_acquire); key; key = key->next)
    if (!std::memcmp(key->id, id, kKeyIdSize)) return key;
  return nullptr;
}

const Key* keyring_sealing_key() {
  if (const Key* key = g_sealing.load(std::memory_order_acquire)) return key;
  const std::lock_guard lock(g_change);
  if (const Key* key = g_sealing.load(std::memory_order_relaxed)) return key;
  std::uint8_t bytes[kKeySize];
  if (RAND_bytes(bytes, sizeof bytes) != 1) return nullptr;
  const Key* key = add_key(bytes);
  OPENSSL_cleanse(bytes, sizeof bytes);
  g_transient.store(key, std::memory_order_release);
  g_sealing.store(key, std::memory_order_release);
  return key;
}

bool keyring_is_outdated(const std::uint8_t* id) {
  const Key* transient = g_transient.load(std::memory_order_acquire);
  return transient && transient != g_sealing.load(std::memory_order_acquire) &&
         !std::memcmp(transient->id, id, kKeyIdSize);
}

}  // namespace kvt

extern "C" int kvt_keyring_open(const char* key_file, int create, char* message, std::size_t size) {
  const Report report{message, size, key_file};
  std::uint8_t bytes[kKeySize];
  int code = read_key_file(report, bytes);
  if (code == ENOENT && create) {
    code = make_key_file(report);
    if (!code) code = read_key_file(report, bytes);
  }
  if (code) return code;
  const std::lock_guard lock(g_change);
  const Key* key = add_key(bytes);
  OPENSSL_cleanse(bytes, sizeof bytes);
  if (!key) return report(ENOMEM);
  g_sealing.store(key, std::memory_order_release);
  if (message && size) *message = 0;
  return 0;
}
