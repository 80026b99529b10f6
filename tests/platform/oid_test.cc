// Tests of identities: what they stand for, how references are counted on them, and what becomes of an object whose
// destroy waits for them. In a private store and in a database.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "kvt/kvt.h"
#include "platform/ref.h"

namespace {

constexpr std::uint32_t kModule = 202;
constexpr std::uint32_t kFieldAt = 8, kValueAt = 16, kSize = 64;  // an object: header, and one reference field

std::vector<void*> destroyed;

// Gives back what the object refers to, then the object: what a schema module's destroy does.
void destroy_toy(kvt_handle* handle, std::uint32_t txn, void* object, int free_it) {
  int err = 0;
  destroyed.push_back(object);
  EXPECT_EQ(kvt_request_oid_mapping_destroy(handle, txn, object, &err), 1);
  kvtlib_oid_release_internal(handle, txn, kvt::at_offset(object, kFieldAt), &err);
  EXPECT_EQ(err, 0);
  if (free_it) handle->store_free(handle->store, txn, object);
}

kvt_type_record toy_record(unsigned index) {
  kvt_type_record record{};
  record.magic = KVT_TYPE_MAGIC;
  record.luid[0] = 0x77;
  record.luid[15] = static_cast<std::uint8_t>(index);
  record.slot = -1;
  record.varinfo = 0xF0000000u | kModule << 20 | index;
  return record;
}
const kvt_type_record toy = toy_record(0), fixture = toy_record(1);  // objects of the second one are never destroyed
const kvt_static_type types[] = {{&toy, nullptr, nullptr, destroy_toy, nullptr},
                                 {&fixture, nullptr, nullptr, nullptr, nullptr}};

class Oid : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    kvt_static_types_set(kModule, types, 2);
    char name[] = "/tmp/kvt_oid_XXXXXX";
    ASSERT_TRUE(mkdtemp(name));
    directory = name;
    h = open("db");
    txn = kvtdb_txn_begin(h, &err);
    destroyed.clear();
  }
  void TearDown() override {
    EXPECT_EQ(err, 0);
    kvt_handle_close(h);
    kvt_static_types_set(kModule, nullptr, 0);
    std::system(("rm -rf " + directory).c_str());
  }
  kvt_handle* open(const std::string& file) {
    kvt_handle_options options;
    kvt_handle_options_init(&options);
    options.create = 1;
    int error = 0;
    kvt_handle* handle = GetParam() ? kvt_handle_open_database((directory + "/" + file).c_str(), &options, &error)
                                    : kvt_handle_open_private(&options, &error);
    EXPECT_EQ(error, 0);
    return handle;
  }

  void* make(std::uint32_t link = kvt_type_link_of(&toy), std::uint32_t size = kSize) {
    void* object = h->store_alloc(h->store, txn, size);
    std::memset(object, 0, size);
    kvt::store(object, link);
    return object;
  }
  kvt_oid_value oid(void* target, int add_ref = 0) { return kvt_handle_to_oid(h, txn, target, 2, add_ref, &err); }
  void* at(const kvt_oid_value& value) { return kvt_oid_to_handle(h, txn, &value, &err); }
  void* entry(const kvt_oid_value& value) { return kvtlib_oid_id_mapping_get(h, txn, &value, &err); }
  void drop(void* target) { kvtlib_lookup_and_update_oid_ref_count(h, txn, target, 0, &err); }
  int request(void* target) { return kvt_request_oid_mapping_destroy(h, txn, target, &err); }
  void free(void* block) { h->store_free(h->store, txn, block); }
  int take_err() { return std::exchange(err, 0); }
  // The identity leads nowhere and says so; whether an entry is left is another matter.
  bool is_gone(const kvt_oid_value& value) { return !at(value) && take_err() == ENOENT && h->last_error == ENOENT; }

  std::string directory;
  kvt_handle* h = nullptr;
  std::uint32_t txn = 0;
  int err = 0;
};
INSTANTIATE_TEST_SUITE_P(Stores, Oid, testing::Bool(),
                         [](const auto& info) { return info.param ? "Database" : "Private"; });

