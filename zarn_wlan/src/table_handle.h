// How a caller gets hold of a table, and how a new one is entered in the database's contents.
#pragma once

#include "zarn_wlan/src/table_layout.h"

namespace kvt {

void* table_open(const TableDesc& type, kvt_handle* h, std::uint32_t txn, const char* name, std::uint32_t open_type,
                 int* err);
void table_close(kvt_handle* h, int* err);
std::uint32_t table_count(kvt_handle* h, std::uint32_t txn, void* table);
std::uint32_t table_count_by_source(kvt_handle* h, std::uint32_t txn, void* table, std::uint32_t source);

}  // namespace kvt
