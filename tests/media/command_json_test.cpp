// Every stream command's --json output read by a standard JSON parser over real x264/x265
// streams, and every stream command's refusal of bad input: exit 2 or 1, one line
// "quorvane <cmd>: ..." on stderr, under --json an {"error", "command", "exitCode"} object, and
// no output or partial file left behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <set>
#include <string>

#include <nlohmann/json.hpp>

#include "support/test_support.h"

namespace {

using nlohmann::json;

// Keys of our own are camelCase; the values of these keys are records whose keys are the field
// names of ISO/IEC 14496-15 (data, spelt as the standard spells them).
const std::set<std::string> kStandardFieldRecords = {"header", "record"};
// Keys that hold lists: always arrays, even with one or no entry (where the same name is a
// count, e.g. "frames" of reframe, it is a number).
const std::set<std::string> kListKeys = {"units", "frames", "vps", "sps", "pps", "cues", "pictures",
                                         "unitTypes", "sei", "reports", "elements", "primaries"};

void checkConventions(const json& value, const std::string& where) {
  static const std::regex camel("[a-z][A-Za-z0-9]*");
  if (value.is_array()) {
    for (const auto& item : value) checkConventions(item, where + "[]");
    return;
  }
  if (!value.is_object()) return;
  for (const auto& [key, member] : value.items()) {
    EXPECT_TRUE(std::regex_match(key, camel)) << where << "." << key << " is not camelCase";
    if (kListKeys.count(key) && !member.is_number_unsigned()) {
      EXPECT_TRUE(member.is_array()) << where << "." << key << " is not an array";
    }
    if (key == "codec") {
      EXPECT_TRUE(member == "h264" || member == "hevc" || member == "mpeg2") << where << ".codec = " << member;
    }
    if (!kStandardFieldRecords.count(key)) checkConventions(member, where + "." + key);
  }
}

std::string expand(std::string text, const std::vector<std::pair<std::string, std::string>>& names) {
  for (const auto& [name, value] : names)
    for (size_t at; (at = text.find(name)) != std::string::npos;) text.replace(at, name.size(), value);
  return text;
}

class CommandJson : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!qtest::haveProgram("ffmpeg")) GTEST_SKIP() << "ffmpeg is needed to make the streams";
    h264 = qtest::encodedStream("cmdjson_160x90.264",
                                "-f lavfi -i testsrc2=size=160x90:rate=25 -frames:v 6 -c:v libx264 -bf 2 -f h264");
    hevc = qtest::encodedStream("cmdjson_160x90.hevc",
                                "-f lavfi -i testsrc2=size=160x90:rate=25 -frames:v 6 -c:v libx265 "
                                "-x265-params log-level=error -f hevc");
    ASSERT_FALSE(h264.empty());
    ASSERT_FALSE(hevc.empty());
    names = {{"{h264}", qtest::shellQuote(h264)},
             {"{hevc}", qtest::shellQuote(hevc)},
             {"{aac}", qtest::shellQuote(qtest::samplePath("aac_lc_48k_stereo.aac"))},
             {"{m2v}", qtest::shellQuote(qtest::samplePath("mpeg2_160x90_2997.m2v"))},
             {"{dir}", dir.path()}};
  }
  qtest::TempDir dir;
  std::string h264, hevc;
  std::vector<std::pair<std::string, std::string>> names;
};

