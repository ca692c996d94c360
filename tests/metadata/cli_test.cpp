// The quorvane meta and project commands, run as separate processes against the library and
// the configuration store.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "fixtures.h"
#include "metadata/zrprojecttoxml.h"

namespace {

namespace fs = std::filesystem;
using qtest::InfoRecord;
using qtest::runTool;
using qtest::shellQuote;
using qtest::StoreEnvironment;

// Outputs of the actions that need no stored item, and every refusal: one line, nothing on stdout.
TEST(MetaCommand, OutputsAndOneLineRefusals) {
  StoreEnvironment env;
  const std::string types = "frames, 23.98, 24, 25, 29.97, 29.97df, 30, 50, 59.94, 59.94df, 60";
  const struct { std::string args; int exitCode; std::string out, err; } cases[] = {
      {"meta describe 13 14 4096 4129 0x10022 --json", 0,
       "[{\"id\":13,\"name\":\"Comments\"},{\"id\":14,\"name\":\"Owner\"},{\"id\":4096,\"name\":null},"
       "{\"id\":4129,\"name\":\"CustomMetadataBlockType\"},{\"id\":65570,\"name\":\"AudioBits\"}]\n", ""},
      // The text forms' attribute keeps its word ("59.94" is type 32 there); a name is printed back.
      {"meta tctype " + shellQuote("<clip TcType=\"59.94\"/>"), 0, "59.94df (32)\n", ""},
      {"meta tctype pal", 0, "25 (8)\n", ""},
      {"meta tctype --json 30000/1001", 0, "{\"name\":\"29.97\",\"tcType\":2}\n", ""},
      {"meta", 2, "", "quorvane meta: missing action (list, get, set, delete, describe, tctype); see --help\n"},
      {"meta get NoSuchItem", 2, "", "quorvane meta: unknown item 'NoSuchItem'\n"},
      {"meta set Flags 01:00:00:00", 2, "", "quorvane meta: bad value '01:00:00:00' for Flags: a number\n"},
      {"meta set TimeCode 00:01:00:00 --tc-type 29.97df", 2, "",
       "quorvane meta: bad value '00:01:00:00' for TimeCode: '00:01:00:00' is not a valid 29.97df timecode\n"},
      {"meta set TimeCodeType weird", 2, "",
       "quorvane meta: bad value 'weird' for TimeCodeType: a number or a timecode type: " + types + "\n"},
      {"meta tctype weird", 1, "", "quorvane meta: 'weird' names no timecode type (" + types + ")\n"},
      {"meta set VersionString 1.0", 2, "", "quorvane meta: VersionString is not kept in the store\n"},
      {"meta get --user Title", 1, "", "quorvane meta: no UserMetadata.xml in the current directory\n"},
      {"meta get --user --system Title", 2, "", "quorvane meta: --user and --system exclude each other\n"},
      {"meta set Title", 2, "", "quorvane meta: bad arguments for 'set'; see --help\n"},
      {"meta describe zz", 2, "", "quorvane meta: bad identifier 'zz'\n"},
  };
  for (const auto& c : cases) {
    auto r = runTool(c.args);
    EXPECT_EQ(r.exitCode, c.exitCode) << c.args;
    EXPECT_EQ(r.out, c.out) << c.args;
    EXPECT_EQ(r.err, c.err) << c.args;
  }
}

TEST(MetaCommand, SetByTheToolIsReadByTheLibraryAndBack) {
  StoreEnvironment env;
  qtest::enableStoreReading();
  const struct { std::string args; int exitCode; std::string out; } steps[] = {
      {"meta set Title " + shellQuote("Night shoot \"B\" & more"), 0, ""},
      {"meta set timecodetype drop-frame", 0, ""}, {"meta set TimeCode 01:00:00\\;00", 0, ""},  // counted in the stored type
      {"meta get Title", 0, "Night shoot \"B\" & more\n"}, {"meta get TimeCodeType", 0, "4\n"},
      {"meta get --json TimeCode", 0, "{\"name\":\"TimeCode\",\"value\":107892}\n"},
  };
  for (const auto& s : steps) {
    auto r = runTool(s.args);
    EXPECT_EQ(r.exitCode, s.exitCode) << s.args << ": " << r.err;
    EXPECT_EQ(r.out, s.out) << s.args;
  }
  InfoRecord rec;
  ASSERT_EQ(klxInfoReadReg(&rec.rec, 1, 0), 0);
  EXPECT_EQ(rec.text(kxtTitle), "Night shoot \"B\" & more");
  EXPECT_EQ(rec.rec.numeric[kxnTimeCodeType], 4u);
  EXPECT_EQ(rec.rec.numeric[kxnTimeCode], 107892u);

  rec.setText(kxtReel, "A007");
  ASSERT_EQ(klxInfoWriteReg(&rec.rec, 1, 0), 0);
  EXPECT_EQ(runTool("meta get reel").out, "A007\n");
  EXPECT_EQ(runTool("meta delete Reel").exitCode, 0);
  auto r = runTool("meta get Reel");
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "quorvane meta: Reel is not set\n");
}

