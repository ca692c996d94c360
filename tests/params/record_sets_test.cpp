// avcc --read and hvcc --read list every parameter set of a record, in record order, as params
// lists a stream's. Records: ffmpeg's avcC/hvcC for an x264/x265 stream carrying two sets of each
// kind up front (read back by trace_headers), and an avcC built by the library's writer with an
// SPS extension, listed entry by entry by klxutilAvccEntries.
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "streamutil/avcc.h"
#include "support/ffmpeg_oracle.h"
#include "support/mp4_box.h"
#include "support/splice_support.h"
#include "support/test_support.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Values = std::map<std::string, std::vector<int64_t>>;  // kind -> chosen elements, unit after unit
using qtest::shellQuote;

// Two pieces' parameter sets in front of the first piece's pictures (the second's pictures left
// out), so that ffmpeg's record holds both.
Bytes setsUpFront(const Bytes& first, const Bytes& second, bool hevc) {
  Bytes sets, pictures;
  for (const Bytes* piece : {&second, &first})
    for (const auto& unit : splice::unitsOf(*piece)) {
      const uint8_t header = unit[unit[2] == 1 ? 3 : 4];
      const int type = hevc ? (header >> 1) & 0x3F : header & 0x1F;
      const bool parameterSet = hevc ? type >= 32 && type <= 34 : type == 7 || type == 8;
      if (parameterSet) sets.insert(sets.end(), unit.begin(), unit.end());
      else if (piece == &first) pictures.insert(pictures.end(), unit.begin(), unit.end());
    }
  sets.insert(sets.end(), pictures.begin(), pictures.end());
  return sets;
}

TEST(RecordSets, EverySetIsListedInRecordOrder) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffmpeg missing";
  struct Case {
    const char* command;
    const char* box;
    const char* encoder;
    std::map<std::string, std::set<std::string>> wanted;  // trace heading -> elements compared
    std::map<std::string, std::string> keys;              // trace heading -> JSON key
  };
  const std::string x264 = " -c:v libx264 -f h264", x265 = " -c:v libx265 -x265-params log-level=error -f hevc";
  const Case cases[] = {
      {"avcc", "avcC", "264",
       {{"Sequence Parameter Set", {"seq_parameter_set_id", "pic_width_in_mbs_minus1"}},
        {"Picture Parameter Set", {"pic_parameter_set_id", "seq_parameter_set_id"}}},
       {{"Sequence Parameter Set", "sps"}, {"Picture Parameter Set", "pps"}}},
      {"hvcc", "hvcC", "265",
       {{"Video Parameter Set", {"vps_video_parameter_set_id"}},
        {"Sequence Parameter Set", {"pic_width_in_luma_samples", "pic_height_in_luma_samples"}},
        {"Picture Parameter Set", {"pps_pic_parameter_set_id", "init_qp_minus26"}}},
       {{"Video Parameter Set", "vps"}, {"Sequence Parameter Set", "sps"}, {"Picture Parameter Set", "pps"}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.command);
    const bool hevc = std::string(c.encoder) == "265";
    const std::string encoder = hevc ? x265 : x264;
    const Bytes first = splice::piece(std::string("sets-a.") + c.encoder, "rate=25:size=160x90 -frames:v 2" + encoder);
    const Bytes second = splice::piece(std::string("sets-b.") + c.encoder,
                                       "rate=25:size=176x96 -frames:v 2" + encoder + (hevc ? "" : " -x264-params sps-id=3"));
    qtest::TempDir dir;
    const std::string in = dir.file(std::string("in.") + c.encoder), mp4 = dir.file("in.mp4"), box = dir.file("box.bin");
    qtest::writeBytes(in, setsUpFront(first, second, hevc));
    ASSERT_EQ(qtest::runCommand("ffmpeg -nostdin -y -v error -i " + shellQuote(in) + " -c copy " + shellQuote(mp4)).exitCode, 0);
    qtest::writeBytes(box, qtest::boxIn(qtest::readBytes(mp4), c.box));

    Values oracle;  // the record as trace_headers lists ffmpeg's extradata
    std::string kind;
    for (const auto& line : oracle::traceHeaderLines(mp4)) {
      if (!line.isElement && line.text.rfind("Packet: ", 0) == 0) break;
      if (!line.isElement) kind = c.wanted.count(line.text) ? line.text : "";
      else if (!kind.empty() && c.wanted.at(kind).count(line.name)) oracle[kind].push_back(line.value);
    }
    const auto r = qtest::runTool(std::string(c.command) + " --read " + shellQuote(box) + " --json");
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto json = nlohmann::json::parse(r.out);
    Values listed;
    for (const auto& [heading, key] : c.keys) {
      ASSERT_EQ(json.at(key).size(), 2u) << key;
      for (const auto& set : json.at(key)) {
        EXPECT_TRUE(set.at("valid"));
        for (const auto& e : set.at("elements"))
          if (c.wanted.at(heading).count(e.at("name"))) listed[heading].push_back(e.at("value"));
      }
    }
    EXPECT_EQ(listed, oracle);
    const auto text = qtest::runTool(std::string(c.command) + " --read " + shellQuote(box));
    ASSERT_EQ(text.exitCode, 0) << text.err;
    for (const auto& [heading, key] : c.keys)
      for (const char* n : {" #0 (", " #1 ("}) {
        std::string upper = key;
        for (auto& ch : upper) ch = char(std::toupper(ch));
        EXPECT_NE(text.out.find("\n" + upper + n), std::string::npos) << upper << n << "\n" << text.out;
      }
  }
}

