// What a handle's runtime and store hear while an operation runs, in order, and the memory of chosen objects at each
// step: a byte may change only directly behind an announcement that covers it.
#pragma once

#include "rig.h"

namespace module_test {

class Journal {
 public:
  struct Event {
    std::string what;  // "range", "counter", "report", "dirty", "destroy", "alloc", "free", "trace"
    const char* at;
    const char* other;  // owner of a range, parent of a report
    std::uint32_t length;
    std::uint32_t txn;
    int err, last_error;  // then
    std::string text;     // of a trace line
  };

  explicit Journal(Rig& rig) : rig_(rig), h_(rig.h) {
    current_ = this;
    alloc_ = h_->store_alloc;
    free_ = h_->store_free;
    range_ = h_->set_range;
    counter_ = h_->set_counter;
    h_->store_alloc = [](void* store, std::uint32_t txn, std::uint32_t size) -> void* {
      Journal& j = *current_;
      auto* block = static_cast<char*>(j.alloc_(store, txn, size));
      j.hear({"alloc", block, nullptr, size, txn, 0, 0, ""});
      if (block && size == j.new_size_) j.watch(block, "new");
      return block;
    };
    h_->store_free = [](void* store, std::uint32_t txn, void* block) {
      Journal& j = *current_;
      j.hear({"free", static_cast<char*>(block), nullptr, 0, txn, 0, 0, ""});
      j.watched_.erase(static_cast<char*>(block));
      j.free_(store, txn, block);
    };
    h_->set_range = [](kvt_handle* h, void* at, std::uint32_t length, std::uint32_t txn, void* owner) {
      Journal& j = *current_;
      j.hear({"range", static_cast<char*>(at), static_cast<char*>(owner), length, txn, 0, 0, ""});
      j.open_ = static_cast<char*>(at);
      j.open_length_ = length;
      return j.range_(h, at, length, txn, owner);
    };
    h_->set_counter = [](kvt_handle* h, void* at, std::uint64_t amount, std::uint32_t txn) {
      Journal& j = *current_;
      j.hear({"counter", static_cast<char*>(at), nullptr, static_cast<std::uint32_t>(amount), txn, 0, 0, ""});
      j.counter_at_ = at;
      j.counter_after_ = load<std::uint64_t>(at) + amount;
      return j.counter_(h, at, amount, txn);
    };
    const kvt_observer observer{
        this,
        [](void* j, int, void* child, void* parent) {
          static_cast<Journal*>(j)->hear(
              {"report", static_cast<char*>(child), static_cast<char*>(parent), 0, KVT_NO_TXN, 0, 0, ""});
        },
        [](void* j, std::uint32_t txn, void* object) {
          static_cast<Journal*>(j)->hear({"dirty", static_cast<char*>(object), nullptr, 0, txn, 0, 0, ""});
        },
        [](void* j, std::uint32_t txn, void* object) {
          static_cast<Journal*>(j)->hear({"destroy", static_cast<char*>(object), nullptr, 0, txn, 0, 0, ""});
        },
        nullptr};
    kvt_observe(h_, &observer);
    fenlog_set_sink(
        [](void* j, std::uint32_t level, const char* line) {
          static_cast<Journal*>(j)->hear({"trace", nullptr, nullptr, level >> 24, KVT_NO_TXN, 0, 0, line});
        },
        this);
  }
  ~Journal() {
    fenlog_set_sink(nullptr, nullptr);
    kvt_observe(h_, nullptr);
    h_->store_alloc = alloc_;
    h_->store_free = free_;
    h_->set_range = range_;
    h_->set_counter = counter_;
  }
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  // From now on the block's bytes are looked at, and addresses in it have its name.
  void watch(char* block, const std::string& name) { watched_[block] = {name, std::string(block, rig_.blocks[block])}; }
  void unwatch() { watched_.clear(); }
  // New blocks of that size are watched too; 0: none.
  void watch_new(std::uint32_t size) { new_size_ = size; }
  // Bytes that may change unannounced.
  void allow(const char* at, std::uint32_t length) { allowed_.push_back({at, length}); }

