// Tests of how struct objects come to be, how big they are and how they go: of every type, under each tracking mode, in
// a private store and in a database.
#include "rig.h"

namespace module_test {
namespace {

const std::vector<std::string> kStructOperations = {"create",
                                                    "create_internal",
                                                    "create_cr",
                                                    "initialize",
                                                    "destroy",
                                                    "destroy_internal",
                                                    "destroy_cr",
                                                    "sizeof",
                                                    "sizeof_internal",
                                                    "set_instance_embedded",
                                                    "set_all_state_tracking_flag",
                                                    "adjust_variant",
                                                    "variant_data_index_cap",
                                                    "is_valid_cr",
                                                    "offset_update",
                                                    "offset_remove",
                                                    "post_copyout_cleanup",
                                                    "get_luid",
                                                    "get",
                                                    "set",
                                                    "get_oid_count",
                                                    "get_object_references",
                                                    "get_all",
                                                    "set_all",
                                                    "marshal",
                                                    "unmarshal",
                                                    "len",
                                                    "len_cr",
                                                    "compare",
                                                    "to_xml",
                                                    "toxml_cr",
                                                    "from_xml"};

TEST(Exports, EveryOperationOfEveryFieldIsThere) {
  ASSERT_EQ(all_types().size(), 50u);
  std::size_t fields = 0;
  for (const Type& type : all_types()) {
    for (const std::string& op : kStructOperations) {
      EXPECT_TRUE(find_symbol(type.name + "_" + op)) << type.name << "_" << op;
    }
    for (const Field& f : type.fields) {
      ++fields;
      const std::string name = type.name + "_" + f.name;
      EXPECT_TRUE(find_symbol(name + "_state_flag_get")) << name;
      EXPECT_EQ(find_symbol(name + "_state_flag_set") != nullptr, kind_of(f) != Kind::kTimer) << name;
      EXPECT_EQ(find_symbol(name + "_get") != nullptr, has_set(f)) << name;
      EXPECT_EQ(find_symbol(name + "_set") != nullptr, has_set(f)) << name;
      for (const char* op : {"_get_by_ref", "_get_by_ref_cr", "_set_by_ref", "_set_by_ref_cr"}) {
        EXPECT_EQ(find_symbol(name + op) != nullptr, kind_of(f) == Kind::kReference) << name << op;
      }
      EXPECT_EQ(find_symbol(name + "_get_value") != nullptr, has_value(f)) << name;
      EXPECT_EQ(find_symbol(name + "_set_value") != nullptr, has_value(f)) << name;
    }
  }
  EXPECT_EQ(fields, 276u);
}

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

TEST(Initialize, OfANestedObjectNeedsAPlaceForItsStateBytes) {
  const Type& type = type_of("wpa_psk_type");
  alignas(8) char object[64] = {};
  const auto initialize = fn<Initialize>("wpa_psk_type_initialize");
  for (Tracking tracking : kTrackings) {
    Rig rig(tracking);
    std::memset(object, 0, sizeof object);
    initialize(rig.h, rig.txn, object, record_of(type.name), 0, 0, KVT_OBJ_NESTED, nullptr, &rig.err);
    EXPECT_EQ(rig.take_err(), rig.tracked() ? 22 : 0);
    // The enumerated field's header shows whether the fields were set up.
    const Field& format = type.fields[1];
    ASSERT_EQ(format.kind, "key_format_type");
    EXPECT_EQ(load<std::uint32_t>(object + format.offset) == 0, rig.tracked());
    EXPECT_TRUE(rig.announced.empty()) << "not asked to announce";
    fn<void(H, Txn, void*, int)>("wpa_psk_type_destroy_internal")(rig.h, rig.txn, object, 0);
    EXPECT_NE(load<std::uint32_t>(object), 0u) << "the link stays without free_it";
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

TEST(FatalStops, OfACorruptHandleOrTypeLink) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  Rig rig(Tracking::kOn);
  const Type& type = type_of("st_dtim");
  char* object = rig.make(type);
  std::uint8_t bytes[64];
  char text[256];
  const std::uint32_t length = st_dtim_marshal(rig.h, rig.txn, bytes, object, sizeof bytes, &rig.err);
  kvt_sttr_descriptor corrupt{0x1234};
  kvt_sttr_descriptor* const good = rig.h->sttr;
  const std::function<void()> operations[] = {
      [&] { st_dtim_sizeof(rig.h); },
      [&] { st_dtim_create(rig.h, rig.txn); },
      [&] { st_dtim_destroy(rig.h, rig.txn, object); },
      [&] { st_dtim_len(rig.h, rig.txn, object); },
      [&] { st_dtim_dot11a_dtim_set_value(rig.h, rig.txn, object, 1, &rig.err); },
      [&] { st_dtim_dot11a_dtim_state_flag_get(rig.h, rig.txn, object, &rig.err); },
      [&] { st_dtim_marshal(rig.h, rig.txn, bytes, object, sizeof bytes, &rig.err); },
      [&] { st_dtim_unmarshal(rig.h, rig.txn, bytes, object, static_cast<int>(length), 0, &rig.err); },
      [&] { st_dtim_toxml_cr(rig.h, object, text, sizeof text); }};
  rig.h->sttr = &corrupt;
  for (const auto& operation : operations) EXPECT_DEATH(operation(), "Corrupted KVT Handle");
  // The fill of all state bytes takes an unknown tag for tracking off.
  st_dtim_set_all_state_tracking_flag(rig.h, rig.txn, object, 9);
  rig.h->sttr = good;
  EXPECT_EQ(object[16], 0);
  object[6] = 0;
  EXPECT_DEATH(st_dtim_unmarshal(rig.h, rig.txn, bytes, object, static_cast<int>(length), 0, &rig.err),
               "KVT handle and object state tracking mis-match");
  object[6] = KVT_OBJ_STATE_TRACKED;
  const auto link = load<std::uint32_t>(object);
  std::memset(object, 0, 4);
  EXPECT_DEATH(st_dtim_destroy(rig.h, rig.txn, object), "tinfo is null or corrupted");
  std::memcpy(object, &link, 4);
  rig.destroy(type, object);
}

}  // namespace
}  // namespace module_test
