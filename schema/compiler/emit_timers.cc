// The timers of a module: the operations of a timer field, the queue, and the tables that lead to a callback.
#include <iterator>

#include "schema/compiler/emit_families.h"

namespace zarnc {
namespace {

#define QUEUE "kvt_handle *handle, uint32_t txn, void *queue"
#define SET \
  QUEUE     \
  ", void *object, int32_t sec, int32_t usec, int32_t interval_sec, int32_t interval_usec, int32_t *next, int *err"
#define CALLBACK "kvt_handle *handle, void *queue, void *owner, int32_t *deleted, int32_t *to_abort, int *err"

constexpr Operation kTimerField[] = {
    {"timer_set", "void", SET,
     "Arms the timer, which must not run, in that time from now and then, unless both words of the interval are 0, "
     "each time so long after its callback. `next` (two words, may be NULL) gets seconds and microseconds of the time "
     "of the queue's first timer; -1 seconds, and no microseconds, in an empty one. Sticky err. E2BIG: later than the "
     "clock's 2^31 - 1 seconds; EINVAL: NULL, or object and queue are of two stores: both leave everything as it is. "
     "ENOMEM.",
     "kvt::timer_set($(timer), handle, txn, queue, object, {sec, usec}, {interval_sec, interval_usec}, next, err);"},
    {"timer_stop", "void", QUEUE ", void *object, int32_t *next, int *err",
     "Stops the timer, which must run; the interval stays. Sticky err. EINVAL as above.",
     "kvt::timer_stop($(timer), handle, txn, queue, object, next, err);"},
    {"timer_safe_set", "void", SET,
     "As $(type)_$(field)_timer_set, for a timer that may run: that is stopped first, also where the set then fails.",
     "kvt::timer_safe_set($(timer), handle, txn, queue, object, {sec, usec}, {interval_sec, interval_usec}, next, "
     "err);"},
    {"timer_safe_stop", "void", QUEUE ", void *object, int32_t *next, int *err",
     "Stops the timer if it runs; else nothing happens, and `next` stays as it is. Sticky err.",
     "kvt::timer_safe_stop($(timer), handle, txn, queue, object, next, err);"},
    {"is_timer_running", "uint32_t", QUEUE ", void *object", "1 if the queue holds the object's timer, else 0.",
     "return kvt::timer_is_running($(timer), handle, txn, queue, object);"},
    {"timer_dump", "void", QUEUE ", int *err",
     "Traces every timer of the queue, of whatever objects, at debug level. Sticky err. EINVAL for NULL.",
     "kvt::timer_dump($(timer), handle, txn, queue, err);"},
    {"timer_callback_unsafe", "int32_t", CALLBACK,
     "What the dispatcher calls: hands the expiry to $(type)_$(field)_timer_callback. Without one it clears `err`, "
     "leaves a notice in the trace and gives 0.",
     "return kvt::timer_expire($(timer), kvt::application_handler($(type)_$(field)_timer_callback, "
     "\"$(type)_$(field)_timer_callback\"), handle, queue, owner, deleted, to_abort, err);"},
};
const Family kTimerFieldFamily{std::begin(kTimerField), std::end(kTimerField)};

constexpr Operation kQueue[] = {
    {"timer_queue_init", "void *", "kvt_handle *handle, uint32_t txn, int *err",
     "The database's queue of timers, which is made on the first call; see kvt_timer_queue. In a database the caller "
     "holds the write lock for that. NULL: ENOMEM.",
     "return kvt::timer_queue_init(kvt::@schema@::k_timers, handle, txn, err);"},
    {"timer_dispatch", "uint32_t",
     "kvt_handle *handle, uint32_t txn, void *queue, int32_t *to_abort, int32_t *next, int *err",
     "Takes at most one timer that is due, and calls its callback on this thread: 1, and the caller calls again. 0: "
     "nothing is due, and `next` (two words, may be NULL) has seconds and microseconds of the time to call again; -1 "
     "seconds, and no microseconds, when no timer is armed. `to_abort` is handed to the callback. The caller holds the "
     "write lock. A callback may arm and stop timers, its own too, and destroy their owners. Sticky err, in which a "
     "callback may leave its error, with 1. ENOENT: the owner is of no type with a timer; EINVAL: NULL; EPERM: no "
     "write "
     "lock; ENOMEM.",
     "return kvt::timer_dispatch(kvt::@schema@::k_timers, handle, txn, queue, to_abort, next, err);"},
};
const Family kQueueFamily{std::begin(kQueue), std::end(kQueue)};

Holes timer_holes(const Struct& type, const Field& f) {
  return {{"type", type.name},
          {"field", f.name},
          {"callback", CALLBACK},
          {"timer", "kvt::@schema@::" + type.name + "::kDesc, " + std::to_string(&f - type.fields.data())}};
}

}  // namespace

std::vector<TimerField> timer_fields(const Module& module) {
  std::vector<TimerField> found;
  for (const Struct* type : module.structs) {
    for (const Field& f : type->fields) {
      if (f.kind == Kind::kTimer) found.push_back({type, &f});
    }
  }
  return found;
}

std::string queue_name(const Module& module) {
  const std::size_t prefix = module.name.find('_');
  return module.name.substr(prefix == std::string::npos ? 0 : prefix + 1);
}

std::string declare_timer(const Struct& type, const Field& field) {
  const Holes holes = timer_holes(type, field);
  return declare(kTimerFieldFamily, type.name + "_" + field.name, holes) +
         fill(
             "/// The application's handler of the expiry: defined by a program, or by a library that it loads for all "
             "(RTLD_GLOBAL),\n"
             "/// and looked for at each expiry. See kvt_timer_callback.\n"
             "KVT_EXPORT int32_t $(type)_$(field)_timer_callback($(callback));\n",
             holes);
}

std::string declare_timers(const Module& module) {
  const std::vector<TimerField> timers = timer_fields(module);
  if (timers.empty()) return "";
  std::string out = "\n" + declare(kQueueFamily, queue_name(module), {});
  out += fill(
      R"--(/// The place of a type in $(m)_timer_callback_table, by the 16 bytes of its identity; -1 for a type without timer.
KVT_EXPORT int32_t $(m)_timer_type_mrst_lookup(const void *luid);
/// The callbacks of each type with a timer, by callback_index; NULL behind the last.
KVT_EXPORT extern const kvt_timer_callback *const $(m)_timer_callback_table[$(count)];
)--",
      {{"m", module.name}, {"count", std::to_string(timers.size() + 1)}});
  for (const TimerField& timer : timers) {
    out += "KVT_EXPORT extern const kvt_timer_callback " + timer.type->name + "_timer_callback_table[2];\n";
  }
  return out;
}

