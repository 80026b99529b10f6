// Events of records, in programs that link none of the handlers (kLinked 0), the plain ones of one table (1), or all
// (3). In each of them a shared object brings the plain ones of tbl_wlan later.
#include <dlfcn.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "tests/events/handlers.h"
#include "tests/tables/rig.h"

namespace {

using table_test::kTables;
using table_test::TableOps;
using Texts = std::vector<std::string>;

constexpr int kLinked = EVENTS_LINKED;
constexpr const char* kEvents[] = {"create", "modify", "delete", "create DM", "delete DM", "grouping", "free"};
constexpr int32_t kResult = 70;

Texts journal;
std::function<void(int event, kvt_handle*, void* record, int* err)> in_handler;

std::string text_of(int event, const std::string& table) { return table + " " + kEvents[event]; }
bool is_linked(int event, const std::string& table) {
  return (kLinked & (event < 3 ? 1 : 2)) && (kLinked != 1 || table == "tbl_wlan");
}

struct Callbacks {
  const char* table;
  int32_t (*plain[3])(kvt_handle*, uint32_t, void*, void*, int*);
  int32_t (*dm[2])(kvt_handle*, uint32_t, void*, int*);
  int32_t (*grouping)(kvt_handle*, uint32_t, void*, int*, uintptr_t, uintptr_t, uintptr_t, uintptr_t);
  int32_t (*free)(kvt_handle*, uint32_t, uintptr_t, uintptr_t, int*, uintptr_t);

