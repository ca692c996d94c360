// avcC: ISO/IEC 14496-15 5.3.3.1, built from a frame's parameter sets and read back.
#include "streamutil/avcc.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "streamutil/nal_units.h"

namespace {

constexpr uint32_t kMaxUnits = 512;
constexpr uint8_t kSps = 7, kPps = 8, kSpsExtension = 13;

struct UnitBytes {
  const uint8_t* data;
  uint32_t size;
};

bool hasHighProfileFields(uint8_t profile) { return profile != 66 && profile != 77 && profile != 88; }

uint32_t withoutTrailingZeros(const uint8_t* p, uint32_t n) {
  while (n > 0 && p[n - 1] == 0) --n;
  return n;
}

// Distinct units of a type, in frame order (a repeated unit with the same bytes is kept once).
void collect(const uint8_t* frame, const KLX_NAL_UNIT* units, uint32_t count, uint8_t type,
             std::vector<UnitBytes>& out) {
  for (uint32_t i = 0; i < count; ++i) {
    if (units[i].type != type) continue;
    const uint8_t* p = frame + units[i].offset + units[i].prefixLength;
    const uint32_t n = withoutTrailingZeros(p, units[i].size);
    bool seen = n == 0;
    for (const auto& u : out) seen = seen || (u.size == n && std::memcmp(u.data, p, n) == 0);
    if (!seen) out.push_back({p, n});
  }
}

struct Writer {
  uint8_t* out;
  uint32_t capacity;
  uint64_t at = 0;
  void put(uint8_t b) {
    if (out && at < capacity) out[at] = b;
    ++at;
  }
  void unit(const UnitBytes& u) {
    put(static_cast<uint8_t>(u.size >> 8));
    put(static_cast<uint8_t>(u.size));
    for (uint32_t i = 0; i < u.size; ++i) put(u.data[i]);
  }
};

struct Cursor {
  const uint8_t* p;
  uint32_t size;
  uint32_t at = 0;
  bool ok = true;
  uint32_t u8() {
    if (at >= size) return ok = false, 0u;
    return p[at++];
  }
  uint32_t u16() {
    const uint32_t hi = u8();
    return (hi << 8) | u8();
  }
  // The bytes of one 16-bit-length entry.
  UnitBytes entry() {
    const uint32_t n = u16();
    if (!ok || n > size - at) return ok = false, UnitBytes{nullptr, 0};
    UnitBytes u{p + at, n};
    at += n;
    return u;
  }
};

// The record inside a leading "size avcC" box header, as long as the box's size word says (0: to
// the end): a box cut short (its optional High-profile fields would otherwise just look absent)
// is refused; bytes behind it belong to the next box. Without the header, the bytes as given.
bool recordBody(const uint8_t*& record, uint32_t& size) {
  if (size < 8 || std::memcmp(record + 4, "avcC", 4) != 0) return true;
  const uint32_t boxSize = (uint32_t{record[0]} << 24) | (uint32_t{record[1]} << 16) | (uint32_t{record[2]} << 8) | record[3];
  if (boxSize != 0 && (boxSize < 8 || boxSize > size)) return false;
  if (boxSize != 0) size = boxSize;
  record += 8, size -= 8;
  return true;
}

void toSyntaxSps(const SPS_DECODED& s, sps_t& out) {
  out.profile_idc = s.profile_idc;
  out.constraint_set_flags = (s.constraint_set0_flag << 5) | (s.constraint_set1_flag << 4) |
                             (s.constraint_set2_flag << 3) | (s.constraint_set3_flag << 2) |
                             (s.constraint_set4_flag << 1) | s.constraint_set5_flag;
  out.level_idc = s.level_idc;
  out.seq_parameter_set_id = s.seq_parameter_set_id;
  out.chroma_format_idc = s.chroma_format_idc;
  out.separate_colour_plane_flag = s.separate_colour_plane_flag;
  out.bit_depth_luma_minus8 = s.bit_depth_luma_minus8;
  out.bit_depth_chroma_minus8 = s.bit_depth_chroma_minus8;
  out.log2_max_frame_num_minus4 = s.log2_max_frame_num_minus4;
  out.pic_order_cnt_type = s.pic_order_cnt_type;
  out.log2_max_pic_order_cnt_lsb_minus4 = s.log2_max_pic_order_cnt_lsb_minus4;
  out.max_num_ref_frames = s.max_num_ref_frames;
  out.pic_width_in_mbs_minus1 = s.pic_width_in_mbs_minus1;
  out.pic_height_in_map_units_minus1 = s.pic_height_in_map_units_minus1;
  out.frame_mbs_only_flag = s.frame_mbs_only_flag;
  out.vui_parameters_present_flag = s.vui_parameters_present_flag;
}

void toSyntaxPps(const PPS_DECODED& p, pps_t& out) {
  out.pic_parameter_set_id = p.pic_parameter_set_id;
  out.seq_parameter_set_id = p.seq_parameter_set_id;
  out.entropy_coding_mode_flag = p.entropy_coding_mode_flag;
  out.bottom_field_pic_order_in_frame_present_flag = p.bottom_field_pic_order_in_frame_present_flag;
  out.num_slice_groups_minus1 = p.num_slice_groups_minus1;
  out.num_ref_idx_l0_default_active_minus1 = p.num_ref_idx_l0_default_active_minus1;
  out.num_ref_idx_l1_default_active_minus1 = p.num_ref_idx_l1_default_active_minus1;
  out.weighted_pred_flag = p.weighted_pred_flag;
  out.weighted_bipred_idc = p.weighted_bipred_idc;
  out.pic_init_qp_minus26 = p.pic_init_qp_minus26;
  out.deblocking_filter_control_present_flag = p.deblocking_filter_control_present_flag;
  out.transform_8x8_mode_flag = p.transform_8x8_mode_flag;
}

bool readSps(const UnitBytes& u, SPS_DECODED& sps) {
  if (u.size < 4 || (u.data[0] & 0x1F) != kSps) return false;
  std::vector<uint8_t> copy(u.data, u.data + u.size);
  zr_bitstream s{copy.data(), static_cast<int64_t>(copy.size()), copy.size() * 8, 0};
  return klxutilRead_SPS(&s, &sps) > 0;
}

bool readPps(const UnitBytes& u, PPS_DECODED& pps) {
  if (u.size < 2 || (u.data[0] & 0x1F) != kPps) return false;
  std::vector<uint8_t> copy(u.data, u.data + u.size);
  zr_bitstream s{copy.data(), static_cast<int64_t>(copy.size()), copy.size() * 8, 0};
  return klxutilRead_PPS(&s, &pps) > 0;
}

template <class T>
T** allocTable(uint32_t n) {
  return static_cast<T**>(std::calloc(n ? n : 1, sizeof(T*)));
}

}  // namespace

