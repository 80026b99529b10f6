// Random objects of every type, there and back: whatever their fields, state bytes and variants, the bytes and the XML
// give them back.
#include <gtest/gtest.h>
#include <rapidcheck.h>

#include "xml_rig.h"

namespace module_test {
namespace {

// Half of them are edges.
std::uint64_t any_number() {
  return *rc::gen::oneOf(rc::gen::arbitrary<std::uint64_t>(),
                         rc::gen::element<std::uint64_t>(0, 1, 0x7F, 0xFF, 0xFFFF, 0x7FFFFFFF, 0xFFFFFFFF, ~0ull));
}

std::uint32_t enumerators_of(const std::string& type, H handle) {
  static std::map<std::string, std::uint32_t> known;
  const auto [entry, is_new] = known.try_emplace(type, 0);
  if (is_new) {
    const auto is_valid = fn<std::uint32_t(H, std::int32_t)>(type + "_is_valid_cr");
    while (is_valid(handle, static_cast<std::int32_t>(entry->second))) ++entry->second;
  }
  return entry->second;
}

// What may be in an object depends on the form that is to carry it.
struct Carries {
  bool any_enumerator, references, all_bits;
};

struct Random {
  Rig& rig;
  Carries carries;
  std::vector<Slot> visible;   // the slots that are written
  std::vector<char*> structs;  // nested ones that are
  bool stray_enumerator = false;

  // Fills the object up to a random variant of its own, or leaves it without a usable one. A nested object has any
  // variant too.
  void fill(const Type& type, char* object, std::uint32_t state) {
    object[4] = static_cast<char>(*rc::gen::weightedOneOf<int>(
        {{1, rc::gen::just(-1)}, {8, rc::gen::inRange(0, type.top() + 1)}, {8, rc::gen::just(type.top())}}));
    for (const Field& f : type.fields) {
      if (f.variant > object[4]) continue;
      const Slot slot{f.name, &type, &f, object, f.variant, state + f.state};
      visible.push_back(slot);
      if (kind_of(f) == Kind::kStruct) {
        structs.push_back(slot.at());
        fill(type_of(f.kind), slot.at(), slot.state + 1);
      } else {
        fill_value(slot);
      }
    }
  }

  void fill_value(const Slot& slot) {
    const Field& f = *slot.field;
    switch (kind_of(f)) {
      case Kind::kInteger: {
        const std::uint64_t value = any_number();
        std::memcpy(slot.at(), &value, f.width);
        break;
      }
      case Kind::kBoolean: {
        const auto value = static_cast<kvt_boolean>(any_number());
        std::memcpy(slot.at(), &value, sizeof value);
        break;
      }
      case Kind::kEnum: {
        const std::uint32_t count = enumerators_of(f.kind, rig.h);
        auto value = static_cast<std::uint32_t>(any_number());
        if (!carries.any_enumerator) value %= count;
        stray_enumerator |= value >= count;
        std::memcpy(slot.at() + 8, &value, sizeof value);
        break;
      }
      case Kind::kFlag:
        slot.at()[7] = static_cast<char>(any_number() & (carries.all_bits ? 0xFF : 1));
        break;
      case Kind::kString: {
        const auto text = *rc::gen::arbitrary<std::string>();
        fn<void(H, Txn, void*, const void*, std::size_t, int*)>(f.kind + "_assign")(rig.h, rig.txn, slot.at(),
                                                                                    text.data(), text.size(), &rig.err);
        break;
      }
      case Kind::kReference:
        if (carries.references) fill_slot(rig, slot, any_number() & 0xFFFF, 1);
        break;
      default:
        break;
    }
  }