  int32_t call(int event, kvt_handle* h, int* err) const {
    void *one = kvt_ref_at(8), *two = kvt_ref_at(16);
    if (event < 3) return plain[event](h, 5, one, two, err);
    if (event < 5) return dm[event - 3](h, 5, two, err);
    return event == 5 ? grouping(h, 5, two, err, 1, 2, 3, 4) : free(h, 5, 1, 2, err, 3);
  }
};
#define CALLBACKS(T)                                                                                    \
  {                                                                                                     \
#T, {T##_table_record_create_cb, T##_table_record_modify_cb, T##_table_record_delete_cb },          \
         {T##_table_record_create_dm_cb, T##_table_record_delete_dm_cb }, T##_table_record_grouping_cb, \
          T##_table_record_free_cb                                                                      \
  }
const Callbacks kCallbacks[] = {CALLBACKS(tbl_wlan),
                                CALLBACKS(tbl_wlan_profile_assoicated_tag),
                                CALLBACKS(tbl_mpsk_keys_int),
                                CALLBACKS(tbl_internal_wlan_radio_policy),
                                CALLBACKS(tbl_apgroup_wlan),
                                CALLBACKS(tbl_wlan_ifid),
                                CALLBACKS(tbl_wireless_aaa_policy)};

struct Events : testing::Test {
  void SetUp() override {
    fenlog_set_level(8);
    journal.clear();
    in_handler = nullptr;
  }
  void TearDown() override { in_handler = nullptr; }
  Texts take() { return std::exchange(journal, {}); }
};

TEST_F(Events, CallbacksPassOnOrTell) {
  table_test::Rig rig;
  for (const Callbacks& table : kCallbacks) {
    for (int event = 0; event < 7; event++) {
      SCOPED_TRACE(text_of(event, table.table));
      rig->last_error = 9;
      int err = 3;
      EXPECT_EQ(table.call(event, rig, &err), 3);
      EXPECT_EQ(rig->last_error, 9);
      EXPECT_EQ(take(), Texts{});
      EXPECT_TRUE(rig.lines.empty());
      err = 0;
      const int plain = event == 3 ? 0 : event == 4 ? 2 : event;
      Texts heard, told;
      const bool has_handler = is_linked(event, table.table) || is_linked(plain, table.table);
      for (int step : {event, plain}) {
        if (is_linked(step, table.table)) {
          heard.push_back(text_of(step, table.table) + (event == 5   ? " 1234"
                                                        : event == 6 ? " 1"
                                                        : event < 3  ? " one"
                                                                     : " null"));
          break;
        }
        told.push_back("default zarn_wlan_" + std::string(table.table) + "_record " + kEvents[step] +
                       " handler called");
        if (step == plain) break;
      }
      EXPECT_EQ(table.call(event, rig, &err), has_handler ? kResult : 0);
      EXPECT_EQ(err, 0);
      EXPECT_EQ(rig->last_error, 0);
      EXPECT_EQ(take(), heard);
      Texts lines;
      for (const auto& line : rig.lines) {
        EXPECT_EQ(line.level, event == 5 ? 0x8000000u : 0x6000000u);
        lines.push_back(line.text);
      }
      rig.lines.clear();
      EXPECT_EQ(lines, told);
    }
  }
}

// A database with a table of each type, whose changes are told.
struct Told : Events {
  table_test::Rig rig{table_test::Kind::kDatabase};
  kvt_watch* watch = nullptr;
  void TearDown() override {
    kvtdb_watch_close(watch);
    Events::TearDown();
  }
  void* insert(const TableOps& table, unsigned n) {
    void* record = table_test::make_record(rig, table, 1, n);
    table.insert(rig, rig.txn(), table_test::open_table(rig, table), record, &rig.err);
    return record;
  }
  static std::string change(const TableOps& table, int event) { return text_of(event, table.name); }
  Texts changes() {
    Texts list;
    for (kvt_change c; kvtdb_watch_next(watch, &c);) {
      if (c.kind == KVT_RECORDS_MISSED) {
        list.push_back("missed " + std::to_string(c.missed));
      } else {
        const std::string name = c.type->name;
        list.push_back(text_of(static_cast<int>(c.kind) - 1, name.substr(0, name.find("_record"))));
      }
    }
    return list;
  }
  // What handlers hear is told if the process has any; everything reaches the feed.
  void expect(const Texts& list) {
    EXPECT_EQ(changes(), list);
    Texts heard;
    for (std::string text : list) {
      if (kLinked == 3 && text.find("modify") == std::string::npos) text += " DM";
      if (kLinked == 3 || (kLinked == 1 && text.starts_with("tbl_wlan "))) heard.push_back(text);
    }
    Texts told = take();
    for (std::string& text : told) text = text.substr(0, text.rfind(' '));  // without the first word
    EXPECT_EQ(told, heard);
  }
};

TEST_F(Told, EachRecordOnceInTheOrderOfFirstTouch) {
  watch = kvtdb_watch_open(rig, KVT_WATCH_FROM_NOW, &rig.err);
  rig.begin();
  std::vector<void*> records;
  Texts wanted;
  for (const TableOps& table : kTables) {
    records.push_back(insert(table, 1));
    void* gone = insert(table, 2);
    table.destroy(rig, rig.txn(), gone, &rig.err);  // came and went: nobody hears of it
    wanted.push_back(change(table, 0));
  }
  expect({});  // not before the commit
  rig.commit();
  expect(wanted);
  // In the reverse order: a text that is replaced, another payload, and a record that leaves and comes back.
  const TableOps &wlan = kTables[3], &group = kTables[4], &tag = kTables[1], &policy = kTables[6];
  auto payload = [&](std::size_t i) { return table_test::record_payload(kTables[i], records[i]); };
  rig.begin();
  st_wireless_aaa_policy_aaa_realm_set_value(rig, rig.txn(), payload(6), 1, &rig.err);
  kvt_vstring_assign(rig, rig.txn(), st_wlan_ssid_get(rig, rig.txn(), payload(3), &rig.err), "x", 1, &rig.err);
  group.remove(rig, rig.txn(), table_test::open_table(rig, group), records[4], &rig.err);
  table_test::set_key(rig, group.keys[0], payload(4), 7);
  group.insert(rig, rig.txn(), table_test::open_table(rig, group), records[4], &rig.err);
  tag.remove(rig, rig.txn(), table_test::open_table(rig, tag), records[1], &rig.err);
  tag.insert(rig, rig.txn(), table_test::open_table(rig, tag), records[1], &rig.err);
  tag.add_ref(rig, rig.txn(), records[1], &rig.err);
  ASSERT_EQ(rig.err, 0);
  rig.commit();
  expect({change(policy, 1), change(wlan, 1), change(group, 2), change(group, 0)});
  // Nothing of what is taken back.
  rig.begin();
  wlan.destroy(rig, rig.txn(), records[3], &rig.err);
  insert(tag, 5);
  rig.abort();
  expect({});
  rig.begin();
  wlan.destroy(rig, rig.txn(), records[3], &rig.err);
  rig.commit();
  expect({change(wlan, 2)});
}

// Found among many of other tenants and sources; the tree's own links in other records are no change.
TEST_F(Told, APayloadLeadsToItsRecord) {
  const TableOps& wlan = kTables[3];
  std::vector<void*> records;
  rig.begin();
  for (std::uint16_t tenant : {0, 1, 14, 15, 400}) {
    mt_set_tenant_id(tenant);
    for (unsigned n = 0; n < 40; n++) records.push_back(insert(wlan, n));
    void* shadow = table_test::make_record(rig, wlan, 255, 7);
    wlan.insert(rig, rig.txn(), table_test::open_table(rig, wlan), shadow, &rig.err);
    records.push_back(shadow);
  }
  rig.commit();
  journal.clear();
  mt_set_tenant_id(0);
  watch = kvtdb_watch_open(rig, KVT_WATCH_FROM_NOW, &rig.err);
  rig.begin();
  constexpr std::size_t kTimerAt = 1904;
  rig->set_range(rig, static_cast<char*>(table_test::record_payload(wlan, records.back())) + kTimerAt, 8, rig.txn(),
                 nullptr);  // a timer is no content
  for (void* record : records)
    st_wlan_status_set_value(rig, rig.txn(), table_test::record_payload(wlan, record), 1, &rig.err);
  rig.commit();
  kvt_change c;
  for (void* record : records) {
    ASSERT_TRUE(kvtdb_watch_next(watch, &c));
    EXPECT_EQ(c.record, kvt_ref_of(record));
    EXPECT_EQ(c.tenant, table_test::record_tenant(record));
    EXPECT_EQ(c.source, table_test::record_source(record));
    std::uint8_t key[300];
    EXPECT_EQ(c.key_length, wlan.pkey_marshal(rig, 0, key, record, sizeof key, &rig.err));
    EXPECT_EQ(std::memcmp(c.key, key, c.key_length), 0);
  }
  EXPECT_FALSE(kvtdb_watch_next(watch, &c));
}

TEST_F(Told, HandlersMayWriteAndFail) {
  if (!kLinked) return;
  const TableOps& wlan = kTables[3];
  watch = kvtdb_watch_open(rig, KVT_WATCH_FROM_NOW, &rig.err);
  in_handler = [&](int, kvt_handle* h, void* record, int* err) {
    int own = 0;
    kvtdb_txn_commit(h, h->default_txn, &own);
    EXPECT_EQ(own, EDEADLK);
    EXPECT_NE(table_test::record_payload(wlan, record), nullptr);
    if (take().size() == 1) insert(wlan, 9);  // told to readers, but to no handler
    *err = 77;
  };
  rig.begin();
  insert(wlan, 1);
  rig->last_error = 5;
  rig.commit();
  EXPECT_EQ(rig.err, 0);
  EXPECT_EQ(rig->last_error, 5);
  EXPECT_EQ(rig.take_line(), "a record event handler failed at a commit: error 77");
  EXPECT_EQ(changes(), Texts({"tbl_wlan create", "tbl_wlan create"}));
  EXPECT_EQ(table_test::record_count(wlan.open(rig, rig.txn(), "t", 1, &rig.err)), 2u);
}

TEST_F(Told, AHandlerThatIsLoadedLaterIsFound) {
  const TableOps& wlan = kTables[3];
  auto create = [&](unsigned n) {
    rig.begin();
    insert(wlan, n);
    rig.commit();
    return take().size();
  };
  EXPECT_EQ(create(1), kLinked ? 1u : 0u);
  void* late = dlopen(EVENTS_LATE, RTLD_NOW | RTLD_GLOBAL);
  ASSERT_NE(late, nullptr) << dlerror();
  EXPECT_EQ(create(2), 1u);
  dlclose(late);  // it stays, having been found
  EXPECT_EQ(create(3), 1u);
}

// Readers in other processes: woken, told what they missed, dead.
TEST_F(Told, ReadersOfTheFeed) {
  const TableOps& ifid = kTables[5];
  auto create = [&](unsigned from, unsigned count) {
    rig.begin();
    for (unsigned n = from; n < from + count; n++) insert(ifid, n);
    rig.commit();
  };
  create(0, 1);  // nobody watches
  int err = 0;
  watch = kvtdb_watch_open(rig, KVT_WATCH_FROM_OLDEST, &err);
  EXPECT_EQ(kvtdb_watch_position(watch), 2u);
  EXPECT_EQ(kvtdb_watch_open(rig, 3, &err), nullptr);
  EXPECT_EQ(err, EINVAL);
  EXPECT_EQ(changes(), Texts{});
  pollfd wanted = {kvtdb_watch_fd(watch), POLLIN, 0};
  EXPECT_EQ(poll(&wanted, 1, 0), 0);
  const pid_t child = fork();
  if (child == 0) {
    create(1, 2);
    rig.begin();
    insert(ifid, 99);
    raise(SIGKILL);  // what it had not committed is never told
  }
  waitpid(child, nullptr, 0);
  EXPECT_EQ(poll(&wanted, 1, 10000), 1);
  EXPECT_EQ(changes(), Texts({"tbl_wlan_ifid create", "tbl_wlan_ifid create"}));
  EXPECT_EQ(poll(&wanted, 1, 0), 0);
  // More than the ring holds, in one transaction and in many: what is kept and what is missed make up all.
  for (unsigned each : {5000u, 50u}) {
    for (unsigned n = 0; n < 5000; n += each) create(100 + each * 1000 + n, each);
    std::uint64_t kept = 0, missed = 0, last = kvtdb_watch_position(watch) - 1;
    for (kvt_change c; kvtdb_watch_next(watch, &c);) {
      EXPECT_EQ(c.number, last + 1);
      (c.kind == KVT_RECORDS_MISSED ? missed : kept) += c.kind == KVT_RECORDS_MISSED ? c.missed : 1;
      last = kvtdb_watch_position(watch) - 1;
    }
    EXPECT_EQ(kept + missed, 5000u);
    EXPECT_GT(kept, 1000u);
  }
  // A position that is still kept, and one that is not.
  kvt_watch* second = kvtdb_watch_open(rig, kvtdb_watch_position(watch) - 10, &(err = 0));
  std::swap(watch, second);
  EXPECT_EQ(changes().size(), 10u);
  kvtdb_watch_close(std::exchange(watch, kvtdb_watch_open(rig, 1, &(err = 0))));
  EXPECT_TRUE(changes().front().starts_with("missed "));
  // Once writers have found out that all readers are gone, a transaction counts as one.
  kvtdb_watch_close(std::exchange(watch, nullptr));
  kvtdb_watch_close(second);
  for (unsigned n = 0; n < 200; n++) create(20000 + 2 * n, 2);
  watch = kvtdb_watch_open(rig, KVT_WATCH_FROM_OLDEST, &err);
  const Texts list = changes();
  EXPECT_TRUE(list.back().starts_with("missed ") && list.back() <= "missed 199") << list.back();
}

}  // namespace

int32_t events_heard(int event, const char* table, kvt_handle* handle, uint32_t txn, void* first, void* object,
                     int* err) {
  const bool told = txn == handle->default_txn;
  const std::string word = !first                   ? "null"
                           : first == kvt_ref_at(8) ? "one"
                           : told                   ? "table"
                                                    : std::to_string(reinterpret_cast<uintptr_t>(first));
  journal.push_back(text_of(event, table) + " " + word);
  if (in_handler) in_handler(event, handle, object, err);
  return kResult;
}
