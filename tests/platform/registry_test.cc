// Tests of type records, side data, domains and the table of contents, over private and shared handles.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "kvt/table.h"
#include "platform/ref.h"

namespace {

constexpr std::uint32_t kModule = 200;
constexpr std::uint32_t kNumber = 0xF0000000u | kModule << 20;

// A module of three types, of which the second comes in an older and a newer form.
struct ToyModule {
  kvt_type_record records[3]{};
  kvt_variant_data data[3]{};
  kvt_variant_entry entries[3][4]{};
  std::vector<kvt_static_type> types;
  explicit ToyModule(int variants) {
    for (std::uint32_t i = 0; i < 3; i++) {
      records[i].magic = KVT_TYPE_MAGIC;
      for (int j = 0; j < 16; j++) records[i].luid[j] = static_cast<std::uint8_t>(i * 16 + j);
      std::snprintf(records[i].luid_text, 33, "%032u", i);
      std::snprintf(records[i].name, 64, "toy_%u", i);
      records[i].slot = -1;
      records[i].varinfo = kNumber | i;
      data[i] = {static_cast<std::int8_t>(i == 1 ? variants : 1), {}, kNumber | i};
      for (std::uint32_t v = 0; v < 4; v++) entries[i][v] = {v, 20 + v, 8, 0, 5, 5, 0};
      types.push_back({&records[i], &data[i], entries[i], nullptr, nullptr});
    }
  }
};
ToyModule old_module(2), new_module(4);
ToyModule* loaded;
int registrations;

void load(ToyModule& module) {
  loaded = &module;
  kvt_static_types_set(kModule, module.types.data(), 3);
}

void register_toys(kvt_handle* handle, std::uint32_t txn, int* err) {
  registrations++;
  for (const kvt_type_record& record : loaded->records) {
    if (void* there = handle->key_get(handle->registry, txn, record.luid_text)) {
      kvt_update_variant_info(handle, txn, static_cast<kvt_type_record*>(there), &record, 0);
      continue;
    }
    void* copy = handle->registry_alloc(handle->registry_pool, KVT_NO_TXN, KVT_REGISTERED_SIZE);
    if (!copy) {
      *err = ENOMEM;
      return;
    }
    std::memset(copy, 0, KVT_REGISTERED_SIZE);
    std::memcpy(copy, &record, sizeof record);
    auto* registered = static_cast<kvt_type_record*>(copy);
    registered->db_mode = handle->mode;
    handle->key_put(handle->registry, txn, registered->luid_text, copy);
    kvt_update_variant_info(handle, txn, registered, &record, 1);
  }
}

class Registry : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    load(old_module);
    registrations = 0;
    char name[] = "/tmp/kvt_registry_XXXXXX";
    ASSERT_TRUE(mkdtemp(name));
    directory = name;
    handle = open();
    ASSERT_NE(handle, nullptr);
    txn = kvtdb_txn_begin(handle, &err);
  }
  void TearDown() override {
    EXPECT_EQ(err, 0);
    kvt_handle_close(handle);
    kvt_static_types_set(kModule, nullptr, 0);
    std::system(("rm -rf " + directory).c_str());
  }
  kvt_handle* open() {
    kvt_handle_options options;
    kvt_handle_options_init(&options);
    options.create = 1;
    options.mode = 1;
    int error = 0;
    return GetParam() ? kvt_handle_open_database((directory + "/db").c_str(), &options, &error)
                      : kvt_handle_open_private(&options, &error);
  }
  const kvt_type_record* get(kvt_handle* h, std::uint32_t context, int i) {
    return kvt_type_info_ptr_get(h, context, &loaded->records[i], register_toys);
  }
  char* alloc(std::uint32_t size) {
    auto* p = static_cast<char*>(handle->store_alloc(handle->store, txn, size));
    std::memset(p, 0, size);
    return p;
  }
  // A table as a schema module makes it: type link, path or id.
  char* table(int type, const char* path, std::uint64_t id = 0) {
    char* t = alloc(376);
    kvt::store(t, kvt_type_link_of(get(handle, txn, type)));
    if (path) {
      std::strcpy(t + 7, path);
    } else {
      kvt::store(t + 264, id);
      kvt::store(t + 272, 1u);
    }
    return t;
  }
  std::string directory;
  kvt_handle* handle = nullptr;
  std::uint32_t txn = 0;
  int err = 0;
};

