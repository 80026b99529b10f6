// The table of the runtime's own messages.
#include "platform/messages.h"

#include "kvt/table.h"

namespace kvt {
namespace {

const char* const kTexts[] = {
    "cannot reserve the address space of the stores",
    "address outside of the stores: the store breaks its contract",
    "store free of an address that is not an allocated block",
    "no room for the undo log of the open transaction",
    "store refused to announce a range: result %d",
    "store free refused: no transaction of this handle is open",
    "undo log of a database is corrupt",
};
static_assert(sizeof kTexts / sizeof *kTexts == static_cast<std::uint32_t>(Message::kCount));

const fenlog_table kTable = {16, static_cast<std::uint32_t>(Message::kCount), kTexts};
std::uint16_t module_id;
std::uint32_t module_state;
std::uint16_t avl_module_id;
std::uint32_t avl_module_state;
std::uint16_t gbt_module_id;
std::uint32_t gbt_module_state;

}  // namespace

void trace(Message message, std::uint32_t level, std::uint64_t number) {
  fenlog_module_init_fn("kvt_store", &module_id, &module_state);
  fenlog_arg argument{};
  argument.kind = FENLOG_SIGNED;
  argument.value.word = number;
  std::uint32_t arguments = message == Message::kRangeRefused ? 1 : 0;
  fenlog_trace(&kTable, static_cast<std::uint32_t>(message), module_id, level, arguments, &argument);
}

void stop(Message message) {
  trace(message, KVT_LEVEL_FATAL);
  kvt_fatal();
}

}  // namespace kvt

void nadra_perror(int result) {
  kvt::trace(kvt::Message::kRangeRefused, KVT_LEVEL_ERROR, static_cast<std::uint64_t>(std::int64_t{result}));
}

void trans_avl_trace_init(void) { fenlog_module_init_fn("trans_avl", &kvt::avl_module_id, &kvt::avl_module_state); }

void trans_gbt_trace_init(void) { fenlog_module_init_fn("trans_gbt", &kvt::gbt_module_id, &kvt::gbt_module_state); }
