// Tests of the hash of references, and of compare and hash over objects that an older library built.
#include "guarded_buffer.h"
#include "rig.h"

namespace module_test {
namespace {

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
