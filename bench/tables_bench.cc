// How the cost of tables grows: insert, search by each key, a walk and delete at sizes from 16 to 1,048,576 records,
// beside other ordered containers and two databases on the same keys in one run. Every entry does a whole batch in each
// of several rounds, in turn with the others, and its best round counts, in processor time.
//
// A tbl_wlan record has two keys and 2 KB of payload, and is measured up to 4,096 records; the two tables with small
// payloads, one keyed by a number and one by a text, at every size.
#include <absl/container/btree_map.h>
#include <lmdb.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>
#include <zarn_wlan/zarn_wlan.h>

#include <algorithm>
#include <boost/intrusive/avl_set.hpp>
#include <boost/multi_index/member.hpp>
#include <boost/multi_index/ordered_index.hpp>
#include <boost/multi_index_container.hpp>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "zarn_tag_common/zarn_tag_common.h"

namespace {

// The last is for containers whose nodes know their parents, and find nothing to search where the row is at hand.
enum Op { kInsert, kSearchId, kSearchName, kWalk, kDelete, kDeleteAt, kOps };
constexpr const char* kOpNames[kOps] = {"insert",    "search, number", "search, text",
                                        "walk step", "delete",         "delete at a row"};
constexpr unsigned kById = 1, kByName = 2;
constexpr std::size_t kSizes[] = {16, 512, 4096, 65536, 1048576};
constexpr std::size_t kMostWlans = 4096;  // 2 KB each
constexpr double kNone = std::numeric_limits<double>::infinity();

void keep(const void* value) { asm volatile("" : : "r"(value) : "memory"); }

[[noreturn]] void stop(const char* what) {
  std::fprintf(stderr, "zarn_tables_bench: %s\n", what);
  std::exit(1);
}
void expect(bool good, const char* what) {
  if (!good) stop(what);
}

// What all peers of one size index, and in which orders. Small sizes stand several times beside each other, so that a
// batch is long enough for the clock, and no order repeats soon enough to be learned by the processor.
struct Load {
  unsigned keys;
  std::size_t payload;  // bytes
  std::size_t size, copies;
  std::vector<std::uint32_t> ids;  // in the order in which the records are made
  std::vector<std::string> names;
  // Places in `ids`: inserts and deletes copy after copy, searches in the first copy only.
  std::vector<std::uint32_t> inserts, deletes, searches;

  Load(unsigned which, std::size_t bytes, std::size_t records, const char* format)
      : keys(which),
        payload(bytes),
        size(records),
        copies(std::max<std::size_t>(1, 2048 / records)),
        ids(records),
        names(records),
        inserts(records * copies),
        searches(std::max<std::size_t>(records, 8192)) {
    std::iota(ids.begin(), ids.end(), 1);
    std::mt19937 random(1);
    std::shuffle(ids.begin(), ids.end(), random);
    for (std::size_t i = 0; i < records; ++i) {
      char text[48];
      std::snprintf(text, sizeof text, format, static_cast<std::uint32_t>(ids[i] * 7919ull % (1 << 20)));
      names[i] = text;
    }
    for (std::size_t i = 0; i < inserts.size(); ++i) inserts[i] = static_cast<std::uint32_t>(i % size);
    deletes = inserts;
    for (std::size_t copy = 0; copy < copies; ++copy) {
      const auto from = static_cast<std::ptrdiff_t>(copy * size), to = static_cast<std::ptrdiff_t>(from + size);
      if (copies > 1) std::shuffle(inserts.begin() + from, inserts.begin() + to, random);
      std::shuffle(deletes.begin() + from, deletes.begin() + to, random);
    }
    std::uniform_int_distribution<std::uint32_t> any(0, static_cast<std::uint32_t>(size - 1));
    for (std::uint32_t& place : searches) place = any(random);
  }
};

class Peer {
 public:
  Peer(const Load& load, std::size_t copies) : load_(load), copies_(copies) {}
  virtual ~Peer() = default;
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;
  virtual bool measures(Op op) const { return op != kDeleteAt; }
  // Does the whole batch and gives the number of steps that did what they should.
  virtual std::size_t run(Op op) = 0;
  std::size_t steps(Op op) const {
    return op == kSearchId || op == kSearchName ? load_.searches.size() : load_.size * copies_;
  }

