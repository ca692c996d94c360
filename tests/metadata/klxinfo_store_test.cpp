#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>

#include "fixtures.h"
#include "support/config_values.h"
#include "support/h16_text_files.h"

namespace {

using qtest::InfoRecord;
using qtest::StoreEnvironment;

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

// A key that is missing, empty or unreadable leaves the slot as the read rules say.
TEST(KlxInfoStore, MissingEmptyAndUnreadableKeys) {
  StoreEnvironment env;
  putText(ZR_CFG_SYSTEM, "Title", "");                // present but empty
  putDword(ZR_CFG_SYSTEM, "Reel", 5);                 // a number where text belongs
  putText(ZR_CFG_SYSTEM, "TagNumber", "not a number");  // text where a number belongs
  putDword(ZR_CFG_SYSTEM, "BlackPoint", 16);
  InfoRecord r;
  r.setText(kxtTitle, "kept title");
  r.setText(kxtReel, "kept reel");
  r.setText(kxtScene, "kept scene");  // no key at all
  r.rec.numeric[kxnTagNumber] = 42;
  r.rec.numeric[kxnWhitePoint] = 235;  // no key at all
  ASSERT_EQ(klxInfoReadRegSet(ZR_CFG_SYSTEM, &r.rec), 0);
  for (int slot : {kxtTitle, kxtReel, kxtScene}) EXPECT_EQ(r.text(slot).substr(0, 5), "kept ") << slot;
  EXPECT_EQ(r.rec.numeric[kxnTagNumber], 42u);
  EXPECT_EQ(r.rec.numeric[kxnWhitePoint], 235u);
  EXPECT_EQ(r.rec.numeric[kxnBlackPoint], 16u);
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

// A write to a user file that parses but would not survive its own round trip is stored, never
// reported done while refused. (That such a file is read as empty and set aside as ".bad" is
// ConfigStore.CorruptFilesAreReportedReadAsEmptyAndKeptAside; one file the XML gate refuses stands
// for all: the gate's reasons are XmlGuard's table, and the store takes every refused file alike.)
TEST(StoreFaithful, MetadataWriteToAnUnfaithfulUserFileIsStored) {
  StoreEnvironment env;
  qtest::writeText(env.userFile(), "<QuorvaneConfig>\xc5");  // ends inside a UTF-8 sequence
  qtest::LogCapture log;
  InfoRecord written;
  written.setText(kxtTitle, "Evening news");
  EXPECT_EQ(klxInfoWriteReg(&written.rec, 0, 1), 0);
  InfoRecord read;
  EXPECT_EQ(klxInfoReadReg(&read.rec, 0, 1), 0);
  EXPECT_EQ(read.text(kxtTitle), "Evening news");
}

}  // namespace
