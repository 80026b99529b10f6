// Tests of the field accessors and of whole-object copies: every field of every type, at and below its variant.
#include "calls.h"

namespace module_test {
namespace {

TEST(FieldAccess, SetStoresAtThePublishedPlaceAndGetGivesItBack) {
  for (Place place : kPlaces) {
    Rig rig(Tracking::kOn, place);
    for (const Type& type : all_types()) {
      char* object = rig.make(type);
      fill(rig, type, object, 2);
      std::uint64_t number = 0;
      for (const Slot& slot : slots_of(type, object)) {
        ++number;
        if (!has_set(*slot.field) || kind_of(*slot.field) == Kind::kStruct) continue;
        Contents expected = contents_of(type, object);
        fn<StateAll>(type.name + "_set_all_state_tracking_flag")(rig.h, rig.txn, object, 0);
        EXPECT_TRUE(announces_all(rig, [&] { fill_slot(rig, slot, number, 1); })) << slot.path;
        // It marks its own state byte only; a flag's bits are the flag's own affair.
        std::string marks(type.block.back(), '\0');
        if (kind_of(*slot.field) != Kind::kFlag) marks[slot.state] = 2;
        EXPECT_EQ(std::string(object + type.size.back(), marks.size()), marks) << slot.path;
        // Only this field changes, and the content is as the tables place it.
        EXPECT_NE(std::exchange(expected[slot.path], content_of(slot)), content_of(slot)) << slot.path;
        EXPECT_EQ(contents_of(type, object), expected) << slot.path;
        EXPECT_EQ(fn<Get>(slot.owner->name + "_" + slot.field->name + "_get")(rig.h, rig.txn, slot.object, &rig.err),
                  slot.at());
        if (has_value(*slot.field)) {
          EXPECT_EQ(std::to_string(call_get_value(*slot.owner, *slot.field, rig.h, rig.txn, slot.object, &rig.err)),
                    content_of(slot));
        }
        EXPECT_EQ(rig.take_err(), 0) << slot.path;
      }
      EXPECT_EQ(fn<Get>(type.name + "_get")(rig.h, rig.txn, object, &rig.err), object);
      rig.destroy(type, object);
      EXPECT_TRUE(rig.blocks.empty()) << type.name;
    }
  }
}

TEST(FieldAccess, BelowItsVariantAFieldIsRefusedUntilTheDomainAllowsIt) {
  for (const Type& type : all_types()) {
    for (int limit = 0; limit < type.top(); ++limit) {
      Rig rig(Tracking::kOn);
      kvt_domain_set_variant(rig.h, record_of(type.name), limit);
      char* object = rig.make(type);
      ASSERT_EQ(object[4], limit);
      for (const Field& f : type.fields) {
        if (!has_set(f)) continue;
        SCOPED_TRACE(type.name + "." + f.name + " at variant " + std::to_string(limit));
        const std::string before(object, type.size.back());
        const int expected = f.variant > limit ? 43 : 0;
        const std::string name = type.name + "_" + f.name;
        void* at = fn<Get>(name + "_get")(rig.h, rig.txn, object, &rig.err);
        EXPECT_EQ(rig.h->last_error, expected);
        EXPECT_EQ(rig.take_err(), expected);
        EXPECT_EQ(at, expected ? nullptr : object + f.offset);
        alignas(8) char source[512] = {};
        if (expected) fn<Set>(name + "_set")(rig.h, rig.txn, object, source, &rig.err);
        EXPECT_EQ(rig.take_err(), expected);
        fn<StateSet>(name + "_state_flag_set")(rig.h, rig.txn, object, 1, &rig.err);
        EXPECT_EQ(rig.take_err(), expected);
        fn<StateGet>(name + "_state_flag_get")(rig.h, rig.txn, object, &rig.err);
        EXPECT_EQ(rig.take_err(), 0) << "a state is read at any variant";
        if (has_value(f)) {
          call_get_value(type, f, rig.h, rig.txn, object, &rig.err);
          EXPECT_EQ(rig.take_err(), expected);
          call_set_value(type, f, rig.h, rig.txn, object, 1, &rig.err);
          EXPECT_EQ(rig.take_err(), expected);
        }
        if (expected) {
          EXPECT_EQ(std::string(object, before.size()), before);
        }
      }
      kvt_domain_set_variant(rig.h, record_of(type.name), limit + 1);
      for (const Field& f : type.fields) {
        if (f.variant != limit + 1 || !has_value(f)) continue;
        call_get_value(type, f, rig.h, rig.txn, object, &rig.err);
        if (object[4] == limit) {
          EXPECT_EQ(rig.take_err(), 43) << "a read raises nothing: " << f.name;
        }
        call_set_value(type, f, rig.h, rig.txn, object, 1, &rig.err);
        EXPECT_EQ(rig.take_err(), 0) << f.name;
        EXPECT_EQ(object[4], limit + 1);
      }
      rig.destroy(type, object);
    }
  }
}

TEST(AllFields, AreReadAndStoredUpToTheVariantAndMarkNothing) {
  ASSERT_EQ(all_calls().size(), all_types().size());
  for (const Type& type : all_types()) {
    for (int variant = 0; variant <= type.top(); ++variant) {
      SCOPED_TRACE(type.name + " at variant " + std::to_string(variant));
      Rig rig(Tracking::kOn);
      kvt_domain_set_variant(rig.h, record_of(type.name), variant);
      char* object = rig.make(type);
      fn<StateAll>(type.name + "_set_all_state_tracking_flag")(rig.h, rig.txn, object, 5);
      std::vector<std::uintptr_t> values, outs;
      std::vector<std::uint64_t> results(type.fields.size(), 0xEEEEEEEEEEEEEEEE);
      for (const Field& f : type.fields) {
        if (!has_value(f)) continue;
        outs.push_back(reinterpret_cast<std::uintptr_t>(&results[values.size()]));
        values.push_back(sample(f, values.size(), 1));
      }
      EXPECT_TRUE(announces_all(rig, [&] { all_calls().at(type.name).set_all(words_for(rig, object, values)); }));
      EXPECT_EQ(rig.take_err(), 0);
      all_calls().at(type.name).get_all(words_for(rig, object, outs));
      EXPECT_EQ(rig.take_err(), 0);
      std::size_t next = 0;
      for (const Slot& slot : slots_of(type, object)) {
        if (slot.object != object || !has_value(*slot.field)) continue;
        std::uint64_t value = 0;
        const std::uint64_t mask = ~std::uint64_t{0} >> (64 - 8 * value_width(*slot.field));
        if (slot.variant <= variant) value = values[next];
        EXPECT_EQ(content_of(slot), std::to_string(value)) << slot.path;
        EXPECT_EQ(results[next] & mask, slot.variant <= variant ? value : 0xEEEEEEEEEEEEEEEE & mask) << slot.path;
        ++next;
      }
      const std::uint32_t block = type.block.back();
      EXPECT_EQ(std::string(object + type.size.back(), block), std::string(block, '\5'));
      rig.destroy(type, object);
    }
  }
}

TEST(SetObject, CopiesDeepAndGivesTheOldContentBack) {
  for (Place place : kPlaces) {
    for (Tracking tracking : kTrackings) {
      Rig rig(tracking, place);
      for (const Type& type : all_types()) {
        SCOPED_TRACE(type.name + " in " + name_of(place) + ", tracking " + name_of(tracking));
        const auto set = fn<Set>(type.name + "_set");
        char* source = rig.make(type);
        fill(rig, type, source, 1);
        const std::size_t filled = rig.blocks.size();
        char* dest = rig.make(type);
        fill(rig, type, dest, 2);
        const Contents expected = contents_of(type, source);
        EXPECT_TRUE(announces_all(rig, [&] { set(rig.h, rig.txn, dest, source, &rig.err); }));
        EXPECT_EQ(rig.take_err(), 0);
        EXPECT_EQ(contents_of(type, dest), expected);
        EXPECT_EQ(rig.blocks.size(), 2 * filled) << "shared or leaked strings";
        if (rig.tracked()) {
          const std::uint32_t size = type.size.back(), block = type.block.back();
          EXPECT_EQ(std::string(dest + size, block), std::string(source + size, block));
          EXPECT_FALSE(dest[6] & KVT_OBJ_STTR_OFFSET);
        }
        set(rig.h, rig.txn, dest, dest, &rig.err);
        EXPECT_EQ(contents_of(type, dest), expected);
        fill(rig, type, source, 2);
        EXPECT_EQ(contents_of(type, dest), expected);
        rig.destroy(type, source);
        EXPECT_EQ(contents_of(type, dest), expected);
        rig.destroy(type, dest);
        EXPECT_TRUE(rig.blocks.empty());
      }
    }
  }
}

TEST(SetObject, IsRefusedBetweenVariantsThatDoNotFit) {
  Rig rig;
  const Type& type = type_of("st_wlan_client_settings");
  char* high = rig.make(type);
  kvt_domain_set_variant(rig.h, record_of(type.name), 0);
  char* low = rig.make(type);
  fill(rig, type, high, 1);
  const auto set = fn<Set>(type.name + "_set");
  const std::string before(low, type.size[1]);
  set(rig.h, rig.txn, low, high, &rig.err);
  EXPECT_EQ(rig.take_err(), 43);
  EXPECT_EQ(std::string(low, type.size[1]), before);
  set(rig.h, rig.txn, high, low, &rig.err);
  EXPECT_EQ(rig.take_err(), 0);
  EXPECT_EQ(high[4], 0) << "the lower variant comes over with the header";
  low[5] = 0;
  set(rig.h, rig.txn, high, low, &rig.err);
  EXPECT_EQ(rig.take_err(), 43);
  low[5] = 1;
  rig.destroy(type, high);
  rig.destroy(type, low);
}

}  // namespace
}  // namespace module_test
