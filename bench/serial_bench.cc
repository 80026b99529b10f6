// The serial forms of a filled st_wlan beside other libraries that hold the same tree, and beside loops written by hand
// over the same fields as the floor. All are filled from one plain tree, and compared with it before anything is
// measured. Every entry runs for a short time in each of many rounds, and its best round counts: other work on the
// machine hits all alike, and seldom all rounds.
#include <benchmark/benchmark.h>
#include <google/protobuf/arena.h>
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <limits>
#include <map>
#include <pugixml.hpp>
#include <string>
#include <thread>

#include "peers.h"
#include "platform/super_fast_hash.h"

namespace {

using peers::Choice;
using peers::Identity;
using peers::Root;

template <class T>
concept Leaf =
    std::unsigned_integral<T> || std::same_as<T, std::string> || std::same_as<T, Choice> || std::same_as<T, Identity>;

struct Fill {
  std::uint32_t number = 0;
  template <class T>
  void operator()(const char*, T& v) {
    ++number;
    if constexpr (!Leaf<T>) {
      each(v, *this);
    } else if constexpr (std::same_as<T, std::string>) {
      v = "text of field " + std::to_string(number);
    } else if constexpr (std::same_as<T, Identity>) {
      for (std::uint8_t& byte : v.bytes) byte = static_cast<std::uint8_t>(number++);
    } else if constexpr (std::same_as<T, bool> || std::same_as<T, Choice>) {
      v = static_cast<T>(1);
    } else {
      v = static_cast<T>(number * 37);
    }
  }
};

// The floor: every field in turn, in network order, each after a test of the room.
struct HandWrite {
  std::uint8_t* at;
  const std::uint8_t* end;
  bool room(std::size_t bytes) const { return static_cast<std::size_t>(end - at) >= bytes; }
  template <class T>
  void number(T v) {
    if (!room(sizeof v)) return;
    for (std::size_t i = sizeof v; i-- > 0;) *at++ = static_cast<std::uint8_t>(v >> 8 * i);
  }
  void bytes(const void* from, std::size_t length) {
    if (!room(length)) return;
    std::memcpy(at, from, length);
    at += length;
  }
  template <class T>
  void operator()(const char*, const T& v) {
    if constexpr (!Leaf<T>) {
      each(v, *this);
    } else if constexpr (std::same_as<T, std::string>) {
      number(static_cast<std::uint32_t>(v.size()));
      bytes(v.data(), v.size());
    } else if constexpr (std::same_as<T, Identity>) {
      bytes(v.bytes, sizeof v.bytes);
    } else if constexpr (std::same_as<T, bool>) {
      number(static_cast<std::uint8_t>(v));
    } else {
      number(peers::value_of(v));
    }
  }
};
struct HandRead {
  const std::uint8_t *at, *end;
  bool room(std::size_t bytes) const { return static_cast<std::size_t>(end - at) >= bytes; }
  template <class T>
  T number() {
    T v = 0;
    if (!room(sizeof v)) return v;
    for (std::size_t i = 0; i < sizeof v; ++i) v = static_cast<T>(std::uint64_t{v} << 8 | *at++);
    return v;
  }
  template <class T>
  void operator()(const char*, T& v) {
    if constexpr (!Leaf<T>) {
      each(v, *this);
    } else if constexpr (std::same_as<T, std::string>) {
      const auto length = number<std::uint32_t>();
      if (!room(length)) return;
      v.assign(reinterpret_cast<const char*>(at), length);
      at += length;
    } else if constexpr (std::same_as<T, Identity>) {
      if (!room(sizeof v.bytes)) return;
      std::memcpy(v.bytes, at, sizeof v.bytes);
      at += sizeof v.bytes;
    } else if constexpr (std::same_as<T, bool>) {
      v = number<std::uint8_t>() != 0;
    } else if constexpr (std::same_as<T, Choice>) {
      v = Choice{number<std::uint32_t>()};
    } else {
      v = number<T>();
    }
  }
};

struct HandHash {
  std::uint32_t hash;
  template <class T>
  void operator()(const char*, const T& v) {
    if constexpr (!Leaf<T>) {
      each(v, *this);
    } else if constexpr (std::same_as<T, std::string>) {
      hash = kvt::super_fast_hash(v.data(), v.size(), hash);
    } else {
      hash = kvt::super_fast_hash(&v, sizeof v, hash);
    }
  }
};

// References have no XML form.
struct XmlBuild {
  pugi::xml_node node;
  template <class T>
  void operator()(const char* name, const T& v) {
    if constexpr (std::same_as<T, Identity>) return;
    pugi::xml_node child = node.append_child(name);
    if constexpr (!Leaf<T>) {
      each(v, XmlBuild{child});
    } else if constexpr (std::same_as<T, std::string>) {
      child.text().set(v.c_str());
    } else if constexpr (std::same_as<T, bool>) {
      child.text().set(v);
    } else if constexpr (!std::same_as<T, Identity>) {
      child.text().set(static_cast<unsigned long long>(peers::value_of(v)));
    }
  }
};
struct XmlRead {
  pugi::xml_node node;
  template <class T>
  void operator()(const char* name, T& v) {
    if constexpr (std::same_as<T, Identity>) return;
    const pugi::xml_node child = node.child(name);
    if constexpr (!Leaf<T>) {
      each(v, XmlRead{child});
    } else if constexpr (std::same_as<T, std::string>) {
      v = child.text().get();
    } else if constexpr (std::same_as<T, bool>) {
      v = child.text().as_bool();
    } else if constexpr (!std::same_as<T, Identity>) {
      v = static_cast<T>(child.text().as_ullong());
    }
  }
};
struct CopyIdentities {
  std::function<void(Identity&)> use;
  template <class T>
  void operator()(const char*, T& v) {
    if constexpr (std::same_as<T, Identity>) {
      use(v);
    } else if constexpr (!Leaf<T>) {
      each(v, *this);
    }
  }
};

struct StringWriter : pugi::xml_writer {
  explicit StringWriter(std::string& to) : to(to) {}
  void write(const void* data, std::size_t size) override { to.append(static_cast<const char*>(data), size); }
  std::string& to;
};

void must(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "serial_bench: %s\n", what);
  std::exit(1);
}

