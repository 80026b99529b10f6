// What each writer does in its n-th transaction, so that the number of the last one tells all that must be there.
#pragma once

#include <cstdint>
#include <random>
#include <string>

namespace torture {

inline constexpr unsigned kWriters = 4, kItems = 24;

class Model {
 public:
  explicit Model(unsigned writer) : writer_(writer) {}
  std::uint64_t done() const { return done_; }
  // The transaction in which an item got its text; 0: there is no such record.
  std::uint64_t version(unsigned item) const { return versions_[item]; }
  // Calls change(item, version before, version after) for what the next transaction changes.
  template <class Change>
  void step(Change change) {
    std::minstd_rand random(static_cast<std::uint32_t>(++done_ * 7919 + writer_ * 104729));
    random.discard(3);
    const unsigned first = random() % kItems, count = is_large(done_) ? kItems : 1 + random() % 5;
    for (unsigned i = 0; i < count; i++) {
      const unsigned item = (first + i) % kItems;
      const std::uint64_t before = versions_[item], after = before && random() % 3 ? 0 : done_;
      change(item, before, after);
      versions_[item] = after;
    }
  }
  static bool is_large(std::uint64_t transaction) { return transaction % 16 == 0; }
  static bool is_aborted_first(std::uint64_t transaction) { return transaction % 7 == 3; }
  std::uint32_t number(unsigned item) const { return writer_ * 1000 + item; }
  std::string text(unsigned item, std::uint64_t version) const {
    std::string text = std::to_string(number(item)) + "-" + std::to_string(version);
    return text + std::string(version % 40, '.');
  }

 private:
  unsigned writer_;
  std::uint64_t done_ = 0;
  std::uint64_t versions_[kItems] = {};
};

}  // namespace torture
