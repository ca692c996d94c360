#include "streamutil/hevc_config_record.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "platform/zrlog.h"
#include "streamutil/rbsp.h"

namespace {

constexpr uint32_t kFailed = 0xFFFFFFFFu;
constexpr const char* kSourceName = "klxvidutil";

// A zero-filled working stream of twice the output's byte size (16 bits per output byte).
struct WorkStream {
  std::vector<uint8_t> bytes;
  zr_bitstream s{};
  explicit WorkStream(const zr_bitstream* out) {
    uint64_t outBytes = out->size > 0 ? static_cast<uint64_t>(out->size) : (out->length + 7) / 8;
    bytes.assign(std::max<uint64_t>(2 * outBytes, 8), 0);
    s = zr_bitstream{bytes.data(), static_cast<int64_t>(bytes.size()), bytes.size() * 8, 0};
  }
  // Copies the bytes written, eight bits at a time, to the output at its position.
  uint32_t copyTo(zr_bitstream* out) const {
    for (uint64_t i = 0; i < s.position / 8 && i < bytes.size(); ++i) WriteBits(out, 8, bytes[i]);
    return static_cast<uint32_t>(out->position / 8);
  }
};

// Each reserved field of the header and its all-ones value, in order.
struct HeaderReadResult {
  bool reservedOk;
};

HeaderReadResult readHeader(zr_bitstream* s, HEVC_DECODED* h) {
  bool ok = true;
  auto reserved = [&](int bits, uint32_t ones) {
    if (ReadBits(s, bits) != ones) ok = false;
  };
  SkipBits(s, 64);  // box size and type
  h->configurationVersion = ReadBits(s, 8);
  h->general_profile_space = ReadBits(s, 2);
  h->general_tier_flag = ReadBits(s, 1);
  h->general_profile_idc = ReadBits(s, 5);
  h->general_profile_compatibility_flags = ReadBits(s, 32);
  h->general_constraint_indicator_flags = ReadBits64(s, 48) & 0xFFFFFFFFFFFFull;
  h->general_level_idc = ReadBits(s, 8);
  reserved(4, 15);
  if (ok) h->min_spatial_segmentation_idc = ReadBits(s, 12);
  if (ok) reserved(6, 63);
  if (ok) h->parallelismType = ReadBits(s, 2);
  if (ok) reserved(6, 63);
  if (ok) h->chromaFormat = ReadBits(s, 2);
  if (ok) reserved(5, 31);
  if (ok) h->bitDepthLumaMinus8 = ReadBits(s, 3);
  if (ok) reserved(5, 31);
  if (ok) h->bitDepthChromaMinus8 = ReadBits(s, 3);
  if (!ok) return {false};
  h->avgFrameRate = ReadBits(s, 16);
  h->constantFrameRate = ReadBits(s, 2);
  h->numTemporalLayers = ReadBits(s, 3);
  h->temporalIdNested = ReadBits(s, 1);
  h->lengthSizeMinusOne = ReadBits(s, 2);
  h->numOfArrays = ReadBits(s, 8);
  return {true};
}

// Where the box that starts at byte `boxStart` ends, from its size word (ISO/IEC 14496-12 4.2):
// a box that claims more than the `given` bytes is cut short and one smaller than its own 8-byte
// header is no box (both refused with a report); bytes behind it belong to the next box. Size 0:
// the box runs to the end.
struct BoxBound {
  bool ok;
  size_t end;
};

BoxBound boxBound(const uint8_t* bytes, size_t given, size_t boxStart) {
  if (boxStart > given || given - boxStart < 8) {
    ErrOut("Hevc box header is past end of bitstream %s %d", kSourceName, __LINE__);
    return {false, 0};
  }
  const uint8_t* w = bytes + boxStart;
  const uint32_t boxSize = (uint32_t{w[0]} << 24) | (uint32_t{w[1]} << 16) | (uint32_t{w[2]} << 8) | w[3];
  if (boxSize == 0) return {true, given};
  if (boxSize < 8) {
    ErrOut("Hevc box size %u is smaller than its 8-byte header %s %d", boxSize, kSourceName, __LINE__);
    return {false, 0};
  }
  if (boxSize > given - boxStart) {
    ErrOut("Hevc box size %u is past end of bitstream (%zu bytes) %s %d", boxSize, given - boxStart, kSourceName,
           __LINE__);
    return {false, 0};
  }
  return {true, boxStart + boxSize};
}

}  // namespace

