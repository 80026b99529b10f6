// Type records, message tables, load and unload. Made by zarnc from the schema of toy; not to be edited.
#include "toy_module.h"

#include "toy/toy.h"
#include "frame/registration.h"

uint16_t g_kvt_toy_trace_module_id = 0;
namespace {
uint32_t g_trace_state = 0;
}

extern const kvt_type_record _st_leaf_type_info_internal = {
    KVT_TYPE_MAGIC, {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x03}, "00000000000000000000000000000003", "st_leaf", "toy", "type", {0, 0, 0}, -1, 0xFC900000, 0, 0};
extern const kvt_type_record _st_tree_type_info_internal = {
    KVT_TYPE_MAGIC, {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04}, "00000000000000000000000000000004", "st_tree", "toy", "type", {0, 0, 0}, -1, 0xFC900001, 0, 0};
extern const kvt_type_record _enm_shade_type_info_internal = {
    KVT_TYPE_MAGIC, {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01}, "00000000000000000000000000000001", "enm_shade", "toy", "enum", {0, 0, 0}, -1, 0xFC900002, 0, 0};
extern const kvt_type_record _flg_marks_type_info_internal = {
    KVT_TYPE_MAGIC, {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x02}, "00000000000000000000000000000002", "flg_marks", "toy", "flag", {0, 0, 0}, -1, 0xFC900003, 0, 0};
extern const kvt_type_record _tbl_trees_table_type_info_internal = {
    KVT_TYPE_MAGIC, {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x06}, "00000000000000000000000000000006", "tbl_trees", "toy", "table", {0, 0, 0}, -1, 0xFC900004, 0, 0};
extern const kvt_type_record _tbl_trees_table_record_type_info_internal = {
    KVT_TYPE_MAGIC, {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x07}, "00000000000000000000000000000007", "tbl_trees_record", "toy", "table_record", {0, 0, 0}, -1, 0xFC900005, 0, 0};

extern const uint8_t table_tbl_trees_luid[16] = {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x06};
extern const char table_tbl_trees_luid_text[33] = "00000000000000000000000000000006";
extern const char table_tbl_trees_name[] = "table tbl_trees";

