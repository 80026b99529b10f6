// The reading side of a table: find, first, last, step, walk. `key` is the index's number in the table.
#pragma once

#include "zarn_wlan/src/table_layout.h"

namespace kvt {

struct SearchOptions {
  bool nearest = false;  // a neighbour of any key will do
  bool forward = true;   // towards higher keys
  std::uint32_t source = kOrdinarySource;
  std::uint32_t neighbour_source = 0;
  bool skip_pending = false;
  bool same_key = false;  // another source of the same key will do
};

void* key_search(const TableDesc& type, unsigned key, kvt_handle* h, std::uint32_t txn, void* table, const void* value,
                 const SearchOptions& options, int* err);
void* key_search_cr(const TableDesc& type, unsigned key, kvt_handle* h, void* table, const void* value,
                    std::uint32_t source, std::uint32_t flags);
// The general step.
void* key_step(const TableDesc& type, unsigned key, bool forward, kvt_handle* h, std::uint32_t txn, void* table,
               void* record, std::uint32_t source, bool source_filter, bool skip_pending, bool same_key, int* err);
// The ordinary source only, of the caller's tenant.
void* key_next(const TableDesc& type, unsigned key, bool forward, kvt_handle* h, std::uint32_t txn, void* table,
               void* record, int* err);
void* key_edge(const TableDesc& type, unsigned key, bool first, kvt_handle* h, std::uint32_t txn, void* table,
               int* err);
void* key_next_by_key(const TableDesc& type, unsigned key, bool forward, kvt_handle* h, std::uint32_t txn, void* table,
                      const void* value, int* err);
void* key_sub_next(const TableDesc& type, unsigned key, kvt_handle* h, std::uint32_t txn, void* table, void* record,
                   int* err);
// The key's value in a key holder; null for a null holder.
inline const void* key_in_holder(const TableDesc& type, const void* holder) {
  return holder ? at_offset(holder, type.keys[0].offset) : nullptr;
}

struct Walker {
  int (*function)(void* record, void* argument);
  void* argument;
};
int walk_node(unsigned key, void* node, void* walker);
void key_walk(void* table, unsigned key, e_avl_function on_node, int (*function)(void*, void*), void* argument,
              int* err);
void record_walk_cr(const TableDesc& type, const e_avl_function* on_node, kvt_handle* h, void* table, std::uint32_t key,
                    int (*function)(void*, void*), void* argument);

}  // namespace kvt