double cpu_ns() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// Entries by name, and the best time of each.
class Rounds {
 public:
  void add(const char* name, std::function<void()> once) {
    entries_.push_back({name, std::move(once), std::numeric_limits<double>::max()});
  }
  // Only the entries with `part` in their names, when there is one.
  void run(int rounds, double slice_ns, const std::string& part) {
    std::erase_if(entries_, [&](const Entry& entry) { return entry.name.find(part) == std::string::npos; });
    for (int round = 0; round < rounds; ++round) {
      for (Entry& entry : entries_) {
        double begin = cpu_ns(), spent = 0;
        int times = 0;
        do {
          for (int i = 0; i < 16; ++i) entry.once();
          times += 16;
          spent = cpu_ns() - begin;
        } while (spent < slice_ns);
        entry.best = std::min(entry.best, spent / times);
      }
    }
  }
  double of(const std::string& name) const {
    for (const Entry& entry : entries_) {
      if (entry.name == name) return entry.best;
    }
    must(false, ("no entry " + name).c_str());
    return 0;
  }
  void print() const {
    for (const Entry& entry : entries_) std::printf("%-34s %9.0f ns\n", entry.name.c_str(), entry.best);
  }

 private:
  struct Entry {
    std::string name;
    std::function<void()> once;
    double best;
  };
  std::vector<Entry> entries_;
};

struct Goal {
  const char *what, *entry, *beside;
  double at_most;
};
constexpr Goal kGoals[] = {
    {"marshal", "marshal", "protobuf serialize", 1.0 / 3},
    {"unmarshal", "unmarshal into an object", "protobuf parse", 1.0 / 4},
    {"clone", "clone, destroy", "protobuf copy", 1.0 / 2},
    {"compare of equal objects", "compare", "compare by hand", 2},
    {"hash", "hash", "hash by hand", 3},
    {"XML write", "to_xml", "pugixml build and save", 1.0 / 2},
    {"XML read", "from_xml", "pugixml parse and read", 1.2},
};

