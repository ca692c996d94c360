// The dvvC reader against the writer: every bit lands in exactly one field and is written back
// where it was, random records read at any bit offset write back unchanged, short input is
// refused. The dvcc command (its refusals: cli_test.cpp): its box, put into the sample entry of an
// MP4 that ffmpeg made, is read by ffprobe as Dolby Vision configuration side data with the values
// given on the command line, and by dvcc --read as the same values; the box ffmpeg writes when it
// remuxes that file holds the same bytes, and our reader reads it into a record that writes them
// again.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "streamutil/hevc_config_record.h"
#include "support/mp4_box.h"
#include "support/test_support.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes rewrite(const DOVI_DECODER_CONFIGURATION_RECORD& r) {
  Bytes out(24, 0xEE);
  zr_bitstream s{out.data(), 24, 24 * 8, 0};
  DOVI_DECODER_CONFIGURATION_RECORD copy = r;
  EXPECT_EQ(klxutilWrite_DVVC_CR(&s, &copy), 24u);
  return out;
}

bool readRecord(Bytes bytes, DOVI_DECODER_CONFIGURATION_RECORD* r) {
  zr_bitstream s{bytes.data(), static_cast<int64_t>(bytes.size()), bytes.size() * 8, 0};
  return klxutilRead_DVVC_CR(&s, r) == 24 && s.position == 192;
}

// Each single set bit of the 192 lands in the field the bit layout names, and nowhere else.
TEST(DvvcReader, EverySingleBitLandsInItsField) {
  struct Span {
    int first, bits;
  } const kFields[] = {{0, 8}, {8, 8}, {16, 7}, {23, 6}, {29, 1}, {30, 1}, {31, 1}, {32, 4}, {36, 28},
                       {64, 32}, {96, 32}, {128, 32}, {160, 32}};
  for (int bit = 0; bit < 192; ++bit) {
    Bytes bytes(24, 0);
    bytes[bit / 8] = static_cast<uint8_t>(0x80 >> (bit % 8));
    DOVI_DECODER_CONFIGURATION_RECORD r{};
    ASSERT_TRUE(readRecord(bytes, &r));
    const uint32_t values[] = {r.dv_version_major, r.dv_version_minor, r.dv_profile, r.dv_level,
                               r.rpu_present_flag, r.el_present_flag, r.bl_present_flag,
                               r.dv_bl_signal_compatibility_id, r.reserved, r.reserved_words[0],
                               r.reserved_words[1], r.reserved_words[2], r.reserved_words[3]};
    for (size_t f = 0; f < std::size(kFields); ++f) {
      const auto& span = kFields[f];
      bool inside = bit >= span.first && bit < span.first + span.bits;
      uint32_t want = inside ? 1u << (span.first + span.bits - 1 - bit) : 0;
      ASSERT_EQ(values[f], want) << "bit " << bit << " field " << f;
    }
    ASSERT_EQ(rewrite(r), bytes);
  }
}

TEST(DvvcReader, RefusesShortOrMissingInputAndLeavesEverythingAlone) {
  struct Case {
    size_t bytes;
    int64_t size;
    uint64_t length, position;
  } const kCases[] = {
      {0, 0, 0, 0},    {23, 23, 184, 0}, {24, 24, 191, 0},  {24, 23, 192, 0},  {24, 24, 192, 1},
      {30, 30, 240, 49}, {30, 30, 240, 500}, {24, 0, 100, 0}, {32, 32, 256, 65},
  };
  for (const auto& c : kCases) {
    Bytes bytes(c.bytes + 1, 0x5A);
    zr_bitstream s{bytes.data(), c.size, c.length, c.position};
    DOVI_DECODER_CONFIGURATION_RECORD r;
    std::memset(&r, 0x77, sizeof r);
    EXPECT_EQ(klxutilRead_DVVC_CR(&s, &r), 0xFFFFFFFFu) << c.bytes << " " << c.position;
    EXPECT_EQ(s.position, c.position);
    EXPECT_EQ(r.dv_version_major, 0x77);
  }
  Bytes bytes(24, 0);
  zr_bitstream s{bytes.data(), 24, 192, 0};
  DOVI_DECODER_CONFIGURATION_RECORD r{};
  EXPECT_EQ(klxutilRead_DVVC_CR(nullptr, &r), 0xFFFFFFFFu);
  EXPECT_EQ(klxutilRead_DVVC_CR(&s, nullptr), 0xFFFFFFFFu);
  zr_bitstream none{nullptr, 24, 192, 0};
  EXPECT_EQ(klxutilRead_DVVC_CR(&none, &r), 0xFFFFFFFFu);
  EXPECT_EQ(klxutilWrite_DVVC_CR(&s, nullptr), 0u) << "no record: nothing written";
}

