// One pass over the text of a document, in which only the borders of tags, comments and the like are told apart. Most
// characters mean nothing wherever they stand; they are told 64 at a time, and only the others are looked at.
#include "platform/xml_screen.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "kvt/xml.h"
#include "platform/xml_text.h"

namespace kvt {
namespace {

constexpr std::size_t kBlock = 64;
static_assert(kXmlScreenPadding >= kBlock);

// The characters at `text` that may mean something, a bit for each: < > & quotes, control characters, all beyond ASCII,
// and # because it costs less to have it among them.
#ifdef __SSE2__
std::uint64_t marks_at(const char* text) {
  std::uint64_t marks = 0;
  for (std::size_t i = 0; i < kBlock; i += sizeof(__m128i)) {
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i));
    const __m128i odd = _mm_cmplt_epi8(c, _mm_set1_epi8(' '));  // bytes beyond ASCII are negative
    const __m128i angle = _mm_cmpeq_epi8(_mm_or_si128(c, _mm_set1_epi8('<' ^ '>')), _mm_set1_epi8('>'));
    const __m128i quote = _mm_cmpeq_epi8(_mm_andnot_si128(_mm_set1_epi8('"' ^ '\''), c), _mm_set1_epi8('"'));
    const int found = _mm_movemask_epi8(_mm_or_si128(odd, _mm_or_si128(angle, quote)));
    marks |= std::uint64_t{static_cast<std::uint32_t>(found)} << i;
  }
  return marks;
}
#else
// Eight at a time. The character behind a marked one may be marked for nothing.
std::uint64_t marks_at(const char* text) {
  constexpr std::uint64_t kEach = 0x0101010101010101, kTop = 0x80 * kEach;
  std::uint64_t marks = 0;
  for (std::size_t i = 0; i < kBlock; i += sizeof(std::uint64_t)) {
    std::uint64_t c;
    std::memcpy(&c, text + i, sizeof c);
    if constexpr (std::endian::native == std::endian::big) c = __builtin_bswap64(c);
    const std::uint64_t angle = (c | ('<' ^ '>') * kEach) ^ '>' * kEach;      // 0 in each that is
    const std::uint64_t quote = (c & ~(('"' ^ '\'') * kEach)) ^ '"' * kEach;  // likewise
    const std::uint64_t found = c | ((c - ' ' * kEach) & ~c) | ((angle - kEach) & ~angle) | ((quote - kEach) & ~quote);
    constexpr std::uint64_t kTopsTogether = 0x0102040810204080;
    marks |= (((found & kTop) >> 7) * kTopsTogether >> 56) << i;
  }
  return marks;
}
#endif

class Screen {
 public:
  Screen(const char* text, std::size_t length, std::vector<std::uint32_t>* lines, XmlFault* fault)
      : text_(text, length), marks_{0, length ? marks_at(text) : 0}, lines_(lines), fault_(fault) {}

  bool run() {
    while (at_ < text_.size()) {
      if (depth_) {
        pass_plain_elements();
        if (!depth_) continue;
        if (!pass()) break;
      }
      const bool good = text_[at_] == '<' ? markup() : depth_ ? character() : outside();
      if (!good) return false;
    }
    if (!roots_) return fail(0, "there is no root element");
    return depth_ ? fail(text_.size(), "the document ends inside an element") : true;
  }

 private:
  bool fail(std::size_t offset, const char* reason) {
    *fault_ = {offset, reason};
    return false;
  }

  // The marks of a block that have not been passed.
  struct Marks {
    std::size_t block;
    std::uint64_t bits;
  };

  // The place of the next mark, or of the NUL behind the text.
  std::size_t next(Marks* marks) const {
    while (!marks->bits) {
      marks->block += kBlock;
      if (marks->block >= text_.size()) return text_.size();
      marks->bits = marks_at(text_.data() + marks->block);
    }
    const std::size_t found = marks->block + static_cast<std::size_t>(std::countr_zero(marks->bits));
    marks->bits &= marks->bits - 1;
    return found;
  }

  // Moves to the next character that may mean something; false: there is none.
  bool pass() {
    std::size_t found;
    do found = next(&marks_);
    while (found < at_);
    at_ = std::min(found, text_.size());
    return at_ < text_.size();
  }

  // Passes tags without attributes and text without references, as long as there is nothing to say of them. It does
  // what run() does, on local variables.
  void pass_plain_elements() {
    const char* const text = text_.data();
    std::size_t at = at_, depth = depth_, elements = elements_;
    Marks marks = marks_;
    while (depth && depth < KVT_XML_MAX_DEPTH && elements < kXmlMaxElements) {
      Marks ahead = marks;
      const std::size_t open = next(&ahead), close = next(&ahead);
      if (open < at || text[open] != '<' || text[close] != '>') break;
      const char c = text[open + 1];
      if (c == '!' || c == '?') break;
      if (c == '/') {
        --depth;
      } else {
        depth += text[close - 1] != '/';
        ++elements;
      }
      at = close + 1;
      marks = ahead;
    }
    at_ = at;
    depth_ = depth;
    elements_ = elements;
    marks_ = marks;
  }

