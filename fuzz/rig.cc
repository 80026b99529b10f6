#include "fuzz/rig.h"

#include <cerrno>
#include <cstring>
#include <memory>

namespace fuzz {
namespace {

using module_test::Catalogue;
using module_test::fn;
using module_test::Type;

const Shape& shape_of(const Type& type) {
  static std::map<std::string, std::unique_ptr<Shape>> shapes;
  std::unique_ptr<Shape>& shape = shapes[type.name];
  if (shape) return *shape;
  auto made = std::make_unique<Shape>();
  for (const module_test::Field& f : type.fields) {
    Shape::Field field{module_test::kind_of(f), f.variant, f.offset, nullptr, 0, nullptr, nullptr};
    if (field.kind == Kind::kStruct) field.nested = &shape_of(module_test::type_of(f.kind));
    if (field.kind == Kind::kEnum) {
      const auto& enums = Catalogue::get().enums;
      const auto found = enums.find(f.kind);
      // An enumerated type of another module isn't in the tables; all its values count as named by nobody.
      field.enumerators = found == enums.end() ? 0 : static_cast<std::uint32_t>(found->second.size());
    }
    if (field.kind == Kind::kString) {
      field.len = fn<module_test::Len>(f.kind + "_len");
      field.release = fn<void(kvt_handle*, std::uint32_t, void*, int)>(f.kind + "_destroy_internal");
    }
    made->fields.push_back(field);
  }
  shape = std::move(made);
  return *shape;
}

// The payload of a table that another module's type makes up; its own module publishes no table.
const Type kTag{"st_profile_assoicated_tag",
                {{"tag_name", "kvt_vstring", 0, 8, 8, 0, 0},
                 {"description", "kvt_vstring", 1, 16, 8, 0, 1},
                 {"generation_id", "u_int64", 2, 24, 8, 0, 2},
                 {"ap_count", "u_int32", 3, 32, 4, 0, 3},
                 {"is_default", "kvt_boolean", 4, 36, 4, 0, 4}},
                {40},
                {48},
                {5},
                {5}};

Subject make_subject(const std::string& name, const Type* type) {
  Subject s{};
  s.name = name;
  s.type = type;
  s.shape = type ? &shape_of(*type) : nullptr;
  if (!type && !name.starts_with("flg_")) {
    s.enumerators = static_cast<std::uint32_t>(Catalogue::get().enums.at(name).size());
  }
  s.create = fn<module_test::Create>(name + "_create");
  s.destroy = fn<module_test::Destroy>(name + "_destroy");
  s.len = fn<module_test::Len>(name + "_len");
  s.marshal = fn<module_test::Marshal>(name + "_marshal");
  s.unmarshal = fn<module_test::Unmarshal>(name + "_unmarshal");
  s.compare = fn<module_test::Compare>(name + "_compare");
  s.hash = fn<module_test::Hash>(name + "_hash");
  s.print = fn<module_test::Print>(name + "_print");
  if (type) s.clone = fn<module_test::Clone>(name + "_clone");
  s.to_xml = fn<module_test::ToXml>(name + "_to_xml");
  s.from_xml = fn<module_test::FromXml>(name + "_from_xml");
  return s;
}

decltype(kvt_handle::store_alloc) inner_alloc;
std::uint64_t spent_bytes, spent_calls;

void* counting_alloc(void* store, std::uint32_t txn, std::uint32_t size) {
  spent_bytes += size;
  ++spent_calls;
  return inner_alloc(store, txn, size);
}

std::unique_ptr<Rig> make_rig(Tracking tracking, int limit) {
  testing::FLAGS_gtest_break_on_failure = true;  // what the rig expects is expected of an input too
  auto rig = std::make_unique<Rig>(tracking);
  inner_alloc = rig->h->store_alloc;
  rig->h->store_alloc = counting_alloc;
  // To keep a book of what is announced takes most of the time. Untracked handles don't announce at all.
  rig->h->set_range = tracking == Tracking::kAbsent
                          ? kvt_set_range_private
                          : [](kvt_handle*, void*, std::uint32_t, std::uint32_t, void*) { return 1; };
  if (limit != kNoLimit) module_test::limit_domain(*rig, limit);
  return rig;
}

// Calls `use` with the shape and place of the object and of all that is nested in it, the outermost first, and with the
// fields that its variant hides.
template <class Use>
void walk(const Shape& shape, char* object, bool hidden, const Use& use) {
  const int variant = static_cast<signed char>(object[4]);
  for (const Shape::Field& f : shape.fields) {
    const bool below = hidden || variant < f.variant;
    use(f, object + f.offset, below);
    if (f.nested) walk(*f.nested, object + f.offset, below, use);
  }
}

void check_header(const char* object, bool tracked, bool nested, const std::string& name) {
  FUZZ_CHECK(object[4] <= object[5], name + ": a variant above the one it was built for");
  const auto flags = static_cast<std::uint8_t>(object[6]);
  const unsigned allowed = KVT_OBJ_RA_DATA | KVT_OBJ_EMBEDDED |
                           (tracked ? KVT_OBJ_STATE_TRACKED | KVT_OBJ_STTR_OFFSET : 0) | (nested ? KVT_OBJ_NESTED : 0);
  FUZZ_CHECK((flags & ~allowed) == 0, name + ": a flag that no byte of a stranger may set");
  FUZZ_CHECK(!tracked || flags & KVT_OBJ_STATE_TRACKED, name + ": no longer tracked");
  int err = 0;
  const kvt_type_record* record = kvt_get_manifested_type_info(object, &err);
  FUZZ_CHECK(record && record->magic == KVT_TYPE_MAGIC, name + ": no type");
}

// A writer's need: what len says, and the remote-access data that len doesn't count.
std::size_t need_of(Rig& rig, const Subject& subject, const void* object) {
  constexpr std::size_t kRemoteBytes = 9;
  std::size_t need = subject.len(rig.h, rig.txn, object) + kRemoteBytes;
  if (subject.shape) {
    walk(*subject.shape, const_cast<char*>(static_cast<const char*>(object)), false,
         [&](const Shape::Field& f, const char*, bool) { need += f.nested ? kRemoteBytes : 0; });
  }
  return need;
}

}  // namespace

const std::vector<Subject>& subjects() {
  static const std::vector<Subject> all = [] {
    std::vector<Subject> made;
    for (const Type& type : module_test::all_types()) made.push_back(make_subject(type.name, &type));
    made.push_back(make_subject(kTag.name, &kTag));
    made.push_back(make_subject("st_apf_vap_802_11bg", &module_test::type_of("st_apf_vap_802_11bg")));
    for (const auto& [name, values] : Catalogue::get().enums) made.push_back(make_subject(name, nullptr));
    return made;
  }();
  return all;
}

const Subject& subject_named(const std::string& name) {
  for (const Subject& subject : subjects()) {
    if (subject.name == name) return subject;
  }
  broken(__FILE__, __LINE__, "no type " + name);
}

Options::Options(std::uint8_t byte)
    : tracking(module_test::kTrackings[(byte & 3) % 3]),
      limit((byte >> 2 & 3) == 0 ? kNoLimit : (byte >> 2 & 3) - 2),
      filled(byte & 0x10),
      update(byte & 0x20),
      extra(byte & 0x40),
      reference(byte & 0x80) {}

std::uint8_t Options::byte(Tracking tracking, int limit, bool filled, bool update, bool extra) {
  unsigned at = 0;
  while (module_test::kTrackings[at] != tracking) ++at;
  return static_cast<std::uint8_t>(at | (limit == kNoLimit ? 0u : static_cast<unsigned>(limit + 2)) << 2 |
                                   (filled ? 0x10 : 0) | (update ? 0x20 : 0) | (extra ? 0x40 : 0));
}

Rig& rig_for(const Options& options) {
  static std::map<std::pair<Tracking, int>, std::unique_ptr<Rig>> rigs;
  std::unique_ptr<Rig>& rig = rigs[{options.tracking, options.limit}];
  if (!rig) rig = make_rig(options.tracking, options.limit);
  rig->given_anew.clear();
  rig->err = 0;
  return *rig;
}

Spending::Spending() : bytes_(spent_bytes), calls_(spent_calls) {}
std::uint64_t Spending::bytes() const { return spent_bytes - bytes_; }
std::uint64_t Spending::calls() const { return spent_calls - calls_; }

void* make_object(Rig& rig, const Subject& subject, const Options& options) {
  void* object = subject.create(rig.h, rig.txn);
  FUZZ_CHECK(object, subject.name + ": not created");
  if (!options.filled || options.limit < 0) return object;
  // Field by field takes long, so one filled object of each type and handle is kept as bytes.
  static std::map<std::pair<const Subject*, const Rig*>, std::string> filled_bytes;
  auto [entry, is_new] = filled_bytes.try_emplace({&subject, &rig});
  std::string& bytes = entry->second;
  if (is_new) {
    if (subject.type) module_test::fill(rig, *subject.type, object, 1, options.limit);
    int err = 0;
    bytes = marshalled(rig, subject, object, &err);
    FUZZ_CHECK(err == 0, subject.name + ": a filled object is not written");
    return object;
  }
  int err = 0;
  subject.unmarshal(rig.h, rig.txn, reinterpret_cast<const std::uint8_t*>(bytes.data()), object,
                    static_cast<std::int32_t>(bytes.size()), 0, &err);
  FUZZ_CHECK(err == 0, subject.name + ": a filled object is not read");
  return object;
}

void release_above_variant(Rig& rig, const Shape& shape, void* object) {
  walk(shape, static_cast<char*>(object), false, [&](const Shape::Field& f, char* at, bool hidden) {
    if (hidden && f.release) f.release(rig.h, rig.txn, at, 0);
    if (hidden && f.kind == Kind::kReference) {
      int err = 0;
      kvtlib_oid_release_internal(rig.h, rig.txn, at, &err);
    }
  });
}

void drop_object(Rig& rig, const Subject& subject, void* object) {
  if (subject.shape) release_above_variant(rig, *subject.shape, object);
  subject.destroy(rig.h, rig.txn, object);
}

void check_whole(Rig& rig, const Subject& subject, const void* object) {
  char* bytes = const_cast<char*>(static_cast<const char*>(object));
  check_header(bytes, subject.type && rig.tracked(), false, subject.name);
  if (!subject.shape) return;
  unsigned sum = 0;
  walk(*subject.shape, bytes, false, [&](const Shape::Field& f, char* at, bool) {
    if (f.nested) check_header(at, rig.tracked(), true, subject.name);
    if (f.kind == Kind::kEnum || f.kind == Kind::kFlag) check_header(at, false, true, subject.name);
    if (f.kind != Kind::kString) return;
    const Exact copy(f.len(rig.h, rig.txn, at));
    const auto* words = reinterpret_cast<const std::uint32_t*>(at);
    const auto* text = static_cast<const unsigned char*>(kvt_ref_at(words[0]));
    const std::size_t length = copy.size() - sizeof(std::uint32_t);
    FUZZ_CHECK(text || !length, subject.name + ": a length without bytes");
    for (std::size_t i = 0; i < length; ++i) sum += text[i];
  });
  asm volatile("" : : "r"(sum));  // the reads must not be left out
}

std::string marshalled(Rig& rig, const Subject& subject, const void* object, int* err) {
  const Exact room(need_of(rig, subject, object));
  const std::uint32_t written = subject.marshal(rig.h, rig.txn, room.bytes(), object, room.room(), err);
  FUZZ_CHECK(written <= room.size(), subject.name + ": more written than there is room");
  return std::string(room.text(), written);
}

void check_round_trip(Rig& rig, const Subject& subject, const void* object) {
  int err = 0;
  const std::string first = marshalled(rig, subject, object, &err);
  // What a stranger's variant is too high for, the domain refuses.
  FUZZ_CHECK(err == 0 || err == EIDRM, subject.name + ": not written: error " + std::to_string(err));
  if (err) return;
  void* other = subject.create(rig.h, rig.txn);
  // One byte more: the state byte of a reference at the very end is read only when another byte follows.
  const Exact bytes(first.c_str(), first.size() + 1);
  const std::uint32_t read = subject.unmarshal(rig.h, rig.txn, bytes.bytes(), other, bytes.room(), 0, &err);
  FUZZ_CHECK(err == 0 && read == first.size(), subject.name + ": what was written is not read");
  const std::string second = marshalled(rig, subject, other, &err);
  FUZZ_CHECK(err == 0, subject.name + ": not written again");
  const auto differ = std::mismatch(first.begin(), first.end(), second.begin(), second.end()).first - first.begin();
  FUZZ_CHECK(first == second, subject.name + ": written again it differs at byte " + std::to_string(differ) + " of " +
                                  std::to_string(first.size()));
  drop_object(rig, subject, other);
}

bool has_nameless_value(const Subject& subject, const void* object) {
  constexpr std::size_t kValueOffset = 8;
  const auto value = [](const char* at) { return module_test::load<std::uint32_t>(at + kValueOffset); };
  char* bytes = const_cast<char*>(static_cast<const char*>(object));
  if (!subject.shape) return subject.enumerators && value(bytes) >= subject.enumerators;
  bool found = false;
  walk(*subject.shape, bytes, false, [&](const Shape::Field& f, char* at, bool hidden) {
    found |= f.kind == Kind::kEnum && !hidden && value(at) >= f.enumerators;
  });
  return found;
}

void check_clone(Rig& rig, const Subject& subject, const void* object) {
  if (!subject.clone) return;
  const Exact scratch(need_of(rig, subject, object));
  void* copy = nullptr;
  int err = 0;
  subject.clone(rig.h, rig.txn, object, &copy, scratch.bytes(), scratch.room(), &err);
  FUZZ_CHECK(err == 0 || err == EIDRM, subject.name + ": not cloned: error " + std::to_string(err));
  FUZZ_CHECK((copy == nullptr) == (err != 0), subject.name + ": a clone and its error");
  if (!copy) return;
  check_whole(rig, subject, copy);
  int refused = 0;
  std::string from = marshalled(rig, subject, object, &refused), to = marshalled(rig, subject, copy, &refused);
  if (!from.empty() && !to.empty()) from.pop_back(), to.pop_back();  // may be a state byte behind a reference
  FUZZ_CHECK(refused || from == to, subject.name + ": the clone is written otherwise");
  FUZZ_CHECK(subject.compare(object, copy) || subject.hash(object, 7) == subject.hash(copy, 7),
             subject.name + ": equal, and hashed otherwise");
  drop_object(rig, subject, copy);
}

void check_print(Rig& rig, const Subject& subject, const void* object) {
  constexpr std::int32_t kRoom = 2 << 20;
  static const Exact room(kRoom);
  const char* name = subject.name.c_str();
  int err = 0;
  const std::uint32_t written = subject.print(rig.h, rig.txn, room.text(), 0, name, object, kRoom, &err);
  FUZZ_CHECK(err == 0 && written, subject.name + ": not printed: error " + std::to_string(err));
  const Exact exact(written + 1);  // and a NUL
  const std::uint32_t again = subject.print(rig.h, rig.txn, exact.text(), 0, name, object, exact.room(), &err);
  FUZZ_CHECK(err == 0 && again == written && !std::memcmp(exact.text(), room.text(), written),
             subject.name + ": printing needs more room: error " + std::to_string(err));
  const Exact tight(written / 2);
  subject.print(rig.h, rig.txn, tight.text(), 0, name, object, tight.room(), &err);
}

std::string xml_of(Rig& rig, const Subject& subject, const void* object) {
  constexpr std::int32_t kRoom = 2 << 20;
  static const Exact room(kRoom);
  const char* name = subject.name.c_str();
  int err = 0;
  const std::uint32_t written = subject.to_xml(rig.h, rig.txn, name, room.text(), object, kRoom, 0, &err);
  FUZZ_CHECK(err == 0, subject.name + ": no XML: error " + std::to_string(err));
  const Exact exact(written);
  subject.to_xml(rig.h, rig.txn, name, exact.text(), object, exact.room(), 0, &err);
  FUZZ_CHECK(err == 0 && !std::memcmp(exact.text(), room.text(), written), subject.name + ": its XML needs more room");
  const Exact tight(written - 1);
  subject.to_xml(rig.h, rig.txn, name, tight.text(), object, tight.room(), 0, &err);
  FUZZ_CHECK(err == EMSGSIZE, subject.name + ": its XML in a room that is too small: error " + std::to_string(err));
  return std::string(exact.text(), written);
}

}  // namespace fuzz
