// Tests of how struct objects come to be, how big they are and how they go: of every type, under each tracking mode, in
// a private store and in a database.
#include "rig.h"

namespace module_test {
namespace {

std::uint64_t live_objects(H h, Txn txn, const Type& type) {
  const kvt_type_record* record = record_of(type.name);
  if (h->mode) record = kvt_type_info_ptr_get(h, txn, record, zarn_wlan_typeinfo_initialize);
  std::uint64_t live = 0;
  const kvt_variant_data* varinfo = kvt_varinfo_of(record);
  for (int v = 0; v < varinfo->n_variants; ++v) {
    live += kvt_variant_entries(varinfo)[v].created - kvt_variant_entries(varinfo)[v].destroyed;
  }
  return live;
}

TEST(Create, GivesAnEmptyObjectOfThePublishedSizeAndDestroyTakesItBack) {
  for (Place place : kPlaces) {
    for (Tracking tracking : kTrackings) {
      Rig rig(tracking, place);
      for (const Type& type : all_types()) {
        SCOPED_TRACE(type.name + " in " + name_of(place) + ", tracking " + name_of(tracking));
        const auto live = [&] { return live_objects(rig.h, rig.txn, type); };
        const std::uint32_t plain = type.size.back(), whole = plain + (rig.tracked() ? type.block.back() : 0);
        EXPECT_EQ(fn<Sizeof>(type.name + "_sizeof")(rig.h), whole);
        const std::uint64_t before = live();
        char* object = rig.make(type);
        ASSERT_EQ(rig.blocks[object], whole);
        EXPECT_EQ(live(), before + 1);
        EXPECT_EQ(object[4], type.top());
        EXPECT_EQ(object[5], type.top());
        EXPECT_EQ(object[6], rig.tracked() ? KVT_OBJ_STATE_TRACKED : 0);
        const kvt_type_record* record = kvt_get_manifested_type_info(object, &rig.err);
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(record->name, type.name);
        EXPECT_EQ(record == record_of(type.name), place == Place::kPrivate);
        EXPECT_EQ(std::memcmp(fn<GetLuid>(type.name + "_get_luid")(rig.h, rig.txn, object, &rig.err), record->luid, 16),
                  0);
        for (const Slot& slot : slots_of(type, object)) {
          EXPECT_EQ(content_of(slot).find_first_not_of(std::string("0\0", 2)), std::string::npos) << slot.path;
          if (kind_of(*slot.field) != Kind::kStruct) continue;
          EXPECT_EQ(slot.at()[4], type_of(slot.field->kind).top()) << slot.path;
          EXPECT_EQ(slot.at()[6], KVT_OBJ_NESTED | (rig.tracked() ? KVT_OBJ_STATE_TRACKED | KVT_OBJ_STTR_OFFSET : 0))
              << slot.path;
        }
        fill(rig, type, object, 1);
        rig.destroy(type, object);
        EXPECT_TRUE(rig.blocks.empty());
        EXPECT_EQ(live(), before);
      }
    }
  }
}

TEST(Sizeof, OfAnObjectGoesByItsBuiltVariant) {
  for (Tracking tracking : kTrackings) {
    Rig rig(tracking);
    for (const Type& type : all_types()) {
      char* object = rig.make(type);
      const auto size_of = fn<SizeofInternal>(type.name + "_sizeof_internal");
      for (int built = 0; built <= type.top(); ++built) {
        SCOPED_TRACE(type.name + " built " + std::to_string(built) + ", tracking " + name_of(tracking));
        object[5] = static_cast<char>(built);
        const std::size_t at = static_cast<std::size_t>(tracking == Tracking::kAbsent ? type.top() : built);
        const std::uint32_t block = rig.tracked() ? type.block[at] : 0;
        EXPECT_EQ(size_of(rig.h, object, 0, 0), type.size[at]);
        EXPECT_EQ(size_of(rig.h, object, 1, 0), type.size[at] + block);
        EXPECT_EQ(size_of(rig.h, object, 1, 1), block);
        EXPECT_EQ(size_of(rig.h, nullptr, 1, 1), rig.tracked() ? type.block.back() : 0);
      }
      rig.destroy(type, object);
    }
  }
}

TEST(Create, WithAnyAllocationFailingGivesNothingOrAWholeObject) {
  for (Place place : kPlaces) {
    const Type& type = type_of("st_wlan");
    int allocations = 0, refused = 0;
    for (bool all_passed = false; !all_passed; ++allocations) {
      Rig rig(Tracking::kOn, place);
      rig.fail_after = allocations;
      void* object = fn<Create>("st_wlan_create")(rig.h, rig.txn);
      all_passed = rig.fail_after >= 0;
      rig.fail_after = -1;
      refused += !object;
      EXPECT_TRUE(object || !all_passed) << allocations;
      if (object) {
        EXPECT_EQ(rig.h->last_error, 0) << allocations;
      }
      EXPECT_EQ(rig.blocks.empty(), !object) << allocations;
      // Registering the types of a database may have stopped behind those that were needed; the next create goes on.
      if (!object) object = rig.make(type);
      for (const Slot& slot : slots_of(type, object)) {
        if (kind_of(*slot.field) == Kind::kReference) {
          EXPECT_TRUE(kvt_type_link_at(load<std::uint32_t>(slot.at()))) << slot.path << allocations;
        }
      }
      fill(rig, type, object, 1);
      rig.destroy(type, object);
      EXPECT_TRUE(rig.blocks.empty()) << allocations;
    }
    EXPECT_GT(refused, 0);
    EXPECT_GT(allocations, place == Place::kPrivate ? 1 : 79);  // a database keeps copies of the 79 type records
  }
}

// The runtime may not keep the places of nested objects' state bytes where the store may not be written.
TEST(Initialize, FailsWhereThePlacesOfStateBytesCannotBeKept) {
  Rig rig(Tracking::kOn, Place::kDatabase);
  for (const Type& type : all_types()) rig.destroy(type, rig.make(type));  // registers siblings' types too
  kvtdb_txn_commit(rig.h, rig.txn, &rig.err);
  for (const Type& type : all_types()) {
    const bool nested =
        std::any_of(type.fields.begin(), type.fields.end(), [](const Field& f) { return kind_of(f) == Kind::kStruct; });
    const std::uint32_t size = type.size.back() + type.block.back();
    auto* object = static_cast<char*>(kvt_cage_alloc(size));
    std::memset(object, 0, size);
    fn<Initialize>(type.name + "_initialize")(rig.h, rig.txn, object, record_of(type.name), 0, 0, 0, nullptr, &rig.err);
    EXPECT_EQ(rig.h->last_error, nested ? 1 : 0) << type.name;
    EXPECT_EQ(rig.take_err(), nested ? 1 : 0) << type.name;
    for (const Slot& slot : slots_of(type, object)) {
      if (kind_of(*slot.field) == Kind::kStruct) {
        EXPECT_EQ(load<std::uint32_t>(slot.at()), 0u) << slot.path;
      }
    }
    kvt_cage_free(object);
  }
  rig.txn = kvtdb_txn_begin(rig.h, &rig.err);
}

TEST(SetInstanceEmbedded, ReachesEveryNestedObjectWithAHeader) {
  Rig rig(Tracking::kOn);
  const Type& type = type_of("st_wlan");
  char* object = rig.make(type);
  EXPECT_TRUE(
      announces_all(rig, [&] { fn<void(H, Txn, void*)>("st_wlan_set_instance_embedded")(rig.h, rig.txn, object); }));
  EXPECT_TRUE(object[6] & KVT_OBJ_EMBEDDED);
  for (const Slot& slot : slots_of(type, object)) {
    const Kind kind = kind_of(*slot.field);
    if (kind != Kind::kStruct && kind != Kind::kEnum && kind != Kind::kFlag) continue;
    EXPECT_TRUE(slot.at()[6] & KVT_OBJ_EMBEDDED) << slot.path;
  }
  rig.destroy(type, object);
}

}  // namespace
}  // namespace module_test
