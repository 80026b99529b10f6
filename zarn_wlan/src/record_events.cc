// Handlers are found in two ways. One that was there when the library was loaded is bound by the loader. One that came
// later has to be looked for by name, and is looked for again when the process has loaded or unloaded something since.
#include "zarn_wlan/src/record_events.h"

#include <dlfcn.h>

#include <mutex>

#include "frame/call_frame.h"

namespace kvt {
namespace {

std::mutex late_mutex;  // guards the LateHandlers of all tables

AnyHandler handler_of(const TableDesc& type, RecordEvent event) {
  if (type.handlers[event].linked) return type.handlers[event].linked;
  const std::uint64_t loaded = kvt_objects_loaded();
  std::lock_guard lock(late_mutex);
  LateHandlers& late = *type.late_handlers;
  if (late.loaded != loaded) {
    late.loaded = loaded;
    for (unsigned i = 0; i < kRecordEvents; ++i)
      late.found[i] = reinterpret_cast<AnyHandler>(dlsym(RTLD_DEFAULT, type.handlers[i].name));
  }
  return late.found[event];
}

// The handler is called with all arguments; without one the default line is told.
template <class... Arguments>
std::int32_t pass_on(const TableDesc& type, RecordEvent event, kvt_handle* h, int* err, Arguments... arguments) {
  if (*err) return *err;
  kvt_clear_last_error(h);
  if (const AnyHandler handler = handler_of(type, event))
    return reinterpret_cast<std::int32_t (*)(Arguments...)>(handler)(arguments...);
  *err = 0;
  trace(type.trace, kTableMessages, static_cast<MessagePlace>(unsigned{kMsgEventCreate} + event));
  return 0;
}

}  // namespace

std::int32_t record_event(const TableDesc& type, RecordEvent event, kvt_handle* h, std::uint32_t txn, void* first,
                          void* second, int* err) {
  return pass_on(type, event, h, err, h, txn, first, second, err);
}

std::int32_t record_event_dm(const TableDesc& type, RecordEvent event, kvt_handle* h, std::uint32_t txn, void* object,
                             int* err) {
  const bool own = handler_of(type, event);
  const std::int32_t result = pass_on(type, event, h, err, h, txn, object, err);
  if (own || *err) return result;
  return record_event(type, event == kEventCreateDm ? kEventCreate : kEventDelete, h, txn, nullptr, object, err);
}

std::int32_t record_event_grouping(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* object, int* err,
                                   std::uintptr_t first, std::uintptr_t second, std::uintptr_t third,
                                   std::uintptr_t fourth) {
  return pass_on(type, kEventGrouping, h, err, h, txn, object, err, first, second, third, fourth);
}

std::int32_t record_event_free(const TableDesc& type, kvt_handle* h, std::uint32_t txn, std::uintptr_t first,
                               std::uintptr_t second, int* err, std::uintptr_t third) {
  return pass_on(type, kEventFree, h, err, h, txn, first, second, err, third);
}

bool events_heard(const TableDesc& type) {
  for (unsigned i = 0; i < kRecordEvents; ++i) {
    if (handler_of(type, static_cast<RecordEvent>(i))) return true;
  }
  return false;
}

void event_raise(const TableDesc& type, kvt_handle* h, std::uint32_t txn, std::uint32_t kind, void* table, void* record,
                 int* err) {
  if (kind == KVT_RECORD_MODIFIED) {
    record_event(type, kEventModify, h, txn, table, record, err);
    return;
  }
  const bool created = kind == KVT_RECORD_CREATED;
  const RecordEvent dm = created ? kEventCreateDm : kEventDeleteDm;
  if (handler_of(type, dm)) {
    record_event_dm(type, dm, h, txn, record, err);
  } else {
    record_event(type, created ? kEventCreate : kEventDelete, h, txn, table, record, err);
  }
}

std::uint32_t record_key(const TableDesc& type, kvt_handle* h, const void* payload, std::uint8_t* buffer,
                         std::uint32_t room) {
  const void* field = at_offset(payload, type.primary.offset);
  const std::uint32_t length = type.primary.len(h, KVT_NO_TXN, field);
  int err = 0;
  if (length <= room) type.primary.marshal(h, KVT_NO_TXN, buffer, field, static_cast<std::int32_t>(room), &err);
  return length;
}

}  // namespace kvt
