#include "objects/struct_copy.h"

#include <cstring>

#include "objects/state_tracking.h"
#include "objects/variants.h"

namespace kvt {
namespace {

// The raw copy would leave the old content of the strings, nested ones too, without an owner. A string whose content is
// the source's already (a parent's raw copy brought it) isn't `dest`'s to give back.
void release_strings(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* dest, const void* source) {
  for (const FieldDesc* f = type.fields; f != type.fields + type.field_count; ++f) {
    if (!type.has_room_for(*f, dest)) continue;
    void* field = at_offset(dest, f->offset);
    const void* other = at_offset(source, f->offset);
    if (f->kind == FieldKind::kString && load<std::uint32_t>(field) != load<std::uint32_t>(other)) {
      f->type->destroy(h, txn, field, 0);
    }
    if (f->type->nested) release_strings(*f->type->nested, h, txn, field, other);
  }
}

// After a raw copy no string may have two owners, also when an earlier one could not be given content: each field is
// set with a slot of its own, and the first failure is told.
void own_content(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* dest, const void* source, int* err) {
  for (const FieldDesc* f = type.fields; f != type.fields + type.field_count; ++f) {
    if (f->kind != FieldKind::kString && f->kind != FieldKind::kStruct) continue;
    if (!type.has_room_for(*f, dest)) continue;
    int own = 0;
    f->type->set(h, txn, at_offset(dest, f->offset), at_offset(source, f->offset), &own);
    if (own && !*err) *err = own;
  }
}

}  // namespace

void* struct_get(kvt_handle* h, std::uint32_t txn, void* object) {
  report(h, txn, object, nullptr);
  return object;
}

void* post_copyout_cleanup(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* dest, const void* source,
                           int* err) {
  if (!*err) own_content(type, h, txn, dest, source, err);
  return h;
}

void struct_set(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* dest, const void* source, int* err) {
  adjust_variant(h, txn, dest, type.top, err);
  if (dest == source) return;
  const auto* from = static_cast<const std::uint8_t*>(source);
  auto* to = static_cast<std::uint8_t*>(dest);
  if (kvt_get_instance_variant(dest, 1, 0) < kvt_get_instance_variant(source, 1, 0) || !dest || !source ||
      to[5] != from[5]) {
    kvt_store_epoch_err(h, kEidrm, err);
    return;
  }
  release_strings(type, h, txn, dest, source);
  const std::uint8_t placed = to[6] & KVT_OBJ_STTR_OFFSET;
  h->set_range(h, dest, plain_size(type, h, dest), txn, dest);
  std::memcpy(dest, source, type.plain[type.built_index(source)]);
  Tracking tracking = tracking_of(h, type);
  if (tracking != Tracking::kAbsent) to[6] = static_cast<std::uint8_t>((to[6] & ~KVT_OBJ_STTR_OFFSET) | placed);
  if (tracking == Tracking::kOn) {
    if (!(to[6] & KVT_OBJ_STATE_TRACKED)) {
      // Also when the copy stops here.
      int own = 0;
      own_content(type, h, txn, dest, source, &own);
      fail(h, kEinval, err);
      trace(type.trace, kStructMessages, kMsgStructNotTracked);
      return;
    }
    if (from[6] & KVT_OBJ_STATE_TRACKED) {
      std::uint8_t* block = state_block(type, h, txn, dest);
      if (const int error = block ? offset_update_told(type, h, txn, dest, block) : kEinval) {
        int own = 0;
        own_content(type, h, txn, dest, source, &own);
        return fail(h, error, err);
      }
      if (const std::uint8_t* source_block = state_block(type, h, txn, const_cast<void*>(source))) {
        const std::uint32_t length = type.block[type.built_index(source)];
        h->set_range(h, block, length, txn, nullptr);
        std::memcpy(block, source_block, length);
      }
    }
  }
  own_content(type, h, txn, dest, source, err);
}

}  // namespace kvt