extern "C" {

int klxutilGetAvcc(const uint8_t* frame, uint32_t frameSize, uint32_t startCodes, uint8_t* out, uint32_t capacity,
                   uint32_t* outSize) {
  if (!frame || !outSize) return -1;
  *outSize = 0;
  std::vector<KLX_NAL_UNIT> units(kMaxUnits);
  uint32_t count = 0;
  int rc = klxutilFindNalUnits(frame, frameSize, startCodes, units.data(), kMaxUnits, &count);
  if (rc == KLX_NAL_NO_ROOM) {
    units.resize(count);
    rc = klxutilFindNalUnits(frame, frameSize, startCodes, units.data(), count, &count);
  }
  if (rc != KLX_NAL_OK) return -1;
  std::vector<UnitBytes> sps, pps, ext;
  collect(frame, units.data(), count, kSps, sps);
  collect(frame, units.data(), count, kPps, pps);
  collect(frame, units.data(), count, kSpsExtension, ext);
  if (sps.empty() || pps.empty() || sps.size() > 31 || pps.size() > 255 || ext.size() > 255) return -1;
  for (const auto* list : {&sps, &pps, &ext})
    for (const auto& u : *list)
      if (u.size > 0xFFFF) return -1;
  const UnitBytes& first = sps.front();
  std::unique_ptr<SPS_DECODED> decoded(new (std::nothrow) SPS_DECODED{});
  if (!decoded || !readSps(first, *decoded)) return -1;

  Writer w{out, out ? capacity : 0};
  w.put(1);  // configurationVersion
  w.put(first.data[1]);  // AVCProfileIndication
  w.put(first.data[2]);  // profile_compatibility
  w.put(first.data[3]);  // AVCLevelIndication
  w.put(0xFC | 3);       // reserved '111111', lengthSizeMinusOne
  w.put(static_cast<uint8_t>(0xE0 | sps.size()));
  for (const auto& u : sps) w.unit(u);
  w.put(static_cast<uint8_t>(pps.size()));
  for (const auto& u : pps) w.unit(u);
  if (hasHighProfileFields(first.data[1])) {
    w.put(static_cast<uint8_t>(0xFC | (decoded->chroma_format_idc & 3)));
    w.put(static_cast<uint8_t>(0xF8 | (decoded->bit_depth_luma_minus8 & 7)));
    w.put(static_cast<uint8_t>(0xF8 | (decoded->bit_depth_chroma_minus8 & 7)));
    w.put(static_cast<uint8_t>(ext.size()));
    for (const auto& u : ext) w.unit(u);
  }
  *outSize = static_cast<uint32_t>(w.at);
  return w.at > capacity || !out ? KLX_NAL_NO_ROOM : 0;
}

int klxutilReadAvcc(const uint8_t* record, uint32_t size, avcc_t* avcc, h264_stream_t* h, AVCC_HIGH_PROFILE_FIELDS* ext,
                    SPS_DECODED* firstSps, PPS_DECODED* firstPps) {
  if (!record || !avcc || !recordBody(record, size)) return -1;
  Cursor c{record, size};
  std::free(avcc->sps_table);
  std::free(avcc->pps_table);
  std::memset(avcc, 0, sizeof *avcc);
  if (ext) std::memset(ext, 0, sizeof *ext);
  avcc->configurationVersion = static_cast<int32_t>(c.u8());
  avcc->AVCProfileIndication = static_cast<int32_t>(c.u8());
  avcc->profile_compatibility = static_cast<int32_t>(c.u8());
  avcc->AVCLevelIndication = static_cast<int32_t>(c.u8());
  avcc->lengthSizeMinusOne = static_cast<int32_t>(c.u8() & 3);
  avcc->numOfSequenceParameterSets = static_cast<int32_t>(c.u8() & 0x1F);
  if (!c.ok || avcc->configurationVersion != 1) return -1;

  std::unique_ptr<SPS_DECODED> sps(new (std::nothrow) SPS_DECODED{});
  std::unique_ptr<PPS_DECODED> pps(new (std::nothrow) PPS_DECODED{});
  avcc->sps_table = allocTable<sps_t>(static_cast<uint32_t>(avcc->numOfSequenceParameterSets));
  if (!sps || !pps || !avcc->sps_table) return -1;
  for (int32_t i = 0; i < avcc->numOfSequenceParameterSets; ++i) {
    const UnitBytes u = c.entry();
    if (!c.ok) return -1;
    if (!readSps(u, *sps)) continue;  // an unreadable entry leaves its slot null
    if (i == 0 && firstSps) *firstSps = *sps;
    if (h) {
      sps_t* rec = h->sps_table[static_cast<uint32_t>(sps->seq_parameter_set_id) % kH264MaxSps];
      toSyntaxSps(*sps, *rec);
      avcc->sps_table[i] = rec;
    }
  }
  avcc->numOfPictureParameterSets = static_cast<int32_t>(c.u8());
  if (!c.ok) return -1;
  avcc->pps_table = allocTable<pps_t>(static_cast<uint32_t>(avcc->numOfPictureParameterSets));
  if (!avcc->pps_table) return -1;
  for (int32_t i = 0; i < avcc->numOfPictureParameterSets; ++i) {
    const UnitBytes u = c.entry();
    if (!c.ok) return -1;
    if (!readPps(u, *pps)) continue;
    if (i == 0 && firstPps) *firstPps = *pps;
    if (h) {
      pps_t* rec = h->pps_table[static_cast<uint32_t>(pps->pic_parameter_set_id) % kH264MaxPps];
      toSyntaxPps(*pps, *rec);
      avcc->pps_table[i] = rec;
    }
  }
  if (ext && hasHighProfileFields(static_cast<uint8_t>(avcc->AVCProfileIndication)) && c.at + 4 <= size) {
    ext->present = 1;
    ext->chroma_format = static_cast<int32_t>(c.u8() & 3);
    ext->bit_depth_luma_minus8 = static_cast<int32_t>(c.u8() & 7);
    ext->bit_depth_chroma_minus8 = static_cast<int32_t>(c.u8() & 7);
    ext->numOfSequenceParameterSetExt = static_cast<int32_t>(c.u8());
  }
  return 0;
}

int klxutilAvccEntries(const uint8_t* record, uint32_t size, AVCC_ENTRY* entries, uint32_t capacity, uint32_t* count) {
  if (!record || !count) return -1;
  const uint8_t* const given = record;
  if (!recordBody(record, size)) return -1;
  Cursor c{record, size};
  const uint32_t version = c.u8();
  const uint8_t profile = static_cast<uint8_t>(c.u8());
  c.at += 3;  // profile_compatibility, AVCLevelIndication, lengthSizeMinusOne
  if (!c.ok || c.at > size || version != 1) return -1;
  uint32_t n = 0;
  auto array = [&](uint32_t units, uint32_t type) {
    for (uint32_t i = 0; i < units && c.ok; ++i) {
      const UnitBytes u = c.entry();
      if (!c.ok) break;
      if (entries && n < capacity)
        entries[n] = AVCC_ENTRY{type, static_cast<uint32_t>(u.data - given), u.size};
      ++n;
    }
  };
  array(c.u8() & 0x1F, kSps);
  array(c.u8(), kPps);
  if (c.ok && hasHighProfileFields(profile) && c.at + 4 <= size) {  // chroma_format and bit depths first
    c.at += 3;
    array(c.u8(), kSpsExtension);
  }
  if (!c.ok) return -1;
  *count = n;
  return n > (entries ? capacity : 0) ? KLX_NAL_NO_ROOM : 0;
}

}  // extern "C"
