// A new object with all that is nested in it, made, counted and looked at as a whole: by its type's flat tables instead
// of a walk from field to field.
#pragma once

#include "frame/call_frame.h"

namespace kvt {

// Whether nobody can tell a new object made by the tables from one made field by field: no announcements, no registered
// types, no limits of a domain, no state bytes. A corrupt tracking tag stops the process.
inline bool tree_is_unseen(const StructDesc& type, const kvt_handle* h) {
  return type.tree && !h->mode && !h->domain.rules && tracking_of(h, type) != Tracking::kOn && store_is_unheard(h);
}
// Writes all headers and links of a new tree; its other bytes are zero.
void tree_initialize(const TreeDesc& tree, void* object);
// Counts the tree's objects as made, or as destroyed.
void tree_count(const TreeDesc& tree, bool destroyed);
// Whether each object is of the top variant, linked to its static record, and without identity, side data and state
// bytes. Embedded objects pass.
bool tree_is_plain(const TreeDesc& tree, const void* object);
// Whether a new tree with the bytes of `source` holds what a copy of its fields would hold: what `source` has in its
// headers beside flags that don't travel is a new object's, and no boolean is above 1.
enum class TreeCopy : std::uint8_t { kNo, kWithNewHeads, kAll };
TreeCopy tree_copied_by_bytes(const TreeDesc& tree, const void* source);
// Makes a tree of the bytes of such a `source`. What it owns is the source's still.
void tree_copy_bytes(const StructDesc& type, void* object, const void* source, TreeCopy how);

}  // namespace kvt
