// Tests of table handles beyond opening by name: numbered tables and their root, the ways in which a table goes, what
// each failure of the runtime says and leaves, and the order of what is announced.
#include <dlfcn.h>

#include <utility>

#include "tests/tables/faults.h"
#include "tests/tables/rig.h"

namespace table_test {
namespace {

// Whether the call is to fail now; it is heard in any case.
bool fails(const char* call, kvt_handle* handle, const void* at, int* err) {
  if (hearing) hearing->push_back({call, at});
  if (!fault.call || std::strcmp(fault.call, call) != 0) return false;
  if (fault.error) kvt_store_epoch_err(handle, fault.error, err);
  return true;
}

template <class T>
T nothing() {
  return T();
}

}  // namespace
}  // namespace table_test

#define RUNTIME_CALL(result, name, parameters, arguments, at)                                 \
  result name parameters {                                                                    \
    static const auto real = reinterpret_cast<result(*) parameters>(dlsym(RTLD_NEXT, #name)); \
    if (table_test::fails(#name, handle, at, err)) return table_test::nothing<result>();      \
    return real arguments;                                                                    \
  }

RUNTIME_CALL(kvt_table_list*, kvtlib_database_table_toc_get, (kvt_handle * handle, uint32_t txn, int* err),
             (handle, txn, err), nullptr)
RUNTIME_CALL(void*, kvtdb_database_toc_get, (kvt_handle * handle, uint32_t txn, int* err), (handle, txn, err), nullptr)
RUNTIME_CALL(void*, kvtdb_database_toc_get_table_root,
             (kvt_handle * handle, uint32_t txn, const char* path, size_t length, uint64_t id, const uint8_t* luid,
              uint32_t luid_length, uint32_t by_name, int* err),
             (handle, txn, path, length, id, luid, luid_length, by_name, err), nullptr)
RUNTIME_CALL(void, kvtdb_database_toc_insert,
             (kvt_handle * handle, uint32_t txn, void* table, uint32_t dynamic, int* err),
             (handle, txn, table, dynamic, err), table)
RUNTIME_CALL(void, kvtdb_database_toc_delete, (kvt_handle * handle, uint32_t txn, void* table, int* err),
             (handle, txn, table, err), table)
RUNTIME_CALL(int, kvt_oid_mapping_create,
             (kvt_handle * handle, uint32_t txn, void* object, int kind, uint32_t dynamic, uint32_t ior, int* err),
             (handle, txn, object, kind, dynamic, ior, err), object)
RUNTIME_CALL(int, kvt_request_oid_mapping_destroy, (kvt_handle * handle, uint32_t txn, void* object, int* err),
             (handle, txn, object, err), object)
RUNTIME_CALL(void, kvtgc_database_gc_list_remove, (kvt_handle * handle, uint32_t txn, void* table, int* err),
             (handle, txn, table, err), table)
RUNTIME_CALL(void, kvt_hd_mapping_destroy, (kvt_handle * handle, uint32_t txn, void* object, int* err),
             (handle, txn, object, err), object)
RUNTIME_CALL(void, kvtlib_record_dereference_loc, (kvt_handle * handle, uint32_t txn, void* record, int* err),
             (handle, txn, record, err), record)
RUNTIME_CALL(void, kvtdb_update_tenant_counter,
             (kvt_handle * handle, uint32_t txn, void* table, uint32_t add, uint16_t tenant, uint8_t source, int* err),
             (handle, txn, table, add, tenant, source, err), table)
RUNTIME_CALL(void, kvtdb_enq_rec_move_write_cursor_internal,
             (kvt_handle * handle, uint32_t txn, void* table, void* record, int* err),
             (handle, txn, table, record, err), record)

void kvtgc_validate_table_delete(kvt_handle*, void* table) {
  if (table_test::hearing) table_test::hearing->push_back({"kvtgc_validate_table_delete", table});
}

int nadra_set_range(void* store, void* address, uint32_t length, uint32_t txn) {
  static const auto real = reinterpret_cast<decltype(&nadra_set_range)>(dlsym(RTLD_NEXT, "nadra_set_range"));
  if (table_test::hearing) table_test::hearing->push_back({"range", address, nullptr, txn});
  if (table_test::fault.call && !std::strcmp(table_test::fault.call, "nadra_set_range")) return 0;
  return real(store, address, length, txn);
}

namespace table_test {
namespace {

void* list_head(Rig& rig) { return kvtlib_database_table_toc_get(rig, rig.txn(), &rig.err); }
std::vector<void*> listed(Rig& rig) {
  std::vector<void*> tables;
  for (std::uint32_t t = at<std::uint32_t>(list_head(rig), 0); t; t = at<std::uint32_t>(kvt_ref_at(t), 276)) {
    tables.push_back(kvt_ref_at(t));
  }
  return tables;
}
const char* id_root(Rig& rig, const TableOps& type) {
  const std::string key = std::string("__kvt_TBI__") + type.luid_text;
  return static_cast<const char*>(rig->key_get(rig->store, rig.txn(), key.c_str()));
}
std::uint64_t next_id(Rig& rig, const TableOps& type) { return at<std::uint64_t>(id_root(rig, type), 8); }
std::uint32_t id_tables(Rig& rig, const TableOps& type) { return at<std::uint32_t>(id_root(rig, type), 4); }
std::uint64_t table_id(const void* table) { return at<std::uint64_t>(table, 264); }
std::uint32_t id_mode(const void* table) { return at<std::uint32_t>(table, 272); }
std::uint32_t table_flags(const void* table) { return at<std::uint32_t>(table, 360); }
void set_word(void* block, std::size_t offset, std::uint32_t value) {
  std::memcpy(static_cast<char*>(block) + offset, &value, sizeof value);
}
const kvt_variant_entry& counts_of(const void* block) {
  return *kvt_variant_entries(kvt_varinfo_of(kvt_type_link_at(at<std::uint32_t>(block, 0))));
}

class Handles : public EveryTable {
 protected:
  const TableOps& type = GetParam();
  std::string named(std::string text) const {
    for (std::size_t i; (i = text.find('X')) != std::string::npos;) text.replace(i, 1, "\1");
    for (std::size_t i; (i = text.find('\1')) != std::string::npos;) text.replace(i, 1, type.name);
    return text;
  }
};
INSTANTIATE_TEST_SUITE_P(Tables, Handles, testing::ValuesIn(kTables), table_name);

TEST_P(Handles, NumbersGoUpwardsOnly) {
  for (const Kind kind : {Kind::kPrivate, Kind::kDatabase}) {
    Rig rig(kind);
    rig.begin();
    constexpr std::uint64_t kMost = UINT64_MAX;
    // A number to open (or an automatic one), the number that the table has, and the next automatic one after it.
    const struct {
      bool automatic;
      std::uint64_t id, next;
    } kSteps[] = {{true, 0, 1},   {true, 1, 2},    {false, 10, 11},           {true, 11, 12},  {false, 5, 13},
                  {true, 13, 14}, {false, 14, 15}, {false, kMost - 1, kMost}, {true, kMost, 0}};
    std::uint32_t open = 0;
    for (const auto& step : kSteps) {
      SCOPED_TRACE("id " + std::to_string(step.id));
      void* table = step.automatic ? type.open_auto_id(rig, rig.txn(), 0, &rig.err)
                                   : type.open_by_id(rig, rig.txn(), step.id, 0, &rig.err);
      ASSERT_NE(table, nullptr);
      EXPECT_EQ(table_id(table), step.id);
      EXPECT_EQ(id_mode(table), step.automatic ? 2u : 1u);
      EXPECT_EQ(table_flags(table), step.automatic ? 0x80u : 0u);
      EXPECT_EQ(next_id(rig, type), step.next);
      EXPECT_EQ(id_tables(rig, type), ++open);
      // Opened again it is the same one, and no number goes.
      EXPECT_EQ(type.open_by_id(rig, rig.txn(), step.id, 0, &rig.err), table);
      EXPECT_EQ(type.open_cr(rig, 7, 1, "ignored", step.id), table);
      EXPECT_EQ(next_id(rig, type), step.next);
    }
    // Numbers begin anew, and the first one is taken.
    EXPECT_EQ(type.open_auto_id(rig, rig.txn(), 0, &rig.err), nullptr);
    EXPECT_EQ(rig.take_error(), 17);
    EXPECT_EQ(id_tables(rig, type), open);
    EXPECT_EQ(type.open_by_id(rig, rig.txn(), 999, 1, &rig.err), nullptr);
    EXPECT_EQ(type.open_auto_id(rig, rig.txn(), 1, &rig.err), nullptr);
    EXPECT_EQ(rig.err, 0);
    rig.commit();
  }
}

TEST_P(Handles, EveryWayToOpen) {
  Rig rig;
  const std::uint32_t txn = rig.txn();
  const struct {
    void* table;
    std::uint32_t mode, flags;
    std::uint64_t id;
    std::string path;
  } kWays[] = {
      {type.open_ior_name(rig, txn, "n", 9, 0, 1, &rig.err), 0, 0x80, 0, std::string("n/") + type.luid_text},
      {type.open_ior_name(rig, txn, "p/q", 9, 0, 0, &rig.err), 0, 0, 0, "p/q"},
      {type.open_ior_id(rig, txn, 70, 9, 0, 1, &rig.err), 1, 0x80, 70, ""},
      {type.open_ior_id(rig, txn, 71, 9, 0, 0, &rig.err), 1, 0, 71, ""},
      {type.open_cr(rig, 0, 0, "r/s", 5), 0, 0, 0, "r/s"},
      {type.open_cr(rig, 0, 1, "r/s", 75), 1, 0, 75, ""},
      {type.open_cr(rig, 0, 2, "r/s", 90), 2, 0x80, 76, ""},
  };
  for (const auto& way : kWays) {
    SCOPED_TRACE(&way - kWays);
    ASSERT_NE(way.table, nullptr);
    EXPECT_EQ(id_mode(way.table), way.mode);
    EXPECT_EQ(table_flags(way.table), way.flags);
    EXPECT_EQ(table_id(way.table), way.id);
    EXPECT_EQ(static_cast<char*>(way.table) + 7, way.path);
  }
  EXPECT_EQ(listed(rig).size(), 7u);
  EXPECT_EQ(type.open_cr(rig, 0, 3, "n", 1), nullptr);
  EXPECT_EQ(rig->last_error, 22);
}

TEST_P(Handles, TheRootOfNumbersIsMadeByWritersOnly) {
  Rig rig(Kind::kDatabase);
  rig.begin();
  for (const bool automatic : {false, true}) {
    rig.lines.clear();
    void* table =
        automatic ? type.open_auto_id(rig, rig.txn(), 1, &rig.err) : type.open_by_id(rig, rig.txn(), 0, 1, &rig.err);
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(rig.err, 0);
    ASSERT_EQ(rig.lines.size(), 1u);
    EXPECT_EQ(rig.lines[0].level, 0x3000000u);
    EXPECT_EQ(rig.take_line(), named("reader cannot allocate table X ID root"));
    EXPECT_EQ(id_root(rig, type), nullptr);
  }
  // No room for it; then no name for it.
  const std::size_t blocks = rig.live_blocks();
  rig.fail_after = 0;
  EXPECT_EQ(type.open_by_id(rig, rig.txn(), 3, 0, &rig.err), nullptr);
  EXPECT_EQ(rig.take_error(), 12);
  rig.fail_after = -1;
  const auto put = rig->key_put;
  rig->key_put = [](void*, std::uint32_t, const char*, void*) { return 0; };
  rig.lines.clear();
  EXPECT_EQ(type.open_by_id(rig, rig.txn(), 3, 0, &rig.err), nullptr);
  EXPECT_EQ(rig.err, 0);
  EXPECT_EQ(rig.take_line(), named("Setting tbi root for table X failed"));
  EXPECT_EQ(rig.live_blocks(), blocks);
  EXPECT_TRUE(listed(rig).empty());
  rig->key_put = put;
  rig.commit();
}

// The process remembers where a root lies. Another store, even one at the same place, has another.
TEST_P(Handles, TheRememberedRootIsTheStoresOwn) {
  for (const std::uint64_t first : {100, 200}) {
    Rig database(Kind::kDatabase);
    database.begin();
    EXPECT_EQ(table_id(type.open_auto_id(database, database.txn(), 0, &database.err)), 0u);
    type.open_by_id(database, database.txn(), first, 0, &database.err);
    EXPECT_EQ(next_id(database, type), first + 1);
    int err = 0;
    kvt_handle* other = kvt_handle_open_private(nullptr, &err);
    EXPECT_EQ(table_id(type.open_auto_id(other, 0, 0, &err)), 0u);
    EXPECT_EQ(table_id(type.open_auto_id(database, database.txn(), 0, &database.err)), first + 1);
    EXPECT_EQ(table_id(type.open_auto_id(other, 0, 0, &err)), 1u);
    kvt_handle_close(other);
    EXPECT_EQ(err, 0);
    database.commit();
  }
}

TEST_P(Handles, FreeTakesTheTableAway) {
  fenlog_set_level(7);
  for (const Kind kind : {Kind::kPrivate, Kind::kDatabase}) {
    for (std::uint32_t mode = 0; mode < 3; ++mode) {
      SCOPED_TRACE(mode);
      Rig rig(kind);
      rig.begin();
      type.open_cr(rig, 0, 1, nullptr, 40);
      void* last = type.open_cr(rig, 0, 0, "other", 0);
      const std::vector<void*> before = listed(rig);
      const std::size_t blocks = rig.live_blocks();
      const std::uint32_t numbered = id_tables(rig, type);
      void* table = type.open_cr(rig, 0, mode, "a/b", 50);
      const std::uint64_t id = table_id(table);
      EXPECT_EQ(id_tables(rig, type), numbered + (mode != 0));
      const std::uint64_t destroyed = counts_of(last).destroyed;
      rig.lines.clear();
      if (mode == 1) {
        type.close_cr(rig, table, 1);
      } else {
        type.free(rig, rig.txn(), table, &rig.err);
      }
      EXPECT_EQ(rig.take_error(), 0);
      ASSERT_EQ(rig.lines.size(), 1u);
      EXPECT_EQ(rig.lines[0].level, 0x7000000u);
      EXPECT_EQ(rig.take_line(), named("X table free: Successfully removed OID mapping for X"));
      EXPECT_EQ(rig.live_blocks(), blocks);
      EXPECT_EQ(listed(rig), before);
      EXPECT_EQ(at<std::uint32_t>(list_head(rig), 4), kvt_ref_of(last) + 276);
      EXPECT_EQ(counts_of(last).destroyed, destroyed + 1);
      EXPECT_EQ(id_tables(rig, type), numbered);
      EXPECT_EQ(type.open_cr(rig, 1, mode, "a/b", id), nullptr);
      EXPECT_EQ(rig->last_error, 0);
      // The first of the list goes as well as the last.
      type.free(rig, rig.txn(), before[0], &rig.err);
      EXPECT_EQ(listed(rig), std::vector<void*>{last});
      EXPECT_EQ(at<std::uint32_t>(last, 280), kvt_ref_of(list_head(rig)));
    }
  }
  fenlog_set_level(6);
}

// Where the contents defer it, a free is two: out of the contents now, and the rest when the runtime comes back.
TEST_P(Handles, DeferredFree) {
  Rig rig(Kind::kDatabase);
  rig.begin();
  void* first = open_table(rig, type, "first");
  void* second = type.open_auto_id(rig, rig.txn(), 0, &rig.err);
  void* contents = kvtdb_database_toc_get(rig, rig.txn(), &rig.err);
  set_word(contents, 360, 1);
  std::vector<Heard> calls;
  for (void* table : {first, second}) {
    const std::string bytes(static_cast<char*>(table), 360);
    const std::size_t blocks = rig.live_blocks();
    type.free(rig, rig.txn(), table, &rig.err);
    EXPECT_EQ(rig.err, 0);
    EXPECT_EQ(rig.live_blocks(), blocks);
    EXPECT_EQ(std::string(static_cast<char*>(table), 360), bytes);
    EXPECT_EQ(table_flags(table) & 0x40, 0x40u);
  }
  EXPECT_EQ(type.open(rig, rig.txn(), "first", 1, &rig.err), nullptr);
  EXPECT_EQ(listed(rig), (std::vector<void*>{first, second}));
  void* again = open_table(rig, type, "first");
  EXPECT_NE(again, first);

  rig.lines.clear();
  rig->gc_active = 1;
  hearing = &calls;
  type.free(rig, rig.txn(), first, &rig.err);
  hearing = nullptr;
  rig->gc_active = 0;
  EXPECT_EQ(rig.err, 0);
  for (const Heard& call : calls) EXPECT_NE(call.what, "kvtdb_database_toc_delete");
  EXPECT_EQ(rig.take_line(), named("X table free: Table being freed is still on the GC list!"));
  EXPECT_EQ(kvtgc_collect(rig, rig.txn(), &rig.err), 1u);
  EXPECT_EQ(listed(rig), std::vector<void*>{again});
  EXPECT_EQ(id_tables(rig, type), 0u);
  rig.commit();
  EXPECT_EQ(rig.err, 0);
}

TEST_P(Handles, RequestedFreeWaitsForTheCollector) {
  {
    Rig alone;
    void* table = open_table(alone, type);
    type.request_free(alone, alone.txn(), table, &alone.err);
    EXPECT_TRUE(listed(alone).empty()) << "without a shared database it goes at once";
    EXPECT_EQ(alone.err, 0);
  }
  Rig rig(Kind::kDatabase);
  rig.begin();
  mt_set_tenant_id(4);
  void* table = open_table(rig, type);
  void* record = make_record(rig, type);
  type.insert(rig, rig.txn(), table, record, &rig.err);
  const std::uint64_t serving = counts_of(table).destroyed;
  type.close_cr(rig, table, 2);
  type.request_free(rig, rig.txn(), table, &rig.err);
  EXPECT_EQ(rig->last_error, 0) << "out of the contents already: no error";
  EXPECT_EQ(rig.err, 0);
  EXPECT_EQ(type.open(rig, rig.txn(), "t", 1, &rig.err), nullptr);
  // As long as it holds records it serves them.
  rig->last_error = 0;
  EXPECT_EQ(kvtgc_collect(rig, rig.txn(), &rig.err), 0u);
  EXPECT_EQ(type.count(rig, rig.txn(), table), 1u);
  type.remove(rig, rig.txn(), table, record, &rig.err);
  EXPECT_EQ(type.count(rig, rig.txn(), table), 0u);
  void* cursor = kvtdb_cursor_open(rig, rig.txn(), table, 0, &rig.err);
  EXPECT_EQ(kvtgc_collect(rig, rig.txn(), &rig.err), 0u) << "a cursor stands on it";
  kvtdb_cursor_close(rig, rig.txn(), cursor, &rig.err);
  EXPECT_EQ(kvtgc_collect(rig, rig.txn(), &rig.err), 1u);
  EXPECT_TRUE(listed(rig).empty());
  void* other = open_table(rig, type, "other");
  EXPECT_EQ(counts_of(other).destroyed, serving + 1);

  // A table with readers of its changes cannot go.
  cursor = kvtdb_cursor_open(rig, rig.txn(), other, 0, &rig.err);
  rig.lines.clear();
  type.request_free(rig, rig.txn(), other, &rig.err);
  EXPECT_EQ(rig.take_error(), 16);
  EXPECT_EQ(rig.take_line(), named("Failed to perform toc delete for table X. Error ") + strerror(16));
  EXPECT_EQ(type.open(rig, rig.txn(), "other", 1, &rig.err), other);
  kvtdb_cursor_close(rig, rig.txn(), cursor, &rig.err);
  rig.commit();
  EXPECT_EQ(rig.err, 0);
}

TEST_P(Handles, ReferencesKeepATable) {
  Rig rig(Kind::kDatabase);
  rig.begin();
  void* table = open_table(rig, type);
  kvt_handle_to_oid(rig, rig.txn(), table, 2, 1, &rig.err);
  ASSERT_EQ(rig.err, 0);
  type.free(rig, rig.txn(), table, &rig.err);
  EXPECT_EQ(rig.take_error(), 11);
  EXPECT_EQ(listed(rig), std::vector<void*>{table});
  EXPECT_EQ(type.open(rig, rig.txn(), "t", 1, &rig.err), nullptr);
  EXPECT_EQ(kvtgc_collect(rig, rig.txn(), &rig.err), 0u);
  EXPECT_EQ(rig->last_error, 0);
  kvtlib_lookup_and_update_oid_ref_count(rig, rig.txn(), table, 0, &rig.err);
  rig.commit();
  EXPECT_EQ(rig.err, 0);
  EXPECT_TRUE(listed(rig).empty()) << "the last reference takes it along";

  // But not while a record leads to it.
  rig.begin();
  table = open_table(rig, type);
  kvt_handle_to_oid(rig, rig.txn(), table, 2, 1, &rig.err);
  void* record = make_record(rig, type);
  type.insert(rig, rig.txn(), table, record, &rig.err);
  type.free(rig, rig.txn(), table, &rig.err);
  EXPECT_EQ(rig.take_error(), 11);
  kvtlib_lookup_and_update_oid_ref_count(rig, rig.txn(), table, 0, &rig.err);
  rig.commit();
  EXPECT_EQ(listed(rig), std::vector<void*>{table});
  rig.begin();
  EXPECT_EQ(type.destroy(rig, rig.txn(), record, &rig.err), 0u);
  EXPECT_EQ(kvtgc_collect(rig, rig.txn(), &rig.err), 1u);
  rig.commit();
  EXPECT_EQ(rig.err, 0);
}

// Each failure of the runtime: what is said, at which level, and the code; the database stays as it was.
TEST_P(Handles, FailuresOfTheRuntime) {
  fenlog_set_level(7);
  const std::string because = strerror(5);
  enum Way { kOpen, kRead, kOpenId, kOpenAuto, kFree, kRequest };
  const struct {
    const char* call;
    int error;
    Way way;
    std::string line;
    unsigned level;
    int code;
  } kCases[] = {
      {"kvtlib_database_table_toc_get", 5, kOpen, "Failed to get table TOC for table X open. Error " + because, 3, 5},
      {"kvtdb_database_toc_get", 5, kOpen, "Failed to open TOC for table X. Error " + because, 3, 5},
      {"kvtdb_database_toc_get", 0, kRead,
       "Could not find TOC root for table X DB private. Lock type: RD_LOCK, Open type: 7", 6, 0},
      {"kvtdb_database_toc_get_table_root", 5, kOpenId, "kvt database toc find table X in error: " + because, 3, 5},
      {"kvtdb_database_toc_insert", 5, kOpenId, "Failed to insert static table X into the TOC", 3, 5},
      {"kvtdb_database_toc_insert", 5, kOpenAuto, "Failed to insert dynamic table X into the TOC", 3, 5},
      {"kvtdb_database_toc_get", 5, kFree, "Failed to get toc root while freeing table. Error " + because, 3, 5},
      {"kvtdb_database_toc_get", 0, kFree,
       std::string("Failed to get toc root while freeing table. Error ") + strerror(0), 3, 0},
      {"kvtdb_database_toc_delete", 5, kFree, "X table free: Failed to delete table entry from TOC. Error: " + because,
       3, 5},
      {"kvt_request_oid_mapping_destroy", 5, kFree,
       "X table free: Failed to request oid mapping destroy for table. Error " + because, 3, 5},
      {"kvtlib_database_table_toc_get", 5, kFree, "Failed to get table TOC for table X free. Error " + because, 3, 5},
      {"kvtgc_database_gc_list_remove", 5, kFree,
       "X table free: Failed to remove table from the GC list. Error: " + because, 3, 5},
      {"kvtdb_database_toc_delete", 5, kRequest, "Failed to perform toc delete for table X. Error " + because, 3, 5},
      {"kvtdb_database_toc_delete", 2, kRequest, "", 0, 0},
  };
  Rig shared(Kind::kDatabase);  // so that a request is not a free at once
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.call) + " way " + std::to_string(c.way));
    Rig rig;
    void* table = type.open_by_id(rig, rig.txn(), 8, 0, &rig.err);
    if (!std::strcmp(c.call, "kvtgc_database_gc_list_remove")) set_word(table, 360, 0x40);
    const std::vector<void*> before = listed(rig);
    const std::size_t blocks = rig.live_blocks();
    rig.lines.clear();
    void* opened = nullptr;
    {
      const FaultHere here(c.call, c.error);
      if (c.way == kOpen) opened = open_table(rig, type, "new");
      if (c.way == kRead) opened = type.open(rig, rig.txn(), "new", 7, &rig.err);
      if (c.way == kOpenId) opened = type.open_by_id(rig, rig.txn(), 9, 0, &rig.err);
      if (c.way == kOpenAuto) opened = type.open_auto_id(rig, rig.txn(), 0, &rig.err);
      if (c.way == kFree) type.free(rig, rig.txn(), table, &rig.err);
      if (c.way == kRequest) type.request_free(rig, rig.txn(), table, &rig.err);
    }
    EXPECT_EQ(opened, nullptr);
    EXPECT_EQ(rig->last_error, c.code);
    EXPECT_EQ(rig.take_error(), c.code);
    if (c.line.empty()) {
      EXPECT_TRUE(rig.lines.empty()) << rig.take_line();
    } else {
      ASSERT_FALSE(rig.lines.empty());
      EXPECT_EQ(rig.lines.back().level, c.level << 24);
      EXPECT_EQ(rig.take_line(), named(c.line));
    }
    EXPECT_EQ(rig.live_blocks(), blocks);
    if (std::strcmp(c.call, "kvtgc_database_gc_list_remove") != 0) {
      EXPECT_EQ(listed(rig), before);
    }
    if (c.way == kOpenId || c.way == kOpenAuto) {
      EXPECT_EQ(id_tables(rig, type), 1u);
      EXPECT_NE(type.open_by_id(rig, rig.txn(), 9, 0, &rig.err), nullptr) << "and the next try succeeds";
    }
  }
  fenlog_set_level(6);
}

TEST_P(Handles, AMissingRootIsToldByFree) {
  Rig rig;
  void* table = type.open_by_id(rig, rig.txn(), 8, 0, &rig.err);
  rig->key_get = [](void*, std::uint32_t, const char*) -> void* { return nullptr; };
  int err = 0;
  kvt_handle* other = kvt_handle_open_private(nullptr, &err);
  type.open_by_id(other, 0, 1, 0, &err);  // what the process remembers is another store's now
  type.free(rig, rig.txn(), table, &rig.err);
  EXPECT_EQ(rig.take_error(), 2);
  kvt_handle_close(other);
}

using HandlesDeathTest = Handles;
INSTANTIATE_TEST_SUITE_P(Tables, HandlesDeathTest, testing::Values(table_named("tbl_wlan")), table_name);

TEST_P(HandlesDeathTest, BrokenContractsStopTheProcess) {
  Rig rig;
  const struct {
    const char* call;
    int error;
    const char* line;
  } kCases[] = {
      {"kvtdb_database_toc_get", 0, "Failed to open toc root for table tbl_wlan, database private"},
      {"kvt_oid_mapping_create", 0, "Failed to create mapping for tbl_wlan table"},
      {"kvt_oid_mapping_create", 5, "Failed to create mapping for tbl_wlan table"},
      {"nadra_set_range", 0, "nadra internal error"},
  };
  for (const auto& c : kCases) {
    const FaultHere here(c.call, c.error);
    EXPECT_DEATH(open_table(rig, type, "new"), c.line);
  }
}

TEST_P(HandlesDeathTest, ATypeWithoutVariantDataStopsTheProcess) {
  Rig rig;  // with registered types, whose words can be written; a child process shares a database, but not this
  rig->mode = 2;
  void* table = open_table(rig, type, "first");
  auto* copy = static_cast<kvt_type_record*>(kvt_ref_at(at<std::uint32_t>(table, 0)));
  auto* data = const_cast<kvt_variant_data*>(kvt_varinfo_of(copy));
  const std::uint32_t link = std::exchange(copy->varinfo, 0);
  EXPECT_DEATH(open_table(rig, type, "new"), "varinfo is NULL");
  EXPECT_DEATH(type.free(rig, rig.txn(), table, &rig.err), "varinfo is NULL");
  copy->varinfo = link;
  // Too few variants are told, and no more.
  const auto variants = std::exchange(data->n_variants, -1);
  for (const bool open : {true, false}) {
    rig.lines.clear();
    if (open) {
      table = open_table(rig, type, "new");
    } else {
      type.free(rig, rig.txn(), table, &rig.err);
    }
    EXPECT_EQ(rig.take_line(), "variant 0 requested only 4294967295 variants present");
    EXPECT_EQ(rig.err, 0);
  }
  data->n_variants = variants;
}

// What the store and whoever observes the handle hear, in order: each word of the list before it changes.
TEST_P(Handles, OrderOfOpenAndFree) {
  Rig rig(Kind::kPrivate, 0, 1);
  rig.begin();
  rig->mode = 1;
  std::vector<Heard> heard;
  kvt_observer observer{};
  observer.argument = &heard;
  observer.containment = [](void* list, int kind, void* child, void* parent) {
    if (kind == 1) static_cast<std::vector<Heard>*>(list)->push_back({"contained", child, parent});
  };
  observer.dirty = [](void* list, std::uint32_t, void* object) {
    static_cast<std::vector<Heard>*>(list)->push_back({"dirty", object});
  };
  observer.destroy = [](void* list, std::uint32_t, void* object) {
    static_cast<std::vector<Heard>*>(list)->push_back({"destroy", object});
  };
  void* a = open_table(rig, type, "a");
  void* b = nullptr;
  auto told = [&](auto&& call) {
    heard.clear();
    hearing = &heard;
    kvt_observe(rig, &observer);
    call();
    kvt_observe(rig, nullptr);
    hearing = nullptr;
    std::string text;
    for (const Heard& h : heard) {
      text += h.what.substr(h.what.rfind("database_") == std::string::npos ? 0 : h.what.rfind("database_") + 9);
      const struct {
        const char* name;
        const void* block;
      } kBlocks[] = {{"list", list_head(rig)}, {"a", a}, {"b", b}};
      for (const auto& [name, block] : kBlocks) {
        const std::ptrdiff_t offset = static_cast<const char*>(h.at) - static_cast<const char*>(block);
        if (h.at && block && offset >= 0 && offset < 376)
          text += std::string(" ") + name + "+" + std::to_string(offset);
      }
      if (h.what == "range" && h.txn != rig.txn()) text += h.txn == KVT_NO_TXN ? " without" : " foreign";
      text += "\n";
    }
    return text;
  };
  EXPECT_EQ(told([&] { b = open_table(rig, type, "b"); }),
            "table_toc_get\ntoc_get\ntoc_get_table_root\n"
            "range b+320 without\n"
            "range b+276\ndirty b+0\nrange b+280\ndirty b+0\n"
            "range a+276\ndirty list+0\nrange list+4\ndirty list+0\n"
            "kvt_oid_mapping_create b+0\ntoc_insert b+0\n"
            "contained b+0\ndirty b+0\n");
  EXPECT_EQ(told([&] { type.open(rig, rig.txn(), "b", 0, &rig.err); }),
            "table_toc_get\ntoc_get\ntoc_get_table_root\ncontained b+0\n");
  const std::string go = "toc_get\ntoc_delete a+0\nkvt_request_oid_mapping_destroy a+0\ntable_toc_get\n";
  EXPECT_EQ(told([&] { type.free(rig, rig.txn(), a, &rig.err); }),
            go + "range b+280\ndirty list+0\nrange list+0\ndirty list+0\ndestroy a+0\n");
  a = b;
  b = nullptr;
  EXPECT_EQ(told([&] { type.free(rig, rig.txn(), a, &rig.err); }),
            go + "range list+4\ndirty list+0\nrange list+0\ndirty list+0\ndestroy a+0\n");
  EXPECT_EQ(rig.err, 0);
}

}  // namespace
}  // namespace table_test
