// Timecode and caption readers for H.264, HEVC and MPEG-2 frames.
#include "streamutil/sei_read.h"

#include <cstring>

#include "streamutil/sei_rewrite.h"

namespace {

constexpr uint32_t kHevcTimeCode = 136;
constexpr uint32_t kAvcPicTiming = 1;
constexpr uint32_t kUserDataRegistered = 4;
constexpr uint32_t kCaptionHeader = 8;  // B5 0031 "GA94" 03
constexpr uint8_t kMpeg2Gop = 0xB8, kMpeg2UserData = 0xB2;

zr_bitstream readerOver(const uint8_t* p, uint32_t n) {
  return zr_bitstream{const_cast<uint8_t*>(p), int64_t(n), uint64_t(n) * 8, 0};
}

// The timestamp fields behind counting_type (both standards share them up to n_frames' width).
void readTimestamp(zr_bitstream& s, uint32_t framesBits, KLX_TIMECODE& tc) {
  tc.fieldBased = uint8_t(ReadBit(&s));
  tc.countingType = uint8_t(ReadBits(&s, 5));
  const uint32_t full = ReadBit(&s);
  ReadBit(&s);  // discontinuity_flag
  ReadBit(&s);  // cnt_dropped_flag
  tc.frames = uint8_t(ReadBits(&s, framesBits));
  tc.seconds = tc.minutes = tc.hours = 0;
  if (full) {
    tc.seconds = uint8_t(ReadBits(&s, 6)), tc.minutes = uint8_t(ReadBits(&s, 6)), tc.hours = uint8_t(ReadBits(&s, 5));
  } else if (ReadBit(&s)) {
    tc.seconds = uint8_t(ReadBits(&s, 6));
    if (ReadBit(&s)) {
      tc.minutes = uint8_t(ReadBits(&s, 6));
      if (ReadBit(&s)) tc.hours = uint8_t(ReadBits(&s, 5));
    }
  }
  tc.dropFrame = tc.countingType >= 4 && tc.countingType <= 6;
}

// Calls f(type, payload, size) for the wanted SEI messages in front of the first picture until
// it returns true.
template <class Wanted, class F>
bool eachLeadingMessage(const uint8_t* d, uint32_t size, uint32_t codec, bool lengthPrefixed, Wanted&& wanted, F&& f) {
  nalwalk::Walker walk(d, size, lengthPrefixed);
  nalwalk::Unit u;
  for (uint8_t h; walk.peek(h) && !seirewrite::isPictureUnit(codec, h);) {
    if (!walk.next(u)) return false;
    if (seirewrite::isSeiUnit(codec, h) && seirewrite::forEachMessage(d, u, codec, wanted, f)) return true;
  }
  return false;
}

int readCaptions(const uint8_t* d, uint32_t size, uint32_t codec, uint32_t lengthPrefixed, uint8_t* out, uint32_t capacity) {
  if (!d || (capacity && !out)) return -1;
  uint32_t count = 0;
  eachLeadingMessage(
      d, size, codec, lengthPrefixed != 0, [](uint32_t type) { return type == kUserDataRegistered; },
      [&](uint32_t, const uint8_t* payload, uint32_t n) {
        if (!seirewrite::isCaptionPayload(payload, n) || n < kCaptionHeader + 2) return false;
        const uint8_t* p = payload + kCaptionHeader;
        const uint32_t announced = p[0] & 0x1F, fits = (n - kCaptionHeader - 2) / 3;
        const uint32_t k = announced < fits ? announced : fits;
        for (uint32_t i = 0; i < k; ++i, ++count)
          if (count < capacity) std::memcpy(out + 3 * count, p + 2 + 3 * i, 3);
        return false;
      });
  return int(count);
}

// MPEG-2 start codes in front of the first slice: f(code, payload, payloadLength).
template <class F>
void eachMpeg2Header(const uint8_t* d, uint32_t size, F&& f) {
  for (uint32_t at = nalwalk::nextStartCode(d, size, 0); at + 3 < size;) {
    const uint8_t code = d[at + 3];
    if (code >= 0x01 && code <= 0xAF) return;  // slice
    const uint32_t next = nalwalk::nextStartCode(d, size, at + 4);
    f(code, d + at + 4, next - (at + 4));
    at = next;
  }
}

}  // namespace

extern "C" int klxUtilReadHevcTimeCode(const uint8_t* frame, uint32_t size, uint32_t lengthPrefixed, KLX_TIMECODE* tc) {
  if (!frame || !tc) return -1;
  const bool found = eachLeadingMessage(frame, size, KLX_CODEC_HEVC, lengthPrefixed != 0,
                                        [](uint32_t type) { return type == kHevcTimeCode; },
                                        [&](uint32_t, const uint8_t* payload, uint32_t n) {
                                          zr_bitstream s = readerOver(payload, n);
                                          const uint32_t num = ReadBits(&s, 2);
                                          KLX_TIMECODE t{};
                                          for (uint32_t i = 0; i < num; ++i) {
                                            if (!ReadBit(&s)) continue;
                                            readTimestamp(s, 9, t);
                                            if (const uint32_t offsetBits = ReadBits(&s, 5)) SkipBits(&s, int32_t(offsetBits));
                                            if (!t.clockTimestamps++) *tc = t;
                                          }
                                          if (!t.clockTimestamps || s.position > s.length) return false;
                                          tc->clockTimestamps = t.clockTimestamps;
                                          return true;
                                        });
  return found ? 1 : 0;
}

