// An XML Schema of a module's types, tables and documents, for editors and validators. It says what the writer writes
// and a person may write in its place; readers are more tolerant (docs/formats/xml.md).
#include <algorithm>

#include "schema/compiler/emit.h"

namespace zarnc {
namespace {

std::string escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == '&') {
      out += "&amp;";
    } else if (c == '<') {
      out += "&lt;";
    } else {
      out += c;
    }
  }
  return out;
}

// The types that a module's documents hold: its own, its tables' payloads, and what is nested in them; each once.
struct Reached {
  std::vector<const Struct*> structs;
  std::vector<const Enum*> enums;
  std::vector<const Flag*> flags;

  template <class Type>
  static bool is_new(std::vector<const Type*>& list, const Type* type) {
    if (std::find(list.begin(), list.end(), type) != list.end()) return false;
    list.push_back(type);
    return true;
  }
  void add(const Struct* type) {
    if (!is_new(structs, type)) return;
    for (const Field& f : type->fields) {
      if (f.nested) add(f.nested);
      if (f.enumeration) is_new(enums, f.enumeration);
      if (f.flag) is_new(flags, f.flag);
    }
  }
};

bool has_xml(const Field& f) { return f.kind != Kind::kReference && f.kind != Kind::kTimer; }

// An element that is described; the description says from which variant on it is written.
std::string element(const std::string& name, const std::string& type, bool optional, const std::string& meaning,
                    const std::string& unit, int since) {
  std::string text = escaped(meaning);
  if (!unit.empty()) text += " (" + escaped(unit) + ")";
  if (since) text += "; since variant " + std::to_string(since);
  return fill(R"--(      <xs:element name="$(name)" type="$(type)"$(occurs)>
        <xs:annotation><xs:documentation>$(text)</xs:documentation></xs:annotation>
      </xs:element>
)--",
              {{"name", name}, {"type", type}, {"occurs", optional ? " minOccurs=\"0\"" : ""}, {"text", text}});
}

const char* kType = R"--(
  <xs:complexType name="$(name)">
    <xs:annotation><xs:documentation>$(meaning)</xs:documentation></xs:annotation>
    <xs:$(group)>
$(elements)    </xs:$(group)>
$(attribute)  </xs:complexType>
)--";

std::string type_of(const std::string& name, const std::string& meaning, const char* group, const std::string& elements,
                    bool has_state) {
  return fill(kType, {{"name", name},
                      {"meaning", escaped(meaning)},
                      {"group", group},
                      {"elements", elements},
                      {"attribute", has_state ? "    <xs:attribute name=\"state\" type=\"xml.state\"/>\n" : ""}});
}

std::string struct_type(const Struct& type) {
  std::string elements;
  for (const Field& f : type.fields) {
    if (has_xml(f)) elements += element(f.name, f.type, true, f.meaning, f.unit, f.variant);
  }
  return type_of(type.name, type.meaning, "all", elements, true);
}

std::string enum_type(const Enum& type) {
  std::string elements;
  for (const Enumerator& e : type.enumerators)
    elements += element(e.name, "xml.nothing", false, e.meaning, "", e.since);
  return type_of(type.name, type.meaning, "choice", elements, false);
}

std::string flag_type(const Flag& type) {
  std::string elements;
  for (const Bit& bit : type.bits) elements += element(bit.name, "xml.nothing", true, bit.meaning, "", 0);
  return type_of(type.name, type.meaning, "all", elements, false);
}

std::string top_element(const std::string& name) {
  return fill("  <xs:element name=\"$(name)\" type=\"$(name)\"/>\n", {{"name", name}});
}

std::string table_element(const Table& table) {
  return fill(R"--(  <xs:element name="$(table)">
    <xs:annotation><xs:documentation>A record: $(meaning)</xs:documentation></xs:annotation>
    <xs:complexType>
      <xs:sequence>
        <xs:element name="$(payload)" type="$(payload)"/>
      </xs:sequence>
    </xs:complexType>
  </xs:element>
)--",
              {{"table", table.name}, {"meaning", escaped(table.meaning)}, {"payload", table.payload_name}});
}