  bool starts(std::string_view with) const { return text_.substr(at_, with.size()) == with; }

  bool outside() {
    if (!xml_blank(text_[at_])) return fail(at_, "text outside the root element");
    return character();
  }

  bool character() {
    const char c = text_[at_];
    if (c == '&') return reference();
    if (c >= ' ' && c <= '~') {
      ++at_;
      return true;
    }
    const std::size_t used = xml_character(text_.data() + at_, text_.data() + text_.size());
    if (!used) return fail(at_, "a byte that is no character of XML in UTF-8");
    if (c == '\n') {
      if (lines_->size() > kXmlMaxLines) return fail(at_, "too many lines");
      lines_->push_back(static_cast<std::uint32_t>(at_ + 1));
    }
    at_ += used;
    return true;
  }

  bool reference() {
    const std::size_t start = at_;
    const std::size_t end = text_.substr(at_, kLongestReference).find(';');
    if (end == std::string_view::npos) return fail(start, "'&' that begins no reference");
    const std::string_view name = text_.substr(at_ + 1, end - 1);
    at_ += end + 1;
    if (!name.empty() && name[0] == '#')
      return character_reference(name.substr(1)) || fail(start, "reference to a character that XML does not allow");
    for (const std::string_view known : {"amp", "lt", "gt", "quot", "apos"})
      if (name == known) return true;
    return fail(start, "unknown entity");
  }

  static bool character_reference(std::string_view digits) {
    const bool hex = !digits.empty() && digits[0] == 'x';
    if (hex) digits.remove_prefix(1);
    std::uint32_t code_point = 0;
    for (const char c : digits) {
      const int value = hex_value(c);
      if (value < 0 || (!hex && value > 9)) return false;
      code_point = code_point * (hex ? 16 : 10) + static_cast<std::uint32_t>(value);
      if (code_point > 0x10FFFF) return false;
    }
    return !digits.empty() && xml_code_point_ok(code_point);
  }

  // Moves behind `close`; what lies between may hold any characters but no references.
  bool skip(std::size_t open_size, std::string_view close, const char* unclosed) {
    const std::size_t end = text_.find(close, at_ + open_size);
    if (end == std::string_view::npos) return fail(at_, unclosed);
    while (at_ < end)
      if (text_[at_] == '&') {
        ++at_;
      } else if (!character()) {
        return false;
      }
    at_ = end + close.size();
    return true;
  }

  bool markup() {
    switch (text_.data()[at_ + 1]) {
      case '/':
        if (!depth_) return fail(at_, "end tag without its start tag");
        --depth_;
        return end_tag();
      case '?':
        return skip(2, "?>", "processing instruction without end");
      case '!':
        if (starts("<!--")) return skip(4, "-->", "comment without end");
        if (!starts("<![CDATA[")) return fail(at_, "document types and declarations are not accepted");
        return depth_ ? skip(9, "]]>", "CDATA without end") : fail(at_, "text outside the root element");
      default:
        return start_tag();
    }
  }

  bool end_tag() {
    const std::size_t start = at_;
    while (pass()) {
      const char c = text_[at_];
      if (c == '>') {
        ++at_;
        return true;
      }
      if (c == '&') {
        ++at_;
      } else if (!character()) {
        return false;
      }
    }
    return fail(start, "tag without end");
  }

  bool start_tag() {
    const std::size_t start = at_++;
    if (!depth_ && roots_++) return fail(start, "a second root element");
    if (++elements_ > kXmlMaxElements) return fail(start, "too many elements");
    if (++depth_ > KVT_XML_MAX_DEPTH) return fail(start, "elements nested too deeply");
    for (char quote = 0;;) {
      if (!pass()) return fail(start, "tag without end");
      const char c = text_[at_];
      if (!quote && c == '>') {
        if (text_[at_ - 1] == '/') --depth_;
        ++at_;
        return true;
      }
      if (quote ? c == quote : c == '"' || c == '\'') quote = quote ? 0 : c;
      if (!character()) return false;
    }
  }

  static constexpr std::size_t kLongestReference = 16;

  std::string_view text_;
  Marks marks_;
  std::vector<std::uint32_t>* lines_;
  XmlFault* fault_;
  std::size_t at_ = 0;
  std::size_t depth_ = 0;
  std::size_t roots_ = 0;
  std::size_t elements_ = 0;
};

}  // namespace

bool xml_screen(const char* text, std::size_t length, std::vector<std::uint32_t>* lines, XmlFault* fault) {
  return Screen(text, length, lines, fault).run();
}

}  // namespace kvt
