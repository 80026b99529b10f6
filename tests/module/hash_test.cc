// Tests of the hash of all types, and of compare and hash over objects that an older library built.
#include "guarded_buffer.h"
#include "rig.h"

namespace module_test {
namespace {

// The chain of field hashes as the tables tell it.
std::uint32_t expected_hash(const Type& type, const char* object, std::uint32_t hash) {
  for (const Field& f : type.fields) {
    const char* at = object + f.offset;
    switch (kind_of(f)) {
      case Kind::kInteger:
        hash = SuperFastHash(at, f.width, hash);
        break;
      case Kind::kBoolean:
        hash = SuperFastHash(load<std::uint32_t>(at) ? "\1" : "\0", 1, hash);
        break;
      case Kind::kEnum:
        hash = SuperFastHash(at + 8, 4, hash);
        break;
      case Kind::kFlag:
        hash = SuperFastHash(at + 7, 1, hash);
        break;
      case Kind::kReference:
        hash = SuperFastHash(at + 8, 4, hash);
        break;
      case Kind::kTimer:
        hash = SuperFastHash(at, 32, hash);
        break;
      case Kind::kStruct:
        hash = expected_hash(type_of(f.kind), at, hash);
        break;
      case Kind::kString: {
        const std::string text = content_of({"", &type, &f, const_cast<char*>(object), 0, 0});
        const auto length = static_cast<std::uint32_t>(text.size());
        hash = SuperFastHash(text.data(), length, hash + length);
      }
    }
  }
  return hash;
}

TEST(Hash, IsTheChainOfTheFieldsHashesUnderAnySeed) {
  Rig rig(Tracking::kOn);
  for (const Type& type : all_types()) {
    const auto hash = fn<Hash>(type.name + "_hash");
    char* object = rig.make(type);
    for (std::uint32_t seed : {0u, 1u, 7u, 0x80000000u, 0xFFFFFFFFu}) {
      EXPECT_EQ(hash(nullptr, seed), seed) << type.name;
      EXPECT_EQ(hash(object, seed), expected_hash(type, object, seed)) << type.name << " empty, seed " << seed;
    }
    fill(rig, type, object, 1);
    EXPECT_EQ(hash(object, 5), expected_hash(type, object, 5)) << type.name;
    EXPECT_NE(hash(object, 5), hash(object, 6)) << type.name;
    rig.destroy(type, object);
  }
}

// Stored fingerprints stay good.
TEST(Hash, GoldenValues) {
  Rig rig;
  char* dtim = rig.make(type_of("st_dtim"));
  st_dtim_set_all(rig.h, rig.txn, dtim, 2, 3, &rig.err);
  EXPECT_EQ(st_dtim_hash(dtim, 7), 588732804u);
  EXPECT_EQ(st_dtim_hash(dtim, 7), u_int8_hash(dtim + 8, u_int8_hash(dtim + 7, 7)));
  char* auth = rig.make(type_of("st_local_eap_auth"));
  st_local_eap_auth_enable_set_value(rig.h, rig.txn, auth, 1, &rig.err);
  st_local_eap_auth_profile_name_set(rig.h, rig.txn, auth, StandaloneString(rig, "kvt_vstring", "Library"), &rig.err);
  EXPECT_EQ(st_local_eap_auth_hash(auth, 0), 3393656420u);
}

TEST(Hash, EveryFieldCountsAndEqualObjectsHashAlike) {
  Rig rig(Tracking::kOn);
  for (const Type& type : all_types()) {
    const auto hash = fn<Hash>(type.name + "_hash");
    char* a = rig.make(type);
    char* b = rig.make(type);
    fill(rig, type, a, 1);
    fill(rig, type, b, 1);
    fn<StateAll>(type.name + "_set_all_state_tracking_flag")(rig.h, rig.txn, b, 1);
    b[4] = 0;
    b[6] |= KVT_OBJ_EMBEDDED;
    const std::uint32_t before = hash(a, 7);
    EXPECT_EQ(hash(b, 7), before) << type.name << ": header or states count";
    b[4] = b[5];
    std::uint64_t number = 0;
    for (const Slot& slot : slots_of(type, b)) {
      ++number;
      const Kind kind = kind_of(*slot.field);
      if (kind == Kind::kStruct) continue;
      if (kind == Kind::kTimer) {
        slot.at()[0] ^= 1;
      } else {
        fill_slot(rig, slot, number, 2);
      }
      EXPECT_NE(hash(b, 7), before) << slot.path;
      if (kind == Kind::kTimer) {
        slot.at()[0] ^= 1;
      } else {
        fill_slot(rig, slot, number, 1);
      }
      EXPECT_EQ(hash(b, 7), before) << slot.path;
    }
    rig.destroy(type, a);
    rig.destroy(type, b);
  }
  EXPECT_EQ(rig.take_err(), 0);
}

TEST(Hash, OfAReferenceLooksAtItsFirstFourBytesOnly) {
  Rig rig;
  int references = 0;
  for (const Type& type : all_types()) {
    const auto hash = fn<Hash>(type.name + "_hash");
    char* a = rig.make(type);
    char* b = rig.make(type);
    for (const Slot& slot : slots_of(type, b)) {
      if (kind_of(*slot.field) != Kind::kReference) continue;
      ++references;
      for (int byte = 8; byte < 48; ++byte) {
        slot.at()[byte] ^= 1;
        EXPECT_EQ(hash(a, 7) == hash(b, 7), byte >= 12) << slot.path << " byte " << byte;
        EXPECT_NE(fn<Compare>(type.name + "_compare")(a, b), 0) << slot.path << " byte " << byte;
        slot.at()[byte] ^= 1;
      }
    }
    rig.destroy(type, a);
    rig.destroy(type, b);
  }
  EXPECT_GE(references, 9);
}

TEST(HashScalar, OfEnumeratedAndFlagTypesIsThatOfTheirValue) {
  Rig rig;
  std::vector<std::string> types = {"flg_internal_wlan_radio_policy_notify", "flg_mpsk_key_info_notify",
                                    "flg_wireless_aaa_policy_notify"};
  for (const auto& [type, all] : Catalogue::get().enums) types.push_back(type);
  for (const std::string& type : types) {
    const auto hash = fn<Hash>(type + "_hash");
    char* object = static_cast<char*>(fn<Create>(type + "_create")(rig.h, rig.txn));
    EXPECT_EQ(hash(nullptr, 7), 7u) << type;
    const bool flag = type.starts_with("flg_");
    for (std::uint32_t value : {0u, 1u, 0x81u, 0x80000000u}) {
      std::memcpy(object + (flag ? 7 : 8), &value, flag ? 1 : 4);
      object[6] ^= KVT_OBJ_EMBEDDED;
      EXPECT_EQ(hash(object, 9), SuperFastHash(&value, flag ? 1 : 4, 9)) << type;
    }
  }
}

// An object of an older library ends with memory that must not be touched.
TEST(OlderObject, ComparesAndHashesAsOneWhoseLaterFieldsAreEmpty) {
  GuardedBuffer guarded;
  int aged = 0;
  for (const Type& type : all_types()) {
    for (int built = 0; built < type.top(); ++built) {
      SCOPED_TRACE(type.name + " built with variant " + std::to_string(built));
      Rig rig;
      const auto compare = fn<Compare>(type.name + "_compare");
      const auto hash = fn<Hash>(type.name + "_hash");
      char* current = rig.make(type);
      fill(rig, type, current, 1, built);
      const std::size_t size = type.size[static_cast<std::size_t>(built)];
      char* old = reinterpret_cast<char*>(guarded.with_room(size));
      std::memcpy(old, current, size);
      old[4] = old[5] = static_cast<char>(built);
      EXPECT_EQ(compare(old, current), 0);
      EXPECT_EQ(compare(current, old), 0);
      EXPECT_EQ(compare(old, old), 0);
      EXPECT_EQ(hash(old, 7), hash(current, 7));
      for (const Field& f : type.fields) {
        if (f.variant <= built) continue;
        const Slot slot{type.name + "." + f.name, &type, &f, current, f.variant, f.state};
        std::vector<Slot> leaves = {slot};
        if (kind_of(f) == Kind::kStruct) {
          leaves.clear();
          collect_slots(type_of(f.kind), slot.at(), slot.path + ".", 0, 0, leaves);
        }
        for (const Slot& leaf : leaves) {
          if (kind_of(*leaf.field) == Kind::kStruct) continue;
          ++aged;
          if (kind_of(*leaf.field) == Kind::kTimer) {
            leaf.at()[0] = 1;
          } else {
            fill_slot(rig, leaf, 2, 1);
          }
          EXPECT_LT(compare(old, current), 0) << leaf.path;
          EXPECT_GT(compare(current, old), 0) << leaf.path;
          EXPECT_NE(hash(old, 7), hash(current, 7)) << leaf.path;
          if (kind_of(*leaf.field) == Kind::kString) {
            fn<void(H, Txn, void*, int)>(leaf.field->kind + "_destroy_internal")(rig.h, rig.txn, leaf.at(), 0);
          } else if (kind_of(*leaf.field) == Kind::kFlag) {
            leaf.at()[7] = 0;
          } else if (kind_of(*leaf.field) == Kind::kReference) {
            std::memset(leaf.at() + 8, 0, 40);
          } else {
            std::memset(leaf.object + value_offset(*leaf.field), 0, value_width(*leaf.field));
          }
          EXPECT_EQ(compare(old, current), 0) << leaf.path;
        }
      }
      EXPECT_EQ(rig.take_err(), 0);
    }
  }
  EXPECT_GT(aged, 50);
}

}  // namespace
}  // namespace module_test
