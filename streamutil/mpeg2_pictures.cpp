// Cutting MPEG-2 video into pictures (ISO/IEC 13818-2 6.2).
#include "streamutil/mpeg2_pictures.h"

#include "streamutil/mpeg2_sequence.h"
#include "streamutil/nal_walk.h"

namespace {
constexpr uint8_t kPicture = 0x00, kSequenceHeader = 0xB3, kGop = 0xB8;
bool isSlice(uint8_t code) { return code >= 0x01 && code <= 0xAF; }
}  // namespace

extern "C" double klxutilMpeg2FrameRate(uint32_t code) {
  uint32_t rate = 0, scale = 0;
  return klxutilMpeg2FrameRateFraction(code, &rate, &scale) == 0 ? double(rate) / scale : 0;
}

extern "C" int klxutilMpeg2Pictures(const uint8_t* d, uint32_t size, KLX_MPEG2_PICTURE* pictures, uint32_t capacity,
                                    uint32_t* frameRateCode) {
  if (!d || (capacity && !pictures)) return -1;
  if (frameRateCode) *frameRateCode = 0;
  uint32_t count = 0, gopBase = 0, gopPictures = 0;
  KLX_MPEG2_PICTURE cur{};
  bool inSlices = false, havePicture = false, haveRate = false;
  auto close = [&](uint32_t at) {
    if (havePicture) {
      cur.end = at;
      if (!cur.firstSlice) cur.firstSlice = at;
      if (count < capacity) pictures[count] = cur;
      ++count;
    }
    havePicture = false;
    cur = KLX_MPEG2_PICTURE{};
    cur.begin = at;
  };
  cur.begin = nalwalk::nextStartCode(d, size, 0);
  for (uint32_t at = cur.begin; at + 3 < size; at = nalwalk::nextStartCode(d, size, at + 3)) {
    const uint8_t code = d[at + 3];
    if (!isSlice(code) && inSlices) close(at), inSlices = false;
    if (code == kSequenceHeader && at + 8 <= size && !haveRate) {
      if (frameRateCode) *frameRateCode = d[at + 7] & 15;
      haveRate = true;
    }
    if (code == kGop) cur.opensGop = 1, gopBase += gopPictures, gopPictures = 0;
    if (code == kPicture && at + 6 <= size && !havePicture) {
      cur.temporalReference = (uint32_t(d[at + 4]) << 2) | (d[at + 5] >> 6);
      cur.pictureCodingType = (d[at + 5] >> 3) & 7;
      cur.displayIndex = gopBase + cur.temporalReference;
      ++gopPictures;
      havePicture = true;
    }
    if (isSlice(code) && !inSlices && havePicture) cur.firstSlice = at;
    inSlices = inSlices || (isSlice(code) && havePicture);
  }
  close(size);
  return static_cast<int>(count);
}
