// ffmpeg/ffprobe as oracles: see ffmpeg_oracle.h.
#include "support/ffmpeg_oracle.h"

#include <gtest/gtest.h>

#include <sstream>

#include "platform/tcxlat.h"
#include "support/test_support.h"

namespace oracle {

std::vector<TraceLine> traceHeaderLines(const std::string& path, int* exitCode) {
  auto r = qtest::runCommand("ffmpeg -nostdin -v verbose -i " + qtest::shellQuote(path) +
                             " -c copy -bsf:v trace_headers -f null - 2>&1");
  if (exitCode) *exitCode = r.exitCode;
  std::vector<TraceLine> trace;
  std::istringstream lines(r.out);
  std::string line;
  while (std::getline(lines, line)) {
    // ffmpeg's progress line may share a line with the next log line.
    const size_t tag = line.find("[trace_headers @ ");
    if (tag == std::string::npos) continue;
    const size_t close = line.find("] ", tag);
    if (close == std::string::npos) continue;
    // "16          last_payload_type_byte      00000101 = 5": bit position, name, bits, value.
    const std::string rest = line.substr(close + 2);
    std::istringstream words(rest);
    std::string position, name;
    words >> position >> name;
    if (position.empty() || !std::isdigit(static_cast<unsigned char>(position[0]))) {
      trace.push_back({false, rest, {}, 0});
      continue;
    }
    const size_t equals = rest.rfind("= ");
    if (equals == std::string::npos) continue;
    try {
      trace.push_back({true, {}, name, std::stoll(rest.substr(equals + 2))});
    } catch (...) {
    }
  }
  return trace;
}

std::vector<TracedUnit> traceUnits(const std::string& path) {
  std::vector<TracedUnit> units;
  bool inPackets = false;
  int pendingType = 0, pendingSize = 0;
  bool typeDone = false;
  int exitCode = 0;
  const std::vector<TraceLine> trace = traceHeaderLines(path, &exitCode);
  EXPECT_EQ(exitCode, 0) << "ffmpeg trace_headers failed on " << path;
  for (const TraceLine& t : trace) {
    if (!t.isElement && t.text.rfind("Packet: ", 0) == 0) inPackets = true;
    if (!inPackets || !t.isElement) continue;
    const std::string& name = t.name;
    const int value = static_cast<int>(t.value);
    if (name == "forbidden_zero_bit") {
      units.emplace_back();
      units.back().forbiddenZeroBit = value;
      continue;
    }
    if (units.empty()) continue;
    TracedUnit& u = units.back();
    if (name == "nal_ref_idc") u.nalRefIdc = value;
    if (name == "nal_unit_type") u.nalUnitType = value;
    if (name == "nuh_layer_id") u.nuhLayerId = value;
    if (name == "nuh_temporal_id_plus1") u.temporalId = value - 1;
    // FF bytes of payloadType and payloadSize are both traced as "ff_byte".
    if (name == "ff_byte") (typeDone ? pendingSize : pendingType) += 255;
    if (name == "last_payload_type_byte") {
      pendingType += value;
      typeDone = true;
    }
    if (name == "last_payload_size_byte") {
      u.seis.push_back({pendingType, pendingSize + value});
      pendingType = pendingSize = 0;
      typeDone = false;
    }
  }
  return units;
}

std::vector<Range> packetRanges(const std::string& path) {
  auto r = qtest::runCommand("ffprobe -v error -show_packets -show_entries packet=pos,size -of compact=p=0 " +
                             qtest::shellQuote(path));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  std::vector<Range> ranges;
  std::istringstream lines(r.out);
  std::string line;
  while (std::getline(lines, line)) {
    Range range;
    std::istringstream items(line);
    std::string item;
    while (std::getline(items, item, '|')) {
      if (item.rfind("size=", 0) == 0) range.size = std::stoull(item.substr(5));
      if (item.rfind("pos=", 0) == 0) range.pos = std::stoull(item.substr(4));
    }
    if (range.size) ranges.push_back(range);
  }
  return ranges;
}

std::vector<std::string> pictureChecksums(const std::string& path) {
  auto r = qtest::runCommand("ffmpeg -nostdin -v error -i " + qtest::shellQuote(path) + " -f framemd5 -");
  EXPECT_EQ(r.exitCode, 0) << r.err;
  std::vector<std::string> out;
  std::istringstream lines(r.out);
  for (std::string line; std::getline(lines, line);)
    if (!line.empty() && line[0] != '#') out.push_back(line);
  return out;
}

std::vector<std::vector<std::string>> frameTimecodes(const std::string& path, bool colonsOnly) {
  auto r = qtest::runCommand("ffprobe -v error -show_frames -show_entries frame=key_frame:frame_side_data=value,timecode " +
                             qtest::shellQuote(path));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  std::vector<std::vector<std::string>> frames;
  std::istringstream lines(r.out);
  for (std::string line; std::getline(lines, line);) {
    if (line == "[FRAME]") frames.emplace_back();
    const size_t equals = line.find('=');
    if (frames.empty() || equals == std::string::npos) continue;
    const std::string key = line.substr(0, equals);
    if (key != "value" && key != "timecode") continue;
    std::string value = line.substr(equals + 1);
    if (colonsOnly)
      for (auto& c : value)
        if (c == ';') c = ':';
    frames.back().push_back(value);
  }
  return frames;
}

std::string printedTimecode(uint32_t frames, uint32_t type) {
  char text[32] = {};
  EXPECT_EQ(tc2String(frames, type | TCF_TEXT | TCF_ALL_FIELDS | TCF_PAD, text, sizeof text), 0);
  for (auto& c : text)
    if (c == ';') c = ':';
  return text;
}

std::vector<std::string> allTimecodes(const std::string& path, bool colonsOnly) {
  std::vector<std::string> out;
  for (const auto& frame : frameTimecodes(path, colonsOnly)) out.insert(out.end(), frame.begin(), frame.end());
  return out;
}

std::vector<std::vector<uint8_t>> mp4Samples(const std::string& path, const std::string& scratchDir) {
  const std::string mp4 = scratchDir + "/remux.mp4";
  const std::string data = scratchDir + "/samples.bin";
  auto r = qtest::runCommand("ffmpeg -nostdin -y -v error -i " + qtest::shellQuote(path) + " -c copy " +
                             qtest::shellQuote(mp4) + " && ffmpeg -nostdin -y -v error -i " + qtest::shellQuote(mp4) +
                             " -map 0:v -c copy -f data " + qtest::shellQuote(data));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  auto sizes = qtest::runCommand("ffprobe -v error -show_packets -show_entries packet=size -of csv=p=0 " +
                                 qtest::shellQuote(mp4));
  std::vector<uint8_t> bytes = qtest::readBytes(data);
  std::vector<std::vector<uint8_t>> samples;
  std::istringstream lines(sizes.out);
  std::string line;
  size_t offset = 0;
  while (std::getline(lines, line)) {
    if (line.empty()) continue;
    size_t size = std::stoull(line);
    if (offset + size > bytes.size()) {
      ADD_FAILURE() << "sample sizes overrun the sample data";
      break;
    }
    samples.emplace_back(bytes.begin() + offset, bytes.begin() + offset + size);
    offset += size;
  }
  EXPECT_EQ(offset, bytes.size());
  return samples;
}

std::vector<std::vector<uint8_t>> lengthPrefixedUnits(const std::vector<uint8_t>& sample) {
  std::vector<std::vector<uint8_t>> units;
  size_t p = 0;
  while (p + 4 <= sample.size()) {
    size_t length = (size_t{sample[p]} << 24) | (size_t{sample[p + 1]} << 16) | (size_t{sample[p + 2]} << 8) | sample[p + 3];
    if (p + 4 + length > sample.size()) break;
    units.emplace_back(sample.begin() + p + 4, sample.begin() + p + 4 + length);
    p += 4 + length;
  }
  EXPECT_EQ(p, sample.size());
  return units;
}

}  // namespace oracle
