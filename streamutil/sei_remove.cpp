// Removing SEI messages from a frame in place; the end of the units in front of the picture.
#include "streamutil/sei_remove.h"

#include "streamutil/sei_rewrite.h"

namespace {

bool wanted(const nalwalk::SeiMessage& m, const uint8_t* rbsp, const uint32_t* types, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) {
    if (types[i] == m.type) return true;
    if (types[i] == KLX_SEI_CC_DATA && m.type == 4 && seirewrite::isCaptionPayload(rbsp + m.payload, m.size)) return true;
  }
  return false;
}

bool validCodec(uint32_t codec) { return codec == KLX_CODEC_H264 || codec == KLX_CODEC_HEVC; }

}  // namespace

extern "C" int klxutilRemoveSEIMessages(DFRAME* frame, uint32_t codec, uint32_t lengthPrefixed, const uint32_t* types,
                                        uint32_t count) {
  if (!frame || !frame->pData || !validCodec(codec) || (count && !types) || frame->nDataSize > frame->nBufferSize)
    return -1;
  int removed = 0;
  // A rewritten unit moves everything behind it, so the walk starts again after each change;
  // a unit once rewritten holds none of the types and is passed over the next time.
  for (bool again = true; again;) {
    again = false;
    nalwalk::Walker walk(frame->pData, frame->nDataSize, lengthPrefixed != 0);
    for (nalwalk::Unit u; walk.next(u);) {
      if (!seirewrite::isSeiUnit(codec, frame->pData[u.header])) continue;
      const int n = seirewrite::rewriteSeiUnit(
          frame, u, codec, lengthPrefixed != 0,
          [&](const nalwalk::SeiMessage& m, const uint8_t* rbsp, uint8_t*, uint32_t) {
            return wanted(m, rbsp, types, count) ? seirewrite::kDrop : seirewrite::kKeep;
          });
      if (n > 0) {
        removed += n;
        again = true;
        break;
      }
    }
  }
  return removed;
}

namespace {

// The frame's first picture unit: where its start code (or length) begins and its header byte;
// both `size` when it has none.
struct PicturePlace {
  uint32_t at, header;
};
PicturePlace firstPicture(const uint8_t* frame, uint32_t size, uint32_t codec, bool lengthPrefixed) {
  nalwalk::Walker walk(frame, size, lengthPrefixed);
  nalwalk::Unit u;
  for (uint8_t h; walk.peek(h);) {
    if (seirewrite::isPictureUnit(codec, h)) return {walk.peekAt(), walk.peekHeaderAt()};
    if (!walk.next(u)) break;
  }
  return {size, size};
}

}  // namespace

extern "C" uint32_t ReadSEIEnd(const uint8_t* frame, uint32_t size, uint32_t codec, uint32_t lengthPrefixed) {
  if (!frame || !validCodec(codec)) return 0;
  return firstPicture(frame, size, codec, lengthPrefixed != 0).at;
}

extern "C" int klxutilInsertUnitBeforePicture(DFRAME* frame, uint32_t codec, uint32_t lengthPrefixed,
                                              const uint8_t* unit, uint32_t unitLength) {
  if (!frame || !frame->pData || !unit || unitLength < 5 || !validCodec(codec) || frame->nDataSize > frame->nBufferSize)
    return -1;
  uint8_t prefix[4] = {0, 0, 0, 1};
  if (lengthPrefixed) {
    const uint32_t n = unitLength - 4;
    prefix[0] = uint8_t(n >> 24), prefix[1] = uint8_t(n >> 16), prefix[2] = uint8_t(n >> 8), prefix[3] = uint8_t(n);
  }
  const PicturePlace picture = firstPicture(frame->pData, frame->nDataSize, codec, lengthPrefixed != 0);
  const uint32_t at = picture.at;
  if (uint64_t(frame->nDataSize) + unitLength > frame->nBufferSize) return KLX_SEI_NO_ROOM_FRAME;
  // An SEI's TemporalId may not be below its access unit's (ITU-T H.265 7.4.2.2): one written for
  // layer 0 takes the picture's nuh_temporal_id_plus1 when it lies in a higher temporal sub-layer.
  const uint8_t pictureTid =
      codec == KLX_CODEC_HEVC && picture.header + 1 < frame->nDataSize ? frame->pData[picture.header + 1] & 7 : 0;
  seirewrite::replaceRange(frame, at, at, unit, unitLength);
  std::memcpy(frame->pData + at, prefix, 4);
  const uint32_t type = (frame->pData[at + 4] >> 1) & 0x3F;
  uint8_t* tid = unitLength >= 6 ? frame->pData + at + 5 : nullptr;
  if (tid && (type == 39 || type == 40) && (*tid & 7) < pictureTid) *tid = uint8_t((*tid & ~7u) | pictureTid);
  return 0;
}
