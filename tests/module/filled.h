// Objects filled by rule, the same on every run: what golden files hold and what a validator is shown.
#pragma once

#include <string>

#include "rig.h"

namespace module_test {

// Texts with which a form may have its trouble: blanks at the ends, what XML escapes, what it cannot carry.
inline const std::string& awkward_text(std::uint64_t number) {
  static const std::string texts[] = {
      "plain",
      "",
      " blanks at both ends ",
      "a < b && b > \"c\" 'd' ]]> <!-- &amp; -->",
      "tab\tcarriage\rline\nboth\r\n",
      std::string("NUL \0 inside", 12),
      "\x01 control \x1F \x7F",
      "no UTF-8 \xFF \xC0\x80 \xED\xA0\x80",
      "gr\xC3\xBC\xC3\x9F, \xE2\x82\xAC, \xF0\x9F\x93\xB6",
      "U+FFFE \xEF\xBF\xBE, U+FFFF \xEF\xBF\xBF",
      "   ",
      std::string(70, 'x'),
  };
  return texts[number % std::size(texts)];
}

// A secret is sealed with a random nonce under a random key; a filled object holds the sealed form of a key that nobody
// has instead: key id "GOLDENID", a nonce of 0xA0, a tag of 0xA1, and the text itself in place of its cipher.
inline std::string golden_sealed(const std::string& text) {
  if (text.empty()) return "";
  return "GOLDENID" + std::string(12, '\xA0') + std::string(16, '\xA1') + text;
}

inline void fill_golden_slot(Rig& rig, const Slot& slot, std::uint64_t number) {
  const Field& f = *slot.field;
  if (f.kind == "kvt_aes_vstring") {
    const std::string sealed = golden_sealed(awkward_text(number));
    std::string wire(4, '\0');
    wire[3] = static_cast<char>(sealed.size());
    wire += sealed;
    fn<Unmarshal>("kvt_aes_vstring_unmarshal")(rig.h, rig.txn, reinterpret_cast<const std::uint8_t*>(wire.data()),
                                               slot.at(), static_cast<std::int32_t>(wire.size()), 0, &rig.err);
  } else if (kind_of(f) == Kind::kString) {
    const std::string& text = awkward_text(number);
    fn<void(H, Txn, void*, const void*, std::size_t, int*)>(f.kind + "_assign")(rig.h, rig.txn, slot.at(), text.data(),
                                                                                text.size(), &rig.err);
  } else if (kind_of(f) == Kind::kEnum) {
    call_set_value(*slot.owner, f, rig.h, rig.txn, slot.object, number % 2, &rig.err);
  } else {
    fill_slot(rig, slot, number, 1);
  }
  if (rig.tracked() && kind_of(f) != Kind::kTimer) {
    fn<StateSet>(slot.owner->name + "_" + f.name + "_state_flag_set")(rig.h, rig.txn, slot.object,
                                                                      static_cast<std::uint32_t>(number % 4), &rig.err);
  }
  EXPECT_EQ(rig.take_err(), 0) << slot.path;
}

// A new object with all fields up to a variant filled. The handle's domain allows that variant.
inline char* make_filled(Rig& rig, const Type& type, int variant) {
  char* object = rig.make(type);
  std::uint64_t number = 0;
  for (const Slot& slot : slots_of(type, object)) {
    ++number;
    if (slot.variant <= variant) fill_golden_slot(rig, slot, number);
  }
  return object;
}

// Every struct type at each of its variants, untracked and tracked; at its top variant everything nested is at its own
// top. `use` gets a heading such as "st_dtim variant 0 tracked".
inline void for_every_filled(
    const std::function<void(Rig&, const Type&, char* object, const std::string& heading)>& use) {
  for (const Tracking tracking : {Tracking::kOff, Tracking::kOn}) {
    auto use_at = [&](Rig& rig, const Type& type, int variant) {
      char* object = make_filled(rig, type, variant);
      const std::string heading = " variant " + std::to_string(object[4]) + (rig.tracked() ? " tracked" : " untracked");
      use(rig, type, object, type.name + heading);
      EXPECT_EQ(rig.take_err(), 0) << type.name;
      rig.destroy(type, object);
    };
    bool any_lower = true;
    for (int variant = 0; any_lower; ++variant) {
      Rig rig(tracking);
      limit_domain(rig, variant);
      any_lower = false;
      for (const Type& type : all_types()) {
        if (variant >= type.top()) continue;
        any_lower = true;
        use_at(rig, type, variant);
      }
    }
    Rig rig(tracking);
    for (const Type& type : all_types()) use_at(rig, type, 127);
  }
}

}  // namespace module_test
