// Tests of frame/registration.h and frame/bundle.h on small modules of their own: the module list as modules come and
// go, the variant dump, the order in which bundle handlers are handed on.
#include "frame/registration.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "frame/bundle.h"
#include "platform/trace.h"

namespace kvt_test {
namespace {

using Names = std::vector<std::string>;

// A module with a bare type and one of two variants.
struct ToyModule {
  explicit ToyModule(const char* name, std::uint32_t number)
      : record{name, nullptr, nullptr, nullptr},
        desc{name, "kvt_toy", &trace_id, &trace_state, nullptr, types, 2, number, &zone, 16, {&kTable, 40, &trace_id}} {
  }
  void load() { kvt::load_module(desc, &record, &once); }
  void unload() { kvt::unload_module(desc, &record); }

  static constexpr fenlog_table kTable = {2, 41, nullptr};
  kvt_type_record bare{}, grown{};
  kvt_variant_data data = {2, {}, 0};
  kvt_variant_entry entries[2] = {{0, 20, 12, 0, 0, 0, 0}, {1, 28, 4, 0, 0, 0, 0}};
  kvt_static_type types[3] = {
      {&bare, nullptr, nullptr, nullptr, nullptr}, {&grown, &data, entries, nullptr, nullptr}, {}};
  std::uint16_t trace_id = 0;
  std::uint32_t trace_state = 0;
  void* zone = nullptr;
  kvt_module_record record;
  std::uint8_t once = 0;
  kvt::ModuleDesc desc;
};

// The names in the list behind those of libraries, after a look at every link.
Names listed() {
  Names names;
  std::uint64_t count = 0;
  kvt_module_record** link = &kvt_module_tot_root.first;
  for (; *link; link = &(*link)->next, ++count) {
    EXPECT_EQ((*link)->prev, link) << (*link)->name;
    if (std::string(*link ? (*link)->name : "").starts_with("toy")) names.emplace_back((*link)->name);
  }
  EXPECT_EQ(kvt_module_tot_root.last, link);
  EXPECT_EQ(kvt_module_tot_root.count, count);
  return names;
}

TEST(ModuleList, KeepsItsOrderWhicheverModuleUnloads) {
  for (int first = 0; first < 3; ++first) {
    for (int second = 0; second < 3; ++second) {
      if (first == second) continue;
      ToyModule modules[] = {ToyModule("toy_a", 210), ToyModule("toy_b", 211), ToyModule("toy_c", 212)};
      for (ToyModule& one : modules) one.load();
      Names left = {"toy_a", "toy_b", "toy_c"};
      EXPECT_EQ(listed(), left);
      for (const int gone : {first, second, 3 - first - second}) {
        modules[gone].unload();
        std::erase(left, modules[gone].record.name);
        EXPECT_EQ(listed(), left);
        EXPECT_EQ(modules[gone].record.next, nullptr);
        EXPECT_EQ(modules[gone].record.prev, nullptr);
      }
    }
  }
}

TEST(ModuleList, LoadRunsOnce) {
  ToyModule module("toy", 213);
  module.load();
  void* const zone = module.zone;
  EXPECT_NE(zone, nullptr);
  module.load();
  EXPECT_EQ(listed(), Names{"toy"});
  EXPECT_EQ(module.zone, zone);
  EXPECT_EQ(kvt_type_link_at(0xF0000001u | 213u << 20), &module.grown);
  module.unload();
  EXPECT_EQ(kvt_type_link_at(0xF0000001u | 213u << 20), nullptr);
  module.unload();
  EXPECT_EQ(listed(), Names{}) << "a second unload does nothing";
  module.load();
  EXPECT_EQ(listed(), Names{}) << "what has once been loaded does not come back";
}

Names g_told;
int tell(const char* format, ...) {
  char line[100];
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  g_told.emplace_back(line);
  return length;
}

TEST(VariantDump, PassesOverTypesWithoutVariantData) {
  ToyModule module("toy", 214);
  g_told.clear();
  const std::uint64_t before = kvt::trace_count();
  kvt::dump_variants(module.desc, tell);
  EXPECT_EQ(g_told, (Names{"n_variants 2\n", "variant 0 used length 20 alloc slop 12\n",
                           "variant 1 used length 28 alloc slop 4\n"}));
  ASSERT_EQ(kvt::trace_count(), before + 1);
  kvt::TraceEntry entry;
  ASSERT_TRUE(kvt::trace_read(before, &entry));
  EXPECT_EQ(entry.table, &ToyModule::kTable);
  EXPECT_EQ(entry.index, 40u);
  EXPECT_EQ(entry.level, static_cast<std::uint32_t>(KVT_LEVEL_ERROR));
  EXPECT_EQ(entry.module, module.trace_id);
  module.desc.type_count = 0;
  g_told.clear();
  kvt::dump_variants(module.desc, tell);
  EXPECT_EQ(g_told, Names{});
}

Names g_handed;
template <char name>
void* take(void* handler) {
  g_handed.push_back(std::string(1, name) + "+" + (handler ? static_cast<char*>(handler) : "0"));
  return nullptr;
}
template <char name>
void* drop() {
  g_handed.push_back(std::string(1, name) + "-");
  return nullptr;
}

TEST(BundleChain, HandsOnInOrderAndReturnsWhatWasThere) {
  constexpr kvt::BundleSibling kNeeds[] = {{take<'a'>, drop<'a'>}, {take<'b'>, drop<'b'>}, {nullptr, nullptr}};
  char x[] = "x", y[] = "y";
  void* kept = nullptr;
  EXPECT_EQ(kvt::register_bundle_handler(kept, kNeeds, x), nullptr);
  EXPECT_EQ(kvt::register_bundle_handler(kept, kNeeds, y), x);
  EXPECT_EQ(kept, y);
  EXPECT_EQ(kvt::register_bundle_handler(kept, kNeeds, nullptr), y);
  kept = y;
  EXPECT_EQ(kvt::unregister_bundle_handler(kept, kNeeds), y);
  EXPECT_EQ(kvt::unregister_bundle_handler(kept, kNeeds), nullptr);
  EXPECT_EQ(g_handed, (Names{"a+x", "b+x", "a+y", "b+y", "a+0", "b+0", "a-", "b-", "a-", "b-"}));
}

}  // namespace
}  // namespace kvt_test
