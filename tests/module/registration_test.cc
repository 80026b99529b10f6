// Tests of how the module's types get into a registry, of its variant dump, and of the bundle handlers that it hands
// on.
#include <cstdarg>
#include <cstdio>

#include "rig.h"

namespace {

struct Update {
  const kvt_type_record* record;
  int is_new;
};
std::vector<Update>* g_updates;  // while a test stands in for the runtime

}  // namespace

// The library's calls of the runtime come by here first.
extern "C" void kvt_update_variant_info(kvt_handle* handle, std::uint32_t txn, kvt_type_record* copy,
                                        const kvt_type_record* record, int is_new) {
  if (g_updates) return g_updates->push_back({record, is_new});
  static auto* const next =
      reinterpret_cast<decltype(&kvt_update_variant_info)>(dlsym(RTLD_NEXT, "kvt_update_variant_info"));
  next(handle, txn, copy, record, is_new);
}

namespace module_test {
namespace {

constexpr std::size_t kTypes = 79;
const char* const kSiblings[] = {"qep_comm",   "rudd_common",     "zarn_enum_types",
                                 "zarn_types", "zarn_tag_common", "zarn_config_db_const_defs"};

// The names of the type table's records: as published, with the lines of each kind in the order of its kind.
std::vector<std::string> published_order() {
  std::vector<std::string> names;
  for (const auto& row : read_table("order.tsv")) {
    if (row[0] == "zarn_wlan" && !row[1].starts_with("tbl_")) names.push_back(row[1]);
  }
  for (const auto& row : read_table("tables.tsv")) {
    names.push_back(row[0]);
    names.push_back(row[0] + "_record");
  }
  return names;
}

const kvt_module_record* module_record() {
  for (const kvt_module_record* one = kvt_module_tot_root.first; one; one = one->next) {
    if (!std::strcmp(one->name, "zarn_wlan")) return one;
  }
  return nullptr;
}

// A registry that counts, on which a handle of any store can be put.
class Registration : public testing::Test {
 protected:
  Registration() {
    g_self = this;
    g_updates = &updates;
    rig.h->mode = 1;
    rig.h->registry = this;
    rig.h->registry_pool = &allocated;
    rig.h->key_get = [](void* registry, std::uint32_t txn, const char* key) -> void* {
      auto& self = *static_cast<Registration*>(registry);
      EXPECT_EQ(txn, self.rig.txn);
      const auto found = self.keys.find(key);
      return found == self.keys.end() ? nullptr : found->second;
    };
    rig.h->key_put = [](void* registry, std::uint32_t, const char* key, void* value) -> int {
      static_cast<Registration*>(registry)->keys[key] = static_cast<kvt_type_record*>(value);
      return 0;  // whatever it says, registration goes on
    };
    rig.h->registry_alloc = [](void* pool, std::uint32_t txn, std::uint32_t size) -> void* {
      EXPECT_EQ(pool, &g_self->allocated);
      EXPECT_EQ(txn, KVT_NO_TXN);
      EXPECT_EQ(size, 280u);
      if (g_self->allocated == g_self->room) return nullptr;
      ++g_self->allocated;
      void* block = kvt_cage_alloc(size);
      std::memset(block, 0xDD, size);
      g_self->blocks.push_back(block);
      return block;
    };
  }
  ~Registration() override {
    g_updates = nullptr;
    for (void* block : blocks) kvt_cage_free(block);
  }
  void initialize() { zarn_wlan_typeinfo_initialize(rig.h, rig.txn, &rig.err); }

  static Registration* g_self;
  Rig rig;
  std::map<std::string, kvt_type_record*> keys;
  std::vector<void*> blocks;
  std::vector<Update> updates;
  std::size_t allocated = 0, room = kTypes;
};
Registration* Registration::g_self;

TEST_F(Registration, CopiesEveryRecordInOrder) {
  initialize();
  ASSERT_EQ(allocated, kTypes);
  ASSERT_EQ(updates.size(), kTypes);
  const std::vector<std::string> names = published_order();
  ASSERT_EQ(names.size(), kTypes);
  for (std::size_t i = 0; i < kTypes; ++i) {
    const kvt_type_record& record = *updates[i].record;
    SCOPED_TRACE(names[i]);
    EXPECT_EQ(record.name, names[i]);
    EXPECT_EQ(updates[i].is_new, 1);
    EXPECT_EQ(record.slot, -1);
    const auto* copy = static_cast<const kvt_type_record*>(blocks[i]);
    EXPECT_EQ(keys.at(record.luid_text), copy);
    EXPECT_EQ(copy->slot, -1);
    EXPECT_EQ(copy->db_mode, 1u);
    EXPECT_EQ(record.db_mode, 0u);
    EXPECT_EQ(std::memcmp(copy, &record, offsetof(kvt_type_record, varinfo)), 0);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(copy + 1), 16), std::string(16, '\0'));
  }
}

