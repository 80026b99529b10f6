// A long random history of every table, beside ordered maps that keep the same records, on a private store and in a
// database where some transactions are aborted.
#include <array>
#include <map>
#include <optional>
#include <random>
#include <tuple>

#include "tests/tables/rig.h"

namespace table_test {
namespace {

enum class Grade { kOut, kPrimary, kFull };

struct Row {
  std::uint16_t tenant;
  std::uint8_t source;
  std::vector<unsigned> keys;
  Grade grade = Grade::kOut;
  bool pending = false;
};

using Position = std::tuple<std::uint16_t, std::string, std::uint8_t>;

// What the table should hold. A copy of it is the state that an abort brings back.
struct Model {
  std::map<void*, Row> rows;
  std::array<std::map<Position, void*>, 3> trees;
  std::map<std::pair<std::uint16_t, std::uint8_t>, std::uint32_t> counters;
  std::uint64_t database_pending = 0;

  std::uint32_t count(bool (*wanted)(const Row&)) const {
    std::uint32_t n = 0;
    for (const auto& [record, row] : rows) n += row.grade != Grade::kOut && wanted(row);
    return n;
  }
  bool skipped(void* record, bool skip_pending) const { return skip_pending && rows.at(record).pending; }

  void* step(std::size_t key, const Position& from, bool forward, unsigned source, bool filter, bool skip_pending,
             bool same_key) const {
    const auto& tree = trees[key];
    auto fits = [&](const Position& p, void* record) {
      if (filter && std::get<2>(p) != source) return false;
      if (!filter && source == 0 && std::get<2>(p) == 255) return false;
      return !skipped(record, skip_pending);
    };
    auto ends = [&](const Position& p) {
      return std::get<0>(p) != std::get<0>(from) || (same_key && std::get<1>(p) != std::get<1>(from));
    };
    if (forward) {
      for (auto i = tree.upper_bound(from); i != tree.end() && !ends(i->first); ++i) {
        if (fits(i->first, i->second)) return i->second;
      }
    } else {
      for (auto i = tree.lower_bound(from); i != tree.begin();) {
        --i;
        if (ends(i->first)) break;
        if (fits(i->first, i->second)) return i->second;
      }
    }
    return nullptr;
  }
  void* search(std::size_t key, const Position& wanted, bool nearest, bool forward, unsigned neighbour,
               bool skip_pending, bool same_key) const {
    const auto exact = trees[key].find(wanted);
    if (exact != trees[key].end() && !skipped(exact->second, skip_pending)) return exact->second;
    if (!nearest && !same_key) return nullptr;
    return step(key, wanted, forward, neighbour, neighbour != 0, skip_pending, same_key && !nearest);
  }
  void* edge(std::size_t key, std::uint16_t tenant, bool first) const {
    void* found = nullptr;
    for (const auto& [p, record] : trees[key]) {
      if (std::get<0>(p) != tenant || std::get<2>(p) != 1) continue;
      found = record;
      if (first) break;
    }
    return found;
  }
};

class History {
 public:
  History(const TableOps& table, Kind kind, unsigned seed) : type_(table), rig_(kind), random_(seed) {
    rig_.begin();
    table_ = open_table(rig_, type_);
    for (const KeyOps& key : type_.keys) {
      holders_.emplace_back();
      for (unsigned n = 0; n < key_values(key.kind); ++n) {
        void* holder = type_.pkey_create(rig_, rig_.txn());
        set_key(rig_, key, holder, n);
        holders_.back().push_back(holder);
      }
    }
    for (int i = 0; i < 40; ++i) add_row();
    rig_.commit();
  }

