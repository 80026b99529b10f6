// The operations of a timer field. `field` is the timer's place in the type's field table.
#pragma once

#include "frame/descriptor.h"
#include "frame/handlers.h"

namespace kvt {

void timer_set(const StructDesc& type, std::uint32_t field, kvt_handle* h, std::uint32_t txn, void* queue, void* object,
               kvt_time after, kvt_time interval, std::int32_t* next, int* err);
void timer_stop(const StructDesc& type, std::uint32_t field, kvt_handle* h, std::uint32_t txn, void* queue,
                void* object, std::int32_t* next, int* err);
void timer_safe_set(const StructDesc& type, std::uint32_t field, kvt_handle* h, std::uint32_t txn, void* queue,
                    void* object, kvt_time after, kvt_time interval, std::int32_t* next, int* err);
void timer_safe_stop(const StructDesc& type, std::uint32_t field, kvt_handle* h, std::uint32_t txn, void* queue,
                     void* object, std::int32_t* next, int* err);
bool timer_is_running(const StructDesc& type, std::uint32_t field, kvt_handle* h, std::uint32_t txn, void* queue,
                      void* object);
void timer_dump(const StructDesc& type, std::uint32_t field, kvt_handle* h, std::uint32_t txn, void* queue, int* err);
// `handler` is the application's, null for none.
std::int32_t timer_expire(const StructDesc& type, std::uint32_t field, kvt_timer_callback handler, kvt_handle* h,
                          void* queue, void* owner, std::int32_t* deleted, std::int32_t* to_abort, int* err);

}  // namespace kvt
