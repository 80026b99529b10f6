// Enters a record into the trees of its table and takes it out again, with all counters.
#pragma once

#include "zarn_wlan/src/table_layout.h"

namespace kvt {

void record_insert(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* table, void* record,
                   bool primary_only, int* err);
void record_remove(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* table, void* record,
                   bool primary_only, int* err);

// Whether an index of any table holds the record's node; such a block must not be freed.
bool record_in_a_tree(const TableDesc& type, void* record);

}  // namespace kvt
