// A dvvC box written by quorvane dvcc (the library's writer), put into the sample entry of an MP4
// that ffmpeg made, is read by ffprobe as Dolby Vision configuration side data with the values
// given on the command line; the box ffmpeg writes when it remuxes that file holds the same bytes,
// and our reader reads it into a record that writes them again.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "streamutil/hevc_config_record.h"
#include "support/mp4_box.h"
#include "support/test_support.h"

namespace {

using Bytes = std::vector<uint8_t>;

uint32_t be32(const Bytes& b, size_t at) {
  return uint32_t(b[at]) << 24 | uint32_t(b[at + 1]) << 16 | uint32_t(b[at + 2]) << 8 | b[at + 3];
}
void putBe32(Bytes& b, size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + i] = uint8_t(v >> (24 - 8 * i));
}

// Offset of the first box of `type` among the children in [begin, end), or npos.
size_t findBox(const Bytes& b, size_t begin, size_t end, const char* type) {
  for (size_t at = begin; at + 8 <= end;) {
    uint32_t size = be32(b, at);
    if (size < 8 || at + size > end) return std::string::npos;
    if (!std::memcmp(&b[at + 4], type, 4)) return at;
    at += size;
  }
  return std::string::npos;
}

// Inserts `box` at the end of the hvc1 sample entry, growing every enclosing box. Needs the
// file's moov after its mdat (ffmpeg's default), so no chunk offset moves.
bool insertIntoSampleEntry(Bytes& mp4, const Bytes& box) {
  const char* path[] = {"moov", "trak", "mdia", "minf", "stbl", "stsd"};
  std::vector<size_t> parents;
  size_t begin = 0, end = mp4.size();
  for (const char* type : path) {
    size_t at = findBox(mp4, begin, end, type);
    if (at == std::string::npos) return false;
    parents.push_back(at);
    begin = at + 8 + (std::strcmp(type, "stsd") == 0 ? 4 + 4 : 0);  // stsd: version/flags, count
    end = at + be32(mp4, at);
  }
  size_t entry = findBox(mp4, begin, end, "hvc1");
  if (entry == std::string::npos) return false;
  parents.push_back(entry);
  if (findBox(mp4, 0, mp4.size(), "mdat") > parents[0]) return false;
  size_t insertAt = entry + be32(mp4, entry);
  mp4.insert(mp4.begin() + static_cast<long>(insertAt), box.begin(), box.end());
  for (size_t at : parents) putBe32(mp4, at, be32(mp4, at) + static_cast<uint32_t>(box.size()));
  return true;
}

// The record written back by the library.
Bytes rewrite(DOVI_DECODER_CONFIGURATION_RECORD r) {
  Bytes out(24, 0);
  zr_bitstream s{out.data(), 24, 24 * 8, 0};
  EXPECT_EQ(klxutilWrite_DVVC_CR(&s, &r), 24u);
  return out;
}

TEST(DvvcFfprobe, SideDataMatchesTheRecord) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffprobe missing";
  std::string source = qtest::encodedStream(
      "dvvc_base.mp4", "-f lavfi -i testsrc2=size=64x64:rate=25 -frames:v 2 -c:v libx265 -tag:v hvc1 "
                       "-x265-params log-level=none -f mp4");
  ASSERT_FALSE(source.empty());
  struct Case {
    int profile, level, rpu, el, bl, compatibility;
  } const kCases[] = {{8, 6, 1, 0, 1, 1}, {5, 9, 1, 0, 1, 0}, {8, 13, 1, 0, 1, 4}, {7, 6, 1, 1, 1, 6}};
  qtest::TempDir dir;
  for (const auto& c : kCases) {
    const std::string boxPath = dir.file("dv.bin");
    char options[160];
    std::snprintf(options, sizeof options, " --profile %d --level %d --rpu %d --el %d --bl %d --compatibility %d", c.profile,
                  c.level, c.rpu, c.el, c.bl, c.compatibility);
    ASSERT_EQ(qtest::runTool("dvcc -y -o " + qtest::shellQuote(boxPath) + options).exitCode, 0);
    Bytes box = qtest::readBytes(boxPath);
    ASSERT_EQ(box.size(), 32u);
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
    EXPECT_EQ((*dovi)["dv_version_major"], 1);
    EXPECT_EQ((*dovi)["dv_profile"], c.profile);
    EXPECT_EQ((*dovi)["dv_level"], c.level);
    EXPECT_EQ((*dovi)["rpu_present_flag"], c.rpu);
    EXPECT_EQ((*dovi)["el_present_flag"], c.el);
    EXPECT_EQ((*dovi)["bl_present_flag"], c.bl);
    EXPECT_EQ((*dovi)["dv_bl_signal_compatibility_id"], c.compatibility);

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
