// The queue of timers of a module: one in each database, found by name. Nothing here waits or takes a lock.
#pragma once

#include "frame/descriptor.h"

namespace kvt {

struct TimerModule {
  const char* name;  // of the queue, in messages
  const char* key;   // under which stores have the queue
  TracePlace trace;
  const kvt_type_record* const* types;         // those with a timer; null behind the last
  const kvt_timer_callback* const* callbacks;  // by place in `types`, then by callback_index
};

// The slots of a type's callback table; the last one is empty.
constexpr std::int32_t kCallbackSlots = 2;

void* timer_queue_init(const TimerModule& module, kvt_handle* h, std::uint32_t txn, int* err);
std::uint32_t timer_dispatch(const TimerModule& module, kvt_handle* h, std::uint32_t txn, void* queue,
                             std::int32_t* to_abort, std::int32_t* next, int* err);
// The place of the type with that identity; -1 for none, also for no identity.
std::int32_t timer_type_of(const TimerModule& module, const void* luid);

// Tells the time of a queue's first timer, null for none, in the two words of `next`, if there are any.
void tell_next(const kvt_timer* first, std::int32_t* next);
// The error of a change that the runtime has refused.
int refusal(kvt_handle* h);

}  // namespace kvt
