// Where options stand on the command line.
// --json written before the command name ("quorvane --json tc 100") is the command's --json, as
// -v is taken anywhere: the same document as with --json after the name, not "unknown command".
// An option that takes a value, followed by another option of the command instead: refused by
// naming both (exit 2, one line), rather than the option taking the other's name as its value.
// A value that only looks like an option (a negative number) is still a value.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
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

TEST(OptionValues, AnOptionWhereAValueBelongsIsNamed) {
  qtest::TempDir dir;
  const std::string box = dir.file("box.bin");
  ASSERT_EQ(qtest::runTool("dvcc -o " + qtest::shellQuote(box) + " --profile 8 --level 6").exitCode, 0);
  const std::string file = " " + qtest::shellQuote(box);
  const struct {
    const char* args;
    int exitCode;
    const char* stderrHas;  // "" when stderr must be empty
  } rows[] = {
      {"dvcc --read --json", 2, "quorvane dvcc: --read takes a value, but the option --json follows it"},
      {"avcc --read -y", 2, "quorvane avcc: --read takes a value, but the option -y follows it"},
      {"params --track --help", 2, "quorvane params: --track takes a value, but the option --help follows it"},
      {"dvcc --json --read", 0, ""},
      {"cmd new play --channel 1 --speed -2 --json", 0, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.args);
    const bool takesFile = std::string(row.args).rfind("cmd", 0) != 0;
    auto r = qtest::runTool(std::string(row.args) + (takesFile ? file : ""));
    EXPECT_EQ(r.exitCode, row.exitCode) << r.err;
    if (*row.stderrHas) {
      EXPECT_EQ(r.err.rfind(row.stderrHas, 0), 0u) << r.err;
      EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    } else {
      EXPECT_EQ(r.err, "");
    }
  }
}

}  // namespace
