// quorvane config: what the command writes the library reads, and the other way round.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/zrcfg.h"
#include "support/config_values.h"
#include "support/test_support.h"

namespace {

using qtest::runTool;
using qtest::shellQuote;

TEST(ConfigCli, SetGetDeleteThroughTheCommandMatchTheLibrary) {
  qtest::TempDir dir;
  const std::string store = dir.file("UserMetadata.xml");
  const std::string file = "--file " + shellQuote(store) + " ";
  struct Case {
    std::string args;
    int exitCode;
    std::string out;  // exact stdout
    std::string err;  // exact stderr
  };
  const Case cases[] = {
      {"set --dword 'Quorvane\\MetaData' XMLDisable 0x10", 0, "", ""},
      {"get 'quorvane\\METADATA' xmldisable", 0, "16\n", ""},
      {"set 'Quorvane\\MetaData\\Default' Title 'Reel \"one\"'", 0, "", ""},
      {"get 'Quorvane\\MetaData\\Default' Title", 0, "Reel \"one\"\n", ""},
      {"get --json 'Quorvane\\MetaData\\Default' Title", 0,
       "{\"store\":\"" + store + "\",\"key\":\"Quorvane\\\\MetaData\\\\Default\",\"name\":\"Title\",\"type\":\"string\",\"value\":\"Reel \\\"one\\\"\"}\n", ""},
      {"set 'Quorvane\\MetaData\\Default' Reel -- --dash", 0, "", ""},
      {"list 'Quorvane\\MetaData'", 0, "[Quorvane\\MetaData]\n\"XMLDisable\"=dword:16\nDefault\\\n", ""},
      {"list --json 'Quorvane\\MetaData'", 0,
       "{\"store\":\"" + store + "\",\"key\":\"Quorvane\\\\MetaData\",\"values\":[{\"name\":\"XMLDisable\",\"type\":\"dword\",\"value\":16}],\"keys\":[{\"name\":\"Default\"}]}\n", ""},
      {"list --recursive", 0,
       "[\\]\n\n[Quorvane]\n\n[Quorvane\\MetaData]\n\"XMLDisable\"=dword:16\n\n[Quorvane\\MetaData\\Default]\n"
       "\"Title\"=\"Reel \\\"one\\\"\"\n\"Reel\"=\"--dash\"\n", ""},
      {"delete 'Quorvane\\MetaData' XMLDisable", 0, "", ""},
      {"delete 'Quorvane\\MetaData' XMLDisable", 1, "", "quorvane config: no value 'XMLDisable' under 'Quorvane\\MetaData' in " + store + "\n"},
      {"list Nowhere", 1, "", "quorvane config: no key 'Nowhere' in " + store + "\n"},
      {"set --dword K V 4294967296", 2, "", "quorvane config: '4294967296' is not a 32-bit number\n"},
      {"set K V", 2, "", "quorvane config: set takes KEYPATH NAME VALUE (see --help)\n"},
      {"get --dword K V", 2, "", "quorvane config: --dword goes with set\n"},
      {"frob", 2, "", "quorvane config: unknown action 'frob' (get, set, delete, list, path)\n"},
      {"path", 0, store + "\n", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args);
    const auto r = runTool("config " + file + c.args);
    EXPECT_EQ(r.exitCode, c.exitCode);
    EXPECT_EQ(r.out, c.out);
    EXPECT_EQ(r.err, c.err);
  }
  // The library reads what the command wrote.
  qtest::Store s(store);
  EXPECT_EQ(qtest::getString(s.handle, "Quorvane\\MetaData\\Default", "Title"), "Reel \"one\"");
  EXPECT_EQ(zrCFGValueDword(s.handle, "Quorvane\\MetaData", "XMLDisable", nullptr, 0), ZR_CFG_NOT_FOUND);
}

TEST(ConfigCli, UsesTheSystemStoreNamedByTheEnvironment) {
  qtest::TempDir dir;
  const std::string store = dir.file("system.xml");
  const std::string env = "QUORVANE_CONFIG=" + shellQuote(store) + " ";
  auto r = qtest::runCommand(env + shellQuote(QUORVANE_TOOL) + " config set --dword 'Quorvane\\Advanced' ForceVideoRangeMatrix 1");
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(qtest::getDword(qtest::Store(store).handle, "Quorvane\\Advanced", "ForceVideoRangeMatrix"), 1u);
}

// A file that is not a store, or not there, is refused and left exactly as it was.
TEST(ConfigCli, RefusesFilesThatAreNotStores) {
  qtest::TempDir dir;
  const std::string play = dir.file("play.xml");
  const std::string playText = "<?xml version=\"1.0\" ?><MediaCmd><Channel Value=\"1\" /></MediaCmd>\n";
  qtest::writeBytes(play, {playText.begin(), playText.end()});
  const struct { std::string args; std::string err; } cases[] = {
      {"set --file " + shellQuote(play) + " K V x",
       "quorvane config: cannot use '" + play + "': Configuration store \"" + play +
           "\" is refused: it is not a configuration store\n"},
      {"list --file " + shellQuote(dir.file("typo.xml")), "quorvane config: no store file '" + dir.file("typo.xml") + "'\n"},
      {"set --file " + shellQuote(dir.file("no/such/dir.xml")) + " K V x",
       "quorvane config: cannot use '" + dir.file("no/such/dir.xml") + "': not a file in an existing directory\n"},
  };
  for (const auto& c : cases) {
    const auto r = runTool("config " + c.args);
    EXPECT_EQ(r.exitCode, 1) << c.args;
    EXPECT_EQ(r.err, c.err) << c.args;
  }
  EXPECT_EQ(qtest::readBytes(play), std::vector<uint8_t>(playText.begin(), playText.end()));
  EXPECT_FALSE(std::filesystem::exists(play + ".bad"));
  EXPECT_FALSE(std::filesystem::exists(dir.file("typo.xml")));
}

}  // namespace

