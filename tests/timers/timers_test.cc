// Tests of timers: the clock is the test's own, and the expiry's handler is this program's.
#include <functional>
#include <random>
#include <set>

#include "tests/tables/rig.h"

namespace {

using table_test::Kind;
using table_test::Rig;

kvt_time g_now;

struct Expiry {
  void* owner;
  std::int32_t* deleted;
  int* err;
};
std::vector<void*> g_fired;
std::function<void(const Expiry&)> g_handler;

constexpr std::size_t kTimerAt = 1904;

class Timers : public testing::TestWithParam<Kind> {
 protected:
  Timers() : rig(GetParam()) {
    g_now = {100, 700000};
    g_fired.clear();
    g_handler = nullptr;
    kvt_clock_replace([] { return g_now; });
    rig.begin();
    queue = static_cast<kvt_timer_queue*>(wlan_timer_queue_init(rig, rig.txn(), &rig.err));
    fenlog_set_level(7);
  }
  ~Timers() override {
    EXPECT_EQ(rig.err, 0);
    fenlog_set_level(6);
    kvt_clock_replace(nullptr);
  }

  void* make() { return st_wlan_create(rig, rig.txn()); }
  static kvt_timer* timer_of(void* owner) { return reinterpret_cast<kvt_timer*>(static_cast<char*>(owner) + kTimerAt); }
  void set(void* owner, std::int32_t sec, std::int32_t usec = 0, std::int32_t every_sec = 0,
           std::int32_t every_usec = 0, std::int32_t* next = nullptr) {
    st_wlan_ref_cleanup_timer_timer_set(rig, rig.txn(), queue, owner, sec, usec, every_sec, every_usec, next, &rig.err);
  }
  void* armed(std::int32_t sec, std::int32_t every_sec = 0) {
    void* owner = make();
    set(owner, sec, 0, every_sec);
    return owner;
  }
  void stop(void* owner) { st_wlan_ref_cleanup_timer_timer_stop(rig, rig.txn(), queue, owner, nullptr, &rig.err); }
  bool running(void* owner) { return st_wlan_ref_cleanup_timer_is_timer_running(rig, rig.txn(), queue, owner); }
  std::uint32_t dispatch(std::int32_t* next = nullptr) {
    return wlan_timer_dispatch(rig, rig.txn(), queue, nullptr, next, &rig.err);
  }
  // The owners in the order of the queue.
  std::vector<void*> in_queue() {
    std::vector<void*> owners;
    for (kvt_timer* t = timer_rb_tree_VS_RB_MINMAX(rig->store, rig.txn(), &queue->root, -1); t;
         t = timer_rb_tree_VS_RB_NEXT(rig->store, rig.txn(), t))
      owners.push_back(reinterpret_cast<char*>(t) - kTimerAt);
    return owners;
  }
  std::size_t lines_with(const std::string& text) const {
    return static_cast<std::size_t>(std::count_if(rig.lines.begin(), rig.lines.end(), [&](const Rig::Line& line) {
      return line.text.find(text) != std::string::npos;
    }));
  }

