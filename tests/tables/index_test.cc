// A long random history of every table, beside ordered maps that keep the same records, on a private store and in a
// database where some transactions are aborted.
#include <array>
#include <deque>
#include <map>
#include <optional>
#include <random>
#include <tuple>
#include <utility>

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
  unsigned refs = 1;
};

// What waits in a table's queue of changes until every cursor that must see it has passed it.
struct Change {
  void* record;
  bool destroy;
  unsigned cursors;
};
struct Cursor {
  void* handle;
  bool inserts;
  std::deque<unsigned> ahead;
  bool given = false;  // the first one ahead has been seen, and is passed by the next move
};

using Position = std::tuple<std::uint16_t, std::string, std::uint8_t>;

// What the table should hold. A copy of it is the state that an abort brings back.
struct Model {
  std::map<void*, Row> rows;
  std::array<std::map<Position, void*>, 3> trees;
  std::map<std::pair<std::uint16_t, std::uint8_t>, std::uint32_t> counters;
  std::uint64_t database_pending = 0;
  std::map<unsigned, Change> changes;
  std::vector<Cursor> cursors;
  unsigned next_change = 0;

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
  // `source` is the whole argument, of which a position has the low byte.
  void* search(std::size_t key, const Position& wanted, bool nearest, bool forward, unsigned neighbour,
               bool skip_pending, bool same_key, unsigned source = 1) const {
    const auto exact = trees[key].find(wanted);
    if (source <= 255 && exact != trees[key].end() && !skipped(exact->second, skip_pending)) return exact->second;
    if (!nearest && !same_key) return nullptr;
    return step(key, wanted, forward, neighbour, neighbour != 0, skip_pending, same_key && !nearest);
  }
  void* beside(std::size_t key, const Position& wanted, bool forward, unsigned source, unsigned neighbour,
               bool skip_pending) const {
    if (search(key, wanted, false, forward, 0, skip_pending, false, source)) {
      return step(key, wanted, forward, neighbour, neighbour != 0, skip_pending, false);
    }
    return search(key, wanted, true, forward, neighbour, skip_pending, false, source);
  }
  void* edge(std::size_t key, std::uint16_t tenant, bool first, unsigned source, bool filter, bool skip_pending) const {
    void* found = nullptr;
    for (const auto& [p, record] : trees[key]) {
      const unsigned own = std::get<2>(p);
      if (std::get<0>(p) != tenant || skipped(record, skip_pending)) continue;
      if (filter ? own != source : source == 0 && own == 255) continue;
      found = record;
      if (first) break;
    }
    return found;
  }
  // Behind a position, through the records of its key and, where that is the last of its tenant, on to the next one's.
  void* sub_next(std::size_t key, const Position& from, bool only_shadow) const {
    const auto& tree = trees[key];
    for (auto i = tree.upper_bound(from); i != tree.end() && std::get<1>(i->first) == std::get<1>(from); ++i) {
      if (!only_shadow || std::get<2>(i->first) == 255) return i->second;
    }
    return nullptr;
  }
  void* next_of_any_source(std::size_t key, const Position& from) const {
    const auto i = trees[key].upper_bound(from);
    return i != trees[key].end() && std::get<0>(i->first) == std::get<0>(from) ? i->second : nullptr;
  }

  void enqueue(void* record, bool destroy) {
    unsigned waiting = 0;
    for (Cursor& c : cursors) {
      if (!destroy && !c.inserts) continue;
      c.ahead.push_back(next_change);
      ++waiting;
    }
    if (waiting) changes[next_change++] = {record, destroy, waiting};
  }
};

