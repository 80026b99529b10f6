#include "timers/timer_queue.h"

#include <cstring>

#include "frame/call_frame.h"

namespace kvt {
namespace {

constexpr std::size_t kLuidSize = 16;

kvt_timer_callback callback_of(const TimerModule& module, const void* luid, std::int32_t index) {
  const std::int32_t type = timer_type_of(module, luid);
  return type < 0 || index < 0 || index >= kCallbackSlots ? nullptr : module.callbacks[type][index];
}

}  // namespace

void tell_next(const kvt_timer* first, std::int32_t* next) {
  if (!next) return;
  next[0] = first ? static_cast<std::int32_t>(first->due.sec) : -1;
  if (first) next[1] = static_cast<std::int32_t>(first->due.usec);
}

int refusal(kvt_handle* h) { return kvtlib_database_is_write_locked(h) ? kEnomem : kEperm; }

std::int32_t timer_type_of(const TimerModule& module, const void* luid) {
  for (std::int32_t type = 0; luid && module.types[type]; ++type) {
    if (!std::memcmp(module.types[type]->luid, luid, kLuidSize)) return type;
  }
  return -1;
}

void* timer_queue_init(const TimerModule& module, kvt_handle* h, std::uint32_t txn, int* err) {
  if (void* found = h->key_get(h->store, txn, module.key)) return found;
  auto* const queue = static_cast<kvt_timer_queue*>(h->store_alloc(h->store, txn, sizeof(kvt_timer_queue)));
  if (queue) {
    memset_cr(queue, 0, sizeof *queue);
    const int announced = nadra_set_range(h->store, &queue->root, sizeof queue->root, txn);
    if (announced != 1) {
      nadra_perror(announced);
      trace(module.trace, kTimerMessages, kMsgTimerStoreRefused);
      kvt_fatal();
    }
    queue->root = 0;
    if (h->key_put(h->store, txn, module.key, queue)) return queue;
    trace(module.trace, kTimerMessages, kMsgTimerQueueUnnamed, module.name);
  }
  fail(h, kEnomem, err);
  return nullptr;
}

std::uint32_t timer_dispatch(const TimerModule& module, kvt_handle* h, std::uint32_t txn, void* at,
                             std::int32_t* to_abort, std::int32_t* next, int* err) {
  if (*err) return 0;
  auto* const queue = static_cast<kvt_timer_queue*>(at);
  if (!queue) return fail(h, kEinval, err), 0;
  kvt_timer* const timer = timer_rb_tree_VS_RB_MINMAX(h->store, txn, &queue->root, -1);
  if (!timer) {
    trace(module.trace, kTimerMessages, kMsgTimerNone);
    tell_next(nullptr, next);
    return 0;
  }
  kvt_time now = kvt_clock_now();
  if (kvtlib_tv_compare(&timer->due, &now) >= 1) {
    tell_next(timer, next);
    return 0;
  }
  if (!timer_rb_tree_VS_RB_REMOVE(h->store, txn, &queue->root, timer)) return fail(h, refusal(h), err), 0;

  void* const owner = cage_at(timer->owner);
  const char* const name = kvt_get_name(h, txn, owner, err);
  const kvt_timer_callback callback = callback_of(module, kvt_get_luid(h, txn, owner, err), timer->callback_index);
  std::int32_t deleted = 0;
  kvt_watch watch;
  kvt_watch_begin(&watch, timer);
  if (callback) {
    trace(module.trace, kTimerMessages, kMsgTimerCalling, name);
    callback(h, queue, owner, &deleted, to_abort, err);
    if (*err) trace(module.trace, kTimerMessages, kMsgTimerCallbackFailed, deleted, to_abort ? *to_abort : 0);
  } else {
    trace(module.trace, kTimerMessages, kMsgTimerNoCallback, name);
    fail(h, kEnoent, err);
  }
  kvt_watch_end(&watch);

  if (deleted || watch.gone) return 1;
  if (!timer->interval.sec && !timer->interval.usec) return 1;
  // A callback that stopped the timer or armed it anew has the last word.
  if ((owner && !timer->owner) || timer_rb_tree_VS_RB_FIND(h->store, txn, &queue->root, timer, nullptr)) return 1;
  trace(module.trace, kTimerMessages, kMsgTimerRearmed);
  now = kvt_clock_now();
  h->set_range(h, &timer->due, sizeof timer->due, txn, timer);
  kvtlib_tv_add(&timer->due, &now, &timer->interval);
  if (!timer_rb_tree_VS_RB_INSERT(h->store, txn, &queue->root, timer) && !*err) fail(h, refusal(h), err);
  return 1;
}

}  // namespace kvt
