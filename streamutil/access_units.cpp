// Access-unit cutting and display order. Of each slice only the picture order count is needed,
// so only the opening fields of the parameter sets and slice headers are read, from a bounded
// RBSP copy on the stack.
#include "streamutil/access_units.h"

#include <algorithm>
#include <cstring>

#include "streamutil/zr_bitstream.h"

namespace {

constexpr uint32_t kParameterSetPeek = 2048;  // enough for the SPS fields up to frame_mbs_only_flag
constexpr uint32_t kSlicePeek = 96;           // enough for any slice header up to the POC lsb

// The unit's bytes from `skip` on without emulation-prevention bytes (00 00 03 -> 00 00), at
// most `capacity` of them. Returns the RBSP length.
uint32_t unescape(const uint8_t* unit, uint32_t size, uint32_t skip, uint8_t* out, uint32_t capacity) {
  uint32_t n = 0, zeros = 0;
  for (uint32_t i = skip; i < size && n < capacity; ++i) {
    const uint8_t b = unit[i];
    if (zeros >= 2 && b == 3) {
      zeros = 0;
      continue;
    }
    zeros = b == 0 ? zeros + 1 : 0;
    out[n++] = b;
  }
  return n;
}

// A bit reader over an RBSP held in a zero-padded stack buffer.
template <uint32_t Capacity>
struct Rbsp {
  uint8_t bytes[Capacity + 8];
  zr_bitstream s;
  Rbsp(const uint8_t* unit, uint32_t size, uint32_t skip) {
    const uint32_t n = unescape(unit, size, skip, bytes, Capacity);
    std::memset(bytes + n, 0, sizeof bytes - n);
    s = zr_bitstream{bytes, static_cast<int64_t>(sizeof bytes), uint64_t(n) * 8, 0};
  }
  uint32_t u(int n) { return n ? ReadBits(&s, n) : 0; }
  // ue(v) with the largest value its element may take; a larger one (or a code of 32 or more
  // leading zeros) marks the unit bad, and the limit is returned so nothing computes with it.
  uint32_t ue(uint32_t hi = 0xFFFFFFFEu) {
    const uint64_t before = s.position;
    const uint32_t value = ReadExponentialGolombCode(&s);
    if (s.position - before > 63 || value > hi) {
      bad = true;
      return hi;
    }
    return value;
  }
  bool bad = false;
  // se(v) within [lo, hi]; outside it the unit is bad and 0 is returned, so no arithmetic
  // ever sees a value its element cannot take.
  int32_t se(int32_t lo = INT32_MIN, int32_t hi = INT32_MAX) {
    const int32_t value = ReadExponentialGolombCodeSigned(&s);
    if (value < lo || value > hi) {
      bad = true;
      return 0;
    }
    return value;
  }
  void skip(int n) { SkipBits(&s, n); }
  bool overran() const { return bad || s.position > s.length; }
};

// Picture order count from its lsb (ITU-T H.264 8.2.1.1, H.265 8.3.1).
int32_t pocFromLsb(int32_t lsb, int32_t maxLsb, int32_t prevLsb, int32_t prevMsb) {
  int32_t msb = prevMsb;
  if (lsb < prevLsb && prevLsb - lsb >= maxLsb / 2)
    msb = prevMsb + maxLsb;
  else if (lsb > prevLsb && lsb - prevLsb > maxLsb / 2)
    msb = prevMsb - maxLsb;
  return msb + lsb;
}

// ---------------------------------------------------------------- HEVC

bool hevcVcl(int type) { return type < 32; }
bool hevcIdr(int type) { return type == 19 || type == 20; }
bool hevcBla(int type) { return type >= 16 && type <= 18; }
bool hevcIrap(int type) { return type >= 16 && type <= 23; }
bool hevcRaslRadl(int type) { return type >= 6 && type <= 9; }
bool hevcRasl(int type) { return type == 8 || type == 9; }
bool hevcSubLayerNonRef(int type) { return type <= 14 && type % 2 == 0; }
// AUD, VPS, SPS, PPS, prefix SEI and the reserved types 41..44, 48..55 open an access unit.
bool hevcOpens(int type) {
  return (type >= 32 && type <= 35) || type == 39 || (type >= 41 && type <= 44) || (type >= 48 && type <= 55);
}

template <typename R>
void skipProfileTierLevel(R& r, uint32_t maxSubLayersMinus1) {
  r.skip(88);  // general profile, compatibility and constraint flags
  r.skip(8);   // general_level_idc
  bool profilePresent[8] = {}, levelPresent[8] = {};
  for (uint32_t i = 0; i < maxSubLayersMinus1; ++i) {
    profilePresent[i] = r.u(1);
    levelPresent[i] = r.u(1);
  }
  if (maxSubLayersMinus1 > 0)
    for (uint32_t i = maxSubLayersMinus1; i < 8; ++i) r.skip(2);
  for (uint32_t i = 0; i < maxSubLayersMinus1; ++i) {
    if (profilePresent[i]) r.skip(88);
    if (levelPresent[i]) r.skip(8);
  }
}

int learnHevcSps(KLXUTIL_AU_CUTTER* c, const uint8_t* unit, uint32_t size) {
  Rbsp<kParameterSetPeek> r(unit, size, 2);
  r.skip(4);  // sps_video_parameter_set_id
  const uint32_t maxSubLayersMinus1 = r.u(3);
  if (maxSubLayersMinus1 > 6) return -1;
  r.skip(1);
  skipProfileTierLevel(r, maxSubLayersMinus1);
  const uint32_t id = r.ue(15);
  KLXUTIL_AU_HEVC_SPS sps{1, 4, 0, 0, 0};
  if (r.ue(3) == 3) sps.separateColourPlanes = static_cast<uint8_t>(r.u(1));
  r.ue(), r.ue();                              // picture width and height
  if (r.u(1)) r.ue(), r.ue(), r.ue(), r.ue();  // conformance window
  r.ue(8), r.ue(8);                            // bit depths
  const uint32_t log2 = r.ue(12) + 4;
  if (r.overran() || id > 15 || log2 > 16) return -1;
  sps.log2MaxPocLsb = static_cast<uint8_t>(log2);
  c->hevcSps[id] = sps;
  return 0;
}

int learnHevcPps(KLXUTIL_AU_CUTTER* c, const uint8_t* unit, uint32_t size) {
  Rbsp<64> r(unit, size, 2);
  const uint32_t id = r.ue(63), spsId = r.ue(15);
  r.skip(1);  // dependent_slice_segments_enabled_flag
  KLXUTIL_AU_HEVC_PPS pps{1, 0, 0, 0};
  pps.outputFlagPresent = static_cast<uint8_t>(r.u(1));
  pps.extraSliceHeaderBits = static_cast<uint8_t>(r.u(3));
  if (r.overran() || id > 63 || spsId > 15) return -1;
  pps.spsId = static_cast<uint8_t>(spsId);
  c->hevcPps[id] = pps;
  return 0;
}

// The picture fields of the access unit from its first slice segment.
int hevcPicture(KLXUTIL_AU_CUTTER* c, const uint8_t* unit, uint32_t size, int type) {
  KLXUTIL_AU_PICTURE& p = c->current;
  p.hasPicture = 1;
  p.fieldPicture = -1;
  p.randomAccess = hevcIrap(type);
  // H.265 8.1.3: an IRAP picture first in the stream or first after an end of sequence unit
  // starts a coded video sequence (its POC has no MSB), and its RASL pictures are not output.
  const bool noRaslOutput = hevcIdr(type) || hevcBla(type) || ((c->firstPicture || c->hevcEndOfSequence) && hevcIrap(type));
  if (noRaslOutput && !c->firstPicture) ++c->current.sequence;
  if (hevcIrap(type)) c->hevcNoRaslOutput = noRaslOutput;
  if (hevcRasl(type) && c->hevcNoRaslOutput) p.notOutput = 1;
  c->firstPicture = 0;
  c->hevcEndOfSequence = 0;
  Rbsp<kSlicePeek> r(unit, size, 2);
  r.skip(1);                        // first_slice_segment_in_pic_flag
  if (hevcIrap(type)) r.skip(1);    // no_output_of_prior_pics_flag
  const uint32_t ppsId = r.ue(63);
  if (r.overran() || !c->hevcPps[ppsId].valid || !c->hevcSps[c->hevcPps[ppsId].spsId].valid) return -1;
  const KLXUTIL_AU_HEVC_PPS& pps = c->hevcPps[ppsId];
  const KLXUTIL_AU_HEVC_SPS& sps = c->hevcSps[pps.spsId];
  p.spsId = pps.spsId;
  if (sps.fieldSeqKnown) p.fieldPicture = sps.fieldSeq;
  const int32_t maxLsb = 1 << sps.log2MaxPocLsb;
  uint32_t lsb = 0;
  if (!hevcIdr(type)) {
    r.skip(pps.extraSliceHeaderBits);
    r.ue(2);  // slice_type
    if (pps.outputFlagPresent && !r.u(1)) p.notOutput = 1;  // pic_output_flag
    if (sps.separateColourPlanes) r.skip(2);
    lsb = r.u(sps.log2MaxPocLsb);
  }
  if (r.overran()) return -1;
  const int32_t prevLsb = c->prevPocLsb & (maxLsb - 1), prevMsb = c->prevPocLsb - prevLsb;
  p.poc = noRaslOutput ? static_cast<int32_t>(lsb) : pocFromLsb(static_cast<int32_t>(lsb), maxLsb, prevLsb, prevMsb);
  if (hevcIdr(type)) p.poc = 0;
  const int temporalId = (size > 1 ? unit[1] & 7 : 1) - 1;
  if (temporalId == 0 && !hevcRaslRadl(type) && !hevcSubLayerNonRef(type)) c->prevPocLsb = p.poc;
  return 0;
}

// ---------------------------------------------------------------- H.264

bool avcVcl(int type) { return type >= 1 && type <= 5; }
bool avcOpens(int type) { return type == 6 || type == 7 || type == 8 || type == 9 || (type >= 14 && type <= 18); }

template <typename R>
void skipScalingList(R& r, int size) {
  int last = 8, next = 8;
  for (int j = 0; j < size && !r.overran(); ++j) {
    if (next != 0) next = (last + r.se(-128, 127) + 256) % 256;  // delta_scale, 7.4.2.1.1.1
    last = next == 0 ? last : next;
  }
}

int learnAvcSps(KLXUTIL_AU_CUTTER* c, const uint8_t* unit, uint32_t size) {
  Rbsp<kParameterSetPeek> r(unit, size, 1);
  const uint32_t profile = r.u(8);
  r.skip(16);
  const uint32_t id = r.ue(31);
  KLXUTIL_AU_AVC_SPS sps{1, 4, 0, 4, 1, 0};
  static constexpr uint32_t kHighProfiles[] = {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135};
  bool high = false;
  for (uint32_t p : kHighProfiles) high = high || p == profile;
  if (high) {
    const uint32_t chroma = r.ue(3);
    if (chroma == 3) sps.separateColourPlanes = static_cast<uint8_t>(r.u(1));
    r.ue(6), r.ue(6), r.skip(1);
    if (r.u(1))
      for (int i = 0; i < (chroma != 3 ? 8 : 12); ++i)
        if (r.u(1)) skipScalingList(r, i < 6 ? 16 : 64);
  }
  const uint32_t log2FrameNum = r.ue(12) + 4, pocType = r.ue(2);
  uint32_t log2Lsb = 4;
  if (pocType == 0) {
    log2Lsb = r.ue(12) + 4;
  } else if (pocType == 1) {
    r.skip(1), r.se(), r.se();
    const uint32_t cycle = r.ue(255);
    for (uint32_t i = 0; i < cycle && i < 256; ++i) r.se();
  }
  r.ue(16), r.skip(1), r.ue(), r.ue();  // max_num_ref_frames, gaps, width, height
  sps.frameMbsOnly = static_cast<uint8_t>(r.u(1));
  if (r.overran() || id > 31 || log2FrameNum > 16 || log2Lsb > 16 || pocType > 2) return -1;
  sps.log2MaxFrameNum = static_cast<uint8_t>(log2FrameNum);
  sps.pocType = static_cast<uint8_t>(pocType);
  sps.log2MaxPocLsb = static_cast<uint8_t>(log2Lsb);
  c->avcSps[id] = sps;
  return 0;
}

int learnAvcPps(KLXUTIL_AU_CUTTER* c, const uint8_t* unit, uint32_t size) {
  Rbsp<32> r(unit, size, 1);
  const uint32_t id = r.ue(255), spsId = r.ue(31);
  r.skip(1);  // entropy_coding_mode_flag
  const uint32_t bottomFieldPicOrder = r.u(1);
  if (r.overran() || id > 255 || spsId > 31) return -1;
  c->avcPps[id] = KLXUTIL_AU_AVC_PPS{1, static_cast<uint8_t>(spsId), static_cast<uint8_t>(bottomFieldPicOrder)};
  return 0;
}

int avcPicture(KLXUTIL_AU_CUTTER* c, const uint8_t* unit, uint32_t size, int type) {
  KLXUTIL_AU_PICTURE& p = c->current;
  const bool idr = type == 5;
  p.hasPicture = 1;
  p.randomAccess = idr;
  if (idr && !c->firstPicture) ++p.sequence;
  c->firstPicture = 0;
  if (idr) c->prevPocLsb = c->prevPocMsb = 0;
  Rbsp<kSlicePeek> r(unit, size, 1);
  r.ue(), r.ue(9);  // first_mb_in_slice, slice_type
  const uint32_t ppsId = r.ue(255);
  if (r.overran() || !c->avcPps[ppsId].valid || !c->avcSps[c->avcPps[ppsId].spsId].valid) return -1;
  const KLXUTIL_AU_AVC_PPS& pps = c->avcPps[ppsId];
  const KLXUTIL_AU_AVC_SPS& s = c->avcSps[pps.spsId];
  p.spsId = pps.spsId;
  if (s.separateColourPlanes) r.skip(2);
  r.skip(s.log2MaxFrameNum);
  p.fieldPicture = 0;
  if (!s.frameMbsOnly && r.u(1)) {  // field_pic_flag, bottom_field_flag
    p.fieldPicture = 1;
    r.skip(1);
  }
  if (idr) r.ue(65535);  // idr_pic_id
  if (s.pocType == 0) {
    const int32_t lsb = static_cast<int32_t>(r.u(s.log2MaxPocLsb));
    // A frame's bottom field may come first: its POC is the smaller of the two (8.2.1).
    const int32_t deltaBottom = pps.bottomFieldPicOrder && p.fieldPicture == 0 ? r.se(-(1 << 30), 1 << 30) : 0;
    if (r.overran()) return -1;
    const int32_t top = pocFromLsb(lsb, 1 << s.log2MaxPocLsb, c->prevPocLsb, c->prevPocMsb);
    p.poc = deltaBottom < 0 ? static_cast<int32_t>(std::max<int64_t>(INT32_MIN, int64_t{top} + deltaBottom)) : top;
    if ((unit[0] >> 5) & 3) {  // a reference picture is the reference for the next
      c->prevPocLsb = lsb;
      c->prevPocMsb = top - lsb;
    }
  } else {
    p.poc = static_cast<int32_t>(2 * c->pictures);  // types 1 and 2: output follows decoding here
  }
  return r.overran() ? -1 : 0;
}

// ---------------------------------------------------------------- common

int unitType(int32_t codec, const uint8_t* unit) {
  if (codec == KLXUTIL_AU_HEVC) return (unit[0] >> 1) & 0x3F;
  if (codec == KLXUTIL_AU_H264) return unit[0] & 0x1F;
  return unit[0];
}

bool isSlice(int32_t codec, int type) {
  if (codec == KLXUTIL_AU_HEVC) return hevcVcl(type);
  if (codec == KLXUTIL_AU_H264) return avcVcl(type);
  return type >= 0x01 && type <= 0xAF;
}

// The first slice of a picture: first_slice_segment_in_pic_flag (HEVC) or first_mb_in_slice
// == 0 (H.264, the leading '1' of its ue(v) code) is the first bit behind the header.
bool firstSliceOfPicture(int32_t codec, const uint8_t* unit, uint32_t size) {
  if (codec == KLXUTIL_AU_HEVC) return size > 2 && (unit[2] & 0x80);
  if (codec == KLXUTIL_AU_H264) return size > 1 && (unit[1] & 0x80);
  return false;
}

bool opens(int32_t codec, int type) {
  if (codec == KLXUTIL_AU_HEVC) return hevcOpens(type);
  if (codec == KLXUTIL_AU_H264) return avcOpens(type);
  return type == 0x00 || type == 0xB3 || type == 0xB8;  // picture, sequence header, group
}

void openAccessUnit(KLXUTIL_AU_CUTTER* c) {
  const uint32_t sequence = c->current.sequence;
  c->current = KLXUTIL_AU_PICTURE{0, 0, sequence, -1, 0, c->accessUnits, -1, 0};
  ++c->accessUnits;
  c->vclSeen = 0;
}

}  // namespace

