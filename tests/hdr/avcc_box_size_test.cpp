// An avcC box read with its header: the record is as long as the box's size word says. The box
// ffmpeg writes into MP4 for a High-profile x264 stream, cut through its High-profile fields, is
// refused (those fields are optional in a bare record, so a cut box used to read as one without
// them); the same box followed by the next box's bytes reads as the box alone.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "streamutil/avcc.h"
#include "support/mp4_box.h"
#include "support/param_streams.h"
#include "support/test_support.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct Read {
  int rc;
  AVCC_HIGH_PROFILE_FIELDS ext;
};

Read readAvcc(const Bytes& bytes) {
  avcc_t* avcc = avcc_new();
  Read r{};
  r.rc = klxutilReadAvcc(bytes.data(), static_cast<uint32_t>(bytes.size()), avcc, nullptr, &r.ext, nullptr, nullptr);
  avcc_free(avcc);
  return r;
}

TEST(AvccBoxSize, TheBoxSizeWordBoundsTheRecord) {
  const std::string stream = ptest::x264Stream("avcc_box_high422", "yuv422p", "-profile:v high422", "64x64");
  const Bytes box = qtest::remuxedBox(stream, "avcC");  // as ffmpeg writes it into MP4
  ASSERT_GT(box.size(), 12u);
  const Read whole = readAvcc(box);
  ASSERT_EQ(whole.rc, 0);
  ASSERT_EQ(whole.ext.present, 1);
  EXPECT_EQ(whole.ext.chroma_format, 2);  // 4:2:2, as ffmpeg wrote it

  // Cut through the four High-profile bytes at the end: refused, not read as a record without them.
  for (size_t cut = 1; cut <= 4; ++cut) {
    SCOPED_TRACE(cut);
    EXPECT_EQ(readAvcc(Bytes(box.begin(), box.end() - long(cut))).rc, -1);
  }
  // The next box behind it is not part of the record.
  Bytes followed = box;
  const Bytes nextBox = {0, 0, 0, 16, 'b', 't', 'r', 't', 0, 0, 0, 0, 0, 0, 0, 0};
  followed.insert(followed.end(), nextBox.begin(), nextBox.end());
  const Read withNext = readAvcc(followed);
  EXPECT_EQ(withNext.rc, 0);
  EXPECT_EQ(std::memcmp(&withNext.ext, &whole.ext, sizeof whole.ext), 0);
  // A size word below the header's own 8 bytes is no box.
  Bytes tiny = box;
  tiny[3] = 7, tiny[0] = tiny[1] = tiny[2] = 0;
  EXPECT_EQ(readAvcc(tiny).rc, -1);

  // The command refuses the cut box in one line.
  qtest::TempDir dir;
  qtest::writeBytes(dir.file("cut.bin"), Bytes(box.begin(), box.end() - 2));
  auto r = qtest::runTool("avcc --read " + qtest::shellQuote(dir.file("cut.bin")));
  EXPECT_EQ(r.exitCode, 1) << r.out;
  EXPECT_NE(r.err.find("is not a readable avcC record"), std::string::npos) << r.err;
}

}  // namespace
