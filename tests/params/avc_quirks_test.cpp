// H.264 SPS/PPS reader quirks on variations of real x264 units (hostile input: fuzz_avc_sps, fuzz_avc_pps).
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "support/param_streams.h"
#include "streamutil/avc_params.h"
#include "support/test_support.h"

namespace {

using ptest::Bytes;

using ptest::over;

struct Units {
  Bytes highSps, highPps, baselinePps;
};
const Units& units() {
  static Units u = [] {
    Units r;
    auto hi = ptest::splitAnnexB(qtest::readBytes(
        ptest::x264Stream("high_hrd", "yuv420p", "-profile:v high -x264-params nal-hrd=vbr:vbv-maxrate=500:vbv-bufsize=500", "64x64")));
    auto base = ptest::splitAnnexB(qtest::readBytes(ptest::x264Stream("baseline_cavlc", "yuv420p", "-profile:v baseline", "64x64")));
    if (auto* s = ptest::firstAvcUnit(hi, 7)) r.highSps = *s;
    if (auto* p = ptest::firstAvcUnit(hi, 8)) r.highPps = *p;
    if (auto* p = ptest::firstAvcUnit(base, 8)) r.baselinePps = *p;
    return r;
  }();
  return u;
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
  Bytes high = units().highSps;
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
    Bytes plain = units().highPps, escaped = units().highPps;
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
  Bytes unit = units().highSps;
  zr_bitstream s = over(unit);
  EXPECT_EQ(klxutilRead_SPS(&s, nullptr), 0u);
  EXPECT_EQ(klxutilRead_PPS(&s, nullptr), 0u);
  zr_bitstream empty{unit.data(), 0, 64, 0};
  auto sps = std::make_unique<SPS_DECODED>();
  EXPECT_EQ(klxutilRead_SPS(&empty, sps.get()), 0u);
  EXPECT_EQ(empty.position, 0u);
}

TEST(AvcWriters, OutputCapacityIsRespected) {
  auto sps = readUnit<SPS_DECODED>(units().highSps);
  Bytes out(8, 0xEE);
  out.resize(16, 0x77);  // guard bytes behind the declared capacity
  zr_bitstream o{out.data(), 8, 64, 0};
  uint32_t n = klxutilWrite_SPS(&o, sps.get());
  EXPECT_GT(n, 8u) << "the position says how much was needed";
  EXPECT_EQ(Bytes(out.begin(), out.begin() + 8), Bytes(units().highSps.begin(), units().highSps.begin() + 8));
  EXPECT_EQ(Bytes(out.begin() + 8, out.end()), Bytes(8, 0x77)) << "nothing written beyond the size";
}

}  // namespace