  void fill_states(const Type& type, char* object) {
    for (std::uint32_t i = 0; i < type.block.back(); ++i) {
      object[type.size.back() + i] = static_cast<char>(*rc::gen::arbitrary<std::uint8_t>());
    }
  }
};

Tracking any_tracking() {
  return *rc::gen::elementOf(std::vector<Tracking>(std::begin(kTrackings), std::end(kTrackings)));
}

class EveryType : public testing::TestWithParam<const Type*> {
 protected:
  const Type& type = *GetParam();
};
std::vector<const Type*> pointers() {
  std::vector<const Type*> list;
  for (const Type& type : all_types()) list.push_back(&type);
  return list;
}
INSTANTIATE_TEST_SUITE_P(Types, EveryType, testing::ValuesIn(pointers()),
                         [](const auto& info) { return info.param->name; });

TEST_P(EveryType, ComesBackFromBytes) {
  const bool holds = rc::check([this] {
    Rig rig(any_tracking());
    char* source = rig.make(type);
    Random random{rig, {true, true, true}, {}, {}};
    random.fill(type, source, 0);
    if (rig.tracked()) random.fill_states(type, source);

    const std::uint32_t need = fn<Len>(type.name + "_len")(rig.h, rig.txn, source);
    // The state byte of a reference wants a second byte of room behind it, on the way out and on the way in.
    std::string bytes(need + 1, '\0');
    const std::uint32_t written =
        fn<Marshal>(type.name + "_marshal")(rig.h, rig.txn, reinterpret_cast<std::uint8_t*>(bytes.data()), source,
                                            static_cast<std::int32_t>(bytes.size()), &rig.err);
    RC_ASSERT(rig.take_err() == 0);
    // The timer's state byte is counted and never written.
    const bool timer = std::any_of(random.visible.begin(), random.visible.end(),
                                   [](const Slot& slot) { return kind_of(*slot.field) == Kind::kTimer; });
    RC_ASSERT(written == need - (timer && rig.tracked() ? 1 : 0));

    char* object = rig.make(type);
    const std::uint32_t read =
        fn<Unmarshal>(type.name + "_unmarshal")(rig.h, rig.txn, reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                                object, static_cast<std::int32_t>(written + 1), 0, &rig.err);
    RC_ASSERT(rig.take_err() == 0);
    RC_ASSERT(read == written);
    // What is true of equal objects.
    RC_ASSERT(fn<Compare>(type.name + "_compare")(source, object) == 0);
    RC_ASSERT(object[4] == source[4]);
    for (const char* nested : random.structs) RC_ASSERT(object[nested - source + 4] == nested[4]);
    for (const Slot& slot : random.visible) {
      if (!rig.tracked() || kind_of(*slot.field) == Kind::kTimer) continue;
      const std::uint32_t at = type.size.back() + slot.state;
      if (object[at] != source[at]) RC_FAIL("state of " + slot.path);
    }
    rig.destroy(type, source);
    rig.destroy(type, object);
    RC_ASSERT(rig.blocks.empty());
  });
  EXPECT_TRUE(holds);
}

TEST_P(EveryType, ComesBackFromXml) {
  const bool holds = rc::check([this] {
    Rig rig(any_tracking());
    char* source = rig.make(type);
    // A document holds no references, and only the bits that have names.
    Random random{rig, {*rc::gen::arbitrary<bool>(), false, false}, {}, {}};
    random.fill(type, source, 0);
    if (rig.tracked()) random.fill_states(type, source);
    const std::string text = to_xml(rig, type, source);
    RC_ASSERT(rig.take_err() == 0);
    char message[100] = "";
    kvt_xml_document* document = kvt_xml_parse(text.data(), text.size(), message, sizeof message);
    // A number without a name is written as what no parser takes.
    RC_ASSERT((document == nullptr) == random.stray_enumerator);
    if (document) {
      char* object = rig.make(type);
      fn<FromXml>(type.name + "_from_xml")(rig.h, rig.txn, "//top", document, object, &rig.err, message,
                                           sizeof message);
      RC_ASSERT(rig.take_err() == 0);
      RC_ASSERT(fn<Compare>(type.name + "_compare")(source, object) == 0);
      RC_ASSERT(object[4] == type.top());
      rig.destroy(type, object);
    }
    kvt_xml_free(document);
    rig.destroy(type, source);
    RC_ASSERT(rig.blocks.empty());
  });
  EXPECT_TRUE(holds);
}

}  // namespace
}  // namespace module_test
