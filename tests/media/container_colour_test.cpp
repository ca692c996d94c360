// hdr --colour/--range on a container: the container's own colour description (the colr box of
// ISO/IEC 14496-12 12.1.5 in MP4/MOV, the Colour element of a Matroska track) says what the
// rewritten SPS says, not what the input's said. Read from the file's bytes: ffprobe reports the
// decoder's view and would hide a contradiction.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "media_support.h"
#include "support/test_support.h"
#include "support/tool_runs.h"

namespace {

using qtest::shellQuote;

struct Colour {
  int primaries = -1, transfer = -1, matrix = -1;
  bool operator==(const Colour&) const = default;
};

size_t find(const std::vector<uint8_t>& d, const char* tag, size_t n) {
  for (size_t i = 0; i + n <= d.size(); ++i)
    if (std::memcmp(d.data() + i, tag, n) == 0) return i;
  return std::string::npos;
}

// colr: size, 'colr', 'nclx'/'nclc', then primaries, transfer, matrix as 16-bit words.
Colour colrBox(const std::vector<uint8_t>& d) {
  const size_t at = find(d, "colr", 4);
  if (at == std::string::npos || at + 14 > d.size()) return {};
  auto u16 = [&](size_t i) { return d[i] << 8 | d[i + 1]; };
  return {u16(at + 8), u16(at + 10), u16(at + 12)};
}

// Matroska Colour (ID 55 B0) and its children MatrixCoefficients (55 B1), TransferCharacteristics
// (55 BA), Primaries (55 BB): EBML variable-length sizes, big-endian unsigned values.
Colour matroskaColour(const std::vector<uint8_t>& d) {
  auto vint = [&](size_t& p) {
    int n = 1;
    while (n <= 8 && !(d[p] & (0x80 >> (n - 1)))) ++n;
    uint64_t v = d[p] & ((0x80 >> (n - 1)) - 1);
    for (int k = 1; k < n; ++k) v = v << 8 | d[p + k];
    p += n;
    return v;
  };
  const uint8_t id[] = {0x55, 0xB0};
  size_t p = find(d, reinterpret_cast<const char*>(id), 2);
  if (p == std::string::npos) return {};
  p += 2;
  const size_t end = p + vint(p);
  Colour c;
  while (p + 3 <= end && end <= d.size()) {
    const int child = d[p] << 8 | d[p + 1];
    p += 2;
    const size_t size = vint(p);
    int value = 0;
    for (size_t k = 0; k < size; ++k) value = value << 8 | d[p + k];
    p += size;
    if (child == 0x55B1) c.matrix = value;
    if (child == 0x55BA) c.transfer = value;
    if (child == 0x55BB) c.primaries = value;
  }
  return c;
}

using ContainerColour = mtest::FfmpegTest;

TEST_F(ContainerColour, FollowsTheRewrittenSps) {
  // x265 HDR10 (BT.2020, PQ) in each container; rewritten to BT.709 and to HLG.
  struct Row {
    const char* extension;
    const char* muxer;
    Colour (*read)(const std::vector<uint8_t>&);
  };
  const Row rows[] = {{"mp4", "mp4", colrBox}, {"mov", "mov", colrBox}, {"mkv", "matroska", matroskaColour}};
  for (const Row& row : rows) {
    const std::string in = qtest::encodedStream(
        std::string("colour_hdr10.") + row.extension,
        std::string("-f lavfi -i testsrc2=size=160x96:rate=25 -frames:v 6 -pix_fmt yuv420p10le -c:v libx265 -x265-params log-level=error "
        "-color_primaries bt2020 -color_trc smpte2084 -colorspace bt2020nc") +
            (row.read == colrBox ? " -tag:v hvc1 -movflags +write_colr" : "") + " -f " + row.muxer);
    ASSERT_EQ(row.read(qtest::readBytes(in)), (Colour{9, 16, 9})) << row.extension;
    for (const auto& [option, expected] : {std::pair{"bt709,bt709,bt709", Colour{1, 1, 1}}, {"bt2020,hlg,bt2020nc", Colour{9, 18, 9}}}) {
      SCOPED_TRACE(std::string(row.extension) + " " + option);
      qtest::TempDir dir;
      const std::string out = dir.file(std::string("out.") + row.extension);
      qtest::runToolOk("hdr " + shellQuote(in) + " " + shellQuote(out) + " --colour " + option);
      EXPECT_EQ(row.read(qtest::readBytes(out)), expected);
      EXPECT_EQ(mtest::videoFrameMd5(out), mtest::videoFrameMd5(in));
    }
  }
}

}  // namespace
