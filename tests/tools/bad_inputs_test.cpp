// Every command that reads a file, given something that is not a readable file of its kind:
// one line "quorvane <cmd>: ..." on stderr, a plain failure exit (never an abort or a sanitizer
// report), and the input left exactly as it was with nothing set aside beside it.
// Where options stand on the command line: --json written before the command name ("quorvane
// --json tc 100") is the command's --json, as -v is taken anywhere: the same document as with
// --json after the name, not "unknown command".
// An option that takes a value, followed by another option of the command instead: refused by
// naming both (exit 2, one line), rather than the option taking the other's name as its value.
// A value that only looks like an option (a negative number) is still a value.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support/h16_text_files.h"
#include "support/test_support.h"

namespace {

namespace fs = std::filesystem;
using qtest::runCommand;
using qtest::shellQuote;

struct BadInput {
  const char* name;
  void (*make)(const std::string& path);
};

const BadInput kDirectory{"directory", [](const std::string& p) { fs::create_directory(p); }};
// Opens like a file, but every read fails with EIO (a plain unreadable file for root, too).
const BadInput kUnreadable{"unreadable", [](const std::string& p) { fs::create_symlink("/proc/self/mem", p); }};
const BadInput kEmpty{"empty", [](const std::string& p) { qtest::writeText(p, ""); }};
const BadInput kDeep{"60000-deep", [](const std::string& p) { qtest::writeText(p, qtest::repeatText("<a>", 60000)); }};
const BadInput kUtf8Tail{"utf8-tail", [](const std::string& p) { qtest::writeText(p, "<QuorvaneConfig>\xc5"); }};

struct Command {
  const char* name;    // the <cmd> of the message
  const char* args;    // arguments before the input path; "" for meta (the file is the cwd's UserMetadata.xml)
  std::vector<BadInput> inputs;
};

const std::vector<BadInput> kXmlInputs{kDirectory, kUnreadable, kEmpty, kDeep, kUtf8Tail};
const std::vector<BadInput> kStreamInputs{kDirectory, kUnreadable, kEmpty};

std::string listing(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(dir)) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  std::string out;
  for (const auto& n : names) out += n + " ";
  return out;
}

std::string contentOf(const std::string& path) {
  std::error_code ec;
  if (!fs::is_regular_file(fs::symlink_status(path, ec))) return "(not a regular file)";
  return qtest::readText(path);
}

TEST(BadInputs, OneLineAndFailureExitForEveryReadingCommand) {
  const Command commands[] = {
      {"project", "project show", kXmlInputs},
      {"config", "config list --file", kXmlInputs},
      {"meta", "", kXmlInputs},
      {"cmd", "cmd dump", kXmlInputs},
      {"inspect", "inspect", kStreamInputs},
      {"params", "params", kStreamInputs},
      {"nal", "nal", kStreamInputs},
  };
  for (const Command& c : commands) {
    for (const BadInput& input : c.inputs) {
      SCOPED_TRACE(std::string(c.name) + " given " + input.name);
      qtest::TempDir dir;
      const bool meta = *c.args == '\0';
      const std::string path = dir.file(meta ? "UserMetadata.xml" : "input.xml");
      input.make(path);
      const std::string before = listing(dir.path()), content = contentOf(path);
      const std::string tool = shellQuote(QUORVANE_TOOL);
      const std::string line =
          meta ? "cd " + shellQuote(dir.path()) + " && QUORVANE_CONFIG=" + shellQuote(dir.file("system.xml")) + " " + tool +
                     " meta list"
               : "QUORVANE_CONFIG=" + shellQuote(dir.file("system.xml")) + " " + tool + " " + c.args + " " + shellQuote(path);
      const auto r = runCommand(line);
      EXPECT_TRUE(r.exitCode == 1 || r.exitCode == 2) << "exit " << r.exitCode << "\n" << r.err;
      const std::string prefix = std::string("quorvane ") + c.name + ": ";
      EXPECT_EQ(r.err.compare(0, prefix.size(), prefix), 0) << r.err;
      EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
      EXPECT_EQ(r.out, "");
      // The system store may appear; the input and its neighbours stay as they were.
      std::string after = listing(dir.path());
      if (auto at = after.find("system.xml "); at != std::string::npos) after.erase(at, 11);
      EXPECT_EQ(after, before);
      EXPECT_EQ(contentOf(path), content);
    }
  }
}

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
