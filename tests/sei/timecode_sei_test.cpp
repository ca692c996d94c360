#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "platform/tcxlat.h"
#include "streamutil/sei.h"
#include "support/edit_support.h"
#include "support/param_streams.h"
#include "sei_support.h"

namespace {

using qtest::Bytes;
using qtest::cat;
using stest::rbspOf;

// Reads bits MSB first from a byte vector (the test's own reader, for checking fields).
struct BitReader {
  const Bytes& b;
  size_t pos = 0;
  uint32_t u(int n) {
    uint32_t v = 0;
    for (int i = 0; i < n; ++i, ++pos) v = v << 1 | ((b.at(pos / 8) >> (7 - pos % 8)) & 1);
    return v;
  }
};

struct TimeCodeFields {
  uint32_t payloadType, payloadSize, numClockTs, clockFlag, fieldBased, countingType, fullFlag, discontinuity,
      cntDropped, frames, seconds, minutes, hours, offsetLength;
};
TimeCodeFields parseTimeCode(const Bytes& unit) {
  Bytes rbsp = rbspOf(unit);
  BitReader r{rbsp};
  EXPECT_EQ(r.u(16), 0x4E01u);
  TimeCodeFields f{};
  f.payloadType = r.u(8), f.payloadSize = r.u(8), f.numClockTs = r.u(2), f.clockFlag = r.u(1), f.fieldBased = r.u(1);
  f.countingType = r.u(5), f.fullFlag = r.u(1), f.discontinuity = r.u(1), f.cntDropped = r.u(1);
  f.frames = r.u(9), f.seconds = r.u(6), f.minutes = r.u(6), f.hours = r.u(5), f.offsetLength = r.u(5);
  EXPECT_EQ(r.u(1), 1u) << "payload_bit_equal_to_one";
  return f;
}

Bytes timeCodeUnit(uint32_t frame, uint32_t rate, bool fields) {
  Bytes out(512, 0xEE);
  out.resize(klxUtilAddHevcTimecodeSEIRate(out.data(), frame, rate, fields));
  return out;
}

TEST(TimeCodeSei, FieldsFollowTheTimecodeLibrary) {
  // For each stream rate: the timecode type the digits must come from, and the counting_type.
  struct Case {
    uint32_t rate;
    bool fields;
    uint32_t tcType, countingType, fieldBased;
  };
  const Case cases[] = {
      {23, false, TC_FILM, 0, 0},   {24, false, TC_FILM, 0, 0},   {25, false, TC_PAL, 0, 0},
      {30, false, TC_NDF30, 0, 0},  {50, false, TC_50, 0, 0},     {50, true, TC_PAL, 0, 1},
      {59, false, TC_DF5994, 6, 0}, {59, true, TC_DF2997, 4, 1},  {60, false, TC_60, 0, 0},
      {60, true, TC_NDF30, 0, 1},   {29, false, TC_DF2997, 4, 0}, {120, false, TC_DF2997, 4, 0},
  };
  for (const auto& c : cases) {
    for (uint32_t frame : {0u, 1u, 1799u, 1800u, 107892u, 2589407u}) {
      uint8_t digits[4];
      ASSERT_EQ(tc2String(frame, c.tcType | TCF_DIGITS, digits, 4), 0);
      const Bytes unit = timeCodeUnit(frame, c.rate, c.fields);
      const auto f = parseTimeCode(unit);
      SCOPED_TRACE(testing::Message() << "rate " << c.rate << (c.fields ? " fields" : "") << " frame " << frame);
      EXPECT_EQ((std::vector<uint32_t>{f.payloadType, f.payloadSize, f.numClockTs, f.clockFlag, f.fieldBased, f.countingType,
                                       f.fullFlag, f.discontinuity, f.hours, f.minutes, f.seconds, f.frames, f.offsetLength}),
                (std::vector<uint32_t>{136, 6, 1, 1, c.fieldBased, c.countingType, 1, 0, digits[0], digits[1], digits[2], digits[3], 0}));
      EXPECT_EQ(unit.back(), 0x80);
    }
  }
}

TEST(TimeCodeSei, CntDroppedFlagRuleIsKeptAsStated) {
  // Set only when the minute differs from the previous frame's AND the seconds are not 0 — so
  // a plain drop at a minute start (seconds 0) does NOT set it. Oracle: the timecode library.
  for (uint32_t type : {TC_DF2997, TC_DF5994}) {
    const uint32_t rate = type == TC_DF2997 ? 29 : 59;
    for (uint32_t frame = 0; frame < 40000; frame += 7) {
      uint8_t now[4], prev[4];
      tc2String(frame, type | TCF_DIGITS, now, 4);
      tc2String(frame ? frame - 1 : 0, type | TCF_DIGITS, prev, 4);
      const uint32_t expected = prev[1] != now[1] && now[2] != 0;
      ASSERT_EQ(parseTimeCode(timeCodeUnit(frame, rate, false)).cntDropped, expected) << frame;
    }
    EXPECT_EQ(parseTimeCode(timeCodeUnit(1800, rate, false)).cntDropped, 0u);
  }
  EXPECT_EQ(parseTimeCode(timeCodeUnit(1800, 30, false)).cntDropped, 0u);
}

TEST(CloseSei, EscapesPatchesAndFramesAnyPayload) {
  std::mt19937 rng(1);
  for (int iter = 0; iter < 300; ++iter) {
    uint8_t work[512] = {}, out[1100];
    zr_bitstream w{work, sizeof work, sizeof work * 8, 0};
    WriteBits(&w, 32, 1);
    WriteBits(&w, 16, 0x4E01);
    WriteBits(&w, 8, 5);
    WriteBits(&w, 8, 0xAB);  // wrong on purpose: must be patched
    const int payloadBits = 1 + int(rng() % 1500);
    for (int i = 0; i < payloadBits; ++i) WriteBit(&w, rng() % 5 == 0);
    const bool prefix = iter % 2;
    zr_bitstream o{out, sizeof out, sizeof out * 8, 0};
    CloseSEI(&w, &o, 7, prefix);
    const Bytes unit(out, out + o.position / 8);
    const size_t payloadBytes = (payloadBits + 7) / 8;  // payload_bit_equal_to_one fills a partial byte
    if (prefix) {
      const uint32_t announced = uint32_t(unit[0]) << 24 | uint32_t(unit[1]) << 16 | uint32_t(unit[2]) << 8 | unit[3];
      ASSERT_EQ(announced, unit.size() - 4);
    } else {
      ASSERT_EQ(Bytes(unit.begin(), unit.begin() + 4), (Bytes{0, 0, 0, 1}));
    }
    Bytes rbsp = rbspOf(unit);
    ASSERT_EQ(rbsp.size(), 2 + 1 + 1 + payloadBytes + 1);
    EXPECT_EQ(rbsp[3], payloadBytes);
    EXPECT_EQ(rbsp.back(), 0x80);
    ASSERT_TRUE(std::equal(rbsp.begin() + 4, rbsp.end() - 1, work + 8)) << "payload bytes survive";
    for (size_t i = 4; i + 2 < unit.size(); ++i)
      ASSERT_FALSE(unit[i] == 0 && unit[i + 1] == 0 && unit[i + 2] <= 2) << "unescaped at " << i;
  }
}

TEST(CloseSei, OutputBeyondCapacityIsDropped) {
  uint8_t work[512] = {};
  zr_bitstream w{work, sizeof work, sizeof work * 8, 0};
  WriteBits(&w, 32, 1);
  for (int i = 0; i < 40; ++i) WriteBits(&w, 8, 0x55);
  Bytes out(20, 0xEE);
  out.push_back(0x77);  // guard byte: must survive
  zr_bitstream o{out.data(), 20, 20 * 8, 0};
  CloseSEI(&w, &o, SEI_NO_PAYLOAD_SIZE_PATCH, false);
  EXPECT_EQ(out[20], 0x77);
  EXPECT_EQ(out[0], 0);
  EXPECT_EQ(out[4], 0x55);
}

TEST(AtcSei, BytesAndFlags) {
  for (uint32_t flags : {0u, 0x0Eu, 0xFFu, 0x5u}) {
    uint8_t out[64];
    const uint32_t n = klxUtilAddSeiATC(out, flags);
    const Bytes expected = {0, 0, 0, 1, 0x4E, 0x01, 0x04, 0x08, 0xB5, 0x00, 0x31, 0x44, 0x54, 0x47, 0x31,
                            uint8_t((flags & 0x0E) | 1), 0x80};
    EXPECT_EQ(Bytes(out, out + n), expected) << flags;
    uint8_t small[16];
    EXPECT_EQ(klxUtilAddSeiATCChecked(small, sizeof small, flags), 0u);
    EXPECT_EQ(klxUtilAddSeiATCChecked(out, 17, flags), 17u);
  }
}

// ---- insertion into frames

const Bytes kVps = {0, 0, 0, 1, 0x40, 0x01, 0x0C, 0x01};
const Bytes kSps = {0, 0, 0, 1, 0x42, 0x01, 0x01, 0x01};
const Bytes kPps = {0, 0, 0, 1, 0x44, 0x01, 0xC1, 0x72};
const Bytes kAud = {0, 0, 0, 1, 0x46, 0x01, 0x50};
const Bytes kSeiHash = {0, 0, 0, 1, 0x4E, 0x01, 0x05, 0x02, 0xAA, 0xBB, 0x80};  // user data unregistered
const Bytes kSeiTc = {0, 0, 0, 1, 0x4E, 0x01, 0x88, 0x06, 1, 2, 3, 4, 5, 6, 0x80};
const Bytes kIdr = {0, 0, 0, 1, 0x26, 0x01, 0xAF, 0x11, 0x22, 0x33};
const Bytes kTrail = {0, 0, 0, 1, 0x02, 0x01, 0xD0, 0x44};
const Bytes kCra = {0, 0, 0, 1, 0x2A, 0x01, 0xAF, 0x55};
const Bytes kReserved22 = {0, 0, 0, 1, 0x2C, 0x01, 0x00, 0x01};  // type 22: h = 44, not a slice here
const Bytes kEos = {0, 0, 0, 1, 0x48, 0x01};

TEST(HevcTimeCodeInsertion, GoesInFrontOfTheFirstPrefixSeiOrSlice) {
  struct Case {
    const char* name;
    Bytes frame;
    int64_t at;  // -1: frame must stay unchanged
  };
  const Case cases[] = {
      {"parameter sets then slice", cat({kVps, kSps, kPps, kIdr}), 24},
      {"in front of the first prefix SEI", cat({kVps, kSps, kPps, kSeiHash, kIdr}), 24},
      {"AUD then slice: behind the AUD", cat({kAud, kTrail}), 7},
      {"AUD and no slice or SEI: still behind the AUD", cat({kAud, kEos}), 7},
      {"CRA, the last slice type", cat({kVps, kCra}), 8},
      {"a time_code SEI is already there", cat({kVps, kSps, kPps, kSeiTc, kIdr}), -1},
      {"a second SEI carries the time_code", cat({kAud, kSeiHash, kSeiTc, kTrail}), -1},
      {"no start code at all", Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9}, 0},
      {"type 22 is not taken for a slice", cat({kReserved22, kEos, kTrail}), 14},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Bytes buffer = c.frame;
    buffer.resize(c.frame.size() + 64, 0xEE);
    DFRAME f = qtest::frameOver(buffer, c.frame.size());
    f.nFrame = 7;
    f.nTimecodeAlt = 90000;  // 01:00:00:00 at 25: the record's set slot wins over the frame number
    f.nSecondPartOffset = 1000;
    EXPECT_EQ(klxutilAddHEVCTimeCode(&f, TC_PAL), 0);
    if (c.at < 0) {
      EXPECT_EQ(f.nDataSize, c.frame.size());
      EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + f.nDataSize), c.frame);
      continue;
    }
    const Bytes sei = timeCodeUnit(90000, 25, false);
    ASSERT_EQ(f.nDataSize, c.frame.size() + sei.size());
    EXPECT_EQ(f.nSecondPartOffset, 1000 + sei.size());
    const Bytes expected = [&] {
      Bytes e = c.frame;
      e.insert(e.begin() + c.at, sei.begin(), sei.end());
      return e;
    }();
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + f.nDataSize), expected);
    // The checked form: one byte short is refused and leaves the buffer alone, exactly enough fits.
    for (const bool fits : {false, true}) {
      Bytes tight = c.frame;
      tight.resize(expected.size() - !fits, 0xEE);
      const Bytes before = tight;
      DFRAME g = qtest::frameOver(tight, c.frame.size());
      g.nTimecodeAlt = 90000;
      EXPECT_EQ(klxutilAddHEVCTimeCodeChecked(&g, TC_PAL), fits ? 0 : KLX_SEI_NO_ROOM);
      EXPECT_EQ(tight, fits ? expected : before);
    }
  }
  EXPECT_EQ(klxutilAddHEVCTimeCodeChecked(nullptr, TC_PAL), -1);
}

