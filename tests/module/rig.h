// A watched handle, and objects that are filled and read through the published tables: setters write, offsets read.
#pragma once

#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <set>
#include <unordered_map>
#include <utility>

#include "catalogue.h"

namespace module_test {

enum class Tracking { kAbsent = 0, kOn = KVT_STTR_ON, kOff = KVT_STTR_OFF };
enum class Place { kPrivate, kDatabase };
inline constexpr Tracking kTrackings[] = {Tracking::kAbsent, Tracking::kOff, Tracking::kOn};
// kNot: a handle as users have it; with its own announcements the library may leave out what nobody would hear.
enum class Watch { kAll, kNot };
inline constexpr Place kPlaces[] = {Place::kPrivate, Place::kDatabase};

// A handle with a book of the blocks that it gave out and of what was announced. It ends with an error slot that must
// be clear; a database is thrown away with its transaction open.
class Rig {
 public:
  explicit Rig(Tracking tracking = Tracking::kAbsent, Place place = Place::kPrivate, Watch watch = Watch::kAll)
      : tracking_(tracking) {
    kvt_handle_options options;
    kvt_handle_options_init(&options);
    options.tracking = static_cast<int>(tracking);
    int error = 0;
    if (place == Place::kPrivate) {
      h = kvt_handle_open_private(&options, &error);
    } else {
      std::string pattern = (std::filesystem::temp_directory_path() / "module_test_XXXXXX").string();
      directory_ = mkdtemp(pattern.data());
      options.create = 1;
      h = kvt_handle_open_database((directory_ + "/db").c_str(), &options, &error);
    }
    if (!h) {
      std::cerr << "no handle: " << strerror(error) << std::endl;
      std::abort();
    }
    txn = kvtdb_txn_begin(h, &error);
    alloc_ = h->store_alloc;
    free_ = h->store_free;
    registry_alloc_ = h->registry_alloc;
    range_ = h->set_range;
    by_store()[h->store] = this;
    if (watch == Watch::kNot) return;
    h->store_alloc = [](void* store, std::uint32_t txn, std::uint32_t size) -> void* {
      Rig* rig = by_store()[store];
      if (rig->refused()) return nullptr;
      void* block = rig->alloc_(store, txn, size);
      std::memset(block, 0xDD, size);
      rig->blocks[static_cast<char*>(block)] = size;
      rig->given_anew.insert(static_cast<char*>(block));
      return block;
    };
    h->registry_alloc = [](void* pool, std::uint32_t txn, std::uint32_t size) -> void* {
      Rig* rig = by_store()[pool];
      return rig->refused() ? nullptr : rig->registry_alloc_(pool, txn, size);
    };
    h->store_free = [](void* store, std::uint32_t txn, void* block) {
      Rig* rig = by_store()[store];
      ASSERT_EQ(rig->blocks.erase(static_cast<char*>(block)), 1u) << "freed twice, or never given out";
      rig->free_(store, txn, block);
    };
    h->set_range = [](kvt_handle* handle, void* at, std::uint32_t length, std::uint32_t txn, void* owner) {
      Rig* rig = by_store()[handle->store];
      rig->announced.push_back({static_cast<char*>(at), length});
      return rig->range_(handle, at, length, txn, owner);
    };
  }
  ~Rig() {
    EXPECT_EQ(err, 0) << "left in the error slot";
    by_store().erase(h->store);
    kvt_handle_close(h);
    if (!directory_.empty()) std::filesystem::remove_all(directory_);
  }
  Rig(const Rig&) = delete;
  Rig& operator=(const Rig&) = delete;

  bool tracked() const { return tracking_ == Tracking::kOn; }
  // The slot's content; clears it.
  int take_err() { return std::exchange(err, 0); }

  char* make(const Type& type) {
    auto* object = static_cast<char*>(fn<Create>(type.name + "_create")(h, txn));
    EXPECT_NE(object, nullptr) << type.name;
    return object;
  }
  void destroy(const Type& type, void* object) { fn<Destroy>(type.name + "_destroy")(h, txn, object); }