 protected:
  const std::vector<std::uint32_t>& order(Op op) const {
    return op == kInsert ? load_.inserts : op == kDelete || op == kDeleteAt ? load_.deletes : load_.searches;
  }
  template <class F>
  std::size_t each(Op op, F f) const {
    const std::uint32_t* place = order(op).data();
    const bool search = op == kSearchId || op == kSearchName;
    const std::size_t copies = search ? 1 : copies_, steps = this->steps(op) / copies;
    std::size_t good = 0;
    for (std::size_t copy = 0; copy < copies; ++copy) {
      for (std::size_t i = 0; i < steps; ++i) good += f(copy, *place++) ? 1 : 0;
    }
    return good;
  }
  const Load& load_;
  const std::size_t copies_;
};

struct NoIndex {};  // where a load has no such key

template <class Sets>
std::size_t walk_all(Sets& sets) {
  std::size_t steps = 0;
  for (auto& set : sets) {
    for (auto& element : set) {
      keep(&element);
      ++steps;
    }
  }
  return steps;
}

// ---- Our tables

// clang-format off
#define TABLE_OF(API, TABLE, STRUCT, FIRST_KEY, ...)                         \
  struct API {                                                               \
    static constexpr auto open = TABLE##_table_open;                         \
    static constexpr auto make = TABLE##_create_record;                      \
    static constexpr auto payload = STRUCT##_create;                         \
    static constexpr auto set = TABLE##_##STRUCT##_set_field;                \
    static constexpr auto insert = TABLE##_insert;                           \
    static constexpr auto remove = TABLE##_delete;                           \
    static constexpr auto first = TABLE##_##STRUCT##_##FIRST_KEY##_get_first; \
    static constexpr auto next = TABLE##_##STRUCT##_##FIRST_KEY##_get_next;  \
    __VA_ARGS__                                                              \
  }
TABLE_OF(Wlan, tbl_wlan, st_wlan, wlan_id,
         static constexpr auto set_id = st_wlan_wlan_id_set_value;
         static constexpr auto name = st_wlan_profile_name_get;
         static constexpr auto by_id = tbl_wlan_st_wlan_wlan_id_search;
         static constexpr auto by_name = tbl_wlan_st_wlan_profile_name_search;);
TABLE_OF(Ifid, tbl_wlan_ifid, st_wlan_ifid, wlan_id,
         static constexpr auto set_id = st_wlan_ifid_wlan_id_set_value;
         static constexpr auto by_id = tbl_wlan_ifid_st_wlan_ifid_wlan_id_search;);
TABLE_OF(Tag, tbl_wlan_profile_assoicated_tag, st_profile_assoicated_tag, tag_name,
         static constexpr auto name = st_profile_assoicated_tag_tag_name_get;
         static constexpr auto by_name =
             tbl_wlan_profile_assoicated_tag_st_profile_assoicated_tag_tag_name_search;);
#undef TABLE_OF
// clang-format on

template <class Api>
class Tables final : public Peer {
  static constexpr bool kId = requires { Api::by_id; }
  , kName = requires { Api::by_name; };

 public:
  // `path` is a new database's; without it the store is private.
  Tables(const Load& load, const char* path) : Peer(load, load.copies), shared_(path) {
    kvt_handle_options options;
    kvt_handle_options_init(&options);
    options.create = 1;
    handle_ = path ? kvt_handle_open_database(path, &options, &err_) : kvt_handle_open_private(&options, &err_);
    expect(handle_, "no store");
    txn_ = kvtdb_txn_begin(handle_, &err_);
    for (std::size_t copy = 0; copy < load.copies; ++copy) {
      tables_.push_back(Api::open(handle_, txn_, ("bench" + std::to_string(copy)).c_str(), 0, &err_));
      for (std::size_t i = 0; i < load.size; ++i) records_.push_back(make(load, i));
    }
    if constexpr (kName) {
      holders_ = static_cast<kvt_vstring*>(kvt_cage_alloc(load.size * sizeof(kvt_vstring)));
      holder_handle_ = kvt_handle_open_private(nullptr, &err_);
      expect(holders_ && holder_handle_, "no room for keys");
      std::memset(static_cast<void*>(holders_), 0, load.size * sizeof(kvt_vstring));
      for (std::size_t i = 0; i < load.size; ++i) {
        kvt_vstring_assign(holder_handle_, 0, &holders_[i], load.names[i].data(), load.names[i].size(), &err_);
      }
    }
    if (shared_) {
      run(kInsert);
      kvtdb_txn_commit(handle_, txn_, &err_);
    }
    expect(!err_, "setting up a table failed");
  }
  ~Tables() override {
    kvt_handle_close(handle_);
    if (!holders_) return;
    kvt_handle_close(holder_handle_);
    kvt_cage_free(holders_);
  }
  bool measures(Op op) const override { return op != kDeleteAt && (!shared_ || (op != kInsert && op != kDelete)); }

