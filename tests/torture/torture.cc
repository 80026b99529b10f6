// torture [rounds [seed]]: writers of one database are killed at random instructions, again and again, the ones that
// bring back the last committed state among them. After each kill a process that has had the file open all the time
// looks it through, and holds it against what the writers say that they committed. Status 0: nothing was ever wrong.
#include <fcntl.h>
#include <kvt/care.h>
#include <kvt/read.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <vector>

#include "tests/torture/model.h"
#include "zarn_wlan/zarn_wlan.h"

namespace torture {
namespace {

constexpr unsigned kReaders = 2;
constexpr std::uint32_t kBlock = 400 * 1024;  // what a large transaction changes beside the records
constexpr int kAnswerMs = 120'000;

enum Phase : std::uint32_t { kIdle, kBeginning, kOpen, kCommitting, kAborting, kPhases };
const char* const kPhaseNames[] = {"between transactions", "begin or recovery", "an open transaction", "commit",
                                   "abort or rollback"};

struct Progress {  // of a writer, in memory that outlives it
  std::atomic<std::uint64_t> begun, committed;
  std::atomic<std::uint32_t> phase;
};
struct Shared {
  Progress writers[kWriters];
  std::atomic<std::uint64_t> reads, reads_again;
};

std::string path;
Shared* shared;

[[noreturn]] void fail(const char* what, int err) {
  std::fprintf(stderr, "torture: %s: %s\n", what, std::strerror(err));
  _exit(3);
}

kvt_handle* open_database() {
  kvt_handle_options options;
  kvt_handle_options_init(&options);
  options.create = 1;
  options.tracking = KVT_STTR_ON;
  int err = 0;
  kvt_handle* h = kvt_handle_open_database(path.c_str(), &options, &err);
  if (!h) fail("open", err);
  return h;
}

// The tables of one transaction. Items with an even number have three keys, the others one.
struct Tables {
  kvt_handle* h;
  std::uint32_t txn;
  void *groups, *ids;
  std::uint64_t* ledger;  // the number of each writer's last transaction
  int err = 0;