  void run(int transactions) {
    for (int i = 0; i < transactions && !testing::Test::HasFailure(); ++i) {
      SCOPED_TRACE("transaction " + std::to_string(i));
      const Model before = model_;
      rig_.begin();
      const int steps = 1 + pick(30);
      for (int s = 0; s < steps; ++s) {
        change();
        ASSERT_EQ(rig_.err, 0);
        check_shape();
        if (testing::Test::HasFailure()) return;
      }
      check_reads(4);
      if (rig_->mode == 1 && pick(3) == 0) {
        rig_.abort();
        model_ = before;
        check_shape();
      } else {
        rig_.commit();
      }
      check_reads(4);
      check_walks();
    }
    EXPECT_GT(refused_[0], 0u) << "the history has met no duplicate";
    for (std::size_t k = 1; k < type_.keys.size(); ++k) EXPECT_GT(refused_[k], 0u) << type_.keys[k].name;
  }

 private:
  static constexpr std::uint16_t kTenants[] = {0, 3, 700};
  static constexpr std::uint8_t kSources[] = {1, 1, 1, 2, 255};

  unsigned pick(unsigned below) { return random_() % below; }
  unsigned pick_key(std::size_t k) { return pick(key_values(type_.keys[k].kind)); }
  Position position(const Row& row, std::size_t k) const {
    return {row.tenant, key_order(type_.keys[k].kind, row.keys[k]), row.source};
  }

  void add_row() {
    Row row{kTenants[pick(3)], kSources[pick(5)], {}};
    for (std::size_t k = 0; k < type_.keys.size(); ++k) row.keys.push_back(pick_key(k));
    mt_set_tenant_id(row.tenant);
    void* record = make_record(rig_, type_, row.source, row.keys);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record_tenant(record), row.tenant);
    model_.rows[record] = row;
  }

  // The index that would refuse the row; none if all that it would enter have room.
  std::optional<std::size_t> refusing(const Row& row, bool primary_only) const {
    if (row.grade != Grade::kOut) return 0;
    for (std::size_t k = 0; k < (primary_only ? 1 : type_.keys.size()); ++k) {
      if (model_.trees[k].count(position(row, k))) return k;
    }
    return std::nullopt;
  }

  void insert(void* record, Row& row, bool primary_only) {
    const std::optional<std::size_t> refusal = refusing(row, primary_only);
    const std::uint32_t flags = record_flags(record), holder = record_table(record);
    rig_.lines.clear();
    (primary_only ? type_.pkey_insert : type_.insert)(rig_, rig_.txn(), table_, record, &rig_.err);
    if (refusal) {
      EXPECT_EQ(rig_.take_error(), 17);
      EXPECT_EQ(rig_.take_line(), std::string(type_.name) + " insert record exists for " + type_.payload + " " +
                                      type_.keys[*refusal].name);
      EXPECT_EQ(record_flags(record), flags);
      EXPECT_EQ(record_table(record), holder);
      ++refused_[*refusal];
      return;
    }
    EXPECT_EQ(rig_.take_error(), 0);
    if (row.pending) row.pending = false;
    row.grade = primary_only ? Grade::kPrimary : Grade::kFull;
    for (std::size_t k = 0; k < (primary_only ? 1 : type_.keys.size()); ++k) model_.trees[k][position(row, k)] = record;
    if (row.tenant) ++model_.counters[{row.tenant, row.source}];
    EXPECT_EQ(record_flags(record) & 0x13, primary_only ? 0x11u : 0x01u);
    EXPECT_EQ(record_table(record), kvt_ref_of(table_));
  }

  void leave(Row& row) {
    for (std::size_t k = 0; k < (row.grade == Grade::kFull ? type_.keys.size() : 1); ++k)
      model_.trees[k].erase(position(row, k));
    if (row.pending) --model_.database_pending;
    if (row.tenant) --model_.counters[{row.tenant, row.source}];
    row.grade = Grade::kOut;
  }

  void remove(void* record, Row& row) {
    rig_.lines.clear();
    type_.remove(rig_, rig_.txn(), table_, record, &rig_.err);
    if (row.grade == Grade::kOut) {
      EXPECT_EQ(rig_.take_error(), 2);
      EXPECT_EQ(rig_.take_line(),
                std::string(type_.name) + " delete, record not found for " + type_.payload + " " + type_.keys[0].name);
      return;
    }
    EXPECT_EQ(rig_.take_error(), 0);
    leave(row);
    EXPECT_EQ(record_table(record), 0u);
    EXPECT_EQ(record_flags(record) & 0x10, 0u);
  }

