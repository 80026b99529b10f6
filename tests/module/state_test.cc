// Tests of state bytes: where they lie, who marks them, who may read and set them.
#include "rig.h"

namespace module_test {
namespace {

std::string state_name(const Slot& slot, const char* op) {
  return slot.owner->name + "_" + slot.field->name + "_state_flag_" + op;
}

std::string block_of(const Type& type, const char* object) {
  return std::string(object + type.size.back(), type.block.back());
}

TEST(StateFlag, OfEveryFieldLiesAtItsPublishedIndexDepthFirst) {
  for (Place place : kPlaces) {
    Rig rig(Tracking::kOn, place);
    for (const Type& type : all_types()) {
      char* object = rig.make(type);
      EXPECT_EQ(block_of(type, object), std::string(type.block.back(), '\0')) << type.name;
      std::uint32_t index = 0;
      for (const Slot& slot : slots_of(type, object)) {
        // Depth-first: the walk meets the bytes one after the other.
        EXPECT_EQ(slot.state, index++) << slot.path;
        char* byte = object + type.size.back() + slot.state;
        if (kind_of(*slot.field) == Kind::kTimer) {
          *byte = 7;
        } else {
          EXPECT_TRUE(announces_all(
              rig, [&] { fn<StateSet>(state_name(slot, "set"))(rig.h, rig.txn, slot.object, 0x107, &rig.err); }));
        }
        EXPECT_EQ(*byte, 7) << slot.path;
        *byte = static_cast<char>(0x40 + slot.state);
        EXPECT_EQ(fn<StateGet>(state_name(slot, "get"))(rig.h, rig.txn, slot.object, &rig.err),
                  static_cast<std::uint8_t>(0x40 + slot.state))
            << slot.path;
        EXPECT_EQ(rig.take_err(), 0) << slot.path;
      }
      EXPECT_EQ(index, type.block.back()) << type.name;
      rig.destroy(type, object);
    }
  }
}

TEST(StateMark, ASetterOfANestedObjectBringsItsBytesAndMarksItsOwn) {
  Rig rig(Tracking::kOn);
  const Type& type = type_of("st_wlan_security_settings");
  const Type& nested = type_of("st_l2_security_settings");
  char* source = rig.make(nested);
  fill(rig, nested, source, 1);
  fn<StateAll>(nested.name + "_set_all_state_tracking_flag")(rig.h, rig.txn, source, 9);
  char* object = rig.make(type);
  st_wlan_security_settings_l2_security_set(rig.h, rig.txn, object, source, &rig.err);
  EXPECT_EQ(block_of(type, object),
            std::string(1, '\2') + std::string(nested.block.back(), '\11') + std::string(11, '\0'));
  EXPECT_EQ(contents_of(nested, object + type.fields[0].offset), contents_of(nested, source));
  rig.destroy(nested, source);
  // The nested objects still find their bytes after the raw copy brought the source's flags over.
  for (const Slot& slot : slots_of(type, object)) {
    fn<StateSet>(state_name(slot, "set"))(rig.h, rig.txn, slot.object, slot.state + 1, &rig.err);
    EXPECT_EQ(static_cast<std::uint8_t>(block_of(type, object)[slot.state]), slot.state + 1) << slot.path;
  }
  rig.destroy(type, object);
}

TEST(SetAllStateFlags, FillsTheStretchOfTheObjectAndNoMore) {
  Rig rig(Tracking::kOn);
  for (const Type& type : all_types()) {
    char* object = rig.make(type);
    for (const Slot& slot : slots_of(type, object)) {
      if (kind_of(*slot.field) != Kind::kStruct) continue;
      const Type& nested = type_of(slot.field->kind);
      fn<StateAll>(type.name + "_set_all_state_tracking_flag")(rig.h, rig.txn, object, 1);
      fn<StateAll>(nested.name + "_set_all_state_tracking_flag")(rig.h, rig.txn, slot.at(), 3);
      std::string expected(type.block.back(), '\1');
      expected.replace(slot.state + 1, nested.block.back(), nested.block.back(), '\3');
      EXPECT_EQ(block_of(type, object), expected) << slot.path;
    }
    rig.destroy(type, object);
  }
}

TEST(OffsetRemove, ForgetsThePlacesThatOffsetUpdateTold) {
  Rig rig(Tracking::kOn);
  const Type& type = type_of("st_wlan");
  char* object = rig.make(type);
  char* block = object + type.size.back();
  for (bool told : {true, false, true}) {
    if (told) {
      fn<OffsetUpdate>("st_wlan_offset_update")(rig.h, rig.txn, object, block);
    } else {
      fn<OffsetRemove>("st_wlan_offset_remove")(rig.h, rig.txn, object, &rig.err);
    }
    for (const Slot& slot : slots_of(type, object)) {
      if (kind_of(*slot.field) != Kind::kStruct) continue;
      EXPECT_EQ(kvtlib_get_sttr_offset(rig.h, rig.txn, slot.at()), told ? block + slot.state + 1 - slot.at() : 0)
          << slot.path;
    }
    // A nested object that has no place for its bytes is one without them; its parent is not taken for that place.
    for (const Slot& slot : slots_of(type, object)) {
      if (slot.object == object || kind_of(*slot.field) == Kind::kStruct) continue;
      const std::string before(object, type.size.back());
      fn<StateSet>(state_name(slot, "set"))(rig.h, rig.txn, slot.object, 9, &rig.err);
      EXPECT_EQ(rig.take_err(), told ? 0 : 22) << slot.path;
      fn<StateGet>(state_name(slot, "get"))(rig.h, rig.txn, slot.object, &rig.err);
      EXPECT_EQ(rig.take_err(), told ? 0 : 22) << slot.path;
      EXPECT_EQ(std::string(object, before.size()), before) << slot.path;
      if (!has_value(*slot.field)) continue;
      block[slot.state] = 9;
      fill_slot(rig, slot, slot.state, 1);
      EXPECT_EQ(rig.take_err(), told ? 0 : 22) << slot.path;
      EXPECT_EQ(block[slot.state], told ? 2 : 9) << slot.path;
    }
  }
  rig.destroy(type, object);
}

TEST(StateFlag, AnObjectOfAnOlderBuildHasItsBytesBehindItsOwnSize) {
  Rig rig(Tracking::kOn);
  for (const Type& type : all_types()) {
    for (int built = 0; built <= type.top(); ++built) {
      // Its bytes lie over what later variants would hold: such an object is looked at and left to the store.
      char* object = rig.make(type);
      const auto at = static_cast<std::size_t>(built);
      object[4] = object[5] = static_cast<char>(built);
      std::string expected(object, type.size.back() + type.block.back());
      expected.replace(type.size[at], type.block[at], type.block[at], '\x11');
      fn<StateAll>(type.name + "_set_all_state_tracking_flag")(rig.h, rig.txn, object, 0x11);
      EXPECT_EQ(std::string(object, expected.size()), expected) << type.name << built;
    }
  }
}

// A block of exactly the room that an older library gave its objects, and what lies behind it.
class OlderObject {
 public:
  static constexpr std::uint32_t kBehind = 256;
  OlderObject(Rig& rig, const Type& type, int built) : rig_(rig) {
    const auto at = static_cast<std::size_t>(built);
    plain = type.size[at];
    block = type.block[at];
    bytes = static_cast<char*>(rig.h->store_alloc(rig.h->store, rig.txn, plain + block + kBehind));
    char* current = rig.make(type);
    std::memcpy(bytes, current, plain);
    rig.destroy(type, current);
    bytes[4] = bytes[5] = static_cast<char>(built);
    bytes[6] |= KVT_OBJ_STATE_TRACKED;
    std::memset(states(), 0, block);
    std::memset(states() + block, '\xA5', kBehind);
    fn<OffsetUpdate>(type.name + "_offset_update")(rig.h, rig.txn, bytes, states());
  }
  ~OlderObject() { rig_.h->store_free(rig_.h->store, rig_.txn, bytes); }
  char* states() const { return bytes + plain; }
  bool alone() const { return std::string(states() + block, kBehind) == std::string(kBehind, '\xA5'); }

