// avcC against the box ffmpeg writes into MP4 for x264 streams of every profile, made by the
// library and by the avcc command, read back into avcc_t and the SPS/PPS records, bare and as the
// box; colour rewrites inside avcC and hvcC records.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "support/mp4_box.h"
#include "support/param_streams.h"
#include "streamutil/avcc.h"
#include "streamutil/colour.h"
#include "streamutil/hevc_config_record.h"
#include "support/test_support.h"

namespace {

using Bytes = std::vector<uint8_t>;

// The record (the box's payload) ffmpeg stores in MP4 for the stream.
Bytes mp4Box(const std::string& stream, const char* type) {
  const Bytes box = qtest::remuxedBox(stream, type);
  return box.empty() ? box : Bytes(box.begin() + 8, box.end());
}

struct Profile {
  const char* name;
  const char* pixelFormat;
  const char* options;
  int chromaFormat, bitDepthMinus8;
};
const Profile kProfiles[] = {
    {"baseline", "yuv420p", "-profile:v baseline", 1, 0},
    {"main", "yuv420p", "-profile:v main", 1, 0},
    {"high", "yuv420p", "-profile:v high", 1, 0},
    {"high10", "yuv420p10le", "-profile:v high10", 1, 2},
    {"high422", "yuv422p", "-profile:v high422", 2, 0},
    {"high444", "yuv444p", "-profile:v high444", 3, 0},
};

class AvccFromFfmpeg : public ::testing::TestWithParam<Profile> {};

TEST_P(AvccFromFfmpeg, RecordEqualsTheMp4BoxAndReadsBack) {
  const Profile& p = GetParam();
  const std::string path = ptest::x264Stream(std::string("avcc_") + p.name, p.pixelFormat, p.options, "64x64");
  const Bytes stream = qtest::readBytes(path);
  const Bytes theirs = mp4Box(path, "avcC");
  ASSERT_FALSE(theirs.empty());

  uint32_t n = 0;
  ASSERT_EQ(klxutilGetAvcc(stream.data(), static_cast<uint32_t>(stream.size()), 1, nullptr, 0, &n), -102);
  Bytes ours(n);
  ASSERT_EQ(klxutilGetAvcc(stream.data(), static_cast<uint32_t>(stream.size()), 1, ours.data(), n, &n), 0);
  EXPECT_EQ(ours, theirs) << p.name;
  // The avcc command writes the same record behind its box header.
  qtest::TempDir dir;
  const std::string boxFile = dir.file("avcC.bin");
  auto r = qtest::runTool("avcc " + qtest::shellQuote(path) + " -o " + qtest::shellQuote(boxFile));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const Bytes written = qtest::readBytes(boxFile);
  ASSERT_GT(written.size(), 8u);
  EXPECT_EQ(Bytes(written.begin() + 8, written.end()), theirs);

  // Read back: the records equal those read from the stream's own units.
  const auto units = ptest::splitAnnexB(stream);
  auto spsFromStream = std::make_unique<SPS_DECODED>();
  auto ppsFromStream = std::make_unique<PPS_DECODED>();
  Bytes spsUnit = *ptest::firstAvcUnit(units, 7), ppsUnit = *ptest::firstAvcUnit(units, 8);
  zr_bitstream s{spsUnit.data(), static_cast<int64_t>(spsUnit.size()), spsUnit.size() * 8, 0};
  zr_bitstream q{ppsUnit.data(), static_cast<int64_t>(ppsUnit.size()), ppsUnit.size() * 8, 0};
  klxutilRead_SPS(&s, spsFromStream.get());
  klxutilRead_PPS(&q, ppsFromStream.get());

  h264_stream_t* h = h264_new();
  avcc_t* avcc = avcc_new();
  AVCC_HIGH_PROFILE_FIELDS ext{};
  auto sps = std::make_unique<SPS_DECODED>();
  auto pps = std::make_unique<PPS_DECODED>();
  ASSERT_EQ(klxutilReadAvcc(theirs.data(), static_cast<uint32_t>(theirs.size()), avcc, h, &ext, sps.get(), pps.get()), 0);
  EXPECT_EQ(std::memcmp(sps.get(), spsFromStream.get(), sizeof(SPS_DECODED)), 0);
  EXPECT_EQ(std::memcmp(pps.get(), ppsFromStream.get(), sizeof(PPS_DECODED)), 0);
  EXPECT_EQ(avcc->AVCProfileIndication, spsFromStream->profile_idc);
  EXPECT_EQ(avcc->AVCLevelIndication, spsFromStream->level_idc);
  EXPECT_EQ(avcc->lengthSizeMinusOne, 3);
  ASSERT_EQ(avcc->numOfSequenceParameterSets, 1);
  ASSERT_EQ(avcc->numOfPictureParameterSets, 1);
  EXPECT_EQ(avcc->sps_table[0], h->sps_table[spsFromStream->seq_parameter_set_id]);
  EXPECT_EQ(avcc->sps_table[0]->pic_width_in_mbs_minus1, 3);
  EXPECT_EQ(avcc->pps_table[0]->entropy_coding_mode_flag, ppsFromStream->entropy_coding_mode_flag);
  const bool high = spsFromStream->profile_idc >= 100;
  EXPECT_EQ(ext.present, high ? 1 : 0);
  // avcc --read --json reports what the record says.
  r = qtest::runTool("avcc --read " + qtest::shellQuote(boxFile) + " --json");
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("\"AVCProfileIndication\":" + std::to_string(spsFromStream->profile_idc)), std::string::npos) << r.out;
  if (high) {
    EXPECT_EQ(ext.chroma_format, p.chromaFormat);
    EXPECT_EQ(ext.bit_depth_luma_minus8, p.bitDepthMinus8);
    EXPECT_EQ(ext.bit_depth_chroma_minus8, p.bitDepthMinus8);
    EXPECT_NE(r.out.find("\"chroma_format\":" + std::to_string(p.chromaFormat)), std::string::npos) << r.out;
  }
  // Cut short anywhere: refused, nothing read out of bounds.
  for (size_t cut = 0; cut < 30; ++cut) {
    Bytes shorter(theirs.begin(), theirs.begin() + static_cast<long>(cut));
    EXPECT_EQ(klxutilReadAvcc(shorter.data(), static_cast<uint32_t>(cut), avcc, h, nullptr, nullptr, nullptr), -1) << cut;
  }
  avcc_free(avcc);
  h264_free(h);

