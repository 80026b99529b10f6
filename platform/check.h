// Looks a database through. Nothing in the file is trusted: every reference is held against the blocks that the
// allocator knows before it is followed.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "kvt/care.h"
#include "platform/database.h"
#include "platform/table_blocks.h"

namespace kvt {

// A block of the heap that is in use, and what was found to own it.
struct CheckedBlock {
  std::uint32_t at;
  std::uint32_t size;
  bool pending;
  bool claimed;
};

// A table's blocks as far as they could be made out.
struct CheckedTable {
  std::uint32_t at = 0;
  const kvt_shape* shape = nullptr;
  std::string name;
  bool sound = true;  // nothing of it, its records and its trees is wrong
  std::vector<std::uint32_t>
      records;  // whose objects are right, in the order of the primary index or, without one, of memory
  std::vector<std::uint32_t> damaged;  // that are not
};

class Checker {
 public:
  Checker(const Database& database, kvt_care_line line, void* argument)
      : db_(database), line_(line), argument_(argument) {}
  using Chunk = std::array<std::uint32_t, 2>;

  // The write lock is held. @return the number of faults
  std::uint32_t run();

  bool chunks_are_sound() const { return chunks_sound_; }  // every chunk could be followed
  bool heap_is_sound() const { return heap_sound_; }       // and the lists of free ones are right
  bool limbo_is_sound() const { return limbo_sound_; }
  bool due_is_sound() const { return due_sound_; }
  // Entries of identities whose objects are to be destroyed, as they are marked.
  const std::vector<std::uint32_t>& due() const { return due_; }
  bool contents_are_sound() const { return contents_sound_; }
  // Free chunks by address: {address, size}.
  const std::vector<Chunk>& free_chunks() const { return free_; }
  // Identities that count too few references, and how many there are.
  const std::vector<std::pair<std::uint32_t, std::uint32_t>>& uncounted() const { return uncounted_; }
  // The cards of the heap as they should be, where its chunks are sound.
  const std::vector<HeapCard>& cards() const { return cards_; }
  const std::vector<CheckedBlock>& blocks() const { return blocks_; }
  const std::vector<CheckedTable>& tables() const { return tables_; }
  // Text fields whose content is no block of theirs.
  const std::vector<std::uint32_t>& lost_texts() const { return lost_texts_; }
  // Root words of trees of timers that are not right; 0 for the list of these trees.
  const std::vector<std::uint32_t>& lost_timers() const { return lost_timers_; }
  // What the sums of the heap are; after run().
  std::uint64_t used_bytes() const { return used_bytes_; }
  std::uint64_t free_bytes() const { return free_bytes_; }

 private:
  // Where a fault is: told only when there is one.
  struct Place {
    const Place* in;
    const char* what;
    std::uint32_t at;  // 0: `what` alone
  };
  struct Span {
    std::uint32_t begin, end;
  };

  template <class... Arguments>
  void fault(const Place& place, const char* format, Arguments... arguments);
  std::string describe(const Place& place) const;

  template <class T>
  const T* in_permanent(std::uint32_t at, std::uint32_t size = sizeof(T));
  const CheckedBlock* block_at(std::uint32_t at) const;
  const CheckedBlock* block_around(std::uint32_t at) const;
  // The block that begins at `at` and has room for `size` bytes, now owned; null, with the fault told, otherwise.
  const void* claim(const Place& place, std::uint32_t at, std::uint32_t size);
  template <class T>
  const T* claim(const Place& place, std::uint32_t at, std::uint32_t size = sizeof(T)) {
    return static_cast<const T*>(claim(place, at, size));
  }
  bool claim_permanent(const Place& place, std::uint32_t at, std::uint32_t size);

  void check_heap();
  std::uint32_t check_region(std::uint32_t begin, std::uint32_t end);
  void check_bins();
  void check_cards();
  void check_permanent();
  void check_keys();
  void check_registered(const Place& place, std::uint32_t at);
  void check_map(const Place& place, const RefMapHead& map,
                 void (Checker::*entry)(const Place&, std::uint32_t, std::uint32_t));
  void check_side(const Place& place, std::uint32_t key, std::uint32_t value);
  void check_oid(const Place& place, std::uint32_t key, std::uint32_t value);
  void check_serial(const Place& place, std::uint32_t key, std::uint32_t value);
  void check_tables();
  void check_contents();
  void check_table(std::uint32_t at, const Place& place);
  void check_counters(CheckedTable& table, const Place& place);
  void check_queue(CheckedTable& table, const Place& place);
  bool check_record(const CheckedTable& table, const Place& place, std::uint32_t at);
  bool check_object(const Place& place, std::uint32_t at, const kvt_type_record* expected, std::uint32_t room);
  bool check_text(const Place& place, std::uint32_t at, std::uint32_t length, bool secret);
  bool check_index(CheckedTable& table, const Place& place, unsigned key, std::vector<std::uint32_t>* records);
  void check_timers();
  void check_timer_tree(const Place& place, std::uint32_t root);
  void check_references();
  void check_due();
  void check_limbo();
  void check_unclaimed();
  void sweep_records(CheckedTable& table);
  // The type that a link leads to; null for a link that leads to none.
  const kvt_type_record* type_at(std::uint32_t link);

  const Database& db_;
  kvt_care_line line_;
  void* argument_;
  std::uint32_t faults_ = 0;
  bool chunks_sound_ = true, heap_sound_ = true, contents_sound_ = true, limbo_sound_ = true, due_sound_ = true;
  std::uint64_t used_bytes_ = 0, free_bytes_ = 0;
  std::vector<CheckedBlock> blocks_;  // by address
  std::vector<std::uint32_t> due_;
  std::vector<Chunk> free_;
  std::vector<HeapCard> cards_ = std::vector<HeapCard>(kSlotSize >> kCardShift);
  std::vector<std::pair<std::uint32_t, std::uint32_t>> uncounted_;
  std::vector<std::uint32_t> lost_texts_;
  std::vector<std::uint32_t> lost_timers_;
  std::vector<Span> permanent_;       // claimed permanent memory
  std::vector<std::uint32_t> types_;  // registered copies, by address
  std::vector<CheckedTable> tables_;
  struct Found {
    std::uint32_t field;  // where a reference field stands
    std::uint64_t serial;
  };
  std::vector<Found> references_;  // to objects of this store
};

}  // namespace kvt
