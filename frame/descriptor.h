// What the schema compiler says of a type to the algorithms that are written once. All of it is constant data.
#pragma once

#include <cstdint>

#include "frame/trace_points.h"
#include "kvt/kvt.h"
#include "platform/owned.h"

namespace kvt {

enum class FieldKind : std::uint8_t { kInteger, kBoolean, kString, kEnum, kFlag, kStruct, kReference, kTimer };

struct StructDesc;

// What a walk over the fields of an object asks of a field's type. A null entry: the type has nothing to do there.
struct FieldType {
  const char* name;
  FieldKind kind;
  const kvt_type_record* record;
  void (*initialize)(kvt_handle*, std::uint32_t, void*, const kvt_type_record*, int, int, int, void*, int*);
  void (*set_embedded)(kvt_handle*, std::uint32_t, void*);
  void (*destroy)(kvt_handle*, std::uint32_t, void*, int);            // strings and structs
  void (*set)(kvt_handle*, std::uint32_t, void*, const void*, int*);  // strings and structs
  std::uint32_t (*to_xml)(kvt_handle*, std::uint32_t, const char*, char*, const void*, std::int32_t, std::uint32_t,
                          int*);
  void (*from_xml)(kvt_handle*, std::uint32_t, const char*, kvt_xml_document*, void*, int*, char*, std::size_t);
  std::uint32_t (*print)(kvt_handle*, std::uint32_t, char*, std::uint32_t, const char*, const void*, std::int32_t,
                         int*);
  void (*offset_update)(kvt_handle*, std::uint32_t, void*, void*);  // structs
  void (*offset_remove)(kvt_handle*, std::uint32_t, void*, int*);   // structs
  const StructDesc* nested;  // of a struct of this module; a sibling's struct that is nested here owns no strings
};

struct FieldDesc {
  const char* name;
  const FieldType* type;
  const kvt_type_record* target;  // of a reference
  std::uint16_t offset;
  std::uint16_t state;
  std::uint16_t message;  // of a reference or timer: its first message, counted from its type's
  std::int8_t variant;
  FieldKind kind;  // the type's, where a walk finds it at once
};

// One schema module as its types see it.
struct ModuleDesc {
  const char* name;
  const char* trace_name;
  std::uint16_t* trace_id;
  std::uint32_t* trace_state;
  kvt_typeinfo_init registrar;
  const kvt_static_type* types;
  std::uint32_t type_count;
  std::uint32_t number;
  void** failure_zone;  // failure objects and records, made by the module's constructor
  std::uint32_t failure_zone_size;
  TracePlace trace;
};

// The first eight bytes of an object in a new tree, or of a reference field, which begins with its target's link.
struct alignas(4) TreeHead {
  std::uint32_t link;
  std::int8_t variant, built;
  std::uint8_t flags;
  std::uint8_t field;  // belongs to what follows the header
  std::uint32_t offset;
};

// An object with all that is nested in it, flat. Only for types in which no nested object holds a reference.
struct TreeDesc {
  const TreeHead* heads;               // structs of this module and of others; enumerated and flag objects, references
  kvt_variant_entry* const* counters;  // where each of this module's structs is counted
  std::uint16_t own_count;
  std::uint16_t struct_count;
  std::uint16_t head_count;
  const std::uint16_t* booleans;  // offsets
  std::uint16_t boolean_count;
  OwnedFields owned;  // in schema order
};

struct StructDesc {
  const char* name;
  const kvt_type_record* record;
  const ModuleDesc* module;
  TracePlace trace;
  std::int8_t top;
  std::uint8_t oid_count;
  bool has_nested;
  std::uint16_t field_count;
  const std::uint16_t* plain;   // by variant
  const std::uint16_t* block;   // by variant
  const std::uint16_t* bounds;  // by variant
  const FieldDesc* fields;
  std::uint32_t failure_offset;
  const TreeDesc* tree;  // null: there is none

  std::uint32_t top_plain() const { return plain[static_cast<int>(top)]; }
  std::uint32_t top_block() const { return block[static_cast<int>(top)]; }
  void* failure_object() const { return static_cast<char*>(*module->failure_zone) + failure_offset; }
  // A damaged object's built variant never indexes beyond the table.
  int built_index(const void* object) const {
    const int built = static_cast<const std::int8_t*>(object)[5];
    return built < 0 || built > top ? top : built;
  }
  // An object that an older library built ends before the fields of later variants.
  bool has_room_for(const FieldDesc& field, const void* object) const { return field.variant <= built_index(object); }
};

// Enumerated and flag types; for a flag type the names are those of the bits.
struct EnumDesc {
  const char* name;
  const kvt_type_record* record;
  const ModuleDesc* module;
  TracePlace trace;
  std::int8_t cap;
  std::uint32_t count;         // names
  const char* const* names;    // by value, or by bit
  const std::uint32_t* legal;  // by variant: how many values are legal
  std::uint32_t failure_offset;

