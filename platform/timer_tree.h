// What the end of a block of memory means for timers: those that are in a tree, and whoever watches the memory.
#pragma once

#include "platform/store.h"

namespace kvt {

// Before the memory [begin, begin + length) of a store is given back: takes the timers that are in it out of their
// trees and says so. True if there were any.
bool forget_timers(Store& store, std::uint32_t txn, std::uint32_t begin, std::uint32_t length);
// Tells this thread's watches that the memory is gone.
void end_watched(std::uint32_t begin, std::uint32_t length);

}  // namespace kvt
