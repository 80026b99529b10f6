// What arming a timer, stopping it and taking it when it is due cost at 1,000 and 100,000 armed timers, beside libevent
// and a bare red-black tree. Each timer lies in an owner of the size of a WLAN profile; due times are random and new in
// every round, and all have passed, so that nothing waits. Each entry does a whole batch a round, in turn with the
// others, and its best round counts, in processor time.
#include <event2/event.h>
#include <event2/event_struct.h>
#include <time.h>
#include <zarn_wlan/zarn_wlan.h>

#include <algorithm>
#include <boost/intrusive/rbtree.hpp>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

namespace {

constexpr std::size_t kSizes[] = {1000, 100000};
constexpr std::size_t kOwner = 1992, kTimerAt = 1904;  // of st_wlan
constexpr int kPassed = 3600;                          // s; due times are up to that long ago

enum Op { kInsert, kStop, kPop, kOps };
constexpr const char* kOpNames[kOps] = {"insert", "stop", "pop"};

std::size_t fired;

void expect(bool good, const char* what) {
  if (good) return;
  std::fprintf(stderr, "zarn_timers_bench: %s\n", what);
  std::exit(1);
}

struct Load {
  explicit Load(std::size_t n) : size(n), ago(n), order(n) { std::iota(order.begin(), order.end(), 0); }
  void renew() {
    for (timeval& t : ago) t = {-static_cast<time_t>(random() % kPassed) - 1, static_cast<int>(random() % 1000000)};
    std::shuffle(order.begin(), order.end(), random);
  }
  std::size_t size;
  std::vector<timeval> ago;
  std::vector<std::uint32_t> order;  // of inserts and stops
  std::mt19937 random{1};
};

class Peer {
 public:
  explicit Peer(const Load& load) : load_(load) {}
  virtual ~Peer() = default;
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;
  virtual const char* name() const = 0;
  virtual void insert() = 0;
  virtual void stop() = 0;
  virtual void pop() = 0;  // takes all, in their order

 protected:
  const Load& load_;
};

// The owners of timers in a private store.
class Owners {
 public:
  explicit Owners(std::size_t n) : handle(kvt_handle_open_private(nullptr, &err)), at(n) {
    for (void*& owner : at) owner = st_wlan_create(handle, 0);
    queue = static_cast<kvt_timer_queue*>(wlan_timer_queue_init(handle, 0, &err));
  }
  ~Owners() { kvt_handle_close(handle); }
  Owners(const Owners&) = delete;
  Owners& operator=(const Owners&) = delete;
  kvt_timer* timer(std::size_t i) const { return reinterpret_cast<kvt_timer*>(static_cast<char*>(at[i]) + kTimerAt); }
  int err = 0;
  kvt_handle* handle;
  kvt_timer_queue* queue;
  std::vector<void*> at;
};

class Tree final : public Peer {
 public:
  explicit Tree(const Load& load) : Peer(load), owners_(load.size) {}
  const char* name() const override { return "tree of timers"; }
  void insert() override {
    for (const std::uint32_t i : load_.order) {
      kvt_timer* timer = owners_.timer(i);
      timer->due = {load_.ago[i].tv_sec, load_.ago[i].tv_usec};
      timer_rb_tree_VS_RB_INSERT(owners_.handle->store, 0, &owners_.queue->root, timer);
    }
  }
  void stop() override {
    for (const std::uint32_t i : load_.order)
      timer_rb_tree_VS_RB_REMOVE(owners_.handle->store, 0, &owners_.queue->root, owners_.timer(i));
  }
  void pop() override {
    void* store = owners_.handle->store;
    std::uint32_t* root = &owners_.queue->root;
    while (kvt_timer* timer = timer_rb_tree_VS_RB_MINMAX(store, 0, root, -1)) {
      timer_rb_tree_VS_RB_REMOVE(store, 0, root, timer);
      ++fired;
    }
  }

 private:
  Owners owners_;
};

class Timers final : public Peer {
 public:
  explicit Timers(const Load& load) : Peer(load), owners_(load.size) {}
  const char* name() const override { return "set, stop, dispatch"; }
  void insert() override {
    for (const std::uint32_t i : load_.order) {
      st_wlan_ref_cleanup_timer_timer_set(owners_.handle, 0, owners_.queue, owners_.at[i],
                                          static_cast<std::int32_t>(load_.ago[i].tv_sec),
                                          static_cast<std::int32_t>(load_.ago[i].tv_usec), 0, 0, nullptr, &owners_.err);
    }
  }
  void stop() override {
    for (const std::uint32_t i : load_.order)
      st_wlan_ref_cleanup_timer_timer_stop(owners_.handle, 0, owners_.queue, owners_.at[i], nullptr, &owners_.err);
  }
  void pop() override {
    while (wlan_timer_dispatch(owners_.handle, 0, owners_.queue, nullptr, nullptr, &owners_.err)) {
    }
    expect(owners_.err == 0, "an error of ours");
  }