  char* bytes;
  std::uint32_t plain, block;

 private:
  Rig& rig_;
};

TEST(StateFlag, OperationsOnAnObjectOfAnOlderBuildStayWithinIt) {
  for (const Type& type : all_types()) {
    for (int built = 0; built < type.top(); ++built) {
      SCOPED_TRACE(type.name + " built " + std::to_string(built));
      Rig rig(Tracking::kOn);
      const OlderObject object(rig, type, built), source(rig, type, built);
      // Its writes are not to raise it to what it has no room for; nor is anything nested in it.
      limit_domain(rig, 0);
      EXPECT_TRUE(object.alone());
      EXPECT_EQ(std::string(object.states(), object.block), std::string(object.block, '\0'));
      for (std::uint32_t i = 0; i < source.block; ++i) source.states()[i] = static_cast<char>(1 + i);
      fn<Set>(type.name + "_set")(rig.h, rig.txn, object.bytes, source.bytes, &rig.err);
      EXPECT_EQ(rig.take_err(), 0);
      EXPECT_EQ(std::string(object.states(), object.block), std::string(source.states(), source.block));
      fn<void(H, Txn, void*)>(type.name + "_set_instance_embedded")(rig.h, rig.txn, object.bytes);
      EXPECT_TRUE(object.alone());
      for (const Slot& slot : slots_of(type, object.bytes)) {
        if (slot.object != object.bytes) continue;
        EXPECT_EQ(fn<StateGet>(state_name(slot, "get"))(rig.h, rig.txn, object.bytes, &rig.err),
                  slot.variant > built ? 0 : static_cast<std::uint8_t>(1 + slot.state))
            << slot.path;
        EXPECT_EQ(rig.take_err(), 0) << slot.path;
        // Without a descriptor the bytes are looked for behind the top size, where this object has none.
        kvt_sttr_descriptor* const on = std::exchange(rig.h->sttr, nullptr);
        EXPECT_EQ(fn<StateGet>(state_name(slot, "get"))(rig.h, rig.txn, object.bytes, &rig.err), 0);
        EXPECT_EQ(rig.take_err(), 22) << slot.path;
        if (kind_of(*slot.field) != Kind::kTimer) {
          fn<StateSet>(state_name(slot, "set"))(rig.h, rig.txn, object.bytes, 7, &rig.err);
          EXPECT_EQ(rig.take_err(), slot.variant > built ? 43 : 22) << slot.path;
        }
        rig.h->sttr = on;
      }
      EXPECT_TRUE(object.alone());
      // What the runtime knows of a neighbour's objects stays.
      for (const Field& f : type.fields) {
        if (kind_of(f) != Kind::kStruct || f.variant <= built) continue;
        kvtlib_update_sttr_offset(rig.h, rig.txn, object.bytes + f.offset, 40);
        fn<OffsetRemove>(type.name + "_offset_remove")(rig.h, rig.txn, object.bytes, &rig.err);
        EXPECT_EQ(kvtlib_get_sttr_offset(rig.h, rig.txn, object.bytes + f.offset), 40) << f.name;
      }
    }
  }
}

}  // namespace
}  // namespace module_test
