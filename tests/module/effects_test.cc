// Tests of everything that an operation lets store, runtime and trace hear: each announcement with address and length
// directly before its store, counters, containment reports, database marks, allocations, all in their order; and what
// becomes of the last error. Every operation of every type, against scripts made from the published tables.
#include "calls.h"
#include "journal.h"

namespace module_test {
namespace {

struct Setting {
  std::uint32_t mode;
  Tracking tracking;
  std::uint32_t containment;
  bool context;  // a write context
};
constexpr Setting kSettings[] = {{0, Tracking::kAbsent, 0, true}, {0, Tracking::kOn, 1, true},
                                 {1, Tracking::kOff, 1, true},    {1, Tracking::kOn, 1, true},
                                 {1, Tracking::kOn, 0, true},     {1, Tracking::kOn, 1, false},
                                 {2, Tracking::kOn, 1, true},     {2, Tracking::kAbsent, 0, false}};

std::string text_of(const Setting& s) {
  return "mode " + std::to_string(s.mode) + ", tracking " + name_of(s.tracking) + ", containment " +
         std::to_string(s.containment) + (s.context ? "" : ", no write context");
}

void apply(Rig& rig, const Setting& s) {
  rig.h->mode = s.mode;
  rig.h->containment = s.containment;
  if (!s.context) rig.txn = KVT_NO_TXN;
  rig.h->default_txn = s.context ? rig.txn + 5 : rig.txn;
}

std::uint32_t string_size(const Field& f) { return f.kind == "kvt_aes_vstring" ? 12 : 8; }

// The lines that a call must give. Addresses are told by a journal's names.
class Script {
 public:
  Script(const Journal& journal, const Setting& setting) : journal_(journal), setting_(setting) {}

  void range(const char* at, std::uint32_t length, const char* owner = nullptr) {
    lines.push_back("range " + where(at) + " " + std::to_string(length) + (owner ? " of " + where(owner) : ""));
  }
  void report(const char* child, const char* parent) {
    if (setting_.containment) lines.push_back("report " + where(child) + " in " + where(parent));
  }
  void mark(const char* what, const char* object) {
    if (setting_.containment && setting_.context && setting_.mode == 1) lines.push_back(what + (" " + where(object)));
  }
  void event(const std::string& what, const char* at) { lines.push_back(what + " " + where(at)); }
  // A struct in a private store is counted by the runtime without a word.
  void counter(const std::string& type, const char* which, bool always) {
    if (setting_.mode || always) lines.push_back("counter " + type + "." + which);
  }

