// Per-picture timecode and captions through the library's readers.
#include "picture_metadata.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include "access_units.h"
#include "platform/tcxlat.h"
#include "streamutil/hevc_params.h"
#include "streamutil/mpeg2_pictures.h"

namespace {

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

// MPEG-2: each picture with the headers in front of it; the GOP time_code counts on by
// temporal_reference.
bool readMpeg2(const uint8_t* data, size_t size, StreamPictures& out, std::string& error) {
  if (size > UINT32_MAX) return error = "stream too large", false;
  uint32_t rateCode = 0;
  const int n = klxutilMpeg2Pictures(data, uint32_t(size), nullptr, 0, &rateCode);
  std::vector<KLX_MPEG2_PICTURE> pictures(size_t(n > 0 ? n : 0));
  klxutilMpeg2Pictures(data, uint32_t(size), pictures.data(), uint32_t(pictures.size()), &rateCode);
  out.framesPerSecond = klxutilMpeg2FrameRate(rateCode);
  KLX_TIMECODE gop{};
  bool haveGop = false;
  uint32_t decode = 0;
  for (const auto& pic : pictures) {
    const uint8_t* frame = data + pic.begin;
    const uint32_t length = pic.end - pic.begin;
    if (pic.opensGop) haveGop = klxUtilReadMpeg2TimeCode(frame, length, &gop) == 1;
    PictureMetadata p;
    p.order = int32_t(pic.temporalReference);
    p.decode = decode++;
    p.display = pic.displayIndex;
    if (haveGop) p.hasTimecode = mpeg2PictureTimecode(gop, out.framesPerSecond, pic.temporalReference, p.timecode);
    uint8_t triplets[3 * 64];
    const int k = klxUtilReadMpeg2Captions(frame, length, triplets, 64);
    if (k > 0) p.triplets.assign(triplets, triplets + 3 * std::min(k, 64));
    out.pictures.push_back(std::move(p));
  }
  std::stable_sort(out.pictures.begin(), out.pictures.end(), [](const auto& a, const auto& b) { return a.display < b.display; });
  for (size_t i = 0; i < out.pictures.size(); ++i) out.pictures[i].display = uint32_t(i);
  return true;
}

}  // namespace

bool mpeg2PictureTimecode(const KLX_TIMECODE& gop, double framesPerSecond, uint32_t temporalReference,
                          KLX_TIMECODE& out) {
  const double fps = framesPerSecond;
  const uint32_t tcType = gop.dropFrame ? (fps > 40 ? TC_DF5994 : TC_DF2997)
                          : fps > 55    ? TC_60
                          : fps > 45    ? TC_50
                          : fps > 27    ? TC_NDF30
                          : fps > 24.5  ? TC_PAL
                                        : TC_FILM;
  const uint8_t digits[4] = {gop.hours, gop.minutes, gop.seconds, gop.frames};
  uint32_t start = 0;
  uint8_t shown[4];
  if (tc2Frame(reinterpret_cast<const char*>(digits), tcType | TCF_DIGITS, &start) != 0 ||
      tc2String(start + temporalReference, tcType | TCF_DIGITS, shown, sizeof shown) != 0)
    return false;
  out = gop;
  out.hours = shown[0], out.minutes = shown[1], out.seconds = shown[2], out.frames = shown[3];
  return true;
}

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
