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
  const Case cases[] = {
      {"hvc1", "HEVC"},          {"hev1", "HEVC"},          {"hev2", "HEVC"},           {"hvcr", "HEVC"},
      {"dvhe", "HEVC DolbyVision"}, {"dvh1", "HEVC DolbyVision"}, {"avc1", "h264"},      {"avc3", "h264"},
      {"H264", "h264"},          {"h264", "h264"},          {"X264", "h264"},           {"x264", "h264"},
      {"AVC1", "h264"},          {"davc", "h264"},          {"ai5p", "h264"},           {"dvav", "h264 DolbyVision"},
      {"dav1", "DolbyVision"},   {"AVRn", "AvidJpeg"},      {"AVDJ", "AvidJfif"},       {"MJPG", "Jpeg"},
      {"jpeg", "Jpeg"},          {"mjpa", "Jpeg"},          {"dvsd", "Dv25"},           {"dvc ", "Dv25"},
      {"dvcp", "Dv25"},          {"dv5n", "Dv50"},          {"dv5p", "Dv50"},           {"dvhp", "Dv100"},
      {"dvh5", "Dv100"},         {"2vuy", "8BitD1YUV"},     {"UYVY", "8BitD1YUV"},      {"HDYC", "8BitD1YUV"},
      {"YUY2", "YCbCr8"},        {"yuvs", "YCbCr8"},        {"YVYU", "YCbCr8"},         {"I420", "YCbCr8"},
      {"v210", "YCbCr10"},       {"v410", "YCbCr10"},       {"P010", "YCbCr10"},        {"raw ", "RawRGB"},
      {"BGRA", "RawRGB"},        {"b64a", "RawRGB"},        {"DPX ", "DPX"},            {"r210", "DPX"},
      {"R10k", "DPX"},           {"BYR2", "Bayer"},         {"RGGB", "Bayer"},          {"BG12", "Bayer"},
      {"HDSR", "HDCamSR"},       {"HDS4", "HDCamSR"},
      // Codecs in none of the families, and near misses.
      {"mp4v", ""},              {"apch", ""},              {"mpg2", ""},               {"AV1 ", ""},
      {"av01", ""},              {"hvc9", ""},              {"HVC1", ""},               {"avc0", ""},
      {"dvh4", ""},              {"1cva", ""},              {"1cvh", ""},  // "hvc1" the other way round
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
