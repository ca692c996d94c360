// H.264 timecode: clock timestamps in the picture timing SEI (ITU-T H.264 D.1.3 / D.2.3,
// payloadType 1), and the SPS rewrite that makes pic_struct (and with it the clock
// timestamps) present (E.1.1 pic_struct_present_flag).
#include <cstring>

#include "platform/tcxlat.h"
#include "streamutil/sei.h"
#include "streamutil/sei_rewrite.h"

namespace {

constexpr uint32_t kPicTiming = 1;
constexpr uint32_t kDigitsFlag = 0x400;
constexpr uint32_t kCountingNoDrop = 0;
constexpr uint32_t kCountingDrop = 4;  // Table D-3: individual n_frames values are dropped
constexpr uint32_t kDefaultTimeOffsetLength = 24;  // E.2.2: inferred when no HRD is present

// NumClockTS of Table D-1, by pic_struct.
constexpr uint32_t kClockTimestamps[16] = {1, 1, 1, 2, 2, 3, 3, 2, 3, 0, 0, 0, 0, 0, 0, 0};

bool validType(uint32_t t) {
  switch (t) {
    case TC_FILM: case TC_NDF30: case TC_DF2997: case TC_PAL: case TC_50: case TC_DF5994: case TC_60: case TC_2398:
      return true;
    default: return false;
  }
}

double nominalRate(uint32_t t) {
  switch (t) {
    case TC_FILM: case TC_2398: return 24;
    case TC_PAL: return 25;
    case TC_50: return 50;
    case TC_DF5994: case TC_60: return 60;
    default: return 30;
  }
}

struct HrdLayout {
  bool delays = false;  // CpbDpbDelaysPresentFlag
  uint32_t cpbDelayBits = 0, dpbDelayBits = 0, timeOffsetBits = kDefaultTimeOffsetLength;
};

HrdLayout hrdLayout(const SPS_DECODED& sps) {
  HrdLayout h;
  const AVC_VUI_PARAMETERS& v = sps.vui;
  if (!sps.vui_parameters_present_flag) return h;
  const hdr_parameters* hrd = v.nal_hrd_parameters_present_flag   ? &v.nal_hrd
                              : v.vcl_hrd_parameters_present_flag ? &v.vcl_hrd
                                                                  : nullptr;
  if (!hrd) return h;
  h.delays = true;
  h.cpbDelayBits = uint32_t(hrd->cpb_removal_delay_length_minus1 & 31) + 1;
  h.dpbDelayBits = uint32_t(hrd->dpb_output_delay_length_minus1 & 31) + 1;
  h.timeOffsetBits = uint32_t(hrd->time_offset_length & 31);
  return h;
}

struct Stamp {
  uint8_t hours, minutes, seconds, frames;
  uint32_t countingType, cntDropped, fieldBased, ctType;
};

// The picture's coding from the opening fields of its first slice header (7.3.3): -1 unknown,
// 0 frame, 1 top field, 2 bottom field.
int fieldOfSlice(const uint8_t* d, const nalwalk::Unit& u, const SPS_DECODED& sps) {
  uint8_t head[48] = {};
  const uint32_t n = nalwalk::unescape(d + u.header + 1, u.end - u.header - 1, head, sizeof head - 8);
  zr_bitstream s{head, int64_t(sizeof head), uint64_t(n) * 8, 0};
  ReadExponentialGolombCode(&s);  // first_mb_in_slice
  ReadExponentialGolombCode(&s);  // slice_type
  ReadExponentialGolombCode(&s);  // pic_parameter_set_id
  if (sps.separate_colour_plane_flag) SkipBits(&s, 2);
  SkipBits(&s, (sps.log2_max_frame_num_minus4 & 15) + 4);
  if (s.position > s.length) return -1;
  if (sps.frame_mbs_only_flag || !ReadBit(&s)) return 0;
  return ReadBit(&s) ? 2 : 1;
}

// pic_struct for a picture whose pic_timing does not say (Table D-1).
uint32_t chosenPicStruct(const SPS_DECODED& sps, int field, uint32_t flags) {
  if (field == 1 || field == 2) return uint32_t(field);
  if (sps.frame_mbs_only_flag) return 0;
  return flags & KLX_AVC_TC_BOTTOM_FIELD_FIRST ? 4 : 3;  // an interlaced frame: both fields
}

// Writes pic_timing() as payload bytes (with payload alignment). `old` is the existing payload
// (or null): its delays and pic_struct are kept.
uint32_t writePicTiming(uint8_t* out, uint32_t cap, const SPS_DECODED& sps, const uint8_t* old, uint32_t oldSize,
                        int field, uint32_t flags, const Stamp& st) {
  const HrdLayout hrd = hrdLayout(sps);
  uint32_t cpbDelay = 0, dpbDelay = 0, picStruct = 0;
  bool havePicStruct = false;
  if (old) {
    zr_bitstream r{const_cast<uint8_t*>(old), int64_t(oldSize), uint64_t(oldSize) * 8, 0};
    if (hrd.delays) cpbDelay = ReadBits(&r, int32_t(hrd.cpbDelayBits)), dpbDelay = ReadBits(&r, int32_t(hrd.dpbDelayBits));
    if (sps.vui.pic_struct_present_flag) {
      picStruct = ReadBits(&r, 4);
      havePicStruct = r.position <= r.length && kClockTimestamps[picStruct & 15] != 0;
    }
  }
  if (!havePicStruct) picStruct = chosenPicStruct(sps, field, flags);
  std::memset(out, 0, cap);
  zr_bitstream w{out, int64_t(cap), uint64_t(cap) * 8, 0};
  if (hrd.delays) WriteBits(&w, int32_t(hrd.cpbDelayBits), cpbDelay), WriteBits(&w, int32_t(hrd.dpbDelayBits), dpbDelay);
  WriteBits(&w, 4, picStruct);
  const uint32_t ctType = picStruct == 0 || sps.frame_mbs_only_flag ? 0 : 1;  // progressive / interlaced
  for (uint32_t i = 0; i < kClockTimestamps[picStruct]; ++i) {
    WriteBit(&w, 1);  // clock_timestamp_flag
    WriteBits(&w, 2, ctType);
    WriteBit(&w, st.fieldBased);  // nuit_field_based_flag
    WriteBits(&w, 5, st.countingType);
    WriteBit(&w, 1);  // full_timestamp_flag
    WriteBit(&w, 0);  // discontinuity_flag
    WriteBit(&w, st.cntDropped);
    WriteBits(&w, 8, st.frames);
    WriteBits(&w, 6, st.seconds);
    WriteBits(&w, 6, st.minutes);
    WriteBits(&w, 5, st.hours);
    if (hrd.timeOffsetBits) WriteBits(&w, int32_t(hrd.timeOffsetBits), 0);  // time_offset
  }
  if (w.position % 8) {  // payload_bit_equal_to_one, payload_bit_equal_to_zero
    WriteBit(&w, 1);
    while (w.position % 8) WriteBit(&w, 0);
  }
  return static_cast<uint32_t>(w.position / 8);
}

bool stampFor(const DFRAME* frame, uint32_t tcType, const SPS_DECODED& sps, Stamp& st) {
  uint8_t digits[4];
  if (tc2String(klxFrameTimecode(frame), tcType | kDigitsFlag, digits, sizeof digits) != 0) return false;
  st.hours = digits[0], st.minutes = digits[1], st.seconds = digits[2], st.frames = digits[3];
  const bool drop = tcType == TC_DF2997 || tcType == TC_DF5994;
  st.countingType = drop ? kCountingDrop : kCountingNoDrop;
  const uint8_t firstAfterDrop = tcType == TC_DF5994 ? 4 : 2;
  st.cntDropped = drop && st.frames == firstAfterDrop && st.seconds == 0 && st.minutes % 10 != 0;
  const AVC_VUI_PARAMETERS& v = sps.vui;
  const bool timing = sps.vui_parameters_present_flag && v.timing_info_present_flag && v.num_units_in_tick;
  // H.264 ticks are usually field periods: n_frames then counts two ticks (E.2.1, D.2.3).
  st.fieldBased = timing && double(v.time_scale) / v.num_units_in_tick > nominalRate(tcType) * 1.5;
  return true;
}

int rewriteSpsUnits(DFRAME* frame, uint32_t lengthPrefixed) {
  for (bool again = true; again;) {
    again = false;
    nalwalk::Walker walk(frame->pData, frame->nDataSize, lengthPrefixed != 0);
    nalwalk::Unit u;
    for (uint8_t h; walk.peek(h) && !seirewrite::isPictureUnit(KLX_CODEC_H264, h);) {
      if (!walk.next(u)) return 0;
      if ((h & 0x1F) != 7) continue;
      uint8_t buffer[1024 + 4];
      uint32_t n = 0;
      const int rc = klxutilAVCSpsForTimeCode(frame->pData + u.header, u.end - u.header, buffer + 4, 1024, &n);
      if (rc == 1) continue;  // already carries pic_struct
      if (rc != 0) return rc;
      const uint32_t prefix = u.header - u.at;
      uint8_t* unit = buffer + 4 - prefix;
      std::memcpy(unit, frame->pData + u.at, prefix);
      if (lengthPrefixed) unit[0] = uint8_t(n >> 24), unit[1] = uint8_t(n >> 16), unit[2] = uint8_t(n >> 8), unit[3] = uint8_t(n);
      if (seirewrite::replaceRange(frame, u.at, u.end, unit, prefix + n) != 0) return KLX_SEI_NO_ROOM;
      again = true;
      break;
    }
  }
  return 0;
}

// The units of one picture that its timecode touches: a pic_timing SEI among the units in
// front of it, its first slice, and where a new SEI unit goes (in front of that slice).
struct PictureUnits {
  nalwalk::Unit timing{}, slice{};
  bool haveTiming = false;
  uint32_t insertAt = 0;
  int field = 0;  // fieldOfSlice of the first slice; 0 without one
};

// Looks at the units from offset `from` (where a unit begins) up to the first picture unit
// (its slice data is not scanned).
PictureUnits pictureUnitsFrom(const DFRAME* frame, uint32_t lengthPrefixed, uint32_t from, const SPS_DECODED& sps) {
  PictureUnits p;
  p.insertAt = frame->nDataSize;
  const auto shifted = [from](nalwalk::Unit u) { return nalwalk::Unit{u.at + from, u.header + from, u.end + from}; };
  nalwalk::Walker walk(frame->pData + from, frame->nDataSize - from, lengthPrefixed != 0);
  nalwalk::Unit u;
  for (uint8_t h; walk.peek(h);) {
    if (seirewrite::isPictureUnit(KLX_CODEC_H264, h)) {
      // The slice header's opening fields are all that is read: its end is not looked for.
      const uint32_t header = from + walk.peekHeaderAt();
      p.slice = nalwalk::Unit{from + walk.peekAt(), header, header + 64 < frame->nDataSize ? header + 64 : frame->nDataSize};
      p.insertAt = p.slice.at;
      if ((h & 0x1F) >= 1 && (h & 0x1F) <= 5) p.field = fieldOfSlice(frame->pData, p.slice, sps);
      break;
    }
    if (!walk.next(u)) break;
    if ((h & 0x1F) == 6 && !p.haveTiming &&
        seirewrite::forEachMessage(frame->pData, shifted(u), KLX_CODEC_H264, [](uint32_t type) { return type == kPicTiming; },
                                   [](uint32_t, const uint8_t*, uint32_t) { return true; })) {
      p.haveTiming = true;
      p.timing = shifted(u);
    }
  }
  return p;
}

// Where the units of a second picture in the frame begin: behind the last slice of the first
// picture, when a later slice starts again at macroblock 0 (first_mb_in_slice, the slice
// header's first ue(v), is 0 exactly when its first bit is 1). Walks the rest of the frame.
bool secondFieldFrom(const DFRAME* frame, uint32_t lengthPrefixed, const nalwalk::Unit& firstSlice, uint32_t& from) {
  const uint8_t* d = frame->pData + firstSlice.at;
  nalwalk::Walker walk(d, frame->nDataSize - firstSlice.at, lengthPrefixed != 0);
  nalwalk::Unit u;
  uint32_t lastSliceEnd = 0;
  while (walk.next(u)) {
    const uint8_t type = d[u.header] & 0x1F;
    if (u.end <= u.header + 1 || type < 1 || type > 5) continue;
    if (lastSliceEnd && (d[u.header + 1] & 0x80)) {
      from = firstSlice.at + lastSliceEnd;
      return true;
    }
    lastSliceEnd = u.end;
  }
  return false;
}

// Gives one picture the timestamp: its pic_timing rewritten, else a new one in front of it.
int stampPicture(DFRAME* frame, const PictureUnits& p, const SPS_DECODED& sps, uint32_t lengthPrefixed, uint32_t flags,
                 const Stamp& st) {
  if (p.haveTiming) {
    const int rc = seirewrite::rewriteSeiUnit(
        frame, p.timing, KLX_CODEC_H264, lengthPrefixed != 0,
        [&](const nalwalk::SeiMessage& m, const uint8_t* rbsp, uint8_t* out, uint32_t cap) {
          if (m.type != kPicTiming) return seirewrite::kKeep;
          return int(writePicTiming(out, cap < 64 ? cap : 64, sps, rbsp + m.payload, m.size, p.field, flags, st));
        });
    return rc == KLX_SEI_NO_ROOM ? KLX_SEI_NO_ROOM : rc < 0 ? -1 : 0;
  }
  uint8_t unit[80] = {0, 0, 0, 1, 0x06, kPicTiming};
  uint8_t payload[64];
  const uint32_t size = writePicTiming(payload, sizeof payload, sps, nullptr, 0, p.field, flags, st);
  unit[6] = uint8_t(size);
  const uint32_t body = nalwalk::escape(payload, size, unit + 7, sizeof unit - 8);
  unit[7 + body] = 0x80;
  const uint32_t length = 8 + body;
  if (lengthPrefixed) {
    const uint32_t n = length - 4;
    unit[0] = uint8_t(n >> 24), unit[1] = uint8_t(n >> 16), unit[2] = uint8_t(n >> 8), unit[3] = uint8_t(n);
  }
  return seirewrite::replaceRange(frame, p.insertAt, p.insertAt, unit, length) == 0 ? 0 : KLX_SEI_NO_ROOM;
}

}  // namespace

