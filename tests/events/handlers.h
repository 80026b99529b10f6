// What the handlers of the test programs have in common with the test.
#pragma once

#include "kvt/kvt.h"

// Notes a call; the result is that of the handler. Events are numbered: create, modify, delete, create_dm, delete_dm,
// grouping, free.
extern "C" KVT_EXPORT int32_t events_heard(int event, const char* table, kvt_handle* handle, uint32_t txn, void* first,
                                           void* object, int* err);
