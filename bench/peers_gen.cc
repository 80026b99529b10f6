// Makes the peers of the serial benchmark from the schema compiler's listing: the tree below one struct as plain C++
// structs, as Protocol Buffers and as FlatBuffers, and what moves a plain tree into each form and back.
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Field {
  std::string name, type, offset;
};
struct Listing {
  std::map<std::string, std::vector<Field>> structs;
  std::set<std::string> enums;
};

// What a field of a type is in each form.
struct Form {
  std::string plain, proto, flat;
};
const std::map<std::string, Form> kForms = {
    {"u_int8", {"std::uint8_t", "uint32", "ubyte"}},     {"u_int16", {"std::uint16_t", "uint32", "ushort"}},
    {"u_int32", {"std::uint32_t", "uint32", "uint"}},    {"u_int64", {"std::uint64_t", "uint64", "ulong"}},
    {"kvt_boolean", {"bool", "bool", "bool"}},           {"kvt_vstring", {"std::string", "bytes", "string"}},
    {"qep_bytestr", {"std::string", "bytes", "string"}}, {"kvt_aes_vstring", {"std::string", "bytes", "string"}},
    {"kvt_oid", {"Identity", "bytes", "[ubyte]"}},
};

Listing read_listing(std::istream& in) {
  Listing listing;
  std::vector<Field>* fields = nullptr;
  for (std::string line; std::getline(in, line);) {
    std::istringstream words(line);
    std::string first, second, third, at, offset;
    words >> first >> second >> third >> at >> offset;
    if (second == "struct") fields = &listing.structs[third];
    if (second == "enum") listing.enums.insert(third);
    if (first == "field" && fields) fields->push_back({second, third, offset});
  }
  return listing;
}

// `text` with every %x replaced by what stands for x.
std::string fill(const std::string& text, const std::map<char, std::string>& holes) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto hole = text[i] == '%' ? holes.find(text[++i]) : holes.end();
    out += hole == holes.end() ? std::string(1, text[i]) : hole->second;
  }
  return out;
}

class Writer {
 public:
  Writer(const Listing& listing, const std::string& directory)
      : listing_(listing),
        header_(directory + "/peers.h"),
        proto_(directory + "/peers.proto"),
        flat_(directory + "/peers.fbs") {
    header_ << "#pragma once\n#include \"bench/peers_move.h\"\n#include \"peers.pb.h\"\n"
               "#include \"peers_generated.h\"\nnamespace peers {\n";
    proto_ << "syntax = \"proto3\";\npackage peers_pb;\noption cc_enable_arenas = true;\n";
    flat_ << "namespace peers_fb;\n";
  }

  void root(const std::string& type) {
    write(type);
    header_ << "using Root = " << type << ";\n}  // namespace peers\n";
    flat_ << "root_type " << type << ";\n";
  }

 private:
  bool is_struct(const Field& f) const { return listing_.structs.count(f.type) != 0; }
  Form form_of(const Field& f) const {
    if (is_struct(f)) return {f.type, f.type, f.type};
    if (listing_.enums.count(f.type)) return {"Choice", "uint32", "uint"};
    return kForms.at(f.type);
  }

  void write(const std::string& type) {
    if (!done_.insert(type).second) return;
    std::string plain, each, proto, to_proto, from_proto, flat, to_flat, from_flat, to_object, from_object;
    int number = 0;
    for (const Field& f : listing_.structs.at(type)) {
      if (f.type == "timer") continue;
      if (is_struct(f)) write(f.type);
      const Form form = form_of(f);
      const std::map<char, std::string> holes = {
          {'t', type},       {'f', f.name},     {'y', f.type},    {'o', f.offset},
          {'p', form.plain}, {'b', form.proto}, {'l', form.flat}, {'n', std::to_string(++number)}};
      auto add = [&](std::string& to, const char* nested, const char* leaf) {
        to += fill(is_struct(f) ? nested : leaf, holes);
      };
      plain += fill("  %p %f{};\n", holes);
      each += fill("  visit(\"%f\", t.%f);\n", holes);
      proto += fill("  %b %f = %n;\n", holes);
      add(to_proto, "  to_proto(t.%f, *p.mutable_%f());\n", "  p.set_%f(value_of(t.%f));\n");
      add(from_proto, "  from_proto(p.%f(), t.%f);\n", "  take(p.%f(), t.%f);\n");
      flat += fill("  %f: %l;\n", holes);
      add(to_flat, "  l.%f = std::make_unique<peers_fb::%yT>();\n  to_flat(t.%f, *l.%f);\n",
          "  take(value_of(t.%f), l.%f);\n");
      add(from_flat, "  from_flat(*l.%f, t.%f);\n", "  take(l.%f, t.%f);\n");
      const char *set = "%t_%f_set_value(h, 0, o, value_of(t.%f), &err)",
                 *get = "take(%t_%f_get_value(h, 0, o, &err), t.%f)";
      if (is_struct(f)) {
        set = "to_object(h, t.%f, %t_%f_get(h, 0, o, &err), err)";
        get = "from_object(h, %t_%f_get(h, 0, o, &err), t.%f, err)";
      } else if (form.plain == "std::string") {
        set = "%y_assign(h, 0, %t_%f_get(h, 0, o, &err), t.%f.data(), t.%f.size(), &err)";
        get = f.type == "kvt_aes_vstring" ? "t.%f = secret_of(%t_%f_get(h, 0, o, &err))"
                                          : "t.%f = text_of(%t_%f_get(h, 0, o, &err))";
      } else if (form.plain == "Identity") {
        set = "identity_to_object(t.%f, o, %o)";
        get = "identity_from_object(o, %o, t.%f)";
      }
      to_object += "  " + fill(set, holes) + ";\n";
      from_object += "  " + fill(get, holes) + ";\n";
    }
    const std::map<char, std::string> holes = {{'t', type},      {'a', plain},      {'e', each},
                                               {'b', to_proto},  {'c', from_proto}, {'d', to_flat},
                                               {'f', from_flat}, {'g', to_object},  {'h', from_object}};
    header_ << fill(R"--(struct %t {
%a  bool operator==(const %t&) const = default;
};
template <class Visit, class Tree>
  requires std::same_as<std::remove_const_t<Tree>, %t>
inline void each(Tree& t, Visit&& visit) {
%e}
inline void to_proto(const %t& t, peers_pb::%t& p) {
%b}
inline void from_proto(const peers_pb::%t& p, %t& t) {
%c}
inline void to_flat(const %t& t, peers_fb::%tT& l) {
%d}
inline void from_flat(const peers_fb::%tT& l, %t& t) {
%f}
inline void to_object(kvt_handle* h, const %t& t, void* o, int& err) {
%g}
inline void from_object(kvt_handle* h, void* o, %t& t, int& err) {
%h}
)--",
                    holes);
    proto_ << "message " << type << " {\n" << proto << "}\n";
    flat_ << "table " << type << " {\n" << flat << "}\n";
  }

  const Listing& listing_;
  std::set<std::string> done_;
  std::ofstream header_, proto_, flat_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "usage: peers_gen LISTING DIRECTORY STRUCT\n";
    return 2;
  }
  std::ifstream in(argv[1]);
  const Listing listing = read_listing(in);
  if (!listing.structs.count(argv[3])) {
    std::cerr << "peers_gen: no struct " << argv[3] << " in " << argv[1] << '\n';
    return 1;
  }
  Writer(listing, argv[2]).root(argv[3]);
  return 0;
}