uint32_t klxutilWrite_HEVC_CR(zr_bitstream* out, HEVC_DECODED* h, const uint8_t* vps, const uint8_t* sps,
                              const uint8_t* pps, int32_t vpsLength, int32_t spsLength, int32_t ppsLength) {
  if (!out || !out->buffer) return 0;
  try {
    WorkStream work(out);
    zr_bitstream* s = &work.s;
    if (h) {
      WriteBits(s, 8, h->configurationVersion);
      WriteBits(s, 2, h->general_profile_space);
      WriteBits(s, 1, h->general_tier_flag);
      WriteBits(s, 5, h->general_profile_idc);
      WriteBits(s, 32, h->general_profile_compatibility_flags);
      WriteBits64(s, 48, h->general_constraint_indicator_flags);
      WriteBits(s, 8, h->general_level_idc);
      WriteBits(s, 4, 15);
      WriteBits(s, 12, h->min_spatial_segmentation_idc);
      WriteBits(s, 6, 63);
      WriteBits(s, 2, h->parallelismType);
      WriteBits(s, 6, 63);
      WriteBits(s, 2, h->chromaFormat);
      WriteBits(s, 5, 31);
      WriteBits(s, 3, h->bitDepthLumaMinus8);
      WriteBits(s, 5, 31);
      WriteBits(s, 3, h->bitDepthChromaMinus8);
      WriteBits(s, 16, h->avgFrameRate);
      WriteBits(s, 2, h->constantFrameRate);
      WriteBits(s, 3, h->numTemporalLayers);
      WriteBits(s, 1, h->temporalIdNested);
      WriteBits(s, 2, h->lengthSizeMinusOne);
      WriteBits(s, 8, h->numOfArrays);
    }
    const struct {
      uint32_t type;
      const uint8_t* data;
      int32_t length;
    } arrays[] = {{32, vps, vpsLength}, {33, sps, spsLength}, {34, pps, ppsLength}};
    for (const auto& a : arrays) {
      WriteBit(s, 1);  // array_completeness
      WriteBit(s, 0);  // reserved
      WriteBits(s, 6, a.type);
      WriteBits(s, 16, 1);  // numNalus
      WriteBits(s, 16, static_cast<uint32_t>(a.length) & 0xFFFFu);
      if (a.data)
        for (int32_t i = 0; i < a.length; ++i) WriteBits(s, 8, a.data[i]);
    }
    return work.copyTo(out);
  } catch (const std::bad_alloc&) {
    return static_cast<uint32_t>(out->position / 8);
  }
}

uint32_t klxutilWrite_DVVC_CR(zr_bitstream* out, DOVI_DECODER_CONFIGURATION_RECORD* r) {
  if (!out || !out->buffer) return 0;
  try {
    WorkStream work(out);
    zr_bitstream* s = &work.s;
    if (r) {
      WriteBits(s, 8, r->dv_version_major);
      WriteBits(s, 8, r->dv_version_minor);
      WriteBits(s, 7, r->dv_profile);
      WriteBits(s, 6, r->dv_level);
      WriteBits(s, 1, r->rpu_present_flag);
      WriteBits(s, 1, r->el_present_flag);
      WriteBits(s, 1, r->bl_present_flag);
      WriteBits(s, 4, r->dv_bl_signal_compatibility_id);
      WriteBits(s, 28, r->reserved);
      for (uint32_t word : r->reserved_words) WriteBits(s, 32, word);
    }
    return work.copyTo(out);
  } catch (const std::bad_alloc&) {
    return static_cast<uint32_t>(out->position / 8);
  }
}

uint32_t klxutilRead_DVVC_CR(zr_bitstream* in, DOVI_DECODER_CONFIGURATION_RECORD* record) {
  constexpr uint64_t kRecordBits = 24 * 8;
  if (!in || !in->buffer || !record) return kFailed;
  uint64_t limit = in->length;
  if (in->size > 0) limit = std::min<uint64_t>(limit, static_cast<uint64_t>(in->size) * 8);
  if (in->position > limit || limit - in->position < kRecordBits) return kFailed;
  DOVI_DECODER_CONFIGURATION_RECORD r{};
  r.dv_version_major = static_cast<uint8_t>(ReadBits(in, 8));
  r.dv_version_minor = static_cast<uint8_t>(ReadBits(in, 8));
  r.dv_profile = static_cast<uint16_t>(ReadBits(in, 7));
  r.dv_level = static_cast<uint16_t>(ReadBits(in, 6));
  r.rpu_present_flag = static_cast<uint16_t>(ReadBits(in, 1));
  r.el_present_flag = static_cast<uint16_t>(ReadBits(in, 1));
  r.bl_present_flag = static_cast<uint16_t>(ReadBits(in, 1));
  r.dv_bl_signal_compatibility_id = ReadBits(in, 4);
  r.reserved = ReadBits(in, 28);
  for (uint32_t& word : r.reserved_words) word = ReadBits(in, 32);
  *record = r;
  return 24;
}

