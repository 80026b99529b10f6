// Tests of kvt/xml.h and of the XML form of the primitive types.
#include "kvt/xml.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>  // needs gtest.h before it

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "tests/platform/value_rig.h"

namespace kvt_test {
namespace {

struct Free {
  void operator()(kvt_xml_document* document) const { kvt_xml_free(document); }
};
using Document = std::unique_ptr<kvt_xml_document, Free>;

Document parse(const std::string& text, std::string* message = nullptr) {
  char buffer[200] = "";
  // An exact allocation, so that a read behind its end is seen.
  const std::vector<char> exact(text.begin(), text.end());
  Document document(kvt_xml_parse(exact.data(), exact.size(), buffer, sizeof buffer));
  if (message) {
    *message = buffer;
  } else {
    EXPECT_NE(document, nullptr) << buffer;
  }
  return document;
}

std::string value_at(kvt_xml_document* document, const char* path) {
  char value[100];
  const int code = xml_get_element_value(document, path, value, sizeof value, 0);
  return code ? "error " + std::to_string(code) : value;
}

std::string written(ValueRig* rig, const Primitive& type, const void* field, std::uint32_t state = 0) {
  std::string text(200000, '\0');
  int err = 0;
  text.resize(type.to_xml(*rig, kTxn, "f", text.data(), field, static_cast<std::int32_t>(text.size()), state, &err));
  EXPECT_EQ(err, 0);
  return text;
}

TEST(XmlParse, RefusalsNameLineColumnAndReason) {
  const struct {
    std::string text;
    const char* message;
  } refusals[] = {
      {"  \n <!-- nothing -->", "line 1, column 1: there is no root element"},
      {"<a>\n  <b></c>\n</a>", "line 2, column 8: Start-end tags mismatch"},
      {"<a>\n\n <b>", "line 3, column 5: the document ends inside an element"},
      {"<a/>\n<b/>", "line 2, column 1: a second root element"},
      {"<![CDATA[x]]><a/>", "line 1, column 1: text outside the root element"},
      {"</a>", "line 1, column 1: end tag without its start tag"},
      {"<a>\n <b", "line 2, column 2: tag without end"},
      {"<a><!-- x </a>", "line 1, column 4: comment without end"},
      {"<!DOCTYPE a [<!ENTITY x 'y'>]><a>&x;</a>",
       "line 1, column 1: document types and declarations are not accepted"},
      {"<a>&x;</a>", "line 1, column 4: unknown entity"},
      {"<a>x & y</a>", "line 1, column 6: '&' that begins no reference"},
      {"<a>&#0;</a>", "line 1, column 4: reference to a character that XML does not allow"},
      {"<a>&#12a;</a>", "line 1, column 4: reference to a character that XML does not allow"},
      {std::string("<a>\0</a>", 8), "line 1, column 4: a byte that is no character of XML in UTF-8"},
      {"<a>\n\x01</a>", "line 2, column 1: a byte that is no character of XML in UTF-8"},
      {"<a>\xC0\x80</a>", "line 1, column 4: a byte that is no character of XML in UTF-8"},
      {"<a>\xED\xA0\x80</a>", "line 1, column 4: a byte that is no character of XML in UTF-8"},
      {"<a>\xE2\x82", "line 1, column 4: a byte that is no character of XML in UTF-8"},
  };
  for (const auto& refusal : refusals) {
    const std::string told = refusal.message, reason = told.substr(told.find(','));
    const bool of_all = reason.ends_with("no root element");
    // Characters are told many at a time, so each fault is put at every place among them.
    for (int before = 0; before < 70; ++before) {
      std::string message;
      EXPECT_EQ(parse(std::string(static_cast<std::size_t>(before), '\n') + refusal.text, &message), nullptr);
      EXPECT_EQ(message, "line " + std::to_string(std::stoi(told.substr(5)) + (of_all ? 0 : before)) + reason);
    }
  }
}

TEST(XmlParse, DepthAndSizeAreLimited) {
  for (const int depth : {int{KVT_XML_MAX_DEPTH}, KVT_XML_MAX_DEPTH + 1, 100000}) {
    std::string open, close, message;
    for (int i = 0; i < depth; ++i) {
      open += "<a>";
      close += "</a>";
    }
    EXPECT_EQ(parse(open + close, &message) != nullptr, depth <= KVT_XML_MAX_DEPTH) << depth;
    if (depth > KVT_XML_MAX_DEPTH) {
      EXPECT_EQ(message, "line 1, column 193: elements nested too deeply");
    }
  }
  std::string flat = "<r>";
  for (int i = 0; i < 1000; ++i) flat += "<a b='/'></a><b c=\">\"/>";
  EXPECT_EQ(kvt_xml_record_count(parse(flat + "</r>").get()), 2000u);
  char message[100];
  EXPECT_EQ(kvt_xml_parse("<a/>", std::size_t{KVT_XML_MAX_BYTES} + 1, message, sizeof message), nullptr);
  EXPECT_STREQ(message, "line 1, column 1: the document is too large");
}

// The order makes each path follow one with a common head, a shorter one, and one that was not found.
TEST(XmlPath, OnlyWholeNamesAndWholePathsAreFound) {
  const Document document = parse("<r><a><b>one</b><cd>two</cd></a></r>");
  for (const char* path : {"//a/b", "//a/bb", "//a/c", "//a/", "//", "/r", ""}) {
    EXPECT_EQ(value_at(document.get(), path), path == std::string("//a/b") ? "one" : "error 2") << path;
    EXPECT_EQ(value_at(document.get(), "//a/cd"), "two") << "after " << path;
  }
}

TEST(XmlPath, ValueGathersTextAndNeedsItsRoom) {
  const Document document = parse("<a>one<!-- no --><![CDATA[<two>]]>&amp;\r\nthree</a>");
  EXPECT_EQ(value_at(document.get(), "//a"), "one<two>&\nthree");
  char value[20] = "";
  EXPECT_EQ(xml_get_element_value(document.get(), "//a", value, 15, 0), EMSGSIZE);
  EXPECT_EQ(xml_get_element_value(document.get(), "//a", value, 16, 0), 0);
}

TEST(XmlRecords, ASelectedRecordIsAllThereIs) {
  const Document document =
      parse("\xEF\xBB\xBF<?xml version='1.0'?>\n<all>\n <w><n>1</n></w>\n text <v><n>2</n></v>\n</all>");
  kvt_xml_document* d = document.get();
  ASSERT_EQ(kvt_xml_record_count(d), 2u);
  EXPECT_EQ(value_at(d, "//n"), "1");
  EXPECT_STREQ(kvt_xml_record_select(d, 1), "v");
  EXPECT_EQ(value_at(d, "//n"), "2");
  EXPECT_EQ(value_at(d, "//w/n"), "error 2");
  EXPECT_EQ(value_at(d, "//all"), "error 2");
  std::uint32_t line = 0, column = 0;
  kvt_xml_record_position(d, &line, &column);
  EXPECT_EQ(std::to_string(line) + ":" + std::to_string(column), "4:7");
  EXPECT_EQ(kvt_xml_record_select(d, 2), nullptr);
  EXPECT_EQ(value_at(d, "//n"), "2") << "a record that is not there changes nothing";
  EXPECT_STREQ(kvt_xml_record_select(d, KVT_XML_ALL), "all");
  EXPECT_EQ(value_at(d, "//w/n"), "1");
}

TEST(XmlPlace, IsTheFirstChildOfItsNameInWhateverOrderTheyAreAskedFor) {
  const Document document = parse("<r>text<b>1</b><x/><a>2<d/></a><b>3</b><c>4</c></r>");
  kvt_xml_document* d = document.get();
  ValueRig rig;
  const auto read = [&](const char* path) {
    Field field(&rig, kPrimitives[0]);
    char message[60] = "";
    int err = 0;
    kPrimitives[0].from_xml(rig, kTxn, path, d, field, &err, message, sizeof message);
    return err == EINVAL ? message : err ? "error " + std::to_string(err) : written(&rig, kPrimitives[0], field);
  };
  EXPECT_EQ(read(nullptr), "error 2") << "it stands nowhere";
  EXPECT_EQ(kvt_xml_enter(d, "//none"), 0u);
  for (const std::string names : {"abc", "bac", "cab", "cba"}) {
    ASSERT_EQ(kvt_xml_enter(d, "//r"), 1u);
    for (const char name : names) {
      const std::string label(1, name);
      ASSERT_EQ(kvt_xml_child(d, 1, label.c_str()), 1) << names;
      EXPECT_EQ(read(nullptr), name == 'a'   ? "Failed xpath: //r/a: it holds elements, not a value"
                               : name == 'b' ? "<f>1</f>"
                                             : "<f>4</f>");
      EXPECT_EQ(kvt_xml_child(d, 2, "none"), 0);
      EXPECT_EQ(read("//r/c"), "<f>4</f>") << "a path is that of the whole document";
    }
    kvt_xml_leave(d, 1);
    EXPECT_EQ(kvt_xml_enter(d, nullptr), 0u);
  }
}

class EachXmlForm : public testing::TestWithParam<Primitive> {
 protected:
  const Primitive& type() const { return GetParam(); }
  ValueRig rig_;
};
INSTANTIATE_TEST_SUITE_P(All, EachXmlForm, testing::ValuesIn(kPrimitives), primitive_name);

TEST_P(EachXmlForm, ReadsBackWhatItWrote) {
  for (const std::string& content :
       {std::string(), std::string("\1"), std::string(" \t\r\n a & b < c > \"d\" 'e' ]]>\n"), std::string("   "),
        std::string("\0\xFF", 2), std::string("gr\xC3\xBC\xC3\x9F"), std::string("\xEF\xBF\xBE"),
        std::string(9000, 'x')}) {
    Field from(&rig_, type()), to(&rig_, type());
    int err = 0;
    char message[100] = "";
    type().assign(rig_, kTxn, from, content.data(), content.size(), &err);
    type().assign(rig_, kTxn, to, "other", 5, &err);
    const Document document = parse("<r>\n" + written(&rig_, type(), from, 3) + "\n</r>");
    type().from_xml(rig_, kTxn, "//r/f", document.get(), to, &err, message, sizeof message);
    EXPECT_EQ(err, 0) << message;
    EXPECT_EQ(type().compare(from, to), 0) << content;
  }
  EXPECT_EQ(rig_.live_blocks(), 0u);
}

TEST_P(EachXmlForm, EveryRoomBelowTheNeedWritesNothing) {
  Field field(&rig_, type());
  int err = 0;
  type().assign(rig_, kTxn, field, "\1<\0>", 4, &err);
  const std::string whole = written(&rig_, type(), field, 2);
  EXPECT_EQ(whole.substr(0, 12), "<f state=\"2\"");
  for (std::int32_t room = -1; room < static_cast<std::int32_t>(whole.size()); ++room) {
    std::vector<char> out(room < 0 ? 0 : static_cast<std::size_t>(room), '*');
    err = 0;
    EXPECT_EQ(type().to_xml(rig_, kTxn, "f", out.data(), field, room, 2, &err), 0u);
    EXPECT_EQ(err, EMSGSIZE) << room;
    EXPECT_EQ(out, std::vector<char>(out.size(), '*'));
  }
}

TEST(XmlValues, WhatAPersonMayWriteAndMayNot) {
  const struct {
    int type;  // index in kPrimitives
    const char* element;
    const char* outcome;  // the element written back, or "!" and the reason
  } cases[] = {
      {0, "<f> 255\n</f>", "<f>255</f>"},
      {0, "<f>256</f>", "!\"256\" is no number from 0 to 255"},
      {0, "<f>0xfF</f>", "<f>255</f>"},
      {0, "<f>0x</f>", "!\"0x\" is no number from 0 to 255"},
      {0, "<f></f>", "!\"\" is no number from 0 to 255"},
      {0, "<f>-1</f>", "!\"-1\" is no number from 0 to 255"},
      {0, "<f>000000000000000000000000000012</f>", "<f>12</f>"},
      {0, "<f>\xC2\x9Bm</f>", "!\"??m\" is no number from 0 to 255"},
      {0, "<f>a123456789b123456789c123456789d1234567890</f>",
       "!\"a123456789b123456789c123456789d123456789...\" is no number from 0 to 255"},
      {1, "<f>65536</f>", "!\"65536\" is no number from 0 to 65535"},
      {2, "<f>4294967296</f>", "!\"4294967296\" is no number from 0 to 4294967295"},
      {3, "<f>18446744073709551616</f>", "!\"18446744073709551616\" is no number from 0 to 18446744073709551615"},
      {4, "<f> true </f>", "<f>true</f>"},
      {4, "<f>1</f>", "<f>true</f>"},
      {4, "<f>0</f>", "<f>false</f>"},
      {4, "<f>yes</f>", "!\"yes\" is neither true nor false"},
      {5, "<f state='2'> as it is </f>", "<f> as it is </f>"},
      {5, "<f encoding='hex'> 6869 </f>", "<f>hi</f>"},
      {5, "<f encoding='hex'>686</f>", "!an odd number of hexadecimal digits"},
      {5, "<f encoding='hex'>6g</f>", "!not all of it is hexadecimal digits"},
      {5, "<f encoding='sealed'>00</f>", "!\"sealed\" is no encoding of this field"},
      {5, "<f/>", "<f></f>"},
      {5, "<f>1<g/></f>", "!it holds elements, not a value"},
      {6, "<f encoding='sealed'>0011</f>", "!the sealed form is cut short"},
      {6, "<f encoding='base64'>eA==</f>", "!\"base64\" is no encoding of this field"},
      {6, "<f/>", "<f></f>"},
      {7, "<f encoding='hex'>00Ff</f>", "<f encoding=\"hex\">00ff</f>"},
      {7, "<f>hi</f>", "<f encoding=\"hex\">6869</f>"},
  };
  ValueRig rig;
  for (const auto& c : cases) {
    const Primitive& type = kPrimitives[c.type];
    Field field(&rig, type);
    const std::string before = field.raw();
    const Document document = parse(std::string("<r>") + c.element + "</r>");
    char message[200] = "";
    int err = 0;
    type.from_xml(rig, kTxn, "//r/f", document.get(), field, &err, message, sizeof message);
    if (c.outcome[0] == '!') {
      EXPECT_EQ(err, EINVAL) << type.name << " " << c.element;
      EXPECT_EQ(message, "Failed xpath: //r/f: " + std::string(c.outcome + 1));
      EXPECT_EQ(field.raw(), before) << c.element;
    } else {
      EXPECT_EQ(err, 0) << type.name << " " << c.element << message;
      EXPECT_EQ(written(&rig, type, field), c.outcome);
    }
  }
}

TEST(XmlValues, ASecretIsReadPlainOrInDigitsAndNoMessageShowsIt) {
  ValueRig rig;
  const Primitive& secret = kPrimitives[6];
  const struct {
    const char* element;
    bool taken;
  } cases[] = {{"<f>hunter22</f>", true},
               {"<f encoding='hex'>68756E7465723232</f>", true},
               {"<f encoding='hex'>hunter22</f>", false},
               {"<f encoding='sealed'>hunter22</f>", false},
               {"<f>hunter22<g/></f>", false}};
  for (const auto& c : cases) {
    Field field(&rig, secret);
    int err = 0;
    char message[100] = "", text[20];
    secret.from_xml(rig, kTxn, "//f", parse(c.element).get(), field, &err, message, sizeof message);
    EXPECT_EQ(err, c.taken ? 0 : EINVAL) << c.element;
    EXPECT_EQ(std::string(message).find("hunter"), std::string::npos) << message;
    kvt_aes_vstring_text(field, text, sizeof text);
    EXPECT_STREQ(text, c.taken ? "hunter22" : "");
    EXPECT_EQ(written(&rig, secret, field).rfind("<f encoding=\"sealed\">", 0) == 0, c.taken);
  }
}

// A tree of few names, so that they repeat among siblings and below each other. Each element begins on a line of its
// own, by which it is told from others of its name.
struct Tree {
  char name;
  std::uint32_t line;
  std::vector<Tree> children;
  std::string text() const {
    std::string out = std::string("\n<") + name + " n='" + name + "'>";
    for (const Tree& child : children) out += child.text();
    return out + (children.empty() ? "</" : "<!-- a --></") + name + ">";
  }
  void find(char wanted, bool below, std::vector<const Tree*>* found) const {
    for (const Tree& child : children) {
      if (child.name == wanted) found->push_back(&child);
      if (below) child.find(wanted, below, found);
    }
  }
};
Tree any_tree(int depth, std::uint32_t* line) {
  Tree tree{*rc::gen::element('a', 'b', 'c'), ++*line, {}};
  const int children = depth ? *rc::gen::inRange(0, 5) : 0;
  for (int i = 0; i < children; ++i) tree.children.push_back(any_tree(depth - 1, line));
  return tree;
}

// Whatever was asked before, a path leads where it says: the first of its head in document order, then first children.
RC_GTEST_PROP(XmlPath, AnyPathsInAnyOrderAreResolvedAsTold, ()) {
  std::uint32_t lines = 1;
  const Tree document_node{'\0', 0, {any_tree(3, &lines)}};
  const Document document = parse(document_node.children[0].text());
  for (int asked = 0; asked < 20; ++asked) {
    std::string path = "/";
    std::vector<const Tree*> found{&document_node};
    const int steps = *rc::gen::inRange(1, 5);
    for (int step = 0; step < steps; ++step) {
      const char name = *rc::gen::element('a', 'b', 'c', 'd');
      path += std::string("/") + name;
      if (found.empty()) continue;
      const Tree& from = *found[0];
      found.clear();
      from.find(name, step == 0, &found);
    }
    if (*rc::gen::arbitrary<bool>()) {
      std::uint32_t count = 99;
      RC_ASSERT(xml_get_element_nodecount(document.get(), path.c_str(), &count) == 0);
      RC_ASSERT(count == found.size());
    }
    RC_ASSERT(kvt_xml_exists(document.get(), path.c_str()) == !found.empty());
    std::uint32_t line = 0, column = 0;
    RC_ASSERT(kvt_xml_position(document.get(), path.c_str(), &line, &column) == (found.empty() ? ENOENT : 0));
    if (!found.empty()) RC_ASSERT(line == found[0]->line);
  }
}

// Pieces that mean something to a parser, in any order: refused with a position, or a document.
RC_GTEST_PROP(XmlParse, AnyTextIsReadOrRefused, ()) {
  const auto pieces = *rc::gen::container<std::vector<std::string>>(
      rc::gen::element<std::string>("<", ">", "/", "<a>", "</a>", "<b c='d'/>", "'", "\"", "&amp;", "&", ";", "<!--",
                                    "-->", "<![CDATA[", "]]>", "<?", "?>", "<!", "x", "\n", "\xC3", "\xBC", " ", "="));
  std::string text = "<a>", message;
  for (const std::string& piece : pieces) text += piece;
  const Document document = parse(text + "</a>", &message);
  RC_ASSERT((document == nullptr) == (message.rfind("line ", 0) == 0));
}

}  // namespace
}  // namespace kvt_test
