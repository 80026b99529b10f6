#include "zarn_wlan/src/record.h"

#include <cstring>

#include "zarn_wlan/src/membership.h"

namespace kvt {
namespace {

void count_record(const TableDesc& type, kvt_handle* h, std::uint32_t txn, const kvt_type_record* record,
                  bool created) {
  const kvt_variant_data* varinfo = kvt_varinfo_of(record);
  if (!varinfo) {
    trace(type.trace, kTableMessages, kMsgRecordNoVarinfo);
    kvt_fatal();
  }
  if (varinfo->n_variants < 0) {
    trace(type.trace, kTableMessages, kMsgRecordVariants, 0u, static_cast<std::uint32_t>(varinfo->n_variants));
  }
  kvt_variant_entry* entry = stats_entry(varinfo, 0, 0);
  std::uint64_t* counter = created ? &entry->created : &entry->destroyed;
  h->set_counter(h, counter, 1, txn);
  count_plain(record, counter);
}

void put_slot(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* record, void* object) {
  store_announced(h, txn, payload_slot(type, record), cage_ref(object), record);
}

// The worker of all three create operations.
void* build_record(const TableDesc& type, kvt_handle* h, std::uint32_t txn, std::uint32_t source, int* err) {
  start_trace(*type.module);
  auto link = [&] { return linked_record(h, txn, type.record_record, *type.module); };
  void* block = h->store_alloc(h->store, txn, type.record_size);
  const kvt_type_record* linked = block ? link() : nullptr;
  if (block && !linked) {  // the database cannot take the type
    h->store_free(h->store, txn, block);
    block = nullptr;
  }
  if (!block) {
    if (!h->cr_create) {
      report_contained(h, txn, kContainRecord, nullptr, nullptr);
      if (marks_wanted(h, txn)) kvtdb_plat_set_dirty(h, txn, nullptr);
      return nullptr;
    }
    if (!h->last_error) kvt_store_err(h, kEnomem);
    block = type.failure_record();
    linked = link();
    if (!linked) linked = type.record_record;
  }
  std::memset(block, 0, type.record_size);
  RecordBlock* record = record_of(block);
  store_announced(h, txn, &record->type_record, kvt_type_link_of(linked));
  count_record(type, h, txn, linked, true);
  *err = 0;
  record->source = static_cast<std::uint8_t>(source);
  record->ref_count = 1;
  record->tenant_id = thread_tenant;
  report_contained(h, txn, kContainRecord, record, nullptr);
  if (marks_wanted(h, txn)) kvtdb_plat_set_dirty(h, txn, record);
  return record;
}

bool settable(const TableDesc& type, kvt_handle* h, void* object, MessagePlace refusal) {
  const int code = kvtlib_validate_object_flags(object, 1, 1);
  if (!code) return true;
  trace(type.trace, kTableMessages, refusal);
  kvt_store_err(h, code);
  return false;
}

}  // namespace

void* record_create(const TableDesc& type, kvt_handle* h, std::uint32_t txn, std::uint32_t source, int* err) {
  // The worker ends with a clear slot, which would lose the first failure of a chain.
  return *err ? nullptr : build_record(type, h, txn, source, err);
}

void* record_create_cr(const TableDesc& type, kvt_handle* h, std::uint32_t with_payload) {
  h->cr_create = 1;
  void* record = build_record(type, h, h->default_txn, kOrdinarySource, &h->last_error);
  if (with_payload) {
    void* payload = type.payload.create(h, h->default_txn);
    *payload_slot(type, record) = cage_ref(payload);
    report_contained(h, h->default_txn, kContainPayload, payload, record);
  }
  h->cr_create = 0;
  return record;
}

std::uint32_t record_add_ref(kvt_handle* h, std::uint32_t txn, void* block, int* err) {
  if (*err) return 0;
  if (!block) {
    fail(h, kEnoent, err);
    return 0;
  }
  RecordBlock* record = record_of(block);
  const std::uint32_t count = record->ref_count & kRefCountMask;
  bassert(kRefCountMask != count, "((1 << 24) - 1) != __ref_cnt");
  store_announced(h, txn, &record->ref_count, (count + 1) & kRefCountMask);
  return count;
}

std::uint32_t record_destroy(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* block, int* err) {
  if (*err) return 0;
  if (!block) {
    fail(h, kEnoent, err);
    return 0;
  }
  RecordBlock* record = record_of(block);
  const std::uint32_t left = (record->ref_count - 1) & kRefCountMask;
  store_announced(h, txn, &record->ref_count, left);
  if (left) return left;
  if (record->table && !(record->record_flags & kRecordKeepInTable)) {
    record_remove(type, h, txn, cage_at(record->table), record, false, err);
    if (record_in_a_tree(type, record)) {
      // The delete was refused: the record stays whole, and keeps its last reference.
      store_announced(h, txn, &record->ref_count, 1u);
      if (!*err) fail(h, kEinval, err);
      return 1;
    }
    if (*err) {
      trace(type.trace, kTableMessages, kMsgRecordDeleteFailed, *err);
      *err = 0;
    }
  }
  type.payload.destroy(h, txn, payload_of(type, record));
  const kvt_type_record* linked = kvt_type_link_at(record->type_record);
  if (!linked || linked->magic != KVT_TYPE_MAGIC) {
    trace(type.trace, kTableMessages, kMsgRecordCorruptType);
    kvt_fatal();
  }
  count_record(type, h, txn, linked, false);
  *err = 0;
  if ((record->record_flags & kRecordSideData) && h->hd_mapping) {
    kvt_hd_mapping_destroy(h, txn, record, err);
    if (*err) {
      trace(type.trace, kTableMessages, kMsgRecordSideData, error_text(*err));
      kvt_store_err(h, *err);
      return 0;
    }
  }
  if (record->location) {
    kvtlib_record_dereference_loc(h, txn, record, err);
    if (*err) {
      trace(type.trace, kTableMessages, kMsgRecordLocation, error_text(*err));
      return 0;
    }
  }
  store_announced(h, txn, &record->type_record, std::uint32_t{0});
  if (block != type.failure_record()) h->store_free(h->store, txn, block);
  return 0;
}

void record_request_destroy(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* table, void* block,
                            kvt_record_destroy destroy, int* err) {
  if (*err) return;
  kvt_clear_last_error(h);
  auto refuse = [&](MessagePlace message, int code) {
    fail(h, code, err);
    trace(type.trace, kTableMessages, message);
  };
  if (!table || !block) return refuse(kMsgRequestInvalid, kEinval);
  const std::uint32_t holder = record_of(block)->table;
  if (!holder) return refuse(kMsgRequestNoTable, kEnoent);
  if (holder != cage_ref(table)) return refuse(kMsgRequestOtherTable, kEfault);
  // The record may be gone when this comes back.
  kvtdb_request_record_destroy(h, txn, block, destroy, err);
  if (*err) trace(type.trace, kTableMessages, kMsgRequestFailed, *err);
}

void* record_get_field(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* record) {
  const std::uint32_t at = *payload_slot(type, record);
  void* payload = Reach(record).has(at) ? cage_at(at) : nullptr;  // a writer may be at the record
  report_contained(h, txn, kContainPayload, payload, record);
  return payload;
}

void* record_detach_field(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* record) {
  void* payload = payload_of(type, record);
  report_contained(h, txn, kContainPayload, payload, nullptr);
  if (marks_wanted(h, txn)) kvtdb_plat_set_detach(h, txn, payload, 0);
  put_slot(type, h, txn, record, nullptr);
  return payload;
}

void record_set_field(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* record, void* object) {
  if (!settable(type, h, object, kMsgRecordSetRefused)) return;
  report_contained(h, txn, kContainPayload, object, record);
  put_slot(type, h, txn, record, object);
  type.payload.set_embedded(h, txn, object);
}

void record_replace_field(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* record, void* object) {
  if (!settable(type, h, object, kMsgRecordReplaceRefused)) return;
  if (void* earlier = payload_of(type, record)) type.payload.destroy(h, txn, earlier);
  put_slot(type, h, txn, record, object);
  report_contained(h, txn, kContainPayload, object, record);
  type.payload.set_embedded(h, txn, object);
}

}  // namespace kvt
