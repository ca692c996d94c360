// The dvvC reader against the writer: every bit lands in exactly one field and is written back
// where it was, random records read at any bit offset write back unchanged, short input is
// refused; and the dvcc command (its refusals: cli_test.cpp).
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cstring>
#include <random>
#include <vector>

#include "streamutil/hevc_config_record.h"
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

TEST(DvccCommand, WritesABoxThatReadsBackAsJson) {
  qtest::TempDir dir;
  struct Case {
    const char* options;
    int profile, level, rpu, el, bl, compatibility;
  } const kCases[] = {
      {"--profile 5 --level 9", 5, 9, 1, 0, 1, 0},  // the defaults
      {"--profile 127 --level 63 --rpu 0 --el 1 --bl 0 --compatibility 15", 127, 63, 0, 1, 0, 15},
  };
  for (const auto& c : kCases) {
    std::string box = dir.file("dv.bin");
    auto w = qtest::runTool(std::string("dvcc -y -o ") + qtest::shellQuote(box) + " " + c.options);
    ASSERT_EQ(w.exitCode, 0) << w.err;
    Bytes bytes = qtest::readBytes(box);
    ASSERT_EQ(bytes.size(), 32u);
    EXPECT_EQ(std::memcmp(bytes.data(), "\0\0\0\x20" "dvvC", 8), 0);
    auto r = qtest::runTool("dvcc --json --read " + qtest::shellQuote(box));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    auto j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["boxType"], "dvvC");
    EXPECT_EQ(j["versionMajor"], 1);
    EXPECT_EQ(j["profile"], c.profile) << c.options;
    EXPECT_EQ(j["level"], c.level);
    EXPECT_EQ(j["rpuPresent"], c.rpu);
    EXPECT_EQ(j["elPresent"], c.el);
    EXPECT_EQ(j["blPresent"], c.bl);
    EXPECT_EQ(j["blSignalCompatibilityId"], c.compatibility);
    EXPECT_EQ(j["reservedWords"].size(), 4u);
  }
}

}  // namespace
