// Property: thousands of random commands (every command code, random flags, masks, points,
// timecode types and every payload layout) survive record -> XML -> record and
// record -> JSON -> record exactly as far as each form carries them, the two forms read back
// the same record, and a record read from one form passes unchanged through the other.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "mediacmd/mediacmd.h"
#include "support/test_support.h"
#include "text_forms.h"

#define JSMN_STATIC
#include <jsmn.h>

namespace {

enum class Layout { kClipAndFile, kAliases, kChanName, kIpSettings, kIpClock, kArbitrary, kMetabaseFile, kMetaTag, kCount };

struct Generated {
  MEDIACMD cmd;
  unsigned tcType;
  Layout layout;
  std::string payload;  // the meaningful bytes of the payload, as the readers must rebuild them
};

class Generator {
 public:
  explicit Generator(uint32_t seed) : rng_(seed) {}

  Generated next() {
    Generated g{};
    MEDIACMD& c = g.cmd;
    initMediaCmd(&c, 0);
    g.layout = static_cast<Layout>(below(static_cast<uint32_t>(Layout::kCount)));
    const uint32_t tcTypes[] = {0, 1, 2, 4, 8, 16, 32, 64, 128, 132, 255, 3};
    g.tcType = tcTypes[below(std::size(tcTypes))];
    c.prev = chance(2) ? 0 : word() | (chance(2) ? uint64_t(word()) << 32 : 0);
    c.next = chance(2) ? 0 : word();
    c.list = chance(2) ? 0 : word();
    c.CmdID = chance(8) ? word() : MEDIACMD_SIGNATURE;
    c.StructSize = chance(8) ? word() : MEDIACMD_SIZE;
    c.Channel = chance(3) ? 0xFFFFFFFF : below(64);
    c.Cmd = below(24);
    for (int bit = 0; bit < 32; ++bit)
      if (chance(4)) c.CtrlFlags |= 1u << bit;
    const int32_t speeds[] = {0, 65520, -65520, 32760, MEDIACMD_SPEED_NONE, INT32_MIN};
    c.Speed = chance(2) ? speeds[below(std::size(speeds))] : static_cast<int32_t>(word());
    c.VideoChannels = word(), c.AudioChannels = word(), c.InfoChannels = word();
    c.CmdAlt = chance(2) ? word() : below(2000000);
    c.Position = point(), c.Start = point(), c.End = point();
    randomText(below(9)).copy(c.ClipID, 8);

    const uint32_t getSet[] = {ctGetValue, ctSetValue, ctValueSupported};
    switch (g.layout) {
      case Layout::kClipAndFile: {
        while (isSpecial(c)) c.CmdAlt = word();
        if (chance(6)) {
          c.Cmd = getSet[below(3)];
          c.CmdAlt = gsMetadata;  // metadata requests carry no file name
          g.payload.clear();
          setPayload(c, randomText(below(30)) + '\0');
        } else {
          g.payload = randomText(textLength()) + '\0';
          setPayload(c, g.payload);
        }
        break;
      }
      case Layout::kAliases: {
        c.Cmd = getSet[below(3)];
        c.CmdAlt = gsChannelName;
        int count = static_cast<int>(below(9));
        g.payload = randomText(below(12)) + '\0';
        for (int i = 1; i < count; ++i) g.payload += randomText(1 + below(12)) + '\0';
        setPayload(c, g.payload + (chance(2) ? std::string("\0after the end", 14) : ""));
        break;
      }
      case Layout::kChanName:
      case Layout::kIpClock:
        c.Cmd = getSet[below(3)];
        c.CmdAlt = g.layout == Layout::kChanName ? gsKlxType : gsIpVideoClock;
        g.payload = randomText(textLength()) + '\0';
        setPayload(c, g.payload);
        break;
      case Layout::kIpSettings:
      case Layout::kMetaTag:
        c.Cmd = g.layout == Layout::kIpSettings ? getSet[below(3)] : below(24);
        c.CmdAlt = g.layout == Layout::kIpSettings ? gsIpVideoSettings : gsMetabaseGetTag;
        for (int i = 0; i < 3; ++i) g.payload += randomText(below(40)) + '\0';
        setPayload(c, g.payload);
        break;
      case Layout::kArbitrary: {
        c.Cmd = getSet[below(3)];
        c.CmdAlt = chance(2) ? gsFrameData : gsPreviewFrame;
        uint32_t n = chance(2) ? below(33) : chance(4) ? MEDIACMD_PAYLOAD_COPY_MAX : below(MEDIACMD_PAYLOAD_COPY_MAX + 1);
        g.payload = std::string{static_cast<char>(n), static_cast<char>(n >> 8), 0, 0};
        for (uint32_t i = 0; i < n; ++i) g.payload += static_cast<char>(rng_());
        setPayload(c, g.payload);
        break;
      }
      case Layout::kMetabaseFile: {
        c.Cmd = below(24);
        c.CmdAlt = gsMetabaseFileName;
        std::string file = randomText(textLength());
        g.payload = chance(2) ? file : withoutDollar(randomText(below(20))) + "$" + file;
        g.payload += '\0';
        setPayload(c, g.payload);
        break;
      }
      case Layout::kCount: break;
    }
    return g;
  }

