// send: every record of every table in binary form.
#include "tools/commands.h"
#include "tools/frames.h"
#include "tools/store.h"
#include "tools/text.h"

namespace wlanctl {

void run_send(const Options& options) {
  const Store store = Store::open_database(options, Open::kSnapshot);
  Stream stream =
      options.socket.empty() ? Stream::standard_output() : Stream::connect_to(options.socket, options.wait_sec);
  std::uint32_t count = 0;
  std::size_t bytes = 0;
  for (const Table& table : tables()) {
    for_each_record(store, table, [&](void* record) {
      const Frame frame = record_bytes(store, table, record);
      stream.write_frame(frame);
      bytes += frame.size();
      ++count;
    });
  }
  stream.write_end();
  if (options.socket.empty()) return;
  const std::uint32_t stored = stream.read_count();
  if (stored != count) {
    throw Failure("of " + std::to_string(count) + " records sent, " + std::to_string(stored) + " were stored");
  }
  write_output("sent " + std::to_string(count) + " records, " + std::to_string(bytes) + " bytes; all are stored\n");
}

}  // namespace wlanctl
