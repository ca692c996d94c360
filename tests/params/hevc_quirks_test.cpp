// HEVC parameter-set readers and writers: messages, limits and forced values (hostile input: fuzz_hevc_*).
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>

#include "support/param_streams.h"
#include "streamutil/hevc_params.h"
#include "support/test_support.h"

namespace {

using ptest::Bytes;

using ptest::over;
using RealUnits = ptest::HevcUnits;
const RealUnits& realUnits() {
  static RealUnits units =
      ptest::hevcUnits(ptest::x265Stream("main_hrd", "yuv420p", "hrd=1:vbv-maxrate=500:vbv-bufsize=500", "64x64"));
  return units;
}

using ptest::escapesIn;

bool startsWith(const std::string& text, const std::string& prefix) { return text.rfind(prefix, 0) == 0; }

// Exactly one report, starting with `prefix`.
void expectOneReport(const qtest::LogCapture& log, const std::string& prefix) {
  ASSERT_EQ(log.lines().size(), 1u) << prefix;
  EXPECT_TRUE(startsWith(log.lines()[0].text, prefix)) << log.lines()[0].text;
}

TEST(HevcReaders, WrongUnitTypeIsRejectedWithItsMessage) {
  RealUnits u = realUnits();
  ASSERT_FALSE(u.sps.empty());
  auto vps = std::make_unique<HEVC_VPS_DECODED>();
  auto sps = std::make_unique<HEVC_SPS_DECODED>();
  auto pps = std::make_unique<HEVC_PPS_DECODED>();
  struct Case {
    Bytes* unit;
    std::function<uint32_t(zr_bitstream*)> read;
    std::string message;
  } cases[] = {
      {&u.sps, [&](zr_bitstream* s) { return klxutilRead_HEVC_VPS(s, vps.get(), nullptr, 0); }, "Not a vps NAL klxvidutil "},
      {&u.pps, [&](zr_bitstream* s) { return klxutilRead_HEVC_SPS(s, sps.get(), nullptr, 0); }, "Not a sps NAL klxvidutil "},
      {&u.vps, [&](zr_bitstream* s) { return klxutilRead_HEVC_PPS(s, pps.get(), nullptr, 0); }, "Not a pps NAL (32) klxvidutil "},
  };
  for (auto& c : cases) {
    qtest::LogCapture log;
    zr_bitstream s = over(*c.unit);
    EXPECT_EQ(c.read(&s), 0xFFFFFFFFu);
    EXPECT_EQ(s.position, 16u) << "position is the private stream's, after the NAL header";
    expectOneReport(log, c.message);
  }
}

TEST(HevcReaders, NullRecordAndEmptyInputGiveZero) {
  Bytes unit = realUnits().sps;
  zr_bitstream s = over(unit);
  EXPECT_EQ(klxutilRead_HEVC_SPS(&s, nullptr, nullptr, 0), 0u);
  auto sps = std::make_unique<HEVC_SPS_DECODED>();
  zr_bitstream empty{unit.data(), 0, 0, 0};
  EXPECT_EQ(klxutilRead_HEVC_SPS(&empty, sps.get(), nullptr, 0), 0u);
  EXPECT_EQ(s.position, 0u);
}

TEST(HevcVps, ReservedBitsAreChecked) {
  const Bytes& real = realUnits().vps;
  ASSERT_GE(real.size(), 6u);
  struct Case {
    const char* what;
    size_t byte;
    uint8_t mask;
  } cases[] = {
      {"vps_base_layer_available_flag", 2, 0x04},
      {"vps_reserved_0xffff_16bits low", 5, 0x01},
  };
  for (const auto& c : cases) {
    Bytes unit = real;
    unit[c.byte] &= static_cast<uint8_t>(~c.mask);
    auto vps = std::make_unique<HEVC_VPS_DECODED>();
    qtest::LogCapture log;
    zr_bitstream s = over(unit);
    EXPECT_EQ(klxutilRead_HEVC_VPS(&s, vps.get(), nullptr, 0), 0xFFFFFFFFu) << c.what;
    expectOneReport(log, "Vps Reserved bits incorrect klxvidutil ");
  }
}

TEST(HevcVps, WriterForcesItsFields) {
  auto vps = ptest::readHevcUnit<HEVC_VPS_DECODED>(realUnits().vps);
  vps->vps_num_layer_sets_minus1 = 2;
  vps->vps_max_layer_id = 1;
  vps->vps_timing_info_present_flag = 1;
  vps->vps_num_units_in_tick = 1001;
  vps->vps_time_scale = 60000;
  vps->vps_poc_proportional_to_timing_flag = 1;
  vps->vps_num_ticks_poc_diff_one = 5;
  vps->vps_num_hrd_parameters = 3;
  vps->vps_extension_flag = 1;
  uint8_t out[kHevcParamSetMaxBytes];
  int32_t n = klxutilWrite_HEVC_VPS(vps.get(), out);
  EXPECT_EQ(vps->vps_num_hrd_parameters, 0) << "the caller's record is changed too";
  auto back = std::make_unique<HEVC_VPS_DECODED>();
  Bytes written(out, out + n);
  zr_bitstream r = over(written);
  qtest::LogCapture log;
  EXPECT_EQ(klxutilRead_HEVC_VPS(&r, back.get(), nullptr, 0), written.size() - escapesIn(written));
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(back->vps_num_layer_sets_minus1, 2);
  EXPECT_EQ(back->vps_time_scale, 60000u);
  EXPECT_EQ(back->vps_num_ticks_poc_diff_one, 5u) << "stored as coded value plus one";
  EXPECT_EQ(back->vps_num_hrd_parameters, 0);
  EXPECT_EQ(back->vps_extension_flag, 0);
}

// 64 explicit (empty) short-term sets is the most that reads; 65 is refused by the writer and
// by the reader (element_ranges_test.cpp).
TEST(HevcSps, SixtyFourShortTermSetsRoundTrip) {
  auto sps = ptest::readHevcUnit<HEVC_SPS_DECODED>(realUnits().sps);
  sps->num_short_term_ref_pic_sets = 64;
  uint8_t out[kHevcParamSetMaxBytes];
  Bytes written(out, out + klxutilWrite_HEVC_SPS(sps.get(), out, 0));
  auto back = std::make_unique<HEVC_SPS_DECODED>();
  zr_bitstream r = over(written);
  EXPECT_EQ(klxutilRead_HEVC_SPS(&r, back.get(), nullptr, 0), written.size() - escapesIn(written));
  EXPECT_EQ(back->num_short_term_ref_pic_sets, 64);
}

TEST(HevcPps, PositiveSignedValuesTakeTheLibraryMapping) {
  struct Case {
    int32_t written, readBack;
  } cases[] = {{2, -3}, {1, -2}, {0, 0}, {-1, -1}, {-7, -7}};
  for (const auto& c : cases) {
    auto pps = ptest::readHevcUnit<HEVC_PPS_DECODED>(realUnits().pps);
    pps->init_qp_minus26 = c.written;
    pps->pps_cb_qp_offset = c.written;
    uint8_t out[kHevcParamSetMaxBytes];
    Bytes written(out, out + klxutilWrite_HEVC_PPS(pps.get(), out));
    auto back = std::make_unique<HEVC_PPS_DECODED>();
    zr_bitstream r = over(written);
    ASSERT_GT(klxutilRead_HEVC_PPS(&r, back.get(), nullptr, 0), 0u);
    EXPECT_EQ(back->init_qp_minus26, c.readBack) << c.written;
    EXPECT_EQ(back->pps_cb_qp_offset, c.readBack) << c.written;
  }
}

TEST(HevcReaders, TrailingBitProblemsAreReportedNotFailed) {
  const Bytes& real = realUnits().pps;
  struct Case {
    const char* what;
    std::function<void(Bytes&)> damage;
    std::string prefix;
  } cases[] = {
      {"extra byte", [](Bytes& b) { b.push_back(0x55); }, "\nklxutilRead_HEVC_PPS failed bit length is wrong = 1 padding = 0 "},
      {"padding bit set", [](Bytes& b) { b.back() |= 0x01; }, "\nklxutilRead_HEVC_PPS failed allignment bit = 1 padding = 1 "},
  };
  for (const auto& c : cases) {
    Bytes unit = real;
    ASSERT_NE(unit.back() & 0x01, 1);
    c.damage(unit);
    auto pps = std::make_unique<HEVC_PPS_DECODED>();
    qtest::LogCapture log;
    zr_bitstream s = over(unit);
    EXPECT_NE(klxutilRead_HEVC_PPS(&s, pps.get(), nullptr, 0), 0xFFFFFFFFu) << c.what;
    expectOneReport(log, c.prefix);
    EXPECT_EQ(s.position, unit.size() * 8);
  }
}

TEST(HevcWriters, CheckedFormsRefuseSmallBuffers) {
  Bytes unit = realUnits().sps;
  auto sps = ptest::readHevcUnit<HEVC_SPS_DECODED>(unit);
  Bytes out(unit.size(), 0xEE);
  EXPECT_EQ(klxutilWriteChecked_HEVC_SPS(sps.get(), out.data(), unit.size() - 1), -1);
  EXPECT_EQ(out, Bytes(unit.size(), 0xEE)) << "nothing written";
  EXPECT_EQ(klxutilWriteChecked_HEVC_SPS(sps.get(), out.data(), unit.size()), static_cast<int32_t>(unit.size()));
  EXPECT_EQ(out, unit);
}



// Syntax x265 never produces (short-term sets with inter prediction, long-term pictures, PCM,
// explicit scaling lists, the range extension): write it with our writer, then have ffmpeg's
// parser and ours read the same bytes and compare every element.
TEST(HevcWriters, RareSyntaxReadsTheSameInFfmpeg) {
  RealUnits u = realUnits();
  auto sps = ptest::readHevcUnit<HEVC_SPS_DECODED>(u.sps);

  sps->num_short_term_ref_pic_sets = 4;
  HEVC_ST_REF_PIC_SET* rps = sps->st_ref_pic_set;
  rps[0].num_negative_pics = 2;
  rps[0].delta_poc_s0_minus1[0] = 0;
  rps[0].used_by_curr_pic_s0_flag[0] = 1;
  rps[0].delta_poc_s0_minus1[1] = 1;
  rps[0].used_by_curr_pic_s0_flag[1] = 0;
  rps[0].num_positive_pics = 1;
  rps[0].delta_poc_s1_minus1[0] = 2;
  rps[0].used_by_curr_pic_s1_flag[0] = 1;
  rps[1].inter_ref_pic_set_prediction_flag = 1;  // predicted from set 0 (3 deltas + itself)
  rps[1].delta_rps_sign = 1;
  rps[1].abs_delta_rps_minus1 = 0;
  const int used1[] = {1, 0, 1, 0}, useDelta1[] = {1, 1, 1, 0};
  for (int j = 0; j < 4; ++j) {
    rps[1].used_by_curr_pic_flag[j] = used1[j];
    rps[1].use_delta_flag[j] = useDelta1[j];
  }
  rps[2].inter_ref_pic_set_prediction_flag = 1;  // predicted from set 1: its size comes from the derivation
  rps[2].abs_delta_rps_minus1 = 1;
  for (int j = 0; j < 4; ++j) rps[2].used_by_curr_pic_flag[j] = 1;
  rps[3].num_negative_pics = 1;
  rps[3].delta_poc_s0_minus1[0] = 7;
  sps->long_term_ref_pics_present_flag = 1;
  sps->num_long_term_ref_pics_sps = 2;
  sps->lt_ref_pic_poc_lsb_sps[0] = 5;
  sps->lt_ref_pic_poc_lsb_sps[1] = 200;
  sps->used_by_curr_pic_lt_sps_flag[1] = 1;
  sps->pcm_enabled_flag = 1;
  sps->pcm_sample_bit_depth_luma_minus1 = 7;
  sps->pcm_sample_bit_depth_chroma_minus1 = 6;
  sps->log2_min_pcm_luma_coding_block_size_minus3 = 0;
  sps->log2_diff_max_min_pcm_luma_coding_block_size = 1;
  sps->pcm_loop_filter_disabled_flag = 1;
  sps->scaling_list_enabled_flag = 1;
  sps->sps_scaling_list_data_present_flag = 1;
  HEVC_SCALING_LIST_DATA& sl = sps->scaling_list;
  for (int sizeId = 0; sizeId < 4; ++sizeId)
    for (int m = 0; m < 6; m += sizeId == 3 ? 3 : 1) {
      sl.scaling_list_pred_mode_flag[sizeId][m] = (m + sizeId) % 2;
      sl.scaling_list_pred_matrix_id_delta[sizeId][m] = m > 0 ? 1 : 0;
      sl.scaling_list_dc_coef_minus8[sizeId][m] = -(sizeId + m);
      for (int i = 0; i < 64; ++i) sl.scaling_list_delta_coef[sizeId][m][i] = -((i + m) % 5);
    }
  sps->sps_extension_present_flag = 1;
  sps->sps_range_extension_flag = 1;
  sps->implicit_rdpcm_enabled_flag = 1;
  sps->persistent_rice_adaptation_enabled_flag = 1;

  uint8_t out[kHevcParamSetMaxBytes];
  Bytes written(out, out + klxutilWrite_HEVC_SPS(sps.get(), out, 0));
  auto back = std::make_unique<HEVC_SPS_DECODED>();
  zr_bitstream r = over(written);
  qtest::LogCapture log;
  ASSERT_GT(klxutilRead_HEVC_SPS(&r, back.get(), nullptr, 0), 0u);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(back->st_ref_pic_set[2].use_delta_flag[0], 1) << "inferred when used_by_curr_pic_flag is 1";

  qtest::TempDir dir;
  Bytes stream;
  for (const Bytes* unit : {&u.vps, &written, &u.pps}) {
    stream.insert(stream.end(), {0, 0, 0, 1});
    stream.insert(stream.end(), unit->begin(), unit->end());
  }
  qtest::writeBytes(dir.file("rare.hevc"), stream);
  auto traced = ptest::traceHeaders(dir.file("rare.hevc"));
  const ptest::TracedUnit* theirs = ptest::firstOfKind(traced, "Sequence Parameter Set");
  ASSERT_NE(theirs, nullptr);
  for (const char* name : {"used_by_curr_pic_flag", "use_delta_flag", "lt_ref_pic_poc_lsb_sps",
                           "pcm_sample_bit_depth_luma_minus1", "scaling_list_delta_coeff", "implicit_rdpcm_enabled_flag"})
    EXPECT_TRUE(theirs->elements.count(name)) << "ffmpeg did not report " << name;
  ptest::ElementCollector ours;
  klxutilList_HEVC_SPS(back.get(), &ptest::ElementCollector::sink, &ours);
  EXPECT_GE(ptest::compareElements(ours.elements, theirs->elements, "rare SPS"), 70);
}

}  // namespace
