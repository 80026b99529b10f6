// The commands, one function each. They write their result to standard output and throw Failure when they cannot.
#pragma once

#include "tools/options.h"

namespace wlanctl {

void run_import(const Options& options);    // import.cc
void run_list(const Options& options);      // list.cc
void run_show(const Options& options);      // list.cc
void run_find(const Options& options);      // list.cc
void run_export(const Options& options);    // export.cc
void run_send(const Options& options);      // send.cc
void run_receive(const Options& options);   // receive.cc
void run_set(const Options& options);       // edit.cc
void run_delete(const Options& options);    // edit.cc
void run_watch(const Options& options);     // watch.cc
void run_care(const Options& options);      // care.cc
void run_trace(const Options& options);     // built.cc
void run_manifest(const Options& options);  // built.cc
void run_timers(const Options& options);    // timers.cc

}  // namespace wlanctl