  std::size_t run(Op op) override {
    switch (op) {
      case kInsert:
        return each(op, [&](std::size_t copy, std::size_t i) {
          Api::insert(handle_, txn_, tables_[copy], record(copy, i), &err_);
          return !err_;
        });
      case kDelete:
        return each(op, [&](std::size_t copy, std::size_t i) {
          Api::remove(handle_, txn_, tables_[copy], record(copy, i), &err_);
          return !err_;
        });
      case kSearchId:
        if constexpr (kId) {
          return each(op, [&](std::size_t copy, std::size_t i) {
            return Api::by_id(handle_, 0, tables_[copy], &load_.ids[i], &err_) == record(copy, i);
          });
        }
        return 0;
      case kSearchName:
        if constexpr (kName) {
          return each(op, [&](std::size_t copy, std::size_t i) {
            return Api::by_name(handle_, 0, tables_[copy], &holders_[i], &err_) == record(copy, i);
          });
        }
        return 0;
      default: {
        std::size_t steps = 0;
        for (void* table : tables_) {
          for (void* at = Api::first(handle_, 0, table, &err_); at; at = Api::next(handle_, 0, table, at, &err_)) {
            keep(at);
            ++steps;
          }
        }
        return steps;
      }
    }
  }

 private:
  void* make(const Load& load, std::size_t i) {
    void* record = Api::make(handle_, txn_, &err_);
    void* payload = Api::payload(handle_, txn_);
    expect(record && payload, "no room for a record");
    if constexpr (kId) Api::set_id(handle_, txn_, payload, load.ids[i], &err_);
    if constexpr (kName) {
      kvt_vstring_assign(handle_, txn_, Api::name(handle_, txn_, payload, &err_), load.names[i].data(),
                         load.names[i].size(), &err_);
    }
    Api::set(handle_, txn_, record, payload);
    return record;
  }
  void* record(std::size_t copy, std::size_t i) const { return records_[copy * load_.size + i]; }

  bool shared_;
  int err_ = 0;
  kvt_handle* handle_;
  kvt_handle* holder_handle_ = nullptr;
  std::uint32_t txn_;
  std::vector<void*> tables_, records_;
  kvt_vstring* holders_ = nullptr;
};

// ---- Intrusive trees. A row has the size of a record; its key lies in the row, or in a payload of its own behind the
// same one pointer as in a table.

struct Key {
  std::uint64_t head;
  std::uint32_t id;
  std::string name;
};
struct FarKey {
  Key* payload = nullptr;
  const Key& key() const { return *payload; }
  void set(std::size_t bytes, std::uint32_t id, const std::string& name) {
    payload = new (std::malloc(std::max(bytes, sizeof(Key)))) Key{0, id, name};
  }
  void clear() {
    payload->~Key();
    std::free(payload);
  }
};
struct NearKey {
  Key own;
  const Key& key() const { return own; }
  void set(std::size_t, std::uint32_t id, const std::string& name) { own = {0, id, name}; }
  void clear() {}
};

namespace bi = boost::intrusive;
struct IdTag;
struct NameTag;
using IdHook = bi::avl_set_base_hook<bi::tag<IdTag>>;
using NameHook = bi::avl_set_base_hook<bi::tag<NameTag>>;
template <unsigned kKeys>
struct Hooks;
template <>
struct Hooks<kById> : IdHook {};
template <>
struct Hooks<kByName> : NameHook {};
template <>
struct Hooks<kById | kByName> : IdHook, NameHook {};

template <class Where, unsigned kKeys>
struct Row : Hooks<kKeys>, Where {
  char head[56];
};
struct OrderById {
  using type = std::uint32_t;
  template <class R>
  const type& operator()(const R& row) const {
    return row.key().id;
  }
};
struct OrderByName {
  using type = std::string;
  template <class R>
  const type& operator()(const R& row) const {
    return row.key().name;
  }
};

template <class Where, unsigned kKeys>
class Intrusive final : public Peer {
  static constexpr bool kId = kKeys & kById, kName = kKeys & kByName;
  using R = Row<Where, kKeys>;
  template <class Hook, class Order>
  using Set = bi::avl_set<R, bi::base_hook<Hook>, bi::key_of_value<Order>>;
  using Ids = std::conditional_t<kId, Set<std::conditional_t<kId, IdHook, NameHook>, OrderById>, NoIndex>;
  using Names = std::conditional_t<kName, Set<std::conditional_t<kName, NameHook, IdHook>, OrderByName>, NoIndex>;

 public:
  explicit Intrusive(const Load& load) : Peer(load, load.copies), ids_(load.copies), names_(load.copies) {
    for (std::size_t copy = 0; copy < load.copies; ++copy) {
      for (std::size_t i = 0; i < load.size; ++i) {
        rows_.push_back(new R);
        rows_.back()->set(load.payload, load.ids[i], load.names[i]);
      }
    }
  }
  ~Intrusive() override {
    if constexpr (kId) {
      for (Ids& set : ids_) set.clear();
    }
    if constexpr (kName) {
      for (Names& set : names_) set.clear();
    }
    for (R* row : rows_) {
      row->clear();
      delete row;
    }
  }

