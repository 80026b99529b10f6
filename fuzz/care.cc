// Damaged memory of a database, which is looked through and mended. Input: changes {word (3), value (4)} to the roots
// and to the first segment of the heap; a value with the lowest bit set is a reference to the word that the rest names.
#include "kvt/care.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "fuzz/key_file.h"
#include "fuzz/rig.h"
#include "platform/database.h"

namespace fuzz {
namespace {

constexpr std::size_t kWord = 4, kChange = 7;
constexpr std::size_t kRootWords = sizeof(kvt::StoreRoots) / kWord;
constexpr unsigned kRecords = 12;

// A small database with two tables, a shadow, a tenant, an identity and side data, all in the first segment of the
// heap.
class Model {
 public:
  Model() {
    kvt_handle_options options;
    kvt_handle_options_init(&options);
    options.create = 1;
    options.slot = KVT_DATABASE_SLOTS - 2;
    options.tracking = KVT_STTR_ON;
    options.key_file = fixed_key_file().c_str();
    const std::string path = scratch_directory() + "/care.db";
    int err = 0;
    handle = kvt_handle_open_database(path.c_str(), &options, &err);
    FUZZ_CHECK(handle, "no database");
    const std::uint32_t txn = kvtdb_txn_begin(handle, &err);
    void* wlans = tbl_apgroup_wlan_table_open(handle, txn, "care", 0, &err);
    void* keys = tbl_mpsk_keys_int_table_open(handle, txn, "care", 0, &err);
    for (unsigned n = 0; n < kRecords; ++n) {
      void* record = tbl_apgroup_wlan_create_record_w_src(handle, txn, n == 3 ? 255 : 1, &err);
      void* wlan = st_wlan_create(handle, txn);
      st_wlan_wlan_id_set_value(handle, txn, wlan, n, &err);
      const std::string name = "profile " + std::to_string(n);
      kvt_vstring_assign(handle, txn, st_wlan_profile_name_get(handle, txn, wlan, &err), name.data(), name.size(),
                         &err);
      kvt_vstring_assign(handle, txn, st_wlan_ssid_get(handle, txn, wlan, &err), name.data(), name.size(), &err);
      tbl_apgroup_wlan_st_wlan_set_field(handle, txn, record, wlan);
      mt_set_tenant_id(n % 4 == 3);
      tbl_apgroup_wlan_insert(handle, txn, wlans, record, &err);
      record = tbl_mpsk_keys_int_create_record(handle, txn, &err);
      void* key = st_mpsk_key_info_create(handle, txn);
      st_mpsk_key_info_priority_set_value(handle, txn, key, static_cast<std::uint8_t>(n), &err);
      tbl_mpsk_keys_int_st_mpsk_key_info_set_field(handle, txn, record, key);
      tbl_mpsk_keys_int_insert(handle, txn, keys, record, &err);
      if (n == 5) kvt_handle_to_oid(handle, txn, wlan, 2, 1, &err);
    }
    mt_set_tenant_id(0);
    kvtdb_txn_commit(handle, txn, &err);
    FUZZ_CHECK(!err, "no model");
    char* list = reinterpret_cast<char*>(kvtlib_database_table_toc_get(handle, KVT_NO_TXN, &err));
    base_ = list - offsetof(kvt::StoreRoots, tables) - kvt::kRootsAt;
    const auto* stored = reinterpret_cast<const kvt::StoreRoots*>(base_ + kvt::kRootsAt);
    heap_words_ = (stored->heap.top - kvt_ref_of(heap())) / kWord + 2;
    roots_copy_.assign(base_ + kvt::kRootsAt, sizeof *stored);
    heap_copy_.assign(heap(), kvt::kSegmentSize);
    FUZZ_CHECK(kvtdb_check(handle, nullptr, nullptr, &err) == 0, "the model is damaged");
    unlink(path.c_str());
  }
  void put(std::uint32_t word, std::uint32_t value) {
    if (value & 1) value = kvt_ref_of(heap()) + (value >> 1) % heap_words_ * kWord;
    word %= kRootWords + heap_words_;
    char* at = word < kRootWords ? base_ + kvt::kRootsAt + word * kWord : heap() + (word - kRootWords) * kWord;
    std::memcpy(at, &value, sizeof value);
  }
  void restore() {
    std::memcpy(base_ + kvt::kRootsAt, roots_copy_.data(), roots_copy_.size());
    std::memcpy(heap(), heap_copy_.data(), heap_copy_.size());
    // Memory that mending took is given up again.
    auto* header = reinterpret_cast<kvt::DatabaseHeader*>(base_);
    for (std::uint32_t i = 2; i < header->segments; ++i) {
      if (header->kinds[i] == kvt::Segment::kHeap) header->kinds[i] = kvt::Segment::kFree;
    }
  }
  std::uint32_t words() const { return kRootWords + heap_words_; }
  kvt_handle* handle = nullptr;

 private:
  char* heap() { return base_ + kvt::kSegmentSize; }
  char* base_ = nullptr;
  std::uint32_t heap_words_ = 0;
  std::string roots_copy_, heap_copy_;
};

Model& model() {
  static Model made;
  return made;
}

void take_line(void* longest, const char* line) {
  auto& most = *static_cast<std::size_t*>(longest);
  most = std::max(most, std::strlen(line));
}

void run(const std::uint8_t* data, std::size_t size) {
  Model& db = model();
  for (; size >= kChange; data += kChange, size -= kChange) {
    std::uint32_t value;
    std::memcpy(&value, data + 3, sizeof value);
    db.put(data[0] | static_cast<std::uint32_t>(data[1]) << 8 | static_cast<std::uint32_t>(data[2]) << 16, value);
  }
  int err = 0;
  std::size_t longest = 0;
  const std::uint32_t faults = kvtdb_check(db.handle, take_line, &longest, &err);
  FUZZ_CHECK(!err && (faults != 0) == (longest != 0) && longest < 2048, "a check without words");
  if (faults) {
    const std::uint32_t left = kvtdb_repair(db.handle, nullptr, nullptr, &err);
    FUZZ_CHECK(err || left <= faults, "a repair that leaves more faults");
    // What was mended is sound for those who read it next.
    FUZZ_CHECK(err || kvtdb_check(db.handle, nullptr, nullptr, &err) == left, "a repair that does not last");
  }
  db.restore();
}

void seeds(const Sow& sow) {
  std::uint32_t step = 0;
  for (std::uint32_t word = 0; word < model().words(); word += 1 + ++step % 7) {
    const std::uint32_t values[] = {0, UINT32_MAX - 1, word * 2 + 1, 8};
    std::string change(kChange, '\0');
    for (int i = 0; i < 3; ++i) change[static_cast<std::size_t>(i)] = static_cast<char>(word >> 8 * i);
    std::memcpy(&change[3], &values[step % 4], sizeof values[0]);
    sow("word_" + std::to_string(word), change);
  }
}

}  // namespace

const Target kCare{"care", run, seeds, nullptr};

}  // namespace fuzz