class History {
 public:
  History(const TableOps& table, Kind kind, int tracking, unsigned seed)
      : type_(table), rig_(kind, tracking), random_(seed) {
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
    fill_up();
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
    }
    EXPECT_GT(refused_[0], 0u) << "the history has met no duplicate";
    for (std::size_t k = 1; k < type_.keys.size(); ++k) EXPECT_GT(refused_[k], 0u) << type_.keys[k].name;
  }

 private:
  static constexpr std::uint16_t kTenants[] = {0, 3, 700};
  static constexpr std::uint8_t kSources[] = {1, 1, 1, 2, 255};
  static constexpr unsigned kArguments[] = {0, 1, 2, 255, 257};  // no record has the last one

  unsigned pick(unsigned below) { return random_() % below; }
  unsigned pick_key(std::size_t k) { return pick(key_values(type_.keys[k].kind)); }
  Position position(const Row& row, std::size_t k) const {
    return {row.tenant, key_order(type_.keys[k].kind, row.keys[k]), row.source};
  }

  void fill_up() {
    while (model_.rows.size() < 40 && !testing::Test::HasFatalFailure()) add_row();
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

  // The error of a change, which is made by the call that has a slot for it or by the short form, which gives it.
  template <class Call, class Short>
  int code_of(Call call, Short short_form, void* record) {
    rig_->last_error = 0;
    rig_.lines.clear();
    if (pick(2)) {
      rig_.err = short_form();
    } else {
      call(rig_, rig_.txn(), table_, record, &rig_.err);
    }
    EXPECT_EQ(rig_->last_error, rig_.err);
    rig_->last_error = 0;
    return rig_.take_error();
  }

  void insert(void* record, Row& row, bool primary_only) {
    const std::optional<std::size_t> refusal = refusing(row, primary_only);
    const std::uint32_t flags = record_flags(record), holder = record_table(record);
    const bool quiet = pick(4) == 0;
    rig_->quiet_duplicates = quiet;
    const int code = code_of(
        primary_only ? type_.pkey_insert : type_.insert,
        [&] { return type_.insert_cr(rig_, table_, record, primary_only); }, record);
    rig_->quiet_duplicates = 0;
    if (refusal) {
      EXPECT_EQ(code, 17);
      EXPECT_EQ(rig_.take_line(), quiet ? ""
                                        : std::string(type_.name) + " insert record exists for " + type_.payload + " " +
                                              type_.keys[*refusal].name);
      EXPECT_EQ(record_flags(record), flags);
      EXPECT_EQ(record_table(record), holder);
      ++refused_[*refusal];
      return;
    }
    EXPECT_EQ(code, 0);
    if (row.pending) row.pending = false;
    row.grade = primary_only ? Grade::kPrimary : Grade::kFull;
    for (std::size_t k = 0; k < (primary_only ? 1 : type_.keys.size()); ++k) model_.trees[k][position(row, k)] = record;
    if (row.tenant) ++model_.counters[{row.tenant, row.source}];
    EXPECT_EQ(record_flags(record) & 0x13, primary_only ? 0x11u : 0x01u);
    EXPECT_EQ(record_table(record), kvt_ref_of(table_));
    model_.enqueue(record, false);
  }

  void leave(Row& row) {
    for (std::size_t k = 0; k < (row.grade == Grade::kFull ? type_.keys.size() : 1); ++k)
      model_.trees[k].erase(position(row, k));
    if (row.pending) --model_.database_pending;
    if (row.tenant) --model_.counters[{row.tenant, row.source}];
    row.grade = Grade::kOut;
  }

  std::string not_found(std::size_t k) const {
    return std::string(type_.name) + " delete, record not found for " + type_.payload + " " + type_.keys[k].name;
  }

  // A table with cursors lets no record go directly.
  bool refused_by_cursors(bool primary_only, void* record) {
    if (model_.cursors.empty()) return false;
    rig_.lines.clear();
    (primary_only ? type_.pkey_remove : type_.remove)(rig_, rig_.txn(), table_, record, &rig_.err);
    EXPECT_EQ(rig_.take_error(), 22);
    EXPECT_EQ(rig_.take_line(),
              std::string(type_.name) + "_delete() cannot be direclty used when the table is marked for replication");
    return true;
  }

  void remove(void* record, Row& row) {
    if (refused_by_cursors(false, record)) return;
    const int code = code_of(
        type_.remove, [&] { return type_.remove_cr(rig_, table_, record, 0); }, record);
    if (row.grade == Grade::kOut) {
      EXPECT_EQ(code, 2);
      EXPECT_EQ(rig_.take_line(), not_found(0));
      return;
    }
    EXPECT_EQ(code, 0);
    leave(row);
    EXPECT_EQ(record_table(record), 0u);
    EXPECT_EQ(record_flags(record) & 0x10, 0u);
  }

  void reduce(void* record, Row& row) {
    if (refused_by_cursors(true, record)) return;
    const bool marked = record_flags(record) & 0x10;
    rig_.lines.clear();
    type_.pkey_remove(rig_, rig_.txn(), table_, record, &rig_.err);
    // The mark of the lower grade is set before any index is looked at, on a stranger too.
    EXPECT_EQ(record_flags(record) & 0x10, 0x10u);
    const bool missed = row.grade == Grade::kOut && !marked && type_.keys.size() > 1;
    EXPECT_EQ(rig_.take_error(), missed ? 2 : 0);
    EXPECT_EQ(rig_.take_line(), missed ? not_found(1) : "");
    if (row.grade == Grade::kOut) return;
    if (row.grade == Grade::kFull) {
      for (std::size_t k = 1; k < type_.keys.size(); ++k) model_.trees[k].erase(position(row, k));
    }
    row.grade = Grade::kPrimary;
  }

  void request_destroy(void* record, Row& row) {
    const int code = code_of(
        type_.request_destroy, [&] { return type_.request_destroy_cr(rig_, table_, record); }, record);
    EXPECT_EQ(code, row.grade == Grade::kOut ? 2 : 0);
    if (row.grade == Grade::kOut || row.pending) return;
    row.pending = true;
    ++model_.database_pending;
    model_.enqueue(record, true);
    if (model_.cursors.empty()) {
      drop(record);
    } else {
      EXPECT_EQ(record_flags(record) & 2, 2u);
    }
  }

  // Takes a reference of a row, and at the last the row.
  void drop(void* record) {
    Row& row = model_.rows.at(record);
    if (--row.refs) return;
    if (row.grade != Grade::kOut) leave(row);
    model_.rows.erase(record);
  }

  void destroy(void* record, Row& row) {
    const bool refused = row.refs == 1 && row.grade != Grade::kOut && !model_.cursors.empty();
    const unsigned left = refused ? 1 : row.refs - 1;
    rig_->last_error = 0;
    const bool short_form = pick(2);
    EXPECT_EQ(short_form ? type_.destroy_cr(rig_, record) : type_.destroy(rig_, rig_.txn(), record, &rig_.err), left);
    const int code = std::exchange(rig_->last_error, 0);
    EXPECT_EQ(code, refused ? 22 : 0);
    EXPECT_EQ(rig_.take_error(), short_form ? 0 : code);
    if (!refused) drop(record);
  }

  void pass(Cursor& cursor) {
    const unsigned number = cursor.ahead.front();
    cursor.ahead.pop_front();
    Change& change = model_.changes.at(number);
    if (--change.cursors) return;
    const Change last = change;
    model_.changes.erase(number);
    if (last.destroy) drop(last.record);
  }

  void move_cursor(Cursor& cursor) {
    if (cursor.given) pass(cursor);
    cursor.given = !cursor.ahead.empty();
    const Change* expected = cursor.given ? &model_.changes.at(cursor.ahead.front()) : nullptr;
    int kind = 0;
    void* record = kvtdb_cursor_next(rig_, rig_.txn(), cursor.handle, &kind, &rig_.err);
    ASSERT_EQ(record, expected ? expected->record : nullptr);
    if (expected) {
      ASSERT_EQ(kind, expected->destroy ? KVT_CHANGE_DESTROY : KVT_CHANGE_INSERT);
    }
  }

  void change_cursors() {
    // Whose records go, and whose counters, is not the reader's tenant's affair.
    mt_set_tenant_id(kTenants[pick(3)]);
    std::vector<Cursor>& cursors = model_.cursors;
    const unsigned at = cursors.empty() ? 0 : pick(static_cast<unsigned>(cursors.size()));
    const unsigned what = pick(10);
    if (what < 2 && cursors.size() < 3) {
      const bool inserts = pick(2);
      cursors.push_back({kvtdb_cursor_open(rig_, rig_.txn(), table_, inserts, &rig_.err), inserts, {}});
      ASSERT_NE(cursors.back().handle, nullptr);
    } else if (what >= 7 && !cursors.empty()) {
      kvtdb_cursor_close(rig_, rig_.txn(), cursors[at].handle, &rig_.err);
      Cursor gone = cursors[at];
      cursors.erase(cursors.begin() + at);
      while (!gone.ahead.empty()) pass(gone);
    } else if (!cursors.empty()) {
      move_cursor(cursors[at]);
    }
    ASSERT_EQ(kvtdb_table_are_cursors_enabled(rig_, rig_.txn(), table_, &rig_.err) != 0, !cursors.empty());
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
    const unsigned what = pick(26);
    if (what < 8) {
      insert(record, row, false);
    } else if (what < 10) {
      insert(record, row, true);
    } else if (what < 13) {
      remove(record, row);
    } else if (what < 15) {
      reduce(record, row);
    } else if (what < 17) {
      request_destroy(record, row);
    } else if (what < 20) {
      change_keys(record, row);
    } else if (what < 22) {
      if (row.refs == 3) return;
      EXPECT_EQ(type_.add_ref(rig_, rig_.txn(), record, &rig_.err), row.refs);
      ++row.refs;
    } else if (what < 24) {
      change_cursors();
    } else {
      destroy(record, row);
    }
    fill_up();
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
    for (const auto& [record, row] : model_.rows) {
      ASSERT_EQ(record_refs(record), row.refs);
      ASSERT_EQ(record_table(record) != 0, row.grade != Grade::kOut);
    }
  }

  // Every way of reading, at random keys and tenants. None of them takes memory of the store.
  void check_reads(int rounds) {
    const unsigned allocations = rig_.allocations;
    rig_.fail_after = 0;
    rig_->last_error = 0;
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
        void* first = model_.edge(k, tenant, true, 1, true, false);
        void* last = model_.edge(k, tenant, false, 1, true, false);
        void* very_first = model_.edge(k, tenant, true, 1, false, false);
        ASSERT_EQ(key.first(h, txn, table_, err), first);
        ASSERT_EQ(key.last(h, txn, table_, err), last);
        ASSERT_EQ(key.first_ignore_src(h, txn, table_, err), very_first);
        if (k == 0) {
          ASSERT_EQ(type_.search(h, txn, table_, holder, 0, err), exact);
          ASSERT_EQ(type_.search(h, txn, table_, holder, 1, err), exact ? exact : above);
          ASSERT_EQ(type_.next_by_key(h, txn, table_, holder, err), above);
          ASSERT_EQ(type_.prev_by_key(h, txn, table_, holder, err), below);
          ASSERT_EQ(type_.pkey_first(h, txn, table_, err), first);
          ASSERT_EQ(type_.pkey_last(h, txn, table_, err), last);
          ASSERT_EQ(type_.pkey_first_ignore_src(h, txn, table_, err), very_first);
        }
        for (unsigned options = 0; options < 16; ++options) {
          const bool nearest = options & 1, forward = options & 2, skip = options & 4, same = options & 8;
          const unsigned source = kArguments[pick(5)], neighbour = kArguments[pick(5)];
          const Position from{tenant, std::get<1>(p), static_cast<std::uint8_t>(source ? source : 1)};
          ASSERT_EQ(key.search_internal(h, txn, table_, value, nearest, forward, source, neighbour, skip, same, err),
                    model_.search(k, from, nearest, forward, neighbour, skip, same, source))
              << "options " << options << " source " << source << " neighbour " << neighbour;
          // The short form: `forward` is fixed, pending records count when asked for, and no source means the first.
          const unsigned flags = nearest | (skip ? 0 : 2) | (same ? 4 : 0);
          ASSERT_EQ(key.search_cr(h, table_, value, source, flags),
                    model_.search(k, from, nearest, true, source || same ? source : 1, skip, same, source))
              << "flags " << flags << " source " << source;
        }
        void* record = any_record(tenant);
        check_sources(k, tenant, n, record);
        if (record) {
          const Position at_record = position(model_.rows.at(record), k);
          void* next = model_.step(k, at_record, true, 1, true, false, false);
          void* prev = model_.step(k, at_record, false, 1, true, false, false);
          void* sub_next = model_.sub_next(k, at_record, false);
          void* shadow = std::get<2>(at_record) == 255 ? record : model_.sub_next(k, at_record, true);
          void* any = model_.next_of_any_source(k, at_record);
          ASSERT_EQ(key.next(h, txn, table_, record, err), next);
          ASSERT_EQ(key.prev(h, txn, table_, record, err), prev);
          ASSERT_EQ(key.sub_next(h, txn, table_, record, err), sub_next);
          ASSERT_EQ(key.shadow(h, txn, table_, record, err), shadow);
          ASSERT_EQ(key.next_ignore_src(h, txn, table_, record, err), any);
          for (unsigned options = 0; options < 8; ++options) {
            const bool filter = options & 1, skip = options & 2, keep = options & 4;
            const unsigned source = kArguments[pick(5)];
            ASSERT_EQ(key.next_internal(h, txn, table_, record, source, filter, skip, keep, err),
                      model_.step(k, at_record, true, source, filter, skip, keep));
            ASSERT_EQ(key.prev_internal(h, txn, table_, record, source, filter, skip, keep, err),
                      model_.step(k, at_record, false, source, filter, skip, keep));
          }
          if (k == 0) {
            ASSERT_EQ(type_.pkey_next(h, txn, table_, record, err), next);
            ASSERT_EQ(type_.pkey_prev(h, txn, table_, record, err), prev);
            ASSERT_EQ(type_.pkey_sub_next(h, txn, table_, record, err), sub_next);
            ASSERT_EQ(type_.pkey_shadow(h, txn, table_, record, err), shadow);
            ASSERT_EQ(type_.pkey_next_ignore_src(h, txn, table_, record, err), any);
          }
        }
      }
      check_counts(tenant);
    }
    EXPECT_EQ(rig_.err, 0);
    check_walks();
    EXPECT_EQ(rig_.allocations, allocations) << "a read has taken memory";
    rig_.fail_after = -1;
  }

  // The forms that take a source, at a key and from a record (or none).
  void check_sources(std::size_t k, std::uint16_t tenant, unsigned n, void* record) {
    const KeyOps& key = type_.keys[k];
    const Model& m = model_;
    kvt_handle* h = rig_;
    const std::uint32_t txn = rig_.txn();
    int* err = &rig_.err;
    void* holder = holders_[k][n];
    const void* value = key_place(rig_, key, holder);
    for (const unsigned source : kArguments) {
      SCOPED_TRACE("source " + std::to_string(source));
      const unsigned other = kArguments[pick(5)];
      const Position p{tenant, key_order(key.kind, n), static_cast<std::uint8_t>(source ? source : 1)};
      void* exact = m.search(k, p, false, true, 0, false, false, source);
      void* beside = m.beside(k, p, true, source, source, false);
      void* first = m.edge(k, tenant, true, source, true, false);
      ASSERT_EQ(key.search_w_src(h, txn, table_, value, source, err), exact);
      ASSERT_EQ(key.next_by_key_w_src(h, txn, table_, value, source, err), beside);
      ASSERT_EQ(key.next_by_key_not_pending(h, txn, table_, value, source, other, err),
                m.beside(k, p, true, source, other, true));
      ASSERT_EQ(key.prev_by_key_not_pending(h, txn, table_, value, source, other, err),
                m.beside(k, p, false, source, other, true));
      ASSERT_EQ(key.first_by_src(h, txn, table_, source, err), first);
      ASSERT_EQ(key.first_not_pending(h, txn, table_, source, err), m.edge(k, tenant, true, source, source != 0, true));
      ASSERT_EQ(key.last_not_pending(h, txn, table_, source, err), m.edge(k, tenant, false, source, true, true));
      for (const bool nearest : {false, true}) {
        ASSERT_EQ(key.search_not_pending(h, txn, table_, value, source, nearest, err),
                  m.search(k, p, nearest, true, source, true, source == 0, source));
        if (k) continue;
        ASSERT_EQ(type_.search_w_src(h, txn, table_, holder, nearest, source, err),
                  m.search(k, p, nearest, true, source, false, false, source));
      }
      for (unsigned options = 0; options < 4; ++options) {
        const unsigned own = source ? source : 1;
        const bool filter = !(options & 1), skip = !(options & 2);
        ASSERT_EQ(key.get_cr(h, table_, 0, nullptr, source, options), m.edge(k, tenant, true, own, filter, skip));
        ASSERT_EQ(key.get_cr(h, table_, 1, nullptr, source, options), m.edge(k, tenant, false, own, filter, skip));
        if (!record) continue;
        const Position at_record = position(m.rows.at(record), k);
        ASSERT_EQ(key.get_cr(h, table_, 2, record, source, options),
                  m.step(k, at_record, false, own, filter, skip, false));
        ASSERT_EQ(key.get_cr(h, table_, 3, record, source, options),
                  m.step(k, at_record, true, own, filter, skip, false));
      }
      if (k == 0) {
        ASSERT_EQ(type_.next_by_key_w_src(h, txn, table_, holder, source, err), beside);
        ASSERT_EQ(type_.pkey_first_by_src(h, txn, table_, source, err), first);
      }
      if (!record) continue;
      const Position at_record = position(m.rows.at(record), k);
      void* next = m.step(k, at_record, true, source, true, false, false);
      ASSERT_EQ(key.next_by_src(h, txn, table_, record, source, err), next);
      ASSERT_EQ(key.next_not_pending(h, txn, table_, record, source, err),
                m.step(k, at_record, true, source, true, true, false));
      ASSERT_EQ(key.prev_not_pending(h, txn, table_, record, source, err),
                m.step(k, at_record, false, source, true, true, false));
      if (k == 0) {
        ASSERT_EQ(type_.pkey_next_by_src(h, txn, table_, record, source, err), next);
      }
    }
    ASSERT_EQ(rig_->last_error, 0);
  }

  // A record to go on from, in the table or not: a walk survives the deletion of its position.
  void* any_record(std::uint16_t tenant) {
    std::vector<void*> all;
    for (const auto& [record, row] : model_.rows) {
      if (row.tenant == tenant) all.push_back(record);
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
    const auto keys = static_cast<std::uint32_t>(type_.keys.size());
    std::vector<void*> none;
    rig_.lines.clear();
    type_.walk_cr(rig_, table_, keys, collect, &none);
    ASSERT_TRUE(none.empty());
    ASSERT_EQ(rig_.take_line(), "unknow key:" + std::to_string(keys));
  }

  const TableOps& type_;
  Rig rig_;
  std::mt19937 random_;
  void* table_ = nullptr;
  Model model_;
  std::vector<std::vector<void*>> holders_;
  std::array<unsigned, 3> refused_{};
};

