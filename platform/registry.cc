// Type records: static ones by number, registered ones by reference, and the way from one to the other.
#include "platform/registry.h"

#include <atomic>
#include <cerrno>
#include <cstring>

#include "platform/handle.h"
#include "platform/key_store.h"

kvt_module_root kvt_module_tot_root = {0, nullptr, &kvt_module_tot_root.first};

namespace kvt {
namespace {

constexpr std::size_t kFlagsAt = 6;

struct Module {
  std::atomic<const kvt_static_type*> types;
  std::atomic<std::uint32_t> count;
};
Module modules[256];

const kvt_static_type* static_type(std::uint32_t number) {
  const Module& module = modules[number >> 20 & 0xFF];
  std::uint32_t index = number & 0xFFFFF;
  return index < module.count.load(std::memory_order_acquire) ? module.types.load(std::memory_order_relaxed) + index
                                                              : nullptr;
}

bool is_owned(const void* object) { return load<std::uint8_t>(at_offset(object, kFlagsAt)) & KVT_OBJ_TYPE_LINK_OWNED; }

// The cell that the type link lies in. A link of a block that the object owns is one step further; records of tables
// have other things at the place of the flag byte, so a word that leads to a record at once is taken as it stands.
const void* link_cell(const void* object) {
  std::uint32_t word = load<std::uint32_t>(object);
  if (!word || is_static_number(word) || !is_owned(object)) return object;
  const void* at = cage_at(word);
  return load<std::uint32_t>(at) == KVT_TYPE_MAGIC ? object : at;
}

const kvt_type_record* record_of(const void* object) {
  return object ? kvt_type_link_at(load<std::uint32_t>(link_cell(object))) : nullptr;
}

// The cache speaks of the handle's own registry; a caller that puts another one in its place is asked each time.
bool has_own_registry(const kvt_handle* handle) {
  return handle->registry == handle->runtime->store && handle->key_get == key_get;
}

void count(kvt_handle* handle, std::uint32_t txn, const kvt_type_record* record, std::uint64_t* counter) {
  if (record->db_mode == 0) {
    std::atomic_ref(*counter).fetch_add(1, std::memory_order_seq_cst);  // a full barrier to both sides
    return;
  }
  handle->set_counter(handle, counter, 1, txn);
  ++*counter;
}

}  // namespace

const kvt_static_type* static_type_of(const kvt_type_record* record) {
  if (is_static_number(record->varinfo)) return static_type(record->varinfo);
  for (const Module& module : modules) {
    const std::uint32_t count = module.count.load(std::memory_order_acquire);
    const kvt_static_type* types = module.types.load(std::memory_order_relaxed);
    for (std::uint32_t i = 0; i < count; i++) {
      if (!std::memcmp(types[i].record->luid, record->luid, sizeof record->luid)) return &types[i];
    }
  }
  return nullptr;
}

}  // namespace kvt

using namespace kvt;

void kvt_static_types_set(uint32_t module, const kvt_static_type* types, uint32_t count) {
  if (module == 0 || module > 255) return;
  // No reader may see the new count with the old types.
  modules[module].count.store(0, std::memory_order_release);
  modules[module].types.store(types, std::memory_order_release);
  modules[module].count.store(count, std::memory_order_release);
}

const kvt_variant_data* kvt_varinfo_of(const kvt_type_record* record) {
  if (!is_static_number(record->varinfo)) return static_cast<const kvt_variant_data*>(cage_at(record->varinfo));
  const kvt_static_type* type = static_type(record->varinfo);
  return type ? type->varinfo : nullptr;
}

kvt_variant_entry* kvt_variant_entries(const kvt_variant_data* varinfo) {
  if (!is_static_number(varinfo->variants)) return static_cast<kvt_variant_entry*>(cage_at(varinfo->variants));
  const kvt_static_type* type = static_type(varinfo->variants);
  return type ? type->entries : nullptr;
}

uint32_t kvt_type_link_of(const kvt_type_record* record) {
  if (!record) return 0;
  if (in_cage(record)) return cage_ref(record);
  return is_static_number(record->varinfo) ? record->varinfo : 0;
}

const kvt_type_record* kvt_type_link_at(uint32_t link) {
  if (!is_static_number(link)) return static_cast<const kvt_type_record*>(cage_at(link));
  const kvt_static_type* type = static_type(link);
  return type ? type->record : nullptr;
}

