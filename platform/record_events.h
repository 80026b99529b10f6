// Which records a transaction changed. What is announced tells the blocks, and a block tells the record: its own, or
// the one that has it as payload. Collected in the memory of the process while a transaction is open, and only when
// somebody wants to know.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "kvt/events.h"
#include "platform/heap.h"

namespace kvt {

class Database;

struct RecordChange {
  std::uint32_t kind;
  const kvt_static_type* type;  // of the record
  std::uint32_t type_link;
  std::uint32_t table;
  std::uint32_t record;
  std::uint16_t tenant;
  std::uint8_t source;
  const std::uint8_t* key;  // in binary form; until the next event is made
  std::uint32_t key_length;
};

class RecordEvents {
 public:
  // Begins to collect. The handle serves where a module asks for one.
  void begin(const Database* database, const Heap* heap, kvt_handle* handle);
  bool collecting() const { return handle_; }
  void end();

  // Before the change of a range. Notes the block, and of a record what it is now.
  void touch(std::uint32_t at, std::uint32_t length);

  // Calls function(event) for each change so far, in the order in which records were first touched. What the function
  // changes is left to the next call.
  template <class Function>
  void for_each(Function function) {
    ++pass_;
    tables_.clear();
    const std::size_t count = blocks_.size();
    RecordChange event;
    for (std::size_t i = 0; i < count; ++i) {
      for (int part = 0; part < 2; ++part) {
        if (!make_event(i, part, &event)) continue;
        const std::uint64_t before = touches_;
        function(event);
        if (touches_ != before) tables_.clear();
      }
    }
  }

 private:
  enum class Role : std::uint8_t { kNone, kRecord, kPayload };
  struct TypeRole {
    Role role = Role::kNone;
    const kvt_static_type* type = nullptr;
  };
  struct RecordState {
    std::uint32_t table = 0;  // 0: in none
    std::uint32_t payload = 0;
    std::uint32_t flags = 0;
  };
  struct Block {
    std::uint32_t at;
    Role role;
    std::uint32_t told;  // the last pass that told of the record
    std::uint32_t type_link;
    const kvt_static_type* type;
    RecordState before;
    std::uint32_t key_at, key_length;  // in keys_
  };
  struct Table {
    std::uint32_t at;
    const kvt_static_type* record_type;
  };

  TypeRole role_of(std::uint32_t block);
  bool is_live(std::uint32_t block) const;
  RecordState state_of(const Block& block);
  void read_key(const kvt_static_type* type, std::uint32_t payload, std::vector<std::uint8_t>* key) const;
  bool make_event(std::size_t index, int part, RecordChange* event);
  bool make_record_event(Block& block, int part, RecordChange* event);
  void fill(std::uint32_t kind, std::uint32_t type_link, const kvt_static_type* type, std::uint32_t record,
            const RecordState& state, RecordChange* event);
  void find_tables();
  std::uint32_t record_with(std::uint32_t payload, const kvt_type_record* payload_type, const Table** table);

  const Database* database_ = nullptr;
  const Heap* heap_ = nullptr;
  kvt_handle* handle_ = nullptr;
  std::uint32_t pass_ = 0;
  std::uint64_t touches_ = 0;
  std::uint64_t loaded_ = 0;
  std::unordered_map<std::uint32_t, TypeRole> roles_;             // by type link
  std::unordered_map<std::uint32_t, std::uint32_t> block_index_;  // by place
  std::vector<Block> blocks_;
  std::vector<std::uint8_t> keys_;
  std::vector<std::uint8_t> key_;  // of the event at hand
  std::vector<Table> tables_;      // of this pass
};

// Whether the process has a handler for any event of any table.
bool events_heard();

}  // namespace kvt
