// Mends a database from what the checker could make out.
#pragma once

#include "platform/check.h"

namespace kvt {

// In the open transaction of the store. 0; ENOMEM; EIO: the heap's chunks are damaged, and nothing can be mended.
int repair(Store& store, const Checker& found, kvt_care_line line, void* argument);

}  // namespace kvt
