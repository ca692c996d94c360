// quorvane cmd: building, converting, dumping and listing, checked by reading the tool's
// output back with the library.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "mediacmd/mediacmd.h"
#include "support/test_support.h"
#include "text_forms.h"

namespace {

MEDIACMD readBack(const std::string& text, bool json) {
  MEDIACMD cmd;
  EXPECT_EQ((json ? MediaCmdFromJSONString : MediaCmdFromXMLString)(&cmd, nullptr, text.c_str()), 0) << text;
  return cmd;
}

size_t count(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

TEST(MediaCmdCli, NewBuildsWhatItIsAskedFor) {
  auto r = qtest::runTool("cmd new play --channel 1 --speed 2 --position '01:00:00;00' --clip C7 --file a.mov --wire-json");
  ASSERT_EQ(r.exitCode, 0) << r.err;
  MEDIACMD cmd = readBack(r.out, true);
  EXPECT_EQ(cmd.Cmd, static_cast<uint32_t>(ctPlay));
  EXPECT_EQ(cmd.Channel, 1u);
  EXPECT_EQ(cmd.Speed, 131040);
  EXPECT_EQ(cmd.Position, 107892);  // one hour of 29.97 drop-frame
  EXPECT_STREQ(cmd.ClipID, "C7");
  EXPECT_STREQ(cmd.Payload, "a.mov");
  EXPECT_TRUE(cmd.CtrlFlags & cfUseClipID);

  r = qtest::runTool("cmd new --get channelname --channel 2 --value Main --value 'Cam 1' --flag deferred --xml");
  ASSERT_EQ(r.exitCode, 0) << r.err;
  cmd = readBack(r.out, false);
  EXPECT_EQ(cmd.Cmd, static_cast<uint32_t>(ctGetValue));
  EXPECT_EQ(cmd.CmdAlt, static_cast<uint32_t>(gsChannelName));
  EXPECT_EQ(std::memcmp(cmd.Payload, "Main\0Cam 1\0\0", 12), 0);
  EXPECT_TRUE(cmd.CtrlFlags & cfDeferred);

  r = qtest::runTool("cmd new record --tc-type pal --start 01:00:00:00 --end 250 --ms 40 --wire-json");
  ASSERT_EQ(r.exitCode, 0) << r.err;
  cmd = readBack(r.out, true);
  EXPECT_EQ(cmd.Start, 90000);
  EXPECT_EQ(cmd.End, 250);
  EXPECT_EQ(cmd.CmdAlt, 40u);
  EXPECT_EQ(cmd.CtrlFlags & (cfTimeMs | cfUseCmdAlt | cfUseStart | cfUseEnd), uint32_t(cfTimeMs | cfUseCmdAlt | cfUseStart | cfUseEnd));
}

TEST(MediaCmdCli, ConvertAndDumpReadEitherForm) {
  qtest::TempDir dir;
  MEDIACMD cmd;
  initMediaCmd(&cmd, ctPlay);
  cmd.Channel = 1;
  cmd.CtrlFlags = cfUseSpeed | cfUsePosition;
  cmd.Speed = 131040;
  cmd.Position = 107892;
  const std::string xmlText = mctest::xmlOf(cmd, 4), jsonText = mctest::jsonOf(cmd, 4);
  qtest::writeBytes(dir.file("play.xml"), {xmlText.begin(), xmlText.end()});
  qtest::writeBytes(dir.file("play.json"), {jsonText.begin(), jsonText.end()});

  auto r = qtest::runTool("cmd convert " + qtest::shellQuote(dir.file("play.xml")) + " --wire-json");
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, jsonText + "\n");
  r = qtest::runTool("cmd convert - --xml < " + qtest::shellQuote(dir.file("play.json")));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, xmlText + "\n");

  // The text forms do not carry "useposition", so the trace of a command read from text shows
  // no position.
  const std::string line = "klx-Chan1 ctPlay UseSpeed (200) \n";
  for (const char* file : {"play.xml", "play.json"}) {
    r = qtest::runTool("cmd dump " + qtest::shellQuote(dir.file(file)));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, line);
  }
  r = qtest::runTool("cmd dump --json " + qtest::shellQuote(dir.file("play.json")));
  EXPECT_NE(r.out.find("\"traced\":true"), std::string::npos) << r.out;

  // --json: the wire JSON's content as standard JSON (jq reads it), keys in camelCase.
  r = qtest::runTool("cmd convert " + qtest::shellQuote(dir.file("play.xml")) +
                     " --json | jq -r '[.mediaCmd.channel, .mediaCmd.cmd.string, .mediaCmd.position.tcString] | @tsv'");
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, "1\tPlay\t01:00:00;00\n");
}

