// Tests of references: each of the nine fields with targets of its own, the counts on them, and what becomes of an
// object that is destroyed while others refer to it.
#include "rig.h"

namespace module_test {
namespace {

using GetByRef = void*(H, Txn, void*, int*);
using SetByRef = void(H, Txn, void*, void*, int*);

struct Reference {
  const Type* type;
  const Field* field;
  bool to_table() const { return field->target.starts_with("tbl_"); }
  std::string name() const { return type->name + "_" + field->name; }
  std::string message(const std::string& text) const { return type->name + " " + field->name + " set by ref: " + text; }
};

std::vector<Reference> all_references() {
  std::vector<Reference> references;
  for (const Type& type : all_types()) {
    for (const Field& f : type.fields) {
      if (kind_of(f) == Kind::kReference) references.push_back({&type, &f});
    }
  }
  return references;
}

// Objects and tables to refer to, and the two operations of a field under test.
struct Bench {
  Rig& rig;
  const Reference& reference;
  char* object = rig.make(*reference.type);
  int tables = 0;

  char* field() const { return object + reference.field->offset; }
  std::string value() const { return std::string(field() + 8, 40); }
  void* get() const { return fn<GetByRef>(reference.name() + "_get_by_ref")(rig.h, rig.txn, object, &rig.err); }
  void set(void* target) const {
    fn<SetByRef>(reference.name() + "_set_by_ref")(rig.h, rig.txn, object, target, &rig.err);
  }
  void* make_target() {
    if (!reference.to_table()) return rig.make(type_of(reference.field->target));
    const auto open = fn<void*(H, Txn, const char*, std::uint32_t, int*)>(reference.field->target + "_table_open");
    return open(rig.h, rig.txn, ("t" + std::to_string(tables++)).c_str(), 0, &rig.err);
  }
  std::uint8_t state() const {
    return fn<StateGet>(reference.name() + "_state_flag_get")(rig.h, rig.txn, object, &rig.err);
  }
  void set_state(std::uint32_t state) const {
    fn<StateSet>(reference.name() + "_state_flag_set")(rig.h, rig.txn, object, state, &rig.err);
  }
};

// What the runtime has counted, by the published layout of a mapping entry.
std::uint32_t counted(Rig& rig, void* target) {
  const kvt_oid_value oid = kvt_handle_to_oid(rig.h, rig.txn, target, 2, 0, &rig.err);
  return load<std::uint32_t>(static_cast<char*>(kvtlib_oid_id_mapping_get(rig.h, rig.txn, &oid, &rig.err)) + 4);
}

// The trace lines of a level while it lives.
class Heard {
 public:
  explicit Heard(std::uint32_t level, unsigned threshold = 8) : level_(level) {
    fenlog_set_level(threshold);
    fenlog_set_sink(
        [](void* heard, std::uint32_t level, const char* line) {
          auto* self = static_cast<Heard*>(heard);
          if (level == self->level_) self->lines.push_back(line);
        },
        this);
  }
  ~Heard() {
    fenlog_set_sink(nullptr, nullptr);
    fenlog_set_level(6);
  }
  bool has(const std::string& text) const {
    return std::any_of(lines.begin(), lines.end(), [&](const auto& l) { return l.find(text) != std::string::npos; });
  }
  std::vector<std::string> lines;

 private:
  std::uint32_t level_;
};

struct Reports {
  std::vector<std::pair<void*, void*>> pairs;
  explicit Reports(kvt_handle* h) : h_(h) {
    h->containment = 1;
    const kvt_observer observer{this,
                                [](void* self, int, void* child, void* parent) {
                                  static_cast<Reports*>(self)->pairs.emplace_back(child, parent);
                                },
                                nullptr, nullptr, nullptr};
    kvt_observe(h, &observer);
  }
  ~Reports() {
    h_->containment = 0;
    kvt_observe(h_, nullptr);
  }
  std::vector<std::pair<void*, void*>> take() { return std::exchange(pairs, {}); }

