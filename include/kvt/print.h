/// @file print.h
/// The pieces of which printed text is made. The form is for people and is never read back: docs/formats/print.md.
#ifndef KVT_PRINT_H
#define KVT_PRINT_H

#include "kvt/handle.h"

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define KVT_PRINTF_FORMAT(text, first) __attribute__((format(printf, text, first)))
#else
#define KVT_PRINTF_FORMAT(text, first)
#endif

/// Write `indent` blanks, or a formatted text, and a NUL behind it that the next piece overwrites. `room` is that at
/// `buffer`, the NUL included.
/// @param err sticky. EMSGSIZE: too little room; the text ends at `buffer` then, and with any room there is a NUL
/// @return characters written, without the NUL
KVT_EXPORT uint32_t kvt_print_space(kvt_handle* handle, uint32_t txn, char* buffer, uint32_t indent, int32_t room,
                                    int* err);
KVT_EXPORT uint32_t kvt_snprintf(kvt_handle* handle, uint32_t txn, char* buffer, int32_t room, int* err,
                                 const char* format, ...) KVT_PRINTF_FORMAT(6, 7);

#ifdef __cplusplus
}
#endif
#endif
