#include "zarn_wlan/src/lookup.h"

#include <cstring>

namespace kvt {
namespace {

constexpr std::uint32_t kSearchNearest = 1, kSearchPending = 2, kSearchSameKey = 4;
constexpr std::uint32_t kGetAnySource = 1, kGetPending = 2;
// More than there can be records: the tree is changed under the steps, over and over.
constexpr std::uint32_t kMostSteps = kSlotSize / kNodeSize;

// A record that no table holds, with a payload that has nothing but the key: what the tree's compare asks of a node. It
// lies in the cage, and is wholly zero at each use.
class Probe {
 public:
  Probe(const TableDesc& type, unsigned key, const void* value, std::uint8_t source)
      : size_(round8(type.record_size) + type.payload.plain), block_(kvt_probe_push(size_)) {
    if (!block_) return;
    void* payload = at_offset(block_, round8(type.record_size));
    RecordBlock* record = record_of(block_);
    record->source = source;
    record->tenant_id = thread_tenant;
    *payload_slot(type, block_) = cage_ref(payload);
    std::memcpy(at_offset(payload, type.keys[key].offset), value, type.keys[key].size);
    store(at_offset(node_of(block_, key), kNodeWord), type.keys[key].word(record->tenant_id, payload));
  }
  ~Probe() {
    if (block_) kvt_probe_pop(block_, size_);
  }
  Probe(const Probe&) = delete;
  Probe& operator=(const Probe&) = delete;
  void* record() const { return block_; }