  bool measures(Op) const override { return true; }
  std::size_t run(Op op) override {
    switch (op) {
      case kInsert:
        return each(op, [&](std::size_t copy, std::size_t i) {
          bool good = true;
          if constexpr (kId) good = ids_[copy].insert(row(copy, i)).second;
          if constexpr (kName) good = names_[copy].insert(row(copy, i)).second && good;
          return good;
        });
      case kDelete:
        return each(op, [&](std::size_t copy, std::size_t i) {
          bool good = true;
          if constexpr (kId) good = erase(ids_[copy], row(copy, i).key().id);
          if constexpr (kName) good = erase(names_[copy], row(copy, i).key().name) && good;
          return good;
        });
      case kDeleteAt:
        return each(op, [&](std::size_t copy, std::size_t i) {
          if constexpr (kId) ids_[copy].erase(ids_[copy].iterator_to(row(copy, i)));
          if constexpr (kName) names_[copy].erase(names_[copy].iterator_to(row(copy, i)));
          return true;
        });
      case kSearchId:
        if constexpr (kId) {
          return each(op, [&](std::size_t copy, std::size_t i) {
            const auto found = ids_[copy].find(load_.ids[i]);
            return found != ids_[copy].end() && &*found == &row(copy, i);
          });
        }
        return 0;
      case kSearchName:
        if constexpr (kName) {
          return each(op, [&](std::size_t copy, std::size_t i) {
            const auto found = names_[copy].find(load_.names[i]);
            return found != names_[copy].end() && &*found == &row(copy, i);
          });
        }
        return 0;
      default:
        if constexpr (kId) return walk_all(ids_);
        if constexpr (!kId) return walk_all(names_);
    }
    return 0;
  }

 private:
  template <class Set, class Value>
  static bool erase(Set& set, const Value& key) {
    const auto at = set.find(key);
    if (at == set.end()) return false;
    set.erase(at);
    return true;
  }
  R& row(std::size_t copy, std::size_t i) const { return *rows_[copy * load_.size + i]; }
  std::vector<Ids> ids_;
  std::vector<Names> names_;
  std::vector<R*> rows_;
};

// ---- Containers that own their nodes. The value is a pointer to the caller's record.

template <class Ids, class Names, unsigned kKeys>
class Mapped final : public Peer {
  static constexpr bool kId = kKeys & kById, kName = kKeys & kByName;

 public:
  explicit Mapped(const Load& load)
      : Peer(load, load.copies), ids_(load.copies), names_(load.copies), rows_(load.size) {}
  std::size_t run(Op op) override {
    switch (op) {
      case kInsert:
        return each(op, [&](std::size_t copy, std::size_t i) {
          bool good = true;
          if constexpr (kId) good = ids_[copy].emplace(load_.ids[i], &rows_[i]).second;
          if constexpr (kName) good = names_[copy].emplace(load_.names[i], &rows_[i]).second && good;
          return good;
        });
      case kDelete:
        return each(op, [&](std::size_t copy, std::size_t i) {
          bool good = true;
          if constexpr (kId) good = ids_[copy].erase(load_.ids[i]) == 1;
          if constexpr (kName) good = names_[copy].erase(load_.names[i]) == 1 && good;
          return good;
        });
      case kSearchId:
        return each(op, [&](std::size_t copy, std::size_t i) {
          const auto found = ids_[copy].find(load_.ids[i]);
          return found != ids_[copy].end() && found->second == &rows_[i];
        });
      case kSearchName:
        return each(op, [&](std::size_t copy, std::size_t i) {
          const auto found = names_[copy].find(load_.names[i]);
          return found != names_[copy].end() && found->second == &rows_[i];
        });
      default:
        return kId ? walk_all(ids_) : walk_all(names_);
    }
  }

 private:
  std::vector<Ids> ids_;
  std::vector<Names> names_;
  std::vector<char> rows_;
};

struct Element {
  std::uint32_t id;
  std::string name;
  const char* row;
};
namespace mi = boost::multi_index;
using IdIndex = mi::ordered_unique<mi::member<Element, std::uint32_t, &Element::id>>;
using NameIndex = mi::ordered_unique<mi::member<Element, std::string, &Element::name>>;

template <unsigned kKeys>
class Multi final : public Peer {
  static constexpr bool kId = kKeys & kById, kName = kKeys & kByName;
  static constexpr int kNameAt = kId ? 1 : 0;
  using Indices = std::conditional_t<kId && kName, mi::indexed_by<IdIndex, NameIndex>,
                                     std::conditional_t<kId, mi::indexed_by<IdIndex>, mi::indexed_by<NameIndex>>>;
  using Container = mi::multi_index_container<Element, Indices>;

