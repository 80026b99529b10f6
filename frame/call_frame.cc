#include "frame/call_frame.h"

#include <cstring>

namespace kvt {

void stop_corrupt_handle(const StructDesc& type) {
  trace(type.trace, kStructMessages, kMsgStructCorruptHandle);
  kvt_fatal();
}

void count_plain(const kvt_type_record* record, std::uint64_t* counter) {
  if (record->db_mode) {
    ++*counter;
  } else {
    __atomic_fetch_add(counter, 1, __ATOMIC_SEQ_CST);
  }
}

const char* error_text(int code) {
  thread_local char text[96];
  // The XSI and the GNU form differ in what they return; the GNU one is what g++ gives with its default macros.
  return strerror_r(code, text, sizeof text);
}

}  // namespace kvt