uint32_t klxutilRead_HEVC_CR(zr_bitstream* in, HEVC_DECODED* header, HEVC_VPS_DECODED* vps, HEVC_SPS_DECODED* sps,
                             HEVC_PPS_DECODED* pps) {
  if (!header || !in || !in->buffer || in->size <= 0) return 0;
  const size_t given = std::min<size_t>(static_cast<size_t>(in->size), static_cast<size_t>(in->length / 8));
  const size_t boxStart = static_cast<size_t>(in->position / 8);
  const BoxBound box = boxBound(in->buffer, given, boxStart);
  if (!box.ok) return kFailed;
  // Only the box is copied: neither pass reads the bytes behind it.
  size_t size = box.end;
  std::vector<uint8_t> copy;
  try {
    copy.assign(size + 8, 0);
  } catch (const std::bad_alloc&) {
    return kFailed;
  }
  std::memcpy(copy.data(), in->buffer, size);
  zr_bitstream priv{copy.data(), static_cast<int64_t>(copy.size()), std::min<uint64_t>(in->length, size * 8),
                    in->position};

  if (!readHeader(&priv, header).reservedOk) {
    ErrOut("Hevc Reserved bits incorrect %s %d", kSourceName, __LINE__);
    // The box may have been stored with emulation-prevention bytes: retry on an unescaped copy
    // of the box as stored (its size word counts the bytes stored).
    size_t unescaped = size;
    rbsp::removeAvcEmulationPrevention(copy.data(), unescaped, false, 2);
    size = unescaped;
    priv.length = std::min<uint64_t>(priv.length, size * 8);
    priv.position = in->position;
    if (!readHeader(&priv, header).reservedOk) {
      ErrOut("Hevc Reserved bits incorrect %s %d", kSourceName, __LINE__);
      in->position = priv.position;
      return kFailed;
    }
  }
  if (header->numOfArrays == 0) {
    in->position = priv.position;
    return 0;
  }

  bool haveVps = false, haveSps = false, havePps = false;
  uint32_t lastParsedEnd = 0;
  for (uint32_t a = 0; a < header->numOfArrays; ++a) {
    ReadBit(&priv);  // array_completeness
    if (ReadBit(&priv) == 1) break;  // reserved bit set: not an array
    const uint32_t type = ReadBits(&priv, 6);
    const uint32_t count = ReadBits(&priv, 16);
    for (uint32_t n = 0; n < count; ++n) {
      const uint32_t length = ReadBits(&priv, 16);
      const uint64_t start = priv.position;
      if (start / 8 + length > size || start + 8ull * length > priv.length) {
        ErrOut("Hevc read is past end of bitstream %s %d", kSourceName, __LINE__);
        in->position = priv.position;
        return kFailed;
      }
      const uint64_t bits = 8ull * length;
      bool parsed = true;
      if (type == 32 && vps && !haveVps) {
        klxutilRead_HEVC_VPS(&priv, vps, nullptr, bits);
        haveVps = true;
      } else if (type == 33 && sps && !haveSps) {
        klxutilRead_HEVC_SPS(&priv, sps, nullptr, bits);
        haveSps = true;
      } else if (type == 34 && pps && !havePps) {
        klxutilRead_HEVC_PPS(&priv, pps, nullptr, bits);
        havePps = true;
      } else {
        parsed = false;
      }
      if (parsed) {
        const uint64_t consumed = priv.position - start;
        if (consumed != bits)
          ErrOut("Hevc read is not the same length as entry size (%d <> %d) %s %d", static_cast<int>(consumed),
                 static_cast<int>(bits), kSourceName, __LINE__);
        if (type != 34) lastParsedEnd = static_cast<uint32_t>((start + bits) / 8);
      }
      priv.position = start + bits;  // skipped, or re-synchronised after a failed unit
    }
  }
  in->position = priv.position;
  return lastParsedEnd;
}