  explicit Tables(kvt_handle* handle) : h(handle) {
    txn = kvtdb_txn_begin(h, &err);
    if (err) fail("begin", err);
    groups = tbl_apgroup_wlan_table_open(h, txn, "groups", 0, &err);
    ids = tbl_wlan_ifid_table_open(h, txn, "ids", 0, &err);
    ledger = static_cast<std::uint64_t*>(h->key_get(h->store, txn, "ledger"));
    if (err || !groups || !ids) fail("tables", err);
  }
  void* find(std::uint32_t number) {
    return number % 2 ? tbl_wlan_ifid_st_wlan_ifid_wlan_id_search(h, txn, ids, &number, &err)
                      : tbl_apgroup_wlan_st_wlan_wlan_id_search(h, txn, groups, &number, &err);
  }
  void insert(std::uint32_t number, const std::string& text) {
    if (number % 2) {
      void* record = tbl_wlan_ifid_create_record(h, txn, &err);
      auto* payload = st_wlan_ifid_create(h, txn);
      st_wlan_ifid_wlan_id_set_value(h, txn, payload, number, &err);
      tbl_wlan_ifid_st_wlan_ifid_set_field(h, txn, record, payload);
      tbl_wlan_ifid_insert(h, txn, ids, record, &err);
      return;
    }
    void* record = tbl_apgroup_wlan_create_record(h, txn, &err);
    auto* payload = st_wlan_create(h, txn);
    st_wlan_wlan_id_set_value(h, txn, payload, number, &err);
    set_text(payload, text);
    tbl_apgroup_wlan_st_wlan_set_field(h, txn, record, payload);
    tbl_apgroup_wlan_insert(h, txn, groups, record, &err);
  }
  void set_text(void* payload, const std::string& text) {
    for (void* field : {st_wlan_profile_name_get(h, txn, payload, &err), st_wlan_ssid_get(h, txn, payload, &err)}) {
      kvt_vstring_assign(h, txn, field, text.data(), text.size(), &err);
    }
  }
  void remove(std::uint32_t number) {
    void* record = find(number);
    if (!record) fail("a record is gone", ENOENT);
    if (number % 2) {
      tbl_wlan_ifid_delete(h, txn, ids, record, &err);
      tbl_wlan_ifid_destroy_record(h, txn, record, &err);
    } else {
      tbl_apgroup_wlan_delete(h, txn, groups, record, &err);
      tbl_apgroup_wlan_destroy_record(h, txn, record, &err);
    }
  }
};

// One transaction of a writer, up to its end.
void change(Tables& tables, unsigned writer, Model& model) {
  kvt_handle* h = tables.h;
  model.step([&](unsigned item, std::uint64_t before, std::uint64_t after) {
    if (before) tables.remove(model.number(item));
    if (after) tables.insert(model.number(item), model.text(item, after));
  });
  if (Model::is_large(model.done())) {
    const std::string name = "block " + std::to_string(writer);
    auto* block = static_cast<char*>(h->key_get(h->store, tables.txn, name.c_str()));
    if (block) {
      h->set_range(h, block, kBlock, tables.txn, nullptr);
      std::memset(block, static_cast<int>(model.done()), kBlock);
      h->store_free(h->store, tables.txn, block);
    }
    block = static_cast<char*>(h->store_alloc(h->store, tables.txn, kBlock));
    if (!block) fail("block", ENOMEM);
    std::memset(block, static_cast<int>(model.done()), kBlock);
    h->key_put(h->store, tables.txn, name.c_str(), block);
  }
  h->set_range(h, &tables.ledger[writer], sizeof *tables.ledger, tables.txn, nullptr);
  tables.ledger[writer] = model.done();
  if (tables.err) fail("change", tables.err);
}

[[noreturn]] void write_forever(unsigned writer) {
  Progress& progress = shared->writers[writer];
  kvt_handle* h = open_database();
  Model model(writer);
  for (bool first = true;; first = false) {
    progress.phase = kBeginning;
    Tables tables(h);
    progress.phase = kOpen;
    while (first && model.done() < tables.ledger[writer]) model.step([](unsigned, std::uint64_t, std::uint64_t) {});
    if (Model::is_aborted_first(model.done() + 1)) {
      Model discarded = model;
      const bool as_a_whole = model.done() % 2;
      const std::uint32_t mark = as_a_whole ? 0 : kvtdb_savepoint(h, tables.txn, &tables.err);
      change(tables, writer, discarded);
      progress.phase = kAborting;
      if (as_a_whole) {
        kvtdb_txn_abort(h, tables.txn, &tables.err);
        progress.phase = kBeginning;
        tables = Tables(h);
      } else {
        kvtdb_rollback_to(h, tables.txn, mark, &tables.err);
      }
      progress.phase = kOpen;
    }
    progress.begun = model.done() + 1;
    change(tables, writer, model);
    progress.phase = kCommitting;
    kvtdb_txn_commit(h, tables.txn, &tables.err);
    if (tables.err) fail("commit", tables.err);
    progress.phase = kIdle;
    progress.committed = model.done();
    if (model.done() % 8 == 0) usleep(50);  // who waits for the lock gets it
  }
}

// What a walk without the lock meets: records in order, as many as are counted, each with its two texts alike. False is
// no fault when a writer was at work.
bool walk(kvt_handle* h, std::uint32_t generation) {
  int err = 0;
  std::uint32_t count = 0, before = 0;
  char texts[2][96];
  void* groups = tbl_apgroup_wlan_table_open(h, KVT_NO_TXN, "groups", 1, &err);
  if (!groups) return h->key_get(h->store, KVT_NO_TXN, "ledger") != nullptr;
  for (void* at = tbl_apgroup_wlan_st_wlan_wlan_id_get_first(h, KVT_NO_TXN, groups, &err);
       at && kvtdb_read_valid(h, generation);
       at = tbl_apgroup_wlan_st_wlan_wlan_id_get_next(h, KVT_NO_TXN, groups, at, &err)) {
    void* payload = tbl_apgroup_wlan_st_wlan_get_field(h, KVT_NO_TXN, at);
    const std::uint32_t id = st_wlan_wlan_id_get_value(h, KVT_NO_TXN, payload, &err);
    if (err || id < before || count++ > kWriters * kItems) return false;
    before = id + 1;
    if (kvtdb_read_text(h, st_wlan_profile_name_get(h, KVT_NO_TXN, payload, &err), texts[0], sizeof texts[0]) < 0 ||
        kvtdb_read_text(h, st_wlan_ssid_get(h, KVT_NO_TXN, payload, &err), texts[1], sizeof texts[1]) < 0 ||
        std::strcmp(texts[0], texts[1])) {
      return false;
    }
  }
  return count == tbl_apgroup_wlan_table_get_count(h, KVT_NO_TXN, groups);
}

// Without the lock.
[[noreturn]] void read_forever() {
  kvt_handle* h = open_database();
  for (int err = 0;;) {
    const std::uint32_t generation = kvtdb_read_begin(h, &err);
    if (err) fail("read", err);
    const bool sound = walk(h, generation);
    const bool valid = kvtdb_read_end(h, generation);
    if (valid && !sound) fail("what was read is of two states", EIO);
    ++(valid ? shared->reads : shared->reads_again);
    usleep(valid ? 100 : 10);
  }
}

void add_line(void* text, const char* line) { *static_cast<std::string*>(text) += std::string(line) + "\n"; }

// Empty, or what is wrong.
std::string judge(kvt_handle* h, std::vector<Model>& models) {
  int err = 0;
  std::string text;
  std::uint64_t committed[kWriters];
  for (unsigned w = 0; w < kWriters; w++) committed[w] = shared->writers[w].committed;
  if (kvtdb_check(h, add_line, &text, &err) || err) return "check: " + text + std::strerror(err);
  Tables tables(h);
  unsigned counts[2] = {};
  for (unsigned w = 0; w < kWriters; w++) {
    const std::uint64_t done = tables.ledger[w], begun = shared->writers[w].begun;
    const std::string who = "writer " + std::to_string(w) + ": ";
    if (done < committed[w]) {
      text += who + std::to_string(committed[w]) + " committed, " + std::to_string(done) + " found\n";
    }
    if (done > begun) text += who + std::to_string(begun) + " begun, " + std::to_string(done) + " found\n";
    if (!text.empty()) break;
    while (models[w].done() < done) models[w].step([](unsigned, std::uint64_t, std::uint64_t) {});
    for (unsigned item = 0; item < kItems; item++) {
      const std::uint32_t number = models[w].number(item);
      const std::uint64_t version = models[w].version(item);
      void* record = tables.find(number);
      counts[number % 2] += version != 0;
      if (!record != !version) text += who + std::to_string(number) + (record ? " is there\n" : " is missing\n");
      if (!record || number % 2) continue;
      void* payload = tbl_apgroup_wlan_st_wlan_get_field(h, tables.txn, record);
      void* field = st_wlan_ssid_get(h, tables.txn, payload, &tables.err);
      const char* found = kvt_vstring_text(field);
      if (models[w].text(item, version) != (found ? found : "")) {
        text += who + std::to_string(number) + " has the text " + (found ? found : "(none)") + "\n";
      }
    }
  }
  const std::uint32_t found[] = {tbl_apgroup_wlan_table_get_count(h, tables.txn, tables.groups),
                                 tbl_wlan_ifid_table_get_count(h, tables.txn, tables.ids)};
  if (text.empty() && (found[0] != counts[0] || found[1] != counts[1])) text += "records that nobody inserted\n";
  kvtdb_txn_abort(h, tables.txn, &tables.err);
  if (tables.err) text += std::strerror(tables.err);
  return text;
}

[[noreturn]] void judge_forever(int from, int to) {
  kvt_handle* h = open_database();
  std::vector<Model> models;
  for (unsigned w = 0; w < kWriters; w++) models.emplace_back(w);
  char byte;
  while (read(from, &byte, 1) == 1) {
    const std::string text = judge(h, models);
    const std::string answer = text.empty() ? "." : text.substr(0, 4000);
    if (write(to, answer.data(), answer.size()) < 0) break;
  }
  _exit(0);
}

pid_t start(const std::function<void()>& body) {
  const pid_t child = fork();
  if (child) return child;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  body();
  _exit(3);
}

// The word of the header that leads to the undo log: not 0, then the last writer died or has not ended.
bool is_left_open() {
  std::uint32_t word = 0;
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const bool read_it = pread(fd, &word, sizeof word, 28) == sizeof word;
  close(fd);
  return read_it && word;
}

class Torture {
 public:
  explicit Torture(std::uint32_t seed) : random_(seed) {}
  ~Torture() {
    for (pid_t& child : writers_) kill_one(child, nullptr);
    for (pid_t& child : readers_) kill_one(child, nullptr);
    kill_one(judge_, nullptr);
  }
  bool run(unsigned rounds) {
    if (pipe2(ask_, O_CLOEXEC) || pipe2(answer_, O_CLOEXEC)) return false;
    judge_ = start([&] { judge_forever(ask_[0], answer_[1]); });
    close(ask_[0]);
    close(answer_[1]);
    for (unsigned w = 0; w < kWriters; w++) start_writer(w);
    for (pid_t& reader : readers_) reader = start(read_forever);
    for (unsigned round = 1; round <= rounds; round++) {
      if (!one_round()) {
        std::fprintf(stderr, "torture: round %u, the file is %s\n", round, path.c_str());
        return false;
      }
      if (round % 500 == 0) tell(round);
    }
    tell(rounds);
    return true;
  }