TEST(DvvcReader, ReadsAtAnUnalignedPosition) {
  std::mt19937 rng(5);
  for (int shift = 1; shift < 16; ++shift) {
    Bytes record(24);
    for (auto& b : record) b = static_cast<uint8_t>(rng());
    DOVI_DECODER_CONFIGURATION_RECORD want{};
    ASSERT_TRUE(readRecord(record, &want));
    Bytes shifted(27, 0);
    zr_bitstream w{shifted.data(), 27, 27 * 8, static_cast<uint64_t>(shift)};
    for (uint8_t b : record) WriteBits(&w, 8, b);
    zr_bitstream s{shifted.data(), 27, 27 * 8, static_cast<uint64_t>(shift)};
    DOVI_DECODER_CONFIGURATION_RECORD got{};
    ASSERT_EQ(klxutilRead_DVVC_CR(&s, &got), 24u);
    EXPECT_EQ(rewrite(got), record) << shift;
  }
}

// Inserts `box` at the end of the hvc1 sample entry, growing every enclosing box: each found as
// the first occurrence of its type behind the one before (the box path moov/trak/mdia/minf/stbl/
// stsd/hvc1 of ffmpeg's one-track file). The moov must come after the mdat (ffmpeg's default), so
// that no chunk offset moves.
bool insertIntoSampleEntry(Bytes& mp4, const Bytes& box) {
  std::vector<size_t> parents;
  size_t from = 0;
  for (const char* type : {"mdat", "moov", "trak", "mdia", "minf", "stbl", "stsd", "hvc1"}) {
    const auto at = std::search(mp4.begin() + long(from), mp4.end(), type, type + 4);
    if (at < mp4.begin() + 4 || at == mp4.end()) return false;
    from = size_t(at - mp4.begin()) + 4;
    parents.push_back(from - 8);
  }
  parents.erase(parents.begin());  // the mdat only had to come first
  const size_t entryEnd = parents.back() + qtest::be32(mp4, parents.back());
  mp4.insert(mp4.begin() + long(entryEnd), box.begin(), box.end());
  for (size_t at : parents) qtest::putBe32(mp4, at, qtest::be32(mp4, at) + static_cast<uint32_t>(box.size()));
  return true;
}