  void reduce(void* record, Row& row) {
    if (row.grade == Grade::kOut) return;
    type_.pkey_remove(rig_, rig_.txn(), table_, record, &rig_.err);
    EXPECT_EQ(rig_.take_error(), 0);
    if (row.grade == Grade::kFull) {
      for (std::size_t k = 1; k < type_.keys.size(); ++k) model_.trees[k].erase(position(row, k));
    }
    row.grade = Grade::kPrimary;
    EXPECT_EQ(record_flags(record) & 0x10, 0x10u);
  }

  // As the runtime does for a record whose destruction is asked for.
  void mark_pending(void* record, Row& row) {
    if (row.grade == Grade::kOut || row.pending) return;
    auto put = [&](void* place, auto value) {
      rig_->set_range(rig_, place, sizeof value, rig_.txn(), nullptr);
      std::memcpy(place, &value, sizeof value);
    };
    put(static_cast<char*>(record) + 36, record_flags(record) | 2u);
    put(static_cast<char*>(table_) + 248, pending_count(table_) + 1);
    put(&rig_->db_stats->pending_destroy, rig_->db_stats->pending_destroy + 1);
    row.pending = true;
    ++model_.database_pending;
  }

  void change_keys(void* record, Row& row) {
    if (row.grade != Grade::kOut) return;
    for (std::size_t k = 0; k < type_.keys.size(); ++k) {
      row.keys[k] = pick_key(k);
      set_key(rig_, type_.keys[k], record_payload(type_, record), row.keys[k]);
    }
  }

  void change() {
    auto chosen = model_.rows.begin();
    std::advance(chosen, pick(static_cast<unsigned>(model_.rows.size())));
    void* record = chosen->first;
    Row& row = chosen->second;
    mt_set_tenant_id(row.tenant);
    const unsigned what = pick(20);
    if (what < 8) {
      insert(record, row, false);
    } else if (what < 10) {
      insert(record, row, true);
    } else if (what < 13) {
      remove(record, row);
    } else if (what < 15) {
      reduce(record, row);
    } else if (what < 16) {
      mark_pending(record, row);
    } else if (what < 19) {
      change_keys(record, row);
    } else {
      if (row.grade != Grade::kOut) leave(row);
      EXPECT_EQ(type_.destroy(rig_, rig_.txn(), record, &rig_.err), 0u);
      model_.rows.erase(chosen);
      add_row();
    }
  }

  void check_shape() {
    for (std::size_t k = 0; k < type_.keys.size(); ++k) {
      ASSERT_EQ(check_index(type_, table_, k), 0) << type_.keys[k].name;
      ASSERT_EQ(at<std::uint32_t>(table_, 372 + 8 * k), model_.trees[k].size()) << type_.keys[k].name;
    }
    ASSERT_EQ(record_count(table_), model_.count([](const Row&) { return true; }));
    ASSERT_EQ(shadow_count(table_), model_.count([](const Row& row) { return row.source == 255; }));
    ASSERT_EQ(pending_count(table_), model_.count([](const Row& row) { return row.pending; }));
    ASSERT_EQ(rig_->db_stats->pending_destroy, model_.database_pending);
  }

