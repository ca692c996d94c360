// The readers on hand-written and hostile input: result codes, exact log lines, the kept
// asymmetries, and that no field is ever written past its end.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "mediacmd/mediacmd.h"
#include "support/h16_text_files.h"
#include "support/test_support.h"
#include "text_forms.h"

namespace {

std::string xmlDoc(const std::string& body) { return "<MediaCmd>" + body + "</MediaCmd>"; }
std::string jsonDoc(const std::string& body) { return "{\"MediaCmd\" : {" + body + "}}"; }

struct BadCase {
  const char* name;
  std::string text;
  int result;
  const char* log;  // the one ErrOut line expected, or nullptr for none
};

void expectRefused(const BadCase& c, bool json) {
  SCOPED_TRACE(c.name);
  MEDIACMD cmd;
  std::memset(&cmd, 0xA5, sizeof cmd);
  qtest::LogCapture log;
  int result = json ? MediaCmdFromJSONString(&cmd, nullptr, c.text.c_str()) : MediaCmdFromXMLString(&cmd, nullptr, c.text.c_str());
  EXPECT_EQ(result, c.result);
  if (c.log) {
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].kind, ZR_LOG_ERROR);
    EXPECT_EQ(log.lines()[0].text, c.log);
  } else {
    EXPECT_TRUE(log.lines().empty());
  }
  // Whatever was refused, the clip id and payload hold nothing but what fits: a refused long
  // text leaves both as initialised.
  EXPECT_EQ(cmd.CmdID, MEDIACMD_SIGNATURE);
  EXPECT_EQ(cmd.ClipID[8], 0);
}

TEST(MediaCmdXmlReader, RefusesBadInputWithItsCodeAndLogLine) {
  const BadCase cases[] = {
      {"empty text", "", -1, "Failed to parse XML: Error document empty.\n"},
      {"mismatched end tag", "<MediaCmd></Other>", -1, "Failed to parse XML: Error reading end tag.\n"},
      {"nested far too deep", qtest::repeatText("<a>", 100000), -1, "Failed to parse XML: elements are nested too deep\n"},
      {"declaration only", "<?xml version=\"1.0\"?>", 1, "Element expected\n"},
      {"wrong root", "<MediaCommand><Channel Value=\"1\"/></MediaCommand>", -2, "Unexpected root element: MediaCommand\n"},
      {"number with trailing text", xmlDoc("<Channel Value=\"12abc\"/>"), -2, "Bad value for Channel\n"},
      {"number beyond 32 bits", xmlDoc("<CmdID Value=\"4294967296\"/>"), -2, "Bad value for CmdID\n"},
      {"number below 32 bits", xmlDoc("<Position Value=\"-2147483649\"/>"), -2, "Bad value for Position\n"},
      {"flag that is not a number", xmlDoc("<Cmd Deferred=\"yes\">Play</Cmd>"), -2, "Bad value for Cmd.Deferred\n"},
      {"offset flag that is not a number", xmlDoc("<Start Value=\"1\" IsOffset=\"x\"/>"), -2, "Bad value for Start.IsOffset\n"},
      {"unknown timecode type", xmlDoc("<Position TcType=\"weird\">01:00:00:00</Position>"), -2, "Bad value for Position.TcType\n"},
      {"impossible timecode", xmlDoc("<Position TcType=\"pal\">99:99:99:99</Position>"), -2, "Bad timecode for Position: 99:99:99:99\n"},
      {"frame count that is not a number", xmlDoc("<End TcType=\"frames\">12x</End>"), -2, "Bad value for End\n"},
      {"clip id of nine characters", xmlDoc("<ClipID>ABCDEFGHI</ClipID>"), -2, "Text too long for ClipID: 9 characters\n"},
      {"file name one byte over", xmlDoc("<FileName>" + std::string(4103, 'f') + "</FileName>"), -2,
       "Text too long for the payload: FileName\n"},
      {"aliases together over the payload", xmlDoc("<channelalias>" + std::string(2000, 'a') + "</channelalias>" +
                                                   "<channel1alias>" + std::string(2000, 'b') + "</channel1alias>" +
                                                   "<channel2alias>" + std::string(200, 'c') + "</channel2alias>"),
       -2, "Texts too long for the payload\n"},
      {"two payload layouts", xmlDoc("<FileName>a.mov</FileName><MetaTag>Title</MetaTag>"), -2,
       "Conflicting payload elements: FileName and MetaTag\n"},
      {"arbitrary data with an odd digit", xmlDoc("<arbID Type=\"hex\" length=\"2\">ABC</arbID>"), -2, "Bad arbID data\n"},
      {"arbitrary data that is not hex", xmlDoc("<arbID Type=\"hex\">zz</arbID>"), -2, "Bad arbID data\n"},
      {"arbitrary data of an unknown type", xmlDoc("<arbID Type=\"rot13\">abc</arbID>"), -2, "Bad arbID type: rot13\n"},
      {"arbitrary data without a type", xmlDoc("<arbID>00</arbID>"), -2, "Bad value for arbID.Type\n"},
      {"arbitrary data length mismatch", xmlDoc("<arbID Type=\"hex\" length=\"3\">0011</arbID>"), -2,
       "arbID length does not match its data\n"},
      {"arbitrary data over the payload", xmlDoc("<arbID Type=\"base64\">" + qtest::repeatText("AAAA", 1400) + "</arbID>"), -2,
       "Bad arbID data\n"},
  };
  for (const BadCase& c : cases) expectRefused(c, false);
  EXPECT_EQ(MediaCmdFromXMLString(nullptr, nullptr, "<MediaCmd/>"), -1);
  MEDIACMD cmd;
  qtest::LogCapture log;
  EXPECT_EQ(MediaCmdFromXMLString(&cmd, nullptr, nullptr), -1);
  EXPECT_TRUE(log.contains("Failed to parse XML: no text\n"));
}