  // The box read with its header: the record is as long as the box's size word says. Cut through
  // its last four bytes (the High-profile fields, optional in a bare record) it is refused, not
  // read as a record without them; the next box's bytes behind it are not part of it; a size word
  // below the header's own 8 bytes is no box.
  auto readBox = [](const Bytes& bytes, AVCC_HIGH_PROFILE_FIELDS* fields) {
    avcc_t* record = avcc_new();
    const int rc = klxutilReadAvcc(bytes.data(), static_cast<uint32_t>(bytes.size()), record, nullptr, fields, nullptr, nullptr);
    avcc_free(record);
    return rc;
  };
  Bytes box = qtest::remuxedBox(path, "avcC");
  for (size_t cut = 1; cut <= 4; ++cut) EXPECT_EQ(readBox(Bytes(box.begin(), box.end() - long(cut)), nullptr), -1) << cut;
  if (high) {  // a size word ending the box before the High-profile fields: the bytes behind it are not read
    Bytes shorterWord = box;
    const uint32_t declared = static_cast<uint32_t>(box.size() - 4);
    qtest::putBe32(shorterWord, 0, declared);
    AVCC_HIGH_PROFILE_FIELDS none{};
    EXPECT_EQ(readBox(shorterWord, &none), 0);
    EXPECT_EQ(none.present, 0);
  }
  box.insert(box.end(), {0, 0, 0, 16, 'b', 't', 'r', 't', 0, 0, 0, 0, 0, 0, 0, 0});
  AVCC_HIGH_PROFILE_FIELDS boxExt{};
  EXPECT_EQ(readBox(box, &boxExt), 0);
  EXPECT_EQ(std::memcmp(&boxExt, &ext, sizeof ext), 0);
  box[3] = 7;
  EXPECT_EQ(readBox(box, nullptr), -1);
}

INSTANTIATE_TEST_SUITE_P(Profiles, AvccFromFfmpeg, ::testing::ValuesIn(kProfiles),
                         [](const auto& info) { return std::string(info.param.name); });

