#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "streamutil/aac.h"
#include "support/edit_support.h"
#include "support/tool_runs.h"

namespace {

using qtest::Bytes;

zr_bitstream over(Bytes& b) { return zr_bitstream{b.data(), int64_t(b.size()), b.size() * 8, 0}; }

TEST(AudioSpecificConfig, ReadsAndWritesTheGivenBytes) {
  struct Case {
    Bytes bytes;
    AAC_AUDIO_CONFIG expected;
    uint64_t bits;
  };
  const Case cases[] = {
      {{0x12, 0x10}, {2, 4, 44100, 2, 0, 0, 0}, 16},  // AAC LC, 44100 Hz, stereo
      {{0x0A, 0x88}, {1, 5, 32000, 1, 0, 0, 0}, 16},  // Main, 32000, mono
      {{0x16, 0x88}, {2, 13, 0, 1, 0, 0, 0}, 16},     // index 13: no frequency
      {{0x17, 0x80, 0x3E, 0x80, 0x10}, {2, 15, 0x7D00, 2, 0, 0, 0}, 40},  // explicit 32000 Hz
      {{0x12, 0x17}, {2, 4, 44100, 2, 1, 1, 1}, 16},
  };
  for (const auto& c : cases) {
    Bytes in = c.bytes;
    in.push_back(0);
    zr_bitstream s = over(in);
    AAC_AUDIO_CONFIG got{};
    EXPECT_EQ(klxutilReadAAC(&s, &got), 0);
    EXPECT_EQ(s.position, c.bits);
    auto fields = [](const AAC_AUDIO_CONFIG& a) {
      return std::vector<uint32_t>{uint32_t(a.audioObjectType), uint32_t(a.samplingFrequencyIndex), uint32_t(a.samplingFrequency),
                                   uint32_t(a.channelConfiguration), uint32_t(a.frameLengthFlag), uint32_t(a.dependsOnCoreCoder),
                                   uint32_t(a.extensionFlag)};
    };
    EXPECT_EQ(fields(got), fields(c.expected));
    if (got.samplingFrequencyIndex != 15) got.samplingFrequency = 12345;  // written from the index, unless it is 15
    Bytes out(8, 0);
    zr_bitstream w = over(out);
    EXPECT_EQ(klxutilWriteAAC(&w, &got), 0);
    EXPECT_EQ(w.position, c.bits);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + long(c.bytes.size())), c.bytes);
  }
}

TEST(Adts, HeaderBitsAndTheKeptCheckWordRule) {
  // The check word follows when protection_absent is 1 (the reverse of ISO/IEC 13818-7).
  for (uint32_t protectionAbsent : {0u, 1u}) {
    ADTS_HEADER h{0xFFF, 0, 0, protectionAbsent, 1, 3, 0, 2, 0, 0, 0, 0, 371, 0x7FF, 0, 0xBEEF};
    Bytes out(16, 0);
    zr_bitstream w = over(out);
    klxutilWriteADTS(&w, &h);
    EXPECT_EQ(w.position, protectionAbsent ? 72u : 56u);
    const Bytes header = {0xFF, uint8_t(0xF0 | protectionAbsent), 0x4C, 0x80, 0x2E, 0x7F, 0xFC};
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 7), header);
    if (protectionAbsent) {
      EXPECT_EQ((Bytes{out[7], out[8]}), (Bytes{0xBE, 0xEF}));
    }
    zr_bitstream r = over(out);
    ADTS_HEADER back{};
    klxutilReadADTS(&r, &back);
    EXPECT_EQ(r.position, w.position);
    EXPECT_EQ(back.aac_frame_length, 371u);
    EXPECT_EQ(back.adts_buffer_fullness, 0x7FFu);
    EXPECT_EQ(back.channel_configuration, 2u);
    EXPECT_EQ(back.check_word, protectionAbsent ? 0xBEEF : 0);
  }
  // The syncword is written as it stands and not tested on reading.
  ADTS_HEADER odd{0x123, 1, 3, 0, 3, 15, 1, 7, 1, 1, 1, 1, 8191, 0, 3, 0};
  Bytes out(8, 0);
  zr_bitstream w = over(out);
  klxutilWriteADTS(&w, &odd);
  zr_bitstream r = over(out);
  ADTS_HEADER back{};
  klxutilReadADTS(&r, &back);
  EXPECT_EQ(back.syncword, 0x123u);
  EXPECT_EQ(back.aac_frame_length, 8191u);
  EXPECT_EQ(back.number_of_raw_data_blocks_in_frame, 3u);
}

// ---- against ffmpeg

std::vector<std::string> ffprobeLines(const std::string& args) {
  auto r = qtest::runCommand("ffprobe -v error " + args);
  EXPECT_EQ(r.exitCode, 0) << r.err;
  std::vector<std::string> lines;
  std::istringstream in(r.out);
  for (std::string l; std::getline(in, l);)
    if (!l.empty()) lines.push_back(l);
  return lines;
}