TEST(MediaCmdJsonReader, RefusesBadInputWithItsCodeAndLogLine) {
  std::string manyMembers;
  for (int i = 0; i < 50; ++i) manyMembers += "\"k" + std::to_string(i) + "\":" + std::to_string(i) + ",";
  const BadCase cases[] = {
      {"empty text", "", 1, "Object expected\n"},
      {"an array", "[]", 1, "Object expected\n"},
      {"truncated", "{\"MediaCmd\" : {\"Channel\":1,", -1, "Failed to parse JSON: -3\n"},
      {"bad escape", "{\"MediaCmd\" : {\"FileName\":\"\\x\"}}", -1, "Failed to parse JSON: -2\n"},
      {"more than 100 tokens", jsonDoc(manyMembers), -1, "Failed to parse JSON: -1\n"},
      {"clip list root", "{\"ClipList\" : {}}", -2, nullptr},
      {"other eight-character root", "{\"MediaCmx\" : {\"Channel\":1}}", -2, nullptr},
      {"other root", "{\"Command\" : {\"Channel\":1}}", -2, "No MediaCmd object\n"},
      {"command that is not an object", "{\"MediaCmd\" : 5, \"x\":1}", -2, "No MediaCmd object\n"},
      {"text after the object", "{} {}", -2, "Unrecognised JSON structure\n"},
      {"key that is not a string", "{\"MediaCmd\" : {Channel:1}}", -2, "Unrecognised JSON structure\n"},
      {"number as text", jsonDoc("\"Channel\":\"1\","), -2, "Bad value for Channel\n"},
      {"fraction", jsonDoc("\"Channel\":1.5,"), -2, "Bad value for Channel\n"},
      {"command value as text", jsonDoc("\"Cmd\": {\"Value\":\"2\"},"), -2, "Bad value for Cmd\n"},
      {"flag as a boolean", jsonDoc("\"Cmd\": {\"Value\":2,\"Deferred\":true},"), -2, "Bad value for Cmd.Deferred\n"},
      {"clip id as a number", jsonDoc("\"ClipID\":5,"), -2, "Bad value for ClipID\n"},
      {"NUL inside a text", jsonDoc("\"FileName\":\"a\\u0000b\","), -2, "Bad value for FileName\n"},
      {"clip id of nine characters", jsonDoc("\"ClipID\":\"ABCDEFGHI\","), -2, "Text too long for ClipID: 9 characters\n"},
      {"absurdly long file name", jsonDoc("\"FileName\":\"" + std::string(1 << 20, 'f') + "\","), -2,
       "Text too long for the payload: FileName\n"},
      {"two payload layouts", jsonDoc("\"chanName\":\"A\",\"clockipaddress\":\"B\","), -2,
       "Conflicting payload elements: chanName and clockipaddress\n"},
      {"impossible timecode", jsonDoc("\"Position\": {\"TcType\":\"pal\",\"TcString\":\"25:00:00:00\"},"), -2,
       "Bad timecode for Position: 25:00:00:00\n"},
  };
  for (const BadCase& c : cases) expectRefused(c, true);
  EXPECT_EQ(MediaCmdFromJSONString(nullptr, nullptr, "{}"), -1);
}

// Hand-written documents: what is read, and what is deliberately not.
struct ReadCase {
  const char* name;
  std::string xml;   // empty: not tried in this form
  std::string json;
  std::function<void(const MEDIACMD&)> check;
  int tcType = -1;  // the caller's timecode type for untyped texts; -1: none given
};

