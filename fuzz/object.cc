// Objects from bytes. Input: the type, the options, then the bytes as they come from a peer.
#include <cerrno>

#include "fuzz/rig.h"

namespace fuzz {
namespace {

constexpr std::size_t kHead = 2;

// An object that others refer to. Whoever refers to it has to let go before it does.
class Referred {
 public:
  Referred(Rig& rig, bool wanted) : rig_(rig), object_(wanted ? st_dtim_create(rig.h, rig.txn) : nullptr) {
    if (object_) value_ = kvt_handle_to_oid(rig.h, rig.txn, object_, 2, 0, &rig.err);
    FUZZ_CHECK(rig.err == 0, "no identity");
  }
  ~Referred() {
    if (object_) st_dtim_destroy(rig_.h, rig_.txn, object_);
  }
  Referred(const Referred&) = delete;
  Referred& operator=(const Referred&) = delete;

  // An identity is random, so an input only has marks where one shall be.
  void put_at_marks(const Exact& bytes) const {
    if (!object_) return;
    const std::string_view text(bytes.text(), bytes.size());
    const std::string mark(kMarkBytes, kMarkByte);
    for (std::size_t at = text.find(mark); at < text.size(); at = text.find(mark, at + 1)) {
      std::memcpy(bytes.bytes() + at, &value_, std::min(sizeof value_, text.size() - at));
    }
  }
  static constexpr char kMarkByte = '\xEE';
  static constexpr std::size_t kMarkBytes = sizeof(std::uint64_t);

 private:
  Rig& rig_;
  void* object_;
  kvt_oid_value value_{};
};

void run(const std::uint8_t* data, std::size_t size) {
  if (size < kHead) return;
  const Subject& subject = subjects()[data[0] % subjects().size()];
  const Options options(data[1]);
  Rig& rig = rig_for(options);
  const Balance balance(rig);
  const Referred target(rig, options.reference);
  const Exact bytes(data + kHead, size - kHead);
  target.put_at_marks(bytes);

  void* object = make_object(rig, subject, options);
  const Spending spending;
  int err = 0;
  const std::uint32_t read =
      subject.unmarshal(rig.h, rig.txn, bytes.bytes(), object, bytes.room(), options.update, &err);
  // A jump behind the end is followed, and whoever frames objects compares; reading there is another matter.
  FUZZ_CHECK(read <= INT32_MAX, subject.name + ": a cursor before the begin");
  FUZZ_CHECK(err == 0 || err == EMSGSIZE || err == EINVAL, subject.name + ": error " + std::to_string(err));
  FUZZ_CHECK(rig.h->last_error == err, subject.name + ": the handle's error is another one");
  // A string takes its bytes and a terminator, and has at least its length on the wire.
  FUZZ_CHECK(spending.bytes() <= bytes.size() && spending.calls() <= bytes.size() / 5,
             subject.name + ": " + std::to_string(spending.bytes()) + " bytes asked for");
  check_whole(rig, subject, object);
  check_round_trip(rig, subject, object);
  if (options.extra) {
    const std::string xml = xml_of(rig, subject, object);
    kvt_xml_document* document = kvt_xml_parse(xml.data(), xml.size(), nullptr, 0);
    FUZZ_CHECK(document || has_nameless_value(subject, object), subject.name + ": its XML is not read");
    kvt_xml_free(document);
    check_clone(rig, subject, object);
    check_print(rig, subject, object);
    FUZZ_CHECK(subject.compare(object, object) == 0, subject.name + ": differs from itself");
  }
  drop_object(rig, subject, object);
}

// The same bytes, with a mark at each reference.
std::string with_marks(Rig& rig, const Subject& subject, const Options& options) {
  void* object = make_object(rig, subject, options);
  for (const module_test::Slot& slot : module_test::slots_of(*subject.type, object)) {
    if (kind_of(*slot.field) == Kind::kReference) std::memset(slot.at() + 8, Referred::kMarkByte, Referred::kMarkBytes);
  }
  int err = 0;
  const std::string bytes = marshalled(rig, subject, object, &err);
  drop_object(rig, subject, object);
  return bytes;
}

void seeds(const Sow& sow) {
  for (std::size_t i = 0; i < subjects().size(); ++i) {
    const Subject& subject = subjects()[i];
    for (int variant = 0; variant <= (subject.type ? subject.type->top() : 0); ++variant) {
      for (Tracking tracking : {Tracking::kOff, Tracking::kOn}) {
        const int limit = subject.type && variant < subject.type->top() ? variant : kNoLimit;
        Options options(Options::byte(tracking, kNoLimit, true, false, false));
        options.limit = limit;  // of the writer; a reader takes it all
        Rig& rig = rig_for(options);
        int err = 0;
        void* object = make_object(rig, subject, options);
        const std::string bytes = marshalled(rig, subject, object, &err);
        drop_object(rig, subject, object);
        const std::string base = subject.name + "_" + std::to_string(variant) + "_" + module_test::name_of(tracking);
        for (Tracking reader : {Tracking::kAbsent, Tracking::kOn}) {
          const std::uint8_t head[kHead] = {static_cast<std::uint8_t>(i),
                                            Options::byte(reader, kNoLimit, reader == tracking, false, true)};
          sow(base + "_to_" + module_test::name_of(reader), std::string(head, head + kHead) + bytes);
        }
        if (!subject.type) continue;
        const std::string marked = with_marks(rig, subject, options);
        if (marked == bytes) continue;
        const std::uint8_t head[kHead] = {
            static_cast<std::uint8_t>(i),
            static_cast<std::uint8_t>(Options::byte(tracking, kNoLimit, true, true, true) | 0x80)};
        sow(base + "_refer", std::string(head, head + kHead) + marked);
      }
    }
  }
}

}  // namespace

const Target kObject{"object", run, seeds, nullptr};

}  // namespace fuzz