// ADTS streams made by ffmpeg, and raw files whose first bytes are no header (an ID3v2 tag in
// front, a file cut through a frame): from the first packet on, each header the library reads has
// ffprobe's packet size at ffprobe's file offset and ffprobe's rate and channels, the headers run to
// the end of the file, and quorvane adts lists the same file offsets.
TEST(AdtsInterop, HeadersAndOffsetsMatchFfprobe) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffprobe missing";
  const std::string source = "-f lavfi -i sine=frequency=440:sample_rate=48000 -t 0.5 -c:a aac -b:a 64k -f adts";
  const Bytes whole = qtest::readBytes(qtest::encodedStream("adts-plain-48k.aac", source));
  ASSERT_GT(whole.size(), 500u);
  qtest::TempDir dir;
  qtest::writeBytes(dir.file("cut.aac"), Bytes(whole.begin() + 100, whole.end()));
  std::vector<std::pair<std::string, bool>> files = {  // path, whether it starts with a header
      {qtest::encodedStream("adts-id3v2.aac", source + " -write_id3v2 1 -metadata title=News"), false},
      {dir.file("cut.aac"), false}};
  for (const char* audioFormat : {"48000:2", "22050:1", "44100:6"}) {
    std::string rate(audioFormat, std::strchr(audioFormat, ':')), channels(std::strchr(audioFormat, ':') + 1);
    files.emplace_back(qtest::encodedStream("adts-" + rate + "-" + channels + ".aac", "-f lavfi -i sine=frequency=440:sample_rate=" +
                                                rate + " -ac " + channels + " -t 0.3 -c:a aac -b:a 64k -f adts"),
                       true);
  }
  for (const auto& [path, headerFirst] : files) {
    SCOPED_TRACE(path);
    ASSERT_FALSE(path.empty());
    Bytes data = qtest::readBytes(path);
    data.resize(data.size() + 2, 0);  // room for a check word read behind the last header
    const auto packets = ffprobeLines("-show_packets -show_entries packet=pos,size -of csv=p=0 " + qtest::shellQuote(path));
    const auto stream = ffprobeLines("-show_entries stream=sample_rate,channels -of csv=p=0 " + qtest::shellQuote(path));
    ASSERT_EQ(stream.size(), 1u);
    ASSERT_GT(packets.size(), 3u);
    size_t pos = std::stoul(packets[0].substr(packets[0].find(',') + 1));  // ffprobe prints size,pos
    EXPECT_EQ(pos == 0, headerFirst);
    const auto frames = nlohmann::json::parse(qtest::runToolOk("adts --json " + qtest::shellQuote(path)).out)["frames"];
    ASSERT_EQ(frames.size(), packets.size());
    for (size_t frame = 0; frame < packets.size(); ++frame) {
      const std::string ours = std::to_string(int(frames[frame]["length"])) + "," + std::to_string(uint64_t(frames[frame]["offset"]));
      EXPECT_EQ(ours, packets[frame]) << "frame " << frame;
      ASSERT_LE(pos + 7, data.size() - 2) << frame;
      zr_bitstream s{data.data() + pos, int64_t(data.size() - pos), (data.size() - pos) * 8, 0};
      ADTS_HEADER h{};
      klxutilReadADTS(&s, &h);
      ASSERT_EQ(h.syncword, 0xFFFu) << frame;
      EXPECT_EQ(std::to_string(h.aac_frame_length) + "," + std::to_string(pos), packets[frame]) << frame;
      EXPECT_EQ(std::to_string(klxutilAACFrequency(h.sampling_frequency_index)) + "," + std::to_string(h.channel_configuration),
                stream[0]);
      EXPECT_EQ(h.profile, 1u) << "AAC LC";
      pos += h.aac_frame_length;
    }
    EXPECT_EQ(pos, data.size() - 2) << "the headers run to the end of the file";
  }
}

TEST(AdtsInterop, AudioSpecificConfigFromAnMp4RoundTrips) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffprobe missing";
  for (const char* audioFormat : {"48000:2", "8000:1", "96000:2"}) {
    std::string rate(audioFormat, std::strchr(audioFormat, ':')), channels(std::strchr(audioFormat, ':') + 1);
    const std::string path = qtest::encodedStream("asc-" + rate + "-" + channels + ".mp4",
                                                  "-f lavfi -i sine=sample_rate=" + rate + " -ac " + channels +
                                                      " -t 0.2 -c:a aac -b:a 48k -f mp4");
    ASSERT_FALSE(path.empty());
    // extradata is the AudioSpecificConfig of the esds box, printed as a hex dump.
    const auto lines = ffprobeLines("-show_streams -show_data -select_streams a " + qtest::shellQuote(path));
    Bytes asc;
    bool inDump = false;
    for (const auto& l : lines) {
      if (l.rfind("extradata=", 0) == 0) {
        inDump = true;
        continue;
      }
      if (!inDump) continue;
      if (l.find(':') == std::string::npos || l[0] != '0') break;
      std::istringstream words(l.substr(l.find(':') + 1, 40));
      for (std::string w; words >> w;)
        for (size_t i = 0; i + 1 < w.size(); i += 2) asc.push_back(uint8_t(std::stoi(w.substr(i, 2), nullptr, 16)));
    }
    ASSERT_GE(asc.size(), 2u) << "no extradata dump";
    Bytes in = asc;
    in.resize(asc.size() + 4, 0);
    zr_bitstream r = over(in);
    AAC_AUDIO_CONFIG config{};
    klxutilReadAAC(&r, &config);
    EXPECT_EQ(config.audioObjectType, 2u);
    EXPECT_EQ(std::to_string(config.samplingFrequency), rate);
    EXPECT_EQ(std::to_string(config.channelConfiguration), channels);
    Bytes out(asc.size() + 4, 0);
    zr_bitstream w = over(out);
    klxutilWriteAAC(&w, &config);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 2), Bytes(asc.begin(), asc.begin() + 2)) << audioFormat;
  }
}

TEST(AdtsTool, ListsFramesAndTheConfig) {
  const std::string sample = qtest::samplePath("aac_lc_48k_stereo.aac");
  const auto r = qtest::runToolOk("adts --json " + qtest::shellQuote(sample));
  EXPECT_NE(r.out.find("\"audioSpecificConfig\":\"1190\""), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\"offset\":0,\"length\":152,\"profile\":\"LC\",\"sampleRate\":48000,\"channels\":2"),
            std::string::npos)
      << r.out;
}

}  // namespace
