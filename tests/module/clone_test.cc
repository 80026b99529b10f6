// Tests of the copies of all types that go by way of the binary form.
#include <future>
#include <thread>

#include "rig.h"

namespace module_test {
namespace {

std::vector<std::uint8_t> scratch_for(Rig& rig, const Type& type, const void* object) {
  return std::vector<std::uint8_t>(fn<Len>(type.name + "_len")(rig.h, rig.txn, object));
}

void* clone(Rig& rig, const Type& type, const void* source, void* slot = nullptr, const char* form = "_clone") {
  std::vector<std::uint8_t> scratch = scratch_for(rig, type, source);
  fn<Clone>(type.name + form)(rig.h, rig.txn, source, &slot, scratch.data(), static_cast<std::int32_t>(scratch.size()),
                              &rig.err);
  return slot;
}

// Strings of the module's types that end up in one block are told by it.
void expect_no_shared_content(const Type& type, void* a, void* b) {
  const auto slots_a = slots_of(type, a), slots_b = slots_of(type, b);
  for (std::size_t i = 0; i < slots_a.size(); ++i) {
    if (kind_of(*slots_a[i].field) != Kind::kString) continue;
    EXPECT_NE(load<std::uint32_t>(slots_a[i].at()), 0u) << slots_a[i].path;
    EXPECT_NE(load<std::uint32_t>(slots_a[i].at()), load<std::uint32_t>(slots_b[i].at())) << slots_a[i].path;
  }
}

TEST(Clone, EqualsItsSourceAndSharesNothingWithIt) {
  for (Place place : kPlaces) {
    for (Tracking tracking : kTrackings) {
      Rig rig(tracking, place);
      for (const Type& type : all_types()) {
        SCOPED_TRACE(type.name + " in " + name_of(place) + ", tracking " + name_of(tracking));
        char* source = rig.make(type);
        fill(rig, type, source, 1);
        const std::uint32_t block = rig.tracked() ? type.block.back() : 0;
        for (std::uint32_t i = 0; i < block; ++i) source[type.size.back() + i] = static_cast<char>(1 + i % 89);
        std::string states(source + type.size.back(), block);
        // A timer's state has no form either. And the reader's room is what was written: behind a reference at the very
        // end one byte is no room for its state.
        for (const Field& f : type.fields) {
          const bool last_reference = kind_of(f) == Kind::kReference && &f == &type.fields.back();
          if (block && (last_reference || kind_of(f) == Kind::kTimer)) states[f.state] = 0;
        }
        source[6] |= KVT_OBJ_EMBEDDED;
        const Contents contents = contents_of(type, source);
        auto* copy = static_cast<char*>(clone(rig, type, source));
        auto* copy_cr = static_cast<char*>(fn<CloneCr>(type.name + "_clone_cr")(rig.h, source));
        EXPECT_EQ(rig.take_err(), 0);
        EXPECT_EQ(rig.h->last_error, 0);
        ASSERT_NE(copy, nullptr);
        ASSERT_NE(copy_cr, nullptr);
        expect_no_shared_content(type, source, copy);
        expect_no_shared_content(type, copy, copy_cr);
        EXPECT_EQ(fn<Compare>(type.name + "_compare")(copy, source), 0);
        EXPECT_EQ(fn<Hash>(type.name + "_hash")(copy, 3), fn<Hash>(type.name + "_hash")(source, 3));
        rig.destroy(type, source);
        for (char* made : {copy, copy_cr}) {
          EXPECT_EQ(contents_of(type, made), contents);
          EXPECT_EQ(made[4], type.top());
          EXPECT_EQ(made[6], rig.tracked() ? KVT_OBJ_STATE_TRACKED : 0);
          EXPECT_EQ(std::string(made + type.size.back(), block), states);
          EXPECT_EQ(kvt_get_luid(rig.h, rig.txn, made, &rig.err),
                    fn<GetLuid>(type.name + "_get_luid")(rig.h, rig.txn, made, &rig.err));
          rig.destroy(type, made);
        }
        EXPECT_TRUE(rig.blocks.empty());
      }
    }
  }
}

// All counters of the module's types, in turn.
std::vector<std::uint64_t> statistics() {
  std::vector<std::uint64_t> counters;
  std::vector<std::string> names = {"st_apf_vap_802_11bg"};
  for (const Type& type : all_types()) names.push_back(type.name);
  for (const std::string& name : names) {
    const kvt_variant_data* varinfo = kvt_varinfo_of(record_of(name));
    for (int v = 0; v < varinfo->n_variants; ++v) {
      const kvt_variant_entry& entry = kvt_variant_entries(varinfo)[v];
      counters.insert(counters.end(), {entry.created, entry.destroyed});
    }
  }
  return counters;
}

// Everything that is left of making, filling, changing, copying and destroying an object, as numbers and text.
std::vector<std::string> life_of(const Type& type, Tracking tracking, Watch watch, int change) {
  Rig rig(tracking, Place::kPrivate, watch);
  const std::vector<std::uint64_t> before = statistics();
  std::vector<std::string> seen;
  kvt_oid_value oid{};
  auto see = [&](char* object) {
    seen.push_back(std::to_string(rig.h->last_error) + " " + std::to_string(rig.take_err()));
    if (!object) return;
    std::string bytes(object, type.size.back());
    for (const Slot& slot : slots_of(type, object)) {
      const Kind kind = kind_of(*slot.field);
      char* at = &bytes[static_cast<std::size_t>(slot.at() - object)];
      if (kind == Kind::kString) {  // where the content lies doesn't matter, nor which identity the target has
        seen.push_back(content_of(slot));
        std::memset(at, load<std::uint32_t>(at) != 0, 4);
      } else if (kind == Kind::kReference) {
        std::memset(at + 8, std::memcmp(at + 8, &oid, sizeof oid) == 0, sizeof oid);
      }
    }
    seen.push_back(bytes);
  };
  char* target = rig.make(type);
  char* source = rig.make(type);
  see(source);
  fill(rig, type, source, 1);
  oid = kvt_handle_to_oid(rig.h, rig.txn, target, 2, 0, &rig.err);
  const char* entry = static_cast<char*>(kvtlib_oid_id_mapping_get(rig.h, rig.txn, &oid, &rig.err));
  for (const Slot& slot : slots_of(type, source)) {
    const Kind kind = kind_of(*slot.field);
    if (kind == Kind::kReference) std::memcpy(slot.at() + 8, &oid, sizeof oid);
    if (change == 1 && kind == Kind::kBoolean) *slot.at() = 5;
    if (change == 2 && kind == Kind::kStruct) slot.at()[4] = 0;
    if (change == 3 && kind == Kind::kTimer) std::memset(slot.at(), 1, 64);
    if (change == 4 && kind == Kind::kStruct) slot.at()[6] |= KVT_OBJ_RA_DATA;
  }
  if (change == 5) fn<void(H, Txn, void*)>(type.name + "_set_instance_embedded")(rig.h, rig.txn, source);
  if (change == 6) source[4] = -1;
  const std::vector<std::uint8_t> need = scratch_for(rig, type, source);
  for (const std::size_t length : {need.size(), need.size() * 4}) {
    std::vector<std::uint8_t> scratch(length);
    void* slot = nullptr;
    fn<Clone>(type.name + "_clone")(rig.h, rig.txn, source, &slot, scratch.data(), static_cast<std::int32_t>(length),
                                    &rig.err);
    see(static_cast<char*>(slot));
    seen.push_back("references " + std::to_string(load<std::uint32_t>(entry + 4)));
    rig.destroy(type, slot);
  }
  rig.destroy(type, source);
  std::vector<std::uint64_t> counted = statistics();
  for (std::size_t i = 0; i < counted.size(); ++i) seen.push_back(std::to_string(counted[i] - before[i]));
  return seen;
}

TEST(Clone, UnwatchedEndsAsAWatchedOneDoes) {
  std::promise<void> end;
  std::thread idle;
  for (const bool threads : {false, true}) {
    if (threads) idle = std::thread([&] { end.get_future().wait(); });
    for (const Type& type : all_types()) {
      for (const Tracking tracking : {Tracking::kAbsent, Tracking::kOff}) {
        for (int change = 0; change <= 6; ++change) {
          EXPECT_EQ(life_of(type, tracking, Watch::kNot, change), life_of(type, tracking, Watch::kAll, change))
              << type.name << ", tracking " << name_of(tracking) << ", change " << change;
        }
      }
    }
  }
  end.set_value();
  idle.join();
}

TEST(Clone, WhereTheStoreIsExhaustedNothingIsLeft) {
  for (Place place : kPlaces) {
    for (const Type& type : all_types()) {
      // Each round takes a database of its own; what is there beyond a private store doesn't depend on the type.
      if (place == Place::kDatabase && type.name != "wpa_psk_type" && type.name != "st_mpsk_key_info") continue;
      bool all_passed = false;
      for (int failures = 0; !all_passed; ++failures) {
        SCOPED_TRACE(type.name + " in " + name_of(place) + ", failure " + std::to_string(failures));
        Rig rig(Tracking::kOn, place);
        char* source = rig.make(type);
        fill(rig, type, source, 1);
        const Contents contents = contents_of(type, source);
        const auto blocks = rig.blocks;
        rig.fail_after = failures;
        void* made = failures % 2 ? clone(rig, type, source) : fn<CloneCr>(type.name + "_clone_cr")(rig.h, source);
        all_passed = rig.fail_after >= 0;
        rig.fail_after = -1;
        EXPECT_EQ(made != nullptr, all_passed);
        EXPECT_EQ(rig.h->last_error, all_passed ? 0 : 12);
        rig.take_err();
        if (made) rig.destroy(type, made);
        EXPECT_EQ(rig.blocks, blocks);
        EXPECT_EQ(contents_of(type, source), contents);
        if (testing::Test::HasFailure()) return;
      }
    }
  }
}

TEST(Clone, ATooShortBufferLeavesTheSlotAlone) {
  for (const Type& type : all_types()) {
    Rig rig;
    char* source = rig.make(type);
    fill(rig, type, source, 1);
    const std::vector<std::uint8_t> scratch = scratch_for(rig, type, source);
    const auto blocks = rig.blocks;
    for (std::size_t length = 0; length < scratch.size(); length += 1 + length / 64) {
      std::vector<std::uint8_t> exact(length + (length == 0));
      void* const before = source;
      void* slot = before;
      fn<Clone>(type.name + "_clone_internal")(rig.h, rig.txn, source, &slot, exact.data(),
                                               static_cast<std::int32_t>(length), &rig.err);
      EXPECT_EQ(rig.take_err(), 90) << type.name << length;
      EXPECT_EQ(slot, before);
      EXPECT_EQ(rig.blocks, blocks) << type.name << length;
    }
    rig.destroy(type, source);
  }
}

TEST(Clone, WithoutSlotOrBufferOrWithAnErrorPendingDoesNothing) {
  for (const Type& type : all_types()) {
    Rig rig;
    char* source = rig.make(type);
    const auto blocks = rig.blocks;
    std::uint8_t buffer[8];
    void* slot = nullptr;
    for (const char* form : {"_clone", "_clone_internal"}) {
      const auto run = fn<Clone>(type.name + form);
      run(rig.h, rig.txn, source, nullptr, buffer, 8, &rig.err);
      EXPECT_EQ(rig.take_err(), 2) << type.name << form;
      EXPECT_EQ(std::exchange(rig.h->last_error, 0), 2);
      run(rig.h, rig.txn, source, &slot, nullptr, 8, &rig.err);
      EXPECT_EQ(rig.take_err(), 2) << type.name << form;
      rig.err = 5;
      rig.h->last_error = 6;
      run(rig.h, rig.txn, source, &slot, buffer, 8, &rig.err);
      EXPECT_EQ(rig.take_err(), 5);
      EXPECT_EQ(rig.h->last_error, 6);
    }
    EXPECT_EQ(fn<CloneCr>(type.name + "_clone_cr")(rig.h, source), nullptr);
    EXPECT_EQ(rig.h->last_error, 6);
    EXPECT_EQ(rig.blocks, blocks);
  }
}

TEST(Clone, WhatIsInTheSlotIsOverwrittenOrWrittenTo) {
  for (Tracking tracking : kTrackings) {
    for (const Type& type : all_types()) {
      SCOPED_TRACE(type.name + " tracking " + name_of(tracking));
      Rig rig(tracking);
      char* source = rig.make(type);
      fill(rig, type, source, 1);
      char* target = rig.make(type);
      fill(rig, type, target, 2);
      const Contents before = contents_of(type, target);
      void* made = clone(rig, type, source, target);
      EXPECT_NE(made, target);
      EXPECT_EQ(contents_of(type, target), before) << "neither read nor destroyed";
      EXPECT_EQ(clone(rig, type, source, target, "_clone_internal"), target);
      EXPECT_EQ(rig.take_err(), 0);
      EXPECT_EQ(contents_of(type, target), contents_of(type, source));
      // A failure while reading takes the target with it.
      rig.fail_after = 0;
      void* left = clone(rig, type, source, target, "_clone_internal");
      const bool failed = rig.fail_after < 0;
      rig.fail_after = -1;
      EXPECT_EQ(rig.take_err(), failed ? 12 : 0);
      EXPECT_EQ(left, failed ? nullptr : target);
      EXPECT_EQ(rig.blocks.count(target), failed ? 0u : 1u);
      if (left) rig.destroy(type, left);
      rig.destroy(type, made);
      rig.destroy(type, source);
      EXPECT_TRUE(rig.blocks.empty());
    }
  }
}

TEST(Clone, TheFailureObjectIsClearedFromTheSlotAndNotDestroyed) {
  Rig rig;
  const Type& type = type_of("st_local_eap_auth");
  rig.fail_after = 0;
  void* failure = st_local_eap_auth_create_cr(rig.h);
  EXPECT_EQ(std::exchange(rig.h->last_error, 0), 12);
  char* source = rig.make(type);
  fill(rig, type, source, 1);
  const auto blocks = rig.blocks;
  rig.fail_after = 0;
  EXPECT_EQ(clone(rig, type, source, failure, "_clone_internal"), nullptr);
  EXPECT_EQ(rig.take_err(), 12);
  EXPECT_EQ(rig.blocks, blocks);
  std::memset(failure, 0, type.size.back());  // other tests rely on it
}

TEST(Clone, GoesAboveTheDomainsVariantAtTheTopOnly) {
  Rig rig;
  const Type& type = type_of("st_wlan");
  char* source = rig.make(type);
  fill(rig, type, source, 1);
  kvt_domain_set_variant(rig.h, record_of("st_wlan"), 1);
  std::vector<std::uint8_t> scratch = scratch_for(rig, type, source);
  const auto length = static_cast<std::int32_t>(scratch.size());
  EXPECT_LT(st_wlan_marshal(rig.h, rig.txn, scratch.data(), source, length, &rig.err), scratch.size());
  EXPECT_EQ(rig.take_err(), 43);
  EXPECT_EQ(st_wlan_marshal_for_clone(rig.h, rig.txn, scratch.data(), source, length, &rig.err), scratch.size());
  EXPECT_EQ(rig.take_err(), 0);
  auto* made = static_cast<char*>(clone(rig, type, source));
  EXPECT_EQ(rig.take_err(), 0);
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made[4], 3);
  EXPECT_EQ(contents_of(type, made), contents_of(type, source));
  kvt_domain_set_variant(rig.h, record_of("st_wpa_wpa2"), 0);
  EXPECT_EQ(clone(rig, type, source), nullptr);
  EXPECT_EQ(rig.take_err(), 43);
  EXPECT_EQ(st_wlan_clone_cr(rig.h, source), nullptr);
  EXPECT_EQ(std::exchange(rig.h->last_error, 0), 43);
}

TEST(Clone, ATimerStaysBehindButNotItsHandle) {
  Rig rig;
  const Type& type = type_of("st_wlan");
  char* source = rig.make(type);
  std::uint32_t timer = 0;
  for (const Field& f : type.fields) {
    if (kind_of(f) == Kind::kTimer) timer = f.offset;
  }
  ASSERT_GT(timer, 0u);
  std::memset(source + timer, 0x11, 64);
  st_wlan_ref_cleanup_timer_hndl_set_value(rig.h, rig.txn, source, 99, &rig.err);
  auto* made = static_cast<char*>(clone(rig, type, source));
  EXPECT_EQ(std::string(made + timer, 64), std::string(64, '\0'));
  EXPECT_EQ(st_wlan_ref_cleanup_timer_hndl_get_value(rig.h, rig.txn, made, &rig.err), 99u);
  EXPECT_GT(st_wlan_compare(source, made), 0);
}

TEST(Clone, ScratchOfTheHandleGrowsWithTheObject) {
  Rig rig;
  const Type& type = type_of("st_local_eap_auth");
  for (std::size_t length :
       {std::size_t{10}, std::size_t{16 * 1024 - 30}, std::size_t{16 * 1024}, std::size_t{3} << 20, std::size_t{5}}) {
    char* source = rig.make(type);
    source[6] |= KVT_OBJ_RA_DATA;  // nine bytes that the length doesn't count
    const std::string text(length, 'x');
    kvt_vstring_assign(rig.h, rig.txn, st_local_eap_auth_profile_name_get(rig.h, rig.txn, source, &rig.err),
                       text.data(), text.size(), &rig.err);
    auto* made = static_cast<char*>(st_local_eap_auth_clone_cr(rig.h, source));
    EXPECT_EQ(rig.h->last_error, 0) << length;
    ASSERT_NE(made, nullptr) << length;
    EXPECT_EQ(st_local_eap_auth_compare(source, made), 0) << length;
    source[6] = made[6] = 0;
    rig.destroy(type, source);
    rig.destroy(type, made);
    EXPECT_TRUE(rig.blocks.empty());
  }
}

}  // namespace
}  // namespace module_test