 public:
  explicit Multi(const Load& load) : Peer(load, load.copies), sets_(load.copies), rows_(load.size) {}
  std::size_t run(Op op) override {
    switch (op) {
      case kInsert:
        return each(op, [&](std::size_t copy, std::size_t i) {
          return sets_[copy].insert(Element{load_.ids[i], kName ? load_.names[i] : std::string(), &rows_[i]}).second;
        });
      case kDelete:
        return each(op, [&](std::size_t copy, std::size_t i) {
          auto& index = sets_[copy].template get<0>();
          if constexpr (kId) return index.erase(load_.ids[i]) == 1;
          if constexpr (!kId) return index.erase(load_.names[i]) == 1;
        });
      case kSearchId:
        if constexpr (kId) return find<0>(op, load_.ids);
        return 0;
      case kSearchName:
        if constexpr (kName) return find<kNameAt>(op, load_.names);
        return 0;
      default:
        return walk_all(sets_);
    }
  }

 private:
  template <int kAt, class Keys>
  std::size_t find(Op op, const Keys& keys) {
    return each(op, [&](std::size_t copy, std::size_t i) {
      auto& index = sets_[copy].template get<kAt>();
      const auto found = index.find(keys[i]);
      return found != index.end() && found->row == &rows_[i];
    });
  }
  std::vector<Container> sets_;
  std::vector<char> rows_;
};

// ---- Databases

class Sqlite final : public Peer {
 public:
  explicit Sqlite(const Load& load) : Peer(load, 1), id_(load.keys & kById), name_(load.keys & kByName) {
    expect(sqlite3_open(":memory:", &db_) == SQLITE_OK, "no SQLite");
    execute(id_ && name_ ? "CREATE TABLE t(id INTEGER PRIMARY KEY, name TEXT UNIQUE, r INTEGER)"
            : id_        ? "CREATE TABLE t(id INTEGER PRIMARY KEY, r INTEGER)"
                         : "CREATE TABLE t(name TEXT PRIMARY KEY, r INTEGER) WITHOUT ROWID");
    insert_ = prepare(id_ && name_ ? "INSERT INTO t(id, name, r) VALUES(?1, ?2, ?3)"
                      : id_        ? "INSERT INTO t(id, r) VALUES(?1, ?3)"
                                   : "INSERT INTO t(name, r) VALUES(?2, ?3)");
    remove_ = prepare(id_ ? "DELETE FROM t WHERE id = ?1" : "DELETE FROM t WHERE name = ?2");
    walk_ = prepare(id_ ? "SELECT r FROM t ORDER BY id" : "SELECT r FROM t ORDER BY name");
    if (id_) by_id_ = prepare("SELECT r FROM t WHERE id = ?1");
    if (name_) by_name_ = prepare("SELECT r FROM t WHERE name = ?2");
  }
  ~Sqlite() override {
    for (sqlite3_stmt* s : {insert_, remove_, walk_, by_id_, by_name_}) sqlite3_finalize(s);
    sqlite3_close(db_);
  }
  std::size_t run(Op op) override {
    std::size_t good = 0;
    execute("BEGIN");
    if (op == kWalk) {
      while (sqlite3_step(walk_) == SQLITE_ROW) good += sqlite3_column_int64(walk_, 0) > 0 ? 1 : 0;
      sqlite3_reset(walk_);
    } else {
      sqlite3_stmt* s = op == kInsert ? insert_ : op == kDelete ? remove_ : op == kSearchId ? by_id_ : by_name_;
      for (std::size_t k = 0; k < steps(op); ++k) {
        const std::size_t i = order(op)[k];
        const std::string& name = load_.names[i];
        if (op == kInsert ? id_ : op == kDelete ? id_ : op == kSearchId) sqlite3_bind_int64(s, 1, load_.ids[i]);
        if (op == kInsert ? name_ : op == kDelete ? !id_ : op == kSearchName) {
          sqlite3_bind_text(s, 2, name.data(), static_cast<int>(name.size()), SQLITE_STATIC);
        }
        if (op == kInsert) sqlite3_bind_int64(s, 3, static_cast<sqlite3_int64>(i + 1));
        const int result = sqlite3_step(s);
        good += op == kInsert || op == kDelete
                    ? result == SQLITE_DONE && sqlite3_changes(db_) == 1
                    : result == SQLITE_ROW && sqlite3_column_int64(s, 0) == static_cast<sqlite3_int64>(i + 1);
        sqlite3_reset(s);
      }
    }
    execute("COMMIT");
    return good;
  }

