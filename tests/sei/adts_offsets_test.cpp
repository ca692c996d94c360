// quorvane adts on raw ADTS files whose first bytes are no header (an ID3v2 tag in front, a
// file cut through a frame): the offsets listed are file offsets, as ffprobe gives them.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace {

// "pos,size" of every packet of the file, as ffprobe reads them.
std::vector<std::string> ffprobePackets(const std::string& path) {
  auto r = qtest::runCommand("ffprobe -v error -show_packets -show_entries packet=pos,size -of csv=p=0 " +
                             qtest::shellQuote(path));
  std::vector<std::string> packets;
  std::istringstream in(r.out);
  for (std::string line; std::getline(in, line);)
    if (!line.empty()) packets.push_back(line);
  return packets;
}

TEST(AdtsOffsets, RawFilesNotStartingWithAHeaderListFileOffsets) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffprobe missing";
  const std::string source = "-f lavfi -i sine=frequency=440:sample_rate=48000 -t 0.5 -c:a aac -b:a 64k -f adts";
  const std::string tagged = qtest::encodedStream("adts-id3v2.aac", source + " -write_id3v2 1 -metadata title=News");
  const std::string plain = qtest::encodedStream("adts-plain-48k.aac", source);
  ASSERT_FALSE(tagged.empty());
  ASSERT_FALSE(plain.empty());
  qtest::TempDir dir;
  const std::vector<uint8_t> whole = qtest::readBytes(plain);
  ASSERT_GT(whole.size(), 500u);
  qtest::writeBytes(dir.file("cut.aac"), std::vector<uint8_t>(whole.begin() + 100, whole.end()));

  for (const std::string& path : {tagged, dir.file("cut.aac")}) {
    SCOPED_TRACE(path);
    const auto packets = ffprobePackets(path);
    ASSERT_GT(packets.size(), 3u);
    ASSERT_NE(packets[0].substr(packets[0].find(',') + 1), "0") << "the file should not start with a header";
    auto r = qtest::runTool("adts --json " + qtest::shellQuote(path));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto frames = nlohmann::json::parse(r.out)["frames"];
    ASSERT_EQ(frames.size(), packets.size());
    for (size_t i = 0; i < frames.size(); ++i) {
      const std::string ours = std::to_string(int(frames[i]["length"])) + "," + std::to_string(uint64_t(frames[i]["offset"]));
      EXPECT_EQ(ours, packets[i]) << "frame " << i;  // ffprobe prints size,pos
    }
  }
}

}  // namespace
