// The gate in front of TinyXML: hostile texts are refused with a reason, and every document
// TinyXML itself prints passes the gate and parses to the same document.
#include <gtest/gtest.h>
#include <tinyxml.h>

#include <random>
#include <string>

#include "platform/zrxmlguard.h"
#include "support/h16_text_files.h"

namespace {

using zrxml::Charset;

std::string nested(int depth) { return qtest::repeatText("<a>", depth) + qtest::repeatText("</a>", depth); }

struct Case {
  const char* what;
  std::string text;
  Charset charset;
  const char* problem;  // null: accepted
};

TEST(XmlGuard, RefusesWhatTinyXmlWouldMisreadAndAcceptsPlainXml) {
  const Case cases[] = {
      {"plain", "<?xml version=\"1.0\" ?><r a=\"1\" b='2'><c/>text &amp; &#x41;</r>", Charset::kUtf8, nullptr},
      {"deepest allowed", nested(zrxml::kZrXmlMaxDepth), Charset::kLatin1, nullptr},
      {"one too deep", nested(zrxml::kZrXmlMaxDepth + 1), Charset::kLatin1, "elements are nested too deep"},
      {"empty elements do not nest", qtest::repeatText("<a/>", 60000), Charset::kUtf8, nullptr},
      {"ends inside a UTF-8 sequence", "<QuorvaneConfig>\xc5", Charset::kUtf8, "it is not well-formed UTF-8"},
      {"same bytes as Latin-1", "<QuorvaneConfig>\xc5</QuorvaneConfig>", Charset::kLatin1, nullptr},
      {"lead byte swallowing '<'", "<Q>\xe9< </Q>", Charset::kUtf8, "it is not well-formed UTF-8"},
      {"overlong UTF-8", "<Q>\xc0\xaf</Q>", Charset::kUtf8, "it is not well-formed UTF-8"},
      {"NUL byte", std::string("<Q>a\0b</Q>", 10), Charset::kLatin1, "it holds a NUL byte"},
      {"reference to NUL", "<Q>&#x0;</Q>", Charset::kUtf8, "a character reference names no character of the document's charset"},
      {"empty reference", "<Q>&#x;</Q>", Charset::kUtf8, "a character reference is malformed"},
      // TinyXML drops these '&'s without an error.
      {"bare ampersand", "<Q>Tom & Jerry</Q>", Charset::kLatin1, "an '&' starts no reference"},
      {"ampersand in a value", "<Q a=\"x&y\"/>", Charset::kUtf8, "an '&' starts no reference"},
      {"unknown entity", "<Q>&nbsp;</Q>", Charset::kUtf8, "an '&' starts no reference"},
      {"entity in capitals", "<Q>&AMP;</Q>", Charset::kLatin1, "an '&' starts no reference"},
      {"entity without ';'", "<Q>&amp</Q>", Charset::kLatin1, "an '&' starts no reference"},
      {"surrogate", "<Q a=\"&#xD800;\"/>", Charset::kUtf8, "a character reference names no character of the document's charset"},
      {"beyond Latin-1", "<Q>&#x1E9;</Q>", Charset::kLatin1, "a character reference names no character of the document's charset"},
      {"within Latin-1", "<Q>&#233;</Q>", Charset::kLatin1, nullptr},
      {"long reference", "<Q>&#x0000000041;</Q>", Charset::kUtf8, "a character reference is too long"},
      {"end tags hidden in a value", "<a x=\"</a></a>\">" + nested(300), Charset::kLatin1, "'<' inside an attribute value"},
      {"unquoted value", "<a x=b>", Charset::kLatin1, "an attribute value is not quoted"},
      {"unterminated comment", "<a><!-- </a>", Charset::kLatin1, "a comment is unterminated"},
      {"comment hides tags", "<r><!-- <a><a><a> --></r>", Charset::kLatin1, nullptr},
      {"unterminated CDATA", "<r><![CDATA[ x", Charset::kLatin1, "a CDATA section is unterminated"},
      {"doctype holding markup", "<!DOCTYPE r [<!ELEMENT r ANY>]><r/>", Charset::kLatin1, "'<' inside markup"},
      {"declaration with a stray attribute", "<?xml foo=\"><a>\"?><r/>", Charset::kLatin1, "the XML declaration is malformed"},
      {"'<' before a digit", "<r><1/></r>", Charset::kLatin1, "'<' does not start markup"},
      {"end tag before start", "</r><r>", Charset::kLatin1, "an end tag has no start tag"},
      {"truncated tag", "<r a=\"1\"", Charset::kLatin1, "a tag is unterminated"},
      {"unterminated value", "<r a=\"1", Charset::kLatin1, "an attribute value is unterminated"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const char* problem = zrxml::check(c.text, c.charset);
    if (c.problem == nullptr) EXPECT_EQ(problem, nullptr) << problem;
    else EXPECT_STREQ(problem, c.problem);
    TiXmlDocument doc;
    const char* parsed = zrxml::parse(c.text, c.charset, &doc);
    if (c.problem) {
      EXPECT_STREQ(parsed, c.problem);
    }
  }
}

TEST(XmlGuard, CharsetIsTheOneTinyXmlWouldChoose) {
  const std::pair<const char*, Charset> cases[] = {
      {"<r/>", Charset::kLatin1}, {"<?xml version=\"1.0\" ?><r/>", Charset::kUtf8},
      {"<?xml version=\"1.0\" encoding=\"\" ?><r/>", Charset::kUtf8},
      {"  <?XML version='1.0' encoding='utf8'?><r/>", Charset::kUtf8},
      {"<?xml version=\"1.0\" encoding=\"iso-8859-1\" ?><r/>", Charset::kLatin1},
      {"\xEF\xBB\xBF<r/>", Charset::kUtf8},
  };
  for (const auto& [text, charset] : cases) EXPECT_EQ(zrxml::declaredCharset(text), charset) << text;
}

// Random trees with random names, attribute values and texts, printed by TinyXML: the gate
// lets every one through and the parse gives back the printed document.
TEST(XmlGuard, EveryDocumentTinyXmlPrintsPassesAndParsesBack) {
  std::mt19937 rng(7);
  auto randomText = [&](bool latin1) {
    std::string s;
    for (int n = rng() % 12; n > 0; --n) {
      unsigned c = rng() % (latin1 ? 255 : 127) + 1;
      if (!latin1 && c < 0x20) c = 'x';
      s += static_cast<char>(c);
    }
    return s;
  };
  for (int round = 0; round < 300; ++round) {
    const bool latin1 = round % 2 == 0;
    TiXmlDocument doc;
    doc.LinkEndChild(new TiXmlDeclaration("1.0", latin1 ? "ISO-8859-1" : "UTF-8", ""));
    TiXmlNode* at = doc.LinkEndChild(new TiXmlElement("root"));
    for (int i = rng() % 20; i > 0; --i) {
      auto* e = new TiXmlElement("e" + std::to_string(rng() % 5));
      for (int a = rng() % 3; a > 0; --a) e->SetAttribute("a" + std::to_string(a), randomText(latin1));
      // Texts without white space: TinyXML condenses white space in texts as it reads them.
      std::string text = randomText(latin1);
      for (char& c : text)
        if (static_cast<unsigned char>(c) <= ' ') c = '_';
      if (!text.empty()) e->LinkEndChild(new TiXmlText(text));
      TiXmlNode* added = at->LinkEndChild(e);
      if (rng() % 2) at = added;
    }
    TiXmlPrinter printer;
    doc.Accept(&printer);
    const std::string text = printer.Str();
    ASSERT_EQ(zrxml::declaredCharset(text), latin1 ? Charset::kLatin1 : Charset::kUtf8);
    TiXmlDocument back;
    ASSERT_EQ(zrxml::parse(text, zrxml::declaredCharset(text), &back), nullptr) << text;
    TiXmlPrinter again;
    back.Accept(&again);
    EXPECT_EQ(again.Str(), text);
  }
}

// Random bytes never get TinyXML to read outside its buffer (ASan watches the parse); a text
// the gate refuses is refused by the parse with the same reason, and what TinyXML accepts
// prints to a document that passes the gate again and parses to the same print.
TEST(XmlGuard, RandomBytesAreRefusedOrParsedSafely) {
  std::mt19937 rng(11);
  const std::string alphabet = "<>/=\"' ab&#x;!-?[]\xc5\xe9\x80\xf0";
  int refused = 0, parsed = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string text = "<r>";
    for (int n = rng() % 40; n > 0; --n) text += alphabet[rng() % alphabet.size()];
    if (rng() % 2) text += "</r>";
    for (Charset charset : {Charset::kLatin1, Charset::kUtf8}) {
      SCOPED_TRACE(text);
      const char* problem = zrxml::check(text, charset);
      TiXmlDocument doc;
      const char* result = zrxml::parse(text, charset, &doc);
      if (problem) {
        EXPECT_STREQ(result, problem);
        ++refused;
      } else if (!result) {
        TiXmlPrinter printer;
        doc.Accept(&printer);
        TiXmlDocument back;
        ASSERT_EQ(zrxml::parse(printer.Str(), charset, &back), nullptr) << printer.Str();
        TiXmlPrinter again;
        back.Accept(&again);
        EXPECT_EQ(again.Str(), printer.Str());
        ++parsed;
      }
    }
  }
  // Both ways are taken often, or the checks above say little.
  EXPECT_GT(refused, 300);
  EXPECT_GT(parsed, 300);
}

}  // namespace