TEST(MediaCmdTextReaders, ReadHandWrittenDocuments) {
  const ReadCase cases[] = {
      {"empty object fills nothing", "<MediaCmd/>", "{}",
       [](const MEDIACMD& c) {
         MEDIACMD fresh;
         initMediaCmd(&fresh, 0);
         EXPECT_EQ(std::memcmp(&c, &fresh, sizeof c), 0);
       }},
      {"clip info root", "<ClipInfo><Channel Value=\"4\"/></ClipInfo>", "{\"ClipInfo\" : {\"Channel\":4,\"ClipList\":[1,2,{\"a\":3}],}}",
       [](const MEDIACMD& c) { EXPECT_EQ(c.Channel, 4u); }},
      {"Switch is not read back by name", xmlDoc("<Cmd>Switch</Cmd>"), jsonDoc("\"Cmd\": {\"String\":\"Switch\"},"),
       [](const MEDIACMD& c) { EXPECT_EQ(c.Cmd, static_cast<uint32_t>(ctStop)); }},
      {"names are read case-blind", xmlDoc("<Cmd>VALUESUPPORTED</Cmd>"), jsonDoc("\"Cmd\": {\"String\":\"valueSupported\"},"),
       [](const MEDIACMD& c) { EXPECT_EQ(c.Cmd, static_cast<uint32_t>(ctValueSupported)); }},
      {"the writer's OverrideDeferred is not read back", xmlDoc("<Cmd OverrideDeferred=\"1\">Stop</Cmd>"),
       jsonDoc("\"Cmd\": {\"Value\":0,\"OverrideDeferred\":1,},"),
       [](const MEDIACMD& c) { EXPECT_EQ(c.CtrlFlags & cfOverrideDeferred, 0u); }},
      {"both historical spellings are", xmlDoc("<Cmd cfOverideDeferred=\"1\">Stop</Cmd>"),
       jsonDoc("\"Cmd\": {\"Value\":0,\"cfOverrideDeferred\":1,},"),
       [](const MEDIACMD& c) { EXPECT_EQ(c.CtrlFlags, static_cast<uint32_t>(cfOverrideDeferred)); }},
      {"a zero flag clears", xmlDoc("<Cmd Deferred=\"1\" Loop=\"0\">Stop</Cmd>"), jsonDoc("\"Cmd\": {\"Deferred\":1,\"Loop\":0,},"),
       [](const MEDIACMD& c) { EXPECT_EQ(c.CtrlFlags, static_cast<uint32_t>(cfDeferred)); }},
      {"a PAL timecode text without a value", xmlDoc("<Position TcType=\"pal\">01:00:00:00</Position>"),
       jsonDoc("\"Position\": {\"TcType\":\"pal\",\"TcString\":\"01:00:00:00\"},"),
       [](const MEDIACMD& c) { EXPECT_EQ(c.Position, 90000); }},
      {"drop-frame is the default type", xmlDoc("<Start>00:10:00;00</Start>"), jsonDoc("\"Start\": {\"TcString\":\"00:10:00;00\"},"),
       [](const MEDIACMD& c) {
         EXPECT_EQ(c.Start, 17982);
         EXPECT_EQ(c.CtrlFlags, static_cast<uint32_t>(cfUseStart));
       }},
      {"a frames text", xmlDoc("<Position TcType=\"frames\">-12</Position>"), jsonDoc("\"Position\": {\"TcType\":\"frames\",\"TcString\":\"-12\"},"),
       [](const MEDIACMD& c) { EXPECT_EQ(c.Position, -12); }},
      {"a speed given in percent", xmlDoc("<Speed>-200</Speed>"), jsonDoc("\"Speed\": {\"String\":\"-200\"},"),
       [](const MEDIACMD& c) {
         EXPECT_EQ(c.Speed, -131040);
         EXPECT_EQ(c.CtrlFlags, static_cast<uint32_t>(cfUseSpeed));
       }},
      {"unsigned and signed spellings of 32 bits", xmlDoc("<CmdID Value=\"-98237952\"/><Channel Value=\"4294967295\"/>"),
       jsonDoc("\"CmdID\":4196729344,\"Channel\":-1,"),
       [](const MEDIACMD& c) { EXPECT_EQ(c.CmdID, MEDIACMD_SIGNATURE); EXPECT_EQ(c.Channel, 0xFFFFFFFFu); }},
      {"unknown elements and keys are passed over", xmlDoc("<Future a=\"1\"><Deep/></Future><Channel Value=\"9\"/>"),
       jsonDoc("\"Future\": {\"a\":[1,{\"b\":2}]},\"Channel\":9,"), [](const MEDIACMD& c) { EXPECT_EQ(c.Channel, 9u); }},
      {"a file name of exactly the payload's room", xmlDoc("<FileName>" + std::string(4102, 'f') + "</FileName>"),
       jsonDoc("\"FileName\":\"" + std::string(4102, 'f') + "\","),
       [](const MEDIACMD& c) {
         EXPECT_EQ(strnlen(c.Payload, sizeof c.Payload), 4102u);
         EXPECT_EQ(c.Payload[4102], 0);
       }},
      {"aliases with a gap close up", xmlDoc("<channel3alias>C</channel3alias><channelalias>A</channelalias>"),
       jsonDoc("\"channel3alias\":\"C\",\"channelalias\":\"A\","),
       [](const MEDIACMD& c) { EXPECT_EQ(std::memcmp(c.Payload, "A\0C\0\0", 5), 0); }},
      {"IP settings without their addresses first are the record's points", xmlDoc("<Start Value=\"5\"/>"), "",
       [](const MEDIACMD& c) { EXPECT_EQ(c.Start, 5); EXPECT_EQ(c.CtrlFlags, static_cast<uint32_t>(cfUseStart)); }},
      {"base64 arbitrary data", xmlDoc("<arbID Type=\"base64\" length=\"3\">AQID</arbID>"),
       jsonDoc("\"arbID\": {\"Type\":\"base64\",\"length\":3,\"String\":\"AQID\"},"),
       [](const MEDIACMD& c) { EXPECT_EQ(std::memcmp(c.Payload, "\x03\0\0\0\x01\x02\x03\0", 8), 0); }},
      {"escapes and bytes from 0x80", "", jsonDoc("\"FileName\":\"a\\\"\\\\\\/\\b\\f\\n\\r\\t\\u00e9\\u20ac\xE9\","),
       [](const MEDIACMD& c) { EXPECT_STREQ(c.Payload, "a\"\\/\b\f\n\r\t\xE9\xE2\x82\xAC\xE9"); }},
      {"CDATA sections are joined", xmlDoc("<FileName><![CDATA[ a]]]]><![CDATA[> b ]]></FileName>"), "",
       [](const MEDIACMD& c) { EXPECT_STREQ(c.Payload, " a]]> b "); }},
      {"the caller's PAL type reads an untyped text", xmlDoc("<Position>00:00:01:00</Position>"), "",
       [](const MEDIACMD& c) { EXPECT_EQ(c.Position, 25); }, 8},
  };
  for (const ReadCase& c : cases) {
    SCOPED_TRACE(c.name);
    qtest::LogCapture log;
    MEDIACMD cmd;
    unsigned tcType = static_cast<unsigned>(c.tcType);
    if (!c.xml.empty()) {
      ASSERT_EQ(MediaCmdFromXMLString(&cmd, c.tcType < 0 ? nullptr : &tcType, c.xml.c_str()), 0);
      c.check(cmd);
    }
    if (!c.json.empty()) {
      ASSERT_EQ(MediaCmdFromJSONString(&cmd, nullptr, c.json.c_str()), 0);
      c.check(cmd);
    }
    EXPECT_TRUE(log.lines().empty());
  }
}