int klxutilHvccEntries(const uint8_t* box, uint32_t size, HVCC_ENTRY* entries, uint32_t capacity, uint32_t* count) {
  constexpr uint32_t kArraysAt = 8 + 23;  // box words, then the 23-byte header
  if (!box || !count) return -1;
  const BoxBound bound = boxBound(box, size, 0);
  if (!bound.ok || bound.end < kArraysAt) return -1;
  const size_t end = bound.end;
  // Reserved bits that are not all ones mark a box klxutilRead_HEVC_CR reads from an unescaped
  // copy: its arrays do not stand where the bytes as stored put them.
  HEVC_DECODED header{};
  zr_bitstream stored{const_cast<uint8_t*>(box), static_cast<int64_t>(end), end * 8, 0};
  if (!readHeader(&stored, &header).reservedOk) return -1;
  size_t at = kArraysAt;
  const uint32_t arrays = box[kArraysAt - 1];  // numOfArrays
  uint32_t n = 0;
  for (uint32_t a = 0; a < arrays; ++a) {
    if (end - at < 3) return -1;
    if (box[at] & 0x40) break;  // reserved bit set: not an array (as the reader stops)
    const uint32_t type = box[at] & 0x3F, units = (uint32_t{box[at + 1]} << 8) | box[at + 2];
    at += 3;
    for (uint32_t u = 0; u < units; ++u) {
      if (end - at < 2) return -1;
      const uint32_t length = (uint32_t{box[at]} << 8) | box[at + 1];
      at += 2;
      if (end - at < length) return -1;
      if (entries && n < capacity) entries[n] = HVCC_ENTRY{type, static_cast<uint32_t>(at), length};
      ++n;
      at += length;
    }
  }
  *count = n;
  return n > (entries ? capacity : 0) ? -102 : 0;
}

int64_t klxutilGetHvcc(const uint8_t*, uint32_t, uint8_t*, uint32_t) { return -1; }

void klxutilFillHvccHeader(HEVC_DECODED* h, const HEVC_SPS_DECODED* sps, const HEVC_PPS_DECODED* pps) {
  if (!h || !sps) return;
  std::memset(static_cast<void*>(h), 0, sizeof *h);
  const HEVC_PROFILE_TIER_LEVEL& p = sps->ptl;
  h->configurationVersion = 1;
  h->general_profile_space = static_cast<uint32_t>(p.general_profile_space);
  h->general_tier_flag = static_cast<uint32_t>(p.general_tier_flag);
  h->general_profile_idc = static_cast<uint32_t>(p.general_profile_idc);
  h->general_profile_compatibility_flags = p.general_profile_compatibility_flags;
  h->general_constraint_indicator_flags = p.general_constraint_indicator_flags;
  h->general_level_idc = static_cast<uint32_t>(p.general_level_idc);
  const uint32_t minSpatial = sps->vui_parameters_present_flag && sps->vui.bitstream_restriction_flag
                                  ? static_cast<uint32_t>(sps->vui.min_spatial_segmentation_idc)
                                  : 0;
  h->min_spatial_segmentation_idc = minSpatial;
  uint32_t parallelism = 0;  // mixed or unknown
  if (pps && minSpatial) {
    if (pps->entropy_coding_sync_enabled_flag && pps->tiles_enabled_flag)
      parallelism = 0;
    else if (pps->entropy_coding_sync_enabled_flag)
      parallelism = 3;  // wavefront
    else if (pps->tiles_enabled_flag)
      parallelism = 2;  // tiles
    else
      parallelism = 1;  // slices
  }
  h->parallelismType = parallelism;
  h->chromaFormat = static_cast<uint32_t>(sps->chroma_format_idc);
  h->bitDepthLumaMinus8 = static_cast<uint32_t>(sps->bit_depth_luma_minus8);
  h->bitDepthChromaMinus8 = static_cast<uint32_t>(sps->bit_depth_chroma_minus8);
  h->avgFrameRate = 0;
  h->constantFrameRate = 0;
  h->numTemporalLayers = static_cast<uint32_t>(sps->sps_max_sub_layers_minus1 + 1);
  h->temporalIdNested = static_cast<uint32_t>(sps->sps_temporal_id_nesting_flag);
  h->lengthSizeMinusOne = 3;
  h->numOfArrays = 3;
}
