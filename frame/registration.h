// How a schema module's types get into a process and into a database's registry.
#pragma once

#include "frame/descriptor.h"

namespace kvt {

// The whole of `<module>_typeinfo_initialize`: registers every type that the registry doesn't have.
void register_types(kvt_handle* h, std::uint32_t txn, const ModuleDesc& module, int* err);

// What the module's constructor does beside linking the module record: static types are known, failure objects stand.
void load_module(const ModuleDesc& module, kvt_module_record* record, std::uint8_t* once);
void unload_module(const ModuleDesc& module, kvt_module_record* record);

// Tells `out`, in the manner of printf, what the module's static types take in memory in each of their variants.
void dump_variants(const ModuleDesc& module, int (*out)(const char* format, ...));

}  // namespace kvt
