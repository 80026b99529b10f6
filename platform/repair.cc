// Whatever can be computed from records is made anew: trees, counts, lists of free memory, lists of tables. A text that
// is lost leaves its field empty; a record whose objects are not right is left out, and its memory stays where it is.
#include "platform/repair.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <new>

#include "platform/avl_node.h"
#include "platform/heap_format.h"
#include "platform/oid.h"
#include "platform/store_blocks.h"

namespace kvt {
namespace {

class Repair {
 public:
  Repair(Store& store, const Checker& found, kvt_care_line line, void* argument)
      : store_(store), found_(found), line_(line), argument_(argument) {}

  int run() {
    if (!found_.chunks_are_sound()) return EIO;
    if (!found_.heap_is_sound()) relink_heap();
    for (const std::uint32_t field : found_.lost_texts()) {
      put(static_cast<std::uint64_t*>(cage_at(field)), std::uint64_t{0});
      say("text at %08x: given up", field);
    }
    for (const std::uint32_t root : found_.lost_timers()) {
      put(root ? static_cast<std::uint32_t*>(cage_at(root)) : &store_.roots()->timer_trees, 0u);
      say("timers: those of the tree at %08x given up", root);
    }
    if (!found_.limbo_is_sound()) {
      put(&store_.roots()->limbo, 0u);
      say("%s: given up; what it held stays unused", "limbo");
    }
    if (!found_.due_is_sound()) {
      put(&store_.roots()->oids_due, 0u);
      for (const std::uint32_t at : found_.due()) {
        put(&static_cast<OidEntry*>(cage_at(at))->next_due, store_.roots()->oids_due);
        put(&store_.roots()->oids_due, at);
      }
      say("objects to destroy: %zu put into the list anew", found_.due().size());
    }
    relink_tables();
    std::uint64_t pending = 0;
    for (const CheckedTable& table : found_.tables()) {
      if (table.shape && !table.sound) {
        if (const int error = rebuild(table)) return error;
      }
      pending += object_of(table)->pending_destroy_count;
    }
    put(&store_.roots()->stats.pending_destroy, pending);
    for (const auto& [entry, count] : found_.uncounted()) {
      put(&static_cast<OidEntry*>(cage_at(entry))->references, count);
    }
    return 0;
  }

 private:
  static TableObject* object_of(const CheckedTable& table) { return static_cast<TableObject*>(cage_at(table.at)); }
  static RecordBlock* record_of(std::uint32_t at) { return static_cast<RecordBlock*>(cage_at(at)); }
  template <class T>
  void put(T* at, T value) {
    if (load<T>(at) == value) return;
    store_.announce_range(at, sizeof value, store_.open_txn());
    store(at, value);
  }
  template <class... Arguments>
  void say(const char* format, Arguments... arguments) {
    char words[320];
    std::snprintf(words, sizeof words, format, arguments...);
    if (line_) line_(argument_, words);
  }

  void relink_heap() {
    const auto& chunks = found_.free_chunks();
    const std::uint32_t end = store_.roots()->heap.end - kChunkHeader;
    std::uint32_t top = 0;
    for (const auto& chunk : chunks) {
      if (chunk[0] + chunk[1] == end) top = chunk[0];
    }
    store_.database()->heap().relink(chunks.data(), chunks.size(), top);
    HeapCard* cards = store_.database()->heap().cards();
    for (std::size_t i = 0; i < found_.cards().size(); ++i) put(&cards[i], found_.cards()[i]);
    say("heap: %zu free chunks put into lists anew", chunks.size());
  }

  // The list of tables, and the entries of the contents that lead to tables.
  void relink_tables() {
    StoreRoots* roots = store_.roots();
    std::uint32_t* link = &roots->tables.first;
    for (const CheckedTable& table : found_.tables()) {
      put(link, table.at);
      put(&object_of(table)->toc_prev, cage_ref(link));
      link = &object_of(table)->toc_next;
    }
    put(link, 0u);
    put(&roots->tables.last_link, cage_ref(link));
    if (found_.contents_are_sound()) return;
    std::uint32_t before = 0;
    for (const CheckedTable& table : found_.tables()) {
      void* room = store_.alloc(store_.open_txn(), sizeof(TocEntry));
      if (!room) return;
      before = cage_ref(new (room) TocEntry{before, table.at});
    }
    put(&roots->contents_entries, before);
    say("contents: made anew for %zu tables", found_.tables().size());
  }

