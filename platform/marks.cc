// Passes on what the library tells the runtime about objects to whoever observes the handle.
#include "platform/handle.h"

namespace {

const kvt_observer& observer_of(const kvt_handle* handle) { return handle->runtime->observer; }

}  // namespace

void kvt_observe(kvt_handle* handle, const kvt_observer* observer) {
  handle->runtime->observer = observer ? *observer : kvt_observer{};
}

void kvtdb_plat_set_dirty(kvt_handle* handle, uint32_t txn, void* object) {
  const kvt_observer& o = observer_of(handle);
  if (o.dirty) o.dirty(o.argument, txn, object);
}

void kvtdb_plat_set_destroy(kvt_handle* handle, uint32_t txn, void* object) {
  const kvt_observer& o = observer_of(handle);
  if (o.destroy) o.destroy(o.argument, txn, object);
}

void kvtdb_plat_set_detach(kvt_handle* handle, uint32_t txn, void* object, int) {
  const kvt_observer& o = observer_of(handle);
  if (o.detach) o.detach(o.argument, txn, object);
}

void kvtdb_record_containment(kvt_handle* handle, uint32_t, int kind, void* child, void* parent, int) {
  const kvt_observer& o = observer_of(handle);
  if (o.containment) o.containment(o.argument, kind, child, parent);
}

void kvtdb_record_containment2(kvt_handle* handle, uint32_t txn, void* child, void* parent, int one) {
  kvtdb_record_containment(handle, txn, 0, child, parent, one);
}
