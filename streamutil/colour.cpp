// Colour description rewrite: read the SPS, prove the library writes it back unchanged, change
// the VUI colour fields, write it again. Records are rewritten entry by entry.
#include "streamutil/colour.h"

#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "streamutil/nal_units.h"

namespace {

constexpr int32_t kUnspecified = 2;      // colour_primaries / transfer / matrix: unspecified
constexpr int32_t kVideoFormatUnspecified = 5;
constexpr uint32_t kWorkBytes = 4096;     // an SPS never comes near this

bool inRange(const KLX_COLOUR_DESCRIPTION& c) {
  auto byte = [](int32_t v) { return v >= 0 && v <= 255; };
  if ((c.set & KLX_COLOUR_SET_PRIMARIES) && !byte(c.colour_primaries)) return false;
  if ((c.set & KLX_COLOUR_SET_TRANSFER) && !byte(c.transfer_characteristics)) return false;
  if ((c.set & KLX_COLOUR_SET_MATRIX) && !byte(c.matrix_coeffs)) return false;
  if ((c.set & KLX_COLOUR_SET_RANGE) && (c.video_full_range_flag & ~1)) return false;
  if ((c.set & KLX_COLOUR_SET_CHROMA_LOCATION) &&
      (c.chroma_sample_loc_type_top_field < 0 || c.chroma_sample_loc_type_top_field > 5 ||
       c.chroma_sample_loc_type_bottom_field < 0 || c.chroma_sample_loc_type_bottom_field > 5))
    return false;
  return true;
}

// The VUI fields both codecs share; `matrix` is matrix_coeffs (H.265) or matrix_coefficients (H.264).
template <class Vui>
void applyToVui(int32_t& vuiPresent, Vui& v, int32_t& matrix, const KLX_COLOUR_DESCRIPTION& c) {
  const uint32_t colourBits = KLX_COLOUR_SET_PRIMARIES | KLX_COLOUR_SET_TRANSFER | KLX_COLOUR_SET_MATRIX;
  if (c.set) vuiPresent = 1;
  if (c.set & (colourBits | KLX_COLOUR_SET_RANGE)) {
    if (!v.video_signal_type_present_flag) {
      v.video_signal_type_present_flag = 1;
      v.video_format = kVideoFormatUnspecified;
      v.video_full_range_flag = 0;
    }
  }
  if (c.set & colourBits) {
    if (!v.colour_description_present_flag) {
      v.colour_description_present_flag = 1;
      v.colour_primaries = v.transfer_characteristics = matrix = kUnspecified;
    }
    if (c.set & KLX_COLOUR_SET_PRIMARIES) v.colour_primaries = c.colour_primaries;
    if (c.set & KLX_COLOUR_SET_TRANSFER) v.transfer_characteristics = c.transfer_characteristics;
    if (c.set & KLX_COLOUR_SET_MATRIX) matrix = c.matrix_coeffs;
  }
  if (c.set & KLX_COLOUR_SET_RANGE) v.video_full_range_flag = c.video_full_range_flag;
  if (c.set & KLX_COLOUR_SET_CHROMA_LOCATION) {
    v.chroma_loc_info_present_flag = 1;
    v.chroma_sample_loc_type_top_field = c.chroma_sample_loc_type_top_field;
    v.chroma_sample_loc_type_bottom_field = c.chroma_sample_loc_type_bottom_field;
  }
}

// The unit as coded, without trailing zero bytes (they belong to the byte stream, not the unit).
uint32_t trimmed(const uint8_t* unit, uint32_t size) {
  while (size > 0 && unit[size - 1] == 0) --size;
  return size;
}

bool sameBytes(const uint8_t* a, uint32_t an, const uint8_t* b, uint32_t bn) {
  return an == bn && std::memcmp(a, b, an) == 0;
}

// H.264: the reader keeps scale values; the writer codes delta_scale entries.
void scalingToDeltas(AVC_SCALING_MATRIX& m) {
  for (int i = 0; i < 6; ++i) klxutilScalingListToDeltas(m.ScalingList4x4[i], 16, m.ScalingList4x4[i]);
  for (int i = 0; i < 6; ++i) klxutilScalingListToDeltas(m.ScalingList8x8[i], 64, m.ScalingList8x8[i]);
}

int32_t writeAvc(SPS_DECODED* sps, uint8_t* out, uint32_t capacity) {
  zr_bitstream o{out, static_cast<int64_t>(capacity), uint64_t{capacity} * 8, 0};
  const uint32_t n = klxutilWrite_SPS(&o, sps);
  return n > capacity ? -1 : static_cast<int32_t>(n);
}

int finish(const uint8_t* work, int32_t n, uint8_t* out, uint32_t capacity, uint32_t* outSize) {
  if (n <= 0) return -1;
  if (static_cast<uint32_t>(n) > capacity) return KLX_NAL_NO_ROOM;
  std::memcpy(out, work, static_cast<size_t>(n));
  *outSize = static_cast<uint32_t>(n);
  return 0;
}

using Rewriter = int (*)(const uint8_t*, uint32_t, const KLX_COLOUR_DESCRIPTION*, uint8_t*, uint32_t, uint32_t*);

struct RecordWriter {
  uint8_t* out;
  uint32_t capacity;
  uint64_t at = 0;
  bool room = true;
  void put(uint8_t b) {
    if (at < capacity)
      out[at] = b;
    else
      room = false;
    ++at;
  }
  void put16(uint32_t v) {
    put(static_cast<uint8_t>(v >> 8));
    put(static_cast<uint8_t>(v));
  }
};

// One array entry: 16-bit length and the unit; an SPS goes through the rewriter.
bool copyEntry(const uint8_t* r, uint32_t size, uint64_t& pos, bool isSps, const KLX_COLOUR_DESCRIPTION* colour,
               Rewriter rewrite, RecordWriter& w, int& failure) {
  if (pos + 2 > size) return false;
  const uint32_t length = (uint32_t{r[pos]} << 8) | r[pos + 1];
  pos += 2;
  if (pos + length > size) return false;
  if (!isSps) {
    w.put16(length);
    for (uint32_t i = 0; i < length; ++i) w.put(r[pos + i]);
  } else {
    uint8_t unit[kWorkBytes];
    uint32_t n = 0;
    const int rc = rewrite(r + pos, length, colour, unit, sizeof unit, &n);
    if (rc != 0 || n > 0xFFFF) {
      failure = rc != 0 ? rc : -1;
      return false;
    }
    w.put16(n);
    for (uint32_t i = 0; i < n; ++i) w.put(unit[i]);
  }
  pos += length;
  return true;
}

int finishRecord(const RecordWriter& w, uint32_t* outSize) {
  if (!w.room) return KLX_NAL_NO_ROOM;
  *outSize = static_cast<uint32_t>(w.at);
  return 0;
}

}  // namespace