 private:
  void tell(unsigned round) const {
    std::uint64_t committed = 0;
    for (const Progress& progress : shared->writers) committed += progress.committed;
    std::printf("%u rounds, %u kills, %llu transactions committed, %llu walks of readers, %llu of them in vain\n",
                round, kills_, static_cast<unsigned long long>(committed),
                static_cast<unsigned long long>(shared->reads + shared->reads_again),
                static_cast<unsigned long long>(shared->reads_again));
    for (unsigned i = 0; i < kPhases; i++) std::printf("  killed in %-22s %u\n", kPhaseNames[i], by_phase_[i]);
    std::printf("  recoveries cut off        %u\n", cut_off_);
    std::fflush(stdout);
  }

  void start_writer(unsigned w) {
    shared->writers[w].phase = kIdle;
    writers_[w] = start([w] { write_forever(w); });
  }
  // False when the process had ended by itself.
  bool kill_one(pid_t& child, const Progress* progress) {
    if (child <= 0) return true;
    int status = 0;
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    child = 0;
    kills_++;
    if (progress) by_phase_[progress->phase]++;
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) return true;
    std::fprintf(stderr, "torture: a process ended by itself, status %x\n", status);
    return false;
  }
  void wait_us(unsigned most) { usleep(static_cast<useconds_t>(random_() % most)); }

