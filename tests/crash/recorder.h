// Records every store into a mapped database, and every sync of it, so that the file can be made again as it stood
// between any two of them. A store is caught by the page's protection and let through alone.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace crash {

struct Event {
  bool is_sync;
  std::uint32_t at, length;  // in the file
  std::size_t bytes;         // where a store's bytes begin in the trace
};

struct Trace {
  std::vector<Event> events;
  std::string bytes;
};

// Records what this thread stores into the slot of a database, from its first byte on.
void record(char* slot);
Trace stop_recording();
std::size_t recorded();  // events so far

// Errors that the disk gives from now on, 0 for none: for room, and for syncs.
inline int room_error = 0, sync_error = 0;

}  // namespace crash