const kvt_type_record* kvt_get_manifested_type_info(const void* object, int*) { return record_of(object); }

void* kvt_get_manifested_type_info_ptr_mem(void* object, int*) {
  return object ? const_cast<void*>(link_cell(object)) : nullptr;
}

const uint8_t* kvt_get_luid(kvt_handle*, uint32_t, const void* object, int* err) {
  const kvt_type_record* record = *err ? nullptr : record_of(object);
  return record ? record->luid : nullptr;
}

const char* kvt_get_name(kvt_handle*, uint32_t, const void* object, int* err) {
  const kvt_type_record* record = *err ? nullptr : record_of(object);
  return record ? record->name : nullptr;
}

const kvt_type_record* kvt_type_info_ptr_get(kvt_handle* handle, uint32_t txn, const kvt_type_record* record,
                                             kvt_typeinfo_init init) {
  uint32_t number = record->varinfo;
  bool cached = is_static_number(number) && has_own_registry(handle);
  TypeCache& cache = handle->runtime->types;
  if (uint32_t copy = cached ? cache.find(number) : 0) return static_cast<const kvt_type_record*>(cage_at(copy));
  void* copy = handle->key_get(handle->registry, txn, record->luid_text);
  if (!copy && init) {
    int error = 0;
    init(handle, txn, &error);
    copy = handle->key_get(handle->registry, txn, record->luid_text);
  }
  if (!copy) {
    kvt_store_err(handle, ENOMEM);
    return nullptr;
  }
  if (cached) cache.put(number, cage_ref(copy));
  return static_cast<const kvt_type_record*>(copy);
}

// The registry's memory is permanent, hence nothing here is announced: what an abort took back, another process might
// be using already.
void kvt_update_variant_info(kvt_handle* handle, uint32_t, kvt_type_record* copy, const kvt_type_record* record,
                             int is_new) {
  const kvt_variant_data* from = kvt_varinfo_of(record);
  if (!from) return;
  // A registration that was cut off leaves a copy that still bears the static record's number.
  bool has_own = !is_new && !is_static_number(copy->varinfo) && copy->varinfo;
  auto* own = has_own ? static_cast<kvt_variant_data*>(cage_at(copy->varinfo)) : nullptr;
  int have = own ? own->n_variants : 0;
  if (own && have >= from->n_variants) return;
  uint32_t entries_size =
      static_cast<uint32_t>(from->n_variants > 0 ? from->n_variants : 0) * sizeof(kvt_variant_entry);
  uint32_t head_size = own ? 0 : sizeof(kvt_variant_data);
  char* room = static_cast<char*>(handle->registry_alloc(handle->registry_pool, KVT_NO_TXN, head_size + entries_size));
  if (!room) return kvt_store_err(handle, ENOMEM);
  auto* entries = reinterpret_cast<kvt_variant_entry*>(room + head_size);
  if (entries_size) std::memcpy(entries, kvt_variant_entries(from), entries_size);
  for (int i = 0; i < from->n_variants; i++) {
    const kvt_variant_entry* before = i < have ? &kvt_variant_entries(own)[i] : nullptr;
    entries[i].created = before ? before->created : 0;
    entries[i].destroyed = before ? before->destroyed : 0;
  }
  if (!own) {
    auto* head = reinterpret_cast<kvt_variant_data*>(room);
    *head = {from->n_variants, {}, cage_ref(entries)};
    std::atomic_ref(copy->varinfo).store(cage_ref(head), std::memory_order_release);
    return;
  }
  // The larger array first: a reader between the two stores sees fewer variants than there are. The old one stays,
  // since a reader may be in it.
  std::atomic_ref(own->variants).store(cage_ref(entries), std::memory_order_release);
  std::atomic_ref(own->n_variants).store(from->n_variants, std::memory_order_release);
}

void kvtlib_type_stats_create_object(kvt_handle* handle, uint32_t txn, const kvt_type_record* record, uint64_t* counter,
                                     int* err) {
  if (!*err) count(handle, txn, record, counter);
}

void kvtlib_type_stats_destroy_object(kvt_handle* handle, uint32_t txn, const kvt_type_record* record,
                                      uint64_t* counter, int* err) {
  if (!*err) count(handle, txn, record, counter + 1);
}
