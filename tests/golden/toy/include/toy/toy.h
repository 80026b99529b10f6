/// @file
/// All that the module toy exports.
/// Made by zarnc from the schema of toy; not to be edited.
#ifndef TOY_ALL_H
#define TOY_ALL_H

#include <kvt/kvt.h>

#ifdef __cplusplus
extern "C" {
#endif

#include "toy/st_leaf.h"
#include "toy/st_tree.h"
#include "toy/enm_shade.h"
#include "toy/flg_marks.h"
#include "toy/tbl_trees.h"

/// Registers the module's types in the handle's registry; its address goes to kvt_type_info_ptr_get. ENOMEM.
KVT_EXPORT void toy_typeinfo_initialize(kvt_handle *handle, uint32_t txn, int *err);
/// Binds the module's trace id; cheap and idempotent.
KVT_EXPORT void kvt_toy_trace_init(void);
KVT_EXPORT extern uint16_t g_kvt_toy_trace_module_id;

#ifdef __cplusplus
}
#endif
#endif