extern "C" int klxUtilReadH264TimeCode(const uint8_t* frame, uint32_t size, uint32_t lengthPrefixed, const SPS_DECODED* sps,
                                       KLX_TIMECODE* tc) {
  if (!frame || !tc || !sps) return -1;
  if (!sps->vui_parameters_present_flag || !sps->vui.pic_struct_present_flag) return 0;
  const AVC_VUI_PARAMETERS& v = sps->vui;
  const hdr_parameters* hrd = v.nal_hrd_parameters_present_flag   ? &v.nal_hrd
                              : v.vcl_hrd_parameters_present_flag ? &v.vcl_hrd
                                                                  : nullptr;
  const bool found = eachLeadingMessage(frame, size, KLX_CODEC_H264, lengthPrefixed != 0,
                                        [](uint32_t type) { return type == kAvcPicTiming; },
                                        [&](uint32_t, const uint8_t* payload, uint32_t n) {
                                          zr_bitstream s = readerOver(payload, n);
                                          if (hrd) {
                                            SkipBits(&s, (hrd->cpb_removal_delay_length_minus1 & 31) + 1);
                                            SkipBits(&s, (hrd->dpb_output_delay_length_minus1 & 31) + 1);
                                          }
                                          static constexpr uint8_t kNumClockTs[16] = {1, 1, 1, 2, 2, 3, 3, 2, 3};
                                          const uint32_t slots = kNumClockTs[ReadBits(&s, 4) & 15];
                                          const uint32_t offsetBits = hrd ? uint32_t(hrd->time_offset_length & 31) : 24;
                                          KLX_TIMECODE t{};
                                          for (uint32_t i = 0; i < slots; ++i) {
                                            if (!ReadBit(&s)) continue;
                                            SkipBits(&s, 2);  // ct_type
                                            readTimestamp(s, 8, t);
                                            SkipBits(&s, int32_t(offsetBits));
                                            if (!t.clockTimestamps++) *tc = t;
                                          }
                                          if (!t.clockTimestamps || s.position > s.length) return false;
                                          tc->clockTimestamps = t.clockTimestamps;
                                          return true;
                                        });
  return found ? 1 : 0;
}

extern "C" int klxUtilReadMpeg2TimeCode(const uint8_t* frame, uint32_t size, KLX_TIMECODE* tc) {
  if (!frame || !tc) return -1;
  int found = 0;
  eachMpeg2Header(frame, size, [&](uint8_t code, const uint8_t* p, uint32_t n) {
    if (code != kMpeg2Gop || n < 4 || found) return;
    zr_bitstream s = readerOver(p, n);
    KLX_TIMECODE t{};
    t.dropFrame = uint8_t(ReadBit(&s));
    t.hours = uint8_t(ReadBits(&s, 5));
    t.minutes = uint8_t(ReadBits(&s, 6));
    ReadBit(&s);  // marker_bit
    t.seconds = uint8_t(ReadBits(&s, 6));
    t.frames = uint8_t(ReadBits(&s, 6));
    t.countingType = t.dropFrame ? 4 : 0;
    t.clockTimestamps = 1;
    *tc = t;
    found = 1;
  });
  return found;
}

extern "C" int klxUtilReadH264CaptionsSEI(const uint8_t* frame, uint32_t size, uint32_t lengthPrefixed, uint8_t* triplets,
                                          uint32_t capacity) {
  return readCaptions(frame, size, KLX_CODEC_H264, lengthPrefixed, triplets, capacity);
}

extern "C" int klxUtilReadHevcCaptionsSEI(const uint8_t* frame, uint32_t size, uint32_t lengthPrefixed, uint8_t* triplets,
                                          uint32_t capacity) {
  return readCaptions(frame, size, KLX_CODEC_HEVC, lengthPrefixed, triplets, capacity);
}

extern "C" int klxUtilReadMpeg2Captions(const uint8_t* frame, uint32_t size, uint8_t* triplets, uint32_t capacity) {
  if (!frame || (capacity && !triplets)) return -1;
  static constexpr uint8_t kGa94[] = {'G', 'A', '9', '4', 0x03};
  uint32_t count = 0;
  eachMpeg2Header(frame, size, [&](uint8_t code, const uint8_t* p, uint32_t n) {
    if (code != kMpeg2UserData || n < sizeof kGa94 + 2 || std::memcmp(p, kGa94, sizeof kGa94) != 0) return;
    const uint32_t announced = p[sizeof kGa94] & 0x1F, fits = (n - sizeof kGa94 - 2) / 3;
    const uint32_t k = announced < fits ? announced : fits;
    for (uint32_t i = 0; i < k; ++i, ++count)
      if (count < capacity) std::memcpy(triplets + 3 * count, p + sizeof kGa94 + 2 + 3 * i, 3);
  });
  return int(count);
}

extern "C" int klxutilSetMpeg2TimeCode(uint8_t* frame, uint32_t size, const KLX_TIMECODE* tc) {
  if (!frame || !tc || tc->hours > 23 || tc->minutes > 59 || tc->seconds > 59 || tc->frames > 59) return -1;
  int rewritten = 0;
  eachMpeg2Header(frame, size, [&](uint8_t code, const uint8_t* p, uint32_t n) {
    if (code != kMpeg2Gop || n < 4) return;
    uint8_t* q = frame + (p - frame);
    // time_code (25 bits), then closed_gop and broken_link, which stay.
    zr_bitstream w{q, 4, 32, 0};
    WriteBit(&w, tc->dropFrame ? 1 : 0);
    WriteBits(&w, 5, tc->hours);
    WriteBits(&w, 6, tc->minutes);
    WriteBit(&w, 1);  // marker_bit
    WriteBits(&w, 6, tc->seconds);
    WriteBits(&w, 6, tc->frames);
    ++rewritten;
  });
  return rewritten;
}