namespace kvt {
namespace schema_toy {
namespace {

kvt_variant_entry entries_0[] = {{0, 22, 6, 0, 0, 0, 0}, };
const kvt_variant_data varinfo_0 = {1, {0, 0, 0}, 0xFC900000};
kvt_variant_entry entries_1[] = {{0, 76, 68, 0, 0, 0, 0}, {1, 128, 16, 0, 0, 0, 0}, };
const kvt_variant_data varinfo_1 = {2, {0, 0, 0}, 0xFC900001};
kvt_variant_entry entries_2[] = {{0, 12, 0, 0, 0, 0, 0}, {1, 12, 0, 0, 0, 0, 0}, };
const kvt_variant_data varinfo_2 = {2, {0, 0, 0}, 0xFC900002};
kvt_variant_entry entries_3[] = {{0, 8, 4, 0, 0, 0, 0}, };
const kvt_variant_data varinfo_3 = {1, {0, 0, 0}, 0xFC900003};
kvt_variant_entry entries_4[] = {{1, 4, 0, 0, 0, 0, 0}, };
const kvt_variant_data varinfo_4 = {1, {0, 0, 0}, 0xFC900004};
kvt_variant_entry entries_5[] = {{1, 4, 0, 0, 0, 0, 0}, };
const kvt_variant_data varinfo_5 = {1, {0, 0, 0}, 0xFC900005};

constexpr kvt_static_type kStaticTypes[] = {
    {&_st_leaf_type_info_internal, &varinfo_0, entries_0},
    {&_st_tree_type_info_internal, &varinfo_1, entries_1},
    {&_enm_shade_type_info_internal, &varinfo_2, entries_2},
    {&_flg_marks_type_info_internal, &varinfo_3, entries_3},
    {&_tbl_trees_table_type_info_internal, &varinfo_4, entries_4},
    {&_tbl_trees_table_record_type_info_internal, &varinfo_5, entries_5},
    {nullptr, nullptr, nullptr},
};
constexpr const kvt_type_record* kTypes[] = {
    &_st_leaf_type_info_internal,
    &_st_tree_type_info_internal,
    &_enm_shade_type_info_internal,
    &_flg_marks_type_info_internal,
    &_tbl_trees_table_type_info_internal,
    &_tbl_trees_table_record_type_info_internal,
    nullptr,
};
void* g_failure_zone = nullptr;
kvt_module_record g_module = {"toy", kTypes, nullptr, nullptr};
std::uint8_t g_loaded = 0;

constexpr const char* kTableTexts[] = {
    "Opening table tbl_trees in create mode while not holding a write lock",
    "Failed to get table TOC for table tbl_trees open. Error %s",
    "Failed to open TOC for table tbl_trees. Error %s",
    "Failed to open toc root for table tbl_trees, database %s",
    "Could not find TOC root for table tbl_trees DB %s. Lock type: RD_LOCK, Open type: %u",
    "kvt database toc find table tbl_trees in error: %s",
    "nadra internal error",
    "Failed to create mapping for tbl_trees table",
    "Failed to insert %s table tbl_trees into the TOC",
    "varinfo is NULL",
    "variant %u requested only %u variants present",
    "varinfo is NULL",
    "variant %u requested only %u variants present",
    "Error %d deleting tbl_trees record when destroying",
    "tinfo is null or corrupted",
    "tbl_trees destroy: Failed to remove oid mapping for object. Error %s",
    "Object is either nested or already embedded. Cannot set such objects into the record",
    "Object is either nested or already embedded in a record. Cannot set such objects into the record",
    "unknow key:%d",
    "tbl_trees_delete() cannot be direclty used when the table is marked for replication",
    "Error present in call to table marshal: %s",
    "domainfail: Table %s (%s) is not allowed for the current domain (%s)",
    "Failed to marshal tbl_trees record: Field st_tree is empty",
    "Error present in call to %s unmarshal: %s",
    "tbl_trees insert record exists for st_tree id",
    "tbl_trees delete, record not found for st_tree id",
    "tbl_trees insert record exists for st_tree name",
    "tbl_trees delete, record not found for st_tree name",
};
const fenlog_table table_messages = {1, 28, kTableTexts};

constexpr const char* kTypeTexts[] = {
    "Corrupted KVT Handle",
    "varinfo is NULL",
    "tinfo is null or corrupted",
    "KVT handle and object state tracking mis-match",
    "error in st_leaf create: %s",
    "variant %u requested only %u variants present",
    "sttr_base can not be NULL in NESTED case. Please check the parent object and provide the correct state tracking base pointer",
    "st_leaf destroy: Failed to remove oid mapping for object. Error %s",
    "st_leaf destroy: Object has references and will be cleaned up when all of them are released",
    "st_leaf destroy: Successfully removed OID mapping",
    "st_leaf destroy: Failed to remove oid mapping for object. Error %s",
    "Error already present in call to get object oid count",
    "Invalid object pointer passed in to set instance flag",
    "The object is not state tracked",
    "The object is non state tracked",
    "offset_jump read_len %d offset_jump_base %d _kvt_variant_jump %d",
    "Corrupted KVT Handle",
    "varinfo is NULL",
    "tinfo is null or corrupted",
    "KVT handle and object state tracking mis-match",
    "error in st_tree create: %s",
    "variant %u requested only %u variants present",
    "sttr_base can not be NULL in NESTED case. Please check the parent object and provide the correct state tracking base pointer",
    "st_tree destroy: Failed to remove oid mapping for object. Error %s",
    "st_tree destroy: Object has references and will be cleaned up when all of them are released",
    "st_tree destroy: Successfully removed OID mapping",
    "st_tree destroy: Failed to remove oid mapping for object. Error %s",
    "Error already present in call to get object oid count",
    "Invalid object pointer passed in to set instance flag",
    "The object is not state tracked",
    "The object is non state tracked",
    "offset_jump read_len %d offset_jump_base %d _kvt_variant_jump %d",
    "st_tree destroy: Failed to release oid reference for parent oid. Error %s",
    "varinfo is NULL",
    "tinfo is null or corrupted",
    "error in enm_shade create %s",
    "variant %u requested only %u variants present",
    "Invalid object handle passed to set embedded flag",
    "Error already present in call to get object oid count",
    "Invalid object passed in to get object oid count",
    "Error present in call to get table references from object",
    "Cannot get table references. Invalid object passed on",
    "offset_jump read_len %d offset_jump_base %d _kvt_variant_jump %d",
    "varinfo is NULL",
    "tinfo is null or corrupted",
    "error in flg_marks create %s",
    "variant %u requested only %u variants present",
    "Invalid object handle passed to set embedded flag",
    "Error already present in call to get object oid count",
    "Invalid object passed in to get object oid count",
    "Error present in call to get table references from object",
    "Cannot get table references. Invalid object passed on",
    "offset_jump read_len %d offset_jump_base %d _kvt_variant_jump %d",
};
const fenlog_table type_messages = {2, 53, kTypeTexts};

}  // namespace

const fenlog_table k_table_messages = table_messages;
const fenlog_table k_type_messages = type_messages;
const ModuleDesc k_module = {
    "toy", "kvt_toy", &g_kvt_toy_trace_module_id, &g_trace_state, toy_typeinfo_initialize, kStaticTypes, 6,
    201, &g_failure_zone, 296};

namespace {
__attribute__((constructor)) void load() { load_module(k_module, &g_module, &g_loaded); }
__attribute__((destructor)) void unload() { unload_module(k_module, &g_module); }
}  // namespace

}  // namespace schema_toy
}  // namespace kvt

void toy_typeinfo_initialize(kvt_handle *handle, uint32_t txn, int *err) {
  kvt::register_types(handle, txn, kvt::schema_toy::k_module, err);
}
void kvt_toy_trace_init(void) { fenlog_module_init_fn("kvt_toy", &g_kvt_toy_trace_module_id, &g_trace_state); }
