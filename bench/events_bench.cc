// What it costs a transaction that somebody hears of the records it changes: nobody, a handler of the process, a reader
// of the feed that keeps up, one that never reads. In a table of 10,000 records.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <kvt/kvt.h>
#include <stdlib.h>
#include <zarn_wlan/zarn_wlan.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

enum Listener : int64_t { kNobody, kHandler, kReader, kSleeper };
constexpr const char* kNames[] = {"nobody", "handler", "reader", "sleeper"};
constexpr unsigned kRecords = 10000;

struct Rig {
  explicit Rig(int64_t listener) {
    char name[] = "/tmp/zarn_events_XXXXXX";
    directory = mkdtemp(name);
    kvt_handle_options options;
    kvt_handle_options_init(&options);
    options.create = 1;
    h = kvt_handle_open_database((directory + "/db").c_str(), &options, &err);
    const uint32_t txn = kvtdb_txn_begin(h, &err);
    table = tbl_wlan_table_open(h, txn, "bench", 0, &err);
    for (unsigned n = 0; n < kRecords; n++) insert(2 * n);
    kvtdb_txn_commit(h, txn, &err);
    if (listener == kHandler) handlers = dlopen(EVENTS_HANDLERS, RTLD_NOW | RTLD_GLOBAL);
    if (listener >= kReader) watch = kvtdb_watch_open(h, KVT_WATCH_FROM_NOW, &err);
    if (err || (listener == kHandler && !handlers)) abort();
  }
  ~Rig() {
    kvtdb_watch_close(watch);
    kvt_handle_close(h);
    if (handlers) dlclose(handlers);
    std::filesystem::remove_all(directory);
  }
  void* insert(unsigned id) {
    void* record = tbl_wlan_create_record(h, h->default_txn, &err);
    void* payload = st_wlan_create(h, h->default_txn);
    st_wlan_wlan_id_set_value(h, h->default_txn, payload, id, &err);
    const std::string name = "profile-" + std::to_string(id);
    kvt_vstring_assign(h, h->default_txn, st_wlan_profile_name_get(h, h->default_txn, payload, &err), name.data(),
                       name.size(), &err);
    tbl_wlan_st_wlan_set_field(h, h->default_txn, record, payload);
    tbl_wlan_insert(h, h->default_txn, table, record, &err);
    records.push_back(record);
    return record;
  }
  void read(int64_t listener) {
    kvt_change change;
    while (listener == kReader && kvtdb_watch_next(watch, &change)) benchmark::DoNotOptimize(change.number);
  }

  std::string directory;
  kvt_handle* h;
  void* table;
  void* handlers = nullptr;
  kvt_watch* watch = nullptr;
  std::vector<void*> records;
  int err = 0;
};

void BM_ModifyOne(benchmark::State& state) {
  Rig rig(state.range(0));
  unsigned n = 0;
  for (auto _ : state) {
    const uint32_t txn = kvtdb_txn_begin(rig.h, &rig.err);
    void* payload = tbl_wlan_st_wlan_get_field(rig.h, txn, rig.records[n++ * 7919 % kRecords]);
    st_wlan_status_set_value(rig.h, txn, payload, n & 1, &rig.err);
    kvtdb_txn_commit(rig.h, txn, &rig.err);
    rig.read(state.range(0));
  }
  state.SetLabel(kNames[state.range(0)]);
  if (rig.err) state.SkipWithError("failed");
}

void BM_InsertAndDeleteOne(benchmark::State& state) {
  Rig rig(state.range(0));
  unsigned n = 0;
  for (auto _ : state) {
    uint32_t txn = kvtdb_txn_begin(rig.h, &rig.err);
    void* record = rig.insert(2 * (n++ * 7919 % kRecords) + 1);
    kvtdb_txn_commit(rig.h, txn, &rig.err);
    txn = kvtdb_txn_begin(rig.h, &rig.err);
    tbl_wlan_destroy_record(rig.h, txn, record, &rig.err);
    kvtdb_txn_commit(rig.h, txn, &rig.err);
    rig.records.pop_back();
    rig.read(state.range(0));
  }
  state.SetLabel(kNames[state.range(0)]);
  if (rig.err) state.SkipWithError("failed");
}

BENCHMARK(BM_ModifyOne)->DenseRange(kNobody, kSleeper);
BENCHMARK(BM_InsertAndDeleteOne)->DenseRange(kNobody, kSleeper);

}  // namespace

BENCHMARK_MAIN();
