// Tests of what stops the process and of what does not: a corrupt handle in every operation that reads its tag, corrupt
// type records, a mix of tracked and untracked; and damaged objects, which only give errors.
#include <fcntl.h>

#include <csetjmp>
#include <csignal>

#include "calls.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace module_test {
namespace {

#ifdef __SANITIZE_ADDRESS__
// What the jump leaves behind on the stack, the names of calls above all, is no leak of the library's.
void expect_leaks(bool on) { on ? __lsan_disable() : __lsan_enable(); }
#else
void expect_leaks(bool) {}
#endif

// Runs an operation that may stop the process, and keeps the process. @return the line that it stops with, or ""
std::string fatal_line(const std::function<void()>& operation) {
  static sigjmp_buf back;
  static std::string line;
  line.clear();
  fenlog_set_sink(
      [](void*, std::uint32_t level, const char* text) {
        if (level == KVT_LEVEL_FATAL) line = text;
      },
      nullptr);
  struct sigaction action = {}, before;
  action.sa_handler = [](int) { siglongjmp(back, 1); };
  sigaction(SIGABRT, &action, &before);
  // The line goes to standard error as well.
  static const int standard_error = dup(STDERR_FILENO), nowhere = open("/dev/null", O_WRONLY);
  dup2(nowhere, STDERR_FILENO);
  expect_leaks(true);
  if (sigsetjmp(back, 1) == 0) {
    operation();
    if (!line.empty()) line += " -- and went on";
  } else if (line.empty()) {
    line = "stopped without a word";
  }
  expect_leaks(false);
  dup2(standard_error, STDERR_FILENO);
  sigaction(SIGABRT, &before, nullptr);
  fenlog_set_sink(nullptr, nullptr);
  return line;
}

bool has_nested(const Type& type) {
  return std::any_of(type.fields.begin(), type.fields.end(),
                     [](const Field& f) { return kind_of(f) == Kind::kStruct; });
}

bool reads_the_tag(const Call& call, const Subject& subject) {
  static const std::set<std::string> reading = words(
      "create create_internal create_cr initialize destroy destroy_internal destroy_cr sizeof sizeof_internal set "
      "marshal unmarshal len len_cr to_xml toxml_cr f_set f_set_value f_state_flag_get f_state_flag_set");
  if (subject.family != Family::kStruct) return false;
  if (call.op == "post_copyout_cleanup") return has_nested(*subject.type);
  return reading.count(call.op) > 0;
}

TEST(FatalStop, OfACorruptHandleInEveryOperationThatReadsTheTagAndInNoOther) {
  kvt_sttr_descriptor corrupt{0x1234};
  for (const Subject& subject : all_subjects()) {
    Rig rig(Tracking::kOn);
    Bench bench(rig, subject);
    for (const Call& call : bench.calls) {
      const bool stops = reads_the_tag(call, subject);
      bench.prepare(call);
      kvt_sttr_descriptor* const good = std::exchange(rig.h->sttr, &corrupt);
      std::uintptr_t result = 0;
      const std::string room = bench.room;
      const std::string block(bench.block_of(bench.object), subject.block);
      const std::string line = fatal_line([&] { result = call.run(&rig.err); });
      EXPECT_EQ(line, stops ? "Corrupted KVT Handle" : "") << call.name;
      EXPECT_EQ(rig.take_err(), 0) << call.name;
      EXPECT_TRUE(!stops || bench.room == room) << call.name << ": output before the stop";
      rig.h->sttr = good;
      rig.h->cr_create = 0;
      if (call.op == "set_all_state_tracking_flag") {
        EXPECT_EQ(std::string(bench.block_of(bench.object), subject.block), block) << call.name;
      }
      if (stops && call.op.starts_with("destroy")) bench.destroy(bench.object);
      bench.settle(call, result);
    }
    // A nested object finds its state bytes without the tag, so its destruction does not read it.
    if (subject.family == Family::kStruct) {
      for (const Slot& slot : slots_of(*subject.type, bench.object)) {
        if (kind_of(*slot.field) != Kind::kStruct) continue;
        kvt_sttr_descriptor* const good = std::exchange(rig.h->sttr, &corrupt);
        EXPECT_EQ(fatal_line([&] {
                    fn<void(H, Txn, void*, int)>(slot.field->kind + "_destroy_internal")(rig.h, rig.txn, slot.at(), 0);
                  }),
                  "")
            << slot.path;
        rig.h->sttr = good;
      }
    }
  }
}

TEST(FatalStop, OfACorruptTypeRecord) {
  Rig rig(Tracking::kOn);
  rig.h->mode = 1;  // registered copies, which can be written
  rig.destroy(type_of("st_wlan"), rig.make(type_of("st_wlan")));
  for (const Subject& subject : all_subjects()) {
    auto* copy = const_cast<kvt_type_record*>(
        kvt_type_info_ptr_get(rig.h, rig.txn, record_of(subject.name), zarn_wlan_typeinfo_initialize));
    ASSERT_NE(copy, nullptr);
    const auto create = fn<Create>(subject.name + "_create");
    const auto destroy = fn<void(H, Txn, void*, int)>(subject.name + "_destroy_internal");
    auto* object = static_cast<char*>(create(rig.h, rig.txn));
    auto stop_of = [&](bool create_too, int free_it) {
      const std::string of_create = create_too ? fatal_line([&] { create(rig.h, rig.txn); }) : "";
      const std::string of_destroy = fatal_line([&] { destroy(rig.h, rig.txn, object, free_it); });
      if (create_too) {
        EXPECT_EQ(of_create, of_destroy) << subject.name;
      }
      return of_destroy;
    };
    const bool is_struct = subject.family == Family::kStruct;
    const std::uint32_t varinfo = std::exchange(copy->varinfo, 0u);
    EXPECT_EQ(stop_of(true, 1), "varinfo is NULL") << subject.name;
    // Without statistics nobody asks.
    alignas(8) char raw[4096] = {};
    EXPECT_EQ(fatal_line([&] {
                fn<Initialize>(subject.name + "_initialize")(rig.h, rig.txn, raw, record_of(subject.name), 0, 1, 0,
                                                             nullptr, &rig.err);
              }),
              "")
        << subject.name;
    copy->varinfo = varinfo;
    const std::uint32_t magic = std::exchange(copy->magic, 0xBEEFF00Cu);
    EXPECT_EQ(stop_of(false, 1), "tinfo is null or corrupted") << subject.name;
    EXPECT_EQ(stop_of(false, 0), is_struct ? "tinfo is null or corrupted" : "") << subject.name;
    copy->magic = magic;
    const auto link = load<std::uint32_t>(object);
    std::memset(object, 0, 4);
    EXPECT_EQ(stop_of(false, 1), "tinfo is null or corrupted") << subject.name;
    std::memcpy(object, &link, 4);
    destroy(rig.h, rig.txn, object, 1);
  }
}

TEST(FatalStop, OfACorruptTypeRecordOfATablesRecords) {
  Rig rig(Tracking::kOn);
  rig.h->mode = 1;
  const auto tables = read_table("tables.tsv");
  ASSERT_EQ(tables.size(), 7u);
  for (const auto& row : tables) {
    const auto create = fn<void*(H, Txn, int*)>(row[0] + "_create_record");
    const auto destroy = fn<std::uint32_t(H, Txn, void*, int*)>(row[0] + "_destroy_record");
    for (bool bad_magic : {false, true}) {
      void* record = create(rig.h, rig.txn, &rig.err);
      auto* copy = const_cast<kvt_type_record*>(kvt_type_link_at(load<std::uint32_t>(record)));
      const kvt_type_record good = *copy;
      (bad_magic ? copy->magic : copy->varinfo) = 0;
      const std::string line = bad_magic ? "tinfo is null or corrupted" : "varinfo is NULL";
      if (!bad_magic) {
        EXPECT_EQ(fatal_line([&] { create(rig.h, rig.txn, &rig.err); }), line) << row[0];
      }
      EXPECT_EQ(fatal_line([&] { destroy(rig.h, rig.txn, record, &rig.err); }), line) << row[0];
      *copy = good;
      EXPECT_EQ(rig.take_err(), 0) << row[0];
    }
  }
}

TEST(FatalStop, OfReadingIntoAnUntrackedObjectOnATrackingHandle) {
  Rig rig(Tracking::kOn);
  for (const Subject& subject : all_subjects()) {
    Bench bench(rig, subject);
    const auto unmarshal = fn<Unmarshal>(subject.name + "_unmarshal");
    bench.object[6] &= ~KVT_OBJ_STATE_TRACKED;
    for (std::int32_t length : {0, 1, static_cast<std::int32_t>(bench.wire.size())}) {
      // Before the bytes can be looked at there is nothing to stop for.
      const bool stops = length > 0 && subject.family == Family::kStruct;
      EXPECT_EQ(fatal_line([&] { unmarshal(rig.h, rig.txn, bench.wire.data(), bench.object, length, 0, &rig.err); }),
                stops ? "KVT handle and object state tracking mis-match" : "")
          << subject.name << length;
      rig.err = 0;
    }
    if (subject.family == Family::kStruct) bench.object[6] |= KVT_OBJ_STATE_TRACKED;
  }
}

// Puts untouched bytes before and behind every block that a handle gives out.
class Guards {
 public:
  explicit Guards(Rig& rig) : rig_(rig) {
    current_ = this;
    alloc_ = rig.h->store_alloc;
    free_ = rig.h->store_free;
    rig.h->store_alloc = [](void* store, std::uint32_t txn, std::uint32_t size) -> void* {
      auto* block = static_cast<char*>(current_->alloc_(store, txn, size + 2 * kRoom));
      if (!block) return nullptr;
      std::memset(block, kUntouched, kRoom);
      std::memset(block + kRoom + size, kUntouched, kRoom);
      return block + kRoom;
    };
    rig.h->store_free = [](void* store, std::uint32_t txn, void* block) {
      current_->free_(store, txn, static_cast<char*>(block) - kRoom);
    };
  }
  bool intact() const {
    static const std::string untouched(kRoom, kUntouched);
    return std::all_of(rig_.blocks.begin(), rig_.blocks.end(), [](const auto& block) {
      return untouched.compare(0, kRoom, block.first, kRoom) == 0 &&
             untouched.compare(0, kRoom, block.first + block.second - kRoom, kRoom) == 0;
    });
  }

