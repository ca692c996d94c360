#include <gtest/gtest.h>

#include <string>

#include "streamutil/typenames.h"
#include "support/edit_support.h"

namespace {

constexpr uint32_t fcc(const char (&t)[5]) {
  return uint32_t(uint8_t(t[0])) << 24 | uint32_t(uint8_t(t[1])) << 16 | uint32_t(uint8_t(t[2])) << 8 | uint8_t(t[3]);
}

TEST(FileTypeNames, LabelsAcrossTheTableAndEveryCodeHasOne) {
  struct Case {
    uint32_t code;
    const char* label;
  };
  const Case cases[] = {
      {0, "Unknown file type"},  {57, "Unknown file type"},  {227, "Unknown file type"},
      {1, "Wave Audio"},         {90, "Wave Audio"},         {159, "Wave Audio"},  // one label, three codes
      {7, "Edit Decsion List"},  {36, "RGB IMages"},         {56, "MTV Image"},    // spelt as other tools expect
      {58, "DVS Video"},         {203, "h.265"},             {226, "TCP Stream"},
  };
  for (const auto& c : cases) EXPECT_STREQ(klxutilFileTypeString(c.code), c.label) << c.code;
  // Every code up to 226 but 57 has a label of its own.
  for (uint32_t code = 1; code <= 226; ++code) {
    const char* label = klxutilFileTypeString(code);
    ASSERT_NE(label, nullptr);
    if (code == 57) continue;
    EXPECT_STRNE(label, "Unknown file type") << code;
    EXPECT_GT(std::string(label).size(), 1u) << code;
  }
}

TEST(CodecNames, FixedTableThenFourccFamilies) {
  struct Case {
    uint64_t code;
    const char* label;
  };
  const Case cases[] = {
      {fcc("ai25"), "AVCi-200 1080i50"},  // the first entry
      {fcc("hvc1"), "HEVC h.265"},
      {fcc("UYVY"), "YVYU 4:2:2 YCbCr"},  // swapped on purpose, as other tools expect; also an 8-bit
                                          // YCbCr code, but the table is asked first
      {fcc("YVYU"), "UYVY 4:2:2 YCbCr"},
      {0x6770ea6d, "SGI JFIF"},  // codes that are no printable FOURCC
      {0x20574152, "RAW RGB"},
      {fcc("AVdn"), "Avid DNxHD"},  // the last entry
      {0xABCD00000000ull | fcc("hvc1"), "HEVC h.265"},  // only the low 32 bits count
      {fcc("Y10g"), "DPX YCbCr 10"},  // a 10-bit YCbCr code too, but the table names it first
      // Codes outside the table: the first FOURCC family test that accepts them names them.
      {fcc("ADJV"), "Avid JPEG"}, {fcc("AJFF"), "Avid JFIF"}, {fcc("mjpa"), "JPEG"}, {fcc("dvsd"), "DV25"},
      {fcc("dv5p"), "DV50"}, {fcc("dvh5"), "DVHD"}, {fcc("2vuy"), "8 Bit YCbCr"}, {fcc("YUY2"), "8 Bit YCbCr"},
      {fcc("v210"), "10 Bit YCbCr"}, {fcc("BGRA"), "RGB"}, {fcc("r210"), "10 Bit RGB"},
      {fcc("zzzz"), ""}, {fcc("qQ~q"), ""},  // unknown: an empty string, not null
  };
  for (const auto& c : cases) {
    const char* label = klxutilCodecTypeString(c.code);
    ASSERT_NE(label, nullptr);
    EXPECT_STREQ(label, c.label) << std::hex << c.code;
  }
}

TEST(NamesTool, PrintsLabelsAndRefusesBadInput) {
  struct Case {
    const char* args;
    int exit;
    const char* out;
  };
  const Case cases[] = {
      {"names --file-type 226", 0, "TCP Stream\n"},
      {"names --file-type 0x24", 0, "RGB IMages\n"},
      {"names --codec hvc1 --codec 0x20574152", 0, "HEVC h.265\nRAW RGB\n"},
      {"names --codec zzzz", 1, ""},
      {"names --file-type 57", 1, ""},
      {"names --file-type 7 --json", 0, "{\"fileTypes\":[{\"code\":7,\"label\":\"Edit Decsion List\"}],\"codecs\":[]}\n"},
      {"names --file-type seven", 2, ""},
      {"names --codec abcde", 2, ""},
      {"names", 2, ""},
  };
  for (const auto& c : cases) {
    auto r = qtest::runTool(c.args);
    EXPECT_EQ(r.exitCode, c.exit) << c.args << ": " << r.err;
    EXPECT_EQ(r.out, c.out) << c.args;
    if (c.exit) qtest::expectOneLineError(r, "names");
  }
}

}  // namespace
