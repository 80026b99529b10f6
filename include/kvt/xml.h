/// @file xml.h
/// XML documents and the pieces of which XML is written.
#ifndef KVT_XML_H
#define KVT_XML_H

#include "kvt/primitives.h"

#ifdef __cplusplus
extern "C" {
#endif

/// Parses a document; no entities but the five predefined, no DTD, no network. Sizes and depth are limited
/// (KVT_XML_MAX_BYTES, KVT_XML_MAX_DEPTH).
/// @param message receives "line L, column C: reason" when the result is NULL
KVT_EXPORT kvt_xml_document* kvt_xml_parse(const char* text, size_t length, char* message, size_t size);
KVT_EXPORT void kvt_xml_free(kvt_xml_document* document);
enum { KVT_XML_MAX_BYTES = 256 * 1024 * 1024, KVT_XML_MAX_DEPTH = 64 };

/// A document may hold many records: the element children of its root. With one selected, paths that begin with "//"
/// are looked for below it (the child itself included) and nowhere else.
KVT_EXPORT size_t kvt_xml_record_count(const kvt_xml_document* document);
/// Selects record `index` (from 0) and gives its element's name; NULL if there is none. KVT_XML_ALL selects the whole
/// document again.
KVT_EXPORT const char* kvt_xml_record_select(kvt_xml_document* document, size_t index);
#define KVT_XML_ALL ((size_t)-1)
/// Line and column, from 1, of the selected record's element, for messages.
KVT_EXPORT void kvt_xml_record_position(const kvt_xml_document* document, uint32_t* line, uint32_t* column);
/// Line and column of the element at `path`; 0 on success, ENOENT (2) when absent.
KVT_EXPORT int kvt_xml_position(kvt_xml_document* document, const char* path, uint32_t* line, uint32_t* column);

/// 1 if there is an element at `path`. As xml_get_element_nodecount, but it stops at the first.
KVT_EXPORT int kvt_xml_exists(kvt_xml_document* document, const char* path);
/// Bytes that a field's path takes at most, with its NUL: a field whose path is longer counts as absent.
enum { KVT_XML_PATH_SIZE = 256 };

/// For readers of objects, which visit one element after the other: a document may stand at an element, and operations
/// `T_from_xml` whose path is NULL read the element at which it stands. So no path is written out and looked up for
/// each field. Nothing is allocated, and nothing is said of errors; a document is used by one thread at a time.
///
/// Stands at the first element at `path`; with NULL stays where it stands. `path` must live until the element is left.
/// @return the element's level, from 1, which kvt_xml_leave takes if `path` isn't NULL; 0: no such element, no change
KVT_EXPORT uint32_t kvt_xml_enter(kvt_xml_document* document, const char* path);
/// Goes from the element at `level`, or from anywhere below it, to its first child `name`, one level deeper. `name`
/// must live until that level is left, and of one element each name may be asked for once.
/// @return 1; 0 when there is no such child or its path is too long, and then the document stands at `level`
KVT_EXPORT int kvt_xml_child(kvt_xml_document* document, uint32_t level, const char* name);
/// Stands where it stood before it entered the element at `level`.
KVT_EXPORT void kvt_xml_leave(kvt_xml_document* document, uint32_t level);

/// Counts the nodes at `path`; 0 on success.
KVT_EXPORT int xml_get_element_nodecount(kvt_xml_document* document, const char* path, uint32_t* count);
/// Gives the text of the first element at `path`, NUL-terminated. 0; 2 when there is no such element; 90 when the text
/// does not fit. `word` is 0.
KVT_EXPORT int xml_get_element_value(kvt_xml_document* document, const char* path, char* value, size_t size, int word);

/// Write the opening "<name>" (with a state attribute when `state` is not 0), the closing "</name>", and text as it is.
/// EMSGSIZE, and nothing written, when there is no room. No terminator is written. @return characters written
KVT_EXPORT uint32_t start_tag(kvt_handle* handle, uint32_t txn, char* buffer, const char* name, int32_t room,
                              uint32_t state, int* err);
KVT_EXPORT uint32_t end_tag(kvt_handle* handle, uint32_t txn, char* buffer, const char* name, int32_t room, int* err);
KVT_EXPORT uint32_t xml_enum_print(kvt_handle* handle, uint32_t txn, char* buffer, const char* text, int32_t room,
                                   uint32_t length, int* err);

#ifdef __cplusplus
}
#endif
#endif
