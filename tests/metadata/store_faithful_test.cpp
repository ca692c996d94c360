// A store file that parses but would not survive its own round trip is corrupt: it is read as
// empty, set aside byte for byte as ".bad" on the next write, and that write succeeds. The
// metadata record's write to the user file is stored, never reported done while refused.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "metadata/klxinfo.h"
#include "fixtures.h"
#include "platform/zrcfg.h"
#include "support/test_support.h"

namespace {

using qtest::readBytes;
using qtest::writeBytes;

std::vector<uint8_t> bytesOf(const std::string& s) { return {s.begin(), s.end()}; }

const std::pair<const char*, std::string> kUnfaithfulStores[] = {
    {"lead byte swallowing '<'", "<QuorvaneConfig>\xe9< </QuorvaneConfig>"},
    {"text naming NUL", "<QuorvaneConfig><K>&#x0;</K></QuorvaneConfig>"},
    {"ends inside a sequence", "<QuorvaneConfig>\xc5"},
    {"nested far too deep", [] {
       std::string s = "<QuorvaneConfig>";
       for (int i = 0; i < 60000; ++i) s += "<a>";
       return s;
     }()},
};

TEST(StoreFaithful, UnfaithfulFileIsSetAsideAndTheWriteIsStored) {
  for (const auto& [what, bytes] : kUnfaithfulStores) {
    SCOPED_TRACE(what);
    qtest::TempDir dir;
    const std::string path = dir.file("store.xml");
    writeBytes(path, bytesOf(bytes));
    qtest::LogCapture log;
    ZRCFGHANDLE store = zrCFGOpen(path.c_str());
    ASSERT_NE(store, ZR_CFG_INVALID);
    uint32_t value = 7;
    ASSERT_EQ(zrCFGValueDword(store, "Quorvane", "Seven", &value, 1), ZR_CFG_OK);
    zrCFGClose(store, 1);
    EXPECT_EQ(readBytes(path + ".bad"), bytesOf(bytes));
    store = zrCFGOpen(path.c_str());
    uint32_t back = 0;
    EXPECT_EQ(zrCFGValueDword(store, "Quorvane", "Seven", &back, 0), ZR_CFG_OK);
    EXPECT_EQ(back, 7u);
    zrCFGClose(store, 0);
  }
}

TEST(StoreFaithful, MetadataWriteToAnUnfaithfulUserFileIsStored) {
  for (const auto& [what, bytes] : kUnfaithfulStores) {
    SCOPED_TRACE(what);
    qtest::StoreEnvironment env;
    writeBytes(env.userFile(), bytesOf(bytes));
    qtest::LogCapture log;
    qtest::InfoRecord written;
    written.setText(kxtTitle, "Evening news");
    EXPECT_EQ(klxInfoWriteReg(&written.rec, 0, 1), 0);
    qtest::InfoRecord read;
    EXPECT_EQ(klxInfoReadReg(&read.rec, 0, 1), 0);
    EXPECT_EQ(read.text(kxtTitle), "Evening news");
  }
}

}  // namespace
