#include "objects/state_tracking.h"

namespace kvt {
namespace {

constexpr std::uint8_t kStateWritten = 2;

std::uint8_t flags_of(const void* object) { return object ? static_cast<const std::uint8_t*>(object)[6] : 0; }

// The common entry of the two state-flag operations; false: refused.
bool state_tracking_wanted(const StructDesc& type, kvt_handle* h, int* err) {
  if (tracking_of(h, type) != Tracking::kOff) return true;
  fail(h, kEinval, err);
  return false;
}

}  // namespace

std::uint32_t plain_size(const StructDesc& type, const kvt_handle* h, const void* object) {
  if (tracking_of(h, type) == Tracking::kAbsent) return type.top_plain();
  return type.plain[type.built_index(object)];
}

std::uint8_t* state_block(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object) {
  auto* bytes = static_cast<std::uint8_t*>(object);
  if (flags_of(object) & KVT_OBJ_STTR_OFFSET) {
    const std::int32_t offset = kvtlib_get_sttr_offset(h, txn, object);
    return offset ? bytes + offset : nullptr;
  }
  // Without a descriptor the block is taken to lie behind the top size, where an older object has nothing.
  if (!h->sttr && type.built_index(object) < type.top) return nullptr;
  return bytes + plain_size(type, h, object);
}

std::uint8_t state_flag_get(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, std::uint32_t state,
                            int* err) {
  if (*err || !state_tracking_wanted(type, h, err)) return 0;
  const bool tracked = flags_of(object) & KVT_OBJ_STATE_TRACKED;
  const std::uint8_t* block = tracked ? state_block(type, h, txn, object) : nullptr;
  if (!block) {
    fail(h, kEinval, err);
    trace(type.trace, kStructMessages, kMsgStructNonTracked);
    return 0;
  }
  // An older object's block ends before the bytes of later variants.
  return state < type.block[type.built_index(object)] ? block[state] : 0;
}

void state_flag_set(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, std::uint32_t state,
                    int variant, bool scalar, std::uint32_t value, int* err) {
  if (*err || !state_tracking_wanted(type, h, err)) return;
  if (!(flags_of(object) & KVT_OBJ_STATE_TRACKED)) {
    trace(type.trace, kStructMessages, kMsgStructNotTracked);
    fail(h, kEinval, err);
    return;
  }
  adjust_variant(h, txn, object, type.top, err);
  if (kvt_get_instance_variant(object, 1, scalar) < variant) {
    kvt_store_epoch_err(h, kEidrm, err);
    return;
  }
  if (std::uint8_t* block = state_block(type, h, txn, object)) {
    store_announced(h, txn, block + state, static_cast<std::uint8_t>(value));
  } else {
    trace(type.trace, kStructMessages, kMsgStructNotTracked);
    fail(h, kEinval, err);
  }
}

void state_set_all(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, std::uint8_t value) {
  if (!h->sttr || h->sttr->tag != KVT_STTR_ON || !(flags_of(object) & KVT_OBJ_STATE_TRACKED)) return;
  std::uint8_t* block = state_block(type, h, txn, object);
  const std::uint32_t length = tracking_of(h, type) == Tracking::kOff ? 0 : type.block[type.built_index(object)];
  if (block) memset_cr(block, value, length);
}

bool mark_tracked(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, std::uint32_t state,
                  int* err) {
  const bool tracked = flags_of(object) & KVT_OBJ_STATE_TRACKED;
  std::uint8_t* block = tracked ? state_block(type, h, txn, object) : nullptr;
  if (!block) {
    fail(h, kEinval, err);
    trace(type.trace, kStructMessages, kMsgStructNotTracked);
    return false;
  }
  store_announced(h, txn, block + state, kStateWritten);
  return true;
}

}  // namespace kvt
