// Per-picture timecode and captions through the library's readers.
#include "picture_metadata.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include "access_units.h"
#include "platform/tcxlat.h"
#include "streamutil/hevc_params.h"

namespace {

// ISO/IEC 13818-2 Table 6-4 frame_rate_code.
double mpeg2Rate(uint32_t code) {
  static constexpr double kRates[16] = {0, 24000.0 / 1001, 24, 25, 30000.0 / 1001, 30, 50, 60000.0 / 1001, 60};
  return kRates[code & 15];
}

bool readAvcOrHevc(const uint8_t* data, size_t size, StreamCodec codec, StreamPictures& out, std::string& error) {
  std::vector<AccessUnitRef> aus;
  if (!splitAccessUnits(data, size, codec, aus, error)) return false;
  const bool hevc = codec == StreamCodec::kHevc;
  auto sps = std::make_unique<SPS_DECODED>();
  bool haveSps = false;
  uint32_t decode = 0;
  for (const auto& au : aus) {
    for (const auto& u : au.units) {
      zr_bitstream s{const_cast<uint8_t*>(data + u.header), int64_t(u.end - u.header), uint64_t(u.end - u.header) * 8, 0};
      if (!hevc && u.type == 7 && klxutilRead_SPS(&s, sps.get()) > 0) {
        haveSps = true;
        if (sps->vui.timing_info_present_flag && sps->vui.num_units_in_tick && out.framesPerSecond == 0)
          out.framesPerSecond = double(sps->vui.time_scale) / (2.0 * sps->vui.num_units_in_tick);
      }
      if (hevc && u.type == 33 && out.framesPerSecond == 0) {
        HEVC_SPS_DECODED h{};
        if (klxutilRead_HEVC_SPS(&s, &h, nullptr, 0) != 0xFFFFFFFFu && h.vui.vui_timing_info_present_flag &&
            h.vui.vui_num_units_in_tick) {
          out.fieldPictures = h.vui.field_seq_flag;
          out.framesPerSecond = double(h.vui.vui_time_scale) / h.vui.vui_num_units_in_tick / (h.vui.field_seq_flag ? 2 : 1);
        }
      }
    }
    if (!au.hasPicture) continue;
    PictureMetadata p;
    p.display = au.displayIndex;
    p.decode = decode++;
    p.order = au.poc;
    const uint8_t* frame = data + au.begin;
    const uint32_t length = static_cast<uint32_t>(au.end - au.begin);
    p.hasTimecode = hevc ? klxUtilReadHevcTimeCode(frame, length, 0, &p.timecode) == 1
                         : haveSps && klxUtilReadH264TimeCode(frame, length, 0, sps.get(), &p.timecode) == 1;
    uint8_t triplets[3 * 64];
    const int n = hevc ? klxUtilReadHevcCaptionsSEI(frame, length, 0, triplets, 64)
                       : klxUtilReadH264CaptionsSEI(frame, length, 0, triplets, 64);
    if (n > 0) p.triplets.assign(triplets, triplets + 3 * std::min(n, 64));
    out.pictures.push_back(std::move(p));
  }
  return true;
}

// MPEG-2: a picture runs from the headers in front of its picture header to its last slice;
// its display position in the GOP is its temporal_reference.
bool readMpeg2(const uint8_t* data, size_t size, StreamPictures& out, std::string& error) {
  if (size > UINT32_MAX) return error = "stream too large", false;
  std::vector<size_t> starts;  // start code offsets
  for (size_t i = 0; i + 3 < size; ++i)
    if (!data[i] && !data[i + 1] && data[i + 2] == 1) starts.push_back(i), i += 2;
  KLX_TIMECODE gop{};
  bool haveGop = false;
  uint32_t gopBase = 0, gopPictures = 0, decode = 0, tcType = TC_DF2997;
  size_t frameBegin = starts.empty() ? 0 : starts.front();
  bool inSlices = false;
  PictureMetadata pending;
  bool havePending = false;
  auto finish = [&](size_t end) {
    if (!havePending) return;
    const uint8_t* frame = data + frameBegin;
    const uint32_t length = static_cast<uint32_t>(end - frameBegin);
    uint8_t triplets[3 * 64];
    const int n = klxUtilReadMpeg2Captions(frame, length, triplets, 64);
    if (n > 0) pending.triplets.assign(triplets, triplets + 3 * std::min(n, 64));
    out.pictures.push_back(pending);
    havePending = false;
  };
  for (size_t k = 0; k < starts.size(); ++k) {
    const size_t at = starts[k];
    const uint8_t code = data[at + 3];
    const bool slice = code >= 0x01 && code <= 0xAF;
    if (!slice && inSlices) {
      finish(at);
      frameBegin = at;
      inSlices = false;
    }
    if (code == 0xB3 && at + 8 <= size) {
      if (out.framesPerSecond == 0) out.framesPerSecond = mpeg2Rate(data[at + 7] & 15);
    } else if (code == 0xB8) {
      KLX_TIMECODE tc{};
      const size_t end = k + 1 < starts.size() ? starts[k + 1] : size;
      if (klxUtilReadMpeg2TimeCode(data + at, uint32_t(end - at), &tc) == 1) gop = tc, haveGop = true;
      gopBase += gopPictures;
      gopPictures = 0;
    } else if (code == 0x00 && at + 6 <= size) {
      pending = PictureMetadata{};
      pending.order = int32_t((uint32_t(data[at + 4]) << 2) | (data[at + 5] >> 6));  // temporal_reference
      pending.decode = decode++;
      pending.display = gopBase + uint32_t(pending.order);
      ++gopPictures;
      if (haveGop) {
        const double fps = out.framesPerSecond;
        tcType = gop.dropFrame ? (fps > 40 ? TC_DF5994 : TC_DF2997)
                               : fps > 55 ? TC_60 : fps > 45 ? TC_50 : fps > 27 ? TC_NDF30 : fps > 24.5 ? TC_PAL : TC_FILM;
        char text[16];
        std::snprintf(text, sizeof text, "%02u:%02u:%02u%c%02u", gop.hours, gop.minutes, gop.seconds, gop.dropFrame ? ';' : ':', gop.frames);
        uint32_t frames = 0;
        if (tc2Frame(text, tcType | TCF_TEXT, &frames) == 0) {
          uint8_t digits[4];
          if (tc2String(frames + uint32_t(pending.order), tcType | 0x400, digits, sizeof digits) == 0) {
            pending.timecode = gop;
            pending.timecode.hours = digits[0], pending.timecode.minutes = digits[1];
            pending.timecode.seconds = digits[2], pending.timecode.frames = digits[3];
            pending.hasTimecode = true;
          }
        }
      }
      havePending = true;
    }
    inSlices = inSlices || slice;
  }
  finish(size);
  // Display order: GOP base + temporal_reference, unique per picture in a well-formed stream.
  std::stable_sort(out.pictures.begin(), out.pictures.end(), [](const auto& a, const auto& b) { return a.display < b.display; });
  for (size_t i = 0; i < out.pictures.size(); ++i) out.pictures[i].display = uint32_t(i);
  return true;
}

}  // namespace

bool readStreamPictures(const uint8_t* data, size_t size, StreamCodec codec, StreamPictures& out, std::string& error) {
  out = StreamPictures{};
  bool ok = false;
  if (codec == StreamCodec::kMpeg2)
    ok = readMpeg2(data, size, out, error);
  else if (codec == StreamCodec::kH264 || codec == StreamCodec::kHevc)
    ok = readAvcOrHevc(data, size, codec, out, error);
  else
    error = "not an H.264, HEVC or MPEG-2 elementary stream";
  if (ok && codec != StreamCodec::kMpeg2)
    std::stable_sort(out.pictures.begin(), out.pictures.end(), [](const auto& a, const auto& b) { return a.display < b.display; });
  return ok;
}

std::string timecodeString(const KLX_TIMECODE& tc) {
  char text[24];
  std::snprintf(text, sizeof text, "%02u:%02u:%02u%c%02u", tc.hours, tc.minutes, tc.seconds, tc.dropFrame ? ';' : ':', tc.frames);
  return text;
}
