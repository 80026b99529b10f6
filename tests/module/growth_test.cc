// What the runtime keeps beside objects goes with them: a long day of creating and destroying leaves the store no
// larger.
#include "rig.h"

namespace module_test {
namespace {

// Where the next block of a size would lie tells of everything that is still held below it.
class Growth : public testing::TestWithParam<Place> {
 protected:
  Rig rig{Tracking::kOn, GetParam()};

  std::uint32_t room_for(std::uint32_t size) {
    void* block = rig.h->store_alloc(rig.h->store, rig.txn, size);
    const std::uint32_t at = kvt_ref_of(block);
    rig.h->store_free(rig.h->store, rig.txn, block);
    return at;
  }
  // A lower variant than the fields': destroy does not come to the nested objects of the later ones.
  char* make_and_lose(const Type& type, int variant) {
    char* object = rig.make(type);
    rig.h->set_range(rig.h, object + 4, 1, rig.txn, nullptr);
    object[4] = static_cast<char>(variant);
    rig.destroy(type, object);
    return object;
  }
};
INSTANTIATE_TEST_SUITE_P(Places, Growth, testing::ValuesIn(kPlaces),
                         [](const auto& info) { return info.param == Place::kPrivate ? "Private" : "Database"; });

TEST_P(Growth, NothingGrowsWhereObjectsComeAndGo) {
  // Blocks that are freed in a transaction are used again after it, so a database's objects go in many transactions.
  const bool shared = GetParam() == Place::kDatabase;
  auto round = [&](int objects) {
    for (int i = 0; i < objects; ++i) {
      for (const Type& type : Catalogue::get().types) make_and_lose(type, i % 3 ? type.top() : i % 2 - 1);
    }
    if (!shared) return;
    kvtdb_txn_commit(rig.h, rig.txn, &rig.err);
    rig.txn = kvtdb_txn_begin(rig.h, &rig.err);
  };
  round(40);
  round(40);
  const std::uint32_t before = room_for(100000);
  const int rounds = shared ? 50 : 500;  // 50 types, 40 objects of each: 100,000 and a million
  for (int i = 0; i < rounds; ++i) round(40);
  EXPECT_EQ(room_for(100000), before);
  for (const Type& type : Catalogue::get().types) {
    const char* gone = make_and_lose(type, -1);
    for (std::uint32_t at = 0; at < type.size.back(); at += 4) {
      ASSERT_EQ(kvtlib_get_sttr_offset(rig.h, rig.txn, gone + at), 0) << type.name << " keeps the place of " << at;
    }
  }
}

}  // namespace
}  // namespace module_test
