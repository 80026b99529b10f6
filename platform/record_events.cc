#include "platform/record_events.h"

#include <link.h>

#include <algorithm>
#include <atomic>

#include "kvt/table.h"
#include "platform/avl_node.h"
#include "platform/database.h"
#include "platform/registry.h"
#include "platform/table_blocks.h"

namespace kvt {
namespace {

constexpr std::uint32_t kToldFlags = kRecordPending | kRecordPrimaryOnly;
constexpr std::uint32_t kObjectHeader = 7, kTimerBytes = 64;
constexpr std::uint32_t kMostTables = 1u << 20;

std::uint32_t word_at(std::uint32_t block, std::size_t offset) {
  return load<std::uint32_t>(at_offset(cage_at(block), offset));
}

const RecordBlock& record_at(std::uint32_t block) { return *static_cast<const RecordBlock*>(cage_at(block)); }

// Calls function(type) for each record type of the process's modules until it gives true.
template <class Function>
bool any_record_type(Function function) {
  for (kvt_static_module& module : kvt_static_modules) {
    const std::uint32_t count = std::atomic_ref(module.count).load(std::memory_order_acquire);
    const kvt_static_type* types = std::atomic_ref(module.types).load(std::memory_order_relaxed);
    for (std::uint32_t i = 0; i < count; i++) {
      const kvt_shape* shape = types[i].shape;
      if (shape && shape->events && shape->record == types[i].record && function(types[i])) return true;
    }
  }
  return false;
}

// Whether a range of a payload is its content, and not what the runtime keeps there: the header, timers, which turn
// about on their own and are linked to others'.
bool is_content(const kvt_shape& shape, std::uint32_t offset, std::uint32_t length) {
  for (unsigned i = 0; i < shape.cell_count; ++i) {
    const kvt_cell& cell = shape.cells[i];
    if (cell.kind == KVT_CELL_TIMER && offset >= cell.offset && offset + length <= cell.offset + kTimerBytes)
      return false;
  }
  return offset + length > kObjectHeader;
}

}  // namespace

bool events_heard() {
  static std::atomic<std::uint64_t> loaded;
  static std::atomic<bool> heard;
  const std::uint64_t now = kvt_objects_loaded();
  if (loaded.load(std::memory_order_acquire) != now) {
    heard.store(any_record_type([](const kvt_static_type& type) { return type.shape->events->heard() != 0; }),
                std::memory_order_relaxed);
    loaded.store(now, std::memory_order_release);
  }
  return heard.load(std::memory_order_relaxed);
}

void RecordEvents::begin(const Database* database, const Heap* heap, kvt_handle* handle) {
  database_ = database;
  heap_ = heap;
  handle_ = handle;
  pass_ = 0;
  if (const std::uint64_t now = kvt_objects_loaded(); loaded_ != now) {
    loaded_ = now;
    roles_.clear();
  }
}

void RecordEvents::end() {
  handle_ = nullptr;
  if (blocks_.empty()) return;
  blocks_.clear();
  block_index_.clear();
  keys_.clear();
}

// The first word of any block may be taken for a type link, so nothing is believed of it.
RecordEvents::TypeRole RecordEvents::role_of(std::uint32_t block) {
  const std::uint32_t link = word_at(block, 0);
  const kvt_type_record* record = database_->type_at(link);
  if (!record) return {};
  const auto [place, is_new] = roles_.try_emplace(link);
  TypeRole& known = place->second;
  if (!is_new) return known;
  known.type = static_type_of(record);
  if (!known.type || !known.type->shape) return known;
  const kvt_type_record* own = known.type->record;
  if (known.type->shape->events) {
    if (known.type->shape->record == own) known.role = Role::kRecord;
  } else if (any_record_type([own](const kvt_static_type& type) { return type.shape->payload == own; })) {
    known.role = Role::kPayload;
  }
  return known;
}

bool RecordEvents::is_live(std::uint32_t block) const { return heap_->block_around(block) == block; }

void RecordEvents::read_key(const kvt_static_type* type, std::uint32_t payload, std::vector<std::uint8_t>* key) const {
  key->clear();
  if (!payload) return;
  std::uint32_t length = type->shape->events->key(handle_, cage_at(payload), nullptr, 0);
  key->resize(length);
  type->shape->events->key(handle_, cage_at(payload), key->data(), length);
}

RecordEvents::RecordState RecordEvents::state_of(const Block& block) {
  const TypeRole now = role_of(block.at);
  // A record that was there when the transaction began keeps its memory until the end.
  if (now.role != Role::kRecord || !(block.before.table || is_live(block.at))) return {};
  return {record_at(block.at).table, word_at(block.at, now.type->shape->payload_slot),
          record_at(block.at).record_flags & kToldFlags};
}

void RecordEvents::touch(std::uint32_t at, std::uint32_t length) {
  ++touches_;
  const std::uint32_t block = heap_->block_around(at);
  if (!block) return;
  const TypeRole known = role_of(block);
  if (known.role == Role::kNone) return;
  if (known.role == Role::kPayload && !is_content(*known.type->shape, at - block, length)) return;
  const auto [place, is_new] = block_index_.try_emplace(block, static_cast<std::uint32_t>(blocks_.size()));
  if (is_new) blocks_.push_back({block, known.role, 0, word_at(block, 0), known.type, {}, 0, 0});
  Block& it = blocks_[place->second];
  if (!is_new || known.role != Role::kRecord) return;
  it.before = state_of(it);
  if (!it.before.table) return;
  read_key(known.type, it.before.payload, &key_);
  it.key_at = static_cast<std::uint32_t>(keys_.size());
  it.key_length = static_cast<std::uint32_t>(key_.size());
  keys_.insert(keys_.end(), key_.begin(), key_.end());
}

void RecordEvents::fill(std::uint32_t kind, std::uint32_t type_link, const kvt_static_type* type, std::uint32_t record,
                        const RecordState& state, RecordChange* event) {
  if (kind != KVT_RECORD_DELETED) read_key(type, state.payload, &key_);
  *event = {kind,
            type,
            type_link,
            state.table,
            record,
            record_at(record).tenant_id,
            record_at(record).source,
            key_.data(),
            static_cast<std::uint32_t>(key_.size())};
}

// The first part tells that a record left its table, the second that it is in one. Only a record that came back
// elsewhere, or under another key, has both.
bool RecordEvents::make_record_event(Block& block, int part, RecordChange* event) {
  const RecordState now = state_of(block), before = block.before;
  bool moved = now.table != before.table;
  if (!moved && now.table) {
    read_key(block.type, now.payload, &key_);
    const auto before_key = keys_.begin() + block.key_at;
    moved = !std::equal(key_.begin(), key_.end(), before_key, before_key + block.key_length);
  }
  if (part == 0) {
    if (!moved || !before.table) return false;
    key_.assign(keys_.begin() + block.key_at, keys_.begin() + block.key_at + block.key_length);
    fill(KVT_RECORD_DELETED, block.type_link, block.type, block.at, before, event);
    return true;
  }
  if (!now.table || block.told == pass_) return false;
  if (!moved && now.payload == before.payload && now.flags == before.flags) return false;
  block.told = pass_;
  fill(moved ? KVT_RECORD_CREATED : KVT_RECORD_MODIFIED, word_at(block.at, 0), role_of(block.at).type, block.at, now,
       event);
  return true;
}

bool RecordEvents::make_event(std::size_t index, int part, RecordChange* event) {
  Block& block = blocks_[index];
  const Role now = block.before.table ? Role::kRecord : role_of(block.at).role;
  if (now == Role::kRecord) return make_record_event(block, part, event);
  if (now != Role::kPayload || part == 0 || !is_live(block.at)) return false;
  const Table* table = nullptr;
  const std::uint32_t record = record_with(block.at, role_of(block.at).type->record, &table);
  if (!record) return false;
  const RecordState state{table->at, block.at, 0};
  if (const auto place = block_index_.find(record); place != block_index_.end()) {
    Block& own = blocks_[place->second];
    if (own.told == pass_ || own.before.table != table->at) return false;  // told, or told as something else
    RecordChange other;
    if (make_record_event(own, 0, &other)) return false;
    own.told = pass_;
  }
  fill(KVT_RECORD_MODIFIED, word_at(record, 0), table->record_type, record, state, event);
  return true;
}

void RecordEvents::find_tables() {
  std::uint32_t at = database_->roots()->tables.first;
  for (std::uint32_t n = 0; at && n < kMostTables; n++, at = static_cast<TableObject*>(cage_at(at))->toc_next) {
    if (!is_live(at)) return;
    const TypeRole known = role_of(at);
    const kvt_shape* shape = known.type ? known.type->shape : nullptr;
    if (shape && shape->events) tables_.push_back({at, static_type_of(shape->record)});
  }
}

// The record that has the payload. A payload does not know its record, but it has its keys, by which the tables that
// it may be in are searched, for each tenant in turn.
std::uint32_t RecordEvents::record_with(std::uint32_t payload, const kvt_type_record* payload_type,
                                        const Table** found) {
  if (tables_.empty()) find_tables();
  for (const Table& table : tables_) {
    const kvt_shape& shape = *table.record_type->shape;
    if (shape.payload != payload_type) continue;
    const std::uint32_t root = word_at(table.at, sizeof(TableObject));
    const kvt_key_shape& key = shape.keys[0];
    auto* probe = static_cast<RecordBlock*>(kvt_probe_push(shape.record_size));
    if (!probe) return 0;
    auto* node = reinterpret_cast<AvlNode*>(probe + 1);
    store(at_offset(probe, shape.payload_slot), payload);
    std::uint32_t record = 0;
    for (std::uint32_t tenant = 0; tenant <= UINT16_MAX && !record;) {
      probe->tenant_id = static_cast<std::uint16_t>(tenant);
      probe->source = 0;
      node->word = key.word(tenant, cage_at(payload));
      void* at = e_avl_search(root, node, key.compare);
      if (!at) at = e_avl_get_next(root, node, key.compare);
      if (!at) break;
      const std::uint32_t here = (static_cast<RecordBlock*>(at) - 1)->tenant_id;
      // All sources of the key stand side by side.
      while (at && here == tenant) {
        const RecordBlock* block = static_cast<RecordBlock*>(at) - 1;
        probe->source = block->source;
        if (key.compare(at, node) != 1) break;
        if (load<std::uint32_t>(at_offset(block, shape.payload_slot)) == payload) {
          record = cage_ref(block);
          break;
        }
        at = e_avl_get_next(root, node, key.compare);
      }
      tenant = here > tenant ? here : tenant + 1;
    }
    kvt_probe_pop(probe, shape.record_size);
    if (!record) continue;
    *found = &table;
    return record;
  }
  return 0;
}

}  // namespace kvt

uint64_t kvt_objects_loaded(void) {
  uint64_t sum = 0;
  dl_iterate_phdr(
      [](dl_phdr_info* info, size_t, void* into) {
        *static_cast<uint64_t*>(into) = info->dlpi_adds + info->dlpi_subs;
        return 1;
      },
      &sum);
  return sum;
}