  // Every way of reading, at random keys and tenants. None of them takes memory of the store.
  void check_reads(int rounds) {
    const unsigned allocations = rig_.allocations;
    int* err = &rig_.err;
    kvt_handle* h = rig_;
    const std::uint32_t txn = rig_.txn();
    for (int round = 0; round < rounds; ++round) {
      const std::uint16_t tenant = kTenants[pick(3)];
      mt_set_tenant_id(tenant);
      for (std::size_t k = 0; k < type_.keys.size(); ++k) {
        const KeyOps& key = type_.keys[k];
        SCOPED_TRACE(std::string(key.name) + " of tenant " + std::to_string(tenant));
        const unsigned n = pick_key(k);
        void* holder = holders_[k][n];
        const void* value = key_place(rig_, key, holder);
        const Position p{tenant, key_order(key.kind, n), 1};
        void* exact = model_.search(k, p, false, true, 0, false, false);
        ASSERT_EQ(key.search(h, txn, table_, value, err), exact);
        ASSERT_EQ(key.search_nearest(h, txn, table_, value, err), model_.search(k, p, true, true, 1, false, false));
        void* above = model_.step(k, p, true, 1, true, false, false);
        void* below = model_.step(k, p, false, 1, true, false, false);
        ASSERT_EQ(key.next_by_key(h, txn, table_, value, err), above);
        ASSERT_EQ(key.prev_by_key(h, txn, table_, value, err), below);
        void* first = model_.edge(k, tenant, true);
        void* last = model_.edge(k, tenant, false);
        ASSERT_EQ(key.first(h, txn, table_, err), first);
        ASSERT_EQ(key.last(h, txn, table_, err), last);
        if (k == 0) {
          ASSERT_EQ(type_.search(h, txn, table_, holder, 0, err), exact);
          ASSERT_EQ(type_.search(h, txn, table_, holder, 1, err), exact ? exact : above);
          ASSERT_EQ(type_.next_by_key(h, txn, table_, holder, err), above);
          ASSERT_EQ(type_.prev_by_key(h, txn, table_, holder, err), below);
          ASSERT_EQ(type_.pkey_first(h, txn, table_, err), first);
          ASSERT_EQ(type_.pkey_last(h, txn, table_, err), last);
        }
        for (unsigned options = 0; options < 16; ++options) {
          const bool nearest = options & 1, forward = options & 2, skip = options & 4, same = options & 8;
          const unsigned source = std::array{0u, 1u, 2u, 255u}[pick(4)];
          const unsigned neighbour = std::array{0u, 1u, 2u, 255u}[pick(4)];
          const Position from{tenant, std::get<1>(p), static_cast<std::uint8_t>(source ? source : 1)};
          ASSERT_EQ(key.search_internal(h, txn, table_, value, nearest, forward, source, neighbour, skip, same, err),
                    model_.search(k, from, nearest, forward, neighbour, skip, same))
              << "options " << options << " source " << source << " neighbour " << neighbour;
          // The short form: `forward` is fixed, pending records count when asked for, and no source means the first.
          const unsigned flags = nearest | (skip ? 0 : 2) | (same ? 4 : 0);
          ASSERT_EQ(key.search_cr(h, table_, value, source, flags),
                    model_.search(k, from, nearest, true, source || same ? source : 1, skip, same))
              << "flags " << flags << " source " << source;
        }
        if (void* record = any_record(k, tenant)) {
          const Position at_record = position(model_.rows.at(record), k);
          void* next = model_.step(k, at_record, true, 1, true, false, false);
          void* prev = model_.step(k, at_record, false, 1, true, false, false);
          ASSERT_EQ(key.next(h, txn, table_, record, err), next);
          ASSERT_EQ(key.prev(h, txn, table_, record, err), prev);
          const auto after = model_.trees[k].upper_bound(at_record);
          const bool same = after != model_.trees[k].end() && std::get<1>(after->first) == std::get<1>(at_record);
          ASSERT_EQ(key.sub_next(h, txn, table_, record, err), same ? after->second : nullptr);
          for (unsigned options = 0; options < 8; ++options) {
            const bool filter = options & 1, skip = options & 2, keep = options & 4;
            const unsigned source = std::array{0u, 1u, 2u, 255u}[pick(4)];
            ASSERT_EQ(key.next_internal(h, txn, table_, record, source, filter, skip, keep, err),
                      model_.step(k, at_record, true, source, filter, skip, keep));
            ASSERT_EQ(key.prev_internal(h, txn, table_, record, source, filter, skip, keep, err),
                      model_.step(k, at_record, false, source, filter, skip, keep));
          }
          if (k == 0) {
            ASSERT_EQ(type_.pkey_next(h, txn, table_, record, err), next);
            ASSERT_EQ(type_.pkey_prev(h, txn, table_, record, err), prev);
            ASSERT_EQ(type_.pkey_sub_next(h, txn, table_, record, err), same ? after->second : nullptr);
          }
        }
      }
      check_counts(tenant);
    }
    EXPECT_EQ(rig_.err, 0);
    EXPECT_EQ(rig_.allocations, allocations) << "a read has taken memory";
  }

