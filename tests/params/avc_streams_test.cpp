// H.264 parameter sets of real x264 streams against ffmpeg's trace_headers, read-then-write
// round trips, and the reader quirks on hand-made variations of real units.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <random>

#include "support/param_streams.h"
#include "streamutil/avc_params.h"
#include "support/test_support.h"

namespace {

using ptest::Bytes;

// A custom quantisation matrix file for x264 (JM format): lists that change, repeat at the end
// (so x264 may shorten them) and differ between intra and inter.
std::string customCqmPath() {
  std::string path = std::string(QUORVANE_BINARY_DIR) + "/test-streams/params_custom.cqm";
  std::ofstream f(path);
  auto list = [&](const char* name, int n, int base) {
    f << name << " =\n";
    for (int i = 0; i < n; ++i) f << (base + (i * 7) % 23 + (i > n - 4 ? 0 : i / 3)) << (i + 1 < n ? "," : "\n");
  };
  list("INTRA4X4_LUMA", 16, 6);
  list("INTRA4X4_CHROMAU", 16, 8);
  list("INTRA4X4_CHROMAV", 16, 8);
  list("INTER4X4_LUMA", 16, 10);
  list("INTER4X4_CHROMAU", 16, 12);
  list("INTER4X4_CHROMAV", 16, 12);
  list("INTRA8X8_LUMA", 64, 6);
  list("INTER8X8_LUMA", 64, 9);
  return path;
}

struct AvcStream {
  const char* name;
  const char* pixelFormat;
  const char* options;  // -profile:v and -x264-params
  const char* size;
};

const AvcStream kStreams[] = {
    {"baseline_cavlc", "yuv420p", "-profile:v baseline", "64x64"},
    {"main", "yuv420p", "-profile:v main", "64x48"},
    {"high_hrd", "yuv420p", "-profile:v high -x264-params nal-hrd=vbr:vbv-maxrate=500:vbv-bufsize=500", "64x64"},
    {"high_cqm", "yuv420p", "-profile:v high -x264-params cqmfile=CQM", "64x64"},
    {"high_cqm_jvt", "yuv420p", "-profile:v high -x264-params cqm=jvt", "64x64"},
    {"high10", "yuv420p10le", "-profile:v high10", "64x64"},
    {"high422", "yuv422p10le", "-profile:v high422", "64x64"},
    {"high444", "yuv444p", "-profile:v high444", "64x64"},
    {"interlaced_mbaff", "yuv420p", "-profile:v high -x264-params interlaced=1:tff=1", "64x64"},
    {"colour_sar_crop", "yuv420p",
     "-profile:v high -x264-params colorprim=bt2020:transfer=smpte2084:colormatrix=bt2020nc:range=pc:sar=5/7:chromaloc=1:overscan=show",
     "100x58"},
};

using ptest::over;

// Decodes ffmpeg's delta_scale values into scale lists (7.3.2.1.1.1) for the lists flagged present.
std::vector<int32_t> scalesFromDeltas(const std::vector<int64_t>& deltas, const std::vector<int64_t>& present) {
  std::vector<int32_t> scales;
  size_t d = 0;
  for (size_t i = 0; i < present.size(); ++i) {
    if (!present[i]) continue;
    int size = i < 6 ? 16 : 64;
    int last = 8, next = 8;
    for (int j = 0; j < size; ++j) {
      if (next != 0) next = static_cast<int>((last + deltas.at(d++) + 256) % 256);
      scales.push_back(next == 0 ? last : next);
      last = scales.back();
    }
  }
  return scales;
}

std::vector<int32_t> ourScales(const AVC_SCALING_MATRIX& m, int lists) {
  std::vector<int32_t> scales;
  for (int i = 0; i < lists; ++i) {
    if (!m.scaling_list_present_flag[i]) continue;
    const int32_t* list = i < 6 ? m.ScalingList4x4[i] : m.ScalingList8x8[i - 6];
    scales.insert(scales.end(), list, list + (i < 6 ? 16 : 64));
  }
  return scales;
}

// Turns the scale values read into the delta_scale entries the writer codes.
void toDeltas(AVC_SCALING_MATRIX& m) {
  for (int i = 0; i < 6; ++i) klxutilScalingListToDeltas(m.ScalingList4x4[i], 16, m.ScalingList4x4[i]);
  for (int i = 0; i < 6; ++i) klxutilScalingListToDeltas(m.ScalingList8x8[i], 64, m.ScalingList8x8[i]);
}

class AvcStreams : public ::testing::TestWithParam<AvcStream> {};

TEST_P(AvcStreams, MatchFfmpegTraceAndRoundTrip) {
  const AvcStream& param = GetParam();
  std::string options = param.options;
  if (size_t at = options.find("CQM"); at != std::string::npos) options.replace(at, 3, customCqmPath());
  std::string path = ptest::x264Stream(param.name, param.pixelFormat, options, param.size);
  ASSERT_FALSE(path.empty());
  auto units = ptest::splitAnnexB(qtest::readBytes(path));
  const Bytes* spsFound = ptest::firstAvcUnit(units, 7);
  const Bytes* ppsFound = ptest::firstAvcUnit(units, 8);
  ASSERT_TRUE(spsFound && ppsFound);
  Bytes spsNal = *spsFound, ppsNal = *ppsFound;

  auto sps = std::make_unique<SPS_DECODED>();
  auto pps = std::make_unique<PPS_DECODED>();
  zr_bitstream s = over(spsNal), p = over(ppsNal);
  EXPECT_EQ(klxutilRead_SPS(&s, sps.get()), spsNal.size() - ptest::escapesIn(spsNal)) << "bytes of the unescaped copy";
  EXPECT_EQ(klxutilRead_PPS(&p, pps.get()), ppsNal.size() - ptest::escapesIn(ppsNal));
  EXPECT_EQ(s.buffer, spsNal.data()) << "the caller's buffer is put back";
  EXPECT_EQ(sps->rbsp_stop_one_bit, 1);
  EXPECT_EQ(pps->rbsp_stop_one_bit, 1);

  auto traced = ptest::traceHeaders(path);
  const ptest::TracedUnit* theirSps = ptest::firstOfKind(traced, "Sequence Parameter Set");
  const ptest::TracedUnit* theirPps = ptest::firstOfKind(traced, "Picture Parameter Set");
  ASSERT_TRUE(theirSps && theirPps);
  ptest::ElementCollector ourSps, ourPps;
  klxutilList_SPS(sps.get(), &ptest::ElementCollector::sink, &ourSps);
  klxutilList_PPS(pps.get(), &ptest::ElementCollector::sink, &ourPps);
  auto rename = [](ptest::ElementValues& e, const std::string& from, const std::string& to) {
    if (auto it = e.find(from); it != e.end()) {
      e[to] = it->second;
      e.erase(from);
    }
  };
  rename(ourSps.elements, "scaling_list_present_flag", "seq_scaling_list_present_flag");
  rename(ourPps.elements, "scaling_list_present_flag", "pic_scaling_list_present_flag");
  rename(ourSps.elements, "gaps_in_frame_num_value_allowed_flag", "gaps_in_frame_num_allowed_flag");  // ffmpeg's name
  EXPECT_GE(ptest::compareElements(ourSps.elements, theirSps->elements, std::string(param.name) + " SPS"), 28);
  EXPECT_GE(ptest::compareElements(ourPps.elements, theirPps->elements, std::string(param.name) + " PPS"), 17);
  // Scaling lists: ffmpeg reports delta_scale; decode them and compare with our scale values.
  auto flags = [](const ptest::TracedUnit* u, const char* name) {
    auto it = u->elements.find(name);
    return it == u->elements.end() ? std::vector<int64_t>{} : it->second;
  };
  std::vector<int64_t> deltas = flags(theirSps, "delta_scale");
  std::vector<int64_t> seqPresent = flags(theirSps, "seq_scaling_list_present_flag");
  EXPECT_EQ(ourScales(sps->seq_scaling, static_cast<int>(seqPresent.size())), scalesFromDeltas(deltas, seqPresent));
  std::vector<int64_t> picPresent = flags(theirPps, "pic_scaling_list_present_flag");
  EXPECT_EQ(ourScales(pps->pic_scaling, static_cast<int>(picPresent.size())),
            scalesFromDeltas(flags(theirPps, "delta_scale"), picPresent));

  // Read then write gives the units back byte for byte once the scale values are turned back
  // into the delta_scale entries the writers code (x264 codes every delta, no run shortening).
  toDeltas(sps->seq_scaling);
  toDeltas(pps->pic_scaling);
  struct Unit {
    const char* what;
    const Bytes& original;
    std::function<uint32_t(zr_bitstream*)> write;
  } written[] = {
      {"SPS", spsNal, [&](zr_bitstream* o) { return klxutilWrite_SPS(o, sps.get()); }},
      {"PPS", ppsNal, [&](zr_bitstream* o) { return klxutilWrite_PPS(o, pps.get()); }},
  };
  for (auto& w : written) {
    Bytes out(w.original.size() * 2 + 64, 0);
    zr_bitstream o = over(out);
    out.resize(w.write(&o));
    EXPECT_EQ(out, w.original) << param.name << " " << w.what;
  }
}

INSTANTIATE_TEST_SUITE_P(X264, AvcStreams, ::testing::ValuesIn(kStreams),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
