// Records: the row block, its references, its payload, its end.
#pragma once

#include "zarn_wlan/src/table_layout.h"

namespace kvt {

void* record_create(const TableDesc& type, kvt_handle* h, std::uint32_t txn, std::uint32_t source, int* err);
void* record_create_cr(const TableDesc& type, kvt_handle* h, std::uint32_t with_payload);
std::uint32_t record_add_ref(kvt_handle* h, std::uint32_t txn, void* record, int* err);
std::uint32_t record_destroy(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* record, int* err);
// Asks the runtime to destroy the record when nobody needs to see it go any more; `destroy` is what it calls then.
void record_request_destroy(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* table, void* record,
                            kvt_record_destroy destroy, int* err);

void* record_get_field(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* record);
void* record_detach_field(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* record);
void record_set_field(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* record, void* object);
void record_replace_field(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* record, void* object);

}  // namespace kvt
