// Stops the process when a broken rule would corrupt shared memory.
#include "kvt/table.h"
#include "kvt/trace.h"

namespace {
constexpr const char* kTexts[] = {"assertion failed: %s"};
constexpr fenlog_table kTable = {17, 1, kTexts};
}  // namespace

void bassert(int condition, const char* text) {
  if (condition) return;
  fenlog_arg argument;
  argument.kind = FENLOG_TEXT;
  argument.value.text = text;
  fenlog_trace(&kTable, 0, 0, KVT_LEVEL_FATAL, 1, &argument);
  kvt_fatal();
}
