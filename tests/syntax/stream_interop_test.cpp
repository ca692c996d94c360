// The syntax layer, the framing converters and quorvane nal on real x264/x265 streams, checked
// against what ffmpeg reads from the same streams: trace_headers for unit headers and SEI
// messages, the MP4 muxer for the length-prefixed form of each packet. Last, the one-line
// refusals of nal, reframe and inspect.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <sstream>

#include "support/ffmpeg_oracle.h"
#include "reference_framing.h"
#include "streamutil/framing.h"
#include "support/test_support.h"
#include "syntax/syntax.h"

namespace {

using Bytes = std::vector<uint8_t>;

using oracle::kStreams;
using oracle::Stream;
using oracle::lengthPrefixedUnits;

class RealStream : public ::testing::TestWithParam<Stream> {
 protected:
  void SetUp() override {
    if (!qtest::haveProgram("ffmpeg") || !qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffmpeg not installed";
    path_ = qtest::encodedStream(GetParam().name, GetParam().ffmpegArgs);
    ASSERT_FALSE(path_.empty());
    bytes_ = qtest::readBytes(path_);
    ASSERT_FALSE(bytes_.empty());
  }
  std::string path_;
  Bytes bytes_;
};

// Unit lookup on an MP4 sample: the first unit of each header byte is found where ffmpeg's
// sample has it, and the last prefix SEI of an HEVC sample is the one reported.
void expectLookupsFindUnitsOf(Bytes sample, const std::vector<Bytes>& units, bool hevc) {
  std::map<uint8_t, std::pair<size_t, size_t>> firstByHeader;  // header -> offset, length
  size_t offset = 0;
  long lastSei = -1;
  size_t lastSeiLength = 0;
  for (const auto& unit : units) {
    firstByHeader.emplace(unit[0], std::make_pair(offset, unit.size() + 4));
    if (unit[0] == 0x4E) {
      lastSei = static_cast<long>(offset + 5);
      lastSeiLength = unit.size() - 1;
    }
    offset += 4 + unit.size();
  }
  for (const auto& [header, where] : firstByHeader) {
    uint8_t* found = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(klxUtilFindSpecificNAL(sample.data(), static_cast<uint32_t>(sample.size()), 0, header, &found, &length), 1)
        << "header " << int{header};
    EXPECT_EQ(found, sample.data() + where.first);
    EXPECT_EQ(length, where.second);
  }
  if (!hevc) return;
  uint8_t *sei = nullptr, *rpu = nullptr;
  uint32_t seiLength = 0, rpuLength = 0;
  int result = klxUtilFindDolbyVisionMetadata(sample.data(), static_cast<uint32_t>(sample.size()), 0, &sei, &seiLength,
                                              &rpu, &rpuLength);
  EXPECT_EQ(result, lastSei >= 0 ? 1 : 0);
  EXPECT_EQ(sei, lastSei >= 0 ? sample.data() + lastSei : nullptr);
  EXPECT_EQ(seiLength, lastSeiLength);
  EXPECT_EQ(rpu, nullptr);
}

// Per packet: Annex B -> length-prefixed equals ffmpeg's MP4 sample, with exactly one spare byte
// per three-byte start code; back to Annex B gives the packet with only its three-byte start
// codes widened; and the unit lookups find ffmpeg's units. (The unchecked form, and the checked
// form refusing one byte less, against the reference: framing_edge_test.cpp.)
TEST_P(RealStream, FramingAndLookupMatchMp4Samples) {
  qtest::TempDir scratch;
  auto packets = oracle::packetRanges(path_);
  auto samples = oracle::mp4Samples(path_, scratch.path());
  ASSERT_FALSE(packets.empty());
  ASSERT_EQ(packets.size(), samples.size());
  int threeByteCodes = 0, fourByteCodes = 0;
  for (size_t k = 0; k < packets.size(); k++) {
    SCOPED_TRACE(::testing::Message() << "packet " << k);
    ASSERT_LE(packets[k].pos + packets[k].size, bytes_.size());
    const Bytes frame(bytes_.begin() + packets[k].pos, bytes_.begin() + packets[k].pos + packets[k].size);
    const auto units = lengthPrefixedUnits(samples[k]);

    // The packet is ffmpeg's units, each behind a start code of three or four bytes.
    Bytes widened;
    size_t p = 0;
    uint32_t growth = 0;
    for (const auto& unit : units) {
      if (frame.size() >= p + 4 && frame[p] == 0 && frame[p + 1] == 0 && frame[p + 2] == 0 && frame[p + 3] == 1) {
        p += 4;
        fourByteCodes++;
      } else {
        ASSERT_TRUE(frame.size() >= p + 3 && frame[p] == 0 && frame[p + 1] == 0 && frame[p + 2] == 1);
        p += 3;
        growth++;
        threeByteCodes++;
      }
      ASSERT_TRUE(std::equal(unit.begin(), unit.end(), frame.begin() + p));
      p += unit.size();
      widened.insert(widened.end(), {0x00, 0x00, 0x00, 0x01});
      widened.insert(widened.end(), unit.begin(), unit.end());
    }
    ASSERT_EQ(p, frame.size());
    const auto size = static_cast<uint32_t>(frame.size());

    Bytes buf = frame;
    buf.resize(frame.size() + growth + 16, 0xEE);
    EXPECT_EQ(klxUtilh264MarkerToSizeResult(buf.data(), size), size + growth);
    uint32_t newSize = 0;
    ASSERT_EQ(klxUtilh264MarkerToSizeChecked(buf.data(), size, size + growth, &newSize), 0);
    ASSERT_EQ(newSize, size + growth);
    EXPECT_EQ(Bytes(buf.begin(), buf.begin() + newSize), samples[k]);
    EXPECT_EQ(buf[newSize], 0xEE);

    // Converting a length-prefixed frame again changes nothing.
    Bytes again = samples[k];
    EXPECT_EQ(klxUtilh264MarkerToSize(again.data(), newSize), newSize);
    EXPECT_EQ(again, samples[k]);

    EXPECT_EQ(klxUtilh264SizeToMarker(buf.data(), newSize), newSize);
    EXPECT_EQ(Bytes(buf.begin(), buf.begin() + newSize), widened);
    if (growth == 0) {
      EXPECT_EQ(Bytes(buf.begin(), buf.begin() + newSize), frame);
    }
    expectLookupsFindUnitsOf(samples[k], units, GetParam().hevc);
  }
  // The sample matrix must exercise both start-code lengths somewhere.
  RecordProperty("three_byte_codes", threeByteCodes);
  EXPECT_GT(fourByteCodes, 0);
}

// The fast NAL -> RBSP -> NAL passes agree with the reference loops on a real unit, and an
// encoder's unit, already escaped, comes back from escaping its RBSP again.
void expectConversionsAgreeWithReference(const uint8_t* unit, int length) {
  Bytes rbsp(static_cast<size_t>(length));
  int nalSize = length, rbspSize = length;
  int got = nal_to_rbsp(unit, &nalSize, rbsp.data(), &rbspSize);
  ref::Converted want = ref::nalToRbsp(unit, length, length);
  ASSERT_EQ(got, want.result);
  ASSERT_EQ(Bytes(rbsp.begin(), rbsp.begin() + rbspSize), want.out);
  Bytes nal(static_cast<size_t>(length) * 2 + 2);
  int capacity = static_cast<int>(nal.size());
  int written = rbsp_to_nal(rbsp.data(), &rbspSize, nal.data(), &capacity);
  ref::Converted back = ref::rbspToNal(rbsp.data(), rbspSize, static_cast<int>(nal.size()));
  ASSERT_EQ(written, back.result);
  ASSERT_EQ(Bytes(nal.begin(), nal.begin() + written), back.out);
  if (nalSize == length) {
    EXPECT_EQ(written, length);
    EXPECT_TRUE(std::equal(nal.begin() + 1, nal.begin() + written, unit + 1));
  }
}

struct ListedUnit {
  long offset, size, startCode, type;
};

std::vector<ListedUnit> parseNalListing(const std::string& text) {
  std::vector<ListedUnit> units;
  std::istringstream lines(text);
  std::string line;
  std::getline(lines, line);  // heading
  while (std::getline(lines, line)) {
    ListedUnit u;
    if (std::sscanf(line.c_str(), "%ld %ld %ld %ld", &u.offset, &u.size, &u.startCode, &u.type) == 4) units.push_back(u);
  }
  return units;
}

// Walking the stream with find_nal_unit and reading each unit gives the headers and SEI
// messages that ffmpeg's trace_headers reads; quorvane nal lists every unit it reads, with the
// same type, at an offset where the file holds a start code of the listed length.
TEST_P(RealStream, UnitWalkMatchesTraceHeaders) {
  auto traced = oracle::traceUnits(path_);
  ASSERT_FALSE(traced.empty());
  auto nal = qtest::runTool("nal " + qtest::shellQuote(path_));
  ASSERT_EQ(nal.exitCode, 0) << nal.err;
  const auto listed = parseNalListing(nal.out);
  ASSERT_EQ(listed.size(), traced.size());
  for (size_t i = 0; i < listed.size(); i++) {
    EXPECT_EQ(listed[i].type, traced[i].nalUnitType) << "unit " << i;
    const long at = listed[i].offset;
    ASSERT_LE(static_cast<size_t>(at + listed[i].startCode + listed[i].size), bytes_.size());
    EXPECT_EQ(bytes_[at + listed[i].startCode - 1], 0x01);
    EXPECT_EQ(bytes_[at], 0x00);
  }
  h264_stream_t* h = h264_new();
  ASSERT_NE(h, nullptr);
  std::vector<oracle::TracedUnit> ours;
  size_t offset = 0;
  while (offset < bytes_.size()) {
    int start = 0, end = 0;
    const int remaining = static_cast<int>(bytes_.size() - offset);
    int length = find_nal_unit(bytes_.data() + offset, remaining, &start, &end);
    ASSERT_EQ(ref::Found({length, start, end}), ref::findNalUnit(bytes_.data() + offset, remaining));
    if (length <= 0) break;
    const uint8_t* unit = bytes_.data() + offset + start;
    expectConversionsAgreeWithReference(unit, length);
    oracle::TracedUnit u;
    if (GetParam().hevc) {
      ASSERT_EQ(read_nal_unit_hevc(h, unit, length), length);
      u.forbiddenZeroBit = h->nal->forbidden_zero_bit;
      u.nalUnitType = h->nal->nal_unit_type;
      u.nuhLayerId = h->nal->nuh_layer_id;
      u.temporalId = h->nal->temporal_id;
      if (u.nalUnitType == kHevcNalPrefixSei) {
        EXPECT_EQ(h->nal->parsed, h->sei);
        for (int i = 0; i < h->num_seis; i++) u.seis.push_back({h->seis[i]->payloadType, h->seis[i]->payloadSize});
      }
    } else {
      ASSERT_EQ(peek_nal_unit(h, unit, length), unit[0] & 0x1F);
      u.forbiddenZeroBit = h->nal->forbidden_zero_bit;
      u.nalRefIdc = h->nal->nal_ref_idc;
      u.nalUnitType = h->nal->nal_unit_type;
    }
    ours.push_back(u);
    offset += static_cast<size_t>(end);
  }
  h264_free(h);

  // What the layer is asked to report: prefix SEI messages only, and (kept rule) a later message
  // whose payloadType byte has its top bit set reads as the stop bit and ends the list. For H.264
  // the SEI messages are not read by this layer.
  bool sawTemporalLayer = false, sawSei = false;
  for (auto& t : traced) {
    if (!GetParam().hevc || t.nalUnitType != kHevcNalPrefixSei) {
      t.seis.clear();
      continue;
    }
    sawSei = true;
    auto cut = std::find_if(t.seis.begin() + (t.seis.empty() ? 0 : 1), t.seis.end(),
                            [](const oracle::SeiMessage& m) { return m.payloadType >= 128; });
    t.seis.erase(cut, t.seis.end());
  }
  for (const auto& t : traced) sawTemporalLayer = sawTemporalLayer || t.temporalId > 0;
  ASSERT_EQ(ours.size(), traced.size());
  for (size_t i = 0; i < ours.size(); i++) {
    EXPECT_EQ(ours[i], traced[i]) << "unit " << i << " type " << traced[i].nalUnitType;
  }
  if (std::string(GetParam().name) == "syntax_x265_sei.hevc") {
    EXPECT_TRUE(sawSei && sawTemporalLayer) << "the sample should carry prefix SEI and temporal layers";
  }
}

INSTANTIATE_TEST_SUITE_P(X264AndX265, RealStream, ::testing::ValuesIn(kStreams),
                         [](const ::testing::TestParamInfo<Stream>& info) {
                           std::string name = info.param.name;
                           std::replace_if(name.begin(), name.end(), [](char c) { return !isalnum(c); }, '_');
                           return name;
                         });


// reframe's conversions: RealStream.FramingAndLookupMatchMp4Samples (the library against
// ffmpeg's MP4 samples), Containers.ReframeAcrossKindsAndThroughPipes (--to length then
// --to annexb decode unchanged) and CommandJson; inspect's codec and frame counts:
// Containers.ReadAsFfprobeReadsAndEditedWithoutChange and InspectFields (tests/media). The
// one-line messages these commands share with the other stream commands are
// CommandJson.BadInputGivesOneLineAndAJsonError's rows.
TEST(Cli, BadInputFailsWithOneLine) {
  qtest::TempDir dir;
  qtest::writeBytes(dir.file("noise.bin"), Bytes{0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0, 0x11});
  qtest::writeBytes(dir.file("cut.len"), Bytes{0x00, 0x00, 0x00, 0x02, 0x09, 0xF0, 0x00, 0x00, 0x00, 0x09, 0x41});
  qtest::writeBytes(dir.file("empty"), Bytes{});
  struct Case {
    std::string args;
    int exitCode;
    std::string message;
  } cases[] = {
      {"nal", 2, "quorvane nal: expected one FILE (see quorvane nal --help)\n"},
      {"nal " + dir.file("noise.bin"), 1, "quorvane nal: " + dir.file("noise.bin") + ": no H.264, HEVC or MPEG-2 video found (neither an elementary stream nor a known container)\n"},
      {"reframe --to annexb " + dir.file("cut.len") + " " + dir.file("o"), 1, "quorvane reframe: " + dir.file("cut.len") + ": no H.264, HEVC or MPEG-2 video found (neither an elementary stream nor a known container)\n"},
      {"inspect " + dir.path(), 1, "quorvane inspect: " + dir.path() + " is a directory\n"},
      {"nal " + dir.file("empty"), 1, "quorvane nal: " + dir.file("empty") + " is empty\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args);
    auto r = qtest::runTool(c.args);
    EXPECT_EQ(r.exitCode, c.exitCode);
    EXPECT_EQ(r.err, c.message);
  }
}

}  // namespace
