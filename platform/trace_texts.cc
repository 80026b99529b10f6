#include "platform/trace_texts.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>

namespace kvt {
namespace {

constexpr int kLockTries = 1000;
constexpr unsigned kLockPause_usec = 1000;

// Tables are known by their ids, so that neither an unloaded library nor another one at its place is mistaken for it.
// The list only grows; who reads it takes no lock.
struct Known {
  TableId id;
  std::vector<BuiltMessage> messages;  // empty: the texts could not be had, and are not asked for again
  const Known* next;
};
constinit std::atomic<const Known*> g_known{nullptr};
constinit std::mutex g_reading;

const Known* find(const TableId& id) {
  const Known* known = g_known.load(std::memory_order_acquire);
  while (known && known->id != id) known = known->next;
  return known;
}

// Under the lock.
void add(const TableId& id, std::vector<BuiltMessage> messages) {
  g_known.store(new Known{id, std::move(messages), g_known.load(std::memory_order_relaxed)}, std::memory_order_release);
}

std::string path_of(const Dl_info& info, const void* map) {
  const auto* link = static_cast<const link_map*>(map);
  return link && link->l_name && *link->l_name ? link->l_name : link ? "/proc/self/exe" : info.dli_fname;
}

}  // namespace

bool table_home(const fenlog_table* table, std::string* path, TableId* id) {
  Dl_info info, section_info;
  void* map = nullptr;
  if (!dladdr1(table, &info, &map, RTLD_DL_LINKMAP)) return false;
  if (!table->section || !dladdr(table->section, &section_info) || section_info.dli_fbase != info.dli_fbase)
    return false;
  std::memcpy(id->data(), static_cast<const char*>(table->section) + kTableIdAt, id->size());
  *path = path_of(info, map);
  return true;
}

std::string_view message_text(const fenlog_table& table, std::uint32_t index) {
  if (!table.section) return {};
  TableId id;
  std::memcpy(id.data(), static_cast<const char*>(table.section) + kTableIdAt, id.size());
  const Known* known = find(id);
  if (!known) {
    // A child that was forked while another thread read would wait for ever; it gets a line without its text.
    int tries = 0;
    while (!g_reading.try_lock()) {
      if (++tries == kLockTries) return {};
      usleep(kLockPause_usec);
    }
    const std::lock_guard lock(g_reading, std::adopt_lock);
    known = find(id);
    std::string path, why;
    TableId same;
    std::vector<BuiltTable> tables;
    if (!known && table_home(&table, &path, &same) && read_message_tables(path, &tables, &why)) {
      for (BuiltTable& one : tables) {
        if (!find(one.id)) add(one.id, std::move(one.messages));
      }
    }
    if (!find(id)) add(id, {});
    known = find(id);
  }
  return index < known->messages.size() ? std::string_view(known->messages[index].text) : std::string_view();
}

}  // namespace kvt