// The document interface: a record read from a host's own TinyXML document, which is not
// initialised first, and a writer appending to a document.
TEST(MediaCmdTextReaders, DocumentInterface) {
  TiXmlDocument doc;
  MEDIACMD cmd;
  initMediaCmd(&cmd, ctPlay);
  cmd.Channel = 3;
  ASSERT_EQ(MediaCmdToXML(&doc, &cmd, 4), 0);
  ASSERT_NE(doc.RootElement(), nullptr);
  EXPECT_EQ(doc.RootElement()->ValueStr(), "MediaCmd");

  MEDIACMD into;
  initMediaCmd(&into, ctStop);
  into.End = 77;
  ASSERT_EQ(MediaCmdFromXML(&into, nullptr, doc), 0);
  EXPECT_EQ(into.Cmd, static_cast<uint32_t>(ctPlay));
  EXPECT_EQ(into.Channel, 3u);
  EXPECT_EQ(into.End, 77);  // not in the document: left as it was

  EXPECT_EQ(MediaCmdToXML(nullptr, &cmd, 4), -1);
  EXPECT_EQ(MediaCmdToXML(&doc, nullptr, 4), -1);
  EXPECT_EQ(MediaCmdFromXML(nullptr, nullptr, doc), -1);
  TiXmlDocument empty;
  qtest::LogCapture log;
  EXPECT_EQ(MediaCmdFromXML(&into, nullptr, empty), 1);
  EXPECT_TRUE(log.contains("Element expected\n"));

  char* text = nullptr;
  EXPECT_EQ(MediaCmdToXMLString(nullptr, &cmd, 4), -1);
  EXPECT_EQ(MediaCmdToJSONString(&text, nullptr, 4), -1);
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(MediaCmdFreeXMLString(nullptr), 0);
  EXPECT_EQ(MediaCmdFreeJSONString(nullptr), 0);
  EXPECT_EQ(MediaCmdFreeJSONString(&text), 0);
}

}  // namespace
