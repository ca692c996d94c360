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

// One file the XML gate refuses stands for all: the gate's reasons are XmlGuard's table, and
// the store takes every refused file alike.
TEST(StoreFaithful, MetadataWriteToAnUnfaithfulUserFileIsStored) {
  qtest::StoreEnvironment env;
  qtest::writeText(env.userFile(), "<QuorvaneConfig>\xc5");  // ends inside a UTF-8 sequence
  qtest::LogCapture log;
  qtest::InfoRecord written;
  written.setText(kxtTitle, "Evening news");
  EXPECT_EQ(klxInfoWriteReg(&written.rec, 0, 1), 0);
  qtest::InfoRecord read;
  EXPECT_EQ(klxInfoReadReg(&read.rec, 0, 1), 0);
  EXPECT_EQ(read.text(kxtTitle), "Evening news");
}

}  // namespace