TEST(MetaCommand, UserFileViews) {
  StoreEnvironment env;
  ASSERT_EQ(runTool("meta set Title system-title").exitCode, 0);
  EXPECT_FALSE(fs::exists(env.userFile()));
  ASSERT_EQ(runTool("meta set --user Title user-title").exitCode, 0);
  EXPECT_TRUE(fs::exists(env.userFile()));
  // Which store each view reads; how the user file overrides the system store item by item is
  // KlxInfoStore.UserFileOverridesTheSystemStore.
  const struct { const char* args; const char* out; } views[] = {
      {"meta get Title", "user-title\n"}, {"meta get --system Title", "system-title\n"},
      {"meta get --user Title", "user-title\n"},
  };
  for (const auto& v : views) EXPECT_EQ(runTool(v.args).out, v.out) << v.args;
  auto r = runTool("meta list --json");
  EXPECT_NE(r.out.find("{\"name\":\"Title\",\"id\":8,\"kind\":\"text\",\"value\":\"user-title\"}"), std::string::npos)
      << r.out;
  r = runTool("meta list");
  EXPECT_NE(r.out.find("     8  Title                        user-title\n"), std::string::npos) << r.out;
}

TEST(ProjectCommand, CreateShowAndRecreateElsewhere) {
  qtest::TempDir a, b;
  qtest::writeBytes(a.file("clips.txt"), {'c', '1', '\n', 'c', '2', '\n'});
  qtest::writeBytes(a.file("cut.edl"), {'e', 'd', 'l', '\n'});
  auto r = runTool("project create --clip " + shellQuote(a.file("clips.txt")) + " --edl " + shellQuote(a.file("cut.edl")) +
                   " --set Mode=fast --set Channels=8 " + shellQuote(a.file("p.xml")));
  ASSERT_EQ(r.exitCode, 0) << r.err;

  // The library reads what the tool wrote.
  CZRProjectToXML project;
  ASSERT_TRUE(project.LoadXMLFile(a.file("p.xml").c_str()));
  EXPECT_EQ(project.GetConfigDWORD("Channels"), 8u);

  fs::copy_file(a.file("p.xml"), b.file("p.xml"));
  fs::remove(a.file("clips.txt"));
  fs::remove(a.file("cut.edl"));
  // show only reads: the missing files are reported, not recreated.
  r = runTool("project show --json " + shellQuote(b.file("p.xml")));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, "{\"project\":\"" + b.file("p.xml") + "\",\"clipList\":{\"path\":\"" + b.file("clips.txt") +
                       "\",\"embeddedBytes\":6,\"exists\":false},\"edl\":{\"path\":\"" + b.file("cut.edl") +
                       "\",\"embeddedBytes\":4,\"exists\":false},\"settings\":[{\"name\":\"Mode\",\"value\":\"fast\"},"
                       "{\"name\":\"Channels\",\"value\":\"8\"}]}\n");
  EXPECT_FALSE(fs::exists(b.file("clips.txt")));
  EXPECT_FALSE(fs::exists(b.file("cut.edl")));

  // create replaces a file only when asked.
  const auto before = qtest::readBytes(a.file("p.xml"));
  r = runTool("project create --set Mode=slow " + shellQuote(a.file("p.xml")));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "quorvane project: " + a.file("p.xml") + " exists: give -y (--force) to replace it\n");
  EXPECT_EQ(qtest::readBytes(a.file("p.xml")), before);
  EXPECT_EQ(runTool("project create -y --set Mode=slow " + shellQuote(a.file("p.xml"))).exitCode, 0);
  EXPECT_NE(qtest::readBytes(a.file("p.xml")), before);

  // A media command is XML but no project.
  const std::string mediaCmd = "<?xml version=\"1.0\" ?><MediaCmd><Channel Value=\"1\" /></MediaCmd>";
  qtest::writeBytes(a.file("cmd.xml"), {mediaCmd.begin(), mediaCmd.end()});
  r = runTool("project show " + shellQuote(a.file("cmd.xml")));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "quorvane project: '" + a.file("cmd.xml") + "' is not a project file (no ClipList, EdlList or Settings)\n");

  const struct { std::string args; int exitCode; } bad[] = {
      {"project show " + shellQuote(a.file("none.xml")), 1},
      {"project create --set 'bad name=1' " + shellQuote(a.file("q.xml")), 2},
      {"project create --set novalue " + shellQuote(a.file("q.xml")), 2},
      {"project create --clip " + shellQuote(a.file("missing.txt")) + " " + shellQuote(a.file("q.xml")), 1},
      {"project frobnicate x", 2},
  };
  for (const auto& c : bad) {
    r = runTool(c.args);
    EXPECT_EQ(r.exitCode, c.exitCode) << c.args;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
  }
  EXPECT_FALSE(fs::exists(a.file("q.xml")));
}

}  // namespace
