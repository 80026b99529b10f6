#include "platform/owned.h"

#include <cerrno>
#include <cstring>

#include "platform/handle.h"
#include "platform/oid.h"
#include "platform/wire_inline.h"

namespace kvt {
namespace {

constexpr std::uint32_t kTimerBytes = 64;
constexpr std::uint32_t kOidAt = 8;  // in a reference field

kvt_vstring text_copy(kvt_handle* h, std::uint32_t txn, const void* source, int* err) {
  const WireText from = wire_text_of(source);
  if (!from.length) return {};
  auto* block = static_cast<char*>(h->runtime->store->alloc(txn, from.length + 1));
  if (!block) {
    report_error(h, ENOMEM, err);
    return {};
  }
  copy_short(reinterpret_cast<std::uint8_t*>(block), from.bytes, from.length);
  block[from.length] = 0;
  return {cage_ref(block), from.length};
}

// The raw copy has brought the identity; what is left is to count.
void reference_count(kvt_handle* h, std::uint32_t txn, void* field, int* err) {
  OidEntry* entry = oid_find(*h->runtime->store, at_offset(field, kOidAt));
  if (!entry) return;
  *err = oid_take(*h->runtime->store, txn, entry);
  if (*err) report_error(h, *err, err);
}

void clear(void* field, OwnedKind kind) {
  switch (kind) {
    case OwnedKind::kText:
      return store(field, kvt_vstring{});
    case OwnedKind::kSecret:
      return store(field, kvt_aes_vstring{});
    case OwnedKind::kReference:
      return store(at_offset(field, kOidAt), kvt_oid_value{});
    case OwnedKind::kTimer:
      std::memset(field, 0, kTimerBytes);
  }
}

}  // namespace

bool store_is_unheard(const kvt_handle* h) {
  return h->set_range == kvt_set_range_private && h->store_alloc == store_alloc && h->store_free == store_free &&
         h->store == h->runtime->store && h->runtime->store->is_private();
}

void owned_separate(kvt_handle* h, std::uint32_t txn, void* object, const void* source, OwnedFields fields, int* err) {
  for (const OwnedField& f : fields) {
    void* field = at_offset(object, f.offset);
    const void* other = at_offset(source, f.offset);
    if (*err || f.kind == OwnedKind::kTimer) {
      clear(field, f.kind);
    } else if (f.kind == OwnedKind::kText) {
      store(field, text_copy(h, txn, other, err));
    } else if (f.kind == OwnedKind::kSecret) {
      kvt_aes_vstring_set(h, txn, field, other, err);
    } else {
      reference_count(h, txn, field, err);
      if (*err) clear(field, f.kind);
    }
  }
}

void owned_release(kvt_handle* h, std::uint32_t txn, void* object, OwnedFields fields) {
  Store& store_of = *h->runtime->store;
  int err = 0;
  for (const OwnedField& f : fields) {
    void* field = at_offset(object, f.offset);
    if (f.kind == OwnedKind::kText) {
      void* block = cage_at(load<kvt_vstring>(field).text);
      if (!block) continue;
      store(field, kvt_vstring{});
      store_of.free(txn, block);
    } else if (f.kind == OwnedKind::kSecret) {
      kvt_aes_vstring_destroy_internal(h, txn, field, 0);
    } else if (f.kind == OwnedKind::kReference) {
      kvtlib_oid_release_internal(h, txn, field, &err);
    }
  }
}

}  // namespace kvt
