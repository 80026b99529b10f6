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

void offset_update(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, void* anchor) {
  if (!type.has_nested) return;
  for (const FieldDesc* f = type.fields; f != type.fields + type.field_count; ++f) {
    if (f->kind != FieldKind::kStruct) continue;
    char* nested = static_cast<char*>(object) + f->offset;
    char* stretch = static_cast<char*>(anchor) + f->state + 1;
    kvtlib_update_sttr_offset(h, txn, nested, static_cast<std::int32_t>(stretch - nested));
    if (f->type->nested) {
      offset_update(*f->type->nested, h, txn, nested, stretch);
    } else {
      f->type->offset_update(h, txn, nested, stretch);
    }
  }
}

void offset_remove(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, int* err) {
  if (!type.has_nested) return;
  for (const FieldDesc* f = type.fields; f != type.fields + type.field_count; ++f) {
    if (f->kind != FieldKind::kStruct) continue;
    void* nested = at_offset(object, f->offset);
    kvt_hd_mapping_destroy(h, txn, nested, err);
    f->type->offset_remove(h, txn, nested, err);
  }
}

}  // namespace kvt
