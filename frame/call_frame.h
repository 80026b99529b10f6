// The frame around every operation: error slot, tracking mode, preambles, type links, statistics.
#pragma once

#include <cstdint>

#include "frame/descriptor.h"
#include "platform/ref.h"

namespace kvt {

constexpr int kEperm = 1, kEnoent = 2, kEnomem = 12, kEfault = 14, kEexist = 17, kEinval = 22, kE2big = 7, kEagain = 11,
              kEidrm = 43, kEbade = 52, kEmsgsize = 90;

enum class Tracking : std::uint8_t { kAbsent, kOff, kOn };

[[noreturn]] void stop_corrupt_handle(const StructDesc& type);

// Reads the descriptor anew; this is also the integrity check of the handle.
inline Tracking tracking_of(const kvt_handle* h, const StructDesc& type) {
  if (!h->sttr) return Tracking::kAbsent;
  if (h->sttr->tag == KVT_STTR_ON) return Tracking::kOn;
  if (h->sttr->tag == KVT_STTR_OFF) return Tracking::kOff;
  stop_corrupt_handle(type);
}

// The error goes to the caller's slot first, then to the handle.
inline void fail(kvt_handle* h, int code, int* err) {
  *err = code;
  kvt_store_err(h, code);
}

// What a form without write context gives: the count, or -1 when the handle's last error is set by now.
inline std::int32_t result_cr(const kvt_handle* h, std::uint32_t count) {
  return h->last_error ? -1 : static_cast<std::int32_t>(count);
}

inline bool marks_wanted(const kvt_handle* h, std::uint32_t txn) {
  return h->containment && txn != KVT_NO_TXN && h->mode == 1;
}
inline void report(kvt_handle* h, std::uint32_t txn, void* child, void* parent) {
  if (h->containment) kvtdb_record_containment2(h, txn, child, parent, 1);
}

inline int cap_variant(int variant, int top) { return variant < top ? variant : top; }

// The steps before a read of a field that came with `variant`; false: refused, the slot says why.
inline bool begin_read(kvt_handle* h, const void* object, int variant, bool scalar, int* err) {
  if (*err) return false;
  kvt_clear_last_error(h);
  if (kvt_get_instance_variant(object, 1, scalar) < variant) {
    kvt_store_epoch_err(h, kEidrm, err);
    return false;
  }
  return true;
}

inline void adjust_variant(kvt_handle* h, std::uint32_t txn, void* object, int top, int* err) {
  const kvt_type_record* record = object ? kvt_get_manifested_type_info(object, err) : nullptr;
  kvtlib_adjust_variant(h, txn, object, record, top, err);
}

// The steps before a write: the runtime may raise the object's variant, hence before the test.
inline bool begin_write(kvt_handle* h, std::uint32_t txn, void* object, int top, int variant, bool scalar, int* err) {
  if (*err) return false;
  kvt_clear_last_error(h);
  adjust_variant(h, txn, object, top, err);
  if (kvt_get_instance_variant(object, 1, scalar) < variant) {
    kvt_store_epoch_err(h, kEidrm, err);
    return false;
  }
  return true;
}

inline void start_trace(const ModuleDesc& module) {
  fenlog_module_init_fn(module.trace_name, module.trace_id, module.trace_state);
}

// The record to be linked from an object of this handle: the static one, or the database's registered copy.
inline const kvt_type_record* linked_record(kvt_handle* h, std::uint32_t txn, const kvt_type_record* record,
                                            const ModuleDesc& module) {
  return h->mode ? kvt_type_info_ptr_get(h, txn, record, module.registrar) : record;
}

// The entry of variant data to count in: the variant capped at the top, and at what a registered copy of an older
// schema has; a negative one counts in entry 0. Nothing beside the array is ever written.
inline kvt_variant_entry* stats_entry(const kvt_variant_data* varinfo, int variant, int top) {
  const int index = cap_variant(cap_variant(variant, top), varinfo->n_variants - 1);
  return kvt_variant_entries(varinfo) + (index < 0 ? 0 : index);
}

// Adds 1 to a counter of a type record: plain in a registered copy, atomic in a static record.
void count_plain(const kvt_type_record* record, std::uint64_t* counter);

// The text of an error code for a trace line.
const char* error_text(int code);

}  // namespace kvt
