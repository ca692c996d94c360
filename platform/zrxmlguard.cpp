// The gate in front of TinyXML: see zrxmlguard.h.
#include "platform/zrxmlguard.h"

#include <cstdint>
#include <cstring>
#include <string>

namespace zrxml {
namespace {

bool isAsciiLetter(unsigned char c) { return (c | 0x20) >= 'a' && (c | 0x20) <= 'z'; }
bool isDigit(unsigned char c) { return c >= '0' && c <= '9'; }
bool isSpace(unsigned char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
// TinyXML takes any byte from 127 on as a letter; we accept the same bytes, DEL excepted.
bool isNameStart(unsigned char c) { return isAsciiLetter(c) || c == '_' || c >= 0x80; }
bool isNameChar(unsigned char c) { return isNameStart(c) || isDigit(c) || c == '-' || c == '.' || c == ':'; }

bool startsWithNoCase(std::string_view s, size_t at, std::string_view prefix) {
  if (s.size() - at < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i)
    if ((s[at + i] | 0x20) != (prefix[i] | 0x20)) return false;
  return true;
}


class Scanner {
 public:
  Scanner(std::string_view text, Charset charset) : s_(text), charset_(charset) {}

  const char* run() {
    if (s_.find('\0') != std::string_view::npos) return "it holds a NUL byte";
    if (charset_ == Charset::kUtf8) {
      for (size_t i = 0; i < s_.size();) {
        const size_t len = utf8Length(s_, i);
        if (len == 0) return "it is not well-formed UTF-8";
        i += len;
      }
    }
    while (at_ < s_.size() && !problem_) {
      if (s_[at_] == '<') markup();
      else if (s_[at_] == '&') reference();
      else ++at_;
    }
    return problem_;
  }

 private:
  unsigned char peek(size_t ahead = 0) const {
    return at_ + ahead < s_.size() ? static_cast<unsigned char>(s_[at_ + ahead]) : 0;
  }
  bool fail(const char* why) {
    if (!problem_) problem_ = why;
    return false;
  }
  // Skips to just past the first `end`; '<' before it is refused when noAngle.
  bool skipPast(std::string_view end, bool noAngle, const char* unterminated) {
    const size_t found = s_.find(end, at_);
    if (found == std::string_view::npos) return fail(unterminated);
    if (noAngle && s_.substr(at_, found - at_).find('<') != std::string_view::npos) return fail("'<' inside markup");
    at_ = found + end.size();
    return true;
  }
  void skipSpace() {
    while (isSpace(peek())) ++at_;
  }
  bool name() {
    if (!isNameStart(peek())) return fail("a name is malformed");
    while (isNameChar(peek())) ++at_;
    return true;
  }

  // A character or entity reference, as TinyXML reads it: "&#x<hex>;" or "&#<decimal>;" must
  // name a character the charset holds. Any other '&' must start one of XML's five predefined
  // entities, spelt exactly: TinyXML silently drops the '&' of anything else ("a&b" reads "ab",
  // "&AMP;" reads "AMP;"), which would lose the user's byte without a word.
  void reference() {
    ++at_;
    if (peek() != '#') {
      static constexpr std::string_view kEntities[] = {"amp;", "lt;", "gt;", "quot;", "apos;"};
      for (std::string_view entity : kEntities)
        if (s_.substr(at_, entity.size()) == entity) return void(at_ += entity.size());
      return void(fail("an '&' starts no reference"));
    }
    ++at_;
    const bool hex = peek() == 'x';
    if (hex) ++at_;
    uint32_t value = 0;
    int digits = 0;
    for (;; ++at_, ++digits) {
      const unsigned char c = peek();
      int d = isDigit(c) ? c - '0' : hex && (c | 0x20) >= 'a' && (c | 0x20) <= 'f' ? (c | 0x20) - 'a' + 10 : -1;
      if (d < 0) break;
      if (digits >= 8) return void(fail("a character reference is too long"));
      value = value * (hex ? 16 : 10) + static_cast<uint32_t>(d);
    }
    if (digits == 0 || peek() != ';') return void(fail("a character reference is malformed"));
    ++at_;
    const uint32_t highest = charset_ == Charset::kUtf8 ? 0x10FFFF : 0xFF;
    if (value == 0 || value > highest || (value >= 0xD800 && value <= 0xDFFF))
      fail("a character reference names no character of the document's charset");
  }

  // Attributes up to '>' or "/>"; quoted values only, no '<' anywhere. True for "/>".
  bool attributes(bool* empty) {
    for (;;) {
      const bool spaced = isSpace(peek());
      skipSpace();
      if (peek() == '>') return ++at_, true;
      if (peek() == '/' && peek(1) == '>') return at_ += 2, *empty = true, true;
      if (at_ >= s_.size()) return fail("a tag is unterminated");
      if (!spaced) return fail("attributes are not separated by white space");
      if (!name()) return false;
      skipSpace();
      if (peek() != '=') return fail("an attribute has no value");
      ++at_;
      skipSpace();
      const unsigned char quote = peek();
      if (quote != '"' && quote != '\'') return fail("an attribute value is not quoted");
      ++at_;
      while (at_ < s_.size() && peek() != quote && !problem_) {
        if (peek() == '<') return fail("'<' inside an attribute value");
        if (peek() == '&') reference();
        else ++at_;
      }
      if (problem_) return false;
      if (at_ >= s_.size()) return fail("an attribute value is unterminated");
      ++at_;
    }
  }

  // The declaration: TinyXML reads quoted values only for version, encoding and standalone and
  // steps over anything else to the next blank or '>', so only the plain form is let through.
  void declaration() {
    at_ += 5;
    for (;;) {
      skipSpace();
      if (peek() == '?' && peek(1) == '>') return void(at_ += 2);
      if (!startsWithNoCase(s_, at_, "version") && !startsWithNoCase(s_, at_, "encoding") &&
          !startsWithNoCase(s_, at_, "standalone"))
        return void(fail("the XML declaration is malformed"));
      if (!name()) return;
      skipSpace();
      if (peek() != '=') return void(fail("the XML declaration is malformed"));
      ++at_;
      skipSpace();
      const unsigned char quote = peek();
      if (quote != '"' && quote != '\'') return void(fail("the XML declaration is malformed"));
      const size_t end = s_.find(static_cast<char>(quote), at_ + 1);
      if (end == std::string_view::npos) return void(fail("the XML declaration is malformed"));
      const std::string_view value = s_.substr(at_ + 1, end - at_ - 1);
      if (value.find_first_of("<>&") != std::string_view::npos) return void(fail("the XML declaration is malformed"));
      at_ = end + 1;
      if (!isSpace(peek()) && peek() != '?') return void(fail("the XML declaration is malformed"));
    }
  }

  void markup() {
    if (startsWithNoCase(s_, at_, "<?xml")) return declaration();
    if (s_.substr(at_, 4) == "<!--") return void(skipPast("-->", false, "a comment is unterminated"));
    if (s_.substr(at_, 9) == "<![CDATA[") return void(skipPast("]]>", false, "a CDATA section is unterminated"));
    if (peek(1) == '!' || peek(1) == '?') return void(skipPast(">", true, "markup is unterminated"));
    if (peek(1) == '/') {
      at_ += 2;
      if (!name()) return;
      skipSpace();
      if (peek() != '>') return void(fail("an end tag is malformed"));
      ++at_;
      if (--depth_ < 0) fail("an end tag has no start tag");
      return;
    }
    ++at_;
    if (!isAsciiLetter(peek()) && peek() != '_' && peek() < 0x80) return void(fail("'<' does not start markup"));
    if (!name()) return;
    bool empty = false;
    if (!attributes(&empty) || empty) return;
    if (++depth_ > kZrXmlMaxDepth) fail("elements are nested too deep");
  }

  std::string_view s_;
  Charset charset_;
  size_t at_ = 0;
  int depth_ = 0;
  const char* problem_ = nullptr;
};

}  // namespace

// Length of the well-formed UTF-8 sequence at s[i] (RFC 3629), or 0.
size_t utf8Length(std::string_view s, size_t i) {
  const auto byte = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
  const unsigned char lead = byte(i);
  if (lead < 0x80) return 1;
  size_t len;
  uint32_t cp;
  if (lead >= 0xC2 && lead <= 0xDF) len = 2, cp = lead & 0x1Fu;
  else if (lead >= 0xE0 && lead <= 0xEF) len = 3, cp = lead & 0x0Fu;
  else if (lead >= 0xF0 && lead <= 0xF4) len = 4, cp = lead & 0x07u;
  else return 0;
  if (i + len > s.size()) return 0;
  for (size_t k = 1; k < len; ++k) {
    if ((byte(i + k) & 0xC0u) != 0x80u) return 0;
    cp = (cp << 6) | (byte(i + k) & 0x3Fu);
  }
  static constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  if (cp < kSmallest[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return len;
}

Charset declaredCharset(std::string_view text) {
  if (text.substr(0, 3) == "\xEF\xBB\xBF") return Charset::kUtf8;
  size_t at = text.find_first_not_of(" \t\r\n");
  if (at == std::string_view::npos || !startsWithNoCase(text, at, "<?xml")) return Charset::kLatin1;
  const size_t end = text.find('>', at);
  const std::string_view decl = text.substr(at, end == std::string_view::npos ? std::string_view::npos : end - at);
  size_t enc = std::string_view::npos;
  for (size_t i = 0; i + 8 <= decl.size(); ++i)
    if (startsWithNoCase(decl, i, "encoding")) {
      enc = i + 8;
      break;
    }
  if (enc == std::string_view::npos) return Charset::kUtf8;
  const size_t open = decl.find_first_of("\"'", enc);
  if (open == std::string_view::npos) return Charset::kUtf8;
  const size_t close = decl.find(decl[open], open + 1);
  const std::string_view name = decl.substr(open + 1, close == std::string_view::npos ? 0 : close - open - 1);
  if (name.empty() || (name.size() == 5 && startsWithNoCase(name, 0, "utf-8")) ||
      (name.size() == 4 && startsWithNoCase(name, 0, "utf8")))
    return Charset::kUtf8;
  return Charset::kLatin1;
}

const char* check(std::string_view text, Charset charset) { return Scanner(text, charset).run(); }

const char* parse(std::string_view text, Charset charset, TiXmlDocument* doc) {
  doc->Clear();
  doc->ClearError();
  if (const char* problem = check(text, charset)) return problem;
  std::string padded;
  padded.reserve(text.size() + kZrXmlPadding);
  padded.append(text);
  padded.append(kZrXmlPadding, '\0');
  doc->Parse(padded.c_str(), nullptr, charset == Charset::kUtf8 ? TIXML_ENCODING_UTF8 : TIXML_ENCODING_LEGACY);
  if (doc->Error()) return doc->ErrorDesc();
  return nullptr;
}

}  // namespace zrxml
