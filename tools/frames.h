// The stream between two wlanctl: each record's binary form behind its length (4 bytes, big-endian), all tables mixed,
// told apart by the table's identity in the frame; a length of 0 ends the stream, so that a sender that died is
// noticed. Over a socket the receiver answers with the number of records that it stored (4 bytes, big-endian).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace wlanctl {

/// Where the table's identity lies in a frame, and where the payload begins.
enum { kFrameLuid = 27, kFramePayload = 43 };

using Frame = std::vector<std::uint8_t>;

/// One end of the stream; closes it and, on the listening side, removes the socket's file.
class Stream {
 public:
  static Stream standard_input();
  static Stream standard_output();
  /// Connects to a socket, trying again for `wait_sec` as long as nobody listens there yet.
  static Stream connect_to(const std::string& path, unsigned wait_sec);
  /// Listens on a socket that it makes, and takes the one peer that connects.
  static Stream accept_at(const std::string& path, unsigned wait_sec);
  Stream(Stream&& other) noexcept;
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  ~Stream();

  void write_frame(const Frame& frame);
  void write_end();
  /// Reads frames until the end mark; keeps to the size limits. Throws Failure on anything else than a whole stream.
  std::vector<Frame> read_frames();
  void write_count(std::uint32_t count);
  std::uint32_t read_count();

 private:
  Stream(int descriptor, bool owned, unsigned wait_sec) : descriptor_(descriptor), owned_(owned), wait_sec_(wait_sec) {}
  void read_exactly(void* into, std::size_t size, const char* what);
  void write_exactly(const void* from, std::size_t size);

  int descriptor_;
  bool owned_;
  unsigned wait_sec_;
};

}  // namespace wlanctl