std::string bytes_of(const void* at, std::size_t size) { return std::string(static_cast<const char*>(at), size); }

TEST_P(Oid, EachObjectHasOneOfItsOwn) {
  std::vector<void*> objects;
  std::set<std::string> ids;
  const kvt_oid_value first = oid(make());
  for (int i = 0; i < 5000; i++) {
    objects.push_back(make());
    ASSERT_EQ(kvt::load<std::uint8_t>(kvt::at_offset(objects.back(), 6)), 0);
    const kvt_oid_value value = oid(objects.back());
    EXPECT_TRUE(kvt::load<std::uint8_t>(kvt::at_offset(objects.back(), 6)) & KVT_OBJ_OID_MAPPED);
    EXPECT_GE(value.locator, 256u);
    ids.insert(bytes_of(value.id, 16));
  }
  EXPECT_EQ(ids.size(), objects.size());
  for (void* object : objects) {
    const kvt_oid_value value = oid(object);
    EXPECT_TRUE(ids.count(bytes_of(value.id, 16))) << "asked again, the same";
    EXPECT_EQ(at(value), object);
  }
  kvt_handle* other = open("other");
  EXPECT_EQ(kvt_oid_to_handle(other, KVT_NO_TXN, &first, &err), nullptr) << "of another store";
  EXPECT_EQ(take_err(), ENOENT);
  kvt_handle_close(other);
}

TEST_P(Oid, ADamagedOneLeadsNowhere) {
  void* object = make();
  const kvt_oid_value good = oid(object, 1);
  for (int bit = 0; bit < 40 * 8; bit++) {
    kvt_oid_value value = good;
    reinterpret_cast<std::uint8_t*>(&value)[bit / 8] ^= static_cast<std::uint8_t>(1u << bit % 8);
    if (bit < 64) {
      EXPECT_EQ(at(value), object) << "the locator is no part of who is meant";
      continue;
    }
    EXPECT_TRUE(is_gone(value)) << bit;
    EXPECT_EQ(entry(value), nullptr) << bit;
    alignas(8) char field[48] = {};
    std::memcpy(field + 8, &value, sizeof value);
    kvtlib_oid_release_internal(h, txn, field, &err);
    EXPECT_EQ(take_err(), 0);
  }
  EXPECT_EQ(request(object), 0) << "none of them had its count";
  for (const kvt_oid_value& nothing : {kvt_oid_value{}, oid(KVT_REF_MARKER)}) {
    EXPECT_EQ(at(nothing), nullptr);
    EXPECT_EQ(entry(nothing), nullptr);
  }
}

TEST_P(Oid, WhatCannotBeReferredToIsRefused) {
  char outside[kSize] = {};
  void* in_another_store = kvt_cage_alloc(kSize);
  auto* nested = static_cast<char*>(make());
  nested[6] = KVT_OBJ_NESTED;
  for (void* target : {static_cast<void*>(nullptr), static_cast<void*>(outside), in_another_store,
                       static_cast<void*>(nested), kvt::at_offset(make(), 4)}) {
    const kvt_oid_value value = oid(target, 1);
    EXPECT_EQ(take_err(), EINVAL) << target;
    EXPECT_EQ(bytes_of(&value, 40), std::string(40, '\0'));
  }
  kvt_cage_free(in_another_store);
}