TEST_F(CommandJson, EveryStreamCommandPrintsOneParsableObject) {
  struct Row {
    const char* args;
    std::vector<const char*> keys;  // members that must be there
  };
  // In order: later rows read what earlier rows wrote.
  const Row rows[] = {
      {"params {h264}", {"file", "codec", "summary", "sps", "pps"}},
      {"params {hevc}", {"file", "codec", "summary", "vps", "sps", "pps"}},
      {"nal {h264}", {"file", "codec", "units", "count"}},
      {"nal {hevc}", {"file", "codec", "units", "count"}},
      {"inspect {h264}", {"file", "codec", "framing", "unitTypes", "sei", "parameterSets", "hdr", "pictures"}},
      {"inspect {hevc}", {"file", "codec", "framing", "unitTypes", "sei", "parameterSets", "hdr", "pictures"}},
      {"reframe --to length {hevc} {dir}/len.hevc", {"in", "out", "output", "to", "codec", "frames", "inBytes"}},
      {"hvcc {hevc} -o {dir}/hvcC.bin", {"file", "output", "bytes", "header"}},
      {"hvcc --read {dir}/hvcC.bin", {"file", "header", "summary", "vps", "sps", "pps"}},
      {"avcc {h264} -o {dir}/avcC.bin", {"file", "output", "bytes"}},
      {"avcc --read {dir}/avcC.bin", {"file", "record", "summary", "sps", "pps"}},
      {"hdr {hevc} {dir}/hdr.hevc --max-cll 1000,400", {"codec", "output", "accessUnits", "spsRewritten"}},
      {"adts {aac}", {"file", "frames", "audioSpecificConfig"}},
      {"stamp {h264} {dir}/tc.264 --tc 01:00:00:00", {"codec", "pictures", "rate", "first", "last"}},
      {"stamp {hevc} {dir}/tc.hevc --tc 01:00:00:00", {"codec", "pictures", "rate", "first", "last"}},
      {"stamp {m2v} {dir}/tc.m2v --tc '01:00:00;00'", {"codec", "pictures", "gopHeaders", "first"}},
      {"captions extract {dir}/tc.264", {"file", "codec", "channel", "pairs", "cues"}},
  };
  for (const Row& row : rows) {
    const std::string args = expand(row.args, names) + " --json";
    SCOPED_TRACE(args);
    const auto run = qtest::runTool(args);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const json parsed = json::parse(run.out, nullptr, false);
    ASSERT_FALSE(parsed.is_discarded()) << run.out;
    ASSERT_TRUE(parsed.is_object());
    for (const char* key : row.keys) EXPECT_TRUE(parsed.contains(key)) << "no \"" << key << "\"";
    checkConventions(parsed, "");
  }
}