TEST_P(Registry, CopiesAreMadeOnceAndFoundByTheirLinks) {
  const kvt_type_record* copy = get(handle, txn, 1);
  ASSERT_NE(copy, nullptr);
  EXPECT_TRUE(kvt::in_cage(copy));
  EXPECT_EQ(get(handle, txn, 1), copy);
  EXPECT_NE(get(handle, txn, 2), nullptr);
  EXPECT_EQ(registrations, 1);
  EXPECT_FALSE(copy->varinfo >> 28 == 0xF);
  EXPECT_EQ(kvt_varinfo_of(copy)->n_variants, 2);
  EXPECT_EQ(kvt_type_link_of(copy), kvt_ref_of(copy));
  EXPECT_EQ(kvt_type_link_of(&old_module.records[1]), kNumber | 1);
  EXPECT_EQ(kvt_type_link_at(kNumber | 1), &old_module.records[1]);
  EXPECT_EQ(kvt_type_link_at(kNumber | 3), nullptr);
  EXPECT_EQ(kvt_type_link_at(0xF9900000), nullptr);
}

TEST_P(Registry, ANewerSchemaAddsVariantsAndKeepsCounts) {
  const kvt_type_record* copy = get(handle, txn, 1);
  kvt_variant_entry* entries = kvt_variant_entries(kvt_varinfo_of(copy));
  kvtlib_type_stats_create_object(handle, txn, copy, &entries[1].created, &err);
  kvtlib_type_stats_create_object(handle, txn, copy, &entries[1].created, &err);
  kvtlib_type_stats_destroy_object(handle, txn, copy, &entries[1].created, &err);
  load(new_module);
  register_toys(handle, txn, &err);
  const kvt_variant_data* data = kvt_varinfo_of(copy);
  ASSERT_EQ(data->n_variants, 4);
  entries = kvt_variant_entries(data);
  EXPECT_EQ(entries[1].created, 2u);
  EXPECT_EQ(entries[1].destroyed, 1u);
  EXPECT_EQ(entries[3].created, 0u) << "the static record's 5 are not the copy's";
  EXPECT_EQ(entries[3].used_length, 23u);
  load(old_module);
  register_toys(handle, txn, &err);
  EXPECT_EQ(kvt_varinfo_of(copy)->n_variants, 4) << "an older schema takes nothing away";
}

TEST_P(Registry, ACopyThatKnowsLessThanItsTypeIsCompletedWhenItIsWanted) {
  static int left;
  static void* (*real)(void*, std::uint32_t, std::uint32_t);
  real = handle->registry_alloc;
  left = 1;  // a copy without variant data
  handle->registry_alloc = [](void* pool, std::uint32_t context, std::uint32_t size) -> void* {
    return left-- > 0 ? real(pool, context, size) : nullptr;
  };
  const kvt_type_record* copy = get(handle, txn, 0);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->varinfo, kNumber | 0) << "still that of the static record";
  EXPECT_EQ(handle->last_error, 0) << "what was wanted is there";
  handle->registry_alloc = real;
  EXPECT_EQ(get(handle, txn, 0), copy);
  EXPECT_NE(copy->varinfo >> 28, 0xFu);
  const int complete = registrations;
  EXPECT_EQ(get(handle, txn, 0), copy);
  EXPECT_EQ(registrations, complete);
  // A newer schema has more variants of a type that is there.
  load(new_module);
  const kvt_type_record* newer = get(handle, txn, 1);
  ASSERT_NE(newer, nullptr);
  EXPECT_EQ(kvt_varinfo_of(newer)->n_variants, 4);
  EXPECT_GT(registrations, complete);
}

