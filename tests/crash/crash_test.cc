// A process that dies between any two stores, and a machine that loses its power between any two writes of its disk:
// the database comes back with what was committed.
#include <fcntl.h>
#include <sys/mman.h>

#include <cstdlib>
#include <functional>
#include <random>

#include "kvt/care.h"
#include "platform/database.h"
#include "tests/crash/recorder.h"
#include "tests/tables/rig.h"

namespace crash {
namespace {

using table_test::Rig;
using table_test::TableOps;

const TableOps* const kTypes[] = {&table_test::table_named("tbl_wlan_ifid"), &table_test::table_named("tbl_wlan"),
                                  &table_test::table_named("tbl_apgroup_wlan")};

void add_line(void* text, const char* line) { *static_cast<std::string*>(text) += std::string(line) + "\n"; }

// What the tables hold, and the names.
std::string contents(kvt_handle* h) {
  std::string text;
  int err = 0;
  const std::uint32_t txn = kvtdb_txn_begin(h, &err);
  for (const TableOps* type : kTypes) {
    int none = 0;
    void* table = type->open(h, txn, "t", 1, &none);
    text += table ? "|" : "-";
    if (!table) continue;
    for (void* at = type->pkey_first(h, txn, table, &err); at; at = type->pkey_next(h, txn, table, at, &err)) {
      std::uint8_t bytes[16384];
      text.append(reinterpret_cast<char*>(bytes), type->marshal(h, txn, bytes, at, sizeof bytes, &err)) += ".";
    }
  }
  const auto* big = static_cast<const char*>(h->key_get(h->store, KVT_NO_TXN, "big"));
  text += big ? big : "(none)";
  // What is permanent is whole as soon as it has its name, which may be before the commit.
  const auto* permanent = static_cast<const char*>(h->key_get(h->store, KVT_NO_TXN, "permanent"));
  if (permanent && std::strcmp(permanent, "lasts") != 0) text += "permanent memory is lost";
  kvtdb_txn_abort(h, txn, &err);
  return text + std::to_string(err);
}

// A run of transactions, recorded; and after each event which states may be found.
class History {
 public:
  explicit History(int durability) : owner_(std::make_unique<Rig>(table_test::Kind::kDatabase)), rig_(*owner_) {
    char name[] = "/tmp/zarn_crash_XXXXXX";
    folder_ = mkdtemp(name);
    kvtdb_set_durability(rig_, durability, &rig_.err);
    auto* list = kvtlib_database_table_toc_get(rig_, rig_.txn(), &rig_.err);
    slot_ = reinterpret_cast<char*>(list) - offsetof(kvt::StoreRoots, tables) - kvt::kRootsAt;
    states_.push_back(contents(rig_));
    begin_ = std::string(slot_, segments() * kvt::kSegmentSize);
  }
  ~History() { std::filesystem::remove_all(folder_); }
  // The slot becomes free for images.
  void finish() {
    std::filesystem::copy(std::string(rig_->db_name) + ".key", folder_ + "/key");
    owner_.reset();
  }
  // One step of the program: `body` begins and ends it.
  void step(const std::function<void(Rig&)>& body) {
    record(slot_);
    body(rig_);
    ends_.push_back(trace_.events.size() + recorded());
    states_.push_back(contents(rig_));
    Trace trace = stop_recording();
    EXPECT_EQ(rig_.take_error(), 0);
    for (Event& event : trace.events) event.bytes += trace_.bytes.size();
    trace_.bytes += trace.bytes;
    trace_.events.insert(trace_.events.end(), trace.events.begin(), trace.events.end());
    largest_ = std::max(largest_, segments());
  }
  void write(const std::function<void(Rig&)>& body) {
    step([&](Rig& rig) {
      rig.begin();
      body(rig);
      rig.commit();
    });
  }
  const Trace& trace() const { return trace_; }
  const std::string& begin() const { return begin_; }
  const std::string& folder() const { return folder_; }
  char* slot() const { return slot_; }
  const char* db_name() { return rig_->db_name; }
  std::size_t file_size() const { return largest_ * kvt::kSegmentSize + kvt::kFileTail; }
  // Whether the contents may be found after so many events: a step that has not returned is there or is not.
  bool may_be(const std::string& found, std::size_t events) const {
    const auto step = static_cast<std::size_t>(std::upper_bound(ends_.begin(), ends_.end(), events) - ends_.begin());
    const bool inside = step < ends_.size() && events > (step ? ends_[step - 1] : 0);
    return found == states_[step] || (inside && found == states_[step + 1]);
  }