  bool one_round() {
    wait_us(random_() % 4 ? 3000 : 20000);
    bool fine = true;
    const bool all = random_() % 4 == 0;
    const unsigned one = random_() % kWriters;
    for (unsigned w = 0; w < kWriters; w++) {
      if (all || w == one) fine &= kill_one(writers_[w], &shared->writers[w]);
    }
    // Nobody else would bring the last state back, so who begins to is killed at it.
    for (int again = 0; all && again < 6 && fine && is_left_open(); again++) {
      shared->writers[one].phase = kIdle;
      start_writer(one);
      while (shared->writers[one].phase == kIdle) usleep(20);
      wait_us(300);
      fine &= kill_one(writers_[one], &shared->writers[one]);
      cut_off_ += shared->writers[one].phase == kBeginning && is_left_open();
    }
    if (random_() % 16 == 0) {
      pid_t& reader = readers_[random_() % kReaders];
      fine &= kill_one(reader, nullptr);
      reader = start(read_forever);
    }
    const bool judged_alone = random_() % 2;
    if (!judged_alone) revive();
    fine &= ask();
    if (judged_alone) revive();
    return fine;
  }
  void revive() {
    for (unsigned w = 0; w < kWriters; w++) {
      if (!writers_[w]) start_writer(w);
    }
  }
  bool ask() {
    char text[4096];
    if (write(ask_[1], "?", 1) != 1) return false;
    struct pollfd ready = {answer_[0], POLLIN, 0};
    if (poll(&ready, 1, kAnswerMs) != 1) {
      std::fprintf(stderr, "torture: no answer, nobody gets the lock any more\n");
      return false;
    }
    const ssize_t got = read(answer_[0], text, sizeof text);
    if (got == 1 && text[0] == '.') return true;
    std::fprintf(stderr, "torture: %.*s\n", static_cast<int>(got), got > 0 ? text : "the judge died");
    return false;
  }

  std::minstd_rand random_;
  pid_t writers_[kWriters] = {}, readers_[kReaders] = {}, judge_ = 0;
  int ask_[2] = {-1, -1}, answer_[2] = {-1, -1};
  unsigned kills_ = 0, by_phase_[kPhases] = {}, cut_off_ = 0;
};

int run(unsigned rounds, std::uint32_t seed) {
  char name[] = "/tmp/zarn_torture_XXXXXX";
  if (!mkdtemp(name)) return 2;
  path = std::string(name) + "/db";
  shared =
      static_cast<Shared*>(mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  // In a process of its own, for a lock is shared with those who are forked from its holder.
  const pid_t maker = start([] {
    kvt_handle* h = open_database();
    int err = 0;
    const std::uint32_t txn = kvtdb_txn_begin(h, &err);
    void* ledger = h->store_alloc(h->store, txn, kWriters * sizeof(std::uint64_t));
    std::memset(ledger, 0, kWriters * sizeof(std::uint64_t));
    h->key_put(h->store, txn, "ledger", ledger);
    kvtdb_txn_commit(h, txn, &err);
    _exit(err ? 3 : 0);
  });
  int status = 0;
  waitpid(maker, &status, 0);
  if (status) return 2;
  std::printf("seed %u\n", seed);
  const bool fine = Torture(seed).run(rounds);
  if (fine) std::filesystem::remove_all(name);
  return fine ? 0 : 1;
}

}  // namespace
}  // namespace torture

int main(int argc, char** argv) {
  const unsigned rounds = argc > 1 ? static_cast<unsigned>(std::atoi(argv[1])) : 100;
  return torture::run(rounds, argc > 2 ? static_cast<std::uint32_t>(std::atoi(argv[2])) : std::random_device{}());
}
