// hvcc --read names what the file holds and its size: an hvcC box, or a bare record (which the
// reader wraps in box words of its own; their 8 bytes are not the file's).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/test_support.h"

namespace {

using qtest::shellQuote;

TEST(HvccRead, FirstLineGivesTheFilesOwnKindAndSize) {
  const std::string stream = qtest::encodedStream(
      "hvcc-read-size.hevc", "-f lavfi -i testsrc2=size=160x90:rate=25 -frames:v 2 -c:v libx265 -x265-params log-level=error -f hevc");
  ASSERT_FALSE(stream.empty());
  qtest::TempDir dir;
  const std::string box = dir.file("box.bin"), bare = dir.file("bare.bin");
  ASSERT_EQ(qtest::runTool("hvcc " + shellQuote(stream) + " -o " + shellQuote(box)).exitCode, 0);
  const std::vector<uint8_t> boxBytes = qtest::readBytes(box);
  ASSERT_GT(boxBytes.size(), 8u);
  qtest::writeBytes(bare, std::vector<uint8_t>(boxBytes.begin() + 8, boxBytes.end()));

  struct Row {
    std::string path, kind;
    size_t bytes;
  };
  std::string rest;
  for (const Row& row : {Row{box, "hvcC", boxBytes.size()}, Row{bare, "record", boxBytes.size() - 8}}) {
    auto r = qtest::runTool("hvcc --read " + shellQuote(row.path));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const size_t eol = r.out.find('\n');
    EXPECT_EQ(r.out.substr(0, eol), row.path + ": " + row.kind + ", " + std::to_string(row.bytes) + " bytes");
    if (rest.empty()) rest = r.out.substr(eol);
    EXPECT_EQ(r.out.substr(eol), rest) << "the same record either way";
  }
}

}  // namespace