TEST_F(Registration, ThatFailsHalfWayIsCompletedLater) {
  for (room = 0; room < kTypes; room += 26) {
    initialize();
    EXPECT_EQ(rig.take_err(), ENOMEM);
    EXPECT_EQ(rig.h->last_error, ENOMEM);
    kvt_clear_last_error(rig.h);
    EXPECT_EQ(allocated, room) << "what is registered stays, and nothing behind the failure is tried";
    EXPECT_EQ(keys.size(), room);
  }
  const std::vector<void*> before = blocks;
  updates.clear();
  room = kTypes;
  initialize();
  EXPECT_EQ(allocated, kTypes);
  ASSERT_EQ(updates.size(), kTypes);
  for (std::size_t i = 0; i < kTypes; ++i) EXPECT_EQ(updates[i].is_new, i >= before.size()) << i;
  EXPECT_TRUE(std::equal(before.begin(), before.end(), blocks.begin()));
}

TEST(ModuleRecord, StandsBehindItsSiblingsWithItsTypes) {
  std::vector<std::string> names;
  for (const kvt_module_record* one = kvt_module_tot_root.first; one; one = one->next) names.emplace_back(one->name);
  EXPECT_EQ(names.size(), kvt_module_tot_root.count);
  ASSERT_EQ(names.size(), std::size(kSiblings) + 1);
  EXPECT_EQ(names.back(), "zarn_wlan");
  for (const char* sibling : kSiblings) EXPECT_EQ(std::count(names.begin(), names.end(), sibling), 1) << sibling;
  std::vector<std::string> types;
  const kvt_module_record* record = module_record();
  ASSERT_NE(record, nullptr);
  for (std::size_t i = 0; record->types[i]; ++i) types.emplace_back(record->types[i]->name);
  EXPECT_EQ(types, published_order());
}

std::string g_told;
int tell(const char* format, ...) {
  char line[100];
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  g_told += line;
  return length;
}

TEST(VariantDump, TellsThePublishedSizes) {
  std::string expected;
  auto add = [&](const std::vector<std::pair<std::uint32_t, std::uint32_t>>& variants) {
    expected += "n_variants " + std::to_string(variants.size()) + "\n";
    for (std::size_t v = 0; v < variants.size(); ++v)
      expected += "variant " + std::to_string(v) + " used length " + std::to_string(variants[v].first) +
                  " alloc slop " + std::to_string(variants[v].second) + "\n";
  };
  for (const std::string& name : published_order()) {
    if (Catalogue::get().by_name.count(name)) {
      const Type& type = type_of(name);
      std::vector<std::pair<std::uint32_t, std::uint32_t>> variants;
      for (const std::uint32_t used : type.used) variants.push_back({used, type.size.back() - used});
      add(variants);
    } else if (Catalogue::get().enums.count(name)) {
      int top = 0;
      for (const Enumerator& one : Catalogue::get().enums.at(name)) top = std::max(top, one.since);
      add(std::vector<std::pair<std::uint32_t, std::uint32_t>>(static_cast<std::size_t>(top) + 1, {12, 0}));
    } else {
      add({name.starts_with("flg_") ? std::pair{8u, 4u} : std::pair{4u, 0u}});
    }
  }
  g_told.clear();
  zarn_wlan_type_variant_dump(tell);
  EXPECT_EQ(g_told, expected);
}

// The words of the module and of its siblings, in the order of the chain.
std::vector<void*> handlers() {
  std::vector<void*> words = {zarn_wlan_bundle_registered_handler};
  for (const std::string sibling : kSiblings) words.push_back(*fn<void*>(sibling + "_bundle_registered_handler"));
  return words;
}

TEST(BundleHandler, GoesToAllSiblingsAndComesBackFromEach) {
  char x = 0, y = 0;
  auto all = [](void* handler) { return std::vector<void*>(std::size(kSiblings) + 1, handler); };
  EXPECT_EQ(handlers(), all(nullptr));
  EXPECT_EQ(zarn_wlan_bundle_handler_register(&x), nullptr);
  EXPECT_EQ(handlers(), all(&x));
  EXPECT_EQ(zarn_wlan_bundle_handler_register(&y), &x);
  EXPECT_EQ(handlers(), all(&y));
  for (const std::string sibling : kSiblings) {
    EXPECT_EQ(fn<void*(void*)>(sibling + "_bundle_handler_register")(&x), &y) << sibling;
    EXPECT_EQ(fn<void*()>(sibling + "_bundle_handler_unregister")(), &x) << sibling;
    EXPECT_EQ(*fn<void*>(sibling + "_bundle_registered_handler"), nullptr) << sibling;
  }
  EXPECT_EQ(zarn_wlan_bundle_registered_handler, &y) << "a sibling hands nothing back up";
  EXPECT_EQ(zarn_wlan_bundle_handler_register(&x), &y);
  EXPECT_EQ(zarn_wlan_bundle_handler_unregister(), &x);
  EXPECT_EQ(handlers(), all(nullptr));
  EXPECT_EQ(zarn_wlan_bundle_handler_unregister(), nullptr);
}

}  // namespace
}  // namespace module_test
