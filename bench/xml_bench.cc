// XML of a profile with every field filled, beside pugixml with the same tree: building and saving it, parsing it and
// reading every value by name with its type. And documents of many profiles, whose time a profile must not grow.
#include <benchmark/benchmark.h>
#include <zarn_wlan/zarn_wlan.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <vector>

namespace {

[[noreturn]] void stop(const char* what) {
  std::fprintf(stderr, "xml_bench: %s\n", what);
  std::exit(1);
}

struct FreeDocument {
  void operator()(kvt_xml_document* document) const { kvt_xml_free(document); }
};
using Document = std::unique_ptr<kvt_xml_document, FreeDocument>;
Document parse(const std::string& text) {
  char message[200];
  Document document(kvt_xml_parse(text.data(), text.size(), message, sizeof message));
  if (!document) stop(message);
  return document;
}

// What a program of its own would hold of the profile: values with their types, under their names.
struct Value {
  enum class Kind { kNumber, kBoolean, kText, kEncoded, kName, kStruct } kind = Kind::kStruct;
  std::string name;
  std::uint64_t number = 0;
  std::string text, encoding;
  std::vector<Value> children;
};

Value value_of(const pugi::xml_node& node) {
  Value value;
  value.name = node.name();
  const pugi::xml_node first = node.first_child();
  if (first.type() == pugi::node_element) {
    if (!first.first_child() && !first.next_sibling() && std::isupper(first.name()[0])) {
      value.kind = Value::Kind::kName;
      value.text = first.name();
      return value;
    }
    for (const pugi::xml_node& child : node.children()) value.children.push_back(value_of(child));
    return value;
  }
  value.text = node.text().get();
  if (const pugi::xml_attribute encoding = node.attribute("encoding")) {
    value.kind = Value::Kind::kEncoded;
    value.encoding = encoding.value();
  } else if (value.text == "true" || value.text == "false") {
    value.kind = Value::Kind::kBoolean;
    value.number = value.text == "true";
  } else if (!value.text.empty() && value.text.find_first_not_of("0123456789") == std::string::npos) {
    value.kind = Value::Kind::kNumber;
    value.number = node.text().as_ullong();
  } else {
    value.kind = Value::Kind::kText;
  }
  return value;
}

struct Profile {
  kvt_handle* handle;
  void* object;
  std::string xml;
  Value value;

  Profile() {
    int err = 0;
    handle = kvt_handle_open_private(nullptr, &err);
    object = st_wlan_create(handle, KVT_NO_TXN);
    pugi::xml_document document;
    document.load_string(write().c_str());
    unsigned number = 0;
    fill(document.document_element(), number);
    std::string text = saved(document);
    char message[200] = "";
    st_wlan_from_xml(handle, KVT_NO_TXN, "//st_wlan", parse(text).get(), object, &err, message, sizeof message);
    if (err) stop(message);
    xml = write();
    document.load_string(xml.c_str());
    value = value_of(document.document_element());
  }

  std::string write() {
    int err = 0;
    std::string text(1 << 18, '\0');
    text.resize(st_wlan_to_xml(handle, KVT_NO_TXN, "st_wlan", text.data(), object,
                               static_cast<std::int32_t>(text.size()), 0, &err));
    if (err) stop("cannot write");
    return text;
  }

  static void fill(pugi::xml_node node, unsigned& number) {
    for (pugi::xml_node child : node.children()) {
      const char* text = child.text().get();
      if (child.first_child().type() == pugi::node_element) {
        fill(child, number);
      } else if (std::isupper(child.name()[0])) {
        continue;
      } else if (!std::strcmp(text, "false")) {
        child.text().set("true");
      } else if (!std::strcmp(text, "0")) {
        child.text().set(17 + ++number % 200);
      } else if (!*text) {
        child.text().set(("campus & guests " + std::to_string(++number)).c_str());
      }
    }
  }