// The library's writer over hand-chosen sets: two x264 SPS/PPS pairs and an SPS extension unit.
TEST(RecordSets, AvccEntriesNameEveryUnitWhereItLies) {
  const Bytes first = splice::piece("sets-a.264", "rate=25:size=160x90 -frames:v 2 -c:v libx264 -f h264");
  const Bytes second = splice::piece("sets-b.264", "rate=25:size=176x96 -frames:v 2 -c:v libx264 -f h264 -x264-params sps-id=3");
  std::vector<Bytes> units;  // SPS, SPS, PPS, PPS, SPS extension, without start codes
  for (const int type : {7, 8})
    for (const Bytes* piece : {&first, &second})
      for (const auto& unit : splice::unitsOf(*piece)) {
        const size_t at = unit[2] == 1 ? 3 : 4;
        if ((unit[at] & 0x1F) == type) units.emplace_back(unit.begin() + long(at), unit.end());
      }
  ASSERT_EQ(units.size(), 4u);
  units.push_back({0x6D, 0x80, 0x5A, 0x10});  // nal_unit_type 13: seq_parameter_set_id 0, aux_format_idc ...
  Bytes frame;
  for (const auto& unit : units) {
    frame.insert(frame.end(), {0, 0, 0, 1});
    frame.insert(frame.end(), unit.begin(), unit.end());
  }
  Bytes record(512);
  uint32_t size = 0;
  ASSERT_EQ(klxutilGetAvcc(frame.data(), uint32_t(frame.size()), 1, record.data(), uint32_t(record.size()), &size), 0);
  record.resize(size);

  AVCC_ENTRY entries[8];
  uint32_t count = 0;
  ASSERT_EQ(klxutilAvccEntries(record.data(), size, entries, 8, &count), 0);
  ASSERT_EQ(count, units.size());
  for (uint32_t i = 0; i < count; ++i) {
    EXPECT_EQ(entries[i].nal_unit_type, uint32_t(units[i][0] & 0x1F)) << i;
    EXPECT_EQ(Bytes(record.begin() + entries[i].offset, record.begin() + entries[i].offset + entries[i].size), units[i]) << i;
  }
  EXPECT_EQ(klxutilAvccEntries(record.data(), size, entries, 2, &count), -102);
  EXPECT_EQ(count, units.size()) << "the number needed";
  EXPECT_EQ(klxutilAvccEntries(record.data(), size - 1, entries, 8, &count), -1) << "the extension cut short";

  qtest::TempDir dir;
  qtest::writeBytes(dir.file("record.bin"), record);
  const auto r = qtest::runTool("avcc --read " + shellQuote(dir.file("record.bin")) + " --json");
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto json = nlohmann::json::parse(r.out);
  EXPECT_EQ(json.at("sps").size(), 2u);
  EXPECT_EQ(json.at("pps").size(), 2u);
  EXPECT_EQ(json.at("spsExt"), nlohmann::json::parse(R"([{"bytes": 4, "data": "6D805A10"}])"));
  EXPECT_EQ(json.at("record").at("numOfSequenceParameterSetExt"), 1);
}

}  // namespace
