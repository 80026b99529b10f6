// What the runtime's own files have in common: a descriptor that closes itself, and files that appear whole.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <functional>

namespace kvt {

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

// Makes a file that its owner alone may read and write, and gives it its name when `fill` has written it: nobody ever
// sees half of it, and of several that make it at once, one wins. `fill` gets the descriptor and gives 0 or an error.
// @return 0; EEXIST: the name is taken, and what bears it is untouched; else what `fill` or the system gave
int make_file(const char* path, const std::function<int(int fd)>& fill);

// Room on the disk for [from, from + length) of a file. A limit to the size of files is an error as a full disk is, and
// not the signal that the system sends.
// @return 0, ENOSPC, EFBIG or what the system gives
int allocate_file(int fd, off_t from, off_t length);
// @return 0, EFBIG as above, or what the system gives
int write_all(int fd, const void* bytes, std::size_t length, off_t at);

// A lock of one byte of a file that belongs to the open file, so that it goes with the last process that has it: `type`
// as fcntl takes it. 0 or an error; EAGAIN when it would have to wait and may not.
int lock_byte(int fd, off_t at, short type, bool wait);
// Whether anybody but this open file holds a lock there.
bool is_byte_locked(int fd, off_t at);

}  // namespace kvt
