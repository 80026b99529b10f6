// The hot paths of a profile's road beside a yardstick in the same run: accessors beside a load through a function that
// isn't inlined, search beside std::map with the same keys, create beside allocate and clear.
#include <benchmark/benchmark.h>
#include <zarn_wlan/zarn_wlan.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr std::uint32_t kProfiles = 4096;

struct Table {
  kvt_handle* handle;
  void* table;
  std::map<std::uint32_t, void*> by_id;
  std::map<std::string, void*> by_name;
  std::vector<std::uint32_t> ids;
  kvt_vstring* name_keys;  // the caller's own, in the cage
  std::vector<std::string> names;

  // `format` makes a name of a number below 65,536: how soon two names differ decides what a search by name costs.
  explicit Table(const char* format) {
    int err = 0;
    handle = kvt_handle_open_private(nullptr, &err);
    table = tbl_wlan_table_open(handle, 0, "bench", 0, &err);
    ids.resize(kProfiles);
    name_keys = static_cast<kvt_vstring*>(kvt_cage_alloc(kProfiles * sizeof(kvt_vstring)));
    memset(name_keys, 0, kProfiles * sizeof(kvt_vstring));
    std::iota(ids.begin(), ids.end(), 1);
    std::mt19937 random(1);
    std::shuffle(ids.begin(), ids.end(), random);
    for (std::uint32_t id : ids) {
      void* record = tbl_wlan_create_record(handle, 0, &err);
      void* profile = st_wlan_create(handle, 0);
      st_wlan_wlan_id_set_value(handle, 0, profile, id, &err);
      char name[32];
      std::snprintf(name, sizeof name, format, id * 7919 % 65536);
      kvt_vstring_assign(handle, 0, st_wlan_profile_name_get(handle, 0, profile, &err), name, std::string(name).size(),
                         &err);
      tbl_wlan_st_wlan_set_field(handle, 0, record, profile);
      tbl_wlan_insert(handle, 0, table, record, &err);
      by_id[id] = record;
      by_name[name] = record;
      names.push_back(name);
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
      kvt_vstring_assign(handle, 0, &name_keys[i], names[i].data(), names[i].size(), &err);
    }
    if (err) {
      std::fprintf(stderr, "setup failed: %d\n", err);
      std::exit(1);
    }
    std::shuffle(ids.begin(), ids.end(), random);
  }
};

Table& shared() {
  static Table table("%04x-building-profile");
  return table;
}
Table& alike() {
  static Table table("campus-profile-%05u");
  return table;
}

void SearchId(benchmark::State& state) {
  Table& t = shared();
  int err = 0;
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(tbl_wlan_st_wlan_wlan_id_search(t.handle, 0, t.table, &t.ids[i++ % kProfiles], &err));
  }
}
void MapId(benchmark::State& state) {
  Table& t = shared();
  std::size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(t.by_id.find(t.ids[i++ % kProfiles]));
}
void search_name(benchmark::State& state, Table& t) {
  int err = 0;
  std::size_t i = 0;
  for (auto _ : state) {
    const std::size_t at = t.ids[i++ % kProfiles] - 1;
    benchmark::DoNotOptimize(tbl_wlan_st_wlan_profile_name_search(t.handle, 0, t.table, &t.name_keys[at], &err));
  }
}
void map_name(benchmark::State& state, Table& t) {
  std::size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(t.by_name.find(t.names[t.ids[i++ % kProfiles] - 1]));
}
void SearchName(benchmark::State& state) { search_name(state, shared()); }
void MapName(benchmark::State& state) { map_name(state, shared()); }
void SearchNameAlike(benchmark::State& state) { search_name(state, alike()); }
void MapNameAlike(benchmark::State& state) { map_name(state, alike()); }

// Neither inlined nor seen through: a pure function would be called once before the loop.
__attribute__((noipa)) std::uint32_t plain_load(const std::uint32_t* at) { return *at; }
__attribute__((noipa)) void plain_store(std::uint32_t* at, std::uint32_t value) { *at = value; }

void PlainLoad(benchmark::State& state) {
  std::uint32_t word = 7;
  for (auto _ : state) benchmark::DoNotOptimize(plain_load(&word));
}
void GetValue(benchmark::State& state) {
  Table& t = shared();
  int err = 0;
  void* profile = st_wlan_create(t.handle, 0);
  for (auto _ : state) benchmark::DoNotOptimize(st_wlan_wlan_id_get_value(t.handle, 0, profile, &err));
  st_wlan_destroy(t.handle, 0, profile);
}
void PlainStore(benchmark::State& state) {
  std::uint32_t word = 0;
  for (auto _ : state) plain_store(&word, 7);
  benchmark::DoNotOptimize(word);
}
void SetValue(benchmark::State& state) {
  Table& t = shared();
  int err = 0;
  void* profile = st_wlan_create(t.handle, 0);
  for (auto _ : state) st_wlan_wlan_id_set_value(t.handle, 0, profile, 7, &err);
  st_wlan_destroy(t.handle, 0, profile);
}
void AllocateAndClear(benchmark::State& state) {
  Table& t = shared();
  for (auto _ : state) {
    void* block = t.handle->store_alloc(t.handle->store, 0, 1992);
    memset(block, 0, 1992);
    benchmark::DoNotOptimize(block);
    t.handle->store_free(t.handle->store, 0, block);
  }
}
void CreateDestroy(benchmark::State& state) {
  Table& t = shared();
  for (auto _ : state) st_wlan_destroy(t.handle, 0, st_wlan_create(t.handle, 0));
}
void CreateDestroyTracked(benchmark::State& state) {
  kvt_handle_options options;
  kvt_handle_options_init(&options);
  options.tracking = KVT_STTR_ON;
  int err = 0;
  kvt_handle* handle = kvt_handle_open_private(&options, &err);
  for (auto _ : state) st_wlan_destroy(handle, 0, st_wlan_create(handle, 0));
  kvt_handle_close(handle);
}
void Marshal(benchmark::State& state) {
  Table& t = shared();
  int err = 0;
  void* profile = st_wlan_create(t.handle, 0);
  std::vector<std::uint8_t> buffer(st_wlan_len(t.handle, 0, profile));
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        st_wlan_marshal(t.handle, 0, buffer.data(), profile, static_cast<std::int32_t>(buffer.size()), &err));
  }
  st_wlan_destroy(t.handle, 0, profile);
}
void Unmarshal(benchmark::State& state) {
  Table& t = shared();
  int err = 0;
  void* profile = st_wlan_create(t.handle, 0);
  std::vector<std::uint8_t> buffer(st_wlan_len(t.handle, 0, profile));
  const auto length = static_cast<std::int32_t>(buffer.size());
  st_wlan_marshal(t.handle, 0, buffer.data(), profile, length, &err);
  for (auto _ : state)
    benchmark::DoNotOptimize(st_wlan_unmarshal(t.handle, 0, buffer.data(), profile, length, 0, &err));
  st_wlan_destroy(t.handle, 0, profile);
}

BENCHMARK(SearchId);
BENCHMARK(MapId);
BENCHMARK(SearchName);
BENCHMARK(MapName);
BENCHMARK(SearchNameAlike);
BENCHMARK(MapNameAlike);
BENCHMARK(GetValue);
BENCHMARK(PlainLoad);
BENCHMARK(SetValue);
BENCHMARK(PlainStore);
BENCHMARK(CreateDestroy);
BENCHMARK(CreateDestroyTracked);
BENCHMARK(AllocateAndClear);
BENCHMARK(Marshal);
BENCHMARK(Unmarshal);

}  // namespace

BENCHMARK_MAIN();
