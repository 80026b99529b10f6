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
  Place place = Place::kPrivate;
};
constexpr Setting kSettings[] = {
    {0, Tracking::kAbsent, 0, true}, {0, Tracking::kOn, 1, true},      {1, Tracking::kOff, 1, true},
    {1, Tracking::kOn, 1, true},     {1, Tracking::kOn, 0, true},      {1, Tracking::kOn, 1, false},
    {2, Tracking::kOn, 1, true},     {2, Tracking::kAbsent, 0, false}, {1, Tracking::kOn, 1, true, Place::kDatabase}};
constexpr Setting kWatchful = {1, Tracking::kOn, 1, true};

std::string text_of(const Setting& s) {
  return "mode " + std::to_string(s.mode) + ", tracking " + name_of(s.tracking) + ", containment " +
         std::to_string(s.containment) + (s.context ? "" : ", no write context") + ", " + name_of(s.place);
}

void apply(Rig& rig, const Setting& s) {
  rig.h->mode = s.mode;
  rig.h->containment = s.containment;
  if (!s.context) rig.txn = KVT_NO_TXN;
  rig.h->default_txn = s.context && s.place == Place::kPrivate ? rig.txn + 5 : rig.txn;
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
  static const std::set<std::string> of_fields = words("f_get f_get_value f_set f_set_value");
  static const std::set<std::string> of_all = words("initialize marshal unmarshal to_xml from_xml print");
  static const std::set<std::string> of_structs = words("create create_internal get_all set_all");
  static const std::set<std::string> of_enums = words("get_value set_value set");
  static const std::set<std::string> of_flags = words("set_value set");
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

// A rig with all types registered, a bench and a journal of its calls.
struct Stage {
  Stage(Rig& rig, const Subject& subject) : bench(rig, subject), journal(rig), whole(rig.blocks[bench.object]) {}
  // Runs the call with the object's and the other's memory watched. `last`: what the last error is before.
  std::uintptr_t run(const Call& call, int last, const Setting& setting) {
    journal.unwatch();
    journal.forget_names();
    for (const auto& [block, name] : {std::pair(bench.object, "object"), std::pair(bench.other, "other")}) {
      if (!bench.rig.blocks.count(block)) continue;
      journal.watch(block, name);
      journal.name(block, whole, name);
    }
    journal.watch_new(call.op.starts_with("create") ? whole : 0);
    bench.rig.h->last_error = last;
    journal.begin();
    if (bench.object) script_of(call, bench, journal, setting, nullptr);  // tells which stores go unannounced
    const std::uintptr_t result = call.run(&bench.rig.err);
    journal.end();
    journal.unwatch();
    if (call.op.starts_with("create")) journal.name(reinterpret_cast<const char*>(result), whole, "new");
    return result;
  }
  Bench bench;
  Journal journal;
  std::uint32_t whole;
};

void register_types(Rig& rig) { rig.destroy(type_of("st_wlan"), rig.make(type_of("st_wlan"))); }

// What is left of a script when the first report switches reports off.
std::vector<std::string> until_switched_off(std::vector<std::string> lines) {
  const auto first = std::find_if(lines.begin(), lines.end(), [](const auto& l) { return l.starts_with("report"); });
  if (first == lines.end()) return lines;
  lines.erase(std::remove_if(first + 1, lines.end(),
                             [](const auto& l) { return l.starts_with("report") || l.starts_with("dirty"); }),
              lines.end());
  return lines;
}

void expect_effects(const Setting& setting, bool switch_off) {
  SCOPED_TRACE(text_of(setting) + (switch_off ? ", switched off by the first report" : ""));
  Rig rig(setting.tracking, setting.place);
  apply(rig, setting);
  register_types(rig);
  const auto counter_names = counters_of(rig);
  for (const Subject& subject : all_subjects()) {
    Stage stage(rig, subject);
    if (switch_off) {
      stage.journal.hook = [&](const Journal::Event& e) {
        if (e.what == "report") rig.h->containment = 0;
      };
    }
    for (const Call& call : stage.bench.calls) {
      rig.h->containment = setting.containment;
      if (call.op.starts_with("f_state_") && setting.tracking != Tracking::kOn) continue;  // refused
      stage.bench.prepare(call);
      int last = call.errors == Errors::kLast || clears_last_error(call, subject.family) ? 0 : 77;
      if (call.op == "from_xml") last = last_error_of_xml(subject, stage.bench.other);
      const std::uintptr_t result = stage.run(call, call.errors == Errors::kLast ? 0 : 77, setting);
      EXPECT_EQ(rig.h->last_error, last) << call.name;
      EXPECT_EQ(rig.take_err(), 0) << call.name;
      const char* made = reinterpret_cast<const char*>(result);
      if (call.op.starts_with("create")) {
        EXPECT_EQ(stage.journal.first_seen(made), std::string(stage.whole, '\0')) << call.name;
      }
      const std::vector<std::string> script = script_of(call, stage.bench, stage.journal, setting, made);
      EXPECT_EQ(stage.journal.lines(counter_names), switch_off ? until_switched_off(script) : script) << call.name;
      EXPECT_EQ(stage.journal.stray, "") << call.name;
      for (const Journal::Event& e : stage.journal.events) {
        if (e.what == "report" || e.what == "trace") continue;
        EXPECT_EQ(e.txn, call.name.ends_with("_cr") ? rig.h->default_txn : rig.txn) << call.name << " " << e.what;
      }
      stage.bench.settle(call, result);
      if (testing::Test::HasFailure()) return;
    }
  }
}

TEST(Effects, OfEveryOperationOfEveryTypeAreThoseToldInTheirOrder) {
  for (const Setting& setting : kSettings) {
    expect_effects(setting, false);
    if (testing::Test::HasFailure()) return;
  }
  expect_effects(kWatchful, true);
}

// The domain allows more than the object holds: every write begins with the variant's byte, no read touches it.
TEST(Effects, AWriteRaisesTheVariantFirstAndAnErrorThereStopsTheValueOnly) {
  Rig rig(kWatchful.tracking);
  apply(rig, kWatchful);
  register_types(rig);
  const auto counter_names = counters_of(rig);
  const std::set<std::string> writes = words("f_set f_set_value f_state_flag_set set set_all adjust_variant set_value");
  for (const Subject& subject : all_subjects()) {
    if (subject.top == 0) continue;
    Stage stage(rig, subject);
    Bench& bench = stage.bench;
    for (const Call& call : bench.calls) {
      if (!writes.count(call.op)) {
        if (!call.op.ends_with("get") && !call.op.ends_with("get_value") && call.op != "get_all") continue;
        bench.object[4] = 0;
        stage.run(call, 0, kWatchful);
        EXPECT_EQ(rig.take_err(), call.field && call.field->variant > 0 && !call.op.starts_with("f_state") ? 43 : 0);
        EXPECT_EQ(bench.object[4], 0) << call.name;
        continue;
      }
      bench.prepare(call);
      bench.object[4] = 0;
      stage.run(call, 0, kWatchful);
      std::vector<std::string> expected = script_of(call, bench, stage.journal, kWatchful, nullptr);
      expected.insert(expected.begin(), "range object+4 1");
      EXPECT_EQ(stage.journal.lines(counter_names), expected) << call.name;
      EXPECT_EQ(stage.journal.stray, "") << call.name;
      EXPECT_EQ(rig.take_err(), 0) << call.name;
      EXPECT_EQ(bench.object[4], subject.top) << call.name;
      if (!call.field || kind_of(*call.field) == Kind::kStruct) continue;
      // The slot is set between the raise and the field.
      bench.prepare(call);
      bench.object[4] = 0;
      stage.journal.hook = [&](const Journal::Event& e) {
        if (e.what == "range") rig.err = 99;
      };
      stage.run(call, 0, kWatchful);
      stage.journal.hook = nullptr;
      Script left(stage.journal, kWatchful);
      left.range(bench.object + 4, 1);
      if (call.op != "f_set_value") left.state(*call.field, bench.block_of(bench.object));
      if (call.op == "f_set") left.report(bench.other + call.field->offset, bench.object);
      if (call.op == "f_set_value") left.report(nullptr, bench.object);
      EXPECT_EQ(stage.journal.lines(counter_names), left.lines) << call.name;
      EXPECT_EQ(stage.journal.stray, "") << call.name;
      EXPECT_EQ(rig.take_err(), 99) << call.name;
    }
  }
}

const char kNotTracked[] = "trace 3 The object is not state tracked";

// The object lacks the flag that its handle wants: values are stored, the marks are refused and said so, the error
// before the trace or behind it.
TEST(Effects, OfWritesToAnUntrackedObjectOnATrackingHandle) {
  Rig rig(kWatchful.tracking);
  apply(rig, kWatchful);
  register_types(rig);
  const auto counter_names = counters_of(rig);
  for (const Subject& subject : all_subjects()) {
    if (subject.family != Family::kStruct) continue;
    Stage stage(rig, subject);
    Bench& bench = stage.bench;
    for (const Call& call : bench.calls) {
      if (!call.field && call.op != "set") continue;
      bench.prepare(call);
      (call.field ? bench.object : bench.other)[6] &= ~KVT_OBJ_STATE_TRACKED;
      stage.run(call, 0, kWatchful);
      (call.field ? bench.object : bench.other)[6] |= KVT_OBJ_STATE_TRACKED;
      std::vector<std::string> expected = script_of(call, bench, stage.journal, kWatchful, nullptr);
      const bool refused = call.op != "f_get" && call.op != "f_get_value";
      const int err_at_trace = call.op == "f_state_flag_set" ? 0 : 22;
      if (call.op == "set") {
        // What the raw copy made shared is taken apart all the same.
        std::erase(expected, "range object+" + std::to_string(subject.size) + " " + std::to_string(subject.block));
        bench.object[6] |= KVT_OBJ_STATE_TRACKED;
      } else if (call.op == "f_state_flag_get") {
        expected.push_back("trace 3 The object is non state tracked");
      } else if (refused) {
        Script mark(stage.journal, kWatchful);
        mark.state(*call.field, bench.block_of(bench.object));
        while (expected.back() != mark.lines[0]) expected.pop_back();  // with the report that would follow
        expected.pop_back();
      }
      if (refused && call.op != "f_state_flag_get") expected.push_back(kNotTracked);
      EXPECT_EQ(stage.journal.lines(counter_names), expected) << call.name;
      EXPECT_EQ(stage.journal.stray, "") << call.name;
      for (const Journal::Event& e : stage.journal.events) {
        if (e.what != "trace") continue;
        EXPECT_EQ(e.err, err_at_trace) << call.name;
        EXPECT_EQ(e.last_error, err_at_trace) << call.name;
      }
      EXPECT_EQ(rig.h->last_error, refused ? 22 : 0) << call.name;
      EXPECT_EQ(rig.take_err(), refused ? 22 : 0) << call.name;
    }
  }
}

TEST(Effects, OfStateOperationsOnAnUntrackedHandleAreTheErrorAlone) {
  for (Tracking tracking : {Tracking::kOff, Tracking::kAbsent}) {
    Rig rig(tracking);
    for (const Subject& subject : all_subjects()) {
      Stage stage(rig, subject);
      // Without a descriptor the object's own flag decides.
      if (tracking == Tracking::kOff) stage.bench.object[6] |= KVT_OBJ_STATE_TRACKED;
      const std::string before = stage.bench.image(stage.bench.object);
      for (const Call& call : stage.bench.calls) {
        if (!call.op.starts_with("f_state_flag")) continue;
        EXPECT_EQ(stage.run(call, 0, {0, tracking, 0, true}), 0u);
        const bool get = call.op == "f_state_flag_get";
        std::vector<std::string> expected;
        if (tracking == Tracking::kAbsent) {
          expected.push_back(get ? "trace 3 The object is non state tracked" : kNotTracked);
        }
        EXPECT_EQ(stage.journal.lines({}), expected) << call.name;
        EXPECT_EQ(rig.take_err(), 22) << call.name;
        EXPECT_EQ(stage.bench.image(stage.bench.object), before) << call.name;
      }
      stage.bench.object[6] &= ~KVT_OBJ_STATE_TRACKED;
    }
  }
}

// What a call on NULL gives: a slot, and lines.
struct OnNull {
  std::string op;
  int err;
  std::vector<std::string> lines;
};
const std::vector<OnNull>& on_null(Family family) {
  static const std::string embed_struct = "trace 3 Invalid object pointer passed in to set instance flag";
  static const std::string embed = "trace 3 Invalid object handle passed to set embedded flag";
  static const std::vector<OnNull> structs = {
      {"f_get", 43, {}},
      {"f_get_value", 43, {}},
      {"f_set", 43, {}},
      {"f_set_value", 43, {}},
      {"f_state_flag_get", 22, {"trace 3 The object is non state tracked"}},
      {"f_state_flag_set", 22, {kNotTracked}},
      {"get", 0, {"report null in null"}},
      {"get_all", 0, {}},
      {"set_all", 0, {}},
      {"set", 43, {}},
      {"adjust_variant", 0, {}},
      {"set_instance_embedded", 0, {embed_struct}},
      {"set_all_state_tracking_flag", 0, {}},
      {"destroy", 0, {}},
      {"destroy_internal", 0, {}},
      {"destroy_cr", 0, {}},
      {"get_luid", 0, {}},
      {"get_oid_count", 22, {"trace 3 Invalid object passed in to get object oid count"}},
      {"get_object_references", 22, {"trace 3 Cannot get table references. Invalid object passed on"}},
  };
  static const std::vector<OnNull> enums = {
      {"get_value", 22, {}},
      {"set", 22, {}},
      {"set_value", 22, {}},
      {"get", 0, {"report null in null"}},
      {"adjust_variant", 0, {}},
      {"set_instance_embedded", 0, {embed}},
      {"get_oid_count", 22, {"trace 3 Invalid object passed in to get object oid count"}},
      {"get_object_references", 22, {"trace 3 Cannot get table references. Invalid object passed on"}},
      {"destroy", 0, {}},
      {"destroy_internal", 0, {}},
      {"destroy_cr", 0, {}},
      {"get_luid", 0, {}},
  };
  static const std::vector<OnNull> flags = [] {
    std::vector<OnNull> all = {{"get_value", 43, {}}, {"set_value", 0, {}}, {"get", 0, {}}};
    for (const OnNull& c : enums) {
      if (c.op != "set" && std::none_of(all.begin(), all.end(), [&](const OnNull& own) { return own.op == c.op; })) {
        all.push_back(c);
      }
    }
    return all;
  }();
  return family == Family::kStruct ? structs : family == Family::kEnum ? enums : flags;
}

TEST(Effects, OfCallsOnNull) {
  Rig rig(kWatchful.tracking);
  apply(rig, kWatchful);
  for (const Subject& subject : all_subjects()) {
    Stage stage(rig, subject);
    char* const object = std::exchange(stage.bench.object, nullptr);
    for (const Call& call : stage.bench.calls) {
      for (const OnNull& c : on_null(subject.family)) {
        if (c.op != call.op) continue;
        EXPECT_EQ(stage.run(call, 0, kWatchful), 0u) << call.name;
        EXPECT_EQ(stage.journal.lines({}), c.lines) << call.name;
        EXPECT_EQ(rig.h->last_error, c.err) << call.name;
        EXPECT_EQ(rig.take_err(), c.err) << call.name;
      }
    }
    stage.bench.object = object;
  }
}

// With the store exhausted, or the chain broken already, create still reports and marks what it hands out.
TEST(Effects, OfCreateWithNothingToGive) {
  Rig rig(kWatchful.tracking);
  apply(rig, kWatchful);
  register_types(rig);
  for (const Subject& subject : all_subjects()) {
    Stage stage(rig, subject);
    for (const Call& call : stage.bench.calls) {
      if (!call.op.starts_with("create")) continue;
      const bool by_handle = call.op == "create_cr";
      for (int pending : {0, 5}) {
        rig.fail_after = 0;
        rig.h->cr_create = 0;
        const std::uintptr_t result = stage.run(call, pending, kWatchful);
        rig.fail_after = -1;
        const std::string name = by_handle ? "new+0" : "null";
        std::vector<std::string> expected = {"alloc null", "report " + name + " in null", "dirty " + name};
        if (by_handle && pending) expected.erase(expected.begin());
        EXPECT_EQ(stage.journal.lines({}), expected) << call.name;
        EXPECT_EQ(result != 0, by_handle) << call.name;
        EXPECT_EQ(rig.h->last_error, by_handle && !pending ? 12 : pending) << call.name;
        EXPECT_EQ(rig.h->cr_create, 0u) << call.name;
      }
    }
  }
}

// The registry is exhausted, so that no type record can be linked: a struct goes, an enumerated or flag object stays.
TEST(Effects, OfCreateWithoutATypeRecord) {
  for (const Subject& subject : all_subjects()) {
    for (const char* op : {"_create", "_create_cr"}) {
      Rig rig(kWatchful.tracking);
      apply(rig, kWatchful);
      rig.h->registry_alloc = [](void*, std::uint32_t, std::uint32_t) -> void* { return nullptr; };
      std::vector<std::string> errors;
      fenlog_set_sink(
          [](void* lines, std::uint32_t level, const char* line) {
            if (level == KVT_LEVEL_ERROR) static_cast<std::vector<std::string>*>(lines)->push_back(line);
          },
          &errors);
      const std::string name = subject.name + op;
      void* object = name.ends_with("_cr") ? fn<void*(H)>(name)(rig.h) : fn<Create>(name)(rig.h, rig.txn);
      fenlog_set_sink(nullptr, nullptr);
      const bool is_struct = subject.family == Family::kStruct;
      EXPECT_EQ(errors, std::vector<std::string>{"error in " + subject.name + (is_struct ? " create: " : " create ") +
                                                 strerror(12)});
      EXPECT_EQ(object == nullptr, is_struct) << name;
      EXPECT_EQ(rig.blocks.size(), is_struct ? 0u : 1u) << name;
      EXPECT_EQ(rig.h->cr_create, 0u) << name;
      if (object) fn<Destroy>(subject.name + "_destroy")(rig.h, rig.txn, object);
      EXPECT_TRUE(rig.blocks.empty()) << name;
    }
  }
}

// On raw memory: without announcements, without statistics, nested with and without a place for the state bytes.
TEST(Effects, OfInitializeByItsArguments) {
  struct Case {
    int announce, no_stats, flags;
    bool base;
    int err;
  };
  Rig rig(kWatchful.tracking);
  apply(rig, kWatchful);
  register_types(rig);
  const auto counter_names = counters_of(rig);
  for (const Type& type : all_types()) {
    char* pattern = rig.make(type);
    const std::uint32_t size = type.size.back();
    for (const Case& c : {Case{0, 0, 0, false, 0}, Case{0, 1, 0, false, 0}, Case{1, 1, 4, false, 0},
                          Case{1, 0, 4, false, 22}, Case{1, 0, 4, true, 0}, Case{0, 0, 2, true, 0}}) {
      SCOPED_TRACE(type.name + " announce " + std::to_string(c.announce) + " no_stats " + std::to_string(c.no_stats) +
                   " flags " + std::to_string(c.flags) + (c.base ? " with base" : ""));
      const std::uint32_t whole = size + type.block.back();
      auto* object = static_cast<char*>(rig.h->store_alloc(rig.h->store, rig.txn, whole));
      std::memset(object, 0, whole);
      Journal journal(rig);
      journal.name(object, whole, "object");
      journal.begin();
      fn<Initialize>(type.name + "_initialize")(rig.h, rig.txn, object, record_of(type.name), c.announce, c.no_stats,
                                                c.flags, c.base ? object + size : nullptr, &rig.err);
      journal.end();
      EXPECT_EQ(rig.take_err(), c.err);
      std::string expected(pattern, whole);
      expected[6] |= static_cast<char>(c.flags);
      const bool placed = !c.no_stats && !(c.flags & 4);
      for (const Slot& slot : slots_of(type, pattern)) {
        const auto at = static_cast<std::size_t>(slot.at() - pattern);
        if (kind_of(*slot.field) == Kind::kStruct && !placed) expected[at + 6] &= ~KVT_OBJ_STTR_OFFSET;
      }
      if (c.err) {
        EXPECT_EQ(std::string(object, 7), expected.substr(0, 7));
        for (const Slot& slot : slots_of(type, object)) {
          if (kind_of(*slot.field) == Kind::kReference) continue;  // their target links come first of all
          EXPECT_EQ(slot.at()[0], 0) << "set up all the same: " << slot.path;
        }
        EXPECT_EQ(journal.events.back().what, "trace");
        EXPECT_EQ(journal.events.back().err, 22);
        EXPECT_TRUE(journal.events.back().text.ends_with("provide the correct state tracking base pointer"));
      } else {
        EXPECT_EQ(std::string(object, whole), expected);
      }
      if (!c.announce) {
        Script places(journal, kWatchful);
        if (placed) places.place(type, object);
        std::vector<std::string> ranges = journal.lines(counter_names);
        std::erase_if(ranges, [](const std::string& line) { return !line.starts_with("range"); });
        EXPECT_EQ(ranges, places.lines) << "the runtime's own flag of nested objects is all";
      }
      const std::vector<std::string> lines = journal.lines(counter_names);
      EXPECT_EQ(std::any_of(lines.begin(), lines.end(), [](const auto& l) { return l.starts_with("counter"); }),
                !c.no_stats);
      rig.h->store_free(rig.h->store, rig.txn, object);
    }
    rig.destroy(type, pattern);
  }
}

// Objects of an older build are shorter: the copy takes what the source has, and announces what the handle takes the
// destination for.
TEST(Effects, OfACopyBetweenObjectsOfAnOlderBuild) {
  for (Tracking tracking : {Tracking::kAbsent, Tracking::kOff}) {
    Rig rig(tracking);
    for (const Type& type : all_types()) {
      for (int built = 0; built < type.top(); ++built) {
        const std::uint32_t size = type.size[static_cast<std::size_t>(built)], top = type.size.back();
        char *dest = rig.make(type), *source = rig.make(type);
        fill(rig, type, dest, 1, built);
        fill(rig, type, source, 2, built);
        for (char* object : {dest, source}) {
          object[4] = object[5] = static_cast<char>(built);
          std::memset(object + size, object == dest ? 'd' : 's', top - size);
        }
        const Contents expected = contents_of(type, source, built);
        Journal journal(rig);
        journal.name(dest, top, "dest");
        journal.begin();
        fn<Set>(type.name + "_set")(rig.h, rig.txn, dest, source, &rig.err);
        journal.end();
        const std::vector<std::string> lines = journal.lines({});
        const std::uint32_t announced = tracking == Tracking::kAbsent ? top : size;
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "range dest+0 " + std::to_string(announced) + " of dest+0"), 1)
            << type.name << built;
        EXPECT_EQ(std::string(dest + size, top - size), std::string(top - size, 'd')) << type.name << built;
        EXPECT_EQ(contents_of(type, dest, built), expected) << type.name << built;
        for (char* object : {dest, source}) {
          std::memset(object + size, 0, top - size);
          rig.destroy(type, object);
        }
        EXPECT_TRUE(rig.blocks.empty()) << type.name << built;
      }
    }
  }
}