using Index = EveryTable;
TEST_P(Index, PrivateStoreFollowsTheModel) {
  History(GetParam(), Kind::kPrivate, 0, 20240611).run(150);
  History(GetParam(), Kind::kPrivate, KVT_STTR_ON, 11).run(60);
}
TEST_P(Index, DatabaseFollowsTheModelThroughAborts) {
  History(GetParam(), Kind::kDatabase, 0, 4711).run(150);
  History(GetParam(), Kind::kDatabase, KVT_STTR_ON, 12).run(60);
}
INSTANTIATE_TEST_SUITE_P(Tables, Index, testing::ValuesIn(kTables), table_name);

// A tenant's first and last record are found by a descent: records of other tenants between them and the tree's ends
// are not asked, which here would all claim to be the tenant's.
TEST(Lookup, OtherTenantsAreNotPassedOneByOne) {
  Rig rig;
  const TableOps& type = table_named("tbl_wlan_ifid");
  void* table = open_table(rig, type);
  std::map<std::uint16_t, std::vector<void*>> rows;
  for (const std::uint16_t tenant : {3, 7, 9}) {
    mt_set_tenant_id(tenant);
    for (unsigned n = 0; n < 100; ++n) {
      rows[tenant].push_back(make_record(rig, type, 1, n));
      type.insert(rig, rig.txn(), table, rows[tenant].back(), &rig.err);
    }
  }
  mt_set_tenant_id(7);
  void* first = type.keys[0].first(rig, rig.txn(), table, &rig.err);
  void* last = type.keys[0].last(rig, rig.txn(), table, &rig.err);
  for (const std::uint16_t other : {3, 9}) {
    for (void* row : rows[other]) static_cast<char*>(row)[32] = 7;
  }
  EXPECT_EQ(type.keys[0].first(rig, rig.txn(), table, &rig.err), first);
  EXPECT_EQ(type.keys[0].last(rig, rig.txn(), table, &rig.err), last);
  EXPECT_EQ(rig.err, 0);
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