TEST(MediaCmdCli, CodesListsBothVocabularies) {
  auto r = qtest::runTool("cmd codes");
  ASSERT_EQ(r.exitCode, 0);
  EXPECT_EQ(count(r.out, "getset "), 460u);
  EXPECT_EQ(count(r.out, "flag   "), 36u);
  EXPECT_NE(r.out.find("getset 0x0000041E       1054 channelname\n"), std::string::npos);
  r = qtest::runTool("cmd codes --flags --json");
  ASSERT_EQ(r.exitCode, 0);
  EXPECT_EQ(count(r.out, "\"name\""), 36u);
  EXPECT_NE(r.out.find("{\"flag\":1073741824,\"name\":\"overridedeferred\"}"), std::string::npos) << r.out;
}

// Every action's output or refusal, exactly: a refusal is one line on stderr and nothing on stdout.
TEST(MediaCmdCli, OutputsAndRefusals) {
  qtest::TempDir dir;
  qtest::writeBytes(dir.file("bad.json"), {'{', '"', 'M'});
  const struct { std::string args; int exit; std::string out, message; } cases[] = {
      {"cmd channels 0x0A", 0, "mask 0x0000000A: 2 channels: 1, 3\n", ""},
      {"cmd channels 2147483648 --json", 0, "{\"mask\":2147483648,\"total\":1,\"channels\":[31]}\n", ""},
      // Quarter speed shows every field twice (the stepping itself is MediaCmdRecord.SpeedReps*).
      {"cmd speed 0.25 --periods 2 --json", 0,
       "{\"speed\":16380,\"rate\":16384,\"repeats\":[2,2],\"fieldCount\":[1,2]}\n", ""},
      {"cmd speed -1 --periods 1", 0,
       "speed -65520 (units of 1/65520), rate 0x00010000 (1 + 0/65536)\nperiod  repeats  field count\n"
       "     1        0            1\n", ""},
      {"cmd fourcc hvc1", 0, "upper 0x31435648 HVC1\nlower 0x31637668 hvc1\n", ""},
      {"cmd fourcc 0x34363241", 0, "upper 0x34363241 A264\nlower 0x34363261 a264\n", ""},
      {"cmd", 2, "", "quorvane cmd: give new, convert, dump, codes, channels, speed or fourcc (see --help)"},
      {"cmd frobnicate", 2, "", "quorvane cmd: unknown action 'frobnicate' (new, convert, dump, codes, channels, speed, fourcc)"},
      {"cmd new play", 2, "", "quorvane cmd: new needs exactly one of --xml, --wire-json and --json"},
      {"cmd new play --xml --wire-json", 2, "", "quorvane cmd: new needs exactly one of --xml, --wire-json and --json"},
      {"cmd new fly --xml", 2, "", "quorvane cmd: unknown command 'fly' (see --help)"},
      {"cmd new --get nosuchcode --xml", 2, "", "quorvane cmd: unknown get/set code 'nosuchcode' (see 'cmd codes')"},
      {"cmd new play --clip ABCDEFGHI --xml", 2, "", "quorvane cmd: clip id 'ABCDEFGHI' is longer than 8 characters"},
      {"cmd new play --position 99:99:99:99 --tc-type pal --xml", 2, "",
       "quorvane cmd: --position: '99:99:99:99' is not a valid 25 timecode"},
      {"cmd new play --tc-type 29.98 --xml", 2, "",
       "quorvane cmd: unknown timecode type '29.98' (frames, 23.98, 24, 25, 29.97, 29.97df, 30, 50, 59.94, 59.94df, 60)"},
      {"cmd new play --flag nosuch --xml", 2, "", "quorvane cmd: unknown flag 'nosuch' (see 'cmd codes --flags')"},
      {"cmd convert " + qtest::shellQuote(dir.file("bad.json")) + " --xml", 1, "",
       "quorvane cmd: " + dir.file("bad.json") + ": Failed to parse JSON: -3"},
      {"cmd convert " + qtest::shellQuote(dir.file("missing.xml")) + " --xml", 1, "",
       "quorvane cmd: cannot read " + dir.file("missing.xml") + ": No such file or directory"},
      {"cmd convert " + qtest::shellQuote(dir.file("bad.json")), 2, "",
       "quorvane cmd: convert needs exactly one of --xml, --wire-json and --json"},
      {"cmd channels xyz", 2, "", "quorvane cmd: bad mask 'xyz'"},
  };
  for (const auto& c : cases) {
    auto r = qtest::runTool(c.args);
    EXPECT_EQ(r.exitCode, c.exit) << c.args;
    EXPECT_EQ(r.out, c.out) << c.args;
    EXPECT_EQ(r.err, c.message.empty() ? "" : c.message + "\n") << c.args;
  }
  auto fixed = qtest::runTool("cmd new stop --fix --wire-json");
  ASSERT_EQ(fixed.exitCode, 0);
  MEDIACMD cmd = readBack(fixed.out, true);
  EXPECT_EQ(cmd.Speed, 0);
  EXPECT_TRUE(cmd.CtrlFlags & cfUseSpeed);
}

}  // namespace

