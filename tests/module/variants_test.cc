// Tests of variants: which indexes are valid, how far a write raises an object, and what is left of one that the domain
// does not know.
#include "calls.h"

namespace module_test {
namespace {

TEST(Bounds, OfLaterVariantsHaveOneIndexMoreThanFields) {
  for (const Type& type : all_types()) {
    std::vector<std::uint32_t> expected(type.size.size());
    for (const Field& f : type.fields) {
      for (std::size_t v = static_cast<std::size_t>(f.variant); v < expected.size(); ++v) ++expected[v];
    }
    for (std::size_t v = 1; v < expected.size(); ++v) expected[v] += static_cast<std::uint32_t>(v);
    EXPECT_EQ(type.bound, expected) << type.name;
  }
  EXPECT_EQ(type_of("st_wlan").bound, (std::vector<std::uint32_t>{25, 29, 32, 36}));
}

TEST(IsValid, OfEveryIndexAtEveryDomainAndObject) {
  for (const Type& type : all_types()) {
    Rig rig;
    char* object = rig.make(type);
    const auto valid = fn<IsValid>(type.name + "_is_valid_cr");
    for (int domain = -1; domain <= type.top() + 1; ++domain) {
      kvt_domain_set_variant(rig.h, record_of(type.name), domain);
      for (int own = -2; own <= type.top() + 1; ++own) {
        object[4] = static_cast<char>(own);
        for (std::uint32_t index = 0; index <= type.bound.back() + 1; ++index) {
          const auto group = std::upper_bound(type.bound.begin(), type.bound.end(), index) - type.bound.begin();
          const bool beyond = index >= type.bound.back();
          // An index of variant 0 is valid even where nothing is.
          auto at = [&](int usable) { return !beyond && (group == 0 || usable >= group); };
          const std::string what = type.name + " index " + std::to_string(index) + " domain " + std::to_string(domain) +
                                   " own " + std::to_string(own);
          EXPECT_EQ(valid(rig.h, object, index, 0), at(std::min(domain, own))) << what;
          EXPECT_EQ(valid(rig.h, object, index, 2), at(std::min(domain, own))) << what;
          EXPECT_EQ(valid(rig.h, object, index, 3), at(domain)) << what;
          EXPECT_EQ(valid(rig.h, nullptr, index, 0), at(-1)) << what;
        }
        EXPECT_EQ(valid(rig.h, object, 0xFFFFFFFF, 1), 0u) << "indexes have no sign";
      }
    }
    rig.h->last_error = 7;
    EXPECT_EQ(valid(rig.h, object, 0, 0), 1u) << "a pending error is not looked at";
    EXPECT_EQ(rig.h->last_error, 7);
    object[4] = object[5];
    rig.destroy(type, object);
  }
}

TEST(AdjustVariant, RaisesToWhatDomainTypeAndBuildAllowAndNeverLowers) {
  for (const Subject& subject : all_subjects()) {
    Rig rig;
    auto* object = static_cast<char*>(fn<Create>(subject.name + "_create")(rig.h, rig.txn));
    const auto cap = fn<std::int32_t(std::int32_t)>(subject.name + "_variant_data_index_cap");
    for (int v = -128; v < 128; ++v) EXPECT_EQ(cap(v), std::min(v, subject.top)) << subject.name;
    for (int domain = -1; domain <= subject.top + 1; ++domain) {
      kvt_domain_set_variant(rig.h, record_of(subject.name), domain);
      for (int built = 0; built <= subject.top; ++built) {
        for (int own = -1; own <= built; ++own) {
          object[4] = static_cast<char>(own);
          object[5] = static_cast<char>(built);
          const std::string before(object, 7);
          EXPECT_TRUE(announces_all(rig, [&] {
            fn<void(H, Txn, void*, int*)>(subject.name + "_adjust_variant")(rig.h, rig.txn, object, &rig.err);
          }));
          EXPECT_EQ(object[4], own < 0 ? own : std::max(own, std::min(domain, built))) << subject.name << domain;
          object[4] = static_cast<char>(own);
          EXPECT_EQ(std::string(object, 7), before) << subject.name;
        }
      }
    }
    object[4] = object[5] = static_cast<char>(subject.top);
    fn<Destroy>(subject.name + "_destroy")(rig.h, rig.txn, object);
  }
}

// An object of a type that the domain does not know exists and can go; nothing of it can be reached.
TEST(NegativeVariant, OfEveryTypeRefusesEveryFieldAndIsCountedInTheFirstEntry) {
  for (const Type& type : all_types()) {
    Rig rig(Tracking::kOn);
    const Subject& subject = *std::find_if(all_subjects().begin(), all_subjects().end(),
                                           [&](const Subject& s) { return s.name == type.name; });
    Bench bench(rig, subject);
    kvt_domain_set_variant(rig.h, record_of(type.name), -1);
    const kvt_variant_entry& entry = *kvt_variant_entries(kvt_varinfo_of(record_of(type.name)));
    const std::uint64_t created = entry.created, destroyed = entry.destroyed;
    char* const known = std::exchange(bench.object, bench.make());
    EXPECT_EQ(bench.object[4], -1) << type.name;
    EXPECT_EQ(entry.created, created + 1) << type.name;
    const std::string before = bench.image(bench.object);
    const std::vector<std::uint64_t> outs(bench.outs.size(), 0xEEEEEEEEEEEEEEEE);
    bench.outs = outs;
    for (const Call& call : bench.calls) {
      const bool refused = call.field && call.op != "f_state_flag_get";
      if (!refused && call.op != "get_all" && call.op != "set_all" && call.op != "f_state_flag_get") continue;
      rig.h->last_error = 0;
      EXPECT_EQ(call.run(&rig.err), 0u) << call.name;
      EXPECT_EQ(rig.h->last_error, refused ? 43 : 0) << call.name;
      EXPECT_EQ(rig.take_err(), refused ? 43 : 0) << call.name;
      EXPECT_EQ(bench.image(bench.object), before) << call.name;
    }
    EXPECT_EQ(bench.outs, outs) << type.name;
    bench.destroy(bench.object);
    EXPECT_EQ(entry.destroyed, destroyed + 1) << type.name;
    bench.object = known;
  }
}

// A database in which a library of fewer variants registered the types: nothing beside its entries is written.
TEST(OlderRegistry, CountsHigherVariantsInItsLastEntry) {
  for (const Subject& subject : all_subjects()) {
    for (int known = 1; known <= subject.top; ++known) {
      SCOPED_TRACE(subject.name + ", " + std::to_string(known) + " variants known");
      Rig rig(Tracking::kOff);
      rig.h->mode = 1;
      const kvt_type_record* record =
          kvt_type_info_ptr_get(rig.h, rig.txn, record_of(subject.name), zarn_wlan_typeinfo_initialize);
      auto* varinfo = const_cast<kvt_variant_data*>(kvt_varinfo_of(record));
      kvt_variant_entry* entries = kvt_variant_entries(varinfo);
      varinfo->n_variants = static_cast<std::int8_t>(known);
      int told = 0;
      fenlog_set_sink(
          [](void* told, std::uint32_t level, const char* line) {
            *static_cast<int*>(told) += level == KVT_LEVEL_NOTICE && std::strstr(line, " variants present");
          },
          &told);
      void* object = fn<Create>(subject.name + "_create")(rig.h, rig.txn);
      fn<Destroy>(subject.name + "_destroy")(rig.h, rig.txn, object);
      fenlog_set_sink(nullptr, nullptr);
      EXPECT_EQ(told, known < subject.top ? 2 : 0) << "as many as there are is not above them";
      for (int v = 0; v <= subject.top; ++v) {
        EXPECT_EQ(entries[v].created, v == known - 1 ? 1u : 0u) << v;
        EXPECT_EQ(entries[v].destroyed, v == known - 1 ? 1u : 0u) << v;
      }
    }
  }
}

}  // namespace
}  // namespace module_test
