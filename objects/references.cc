#include "objects/references.h"

#include <cstring>

#include "objects/state_tracking.h"

namespace kvt {
namespace {

constexpr std::uint32_t kValueAt = 8;  // of the identity in a reference field, behind the target's link
constexpr std::uint32_t kIdAt = kValueAt + offsetof(kvt_oid_value, id);
constexpr std::uint32_t kSrcAt = kValueAt + offsetof(kvt_oid_value, src);
constexpr std::uint64_t kFirstLocator = 256;
constexpr std::int32_t kPrintedId = 33;

bool leads_to_table(const FieldDesc& f) {
  return f.type->kind == FieldKind::kReference && std::strcmp(f.target->kind, "table") == 0;
}

template <class... Args>
void tell(const StructDesc& type, const FieldDesc& f, MessagePlace message, Args... args) {
  const TracePlace place{type.trace.table, type.trace.first + f.message, type.trace.module};
  trace(place, kReferenceMessages, message, args...);
}

// What is said when the old reference cannot be given back.
struct DropMessages {
  MessagePlace unresolved, not_dropped;
};

enum class Old : std::uint8_t { kNone, kDropped, kUnmapped, kFailed };

Old drop_old(const StructDesc& type, const FieldDesc& f, kvt_handle* h, std::uint32_t txn, void* field,
             const DropMessages& messages, int* err) {
  if (kvt_oid_id_is_zero(at_offset(field, kIdAt))) return Old::kNone;
  void* entry = kvtlib_oid_id_mapping_get(h, txn, at_offset(field, kValueAt), err);
  if (*err) {
    tell(type, f, messages.unresolved, error_text(*err));
    return Old::kFailed;
  }
  if (!entry) return Old::kUnmapped;
  kvtlib_update_oid_ref_count(h, txn, entry, 0, err);
  if (*err) {
    tell(type, f, messages.not_dropped, error_text(*err));
    return Old::kFailed;
  }
  return Old::kDropped;
}

void mark(kvt_handle* h, std::uint32_t txn, void* object, void* field, int* err) {
  h->set_range(h, at_offset(field, kValueAt), sizeof(kvt_oid_value), txn, nullptr);
  store(at_offset(field, kValueAt), kvt_handle_to_oid(h, txn, KVT_REF_MARKER, 2, 0, err));
  report(h, txn, KVT_REF_MARKER, object);
}

void clear(const StructDesc& type, const FieldDesc& f, kvt_handle* h, std::uint32_t txn, void* field, int* err) {
  const Old old = drop_old(type, f, h, txn, field, {kMsgReferenceClearUnresolved, kMsgReferenceClearNotDropped}, err);
  if (old == Old::kFailed) return;
  if (old == Old::kUnmapped && fenlog_module_test(*type.trace.module, KVT_LEVEL_NOTICE)) {
    char id[kPrintedId], src[kPrintedId];
    kvtlib_oid_id_print(h, KVT_NO_TXN, id, at_offset(field, kIdAt), sizeof id, err);
    kvtlib_oid_src_print(h, KVT_NO_TXN, src, at_offset(field, kSrcAt), sizeof src, err);
    tell(type, f, kMsgReferenceClearUnmapped, static_cast<const char*>(id), static_cast<const char*>(src));
  }
  store_announced(h, txn, at_offset(field, kValueAt), kvt_oid_value{});
}

void refer(const StructDesc& type, const FieldDesc& f, kvt_handle* h, std::uint32_t txn, void* object, void* field,
           void* target, int* err) {
  if (kvt_type_link_of(kvt_get_manifested_type_info(target, err)) != load<std::uint32_t>(field)) {
    return fail(h, kEinval, err);
  }
  if (kvtlib_validate_object_flags(target, 0, 1)) {
    tell(type, f, kMsgReferenceRefused);
    return fail(h, kEperm, err);
  }
  // The old count goes before the new one comes: the runtime destroys nothing in between.
  switch (drop_old(type, f, h, txn, field, {kMsgReferenceSetUnresolved, kMsgReferenceSetNotDropped}, err)) {
    case Old::kFailed:
      return;
    case Old::kUnmapped:
      tell(type, f, kMsgReferenceSetUnmapped);
      break;
    default:
      break;
  }
  h->set_range(h, at_offset(field, kValueAt), sizeof(kvt_oid_value), txn, nullptr);
  store(at_offset(field, kValueAt), kvt_handle_to_oid(h, txn, target, 2, 1, err));
  if (*err) return tell(type, f, kMsgReferenceNoIdentity, error_text(*err));
  report(h, txn, target, object);
  mark_written(type, h, txn, object, f.state, err);
}

}  // namespace

void* reference_get(const StructDesc& type, std::uint32_t place, kvt_handle* h, std::uint32_t txn, void* object,
                    int* err) {
  const FieldDesc& f = type.fields[place];
  if (!begin_read(h, object, f.variant, false, err)) return nullptr;
  void* field = at_offset(object, f.offset);
  if (kvt_oid_id_is_zero(at_offset(field, kIdAt))) return nullptr;
  const auto link = load<std::uint32_t>(field);
  if (link != kvt_type_link_of(linked_record(h, txn, f.target, *type.module))) {
    fail(h, kEinval, err);
    return nullptr;
  }
  void* target = kvt_oid_to_handle(h, txn, at_offset(field, kValueAt), err);
  // An identity may come from outside: what it leads to is given out as the field's target only if it is one.
  if (target && kvt_type_link_of(kvt_get_manifested_type_info(target, err)) != link) {
    fail(h, kEinval, err);
    return nullptr;
  }
  report(h, txn, target, object);
  return target;
}

void reference_set(const StructDesc& type, std::uint32_t place, kvt_handle* h, std::uint32_t txn, void* object,
                   void* target, int* err) {
  const FieldDesc& f = type.fields[place];
  if (!begin_write(h, txn, object, type.top, f.variant, false, err)) return;
  void* field = at_offset(object, f.offset);
  if (target == KVT_REF_MARKER) return mark(h, txn, object, field, err);
  if (target) {
    refer(type, f, h, txn, object, field, target, err);
  } else {
    clear(type, f, h, txn, field, err);
  }
  kvtlib_oid_settle(h, txn);
}

std::uint32_t struct_get_oid_count(const StructDesc& type, kvt_handle* h, const void* object, int* err) {
  if (*err) {
    trace(type.trace, kStructMessages, kMsgStructCountError);
    return 0;
  }
  if (!object) {
    trace(type.trace, kStructMessages, kMsgStructCountNull);
    fail(h, kEinval, err);
    return 0;
  }
  return type.oid_count;
}

void struct_get_object_references(const StructDesc& type, kvt_handle* h, std::uint32_t txn, const void* object,
                                  void** out, int* err) {
  if (*err) return trace(type.trace, kStructMessages, kMsgStructReferencesError);
  if (!object) {
    trace(type.trace, kStructMessages, kMsgStructReferencesNull);
    return fail(h, kEinval, err);
  }
  if (!type.oid_count) return;
  for (const FieldDesc* f = type.fields; f != type.fields + type.field_count; ++f) {
    if (!leads_to_table(*f)) continue;
    void* target = nullptr;
    const void* value = at_offset(object, f->offset + kValueAt);
    if (type.has_room_for(*f, object) && load<std::uint64_t>(value) >= kFirstLocator) {
      target = kvt_oid_to_handle(h, txn, value, err);
      if (*err) return trace(type.trace, kStructMessages, kMsgStructReferencesUnresolved);
    }
    *out++ = target;
  }
}

void clear_table_references(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object) {
  for (const FieldDesc* f = type.fields; f != type.fields + type.field_count; ++f) {
    if (!leads_to_table(*f) || !type.has_room_for(*f, object)) continue;
    store_announced(h, txn, at_offset(object, f->offset + kValueAt), kvt_oid_value{});
  }
}

}  // namespace kvt
