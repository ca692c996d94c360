// Frame section of `quorvane inspect`: each picture, in display order, with the timecode of its
// time_code SEI (HEVC) and the number of caption triplets in its ATSC A/53 cc_data.
#include <algorithm>
#include <cstring>
#include <string>

#include "inspect.h"
#include "media/input.h"
#include "streamutil/zr_bitstream.h"
#include "syntax/nal_framing.h"

namespace {

constexpr uint32_t kTimeCode = 136;
constexpr uint32_t kUserDataRegistered = 4;

void readTimeCode(zr_bitstream* s, std::string& timecode) {
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
  timecode = text;
}

void readCaptions(zr_bitstream* s, uint32_t payloadSize, int& captions) {
  if (payloadSize < 10 || ReadBits(s, 8) != 0xB5 || ReadBits(s, 16) != 0x0031 || ReadBits(s, 32) != 0x47413934 ||
      ReadBits(s, 8) != 3)
    return;
  captions = std::max(captions, 0) + int(ReadBits(s, 8) & 0x1F);
}

// Walks the SEI messages of one SEI unit (its RBSP behind `headerBytes` header bytes).
void readSeiUnit(const uint8_t* unit, uint32_t size, int headerBytes, std::string& timecode, int& captions) {
  int nalSize = static_cast<int>(std::min<uint32_t>(size, 1 << 20)), rbspSize = nalSize;
  std::vector<uint8_t> rbsp(static_cast<size_t>(nalSize) + 8, 0);
  if (nal_to_rbsp(unit, &nalSize, rbsp.data(), &rbspSize) < 0) return;
  const size_t skip = static_cast<size_t>(headerBytes - 1);  // nal_to_rbsp drops the first header byte
  if (static_cast<size_t>(rbspSize) <= skip) return;
  uint64_t at = skip;
  while (at + 2 <= static_cast<size_t>(rbspSize) && rbsp[at] != 0x80) {
    zr_bitstream s{rbsp.data(), static_cast<int64_t>(rbsp.size()), uint64_t(rbspSize) * 8, at * 8};
    const uint32_t type = ReadCodedNumber(&s), payloadSize = ReadCodedNumber(&s);
    const uint64_t payload = s.position / 8;
    if (payload + payloadSize > static_cast<size_t>(rbspSize)) return;
    if (type == kTimeCode) readTimeCode(&s, timecode);
    if (type == kUserDataRegistered) readCaptions(&s, payloadSize, captions);
    at = payload + payloadSize;
  }
}

}  // namespace

FrameReport::FrameReport(StreamCodec codec, bool json) : codec_(codec), json_(json) {
  klxutilDisplayOrderInit(&order_);
  if (!json) spill_ = std::tmpfile();
}

FrameReport::~FrameReport() {
  if (spill_) std::fclose(spill_);
}

namespace {
void printLine(FILE* out, uint64_t display, uint64_t decode, int32_t poc, const std::string& timecode, int captions) {
  std::fprintf(out, "  %7llu  %6llu  %3d  %-12s  %s\n", static_cast<unsigned long long>(display),
               static_cast<unsigned long long>(decode), poc, timecode.empty() ? "-" : timecode.c_str(),
               captions < 0 ? "-" : std::to_string(captions).c_str());
}
}  // namespace

void FrameReport::add(const media::AccessUnit& au) {
  if ((codec_ != StreamCodec::kHevc && codec_ != StreamCodec::kH264) || !error_.empty() || !au.picture.hasPicture) return;
  if (!au.orderKnown) {
    error_ = codec_ == StreamCodec::kHevc ? "cannot read an HEVC slice header (missing parameter sets?)"
                                          : "cannot read an H.264 slice header (missing parameter sets?)";
    return;
  }
  const bool hevc = codec_ == StreamCodec::kHevc;
  Facts facts;
  facts.poc = au.picture.poc;
  for (const auto& u : au.units) {
    if (u.size == 0) continue;
    const uint8_t* unit = au.unit(u);
    const int type = hevc ? (unit[0] >> 1) & 0x3F : unit[0] & 0x1F;
    if ((hevc && type == 39) || (!hevc && type == 6)) readSeiUnit(unit, u.size, hevc ? 2 : 1, facts.timecode, facts.captions);
  }
  waiting_[au.picture.decodeIndex] = facts;
  klxutilDisplayOrderAdd(&order_, au.picture.decodeIndex, au.picture.sequence, au.picture.poc);
  release(0);
}

void FrameReport::finish() { release(1); }

void FrameReport::release(int32_t flush) {
  uint64_t decode = 0, display = 0;
  while (klxutilDisplayOrderNext(&order_, flush, &decode, &display) == 1) {
    auto it = waiting_.find(decode);
    if (it == waiting_.end()) continue;
    if (json_)
      lines_.push_back(Line{display, decode, it->second});
    else if (spill_)
      printLine(spill_, display, decode, it->second.poc, it->second.timecode, it->second.captions);
    waiting_.erase(it);
  }
}

void FrameReport::print(FILE* out, cli::Json* json) const {
  if (codec_ != StreamCodec::kHevc && codec_ != StreamCodec::kH264) return;
  if (!error_.empty()) {
    if (out) std::fprintf(out, "frames: %s\n", error_.c_str());
    if (json) json->str("framesError", error_);
    return;
  }
  if (json) json->beginArray("pictures");
  if (out) std::fprintf(out, "frames (display order):\n  display  decode  poc  timecode      captions\n");
  for (const Line& l : lines_) {
    if (json) {
      json->beginObject().num("display", int64_t(l.display)).num("decode", int64_t(l.decode)).num("poc", int64_t(l.facts.poc));
      if (l.facts.timecode.empty())
        json->null("timecode");
      else
        json->str("timecode", l.facts.timecode);
      json->num("captions", int64_t(std::max(l.facts.captions, 0))).endObject();
    }
  }
  if (json) json->endArray();
  if (out && spill_) {
    std::rewind(spill_);
    char chunk[1 << 14];
    for (size_t n; (n = std::fread(chunk, 1, sizeof chunk, spill_)) > 0;) std::fwrite(chunk, 1, n, out);
  }
}
