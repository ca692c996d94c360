#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "klxinfo_record.h"
#include "metadata/klxinfo.h"
#include "platform/zrmemory.h"

namespace {

using qtest::InfoRecord;

std::string describe(uint32_t id, int* result) {
  char text[KLXINFO_DESC_TEXT_SIZE];
  memset(text, 'x', sizeof text);
  *result = klxInfoGetDescription(id, text);
  return text;
}

TEST(KlxInfoDescription, NamesAtRangeEdgesAndUnknownIds) {
  struct Case {
    uint32_t id;
    int result;
    const char* text;
  };
  const Case cases[] = {
      {0, 0, "FileName"},          {4, 0, "SourceLocator"},       {13, 0, "Comments"},
      {14, 0, "Owner"},            {47, 0, "URL"},                {48, 0, "EditData1"},
      {56, 0, "EditData9"},        {57, 0, "VersionString"},      {64, 0, "Reel"},
      {78, 0, "ProxyFile"},        {79, -1, "Unk(79) "},          {4095, -1, "Unk(4095) "},
      {4096, -1, "Unk(4096) "},    {4097, 0, "TimeCode"},         {4103, 0, "A-Frame"},
      {4108, 0, "VersionNumber"},  {4124, 0, "TimeCodeType"},     {4129, 0, "CustomMetadataBlockType"},
      {4130, -1, "Unk(4130) "},    {0xFFFF, -1, "Unk(65535) "},   {0x10000, 0, "Width"},
      {0x1000B, 0, "FccType"},     {0x10010, 0, "Language"},      {0x1001E, 0, "ResBrontal"},
      {0x10022, 0, "AudioBits"},   {0x10023, -1, "Unk(65571) "},  {0xFFFFFFFF, -1, "Unk(-1) "},
      {0x80000000, -1, "Unk(-2147483648) "},
  };
  for (const Case& c : cases) {
    int result = 99;
    EXPECT_EQ(describe(c.id, &result), c.text) << c.id;
    EXPECT_EQ(result, c.result) << c.id;
  }
}

// Every text identifier names the item one slot further on from DoNotUse, whose slot has none.
TEST(KlxInfoDescription, TextIdentifiersSkipDoNotUse) {
  std::set<std::string> seen;
  for (uint32_t id = 0; id < KLXINFO_DESC_TEXT_COUNT; ++id) {
    int result = -1;
    std::string name = describe(id, &result);
    ASSERT_EQ(result, 0) << id;
    EXPECT_NE(name, "DoNotUse");
    EXPECT_EQ(klxInfoFindItem(name.c_str()), id < 14 ? int(id) : int(id) + 1) << name;
    EXPECT_TRUE(seen.insert(name).second) << "duplicate " << name;
  }
  for (uint32_t id = KLXINFO_DESC_NUMERIC_BASE + 1; id <= KLXINFO_DESC_NUMERIC_LAST; ++id) {
    int result = -1;
    std::string name = describe(id, &result);
    ASSERT_EQ(result, 0) << id;
    EXPECT_EQ(klxInfoFindItem(name.c_str()), KLXINFO_NUMERIC_FLAG + int(id - KLXINFO_DESC_NUMERIC_BASE)) << name;
  }
}

// Exactly the documented ranges are known, and no answer overruns the 32-byte room (the
// buffer is a heap block of exactly that size, so the sanitizer sees any overrun).
TEST(KlxInfoDescription, KnownRangesAreExactAndFitTheRoom) {
  char* room = static_cast<char*>(malloc(KLXINFO_DESC_TEXT_SIZE));
  for (uint32_t id = 0; id < 0x10100; ++id) {
    bool known = id < 79 || (id >= 4097 && id <= 4129) || (id >= 0x10000 && id <= 0x10022);
    int result = klxInfoGetDescription(id, room);
    ASSERT_EQ(result, known ? 0 : -1) << id;
    if (!known) {
      ASSERT_EQ(std::string(room), "Unk(" + std::to_string(id) + ") ");
    }
    ASSERT_GT(strlen(room), 0u);
  }
  free(room);
}

TEST(KlxInfoDescription, CheckedFormRefusesShortBuffers) {
  char text[16];
  memset(text, '#', sizeof text);
  EXPECT_EQ(klxInfoGetDescriptionChecked(44, text, sizeof text), -1);  // SpecialPlaybackRequirements
  EXPECT_EQ(text[0], '#');
  EXPECT_EQ(klxInfoGetDescriptionChecked(8, text, 6), 0);  // "Title" and its terminator
  EXPECT_STREQ(text, "Title");
  EXPECT_EQ(klxInfoGetDescriptionChecked(8, text, 5), -1);
  EXPECT_EQ(klxInfoGetDescriptionChecked(8, nullptr, 64), -1);
}

TEST(KlxInfoItems, SlotTablesMatchTheRecord) {
  std::set<std::string> names;
  int storedText = 0, storedNumeric = 0;
  for (int slot = 0; slot < KLXINFO_TEXT_ITEMS; ++slot) {
    const KlxInfoItem& item = klxInfoTextItems[slot];
    if (slot == kxtUnnamed80) {
      EXPECT_EQ(item.name, nullptr);
      continue;
    }
    ASSERT_NE(item.name, nullptr) << slot;
    EXPECT_TRUE(names.insert(item.name).second) << item.name;
    storedText += item.stored;
  }
  for (int n = 87; n <= 99; ++n)
    EXPECT_EQ(klxInfoFindItem(("NotUsed_" + std::to_string(n)).c_str()), n - 1);
  EXPECT_EQ(storedText, 99 - 5 - 1 - 1);  // locators, VersionString, the unnamed slot
  EXPECT_FALSE(klxInfoTextItems[kxtVersionString].stored);
  EXPECT_TRUE(klxInfoTextItems[kxtDoNotUse].stored);
  for (int slot = 0; slot < KLXINFO_NUMERIC_ITEMS; ++slot) storedNumeric += klxInfoNumericItems[slot].stored;
  EXPECT_EQ(storedNumeric, 50 - 2);  // the unnamed slot 0 and VersionNumber
  EXPECT_EQ(klxInfoFindItem("FileSizeHi"), KLXINFO_NUMERIC_FLAG + 45);
  EXPECT_EQ(klxInfoFindItem("numericnotused_49"), KLXINFO_NUMERIC_FLAG + 49);
  EXPECT_EQ(klxInfoFindItem("tcp-ipaddress"), 3);
  EXPECT_EQ(klxInfoFindItem("NoSuchItem"), -1);
  EXPECT_EQ(klxInfoFindItem(""), -1);
  EXPECT_EQ(klxInfoFindItem(nullptr), -1);
}

TEST(KlxInfoDelete, ResetsToNothingSet) {
  InfoRecord r;
  for (int slot = 0; slot < KLXINFO_TEXT_ITEMS; slot += 7) r.setText(slot, "text " + std::to_string(slot));
  for (uint32_t& value : r.rec.numeric) value = 12345;
  r.rec.trailing = 5;
  ASSERT_EQ(klxInfoDelete(&r.rec), 0);
  for (char* text : r.rec.text) EXPECT_EQ(text, nullptr);
  const std::set<int> zeroed = {kxnUnnamed0, kxnTimeCode, kxnVITCTimeCode, kxnPosterFrame, kxnAFrame};
  for (int slot = 0; slot < KLXINFO_NUMERIC_ITEMS; ++slot)
    EXPECT_EQ(r.rec.numeric[slot], zeroed.count(slot) ? 0u : KLXINFO_NOT_SET) << klxInfoNumericItems[slot].name;
  EXPECT_EQ(r.rec.trailing, 0x7FFFFFFF);
  EXPECT_EQ(klxInfoDelete(nullptr), -1);
}

TEST(KlxInfoSet, MergesSlotByTheRules) {
  struct Case {
    int slot;
    const char* dst;  // null = absent
    const char* src;
    const char* expected;
  };
  const Case cases[] = {
      {kxtFileName, nullptr, "src.mov", "src.mov"},            // locators fill an empty slot...
      {kxtNativeLocator, "dst", "src", "dst"},                   // ...but never replace one
      {kxtUniversalLocator, "dst", nullptr, "dst"},
      {kxtTCPIPAddress, "10.0.0.1", "10.0.0.2", "10.0.0.2"},     // from here on src wins
      {kxtSourceLocator, nullptr, "tape 4", "tape 4"},
      {kxtTitle, "old", "new title", "new title"},
      {kxtDoNotUse, "a", "b", "b"},
      {kxtReel, "R1", nullptr, "R1"},                            // absent src keeps dst
      {kxtNotUsed_87 + 12, nullptr, "last", "last"},
      {kxtComments, "x", "", ""},                                 // an empty text is a text
  };
  InfoRecord dst, src;
  for (const Case& c : cases) {
    if (c.dst) dst.setText(c.slot, c.dst);
    if (c.src) src.setText(c.slot, c.src);
  }
  ASSERT_EQ(klxInfoSet(&dst.rec, &src.rec), 0);
  for (const Case& c : cases) {
    EXPECT_EQ(dst.text(c.slot), c.expected) << c.slot;
    if (src.rec.text[c.slot] && dst.rec.text[c.slot]) {
      EXPECT_NE(src.rec.text[c.slot], dst.rec.text[c.slot]);
    }
  }
}

TEST(KlxInfoSet, NumericsCopyOnlySetValues) {
  InfoRecord dst, src;
  for (int slot = 0; slot < KLXINFO_NUMERIC_ITEMS; ++slot) dst.rec.numeric[slot] = 1000 + slot;
  dst.rec.trailing = 7;
  for (int slot = 0; slot < KLXINFO_NUMERIC_ITEMS; ++slot) src.rec.numeric[slot] = slot % 3 ? 2000 + slot : KLXINFO_NOT_SET;
  src.rec.numeric[0] = 42;
  src.rec.trailing = 9;
  ASSERT_EQ(klxInfoSet(&dst.rec, &src.rec), 0);
  EXPECT_EQ(dst.rec.numeric[0], 1000u);  // slot 0 is not merged
  for (int slot = 1; slot < KLXINFO_NUMERIC_ITEMS; ++slot)
    EXPECT_EQ(dst.rec.numeric[slot], uint32_t(slot % 3 ? 2000 + slot : 1000 + slot)) << slot;
  EXPECT_EQ(dst.rec.trailing, 7);
  EXPECT_EQ(klxInfoSet(nullptr, &src.rec), -1);
  EXPECT_EQ(klxInfoSet(&dst.rec, nullptr), -1);
}

// Merging a record into itself must neither free nor reallocate anything (the sanitizer would
// report a use after free).
TEST(KlxInfoSet, IntoItselfChangesNothing) {
  InfoRecord r;
  for (int slot = 0; slot < KLXINFO_TEXT_ITEMS; slot += 3) r.setText(slot, "item " + std::to_string(slot));
  for (int slot = 0; slot < KLXINFO_NUMERIC_ITEMS; ++slot) r.rec.numeric[slot] = slot * 11;
  KLXINFOREC before = r.rec;
  ASSERT_EQ(klxInfoSet(&r.rec, &r.rec), 0);
  EXPECT_EQ(memcmp(&before, &r.rec, sizeof before), 0);
  for (int slot = 0; slot < KLXINFO_TEXT_ITEMS; slot += 3) EXPECT_EQ(r.text(slot), "item " + std::to_string(slot));
}

TEST(KlxInfoFindTcType, ReadsTheValueAfterOneSkippedCharacter) {
  struct Case {
    const char* text;
    uint32_t type;
  };
  const Case cases[] = {
      {nullptr, 0},
      {"", 0},
      {"no type here", 0},
      {"<clip TcType=\"film-drop\"/>", 128},
      {"TcType=film", 0},  // the first letter is taken for the delimiter
      {"TcType='film'", 1},
      {"TcType=\"FRAMES\"", 0},
      {"TcType=\"23.98\"", 132},
      {"TcType=\"Film\"", 1},
      {"TcType=\"PAL\"", 8},
      {"TcType=\"drop-frame\"", 4},
      {"TcType=\"non-drop-frame\"", 4},  // both name the drop-frame type
      {"TcType=\"50\"", 16},
      {"TcType=\"59.94\"", 32},
      {"TcType=\"60\"", 64},
      {"TcType=\"6\"", 0},
      {"TcType=\"30\"", 0},
      {"tctype=\"pal\"", 8},
      {"TCTYPE=\"pal\"", 8},
      {"tCtYpE=\"pal\"", 0},  // the marker itself is case-sensitive
      {"tctype=\"pal\" TcType=\"film\"", 1},  // "TcType=" is looked for first, wherever it is
      {"TcType=", 0},
      {"TcType=\"", 0},
      {"TcType = \"pal\"", 0},
  };
  for (const Case& c : cases) EXPECT_EQ(sklxInfoFindTcType(c.text), c.type) << (c.text ? c.text : "(null)");
}

TEST(KlxInfoXml, OtherRecordConversionsAreNotSupported) {
  EXPECT_EQ(XMLFromKLXSystem(nullptr, nullptr), 1);
  EXPECT_EQ(XMLFromKLXVideo(nullptr, nullptr), 1);
  EXPECT_EQ(XMLFromKLXAudio(nullptr, nullptr), 1);
  EXPECT_EQ(XMLFromKLXInfo(nullptr, nullptr), 1);
}

}  // namespace