  void begin() {
    events.clear();
    allowed_.clear();
    counter_at_ = nullptr;
    first_.clear();
    stray.clear();
    open_length_ = 0;
    running_ = true;
    for (auto& [at, block] : watched_) block.bytes.assign(at, block.bytes.size());
  }
  void end() {
    look();
    running_ = false;
  }

  // The events as lines; addresses by the names of watched blocks, events of other addresses are left out.
  std::vector<std::string> lines(const std::map<const char*, std::string>& counter_names) const {
    std::vector<std::string> out;
    for (const Event& e : events) {
      std::string line = e.what + " ";
      if (e.what == "trace") {
        if (e.length > 3) continue;
        line += std::to_string(e.length) + " " + e.text;
      } else if (e.what == "counter") {
        const auto name = counter_names.find(e.at);
        line += name == counter_names.end() ? "?" : name->second;
      } else {
        const std::string name = name_of_address(e.at);
        if (name.empty()) continue;
        line += name;
        if (e.what == "range") line += " " + std::to_string(e.length);
        if (e.what == "report") line += " in " + name_of_address(e.other);
        if (e.what == "range" && e.other) line += " of " + name_of_address(e.other);
      }
      out.push_back(line);
    }
    return out;
  }
  std::string name_of_address(const char* at) const {
    if (!at) return "null";
    for (const auto& [name, block, size] : names_) {
      if (block <= at && at < block + size) return name + "+" + std::to_string(at - block);
    }
    return "";
  }
  void name(const char* at, std::uint32_t size, const std::string& name) {
    names_.insert(names_.begin(), {name, at, size});
  }
  void forget_names() { names_.clear(); }
  // What a watched new block held at the first event after it was given out.
  std::string first_seen(const char* block) const { return first_.count(block) ? first_.at(block) : ""; }

  std::vector<Event> events;
  std::string stray;                       // bytes that changed when they should not
  std::function<void(const Event&)> hook;  // called at each event

 private:
  struct Watched {
    std::string name, bytes;
    bool seen = true;
  };
  struct Name {
    std::string name;
    const char* at;
    std::uint32_t size;
  };

  void hear(Event event) {
    if (!running_) return;
    look();
    event.err = rig_.err;
    event.last_error = h_->last_error;
    events.push_back(event);
    if (hook) hook(event);
  }
  // Compares the watched blocks with the last picture of them, and takes a new one.
  void look() {
    for (auto& [at, block] : watched_) {
      if (block.name == "new" && !first_.count(at)) {
        first_[at] = std::string(at, block.bytes.size());
      } else if (std::memcmp(at, block.bytes.data(), block.bytes.size()) != 0) {
        for (std::size_t i = 0; i < block.bytes.size(); ++i) {
          const char* byte = at + i;
          if (*byte == block.bytes[i] || (open_ <= byte && byte < open_ + open_length_)) continue;
          if (std::any_of(allowed_.begin(), allowed_.end(),
                          [&](const auto& a) { return a.first <= byte && byte < a.first + a.second; })) {
            continue;
          }
          stray += block.name + "+" + std::to_string(i) + " before event " + std::to_string(events.size()) + "; ";
        }
      }
      block.bytes.assign(at, block.bytes.size());
    }
    open_length_ = 0;
    if (counter_at_ && load<std::uint64_t>(counter_at_) != counter_after_) stray += "a counter did not grow; ";
    counter_at_ = nullptr;
  }

  static inline Journal* current_;
  Rig& rig_;
  kvt_handle* h_;
  bool running_ = false;
  std::uint32_t new_size_ = 0;
  const char* open_ = nullptr;  // the range announced last, when nothing else was heard since
  std::uint32_t open_length_ = 0;
  std::map<char*, Watched> watched_;
  std::map<const char*, std::string> first_;
  std::vector<Name> names_;
  std::vector<std::pair<const char*, std::uint32_t>> allowed_;
  const void* counter_at_ = nullptr;  // announced last
  std::uint64_t counter_after_ = 0;
  decltype(kvt_handle::store_alloc) alloc_;
  decltype(kvt_handle::store_free) free_;
  decltype(kvt_handle::set_range) range_;
  decltype(kvt_handle::set_counter) counter_;
};

}  // namespace module_test