TEST_P(Oid, TheLastOfItsCountsLetsTheMappingGo) {
  for (int counts = 0; counts < 4; counts++) {
    void* object = make(kvt_type_link_of(&fixture));
    const kvt_oid_value value = oid(object);
    for (int i = 0; i < counts; i++) {
      if (i % 2) {
        oid(object, 1);
      } else {
        kvtlib_update_oid_ref_count(h, txn, entry(value), 1, &err);
      }
    }
    for (int i = 0; i < counts; i++) {
      EXPECT_EQ(request(object), 0) << counts - i;
      EXPECT_EQ(at(value), object);
      if (i % 2) {
        drop(object);
      } else {
        kvtlib_update_oid_ref_count(h, txn, entry(value), 0, &err);
      }
    }
    drop(object);
    drop(object);  // a count of 0 stays
    oid(object, 1);
    EXPECT_EQ(request(object), 0);
    drop(object);
    EXPECT_EQ(request(object), 1);
    EXPECT_FALSE(kvt::load<std::uint8_t>(kvt::at_offset(object, 6)) & KVT_OBJ_OID_MAPPED);
    EXPECT_TRUE(is_gone(value));
    EXPECT_EQ(entry(value), nullptr);
    drop(object);
    EXPECT_EQ(take_err(), ENOENT);
    EXPECT_NE(bytes_of(oid(object).id, 16), bytes_of(value.id, 16)) << "a new one is not the old one";
  }
  drop(nullptr);
}

TEST_P(Oid, ADestroyThatWaitedComesWhenNothingIsHalfWay) {
  void* object = make();
  const kvt_oid_value value = oid(object, 1);
  kvtlib_oid_settle(h, txn);
  EXPECT_EQ(request(object), 0);
  kvtlib_oid_settle(h, txn);
  EXPECT_TRUE(destroyed.empty()) << "counts are left";
  // From one target to the same: the count passes through 0.
  drop(object);
  oid(object, 1);
  kvtlib_oid_settle(h, txn);
  EXPECT_TRUE(destroyed.empty());
  EXPECT_EQ(at(value), object);
  drop(object);
  EXPECT_TRUE(destroyed.empty());
  EXPECT_EQ(at(value), object) << "whole until the runtime may act";
  h->last_error = 77;
  kvtlib_oid_settle(h, txn);
  EXPECT_EQ(destroyed, std::vector<void*>{object});
  EXPECT_EQ(h->last_error, 77);
  EXPECT_EQ(h->gc_active, 0u);
  EXPECT_TRUE(is_gone(value));
  // An object that nobody has asked to destroy stays, and so does one of a type that is never destroyed here.
  void* wanted = make();
  void* lasting = make(kvt_type_link_of(&fixture));
  for (void* one : {wanted, lasting}) oid(one, 1);
  EXPECT_EQ(request(lasting), 0);
  for (void* one : {wanted, lasting}) drop(one);
  kvtdb_txn_commit(h, txn, &err);
  EXPECT_EQ(destroyed.size(), 1u);
  txn = kvtdb_txn_begin(h, &err);
  EXPECT_EQ(request(lasting), 1);
}

TEST_P(Oid, ALongChainOfWaitingObjectsGoesAtOnce) {
  constexpr int kLength = 100000;
  void* next = nullptr;
  kvt_oid_value last{};
  for (int i = 0; i < kLength; i++) {
    void* object = make();
    if (next) kvt::store(kvt::at_offset(object, kValueAt), oid(next, 1));
    next = object;
    last = oid(object, 1);
    EXPECT_EQ(request(object), 0);
    if (i + 1 < kLength) drop(object);
  }
  kvtlib_oid_settle(h, txn);
  EXPECT_TRUE(destroyed.empty());
  drop(next);
  kvtdb_txn_commit(h, txn, &err);
  EXPECT_EQ(destroyed.size(), static_cast<std::size_t>(kLength)) << "a commit leaves no destroy behind";
  txn = kvtdb_txn_begin(h, &err);
  EXPECT_TRUE(is_gone(last));
}