  struct StringWriter : pugi::xml_writer {
    std::string text;
    void write(const void* data, std::size_t size) override { text.append(static_cast<const char*>(data), size); }
  };
  static std::string saved(const pugi::xml_document& document) {
    StringWriter writer;
    document.save(writer, "", pugi::format_raw | pugi::format_no_declaration, pugi::encoding_utf8);
    return std::move(writer.text);
  }
};

Profile& profile() {
  static Profile one;
  return one;
}

void build(pugi::xml_node parent, const Value& value) {
  pugi::xml_node node = parent.append_child(value.name.c_str());
  switch (value.kind) {
    case Value::Kind::kNumber:
      node.text().set(static_cast<unsigned long long>(value.number));
      break;
    case Value::Kind::kBoolean:
      node.text().set(value.number != 0);
      break;
    case Value::Kind::kText:
      node.text().set(value.text.c_str());
      break;
    case Value::Kind::kEncoded:
      node.append_attribute("encoding").set_value(value.encoding.c_str());
      node.text().set(value.text.c_str());
      break;
    case Value::Kind::kName:
      node.append_child(value.text.c_str());
      break;
    case Value::Kind::kStruct:
      for (const Value& child : value.children) build(node, child);
  }
}

void read(const pugi::xml_node& node, Value& value) {
  switch (value.kind) {
    case Value::Kind::kNumber:
      value.number = node.text().as_ullong();
      break;
    case Value::Kind::kBoolean:
      value.number = node.text().as_bool();
      break;
    case Value::Kind::kText:
      value.text = std::string(node.text().get());  // new strings, as an object's fields get
      break;
    case Value::Kind::kEncoded:
      value.encoding = node.attribute("encoding").value();
      value.text = std::string(node.text().get());
      break;
    case Value::Kind::kName:
      value.text = node.first_child().name();
      break;
    case Value::Kind::kStruct:
      for (Value& child : value.children) read(node.child(child.name.c_str()), child);
  }
}

void Write(benchmark::State& state) {
  Profile& p = profile();
  std::string buffer(p.xml.size(), '\0');
  int err = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(st_wlan_to_xml(p.handle, KVT_NO_TXN, "st_wlan", buffer.data(), p.object,
                                            static_cast<std::int32_t>(buffer.size()), 0, &err));
    benchmark::ClobberMemory();
  }
  if (err || buffer != p.xml) stop("written wrongly");
  state.counters["bytes"] = static_cast<double>(buffer.size());
}

void PugixmlBuildAndSave(benchmark::State& state) {
  Profile& p = profile();
  std::string text;
  for (auto _ : state) {
    pugi::xml_document document;
    build(document, p.value);
    text = Profile::saved(document);
    benchmark::DoNotOptimize(text.data());
  }
  if (text != p.xml) stop("built another tree");
}

void Parse(benchmark::State& state) {
  Profile& p = profile();
  for (auto _ : state) benchmark::DoNotOptimize(parse(p.xml).get());
}

void ParseAndRead(benchmark::State& state) {
  Profile& p = profile();
  void* object = st_wlan_create(p.handle, KVT_NO_TXN);
  int err = 0;
  for (auto _ : state) {
    const Document document = parse(p.xml);
    st_wlan_from_xml(p.handle, KVT_NO_TXN, "//st_wlan", document.get(), object, &err, nullptr, 0);
  }
  if (err || st_wlan_compare(object, p.object)) stop("read wrongly");
  st_wlan_destroy(p.handle, KVT_NO_TXN, object);
}

void PugixmlParse(benchmark::State& state) {
  Profile& p = profile();
  for (auto _ : state) {
    pugi::xml_document document;
    benchmark::DoNotOptimize(document.load_buffer(p.xml.data(), p.xml.size()));
  }
}

void PugixmlParseAndRead(benchmark::State& state) {
  Profile& p = profile();
  Value into = p.value;
  for (auto _ : state) {
    pugi::xml_document document;
    document.load_buffer(p.xml.data(), p.xml.size());
    read(document.document_element(), into);
    benchmark::DoNotOptimize(into.children.data());
  }
}

// A document of that many records, each read into an object of its own.
void ReadRecords(benchmark::State& state) {
  Profile& p = profile();
  std::string text = "<zarn_wlan>\n";
  for (std::int64_t i = 0; i < state.range(0); ++i) text += "<tbl_wlan>" + p.xml + "</tbl_wlan>\n";
  text += "</zarn_wlan>\n";
  int err = 0;
  for (auto _ : state) {
    const Document document = parse(text);
    for (std::int64_t i = 0; i < state.range(0); ++i) {
      kvt_xml_record_select(document.get(), static_cast<std::size_t>(i));
      void* record = tbl_wlan_table_record_from_xml(p.handle, KVT_NO_TXN, document.get(), &err, nullptr, 0);
      tbl_wlan_destroy_record(p.handle, KVT_NO_TXN, record, &err);
    }
  }
  if (err) stop("records read wrongly");
  state.counters["a_profile"] = benchmark::Counter(static_cast<double>(state.iterations() * state.range(0)),
                                                   benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["MiB"] = static_cast<double>(text.size()) / (1 << 20);
}

BENCHMARK(Write)->Unit(benchmark::kMicrosecond);
BENCHMARK(PugixmlBuildAndSave)->Unit(benchmark::kMicrosecond);
BENCHMARK(Parse)->Unit(benchmark::kMicrosecond);
BENCHMARK(PugixmlParse)->Unit(benchmark::kMicrosecond);
BENCHMARK(ParseAndRead)->Unit(benchmark::kMicrosecond);
BENCHMARK(PugixmlParseAndRead)->Unit(benchmark::kMicrosecond);
BENCHMARK(ReadRecords)->RangeMultiplier(2)->Range(512, 4096)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