  void scalar_header(const char* object) {
    range(object + 5, 1);
    range(object + 4, 1);
    range(object, 4);
    range(object + 6, 1);
  }
  // `placed`: the runtime knows where the state bytes of nested objects are.
  void initialize(const Type& type, const char* object, bool placed) {
    for (const Field& f : type.fields) {
      if (kind_of(f) == Kind::kReference) range(object + f.offset, 4);
    }
    scalar_header(object);
    if (tracked()) range(object + 6, 1);
    counter(type.name, "created", false);
    if (tracked() && !placed) place(type, object);
    for (const Field& f : type.fields) {
      if (kind_of(f) == Kind::kStruct) initialize(type_of(f.kind), object + f.offset, true);
      if (kind_of(f) == Kind::kEnum || kind_of(f) == Kind::kFlag) scalar_header(object + f.offset);
    }
  }
  // The runtime sets the flag of each nested object, outer ones first.
  void place(const Type& type, const char* object) {
    for (const Field& f : type.fields) {
      if (kind_of(f) != Kind::kStruct) continue;
      range(object + f.offset + 6, 1);
      place(type_of(f.kind), object + f.offset);
    }
  }
  void destroy_fields(const Type& type, const char* object) {
    for (const Field& f : type.fields) {
      if (kind_of(f) == Kind::kString) range(object + f.offset, string_size(f));
      if (kind_of(f) == Kind::kStruct) destroy_fields(type_of(f.kind), object + f.offset);
    }
    counter(type.name, "destroyed", false);
  }
  void embed(const Type& type, const char* object) {
    for (const Field& f : type.fields) {
      if (kind_of(f) == Kind::kEnum || kind_of(f) == Kind::kFlag) range(object + f.offset + 6, 1);
      if (kind_of(f) == Kind::kStruct) embed(type_of(f.kind), object + f.offset);
    }
    range(object + 6, 1);
  }
  // `shared`: the strings are the source's already. `block`: the destination's state bytes.
  void copy(const Type& type, const char* dest, const char* block, bool shared) {
    if (!shared) release(type, dest);
    range(dest, type.size.back(), dest);
    if (tracked()) range(block, type.block.back());
    own_content(type, dest, block, true);
  }
  void release(const Type& type, const char* object) {
    for (const Field& f : type.fields) {
      if (kind_of(f) == Kind::kString) range(object + f.offset, string_size(f));
      if (kind_of(f) == Kind::kStruct) release(type_of(f.kind), object + f.offset);
    }
  }
  void own_content(const Type& type, const char* dest, const char* block, bool shared) {
    for (const Field& f : type.fields) {
      if (kind_of(f) == Kind::kString) range(dest + f.offset, string_size(f));
      if (kind_of(f) == Kind::kStruct) copy(type_of(f.kind), dest + f.offset, block + f.state + 1, shared);
    }
  }
  void unmarshal_scalar(const char* object, bool is_enum) {
    range(object + 4, 1);
    range(object, 4);
    range(object + (is_enum ? 8 : 7), is_enum ? 4 : 1);
    if (is_enum) range(object + 8, 4);  // the value is read into its place, then announced and stored again
  }
  void unmarshal(const Type& type, const char* object, const char* block) {
    for (const Field& f : type.fields) {
      const char* at = object + f.offset;
      switch (kind_of(f)) {
        case Kind::kTimer:
          continue;
        case Kind::kStruct:
          unmarshal(type_of(f.kind), at, block + f.state + 1);
          break;
        case Kind::kEnum:
        case Kind::kFlag:
          unmarshal_scalar(at, kind_of(f) == Kind::kEnum);
          break;
        case Kind::kReference:
          range(at + 8, 40);
          break;
        default:
          range(at, f.width);
      }
      if (tracked()) range(block + f.state, 1);
    }
    range(object + 4, 1);
    range(object + 6, 1);
    range(object, 4);
  }
  // An enumerated value comes unannounced; a flag's bits come with their elements only.
  void from_xml(const Type& type, const char* object, const char* source, Journal& journal) {
    for (const Field& f : type.fields) {
      const char* at = object + f.offset;
      const Kind kind = kind_of(f);
      if (kind <= Kind::kBoolean || kind == Kind::kString) range(at, f.width);
      if (kind == Kind::kEnum) journal.allow(at + 8, 4);
      if (kind == Kind::kFlag && source[f.offset + 7] & 1) range(at + 7, 1);
      if (kind == Kind::kStruct) from_xml(type_of(f.kind), at, source + f.offset, journal);
    }
  }
  void get(const Field& f, const char* object) {
    if (kind_of(f) == Kind::kEnum || kind_of(f) == Kind::kStruct) report(object + f.offset, nullptr);
    report(object + f.offset, object);
  }
  void state(const Field& f, const char* block) {
    if (tracked()) range(block + f.state, 1);
  }
  bool tracked() const { return setting_.tracking == Tracking::kOn; }

  std::vector<std::string> lines;

