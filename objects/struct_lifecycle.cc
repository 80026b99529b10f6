#include "objects/struct_lifecycle.h"

#include "objects/references.h"
#include "objects/struct_tree.h"
#include "objects/variants.h"

namespace kvt {
namespace {

std::uint8_t& flags_of(void* object) { return static_cast<std::uint8_t*>(object)[6]; }

struct Announcer {
  kvt_handle* h;
  std::uint32_t txn;
  bool on;
  template <class T>
  void put(void* at, T value) const {
    if (on) h->set_range(h, at, sizeof value, txn, nullptr);
    store(at, value);
  }
};

// Strings and booleans are ready when they are zero.
bool has_initializer(FieldKind kind) {
  return kind == FieldKind::kStruct || kind == FieldKind::kEnum || kind == FieldKind::kFlag;
}

void set_target_links(const StructDesc& type, const Announcer& announcer, void* object, int* err) {
  for (const FieldDesc* f = type.fields; f != type.fields + type.field_count; ++f) {
    if (f->kind != FieldKind::kReference) continue;
    const kvt_type_record* target = linked_record(announcer.h, announcer.txn, f->target, *type.module);
    if (!target) return fail(announcer.h, kEnomem, err);
    announcer.put(at_offset(object, f->offset), kvt_type_link_of(target));
  }
}

void count_in(const StructDesc& type, kvt_handle* h, std::uint32_t txn, const kvt_type_record* record, int variant,
              int* err) {
  const kvt_variant_data* varinfo = kvt_varinfo_of(record);
  if (!varinfo) {
    trace(type.trace, kStructMessages, kMsgStructNoVarinfo);
    kvt_fatal();
  }
  if (varinfo->n_variants < variant) {
    trace(type.trace, kStructMessages, kMsgStructVariantAbove, static_cast<std::uint32_t>(variant),
          static_cast<std::uint32_t>(varinfo->n_variants));
  }
  kvtlib_type_stats_create_object(h, txn, record, &stats_entry(varinfo, variant, type.top)->created, err);
}

// Gives the state bytes a place. false: a nested object was not told where its top-level object keeps them, or the
// runtime cannot keep the places of those below.
bool place_state(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, void*& sttr_base, int* err) {
  const bool nested = flags_of(object) & KVT_OBJ_NESTED;
  if (!sttr_base && nested) {
    fail(h, kEinval, err);
    trace(type.trace, kStructMessages, kMsgStructNoStateBase);
    return false;
  }
  if (!sttr_base) sttr_base = at_offset(object, type.top_plain());
  if (!type.has_nested) return true;
  if (flags_of(object) & KVT_OBJ_STTR_OFFSET) {
    *err = offset_update_told(type, h, txn, object, at_offset(object, kvtlib_get_sttr_offset(h, txn, object)));
  } else if (!nested) {
    *err = offset_update_told(type, h, txn, object, sttr_base);
  }
  return !*err;
}

// Drops the counts that a nested object holds on tables. false: stopped half-way, and told why.
[[gnu::noinline]] bool drop_nested_counts(const StructDesc& type, const StructDesc& nested, kvt_handle* h,
                                          std::uint32_t txn, void* object, int* err) {
  constexpr std::uint32_t kMostFields = 255;  // of a struct
  void* references[kMostFields] = {};
  const std::uint32_t count = struct_get_oid_count(nested, h, object, err);
  if (!count) return true;
  struct_get_object_references(nested, h, txn, object, references, err);
  if (*err) {
    trace(type.trace, kStructMessages, kMsgStructReferencesFailed, error_text(*err));
    return false;
  }
  for (std::uint32_t i = 0; i < count; ++i) {
    kvtlib_lookup_and_update_oid_ref_count(h, txn, references[i], 0, err);
    if (!*err) continue;
    trace(type.trace, kStructMessages, kMsgStructDropFailed, static_cast<const void*>(references[i]), error_text(*err));
    *err = 0;
  }
  // The nested object's own destroy must not drop them once more.
  clear_table_references(nested, h, txn, object);
  return true;
}

// Gives back what the fields hold. false: stopped half-way, and told why.
bool release_fields(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, int* err) {
  const int variant = kvt_get_instance_variant(object, 1, 0);
  if (variant < 0) return true;
  for (const FieldDesc* f = type.fields; f != type.fields + type.field_count; ++f) {
    if (variant < f->variant) continue;
    void* field = at_offset(object, f->offset);
    if (f->kind == FieldKind::kString || f->kind == FieldKind::kStruct) {
      const StructDesc* nested = f->type->nested;
      if (nested && nested->oid_count) {
        if (!drop_nested_counts(type, *nested, h, txn, field, err)) return false;
      } else if (*err && f->kind == FieldKind::kStruct) {
        trace(type.trace, kStructMessages, kMsgStructCountError);
      }
      if (nested) {
        struct_destroy_internal(*nested, h, txn, field, 0);
      } else {
        f->type->destroy(h, txn, field, 0);
      }
    } else if (f->kind == FieldKind::kReference) {
      kvtlib_oid_release_internal(h, txn, field, err);
      if (*err) {
        const TracePlace place{type.trace.table, type.trace.first + f->message, type.trace.module};
        trace(place, kReferenceMessages, kMsgReferenceReleaseFailed, error_text(*err));
        return false;
      }
    }
  }
  return true;
}

// Asks the runtime to forget the object's identity. false: not destroyed now, and told why.
bool remove_mapping(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, int* err) {
  const int removed = kvt_request_oid_mapping_destroy(h, txn, object, err);
  if (*err) {
    trace(type.trace, kStructMessages, kMsgStructMappingFailed, error_text(*err));
    kvt_store_err(h, *err);
    return false;
  }
  if (!removed) {
    trace(type.trace, kStructMessages, kMsgStructDeferred);
    return false;
  }
  trace(type.trace, kStructMessages, kMsgStructMappingRemoved);
  return true;
}

void count_out(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, int* err) {
  const kvt_type_record* record = kvt_get_manifested_type_info(object, err);
  if (!record || record->magic != KVT_TYPE_MAGIC) {
    trace(type.trace, kStructMessages, kMsgStructCorruptType);
    kvt_fatal();
  }
  const kvt_variant_data* varinfo = kvt_varinfo_of(record);
  if (!varinfo) {
    trace(type.trace, kStructMessages, kMsgStructNoVarinfo);
    kvt_fatal();
  }
  const int variant = kvt_get_instance_variant(object, 1, 0);
  if (varinfo->n_variants < variant) {
    trace(type.trace, kStructMessages, kMsgStructVariantAbove, static_cast<std::uint32_t>(variant),
          static_cast<std::uint32_t>(varinfo->n_variants));
  }
  kvtlib_type_stats_destroy_object(h, txn, record, &stats_entry(varinfo, variant, type.top)->created, err);
}

// Gives back what the object holds beside its own memory, and counts it out. false: stopped half-way, and told why.
bool release_object(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, int* err) {
  if (!release_fields(type, h, txn, object, err)) return false;
  if (flags_of(object) & KVT_OBJ_STATE_TRACKED) {
    if (flags_of(object) & KVT_OBJ_STTR_OFFSET) {
      kvtlib_get_sttr_offset(h, txn, object);
    } else {
      tracking_of(h, type);
    }
  }
  count_out(type, h, txn, object, err);
  if ((flags_of(object) & (KVT_OBJ_RA_DATA | KVT_OBJ_STTR_OFFSET)) && h->hd_mapping) {
    kvt_hd_mapping_destroy(h, txn, object, err);
    if (*err) {
      trace(type.trace, kStructMessages, kMsgStructSideDataFailed, error_text(*err));
      kvt_store_err(h, *err);
      return false;
    }
  }
  return true;
}

}  // namespace

std::uint32_t struct_sizeof(const StructDesc& type, kvt_handle* h) {
  return type.top_plain() + (tracking_of(h, type) == Tracking::kOn ? type.top_block() : 0);
}

std::uint32_t struct_sizeof_internal(const StructDesc& type, kvt_handle* h, const void* object, int with_block,
                                     int block_only) {
  const Tracking tracking = tracking_of(h, type);
  if (tracking == Tracking::kAbsent) return block_only ? 0 : type.top_plain();
  const int built = object ? type.built_index(object) : type.top;
  const std::uint32_t block = tracking == Tracking::kOn ? type.block[built] : 0;
  if (block_only) return block;
  return type.plain[built] + (with_block ? block : 0);
}

void* struct_create(const StructDesc& type, kvt_handle* h, std::uint32_t txn) {
  start_trace(*type.module);
  return struct_create_internal(type, h, txn);
}

void* struct_create_cr(const StructDesc& type, kvt_handle* h) {
  start_trace(*type.module);
  h->cr_create = 1;
  void* object = struct_create_internal(type, h, h->default_txn);
  h->cr_create = 0;
  return object;
}

void* struct_create_internal(const StructDesc& type, kvt_handle* h, std::uint32_t txn) {
  int err = 0;
  void* object = nullptr;
  if (h->cr_create && h->last_error) {
    object = type.failure_object();
  } else {
    object = h->store_alloc(h->store, txn, struct_sizeof(type, h));
    if (object) {
      memset_cr(object, 0, struct_sizeof(type, h));
      if (tree_is_unseen(type, h)) {
        kvt_clear_last_error(h);
        tree_initialize(*type.tree, object);
        tree_count(*type.tree, false);
      } else {
        struct_initialize(type, h, txn, object, type.record, 1, 0, 0, nullptr, &err);
      }
      if (err) {
        trace(type.trace, kStructMessages, kMsgStructCreateError, error_text(err));
        h->store_free(h->store, txn, object);
        return nullptr;
      }
    } else if (h->cr_create) {
      if (!h->last_error) kvt_store_err(h, kEnomem);
      object = type.failure_object();
    }
  }
  report(h, txn, object, nullptr);
  if (marks_wanted(h, txn)) kvtdb_plat_set_dirty(h, txn, object);
  return object;
}

void struct_initialize(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object,
                       const kvt_type_record* record, int announce, int no_stats, int flags, void* sttr_base,
                       int* err) {
  if (*err) return;
  kvt_clear_last_error(h);
  const Announcer announcer{h, txn, announce && h->set_range != kvt_set_range_private};
  const int variant = cap_variant(kvt_domain_lookup_variant(h, &h->domain, record, err), type.top);
  if (!*err) {
    if (type.oid_count) set_target_links(type, announcer, object, err);
    announcer.put(at_offset(object, 5), type.top);
    announcer.put(at_offset(object, 4), static_cast<std::int8_t>(variant));
  }
  void* cell = kvt_get_manifested_type_info_ptr_mem(object, err);
  if (!*err) {
    // The record is found before the cell is announced: finding it may register types.
    record = linked_record(h, txn, record, *type.module);
    if (record) {
      announcer.put(cell, kvt_type_link_of(record));
      announcer.put(at_offset(object, 6), static_cast<std::uint8_t>(flags_of(object) | flags));
    } else {
      fail(h, kEnomem, err);
    }
  }
  if (!*err && tracking_of(h, type) == Tracking::kOn) {
    announcer.put(at_offset(object, 6), static_cast<std::uint8_t>(flags_of(object) | KVT_OBJ_STATE_TRACKED));
  }
  if (!*err && !no_stats) count_in(type, h, txn, record, variant, err);
  if (!*err && !no_stats && tracking_of(h, type) == Tracking::kOn) {
    if (!place_state(type, h, txn, object, sttr_base, err)) return;
  }
  for (const FieldDesc* f = type.fields; f != type.fields + type.field_count; ++f) {
    if (!has_initializer(f->kind)) continue;
    void* field = at_offset(object, f->offset);
    const FieldType& of = *f->type;
    if (of.nested) {
      struct_initialize(*of.nested, h, txn, field, of.record, announce, no_stats, KVT_OBJ_NESTED, sttr_base, err);
    } else {
      of.initialize(h, txn, field, of.record, announce, no_stats, KVT_OBJ_NESTED, sttr_base, err);
    }
  }
}

void struct_destroy(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object) {
  if (object != type.failure_object()) struct_destroy_internal(type, h, txn, object, 1);
}

void struct_destroy_internal(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, int free_it) {
  int err = 0;
  if (!object || object == type.failure_object()) return;
  if ((flags_of(object) & KVT_OBJ_OID_MAPPED) && !remove_mapping(type, h, txn, object, &err)) return;
  if (type.tree && store_is_unheard(h) && tree_is_plain(*type.tree, object)) {
    owned_release(h, txn, object, type.tree->owned);
    tree_count(*type.tree, true);
  } else if (!release_object(type, h, txn, object, &err)) {
    return;
  }
  if (!free_it) return;
  if (marks_wanted(h, txn)) kvtdb_plat_set_destroy(h, txn, object);
  if (flags_of(object) & KVT_OBJ_TYPE_LINK_OWNED) {
    if (void* owned = cage_at(load<std::uint32_t>(object))) h->store_free(h->store, txn, owned);
  }
  store_announced(h, txn, object, std::uint32_t{0});
  h->store_free(h->store, txn, object);
  // Only now: what this object referred to may go next, and may be anything but half destroyed itself.
  if (type.oid_count || type.has_nested) kvtlib_oid_settle(h, txn);
}

void struct_set_embedded(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object) {
  if (!object) {
    trace(type.trace, kStructMessages, kMsgStructInvalidEmbed);
    return;
  }
  for (const FieldDesc* f = type.fields; f != type.fields + type.field_count; ++f) {
    if (f->type->set_embedded && type.has_room_for(*f, object))
      f->type->set_embedded(h, txn, at_offset(object, f->offset));
  }
  store_announced(h, txn, at_offset(object, 6), static_cast<std::uint8_t>(flags_of(object) | KVT_OBJ_EMBEDDED));
}

}  // namespace kvt