extern "C" {

int klxutilAuCutterInit(KLXUTIL_AU_CUTTER* cutter, int32_t codec) {
  if (!cutter || codec < KLXUTIL_AU_H264 || codec > KLXUTIL_AU_MPEG2) return -1;
  std::memset(cutter, 0, sizeof *cutter);
  cutter->codec = codec;
  cutter->firstPicture = 1;
  return 0;
}

int klxutilAuCutterLearn(KLXUTIL_AU_CUTTER* c, const uint8_t* unit, uint32_t size) {
  if (!c || !unit || size < 2) return -1;
  const int type = unitType(c->codec, unit);
  if (c->codec == KLXUTIL_AU_HEVC) {
    if (type == 33) return learnHevcSps(c, unit, size);
    if (type == 34) return learnHevcPps(c, unit, size);
  } else if (c->codec == KLXUTIL_AU_H264) {
    if (type == 7) return learnAvcSps(c, unit, size);
    if (type == 8) return learnAvcPps(c, unit, size);
  }
  return 0;
}

int klxutilAuCutterSetFieldSequence(KLXUTIL_AU_CUTTER* c, uint32_t spsId, int32_t fieldSeq) {
  if (!c || c->codec != KLXUTIL_AU_HEVC || spsId > 15 || !c->hevcSps[spsId].valid) return -1;
  c->hevcSps[spsId].fieldSeqKnown = 1;
  c->hevcSps[spsId].fieldSeq = fieldSeq ? 1 : 0;
  return 0;
}

int klxutilAuCutterBreak(KLXUTIL_AU_CUTTER* c, KLXUTIL_AU_PICTURE* finished) {
  if (!c || !c->started) return 0;
  if (finished) *finished = c->current;
  c->started = 0;  // the next unit opens an access unit
  return 1;
}

int klxutilAuCutterPush(KLXUTIL_AU_CUTTER* c, const uint8_t* unit, uint32_t size, KLXUTIL_AU_UNIT* info) {
  if (!c || !unit || !info || size == 0) return -1;
  std::memset(info, 0, sizeof *info);
  const int type = unitType(c->codec, unit);
  const bool slice = isSlice(c->codec, type);
  info->type = type;
  info->isSlice = slice;
  const bool first = slice && firstSliceOfPicture(c->codec, unit, size);
  if (!c->started || (c->vclSeen && (opens(c->codec, type) || first))) {
    if (c->started) {
      info->finishedValid = 1;
      info->finished = c->current;
    }
    openAccessUnit(c);
    c->started = 1;
    info->opensAccessUnit = 1;
  }
  int rc = klxutilAuCutterLearn(c, unit, size) == 0 ? 0 : -1;
  if (slice && !c->vclSeen) {
    ++c->pictures;
    if (c->codec == KLXUTIL_AU_HEVC) {
      if (hevcPicture(c, unit, size, type) != 0) rc = -1;
    } else if (c->codec == KLXUTIL_AU_H264) {
      if (avcPicture(c, unit, size, type) != 0) rc = -1;
    } else {
      // ISO/IEC 13818-2 6.3.9: temporal_reference counts display order within a group of
      // pictures, so each group is a sequence of its own for the display order.
      c->current.hasPicture = 1;
      c->current.poc = c->mpeg2TemporalReference;
    }
  }
  if (c->codec == KLXUTIL_AU_HEVC && (type == 36 || type == 37)) c->hevcEndOfSequence = 1;  // EOS_NUT, EOB_NUT
  if (c->codec == KLXUTIL_AU_MPEG2) {
    if (type == 0xB3) c->current.randomAccess = 1;
    if (type == 0xB8 && c->mpeg2Groups++ > 0) ++c->current.sequence;
    if (type == 0x00) c->mpeg2TemporalReference = size >= 3 ? (unit[1] << 2) | (unit[2] >> 6) : 0;
    // picture_coding_extension (ISO/IEC 13818-2 6.2.3.1): extension id 8, four f_codes and
    // intra_dc_precision ahead of picture_structure (3 = frame, 1 / 2 = top / bottom field).
    if (type == 0xB5 && size >= 4 && (unit[1] >> 4) == 8) {
      const int structure = unit[3] & 3;  // 0 is reserved: not known
      c->current.fieldPicture = structure == 3 ? 0 : structure == 0 ? -1 : 1;
    }
  }
  c->vclSeen = c->vclSeen || slice;
  return rc;
}

int klxutilAuJoinFieldPair(KLXUTIL_AU_PICTURE* first, const KLXUTIL_AU_PICTURE* second) {
  if (!first || !second) return -1;
  if (!first->hasPicture || !second->hasPicture || first->fieldPicture != 1 || second->fieldPicture != 1 ||
      first->sequence != second->sequence)
    return 0;
  first->fieldPicture = 0;
  first->randomAccess = first->randomAccess || second->randomAccess;
  return 1;
}

int klxutilDisplayOrderInit(KLXUTIL_DISPLAY_ORDER* order) {
  if (!order) return -1;
  std::memset(order, 0, sizeof *order);
  return 0;
}

int klxutilDisplayOrderAddFields(KLXUTIL_DISPLAY_ORDER* order, uint64_t decodeIndex, uint32_t sequence, int32_t poc,
                                 uint32_t fields) {
  if (!order || order->count > KLXUTIL_REORDER_WINDOW || fields < 1 || fields > 2) return -1;
  order->pending[order->count++] = KLXUTIL_DISPLAY_ENTRY{decodeIndex, sequence, poc, fields};
  return 0;
}

int klxutilDisplayOrderAdd(KLXUTIL_DISPLAY_ORDER* order, uint64_t decodeIndex, uint32_t sequence, int32_t poc) {
  return klxutilDisplayOrderAddFields(order, decodeIndex, sequence, poc, 2);
}

int klxutilDisplayOrderNext(KLXUTIL_DISPLAY_ORDER* order, int32_t flush, uint64_t* decodeIndex,
                            uint64_t* displayIndex) {
  uint64_t displayField = 0;
  return klxutilDisplayOrderNextField(order, flush, decodeIndex, displayIndex, &displayField);
}

int klxutilDisplayOrderNextField(KLXUTIL_DISPLAY_ORDER* order, int32_t flush, uint64_t* decodeIndex,
                                 uint64_t* displayIndex, uint64_t* displayField) {
  if (!order || !decodeIndex || !displayIndex || !displayField) return -1;
  if (order->count == 0) return 0;
  // By coded video sequence, then picture order count; decode order breaks ties.
  uint32_t best = 0;
  bool laterSequence = false;
  for (uint32_t i = 1; i < order->count; ++i) {
    const KLXUTIL_DISPLAY_ENTRY& e = order->pending[i];
    const KLXUTIL_DISPLAY_ENTRY& b = order->pending[best];
    if (e.sequence != order->pending[0].sequence) laterSequence = true;
    if (e.sequence < b.sequence || (e.sequence == b.sequence && e.poc < b.poc)) best = i;
  }
  // Sequences only grow in decode order: a picture of a later one closes the first.
  if (!flush && !laterSequence && order->count <= KLXUTIL_REORDER_WINDOW) return 0;
  *decodeIndex = order->pending[best].decodeIndex;
  *displayIndex = order->nextDisplayIndex++;
  *displayField = order->nextDisplayField;
  order->nextDisplayField += order->pending[best].fields;
  for (uint32_t i = best + 1; i < order->count; ++i) order->pending[i - 1] = order->pending[i];
  --order->count;
  return 1;
}

int klxutilFindStartCode(const uint8_t* data, size_t size, size_t from, size_t* codeAt, uint32_t* codeLength) {
  if (!data || !codeAt || !codeLength) return -1;
  size_t i = from + 2;
  while (i < size) {
    const void* one = std::memchr(data + i, 1, size - i);
    if (!one) return 0;
    i = static_cast<size_t>(static_cast<const uint8_t*>(one) - data);
    if (data[i - 1] == 0 && data[i - 2] == 0) {
      const bool four = i >= from + 3 && data[i - 3] == 0;
      *codeAt = four ? i - 3 : i - 2;
      *codeLength = four ? 4 : 3;
      return 1;
    }
    ++i;
  }
  return 0;
}
}
