// The quorvane meta command against the configuration store: the tool in one process, the
// library in another.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "klxinfo_record.h"
#include "metadata/klxinfo.h"
#include "platform/zrcfg.h"
#include "store_env.h"
#include "support/test_support.h"

namespace {

namespace fs = std::filesystem;
using qtest::InfoRecord;
using qtest::runTool;
using qtest::shellQuote;
using qtest::StoreEnvironment;

void enableReading() {
  uint32_t zero = 0;
  ASSERT_EQ(zrCFGValueDword(ZR_CFG_SYSTEM, KLXINFO_SWITCH_KEY, KLXINFO_SWITCH_NAME, &zero, 1), ZR_CFG_OK);
}

TEST(MetaCommand, SetByTheToolIsReadByTheLibraryAndBack) {
  StoreEnvironment env;
  enableReading();
  struct Step {
    std::string args;
    int exitCode;
    std::string out;
  };
  const Step steps[] = {
      {"meta set Title " + shellQuote("Night shoot \"B\" & more"), 0, ""},
      {"meta set timecodetype drop-frame", 0, ""},
      {"meta set TimeCode 0x1A574", 0, ""},
      {"meta get Title", 0, "Night shoot \"B\" & more\n"},
      {"meta get TimeCodeType", 0, "4\n"},
      {"meta get --json TimeCode", 0, "{\"name\":\"TimeCode\",\"value\":107892}\n"},
  };
  for (const Step& s : steps) {
    auto r = runTool(s.args);
    EXPECT_EQ(r.exitCode, s.exitCode) << s.args << ": " << r.err;
    if (!s.out.empty()) {
      EXPECT_EQ(r.out, s.out) << s.args;
    }
  }
  InfoRecord rec;
  ASSERT_EQ(klxInfoReadReg(&rec.rec, 1, 0), 0);
  EXPECT_EQ(rec.text(kxtTitle), "Night shoot \"B\" & more");
  EXPECT_EQ(rec.rec.numeric[kxnTimeCodeType], 4u);
  EXPECT_EQ(rec.rec.numeric[kxnTimeCode], 107892u);

  rec.setText(kxtReel, "A007");
  ASSERT_EQ(klxInfoWriteReg(&rec.rec, 1, 0), 0);
  auto r = runTool("meta get reel");
  EXPECT_EQ(r.out, "A007\n");
  r = runTool("meta delete Reel");
  EXPECT_EQ(r.exitCode, 0) << r.err;
  r = runTool("meta get Reel");
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "quorvane meta: Reel is not set\n");
}

TEST(MetaCommand, UserFileViews) {
  StoreEnvironment env;
  ASSERT_EQ(runTool("meta set Title system-title").exitCode, 0);
  ASSERT_EQ(runTool("meta set Reel system-reel").exitCode, 0);
  EXPECT_FALSE(fs::exists(env.userFile()));
  ASSERT_EQ(runTool("meta set --user Title user-title").exitCode, 0);
  EXPECT_TRUE(fs::exists(env.userFile()));
  struct View {
    const char* args;
    const char* out;
  };
  const View views[] = {
      {"meta get Title", "user-title\n"},
      {"meta get --system Title", "system-title\n"},
      {"meta get --user Title", "user-title\n"},
      {"meta get Reel", "system-reel\n"},
  };
  for (const View& v : views) EXPECT_EQ(runTool(v.args).out, v.out) << v.args;
  auto r = runTool("meta list --json");
  EXPECT_NE(r.out.find("{\"name\":\"Title\",\"id\":8,\"kind\":\"text\",\"value\":\"user-title\"}"), std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("{\"name\":\"VersionString\",\"id\":57,\"kind\":\"text\",\"value\":\"8.0.0.216\"}"), std::string::npos)
      << r.out;
  r = runTool("meta list");
  EXPECT_NE(r.out.find("     8  Title                        user-title\n"), std::string::npos) << r.out;
}

}  // namespace
