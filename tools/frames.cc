// Sockets, pipes and the framing on them; what is in a frame is the business of send.cc and receive.cc.
#include "tools/frames.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

#include "tools/failure.h"

namespace wlanctl {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kLargestFrame = 16 * 1024 * 1024;
constexpr std::size_t kLargestStream = 256 * 1024 * 1024;
constexpr unsigned kPipeWaitSec = 3600;
constexpr auto kConnectPause = std::chrono::milliseconds(20);

struct Address {
  sockaddr_un at{};
  explicit Address(const std::string& path) {
    if (path.size() >= sizeof at.sun_path) throw Failure(path + ": too long for a socket's name");
    at.sun_family = AF_UNIX;
    std::memcpy(at.sun_path, path.c_str(), path.size() + 1);
  }
  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&at); }
};

[[noreturn]] void fail(const std::string& what, int err) { throw Failure(what + ": " + std::strerror(err)); }

void wait_readable(int descriptor, unsigned wait_sec, const char* what) {
  pollfd waiting = {descriptor, POLLIN, 0};
  int ready = 0;
  do {
    ready = poll(&waiting, 1, static_cast<int>(wait_sec) * 1000);
  } while (ready < 0 && errno == EINTR);
  if (ready < 0) fail(what, errno);
  if (ready == 0) throw Failure(std::string(what) + ": nothing came in " + std::to_string(wait_sec) + " s");
}

class Listener {
 public:
  explicit Listener(const std::string& path)
      : path_(path), descriptor_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const Address address(path);
    if (descriptor_ < 0) fail(path, errno);
    // Whoever may connect may write into the database.
    const mode_t before = umask(0077);
    const int bound = bind(descriptor_, address.get(), sizeof address.at);
    const int err = errno;
    umask(before);
    if (bound != 0) {
      close(descriptor_);
      fail(path, err);
    }
    if (listen(descriptor_, 1) != 0) fail(path, errno);
  }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  ~Listener() {
    close(descriptor_);
    unlink(path_.c_str());
  }
  int get() const { return descriptor_; }

 private:
  std::string path_;
  int descriptor_;
};

std::uint32_t from_big_endian(const std::uint8_t (&bytes)[4]) {
  return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 | std::uint32_t{bytes[2]} << 8 | bytes[3];
}

}  // namespace

Stream Stream::standard_input() { return {STDIN_FILENO, false, kPipeWaitSec}; }
Stream Stream::standard_output() { return {STDOUT_FILENO, false, kPipeWaitSec}; }

Stream Stream::connect_to(const std::string& path, unsigned wait_sec) {
  const Address address(path);
  const auto until = Clock::now() + std::chrono::seconds(wait_sec);
  for (;;) {
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) fail(path, errno);
    if (connect(descriptor, address.get(), sizeof address.at) == 0) return {descriptor, true, wait_sec};
    const int err = errno;
    close(descriptor);
    const bool too_early = err == ENOENT || err == ECONNREFUSED || err == EINTR;
    if (!too_early || Clock::now() >= until) fail(path, err);
    std::this_thread::sleep_for(kConnectPause);
  }
}

Stream Stream::accept_at(const std::string& path, unsigned wait_sec) {
  const Listener listener(path);
  wait_readable(listener.get(), wait_sec, path.c_str());
  const int descriptor = accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC);
  if (descriptor < 0) fail(path, errno);
  return {descriptor, true, wait_sec};
}

Stream::Stream(Stream&& other) noexcept
    : descriptor_(other.descriptor_), owned_(std::exchange(other.owned_, false)), wait_sec_(other.wait_sec_) {}

Stream::~Stream() {
  if (owned_) close(descriptor_);
}

void Stream::write_exactly(const void* from, std::size_t size) {
  const auto* at = static_cast<const std::uint8_t*>(from);
  while (size > 0) {
    const ssize_t done = write(descriptor_, at, size);
    if (done < 0 && errno == EINTR) continue;
    if (done < 0 && errno == EPIPE) throw Failure("the receiver went away");
    if (done < 0) fail("sending", errno);
    at += done;
    size -= static_cast<std::size_t>(done);
  }
}

void Stream::read_exactly(void* into, std::size_t size, const char* what) {
  auto* at = static_cast<std::uint8_t*>(into);
  while (size > 0) {
    wait_readable(descriptor_, wait_sec_, "receiving");
    const ssize_t done = read(descriptor_, at, size);
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) fail("receiving", errno);
    if (done == 0) throw Failure(what);
    at += done;
    size -= static_cast<std::size_t>(done);
  }
}

void Stream::write_count(std::uint32_t count) {
  const std::uint8_t bytes[4] = {static_cast<std::uint8_t>(count >> 24), static_cast<std::uint8_t>(count >> 16),
                                 static_cast<std::uint8_t>(count >> 8), static_cast<std::uint8_t>(count)};
  write_exactly(bytes, sizeof bytes);
}

std::uint32_t Stream::read_count() {
  std::uint8_t bytes[4];
  read_exactly(bytes, sizeof bytes, "the receiver took nothing");
  return from_big_endian(bytes);
}

void Stream::write_frame(const Frame& frame) {
  write_count(static_cast<std::uint32_t>(frame.size()));
  write_exactly(frame.data(), frame.size());
}

void Stream::write_end() { write_count(0); }

std::vector<Frame> Stream::read_frames() {
  std::vector<Frame> frames;
  std::size_t total = 0;
  for (;;) {
    const std::string which = "frame " + std::to_string(frames.size() + 1);
    std::uint8_t bytes[4];
    read_exactly(bytes, sizeof bytes, "the stream breaks off before its end mark");
    const std::uint32_t size = from_big_endian(bytes);
    if (size == 0) return frames;
    if (size < kFramePayload) throw Failure(which + " is too short for a record: " + std::to_string(size) + " bytes");
    if (size > kLargestFrame) throw Failure(which + " claims " + std::to_string(size) + " bytes, more than any record");
    total += size;
    if (total > kLargestStream)
      throw Failure("the stream holds more than " + std::to_string(kLargestStream >> 20) + " MiB");
    Frame frame(size);
    read_exactly(frame.data(), size, (which + " is cut short").c_str());
    frames.push_back(std::move(frame));
  }
}

}  // namespace wlanctl