void run(int rounds, double slice_ns, const std::string& part) {
  Root tree;
  each(tree, Fill{});

  int err = 0;
  kvt_handle* h = kvt_handle_open_private(nullptr, &err);
  must(h != nullptr, "no handle");
  void* object = st_wlan_create(h, 0);
  peers::to_object(h, tree, object, err);
  std::vector<std::uint8_t> bytes(st_wlan_len(h, 0, object));
  const auto length = static_cast<std::int32_t>(bytes.size());
  must(st_wlan_marshal(h, 0, bytes.data(), object, length, &err) == bytes.size(), "marshal is not as long as told");
  void* second = st_wlan_create(h, 0);
  must(st_wlan_unmarshal(h, 0, bytes.data(), second, length, 0, &err) == bytes.size(), "unmarshal");
  Root back;
  peers::from_object(h, second, back, err);
  must(err == 0 && back == tree, "the object holds another tree");
  must(st_wlan_compare(object, second) == 0, "compare");
  std::string xml(1 << 20, '\0');
  auto to_xml = [&] {
    return st_wlan_to_xml(h, 0, "st_wlan", xml.data(), object, static_cast<std::int32_t>(xml.size()), 0, &err);
  };
  const std::size_t xml_length = to_xml();
  char message[256];
  auto from_xml = [&](void* into) {
    kvt_xml_document* document = kvt_xml_parse(xml.data(), xml_length, message, sizeof message);
    st_wlan_from_xml(h, 0, "//st_wlan", document, into, &err, message, sizeof message);
    kvt_xml_free(document);
  };
  void* from_text = st_wlan_create(h, 0);
  from_xml(from_text);
  back = {};
  peers::from_object(h, from_text, back, err);
  std::vector<Identity> identities;
  each(tree, CopyIdentities{[&](Identity& v) { identities.push_back(v); }});
  auto restore_identities = [&] {
    std::size_t next = 0;
    each(back, CopyIdentities{[&](Identity& v) { v = identities[next++]; }});
  };
  restore_identities();
  must(err == 0 && back == tree, "XML holds another tree");

  peers_pb::st_wlan proto;
  peers::to_proto(tree, proto);
  std::string proto_bytes = proto.SerializeAsString();
  {
    google::protobuf::Arena arena;
    auto* parsed = google::protobuf::Arena::CreateMessage<peers_pb::st_wlan>(&arena);
    must(parsed->ParseFromString(proto_bytes), "protobuf parse");
    back = {};
    peers::from_proto(*parsed, back);
    must(back == tree, "protobuf holds another tree");
  }

  peers_fb::st_wlanT flat;
  peers::to_flat(tree, flat);
  flatbuffers::FlatBufferBuilder builder;
  auto pack = [&] {
    builder.Clear();
    builder.Finish(peers_fb::st_wlan::Pack(builder, &flat));
  };
  pack();
  const std::string flat_bytes(reinterpret_cast<const char*>(builder.GetBufferPointer()), builder.GetSize());
  {
    peers_fb::st_wlanT unpacked;
    flatbuffers::GetRoot<peers_fb::st_wlan>(flat_bytes.data())->UnPackTo(&unpacked);
    back = {};
    peers::from_flat(unpacked, back);
    must(back == tree, "FlatBuffers holds another tree");
  }

  std::string pugi_text;
  auto pugi_save = [&] {
    pugi::xml_document document;
    each(std::as_const(tree), XmlBuild{document.append_child("st_wlan")});
    pugi_text.clear();
    StringWriter writer(pugi_text);
    document.save(writer, "", pugi::format_raw | pugi::format_no_declaration);
  };
  pugi_save();
  auto pugi_read = [&](Root& into) {
    pugi::xml_document document;
    must(document.load_buffer(pugi_text.data(), pugi_text.size()), "pugixml parse");
    each(into, XmlRead{document.child("st_wlan")});
  };
  back = {};
  pugi_read(back);
  restore_identities();
  must(back == tree, "pugixml holds another tree");

  std::vector<std::uint8_t> hand_bytes(bytes.size());
  HandWrite hand_written{hand_bytes.data(), hand_bytes.data() + hand_bytes.size()};
  each(std::as_const(tree), hand_written);
  hand_bytes.resize(static_cast<std::size_t>(hand_written.at - hand_bytes.data()));
  back = {};
  each(back, HandRead{hand_bytes.data(), hand_bytes.data() + hand_bytes.size()});
  must(back == tree, "the loop by hand holds another tree");

  std::printf("bytes: binary %zu, protobuf %zu, FlatBuffers %zu, by hand %zu; XML %zu, pugixml %zu\n", bytes.size(),
              proto_bytes.size(), flat_bytes.size(), hand_bytes.size(), xml_length, pugi_text.size());

  Rounds all;
  using benchmark::DoNotOptimize;
  all.add("marshal", [&] { DoNotOptimize(st_wlan_marshal(h, 0, bytes.data(), object, length, &err)); });
  // A rule that limits nothing: the writer that tests every field.
  kvt_handle* ruled = kvt_handle_open_private(nullptr, &err);
  kvt_domain_set_variant(ruled, &_st_wlan_type_info_internal, 127);
  all.add("marshal under rules", [&] { DoNotOptimize(st_wlan_marshal(ruled, 0, bytes.data(), object, length, &err)); });
  all.add("len", [&] { DoNotOptimize(st_wlan_len(h, 0, object)); });
  all.add("protobuf serialize", [&] { proto.SerializeToString(&proto_bytes); });
  all.add("FlatBuffers pack", pack);
  all.add("marshal by hand", [&] {
    HandWrite writer{hand_bytes.data(), hand_bytes.data() + hand_bytes.size()};
    each(std::as_const(tree), writer);
    DoNotOptimize(writer.at);
    benchmark::ClobberMemory();
  });
  all.add("unmarshal into an object",
          [&] { DoNotOptimize(st_wlan_unmarshal(h, 0, bytes.data(), second, length, 0, &err)); });
  all.add("create, unmarshal, destroy", [&] {
    void* fresh = st_wlan_create(h, 0);
    st_wlan_unmarshal(h, 0, bytes.data(), fresh, length, 0, &err);
    st_wlan_destroy(h, 0, fresh);
  });
  // The arena has a block of its own that it keeps, and is emptied for each message.
  std::vector<char> block(1 << 16);
  google::protobuf::ArenaOptions options;
  options.initial_block = block.data();
  options.initial_block_size = block.size();
  google::protobuf::Arena arena(options);
  all.add("protobuf parse", [&] {
    auto* parsed = google::protobuf::Arena::CreateMessage<peers_pb::st_wlan>(&arena);
    parsed->ParseFromString(proto_bytes);
    arena.Reset();
  });
  peers_pb::st_wlan reused;
  all.add("protobuf parse, message reused", [&] { reused.ParseFromString(proto_bytes); });
  peers_fb::st_wlanT unpacked;
  all.add("FlatBuffers unpack",
          [&] { flatbuffers::GetRoot<peers_fb::st_wlan>(flat_bytes.data())->UnPackTo(&unpacked); });
  all.add("unmarshal by hand", [&] {
    each(back, HandRead{hand_bytes.data(), hand_bytes.data() + hand_bytes.size()});
    benchmark::ClobberMemory();
  });
  auto create_destroy = [&] { st_wlan_destroy(h, 0, st_wlan_create(h, 0)); };
  auto clone_destroy = [&] { st_wlan_destroy(h, 0, st_wlan_clone_cr(h, object)); };
  all.add("create, destroy", create_destroy);
  all.add("clone, destroy", clone_destroy);
  all.add("protobuf copy", [&] {
    google::protobuf::Arena::CreateMessage<peers_pb::st_wlan>(&arena)->CopyFrom(proto);
    arena.Reset();
  });
  all.add("compare", [&] { DoNotOptimize(st_wlan_compare(object, second)); });
  all.add("compare by hand", [&] {
    benchmark::ClobberMemory();
    DoNotOptimize(back == tree);
  });
  all.add("hash", [&] { DoNotOptimize(st_wlan_hash(object, 0)); });
  all.add("hash by hand", [&] {
    HandHash hand{0};
    each(std::as_const(tree), hand);
    DoNotOptimize(hand.hash);
    benchmark::ClobberMemory();
  });
  all.add("to_xml", [&] { DoNotOptimize(to_xml()); });
  all.add("pugixml build and save", pugi_save);
  all.add("from_xml", [&] { from_xml(from_text); });
  all.add("pugixml parse and read", [&] { pugi_read(back); });
  all.run(rounds, slice_ns, part);
  // In a process with threads objects are counted by atomic additions.
  Rounds threaded;
  threaded.add("create, destroy, second thread", create_destroy);
  threaded.add("clone, destroy, second thread", clone_destroy);
  std::promise<void> end;
  std::thread idle([done = end.get_future()] { done.wait(); });
  threaded.run(rounds, slice_ns, part);
  end.set_value();
  idle.join();
  must(err == 0, "an error was left");
  all.print();
  threaded.print();
  kvt_handle_close(ruled);
  kvt_handle_close(h);
  if (!part.empty()) return;

  std::printf("\n%-26s %9s %9s\n", "", "ratio", "at most");
  for (const Goal& goal : kGoals) {
    std::printf("%-26s %9.2f %9.2f\n", goal.what, all.of(goal.entry) / all.of(goal.beside), goal.at_most);
  }
}

}  // namespace

// serial_bench [ROUNDS [PART OF A NAME]]
int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 20;
  run(rounds > 0 ? rounds : 1, 5e6, argc > 2 ? argv[2] : "");
  return 0;
}
