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

struct Refusal {
  const char* text;
  const char* message;
};

TEST(XmlParse, RefusalsNameLineColumnAndReason) {
  const Refusal refusals[] = {
      {"", "line 1, column 1: there is no root element"},
      {"  \n <!-- nothing -->", "line 1, column 1: there is no root element"},
      {"<a>\n  <b></c>\n</a>", "line 2, column 8: Start-end tags mismatch"},
      {"<a>\n\n <b>", "line 3, column 5: the document ends inside an element"},
      {"<a/>\n<b/>", "line 2, column 1: a second root element"},
      {"<a/>\n x", "line 2, column 2: text outside the root element"},
      {"<![CDATA[x]]><a/>", "line 1, column 1: text outside the root element"},
      {"</a>", "line 1, column 1: end tag without its start tag"},
      {"<a>\n <b", "line 2, column 2: tag without end"},
      {"<a c='>", "line 1, column 1: tag without end"},
      {"<a><!-- x </a>", "line 1, column 4: comment without end"},
      {"<!DOCTYPE a [<!ENTITY x 'y'>]><a>&x;</a>",
       "line 1, column 1: document types and declarations are not accepted"},
      {"<a>&x;</a>", "line 1, column 4: unknown entity"},
      {"<a b='&nbsp;'/>", "line 1, column 7: unknown entity"},
      {"<a>x & y</a>", "line 1, column 6: '&' that begins no reference"},
      {"<a>&#0;</a>", "line 1, column 4: reference to a character that XML does not allow"},
      {"<a>&#x110000;</a>", "line 1, column 4: reference to a character that XML does not allow"},
      {"<a>&#12a;</a>", "line 1, column 4: reference to a character that XML does not allow"},
      {"<a>\n\x01</a>", "line 2, column 1: a byte that is no character of XML in UTF-8"},
      {"<a>\xC0\x80</a>", "line 1, column 4: a byte that is no character of XML in UTF-8"},
      {"<a>\xED\xA0\x80</a>", "line 1, column 4: a byte that is no character of XML in UTF-8"},
      {"<a b='\xFF'/>", "line 1, column 7: a byte that is no character of XML in UTF-8"},
      {"<a>\xE2\x82", "line 1, column 4: a byte that is no character of XML in UTF-8"},
  };
  for (const Refusal& refusal : refusals) {
    std::string message;
    EXPECT_EQ(parse(refusal.text, &message), nullptr) << refusal.text;
    EXPECT_EQ(message, refusal.message) << refusal.text;
  }
}

TEST(XmlParse, BytesThatHoldNulAreRefused) {
  std::string message;
  EXPECT_EQ(parse(std::string("<a>\0</a>", 8), &message), nullptr);
  EXPECT_EQ(message.substr(0, 17), "line 1, column 4:");
}

TEST(XmlParse, DepthIsLimited) {
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
}

TEST(XmlParse, SizeIsLimited) {
  char message[100];
  const char text[] = "<a/>";
  EXPECT_EQ(kvt_xml_parse(text, std::size_t{KVT_XML_MAX_BYTES} + 1, message, sizeof message), nullptr);
  EXPECT_STREQ(message, "line 1, column 1: the document is too large");
  EXPECT_EQ(kvt_xml_parse(text, 0, nullptr, 0), nullptr);
}