  void* any_record(std::size_t k, std::uint16_t tenant) {
    std::vector<void*> all;
    for (const auto& [p, record] : model_.trees[k]) {
      if (std::get<0>(p) == tenant) all.push_back(record);
    }
    return all.empty() ? nullptr : all[pick(static_cast<unsigned>(all.size()))];
  }

  void check_counts(std::uint16_t tenant) {
    std::uint32_t all = 0;
    for (std::uint32_t source : {1u, 2u, 255u}) {
      const std::uint32_t of_source = model_.counters[{tenant, static_cast<std::uint8_t>(source)}];
      all += of_source;
      const std::uint32_t expected = tenant ? of_source : source == 255 ? shadow_count(table_) : 0;
      ASSERT_EQ(type_.count_by_src(rig_, rig_.txn(), table_, source), expected) << "source " << source;
    }
    if (!tenant) all = record_count(table_);
    ASSERT_EQ(type_.count(rig_, rig_.txn(), table_), all);
    ASSERT_EQ(type_.count_cr(rig_, table_), all);
  }

  void check_walks() {
    auto collect = [](void* record, void* list) {
      static_cast<std::vector<void*>*>(list)->push_back(record);
      return 0;
    };
    for (std::size_t k = 0; k < type_.keys.size(); ++k) {
      std::vector<void*> expected, seen, seen_cr;
      for (const auto& [p, record] : model_.trees[k]) expected.push_back(record);
      type_.keys[k].walk(table_, collect, &seen, &rig_.err);
      type_.walk_cr(rig_, table_, static_cast<std::uint32_t>(k), collect, &seen_cr);
      ASSERT_EQ(seen, expected) << type_.keys[k].name;
      ASSERT_EQ(seen_cr, expected) << type_.keys[k].name;
    }
  }