  struct Range {
    char* at;
    std::uint32_t length;
  };
  kvt_handle* h = nullptr;
  Txn txn = 0;
  int err = 0;
  std::map<char*, std::uint32_t> blocks;
  std::set<char*> given_anew;  // blocks given out since it was cleared
  std::vector<Range> announced;
  int fail_after = -1;  // allocations to let pass before one fails; -1: none fails

 private:
  bool refused() { return fail_after >= 0 && fail_after-- == 0; }
  static std::unordered_map<void*, Rig*>& by_store() {
    static std::unordered_map<void*, Rig*> rigs;
    return rigs;
  }
  Tracking tracking_;
  std::string directory_;
  decltype(kvt_handle::store_alloc) alloc_;
  decltype(kvt_handle::store_free) free_;
  decltype(kvt_handle::registry_alloc) registry_alloc_;
  decltype(kvt_handle::set_range) range_;
};

// Runs `operation` and names the first byte of a block, there before and after, that changed without an announcement.
inline testing::AssertionResult announces_all(Rig& rig, const std::function<void()>& operation) {
  std::map<char*, std::string> before;
  for (const auto& [at, size] : rig.blocks) before[at] = std::string(at, size);
  rig.announced.clear();
  rig.given_anew.clear();
  operation();
  for (const auto& [at, bytes] : before) {
    if (!rig.blocks.count(at) || rig.given_anew.count(at)) continue;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      const char* byte = at + i;
      if (*byte == bytes[i]) continue;
      if (std::none_of(rig.announced.begin(), rig.announced.end(),
                       [&](const Rig::Range& r) { return r.at <= byte && byte < r.at + r.length; })) {
        return testing::AssertionFailure()
               << "byte " << i << " of a block of " << bytes.size() << " changed unannounced";
      }
    }
  }
  return testing::AssertionSuccess();
}

// A field of an object, also of a nested one, as the tables place it.
struct Slot {
  std::string path;
  const Type* owner;
  const Field* field;
  char* object;         // that holds the field
  int variant;          // the highest on the way from the top
  std::uint32_t state;  // index in the block of the top-level object
  char* at() const { return object + field->offset; }
};

inline void collect_slots(const Type& type, char* object, const std::string& prefix, int variant, std::uint32_t state,
                          std::vector<Slot>& out) {
  for (const Field& f : type.fields) {
    const int own = std::max(variant, f.variant);
    out.push_back({prefix + f.name, &type, &f, object, own, state + f.state});
    if (kind_of(f) == Kind::kStruct) {
      collect_slots(type_of(f.kind), object + f.offset, prefix + f.name + ".", own, state + f.state + 1, out);
    }
  }
}
inline std::vector<Slot> slots_of(const Type& type, void* object) {
  std::vector<Slot> slots;
  collect_slots(type, static_cast<char*>(object), type.name + ".", 0, 0, slots);
  return slots;
}