 private:
  static std::uint32_t round8(std::uint32_t n) { return (n + 7) & ~7u; }
  std::uint32_t size_;
  void* block_;
};

// The root's node; 0 where a writer at work left no such thing.
std::uint32_t tree_root(void* table, unsigned key) {
  const std::uint32_t root = *index_root(table, key);
  return Reach(table).has(root) ? root : 0;
}

// The record beside another one, which may have left the table, or be a probe.
void* neighbour(const TableDesc& type, unsigned key, bool forward, void* table, void* record) {
  void* node = node_of(record, key);
  const bool in_tree = load<std::uint32_t>(at_offset(node, kNodeWord)) && record_of(record)->table == cage_ref(table);
  if (in_tree) return record_at_node(avl_neighbour(static_cast<AvlNode*>(node), forward), key);
  const std::uint32_t root = tree_root(table, key);
  const e_avl_compare compare = type.keys[key].compare;
  return record_at_node(forward ? e_avl_get_next(root, node, compare) : e_avl_get_prev(root, node, compare), key);
}

bool same_key_as(const TableDesc& type, unsigned key, void* a, void* b) {
  return type.keys[key].same(node_of(a, key), node_of(b, key));
}

}  // namespace

void* key_step_over(const TableDesc& type, unsigned key, bool forward, kvt_handle* h, std::uint32_t txn, void* table,
                    void* record, const View& view, bool same_key, int* err) {
  if (*err) return nullptr;
  kvt_clear_last_error(h);
  const std::uint16_t tenant = thread_tenant;
  void* at = record;
  std::uint32_t left = kMostSteps;
  do {
    at = left-- ? neighbour(type, key, forward, table, at) : nullptr;
    if (!at) break;
    if (record_of(at)->tenant_id != tenant) return nullptr;
    if (same_key && !same_key_as(type, key, record, at)) return nullptr;
  } while (!view.shows(*record_of(at)));
  report_contained(h, txn, kContainRecord, at, table);
  return at;
}

void* key_search(const TableDesc& type, unsigned key, kvt_handle* h, std::uint32_t txn, void* table, const void* value,
                 const SearchOptions& options, int* err) {
  if (*err) return nullptr;
  kvt_clear_last_error(h);
  if (!table || !value) {
    fail(h, kEnoent, err);
    return nullptr;
  }
  const std::uint32_t source = options.source ? options.source : kOrdinarySource;
  const std::uint16_t tenant = thread_tenant;
  void* found = record_at_node(
      type.keys[key].find(index_root(table, key), value, tenant, static_cast<std::uint8_t>(source)), key);
  // A source that no record can have matches none, though its low byte was looked for.
  if (found && source > kShadowSource) found = nullptr;
  if (found && options.skip_pending && (record_of(found)->record_flags & kRecordPending)) found = nullptr;
  if (!found && (options.nearest || options.same_key)) {
    const Probe probe(type, key, value, static_cast<std::uint8_t>(source));
    if (!probe.record()) {
      fail(h, kEnomem, err);
      return nullptr;
    }
    const View view{options.neighbour_source, options.neighbour_source != 0, options.skip_pending};
    found = key_step_over(type, key, options.forward, h, txn, table, probe.record(), view,
                          options.same_key && !options.nearest, err);
  }
  report_contained(h, txn, kContainRecord, found, table);
  return found;
}

void* key_search_cr(const TableDesc& type, unsigned key, kvt_handle* h, void* table, const void* value,
                    std::uint32_t source, std::uint32_t flags) {
  SearchOptions options;
  options.nearest = flags & kSearchNearest;
  options.skip_pending = !(flags & kSearchPending);
  options.same_key = flags & kSearchSameKey;
  if (!source && !options.same_key) source = kOrdinarySource;
  options.source = options.neighbour_source = source;
  void* found = key_search(type, key, h, h->default_txn, table, value, options, &h->last_error);
  return h->last_error ? nullptr : found;
}

void* key_edge(const TableDesc& type, unsigned key, bool first, kvt_handle* h, std::uint32_t txn, void* table,
               const View& view, int err) {
  if (err) return nullptr;
  kvt_clear_last_error(h);
  const std::uint16_t tenant = thread_tenant;
  // The tenant's run begins where a descent by tenant alone ends; what stands before it need not be passed one by one.
  const Reach reach(table);
  const std::uint32_t root = *index_root(table, key);
  AvlNode* edge = avl_outermost(reach, root, !first);
  if (edge && tenant_at_node(edge, key) != tenant) {
    edge = nullptr;
    std::uint32_t link = root;
    for (int level = 0; level < kAvlMaxHeight && avl_leads_down(reach, link); ++level) {
      AvlNode* node = avl_at_child(link);
      const std::uint16_t own = tenant_at_node(node, key);
      const bool within = first ? own >= tenant : own <= tenant;
      if (within) edge = node;
      link = node->link[within != first];
    }
  }
  void* at = record_at_node(edge, key);
  for (std::uint32_t left = kMostSteps; at && record_of(at)->tenant_id == tenant && !view.shows(*record_of(at));) {
    at = left-- ? neighbour(type, key, first, table, at) : nullptr;
  }
  if (at && record_of(at)->tenant_id != tenant) at = nullptr;
  report_contained(h, txn, kContainRecord, at, table);
  return at;
}

void* key_beside(const TableDesc& type, unsigned key, kvt_handle* h, std::uint32_t txn, void* table, const void* value,
                 const ByKey& by, int* err) {
  SearchOptions options;
  options.forward = by.forward;
  options.source = by.source;
  options.skip_pending = by.view.skip_pending;
  void* found = key_search(type, key, h, txn, table, value, options, err);
  if (*err) return nullptr;
  if (found) return key_step(type, key, by.forward, h, txn, table, found, by.view, false, err);
  options.nearest = true;
  options.neighbour_source = by.neighbour_source;
  return key_search(type, key, h, txn, table, value, options, err);
}

void* key_sub_next(const TableDesc& type, unsigned key, kvt_handle* h, std::uint32_t txn, void* table, void* record,
                   int* err) {
  if (*err) return nullptr;
  kvt_clear_last_error(h);
  void* next = neighbour(type, key, true, table, record);
  if (next && !same_key_as(type, key, record, next)) next = nullptr;
  report_contained(h, txn, kContainRecord, next, table);
  return next;
}

void* key_shadow(const TableDesc& type, unsigned key, kvt_handle* h, std::uint32_t txn, void* table, void* record,
                 int* err) {
  if (!record || record_of(record)->source == kShadowSource) return record;
  std::uint32_t left = kMostSteps;
  do {
    record = left-- ? key_sub_next(type, key, h, txn, table, record, err) : nullptr;
  } while (record && record_of(record)->source != kShadowSource);
  return record;
}

void* key_get_cr(const TableDesc& type, unsigned key, kvt_handle* h, void* table, std::uint32_t flag, void* record,
                 std::uint32_t source, std::uint32_t options) {
  const View view{source ? source : kOrdinarySource, !(options & kGetAnySource), !(options & kGetPending)};
  switch (flag) {
    case 0:
    case 1:
      return key_edge(type, key, flag == 0, h, h->default_txn, table, view, h->last_error);
    case 2:
    case 3:
      return key_step(type, key, flag == 3, h, h->default_txn, table, record, view, false, &h->last_error);
    default:
      trace(type.trace, kTableMessages, kMsgGetFlagInvalid, static_cast<std::int32_t>(flag));
      kvt_store_err(h, kEinval);
      return nullptr;
  }
}

int walk_node(unsigned key, void* node, void* walker) {
  const auto* w = static_cast<const Walker*>(walker);
  return w->function(record_at_node(node, key), w->argument);
}

void key_walk(void* table, unsigned key, e_avl_function on_node, int (*function)(void*, void*), void* argument,
              int* err) {
  if (*err) return;
  Walker walker{function, argument};
  e_avl_walk(tree_root(table, key), on_node, &walker);
}

void record_walk_cr(const TableDesc& type, const e_avl_function* on_node, kvt_handle* h, void* table, std::uint32_t key,
                    int (*function)(void*, void*), void* argument) {
  if (key >= type.key_count) {
    trace(type.trace, kTableMessages, kMsgWalkUnknownKey, static_cast<std::int32_t>(key));
    return;
  }
  key_walk(table, key, on_node[key], function, argument, &h->last_error);
}

}  // namespace kvt