namespace {

// zrCFGOpenEx: which files each condition refuses; a refused file is never written.
TEST(ConfigOpenEx, RefusesWhatTheCallerDidNotMeanAsAStore) {
  qtest::TempDir dir;
  const struct {
    const char* name;
    const char* contents;  // null: no file
    bool existing, storeOnly;  // opens with ZR_CFG_OPEN_EXISTING / ZR_CFG_OPEN_STORE_ONLY
  } kCases[] = {
      {"missing.xml", nullptr, false, true}, {"blank.xml", " \n", true, true},
      {"store.xml", "<?xml version=\"1.0\" ?>\n<QuorvaneConfig />\n", true, true},
      {"command.xml", "<MediaCmd><Channel Value=\"1\" /></MediaCmd>", true, false},
      {"notes.txt", "some notes\n", true, false}, {"truncated.xml", "<QuorvaneConfig><Key name=\"K\">", true, false},
  };
  for (const auto& c : kCases) {
    const std::string path = dir.file(c.name);
    if (c.contents) qtest::writeBytes(path, {c.contents, c.contents + std::strlen(c.contents)});
    const std::pair<uint32_t, bool> kFlags[] = {
        {0, true}, {ZR_CFG_OPEN_EXISTING, c.existing}, {ZR_CFG_OPEN_STORE_ONLY, c.storeOnly}};
    for (const auto& [flags, opens] : kFlags) {
      const ZRCFGHANDLE h = zrCFGOpenEx(path.c_str(), flags);
      EXPECT_EQ(h != ZR_CFG_INVALID, opens) << c.name << " flags " << flags;
      if (h != ZR_CFG_INVALID) zrCFGClose(h, 0);
    }
    if (c.contents) {
      EXPECT_EQ(qtest::readBytes(path), std::vector<uint8_t>(c.contents, c.contents + std::strlen(c.contents))) << c.name;
    }
  }
  EXPECT_EQ(zrCFGOpenEx(dir.file("store.xml").c_str(), 4), ZR_CFG_INVALID);  // unknown flag
}

}  // namespace