TEST_P(Registry, TypeLinksResolveThroughOwnedBlocks) {
  char* object = alloc(16);
  EXPECT_EQ(kvt_get_manifested_type_info(object, &err), nullptr);
  EXPECT_EQ(kvt_get_luid(handle, txn, object, &err), nullptr);
  kvt::store(object, kNumber | 2);
  EXPECT_EQ(kvt_get_manifested_type_info(object, &err), &old_module.records[2]);
  EXPECT_STREQ(kvt_get_name(handle, txn, object, &err), "toy_2");
  char* block = alloc(8);
  kvt::store(block, kNumber | 1);
  kvt::store(object, kvt_ref_of(block));
  object[6] = static_cast<char>(KVT_OBJ_TYPE_LINK_OWNED);
  EXPECT_EQ(kvt_get_manifested_type_info(object, &err), &old_module.records[1]);
  EXPECT_EQ(kvt_get_manifested_type_info_ptr_mem(object, &err), block);
  // A record has other things at the place of the flag byte.
  kvt::store(object, kvt_type_link_of(get(handle, txn, 0)));
  EXPECT_EQ(kvt_get_manifested_type_info(object, &err), get(handle, txn, 0));
}

// Beside a plain map: objects at many places of blocks of many sizes, blocks freed with some of their objects told.
TEST_P(Registry, FreedBlocksTakeTheirSideDataAlong) {
  std::map<char*, std::int32_t> expected;
  std::map<char*, std::uint32_t> blocks;
  std::mt19937 random(7);
  for (int step = 0; step < 20000; step++) {
    if (blocks.size() < 40) {
      const std::uint32_t size = 16u << random() % 8;
      char* block = alloc(size);
      ASSERT_EQ(kvtlib_get_sttr_offset(handle, txn, block), 0) << "of a block freed before";
      blocks[block] = size;
    }
    auto [block, size] = *std::next(blocks.begin(), static_cast<std::ptrdiff_t>(random() % blocks.size()));
    char* object = block + random() % (size / 8) * 8;
    switch (random() % 8) {
      case 0:
        handle->store_free(handle->store, txn, block);
        expected.erase(expected.lower_bound(block), expected.lower_bound(block + size));
        blocks.erase(block);
        break;
      case 1:
        kvt_hd_mapping_destroy(handle, txn, object, &err);
        expected.erase(object);
        break;
      default:
        kvtlib_update_sttr_offset(handle, txn, object, expected[object] = step + 1);
    }
    if (step % 500) continue;
    for (auto [at, bytes] : blocks) {
      for (char* p = at; p < at + bytes; p += 8) {
        auto found = expected.find(p);
        ASSERT_EQ(kvtlib_get_sttr_offset(handle, txn, p), found == expected.end() ? 0 : found->second);
      }
    }
  }
}

TEST_P(Registry, ATableLeavesContentsThatNobodyAskedFor) {
  char* only = table(0, "a/b");
  kvtdb_database_toc_insert(handle, txn, only, 0, &err);
  kvtdb_database_toc_delete(handle, txn, only, &err);
  EXPECT_EQ(err, 0);
}