 private:
  std::size_t segments() const { return reinterpret_cast<const kvt::DatabaseHeader*>(slot_)->segments; }

  std::unique_ptr<Rig> owner_;
  Rig& rig_;
  std::string folder_, begin_;
  char* slot_;
  Trace trace_;
  std::vector<std::string> states_;
  std::vector<std::size_t> ends_;
  std::size_t largest_ = 1;
};

// A file that is made to look as the database did at some moment, and is looked at without being changed.
class Image {
 public:
  explicit Image(const History& run) : run_(run), path_(run.folder() + "/image"), size_(run.file_size()) {
    const int fd = open(path_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    EXPECT_EQ(ftruncate(fd, static_cast<off_t>(size_)), 0);
    bytes_ = static_cast<char*>(mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    close(fd);
    run.begin().copy(bytes_, run.begin().size());
    key_ = run.folder() + "/key";
  }
  ~Image() { munmap(bytes_, size_); }
  void apply(const Trace& trace, std::size_t event) {
    const Event& e = trace.events[event];
    if (!e.is_sync) std::memcpy(bytes_ + e.at, trace.bytes.data() + e.bytes, e.length);
  }
  char* bytes() { return bytes_; }
  std::size_t size() const { return size_; }

  // What is wrong with the image, as the next process would find it after so many events.
  std::string fault(std::size_t events) {
    return visit([&](kvt_handle* h) -> std::string {
      int err = 0;
      std::string lines;
      if (kvtdb_check(h, add_line, &lines, &err) || err) return "check: " + lines + std::strerror(err);
      return run_.may_be(contents(h), events) ? "" : "neither the state before nor the one after";
    });
  }
  // The stores of a recovery.
  Trace recovery() {
    Trace trace;
    visit([&](kvt_handle* h) {
      int err = 0;
      record(run_.slot());
      kvtdb_txn_abort(h, kvtdb_txn_begin(h, &err), &err);
      trace = stop_recording();
      return std::string();
    });
    return trace;
  }

 private:
  // The process that opens the image writes into a copy of its own.
  std::string visit(const std::function<std::string(kvt_handle*)>& body) {
    kvt_handle_options options;
    kvt_handle_options_init(&options);
    char message[200] = "";
    options.key_file = key_.c_str();
    options.message = message;
    options.message_size = sizeof message;
    int err = 0;
    kvt_handle* h = kvt_handle_open_database(path_.c_str(), &options, &err);
    if (!h) return message;
    const int fd = open(path_.c_str(), O_RDWR | O_CLOEXEC);
    constexpr int kFlags = MAP_PRIVATE | MAP_FIXED | MAP_NORESERVE;
    EXPECT_NE(mmap(run_.slot(), size_, PROT_READ | PROT_WRITE, kFlags, fd, 0), MAP_FAILED);
    close(fd);
    std::string text = body(h);
    kvt_handle_close(h);
    return text;
  }
  const History& run_;
  std::string path_, key_;
  std::size_t size_;
  char* bytes_;
};

// Everything that a writer does, in transactions that are committed, aborted, and of the runtime's own.
void play(History& run) {
  void* tables[3];
  std::vector<void*> records[3];
  char* big = nullptr;
  const auto insert = [&](Rig& rig, std::size_t t, unsigned n) {
    records[t].push_back(table_test::make_record(rig, *kTypes[t], 1, n));
    kTypes[t]->insert(rig, rig.txn(), tables[t], records[t].back(), &rig.err);
  };
  const auto destroy = [&](Rig& rig, std::size_t t) {
    kTypes[t]->remove(rig, rig.txn(), tables[t], records[t].back(), &rig.err);
    kTypes[t]->destroy(rig, rig.txn(), records[t].back(), &rig.err);
    records[t].pop_back();
  };
  run.write([&](Rig& rig) { tables[0] = table_test::open_table(rig, *kTypes[0]); });
  run.write([&](Rig& rig) {
    for (std::size_t t : {1u, 2u}) tables[t] = table_test::open_table(rig, *kTypes[t]);
  });
  for (std::size_t t : {0u, 1u, 2u}) {
    run.write([&](Rig& rig) {
      for (unsigned n = 0; n < (t ? 3 : 8); n++) insert(rig, t, n);
    });
  }
  run.write([&](Rig& rig) {  // a longer text, a reference, and a record that has one
    char* payload = static_cast<char*>(table_test::record_payload(*kTypes[1], records[1][1]));
    kvt_handle_to_oid(rig, rig.txn(), payload, 2, 1, &rig.err);
    void* place = table_test::key_place(rig, kTypes[1]->keys[1], payload);
    kTypes[1]->remove(rig, rig.txn(), tables[1], records[1][1], &rig.err);
    const std::string text(300, 'x');
    kvt_vstring_assign(rig, rig.txn(), place, text.data(), text.size(), &rig.err);
    kTypes[1]->insert(rig, rig.txn(), tables[1], records[1][1], &rig.err);
  });
  run.step([&](Rig& rig) {
    rig.begin();
    const std::vector<void*> before = records[2];
    destroy(rig, 2);
    insert(rig, 2, 5);
    void* other = kTypes[0]->open(rig, rig.txn(), "other", 0, &rig.err);
    kTypes[0]->free(rig, rig.txn(), other, &rig.err);
    rig.abort();
    records[2] = before;
  });
  run.write([&](Rig& rig) {
    destroy(rig, 0);
    destroy(rig, 2);
    kTypes[0]->request_destroy(rig, rig.txn(), tables[0], records[0][2], &rig.err);
    insert(rig, 1, 7);
  });
  run.write([&](Rig& rig) {  // new segments, and memory that outlives an abort
    big = static_cast<char*>(rig->store_alloc(rig->store, rig.txn(), 3 << 19));
    std::memset(big, 0, 3 << 19);
    std::memcpy(big, "big", 3);
    rig->key_put(rig->store, rig.txn(), "big", big);
    auto* permanent = static_cast<char*>(rig->store_alloc(rig->store, KVT_NO_TXN, 5 << 17));
    std::memset(permanent, 0, 5 << 17);
    std::memcpy(permanent, "lasts", 5);
    rig->key_put(rig->store, rig.txn(), "permanent", permanent);
    rig->store_free(rig->store, KVT_NO_TXN, rig->store_alloc(rig->store, KVT_NO_TXN, 24));
    rig->store_alloc(rig->store, KVT_NO_TXN, 24);
  });
  for (const bool held : {false, true}) {  // parts that are taken back, also while somebody reads
    int err = 0;
    kvt_handle* reader = kvt_handle_open_database(run.db_name(), nullptr, &err);
    for (const bool committed : {false, true}) {
      run.step([&](Rig& rig) {
        rig.begin();
        const std::array before = {records[0], records[1], records[2]};
        const std::uint32_t generation = held ? kvtdb_read_begin(reader, &err) : 0;
        insert(rig, 0, 40u + held * 2 + committed);
        const std::array marked = {records[0], records[1], records[2]};
        const std::uint32_t mark = kvtdb_savepoint(rig, rig.txn(), &rig.err);
        for (int again = 0; again <= held; ++again) {
          *static_cast<char*>(rig->store_alloc(rig->store, rig.txn(), 1100000)) = 1;
          destroy(rig, 0);
          insert(rig, 1, 60);
          kvtdb_savepoint(rig, rig.txn(), &rig.err);
          insert(rig, 2, 61);
          destroy(rig, 1);
          rig->store_alloc(rig->store, rig.txn(), 1000);
          kvtdb_rollback_to(rig, rig.txn(), mark, &rig.err);
          std::copy(marked.begin(), marked.end(), records);
        }
        insert(rig, 1, 70u + held * 2 + committed);
        destroy(rig, 0);
        committed ? rig.commit() : rig.abort();
        if (!committed) std::copy(before.begin(), before.end(), records);
        if (held) kvtdb_read_end(reader, generation);
      });
    }
    kvt_handle_close(reader);
    EXPECT_EQ(err, 0);
  }
  const std::string backup = run.folder() + "/backup";
  run.step([&](Rig& rig) { kvtdb_backup(rig, backup.c_str(), &rig.err); });
  run.write([&](Rig& rig) {
    rig->set_range(rig, big, 3 << 19, rig.txn(), nullptr);
    std::memset(big, 'y', 30);
    rig->key_put(rig->store, rig.txn(), "big", nullptr);
    rig->store_free(rig->store, rig.txn(), big);
  });
  run.step([&](Rig& rig) { kvtdb_compact(rig, &rig.err); });
  run.step([&](Rig& rig) { kvtdb_restore(rig, backup.c_str(), nullptr, 0, &rig.err); });
  run.finish();
}

#ifdef __SANITIZE_ADDRESS__
constexpr std::size_t kStride = 11;  // without the sanitizers it is each store
#else
constexpr std::size_t kStride = 1;
#endif

TEST(Crash, AfterEveryStoreTheLastCommittedStateComesBack) {
  History run(KVT_DURABILITY_PROCESS);
  play(run);
  Image image(run);
  const std::vector<Event>& events = run.trace().events;
  std::size_t recoveries = 0, again = 0;
  for (std::size_t i = 0; i < events.size(); i++) {
    image.apply(run.trace(), i);
    if (i % kStride) continue;
    ASSERT_EQ(image.fault(i + 1), "") << "after store " << i << " at " << events[i].at;
    if (i % (397 * kStride)) continue;
    // The recovery itself is cut off after each of its stores.
    const std::string before(image.bytes(), image.size());
    const Trace recovery = image.recovery();
    recoveries++;
    for (std::size_t j = 0; j < recovery.events.size(); j++) {
      image.apply(recovery, j);
      ASSERT_EQ(image.fault(i + 1), "") << "after store " << i << " and store " << j << " of the recovery";
      again++;
    }
    before.copy(image.bytes(), before.size());
  }
  std::printf("%zu stores, %zu recoveries cut off at %zu moments\n", events.size(), recoveries, again);
  EXPECT_GT(again, 100u);
}

// Any sector may reach the disk at any time, and none must but for a sync.
std::string lose_power(const History& run, std::uint32_t seed, unsigned looks) {
  constexpr std::uint32_t kSector = 512;
  std::mt19937 random(seed);
  Image disk(run);
  std::string memory(disk.bytes(), disk.size());
  std::vector<std::uint32_t> dirty;
  const auto write_back = [&](std::uint32_t sector) { memory.copy(disk.bytes() + sector, kSector, sector); };
  const Trace& trace = run.trace();
  const std::size_t every = trace.events.size() / looks + 1;
  for (std::size_t i = 0; i < trace.events.size(); i++) {
    const Event& event = trace.events[i];
    // What matters is what stands before a sync, of the header above all.
    const bool look = random() % (!event.is_sync ? every : event.at ? 8 : 1) == 0;
    if (look && event.is_sync) {
      for (std::uint32_t sector : dirty) {
        if (random() % 2) write_back(sector);
      }
    }
    const std::string fault = look ? disk.fault(i) : "";
    if (!fault.empty()) return "seed " + std::to_string(seed) + ", event " + std::to_string(i) + ": " + fault;
    if (event.is_sync) {
      std::erase_if(dirty, [&](std::uint32_t sector) {
        const bool within = sector + kSector > event.at && sector < event.at + event.length;
        if (within) write_back(sector);
        return within;
      });
      continue;
    }
    trace.bytes.copy(memory.data() + event.at, event.length, event.bytes);
    for (std::uint32_t sector = event.at & ~(kSector - 1); sector < event.at + event.length; sector += kSector) {
      if (std::find(dirty.begin(), dirty.end(), sector) == dirty.end()) dirty.push_back(sector);
    }
    if (random() % 4 == 0) write_back(dirty[random() % dirty.size()]);
  }
  return "";
}

TEST(Crash, AMachineThatLosesPowerKeepsWhatWasCommitted) {
  History run(KVT_DURABILITY_MACHINE);
  play(run);
  const std::uint32_t seeds = std::getenv("ZARN_LONG") ? 40 : 4;
  for (std::uint32_t seed = 1; seed <= seeds; seed++) ASSERT_EQ(lose_power(run, seed, 100), "");
}

// Without the order of the syncs the same run is lost, so the test above can tell.
TEST(Crash, TheDurabilityOfProcessesIsNotThatOfTheMachine) {
  History run(KVT_DURABILITY_PROCESS);
  play(run);
  EXPECT_NE(lose_power(run, 1, 400), "");
}

}  // namespace
}  // namespace crash
