#include "frame/registration.h"

#include <cstring>

#include "frame/call_frame.h"

namespace kvt {

void register_types(kvt_handle* h, std::uint32_t txn, const ModuleDesc& module, int* err) {
  for (std::uint32_t i = 0; i < module.type_count; ++i) {
    const kvt_type_record* record = module.types[i].record;
    if (void* existing = h->key_get(h->registry, txn, record->luid_text)) {
      if (record->varinfo) kvt_update_variant_info(h, txn, static_cast<kvt_type_record*>(existing), record, 0);
      continue;
    }
    auto* copy = static_cast<kvt_type_record*>(h->registry_alloc(h->registry_pool, KVT_NO_TXN, KVT_REGISTERED_SIZE));
    if (!copy) {
      fail(h, kEnomem, err);
      return;
    }
    std::memcpy(static_cast<void*>(copy), record, sizeof *record);
    std::memset(at_offset(copy, sizeof *record), 0, KVT_REGISTERED_SIZE - sizeof *record);
    copy->db_mode = h->mode;
    copy->slot = -1;
    h->key_put(h->registry, txn, copy->luid_text, copy);
    if (record->varinfo) kvt_update_variant_info(h, txn, copy, record, 1);
  }
}

void dump_variants(const ModuleDesc& module, int (*out)(const char* format, ...)) {
  for (std::uint32_t i = 0; i < module.type_count; ++i) {
    const kvt_static_type& type = module.types[i];
    if (!type.varinfo) {
      start_trace(module);
      trace(module.trace, kModuleMessages, kMsgModuleNoVarinfo);
      continue;
    }
    out("n_variants %d\n", int{type.varinfo->n_variants});
    for (int v = 0; v < type.varinfo->n_variants; ++v) {
      out("variant %d used length %d alloc slop %d\n", v, static_cast<int>(type.entries[v].used_length),
          static_cast<int>(type.entries[v].alloc_slop));
    }
  }
}

void load_module(const ModuleDesc& module, kvt_module_record* record, std::uint8_t* once) {
  if (*once) return;
  *once = 1;
  kvt_static_types_set(module.number, module.types, module.type_count);
  *module.failure_zone = kvt_cage_static(module.failure_zone_size);
  record->next = nullptr;
  record->prev = kvt_module_tot_root.last;
  *kvt_module_tot_root.last = record;
  kvt_module_tot_root.last = &record->next;
  ++kvt_module_tot_root.count;
}

void unload_module(const ModuleDesc& module, kvt_module_record* record) {
  if (!record->next && !record->prev) return;
  if (record->next) {
    record->next->prev = record->prev;
  } else {
    kvt_module_tot_root.last = record->prev;
  }
  *record->prev = record->next;
  record->next = nullptr;
  record->prev = nullptr;
  --kvt_module_tot_root.count;
  kvt_static_types_set(module.number, nullptr, 0);
}

}  // namespace kvt
