// Frame section of `quorvane inspect`: each picture, in display order, with the timecode of its
// time_code SEI (HEVC) and the number of caption triplets in its ATSC A/53 cc_data.
#include <algorithm>
#include <cstring>
#include <string>

#include "access_units.h"
#include "inspect.h"
#include "streamutil/zr_bitstream.h"
#include "syntax/nal_framing.h"

namespace {

constexpr uint32_t kTimeCode = 136;
constexpr uint32_t kUserDataRegistered = 4;

struct FrameFacts {
  std::string timecode;  // empty: none
  int captions = -1;     // cc_count of the frame's cc_data, -1: none
};

void readTimeCode(zr_bitstream* s, FrameFacts& facts) {
  if (ReadBits(s, 2) < 1 || ReadBit(s) != 1) return;  // num_clock_ts, clock_timestamp_flag
  ReadBit(s);                                         // units_field_based_flag
  const uint32_t countingType = ReadBits(s, 5);
  const uint32_t full = ReadBit(s);
  ReadBit(s), ReadBit(s);  // discontinuity_flag, cnt_dropped_flag
  const uint32_t frames = ReadBits(s, 9);
  uint32_t seconds = 0, minutes = 0, hours = 0;
  if (full) {
    seconds = ReadBits(s, 6), minutes = ReadBits(s, 6), hours = ReadBits(s, 5);
  } else if (ReadBit(s)) {
    seconds = ReadBits(s, 6);
    if (ReadBit(s)) {
      minutes = ReadBits(s, 6);
      if (ReadBit(s)) hours = ReadBits(s, 5);
    }
  }
  char text[32];
  const char frameSeparator = (countingType == 4 || countingType == 6) ? ';' : ':';
  std::snprintf(text, sizeof text, "%02u:%02u:%02u%c%02u", hours, minutes, seconds, frameSeparator, frames);
  facts.timecode = text;
}

void readCaptions(zr_bitstream* s, uint32_t payloadSize, FrameFacts& facts) {
  if (payloadSize < 10 || ReadBits(s, 8) != 0xB5 || ReadBits(s, 16) != 0x0031 || ReadBits(s, 32) != 0x47413934 ||
      ReadBits(s, 8) != 3)
    return;
  facts.captions = std::max(facts.captions, 0) + int(ReadBits(s, 8) & 0x1F);
}

// Walks the SEI messages of one SEI unit (its RBSP behind `headerBytes` header bytes).
void readSeiUnit(const uint8_t* data, const NalUnitRef& u, int headerBytes, FrameFacts& facts) {
  int nalSize = static_cast<int>(std::min<size_t>(u.end - u.header, 1 << 20)), rbspSize = nalSize;
  std::vector<uint8_t> rbsp(static_cast<size_t>(nalSize) + 8, 0);
  if (nal_to_rbsp(data + u.header, &nalSize, rbsp.data(), &rbspSize) < 0) return;
  const size_t skip = static_cast<size_t>(headerBytes - 1);  // nal_to_rbsp drops the first header byte
  if (static_cast<size_t>(rbspSize) <= skip) return;
  uint64_t at = skip;
  while (at + 2 <= static_cast<size_t>(rbspSize) && rbsp[at] != 0x80) {
    zr_bitstream s{rbsp.data(), static_cast<int64_t>(rbsp.size()), uint64_t(rbspSize) * 8, at * 8};
    const uint32_t type = ReadCodedNumber(&s), size = ReadCodedNumber(&s);
    const uint64_t payload = s.position / 8;
    if (payload + size > static_cast<size_t>(rbspSize)) return;
    if (type == kTimeCode) readTimeCode(&s, facts);
    if (type == kUserDataRegistered) readCaptions(&s, size, facts);
    at = payload + size;
  }
}

}  // namespace

void inspectFrames(const std::vector<uint8_t>& stream, StreamCodec codec, FILE* out, cli::Json* json) {
  if (codec != StreamCodec::kHevc && codec != StreamCodec::kH264) return;
  std::vector<AccessUnitRef> aus;
  std::string error;
  if (!splitAccessUnits(stream.data(), stream.size(), codec, aus, error)) {
    if (out) std::fprintf(out, "frames: %s\n", error.c_str());
    return;
  }
  std::vector<const AccessUnitRef*> pictures;
  for (const auto& au : aus)
    if (au.hasPicture) pictures.push_back(&au);
  std::sort(pictures.begin(), pictures.end(), [](auto* a, auto* b) { return a->displayIndex < b->displayIndex; });
  const bool hevc = codec == StreamCodec::kHevc;
  if (json) json->beginArray("frames");
  if (out) std::fprintf(out, "frames (display order):\n  display  decode  poc  timecode      captions\n");
  for (const AccessUnitRef* au : pictures) {
    FrameFacts facts;
    for (const auto& u : au->units)
      if ((hevc && u.type == 39) || (!hevc && u.type == 6)) readSeiUnit(stream.data(), u, hevc ? 2 : 1, facts);
    const size_t decode = static_cast<size_t>(au - aus.data());
    if (json) {
      json->beginObject().num("display", int64_t(au->displayIndex)).num("decode", int64_t(decode)).num("poc", int64_t(au->poc));
      if (facts.timecode.empty())
        json->null("timecode");
      else
        json->str("timecode", facts.timecode);
      json->num("captions", int64_t(std::max(facts.captions, 0))).endObject();
    }
    if (out)
      std::fprintf(out, "  %7u  %6zu  %3d  %-12s  %s\n", au->displayIndex, decode, au->poc,
                   facts.timecode.empty() ? "-" : facts.timecode.c_str(),
                   facts.captions < 0 ? "-" : std::to_string(facts.captions).c_str());
  }
  if (json) json->endArray();
}
