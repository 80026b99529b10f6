// Type records: static ones by number, registered ones by reference, and the way from one to the other.
#include "platform/registry.h"

#include <atomic>
#include <cerrno>
#include <cstring>

#include "platform/handle.h"
#include "platform/key_store.h"

kvt_module_root kvt_module_tot_root = {0, nullptr, &kvt_module_tot_root.first};
kvt_static_module kvt_static_modules[256];

namespace kvt {
namespace {

constexpr std::size_t kFlagsAt = 6;

bool is_owned(const void* object) { return load<std::uint8_t>(at_offset(object, kFlagsAt)) & KVT_OBJ_TYPE_LINK_OWNED; }

// The cell that the type link lies in. A link of a block that the object owns is one step further; records of tables
// have other things at the place of the flag byte, so a word that leads to a record at once is taken as it stands.
const void* link_cell(const void* object) {
  std::uint32_t word = load<std::uint32_t>(object);
  if (!word || is_static_number(word) || !is_owned(object)) return object;
  const void* at = cage_at(word);
  return load<std::uint32_t>(at) == KVT_TYPE_MAGIC ? object : at;
}

// The cache speaks of the handle's own registry; a caller that puts another one in its place is asked each time.
bool has_own_registry(const kvt_handle* handle) {
  return handle->registry == handle->runtime->store && handle->key_get == key_get;
}

// Whether a registered copy has variant data of its own that know all variants of the static record: a registration
// that ran out of memory leaves less, and so does one by an older schema.
bool is_complete(const kvt_type_record* copy, const kvt_type_record* record) {
  if (is_static_number(copy->varinfo)) return false;
  const kvt_variant_data *own = kvt_varinfo_of(copy), *from = kvt_varinfo_of(record);
  return !own || !from || own->n_variants >= from->n_variants;
}

}  // namespace

const kvt_static_type* static_type_of(const kvt_type_record* record) {
  if (is_static_number(record->varinfo)) return kvt_static_type_at(record->varinfo);
  for (kvt_static_module& module : kvt_static_modules) {
    const std::uint32_t count = std::atomic_ref(module.count).load(std::memory_order_acquire);
    const kvt_static_type* types = std::atomic_ref(module.types).load(std::memory_order_relaxed);
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
  kvt_static_module& it = kvt_static_modules[module];
  std::atomic_ref(it.count).store(0, std::memory_order_release);
  std::atomic_ref(it.types).store(types, std::memory_order_release);
  std::atomic_ref(it.count).store(count, std::memory_order_release);
}

const kvt_type_record* kvt_owned_type_info(const void* object) {
  return kvt_type_link_at(load<std::uint32_t>(link_cell(object)));
}

void* kvt_get_manifested_type_info_ptr_mem(void* object, int*) {
  return object ? const_cast<void*>(link_cell(object)) : nullptr;
}

const uint8_t* kvt_get_luid(kvt_handle*, uint32_t, const void* object, int* err) {
  const kvt_type_record* record = *err ? nullptr : kvt_get_manifested_type_info(object, err);
  return record ? record->luid : nullptr;
}

const char* kvt_get_name(kvt_handle*, uint32_t, const void* object, int* err) {
  const kvt_type_record* record = *err ? nullptr : kvt_get_manifested_type_info(object, err);
  return record ? record->name : nullptr;
}

const kvt_type_record* kvt_type_info_ptr_get(kvt_handle* handle, uint32_t txn, const kvt_type_record* record,
                                             kvt_typeinfo_init init) {
  uint32_t number = record->varinfo;
  bool cached = is_static_number(number) && has_own_registry(handle);
  TypeCache& cache = handle->runtime->types;
  if (uint32_t copy = cached ? cache.find(number) : 0) return static_cast<const kvt_type_record*>(cage_at(copy));
  auto find = [&] {
    return static_cast<const kvt_type_record*>(handle->key_get(handle->registry, txn, record->luid_text));
  };
  const kvt_type_record* copy = find();
  if (init && (!copy || (cached && !is_complete(copy, record)))) {
    const int32_t last_error = handle->last_error;
    int error = 0;
    init(handle, txn, &error);
    copy = find();
    // A registration that stopped behind the wanted type is the business of those who want what is missing.
    if (copy) kvt_store_err(handle, last_error);
  }
  if (!copy) {
    kvt_store_err(handle, ENOMEM);
    return nullptr;
  }
  if (cached && is_complete(copy, record)) cache.put(number, cage_ref(copy));
  return copy;
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
    handle->runtime->store->order();
    std::atomic_ref(copy->varinfo).store(cage_ref(head), std::memory_order_release);
    return;
  }
  // The larger array first: a reader between the two stores sees fewer variants than there are. The old one stays,
  // since a reader may be in it.
  handle->runtime->store->order();
  std::atomic_ref(own->variants).store(cage_ref(entries), std::memory_order_release);
  std::atomic_ref(own->n_variants).store(from->n_variants, std::memory_order_release);
}
