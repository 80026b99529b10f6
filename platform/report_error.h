// How a runtime operation reports a failure: the caller's slot first, then the handle's last error.
#pragma once

#include "kvt/frame.h"

namespace kvt {

// Kept out of line: failures are rare, and the callers are small functions that get inlined by the thousand.
[[gnu::cold, gnu::noinline]] inline void report_error(kvt_handle* handle, int code, int* err) {
  *err = code;
  kvt_store_err(handle, code);
}

}  // namespace kvt