 private:
  void execute(const char* text) { expect(sqlite3_exec(db_, text, nullptr, nullptr, nullptr) == SQLITE_OK, text); }
  sqlite3_stmt* prepare(const char* text) {
    sqlite3_stmt* s = nullptr;
    expect(sqlite3_prepare_v3(db_, text, -1, SQLITE_PREPARE_PERSISTENT, &s, nullptr) == SQLITE_OK, text);
    return s;
  }
  bool id_, name_;
  sqlite3* db_ = nullptr;
  sqlite3_stmt *insert_ = nullptr, *remove_ = nullptr, *walk_ = nullptr, *by_id_ = nullptr, *by_name_ = nullptr;
};

// Changes are in one transaction for the whole batch, and never synced.
class Lmdb final : public Peer {
 public:
  Lmdb(const Load& load, const std::string& path) : Peer(load, 1) {
    expect(!mdb_env_create(&env_) && !mdb_env_set_mapsize(env_, std::size_t{1} << 30) && !mdb_env_set_maxdbs(env_, 2) &&
               !mdb_env_open(env_, path.c_str(), MDB_NOSUBDIR | MDB_NOSYNC | MDB_WRITEMAP | MDB_NOMEMINIT, 0600),
           "no LMDB");
    MDB_txn* txn = begin(0);
    if (load.keys & kById) expect(!mdb_dbi_open(txn, "id", MDB_CREATE | MDB_INTEGERKEY, &ids_), "no LMDB index");
    if (load.keys & kByName) expect(!mdb_dbi_open(txn, "name", MDB_CREATE, &names_), "no LMDB index");
    expect(!mdb_txn_commit(txn), "LMDB commit");
  }
  ~Lmdb() override { mdb_env_close(env_); }

  std::size_t run(Op op) override {
    const bool id = load_.keys & kById, name = load_.keys & kByName;
    const bool changes = op == kInsert || op == kDelete;
    MDB_txn* txn = begin(changes ? 0 : MDB_RDONLY);
    std::size_t good = 0;
    if (op == kWalk) {
      MDB_cursor* cursor = nullptr;
      expect(!mdb_cursor_open(txn, id ? ids_ : names_, &cursor), "no LMDB cursor");
      MDB_val key, value;
      while (!mdb_cursor_get(cursor, &key, &value, MDB_NEXT)) {
        keep(value.mv_data);
        ++good;
      }
      mdb_cursor_close(cursor);
    } else {
      for (std::size_t k = 0; k < steps(op); ++k) {
        const std::size_t i = order(op)[k];
        MDB_val by_id{sizeof load_.ids[i], const_cast<std::uint32_t*>(&load_.ids[i])};
        MDB_val by_name{load_.names[i].size(), const_cast<char*>(load_.names[i].data())};
        std::uint64_t row = i;
        MDB_val value{sizeof row, &row};
        if (op == kInsert) {
          good += (!id || !mdb_put(txn, ids_, &by_id, &value, MDB_NOOVERWRITE)) &&
                  (!name || !mdb_put(txn, names_, &by_name, &value, MDB_NOOVERWRITE));
        } else if (op == kDelete) {
          good += (!id || !mdb_del(txn, ids_, &by_id, nullptr)) && (!name || !mdb_del(txn, names_, &by_name, nullptr));
        } else {
          const bool found =
              !(op == kSearchId ? mdb_get(txn, ids_, &by_id, &value) : mdb_get(txn, names_, &by_name, &value));
          if (found) std::memcpy(&row, value.mv_data, sizeof row);
          good += found && row == i;
        }
      }
    }
    expect(!mdb_txn_commit(txn), "LMDB commit");
    return good;
  }

 private:
  MDB_txn* begin(unsigned flags) {
    MDB_txn* txn = nullptr;
    expect(!mdb_txn_begin(env_, nullptr, flags, &txn), "no LMDB transaction");
    return txn;
  }
  MDB_env* env_ = nullptr;
  MDB_dbi ids_ = 0, names_ = 0;
};

// ---- The run

double now() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
}

struct PeerKind {
  const char* name;
  const char* colour;
};
enum { kTables, kDatabase, kAvl, kAvlNear, kMap, kMulti, kBtree, kSqlite, kLmdb, kPeers };
constexpr PeerKind kPeerKinds[kPeers] = {{"table", "#c00000"},
                                         {"table in a database", "#f08060"},
                                         {"avl_set", "#1f3fa0"},
                                         {"avl_set, key in the node", "#6fa0e0"},
                                         {"std::map", "#2a8a3a"},
                                         {"MultiIndex", "#8cc63f"},
                                         {"absl::btree_map", "#7a3fa0"},
                                         {"SQLite", "#808080"},
                                         {"LMDB", "#c09000"}};

struct Point {
  std::size_t size;
  double ns[kPeers][kOps];
};
struct Series {
  const char* title;
  unsigned keys;
  std::vector<Point> points;
  bool has(Op op) const { return op == kSearchId ? keys & kById : op == kSearchName ? keys & kByName : true; }
};

