// Internal: the one gate every untrusted XML text passes before TinyXML parses it.
//
// TinyXML 2.6 parses elements recursively and, in UTF-8 mode, steps over a lead byte's whole
// sequence without looking for the terminator, so a text nested thousands deep exhausts the
// stack and a text ending inside a multi-byte sequence is read past its end. The gate:
//  - scans the text once as TinyXML will tokenise it and refuses anything that is not plainly
//    well-formed (unquoted or '<'-holding attribute values, stray markup, unterminated
//    comments or CDATA), so that its count of open elements is TinyXML's; it refuses more than
//    kZrXmlMaxDepth open elements;
//  - refuses NUL bytes (TinyXML would silently stop there) and character references TinyXML
//    would misread (zero, surrogates, beyond the charset);
//  - for a UTF-8 parse, refuses text that is not well-formed UTF-8 (RFC 3629);
//  - hands TinyXML a copy followed by kZrXmlPadding NUL bytes, more than its longest step.
#pragma once
#include <tinyxml.h>

#include <cstddef>
#include <string_view>

namespace zrxml {

// Deepest element nesting accepted. Our documents are a few levels deep.
inline constexpr int kZrXmlMaxDepth = 256;
// NUL bytes behind the text handed to TinyXML (its longest step over a sequence is 4).
inline constexpr int kZrXmlPadding = 8;

// Length of the well-formed UTF-8 sequence (RFC 3629) at s[i] (1 for ASCII), or 0.
size_t utf8Length(std::string_view s, size_t i);

enum class Charset { kLatin1, kUtf8 };

// The charset TinyXML would choose for text left to itself: UTF-8 after a byte-order mark or
// when the leading declaration names UTF-8 or no encoding; bytes (Latin-1) otherwise.
Charset declaredCharset(std::string_view text);

// Null when text may be parsed as charset; otherwise a one-line reason.
const char* check(std::string_view text, Charset charset);

// Checks text, then parses it into *doc (cleared first) with the charset fixed, so that a
// declaration cannot switch TinyXML to another. Null on success; otherwise a one-line reason
// (valid while doc lives).
const char* parse(std::string_view text, Charset charset, TiXmlDocument* doc);

}  // namespace zrxml
