// The metadata record: item names and descriptions, merging and clearing, and the record kept in
// the configuration store and the user file.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "fixtures.h"
#include "support/config_values.h"

namespace {

using qtest::InfoRecord;
using qtest::StoreEnvironment;

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

// klxInfoSet against its rules on random records: every text slot present, absent or empty on
// either side, every number set or not.
TEST(KlxInfoSet, MergesTextsAndSetNumericsByTheRules) {
  std::mt19937 rng(815);
  for (int round = 0; round < 100; ++round) {
    InfoRecord dst, src;
    for (InfoRecord* r : {&dst, &src}) {
      for (int slot = 0; slot < KLXINFO_TEXT_ITEMS; ++slot)
        if (rng() % 3) r->setText(slot, rng() % 4 ? (r == &dst ? "dst " : "src ") + std::to_string(slot) : "");
      for (uint32_t& value : r->rec.numeric) value = rng() % 3 ? static_cast<uint32_t>(rng()) : KLXINFO_NOT_SET;
      r->rec.trailing = static_cast<int>(rng());
    }
    KLXINFOREC before = dst.rec;
    std::vector<std::string> texts(KLXINFO_TEXT_ITEMS);
    for (int slot = 0; slot < KLXINFO_TEXT_ITEMS; ++slot) texts[slot] = dst.text(slot);
    ASSERT_EQ(klxInfoSet(&dst.rec, &src.rec), 0);
    for (int slot = 0; slot < KLXINFO_TEXT_ITEMS; ++slot) {
      // The locators only fill an empty slot; from TCP-IPAddress on, a text of the source wins.
      const bool locator = slot <= kxtUniversalLocator;
      const bool fromSource = src.rec.text[slot] && (!locator || !before.text[slot]);
      EXPECT_EQ(dst.text(slot), fromSource ? src.text(slot) : texts[slot]) << slot;
      EXPECT_TRUE(!src.rec.text[slot] || src.rec.text[slot] != dst.rec.text[slot]) << "shared text " << slot;
    }
    EXPECT_EQ(dst.rec.numeric[0], before.numeric[0]);  // slot 0 is not merged
    for (int slot = 1; slot < KLXINFO_NUMERIC_ITEMS; ++slot)
      EXPECT_EQ(dst.rec.numeric[slot], src.rec.numeric[slot] != KLXINFO_NOT_SET ? src.rec.numeric[slot] : before.numeric[slot]) << slot;
    EXPECT_EQ(dst.rec.trailing, before.trailing);
  }
  InfoRecord r;
  r.setText(kxtTCPIPAddress, "10.0.0.2");
  EXPECT_EQ(klxInfoSet(nullptr, &r.rec), -1);
  EXPECT_EQ(klxInfoSet(&r.rec, nullptr), -1);
  // Into itself: nothing is freed or reallocated (the sanitizer would see a use after free).
  KLXINFOREC before = r.rec;
  ASSERT_EQ(klxInfoSet(&r.rec, &r.rec), 0);
  EXPECT_EQ(memcmp(&before, &r.rec, sizeof before), 0);
  EXPECT_EQ(r.text(kxtTCPIPAddress), "10.0.0.2");
}

TEST(KlxInfoFindTcType, ReadsTheValueAfterOneSkippedCharacter) {
  const std::pair<const char*, uint32_t> cases[] = {
      {nullptr, 0}, {"no type here", 0}, {"<clip TcType=\"film-drop\"/>", 128},
      {"TcType=film", 0},  // the first letter is taken for the delimiter
      {"TcType='film'", 1}, {"TcType=\"23.98\"", 132}, {"TcType=\"PAL\"", 8},
      {"TcType=\"drop-frame\"", 4}, {"TcType=\"non-drop-frame\"", 4},  // both name the drop-frame type
      {"TcType=\"50\"", 16}, {"TcType=\"59.94\"", 32}, {"TcType=\"60\"", 64}, {"TcType=\"6\"", 0},
      {"tctype=\"pal\"", 8}, {"TCTYPE=\"pal\"", 8},
      {"tCtYpE=\"pal\"", 0},  // the marker itself is case-sensitive
      {"tctype=\"pal\" TcType=\"film\"", 1},  // "TcType=" is looked for first, wherever it is
      {"TcType=", 0}, {"TcType=\"", 0}, {"TcType = \"pal\"", 0},
  };
  for (auto& [text, type] : cases) EXPECT_EQ(sklxInfoFindTcType(text), type) << (text ? text : "(null)");
  // The other record conversions are not supported.
  EXPECT_EQ(XMLFromKLXSystem(nullptr, nullptr) + XMLFromKLXVideo(nullptr, nullptr) + XMLFromKLXAudio(nullptr, nullptr) +
                XMLFromKLXInfo(nullptr, nullptr), 4);
}

// ---- The record in the configuration store ----

const char* kKey = KLXINFO_DEFAULT_KEY;

std::optional<std::string> storedText(ZRCFGHANDLE store, const char* name) { return qtest::getString(store, kKey, name); }
std::optional<uint32_t> storedDword(ZRCFGHANDLE store, const char* name) { return qtest::getDword(store, kKey, name); }
bool hasValue(ZRCFGHANDLE store, const char* name) { return zrCFGValueDword(store, kKey, name, nullptr, 0) == ZR_CFG_OK; }
void putText(ZRCFGHANDLE store, const char* name, const std::string& text) {
  ASSERT_EQ(qtest::setString(store, kKey, name, text), ZR_CFG_OK);
}
void putDword(ZRCFGHANDLE store, const char* name, uint32_t value) {
  ASSERT_EQ(qtest::setDword(store, kKey, name, value), ZR_CFG_OK);
}
// Makes (or adds to) UserMetadata.xml in the current directory.
void putUserText(const char* name, const std::string& text) {
  ZRCFGHANDLE user = zrCFGOpen(KLXINFO_USER_FILE);
  ASSERT_NE(user, ZR_CFG_INVALID);
  putText(user, name, text);
  ASSERT_EQ(zrCFGClose(user, 1), ZR_CFG_OK);
}

std::string randomText(std::mt19937& rng) {
  static const std::string pieces[] = {"a", "Z", " ", "  ", "\t", "\n", "\"", "'", "<", ">", "&", "%", "%41",
                                       "\\", "é", "✓", "0", "9", "=", "/"};
  std::string text;
  for (int n = 1 + rng() % 12; n > 0; --n) text += pieces[rng() % (sizeof pieces / sizeof pieces[0])];
  return text;
}

// Property: a random record written to the store and read into a record holding other values
// gives back every stored item that was set, keeps the reader's values where the writer had
// none (so the second round shows the first round's items deleted where now unset), and never
// touches the slots the store does not keep, nor writes them.
TEST(KlxInfoStore, WriteThenReadRoundTripsEveryStoredItem) {
  StoreEnvironment env;
  std::mt19937 rng(316);
  for (int round = 0; round < 2; ++round) {
    InfoRecord written, read;
    for (int slot = 0; slot < KLXINFO_TEXT_ITEMS; ++slot) {
      if (rng() % 3) written.setText(slot, randomText(rng));
      read.setText(slot, "prior " + std::to_string(slot));
    }
    for (int slot = 0; slot < KLXINFO_NUMERIC_ITEMS; ++slot) {
      written.rec.numeric[slot] = rng() % 3 ? static_cast<uint32_t>(rng()) : KLXINFO_NOT_SET;
      read.rec.numeric[slot] = 1000 + slot;
    }
    written.rec.numeric[kxnTimeCode] = 0;  // zero is a value like any other
    written.setText(kxtFileName, "/clips/never-stored.mov");
    written.setText(kxtVersionString, "9.9");
    written.rec.numeric[kxnVersionNumber] = 77;
    ASSERT_EQ(klxInfoWriteRegSet(ZR_CFG_SYSTEM, &written.rec), 0);
    for (const char* never : {"FileName", "VersionString", "VersionNumber"})
      EXPECT_FALSE(hasValue(ZR_CFG_SYSTEM, never)) << never;  // never-stored items are never written
    ASSERT_EQ(klxInfoReadRegSet(ZR_CFG_SYSTEM, &read.rec), 0);

    for (int slot = 0; slot < KLXINFO_TEXT_ITEMS; ++slot) {
      SCOPED_TRACE("text slot " + std::to_string(slot));
      if (slot == kxtVersionString) {
        EXPECT_EQ(read.text(slot), "8.0.0.216");
      } else if (!klxInfoTextItems[slot].stored || !written.rec.text[slot]) {
        EXPECT_EQ(read.text(slot), "prior " + std::to_string(slot));
      } else {
        EXPECT_EQ(read.text(slot), written.text(slot));
      }
    }
    for (int slot = 0; slot < KLXINFO_NUMERIC_ITEMS; ++slot) {
      bool carried = klxInfoNumericItems[slot].stored && written.rec.numeric[slot] != KLXINFO_NOT_SET;
      EXPECT_EQ(read.rec.numeric[slot], carried ? written.rec.numeric[slot] : 1000u + slot) << "numeric slot " << slot;
    }
  }
}

// One item at a time: only its key changes, whatever the rest of the record holds.
TEST(KlxInfoStore, WriteItemTouchesOnlyThatKey) {
  StoreEnvironment env;
  putText(ZR_CFG_SYSTEM, "Reel", "R9");
  putDword(ZR_CFG_SYSTEM, "Flags", 5);
  InfoRecord r;  // TimeCode 0, Reel absent, Flags unset: none of it may leak into the store
  r.setText(kxtTitle, "one item");
  const std::pair<int, int> cases[] = {
      {kxtTitle, 0}, {KLXINFO_NUMERIC_FLAG + kxnUserBits, 0},  // unset: deletes a key that is not there
      {kxtFileName, -1},  // never stored
      {kxtVersionString, -1}, {KLXINFO_NUMERIC_FLAG + kxnVersionNumber, -1},
      {KLXINFO_NUMERIC_FLAG + KLXINFO_NUMERIC_ITEMS, -1}, {KLXINFO_TEXT_ITEMS, -1}, {-1, -1},
  };
  for (auto& [item, result] : cases) EXPECT_EQ(klxInfoWriteRegItem(ZR_CFG_SYSTEM, &r.rec, item), result) << item;
  EXPECT_EQ(storedText(ZR_CFG_SYSTEM, "Title"), "one item");
  EXPECT_EQ(storedText(ZR_CFG_SYSTEM, "Reel"), "R9");
  EXPECT_EQ(storedDword(ZR_CFG_SYSTEM, "Flags"), 5u);
  EXPECT_FALSE(hasValue(ZR_CFG_SYSTEM, "TimeCode") || hasValue(ZR_CFG_SYSTEM, "FileName"));
  EXPECT_EQ(klxInfoWriteRegItem(ZR_CFG_SYSTEM, nullptr, kxtTitle), -1);
  r.setText(kxtReel, "");  // an empty text is still a text
  ASSERT_EQ(klxInfoWriteRegItem(ZR_CFG_SYSTEM, &r.rec, kxtReel), 0);
  EXPECT_EQ(storedText(ZR_CFG_SYSTEM, "Reel"), "");
  ZRFree(r.rec.text[kxtReel]);
  r.rec.text[kxtReel] = nullptr;
  ASSERT_EQ(klxInfoWriteRegItem(ZR_CFG_SYSTEM, &r.rec, kxtReel), 0);
  EXPECT_FALSE(hasValue(ZR_CFG_SYSTEM, "Reel"));
}

// A key that is empty or unreadable leaves the slot as it was (a missing key does too: the
// round trip above reads its unset items into a record holding other values).
TEST(KlxInfoStore, EmptyAndUnreadableKeys) {
  StoreEnvironment env;
  putText(ZR_CFG_SYSTEM, "Title", "");                // present but empty
  putDword(ZR_CFG_SYSTEM, "Reel", 5);                 // a number where text belongs
  putText(ZR_CFG_SYSTEM, "TagNumber", "not a number");  // text where a number belongs
  InfoRecord r;
  r.setText(kxtTitle, "kept title");
  r.setText(kxtReel, "kept reel");
  r.rec.numeric[kxnTagNumber] = 42;
  ASSERT_EQ(klxInfoReadRegSet(ZR_CFG_SYSTEM, &r.rec), 0);
  EXPECT_EQ(r.text(kxtTitle), "kept title");
  EXPECT_EQ(r.text(kxtReel), "kept reel");
  EXPECT_EQ(r.rec.numeric[kxnTagNumber], 42u);
}

// The first read of a store without the switch value writes the record's items as defaults
// instead of reading; once the switch exists, reads read.
TEST(KlxInfoStore, FirstReadSeedsTheSystemStore) {
  StoreEnvironment env;
  putText(ZR_CFG_SYSTEM, "Title", "already there");
  InfoRecord r;
  r.setText(kxtTitle, "seed title");
  r.rec.numeric[kxnFlags] = 3;
  ASSERT_EQ(klxInfoReadReg(&r.rec, 1, 0), 0);
  EXPECT_EQ(r.text(kxtTitle), "seed title");
  EXPECT_EQ(r.text(kxtVersionString), "<null>");  // nothing was read
  EXPECT_EQ(storedText(ZR_CFG_SYSTEM, "Title"), "seed title");
  EXPECT_EQ(storedDword(ZR_CFG_SYSTEM, "Flags"), 3u);

  qtest::enableStoreReading();
  putText(ZR_CFG_SYSTEM, "Title", "from the store");
  ASSERT_EQ(klxInfoReadReg(&r.rec, 1, 0), 0);
  EXPECT_EQ(r.text(kxtTitle), "from the store");
  EXPECT_EQ(r.text(kxtVersionString), "8.0.0.216");
}

TEST(KlxInfoStore, UserFileOverridesTheSystemStore) {
  const struct { const char* label; bool userFile, fromSystem, fromUser; const char *title, *reel; } cases[] = {
      {"both, user file present", true, true, true, "user title", "system reel"},
      {"both, no user file", false, true, true, "system title", "system reel"},
      {"user file only", true, false, true, "user title", "reader reel"},
      {"system only", true, true, false, "system title", "system reel"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    StoreEnvironment env;
    qtest::enableStoreReading();
    putText(ZR_CFG_SYSTEM, "Title", "system title");
    putText(ZR_CFG_SYSTEM, "Reel", "system reel");
    if (c.userFile) putUserText("Title", "user title");
    InfoRecord r;
    r.setText(kxtTitle, "reader title");
    r.setText(kxtReel, "reader reel");
    ASSERT_EQ(klxInfoReadReg(&r.rec, c.fromSystem, c.fromUser), 0);
    EXPECT_EQ(r.text(kxtTitle), c.title);
    EXPECT_EQ(r.text(kxtReel), c.reel);
  }
}

TEST(KlxInfoStore, WritingNeverCreatesTheUserFile) {
  StoreEnvironment env;
  InfoRecord r;
  r.setText(kxtTitle, "only in the system store");
  ASSERT_EQ(klxInfoWriteReg(&r.rec, 1, 1), 0);
  EXPECT_FALSE(std::filesystem::exists(env.userFile()));
  EXPECT_EQ(storedText(ZR_CFG_SYSTEM, "Title"), "only in the system store");

  putUserText("Comments", "made by hand");
  r.setText(kxtTitle, "into both");
  ASSERT_EQ(klxInfoWriteReg(&r.rec, 0, 1), 0);
  qtest::Store user(KLXINFO_USER_FILE);
  EXPECT_EQ(storedText(user.handle, "Title"), "into both");
  EXPECT_FALSE(hasValue(user.handle, "Comments"));  // the record had none: the whole set is written
  EXPECT_EQ(storedText(ZR_CFG_SYSTEM, "Title"), "only in the system store");
}

}  // namespace