// The link lies in a block that the object owns: it is written there, and the block goes with the object.
TEST(Effects, OfATypeLinkThatTheObjectOwns) {
  Rig rig(kWatchful.tracking);
  apply(rig, kWatchful);
  for (const Type& type : all_types()) {
    char* object = rig.make(type);
    const auto link = load<std::uint32_t>(object);
    auto* owned = static_cast<char*>(rig.h->store_alloc(rig.h->store, rig.txn, 16));
    std::memset(owned, 0, 16);
    const std::uint32_t at = kvt_ref_of(owned);
    std::memcpy(object, &at, 4);
    object[6] = static_cast<char>(object[6] | KVT_OBJ_TYPE_LINK_OWNED);
    Journal journal(rig);
    journal.name(owned, 16, "owned");
    journal.begin();
    fn<Initialize>(type.name + "_initialize")(rig.h, rig.txn, object, record_of(type.name), 1, 0, 0, nullptr, &rig.err);
    journal.end();
    const std::vector<std::string> setup = journal.lines({});
    EXPECT_EQ(std::count(setup.begin(), setup.end(), "range owned+0 4"), 1) << type.name;
    EXPECT_EQ(load<std::uint32_t>(owned), link) << type.name;
    EXPECT_EQ(load<std::uint32_t>(object), at) << type.name;
    journal.name(object, 4, "object");
    journal.begin();
    rig.destroy(type, object);
    journal.end();
    std::vector<std::string> lines = journal.lines({});
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("counter"); });
    EXPECT_EQ(lines,
              (std::vector<std::string>{"destroy object+0", "free owned+0", "range object+0 4", "free object+0"}))
        << type.name;
    EXPECT_TRUE(rig.blocks.empty()) << type.name;
  }
}

}  // namespace
}  // namespace module_test