  Rig rig;
  kvt_timer_queue* queue;
};

using Owners = std::vector<void*>;

INSTANTIATE_TEST_SUITE_P(In, Timers, testing::Values(Kind::kPrivate, Kind::kDatabase),
                         [](const auto& one) { return one.param == Kind::kPrivate ? "PrivateStore" : "Database"; });

TEST_P(Timers, OneQueueToADatabase) {
  EXPECT_EQ(wlan_timer_queue_init(rig, rig.txn(), &rig.err), queue);
  rig.lines.clear();
  std::int32_t next[2] = {7, 7};
  EXPECT_EQ(dispatch(next), 0u);
  EXPECT_EQ(next[0], -1);
  EXPECT_EQ(next[1], 7) << "not written";
  ASSERT_EQ(rig.lines.size(), 1u);
  EXPECT_EQ(rig.take_line(), "wlan No timers present, setting next timer to expire at infinity");
  st_wlan_ref_cleanup_timer_timer_dump(rig, rig.txn(), queue, &rig.err);
  ASSERT_EQ(rig.lines.size(), 1u);
  EXPECT_NE(rig.take_line().find("priority queue 0x"), std::string::npos);

  EXPECT_EQ(zarn_wlan_timer_type_mrst_lookup(_st_wlan_type_info_internal.luid), 0);
  for (std::size_t word = 0; word < 16; word += 4) {
    std::uint8_t other[16];
    std::memcpy(other, _st_wlan_type_info_internal.luid, sizeof other);
    other[word] ^= 1;
    EXPECT_EQ(zarn_wlan_timer_type_mrst_lookup(other), -1);
  }
}

TEST_P(Timers, RefuseWhatCannotBe) {
  Rig other(GetParam());
  other.begin();
  other.fail_after = 0;
  EXPECT_EQ(wlan_timer_queue_init(other, other.txn(), &other.err), nullptr);
  EXPECT_EQ(other.take_error(), 12);
  other->key_put = [](void*, std::uint32_t, const char*, void*) { return 0; };
  EXPECT_EQ(wlan_timer_queue_init(other, other.txn(), &other.err), nullptr);
  EXPECT_EQ(other.take_error(), 12);
  EXPECT_EQ(other.take_line(), "Failed to set key for timer queue wlan");
  void* stranger = st_wlan_create(other, other.txn());
  st_wlan_ref_cleanup_timer_timer_safe_set(other, other.txn(), queue, stranger, 1, 0, 0, 0, nullptr, &other.err);
  EXPECT_EQ(other.take_error(), 22) << "a queue of another store";
  for (void* owner : {stranger, static_cast<void*>(nullptr)}) {
    set(owner, 1);
    EXPECT_EQ(rig.take_error(), 22);
  }
  EXPECT_EQ(queue->count + queue->root, 0u);
}

TEST_P(Timers, AreSetByTheClock) {
  constexpr std::int32_t kMost = 0x7FFFFFFF, kLeast = -kMost - 1;
  const struct {
    kvt_time now;
    std::int32_t sec, usec, every_sec;
    int err;
    kvt_time due;
  } cases[] = {
      {{100, 700000}, 5, 1500000, 0, 0, {107, 200000}},
      {{100, 700000}, 5, 300000, kLeast, 0, {106, 0}},
      {{100, 0}, kMost - 100, kMost, kMost, 0, {std::int64_t{kMost} + 2147, 483647}},
      {{100, 0}, kMost - 99, 0, 0, 7, {}},
      {{100, 700000}, kMost, 0, 0, 7, {}},
      {{100, 1}, 0, kMost, 0, 7, {}},
      {{100, 100000}, -200, -300000, -1, 0, {-101, 800000}},
      {{100, 0}, kLeast, kLeast, 0, 0, {100 - 2147483648 - 2148, 516352}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.sec) + " " + std::to_string(c.usec));
    g_now = c.now;
    void* owner = make();
    const kvt_timer before = *timer_of(owner);
    std::int32_t next[2];
    set(owner, c.sec, c.usec, c.every_sec, 0, next);
    EXPECT_EQ(rig.take_error(), c.err);
    const kvt_timer* timer = timer_of(owner);
    if (c.err) {
      EXPECT_EQ(rig.take_line(), "Too large values used for timer variable ref_cleanup_timer in st_wlan");
      EXPECT_EQ(std::memcmp(&before, timer, sizeof before), 0);
      EXPECT_EQ(queue->count + queue->root, 0u);
    } else {
      EXPECT_EQ(kvtlib_tv_compare(&timer->due, &c.due), 0) << timer->due.sec << " " << timer->due.usec;
      EXPECT_EQ(timer->interval.sec, c.every_sec);
      EXPECT_EQ(next[0], static_cast<std::int32_t>(c.due.sec));
      EXPECT_EQ(next[1], c.due.usec);
      stop(owner);
    }
    st_wlan_destroy(rig, rig.txn(), owner);
  }
}

TEST_P(Timers, AreSetAndStopped) {
  void* owner = make();
  rig.lines.clear();
  std::int32_t next[2] = {7, 7};
  st_wlan_ref_cleanup_timer_timer_safe_stop(rig, rig.txn(), queue, owner, next, &rig.err);
  EXPECT_TRUE(rig.lines.empty() && next[0] == 7) << "it wasn't running";
  set(owner, 5, 0, 1, 2);
  for (int i = 0; i < 2; ++i) {
    st_wlan_ref_cleanup_timer_timer_safe_set(rig, rig.txn(), queue, owner, 6, 0, 3, 4, next, &rig.err);
    EXPECT_TRUE(running(owner) && next[0] == 106);
    EXPECT_EQ(in_queue(), Owners{owner});
    EXPECT_EQ(queue->count, 1u);
    EXPECT_EQ(queue->peak, 1u);
  }
  EXPECT_EQ(lines_with("timer was running, stopping now"), 2u);
  st_wlan_ref_cleanup_timer_timer_dump(rig, rig.txn(), queue, &rig.err);
  EXPECT_EQ(lines_with("interval 3 sec 4 usec") + lines_with("due 106 sec 700000 usec :now 100 sec 700000 usec"), 2u);
  // Stopped before the set fails.
  st_wlan_ref_cleanup_timer_timer_safe_set(rig, rig.txn(), queue, owner, 0x7FFFFFFF, 0, 0, 0, next, &rig.err);
  EXPECT_EQ(rig.take_error(), 7);
  const kvt_timer& timer = *timer_of(owner);
  EXPECT_TRUE(!running(owner) && next[0] == -1 && queue->count == 0 && queue->peak == 1 && queue->root == 0);
  EXPECT_TRUE(timer.callback_index == -1 && timer.owner == 0 && timer.due.sec == 0 && timer.due.usec == 0);
  EXPECT_TRUE(timer.interval.sec == 3 && timer.interval.usec == 4);
  // A plain set of a running timer leaves one entry all the same, at its new place.
  void* other = armed(50);
  set(owner, 5);
  set(owner, 60);
  EXPECT_EQ(in_queue(), (Owners{other, owner}));
  rig.err = 5;
  stop(owner);
  EXPECT_EQ(rig.take_error(), 5);
  EXPECT_TRUE(running(owner)) << "the slot was set";
}

