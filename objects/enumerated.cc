#include "objects/enumerated.h"

#include <cstring>

namespace kvt {
namespace {

const kvt_variant_data* checked_varinfo(const EnumDesc& type, const kvt_type_record* record, int variant) {
  const kvt_variant_data* varinfo = kvt_varinfo_of(record);
  if (!varinfo) {
    trace(type.trace, kEnumMessages, kMsgEnumNoVarinfo);
    kvt_fatal();
  }
  if (varinfo->n_variants < variant) {
    trace(type.trace, kEnumMessages, kMsgEnumVariantAbove, static_cast<std::uint32_t>(variant),
          static_cast<std::uint32_t>(varinfo->n_variants));
  }
  return varinfo;
}

// Writes the header in the order that readers rely on. @return the record that is linked now: without a registered copy
// the static one, for an object that is kept whatever came of the look-up must not stop the process when it goes
const kvt_type_record* write_header(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, void* object,
                                    const kvt_type_record* record, int announce, int flags, int variant, int* err) {
  auto put = [&](std::uint32_t offset, auto value) {
    if (announce) h->set_range(h, at_offset(object, offset), sizeof value, txn, nullptr);
    store(at_offset(object, offset), value);
  };
  put(5, type.cap);
  put(4, static_cast<std::int8_t>(variant));
  const kvt_type_record* linked = linked_record(h, txn, record, *type.module);
  if (!linked) {
    fail(h, kEnomem, err);
    linked = record;
  }
  put(0, kvt_type_link_of(linked));
  put(6, static_cast<std::uint8_t>(static_cast<std::uint8_t*>(object)[6] | flags));
  return linked;
}

// The shared test of both set operations. false: refused, the slot says why.
bool value_allowed(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, void* object, std::uint32_t value,
                   int* err) {
  if (!object) {
    fail(h, kEinval, err);
    return false;
  }
  adjust_variant(h, txn, object, type.cap, err);
  const int variant = kvt_get_instance_variant(object, 1, 0);
  for (int n = 0; n <= type.cap; ++n) {
    if (value >= type.legal[n] && variant <= n) {
      kvt_store_epoch_err(h, kEidrm, err);
      return false;
    }
  }
  return true;
}

}  // namespace

void* scalar_create_internal(const EnumDesc& type, kvt_handle* h, std::uint32_t txn) {
  void* object = nullptr;
  if (h->cr_create && h->last_error) {
    object = type.failure_object();
  } else if ((object = h->store_alloc(h->store, txn, kScalarObjectSize)) != nullptr) {
    memset_cr(object, 0, kScalarObjectSize);
    int err = 0;
    const int variant = cap_variant(kvt_domain_lookup_variant(h, &h->domain, type.record, &err), type.cap);
    const kvt_type_record* record = write_header(type, h, txn, object, type.record, 1, 0, variant, &err);
    if (err) trace(type.trace, kEnumMessages, kMsgEnumCreateError, error_text(err));
    const kvt_variant_data* varinfo = checked_varinfo(type, record, variant);
    std::uint64_t* counter = &stats_entry(varinfo, variant, type.cap)->created;
    h->set_counter(h, counter, 1, txn);
    count_plain(record, counter);
  } else if (h->cr_create) {
    if (!h->last_error) kvt_store_err(h, kEnomem);
    object = type.failure_object();
  }
  report(h, txn, object, nullptr);
  if (marks_wanted(h, txn)) kvtdb_plat_set_dirty(h, txn, object);
  return object;
}

void* scalar_create_cr(const EnumDesc& type, kvt_handle* h) {
  h->cr_create = 1;
  void* object = scalar_create_internal(type, h, h->default_txn);
  h->cr_create = 0;
  return object;
}

void scalar_initialize(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, void* object,
                       const kvt_type_record* record, int announce, int flags, int* err) {
  if (*err) return;
  kvt_clear_last_error(h);
  const int variant = cap_variant(kvt_domain_lookup_variant(h, &h->domain, record, err), type.cap);
  if (!*err) write_header(type, h, txn, object, record, announce, flags, variant, err);
}

void scalar_destroy_internal(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, void* object, int free_it,
                             bool marks) {
  if (!object || object == type.failure_object() || !free_it) return;
  int err = 0;
  const kvt_type_record* record = kvt_get_manifested_type_info(object, &err);
  if (!record || record->magic != KVT_TYPE_MAGIC) {
    trace(type.trace, kEnumMessages, kMsgEnumCorruptType);
    kvt_fatal();
  }
  const int variant = kvt_get_instance_variant(object, 1, 0);
  const kvt_variant_data* varinfo = checked_varinfo(type, record, variant);
  std::uint64_t* counter = &stats_entry(varinfo, variant, type.cap)->destroyed;
  h->set_counter(h, counter, 1, txn);
  count_plain(record, counter);
  if (marks && marks_wanted(h, txn)) kvtdb_plat_set_destroy(h, txn, object);
  store(object, std::uint32_t{0});
  h->store_free(h->store, txn, object);
}

void scalar_set_embedded(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, void* object) {
  if (!object) {
    trace(type.trace, kEnumMessages, kMsgEnumInvalidEmbed);
    return;
  }
  void* flags = at_offset(object, 6);
  store_announced(h, txn, flags, static_cast<std::uint8_t>(load<std::uint8_t>(flags) | KVT_OBJ_EMBEDDED));
}

std::uint32_t scalar_get_oid_count(const EnumDesc& type, kvt_handle* h, const void* object, int* err) {
  if (*err) {
    trace(type.trace, kEnumMessages, kMsgEnumCountError);
  } else if (!object) {
    trace(type.trace, kEnumMessages, kMsgEnumCountNull);
    fail(h, kEinval, err);
  }
  return 0;
}

void scalar_get_object_references(const EnumDesc& type, kvt_handle* h, const void* object, int* err) {
  if (*err) {
    trace(type.trace, kEnumMessages, kMsgEnumReferencesError);
  } else if (!object) {
    trace(type.trace, kEnumMessages, kMsgEnumReferencesNull);
    fail(h, kEinval, err);
  }
}

void* enum_get(kvt_handle* h, std::uint32_t txn, void* object) {
  report(h, txn, object, nullptr);
  return object;
}

std::uint32_t enum_get_value(kvt_handle* h, const void* object, int* err) {
  if (*err) return 0;
  kvt_clear_last_error(h);
  if (!object) {
    fail(h, kEinval, err);
    return 0;
  }
  return load<std::uint32_t>(at_offset(object, kEnumValueOffset));
}

void enum_set(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, void* object, const void* source, int* err) {
  if (*err) return;
  kvt_clear_last_error(h);
  if (!source) {
    fail(h, kEinval, err);
    return;
  }
  if (!value_allowed(type, h, txn, object, load<std::uint32_t>(at_offset(source, kEnumValueOffset)), err)) return;
  h->set_range(h, object, kScalarObjectSize, txn, nullptr);
  std::memmove(object, source, kScalarObjectSize);
}

void enum_set_value(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, void* object, std::uint32_t value,
                    int* err) {
  if (*err) return;
  kvt_clear_last_error(h);
  if (!value_allowed(type, h, txn, object, value, err)) return;
  store_announced(h, txn, at_offset(object, kEnumValueOffset), value);
}

bool enum_is_valid(const EnumDesc& type, kvt_handle* h, std::int32_t value) {
  const int domain = kvt_domain_lookup_variant(h, &h->domain, type.record, &h->last_error);
  for (int n = 0; n < type.cap; ++n) {
    if (domain <= n && value >= static_cast<std::int32_t>(type.legal[n])) return false;
  }
  return value < static_cast<std::int32_t>(type.legal[static_cast<int>(type.cap)]);
}

}  // namespace kvt
