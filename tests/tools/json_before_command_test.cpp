// --json written before the command name ("quorvane --json tc 100") is the command's --json, as
// -v is taken anywhere: the same document as with --json after the name, not "unknown command".
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>

#include "support/test_support.h"

namespace {

TEST(JsonBeforeCommand, IsTheCommandsJsonOption) {
  const std::string stream = qtest::samplePath("h264_160x90_25fps.264");
  struct Row {
    std::string before, after;
    int exitCode;
  };
  const Row rows[] = {
      {"--json tc --type 25 100", "tc --type 25 100 --json", 0},
      {"--json params " + qtest::shellQuote(stream), "params --json " + qtest::shellQuote(stream), 0},
      {"-v --json names --codec hvc1", "names --codec hvc1 --json -v", 0},
      {"--json tc --type 25 99:00:00:99", "tc --type 25 99:00:00:99 --json", 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.before);
    auto before = qtest::runTool(row.before), after = qtest::runTool(row.after);
    EXPECT_EQ(before.exitCode, row.exitCode) << before.err;
    EXPECT_EQ(after.exitCode, row.exitCode) << after.err;
    EXPECT_EQ(before.out, after.out);
    EXPECT_TRUE(nlohmann::json::accept(before.out)) << before.out;
  }
  auto unknown = qtest::runTool("--json nosuch");
  EXPECT_EQ(unknown.exitCode, 2);
  EXPECT_EQ(nlohmann::json::parse(unknown.out)["error"], "unknown command 'nosuch' (see quorvane --help)");
}

}  // namespace