template <class Api, unsigned kKeys>
Point measure(const Load& load, const std::string& directory, int rounds) {
  using IdMap = std::map<std::uint32_t, const char*>;
  using NameMap = std::map<std::string, const char*>;
  using IdTree = absl::btree_map<std::uint32_t, const char*>;
  using NameTree = absl::btree_map<std::string, const char*>;
  const std::string ours = directory + "/table", theirs = directory + "/lmdb";
  std::unique_ptr<Peer> peers[kPeers] = {std::make_unique<Tables<Api>>(load, nullptr),
                                         std::make_unique<Tables<Api>>(load, ours.c_str()),
                                         std::make_unique<Intrusive<FarKey, kKeys>>(load),
                                         std::make_unique<Intrusive<NearKey, kKeys>>(load),
                                         std::make_unique<Mapped<IdMap, NameMap, kKeys>>(load),
                                         std::make_unique<Multi<kKeys>>(load),
                                         std::make_unique<Mapped<IdTree, NameTree, kKeys>>(load),
                                         std::make_unique<Sqlite>(load),
                                         std::make_unique<Lmdb>(load, theirs)};
  Point point{load.size, {}};
  for (auto& row : point.ns) std::fill(std::begin(row), std::end(row), kNone);
  for (int round = 0; round < rounds; ++round) {
    for (int peer = 0; peer < kPeers; ++peer) {
      // What fits in the caches is measured there.
      if (load.copies > 1 && peers[peer]->measures(kInsert)) peers[peer]->run(kInsert), peers[peer]->run(kDelete);
      for (int op = 0; op < kOps; ++op) {
        if (op == kSearchId && !(kKeys & kById)) continue;
        if (op == kSearchName && !(kKeys & kByName)) continue;
        if (!peers[peer]->measures(static_cast<Op>(op))) continue;
        if (op == kDeleteAt) peers[peer]->run(kInsert);
        if (op == kWalk && load.copies > 1) peers[peer]->run(kWalk);
        const double start = now();
        const std::size_t good = peers[peer]->run(static_cast<Op>(op));
        const double time = now() - start;
        if (good != peers[peer]->steps(static_cast<Op>(op))) {
          std::fprintf(stderr, "%s, %s, %zu records: %zu of %zu steps\n", kPeerKinds[peer].name, kOpNames[op],
                       load.size, good, peers[peer]->steps(static_cast<Op>(op)));
          std::exit(1);
        }
        double& best = point.ns[peer][op];
        best = std::min(best, time / static_cast<double>(good));
      }
    }
  }
  for (auto& peer : peers) peer.reset();
  std::filesystem::remove_all(directory);
  std::filesystem::create_directory(directory);
  return point;
}

void print(const Series& series) {
  std::printf("\n### %s\n\n| | Records |", series.title);
  for (const PeerKind& kind : kPeerKinds) std::printf(" %s |", kind.name);
  std::printf(" to avl_set | wanted |\n|---|---|");
  for (int i = 0; i < kPeers + 2; ++i) std::printf("---|");
  std::printf("\n");
  for (int op = 0; op < kOps; ++op) {
    if (!series.has(static_cast<Op>(op))) continue;
    for (const Point& point : series.points) {
      std::printf("| %s | %zu |", kOpNames[op], point.size);
      for (const auto& ns : point.ns) {
        if (ns[op] == kNone) {
          std::printf(" |");
        } else {
          std::printf(" %.*f |", ns[op] < 10 ? 1 : 0, ns[op]);
        }
      }
      const double own = point.ns[kTables][op == kDeleteAt ? kDelete : op];
      std::printf(" %.2f | %s |\n", own / point.ns[kAvl][op], op == kWalk ? "1.5" : op == kDeleteAt ? "" : "1.2");
    }
  }
}

// A row of charts for each series, a chart for each operation; both axes are logarithmic.
class Chart {
 public:
  explicit Chart(const char* path) : file_(std::fopen(path, "w")) { expect(file_, "cannot write the chart"); }
  ~Chart() { std::fclose(file_); }
  Chart(const Chart&) = delete;
  Chart& operator=(const Chart&) = delete;

  void draw(const std::vector<Series>& all) {
    const int height = kTop + static_cast<int>(all.size()) * kRow;
    std::fprintf(
        file_,
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" viewBox=\"0 0 %d %d\" "
        "font-family=\"sans-serif\" font-size=\"11\">\n<rect width=\"100%%\" height=\"100%%\" fill=\"white\"/>\n",
        kWidth, height, kWidth, height);
    text(kLeft, 20, "Nanoseconds of processor time for a step, by the number of records", "font-size=\"15\"");
    for (int peer = 0; peer < kPeers; ++peer) {
      const int x = kLeft + peer % 5 * 200, y = 40 + peer / 5 * 18;
      std::fprintf(file_, "<line x1=\"%d\" y1=\"%d\" x2=\"%d\" y2=\"%d\" stroke=\"%s\" stroke-width=\"%d\"/>\n", x, y,
                   x + 22, y, kPeerKinds[peer].colour, weight(peer));
      text(x + 28, y + 4, kPeerKinds[peer].name);
    }
    for (std::size_t i = 0; i < all.size(); ++i) {
      const int top = kTop + static_cast<int>(i) * kRow;
      text(kLeft, top, all[i].title, "font-size=\"13\" font-weight=\"bold\"");
      int column = 0;
      for (int op = 0; op < kOps; ++op) {
        if (op != kDeleteAt && all[i].has(static_cast<Op>(op))) panel(all[i], op, kLeft + column++ * kColumn, top + 30);
      }
    }
    std::fprintf(file_, "</svg>\n");
  }