 private:
  kvt_handle* h_;
};
using Pairs = std::vector<std::pair<void*, void*>>;

TEST(References, AreCountedByTypeWhateverTheVariant) {
  ASSERT_EQ(all_references().size(), 9u);
  Rig rig;
  for (const Type& type : all_types()) {
    const auto count = fn<std::uint32_t(H, Txn, const void*, int*)>(type.name + "_get_oid_count");
    std::uint32_t own = 0;
    for (const Reference& r : all_references()) own += r.type->name == type.name;
    char* object = rig.make(type);
    for (int variant : {type.top(), 0, -1}) {
      object[4] = static_cast<char>(variant);
      EXPECT_EQ(count(rig.h, rig.txn, object, &rig.err), own) << type.name;
    }
    object[4] = static_cast<char>(type.top());
    rig.destroy(type, object);
  }
}

TEST(References, AreSetReadReplacedClearedAndMarked) {
  for (Place place : kPlaces) {
    for (Tracking tracking : kTrackings) {
      for (const Reference& reference : all_references()) {
        SCOPED_TRACE(reference.name() + " in " + name_of(place) + ", tracking " + name_of(tracking));
        Rig rig(tracking, place);
        Bench bench{rig, reference};
        const std::string empty(40, '\0');
        EXPECT_EQ(bench.value(), empty);
        EXPECT_EQ(bench.get(), nullptr);
        void* a = bench.make_target();
        void* b = bench.make_target();
        ASSERT_NE(a, b);
        const auto state = [&] { return rig.tracked() ? bench.state() : 0; };
        Reports reports(rig.h);
        // Setting marks the state byte, and reports what it set.
        EXPECT_TRUE(announces_all(rig, [&] { bench.set(a); }));
        EXPECT_EQ(reports.take(), (Pairs{{a, bench.object}}));
        EXPECT_GE(load<std::uint64_t>(bench.field() + 8), 256u);
        EXPECT_EQ(bench.get(), a);
        EXPECT_EQ(reports.take(), (Pairs{{a, bench.object}}));
        EXPECT_EQ(counted(rig, a), 1u);
        EXPECT_EQ(state(), rig.tracked() ? 2 : 0);
        const auto announced = [&](char* at, std::uint32_t length) {
          return std::any_of(rig.announced.begin(), rig.announced.end(),
                             [&](const Rig::Range& r) { return r.at == at && r.length == length; });
        };
        EXPECT_TRUE(announced(bench.field() + 8, 40));
        bench.set(b);
        EXPECT_EQ(counted(rig, a), 0u);
        EXPECT_EQ(counted(rig, b), 1u);
        bench.set(b);
        EXPECT_EQ(counted(rig, b), 1u);
        EXPECT_EQ(bench.get(), b);
        // The marker drops nothing, marks no state byte, and leads nowhere.
        if (rig.tracked()) bench.set_state(9);
        reports.take();
        EXPECT_TRUE(announces_all(rig, [&] { bench.set(KVT_REF_MARKER); }));
        EXPECT_EQ(reports.take(), (Pairs{{KVT_REF_MARKER, bench.object}}));
        EXPECT_NE(bench.value(), empty);
        EXPECT_LT(load<std::uint64_t>(bench.field() + 8), 256u);
        EXPECT_EQ(bench.get(), nullptr);
        EXPECT_EQ(counted(rig, b), 1u);
        EXPECT_EQ(state(), rig.tracked() ? 9 : 0);
        // The count that the marker left behind is nobody's; it is dropped by hand.
        bench.set(b);
        EXPECT_EQ(counted(rig, b), 2u);
        kvtlib_lookup_and_update_oid_ref_count(rig.h, rig.txn, b, 0, &rig.err);
        // Clearing marks and reports nothing.
        if (rig.tracked()) bench.set_state(9);
        reports.take();
        EXPECT_TRUE(announces_all(rig, [&] { bench.set(nullptr); }));
        EXPECT_EQ(bench.value(), empty);
        EXPECT_EQ(counted(rig, b), 0u);
        EXPECT_EQ(state(), rig.tracked() ? 9 : 0);
        bench.set(nullptr);
        EXPECT_TRUE(reports.take().empty());
        // The calls that hold nothing but the handle.
        EXPECT_EQ(fn<std::int32_t(H, void*, void*)>(reference.name() + "_set_by_ref_cr")(rig.h, bench.object, a), 0);
        EXPECT_EQ(fn<void*(H, void*)>(reference.name() + "_get_by_ref_cr")(rig.h, bench.object), a);
        rig.destroy(*reference.type, bench.object);
        EXPECT_EQ(counted(rig, a), 0u) << "destroy drops the count";
      }
    }
  }
}

TEST(References, RefuseWhatTheyCannotReferTo) {
  for (Place place : kPlaces) {
    for (const Reference& reference : all_references()) {
      SCOPED_TRACE(reference.name() + " in " + name_of(place));
      Rig rig(Tracking::kOn, place);
      Bench bench{rig, reference};
      auto* target = static_cast<char*>(bench.make_target());
      bench.set(target);
      bench.set_state(9);
      const std::string before(bench.object, reference.type->size.back() + reference.type->block.back());
      const auto unchanged = [&] {
        return before == std::string(bench.object, before.size()) && counted(rig, target) == 1;
      };
      char* other = rig.make(type_of("st_dtim"));
      bench.set(other);
      EXPECT_EQ(rig.take_err(), 22);
      EXPECT_EQ(rig.h->last_error, 22);
      EXPECT_TRUE(unchanged());
      {
        const Heard heard(KVT_LEVEL_ERROR);
        auto* nested = static_cast<char*>(bench.make_target());
        nested[6] |= KVT_OBJ_NESTED;
        bench.set(nested);
        EXPECT_EQ(rig.take_err(), 1);
        EXPECT_EQ(rig.h->last_error, 1);
        EXPECT_TRUE(heard.has(reference.message("Cannot set reference to this object")));
        EXPECT_TRUE(unchanged());
        nested[6] = static_cast<char>((nested[6] & ~KVT_OBJ_NESTED) | KVT_OBJ_EMBEDDED);
        bench.set(nested);
        EXPECT_EQ(rig.take_err(), 0) << "what a record has taken over may be referred to";
        bench.set(target);
        bench.set_state(9);
      }
      rig.err = 5;
      bench.set(nullptr);
      EXPECT_EQ(bench.get(), nullptr);
      EXPECT_EQ(rig.take_err(), 5);
      EXPECT_TRUE(unchanged());
      // An object whose variant lacks the field.
      kvt_domain_set_variant(rig.h, record_of(reference.type->name), reference.field->variant - 1);
      bench.object[4] = static_cast<char>(reference.field->variant - 1);
      for (void* one : {static_cast<void*>(target), static_cast<void*>(nullptr), KVT_REF_MARKER}) {
        bench.set(one);
        EXPECT_EQ(rig.take_err(), 43);
      }
      EXPECT_EQ(bench.get(), nullptr);
      EXPECT_EQ(rig.take_err(), 43);
      bench.object[4] = static_cast<char>(reference.type->top());
      EXPECT_TRUE(unchanged());
      // A target of another type, by way of an identity that came from elsewhere.
      const kvt_oid_value astray = kvt_handle_to_oid(rig.h, rig.txn, other, 2, 0, &rig.err);
      std::memcpy(bench.field() + 8, &astray, sizeof astray);
      EXPECT_EQ(bench.get(), nullptr);
      EXPECT_EQ(rig.take_err(), 22);
      const auto link = load<std::uint32_t>(bench.field());
      std::memcpy(bench.field(), other, 4);
      EXPECT_EQ(bench.get(), nullptr) << "the field's own link is held against the schema";
      EXPECT_EQ(rig.take_err(), 22);
      std::memcpy(bench.field(), &link, 4);
      const auto get = fn<GetByRef>(reference.name() + "_get_by_ref");
      EXPECT_EQ(get(rig.h, rig.txn, nullptr, &rig.err), nullptr);
      EXPECT_EQ(rig.take_err(), 43);
      fn<SetByRef>(reference.name() + "_set_by_ref")(rig.h, rig.txn, nullptr, target, &rig.err);
      EXPECT_EQ(rig.take_err(), 43);
    }
  }
}

TEST(References, TellOfAnIdentityWithoutMappingAndGoOn) {
  for (const Reference& reference : all_references()) {
    SCOPED_TRACE(reference.name());
    Rig rig(Tracking::kOn);
    Bench bench{rig, reference};
    void* target = bench.make_target();
    kvt_oid_value foreign{300, {0xAB}, {0xCD}};
    const auto make_foreign = [&] { std::memcpy(bench.field() + 8, &foreign, sizeof foreign); };
    make_foreign();
    EXPECT_EQ(bench.get(), nullptr);
    EXPECT_EQ(rig.take_err(), 2);
    const std::string id = "ab" + std::string(30, '0'), src = "cd" + std::string(30, '0');
    const std::string unmapped = reference.message("Could not get oid id mapping for object " + id + "/" + src);
    {
      const Heard heard(KVT_LEVEL_NOTICE);
      bench.set(nullptr);
      EXPECT_TRUE(heard.has(unmapped)) << testing::PrintToString(heard.lines);
    }
    EXPECT_EQ(bench.value(), std::string(40, '\0'));
    make_foreign();
    const Heard errors(KVT_LEVEL_ERROR, 3);
    bench.set(nullptr);
    EXPECT_TRUE(errors.lines.empty());
    make_foreign();
    bench.set(target);
    EXPECT_EQ(errors.lines.size(), 1u);
    EXPECT_TRUE(errors.has(reference.message("Could not get oid mapping entry using oid id")));
    EXPECT_EQ(bench.get(), target);
    EXPECT_EQ(counted(rig, target), 1u);
    make_foreign();
    rig.destroy(*reference.type, bench.object);  // nothing of it is counted here
    EXPECT_EQ(errors.lines.size(), 1u);
  }
}

TEST(References, TellWhatTheRuntimeRefuses) {
  for (const Reference& reference : all_references()) {
    SCOPED_TRACE(reference.name());
    Rig rig(Tracking::kOn, Place::kDatabase);
    Bench bench{rig, reference};
    void* target = bench.make_target();
    const std::string refused = strerror(1);
    kvtdb_txn_commit(rig.h, rig.txn, &rig.err);
    {
      const Heard heard(KVT_LEVEL_ERROR);
      bench.set(target);
      EXPECT_EQ(rig.take_err(), 1);
      EXPECT_TRUE(heard.has(reference.message("Handle to oid failed with error code " + refused)));
      EXPECT_EQ(bench.value(), std::string(40, '\0'));
    }
    rig.txn = kvtdb_txn_begin(rig.h, &rig.err);
    bench.set(target);
    kvtdb_txn_commit(rig.h, rig.txn, &rig.err);
    const std::string before = bench.value();
    const Heard heard(KVT_LEVEL_ERROR);
    bench.set(nullptr);
    EXPECT_EQ(rig.take_err(), 1);
    EXPECT_TRUE(heard.has(reference.message("Failed to decrement ref count on earlier reference. Error " + refused)));
    bench.set(target);
    EXPECT_EQ(rig.take_err(), 1);
    EXPECT_TRUE(heard.has(reference.message("Failed to update ref count on earlier reference. Error " + refused)));
    rig.destroy(*reference.type, bench.object);
    EXPECT_TRUE(heard.has(reference.type->name + " destroy: Failed to release oid reference for " +
                          reference.field->name + " oid. Error " + refused));
    EXPECT_TRUE(rig.blocks.count(bench.object)) << "not freed";
    EXPECT_EQ(bench.value(), before);
    rig.txn = kvtdb_txn_begin(rig.h, &rig.err);
  }
}

TEST(References, OfAnObjectAreItsTables) {
  for (Place place : kPlaces) {
    for (const Type& type : all_types()) {
      SCOPED_TRACE(type.name + " in " + name_of(place));
      Rig rig(Tracking::kOff, place);
      const auto list =
          fn<void(H, Txn, const void*, void**, std::uint32_t, int*)>(type.name + "_get_object_references");
      std::vector<void*> expected;
      char* object = rig.make(type);
      const auto listed = [&] {
        std::vector<void*> out(4, rig.h);  // whatever was there
        list(rig.h, rig.txn, object, out.data(), 0, &rig.err);
        return out;
      };
      const auto padded = [&] {
        std::vector<void*> all = expected;
        all.resize(4, rig.h);
        return all;
      };
      std::vector<Reference> references;
      for (const Reference& r : all_references()) {
        if (r.type->name == type.name) references.push_back(r);
      }
      for (const Reference& r : references) {
        if (r.to_table()) expected.push_back(nullptr);
      }
      EXPECT_EQ(listed(), padded()) << "nothing is referred to";
      expected.clear();
      char* last = nullptr;
      for (const Reference& r : references) {
        Bench bench{rig, r, object};
        void* target = bench.make_target();
        bench.set(target);
        if (r.to_table()) expected.push_back(target);
        last = bench.field();
      }
      EXPECT_EQ(listed(), padded());
      const Heard heard(KVT_LEVEL_ERROR);
      if (!last || expected.empty()) continue;
      // The field's variant counts for nothing, but what an older library left out is not read.
      object[4] = 0;
      EXPECT_EQ(listed(), padded());
      object[5] = 0;
      void* held = expected.back();
      if (references.back().field->variant > 0) expected.back() = nullptr;
      EXPECT_EQ(listed(), padded());
      object[4] = object[5] = static_cast<char>(type.top());
      expected.back() = nullptr;
      const auto locator = load<std::uint64_t>(last + 8);
      const std::uint64_t low = 255;
      std::memcpy(last + 8, &low, 8);
      EXPECT_EQ(listed(), padded());
      std::memcpy(last + 8, &locator, 8);
      last[16] ^= 1;
      expected.back() = rig.h;
      EXPECT_EQ(listed(), padded());
      EXPECT_EQ(rig.take_err(), 2);
      EXPECT_TRUE(heard.has("Failed to obtain resolve existing oid reference from object"));
      last[16] ^= 1;
      rig.destroy(type, object);
      EXPECT_EQ(counted(rig, held), 0u);
    }
  }
}

// The ways in which the last reference to an object goes.
enum class Way { kClear, kReplace, kDestroy, kUnmarshal };

TEST(References, HoldADestroyedObjectUntilTheLastOneGoes) {
  for (Place place : kPlaces) {
    for (Way way : {Way::kClear, Way::kReplace, Way::kDestroy, Way::kUnmarshal}) {
      for (const Reference& reference : all_references()) {
        if (reference.to_table()) continue;
        SCOPED_TRACE(reference.name() + " in " + name_of(place) + ", way " + std::to_string(static_cast<int>(way)));
        Rig rig(Tracking::kOn, place);
        const Type& held = type_of(reference.field->target);
        Bench bench{rig, reference}, second{rig, reference};
        char* target = static_cast<char*>(bench.make_target());
        fill_slot(rig, slots_of(held, target)[0], 3, 3);
        void* other = bench.make_target();
        bench.set(target);
        second.set(target);
        const std::uint32_t size = rig.blocks[target];
        const std::string before(target, size);
        {
          const Heard notices(KVT_LEVEL_NOTICE);
          rig.destroy(held, target);
          EXPECT_TRUE(notices.has(
              held.name + " destroy: Object has references and will be cleaned up when all of them are released"));
        }
        EXPECT_EQ(std::string(target, size), before);
        rig.destroy(*second.reference.type, second.object);
        bench.set(target);  // once more the same: the count passes through 0
        ASSERT_TRUE(rig.blocks.count(target));
        EXPECT_EQ(bench.get(), target);
        EXPECT_EQ(counted(rig, target), 1u);
        const Heard debug(KVT_LEVEL_DEBUG);
        rig.h->last_error = 0;
        if (way == Way::kClear) bench.set(nullptr);
        if (way == Way::kReplace) bench.set(other);
        if (way == Way::kDestroy) rig.destroy(*reference.type, bench.object);
        if (way == Way::kUnmarshal) {
          std::uint8_t wire[512];
          char* empty = rig.make(*reference.type);
          const std::uint32_t length =
              fn<Marshal>(reference.type->name + "_marshal")(rig.h, rig.txn, wire, empty, sizeof wire, &rig.err);
          fn<Unmarshal>(reference.type->name + "_unmarshal")(rig.h, rig.txn, wire, bench.object,
                                                             static_cast<std::int32_t>(length), 0, &rig.err);
          EXPECT_TRUE(rig.blocks.count(target)) << "a reader destroys nothing";
          kvtdb_txn_commit(rig.h, rig.txn, &rig.err);
          rig.txn = kvtdb_txn_begin(rig.h, &rig.err);
        }
        EXPECT_FALSE(rig.blocks.count(target)) << "gone with all that it held";
        EXPECT_TRUE(debug.has(held.name + " destroy: Successfully removed OID mapping"));
        EXPECT_EQ(rig.h->last_error, 0);
        EXPECT_EQ(counted(rig, other), way == Way::kReplace ? 1u : 0u);
      }
    }
  }
}

TEST(References, HoldThePayloadOfADestroyedRecord) {
  for (Place place : kPlaces) {
    Rig rig(Tracking::kOn, place);
    void* table = tbl_wlan_table_open(rig.h, rig.txn, "campus", 0, &rig.err);
    void* record = tbl_wlan_create_record(rig.h, rig.txn, &rig.err);
    void* payload = st_wlan_create(rig.h, rig.txn);
    tbl_wlan_st_wlan_set_field(rig.h, rig.txn, record, payload);
    tbl_wlan_insert(rig.h, rig.txn, table, record, &rig.err);
    void* keys = tbl_mpsk_keys_int_table_open(rig.h, rig.txn, "campus", 0, &rig.err);
    st_wlan_int_mpsk_keys_oid_set_by_ref(rig.h, rig.txn, payload, keys, &rig.err);
    void* notify = st_wlan_notify_create(rig.h, rig.txn);
    st_wlan_notify_wlan_rec_ref_set_by_ref(rig.h, rig.txn, notify, payload, &rig.err);
    tbl_wlan_destroy_record(rig.h, rig.txn, record, &rig.err);
    EXPECT_FALSE(rig.blocks.count(static_cast<char*>(record)));
    EXPECT_EQ(st_wlan_notify_wlan_rec_ref_get_by_ref(rig.h, rig.txn, notify, &rig.err), payload);
    EXPECT_EQ(counted(rig, keys), 1u);
    st_wlan_notify_destroy(rig.h, rig.txn, notify);
    EXPECT_FALSE(rig.blocks.count(static_cast<char*>(payload)));
    EXPECT_EQ(counted(rig, keys), 0u) << "what the payload referred to is let go with it";
  }
}

TEST(References, OfARawCopyAreNotCountedAndDropNoMoreThanThereIs) {
  for (const Reference& reference : all_references()) {
    SCOPED_TRACE(reference.name());
    Rig rig(Tracking::kOff);
    Bench bench{rig, reference}, copy{rig, reference}, third{rig, reference};
    void* target = bench.make_target();
    bench.set(target);
    fn<Set>(reference.type->name + "_set")(rig.h, rig.txn, copy.object, bench.object, &rig.err);
    EXPECT_EQ(copy.get(), target);
    EXPECT_EQ(counted(rig, target), 1u);
    rig.destroy(*reference.type, copy.object);
    rig.destroy(*reference.type, bench.object);
    EXPECT_EQ(counted(rig, target), 0u);
    third.set(target);
    EXPECT_EQ(counted(rig, target), 1u);
    // A copy by way of the binary form counts.
    std::uint8_t wire[4096];
    char* read = rig.make(*reference.type);
    const std::uint32_t length =
        fn<Marshal>(reference.type->name + "_marshal")(rig.h, rig.txn, wire, third.object, sizeof wire, &rig.err);
    fn<Unmarshal>(reference.type->name + "_unmarshal")(rig.h, rig.txn, wire, read, static_cast<std::int32_t>(length), 0,
                                                       &rig.err);
    Bench again{rig, reference, read};
    EXPECT_EQ(again.get(), target);
    EXPECT_EQ(counted(rig, target), 2u);
    rig.destroy(*reference.type, read);
    EXPECT_EQ(counted(rig, target), 1u);
  }
}

}  // namespace
}  // namespace module_test
