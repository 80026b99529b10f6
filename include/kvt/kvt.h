/// @file kvt.h
/// The object runtime: everything that a program or a schema module uses of it.
#ifndef KVT_KVT_H
#define KVT_KVT_H

#include "kvt/care.h"
#include "kvt/events.h"
#include "kvt/frame.h"
#include "kvt/handle.h"
#include "kvt/primitives.h"
#include "kvt/print.h"
#include "kvt/table.h"
#include "kvt/timer.h"
#include "kvt/trace.h"
#include "kvt/type_record.h"
#include "kvt/xml.h"

#endif