  int rebuild(const CheckedTable& table) {
    const kvt_shape& shape = *table.shape;
    TableObject* object = object_of(table);
    for (unsigned key = 0; key < shape.key_count; ++key) {
      put(root_of(object, key), 0u);
      put(root_of(object, key) + 1, 0u);
    }
    std::uint32_t count = 0, shadows = 0, pending = 0;
    put(&object->counters, 0u);
    for (std::uint32_t at : table.records) {
      RecordBlock* record = record_of(at);
      put(&record->table, table.at);
      put(&record->record_flags, record->record_flags | kRecordInserted);
      if (!(record->ref_count & kRefCountMask)) put(&record->ref_count, 1u);
      const unsigned keys = record->record_flags & kRecordPrimaryOnly ? 1 : shape.key_count;
      unsigned in = 0;
      while (in < keys && insert(shape, object, record, in)) ++in;
      if (in < keys) {
        say("%s: record %08x left out, another one has its %s", table.name.c_str(), at, shape.keys[in].name);
        while (in) remove(shape, object, record, --in);
        put(&record->table, 0u);
        continue;
      }
      ++count;
      shadows += record->source == kShadowSource;
      pending += (record->record_flags & kRecordPending) != 0;
      if (record->tenant_id && !count_tenant(object, record)) return ENOMEM;
    }
    for (std::uint32_t at : table.damaged) {
      put(&record_of(at)->table, 0u);
      say("%s: record %08x left out, it is not whole", table.name.c_str(), at);
    }
    put(&object->record_count, count);
    put(&object->shadow_count, shadows);
    put(&object->pending_destroy_count, pending);
    say("%s: indexes made anew from %u records", table.name.c_str(), count);
    return 0;
  }

  static std::uint32_t* root_of(TableObject* object, unsigned key) {
    return reinterpret_cast<std::uint32_t*>(reinterpret_cast<char*>(object + 1) + 8 * key);
  }
  static AvlNode* node_of(RecordBlock* record, unsigned key) {
    return reinterpret_cast<AvlNode*>(reinterpret_cast<char*>(record + 1) + kNodeSize * key);
  }
  bool insert(const kvt_shape& shape, TableObject* object, RecordBlock* record, unsigned key) {
    AvlNode* node = node_of(record, key);
    const void* payload = cage_at(load<std::uint32_t>(reinterpret_cast<char*>(record) + shape.payload_slot));
    put(&node->word, shape.keys[key].word(record->tenant_id, payload));
    std::uint32_t* root = root_of(object, key);
    return avl_insert_by_word(&store_, store_.open_txn(), root, node, root + 1, shape.keys[key].compare) != 0;
  }
  void remove(const kvt_shape& shape, TableObject* object, RecordBlock* record, unsigned key) {
    std::uint32_t* root = root_of(object, key);
    avl_delete_by_word(&store_, store_.open_txn(), root, node_of(record, key), root + 1, shape.keys[key].compare);
  }
  bool count_tenant(TableObject* object, const RecordBlock* record) {
    for (auto* c = static_cast<TenantCounter*>(cage_at(object->counters)); c;
         c = static_cast<TenantCounter*>(cage_at(c->next))) {
      if (c->tenant == record->tenant_id && c->source == record->source) {
        put(&c->count, c->count + 1);
        return true;
      }
    }
    void* room = store_.alloc(store_.open_txn(), sizeof(TenantCounter));
    if (!room) return false;
    put(&object->counters,
        cage_ref(new (room) TenantCounter{object->counters, record->tenant_id, record->source, 0, 1}));
    return true;
  }

  Store& store_;
  const Checker& found_;
  kvt_care_line line_;
  void* argument_;
};

}  // namespace

int repair(Store& store, const Checker& found, kvt_care_line line, void* argument) {
  return Repair(store, found, line, argument).run();
}

}  // namespace kvt