template <class T>
T load(const void* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

// What the field of a slot holds, as text.
inline std::string content_of(const Slot& slot) {
  const char* at = slot.at();
  const std::string& kind = slot.field->kind;
  switch (kind_of(*slot.field)) {
    case Kind::kFlag:
      return std::to_string(at[7]);
    case Kind::kReference:
      return std::string(at + 8, 40);
    case Kind::kTimer:
      return std::string(at, 64);
    case Kind::kStruct:
      return "";
    case Kind::kString:
      if (kind == "kvt_aes_vstring") {
        char text[128];
        const std::int64_t length = kvt_aes_vstring_text(at, text, sizeof text);
        return std::string(text, static_cast<std::size_t>(std::max<std::int64_t>(length, 0)));
      }
      return std::string(kvt_vstring_text(at), kvt_vstring_length(at));
    default:
      return with_value_type(*slot.field, [&](auto v) {
        return std::to_string(load<decltype(v)>(slot.object + value_offset(*slot.field)));
      });
  }
}

using Contents = std::map<std::string, std::string>;
// The content of all fields up to a variant, by path.
inline Contents contents_of(const Type& type, void* object, int variant = 127) {
  Contents contents;
  for (const Slot& slot : slots_of(type, object)) {
    if (slot.variant <= variant) contents[slot.path] = content_of(slot);
  }
  return contents;
}

// A value for the field with that number in an object; two seeds of different parity give it different content.
inline std::uint64_t sample(const Field& f, std::uint64_t number, std::uint64_t seed) {
  if (kind_of(f) != Kind::kInteger) return (number + seed) & 1;
  const std::uint64_t wide = (number * 2 + seed) * 0x9E3779B97F4A7C15u | 1u;
  return (f.width == 8 ? wide : wide & ((std::uint64_t{1} << 8 * f.width) - 1)) ^ (seed & 1 ? 0 : 3);
}
inline std::string sample_text(std::uint64_t number, std::uint64_t seed) {
  return "text <" + std::to_string(number) + "> & " + std::to_string(seed);
}

// A field of a string type that stands alone.
class StandaloneString {
 public:
  StandaloneString(Rig& rig, const std::string& kind, const std::string& text) : rig_(rig), kind_(kind) {
    fn<void(H, Txn, void*, const void*, std::size_t, int*)>(kind + "_assign")(rig.h, rig.txn, words_, text.data(),
                                                                              text.size(), &rig.err);
  }
  ~StandaloneString() { fn<void(H, Txn, void*, int)>(kind_ + "_destroy_internal")(rig_.h, rig_.txn, words_, 0); }
  StandaloneString(const StandaloneString&) = delete;
  StandaloneString& operator=(const StandaloneString&) = delete;
  operator const void*() const { return words_; }

 private:
  Rig& rig_;
  std::string kind_;
  std::uint32_t words_[3] = {};
};

// Gives a field other content through the operations that it has. References and timers have no setter: their bytes.
inline void fill_slot(Rig& rig, const Slot& slot, std::uint64_t number, std::uint64_t seed) {
  const Field& f = *slot.field;
  const std::string name = slot.owner->name + "_" + f.name;
  switch (kind_of(f)) {
    case Kind::kString: {
      const StandaloneString source(rig, f.kind, sample_text(number, seed));
      fn<Set>(name + "_set")(rig.h, rig.txn, slot.object, source, &rig.err);
      break;
    }
    case Kind::kFlag:
      fn<void(H, Txn, void*, std::uint32_t, std::uint32_t, int*)>(f.kind + "_set_value")(
          rig.h, rig.txn, fn<Get>(name + "_get")(rig.h, rig.txn, slot.object, &rig.err), 0, (number + seed) & 1,
          &rig.err);
      break;
    case Kind::kReference:
      rig.h->set_range(rig.h, slot.at() + 8, 40, rig.txn, nullptr);
      for (int i = 0; i < 40; ++i) slot.at()[8 + i] = static_cast<char>(number * 2 + seed + static_cast<unsigned>(i));
      break;
    case Kind::kTimer:
    case Kind::kStruct:
      break;
    default:
      call_set_value(*slot.owner, f, rig.h, rig.txn, slot.object, sample(f, number, seed), &rig.err);
  }
}

inline void fill(Rig& rig, const Type& type, void* object, std::uint64_t seed, int variant = 127) {
  std::uint64_t number = 0;
  for (const Slot& slot : slots_of(type, object)) {
    ++number;
    if (slot.variant <= variant) fill_slot(rig, slot, number, seed);
    EXPECT_EQ(rig.take_err(), 0) << slot.path;
  }
}

// Limits all types of the module that have later variants.
inline void limit_domain(Rig& rig, int variant) {
  for (const Type& type : all_types()) {
    if (type.top() > 0) kvt_domain_set_variant(rig.h, record_of(type.name), variant);
  }
}

inline std::string name_of(Tracking tracking) {
  return tracking == Tracking::kAbsent ? "absent" : tracking == Tracking::kOff ? "off" : "on";
}
inline std::string name_of(Place place) { return place == Place::kPrivate ? "private" : "database"; }

}  // namespace module_test
