// The metadata record's write to a user file that parses but would not survive its own round
// trip is stored, never reported done while refused. (That such a file is read as empty and set
// aside as ".bad" is ConfigStore.CorruptFilesAreReportedReadAsEmptyAndKeptAside.)
#include <gtest/gtest.h>

#include <string>

#include "metadata/klxinfo.h"
#include "fixtures.h"
#include "platform/zrcfg.h"
#include "support/h16_text_files.h"
#include "support/test_support.h"

namespace {

const std::pair<const char*, std::string> kUnfaithfulStores[] = {
    {"lead byte swallowing '<'", "<QuorvaneConfig>\xe9< </QuorvaneConfig>"},
    {"text naming NUL", "<QuorvaneConfig><K>&#x0;</K></QuorvaneConfig>"},
    {"ends inside a sequence", "<QuorvaneConfig>\xc5"},
    {"nested far too deep", "<QuorvaneConfig>" + qtest::repeatText("<a>", 60000)},
};

TEST(StoreFaithful, MetadataWriteToAnUnfaithfulUserFileIsStored) {
  for (const auto& [what, bytes] : kUnfaithfulStores) {
    SCOPED_TRACE(what);
    qtest::StoreEnvironment env;
    qtest::writeText(env.userFile(), bytes);
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