TEST_P(Oid, ADestroyWaitsForTheModuleAndFindsItByItsIdentity) {
  // The registered copy of a type: it leads to the static type by identity alone.
  auto* copy = static_cast<kvt_type_record*>(h->store_alloc(h->store, txn, sizeof(kvt_type_record)));
  std::memcpy(static_cast<void*>(copy), &toy, sizeof toy);
  copy->varinfo = 0;
  void* object = make(kvt_ref_of(copy));
  void* loaded = make();
  for (void* one : {object, loaded}) {
    oid(one, 1);
    EXPECT_EQ(request(one), 0);
  }
  kvt_static_types_set(kModule, nullptr, 0);
  drop(object);
  kvtlib_oid_settle(h, txn);
  EXPECT_TRUE(destroyed.empty());
  kvt_static_types_set(kModule, types, 2);
  drop(loaded);
  kvtlib_oid_settle(h, txn);
  EXPECT_EQ(std::set<void*>(destroyed.begin(), destroyed.end()), (std::set<void*>{object, loaded}));
  EXPECT_EQ(destroyed.size(), 2u);
}

TEST_P(Oid, NoneLeadsIntoAFreedBlock) {
  // Small blocks are asked place by place, and large ones entry by entry.
  for (std::uint32_t places : {1u, 3u, 400u}) {
    for (std::uint32_t place = 0; place < places; place += places == 400 ? 57 : 1) {
      void* block = make(0, places * kSize);
      void* neighbour = make();
      void* object = kvt::at_offset(block, place * kSize);
      void* counted = places > 1 ? kvt::at_offset(block, (place + 1) % places * kSize) : nullptr;
      const kvt_oid_value value = oid(object), kept = counted ? oid(counted, 1) : kvt_oid_value{};
      const kvt_oid_value beside = oid(neighbour);
      EXPECT_EQ(counted ? request(counted) : 0, 0);
      free(block);
      EXPECT_TRUE(is_gone(value)) << places << " " << place;
      EXPECT_EQ(entry(value), nullptr);
      EXPECT_EQ(at(beside), neighbour);
      if (!counted) continue;
      // Its count is still there to be dropped, and leads to no destroy of what has taken the place.
      EXPECT_TRUE(is_gone(kept));
      ASSERT_NE(entry(kept), nullptr);
      void* anew = make(kvt_type_link_of(&toy), places * kSize);
      kvtlib_update_oid_ref_count(h, txn, entry(kept), 0, &err);
      kvtlib_oid_settle(h, txn);
      EXPECT_EQ(entry(kept), nullptr);
      EXPECT_TRUE(destroyed.empty());
      free(anew);
    }
  }
  // One that is due already.
  void* object = make();
  oid(object, 1);
  EXPECT_EQ(request(object), 0);
  drop(object);
  free(object);
  kvtlib_oid_settle(h, txn);
  EXPECT_TRUE(destroyed.empty());
}

TEST_P(Oid, WhatIsReadFromTheWireIsCounted) {
  void* a = make(kvt_type_link_of(&fixture));
  void* b = make(kvt_type_link_of(&fixture));
  kvt_oid_value to_a = oid(a), to_b = oid(b);
  const kvt_oid_value foreign{300, {1, 2}, {3}}, none{};
  kvt_oid_value field{};
  const auto read = [&](const kvt_oid_value& value) {
    std::uint8_t wire[40];
    EXPECT_EQ(kvtlib_oid_marshal(h, txn, wire, &value, sizeof wire, &err), 40u);
    EXPECT_EQ(kvtlib_oid_unmarshal(h, txn, wire, &field, sizeof wire, 0, &err), 40u);
    EXPECT_EQ(bytes_of(&field, 40), bytes_of(&value, 40));
  };
  const struct {
    const kvt_oid_value& value;
    bool a_held, b_held;
  } steps[] = {{to_a, true, false}, {to_a, true, false},  {to_b, false, true}, {foreign, false, false},
               {to_b, false, true}, {none, false, false}, {to_a, true, false}, {none, false, false}};
  for (const auto& step : steps) {
    read(step.value);
    EXPECT_EQ(request(a), !step.a_held);
    EXPECT_EQ(request(b), !step.b_held);
    // A mapping that went comes back for the next step under another identity: only held ones can be read again.
    if (!step.a_held) to_a = oid(a);
    if (!step.b_held) to_b = oid(b);
  }
}

