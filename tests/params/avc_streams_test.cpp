// H.264 parameter sets of real x264 streams against ffmpeg's trace_headers, read-then-write
// round trips, and the reader quirks on hand-made variations of real units (hostile input:
// fuzz_avc_sps, fuzz_avc_pps); the SPSs of a stream by id: which one a picture finds, and what an
// unreadable SPS or a unit of another kind does to the set (nothing).
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <memory>

#include "support/param_streams.h"
#include "streamutil/avc_params.h"
#include "streamutil/avc_sps_set.h"
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
    // A size of 8 bytes (units longer than that): those 8 written, nothing behind them, the
    // position says more was needed.
    if (w.original.size() <= 8) continue;
    Bytes small(16, 0x77);
    zr_bitstream cut{small.data(), 8, 64, 0};
    EXPECT_GT(w.write(&cut), 8u) << param.name << " " << w.what;
    EXPECT_EQ(Bytes(small.begin(), small.begin() + 8), Bytes(w.original.begin(), w.original.begin() + 8));
    EXPECT_EQ(Bytes(small.begin() + 8, small.end()), Bytes(8, 0x77)) << "nothing written beyond the size";
  }
}

INSTANTIATE_TEST_SUITE_P(X264, AvcStreams, ::testing::ValuesIn(kStreams),
                         [](const auto& info) { return std::string(info.param.name); });

// The first unit of `type` in the stream file (empty when there is none).
Bytes firstUnitIn(const std::string& path, int type) {
  const auto units = ptest::splitAnnexB(qtest::readBytes(path));
  const Bytes* unit = ptest::firstAvcUnit(units, type);
  return unit ? *unit : Bytes{};
}

// The SPS and PPS of the high_hrd stream.
const Bytes& highUnit(int type) {
  static const std::string path = ptest::x264Stream(kStreams[2].name, kStreams[2].pixelFormat, kStreams[2].options, kStreams[2].size);
  static const Bytes sps = firstUnitIn(path, 7), pps = firstUnitIn(path, 8);
  return type == 7 ? sps : pps;
}

template <class Record>
std::unique_ptr<Record> readUnit(Bytes unit, uint32_t* result = nullptr) {
  auto rec = std::make_unique<Record>();
  zr_bitstream s = over(unit);
  uint32_t r;
  if constexpr (std::is_same_v<Record, SPS_DECODED>)
    r = klxutilRead_SPS(&s, rec.get());
  else
    r = klxutilRead_PPS(&s, rec.get());
  if (result) *result = r;
  return rec;
}

TEST(AvcSps, ProfilesOutsideTheHighListSkipTheChromaFields) {
  // The same body under different profile_idc: listed profiles read chroma_format_idc and bit
  // depths; 134, 135, 138, 139 (and Main) do not, so the rest of the unit is read differently.
  Bytes high = highUnit(7);
  ASSERT_EQ(high[1], 100);
  auto asHigh = readUnit<SPS_DECODED>(high);
  struct Case {
    uint8_t profile;
    bool highBranch;
  } cases[] = {{100, true}, {244, true}, {44, true}, {77, false}, {134, false}, {135, false}, {138, false}, {139, false}};
  for (const auto& c : cases) {
    Bytes unit = high;
    unit[1] = c.profile;
    auto sps = readUnit<SPS_DECODED>(unit);
    EXPECT_EQ(sps->profile_idc, c.profile);
    if (c.highBranch) {
      EXPECT_EQ(sps->pic_width_in_mbs_minus1, asHigh->pic_width_in_mbs_minus1) << int(c.profile);
      EXPECT_EQ(sps->vui.time_scale, asHigh->vui.time_scale) << int(c.profile);
    } else {
      EXPECT_EQ(sps->chroma_format_idc, 1) << "inferred, not read";
      EXPECT_EQ(sps->bit_depth_luma_minus8, 0);
      // chroma_format_idc "010" is taken as log2_max_frame_num_minus4 = 1.
      EXPECT_EQ(sps->log2_max_frame_num_minus4, 1) << int(c.profile);
    }
  }
}

