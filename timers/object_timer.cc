#include "timers/object_timer.h"

#include <limits>

#include "frame/call_frame.h"
#include "timers/timer_queue.h"

namespace kvt {
namespace {

constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kCallbackIndex = 0;  // a type has one timer
constexpr std::int32_t kStopped = -1;

// A timer field, with the queue and object that a call names.
struct Call {
  Call(const StructDesc& type, std::uint32_t field, kvt_handle* handle, std::uint32_t context, void* at, void* holder)
      : trace_place{type.trace.table, type.trace.first + type.fields[field].message, type.trace.module},
        h(handle),
        txn(context),
        queue(static_cast<kvt_timer_queue*>(at)),
        object(holder),
        timer(holder ? static_cast<kvt_timer*>(at_offset(holder, type.fields[field].offset)) : nullptr) {}

  template <class... Args>
  void tell(MessagePlace message, Args... args) const {
    trace(trace_place, kTimerFieldMessages, message, args...);
  }
  template <class T>
  void write(T* at, T value) const {
    store_announced(h, txn, at, value, object);
  }
  void count(std::int64_t by) const {
    store_announced(h, txn, &queue->count, queue->count + static_cast<std::uint64_t>(by), queue);
    if (queue->peak < queue->count) store_announced(h, txn, &queue->peak, queue->count, queue);
  }
  bool begin(int* err) const {
    if (*err) return false;
    kvt_clear_last_error(h);
    if (queue && timer && kvt_timer_accepts(h->store, &queue->root, timer)) return true;
    fail(h, kEinval, err);
    return false;
  }
  bool is_running() const { return timer_rb_tree_VS_RB_FIND(h->store, txn, &queue->root, timer, nullptr); }
  const kvt_timer* first() const { return timer_rb_tree_VS_RB_MINMAX(h->store, txn, &queue->root, -1); }

  void set(kvt_time after, kvt_time interval, std::int32_t* next, int* err) const {
    const kvt_time now = kvt_clock_now();
    if (after.sec > kMost - now.sec || after.usec > kMost - now.usec) {
      tell(kMsgTimerTooLarge);
      return fail(h, kE2big, err);
    }
    kvt_time due;
    kvtlib_tv_add(&due, &now, &after);
    write(&timer->due, due);
    write(&timer->interval, interval);
    write(&timer->owner, cage_ref(object));
    write(&timer->callback_index, kCallbackIndex);
    if (!timer_rb_tree_VS_RB_INSERT(h->store, txn, &queue->root, timer)) return fail(h, refusal(h), err);
    count(1);
    if (next) tell_next(first(), next);
  }

  void stop(std::int32_t* next) const {
    tell(kMsgTimerUnlinked);
    timer_rb_tree_VS_RB_REMOVE(h->store, txn, &queue->root, timer);
    write(&timer->due.sec, std::int64_t{0});
    write(&timer->due.usec, std::int64_t{0});
    write(&timer->owner, 0u);
    write(&timer->callback_index, kStopped);
    count(-1);
    if (next) tell_next(first(), next);
  }

  void safe_stop(std::int32_t* next) const {
    if (!is_running()) return;
    tell(kMsgTimerWasRunning);
    stop(next);
  }

  TracePlace trace_place;
  kvt_handle* h;
  std::uint32_t txn;
  kvt_timer_queue* queue;
  void* object;
  kvt_timer* timer;
};

}  // namespace

void timer_set(const StructDesc& type, std::uint32_t field, kvt_handle* h, std::uint32_t txn, void* queue, void* object,
               kvt_time after, kvt_time interval, std::int32_t* next, int* err) {
  const Call call(type, field, h, txn, queue, object);
  if (call.begin(err)) call.set(after, interval, next, err);
}

void timer_stop(const StructDesc& type, std::uint32_t field, kvt_handle* h, std::uint32_t txn, void* queue,
                void* object, std::int32_t* next, int* err) {
  const Call call(type, field, h, txn, queue, object);
  if (call.begin(err)) call.stop(next);
}

void timer_safe_set(const StructDesc& type, std::uint32_t field, kvt_handle* h, std::uint32_t txn, void* queue,
                    void* object, kvt_time after, kvt_time interval, std::int32_t* next, int* err) {
  const Call call(type, field, h, txn, queue, object);
  if (!call.begin(err)) return;
  call.tell(kMsgTimerSafeSet);
  call.safe_stop(next);
  call.set(after, interval, next, err);
}

void timer_safe_stop(const StructDesc& type, std::uint32_t field, kvt_handle* h, std::uint32_t txn, void* queue,
                     void* object, std::int32_t* next, int* err) {
  const Call call(type, field, h, txn, queue, object);
  if (call.begin(err)) call.safe_stop(next);
}

bool timer_is_running(const StructDesc& type, std::uint32_t field, kvt_handle* h, std::uint32_t txn, void* queue,
                      void* object) {
  const Call call(type, field, h, txn, queue, object);
  return call.queue && call.timer && call.is_running();
}

void timer_dump(const StructDesc& type, std::uint32_t field, kvt_handle* h, std::uint32_t txn, void* queue, int* err) {
  if (*err) return;
  kvt_clear_last_error(h);
  const Call call(type, field, h, txn, queue, nullptr);
  if (!call.queue) return fail(h, kEinval, err);
  const void* const root = &call.queue->root;
  const kvt_timer* timer = call.first();
  if (!timer) return call.tell(kMsgTimerDumpEmpty, root);
  call.tell(kMsgTimerDump, root);
  for (; timer; timer = timer_rb_tree_VS_RB_NEXT(h->store, txn, timer)) {
    const kvt_time now = kvt_clock_now();
    call.tell(kMsgTimerDumpTimer, static_cast<const void*>(timer), static_cast<const void*>(cage_at(timer->owner)),
              timer->interval.sec, timer->interval.usec);
    call.tell(kMsgTimerDumpDue, timer->due.sec, timer->due.usec, now.sec, now.usec);
  }
}

std::int32_t timer_expire(const StructDesc& type, std::uint32_t field, kvt_timer_callback handler, kvt_handle* h,
                          void* queue, void* owner, std::int32_t* deleted, std::int32_t* to_abort, int* err) {
  if (handler) return handler(h, queue, owner, deleted, to_abort, err);
  *err = 0;
  Call(type, field, h, KVT_NO_TXN, queue, owner).tell(kMsgTimerNoHandler);
  return 0;
}

}  // namespace kvt