TEST_P(Oid, PrintsInThirtyThreeCharacters) {
  const std::uint8_t id[16] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                               0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
  for (const auto print : {kvtlib_oid_id_print, kvtlib_oid_src_print}) {
    for (int room = 0; room < 36; room++) {
      std::string text(40, 'x');
      EXPECT_EQ(print(h, KVT_NO_TXN, text.data(), id, room, &err), room < 33 ? 0u : 32u);
      EXPECT_EQ(take_err(), room < 33 ? EMSGSIZE : 0);
      EXPECT_EQ(text.substr(0, 33),
                room < 33 ? std::string(33, 'x') : std::string("00112233445566778899aabbccddeeff", 33));
      EXPECT_EQ(text.substr(33), "xxxxxxx");
    }
  }
}

using SharedOid = Oid;
INSTANTIATE_TEST_SUITE_P(Stores, SharedOid, testing::Values(true), [](const auto&) { return "Database"; });

TEST_P(SharedOid, AnAbortTakesEverythingBack) {
  void* kept = make();
  const kvt_oid_value value = oid(kept);
  void* unmapped = make();
  kvtdb_txn_commit(h, txn, &err);

  txn = kvtdb_txn_begin(h, &err);
  const kvt_oid_value lost = oid(unmapped, 1);
  oid(kept, 1);
  EXPECT_EQ(request(kept), 0);
  drop(kept);  // due now
  kvtdb_txn_abort(h, txn, &err);
  EXPECT_TRUE(is_gone(lost));
  EXPECT_EQ(kvt::load<std::uint8_t>(kvt::at_offset(unmapped, 6)), 0);

  txn = kvtdb_txn_begin(h, &err);
  kvtlib_oid_settle(h, txn);
  EXPECT_TRUE(destroyed.empty());
  EXPECT_EQ(at(value), kept);
  const kvt_oid_value anew = oid(unmapped);
  EXPECT_TRUE(is_gone(lost)) << "what the aborted transaction gave out leads to no later object";
  EXPECT_NE(bytes_of(anew.id, 16), bytes_of(lost.id, 16));
  EXPECT_EQ(request(kept), 1) << "no count is left";
  // A freed block's mapping comes back with the block.
  const kvt_oid_value again = oid(kept, 1);
  kvtdb_txn_commit(h, txn, &err);
  txn = kvtdb_txn_begin(h, &err);
  free(kept);
  EXPECT_TRUE(is_gone(again));
  kvtdb_txn_abort(h, txn, &err);
  EXPECT_EQ(at(again), kept);
}

TEST_P(SharedOid, OthersFollowItAndOnlyTheWriterCounts) {
  void* object = make();
  const kvt_oid_value value = oid(object, 1);
  kvtdb_txn_commit(h, txn, &err);
  kvt_handle* reader = open("db");
  EXPECT_EQ(kvt_oid_to_handle(reader, KVT_NO_TXN, &value, &err), object);
  EXPECT_EQ(bytes_of(kvt_handle_to_oid(reader, KVT_NO_TXN, object, 2, 0, &err).id, 16), bytes_of(value.id, 16));
  void* mapping = kvtlib_oid_id_mapping_get(reader, KVT_NO_TXN, &value, &err);
  kvt_handle_to_oid(reader, KVT_NO_TXN, object, 2, 1, &err);
  EXPECT_EQ(take_err(), EPERM);
  kvtlib_update_oid_ref_count(reader, KVT_NO_TXN, mapping, 0, &err);
  EXPECT_EQ(take_err(), EPERM);
  EXPECT_EQ(kvt_request_oid_mapping_destroy(reader, KVT_NO_TXN, object, &err), 0);
  EXPECT_EQ(take_err(), EPERM);
  kvt_handle_close(reader);
  kvt_handle_close(h);
  h = open("db");  // mapped anew, perhaps by another process
  EXPECT_EQ(at(value), object);
  txn = kvtdb_txn_begin(h, &err);
  EXPECT_EQ(request(object), 0);
  drop(object);
  kvtlib_oid_settle(h, txn);
  EXPECT_EQ(destroyed.size(), 1u);
}

}  // namespace
