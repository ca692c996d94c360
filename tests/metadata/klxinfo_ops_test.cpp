#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "fixtures.h"

namespace {

using qtest::InfoRecord;

// Every identifier up to 0x10100, into a heap block of exactly the documented room (so the
// sanitizer sees any overrun): exactly the documented ranges are named, the rest get "Unk(id) ",
// and each name leads back through klxInfoFindItem to its slot, text ids skipping DoNotUse.
TEST(KlxInfoDescription, EveryIdentifierIsNamedOrUnknownAndFitsTheRoom) {
  char* room = static_cast<char*>(malloc(KLXINFO_DESC_TEXT_SIZE));
  std::set<std::string> textNames;
  for (uint32_t id = 0; id < 0x10100; ++id) {
    bool text = id < 79, numeric = id >= 4097 && id <= 4129, known = text || numeric || (id >= 0x10000 && id <= 0x10022);
    ASSERT_EQ(klxInfoGetDescription(id, room), known ? 0 : -1) << id;
    std::string name = room;
    ASSERT_TRUE(known || name == "Unk(" + std::to_string(id) + ") ") << name;
    if (text) {
      EXPECT_EQ(klxInfoFindItem(room), id < 14 ? int(id) : int(id) + 1) << name;
      EXPECT_TRUE(textNames.insert(name).second) << "duplicate " << name;
    }
    EXPECT_TRUE(!numeric || klxInfoFindItem(room) == KLXINFO_NUMERIC_FLAG + int(id - KLXINFO_DESC_NUMERIC_BASE)) << name;
  }
  free(room);
  EXPECT_EQ(textNames.count("DoNotUse"), 0u);
  const struct { uint32_t id; const char* text; } cases[] = {
      {0, "FileName"}, {13, "Comments"}, {14, "Owner"}, {78, "ProxyFile"}, {4097, "TimeCode"}, {4124, "TimeCodeType"},
      {4129, "CustomMetadataBlockType"}, {0x10000, "Width"}, {0x1001E, "ResBrontal"}, {0x10022, "AudioBits"},
      {0xFFFFFFFF, "Unk(-1) "}, {0x80000000, "Unk(-2147483648) "},  // the id is printed signed
  };
  for (const auto& c : cases) {
    char text[KLXINFO_DESC_TEXT_SIZE];
    klxInfoGetDescription(c.id, text);
    EXPECT_STREQ(text, c.text) << c.id;
  }
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

// Which slots the store keeps, counted by hand, and name lookups (any case).
TEST(KlxInfoItems, StoredSlotsAndLookups) {
  int storedText = 0, storedNumeric = 0;
  for (int slot = 0; slot < KLXINFO_TEXT_ITEMS; ++slot) {
    EXPECT_EQ(klxInfoTextItems[slot].name == nullptr, slot == kxtUnnamed80) << slot;
    storedText += klxInfoTextItems[slot].stored;
  }
  for (int slot = 0; slot < KLXINFO_NUMERIC_ITEMS; ++slot) storedNumeric += klxInfoNumericItems[slot].stored;
  EXPECT_EQ(storedText, 99 - 5 - 1 - 1);  // locators, VersionString, the unnamed slot
  EXPECT_FALSE(klxInfoTextItems[kxtVersionString].stored);
  EXPECT_TRUE(klxInfoTextItems[kxtDoNotUse].stored);
  EXPECT_EQ(storedNumeric, 50 - 2);  // the unnamed slot 0 and VersionNumber
  for (int n = 87; n <= 99; ++n) EXPECT_EQ(klxInfoFindItem(("NotUsed_" + std::to_string(n)).c_str()), n - 1);
  const std::pair<const char*, int> lookups[] = {
      {"FileSizeHi", KLXINFO_NUMERIC_FLAG + 45}, {"numericnotused_49", KLXINFO_NUMERIC_FLAG + 49},
      {"tcp-ipaddress", 3}, {"NoSuchItem", -1}, {"", -1}, {nullptr, -1}};
  for (auto& [name, item] : lookups) EXPECT_EQ(klxInfoFindItem(name), item) << (name ? name : "(null)");
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

TEST(KlxInfoSet, MergesTextsAndSetNumericsByTheRules) {
  const struct {
    int slot;
    const char *dst, *src, *expected;  // null = absent
  } cases[] = {
      {kxtFileName, nullptr, "src.mov", "src.mov"},  // locators fill an empty slot...
      {kxtNativeLocator, "dst", "src", "dst"},  // ...but never replace one
      {kxtUniversalLocator, "dst", nullptr, "dst"}, {kxtTCPIPAddress, "10.0.0.1", "10.0.0.2", "10.0.0.2"},  // from here on src wins
      {kxtSourceLocator, nullptr, "tape 4", "tape 4"}, {kxtDoNotUse, "a", "b", "b"},
      {kxtReel, "R1", nullptr, "R1"},  // absent src keeps dst
      {kxtNotUsed_87 + 12, nullptr, "last", "last"}, {kxtComments, "x", "", ""},  // an empty text is a text
  };
  InfoRecord dst, src;
  for (const auto& c : cases) {
    if (c.dst) dst.setText(c.slot, c.dst);
    if (c.src) src.setText(c.slot, c.src);
  }
  for (int slot = 0; slot < KLXINFO_NUMERIC_ITEMS; ++slot) {
    dst.rec.numeric[slot] = 1000 + slot;
    src.rec.numeric[slot] = slot % 3 ? 2000 + slot : KLXINFO_NOT_SET;
  }
  src.rec.numeric[0] = 42;
  dst.rec.trailing = 7, src.rec.trailing = 9;
  ASSERT_EQ(klxInfoSet(&dst.rec, &src.rec), 0);
  for (const auto& c : cases) {
    EXPECT_EQ(dst.text(c.slot), c.expected) << c.slot;
    EXPECT_TRUE(!src.rec.text[c.slot] || src.rec.text[c.slot] != dst.rec.text[c.slot]) << "shared text " << c.slot;
  }
  EXPECT_EQ(dst.rec.numeric[0], 1000u);  // slot 0 is not merged
  for (int slot = 1; slot < KLXINFO_NUMERIC_ITEMS; ++slot)
    EXPECT_EQ(dst.rec.numeric[slot], uint32_t(slot % 3 ? 2000 + slot : 1000 + slot)) << slot;
  EXPECT_EQ(dst.rec.trailing, 7);
  EXPECT_EQ(klxInfoSet(nullptr, &src.rec), -1);
  EXPECT_EQ(klxInfoSet(&dst.rec, nullptr), -1);

  // Into itself: nothing is freed or reallocated (the sanitizer would see a use after free).
  KLXINFOREC before = dst.rec;
  ASSERT_EQ(klxInfoSet(&dst.rec, &dst.rec), 0);
  EXPECT_EQ(memcmp(&before, &dst.rec, sizeof before), 0);
  EXPECT_EQ(dst.text(kxtTCPIPAddress), "10.0.0.2");
}

TEST(KlxInfoFindTcType, ReadsTheValueAfterOneSkippedCharacter) {
  const std::pair<const char*, uint32_t> cases[] = {
      {nullptr, 0}, {"", 0}, {"no type here", 0}, {"<clip TcType=\"film-drop\"/>", 128},
      {"TcType=film", 0},  // the first letter is taken for the delimiter
      {"TcType='film'", 1}, {"TcType=\"FRAMES\"", 0}, {"TcType=\"23.98\"", 132}, {"TcType=\"PAL\"", 8},
      {"TcType=\"drop-frame\"", 4}, {"TcType=\"non-drop-frame\"", 4},  // both name the drop-frame type
      {"TcType=\"50\"", 16}, {"TcType=\"59.94\"", 32}, {"TcType=\"60\"", 64}, {"TcType=\"6\"", 0},
      {"TcType=\"30\"", 0}, {"tctype=\"pal\"", 8}, {"TCTYPE=\"pal\"", 8},
      {"tCtYpE=\"pal\"", 0},  // the marker itself is case-sensitive
      {"tctype=\"pal\" TcType=\"film\"", 1},  // "TcType=" is looked for first, wherever it is
      {"TcType=", 0}, {"TcType=\"", 0}, {"TcType = \"pal\"", 0},
  };
  for (auto& [text, type] : cases) EXPECT_EQ(sklxInfoFindTcType(text), type) << (text ? text : "(null)");
  // The other record conversions are not supported.
  EXPECT_EQ(XMLFromKLXSystem(nullptr, nullptr) + XMLFromKLXVideo(nullptr, nullptr) + XMLFromKLXAudio(nullptr, nullptr) +
                XMLFromKLXInfo(nullptr, nullptr), 4);
}

}  // namespace
