// Watched handles and the types of the module, made for millions of rounds: what differs between two types is looked up
// once.
#pragma once

#include "fuzz/target.h"
#include "tests/module/rig.h"

namespace fuzz {

using module_test::Kind;
using module_test::Rig;
using module_test::Tracking;

// A struct type's fields without their texts.
struct Shape {
  struct Field {
    Kind kind;
    int variant;
    std::uint32_t offset;
    const Shape* nested;                                               // kStruct
    std::uint32_t enumerators;                                         // kEnum
    module_test::Txn (*len)(kvt_handle*, std::uint32_t, const void*);  // kString
    void (*release)(kvt_handle*, std::uint32_t, void*, int);           // kString
  };
  std::vector<Field> fields;
};

// A type that stands alone: struct, enumerated or flag.
struct Subject {
  std::string name;
  const module_test::Type* type;  // null unless it is a struct
  const Shape* shape;             // likewise
  std::uint32_t enumerators;      // of an enumerated type
  module_test::Create* create;
  module_test::Destroy* destroy;
  module_test::Len* len;
  module_test::Marshal* marshal;
  module_test::Unmarshal* unmarshal;
  module_test::Compare* compare;
  module_test::Hash* hash;
  module_test::Print* print;
  module_test::Clone* clone;  // null unless it is a struct
  module_test::ToXml* to_xml;
  module_test::FromXml* from_xml;
};
const std::vector<Subject>& subjects();
const Subject& subject_named(const std::string& name);

// How an input wants its handle and its object; bits of one byte.
struct Options {
  Tracking tracking;
  int limit;  // variant that the domain allows, or kNoLimit
  bool filled;
  bool update;
  bool extra;      // the slower checks too
  bool reference;  // marked places of the input become an identity that leads somewhere
  explicit Options(std::uint8_t byte);
  static std::uint8_t byte(Tracking tracking, int limit, bool filled, bool update, bool extra);
};
constexpr int kNoLimit = 127;

// The handle for these options; it lives as long as the process.
Rig& rig_for(const Options& options);

// What was asked of the store since it was made.
class Spending {
 public:
  Spending();
  std::uint64_t bytes() const;
  std::uint64_t calls() const;

 private:
  std::uint64_t bytes_, calls_;
};

// Holds that a round gives back all blocks that it took.
class Balance {
 public:
  explicit Balance(const Rig& rig) : rig_(rig), before_(rig.blocks.size()) {}
  ~Balance() { FUZZ_CHECK(rig_.blocks.size() == before_, "blocks are left behind"); }
  Balance(const Balance&) = delete;
  Balance& operator=(const Balance&) = delete;

 private:
  const Rig& rig_;
  std::size_t before_;
};

// An object that is filled if the options say so, and the domain lets it have fields.
void* make_object(Rig& rig, const Subject& subject, const Options& options);
// Destroys an object and what it keeps in fields above its variant, at which destroy does not look.
void drop_object(Rig& rig, const Subject& subject, void* object);
void release_above_variant(Rig& rig, const Shape& shape, void* object);
// An object with a sound header, whose strings can be read from end to end, at every level.
void check_whole(Rig& rig, const Subject& subject, const void* object);
// Written, read into a fresh object and written again: the same bytes.
void check_round_trip(Rig& rig, const Subject& subject, const void* object);
std::string marshalled(Rig& rig, const Subject& subject, const void* object, int* err);
// Whether an enumerated value has no name, which no XML reader takes.
bool has_nameless_value(const Subject& subject, const void* object);
// A copy is equal and hashes alike.
void check_clone(Rig& rig, const Subject& subject, const void* object);
// Printed in its own room and in too little.
void check_print(Rig& rig, const Subject& subject, const void* object);
// The object as XML, written in a room of exactly its length too.
std::string xml_of(Rig& rig, const Subject& subject, const void* object);

}  // namespace fuzz
