// HEVC parameter sets of real x265 streams: every element ffmpeg's trace_headers reports must
// match ours, and read-then-write must give the unit back byte for byte unless the stream is
// listed as exempt (with the reason).
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "support/param_streams.h"
#include "streamutil/hevc_params.h"
#include "support/test_support.h"

namespace {

using ptest::Bytes;

// Why a unit may not come back byte for byte.
enum Exempt : unsigned {
  kNone = 0,
  kPpsPositiveSigned = 1,  // positive se(v) values are written as code 2v + 2 by the HEVC writers
};

struct HevcStream {
  const char* name;
  const char* pixelFormat;
  const char* x265Params;
  const char* size;
  unsigned exempt;
};

const HevcStream kStreams[] = {
    {"main_hrd", "yuv420p", "hrd=1:vbv-maxrate=500:vbv-bufsize=500", "64x64", kNone},
    {"main10", "yuv420p10le", "", "64x64", kNone},
    {"main422_10", "yuv422p10le", "", "64x64", kNone},
    {"main444", "yuv444p", "", "64x64", kPpsPositiveSigned},  // x265 codes pps_cb/cr_qp_offset > 0
    {"hdr_colour", "yuv420p10le", "colorprim=bt2020:transfer=smpte2084:colormatrix=bt2020nc:range=full:hdr10=1", "64x64", kNone},
    {"scaling_default", "yuv420p", "scaling-list=default", "64x64", kNone},
    {"interlaced_fields", "yuv420p", "interlace=tff", "64x64", kNone},
    {"two_sub_layers", "yuv420p", "temporal-layers=1:bframes=2", "64x64", kNone},
    {"vui_kitchen_sink", "yuv420p", "sar=5:7:overscan=show:chromaloc=1:display-window=8,0,0,8:videoformat=pal", "96x64", kNone},
    {"odd_size_crop", "yuv420p", "", "100x58", kNone},
};

zr_bitstream over(const Bytes& b) {
  return zr_bitstream{const_cast<uint8_t*>(b.data()), static_cast<int64_t>(b.size()), b.size() * 8, 0};
}

bool hasPositiveSigned(const HEVC_PPS_DECODED& p) {
  return p.init_qp_minus26 > 0 || p.pps_cb_qp_offset > 0 || p.pps_cr_qp_offset > 0 || p.pps_beta_offset_div2 > 0 ||
         p.pps_tc_offset_div2 > 0;
}

class HevcStreams : public ::testing::TestWithParam<HevcStream> {};

TEST_P(HevcStreams, MatchFfmpegTraceAndRoundTrip) {
  const HevcStream& param = GetParam();
  std::string path = ptest::x265Stream(param.name, param.pixelFormat, param.x265Params, param.size);
  ASSERT_FALSE(path.empty());
  auto units = ptest::splitAnnexB(qtest::readBytes(path));
  const Bytes* vpsNal = ptest::firstHevcUnit(units, 32);
  const Bytes* spsNal = ptest::firstHevcUnit(units, 33);
  const Bytes* ppsNal = ptest::firstHevcUnit(units, 34);
  ASSERT_TRUE(vpsNal && spsNal && ppsNal);
  auto traced = ptest::traceHeaders(path);

  auto vps = std::make_unique<HEVC_VPS_DECODED>();
  auto sps = std::make_unique<HEVC_SPS_DECODED>();
  auto pps = std::make_unique<HEVC_PPS_DECODED>();
  HEVC_DECODED summary{};
  {
    qtest::LogCapture log;
    zr_bitstream v = over(*vpsNal), s = over(*spsNal), p = over(*ppsNal);
    EXPECT_GT(klxutilRead_HEVC_VPS(&v, vps.get(), &summary, 0), 0u);
    // x265's profile_tier_level always needs emulation prevention: the SPS is read from an
    // unescaped copy, and its trailing bits are checked against that copy's length.
    ASSERT_GT(ptest::escapesIn(*spsNal), 0u);
    EXPECT_EQ(klxutilRead_HEVC_SPS(&s, sps.get(), &summary, 0), spsNal->size() - ptest::escapesIn(*spsNal));
    EXPECT_GT(klxutilRead_HEVC_PPS(&p, pps.get(), &summary, 0), 0u);
    EXPECT_EQ(s.position, spsNal->size() * 8) << "the input moves on by the whole unit";
    for (const auto& line : log.lines()) ADD_FAILURE() << param.name << ": unexpected report: " << line.text;
  }
  EXPECT_EQ(summary.general_profile_idc, static_cast<uint32_t>(sps->ptl.general_profile_idc));
  EXPECT_EQ(summary.general_level_idc, static_cast<uint32_t>(sps->ptl.general_level_idc));

  struct Check {
    const char* kind;
    void (*list)(const void*, klxutilParamElementSink, void*);
    const void* record;
    int minimumCompared;
  } checks[] = {
      {"Video Parameter Set", [](const void* r, klxutilParamElementSink k, void* u) { klxutilList_HEVC_VPS(static_cast<const HEVC_VPS_DECODED*>(r), k, u); }, vps.get(), 15},
      {"Sequence Parameter Set", [](const void* r, klxutilParamElementSink k, void* u) { klxutilList_HEVC_SPS(static_cast<const HEVC_SPS_DECODED*>(r), k, u); }, sps.get(), 35},
      {"Picture Parameter Set", [](const void* r, klxutilParamElementSink k, void* u) { klxutilList_HEVC_PPS(static_cast<const HEVC_PPS_DECODED*>(r), k, u); }, pps.get(), 25},
  };
  for (const auto& c : checks) {
    const ptest::TracedUnit* theirs = ptest::firstOfKind(traced, c.kind);
    ASSERT_NE(theirs, nullptr) << c.kind;
    ptest::ElementCollector ours;
    c.list(c.record, &ptest::ElementCollector::sink, &ours);
    int compared = ptest::compareElements(ours.elements, theirs->elements, std::string(param.name) + " " + c.kind);
    EXPECT_GE(compared, c.minimumCompared) << param.name << " " << c.kind;
  }

  // Read then write.
  uint8_t out[kHevcParamSetMaxBytes];
  int32_t n = klxutilWrite_HEVC_SPS(sps.get(), out, 0);
  const Bytes spsWritten(out, out + n);

  // The SPS reader leaves the large tables past the coded counts as they were: read into a
  // record full of stale bytes, it must list and write exactly as the clean record does.
  auto stale = std::make_unique<HEVC_SPS_DECODED>();
  std::memset(static_cast<void*>(stale.get()), 0xA5, sizeof *stale);
  zr_bitstream again = over(*spsNal);
  ASSERT_GT(klxutilRead_HEVC_SPS(&again, stale.get(), nullptr, 0), 0u);
  ptest::ElementCollector clean, dirty;
  klxutilList_HEVC_SPS(sps.get(), &ptest::ElementCollector::sink, &clean);
  klxutilList_HEVC_SPS(stale.get(), &ptest::ElementCollector::sink, &dirty);
  EXPECT_EQ(clean.elements, dirty.elements) << param.name;
  n = klxutilWrite_HEVC_SPS(stale.get(), out, 0);
  EXPECT_EQ(Bytes(out, out + n), spsWritten) << param.name << " SPS read over stale bytes";

  n = klxutilWrite_HEVC_VPS(vps.get(), out);
  EXPECT_EQ(Bytes(out, out + n), *vpsNal) << param.name << " VPS";
  EXPECT_EQ(spsWritten, *spsNal) << param.name << " SPS";
  n = klxutilWrite_HEVC_PPS(pps.get(), out);
  EXPECT_EQ(hasPositiveSigned(*pps), (param.exempt & kPpsPositiveSigned) != 0)
      << param.name << ": the exemption list is out of date";
  if (!(param.exempt & kPpsPositiveSigned)) {
    EXPECT_EQ(Bytes(out, out + n), *ppsNal) << param.name << " PPS";
  }
}

INSTANTIATE_TEST_SUITE_P(X265, HevcStreams, ::testing::ValuesIn(kStreams),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