// Numbers are decimal, or hexadecimal behind 0x; XML Schema's own types would take signs too.
std::string integer_type(unsigned bits, const char* base) {
  return fill(R"--(
  <xs:complexType name="u_int$(bits)">
    <xs:simpleContent>
      <xs:extension base="u_int$(bits).number">
        <xs:attribute name="state" type="xml.state"/>
      </xs:extension>
    </xs:simpleContent>
  </xs:complexType>
  <xs:simpleType name="u_int$(bits).number">
    <xs:union>
      <xs:simpleType>
        <xs:restriction base="xs:$(base)"><xs:pattern value="[0-9]+"/></xs:restriction>
      </xs:simpleType>
      <xs:simpleType>
        <xs:restriction base="xs:token"><xs:pattern value="0[xX]0*[0-9a-fA-F]{1,$(digits)}"/></xs:restriction>
      </xs:simpleType>
    </xs:union>
  </xs:simpleType>
)--",
              {{"bits", std::to_string(bits)}, {"base", base}, {"digits", std::to_string(bits / 4)}});
}

std::string bytes_type(const char* name, const char* base, const char* encodings) {
  std::string list;
  for (const std::string& one : {std::string("hex"), std::string("sealed")}) {
    if (std::string(encodings).find(one) != std::string::npos) list += "<xs:enumeration value=\"" + one + "\"/>";
  }
  return fill(R"--(
  <xs:complexType name="$(name)">
    <xs:simpleContent>
      <xs:extension base="xs:$(base)">
        <xs:attribute name="state" type="xml.state"/>
        <xs:attribute name="encoding">
          <xs:simpleType>
            <xs:restriction base="xs:string">$(list)</xs:restriction>
          </xs:simpleType>
        </xs:attribute>
      </xs:extension>
    </xs:simpleContent>
  </xs:complexType>
)--",
              {{"name", name}, {"base", base}, {"list", list}});
}

std::string primitive_types() {
  return R"--(
  <xs:simpleType name="xml.state">
    <xs:restriction base="xs:unsignedByte"/>
  </xs:simpleType>

  <xs:complexType name="xml.nothing"/>

  <xs:complexType name="kvt_boolean">
    <xs:simpleContent>
      <xs:extension base="xs:boolean">
        <xs:attribute name="state" type="xml.state"/>
      </xs:extension>
    </xs:simpleContent>
  </xs:complexType>
)--" + integer_type(8, "unsignedByte") +
         integer_type(16, "unsignedShort") + integer_type(32, "unsignedInt") + integer_type(64, "unsignedLong") +
         bytes_type("kvt_vstring", "string", "hex") + bytes_type("kvt_aes_vstring", "string", "hex sealed") +
         bytes_type("qep_bytestr", "string", "hex");
}

}  // namespace

void emit_xsd(Output& out) {
  const Module& module = out.module;
  Reached reached;
  std::string tops, records, tables, types;
  for (const Struct* type : module.structs) {
    reached.add(type);
    tops += top_element(type->name);
  }
  for (const Enum* type : module.enums) {
    Reached::is_new(reached.enums, type);
    tops += top_element(type->name);
  }
  for (const Flag* type : module.flags) {
    Reached::is_new(reached.flags, type);
    tops += top_element(type->name);
  }
  for (const Table* table : module.tables) {
    reached.add(table->payload);
    tables += table_element(*table);
    records += "        <xs:element ref=\"" + table->name + "\"/>\n";
  }
  if (!records.empty()) {
    records = fill(R"--(
  <xs:element name="$(module)">
    <xs:annotation><xs:documentation>Records of any tables, in any order.</xs:documentation></xs:annotation>
    <xs:complexType>
      <xs:choice minOccurs="0" maxOccurs="unbounded">
$(records)      </xs:choice>
    </xs:complexType>
  </xs:element>
)--",
                   {{"module", module.name}, {"records", records}});
  }
  for (const Struct* type : reached.structs) types += struct_type(*type);
  for (const Enum* type : reached.enums) types += enum_type(*type);
  for (const Flag* type : reached.flags) types += flag_type(*type);
  out.files["share/" + module.name + ".xsd"] = fill(R"--(<?xml version="1.0" encoding="UTF-8"?>
<!-- The XML form of $(module). Made by zarnc from its schema; not to be edited. -->
<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema">

$(tops)
$(tables)$(records)$(primitives)$(types)
</xs:schema>
)--",
                                                    {{"module", module.name},
                                                     {"tops", tops},
                                                     {"tables", tables},
                                                     {"records", records},
                                                     {"primitives", primitive_types()},
                                                     {"types", types}});
}

}  // namespace zarnc
