/// @file type_record.h
/// What a type is: its identity, its name, what each of its variants takes in memory. A stored format: databases hold
/// registered copies of the records.
#ifndef KVT_TYPE_RECORD_H
#define KVT_TYPE_RECORD_H

#include "kvt/handle.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KVT_TYPE_MAGIC 0xBEEFF00Du

/// A type record: 264 bytes. `varinfo` is a reference; in a static record it is the record's number, whose four highest
/// bits are set: 0xF, then 8 bits of module number, then 20 bits of index in the module's type table.
typedef struct kvt_type_record {
  uint32_t magic;
  uint8_t luid[16];
  char luid_text[33];
  char name[64];
  char module[64];
  char kind[64];  ///< "type", "enum", "flag", "table" or "table_record"
  uint8_t pad[3];
  int32_t slot;      ///< -1
  uint32_t varinfo;  ///< reference or number of the kvt_variant_data
  uint32_t db_mode;  ///< 0 in a static record; the registering handle's mode in a registered copy
  uint32_t reserved;
} kvt_type_record;

/// A registered copy: the record and 16 bytes of the runtime.
enum { KVT_REGISTERED_SIZE = 280 };

typedef struct kvt_variant_data {
  int8_t n_variants;
  uint8_t pad[3];
  uint32_t variants;  ///< reference or number of the array of entries
} kvt_variant_data;

typedef struct kvt_variant_entry {
  uint32_t variant;
  uint32_t used_length;
  uint32_t alloc_slop;
  uint32_t reserved0;
  uint64_t created;
  uint64_t destroyed;
  uint64_t reserved1;
} kvt_variant_entry;

/// What lies in an object's memory besides numbers: a field that owns a block, refers to an object, or is one itself.
enum {
  KVT_CELL_TEXT,       ///< kvt_vstring or qep_bytestr: reference and length
  KVT_CELL_SECRET,     ///< kvt_aes_vstring
  KVT_CELL_OBJECT,     ///< a nested object of the type `type`
  KVT_CELL_REFERENCE,  ///< a reference field to objects of the type `type`
  KVT_CELL_TIMER
};
typedef struct kvt_cell {
  uint16_t offset;
  int8_t variant;  ///< the field's
  uint8_t kind;
  const struct kvt_type_record* type;
  const char* name;
} kvt_cell;

/// One key of a table, in the order of the indexes.
typedef struct kvt_key_shape {
  const char* name;
  int (*compare)(const void* node_a, const void* node_b);  ///< as e_avl_compare
  uint32_t (*word)(uint32_t tenant, const void* payload);  ///< what a node keeps of the key
} kvt_key_shape;

/// The memory of a type's objects, so that a store can be looked through without a call into the type's module. `plain`
/// and `states` are by built variant: bytes of an object, and its state bytes behind them. Of a table and of its record
/// type, `payload` and the rest tell the records; their other members are empty.
typedef struct kvt_shape {
  uint16_t variants;
  uint16_t cell_count;
  const uint16_t* plain;
  const uint16_t* states;
  const kvt_cell* cells;
  const struct kvt_type_record* payload;  ///< NULL: no table
  const struct kvt_type_record* record;
  uint16_t table_size, record_size;
  uint16_t payload_slot;  ///< offset of the payload's reference in a record
  uint16_t key_count;
  const kvt_key_shape* keys;
  const struct kvt_record_events* events;
} kvt_shape;

/// One static type of a module: what a number stands for.
typedef struct kvt_static_type {
  const kvt_type_record* record;
  const kvt_variant_data* varinfo;
  kvt_variant_entry* entries;
  /// Gives back an object of the type (its memory too with `free_it`): for a destroy that waited for references, and is
  /// carried out by the runtime. NULL for types whose objects it must not destroy.
  void (*destroy)(kvt_handle* handle, uint32_t txn, void* object, int free_it);
  const kvt_shape* shape;  ///< NULL for primitive and scalar types
} kvt_static_type;