TEST_P(Registry, ContentsFindTablesByPathOrIdAndType) {
  ASSERT_NE(kvtdb_database_toc_get(handle, txn, &err), nullptr);
  char* named = table(0, "a/b");
  char* other_type = table(1, "a/b");
  char* numbered = table(0, nullptr, 7);
  for (char* t : {named, other_type, numbered}) kvtdb_database_toc_insert(handle, txn, t, 0, &err);
  ASSERT_EQ(err, 0);
  struct Case {
    const char* path;
    std::uint64_t id;
    int type;
    void* found;
  } cases[] = {{"a/b", 0, 0, named},    {"a/b", 0, 1, other_type}, {"a/b", 0, 2, nullptr},   {"a/", 0, 0, nullptr},
               {"a/bc", 0, 0, nullptr}, {nullptr, 7, 0, numbered}, {nullptr, 7, 1, nullptr}, {nullptr, 0, 0, nullptr}};
  for (const Case& c : cases) {
    EXPECT_EQ(kvtdb_database_toc_get_table_root(handle, txn, c.path, c.path ? std::strlen(c.path) : 0, c.id,
                                                old_module.records[c.type].luid, 16, c.path != nullptr, &err),
              c.found)
        << (c.path ? c.path : "id") << " " << c.type;
  }
  kvtdb_database_toc_insert(handle, txn, table(0, "a/b"), 0, &err);
  EXPECT_EQ(std::exchange(err, 0), EEXIST);
  for (const int error : {0, ENOENT}) {
    kvtdb_database_toc_delete(handle, txn, named, &err);
    EXPECT_EQ(std::exchange(err, 0), error);
  }
}

TEST_P(Registry, TenantCountersCountBySource) {
  char* t = table(0, "t");
  kvtdb_database_toc_insert(handle, txn, t, 0, &err);
  auto count = [&](std::uint16_t tenant, int source) {
    std::uint32_t result = 99;
    auto byte = static_cast<std::uint8_t>(source);
    kvtdb_get_tenant_counter(handle, txn, t, &result, tenant, source < 0 ? nullptr : &byte);
    return result;
  };
  EXPECT_EQ(count(1, -1), 0u);
  for (int i = 0; i < 3; i++) kvtdb_update_tenant_counter(handle, txn, t, 1, 1, 1, &err);
  kvtdb_update_tenant_counter(handle, txn, t, 1, 1, 255, &err);
  kvtdb_update_tenant_counter(handle, txn, t, 1, 2, 1, &err);
  kvtdb_update_tenant_counter(handle, txn, t, 0, 1, 1, &err);
  kvtdb_update_tenant_counter(handle, txn, t, 0, 3, 1, &err);
  EXPECT_EQ(count(1, 1), 2u);
  EXPECT_EQ(count(1, 255), 1u);
  EXPECT_EQ(count(1, -1), 3u);
  EXPECT_EQ(count(3, -1), 0u);
  for (int i = 0; i < 2; i++) kvtdb_update_tenant_counter(handle, txn, t, 0, 2, 1, &err);
  EXPECT_EQ(count(2, -1), 0u) << "a count never falls below zero";
}

INSTANTIATE_TEST_SUITE_P(Stores, Registry, testing::Bool(),
                         [](const auto& info) { return info.param ? "Database" : "Private"; });

using SharedRegistry = Registry;
INSTANTIATE_TEST_SUITE_P(Stores, SharedRegistry, testing::Values(true));

TEST_P(SharedRegistry, HandlesShareItAndAnAbortLeavesItWhole) {
  kvt_handle* other = open();
  const kvt_type_record* copy = get(handle, txn, 1);
  kvtdb_txn_abort(handle, txn, &err);
  EXPECT_EQ(get(handle, KVT_NO_TXN, 1), copy);
  EXPECT_EQ(get(other, KVT_NO_TXN, 1), copy);
  EXPECT_EQ(kvt_varinfo_of(copy)->n_variants, 2);
  EXPECT_EQ(registrations, 1);
  txn = kvtdb_txn_begin(other, &err);
  EXPECT_EQ(get(other, txn, 2), get(handle, KVT_NO_TXN, 2));
  kvt_handle_close(other);
}

TEST_P(SharedRegistry, AReaderCannotRegister) {
  kvtdb_txn_abort(handle, txn, &err);
  EXPECT_EQ(get(handle, KVT_NO_TXN, 0), nullptr);
  EXPECT_EQ(handle->last_error, ENOMEM);
  EXPECT_EQ(kvtdb_database_toc_get(handle, KVT_NO_TXN, &err), nullptr);
}

}  // namespace
