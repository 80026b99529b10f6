// The order of the checks: segments, the heap's chunks and bins, then everything that can be reached from the roots.
// Whoever reaches a block claims it, so that two owners of one block are found, and at the end what nobody owns.
#include "platform/check.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "platform/avl_node.h"
#include "platform/heap_format.h"
#include "platform/key_store.h"
#include "platform/object_flags.h"
#include "platform/oid.h"
#include "platform/ref_map.h"
#include "platform/registry.h"
#include "platform/store_blocks.h"
#include "platform/timer_tree.h"
#include "platform/wire_inline.h"

namespace kvt {
namespace {

constexpr std::uint32_t kContentsSize = 376;
constexpr std::uint32_t kMostLines = 200;  // behind these, faults are counted only
constexpr int kMaxHeight = 48;
constexpr int kMaxNesting = 64;
constexpr std::uint64_t kFirstLocator = 256;
constexpr std::uint32_t kReferenceSize = 48;

bool holds_text(const char* at, std::size_t room) { return std::memchr(at, 0, room) != nullptr; }

}  // namespace

std::string Checker::describe(const Place& place) const {
  std::string text = place.in ? describe(*place.in) + ", " : std::string();
  text += place.what;
  if (place.at) {
    char number[16];
    std::snprintf(number, sizeof number, " %08x", place.at);
    text += number;
  }
  return text;
}

template <class... Arguments>
void Checker::fault(const Place& place, const char* format, Arguments... arguments) {
  if (++faults_ > kMostLines || !line_) return;
  char words[256];
  if constexpr (sizeof...(Arguments) == 0) {
    std::snprintf(words, sizeof words, "%s", format);
  } else {
    std::snprintf(words, sizeof words, format, arguments...);
  }
  line_(argument_, (describe(place) + ": " + words).c_str());
}

std::uint32_t Checker::run() {
  check_heap();
  check_permanent();
  check_keys();
  check_contents();
  check_tables();
  const StoreRoots* roots = db_.roots();
  check_map({nullptr, "side data", 0}, roots->sides, &Checker::check_side);
  check_map({nullptr, "identities", 0}, roots->oids, &Checker::check_oid);
  check_map({nullptr, "identities by serial", 0}, roots->oids_by_serial, &Checker::check_serial);
  check_due();
  check_timers();
  check_references();
  check_limbo();
  check_unclaimed();
  if (line_ && faults_ > kMostLines) {
    char words[64];
    std::snprintf(words, sizeof words, "and %u more faults", faults_ - kMostLines);
    line_(argument_, words);
  }
  return faults_;
}

const CheckedBlock* Checker::block_at(std::uint32_t at) const {
  const CheckedBlock* block = block_around(at);
  return block && block->at == at ? block : nullptr;
}

const CheckedBlock* Checker::block_around(std::uint32_t at) const {
  auto behind =
      std::upper_bound(blocks_.begin(), blocks_.end(), at, [](std::uint32_t a, const auto& b) { return a < b.at; });
  if (behind == blocks_.begin()) return nullptr;
  const CheckedBlock& block = *--behind;
  return at - block.at < block.size ? &block : nullptr;
}

const void* Checker::claim(const Place& place, std::uint32_t at, std::uint32_t size) {
  auto* block = const_cast<CheckedBlock*>(block_at(at));
  if (!block) {
    if (db_.is_permanent(at)) return claim_permanent(place, at, size) ? cage_at(at) : nullptr;
    fault(place, "%08x is not an allocated block", at);
  } else if (block->pending) {
    fault(place, "%08x is a block that was freed", at);
  } else if (block->claimed) {
    fault(place, "the block at %08x has another owner", at);
  } else if (block->size < size) {
    fault(place, "the block at %08x has %u bytes where %u are needed", at, block->size, size);
  } else {
    block->claimed = true;
    return cage_at(at);
  }
  return nullptr;
}

template <class T>
const T* Checker::in_permanent(std::uint32_t at, std::uint32_t size) {
  if (at % 8 || !db_.is_permanent(at) || !db_.is_permanent(at + size - 1)) return nullptr;
  return static_cast<const T*>(cage_at(at));
}

// Permanent blocks are not chained; what is said to be one is held against its header and against the others.
bool Checker::claim_permanent(const Place& place, std::uint32_t at, std::uint32_t size) {
  const auto* words = in_permanent<std::uint32_t>(at - 8, size + 8);
  if (!words || words[0] < size || words[0] > kSlotSize || !db_.is_permanent(at + words[0] - 1)) {
    fault(place, "%08x is not a block of permanent memory", at);
    return false;
  }
  permanent_.push_back({at - 8, at + words[0]});
  return true;
}

void Checker::check_heap() {
  const DatabaseHeader* header = db_.header();
  const std::uint32_t base = cage_ref(header);
  const auto is_heap = [&](std::uint32_t i) {
    return header->kinds[i] == Segment::kHeap || header->kinds[i] == Segment::kNewHeap;
  };
  for (std::uint32_t i = 1; i < header->segments;) {
    if (!is_heap(i)) {
      ++i;
      continue;
    }
    std::uint32_t end = i;
    while (end < header->segments && is_heap(end)) ++end;
    // A run of segments may hold several regions, each with an end mark of its own.
    for (std::uint32_t at = base + i * kSegmentSize; at && at < base + end * kSegmentSize;)
      at = check_region(at, base + end * kSegmentSize);
    i = end;
  }
  if (chunks_sound_) check_bins();
  if (chunks_sound_) check_cards();
  heap_sound_ = heap_sound_ && chunks_sound_;
}

// @return where the next region begins; 0 when the chunks cannot be followed
std::uint32_t Checker::check_region(std::uint32_t begin, std::uint32_t end) {
  const Place place = {nullptr, "heap", 0};
  std::uint32_t before = 0;
  bool free_before = false;
  for (std::uint32_t chunk = begin; chunk < end;) {
    const auto* words = static_cast<const std::uint32_t*>(cage_at(chunk));
    const std::uint32_t size = words[0] & ~kChunkFlags, flags = words[0] & kChunkFlags;
    const bool mark = size == kChunkHeader && (flags & kChunkUsed) && (chunk + size) % kSegmentSize == 0;
    if (!mark && (size < kChunkMinimum || size > end - chunk || flags > (kChunkUsed | kChunkPending) ||
                  flags == kChunkPending || (!(flags & kChunkUsed) && flags))) {
      fault({&place, "chunk", chunk}, "its header %08x is no chunk's", words[0]);
      chunks_sound_ = false;
      return 0;
    }
    // While the wilderness lies before it, an end mark need not know its neighbour.
    if (words[1] != before && !(mark && free_before)) {
      fault({&place, "chunk", chunk}, "the chunk before it has %u bytes, not %u", before, words[1]);
      chunks_sound_ = false;
    }
    if (mark) return chunk + size;
    HeapCard& card = cards_[(chunk - cage_ref(db_.header())) >> kCardShift];
    if (!card) card = static_cast<HeapCard>(Heap::card_value(chunk));
    if (flags & kChunkUsed) {
      blocks_.push_back({chunk + kChunkHeader, size - kChunkHeader, (flags & kChunkPending) != 0, false});
      used_bytes_ += size;
      free_before = false;
    } else {
      if (free_before) {
        fault({&place, "chunk", chunk}, "two free chunks lie side by side");
        chunks_sound_ = false;
      }
      free_.push_back({chunk, size});
      free_bytes_ += size;
      free_before = true;
    }
    before = size;
    chunk += size;
  }
  fault(place, "the region at %08x has no end", begin);
  chunks_sound_ = false;
  return 0;
}

void Checker::check_cards() {
  const Place place = {nullptr, "heap", 0};
  for (std::size_t i = 0; i < cards_.size(); ++i) {
    const std::uint32_t found = db_.heap().cards()[i];
    if (found == cards_[i]) continue;
    fault({&place, "card", static_cast<std::uint32_t>(i)}, "it says %u, not %u", found, cards_[i]);
    heap_sound_ = false;
    return;  // one tells enough
  }
}

void Checker::check_bins() {
  const Place place = {nullptr, "heap", 0};
  const HeapMeta& meta = db_.roots()->heap;
  const auto find = [&](std::uint32_t chunk) -> const Chunk* {
    auto it = std::lower_bound(free_.begin(), free_.end(), Chunk{chunk, 0});
    return it != free_.end() && (*it)[0] == chunk ? &*it : nullptr;
  };
  const std::uint32_t faults = faults_;
  std::size_t found = 0;
  for (std::uint32_t bin = 0; bin < kHeapBins; ++bin) {
    const Place list = {&place, "free list", bin + 1};
    if (((meta.filled[bin / 64] >> bin % 64) & 1) != (meta.bins[bin] != 0)) fault(list, "its bit says otherwise");
    std::uint32_t before = 0;
    for (std::uint32_t chunk = meta.bins[bin]; chunk;) {
      const Chunk* span = find(chunk);
      if (!span) {
        fault(list, "%08x is not a free chunk", chunk);
        break;
      }
      const auto* words = static_cast<const std::uint32_t*>(cage_at(chunk));
      if (bin_of((*span)[1]) != bin) fault(list, "the chunk at %08x is of another size", chunk);
      if (words[3] != before) fault(list, "the chunk at %08x is not linked back", chunk);
      if (++found > free_.size()) {
        fault(list, "goes round in a ring");
        break;
      }
      before = chunk;
      chunk = words[2];
    }
  }
  if (meta.top && !find(meta.top)) fault(place, "the wilderness at %08x is not a free chunk", meta.top);
  const std::size_t expected = free_.size() - (meta.top && find(meta.top) ? 1 : 0);
  if (faults_ == faults && found != expected) {
    fault(place, "%zu free chunks, of which %zu are in lists", expected, found);
  }
  if (faults_ != faults) heap_sound_ = false;
}

void Checker::check_permanent() {
  const Place place = {nullptr, "permanent memory", 0};
  std::uint32_t count = 0;
  for (std::uint32_t at = db_.header()->permanent_free; at;) {
    const auto* words = in_permanent<std::uint32_t>(at, 8);
    if (!words || ++count > kSlotSize / 16) {
      fault(place,
            words ? "the list of freed blocks goes round in a ring" : "the list of freed blocks leads out of it");
      return;
    }
    if (!claim_permanent(place, at + 8, 8)) return;
    at = words[1];
  }
}

void Checker::check_keys() {
  const StoreRoots* roots = db_.roots();
  const struct {
    const char* what;
    const std::uint32_t* chains;
    bool permanent;
  } kinds[] = {{"names", roots->keys, false}, {"permanent names", roots->permanent_keys, true}};
  for (const auto& kind : kinds) {
    const Place place = {nullptr, kind.what, 0};
    for (std::uint32_t i = 0; i < kKeyBuckets; ++i) {
      std::uint32_t count = 0;
      for (std::uint32_t at = kind.chains[i]; at;) {
        if (++count > kSlotSize / 32) {
          fault(place, "a chain goes round in a ring");
          break;
        }
        const auto* node = claim<KeyNode>(place, at);
        if (!node) break;
        std::uint32_t room = 0;
        if (const CheckedBlock* block = block_at(at)) {
          room = block->size;
        } else {
          room = *static_cast<const std::uint32_t*>(cage_at(at - 8));
        }
        const auto* text = reinterpret_cast<const char*>(node + 1);
        if (!holds_text(text, room - sizeof *node)) {
          fault({&place, "name", at}, "its text has no end");
        } else if (const std::uint32_t hash = key_hash(text); node->hash != hash || hash % kKeyBuckets != i) {
          fault({&place, "name", at}, "its text does not belong here");
        } else if (node->value) {
          const Place named = {&place, text, 0};
          if (kind.permanent && in_permanent<kvt_type_record>(node->value) &&
              static_cast<const kvt_type_record*>(cage_at(node->value))->magic == KVT_TYPE_MAGIC) {
            check_registered(named, node->value);
          } else {
            claim(named, node->value, 1);
          }
        }
        at = node->next;
      }
    }
  }
}

void Checker::check_registered(const Place& place, std::uint32_t at) {
  const auto* copy = claim<kvt_type_record>(place, at, KVT_REGISTERED_SIZE);
  if (!copy) return;
  types_.insert(std::upper_bound(types_.begin(), types_.end(), at), at);
  if (!holds_text(copy->name, sizeof copy->name) || !holds_text(copy->luid_text, sizeof copy->luid_text)) {
    fault(place, "its texts have no end");
  }
  if (!copy->varinfo || is_static_number(copy->varinfo)) return;  // a registration that was cut short
  // The first entries lie behind the head in its block; those that came later have a block of their own.
  const auto* data = in_permanent<kvt_variant_data>(copy->varinfo);
  if (!data || data->n_variants < 0) return fault(place, "its variants at %08x cannot be read", copy->varinfo);
  const auto entries =
      static_cast<std::uint32_t>(static_cast<std::size_t>(data->n_variants) * sizeof(kvt_variant_entry));
  const bool behind = data->variants == copy->varinfo + sizeof *data;
  if (!claim_permanent(place, copy->varinfo, sizeof *data + (behind ? entries : 0)) || behind || !entries) return;
  if (!is_static_number(data->variants)) claim_permanent(place, data->variants, entries);
}

const kvt_type_record* Checker::type_at(std::uint32_t link) {
  if (is_static_number(link)) return kvt_type_link_at(link);  // made through a handle that registers nothing
  return std::binary_search(types_.begin(), types_.end(), link) ? static_cast<const kvt_type_record*>(cage_at(link))
                                                                : nullptr;
}

void Checker::check_map(const Place& place, const RefMapHead& map,
                        void (Checker::*entry)(const Place&, std::uint32_t, std::uint32_t)) {
  if (!map.capacity) {
    if (map.count || map.entries) fault(place, "has entries and no room for them");
    return;
  }
  if (!std::has_single_bit(map.capacity) || map.capacity > kSlotSize / sizeof(RefMapEntry)) {
    return fault(place, "has room for %u entries", map.capacity);
  }
  const auto* entries = claim<RefMapEntry>(place, map.entries, map.capacity * std::uint32_t{sizeof(RefMapEntry)});
  if (!entries) return;
  std::uint32_t count = 0;
  for (std::uint32_t i = 0; i < map.capacity; ++i) {
    if (!entries[i].key) continue;
    ++count;
    if (const std::uint32_t* value = map.count < map.capacity ? ref_map_find(map, entries[i].key) : nullptr;
        value != &entries[i].value) {
      fault({&place, "entry", entries[i].key}, "cannot be found by its key");
    }
    (this->*entry)(place, entries[i].key, entries[i].value);
  }
  if (count != map.count) fault(place, "%u entries, counted %u", map.count, count);
}

void Checker::check_side(const Place& place, std::uint32_t key, std::uint32_t value) {
  const CheckedBlock* block = block_around(key);
  const std::int64_t at = std::int64_t{key} + static_cast<std::int32_t>(value);
  if (!block || block->pending) {
    fault({&place, "object", key}, "is in no block");
  } else if (at < block->at || at >= std::int64_t{block->at} + block->size) {
    fault({&place, "object", key}, "its state bytes are not in its block");
  }
}

void Checker::check_oid(const Place& place, std::uint32_t key, std::uint32_t value) {
  const Place object = {&place, "object", key};
  const auto* entry = claim<OidEntry>(object, value);
  if (!entry) return;
  const CheckedBlock* block = block_around(key);
  if (entry->object != key) fault(object, "its entry is that of %08x", entry->object);
  if (!block || block->pending) fault(object, "is in no block");
  if (entry->serial > db_.roots()->oid_last) fault(object, "its serial was never given out");
  if (entry->flags & kOidDue) due_.push_back(value);
}

// The list of entries whose objects are to be destroyed holds the marked ones, and nothing else.
void Checker::check_due() {
  const Place place = {nullptr, "objects to destroy", 0};
  const std::uint32_t faults = faults_;
  std::size_t count = 0;
  std::sort(due_.begin(), due_.end());
  for (std::uint32_t at = db_.roots()->oids_due; at; at = static_cast<const OidEntry*>(cage_at(at))->next_due) {
    if (std::binary_search(due_.begin(), due_.end(), at) && ++count <= due_.size()) continue;
    fault({&place, "entry", at}, count > due_.size() ? "is in the list twice" : "is not marked as one");
    break;
  }
  if (faults_ == faults && count < due_.size()) fault(place, "%zu in the list, %zu marked", count, due_.size());
  due_sound_ = faults_ == faults;
}

void Checker::check_serial(const Place& place, std::uint32_t, std::uint32_t value) {
  const CheckedBlock* block = block_at(value);
  if (!block || block->size < sizeof(OidEntry)) return fault(place, "%08x is not an entry", value);
  const auto* entry = static_cast<const OidEntry*>(cage_at(value));
  // The entry of an object that is gone has no other owner.
  if (!entry->object) claim(place, value, sizeof *entry);
}

void Checker::check_contents() {
  const Place place = {nullptr, "contents", 0};
  const StoreRoots* roots = db_.roots();
  if (roots->contents) claim(place, roots->contents, kContentsSize);
  std::uint32_t last = cage_ref(&roots->tables.first);
  std::uint32_t at = roots->tables.first;
  for (std::uint32_t count = 0; at; ++count) {
    const Place table = {nullptr, "table", at};
    const CheckedBlock* block = block_at(at);
    if (!block || block->claimed || block->size < sizeof(TableObject)) {
      fault(table, block && block->claimed ? "is in the list twice" : "is not a table's block");
      break;
    }
    const auto* object = static_cast<const TableObject*>(cage_at(at));
    if (object->toc_prev != last) fault(table, "is not linked back");
    last = at + static_cast<std::uint32_t>(offsetof(TableObject, toc_next));
    check_table(at, table);
    at = object->toc_next;
  }
  if (!at && roots->tables.last_link != last) fault(place, "the list of tables ends elsewhere");
  const std::uint32_t faults = faults_;
  std::uint32_t count = 0;
  for (std::uint32_t entry = roots->contents_entries; entry;) {
    const auto* toc = claim<TocEntry>(place, entry);
    if (!toc) break;
    ++count;
    const bool known = std::any_of(tables_.begin(), tables_.end(), [&](const auto& t) { return t.at == toc->table; });
    if (!known) fault(place, "%08x is not a table of the list", toc->table);
    entry = toc->next;
  }
  if (count > tables_.size()) fault(place, "%u entries for %zu tables", count, tables_.size());
  contents_sound_ = faults_ == faults;
}

void Checker::check_table(std::uint32_t at, const Place& place) {
  const auto* object = static_cast<const TableObject*>(cage_at(at));
  const kvt_type_record* type = type_at(object->type_record);
  const kvt_static_type* known = type ? static_type_of(type) : nullptr;
  CheckedTable table;
  table.at = at;
  if (!type || std::strcmp(type->kind, "table") != 0) {
    fault(place, "its type is no table's");
    claim(place, at, sizeof *object);
    table.sound = false;
  } else if (!known || !known->shape) {
    claim(place, at, sizeof *object);  // of a module that is not loaded here
  } else if (claim(place, at, known->shape->table_size)) {
    table.shape = known->shape;
  }
  if (!holds_text(object->table_name, sizeof object->table_name)) {
    fault(place, "its name has no end");
    table.sound = false;
  } else if (type) {
    table.name = type->name;
    if (object->id_mode == 0) table.name += std::string(" \"") + object->table_name + "\"";
  }
  tables_.push_back(std::move(table));
}

void Checker::check_tables() {
  std::uint64_t pending = 0;
  for (CheckedTable& table : tables_) {
    const std::uint32_t faults = faults_;
    const std::string name = "table " + table.name;
    const Place place = {nullptr, name.c_str(), table.name.empty() ? table.at : 0};
    pending += static_cast<const TableObject*>(cage_at(table.at))->pending_destroy_count;
    if (table.shape) {
      std::vector<std::uint32_t> all;
      check_index(table, place, 0, &all);
      for (std::uint32_t record : all) {
        (check_record(table, {&place, "record", record}, record) ? table.records : table.damaged).push_back(record);
      }
      for (unsigned key = 1; key < table.shape->key_count; ++key) check_index(table, place, key, nullptr);
      sweep_records(table);
      check_counters(table, place);
    }
    check_queue(table, place);
    if (faults_ != faults) table.sound = false;
  }
  if (pending != db_.roots()->stats.pending_destroy) {
    fault({nullptr, "statistics", 0}, "%llu records wait to be destroyed, counted %llu",
          static_cast<unsigned long long>(db_.roots()->stats.pending_destroy),
          static_cast<unsigned long long>(pending));
  }
}

// Records of the table that no index leads to: what a broken tree has lost.
void Checker::sweep_records(CheckedTable& table) {
  const std::string name = "table " + table.name;
  const Place place = {nullptr, name.c_str(), 0};
  for (const CheckedBlock& block : blocks_) {
    if (block.claimed || block.pending || block.size < table.shape->record_size) continue;
    const auto* record = static_cast<const RecordBlock*>(cage_at(block.at));
    const kvt_type_record* type = record->table == table.at ? type_at(record->type_record) : nullptr;
    if (!type || std::memcmp(type->luid, table.shape->record->luid, sizeof type->luid) != 0) continue;
    const Place here = {&place, "record", block.at};
    fault(here, "no index leads to it");
    (check_record(table, here, block.at) ? table.records : table.damaged).push_back(block.at);
  }
}

// @return whether type and payload are right; the record's own words can be mended
bool Checker::check_record(const CheckedTable& table, const Place& place, std::uint32_t at) {
  const auto* record = claim<RecordBlock>(place, at, table.shape->record_size);
  if (!record) return false;
  if (record->table != table.at) fault(place, "it names another table, %08x", record->table);
  if (!(record->ref_count & kRefCountMask)) fault(place, "it has no reference");
  if (!(record->record_flags & kRecordInserted)) fault(place, "it is not marked as inserted");
  const kvt_type_record* type = type_at(record->type_record);
  if (!type || std::memcmp(type->luid, table.shape->record->luid, sizeof type->luid) != 0) {
    fault(place, "its type is not the table's record type");
    return false;
  }
  const std::uint32_t payload = load<std::uint32_t>(static_cast<const char*>(cage_at(at)) + table.shape->payload_slot);
  // A text that is lost can be given up without the record.
  const std::size_t lost = lost_texts_.size();
  const std::uint32_t faults = faults_;
  if (payload && check_object({&place, "payload", payload}, payload, table.shape->payload, 0)) return true;
  if (payload) return faults_ - faults == lost_texts_.size() - lost;
  fault(place, "it has no payload");
  return false;
}

// An object in a block of its own (`room` 0), or nested in another one. What is nested deeper follows.
bool Checker::check_object(const Place& place, std::uint32_t at, const kvt_type_record* expected, std::uint32_t room) {
  const kvt_static_type* known = static_type_of(expected);
  const kvt_shape* shape = known ? known->shape : nullptr;
  const bool own_block = !room;
  const std::uint32_t faults = faults_;
  int depth = 0;
  for (const Place* p = &place; p; p = p->in) ++depth;
  if (depth > kMaxNesting) return false;
  if (own_block) {
    const auto* head = claim<std::uint8_t>(place, at, 8);
    if (!head) return false;
    if (!block_at(at)) {
      fault(place, "it lies in permanent memory");
      return false;
    }
    room = block_at(at)->size;
  } else if (room < 7) {
    fault(place, "it does not fit into its object");
    return false;
  }
  const auto* object = static_cast<const std::uint8_t*>(cage_at(at));
  const auto flags = static_cast<unsigned>(object[6]);
  std::uint32_t link = load<std::uint32_t>(object);
  if (own_block && (flags & KVT_OBJ_TYPE_LINK_OWNED)) {
    const auto* cell = claim<std::uint32_t>(place, link);
    link = cell ? *cell : 0;
  }
  const kvt_type_record* type = type_at(link);
  if (!type || std::memcmp(type->luid, expected->luid, sizeof type->luid) != 0) {
    fault(place, "its type is not %s", expected->name);
    return false;
  }
  if (!shape || !shape->plain) return faults_ == faults;  // enumerated and flag types: a word
  const int built = static_cast<std::int8_t>(object[5]), variant = static_cast<std::int8_t>(object[4]);
  if (built < 0 || built >= shape->variants || variant > built) {
    fault(place, "its variant is %d of %d", variant, built);
    return false;
  }
  std::uint32_t need = shape->plain[built];
  if (own_block && (flags & KVT_OBJ_STATE_TRACKED) && !(flags & KVT_OBJ_STTR_OFFSET)) need += shape->states[built];
  if (need > room) {
    fault(place, "%u bytes where %u are needed", room, need);
    return false;
  }
  for (const kvt_cell* cell = shape->cells; cell != shape->cells + shape->cell_count; ++cell) {
    if (cell->variant > built) continue;
    const std::uint32_t field = at + cell->offset;
    const auto* words = reinterpret_cast<const std::uint32_t*>(object + cell->offset);
    const Place here = {&place, cell->name, 0};
    switch (cell->kind) {
      case KVT_CELL_TEXT:
      case KVT_CELL_SECRET:
        if (!check_text(here, load<std::uint32_t>(words), load<std::uint32_t>(words + 1),
                        cell->kind == KVT_CELL_SECRET)) {
          lost_texts_.push_back(field);
        }
        break;
      case KVT_CELL_OBJECT:
        check_object(here, field, cell->type, shape->plain[built] - cell->offset);
        break;
      case KVT_CELL_REFERENCE: {
        const auto value = load<kvt_oid_value>(object + cell->offset + 8);
        if (cell->offset + kReferenceSize > need || value.locator < kFirstLocator) break;
        if (std::memcmp(value.src, db_.roots()->identity, sizeof value.src) != 0) break;
        references_.push_back({field, wire_order(load<std::uint64_t>(value.id))});
        break;
      }
      default:
        break;
    }
  }
  return faults_ == faults;
}

bool Checker::check_text(const Place& place, std::uint32_t at, std::uint32_t length, bool secret) {
  if (!at) return true;
  const auto* text = claim<char>(place, at, 1);
  if (!text) return false;
  // A text has a NUL behind it; the sealed form of a secret has none.
  if (const std::uint32_t size = block_at(at) ? block_at(at)->size : 0; length > size || (!secret && length == size)) {
    fault(place, "%u bytes of text in a block of %u", length, size);
  } else if (!secret && text[length]) {
    fault(place, "its text has no NUL behind it");
  } else {
    return true;
  }
  return false;
}

// Walks a tree by its links and holds order, threads, heights, words and count against each other. Records that it
// leads to are handed out where they are blocks of the right size.
bool Checker::check_index(CheckedTable& table, const Place& in, unsigned key, std::vector<std::uint32_t>* records) {
  const kvt_key_shape& shape = table.shape->keys[key];
  const std::string name = std::string("index ") + shape.name;
  const Place place = {&in, name.c_str(), 0};
  const auto* words = reinterpret_cast<const std::uint32_t*>(static_cast<const char*>(cage_at(table.at)) +
                                                             sizeof(TableObject) + 8 * key);
  const std::uint32_t to_node = sizeof(RecordBlock) + kNodeSize * key;
  const std::uint32_t faults = faults_;
  struct Frame {
    std::uint32_t node;
    int step, left_height;
  } stack[kMaxHeight];
  int depth = 0, height = 0;
  std::uint32_t count = 0, before = 0;
  bool comparable = true;  // every payload so far may be looked at
  const auto node_at = [&](std::uint32_t link) { return static_cast<const AvlNode*>(cage_at(link)); };
  // A node of a record's block whose payload is the right kind of block. Nothing else is known of them yet.
  const auto is_node = [&](std::uint32_t node) {
    const CheckedBlock* block = block_at(node - to_node);
    return block && !block->pending && block->size >= table.shape->record_size;
  };
  const auto payload_of = [&](std::uint32_t node) -> const void* {
    const std::uint32_t at =
        load<std::uint32_t>(static_cast<const char*>(cage_at(node - to_node)) + table.shape->payload_slot);
    const CheckedBlock* block = at ? block_at(at) : nullptr;
    const kvt_static_type* known = static_type_of(table.shape->payload);
    if (!block || block->pending || !known || !known->shape || block->size < known->shape->plain[0]) return nullptr;
    return cage_at(at);
  };
  // The compare reads the key's text where the words are alike.
  const auto key_is_readable = [&](const void* payload) {
    const kvt_static_type* known = static_type_of(table.shape->payload);
    for (const kvt_cell* c = known->shape->cells; c != known->shape->cells + known->shape->cell_count; ++c) {
      if (std::strcmp(c->name, shape.name) != 0 || c->kind != KVT_CELL_TEXT) continue;
      const auto at = load<std::uint32_t>(static_cast<const char*>(payload) + c->offset);
      const auto length = load<std::uint32_t>(static_cast<const char*>(payload) + c->offset + 4);
      const CheckedBlock* block = at ? block_at(at) : nullptr;
      return !at || (block && length < block->size);
    }
    return true;
  };
  std::vector<std::uint32_t> seen;
  if (words[0]) {
    if (!is_node(words[0])) {
      fault(place, "its root %08x is not in a record", words[0]);
      return false;
    }
    stack[depth++] = {words[0], 0, 0};
    seen.push_back(words[0]);
  }
  while (depth) {
    Frame& top = stack[depth - 1];
    const AvlNode* node = node_at(top.node);
    const Place here = {&place, "record", top.node - to_node};
    if (top.step == 2) {
      const int lean = height - top.left_height;
      const int said = static_cast<int>(node->link[1] & kAvlHigher) - static_cast<int>(node->link[0] & kAvlHigher);
      if (lean < -1 || lean > 1 || lean != said) fault(here, "the tree is out of balance, or says so");
      height = 1 + std::max(height, top.left_height);
      --depth;
      continue;
    }
    if (top.step == 1) {
      top.left_height = height;
      const void* payload = payload_of(top.node);
      const bool readable = payload && key_is_readable(payload);
      const auto* record = static_cast<const RecordBlock*>(cage_at(top.node - to_node));
      if (readable && node->word != shape.word(record->tenant_id, payload)) {
        fault(here, "the node's word is not that of its key");
      } else if (readable && comparable && before && shape.compare(node_at(before), node) != 0) {
        fault(here, "stands in the wrong order behind %08x", before - to_node);
      }
      comparable = readable && node->word == shape.word(record->tenant_id, payload);
      const std::uint32_t left = node->link[0];
      if ((left & kAvlThread) && (left & ~kAvlLinkBits) != before)
        fault(here, "its thread to the left leads elsewhere");
      if (before) {
        const std::uint32_t right = node_at(before)->link[1];
        if ((right & kAvlThread) && (right & ~kAvlLinkBits) != top.node) {
          fault({&place, "record", before - to_node}, "its thread to the right leads elsewhere");
        }
      }
      if (key && (record->record_flags & kRecordPrimaryOnly)) fault(here, "is marked as in the primary index alone");
      before = top.node;
      ++count;
      if (records) records->push_back(top.node - to_node);
    }
    const int side = top.step++;
    height = 0;
    if (node->link[side] & kAvlThread) continue;
    const std::uint32_t below = node->link[side] & ~kAvlLinkBits;
    if (!below) {
      fault(here, "neither subtree nor thread on a side");
      continue;
    }
    if (!is_node(below)) {
      fault(here, "%08x below it is not in a record", below);
      continue;
    }
    // A tree has no more nodes than there are blocks; a ring has.
    seen.push_back(below);
    if (depth == kMaxHeight || seen.size() > blocks_.size()) {
      fault(here, "the tree is too high, or a ring");
      break;
    }
    stack[depth++] = {below, 0, 0};
  }
  std::sort(seen.begin(), seen.end());
  if (std::adjacent_find(seen.begin(), seen.end()) != seen.end()) {
    fault(place, "two ways lead to a record");
    if (records) {
      std::sort(records->begin(), records->end());
      records->erase(std::unique(records->begin(), records->end()), records->end());
    }
  }
  if (before && node_at(before)->link[1] != kAvlThread) fault(place, "the thread of the last record leads on");
  if (words[1] != count) fault(place, "%u records, counted %u", words[1], count);
  return faults_ == faults;
}

void Checker::check_counters(CheckedTable& table, const Place& place) {
  const auto* object = static_cast<const TableObject*>(cage_at(table.at));
  std::vector<std::uint32_t> all = table.records;
  all.insert(all.end(), table.damaged.begin(), table.damaged.end());
  std::uint32_t shadows = 0, pending = 0, full = 0;
  for (std::uint32_t at : all) {
    const CheckedBlock* block = block_at(at);
    if (!block || block->size < sizeof(RecordBlock)) continue;
    const auto* record = static_cast<const RecordBlock*>(cage_at(at));
    shadows += record->source == kShadowSource;
    pending += (record->record_flags & kRecordPending) != 0;
    full += !(record->record_flags & kRecordPrimaryOnly);
  }
  const auto compare = [&](const char* what, std::uint32_t said, std::size_t counted) {
    if (said != counted) fault(place, "%u %s, counted %zu", said, what, counted);
  };
  compare("records", object->record_count, all.size());
  compare("shadow records", object->shadow_count, shadows);
  compare("records that wait to be destroyed", object->pending_destroy_count, pending);
  for (unsigned key = 1; key < table.shape->key_count; ++key) {
    const auto* words = reinterpret_cast<const std::uint32_t*>(reinterpret_cast<const char*>(object + 1) + 8 * key);
    compare((std::string("records in the index ") + table.shape->keys[key].name).c_str(), words[1], full);
  }
}

void Checker::check_queue(CheckedTable& table, const Place& place) {
  const auto* object = static_cast<const TableObject*>(cage_at(table.at));
  for (std::uint32_t at = object->counters; at;) {
    const auto* counter = claim<TenantCounter>({&place, "counter", at}, at);
    if (!counter) break;
    at = counter->next;
  }
  if (!object->queue) return;
  const Place here = {&place, "changes", 0};
  const auto* queue = claim<Queue>(here, object->queue);
  if (!queue) return;
  std::uint32_t last = 0;
  std::uint64_t number = 0;
  for (std::uint32_t at = queue->first; at;) {
    const auto* change = claim<Change>(here, at);
    if (!change) return;
    if (last && change->number <= number) fault(here, "change %08x has an older number than the one before", at);
    if (!block_at(change->record)) fault(here, "change %08x tells of no record", at);
    number = change->number;
    last = at;
    at = change->next;
  }
  if (queue->last != last) fault(here, "the newest change is %08x, not %08x", last, queue->last);
  if (last && number >= queue->next_number) fault(here, "the next number was given already");
  for (std::uint32_t at = queue->cursors; at;) {
    const auto* cursor = claim<Cursor>({&here, "cursor", at}, at);
    if (!cursor) return;
    if (cursor->table != table.at) fault({&here, "cursor", at}, "it is of another table");
    at = cursor->next;
  }
}

void Checker::check_timers() {
  const Place place = {nullptr, "timers", 0};
  for (std::uint32_t at = db_.roots()->timer_trees; at;) {
    const auto* tree = claim<TimerTree>(place, at);
    if (!tree) return lost_timers_.push_back(0);
    check_timer_tree({&place, "tree", tree->root}, tree->root);
    at = tree->next;
  }
}

// That every link leads to a timer of the tree comes first; then the tree can be looked through like any other.
void Checker::check_timer_tree(const Place& place, std::uint32_t root) {
  const auto is_in_block = [this](std::uint32_t at, std::uint32_t size) {
    const CheckedBlock* block = block_around(at);
    return block ? !block->pending && size <= block->size - (at - block->at) : db_.is_permanent(at);
  };
  if (root % 4 || !is_in_block(root, sizeof root)) {
    lost_timers_.push_back(0);
    return fault(place, "is in no block");
  }
  const auto* first = static_cast<const std::uint32_t*>(cage_at(root));
  std::vector<std::uint32_t> left, seen;
  if (*first) left.push_back(*first);
  while (!left.empty()) {
    const std::uint32_t at = left.back();
    left.pop_back();
    const auto* timer = static_cast<const TimerNode*>(cage_at(at));
    if (at % 8 || at < kTimerNodeAt || !is_in_block(at - kTimerNodeAt, sizeof(kvt_timer)) || timer->root != root ||
        seen.size() > used_bytes_ / sizeof(kvt_timer)) {
      lost_timers_.push_back(root);
      return fault(place, "%08x is no timer of it", at);
    }
    seen.push_back(at);
    for (const std::uint32_t link : timer->node.link) {
      if (!(link & kAvlThread)) left.push_back(link & ~kAvlLinkBits);
    }
  }
  if (e_avl_check(*first, nullptr, timer_compare)) {
    lost_timers_.push_back(root);
    fault(place, "its timers do not stand in order");
  }
}

// An identity counts no fewer references than fields were found that hold it.
void Checker::check_references() {
  std::sort(references_.begin(), references_.end(), [](const auto& a, const auto& b) { return a.serial < b.serial; });
  const RefMapHead& map = db_.roots()->oids_by_serial;
  if (!std::has_single_bit(map.capacity) || !block_at(map.entries) || map.count >= map.capacity) return;
  const auto* entries = static_cast<const RefMapEntry*>(cage_at(map.entries));
  if (block_at(map.entries)->size / sizeof *entries < map.capacity) return;
  for (std::uint32_t i = 0; i < map.capacity; ++i) {
    const CheckedBlock* block = entries[i].key ? block_at(entries[i].value) : nullptr;
    if (!block || block->size < sizeof(OidEntry)) continue;
    const auto* entry = static_cast<const OidEntry*>(cage_at(block->at));
    const auto range = std::equal_range(references_.begin(), references_.end(), Found{0, entry->serial},
                                        [](const Found& a, const Found& b) { return a.serial < b.serial; });
    const auto found = range.second - range.first;
    if (found > static_cast<std::ptrdiff_t>(entry->references)) {
      fault({nullptr, "identity", block->at}, "%td fields refer to it, counted %u", found, entry->references);
      uncounted_.emplace_back(block->at, static_cast<std::uint32_t>(found));
    }
  }
}

// Freed blocks that readers may stand on.
void Checker::check_limbo() {
  const Place place = {nullptr, "limbo", 0};
  const std::uint32_t newest = db_.roots()->limbo, faults = faults_;
  for (std::uint32_t at = newest; at;) {
    const auto* page = static_cast<const LimboPage*>(claim(place, at, sizeof(LimboPage)));
    if (!page) break;
    if (page->first > page->count || page->count > kLimboEntries) {
      fault({&place, "page", at}, "its entries %u to %u are none", page->first, page->count);
      break;
    }
    for (std::uint32_t i = page->first; i < page->count; ++i) {
      const CheckedBlock* block = block_at(page->entries[i].block);
      if (!block || !block->pending) fault({&place, "page", at}, "%08x is no freed block", page->entries[i].block);
    }
    at = page->next == newest ? 0 : page->next;
    if (!page->next) fault({&place, "page", at}, "the ring of pages is open");
  }
  limbo_sound_ = faults_ == faults;
}

// Objects in no table are their makers'. What they own is looked through like the rest.
void Checker::check_unclaimed() {
  for (std::size_t i = 0; i < blocks_.size(); ++i) {
    const CheckedBlock& block = blocks_[i];
    if (block.claimed || block.pending || block.size < 8) continue;
    const kvt_type_record* type = type_at(load<std::uint32_t>(cage_at(block.at)));
    if (type && !std::strcmp(type->kind, "type")) check_object({nullptr, "object", block.at}, block.at, type, 0);
  }
  std::sort(permanent_.begin(), permanent_.end(), [](const Span& a, const Span& b) { return a.begin < b.begin; });
  for (std::size_t i = 1; i < permanent_.size(); ++i) {
    if (permanent_[i].begin < permanent_[i - 1].end)
      fault({nullptr, "permanent memory", permanent_[i].begin + 8}, "the block has another owner");
  }
}

}  // namespace kvt