extern "C" int klxutilAVCSpsForTimeCode(const uint8_t* nal, uint32_t nalLength, uint8_t* out, uint32_t capacity,
                                        uint32_t* outLength) {
  if (!nal || !out || !outLength || nalLength < 4 || nalLength > 4096 || (nal[0] & 0x1F) != 7) return -1;
  while (nalLength > 1 && !nal[nalLength - 1]) --nalLength;  // trailing zero bytes
  static thread_local SPS_DECODED sps;
  zr_bitstream in{const_cast<uint8_t*>(nal), int64_t(nalLength), uint64_t(nalLength) * 8, 0};
  if (klxutilRead_SPS(&in, &sps) == 0 || in.position > in.length) return -1;
  if (sps.vui_parameters_present_flag && sps.vui.pic_struct_present_flag) {
    if (capacity < nalLength) return KLX_SEI_NO_ROOM;
    std::memcpy(out, nal, nalLength);
    *outLength = nalLength;
    return 1;
  }
  auto scaling = [](AVC_SCALING_MATRIX& m) {
    for (int i = 0; i < 6; ++i) klxutilScalingListToDeltas(m.ScalingList4x4[i], 16, m.ScalingList4x4[i]);
    for (int i = 0; i < 6; ++i) klxutilScalingListToDeltas(m.ScalingList8x8[i], 64, m.ScalingList8x8[i]);
  };
  scaling(sps.seq_scaling);
  uint8_t check[4096];
  zr_bitstream w{check, int64_t(sizeof check), uint64_t(sizeof check) * 8, 0};
  // The writer must give back the very bytes read, or this SPS holds something it cannot code.
  const uint32_t same = klxutilWrite_SPS(&w, &sps);
  if (same != nalLength || std::memcmp(check, nal, nalLength) != 0) return -1;
  if (!sps.vui_parameters_present_flag) {
    std::memset(&sps.vui, 0, sizeof sps.vui);
    sps.vui_parameters_present_flag = 1;
  }
  sps.vui.pic_struct_present_flag = 1;
  zr_bitstream o{check, int64_t(sizeof check), uint64_t(sizeof check) * 8, 0};
  const uint32_t n = klxutilWrite_SPS(&o, &sps);
  if (n > sizeof check) return -1;
  if (n > capacity) return KLX_SEI_NO_ROOM;
  std::memcpy(out, check, n);
  *outLength = n;
  return 0;
}