extern "C" {

int klxutilSetColourHevcSps(HEVC_SPS_DECODED* sps, const KLX_COLOUR_DESCRIPTION* colour) {
  if (!sps || !colour || !inRange(*colour)) return -1;
  applyToVui(sps->vui_parameters_present_flag, sps->vui, sps->vui.matrix_coeffs, *colour);
  return 0;
}

int klxutilSetColourAvcSps(SPS_DECODED* sps, const KLX_COLOUR_DESCRIPTION* colour) {
  if (!sps || !colour || !inRange(*colour)) return -1;
  applyToVui(sps->vui_parameters_present_flag, sps->vui, sps->vui.matrix_coefficients, *colour);
  return 0;
}

int klxutilRewriteColourHevcSps(const uint8_t* unit, uint32_t size, const KLX_COLOUR_DESCRIPTION* colour,
                                uint8_t* out, uint32_t capacity, uint32_t* outSize) {
  if (!unit || !colour || !out || !outSize || !inRange(*colour)) return -1;
  size = trimmed(unit, size);
  if (size < 3 || ((unit[0] >> 1) & 0x3F) != 33) return -1;
  std::unique_ptr<HEVC_SPS_DECODED> sps(new (std::nothrow) HEVC_SPS_DECODED{});
  if (!sps) return -1;
  zr_bitstream in{const_cast<uint8_t*>(unit), static_cast<int64_t>(size), uint64_t{size} * 8, 0};
  if (klxutilRead_HEVC_SPS(&in, sps.get(), nullptr, 0) == 0xFFFFFFFFu) return -1;
  uint8_t work[kHevcParamSetMaxBytes];
  const int32_t again = klxutilWriteChecked_HEVC_SPS(sps.get(), work, sizeof work);
  if (again <= 0 || !sameBytes(work, static_cast<uint32_t>(again), unit, size)) return -1;
  klxutilSetColourHevcSps(sps.get(), colour);
  return finish(work, klxutilWriteChecked_HEVC_SPS(sps.get(), work, sizeof work), out, capacity, outSize);
}

int klxutilRewriteColourAvcSps(const uint8_t* unit, uint32_t size, const KLX_COLOUR_DESCRIPTION* colour, uint8_t* out,
                               uint32_t capacity, uint32_t* outSize) {
  if (!unit || !colour || !out || !outSize || !inRange(*colour)) return -1;
  size = trimmed(unit, size);
  if (size < 4 || (unit[0] & 0x1F) != 7 || size > kWorkBytes / 2) return -1;
  std::unique_ptr<SPS_DECODED> sps(new (std::nothrow) SPS_DECODED{});
  if (!sps) return -1;
  std::vector<uint8_t> copy(unit, unit + size);  // the reader points the stream at its own copy
  zr_bitstream in{copy.data(), static_cast<int64_t>(size), uint64_t{size} * 8, 0};
  if (klxutilRead_SPS(&in, sps.get()) == 0) return -1;
  scalingToDeltas(sps->seq_scaling);
  uint8_t work[kWorkBytes];
  const int32_t again = writeAvc(sps.get(), work, sizeof work);
  if (again <= 0 || !sameBytes(work, static_cast<uint32_t>(again), unit, size)) return -1;
  klxutilSetColourAvcSps(sps.get(), colour);
  return finish(work, writeAvc(sps.get(), work, sizeof work), out, capacity, outSize);
}

int klxutilRewriteColourHvcc(const uint8_t* r, uint32_t size, const KLX_COLOUR_DESCRIPTION* colour, uint8_t* out,
                             uint32_t capacity, uint32_t* outSize) {
  if (!r || !colour || !out || !outSize || size < 23) return -1;
  RecordWriter w{out, capacity};
  for (uint32_t i = 0; i < 23; ++i) w.put(r[i]);  // the header does not depend on colour
  uint64_t pos = 23;
  int failure = -1;
  for (uint32_t a = 0; a < r[22]; ++a) {
    if (pos + 3 > size) return -1;
    const bool isSps = (r[pos] & 0x3F) == 33;
    const uint32_t count = (uint32_t{r[pos + 1]} << 8) | r[pos + 2];
    for (int k = 0; k < 3; ++k) w.put(r[pos + k]);
    pos += 3;
    for (uint32_t n = 0; n < count; ++n)
      if (!copyEntry(r, size, pos, isSps, colour, klxutilRewriteColourHevcSps, w, failure)) return failure;
  }
  for (; pos < size; ++pos) w.put(r[pos]);
  return finishRecord(w, outSize);
}

int klxutilRewriteColourAvcc(const uint8_t* r, uint32_t size, const KLX_COLOUR_DESCRIPTION* colour, uint8_t* out,
                             uint32_t capacity, uint32_t* outSize) {
  if (!r || !colour || !out || !outSize || size < 7) return -1;
  RecordWriter w{out, capacity};
  for (uint32_t i = 0; i < 5; ++i) w.put(r[i]);
  uint64_t pos = 5;
  int failure = -1;
  const uint32_t spsCount = r[pos] & 0x1F;
  w.put(r[pos++]);
  for (uint32_t n = 0; n < spsCount; ++n)
    if (!copyEntry(r, size, pos, true, colour, klxutilRewriteColourAvcSps, w, failure)) return failure;
  if (pos >= size) return -1;
  const uint32_t ppsCount = r[pos];
  w.put(r[pos++]);
  for (uint32_t n = 0; n < ppsCount; ++n)
    if (!copyEntry(r, size, pos, false, colour, nullptr, w, failure)) return failure;
  for (; pos < size; ++pos) w.put(r[pos]);  // High-profile fields and SPS extensions
  return finishRecord(w, outSize);
}

}  // extern "C"
