// FOURCC families: well-known codes land in exactly the families they belong to.
#include <gtest/gtest.h>

#include <string>

#include "platform/zrfourcc.h"

namespace {

struct Predicate {
  const char* name;
  int (*test)(uint32_t);
  bool namesACodec;  // one of the families that give a codec its label when no table knows it
};
const Predicate kPredicates[] = {
    {"HEVC", fccIsHEVC, false},          {"h264", fccIsh264, false},        {"DolbyVision", fccIsDolbyVision, false},
    {"AvidJpeg", fccIsAvidJpeg, true},   {"AvidJfif", fccIsAvidJfif, true}, {"Jpeg", fccIsJpeg, true},
    {"Dv25", fccIsDv25, true},           {"Dv50", fccIsDv50, true},         {"Dv100", fccIsDv100, true},
    {"8BitD1YUV", fccIs8BitD1YUV, true}, {"YCbCr8", fccIsYCbCr8, true},     {"YCbCr10", fccIsYCbCr10, true},
    {"RawRGB", fccIsRawRGB, true},       {"DPX", fccIsDPX, true},           {"Bayer", fccIsBayer, true},
    {"HDCamSR", fccIsHDCamSR, true},
};

// The code of four characters, first character in the most significant byte.
uint32_t code(const char* text) {
  uint32_t c = 0;
  for (int i = 0; i < 4; ++i) c = c << 8 | static_cast<unsigned char>(text[i]);
  return c;
}

TEST(FourCC, EachCodeBelongsToExactlyItsFamilies) {
  struct Case {
    const char* fourcc;
    const char* families;  // space-separated predicate names
  };
  // The ISO/IEC 14496-15 sample entries of HEVC and AVC (and their Dolby Vision forms) in full;
  // for the rest, whose codes are the utility library's own list, one code per family (and the
  // codes in two families) shows each predicate answers for its own family alone.
  const Case cases[] = {
      {"hvc1", "HEVC"},          {"hev1", "HEVC"},          {"dvhe", "HEVC DolbyVision"}, {"dvh1", "HEVC DolbyVision"},
      {"avc1", "h264"},          {"avc3", "h264"},          {"dvav", "h264 DolbyVision"}, {"dva1", "h264 DolbyVision"},
      {"dav1", "DolbyVision"},   {"AVRn", "AvidJpeg"},      {"AVDJ", "AvidJfif"},       {"MJPG", "Jpeg"},
      {"dvsd", "Dv25"},          {"dvc ", "Dv25"},          {"dv5n", "Dv50"},           {"dvhp", "Dv100"},
      {"2vuy", "8BitD1YUV"},     {"YUY2", "YCbCr8"},        {"v210", "YCbCr10"},        {"raw ", "RawRGB"},
      {"DPX ", "DPX"},           {"BYR2", "Bayer"},         {"HDSR", "HDCamSR"},
      // Codecs in none of the families, and near misses.
      {"mp4v", ""},              {"hvc9", ""},              {"HVC1", ""},               {"avc0", ""},
      {"1cvh", ""},  // "hvc1" the other way round
      {"dvc\0", ""},  // "dvc " with a NUL for its trailing space
      {"\0\0\0\0", ""},           {"\xff\xff\xff\xff", ""},
  };
  for (const auto& c : cases) {
    const uint32_t fcc = code(c.fourcc);
    SCOPED_TRACE(std::string(c.fourcc, 4));
    const std::string families = std::string(" ") + c.families + " ";
    int naming = 0;
    for (const auto& p : kPredicates) {
      const bool expected = families.find(std::string(" ") + p.name + " ") != std::string::npos;
      EXPECT_EQ(p.test(fcc), expected ? 1 : 0) << p.name;
      naming += p.namesACodec && p.test(fcc);
    }
    EXPECT_LE(naming, 1);  // a codec gets one label, whichever family is asked first
  }
}

}  // namespace
