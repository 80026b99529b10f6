// Files written under another name first.
#include "platform/files.h"

#include <fcntl.h>

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

// The name has to reach the disk too.
void sync_folder(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const File file(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (file.fd() >= 0) fsync(file.fd());
}

}  // namespace

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
