// Files written under another name first.
#include "platform/files.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace kvt {
namespace {

int give_name(const char* temporary, const char* path) {
  if (!link(temporary, path)) return 0;
  // A file system without hard links.
  if (errno != EPERM && errno != EOPNOTSUPP) return errno;
  return renameat2(AT_FDCWD, temporary, AT_FDCWD, path, RENAME_NOREPLACE) ? errno : 0;
}

bool may_reach(off_t end) {
  struct rlimit limit;
  return getrlimit(RLIMIT_FSIZE, &limit) || limit.rlim_cur == RLIM_INFINITY ||
         static_cast<rlim_t>(end) <= limit.rlim_cur;
}

// The name has to reach the disk too.
void sync_folder(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const File file(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (file.fd() >= 0) fsync(file.fd());
}

struct flock byte_lock(short type, off_t at) {
  struct flock region {};
  region.l_type = type;
  region.l_whence = SEEK_SET;
  region.l_start = at;
  region.l_len = 1;
  return region;
}

}  // namespace

int lock_byte(int fd, off_t at, short type, bool wait) {
  struct flock region = byte_lock(type, at);
  int result;
  do {
    result = fcntl(fd, wait ? F_OFD_SETLKW : F_OFD_SETLK, &region);
  } while (result && errno == EINTR);
  return result ? errno : 0;
}

bool is_byte_locked(int fd, off_t at) {
  struct flock region = byte_lock(F_WRLCK, at);
  return fcntl(fd, F_OFD_GETLK, &region) || region.l_type != F_UNLCK;
}

int allocate_file(int fd, off_t from, off_t length) {
  if (!may_reach(from + length)) return EFBIG;
  int error;
  do {
    error = posix_fallocate(fd, from, length);
  } while (error == EINTR);
  return error;
}

int write_all(int fd, const void* bytes, std::size_t length, off_t at) {
  const char* from = static_cast<const char*>(bytes);
  if (!may_reach(at + static_cast<off_t>(length))) return EFBIG;
  while (length) {
    const ssize_t n = pwrite(fd, from, length, at);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return errno;
    from += n;
    at += n;
    length -= static_cast<std::size_t>(n);
  }
  return 0;
}

int make_file(const char* path, const std::function<int(int fd)>& fill) {
  std::string temporary = std::string(path) + ".XXXXXX";
  const File file(mkostemp(temporary.data(), O_CLOEXEC));
  if (file.fd() < 0) return errno;
  int error = fill(file.fd());
  if (!error) error = give_name(temporary.c_str(), path);
  unlink(temporary.c_str());
  if (!error) sync_folder(temporary);
  return error;
}

}  // namespace kvt
