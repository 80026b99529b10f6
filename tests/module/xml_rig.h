// What tests of the XML form share: a document, and objects written and read by the name of their type.
#pragma once

#include <string>

#include "rig.h"

namespace module_test {

struct Document {
  explicit Document(const std::string& text) {
    char message[128] = "";
    document = kvt_xml_parse(text.data(), text.size(), message, sizeof message);
    EXPECT_NE(document, nullptr) << message << "\n" << text;
  }
  ~Document() { kvt_xml_free(document); }
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;
  kvt_xml_document* document;
};

inline std::string to_xml(Rig& rig, const std::string& type, const void* object, const char* name = "top",
                          std::uint32_t state = 0) {
  std::string text(1 << 20, '\0');
  text.resize(fn<ToXml>(type + "_to_xml")(rig.h, rig.txn, name, text.data(), object,
                                          static_cast<std::int32_t>(text.size()), state, &rig.err));
  return text;
}
inline std::string to_xml(Rig& rig, const Type& type, const void* object, const char* name = "top",
                          std::uint32_t state = 0) {
  return to_xml(rig, type.name, object, name, state);
}

// The message that the reading left, "none" if it wrote none.
inline std::string from_xml(Rig& rig, const std::string& type, const std::string& text, void* object,
                            const std::string& path = "//top") {
  const Document document(text);
  char message[400] = "none";
  fn<FromXml>(type + "_from_xml")(rig.h, rig.txn, path.c_str(), document.document, object, &rig.err, message,
                                  sizeof message);
  return message;
}
inline std::string from_xml(Rig& rig, const Type& type, const std::string& text, void* object,
                            const std::string& path = "//top") {
  return from_xml(rig, type.name, text, object, path);
}

inline bool has_xml(const Field& f) { return kind_of(f) != Kind::kReference && kind_of(f) != Kind::kTimer; }

// Types of enumerated and flag fields, of whatever module.
inline std::vector<std::string> scalar_types(Kind kind) {
  std::vector<std::string> names;
  for (const Type& type : all_types()) {
    for (const Field& f : type.fields) {
      if (kind_of(f) == kind && std::find(names.begin(), names.end(), f.kind) == names.end()) names.push_back(f.kind);
    }
  }
  return names;
}

}  // namespace module_test