TEST(DvccCommand, FfprobeReadsTheBoxAsWrittenAndReadBack) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffprobe missing";
  std::string source = qtest::encodedStream(
      "dvvc_base.mp4", "-f lavfi -i testsrc2=size=64x64:rate=25 -frames:v 2 -c:v libx265 -tag:v hvc1 "
                       "-x265-params log-level=none -f mp4");
  ASSERT_FALSE(source.empty());
  struct Case {
    const char* options;
    int profile, level, rpu, el, bl, compatibility;
  } const kCases[] = {
      {"--profile 8 --level 6 --compatibility 1", 8, 6, 1, 0, 1, 1},
      {"--profile 5 --level 9", 5, 9, 1, 0, 1, 0},  // the defaults
      {"--profile 8 --level 13 --compatibility 4", 8, 13, 1, 0, 1, 4},
      {"--profile 7 --level 6 --el 1 --compatibility 6", 7, 6, 1, 1, 1, 6},
      {"--profile 127 --level 63 --rpu 0 --el 1 --bl 0 --compatibility 15", 127, 63, 0, 1, 0, 15},  // the largest
  };
  // ffprobe's name and dvcc --json's name of each field.
  const std::pair<const char*, const char*> kFields[] = {
      {"dv_version_major", "versionMajor"}, {"dv_profile", "profile"},   {"dv_level", "level"},
      {"rpu_present_flag", "rpuPresent"},   {"el_present_flag", "elPresent"}, {"bl_present_flag", "blPresent"},
      {"dv_bl_signal_compatibility_id", "blSignalCompatibilityId"},
  };
  qtest::TempDir dir;
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.options);
    const std::string boxPath = dir.file("dv.bin");
    const auto w = qtest::runTool("dvcc -y -o " + qtest::shellQuote(boxPath) + " " + c.options);
    ASSERT_EQ(w.exitCode, 0) << w.err;
    Bytes box = qtest::readBytes(boxPath);
    ASSERT_EQ(box.size(), 32u);
    EXPECT_EQ(std::memcmp(box.data(), "\0\0\0\x20" "dvvC", 8), 0);
    Bytes mp4 = qtest::readBytes(source);
    ASSERT_TRUE(insertIntoSampleEntry(mp4, box));
    std::string path = dir.file("dv.mp4");
    qtest::writeBytes(path, mp4);
    auto probe = qtest::runCommand("ffprobe -v error -select_streams v:0 -show_streams -of json " + qtest::shellQuote(path));
    ASSERT_EQ(probe.exitCode, 0) << probe.err;
    auto streams = nlohmann::json::parse(probe.out)["streams"];
    ASSERT_EQ(streams.size(), 1u);
    const nlohmann::json* dovi = nullptr;
    for (const auto& side : streams[0]["side_data_list"])
      if (side.contains("dv_profile")) dovi = &side;
    ASSERT_NE(dovi, nullptr) << probe.out;
    // Each value as given, in ffprobe's side data and in what dvcc --read makes of the box.
    auto read = qtest::runTool("dvcc --json --read " + qtest::shellQuote(boxPath));
    ASSERT_EQ(read.exitCode, 0) << read.err;
    const auto ours = nlohmann::json::parse(read.out);
    EXPECT_EQ(ours["boxType"], "dvvC");
    EXPECT_EQ(ours["reservedWords"].size(), 4u);
    const int given[] = {1, c.profile, c.level, c.rpu, c.el, c.bl, c.compatibility};
    for (size_t f = 0; f < std::size(kFields); ++f) {
      EXPECT_EQ((*dovi)[kFields[f].first], given[f]) << kFields[f].first;
      EXPECT_EQ(ours[kFields[f].second], given[f]) << kFields[f].second;
    }

    // ffmpeg remuxing the file writes its own configuration box from that side data: the same
    // 24 bytes as ours, which our reader reads into a record that writes them again.
    std::string remuxed = dir.file("re.mp4");
    auto remux = qtest::runCommand("ffmpeg -y -v error -i " + qtest::shellQuote(path) + " -c copy -strict unofficial " +
                                   qtest::shellQuote(remuxed));
    ASSERT_EQ(remux.exitCode, 0) << remux.err;
    const Bytes file = qtest::readBytes(remuxed);
    Bytes theirs;
    for (const char* type : {"dvcC", "dvvC", "dvwC"})
      if (theirs.empty()) theirs = qtest::boxIn(file, type);
    ASSERT_EQ(theirs.size(), 32u) << "ffmpeg wrote no Dolby Vision configuration box";
    EXPECT_EQ(Bytes(theirs.begin() + 8, theirs.end()), Bytes(box.begin() + 8, box.end()));
    zr_bitstream theirIn{theirs.data(), 32, 256, 64};
    DOVI_DECODER_CONFIGURATION_RECORD fromFfmpeg{};
    ASSERT_EQ(klxutilRead_DVVC_CR(&theirIn, &fromFfmpeg), 24u);
    EXPECT_EQ(rewrite(fromFfmpeg), Bytes(box.begin() + 8, box.end()));
  }
}

}  // namespace
