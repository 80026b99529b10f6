// The exported functions of tables, of their keys, and of their primary key.
#include "schema/compiler/emit_families.h"

namespace zarnc {
namespace {

#define TABLE "kvt_handle *handle, uint32_t txn, void *table"
#define RECORD "kvt_handle *handle, uint32_t txn, void *record"
#define WALK "int (*function)(void *record, void *argument), void *argument"

constexpr Operation kTable[] = {
    {"table_open", "void *", "kvt_handle *handle, uint32_t txn, const char *name, uint32_t open_type, int *err",
     "Opens the table of that name; with `open_type` 0 it is made if it isn't there, and in a database the caller "
     "holds the "
     "write lock. NULL with a clear slot: no such table. E2BIG: the name is too long (a name with a slash is a whole "
     "path, "
     "cut to 207 characters); ENOMEM.",
     "return kvt::table_open($(d), handle, txn, kvt::TableRequest{name, open_type}, err);"},
    {"table_open_by_id", "void *", "kvt_handle *handle, uint32_t txn, uint64_t id, uint32_t open_type, int *err",
     "As $(table)_table_open for the table of that number.",
     "return kvt::table_open($(d), handle, txn, kvt::TableRequest{nullptr, open_type, id, 0, 0, kvt::kById}, err);"},
    {"table_open_auto_id", "void *", "kvt_handle *handle, uint32_t txn, uint32_t open_type, int *err",
     "Makes a dynamic table with the next free number; NULL where `open_type` is not 0. ENOMEM.",
     "return kvt::table_open($(d), handle, txn, kvt::TableRequest{nullptr, open_type, 0, 0, 1, kvt::kByAutomaticId}, "
     "err);"},
    {"table_open_by_ior_with_name", "void *",
     "kvt_handle *handle, uint32_t txn, const char *name, uint32_t ior, uint32_t open_type, uint32_t dynamic, int *err",
     "As $(table)_table_open; `ior` goes with the identity of a new table, `dynamic` marks it.",
     "return kvt::table_open($(d), handle, txn, kvt::TableRequest{name, open_type, 0, ior, dynamic}, err);"},
    {"table_open_by_ior_with_id", "void *",
     "kvt_handle *handle, uint32_t txn, uint64_t id, uint32_t ior, uint32_t open_type, uint32_t dynamic, int *err",
     "As $(table)_table_open_by_id; `ior` goes with the identity of a new table, `dynamic` marks it.",
     "return kvt::table_open($(d), handle, txn, kvt::TableRequest{nullptr, open_type, id, ior, dynamic, kvt::kById}, "
     "err);"},
    {"table_open_cr", "void *",
     "kvt_handle *handle, uint32_t open_type, uint32_t id_mode, const char *name, uint64_t id",
     "Opens with the handle's write context and last error: by name (`id_mode` 0), by number (1), or a new dynamic one "
     "(2).",
     "return kvt::table_open_cr($(d), handle, open_type, id_mode, name, id);"},
    {"table_close_cr", "void", "kvt_handle *handle, void *table, uint32_t mode",
     "As $(table)_table_close; mode 1 frees the table, mode 2 asks for it.",
     "kvt::table_close_cr($(d), handle, table, mode);"},
    {"table_free", "void", TABLE ", int *err",
     "Takes an empty table out of the database and gives it back; where the contents defer it, the runtime does the "
     "second half. ENOENT: it is not in the contents; EAGAIN: objects still refer to it.",
     "kvt::table_free($(d), handle, txn, table, err);"},
    {"request_table_free", "void", TABLE ", int *err",
     "Takes the table out of the contents of a shared database; the runtime frees it later. Without one this is "
     "$(table)_table_free.",
     "kvt::table_request_free($(d), handle, txn, table, err);"},
    {"table_close", "void", TABLE ", int *err", "Nothing happens to the table; clears the last error.",
     "(void)txn, (void)table;\n  kvt::table_close(handle, err);"},
    {"get_luid", "const uint8_t *", "kvt_handle *handle, uint32_t txn, const void *object, int *err",
     "The 16 bytes of the identity of a table or record.", "return kvt_get_luid(handle, txn, object, err);"},
    {"create_record", "void *", "kvt_handle *handle, uint32_t txn, int *err",
     "A record of source 1 with one reference, no payload, in no table. NULL when the store is exhausted.",
     "return kvt::record_create($(d), handle, txn, 1, err);"},
    {"create_record_w_src", "void *", "kvt_handle *handle, uint32_t txn, uint32_t source, int *err",
     "As $(table)_create_record with the given source; 255 makes a shadow record.",
     "return kvt::record_create($(d), handle, txn, source, err);"},
    {"record_create_cr", "void *", "kvt_handle *handle, uint32_t with_payload",
     "A record of source 1, with a new payload if asked for; never NULL: an exhausted store gives the failure record.",
     "return kvt::record_create_cr($(d), handle, with_payload);"},
    {"record_add_ref", "uint32_t", RECORD ", int *err", "Takes a reference; the count before. ENOENT for NULL.",
     "return kvt::record_add_ref(handle, txn, record, err);"},
    {"destroy_record", "uint32_t", RECORD ", int *err",
     "Drops a reference; at the last the record leaves its table and goes, payload and all. The references left. "
     "ENOENT "
     "for NULL.",
     "return kvt::record_destroy($(d), handle, txn, record, err);"},
    {"record_destroy_cr", "uint32_t", "kvt_handle *handle, void *record",
     "As $(table)_destroy_record with the handle's write context and last error.",
     "return kvt::record_destroy($(d), handle, handle->default_txn, record, &handle->last_error);"},
    {"request_record_destroy", "void", TABLE ", void *record, int *err",
     "Asks for the record's destruction: it is marked, stays in its indexes while cursors must see it go, and loses "
     "one "
     "reference then, perhaps at once. EINVAL: NULL; ENOENT: in no table; EFAULT: in another table.",
     "kvt::record_request_destroy($(d), handle, txn, table, record, $(table)_destroy_record, err);"},
    {"request_record_destroy_cr", "int32_t", "kvt_handle *handle, void *table, void *record",
     "As $(table)_request_record_destroy with the handle's write context; the last error.",
     "kvt::record_request_destroy($(d), handle, handle->default_txn, table, record, $(table)_destroy_record, "
     "&handle->last_error);\n  return handle->last_error;"},
    {"$(struct)_get_field", "void *", RECORD, "The payload, still owned by the record.",
     "return kvt::record_get_field($(d), handle, txn, record);"},
    {"$(struct)_get_field_detach", "void *", RECORD, "The payload, now owned by the caller.",
     "return kvt::record_detach_field($(d), handle, txn, record);"},
    {"$(struct)_set_field", "void", RECORD ", void *object",
     "Gives the object to the record; an earlier payload stays the caller's. EINVAL in the last error: the object is "
     "nested "
     "or in a record already.",
     "kvt::record_set_field($(d), handle, txn, record, object);"},
    {"$(struct)_free_and_set_field", "void", RECORD ", void *object",
     "As $(table)_$(struct)_set_field, and an earlier payload is destroyed.",
     "kvt::record_replace_field($(d), handle, txn, record, object);"},
    {"record_walk_cr", "void", "kvt_handle *handle, void *table, uint32_t key_index, " WALK,
     "Calls the function for every record of the table, of all tenants and sources, in the order of a key.",
     "static const e_avl_function kOnNode[] = {$(walks)};\n"
     "  kvt::record_walk_cr($(d), kOnNode, handle, table, key_index, function, argument);"},
    {"pkey_create", "void *", "kvt_handle *handle, uint32_t txn",
     "A key holder: an object of the payload's type of which only the primary key is read.",
     "return $(struct)_create(handle, txn);"},
    {"pkey_destroy", "void", "kvt_handle *handle, uint32_t txn, void *object", "Gives back a key holder.",
     "$(struct)_destroy(handle, txn, object);"},
    {"table_get_count", "uint32_t", TABLE,
     "Records visible to the caller's tenant; all records for tenant 0. 0 for NULL.",
     "return kvt::table_count(handle, txn, table);"},
    {"table_get_count_by_src", "uint32_t", TABLE ", uint32_t source",
     "Records of the tenant and source; tenant 0 counts shadow records only.",
     "return kvt::table_count_by_source(handle, txn, table, source);"},
    {"table_get_count_cr", "uint32_t", "kvt_handle *handle, void *table", "As $(table)_table_get_count.",
     "return kvt::table_count(handle, handle->default_txn, table);"},
    {"insert", "void", TABLE ", void *record, int *err",
     "Enters the record in every index. EEXIST: its tenant, key and source are there already, and nothing has changed.",
     "kvt::record_insert($(d), handle, txn, table, record, false, err);"},
    {"pkey_insert", "void", TABLE ", void *record, int *err", "Enters the record in the primary index alone. EEXIST.",
     "kvt::record_insert($(d), handle, txn, table, record, true, err);"},
    {"insert_cr", "int32_t", "kvt_handle *handle, void *table, void *record, uint32_t primary_only",
     "Either insert, with the handle's write context; the last error.",
     "kvt::record_insert($(d), handle, handle->default_txn, table, record, primary_only != 0, &handle->last_error);\n"
     "  return handle->last_error;"},
    {"delete", "void", TABLE ", void *record, int *err",
     "Takes the record out of every index; it lives on. ENOENT: not in the table; EINVAL: the table is replicated.",
     "kvt::record_remove($(d), handle, txn, table, record, false, err);"},
    {"pkey_delete", "void", TABLE ", void *record, int *err", "Leaves the record in the primary index alone.",
     "kvt::record_remove($(d), handle, txn, table, record, true, err);"},
    {"delete_cr", "int32_t", "kvt_handle *handle, void *table, void *record, uint32_t destroy",
     "Deletes with the handle's write context, and drops a reference if asked to; the last error.",
     "kvt::record_remove($(d), handle, handle->default_txn, table, record, false, &handle->last_error);\n"
     "  if (destroy) kvt::record_destroy($(d), handle, handle->default_txn, record, &handle->last_error);\n"
     "  return handle->last_error;"},
    {"table_record_marshal", "uint32_t",
     "kvt_handle *handle, uint32_t txn, uint8_t *buffer, void *record, int32_t length, int *err",
     "Writes the record's frame (43 bytes) and its payload. EMSGSIZE: too little room; ENOENT: no payload; EBADE: the "
     "domain "
     "doesn't allow the table. Bytes written.",
     "return kvt::record_marshal($(d), handle, txn, buffer, record, length, err);"},
    {"record_marshal_cr", "int32_t", "kvt_handle *handle, void *record, uint8_t *buffer, int32_t length",
     "As $(table)_table_record_marshal; -1 when the last error is set.",
     "return kvt::record_marshal_cr($(d), handle, record, buffer, length);"},
    {"table_record_unmarshal", "uint32_t",
     "kvt_handle *handle, uint32_t txn, void **record, const uint8_t *buffer, int32_t length, uint32_t update, int "
     "*err",
     "Reads a frame into `*record` (`update` not 0) or into a new record that goes to `*record`, also after a read "
     "error. "
     "EMSGSIZE, EPROTO, ENOMEM; ENOENT: no record to update. Neither identity nor domain is tested. Bytes read.",
     "return kvt::record_unmarshal($(d), handle, txn, record, buffer, length, update, err);"},
    {"table_record_len", "uint32_t", RECORD, "Bytes that $(table)_table_record_marshal needs.",
     "return kvt::record_len($(d), handle, txn, record);"},
    {"record_len_cr", "uint32_t", "kvt_handle *handle, void *record",
     "As $(table)_table_record_len; 0 when the last error is set.",
     "return handle->last_error ? 0 : kvt::record_len($(d), handle, handle->default_txn, record);"},
    {"table_record_print", "uint32_t",
     "kvt_handle *handle, uint32_t txn, char *buffer, void *record, int32_t room, int *err",
     "Prints the record with its payload for a reader; a NUL follows that is not counted. EMSGSIZE: also where the "
     "room "
     "is below the payload's binary length. Characters written.",
     "return kvt::record_print($(d), handle, txn, buffer, record, room, err);"},
    {"record_print_cr", "int32_t", "kvt_handle *handle, void *record, char *buffer, int32_t room",
     "As $(table)_table_record_print; -1 when the last error is set.",
     "return kvt::record_print_cr($(d), handle, record, buffer, room);"},
    {"table_pkey_len", "uint32_t", RECORD ", int *err", "Bytes of the primary key in binary form.",
     "return kvt::pkey_len($(d), handle, txn, record, err);"},
    {"table_pkey_marshal", "uint32_t",
     "kvt_handle *handle, uint32_t txn, uint8_t *buffer, void *record, int32_t length, int *err",
     "Writes the record's primary key alone, with no frame. EMSGSIZE. Bytes written.",
     "return kvt::pkey_marshal($(d), handle, txn, buffer, record, length, err);"},
    {"table_pkey_unmarshal", "uint32_t",
     "kvt_handle *handle, uint32_t txn, void **holder, const uint8_t *buffer, int32_t length, int *err",
     "Reads a primary key into a new key holder, which the caller gives back with $(table)_pkey_destroy, also after a "
     "read error. EFAULT: NULL `holder`; ENOMEM; EMSGSIZE. Bytes read.",
     "return kvt::pkey_unmarshal($(d), handle, txn, holder, buffer, length, err);"},
    {"pkey_print", "uint32_t", TABLE ", void *record, char *buffer, int32_t length, int *err",
     "Prints the record's primary key under its field's name. EINVAL: NULL; EMSGSIZE. Characters written.",
     "return kvt::pkey_print($(d), handle, txn, table, record, buffer, length, err);"},
    {"table_record_to_xml", "uint32_t",
     "kvt_handle *handle, uint32_t txn, char *buffer, void *record, int32_t room, int *err",
     "Writes the element $(table) with the payload's element in it. EMSGSIZE. Characters written, no terminator.",
     "return kvt::record_to_xml($(d), handle, txn, buffer, record, room, err);"},
    {"record_toxml_cr", "int32_t", "kvt_handle *handle, void *record, char *buffer, int32_t room",
     "As $(table)_table_record_to_xml; -1 when the last error is set.",
     "return kvt::record_to_xml_cr($(d), handle, record, buffer, room);"},
    {"table_record_from_xml", "void *",
     "kvt_handle *handle, uint32_t txn, kvt_xml_document *document, int *err, char *message, size_t size",
     "A new record with a payload read from the element $(struct); without the element it is fresh. NULL on error: "
     "EINVAL "
     "and others with the path in `message`; ENOMEM.",
     "return kvt::record_from_xml($(d), handle, txn, document, err, message, size);"},
};

#define SEARCH TABLE ", const void *key, int *err"
constexpr Operation kKey[] = {
    {"avl_compare", "int", "const void *a, const void *b",
     "Orders two nodes of this index by tenant, key and source: 0 below, 1 equal, 2 above.",
     "return kvt::key_avl_compare<$(k)>(a, b);"},
    {"avl_internal_walk", "int", "void *node, void *walker", "Hands a node's record to the function of a walk.",
     "return kvt::walk_node($(index), node, walker);"},
    {"walk", "void", "void *table, " WALK ", int *err",
     "Calls the function for every record, of all tenants and sources, in the order of this key.",
     "kvt::key_walk(table, $(index), $(prefix)_avl_internal_walk, function, argument, err);"},
    {"search_internal", "void *",
     TABLE
     ", const void *key, uint32_t nearest, uint32_t forward, uint32_t source, uint32_t neighbour_source, uint32_t "
     "skip_pending, uint32_t same_key, int *err",
     "The search with all its choices. `key` points at $(keyform).",
     "const kvt::SearchOptions options{nearest != 0, forward != 0, source, neighbour_source, skip_pending != 0, "
     "same_key != 0};\n"
     "  return kvt::key_search($(d), $(index), handle, txn, table, key, options, err);"},
    {"search", "void *", SEARCH,
     "The record of this key with source 1, of the caller's tenant; NULL with a clear slot if there is none. `key` "
     "points at "
     "$(keyform). ENOENT: NULL table or key.",
     "return kvt::key_search($(d), $(index), handle, txn, table, key, kvt::SearchOptions{}, err);"},
    {"search_nearest", "void *", SEARCH, "As $(prefix)_search, or else the next higher record with source 1.",
     "const kvt::SearchOptions options{true, true, 1, 1, false, false};\n"
     "  return kvt::key_search($(d), $(index), handle, txn, table, key, options, err);"},
    {"search_cr", "void *", "kvt_handle *handle, void *table, const void *key, uint32_t source, uint32_t flags",
     "Search with the handle's write context and last error. Flags: 1 nearest, 2 pending records count, 4 other "
     "sources of "
     "the key will do.",
     "return kvt::key_search_cr($(d), $(index), handle, table, key, source, flags);"},
    {"search_w_src", "void *", TABLE ", const void *key, uint32_t source, int *err",
     "The record of this key with that source; 0 means 1.",
     "kvt::SearchOptions options;\n  options.source = source;\n"
     "  return kvt::key_search($(d), $(index), handle, txn, table, key, options, err);"},
    {"search_not_pending_destroy", "void *", TABLE ", const void *key, uint32_t source, uint32_t nearest, int *err",
     "As $(prefix)_search_w_src, and no record that waits for its destruction; source 0: another source of the key "
     "will "
     "do, but no shadow record.",
     "const kvt::SearchOptions options{nearest != 0, true, source, source, true, source == 0};\n"
     "  void *found = kvt::key_search($(d), $(index), handle, txn, table, key, options, err);\n"
     "  return *err ? nullptr : found;"},
    {"get_first", "void *", TABLE ", int *err",
     "The tenant's first record with source 1 in the order of this key, or NULL.",
     "return kvt::key_edge($(d), $(index), true, handle, txn, table, kvt::kOrdinaryView, *err);"},
    {"get_first_by_src", "void *", TABLE ", uint32_t source, int *err", "The tenant's first record with that source.",
     "return kvt::key_edge($(d), $(index), true, handle, txn, table, kvt::View{source}, *err);"},
    {"get_first_ignore_src", "void *", TABLE ", int *err",
     "The tenant's first record of any source, shadow records too.",
     "return kvt::key_edge($(d), $(index), true, handle, txn, table, kvt::kWholeView, *err);"},
    {"get_first_not_pending_destroy", "void *", TABLE ", uint32_t source, int *err",
     "The tenant's first record with that source (0: any but shadow records) that waits for no destruction.",
     "const kvt::View view{source, source != 0, true};\n"
     "  return kvt::key_edge($(d), $(index), true, handle, txn, table, view, *err);"},
    {"get_last", "void *", TABLE ", int *err", "The tenant's last record with source 1, or NULL.",
     "return kvt::key_edge($(d), $(index), false, handle, txn, table, kvt::kOrdinaryView, *err);"},
    {"get_last_not_pending_destroy", "void *", TABLE ", uint32_t source, int *err",
     "The tenant's last record with exactly that source that waits for no destruction.",
     "const kvt::View view{source, true, true};\n"
     "  return kvt::key_edge($(d), $(index), false, handle, txn, table, view, *err);"},
    {"get_next", "void *", TABLE ", void *record, int *err",
     "The tenant's next record with source 1, or NULL. `record` need not be in the table any more.",
     "return kvt::key_step($(d), $(index), true, handle, txn, table, record, kvt::kOrdinaryView, false, err);"},
    {"get_next_by_src", "void *", TABLE ", void *record, uint32_t source, int *err",
     "The tenant's next record with that source.",
     "return kvt::key_step($(d), $(index), true, handle, txn, table, record, kvt::View{source}, false, err);"},
    {"get_next_ignore_src", "void *", TABLE ", void *record, int *err", "The tenant's next record of any source.",
     "return kvt::key_step($(d), $(index), true, handle, txn, table, record, kvt::kWholeView, false, err);"},
    {"get_next_not_pending_destroy", "void *", TABLE ", void *record, uint32_t source, int *err",
     "The tenant's next record with exactly that source that waits for no destruction.",
     "const kvt::View view{source, true, true};\n"
     "  return kvt::key_step($(d), $(index), true, handle, txn, table, record, view, false, err);"},
    {"get_prev", "void *", TABLE ", void *record, int *err", "The tenant's previous record with source 1, or NULL.",
     "return kvt::key_step($(d), $(index), false, handle, txn, table, record, kvt::kOrdinaryView, false, err);"},
    {"get_prev_not_pending_destroy", "void *", TABLE ", void *record, uint32_t source, int *err",
     "The tenant's previous record with exactly that source that waits for no destruction.",
     "const kvt::View view{source, true, true};\n"
     "  return kvt::key_step($(d), $(index), false, handle, txn, table, record, view, false, err);"},
    {"get_next_by_key", "void *", SEARCH, "The first record with source 1 above the key, which need not exist.",
     "return kvt::key_beside($(d), $(index), handle, txn, table, key, kvt::ByKey{}, err);"},
    {"get_next_by_key_w_src", "void *", TABLE ", const void *key, uint32_t source, int *err",
     "The first record above the key with that source (0: any but shadow records).",
     "const kvt::ByKey by{true, source, source, {source, source != 0, false}};\n"
     "  return kvt::key_beside($(d), $(index), handle, txn, table, key, by, err);"},
    {"get_next_by_key_not_pending_destroy", "void *",
     TABLE ", const void *key, uint32_t source, uint32_t neighbour_source, int *err",
     "The first record above the key with `neighbour_source` (0: any but shadow records) that waits for no "
     "destruction; "
     "`source` is that of the key's own record.",
     "const kvt::ByKey by{true, source, neighbour_source, {neighbour_source, neighbour_source != 0, true}};\n"
     "  return kvt::key_beside($(d), $(index), handle, txn, table, key, by, err);"},
    {"get_prev_by_key", "void *", SEARCH, "The last record with source 1 below the key, which need not exist.",
     "return kvt::key_beside($(d), $(index), handle, txn, table, key, kvt::ByKey{false, 1, 1, {}}, err);"},
    {"get_prev_by_key_not_pending_destroy", "void *",
     TABLE ", const void *key, uint32_t source, uint32_t neighbour_source, int *err",
     "As $(prefix)_get_next_by_key_not_pending_destroy, below the key.",
     "const kvt::ByKey by{false, source, neighbour_source, {neighbour_source, neighbour_source != 0, true}};\n"
     "  return kvt::key_beside($(d), $(index), handle, txn, table, key, by, err);"},
    {"get_shadow", "void *", TABLE ", void *record, int *err",
     "The shadow record of the record's key, or NULL; tenants are not told apart.",
     "return kvt::key_shadow($(d), $(index), handle, txn, table, record, err);"},
    {"get_cr", "void *",
     "kvt_handle *handle, void *table, uint32_t flag, void *record, uint32_t source, uint32_t options",
     "First (flag 0), last (1), previous (2) or next (3) record, with the handle's write context and last error. "
     "Source 0 "
     "means 1. Options: 1 any source, 2 pending records count. EINVAL in the last error: no such flag.",
     "return kvt::key_get_cr($(d), $(index), handle, table, flag, record, source, options);"},
    {"get_sub_next", "void *", TABLE ", void *record, int *err",
     "The next record with the same key, of whatever source; tenants are not told apart.",
     "return kvt::key_sub_next($(d), $(index), handle, txn, table, record, err);"},
    {"get_next_internal", "void *",
     TABLE
     ", void *record, uint32_t source, uint32_t source_filter, uint32_t skip_pending, uint32_t same_key, int *err",
     "The general forward step.",
     "const kvt::View view{source, source_filter != 0, skip_pending != 0};\n"
     "  return kvt::key_step($(d), $(index), true, handle, txn, table, record, view, same_key != 0, err);"},
    {"get_prev_internal", "void *",
     TABLE
     ", void *record, uint32_t source, uint32_t source_filter, uint32_t skip_pending, uint32_t same_key, int *err",
     "The general backward step.",
     "const kvt::View view{source, source_filter != 0, skip_pending != 0};\n"
     "  return kvt::key_step($(d), $(index), false, handle, txn, table, record, view, same_key != 0, err);"},
    {"unordered_traversal", "void", "void", "Does nothing; completes the set.", ""},
};

#define HOLDER TABLE ", const void *holder"
constexpr Operation kPrimary[] = {
    {"search", "void *", HOLDER ", uint32_t nearest, int *err",
     "The record whose primary key the holder has, or (`nearest`) the next higher one.",
     "const kvt::SearchOptions options{nearest != 0, true, 1, 1, false, false};\n"
     "  return kvt::key_search($(d), 0, handle, txn, table, kvt::key_in_holder($(d), holder), options, err);"},
    {"search_w_src", "void *", HOLDER ", uint32_t nearest, uint32_t source, int *err",
     "As $(table)_search with that source, also of the neighbour.",
     "const kvt::SearchOptions options{nearest != 0, true, source, source, false, false};\n"
     "  return kvt::key_search($(d), 0, handle, txn, table, kvt::key_in_holder($(d), holder), options, err);"},
    {"get_next_by_key", "void *", HOLDER ", int *err", "The first record above the holder's key.",
     "return kvt::key_beside($(d), 0, handle, txn, table, kvt::key_in_holder($(d), holder), kvt::ByKey{}, err);"},
    {"get_next_by_key_w_src", "void *", HOLDER ", uint32_t source, int *err",
     "The first record above the holder's key with that source (0: any but shadow records).",
     "const kvt::ByKey by{true, source, source, {source, source != 0, false}};\n"
     "  return kvt::key_beside($(d), 0, handle, txn, table, kvt::key_in_holder($(d), holder), by, err);"},
    {"get_prev_by_key", "void *", HOLDER ", int *err", "The last record below the holder's key.",
     "return kvt::key_beside($(d), 0, handle, txn, table, kvt::key_in_holder($(d), holder), kvt::ByKey{false, 1, 1, "
     "{}}, err);"},
    {"pkey_get_first", "void *", TABLE ", int *err", "The tenant's first record by the primary key.",
     "return kvt::key_edge($(d), 0, true, handle, txn, table, kvt::kOrdinaryView, *err);"},
    {"pkey_get_first_by_src", "void *", TABLE ", uint32_t source, int *err",
     "The tenant's first record with that source.",
     "return kvt::key_edge($(d), 0, true, handle, txn, table, kvt::View{source}, *err);"},
    {"pkey_get_first_ignore_src", "void *", TABLE ", int *err", "The tenant's first record of any source.",
     "return kvt::key_edge($(d), 0, true, handle, txn, table, kvt::kWholeView, *err);"},
    {"pkey_get_last", "void *", TABLE ", int *err", "The tenant's last record by the primary key.",
     "return kvt::key_edge($(d), 0, false, handle, txn, table, kvt::kOrdinaryView, *err);"},
    {"pkey_get_next", "void *", TABLE ", void *record, int *err", "The next record by the primary key.",
     "return kvt::key_step($(d), 0, true, handle, txn, table, record, kvt::kOrdinaryView, false, err);"},
    {"pkey_get_next_by_src", "void *", TABLE ", void *record, uint32_t source, int *err",
     "The tenant's next record with that source.",
     "return kvt::key_step($(d), 0, true, handle, txn, table, record, kvt::View{source}, false, err);"},
    {"pkey_get_next_ignore_src", "void *", TABLE ", void *record, int *err", "The tenant's next record of any source.",
     "return kvt::key_step($(d), 0, true, handle, txn, table, record, kvt::kWholeView, false, err);"},
    {"pkey_get_prev", "void *", TABLE ", void *record, int *err", "The previous record by the primary key.",
     "return kvt::key_step($(d), 0, false, handle, txn, table, record, kvt::kOrdinaryView, false, err);"},
    {"pkey_get_sub_next", "void *", TABLE ", void *record, int *err", "The next record with the same primary key.",
     "return kvt::key_sub_next($(d), 0, handle, txn, table, record, err);"},
    {"pkey_get_shadow", "void *", TABLE ", void *record, int *err", "The shadow record of the record's primary key.",
     "return kvt::key_shadow($(d), 0, handle, txn, table, record, err);"},
};

#define EVENT_PLAIN "kvt_handle *handle, uint32_t txn, void *first, void *second, int *err"
#define EVENT_DM "kvt_handle *handle, uint32_t txn, void *object, int *err"
#define EVENT_DOC "With `err` set nothing happens. The handler's result; 0 and a trace line where there is no handler."
// Each is passed on to the application's handler, which has the same name with the module's in front, and `handler`
// for `cb`.
constexpr Operation kEvents[] = {
    {"table_record_create_cb", "int32_t", EVENT_PLAIN,
     "A record entered the table; see docs/design/events.md. The runtime gives the table and the record. " EVENT_DOC,
     "return kvt::record_event($(d), kvt::kEventCreate, handle, txn, first, second, err);"},
    {"table_record_modify_cb", "int32_t", EVENT_PLAIN,
     "A record of the table changed. The runtime gives the table and the record. " EVENT_DOC,
     "return kvt::record_event($(d), kvt::kEventModify, handle, txn, first, second, err);"},
    {"table_record_delete_cb", "int32_t", EVENT_PLAIN,
     "A record left the table. The runtime gives the table and the record, whose memory is still there. " EVENT_DOC,
     "return kvt::record_event($(d), kvt::kEventDelete, handle, txn, first, second, err);"},
    {"table_record_create_dm_cb", "int32_t", EVENT_DM,
     "The data-model form of the create event; without a handler of its own it goes on as the plain form, whose first "
     "word is NULL then. " EVENT_DOC,
     "return kvt::record_event_dm($(d), kvt::kEventCreateDm, handle, txn, object, err);"},
    {"table_record_delete_dm_cb", "int32_t", EVENT_DM,
     "The data-model form of the delete event; without a handler of its own it goes on as the plain form, whose first "
     "word is NULL then. " EVENT_DOC,
     "return kvt::record_event_dm($(d), kvt::kEventDeleteDm, handle, txn, object, err);"},
    {"table_record_grouping_cb", "int32_t",
     "kvt_handle *handle, uint32_t txn, void *object, int *err, uintptr_t first, uintptr_t second, uintptr_t third, "
     "uintptr_t fourth",
     "Records are grouped. The runtime never raises it; the words are the caller's. " EVENT_DOC,
     "return kvt::record_event_grouping($(d), handle, txn, object, err, first, second, third, fourth);"},
    {"table_record_free_cb", "int32_t",
     "kvt_handle *handle, uint32_t txn, uintptr_t first, uintptr_t second, int *err, uintptr_t third",
     "A record is given back. The runtime never raises it; the words are the caller's. " EVENT_DOC,
     "return kvt::record_event_free($(d), handle, txn, first, second, err, third);"},
};

// Operation names of the table family may hold the payload's name.
Family with_names(const Family& family, const Holes& holes, std::vector<Operation>& list,
                  std::vector<std::string>& names) {
  names.reserve(64);
  for (Operation op : family) {
    names.push_back(fill(op.name, holes));
    op.name = names.back().c_str();
    list.push_back(op);
  }
  return Family{list.data(), list.data() + list.size()};
}

Holes table_holes(const Table& table) {
  std::string walks;
  for (const Field* key : table.keys) {
    walks +=
        (walks.empty() ? "" : ", ") + table.name + "_" + table.payload_name + "_" + key->name + "_avl_internal_walk";
  }
  return {{"table", table.name},
          {"struct", table.payload_name},
          {"d", "kvt::@schema@::" + table.name + "::kDesc"},
          {"walks", walks}};
}

Holes key_holes(const Table& table, std::size_t k) {
  const Field& key = *table.keys[k];
  const char* form = key.kind == Kind::kVstring ? "an 8-byte string field that itself lies in the cage"
                     : key.kind == Kind::kEnum  ? "the 32-bit value"
                                                : "the value";
  return {{"d", "kvt::@schema@::" + table.name + "::kDesc"},
          {"k", "kvt::@schema@::" + table.name + "::" + key.name},
          {"prefix", table.name + "_" + table.payload_name + "_" + key.name},
          {"index", std::to_string(k)},
          {"keyform", form}};
}

template <class Emit>
std::string all_families(const Table& table, Emit emit) {
  std::vector<Operation> list;
  std::vector<std::string> names;
  const Holes holes = table_holes(table);
  std::string out = emit(with_names(kTableFamily, holes, list, names), table.name, holes);
  out += emit(kPrimaryKeyFamily, table.name, holes);
  out += emit(kEventFamily, table.name, holes);
  for (std::size_t k = 0; k < table.keys.size(); ++k) {
    out += emit(kKeyFamily, table.name + "_" + table.payload_name + "_" + table.keys[k]->name, key_holes(table, k));
  }
  return out;
}

}  // namespace

const Family kTableFamily{std::begin(kTable), std::end(kTable)};
const Family kKeyFamily{std::begin(kKey), std::end(kKey)};
const Family kPrimaryKeyFamily{std::begin(kPrimary), std::end(kPrimary)};
const Family kEventFamily{std::begin(kEvents), std::end(kEvents)};

std::string event_handler_symbol(const Module& module, const Table& table, const Operation& event) {
  const std::string callback = event.name;
  return module.name + "_" + table.name + "_" + callback.substr(0, callback.rfind("cb")) + "handler";
}

std::string declare_table(const Module& module, const Table& table) {
  std::string out = all_families(table, declare);
  for (const Operation& event : kEventFamily) {
    out += fill(
        "/// The application's, for $(table)_$(event). Need not be there.\nKVT_EXPORT int32_t $(handler)($(args));\n",
        {{"table", table.name},
         {"event", event.name},
         {"handler", event_handler_symbol(module, table, event)},
         {"args", event.arguments}});
  }
  out += fill(R"--(/// Identity of the table: 16 bytes, the same as text, and the table's full name.
KVT_EXPORT extern const uint8_t table_$(table)_luid[16];
KVT_EXPORT extern const char table_$(table)_luid_text[33];
KVT_EXPORT extern const char table_$(table)_name[];
KVT_EXPORT extern const kvt_type_record $(record);
KVT_EXPORT extern const kvt_type_record $(row);
)--",
              {{"table", table.name}, {"record", table_record_symbol(table)}, {"row", table_row_symbol(table)}});
  return out;
}

void emit_tables(Output& out) {
  std::string top = top_comment(out, "The functions of tables.");
  if (!out.module.tables.empty()) {
    top += fill(R"--(#include "$(module)_schema.h"
#include "zarn_wlan/src/lookup.h"
#include "zarn_wlan/src/membership.h"
#include "zarn_wlan/src/record.h"
#include "zarn_wlan/src/record_events.h"
#include "zarn_wlan/src/record_serial.h"
#include "zarn_wlan/src/table_handle.h"

)--",
                {{"module", out.module.name}});
  }
  shard(out, "tables", kTableShards, top, out.module.tables,
        [](const Table* table) { return all_families(*table, define); });
}

}  // namespace zarnc
