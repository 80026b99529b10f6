// Events of a table's records on their way to the application's handlers.
#pragma once

#include "frame/descriptor.h"
#include "kvt/events.h"

namespace kvt {

std::int32_t record_event(const TableDesc& type, RecordEvent event, kvt_handle* h, std::uint32_t txn, void* first,
                          void* second, int* err);
// `event` is the data-model form of create or delete.
std::int32_t record_event_dm(const TableDesc& type, RecordEvent event, kvt_handle* h, std::uint32_t txn, void* object,
                             int* err);
std::int32_t record_event_grouping(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* object, int* err,
                                   std::uintptr_t first, std::uintptr_t second, std::uintptr_t third,
                                   std::uintptr_t fourth);
std::int32_t record_event_free(const TableDesc& type, kvt_handle* h, std::uint32_t txn, std::uintptr_t first,
                               std::uintptr_t second, int* err, std::uintptr_t third);

// What the runtime asks of a table, see kvt_record_events.
bool events_heard(const TableDesc& type);
void event_raise(const TableDesc& type, kvt_handle* h, std::uint32_t txn, std::uint32_t kind, void* table, void* record,
                 int* err);
std::uint32_t record_key(const TableDesc& type, kvt_handle* h, const void* payload, std::uint8_t* buffer,
                         std::uint32_t room);

}  // namespace kvt
