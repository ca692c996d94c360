// The quorvane meta and project commands, run as separate processes against the library.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "klxinfo_record.h"
#include "metadata/klxinfo.h"
#include "metadata/zrprojecttoxml.h"
#include "platform/zrcfg.h"
#include "store_env.h"
#include "support/test_support.h"

namespace {

namespace fs = std::filesystem;
using qtest::runTool;
using qtest::shellQuote;
using qtest::StoreEnvironment;

TEST(MetaCommand, BadInputGetsOneLineAndNonZeroExit) {
  StoreEnvironment env;
  struct Case {
    const char* args;
    int exitCode;
    const char* err;
  };
  const Case cases[] = {
      {"meta", 2, "quorvane meta: missing action (list, get, set, delete, describe, tctype); see --help\n"},
      {"meta get NoSuchItem", 2, "quorvane meta: unknown item 'NoSuchItem'\n"},
      {"meta set TimeCode ten", 2, "quorvane meta: bad value 'ten' for TimeCode (a number)\n"},
      {"meta set TimeCodeType weird", 2, "quorvane meta: bad value 'weird' for TimeCodeType (a number or a timecode type name)\n"},
      {"meta set VersionString 1.0", 2, "quorvane meta: VersionString is not kept in the store\n"},
      {"meta set FileName x", 2, "quorvane meta: FileName is not kept in the store\n"},
      {"meta get --user Title", 1, "quorvane meta: no UserMetadata.xml in the current directory\n"},
      {"meta get --user --system Title", 2, "quorvane meta: --user and --system exclude each other\n"},
      {"meta set Title", 2, "quorvane meta: bad arguments for 'set'; see --help\n"},
      {"meta describe zz", 2, "quorvane meta: bad identifier 'zz'\n"},
  };
  for (const Case& c : cases) {
    auto r = runTool(c.args);
    EXPECT_EQ(r.exitCode, c.exitCode) << c.args;
    EXPECT_EQ(r.err, c.err) << c.args;
  }
  EXPECT_EQ(runTool("meta --help").exitCode, 0);
}

TEST(MetaCommand, DescribeAndTcType) {
  auto r = runTool("meta describe 13 14 4096 4129 0x10022 --json");
  EXPECT_EQ(r.out,
            "[{\"id\":13,\"name\":\"Comments\"},{\"id\":14,\"name\":\"Owner\"},{\"id\":4096,\"name\":null},"
            "{\"id\":4129,\"name\":\"CustomMetadataBlockType\"},{\"id\":65570,\"name\":\"AudioBits\"}]\n");
  EXPECT_EQ(runTool("meta tctype " + shellQuote("<clip TcType=\"59.94\"/>")).out, "32\n");
}

TEST(ProjectCommand, CreateShowAndRecreateElsewhere) {
  qtest::TempDir a, b;
  qtest::writeBytes(a.file("clips.txt"), {'c', '1', '\n', 'c', '2', '\n'});
  qtest::writeBytes(a.file("cut.edl"), {'e', 'd', 'l', '\n'});
  auto r = runTool("project create --clip " + shellQuote(a.file("clips.txt")) + " --edl " + shellQuote(a.file("cut.edl")) +
                   " --set Mode=fast --set Channels=8 " + shellQuote(a.file("p.xml")));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(runTool("project create " + shellQuote(a.file("p.xml"))).exitCode, 1);  // exists

  // The library reads what the tool wrote.
  CZRProjectToXML project;
  ASSERT_TRUE(project.LoadXMLFile(a.file("p.xml").c_str()));
  EXPECT_EQ(project.GetConfigDWORD("Channels"), 8u);

  fs::copy_file(a.file("p.xml"), b.file("p.xml"));
  fs::remove(a.file("clips.txt"));
  fs::remove(a.file("cut.edl"));
  r = runTool("project show --json " + shellQuote(b.file("p.xml")));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, "{\"project\":\"" + b.file("p.xml") + "\",\"clipList\":{\"path\":\"" + b.file("clips.txt") +
                       "\",\"embeddedBytes\":6,\"exists\":true},\"edl\":{\"path\":\"" + b.file("cut.edl") +
                       "\",\"embeddedBytes\":4,\"exists\":true},\"settings\":{\"Mode\":\"fast\",\"Channels\":\"8\"}}\n");
  EXPECT_EQ(qtest::readBytes(b.file("clips.txt")), std::vector<uint8_t>({'c', '1', '\n', 'c', '2', '\n'}));

  struct Bad {
    std::string args;
    int exitCode;
  };
  const Bad bad[] = {
      {"project show " + shellQuote(a.file("none.xml")), 1},
      {"project create --set 'bad name=1' " + shellQuote(a.file("q.xml")), 2},
      {"project create --set novalue " + shellQuote(a.file("q.xml")), 2},
      {"project create --clip " + shellQuote(a.file("missing.txt")) + " " + shellQuote(a.file("q.xml")), 1},
      {"project frobnicate x", 2},
  };
  for (const Bad& c : bad) {
    r = runTool(c.args);
    EXPECT_EQ(r.exitCode, c.exitCode) << c.args;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
  }
  EXPECT_FALSE(fs::exists(a.file("q.xml")));
}

}  // namespace