 private:
  Owners owners_;
};

class Libevent final : public Peer {
 public:
  explicit Libevent(const Load& load) : Peer(load), base_(event_base_new()), owners_(load.size) {
    for (auto& owner : owners_) {
      owner = std::make_unique<Owner>();
      evtimer_assign(
          &owner->timer, base_, [](evutil_socket_t, short, void*) { ++fired; }, nullptr);
    }
  }
  ~Libevent() override { event_base_free(base_); }
  const char* name() const override { return "libevent"; }
  void insert() override {
    for (const std::uint32_t i : load_.order) evtimer_add(&owners_[i]->timer, &load_.ago[i]);
  }
  void stop() override {
    for (const std::uint32_t i : load_.order) evtimer_del(&owners_[i]->timer);
  }
  void pop() override { event_base_loop(base_, EVLOOP_NONBLOCK); }

 private:
  struct Owner {
    char rest[kOwner - sizeof(event)];
    event timer;
  };
  event_base* base_;
  std::vector<std::unique_ptr<Owner>> owners_;
};

class RbTree final : public Peer {
 public:
  explicit RbTree(const Load& load) : Peer(load), owners_(load.size) {
    for (auto& owner : owners_) owner = std::make_unique<Owner>();
  }
  const char* name() const override { return "boost::intrusive::rbtree"; }
  void insert() override {
    for (const std::uint32_t i : load_.order) {
      Timer& timer = owners_[i]->timer;
      timer.due = load_.ago[i];
      tree_.insert_equal(timer);
    }
  }
  void stop() override {
    for (const std::uint32_t i : load_.order) tree_.erase(tree_.iterator_to(owners_[i]->timer));
  }
  void pop() override {
    for (; !tree_.empty(); ++fired) tree_.erase(tree_.begin());
  }

 private:
  struct Timer : boost::intrusive::set_base_hook<> {
    timeval due;
    bool operator<(const Timer& other) const {
      return due.tv_sec != other.due.tv_sec ? due.tv_sec < other.due.tv_sec : due.tv_usec < other.due.tv_usec;
    }
  };
  struct Owner {
    char rest[kOwner - sizeof(Timer)];
    Timer timer;
  };
  boost::intrusive::rbtree<Timer> tree_;
  std::vector<std::unique_ptr<Owner>> owners_;
};

double processor_ns() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

void measure(std::size_t size, int rounds) {
  Load load(size);
  std::vector<std::unique_ptr<Peer>> peers;
  peers.push_back(std::make_unique<Tree>(load));
  peers.push_back(std::make_unique<Timers>(load));
  peers.push_back(std::make_unique<Libevent>(load));
  peers.push_back(std::make_unique<RbTree>(load));
  std::vector<std::vector<double>> best(peers.size(),
                                        std::vector<double>(kOps, std::numeric_limits<double>::infinity()));
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t p = 0; p < peers.size(); ++p) {
      const auto timed = [&](Op op, void (Peer::*work)()) {
        const double from = processor_ns();
        (peers[p].get()->*work)();
        best[p][op] = std::min(best[p][op], (processor_ns() - from) / static_cast<double>(size));
      };
      // The first pass has the caches to itself again.
      for (int pass = 0; pass < 2; ++pass) {
        load.renew();
        timed(kInsert, &Peer::insert);
        timed(kStop, &Peer::stop);
        load.renew();
        timed(kInsert, &Peer::insert);
        fired = 0;
        timed(kPop, &Peer::pop);
        expect(fired == size, "not every timer came");
      }
    }
  }
  std::printf("\n%zu armed timers, ns each\n%-26s", size, "");
  for (const char* op : kOpNames) std::printf("%10s", op);
  std::printf("%14s\n", "insert + pop");
  for (std::size_t p = 0; p < peers.size(); ++p) {
    std::printf("%-26s", peers[p]->name());
    for (const double ns : best[p]) std::printf("%10.0f", ns);
    std::printf("%14.0f\n", best[p][kInsert] + best[p][kPop]);
  }
}

}  // namespace

extern "C" int32_t st_wlan_ref_cleanup_timer_timer_callback(kvt_handle*, void*, void*, int32_t*, int32_t*, int*) {
  ++fired;
  return 0;
}

int main(int count, char** arguments) {
  const int rounds = count > 1 ? std::atoi(arguments[1]) : 20;
  for (const std::size_t size : kSizes) measure(size, size < 10000 ? rounds * 20 : rounds);
}