TEST_P(Timers, ComeInOrderAndComeAgain) {
  void *late = armed(9), *first = armed(5), *periodic = armed(7, 3);
  std::int32_t next[2];
  EXPECT_EQ(dispatch(next), 0u);
  EXPECT_EQ(next[0], 105);
  EXPECT_EQ(next[1], 700000);
  g_now = {108, 0};
  g_handler = [](const Expiry&) { g_now.usec += 400000; };
  EXPECT_EQ(dispatch(), 1u);
  EXPECT_EQ(dispatch(), 1u);
  EXPECT_EQ(dispatch(next), 0u);
  EXPECT_EQ(next[0], 109);
  EXPECT_EQ(g_fired, (Owners{first, periodic}));
  EXPECT_EQ(timer_of(periodic)->due.sec * 1000000 + timer_of(periodic)->due.usec, 111800000)
      << "from after the callback";
  EXPECT_EQ(in_queue(), (Owners{late, periodic}));
  EXPECT_TRUE(!running(first) && timer_of(first)->due.sec == 105 && timer_of(first)->owner && queue->count == 3);
  g_now = {109, 700000};
  EXPECT_EQ(dispatch(), 1u) << "due exactly now";
}

// Whatever a handler does to its timer, to its owner and to other owners, the dispatcher goes by what is there.
TEST_P(Timers, OutliveWhatHandlersDo) {
  const auto destroy = [&](void* owner) { st_wlan_destroy(rig, rig.txn(), owner); };
  const struct {
    const char* what;
    std::function<void(const Expiry&, void* other)> handler;
    bool stays, other_stays;
    int err;
  } cases[] = {
      {"nothing", [](const Expiry&, void*) {}, true, true, 0},
      {"error", [](const Expiry& e, void*) { *e.err = 9; }, true, true, 9},
      {"told", [&](const Expiry& e, void*) { destroy(e.owner), *e.deleted = 1; }, false, true, 0},
      {"untold", [&](const Expiry& e, void*) { destroy(e.owner); }, false, true, 0},
      {"both", [&](const Expiry& e, void* other) { destroy(other), destroy(e.owner); }, false, false, 0},
      {"other", [&](const Expiry&, void* other) { destroy(other); }, true, false, 0},
      {"reused", [&](const Expiry& e, void*) { destroy(e.owner), set(make(), 90); }, false, true, 0},
      {"stop", [&](const Expiry& e, void*) { stop(e.owner); }, false, true, 0},
      {"anew", [&](const Expiry& e, void*) { set(e.owner, 40, 0, 7); }, true, true, 0},
      {"nested", [&](const Expiry& e, void*) { EXPECT_EQ(dispatch(), 0u) << e.owner; }, true, true, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const Owners before = in_queue();
    void *owner = armed(0, 30), *other = armed(10);
    g_handler = [&](const Expiry& e) { c.handler(e, other); };
    EXPECT_EQ(dispatch(), 1u);
    EXPECT_EQ(rig.take_error(), c.err);
    Owners now = in_queue();
    EXPECT_EQ(std::count(now.begin(), now.end(), other), c.other_stays);
    if (std::string(c.what) != "reused") {
      EXPECT_EQ(std::count(now.begin(), now.end(), owner), c.stays);
    } else {
      EXPECT_EQ(kvtlib_tv_compare(&timer_of(now.back())->due, &g_now), 1);
    }
    if (std::string(c.what) == "anew") {
      EXPECT_EQ(timer_of(owner)->due.sec, 140);
    }
    for (void* left : now) destroy(left);
    EXPECT_EQ(in_queue(), Owners{});
  }
  EXPECT_EQ(lines_with("memory with a running timer given back"), 16u);
  EXPECT_EQ(lines_with("error while invoking callback. Deleted = 0, to_abort = 0"), 1u);
}

TEST_P(Timers, StayAliveWithoutACallback) {
  void* owner = armed(0, 1);
  const auto expect_missing = [&](const std::string& name) {
    g_now.sec += 5;
    EXPECT_EQ(dispatch(), 1u);
    EXPECT_EQ(rig.take_error(), 2);
    EXPECT_EQ(lines_with("Unable to find timer callback function for \"" + name + "\""), 1u);
    EXPECT_TRUE(running(owner) && g_fired.empty());
    rig.lines.clear();
  };
  for (const std::int32_t index : {1, 2, -1, -0x7FFFFFFF}) {
    timer_of(owner)->callback_index = index;
    expect_missing("st_wlan");
  }
  timer_of(owner)->callback_index = 0;
  void* dtim = st_dtim_create(rig, rig.txn());
  timer_of(owner)->owner = kvt_ref_of(dtim);
  expect_missing("st_dtim");
  timer_of(owner)->owner = 0;
  expect_missing("(null)");
  rig.err = 3;
  EXPECT_EQ(dispatch(), 0u);
  EXPECT_EQ(rig.take_error(), 3);
}

TEST_P(Timers, LeaveTheQueueWithTheirMemory) {
  void *owner = armed(5), *other = armed(5), *record = make();
  st_wlan_set(rig, rig.txn(), record, owner, &rig.err);  // a raw copy of a running timer runs nowhere
  EXPECT_TRUE(!running(record) && running(owner));
  set(record, 1);
  EXPECT_EQ(in_queue(), (Owners{record, std::min(owner, other), std::max(owner, other)}));
  rig.lines.clear();
  st_wlan_destroy(rig, rig.txn(), record);
  ASSERT_EQ(rig.lines.size(), 1u);
  EXPECT_EQ(rig.lines[0].level, KVT_LEVEL_ERROR);
  EXPECT_EQ(rig.take_line().rfind("memory with a running timer given back: timer 0x", 0), 0u);
  EXPECT_EQ(in_queue().size(), 2u);
  if (GetParam() == Kind::kPrivate) return;
  // An abort brings back what a handler destroyed and takes away what the transaction made, its own owner too.
  rig.commit();
  rig.begin();
  void* brief = armed(0, 1);
  g_handler = [&](const Expiry&) {
    st_wlan_destroy(rig, rig.txn(), owner);
    rig.abort();
  };
  const std::uint32_t txn = rig.txn();
  EXPECT_EQ(wlan_timer_dispatch(rig, txn, queue, nullptr, nullptr, &rig.err), 1u);
  EXPECT_EQ(g_fired, Owners{brief});
  EXPECT_EQ(in_queue(), (Owners{std::min(owner, other), std::max(owner, other)}));
  EXPECT_TRUE(running(owner));
  g_now = {200, 0};
  EXPECT_EQ(dispatch(), 0u) << "nobody holds the lock";
  EXPECT_EQ(rig.take_error(), 1);
}

// Against a model: random sets, stops, destroys and expiries, with many equal due times.
TEST_P(Timers, KeepTheOrderOfTheirDueTimes) {
  fenlog_set_level(0);
  std::mt19937 random(7);
  std::set<std::pair<std::int64_t, void*>> model;
  Owners owners;
  for (int step = 0; step < 4000; ++step) {
    if (owners.size() < 100) owners.push_back(make());
    void*& owner = owners[random() % owners.size()];
    const unsigned act = random() % 8;
    if (act == 2) ++g_now.sec;
    std::erase_if(model, [&](const auto& one) { return act == 2 ? one.first <= g_now.sec : one.second == owner; });
    if (act == 0) {
      st_wlan_destroy(rig, rig.txn(), owner);
      owner = make();
    } else if (act == 1) {
      st_wlan_ref_cleanup_timer_timer_safe_stop(rig, rig.txn(), queue, owner, nullptr, &rig.err);
    } else if (act == 2) {
      while (dispatch()) continue;
    } else {
      const auto wait = static_cast<std::int32_t>(random() % 60);
      st_wlan_ref_cleanup_timer_timer_safe_set(rig, rig.txn(), queue, owner, wait, 0, 0, 0, nullptr, &rig.err);
      model.emplace(g_now.sec + wait, owner);
    }
    Owners order;
    for (const auto& one : model) order.push_back(one.second);
    ASSERT_EQ(in_queue(), order) << step;
  }
}

TEST(QueueDeathTest, StopsWhereTheStoreBreaksItsContract) {
  Rig rig(Kind::kDatabase);
  static void* memory;
  memory = rig->hd_mapping;  // in the database, which nobody has locked
  rig->store_alloc = [](void*, std::uint32_t, std::uint32_t) { return memory; };
  EXPECT_DEATH(wlan_timer_queue_init(rig, rig.txn(), &rig.err), "nadra internal error");
}

}  // namespace

extern "C" int32_t st_wlan_ref_cleanup_timer_timer_callback(kvt_handle*, void*, void* owner, int32_t* deleted, int32_t*,
                                                            int* err) {
  g_fired.push_back(owner);
  if (g_handler) g_handler({owner, deleted, err});
  return 0;
}