extern "C" int klxutilAddAVCTimeCode(DFRAME* frame, uint32_t tcType, const SPS_DECODED* sps, uint32_t lengthPrefixed,
                                     uint32_t flags) {
  if (!frame || !frame->pData || !sps || frame->nDataSize > frame->nBufferSize) return -1;
  tcType &= 0xFF;
  if (tcType == 132) tcType = TC_2398;
  if (!validType(tcType)) return -1;
  Stamp st{};
  if (!stampFor(frame, tcType, *sps, st)) return -1;
  if (const int rc = rewriteSpsUnits(frame, lengthPrefixed); rc != 0) return rc;

  const PictureUnits first = pictureUnitsFrom(frame, lengthPrefixed, 0, *sps);
  // A container sample may carry both fields of a frame, each an access unit of its own that
  // needs its own pic_timing (D.1.3 when pic_struct_present_flag is 1). The later one is done
  // first so that the first one's offsets hold, and undone if the first one finds no room.
  uint32_t secondFrom = 0;
  if ((first.field == 1 || first.field == 2) && secondFieldFrom(frame, lengthPrefixed, first.slice, secondFrom)) {
    const PictureUnits second = pictureUnitsFrom(frame, lengthPrefixed, secondFrom, *sps);
    if (second.field == 3 - first.field) {
      const uint32_t at = second.haveTiming ? second.timing.at : second.insertAt;
      const uint32_t oldEnd = second.haveTiming ? second.timing.end : second.insertAt;
      seirewrite::Scratch saved;
      uint8_t* old = saved.get(oldEnd - at);
      std::memcpy(old, frame->pData + at, oldEnd - at);
      const uint32_t sizeBefore = frame->nDataSize;
      if (const int rc = stampPicture(frame, second, *sps, lengthPrefixed, flags, st); rc != 0) return rc;
      const int rc = stampPicture(frame, first, *sps, lengthPrefixed, flags, st);
      if (rc != 0) seirewrite::replaceRange(frame, at, oldEnd + frame->nDataSize - sizeBefore, old, oldEnd - at);
      return rc;
    }
  }
  return stampPicture(frame, first, *sps, lengthPrefixed, flags, st);
}