// The SPS inside a record is rewritten like the stream's own SPS, every other byte kept.
TEST(ColourInRecords, AvccAndHvccCarryTheRewrittenSps) {
  KLX_COLOUR_DESCRIPTION colour{};
  colour.set = KLX_COLOUR_SET_PRIMARIES | KLX_COLOUR_SET_TRANSFER | KLX_COLOUR_SET_MATRIX | KLX_COLOUR_SET_RANGE;
  colour.colour_primaries = 9, colour.transfer_characteristics = 18, colour.matrix_coeffs = 9, colour.video_full_range_flag = 1;
  for (bool hevc : {false, true}) {
    const std::string path = hevc ? ptest::x265Stream("colour_record", "yuv420p10le", "", "64x64")
                                  : ptest::x264Stream("colour_record", "yuv420p", "-profile:v high", "64x64");
    const Bytes record = mp4Box(path, hevc ? "hvcC" : "avcC");
    ASSERT_FALSE(record.empty());
    const auto units = ptest::splitAnnexB(qtest::readBytes(path));
    const Bytes& sps = hevc ? *ptest::firstHevcUnit(units, 33) : *ptest::firstAvcUnit(units, 7);
    uint8_t newSps[512];
    uint32_t spsSize = 0;
    const auto rewriteSps = hevc ? klxutilRewriteColourHevcSps : klxutilRewriteColourAvcSps;
    ASSERT_EQ(rewriteSps(sps.data(), static_cast<uint32_t>(sps.size()), &colour, newSps, sizeof newSps, &spsSize), 0);
    ASSERT_EQ(rewriteSps(sps.data(), static_cast<uint32_t>(sps.size()), &colour, newSps, spsSize - 1, &spsSize), -102);

    Bytes out(record.size() + 64);
    uint32_t n = 0;
    const auto rewriteRecord = hevc ? klxutilRewriteColourHvcc : klxutilRewriteColourAvcc;
    ASSERT_EQ(rewriteRecord(record.data(), static_cast<uint32_t>(record.size()), &colour, out.data(),
                            static_cast<uint32_t>(out.size()), &n), 0);
    out.resize(n);
    EXPECT_EQ(n, record.size() + spsSize - sps.size());
    // The new SPS sits where the old one was, behind its new 16-bit length.
    auto at = std::search(record.begin(), record.end(), sps.begin(), sps.end()) - record.begin();
    ASSERT_LT(static_cast<size_t>(at), record.size());
    EXPECT_EQ(Bytes(out.begin(), out.begin() + at - 2), Bytes(record.begin(), record.begin() + at - 2));
    EXPECT_EQ((out[at - 2] << 8) | out[at - 1], static_cast<int>(spsSize));
    EXPECT_EQ(Bytes(out.begin() + at, out.begin() + at + spsSize), Bytes(newSps, newSps + spsSize));
    EXPECT_EQ(Bytes(out.begin() + at + spsSize, out.end()), Bytes(record.begin() + at + static_cast<long>(sps.size()), record.end()));
  }
}

// An SPS the library cannot write back unchanged is refused, not altered.
TEST(ColourInRecords, UnitsThatDoNotRoundTripAreRefused) {
  const auto units = ptest::splitAnnexB(qtest::readBytes(ptest::x265Stream("colour_refuse", "yuv420p", "", "64x64")));
  Bytes sps = *ptest::firstHevcUnit(units, 33);
  KLX_COLOUR_DESCRIPTION colour{KLX_COLOUR_SET_PRIMARIES, 9, 0, 0, 0, 0, 0};
  uint8_t out[512];
  uint32_t n = 0;
  Bytes extended = sps;
  extended.back() = 0x81;  // a set bit after the stop bit: data the writer would drop
  extended.push_back(0x80);
  EXPECT_EQ(klxutilRewriteColourHevcSps(extended.data(), static_cast<uint32_t>(extended.size()), &colour, out, sizeof out, &n), -1);
  EXPECT_EQ(klxutilRewriteColourAvcSps(sps.data(), static_cast<uint32_t>(sps.size()), &colour, out, sizeof out, &n), -1);
  colour.colour_primaries = 256;
  EXPECT_EQ(klxutilRewriteColourHevcSps(sps.data(), static_cast<uint32_t>(sps.size()), &colour, out, sizeof out, &n), -1);
}

}  // namespace