TEST_F(CommandJson, BadInputGivesOneLineAndAJsonError) {
  qtest::writeBytes(dir.file("junk.hevc"), std::vector<uint8_t>(100, 0x42));
  qtest::writeBytes(dir.file("junk.264"), std::vector<uint8_t>(64, 0x42));
  qtest::writeBytes(dir.file("bad.scc"), {'n', 'o', 'p', 'e', '\n'});
  qtest::writeBytes(dir.file("taken.srt"), {'x'});
  qtest::writeBytes(dir.file("existing"), {1, 2, 3});
  auto cut = qtest::readBytes(qtest::samplePath("aac_lc_48k_stereo.aac"));
  cut.resize(cut.size() - 10);
  qtest::writeBytes(dir.file("cut.aac"), cut);
  qtest::writeBytes(dir.file("text.aac"), {'h', 'e', 'l', 'l', 'o'});
  const auto inputBefore = qtest::readBytes(h264);
  struct Row {
    const char* command;
    const char* args;
    int exit;          // 2: the command line is wrong; 1: the input or the output cannot be used
    const char* says;  // part of the message
  };
  const Row rows[] = {
      {"params", "", 2, "expected one"},
      {"params", "{dir}/missing.264", 1, "missing.264"},
      {"params", "{aac}", 1, "no video"},
      {"params", "{h264} --track x", 2, "--track"},
      {"nal", "{h264} --codec vp9", 2, "unknown codec"},
      {"nal", "{h264} --bogus", 2, "bogus"},
      {"inspect", "{h264} {hevc}", 2, "expected one"},
      {"reframe", "{h264}", 2, "expected IN and OUT"},
      {"reframe", "--to sideways {h264} {dir}/x.264", 2, "--to"},
      {"reframe", "{h264} {h264}", 1, "is the input"},
      {"hvcc", "{hevc}", 2, "missing -o"},
      {"hvcc", "{h264} -o {dir}/h.bin", 1, "not HEVC"},
      {"hvcc", "--read {h264}", 1, "not a readable hvcC"},
      {"avcc", "{hevc} -o {dir}/a.bin", 1, "not H.264"},
      {"avcc", "--read {dir}/missing.bin", 1, "cannot read"},
      {"avcc", "--read {h264}", 1, "is not a readable avcC record"},
      {"avcc", "{h264} -o {dir}/existing", 1, "{dir}/existing exists: give -y (--force) to replace it"},
      {"avcc", "{h264} -o {dir} -y", 1, "{dir} is a directory"},
      {"hdr", "{hevc}", 2, "IN and OUT"},
      {"hdr", "{hevc} {dir}/existing --max-cll 1000,400", 1, "{dir}/existing exists: give -y (--force) to replace it"},
      {"hdr", "{hevc} {hevc} -y --max-cll 1000,400", 1, "is the input file"},
      {"hdr", "{hevc} {dir}/a --max-cll 1000", 2, "bad --max-cll '1000' (MaxCLL,MaxFALL)"},
      {"hdr", "{hevc} {dir}/a --master-display 'G(1,2)'", 2,
       "bad --master-display 'G(1,2)' (G(x,y)B(x,y)R(x,y)WP(x,y)L(max,min): primaries and white point 0..50000, "
       "maximum luminance above minimum)"},
      {"hdr", "{hevc} {dir}/a --colour bt2020,pq", 2,
       "bad --colour 'bt2020,pq' (primaries,transfer,matrix, e.g. bt2020,pq,bt2020nc)"},
      {"hdr", "{hevc} {dir}/a", 2, "nothing to do: give --master-display, --max-cll, --atc, --remove, --colour, --range or --chroma-loc"},
      {"adts", "{h264}", 1, "no AAC"},
      {"adts", "", 2, "AAC file"},
      {"adts", "{dir}/cut.aac", 1, "runs past the end"},
      {"adts", "{dir}/text.aac", 1, "neither an ADTS stream nor a known container"},
      {"adts", "{dir}/missing.aac", 1, "cannot read"},
      {"stamp", "{h264} {dir}/s.264", 2, "--tc"},
      {"stamp", "{h264} {dir}/s.264 --tc 25:00:00:00", 2, "bad timecode '25:00:00:00'"},
      {"stamp", "{h264} {dir}/s.264 --tc 01:00:00:00 --rate 31", 2, "unknown rate"},
      {"stamp", "{h264} {h264} --tc 01:00:00:00", 1, "is the input file"},
      {"stamp", "{hevc} {dir}/s.hevc --tc 01:00:00:00 --captions {dir}/bad.scc", 1,
       "bad.scc:1: not a Scenarist SCC caption line"},
      {"stamp", "{dir}/junk.hevc {dir}/s.hevc --tc 01:00:00:00", 1, "cannot read the streams"},
      {"stamp", "{dir}/missing.hevc {dir}/s.hevc --tc 01:00:00:00", 1, "cannot read"},
      {"stamp", "{hevc} {dir}/no/such/dir/s.hevc --tc 01:00:00:00", 1, "cannot create"},
      {"stamp", "{m2v} {dir}/o.ts --tc 00:00:00:00", 1,
       "elementary streams of this kind go into MPEG-TS with ffmpeg -i IN -c copy OUT"},
      {"stamp", "{m2v} {dir}/o.mxf --tc 00:00:00:00", 1,
       "elementary streams of this kind go into MXF with ffmpeg -i IN -c copy OUT"},
      {"captions", "", 2, "usage"},
      {"captions", "pull {h264}", 2, "usage"},
      {"captions", "extract {h264} --channel 9 -o -", 2, "--channel"},
      {"captions", "extract {h264} -o {dir}/out.txt", 2, "cannot tell the output form"},
      {"captions", "extract {h264} -o {dir}/taken.srt", 1, "taken.srt exists: give -y (--force) to replace it"},
      {"captions", "extract {h264} -o {h264} --format srt --force", 1, "is the input file"},
      {"captions", "extract {dir}/missing.264 -o -", 1, "cannot read"},
      {"captions", "extract {dir}/junk.264 -o -", 1, "cannot read the streams"},
  };
  for (const Row& row : rows) {
    const std::string args = std::string(row.command) + " " + expand(row.args, names), says = expand(row.says, names);
    SCOPED_TRACE(args);
    const auto plain = qtest::runTool(args);
    EXPECT_EQ(plain.exitCode, row.exit);
    const std::string prefix = std::string("quorvane ") + row.command + ": ";
    EXPECT_EQ(plain.err.rfind(prefix, 0), 0u) << plain.err;
    EXPECT_EQ(std::count(plain.err.begin(), plain.err.end(), '\n'), 1) << plain.err;
    EXPECT_NE(plain.err.find(says), std::string::npos) << plain.err;

    const auto asJson = qtest::runTool(args + " --json");
    EXPECT_EQ(asJson.exitCode, plain.exitCode);
    const json error = json::parse(asJson.out, nullptr, false);
    ASSERT_TRUE(error.is_object()) << asJson.out;
    EXPECT_EQ(error.value("command", ""), row.command);
    EXPECT_EQ(error.value("exitCode", -1), plain.exitCode);
    EXPECT_NE(error.value("error", "").find(says), std::string::npos) << asJson.out;
  }
  // Nothing refused leaves an output or a partial file behind, and no file given is touched.
  EXPECT_EQ(qtest::runCommand("ls -A " + qtest::shellQuote(dir.path())).out,
            "bad.scc\ncut.aac\nexisting\njunk.264\njunk.hevc\ntaken.srt\ntext.aac\n");
  EXPECT_EQ(qtest::readBytes(dir.file("taken.srt")), std::vector<uint8_t>{'x'});
  EXPECT_EQ(qtest::readBytes(dir.file("existing")), (std::vector<uint8_t>{1, 2, 3}));
  EXPECT_EQ(qtest::readBytes(h264), inputBefore);
}

}  // namespace
