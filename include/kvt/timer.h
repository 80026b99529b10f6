/// @file timer.h
/// Timers: the clock, times, the stored blocks, and the tree that holds the timers of a queue in the order of their due
/// times. A timer is a block inside the object that owns it; the tree allocates nothing, takes no lock, and announces
/// each of its stores. In a database whoever changes a tree holds the write lock.
#ifndef KVT_TIMER_H
#define KVT_TIMER_H

#include "kvt/handle.h"

#ifdef __cplusplus
extern "C" {
#endif

/// A time of the clock, or a length of time. Normalised: 0 <= usec < 1,000,000, also of a negative time.
typedef struct kvt_time {
  int64_t sec;
  int64_t usec;
} kvt_time;

/// A timer within its owner. Stored format, 64 bytes; see docs/formats/timers.md.
typedef struct kvt_timer {
  kvt_time due;
  kvt_time interval;       ///< both words 0: fires once
  int32_t callback_index;  ///< in the callback table of the owner's type; -1 when stopped
  uint32_t owner;          ///< reference of the object that holds the timer; 0 when stopped
  uint32_t tree[6];        ///< the tree's own
} kvt_timer;

/// A queue of timers. Stored format, 32 bytes.
typedef struct kvt_timer_queue {
  uint64_t reserved;
  uint64_t count;  ///< raised by each set, lowered by each stop
  uint64_t peak;   ///< the highest count so far
  uint32_t root;
  uint32_t reserved_end;
} kvt_timer_queue;

/// What a due timer calls. Sets `*deleted` to other than 0 when the owner, and so the timer, is gone; one that the
/// runtime's own store saw go need not be told. There is no write context: the handle has the open one.
typedef int32_t (*kvt_timer_callback)(kvt_handle* handle, void* queue, void* owner, int32_t* deleted, int32_t* to_abort,
                                      int* err);

/// The time now on the machine's monotonic clock, which stands still for no one but is set back by a boot.
KVT_EXPORT kvt_time kvt_clock_now(void);
/// Replaces the clock that timers are set by and held against, for the whole process; NULL gives the machine's back.
KVT_EXPORT void kvt_clock_replace(kvt_time (*now)(void));

/// -1, 0 or 1: a is earlier than, the same as, later than b.
KVT_EXPORT int kvtlib_tv_compare(const kvt_time* a, const kvt_time* b);
/// `*sum` = a + b, normalised whatever a and b are; a sum that no 64 bits hold is the nearest that they do. `sum` may
/// be `a` or `b`.
KVT_EXPORT void kvtlib_tv_add(kvt_time* sum, const kvt_time* a, const kvt_time* b);

/// Not 0 if the tree may hold the timer: `root` and `timer` lie in `store` both, or both in memory of a caller's own.
KVT_EXPORT int kvt_timer_accepts(void* store, const uint32_t* root, const kvt_timer* timer);
/// Puts a timer into the tree by its due time; timers of the same due time stand in the order of their addresses. One
/// that is in a tree of the store already changes its place. @return 1; 0 if it is not accepted, or the store refuses:
/// nothing changed then, but that the timer is in no tree
KVT_EXPORT int timer_rb_tree_VS_RB_INSERT(void* store, uint32_t txn, uint32_t* root, kvt_timer* timer);
/// Takes the timer out, by the place where it was put, whatever its due time says by now. @return 0 if it wasn't there
KVT_EXPORT int timer_rb_tree_VS_RB_REMOVE(void* store, uint32_t txn, uint32_t* root, kvt_timer* timer);
/// 1 if this very timer is in the tree, not another one with its due time. Its own words are not relied on. `scratch`
/// isn't used.
KVT_EXPORT int timer_rb_tree_VS_RB_FIND(void* store, uint32_t txn, uint32_t* root, const kvt_timer* timer,
                                        uint32_t* scratch);
/// The timer of the lowest (`which` negative) or highest due time; NULL in an empty tree.
KVT_EXPORT kvt_timer* timer_rb_tree_VS_RB_MINMAX(void* store, uint32_t txn, const uint32_t* root, int which);
/// The next timer in order of one that is in a tree; NULL behind the last.
KVT_EXPORT kvt_timer* timer_rb_tree_VS_RB_NEXT(void* store, uint32_t txn, const kvt_timer* timer);

/// Tells its owner whether memory went while foreign code ran: a block of the runtime's stores around `at` was given
/// back, or the transaction aborted, on this thread. Watches end in the reverse order of their begin.
typedef struct kvt_watch {
  const void* at;
  int gone;
  struct kvt_watch* outer;
} kvt_watch;
KVT_EXPORT void kvt_watch_begin(kvt_watch* watch, const void* at);
KVT_EXPORT void kvt_watch_end(kvt_watch* watch);

#ifdef __cplusplus
}
#endif
#endif