/// A schema module in the process's module list.
typedef struct kvt_module_record {
  const char* name;
  const kvt_type_record* const* types;  ///< NULL-terminated
  struct kvt_module_record* next;
  struct kvt_module_record** prev;
} kvt_module_record;

/// The module list: a count and a tail queue. Statically initialised, so that any constructor may link in.
typedef struct kvt_module_root {
  uint64_t count;
  kvt_module_record* first;
  kvt_module_record** last;
} kvt_module_root;

KVT_EXPORT extern kvt_module_root kvt_module_tot_root;

/// The static types of one module, as the inline functions below read them.
typedef struct kvt_static_module {
  const kvt_static_type* types;
  uint32_t count;
} kvt_static_module;
/// By module number. Written by kvt_static_types_set alone.
KVT_EXPORT extern kvt_static_module kvt_static_modules[256];
/// Where the cage begins; the address of reference 0. Set before any constructor runs.
KVT_EXPORT extern char* kvt_cage_base;

/// References from here on are numbers of static records.
#define KVT_STATIC_NUMBERS 0xF0000000u

/// Tells the runtime which static types a module number (1..255) stands for. Called by the module's constructor; the
/// array must live as long as the module. `count` 0 takes the module away.
KVT_EXPORT void kvt_static_types_set(uint32_t module, const kvt_static_type* types, uint32_t count);

/// The static type of a number; NULL for one that no loaded module has.
static inline const kvt_static_type* kvt_static_type_at(uint32_t number) {
  const kvt_static_module* module = &kvt_static_modules[number >> 20 & 0xFF];
  uint32_t index = number & 0xFFFFF;
  if (index >= __atomic_load_n(&module->count, __ATOMIC_ACQUIRE)) return 0;
  return __atomic_load_n(&module->types, __ATOMIC_RELAXED) + index;
}
/// The variant data of a record, static or registered; NULL if it has none.
static inline const kvt_variant_data* kvt_varinfo_of(const kvt_type_record* record) {
  const kvt_static_type* type;
  if (record->varinfo < KVT_STATIC_NUMBERS)
    return (const kvt_variant_data*)(record->varinfo ? kvt_cage_base + record->varinfo : 0);
  type = kvt_static_type_at(record->varinfo);
  return type ? type->varinfo : 0;
}
/// The entries of variant data, static or registered.
static inline kvt_variant_entry* kvt_variant_entries(const kvt_variant_data* varinfo) {
  const kvt_static_type* type;
  if (varinfo->variants < KVT_STATIC_NUMBERS)
    return (kvt_variant_entry*)(void*)(varinfo->variants ? kvt_cage_base + varinfo->variants : 0);
  type = kvt_static_type_at(varinfo->variants);
  return type ? type->entries : 0;
}
/// What stands in a stored 4-byte type link for a record: its number if static, its reference otherwise.
static inline uint32_t kvt_type_link_of(const kvt_type_record* record) {
  uintptr_t place = (uintptr_t)record - (uintptr_t)kvt_cage_base;
  if (!record) return 0;
  if (place < KVT_STATIC_NUMBERS) return (uint32_t)place;
  return record->varinfo >= KVT_STATIC_NUMBERS ? record->varinfo : 0;
}
/// The record that a stored type link stands for; NULL for 0 and for a number that no loaded module has.
static inline const kvt_type_record* kvt_type_link_at(uint32_t link) {
  const kvt_static_type* type;
  if (link < KVT_STATIC_NUMBERS) return (const kvt_type_record*)(void*)(link ? kvt_cage_base + link : 0);
  type = kvt_static_type_at(link);
  return type ? type->record : 0;
}

/// Registers a module's types in the handle's registry; the form of the callback of kvt_type_info_ptr_get.
typedef void (*kvt_typeinfo_init)(kvt_handle* handle, uint32_t txn, int* err);

#ifdef __cplusplus
}
#endif
#endif
