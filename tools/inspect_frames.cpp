// Frame section of `quorvane inspect`: each picture, in display order, with its timecode (HEVC
// time_code SEI, H.264 pic_timing clock timestamp, MPEG-2 GOP time_code counted on by
// temporal_reference) and the number of caption triplets in its ATSC A/53 cc_data.
#include <string>

#include "inspect.h"
#include "picture_metadata.h"

void inspectFrames(const std::vector<uint8_t>& stream, StreamCodec codec, FILE* out, cli::Json* json) {
  if (codec != StreamCodec::kHevc && codec != StreamCodec::kH264 && codec != StreamCodec::kMpeg2) return;
  StreamPictures s;
  std::string error;
  if (!readStreamPictures(stream.data(), stream.size(), codec, s, error)) {
    if (out) std::fprintf(out, "frames: %s\n", error.c_str());
    return;
  }
  const bool mpeg2 = codec == StreamCodec::kMpeg2;
  const char* orderKey = mpeg2 ? "temporalReference" : "poc";
  if (json) json->beginArray("pictures");  // "frames" is the summary's count
  if (out) std::fprintf(out, "frames (display order):\n  display  decode  %4s  timecode      captions\n", mpeg2 ? "tref" : "poc");
  for (const PictureMetadata& p : s.pictures) {
    const std::string tc = p.hasTimecode ? timecodeString(p.timecode) : "";
    const int64_t captions = int64_t(p.triplets.size() / 3);
    if (json) {
      json->beginObject().num("display", int64_t(p.display)).num("decode", int64_t(p.decode)).num(orderKey, int64_t(p.order));
      if (tc.empty())
        json->null("timecode");
      else
        json->str("timecode", tc);
      json->num("captions", captions).endObject();
    }
    if (out)
      std::fprintf(out, "  %7u  %6u  %4d  %-12s  %s\n", p.display, p.decode, p.order, tc.empty() ? "-" : tc.c_str(),
                   p.triplets.empty() ? "-" : std::to_string(captions).c_str());
  }
  if (json) json->endArray();
}
