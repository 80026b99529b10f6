#include "objects/variants.h"

namespace kvt {

std::uint32_t struct_is_valid(const StructDesc& type, kvt_handle* h, const void* object, std::uint32_t index,
                              std::uint32_t domain_only) {
  int usable = cap_variant(kvt_domain_lookup_variant(h, &h->domain, type.record, &h->last_error), type.top);
  if (!(domain_only & 1)) usable = cap_variant(kvt_get_instance_variant(object, 1, 0), usable);
  if (index < type.bounds[0]) return 1;
  for (int variant = 1; variant <= type.top; ++variant) {
    if (index < type.bounds[variant]) return usable >= variant;
  }
  return 0;
}

namespace {

// `built`: of the object. A nested one takes the room of its top variant, and its header may not be there yet.
void place_nested(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, void* anchor, int built) {
  if (!type.has_nested) return;
  for (const FieldDesc* f = type.fields; f != type.fields + type.field_count; ++f) {
    if (f->kind != FieldKind::kStruct || f->variant > built) continue;
    char* nested = static_cast<char*>(object) + f->offset;
    char* stretch = static_cast<char*>(anchor) + f->state + 1;
    kvtlib_update_sttr_offset(h, txn, nested, static_cast<std::int32_t>(stretch - nested));
    if (f->type->nested) {
      place_nested(*f->type->nested, h, txn, nested, stretch, f->type->nested->top);
    } else {
      f->type->offset_update(h, txn, nested, stretch);
    }
  }
}

}  // namespace

void offset_update(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, void* anchor) {
  place_nested(type, h, txn, object, anchor, type.built_index(object));
}

int offset_update_told(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, void* anchor) {
  const std::int32_t before = h->last_error;
  kvt_clear_last_error(h);
  offset_update(type, h, txn, object, anchor);
  const std::int32_t error = h->last_error;
  if (!error) kvt_store_err(h, before);
  return error;
}

void offset_remove(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, int* err) {
  if (!type.has_nested) return;
  for (const FieldDesc* f = type.fields; f != type.fields + type.field_count; ++f) {
    if (f->kind != FieldKind::kStruct || !type.has_room_for(*f, object)) continue;
    void* nested = at_offset(object, f->offset);
    kvt_hd_mapping_destroy(h, txn, nested, err);
    f->type->offset_remove(h, txn, nested, err);
  }
}

}  // namespace kvt
