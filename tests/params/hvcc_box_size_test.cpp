// The hvcC box's size word bounds the record (ISO/IEC 14496-12 4.2): a box claiming more bytes
// than there are, or fewer than its own header, is refused by the reader and by hvcc --read; bytes
// behind the box are not read as part of it. A box stored with emulation prevention reads as the
// plain one, and on the reader's retry over its unescaped copy the word still bounds the box. The
// box is the one quorvane writes for an x265 stream. hvcc --read names what the file holds and its
// size: an hvcC box, or a bare record (which the reader wraps in box words of its own; their 8
// bytes are not the file's).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/test_support.h"

namespace {

using Bytes = std::vector<uint8_t>;
using qtest::shellQuote;

Bytes x265Box() {
  const std::string stream = qtest::encodedStream(
      "hvcc-box-size.hevc", "-f lavfi -i testsrc2=size=160x90:rate=25 -frames:v 1 -c:v libx265 -x265-params log-level=error -f hevc");
  if (stream.empty()) return {};
  qtest::TempDir dir;
  if (qtest::runTool("hvcc " + shellQuote(stream) + " -o " + shellQuote(dir.file("box.bin"))).exitCode != 0) return {};
  return qtest::readBytes(dir.file("box.bin"));
}

Bytes withSizeWord(Bytes box, uint32_t size) {
  for (int i = 0; i < 4; ++i) box[size_t(i)] = uint8_t(size >> (24 - 8 * i));
  return box;
}

// The box stored with emulation prevention over its record, its size word counting the bytes stored.
Bytes escapedBox(const Bytes& box) {
  Bytes escaped(box.begin(), box.begin() + 8);
  const Bytes record = qtest::emulationPrevented(Bytes(box.begin() + 8, box.end()));
  escaped.insert(escaped.end(), record.begin(), record.end());
  return withSizeWord(escaped, uint32_t(escaped.size()));
}

TEST(HvccBoxSize, HvccReadNamesTheFileAndRefusesABoxLargerThanTheFileOrSmallerThanItsHeader) {
  const Bytes box = x265Box();
  ASSERT_GT(box.size(), 40u);
  const uint32_t n = uint32_t(box.size());
  Bytes trailing = box;
  trailing.insert(trailing.end(), {0, 0, 0, 9, 'f', 'r', 'e', 'e', 0});
  struct Row {
    const char* name;
    Bytes bytes;
    const char* error;  // null: read as the plain box
    const char* kind;   // the first line's name of what the file holds (null: not checked)
  };
  const Row rows[] = {
      {"as written", box, nullptr, "hvcC"},
      {"the bare record", Bytes(box.begin() + 8, box.end()), nullptr, "record"},
      {"size 0: to the end of the file", withSizeWord(box, 0), nullptr, nullptr},
      {"another box behind it", trailing, nullptr, nullptr},
      {"stored with emulation prevention", escapedBox(box), nullptr, nullptr},
      {"one byte more than the file", withSizeWord(box, n + 1), "is past end of bitstream", nullptr},
      {"all ones", withSizeWord(box, 0xFFFFFFFFu), "is past end of bitstream", nullptr},
      {"smaller than its header", withSizeWord(box, 7), "is smaller than its 8-byte header", nullptr},
      // The retry on the unescaped copy stays inside the box: the bytes behind it complete the cut unit.
      {"escapes left out of the size word", withSizeWord(escapedBox(box), n), "is not a readable hvcC record", nullptr},
  };
  qtest::TempDir dir;
  const std::string in = dir.file("in.bin");
  std::string plain;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    qtest::writeBytes(in, row.bytes);
    const auto r = qtest::runTool("hvcc --read " + shellQuote(in));
    if (!row.error) {
      EXPECT_EQ(r.exitCode, 0) << r.err;
      const size_t eol = r.out.find('\n');
      if (row.kind) {
        EXPECT_EQ(r.out.substr(0, eol), in + ": " + row.kind + ", " + std::to_string(row.bytes.size()) + " bytes");
      }
      const std::string body = r.out.substr(eol);  // the first line names the file's size
      if (plain.empty()) plain = body;
      EXPECT_EQ(body, plain);
      continue;
    }
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err.rfind("quorvane hvcc: ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find(row.error), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << "one line";
  }
}

}  // namespace
