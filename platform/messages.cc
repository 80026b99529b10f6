// The table of the runtime's own messages.
#include "platform/messages.h"

#include "kvt/table.h"

// The table's section of this library, which the build makes from messages.def.
extern "C" [[gnu::visibility("hidden")]] const unsigned char kvt_messages_kvt_0[];

namespace kvt {
namespace {

const fenlog_table kTable = {0, static_cast<std::uint32_t>(Message::kCount), kvt_messages_kvt_0};

// The level word of each message.
constexpr std::uint32_t kLevels[] = {
#define KVT_MESSAGE(family, name, level, text) (level##u) << 24,
#include "platform/messages.def"
#undef KVT_MESSAGE
};

std::uint16_t module_id;
std::uint32_t module_state;
std::uint16_t avl_module_id;
std::uint32_t avl_module_state;
std::uint16_t gbt_module_id;
std::uint32_t gbt_module_state;

void send(Message message, std::uint32_t arguments, const fenlog_arg* argument) {
  fenlog_module_init_fn("kvt_store", &module_id, &module_state);
  const auto index = static_cast<std::uint32_t>(message);
  fenlog_trace(&kTable, index, module_id, kLevels[index], arguments, argument);
}

}  // namespace

void trace(Message message) { send(message, 0, nullptr); }

void trace(Message message, std::int64_t number) {
  fenlog_arg argument{};
  argument.kind = FENLOG_SIGNED;
  argument.value.word = static_cast<std::uint64_t>(number);
  send(message, 1, &argument);
}

void trace(Message message, const char* text) {
  fenlog_arg argument{};
  argument.kind = FENLOG_TEXT;
  argument.value.text = text;
  send(message, 1, &argument);
}

void trace(Message message, const void* address) {
  fenlog_arg argument{};
  argument.kind = FENLOG_ADDRESS;
  argument.value.word = reinterpret_cast<std::uintptr_t>(address);
  send(message, 1, &argument);
}

void stop(Message message) {
  trace(message);
  kvt_fatal();
}

}  // namespace kvt

void nadra_perror(int result) { kvt::trace(kvt::Message::kRangeRefused, std::int64_t{result}); }

void bassert(int condition, const char* text) {
  if (condition) return;
  kvt::trace(kvt::Message::kAssertion, text);
  kvt_fatal();
}

void trans_avl_trace_init(void) { fenlog_module_init_fn("trans_avl", &kvt::avl_module_id, &kvt::avl_module_state); }

void trans_gbt_trace_init(void) { fenlog_module_init_fn("trans_gbt", &kvt::gbt_module_id, &kvt::gbt_module_state); }
