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
// Which records a view shows, of the caller's tenant.
struct View {
  std::uint32_t source = kOrdinarySource;
  bool source_filter = true;  // without it: source 0 shows all but shadow records, any other shows all
  bool skip_pending = false;

  bool shows(const RecordBlock& record) const {
    const bool here = source_filter ? record.source == source : source != 0 || record.source != kShadowSource;
    return here & !(skip_pending && (record.record_flags & kRecordPending));
  }
};
constexpr View kOrdinaryView{};
constexpr View kWholeView{1, false, false};

// The general step; `same_key` ends it where the key ends.
void* key_step_over(const TableDesc& type, unsigned key, bool forward, kvt_handle* h, std::uint32_t txn, void* table,
                    void* record, const View& view, bool same_key, int* err);
// The same. In line is nearly every step of a walk: from a record of the table to the next one, which is shown.
inline void* key_step(const TableDesc& type, unsigned key, bool forward, kvt_handle* h, std::uint32_t txn, void* table,
                      void* record, const View& view, bool same_key, int* err) {
  // Few branches, which leaves the processor more room to learn the shape of the tree.
  const auto* node = static_cast<const AvlNode*>(node_of(record, key));
  if (!*err && !same_key && (node->word != 0) & (record_of(record)->table == cage_ref(table)) & (h->containment == 0)) {
    kvt_clear_last_error(h);
    void* near = record_at_node(avl_neighbour(node, forward), key);
    if (!near) return nullptr;
    const bool own = record_of(near)->tenant_id == thread_tenant;
    if (own & view.shows(*record_of(near))) return near;
    if (!own) return nullptr;
  }
  return key_step_over(type, key, forward, h, txn, table, record, view, same_key, err);
}
void* key_edge(const TableDesc& type, unsigned key, bool first, kvt_handle* h, std::uint32_t txn, void* table,
               const View& view, int err);
// The record beside a key that need not exist: a step by `view` from the key's own record, or the nearest record of
// `neighbour_source`.
struct ByKey {
  bool forward = true;
  std::uint32_t source = kOrdinarySource;
  std::uint32_t neighbour_source = kOrdinarySource;
  View view;
};
void* key_beside(const TableDesc& type, unsigned key, kvt_handle* h, std::uint32_t txn, void* table, const void* value,
                 const ByKey& by, int* err);
void* key_shadow(const TableDesc& type, unsigned key, kvt_handle* h, std::uint32_t txn, void* table, void* record,
                 int* err);
void* key_get_cr(const TableDesc& type, unsigned key, kvt_handle* h, void* table, std::uint32_t flag, void* record,
                 std::uint32_t source, std::uint32_t options);
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
