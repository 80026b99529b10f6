/// @file trace.h
/// The trace facility. A call passes a message table, an index in it, a module id, a level word and raw arguments. The
/// texts of the messages are not in the process: they are read from the built file when somebody listens, or later by
/// `wlanctl trace`.
#ifndef KVT_TRACE_H
#define KVT_TRACE_H

#include "kvt/handle.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
  KVT_LEVEL_FATAL = 0,
  KVT_LEVEL_ERROR = 0x3000000,
  KVT_LEVEL_NOTICE = 0x6000000,
  KVT_LEVEL_DEBUG = 0x7000000,
  KVT_LEVEL_VERBOSE = 0x8000000
};

/// A message table. `section` is the loaded section of the built file that knows the table's id and the lengths of its
/// texts (docs/formats/trace.md); it is NULL in a table without messages.
typedef struct fenlog_table {
  uint16_t number;
  uint32_t count;
  const void* section;
} fenlog_table;

typedef enum fenlog_kind { FENLOG_TEXT, FENLOG_WORD, FENLOG_SIGNED, FENLOG_LONG, FENLOG_ADDRESS } fenlog_kind;
typedef struct fenlog_arg {
  fenlog_kind kind;
  union {
    const char* text;
    uint64_t word;
  } value;
} fenlog_arg;

/// Binds a module's id. Cheap and idempotent; called again at every create.
KVT_EXPORT void fenlog_module_init_fn(const char* name, uint16_t* id, uint32_t* state);
/// The level above which nothing is kept, in the upper byte as the level words have it. Read by fenlog_on.
KVT_EXPORT extern uint32_t fenlog_threshold;
/// Not 0 if the level is on for the module.
KVT_EXPORT int fenlog_module_test(uint16_t id, uint32_t level);
static inline int fenlog_on(uint32_t level) { return level <= __atomic_load_n(&fenlog_threshold, __ATOMIC_RELAXED); }
/// One trace call. Texts are copied (at most 63 bytes each); nothing is formatted unless a sink is set. A level-0 line
/// also goes to standard error, since the process is about to stop.
KVT_EXPORT void fenlog_trace(const fenlog_table* table, uint32_t index, uint16_t module, uint32_t level,
                             uint32_t argument_count, const fenlog_arg* arguments);
/// A sink gets each line that passes the threshold, formatted, on the thread that made it. NULL takes it away; a thread
/// that is in the old one at that moment may still be when this returns. All calls here may be made from any thread.
typedef void (*fenlog_sink)(void* argument, uint32_t level, const char* line);
KVT_EXPORT void fenlog_set_sink(fenlog_sink sink, void* argument);
/// Sets the threshold: 0, 3, 6, 7 or 8. The default is 6.
KVT_EXPORT void fenlog_set_level(unsigned level);
/// Writes the calls that the ring still holds to a file, for `wlanctl trace --ring`. An old file there is replaced;
/// only its owner can read the new one. @return 0, or the errno of what failed
KVT_EXPORT int fenlog_save(const char* path);
/// Names the file in which the ring is saved when the process stops at a level-0 line; NULL: nowhere. Unless this has
/// been called, the environment variable FENLOG_FILE names it. EINVAL for a name that is too long, else 0.
KVT_EXPORT int fenlog_set_file(const char* path);
/// Stops the process after a level-0 trace line.
#if defined(__GNUC__)
__attribute__((noreturn))
#endif
KVT_EXPORT void
kvt_fatal(void);

#ifdef __cplusplus
}
#endif
#endif