 private:
  static constexpr std::uint32_t kRoom = 64;
  static constexpr char kUntouched = '\xA5';
  static inline Guards* current_;
  Rig& rig_;
  decltype(kvt_handle::store_alloc) alloc_;
  decltype(kvt_handle::store_free) free_;
};

struct Headers {
  std::vector<std::pair<char*, std::string>> saved;  // bytes 4 to 6
  Headers(const Subject& subject, char* object) {
    add(object);
    if (subject.family != Family::kStruct) return;
    for (const Slot& slot : slots_of(*subject.type, object)) {
      if (kind_of(*slot.field) == Kind::kStruct || kind_of(*slot.field) == Kind::kEnum) add(slot.at());
    }
  }
  void add(char* at) { saved.push_back({at, std::string(at + 4, 3)}); }
  void damage(int instance, int built, int flags) const {
    for (const auto& [at, bytes] : saved) {
      at[4] = static_cast<char>(instance);
      at[5] = static_cast<char>(built);
      at[6] = static_cast<char>(at[6] | flags);
    }
  }
  void restore() const {
    for (const auto& [at, bytes] : saved) std::memcpy(at + 4, bytes.data(), 3);
  }
};

TEST(DamagedObject, OfAnyHeaderNeitherStopsTheProcessNorWritesOutsideTheObject) {
  struct Case {
    int instance, built, flags;
  };
  const std::set<std::string> changing = words("f_set set post_copyout_cleanup unmarshal from_xml");
  for (Tracking tracking : {Tracking::kOn, Tracking::kAbsent}) {
    for (const Subject& subject : all_subjects()) {
      for (const Case& c : {Case{127, 127, 0x10}, Case{-128, -128, 0}, Case{127, -1, 0}, Case{127, 0, 0},
                            Case{-1, 127, 0x10}, Case{0, 64, 0x20}}) {
        SCOPED_TRACE("instance " + std::to_string(c.instance) + " built " + std::to_string(c.built));
        Rig rig(tracking);
        Guards guards(rig);
        Bench bench(rig, subject);
        for (const Call& call : bench.calls) {
          if (call.op.starts_with("destroy") || call.op.starts_with("offset")) continue;
          const Headers headers(subject, bench.object), others(subject, bench.other);
          headers.damage(c.instance, c.built, c.flags);
          others.damage(c.instance, c.built, c.flags);
          const std::string line = fatal_line([&] { call.run(&rig.err); });
          headers.restore();
          others.restore();
          EXPECT_EQ(line, "") << call.name;
          EXPECT_TRUE(guards.intact()) << call.name;
          rig.err = rig.h->last_error = 0;
          // A smaller built variant puts state bytes where fields lie: such an object is left to the store, and one
          // whose strings were copied by halves.
          if (changing.count(call.op) || subject.top > 0) {
            bench.fill_object(bench.object = bench.make(), 1);
            if (changing.count(call.op)) bench.fill_object(bench.other = bench.make(), 2);
          }
          if (testing::Test::HasFailure()) return;
        }
        const Headers headers(subject, bench.object);
        headers.damage(c.instance < 0 ? c.instance : subject.top, c.built, c.flags);
        EXPECT_EQ(fatal_line([&] { bench.destroy(bench.object); }), "");
        EXPECT_TRUE(guards.intact()) << subject.name;
        bench.object = bench.other = nullptr;
      }
    }
  }
}

}  // namespace
}  // namespace module_test