  void* failure_object() const { return static_cast<char*>(*module->failure_zone) + failure_offset; }
};

constexpr std::uint32_t kScalarObjectSize = 12;
constexpr std::uint32_t kEnumValueOffset = 8;
constexpr std::uint32_t kFlagBitsOffset = 7;
constexpr std::uint32_t kOidValueOffset = 8;  // in a reference field, behind the target's link

struct KeyDesc {
  const char* name;
  std::uint16_t offset;  // of the key's value in the payload
  std::uint8_t size;     // bytes of that value; a string's are its two words
  e_avl_compare compare;
  bool (*same)(const void* node_a, const void* node_b);              // equal keys
  std::uint32_t (*word)(std::uint32_t tenant, const void* payload);  // what a node keeps of the key
  void* (*find)(const std::uint32_t* root, const void* value, std::uint16_t tenant, std::uint8_t source);  // a node
  std::uint32_t message;  // first message of the key, counted from the table's
};

// The primary key's value on its own: `p` is the field in a payload.
struct KeyType {
  std::uint16_t offset;  // of the field in the payload
  std::uint32_t (*len)(kvt_handle*, std::uint32_t, const void*);
  std::uint32_t (*marshal)(kvt_handle*, std::uint32_t, std::uint8_t*, const void*, std::int32_t, int*);
  std::uint32_t (*unmarshal)(kvt_handle*, std::uint32_t, const std::uint8_t*, void*, std::int32_t, std::uint32_t, int*);
  std::uint32_t (*print)(kvt_handle*, std::uint32_t, char*, std::uint32_t, const char*, const void*, std::int32_t,
                         int*);
};

// How a table reaches its payload's type.
struct PayloadType {
  const char* name;
  std::uint32_t plain;
  void* (*create)(kvt_handle*, std::uint32_t);
  void* (*create_internal)(kvt_handle*, std::uint32_t);
  void (*destroy)(kvt_handle*, std::uint32_t, void*);
  void (*set_embedded)(kvt_handle*, std::uint32_t, void*);
  std::uint32_t (*len)(kvt_handle*, std::uint32_t, const void*);
  std::uint32_t (*marshal)(kvt_handle*, std::uint32_t, std::uint8_t*, const void*, std::int32_t, int*);
  std::uint32_t (*unmarshal)(kvt_handle*, std::uint32_t, const std::uint8_t*, void*, std::int32_t, std::uint32_t, int*);
  std::uint32_t (*to_xml)(kvt_handle*, std::uint32_t, const char*, char*, const void*, std::int32_t, std::uint32_t,
                          int*);
  void (*from_xml)(kvt_handle*, std::uint32_t, const char*, kvt_xml_document*, void*, int*, char*, std::size_t);
  std::uint32_t (*print)(kvt_handle*, std::uint32_t, char*, std::uint32_t, const char*, const void*, std::int32_t,
                         int*);
};

// Where a process last found a table type's root of numbered tables, and in which store that was.
struct IdRootCache {
  void* root;
  std::uint64_t store;
};

// The application's handlers of a table's events. Each is a weak reference, and has a name to look for among what the
// process loads later.
enum RecordEvent : unsigned {
  kEventCreate,
  kEventModify,
  kEventDelete,
  kEventCreateDm,
  kEventDeleteDm,
  kEventGrouping,
  kEventFree,
  kRecordEvents
};
using AnyHandler = void (*)();
struct EventHandler {
  AnyHandler linked;  // null: nothing of that name was there when the library was loaded
  const char* name;
};
struct LateHandlers {  // what was found by name, and what the process had loaded then
  std::uint64_t loaded;
  AnyHandler found[kRecordEvents];
};

struct TableDesc {
  const char* name;
  const char* payload_path;  // "//st_wlan"
  const std::uint8_t* luid;
  const char* luid_text;
  const kvt_type_record* table_record;
  const kvt_type_record* record_record;
  const ModuleDesc* module;
  TracePlace trace;
  PayloadType payload;
  KeyType primary;
  const KeyDesc* keys;
  std::uint8_t key_count;
  std::uint16_t object_size;
  std::uint16_t record_size;
  std::uint16_t payload_slot;
  std::uint32_t failure_offset;
  IdRootCache* id_root;
  const EventHandler* handlers;  // by RecordEvent
  LateHandlers* late_handlers;

  void* failure_record() const { return static_cast<char*>(*module->failure_zone) + failure_offset; }
};

}  // namespace kvt