// Inserting 00 00 <escape> where 00 00 alone would do changes nothing the PPS reader reads: it
// takes 03 and (kept) 0C as emulation prevention. (The SPS reader's standard removal of 03 alone:
// fuzz_avc_sps, whose units read back only when it agrees with ITU-T H.264 7.4.1.)
TEST(AvcReaders, PpsEscapeBytesAreDroppedBeforeParsing) {
  for (uint8_t escape : {0x03, 0x0C}) {
    Bytes plain = highUnit(8), escaped = highUnit(8);
    ASSERT_GE(plain.size(), 6u);
    // Place the zeros after byte 3 so the scan (which starts at byte 3) sees them.
    plain.insert(plain.begin() + 4, {0x00, 0x00});
    escaped.insert(escaped.begin() + 4, {0x00, 0x00, escape});
    uint32_t plainResult = 0, escapedResult = 0;
    auto a = readUnit<PPS_DECODED>(plain, &plainResult);
    auto b = readUnit<PPS_DECODED>(escaped, &escapedResult);
    EXPECT_EQ(std::memcmp(a.get(), b.get(), sizeof(PPS_DECODED)), 0) << int(escape);
    EXPECT_EQ(plainResult, escapedResult) << int(escape);
  }
}

TEST(AvcReaders, NullRecordOrEmptyStreamReturnZero) {
  Bytes unit = highUnit(7);
  zr_bitstream s = over(unit);
  EXPECT_EQ(klxutilRead_SPS(&s, nullptr), 0u);
  EXPECT_EQ(klxutilRead_PPS(&s, nullptr), 0u);
  zr_bitstream empty{unit.data(), 0, 64, 0};
  auto sps = std::make_unique<SPS_DECODED>();
  EXPECT_EQ(klxutilRead_SPS(&empty, sps.get()), 0u);
  EXPECT_EQ(empty.position, 0u);
}

TEST(AvcSpsSet, APictureFindsTheSpsOfItsIdAndBadUnitsChangeNothing) {
  const Bytes sps0 = highUnit(7);
  const Bytes sps3 = firstUnitIn(ptest::x264Stream("sps-set-3.264", "yuv420p", "-profile:v main -x264-params sps-id=3", "176x96"), 7);
  ASSERT_FALSE(sps0.empty());
  ASSERT_FALSE(sps3.empty());
  auto set = std::make_unique<KLXUTIL_AVC_SPS_SET>();
  ASSERT_EQ(klxutilAvcSpsSetInit(set.get()), 0);
  EXPECT_EQ(klxutilAvcSpsSetFind(set.get(), -1), nullptr);
  EXPECT_EQ(klxutilAvcSpsSetLearn(set.get(), sps0.data(), uint32_t(sps0.size())), 0);
  EXPECT_EQ(klxutilAvcSpsSetLearn(set.get(), sps3.data(), uint32_t(sps3.size())), 0);
  const Bytes pps = {0x68, 0xEB, 0xE3, 0xCB, 0x22, 0xC0};
  const Bytes truncated0(sps0.begin(), sps0.begin() + 4);
  struct Case {
    const char* what;
    const Bytes& unit;
    int learnt;
  };
  const Case cases[] = {{"a PPS", pps, 1}, {"an SPS cut short", truncated0, -1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(klxutilAvcSpsSetLearn(set.get(), c.unit.data(), uint32_t(c.unit.size())), c.learnt);
    const SPS_DECODED* first = klxutilAvcSpsSetFind(set.get(), 0);
    const SPS_DECODED* last = klxutilAvcSpsSetFind(set.get(), -1);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(first->profile_idc, 100);
    EXPECT_EQ(last->seq_parameter_set_id, 3);  // an id not known: the SPS learnt last
    EXPECT_EQ(last->profile_idc, 77);
    EXPECT_EQ(klxutilAvcSpsSetFind(set.get(), 1), nullptr);
    EXPECT_EQ(klxutilAvcSpsSetFind(set.get(), 32), nullptr);
  }
}

}  // namespace