  const TableOps& type_;
  Rig rig_;
  std::mt19937 random_;
  void* table_ = nullptr;
  Model model_;
  std::vector<std::vector<void*>> holders_;
  std::array<unsigned, 3> refused_{};
};

TEST_P(EveryTable, PrivateStoreFollowsTheModel) { History(GetParam(), Kind::kPrivate, 20240611).run(150); }
TEST_P(EveryTable, DatabaseFollowsTheModelThroughAborts) { History(GetParam(), Kind::kDatabase, 4711).run(150); }
INSTANTIATE_TEST_SUITE_P(Tables, EveryTable, testing::ValuesIn(kTables), table_name);

TEST(IndexOrder, NullNodesComeFirst) {
  Rig rig;
  for (const TableOps& table : kTables) {
    for (const KeyOps& key : table.keys) {
      char node[12];
      EXPECT_EQ(key.compare(nullptr, nullptr), 1) << table.name;
      EXPECT_EQ(key.compare(nullptr, node), 0) << table.name;
      EXPECT_EQ(key.compare(node, nullptr), 2) << table.name;
    }
  }
}

TEST(Lookup, NullTableOrKeyIsRefusedAndASetErrorStays) {
  Rig rig;
  for (const TableOps& type : kTables) {
    void* table = open_table(rig, type);
    void* holder = type.pkey_create(rig, rig.txn());
    const KeyOps& key = type.keys[0];
    const void* value = key_place(rig, key, holder);
    for (const Find find : {key.search, key.search_nearest, key.next_by_key, key.prev_by_key}) {
      EXPECT_EQ(find(rig, rig.txn(), nullptr, value, &rig.err), nullptr);
      EXPECT_EQ(rig.take_error(), 2);
      EXPECT_EQ(rig->last_error, 2);
      EXPECT_EQ(find(rig, rig.txn(), table, nullptr, &rig.err), nullptr);
      EXPECT_EQ(rig.take_error(), 2);
    }
    EXPECT_EQ(type.search(rig, rig.txn(), table, nullptr, 0, &rig.err), nullptr);
    EXPECT_EQ(rig.take_error(), 2);
    type.pkey_destroy(rig, rig.txn(), holder);

    void* record = make_record(rig, type);
    type.insert(rig, rig.txn(), table, record, &rig.err);
    const void* present = key_place(rig, key, record_payload(type, record));
    rig.err = 5;
    rig->last_error = 44;
    EXPECT_EQ(key.search(rig, rig.txn(), table, present, &rig.err), nullptr);
    EXPECT_EQ(key.first(rig, rig.txn(), table, &rig.err), nullptr);
    EXPECT_EQ(key.next(rig, rig.txn(), table, record, &rig.err), nullptr);
    EXPECT_EQ(key.sub_next(rig, rig.txn(), table, record, &rig.err), nullptr);
    EXPECT_EQ(rig.take_error(), 5);
    EXPECT_EQ(rig->last_error, 44);
    rig->last_error = 0;
  }
}

TEST(Lookup, WalkOfAnIndexThatIsNotThere) {
  Rig rig;
  for (const TableOps& type : kTables) {
    void* table = open_table(rig, type);
    type.insert(rig, rig.txn(), table, make_record(rig, type), &rig.err);
    int calls = 0;
    const auto keys = static_cast<std::uint32_t>(type.keys.size());
    rig.lines.clear();
    type.walk_cr(
        rig, table, keys, [](void*, void* n) { return ++*static_cast<int*>(n), 0; }, &calls);
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(rig.take_line(), "unknow key:" + std::to_string(keys));
  }
}

TEST(Lookup, WalkSurvivesTheDeletionOfItsPosition) {
  Rig rig;
  const TableOps& type = table_named("tbl_wlan_ifid");
  void* table = open_table(rig, type);
  std::vector<void*> records;
  for (unsigned n = 0; n < 8; ++n) {
    records.push_back(make_record(rig, type, 1, n));
    type.insert(rig, rig.txn(), table, records.back(), &rig.err);
  }
  unsigned seen = 0;
  for (void* at = type.pkey_first(rig, rig.txn(), table, &rig.err); at;
       at = type.pkey_next(rig, rig.txn(), table, at, &rig.err)) {
    type.remove(rig, rig.txn(), table, at, &rig.err);
    ++seen;
  }
  EXPECT_EQ(rig.err, 0);
  EXPECT_EQ(seen, 8u);
  EXPECT_EQ(record_count(table), 0u);
}

// Lookups tell the observer what they give out, also when that is nothing.
TEST(Lookup, ReportsWhatItFinds) {
  Rig rig(Kind::kPrivate, 0, 1);
  const TableOps& type = table_named("tbl_wlan");
  void* table = open_table(rig, type);
  void* record = make_record(rig, type);
  type.insert(rig, rig.txn(), table, record, &rig.err);
  struct Report {
    int kind;
    void *child, *parent;
    bool operator==(const Report& o) const { return kind == o.kind && child == o.child && parent == o.parent; }
  };
  std::vector<Report> reports;
  kvt_observer observer{};
  observer.argument = &reports;
  observer.containment = [](void* list, int kind, void* child, void* parent) {
    static_cast<std::vector<Report>*>(list)->push_back({kind, child, parent});
  };
  kvt_observe(rig, &observer);
  const KeyOps& key = type.keys[0];
  key.search(rig, rig.txn(), table, key_place(rig, key, record_payload(type, record)), &rig.err);
  key.first(rig, rig.txn(), table, &rig.err);
  key.next(rig, rig.txn(), table, record, &rig.err);
  type.get_field(rig, rig.txn(), record);
  kvt_observe(rig, nullptr);
  std::vector<Report> of_rows;
  for (const Report& r : reports) {
    if (r.kind) of_rows.push_back(r);
  }
  const std::vector<Report> expected = {
      {2, record, table}, {2, record, table}, {2, nullptr, table}, {4, record_payload(type, record), record}};
  EXPECT_TRUE(of_rows == expected) << of_rows.size();
}

}  // namespace
}  // namespace table_test