 private:
  std::string where(const char* at) const { return journal_.name_of_address(at); }
  const Journal& journal_;
  const Setting& setting_;
};

void script_field(Script& s, const Call& call, Bench& b) {
  const Field& f = *call.field;
  const char *object = b.object, *at = object + f.offset, *block = b.block_of(b.object);
  const Kind kind = kind_of(f);
  if (call.op == "f_get" || call.op == "f_get_value") s.get(f, object);
  if (call.op == "f_state_flag_set") s.state(f, block);
  if (call.op == "f_set") {
    if (kind == Kind::kStruct) {
      s.copy(type_of(f.kind), at, block + f.state + 1, false);
    } else {
      s.range(at, f.width);
    }
    s.state(f, block);
    s.report(b.other + f.offset, object);
  }
  if (call.op == "f_set_value") {
    s.get(f, object);
    s.report(at, object);
    s.range(b.object + value_offset(f), value_width(f));
    s.state(f, block);
  }
}

void script_struct(Script& s, const Call& call, Bench& b, Journal& journal, const char* made) {
  const Type& type = *b.subject.type;
  const char *object = b.object, *block = b.block_of(b.object);
  const std::string& op = call.op;
  if (op.starts_with("create")) {
    s.event("alloc", made);
    s.initialize(type, made, false);
    s.report(made, nullptr);
    s.mark("dirty", made);
  } else if (op.starts_with("destroy")) {
    s.destroy_fields(type, object);
    s.mark("destroy", object);
    s.range(object, 4);
    s.event("free", object);
  } else if (op == "initialize") {
    s.initialize(type, object, true);
  } else if (op == "set_instance_embedded") {
    s.embed(type, object);
  } else if (op == "set_all_state_tracking_flag") {
    journal.allow(block, type.block.back());
  } else if (op == "offset_update") {
    if (!s.tracked()) s.place(type, object);
  } else if (op == "get") {
    s.report(object, nullptr);
  } else if (op == "set") {
    s.copy(type, object, block, false);
  } else if (op == "post_copyout_cleanup") {
    s.own_content(type, object, block, false);
  } else if (op == "unmarshal") {
    s.unmarshal(type, object, block);
  } else if (op == "from_xml") {
    s.from_xml(type, object, b.other, journal);
  }
  for (const Field& f : type.fields) {
    if (op == "get_all" && has_value(f)) s.get(f, object);
    if (op == "set_all" && has_value(f)) s.range(object + value_offset(f), value_width(f));
  }
}

void script_scalar(Script& s, const Call& call, Bench& b, Journal& journal, const char* made) {
  const char* object = b.object;
  const std::string& op = call.op;
  const bool is_enum = b.subject.family == Family::kEnum;
  if (op.starts_with("create")) {
    s.event("alloc", made);
    s.scalar_header(made);
    s.counter(b.subject.name, "created", true);
    s.report(made, nullptr);
    s.mark("dirty", made);
  } else if (op.starts_with("destroy")) {
    s.counter(b.subject.name, "destroyed", true);
    if (is_enum) s.mark("destroy", object);
    journal.allow(object, 4);
    s.event("free", object);
  } else if (op == "initialize") {
    s.scalar_header(object);
  } else if (op == "set_instance_embedded") {
    s.range(object + 6, 1);
  } else if (op == "get" && is_enum) {
    s.report(object, nullptr);
  } else if (op == "set") {
    s.range(object, 12);
  } else if (op == "set_value" || op == "set_cr") {
    s.range(object + (is_enum ? 8 : 7), is_enum ? 4 : 1);
  } else if (op == "unmarshal") {
    s.unmarshal_scalar(object, is_enum);
  } else if (op == "from_xml" && is_enum) {
    journal.allow(object + 8, 4);
  } else if (op == "from_xml" && b.other[7] & 1) {
    s.range(object + 7, 1);
  }
}

std::vector<std::string> script_of(const Call& call, Bench& b, Journal& journal, const Setting& setting,
                                   const char* made) {
  Script s(journal, setting);
  if (call.field) {
    script_field(s, call, b);
  } else if (b.subject.family == Family::kStruct) {
    script_struct(s, call, b, journal, made);
  } else {
    script_scalar(s, call, b, journal, made);
  }
  return s.lines;
}

// Whether a good call leaves the last error clear: what a struct's initialize or a preamble does.
bool clears_last_error(const Call& call, Family family) {
  static const std::set<std::string> of_fields = {"f_get", "f_get_value", "f_set", "f_set_value"};
  static const std::set<std::string> of_all = {"initialize", "marshal", "unmarshal", "to_xml", "from_xml"};
  static const std::set<std::string> of_structs = {"create", "create_internal", "get_all", "set_all"};
  static const std::set<std::string> of_enums = {"get_value", "set_value", "set"};
  static const std::set<std::string> of_flags = {"set_value", "set"};
  if (call.field) return of_fields.count(call.op) > 0;
  const auto& own = family == Family::kStruct ? of_structs : family == Family::kEnum ? of_enums : of_flags;
  return of_all.count(call.op) || own.count(call.op);
}

// What reading an object from XML leaves: readers of structs, enumerated and flag types begin with a clear last error,
// and each enumerator or bit that is looked for and not found leaves 2.
int last_error_of_xml(const Subject& subject, const char* source) {
  if (subject.family == Family::kEnum) return load<std::uint32_t>(source + 8) ? 2 : 0;
  if (subject.family == Family::kFlag) return source[7] & 1 ? 0 : 2;
  int last = 0;
  for (const Slot& slot : slots_of(*subject.type, const_cast<char*>(source))) {
    const Kind kind = kind_of(*slot.field);
    if (kind == Kind::kStruct) last = 0;
    if (kind == Kind::kEnum) last = content_of(slot) == "0" ? 0 : 2;
    if (kind == Kind::kFlag) last = content_of(slot) == "0" ? 2 : 0;
  }
  return last;
}

// Addresses of the statistics counters that a handle's objects are counted in.
std::map<const char*, std::string> counters_of(Rig& rig) {
  std::vector<std::string> types = {"st_apf_vap_802_11bg"};
  for (const Subject& subject : all_subjects()) types.push_back(subject.name);
  std::map<const char*, std::string> names;
  for (const std::string& type : types) {
    const kvt_type_record* record = record_of(type);
    if (rig.h->mode) record = kvt_type_info_ptr_get(rig.h, rig.txn, record, nullptr);
    if (!record) continue;
    kvt_variant_entry* entries = kvt_variant_entries(kvt_varinfo_of(record));
    const int top = kvt_varinfo_of(record)->n_variants - 1;
    names[reinterpret_cast<const char*>(&entries[top].created)] = type + ".created";
    names[reinterpret_cast<const char*>(&entries[top].destroyed)] = type + ".destroyed";
  }
  rig.h->last_error = 0;
  return names;
}

void expect_effects(const Setting& setting) {
  SCOPED_TRACE(text_of(setting));
  Rig rig(setting.tracking);
  apply(rig, setting);
  rig.destroy(type_of("st_wlan"), rig.make(type_of("st_wlan")));  // registers the types of all modules
  const auto counter_names = counters_of(rig);
  for (const Subject& subject : all_subjects()) {
    Bench bench(rig, subject);
    Journal journal(rig);
    const std::uint32_t whole = rig.blocks[bench.object];
    for (const Call& call : bench.calls) {
      const bool wants_states = call.op.starts_with("f_state_");
      if (wants_states && setting.tracking != Tracking::kOn) continue;  // refused, see below
      bench.prepare(call);
      journal.unwatch();
      journal.watch(bench.object, "object");
      journal.watch(bench.other, "other");
      journal.watch_new(call.op.starts_with("create") ? whole : 0);
      journal.forget_names();
      journal.name(bench.object, whole, "object");
      journal.name(bench.other, whole, "other");
      rig.h->last_error = call.errors == Errors::kLast ? 0 : 77;
      int expected_last = call.errors == Errors::kLast || clears_last_error(call, subject.family) ? 0 : 77;
      if (call.op == "from_xml") expected_last = last_error_of_xml(subject, bench.other);
      journal.begin();
      script_of(call, bench, journal, setting, nullptr);  // for the stores that go unannounced
      const std::uintptr_t result = call.run(&rig.err);
      journal.end();
      const char* made = reinterpret_cast<const char*>(result);
      if (call.op.starts_with("create")) {
        journal.name(made, whole, "new");
        EXPECT_EQ(journal.first_seen(made), std::string(whole, '\0')) << call.name << ": zeroed before it is set up";
      }
      EXPECT_EQ(journal.lines(counter_names), script_of(call, bench, journal, setting, made)) << call.name;
      EXPECT_EQ(journal.stray, "") << call.name;
      const bool by_handle = call.name.ends_with("_cr");
      for (const Journal::Event& e : journal.events) {
        if (e.what == "report" || e.what == "trace") continue;
        EXPECT_EQ(e.txn, by_handle ? rig.h->default_txn : rig.txn) << call.name << " " << e.what;
      }
      EXPECT_EQ(rig.take_err(), 0) << call.name;
      EXPECT_EQ(rig.h->last_error, expected_last) << call.name;
      journal.unwatch();
      bench.settle(call, result);
      if (testing::Test::HasFailure()) return;
    }
  }
}

TEST(Effects, OfEveryOperationOfEveryTypeAreThoseToldInTheirOrder) {
  for (const Setting& setting : kSettings) {
    expect_effects(setting);
    if (testing::Test::HasFailure()) return;
  }
}

}  // namespace
}  // namespace module_test