void emit_timers(Output& out) {
  std::string& source = out.source("timers.cc");
  source = top_comment(out, "Timers.");
  const Module& module = out.module;
  const std::vector<TimerField> timers = timer_fields(module);
  if (timers.empty()) return;
  std::string handlers, tables, list, types, operations;
  for (const auto& [type, field] : timers) {
    const Holes holes = timer_holes(*type, *field);
    handlers += fill("[[gnu::weak]] int32_t $(type)_$(field)_timer_callback($(callback));\n", holes);
    tables += fill(
        "const kvt_timer_callback $(type)_timer_callback_table[2] = {$(type)_$(field)_timer_callback_unsafe, "
        "nullptr};\n",
        holes);
    list += type->name + "_timer_callback_table, ";
    types += "&" + record_symbol(type->name) + ", ";
    operations += define(kTimerFieldFamily, type->name + "_" + field->name, holes);
  }
  source += fill(R"--(#include "$(m)_schema.h"

#include "$(m)_module.h"
#include "timers/object_timer.h"
#include "timers/timer_queue.h"

// What an application may define.
extern "C" {
$(handlers)}

$(tables)const kvt_timer_callback *const $(m)_timer_callback_table[$(count)] = {$(list)nullptr};

namespace kvt {
namespace @schema@ {
namespace {
constexpr const kvt_type_record *kTimerTypes[] = {$(types)nullptr};
constexpr TimerModule k_timers = {"$(queue)", "_kvt_TIMER_QUEUE_$(queue)",
                                  {&k_timer_messages, 0, &g_kvt_$(m)_trace_module_id},
                                  kTimerTypes, $(m)_timer_callback_table};
}  // namespace
}  // namespace @schema@
}  // namespace kvt

int32_t $(m)_timer_type_mrst_lookup(const void *luid) { return kvt::timer_type_of(kvt::@schema@::k_timers, luid); }
)--",
                 {{"m", module.name},
                  {"queue", queue_name(module)},
                  {"handlers", handlers},
                  {"tables", tables},
                  {"list", list},
                  {"types", types},
                  {"count", std::to_string(timers.size() + 1)}}) +
            define(kQueueFamily, queue_name(module), {}) + operations;
}

}  // namespace zarnc