 private:
  uint32_t word() { return static_cast<uint32_t>(rng_()); }
  uint32_t below(size_t n) { return static_cast<uint32_t>(rng_() % n); }
  bool chance(uint32_t oneIn) { return below(oneIn) == 0; }
  int32_t point() { return chance(3) ? -1 : chance(2) ? static_cast<int32_t>(below(5000000)) : static_cast<int32_t>(word()); }
  size_t textLength() { return chance(20) ? 100 + below(4000) : below(30); }

  // Letters, blanks (leading, trailing, doubled), markup characters, "]]>", control characters,
  // escapes and bytes from 0x80 up: everything a NUL-terminated text can hold.
  std::string randomText(size_t length) {
    static const char* const kPieces[] = {"a", "Z", "7", " ", "  ", "<", ">", "&", "\"", "'", "]]>", "\\", "/", "$",
                                          "\n", "\r", "\t", "\x01", "\x1F", "\x7F", "\x80", "\xE9", "\xFF", "&amp;",
                                          "&#x41;", "\\u0041", "{", "}", ",", ":"};
    std::string text;
    while (text.size() < length) text += kPieces[below(std::size(kPieces))];
    text.resize(length);
    return text;
  }
  static std::string withoutDollar(std::string s) {
    for (char& ch : s)
      if (ch == '$') ch = '_';
    return s;
  }
  static bool isSpecial(const MEDIACMD& c) {
    bool getSet = c.Cmd == ctGetValue || c.Cmd == ctSetValue || c.Cmd == ctValueSupported;
    if (c.CmdAlt == gsMetabaseFileName || c.CmdAlt == gsMetabaseGetTag) return true;
    if (!getSet) return false;
    for (uint32_t code : {gsChannelName, gsKlxType, gsIpVideoSettings, gsIpVideoClock, gsFrameData, gsPreviewFrame, gsMetadata})
      if (c.CmdAlt == code) return true;
    return false;
  }
  static void setPayload(MEDIACMD& c, const std::string& bytes) {
    std::memset(c.Payload, 0, sizeof c.Payload);
    std::memcpy(c.Payload, bytes.data(), std::min(bytes.size(), sizeof c.Payload));
  }
  std::mt19937 rng_;
};

// What each form carries, field by field (the format's own rules, stated independently).
MEDIACMD expectedAfterReading(const Generated& g, bool json) {
  const MEDIACMD& r = g.cmd;
  const uint32_t f = r.CtrlFlags;
  MEDIACMD e;
  initMediaCmd(&e, 0);
  e.prev = r.prev & 0xFFFFFFFF;
  e.next = r.next & 0xFFFFFFFF;
  e.list = r.list & 0xFFFFFFFF;
  e.CmdID = r.CmdID;
  e.StructSize = r.StructSize;
  e.Channel = r.Channel;
  // XML reads the command by name, and "Switch"/"Unknown" are not names it reads.
  e.Cmd = json || r.Cmd <= ctEdit ? r.Cmd : ctStop;
  const uint32_t carried = cfDeferred | cfLoop | cfTrigger | cfRipple | cfInvert | cfTest | cfNoReturn | cfUseAllIDs |
                           cfUseClipID | cfNoClipFiles | cfNoTCSpaces | cfUsePositionOffset | cfUsingCurrent |
                           cfUseFrameCount | cfFields;
  e.CtrlFlags = f & carried;
  if ((f & cfUseSpeed) || r.Cmd == ctPlay || r.Cmd == ctRecord || (f & cfIsShuttle)) {
    e.CtrlFlags |= cfUseSpeed | (f & cfIsShuttle);
    e.Speed = (f & cfUseSpeed) ? r.Speed : MEDIACMD_SPEED_NORMAL;
  }
  if (f & cfUsePresets) {
    e.CtrlFlags |= cfUsePresets;
    e.VideoChannels = r.VideoChannels, e.AudioChannels = r.AudioChannels, e.InfoChannels = r.InfoChannels;
  }
  if (f & (cfTimeMs | cfTimeTarget | cfTimeHouseClock | cfUseCmdAlt)) {
    e.CmdAlt = r.CmdAlt;
    e.CtrlFlags |= cfUseCmdAlt | (f & (cfTimeMs | cfTimeTarget | cfTimeHouseClock));
  }
  e.Position = r.Position;
  if (f & (cfUseStart | cfUseStartOffset)) {
    e.Start = r.Start;
    e.CtrlFlags |= (f & cfUseStartOffset) ? cfUseStartOffset : cfUseStart;
  }
  if (f & (cfUseEnd | cfUseEndOffset)) {
    e.End = r.End;
    e.CtrlFlags |= (f & cfUseEndOffset) ? cfUseEndOffset : cfUseEnd;
  }
  if (g.layout == Layout::kIpSettings) e.Start = r.Start, e.End = r.End, e.AudioChannels = r.AudioChannels;
  if (g.layout == Layout::kClipAndFile || g.layout == Layout::kMetabaseFile) std::memcpy(e.ClipID, r.ClipID, 8);
  std::memcpy(e.Payload, g.payload.data(), g.payload.size());
  return e;
}

std::string describeDifference(const MEDIACMD& want, const MEDIACMD& got) {
  std::ostringstream out;
#define FIELD(name) \
  if (want.name != got.name) out << #name << ": want " << want.name << " got " << got.name << "; ";
  FIELD(prev) FIELD(next) FIELD(list) FIELD(CmdID) FIELD(StructSize) FIELD(Channel) FIELD(Cmd)
  if (want.CtrlFlags != got.CtrlFlags) out << std::hex << "CtrlFlags: want 0x" << want.CtrlFlags << " got 0x" << got.CtrlFlags << std::dec << "; ";
  FIELD(Speed) FIELD(VideoChannels) FIELD(AudioChannels) FIELD(InfoChannels) FIELD(CmdAlt) FIELD(Position) FIELD(Start) FIELD(End)
#undef FIELD
  if (std::memcmp(want.ClipID, got.ClipID, sizeof want.ClipID)) out << "ClipID differs; ";
  for (size_t i = 0; i < sizeof want.Payload; ++i) {
    if (want.Payload[i] != got.Payload[i]) {
      out << "Payload differs from byte " << i << ": want " << int(uint8_t(want.Payload[i])) << " got " << int(uint8_t(got.Payload[i]));
      break;
    }
  }
  return out.str();
}

bool same(const MEDIACMD& a, const MEDIACMD& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

using mctest::jsonOf;
using mctest::xmlOf;

// Tokens jsmn needs for a text: the JSON reader is bounded to 100.
int tokensNeeded(const std::string& text) {
  jsmn_parser parser;
  jsmn_init(&parser);
  return jsmn_parse(&parser, text.c_str(), text.size(), nullptr, 0);
}

TEST(MediaCmdRoundTrip, RandomRecordsThroughBothForms) {
  Generator gen(20261122);
  const int kRecords = 3000;
  int jsonRead = 0, jsonTooLarge = 0;
  for (int i = 0; i < kRecords; ++i) {
    Generated g = gen.next();
    SCOPED_TRACE("record " + std::to_string(i) + " layout " + std::to_string(int(g.layout)) + " cmd " +
                 std::to_string(g.cmd.Cmd) + " tcType " + std::to_string(g.tcType));
    const std::string xml = xmlOf(g.cmd, g.tcType);
    const std::string json = jsonOf(g.cmd, g.tcType);

    MEDIACMD fromXml, fromJson;
    unsigned tcType = g.tcType;
    ASSERT_EQ(MediaCmdFromXMLString(&fromXml, &tcType, xml.c_str()), 0) << xml;
    MEDIACMD want = expectedAfterReading(g, false);
    ASSERT_TRUE(same(want, fromXml)) << describeDifference(want, fromXml) << "\n" << xml;

    // A record read from XML goes through XML again unchanged, provided the get/set code that
    // picks its payload layout travelled too (it does only with "usecmdalt" or a time flag).
    const bool layoutTravels =
        g.layout == Layout::kClipAndFile || (g.cmd.CtrlFlags & (cfTimeMs | cfTimeTarget | cfTimeHouseClock | cfUseCmdAlt));
    MEDIACMD again;
    ASSERT_EQ(MediaCmdFromXMLString(&again, &tcType, xmlOf(fromXml, g.tcType).c_str()), 0);
    if (layoutTravels) {
      ASSERT_TRUE(same(fromXml, again)) << describeDifference(fromXml, again);
    }

    qtest::LogCapture log;
    int result = MediaCmdFromJSONString(&fromJson, nullptr, json.c_str());
    if (tokensNeeded(json) > 100) {
      ++jsonTooLarge;
      ASSERT_EQ(result, -1);
      ASSERT_EQ(log.lines().size(), 1u);
      EXPECT_EQ(log.lines()[0].text, "Failed to parse JSON: -1\n");
      continue;
    }
    ++jsonRead;
    ASSERT_EQ(result, 0) << json;
    EXPECT_TRUE(log.lines().empty());
    want = expectedAfterReading(g, true);
    ASSERT_TRUE(same(want, fromJson)) << describeDifference(want, fromJson) << "\n" << json;

    // Both forms read back the same record (the command code aside, for codes XML does not name).
    MEDIACMD xmlSide = fromXml;
    xmlSide.Cmd = fromJson.Cmd;
    ASSERT_TRUE(same(xmlSide, fromJson)) << describeDifference(xmlSide, fromJson);

    // XML -> record -> JSON -> record.
    std::string jsonFromXml = jsonOf(fromXml, g.tcType);
    if (layoutTravels && tokensNeeded(jsonFromXml) <= 100) {
      ASSERT_EQ(MediaCmdFromJSONString(&again, nullptr, jsonFromXml.c_str()), 0);
      ASSERT_TRUE(same(fromXml, again)) << describeDifference(fromXml, again);
    }
  }
  // The generator must exercise the JSON reader, not only its size limit.
  EXPECT_GT(jsonRead, kRecords / 3);
  EXPECT_GT(jsonTooLarge, 0);
}

}  // namespace
