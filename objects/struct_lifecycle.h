// How a struct object comes to be, how big it is, and how it goes.
#pragma once

#include "frame/call_frame.h"

namespace kvt {

void* struct_create(const StructDesc& type, kvt_handle* h, std::uint32_t txn);
void* struct_create_internal(const StructDesc& type, kvt_handle* h, std::uint32_t txn);
void* struct_create_cr(const StructDesc& type, kvt_handle* h);
// Sets up header and fields. The order of stores matters to a reader in another process: type link, flags, statistics.
void struct_initialize(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object,
                       const kvt_type_record* record, int announce, int no_stats, int flags, void* sttr_base, int* err);
void struct_destroy(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object);
void struct_destroy_internal(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, int free_it);
std::uint32_t struct_sizeof(const StructDesc& type, kvt_handle* h);
std::uint32_t struct_sizeof_internal(const StructDesc& type, kvt_handle* h, const void* object, int with_block,
                                     int block_only);
void struct_set_embedded(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object);

}  // namespace kvt
