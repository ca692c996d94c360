// Frame section of `quorvane inspect`: each picture, in display order, with the timecode of its
// time_code SEI (HEVC) and the number of caption triplets in its ATSC A/53 cc_data.
#include <algorithm>
#include <cstring>
#include <string>

#include "inspect.h"
#include "media/input.h"
#include "streamutil/avc_params.h"
#include "streamutil/mpeg2_edit.h"
#include "streamutil/sei_read.h"


FrameReport::FrameReport(StreamCodec codec, bool lengthPrefixed, bool json)
    : codec_(codec), lengthPrefixed_(lengthPrefixed), json_(json) {
  klxutilDisplayOrderInit(&order_);
  if (!json) spill_ = std::tmpfile();
}

FrameReport::~FrameReport() {
  if (spill_) std::fclose(spill_);
}

namespace {
// "HH:MM:SS:FF" (';' before the frames for drop-frame counting).
std::string timecodeString(const KLX_TIMECODE& tc) {
  char text[24];
  std::snprintf(text, sizeof text, "%02u:%02u:%02u%c%02u", tc.hours, tc.minutes, tc.seconds, tc.dropFrame ? ';' : ':', tc.frames);
  return text;
}

void printLine(FILE* out, uint64_t display, uint64_t decode, int32_t poc, const std::string& timecode, int captions) {
  std::fprintf(out, "  %7llu  %6llu  %3d  %-12s  %s\n", static_cast<unsigned long long>(display),
               static_cast<unsigned long long>(decode), poc, timecode.empty() ? "-" : timecode.c_str(),
               captions < 0 ? "-" : std::to_string(captions).c_str());
}
}  // namespace

void FrameReport::add(const media::AccessUnit& au) {
  if (codec_ == StreamCodec::kMpeg2) return addMpeg2(au);
  if ((codec_ != StreamCodec::kHevc && codec_ != StreamCodec::kH264) || !error_.empty() || !au.picture.hasPicture) return;
  if (au.orderKnown && au.picture.notOutput) return;  // not shown by a decoder: no display position
  if (!au.orderKnown) {
    error_ = codec_ == StreamCodec::kHevc ? "cannot read an HEVC slice header (missing parameter sets?)"
                                          : "cannot read an H.264 slice header (missing parameter sets?)";
    return;
  }
  const bool hevc = codec_ == StreamCodec::kHevc;
  const uint32_t lengthPrefixed = lengthPrefixed_ ? 1 : 0;
  Facts facts;
  facts.poc = au.picture.poc;
  if (!hevc) {  // pic_timing is laid out by the SPS the picture activates (HRD, pic_struct_present_flag)
    if (!avcSps_) {
      avcSps_ = std::make_unique<KLXUTIL_AVC_SPS_SET>();
      klxutilAvcSpsSetInit(avcSps_.get());
    }
    for (const auto& u : au.units) klxutilAvcSpsSetLearn(avcSps_.get(), au.unit(u), u.size);
  }
  const uint8_t* frame = au.bytes.data();
  const uint32_t size = static_cast<uint32_t>(au.bytes.size());
  KLX_TIMECODE tc{};
  const int found = hevc ? klxUtilReadHevcTimeCode(frame, size, lengthPrefixed, &tc)
                         : klxUtilReadH264TimeCode(frame, size, lengthPrefixed,
                                                   klxutilAvcSpsSetFind(avcSps_.get(), au.picture.spsId), &tc);
  if (found == 1) facts.timecode = timecodeString(tc);
  uint8_t triplets[3 * 64];
  const int n = hevc ? klxUtilReadHevcCaptionsSEI(frame, size, lengthPrefixed, triplets, 64)
                     : klxUtilReadH264CaptionsSEI(frame, size, lengthPrefixed, triplets, 64);
  if (n > 0) facts.captions = n;
  waiting_[au.picture.decodeIndex] = facts;
  klxutilDisplayOrderAdd(&order_, au.picture.decodeIndex, au.picture.sequence, au.picture.poc);
  release(0);
}

// MPEG-2: a picture's timecode is its group's time_code counted on by its temporal_reference
// (ISO/IEC 13818-2 6.3.8, 6.3.9), on the clock of the sequence header's frame rate.
void FrameReport::addMpeg2(const media::AccessUnit& au) {
  for (const auto& u : au.units)
    if (u.size >= 5 && au.unit(u)[0] == 0xB3) mpeg2RateCode_ = au.unit(u)[4] & 0x0F;
  const uint8_t* frame = au.bytes.data();
  const uint32_t size = static_cast<uint32_t>(au.bytes.size());
  KLX_TIMECODE gop{};
  if (klxUtilReadMpeg2TimeCode(frame, size, &gop) == 1) mpeg2Gop_ = gop, mpeg2HaveGop_ = true;
  if (!au.picture.hasPicture) return;
  Facts facts;
  facts.poc = au.picture.poc;
  KLX_TIMECODE tc{};
  if (mpeg2HaveGop_ && klxutilMpeg2PictureTimeCode(&mpeg2Gop_, mpeg2RateCode_, uint32_t(std::max(au.picture.poc, 0)), &tc) == 0)
    facts.timecode = timecodeString(tc);
  uint8_t triplets[3 * 64];
  const int n = klxUtilReadMpeg2Captions(frame, size, triplets, 64);
  if (n > 0) facts.captions = n;
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

void FrameReport::print(FILE* out, cli::JsonValue* json) const {
  if (codec_ != StreamCodec::kHevc && codec_ != StreamCodec::kH264 && codec_ != StreamCodec::kMpeg2) return;
  if (!error_.empty()) {
    if (out) std::fprintf(out, "frames: %s\n", error_.c_str());
    if (json) (*json)["framesError"] = error_;
    return;
  }
  cli::JsonValue pictures = cli::JsonValue::array();
  if (out) std::fprintf(out, "frames (display order):\n  display  decode  %s  timecode      captions\n", codec_ == StreamCodec::kMpeg2 ? "tref" : "poc");
  for (const Line& l : lines_) {
    if (json) {
      cli::JsonValue picture{{"display", l.display}, {"decode", l.decode}};
      picture[codec_ == StreamCodec::kMpeg2 ? "temporalReference" : "poc"] = l.facts.poc;
      picture["timecode"] = l.facts.timecode.empty() ? cli::JsonValue() : cli::JsonValue(l.facts.timecode);
      picture["captions"] = std::max(l.facts.captions, 0);
      pictures.push_back(std::move(picture));
    }
  }
  if (json) (*json)["pictures"] = std::move(pictures);
  if (out && spill_) {
    std::rewind(spill_);
    char chunk[1 << 14];
    for (size_t n; (n = std::fread(chunk, 1, sizeof chunk, spill_)) > 0;) std::fwrite(chunk, 1, n, out);
  }
}