TEST(XmlPath, FindsTheFirstOfEachStep) {
  const Document document =
      parse("<r><x><a/></x><a><b>first</b><c>one</c><b>second</b><d><b>inner</b></d></a><a><e>other</e></a></r>");
  kvt_xml_document* d = document.get();
  // The order makes each path follow one with a common head, a shorter one, and one that was not found.
  struct {
    const char* path;
    std::uint32_t count;
    const char* value;
  } const cases[] = {
      {"//x/a", 1, ""},
      {"//a", 3, ""},
      {"//a/b", 0, "error 2"},
      {"//x", 1, ""},
      {"//b", 3, "first"},
      {"//d/b", 1, "inner"},
      {"//d", 1, ""},
      {"//c", 1, "one"},
      {"//cc", 0, "error 2"},
      {"//c/", 0, "error 2"},
      {"//", 0, "error 2"},
      {"/r", 0, "error 2"},
      {"", 0, "error 2"},
      {"//r/a", 2, ""},
      {"//r/a/b", 2, "first"},
      {"//r/a/c", 1, "one"},
      {"//r/a/z", 0, "error 2"},
      {"//r/a/b", 2, "first"},
      {"//r/a/d/b", 1, "inner"},
      {"//r/a/d/bb", 0, "error 2"},
      {"//r/a/e", 0, "error 2"},
      {"//r/a/c", 1, "one"},
      {"//r", 1, ""},
  };
  for (const auto& c : cases) {
    std::uint32_t count = 99;
    EXPECT_EQ(xml_get_element_nodecount(d, c.path, &count), 0);
    EXPECT_EQ(count, c.count) << c.path;
    EXPECT_EQ(value_at(d, c.path), c.value) << c.path;
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
  EXPECT_EQ(value_at(d, "//v/n"), "2");
  EXPECT_EQ(value_at(d, "//w/n"), "error 2");
  EXPECT_EQ(value_at(d, "//all"), "error 2");
  std::uint32_t line = 0, column = 0;
  kvt_xml_record_position(d, &line, &column);
  EXPECT_EQ(std::to_string(line) + ":" + std::to_string(column), "4:7");
  EXPECT_EQ(kvt_xml_record_select(d, 2), nullptr);
  EXPECT_EQ(value_at(d, "//n"), "2") << "a record that is not there changes nothing";
  EXPECT_STREQ(kvt_xml_record_select(d, KVT_XML_ALL), "all");
  EXPECT_EQ(value_at(d, "//w/n"), "1");
  EXPECT_EQ(kvt_xml_position(d, "//v/n", &line, &column), 0);
  EXPECT_EQ(std::to_string(line) + ":" + std::to_string(column), "4:10");
  EXPECT_EQ(kvt_xml_position(d, "//z", &line, &column), ENOENT);
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

TEST_P(EachXmlForm, AbsentElementKeepsTheFieldWithoutAWord) {
  Field field(&rig_, type());
  int err = 0;
  type().assign(rig_, kTxn, field, "\1", 1, &err);
  const std::string before = field.raw();
  const Document document = parse("<r><g>1</g></r>");
  char message[20] = "untouched";
  type().from_xml(rig_, kTxn, "//r/f", document.get(), field, &err, message, sizeof message);
  EXPECT_EQ(err, ENOENT);
  EXPECT_EQ(static_cast<kvt_handle*>(rig_)->last_error, ENOENT);
  EXPECT_EQ(field.raw(), before);
  EXPECT_STREQ(message, "untouched");
}

TEST_P(EachXmlForm, ElementsInPlaceOfAValueAreRefused) {
  Field field(&rig_, type());
  const Document document = parse("<r><f>1<g/></f></r>");
  char message[100] = "";
  int err = 0;
  type().from_xml(rig_, kTxn, "//r/f", document.get(), field, &err, message, sizeof message);
  EXPECT_EQ(err, EINVAL);
  EXPECT_STREQ(message, "Failed xpath: //r/f: it holds elements, not a value");
}

struct ReadCase {
  int type;  // index in kPrimitives
  const char* element;
  const char* outcome;  // the element written back, or "!" and the reason
};

TEST(XmlValues, WhatAPersonMayWriteAndMayNot) {
  const ReadCase cases[] = {
      {0, "<f> 255\n</f>", "<f>255</f>"},
      {0, "<f>256</f>", "!\"256\" is no number from 0 to 255"},
      {0, "<f>0xfF</f>", "<f>255</f>"},
      {0, "<f>0x</f>", "!\"0x\" is no number from 0 to 255"},
      {0, "<f></f>", "!\"\" is no number from 0 to 255"},
      {0, "<f>-1</f>", "!\"-1\" is no number from 0 to 255"},
      {0, "<f>+1</f>", "!\"+1\" is no number from 0 to 255"},
      {0, "<f>1 2</f>", "!\"1 2\" is no number from 0 to 255"},
      {0, "<f>000000000000000000000000000012</f>", "<f>12</f>"},
      {0, "<f>\xC2\x9Bm</f>", "!\"??m\" is no number from 0 to 255"},
      {0, "<f>a123456789b123456789c123456789d1234567890</f>",
       "!\"a123456789b123456789c123456789d123456789...\" is no number from 0 to 255"},
      {1, "<f>65535</f>", "<f>65535</f>"},
      {1, "<f>65536</f>", "!\"65536\" is no number from 0 to 65535"},
      {2, "<f>4294967296</f>", "!\"4294967296\" is no number from 0 to 4294967295"},
      {3, "<f>18446744073709551615</f>", "<f>18446744073709551615</f>"},
      {3, "<f>18446744073709551616</f>", "!\"18446744073709551616\" is no number from 0 to 18446744073709551615"},
      {4, "<f> true </f>", "<f>true</f>"},
      {4, "<f>1</f>", "<f>true</f>"},
      {4, "<f>0</f>", "<f>false</f>"},
      {4, "<f>yes</f>", "!\"yes\" is neither true nor false"},
      {5, "<f state='2'> as it is </f>", "<f> as it is </f>"},
      {5, "<f encoding='hex'> 6869 </f>", "<f>hi</f>"},
      {5, "<f encoding='hex'>00</f>", "<f encoding=\"hex\">00</f>"},
      {5, "<f encoding='hex'>686</f>", "!an odd number of hexadecimal digits"},
      {5, "<f encoding='hex'>6g</f>", "!not all of it is hexadecimal digits"},
      {5, "<f encoding='sealed'>00</f>", "!\"sealed\" is no encoding of this field"},
      {5, "<f encoding=''>x</f>", "!\"\" is no encoding of this field"},
      {5, "<f/>", "<f></f>"},
      {6, "<f encoding='sealed'>0011</f>", "!the sealed form is cut short"},
      {6, "<f encoding='base64'>eA==</f>", "!\"base64\" is no encoding of this field"},
      {6, "<f/>", "<f></f>"},
      {7, "<f encoding='hex'>00Ff</f>", "<f encoding=\"hex\">00ff</f>"},
      {7, "<f>hi</f>", "<f encoding=\"hex\">6869</f>"},
      {7, "<f encoding='hex'></f>", "<f></f>"},
  };
  ValueRig rig;
  for (const ReadCase& c : cases) {
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

TEST(XmlValues, ASecretIsWrittenSealedAndReadPlainOrSealed) {
  ValueRig rig;
  const Primitive& secret = kPrimitives[6];
  for (const char* element : {"<f>hunter22</f>", "<f encoding='hex'>68756E7465723232</f>"}) {
    Field typed(&rig, secret), back(&rig, secret);
    int err = 0;
    char message[100] = "", text[20];
    secret.from_xml(rig, kTxn, "//f", parse(element).get(), typed, &err, message, sizeof message);
    const std::string sealed = written(&rig, secret, typed);
    EXPECT_EQ(sealed.substr(0, 22), "<f encoding=\"sealed\">" + sealed.substr(21, 1));
    EXPECT_EQ(sealed.find("hunter"), std::string::npos);
    EXPECT_EQ(sealed.find("68756e746572"), std::string::npos);
    secret.from_xml(rig, kTxn, "//f", parse(sealed).get(), back, &err, message, sizeof message);
    EXPECT_EQ(err, 0) << message;
    EXPECT_EQ(kvt_aes_vstring_text(back, text, sizeof text), 8);
    EXPECT_STREQ(text, "hunter22");
  }
}

TEST(XmlValues, AMessageNeverShowsASecret) {
  ValueRig rig;
  const Primitive& secret = kPrimitives[6];
  for (const char* element :
       {"<f encoding='hex'>hunter22</f>", "<f encoding='sealed'>hunter22</f>", "<f>hunter22<g/></f>"}) {
    Field field(&rig, secret);
    int err = 0;
    char message[100] = "";
    secret.from_xml(rig, kTxn, "//f", parse(element).get(), field, &err, message, sizeof message);
    EXPECT_EQ(err, EINVAL);
    EXPECT_EQ(std::string(message).find("hunter"), std::string::npos) << message;
  }
}

TEST(XmlTags, NeedTheirWholeRoom) {
  ValueRig rig;
  char buffer[64];
  for (const std::uint32_t state : {0u, 255u}) {
    const std::string open = state ? "<st_dtim state=\"255\">" : "<st_dtim>";
    for (std::int32_t room = 0; room <= static_cast<std::int32_t>(open.size()); ++room) {
      std::memset(buffer, '*', sizeof buffer);
      int err = 0;
      const bool fits = room == static_cast<std::int32_t>(open.size());
      EXPECT_EQ(start_tag(rig, kTxn, buffer, "st_dtim", room, state, &err), fits ? open.size() : 0);
      EXPECT_EQ(err, fits ? 0 : EMSGSIZE);
      EXPECT_EQ(std::string(buffer, open.size() + 1), (fits ? open : std::string(open.size(), '*')) + "*");
    }
  }
  int err = 0;
  EXPECT_EQ(end_tag(rig, kTxn, buffer, "st_dtim", 10, &err), 10u);
  EXPECT_EQ(xml_enum_print(rig, kTxn, buffer + 10, "<OPTIONAL/>tail", 11, 11, &err), 11u);
  EXPECT_EQ(std::string(buffer, 22), "</st_dtim><OPTIONAL/>*");
  EXPECT_EQ(end_tag(rig, kTxn, buffer, "st_dtim", 9, &err), 0u);
  EXPECT_EQ(err, EMSGSIZE);
  err = 0;
  EXPECT_EQ(xml_enum_print(rig, kTxn, buffer, "<OPTIONAL/>", 10, 11, &err), 0u);
  EXPECT_EQ(err, EMSGSIZE);
}

RC_GTEST_PROP(XmlValues, StringsOfAnyBytesReadBack, (const std::string& content)) {
  ValueRig rig;
  for (const Primitive& type : kPrimitives) {
    if (!type.owns) continue;
    Field from(&rig, type), to(&rig, type);
    int err = 0;
    type.assign(rig, kTxn, from, content.data(), content.size(), &err);
    const Document document = parse("<r>" + written(&rig, type, from) + "</r>");
    type.from_xml(rig, kTxn, "//r/f", document.get(), to, &err, nullptr, 0);
    RC_ASSERT(err == 0);
    RC_ASSERT(type.compare(from, to) == 0);
  }
}

// A tree of few names, so that they repeat among siblings and below each other.
struct Tree {
  char name;
  std::vector<Tree> children;
  std::string text() const {
    std::string out = std::string("<") + name + " n='" + name + "'>";
    for (const Tree& child : children) out += (child.children.empty() ? " " : "<!-- a -->") + child.text();
    return out + "</" + name + ">";
  }
  void find(char wanted, std::vector<const Tree*>* found) const {
    if (name == wanted) found->push_back(this);
    for (const Tree& child : children) child.find(wanted, found);
  }
  std::vector<const Tree*> named(char wanted) const {
    std::vector<const Tree*> found;
    for (const Tree& child : children)
      if (child.name == wanted) found.push_back(&child);
    return found;
  }
};
Tree any_tree(int depth) {
  Tree tree{*rc::gen::element('a', 'b', 'c'), {}};
  const int children = depth ? *rc::gen::inRange(0, 5) : 0;
  for (int i = 0; i < children; ++i) tree.children.push_back(any_tree(depth - 1));
  return tree;
}

// Whatever was asked before, a path leads where it says: the first of its head in document order, then first children.
RC_GTEST_PROP(XmlPath, AnyPathsInAnyOrderAreResolvedAsTold, ()) {
  const Tree tree = any_tree(3);
  const Document document = parse(tree.text());
  for (int asked = 0; asked < 20; ++asked) {
    std::string path = "/";
    std::vector<const Tree*> found;
    const int steps = *rc::gen::inRange(1, 5);
    for (int step = 0; step < steps; ++step) {
      const char name = *rc::gen::element('a', 'b', 'c', 'd');
      path += std::string("/") + name;
      if (!step) {
        tree.find(name, &found);
      } else {
        found = found.empty() ? found : found[0]->named(name);
      }
    }
    if (*rc::gen::arbitrary<bool>()) {
      std::uint32_t count = 99;
      RC_ASSERT(xml_get_element_nodecount(document.get(), path.c_str(), &count) == 0);
      RC_ASSERT(count == found.size());
    }
    RC_ASSERT(kvt_xml_exists(document.get(), path.c_str()) == !found.empty());
    std::uint32_t line = 0, column = 0;
    RC_ASSERT(kvt_xml_position(document.get(), path.c_str(), &line, &column) == (found.empty() ? ENOENT : 0));
    if (found.empty()) continue;
    // The element itself, not another of its name: the text up to it has as many columns.
    std::string before;
    const auto walk = [&](const auto& self, const Tree& at) -> bool {
      if (&at == found[0]) return true;
      before += std::string("<") + at.name + " n='" + at.name + "'>";
      for (const Tree& child : at.children) {
        before += child.children.empty() ? " " : "<!-- a -->";
        if (self(self, child)) return true;
      }
      before += std::string("</") + at.name + ">";
      return false;
    };
    walk(walk, tree);
    RC_ASSERT(column == before.size() + 1);
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