namespace {

// Every --json output of these commands, failures included, is one document that python's json
// module and jq both read.
TEST(CommandJson, EveryOutputParsesWithStandardParsers) {
  if (!qtest::haveProgram("python3") || !qtest::haveProgram("jq")) GTEST_SKIP() << "python3 or jq missing";
  qtest::TempDir dir;
  const std::string env = "QUORVANE_CONFIG=" + qtest::shellQuote(dir.file("config.xml")) + " ";
  const char* kArgs[] = {
      "tc --json --type 29.97df 107892 00:00:01:00", "tc --json --type nosuch 1",  // a failure is an object too
      "tc --json 23:59:59", "cmd new play --position '01:00:00;00' --value 'a\"b\\c' --json", "cmd codes --json",
      "cmd channels 0x0A --json", "cmd speed 0.5 --json", "cmd fourcc hvc1 --json", "cmd new play --xml --json",
      "format 0x2380B21D --json", "format 1920x1080 50 --scan interlaced --field-rate --json",
      "format rate 29.97 --json", "format tc 107892 29.97df pal --json", "format play 1/4 --steps 3 --json",
      "config set K V x --json", "config list --recursive --json", "config get K nosuch --json",
      "meta describe 13 4096 --json", "meta tctype pal --json", "meta set TimeCode 01:00:00:00 --tc-type 25 --json",
      "meta list --json", "project show --json /nonexistent.xml", "project create --json /nonexistent-dir/p.xml",
      "names --file-type 203 --codec hvc1 --json", "names --codec zzzz --json",
  };
  // One run of the tool per line; both parsers read the same saved output.
  for (const char* args : kArgs) {
    const std::string out = qtest::shellQuote(dir.file("out.json"));
    qtest::runCommand(env + qtest::shellQuote(QUORVANE_TOOL) + " " + args + " > " + out);
    const auto python = qtest::runCommand("python3 -c 'import json,sys; json.load(sys.stdin)' < " + out);
    EXPECT_EQ(python.exitCode, 0) << args << "\n" << python.err;
    const auto jq = qtest::runCommand("jq -e 'type == \"object\" or type == \"array\"' < " + out);
    EXPECT_EQ(jq.exitCode, 0) << args << "\n" << jq.err;
  }
}

TEST(CommandJson, VersionHelpAndVerbose) {
  const auto version = qtest::runTool("--version");
  EXPECT_EQ(version.exitCode, 0);
  EXPECT_EQ(version.out.rfind("quorvane ", 0), 0u) << version.out;
  const auto listing = qtest::runTool("--help");
  EXPECT_EQ(listing.exitCode, 0);
  for (const char* command : {"tc", "cmd", "format", "config", "meta", "project", "names"}) {
    EXPECT_NE(listing.out.find(std::string("\n  ") + command + " "), std::string::npos) << command;
    const auto help = qtest::runTool(std::string("help ") + command);
    EXPECT_EQ(help.exitCode, 0) << command;
    EXPECT_EQ(help.out, qtest::runTool(std::string(command) + " --help").out) << command;
    EXPECT_NE(help.out.find(std::string("usage: quorvane ") + command), std::string::npos) << command;
  }
  EXPECT_EQ(qtest::runTool("help nosuch").exitCode, 2);
  const auto unknown = qtest::runTool("frobnicate");
  EXPECT_EQ(unknown.exitCode, 2);
  EXPECT_EQ(unknown.err, "quorvane: unknown command 'frobnicate' (see quorvane --help)\n");
  // A reader failure adds the library's own line under -v (without -v the command's line comes
  // alone: MediaCmdCli.OutputsAndRefusals).
  qtest::TempDir dir;
  qtest::writeBytes(dir.file("bad.json"), {'{', '"', 'M'});
  const auto verbose = qtest::runTool("-v cmd convert --xml " + qtest::shellQuote(dir.file("bad.json")));
  EXPECT_NE(verbose.err.find("quorvane: library: "), std::string::npos) << verbose.err;
}

}  // namespace