// The SPS of a real x265 stream decides the rate: 59.94 progressive gives counting_type 6 and
// 59.94 drop-frame digits, 25 gives counting_type 0.
TEST(TimeCodeSei, RateAndFieldCodingComeFromARealSps) {
  struct Case {
    const char* sample;
    uint32_t tcType, countingType;
  };
  for (const Case& c : {Case{"hevc_main10_320x180_5994.hevc", TC_DF5994, 6}, Case{"hevc_main_160x90_25fps.hevc", TC_PAL, 0},
                        Case{"hevc_main_160x90_2997_bframes.hevc", TC_DF2997, 4}}) {
    const auto units = ptest::splitAnnexB(qtest::readBytes(qtest::samplePath(c.sample)));
    const Bytes* found = ptest::firstHevcUnit(units, 33);
    ASSERT_NE(found, nullptr) << c.sample;
    const auto sps = ptest::readHevcUnit<HEVC_SPS_DECODED>(*found);
    Bytes unit(512);
    unit.resize(klxUtilAddHevcTimecodeSEI(unit.data(), 107892, sps.get()));
    const auto f = parseTimeCode(unit);
    uint8_t digits[4];
    tc2String(107892, c.tcType | TCF_DIGITS, digits, 4);
    EXPECT_EQ(f.countingType, c.countingType) << c.sample;
    EXPECT_EQ(f.fieldBased, 0u) << c.sample;
    EXPECT_EQ((Bytes{uint8_t(f.hours), uint8_t(f.minutes), uint8_t(f.seconds), uint8_t(f.frames)}),
              Bytes(digits, digits + 4))
        << c.sample;
    Bytes small(unit.size() - 1);
    EXPECT_EQ(klxUtilAddHevcTimecodeSEIChecked(small.data(), uint32_t(small.size()), 107892, sps.get()), 0u);
  }
  uint8_t out[512];
  EXPECT_EQ(klxUtilAddHevcTimecodeSEI(out, 0, nullptr), 0u);
  HEVC_SPS_DECODED noTiming{};
  EXPECT_EQ(klxUtilAddHevcTimecodeSEI(out, 0, &noTiming), 0u);
}

}  // namespace