 private:
  static constexpr int kLeft = 40, kTop = 100, kColumn = 232, kRow = 230, kWide = 180, kHigh = 150;
  static constexpr int kWidth = kLeft + 5 * kColumn;
  static constexpr double kLowest = 1, kHighest = 1e4, kFewest = 16, kMost = 1 << 20;
  static int weight(int peer) { return peer == kTables ? 3 : 2; }
  static double across(double records) { return std::log(records / kFewest) / std::log(kMost / kFewest) * kWide; }
  static double up(double ns) {
    return std::log(std::clamp(ns, kLowest, kHighest) / kLowest) / std::log(kHighest / kLowest) * kHigh;
  }
  void text(int x, int y, const char* what, const char* more = "") {
    std::fprintf(file_, "<text x=\"%d\" y=\"%d\" %s>%s</text>\n", x, y, more, what);
  }
  void panel(const Series& series, int op, int x, int y) {
    text(x, y - 8, kOpNames[op]);
    std::fprintf(file_, "<g transform=\"translate(%d %d)\">\n", x, y);
    for (double ns = kLowest; ns <= kHighest; ns *= 10) {
      std::fprintf(file_,
                   "<line x1=\"0\" x2=\"%d\" y1=\"%.1f\" y2=\"%.1f\" stroke=\"#ddd\"/><text x=\"-4\" y=\"%.1f\" "
                   "text-anchor=\"end\" font-size=\"9\">%.0f</text>\n",
                   kWide, kHigh - up(ns), kHigh - up(ns), kHigh - up(ns) + 3, ns);
    }
    for (const std::size_t size : kSizes) {
      std::fprintf(file_, "<text x=\"%.1f\" y=\"%d\" text-anchor=\"middle\" font-size=\"9\">%zu</text>\n",
                   across(static_cast<double>(size)), kHigh + 14, size);
    }
    for (int peer = kPeers - 1; peer >= 0; --peer) {
      std::string line;
      for (const Point& point : series.points) {
        if (point.ns[peer][op] == kNone) continue;
        char at[48];
        std::snprintf(at, sizeof at, "%.1f,%.1f ", across(static_cast<double>(point.size)),
                      kHigh - up(point.ns[peer][op]));
        line += at;
      }
      if (line.empty()) continue;
      std::fprintf(file_, "<polyline fill=\"none\" stroke=\"%s\" stroke-width=\"%d\" points=\"%s\"/>\n",
                   kPeerKinds[peer].colour, weight(peer), line.c_str());
    }
    std::fprintf(file_, "</g>\n");
  }

  std::FILE* file_;
};

}  // namespace

int main(int argc, char** argv) {
  const char* chart = nullptr;
  const char* format = "%05x-building-profile";  // of a number below 2^20
  std::size_t most = kSizes[std::size(kSizes) - 1];
  int share = 1;
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    expect(i + 1 < argc,
           "usage: zarn_tables_bench [--svg FILE] [--names alike|spread] [--most RECORDS] [--rounds FACTOR]");
    const char* value = argv[++i];
    if (option == "--svg") chart = value;
    if (option == "--names" && value == std::string("alike")) format = "campus-profile-%07u";
    if (option == "--most") most = std::strtoul(value, nullptr, 10);
    if (option == "--rounds") share = std::max(1, std::atoi(value));
  }
  char room[] = "/tmp/tables_bench.XXXXXX";
  expect(mkdtemp(room), "no directory for the databases");

  std::vector<Series> all{{"Numbers: tbl_wlan_ifid, 40 bytes of payload", kById, {}},
                          {"Texts: tbl_wlan_profile_assoicated_tag, 40 bytes of payload", kByName, {}},
                          {"Both: tbl_wlan, 1,992 bytes of payload", kById | kByName, {}}};
  for (const std::size_t size : kSizes) {
    if (size > most) continue;
    const int rounds = share * (size > 100000 ? 3 : size > 10000 ? 6 : 20);
    const auto load = [&](unsigned keys, std::size_t bytes) { return Load(keys, bytes, size, format); };
    all[0].points.push_back(measure<Ifid, kById>(load(kById, 40), room, rounds));
    all[1].points.push_back(measure<Tag, kByName>(load(kByName, 40), room, rounds));
    if (size <= kMostWlans) {
      all[2].points.push_back(measure<Wlan, kById | kByName>(load(kById | kByName, 1992), room, rounds));
    }
    std::fprintf(stderr, "%zu records done\n", size);
  }
  std::filesystem::remove_all(room);
  for (const Series& series : all) print(series);
  if (chart) Chart(chart).draw(all);
  return 0;
}
