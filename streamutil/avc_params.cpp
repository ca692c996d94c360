// H.264 SPS/PPS: the syntax of ITU-T H.264 7.3.2.1.1, 7.3.2.2 and E.1 described once for
// reading, writing and listing (see syntax_io.h), and the reader/writer frames around it.
#include "streamutil/avc_params.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string_view>
#include <vector>

#include "streamutil/rbsp.h"
#include "streamutil/syntax_io.h"

namespace {

using syntax_io::bounded;
using syntax_io::kInt32Max;
using syntax_io::kSeMax;
using syntax_io::kUeMax;
using syntax_io::Range;

// Bounds that element ranges of ITU-T H.264 derive from: MaxDpbFrames (A.3.1) is at most 16,
// QpBdOffsetY at most 36 (bit depths up to 14).
constexpr int64_t kMaxDpbFrames = 16;
constexpr int64_t kMaxQpBdOffset = 36;
using syntax_io::SignedCode;
using syntax_io::SyntaxReader;
using AvcWriter = syntax_io::SyntaxWriter<SignedCode::kStandardMapping>;

// Profiles whose SPS carries chroma_format_idc, bit depths and scaling matrices. 134, 135, 138
// and 139 are deliberately not in the list.
constexpr int32_t kHighProfiles[] = {44, 83, 86, 100, 110, 118, 122, 128, 244};

bool isHighProfile(int32_t profileIdc) {
  return std::find(std::begin(kHighProfiles), std::end(kHighProfiles), profileIdc) != std::end(kHighProfiles);
}

// 7.3.2.1.1.1 scaling_list(): readers keep scale values, writers code the entries as deltas.
template <class Io>
void scalingList(Io& io, int32_t* list, int32_t size, int32_t& useDefault, const char* name) {
  if constexpr (Io::kReading) {
    int32_t lastScale = 8, nextScale = 8;
    for (int32_t j = 0; j < size; ++j) {
      if (nextScale != 0) {
        int32_t deltaScale = 0;
        io.se(deltaScale, "delta_scale", Range{-128, 127});
        nextScale = static_cast<int32_t>((static_cast<uint32_t>(lastScale) + static_cast<uint32_t>(deltaScale) + 256u) % 256u);
        useDefault = (j == 0 && nextScale == 0);
      }
      list[j] = nextScale == 0 ? lastScale : nextScale;
      lastScale = list[j];
    }
  } else if constexpr (Io::kWriting) {
    write_scaling_list(io.s, list, size, useDefault);
  } else {
    for (int32_t j = 0; j < size; ++j) io.u(8, list[j], name);
  }
}

template <class Io>
void scalingMatrix(Io& io, AVC_SCALING_MATRIX& m, int32_t lists) {
  for (int32_t i = 0; i < std::min(lists, 12); ++i) {
    QV_FLAG(m.scaling_list_present_flag[i]);
    if (!m.scaling_list_present_flag[i]) continue;
    if (i < 6)
      scalingList(io, m.ScalingList4x4[i], 16, m.UseDefaultScalingMatrix4x4Flag[i], "ScalingList4x4");
    else
      scalingList(io, m.ScalingList8x8[i - 6], 64, m.UseDefaultScalingMatrix8x8Flag[i - 6], "ScalingList8x8");
  }
}

// E.1.2 hrd_parameters(): read through the shared 8-entry reader.
template <class Io>
void hrdParameters(Io& io, hdr_parameters& h) {
  if constexpr (Io::kReading) {
    // Walk the same elements on a copy first: the shared reader limits cpb_cnt_minus1 to 7 and
    // keeps no zero count, so neither range could be checked after it.
    zr_bitstream ahead = *io.s;
    SyntaxReader peek{&ahead};
    uint32_t count = 0, value = 0;
    peek.ue(count, "cpb_cnt_minus1", Range{0, 31});
    SkipBits(&ahead, 8);  // bit_rate_scale, cpb_size_scale
    for (uint32_t i = 0; i <= std::min(count, 7u) && !peek.failed; ++i) {
      peek.ue(value, "bit_rate_value_minus1", Range{0, kUeMax});
      peek.ue(value, "cpb_size_value_minus1", Range{0, kUeMax});
      SkipBits(&ahead, 1);  // cbr_flag
    }
    read_hrd_parameters(&h, io.s);
    if (peek.failed) {
      if (!io.failed) io.refused = peek.refused;
      io.failed = true;
      h.cpb_cnt_minus1 = 0;
    }
  } else if constexpr (Io::kWriting) {
    if (!Range{0, 31}.holds(h.cpb_cnt_minus1)) io.failed = true;
    for (int32_t i = 0; i <= bounded(h.cpb_cnt_minus1, 7); ++i)
      if (!Range{0, kUeMax}.holds(h.cpb[i].bit_rate_value_minus1) || !Range{0, kUeMax}.holds(h.cpb[i].cpb_size_value_minus1))
        io.failed = true;
    write_hrd_parameters(&h, io.s);
  } else {
    QV_UE(h.cpb_cnt_minus1);
    QV_U(4, h.bit_rate_scale);
    QV_U(4, h.cpb_size_scale);
    for (int32_t i = 0; i <= bounded(h.cpb_cnt_minus1, 7); ++i) {
      QV_UE(h.cpb[i].bit_rate_value_minus1);
      QV_UE(h.cpb[i].cpb_size_value_minus1);
      QV_FLAG(h.cpb[i].cbr_flag);
    }
    QV_U(5, h.initial_cpb_removal_delay_length_minus1);
    QV_U(5, h.cpb_removal_delay_length_minus1);
    QV_U(5, h.dpb_output_delay_length_minus1);
    QV_U(5, h.time_offset_length);
  }
}

// E.1.1 vui_parameters()
template <class Io>
void vuiParameters(Io& io, AVC_VUI_PARAMETERS& v) {
  QV_FLAG(v.aspect_ratio_info_present_flag);
  if (v.aspect_ratio_info_present_flag) {
    QV_U(8, v.aspect_ratio_idc);
    if (v.aspect_ratio_idc == 255) {  // Extended_SAR
      QV_U(16, v.sar_width);
      QV_U(16, v.sar_height);
    }
  }
  QV_FLAG(v.overscan_info_present_flag);
  if (v.overscan_info_present_flag) QV_FLAG(v.overscan_appropriate_flag);
  QV_FLAG(v.video_signal_type_present_flag);
  if (v.video_signal_type_present_flag) {
    QV_U(3, v.video_format);
    QV_FLAG(v.video_full_range_flag);
    QV_FLAG(v.colour_description_present_flag);
    if (v.colour_description_present_flag) {
      QV_U(8, v.colour_primaries);
      QV_U(8, v.transfer_characteristics);
      QV_U(8, v.matrix_coefficients);
    }
  }
  QV_FLAG(v.chroma_loc_info_present_flag);
  if (v.chroma_loc_info_present_flag) {
    QV_UE_IN(v.chroma_sample_loc_type_top_field, 0, 5);
    QV_UE_IN(v.chroma_sample_loc_type_bottom_field, 0, 5);
  }
  QV_FLAG(v.timing_info_present_flag);
  if (v.timing_info_present_flag) {
    QV_U(32, v.num_units_in_tick);
    QV_U(32, v.time_scale);
    QV_FLAG(v.fixed_frame_rate_flag);
  }
  QV_FLAG(v.nal_hrd_parameters_present_flag);
  if (v.nal_hrd_parameters_present_flag) hrdParameters(io, v.nal_hrd);
  QV_FLAG(v.vcl_hrd_parameters_present_flag);
  if (v.vcl_hrd_parameters_present_flag) hrdParameters(io, v.vcl_hrd);
  if (v.nal_hrd_parameters_present_flag || v.vcl_hrd_parameters_present_flag) QV_FLAG(v.low_delay_hrd_flag);
  QV_FLAG(v.pic_struct_present_flag);
  QV_FLAG(v.bitstream_restriction_flag);
  if (v.bitstream_restriction_flag) {
    QV_FLAG(v.motion_vectors_over_pic_boundaries_flag);
    QV_UE_IN(v.max_bytes_per_pic_denom, 0, 16);
    QV_UE_IN(v.max_bits_per_mb_denom, 0, 16);
    QV_UE_IN(v.log2_max_mv_length_horizontal, 0, 16);  // 16: earlier editions
    QV_UE_IN(v.log2_max_mv_length_vertical, 0, 16);
    QV_UE_IN(v.max_num_reorder_frames, 0, kMaxDpbFrames);
    QV_UE_IN(v.max_dec_frame_buffering, 0, kMaxDpbFrames);
  }
}

template <class Io>
void nalHeader(Io& io, int32_t& forbidden_zero_bit, int32_t& nal_ref_idc, int32_t& nal_unit_type) {
  QV_FLAG(forbidden_zero_bit);
  QV_U(2, nal_ref_idc);
  QV_U(5, nal_unit_type);
}

// 7.3.2.1.1 seq_parameter_set_data(), NAL header first.
template <class Io>
void spsBody(Io& io, SPS_DECODED& s) {
  nalHeader(io, s.forbidden_zero_bit, s.nal_ref_idc, s.nal_unit_type);
  QV_U(8, s.profile_idc);
  QV_FLAG(s.constraint_set0_flag);
  QV_FLAG(s.constraint_set1_flag);
  QV_FLAG(s.constraint_set2_flag);
  QV_FLAG(s.constraint_set3_flag);
  QV_FLAG(s.constraint_set4_flag);
  QV_FLAG(s.constraint_set5_flag);
  QV_U(2, s.reserved_zero_2bits);
  QV_U(8, s.level_idc);
  QV_UE_IN(s.seq_parameter_set_id, 0, 31);
  if (isHighProfile(s.profile_idc)) {
    QV_UE_IN(s.chroma_format_idc, 0, 3);
    if (s.chroma_format_idc == 3) QV_FLAG(s.separate_colour_plane_flag);
    QV_UE_IN(s.bit_depth_luma_minus8, 0, 6);
    QV_UE_IN(s.bit_depth_chroma_minus8, 0, 6);
    QV_FLAG(s.qpprime_y_zero_transform_bypass_flag);
    QV_FLAG(s.seq_scaling_matrix_present_flag);
    if (s.seq_scaling_matrix_present_flag) scalingMatrix(io, s.seq_scaling, s.chroma_format_idc != 3 ? 8 : 12);
  } else if (Io::kReading) {
    s.chroma_format_idc = 1;  // inferred 4:2:0
  }
  QV_UE_IN(s.log2_max_frame_num_minus4, 0, 12);
  QV_UE_IN(s.pic_order_cnt_type, 0, 2);
  if (s.pic_order_cnt_type == 0) {
    QV_UE_IN(s.log2_max_pic_order_cnt_lsb_minus4, 0, 12);
  } else if (s.pic_order_cnt_type == 1) {
    QV_FLAG(s.delta_pic_order_always_zero_flag);
    QV_SE_IN(s.offset_for_non_ref_pic, -kSeMax, kSeMax);
    QV_SE_IN(s.offset_for_top_to_bottom_field, -kSeMax, kSeMax);
    QV_UE_IN(s.num_ref_frames_in_pic_order_cnt_cycle, 0, 255);
    for (int32_t i = 0; i < bounded(s.num_ref_frames_in_pic_order_cnt_cycle, 256); ++i) QV_SE_IN(s.offset_for_ref_frame[i], -kSeMax, kSeMax);
  }
  QV_UE_IN(s.max_num_ref_frames, 0, kMaxDpbFrames);
  QV_FLAG(s.gaps_in_frame_num_value_allowed_flag);
  QV_UE_IN(s.pic_width_in_mbs_minus1, 0, kInt32Max);
  QV_UE_IN(s.pic_height_in_map_units_minus1, 0, kInt32Max);
  QV_FLAG(s.frame_mbs_only_flag);
  if (!s.frame_mbs_only_flag) QV_FLAG(s.mb_adaptive_frame_field_flag);
  QV_FLAG(s.direct_8x8_inference_flag);
  QV_FLAG(s.frame_cropping_flag);
  if (s.frame_cropping_flag) {
    QV_UE_IN(s.frame_crop_left_offset, 0, kInt32Max);
    QV_UE_IN(s.frame_crop_right_offset, 0, kInt32Max);
    QV_UE_IN(s.frame_crop_top_offset, 0, kInt32Max);
    QV_UE_IN(s.frame_crop_bottom_offset, 0, kInt32Max);
  }
  QV_FLAG(s.vui_parameters_present_flag);
  if (s.vui_parameters_present_flag) vuiParameters(io, s.vui);
}

// The PPS fields after redundant_pic_cnt_present_flag (present when more RBSP data follows).
template <class Io>
void ppsTail(Io& io, PPS_DECODED& p) {
  QV_FLAG(p.transform_8x8_mode_flag);
  QV_FLAG(p.pic_scaling_matrix_present_flag);
  // 6 + (chroma_format_idc != 3 ? 2 : 6) * transform_8x8_mode_flag; the PPS alone cannot know
  // the chroma format, so 4:2:0/4:2:2 is assumed.
  if (p.pic_scaling_matrix_present_flag) scalingMatrix(io, p.pic_scaling, 6 + (p.transform_8x8_mode_flag ? 2 : 0));
  QV_SE_IN(p.second_chroma_qp_index_offset, -12, 12);
}

// 7.3.2.2 pic_parameter_set_rbsp() through redundant_pic_cnt_present_flag, NAL header first.
template <class Io>
void ppsBody(Io& io, PPS_DECODED& p) {
  nalHeader(io, p.forbidden_zero_bit, p.nal_ref_idc, p.nal_unit_type);
  QV_UE_IN(p.pic_parameter_set_id, 0, 255);
  QV_UE_IN(p.seq_parameter_set_id, 0, 31);
  QV_FLAG(p.entropy_coding_mode_flag);
  QV_FLAG(p.bottom_field_pic_order_in_frame_present_flag);
  QV_UE_IN(p.num_slice_groups_minus1, 0, 7);
  if (p.num_slice_groups_minus1 > 0) {
    QV_UE_IN(p.slice_group_map_type, 0, 6);
    const int32_t groups = bounded(p.num_slice_groups_minus1, 7);
    if (p.slice_group_map_type == 0) {
      for (int32_t g = 0; g <= groups; ++g) QV_UE_IN(p.run_length_minus1[g], 0, kInt32Max);
    } else if (p.slice_group_map_type == 2) {
      for (int32_t g = 0; g < groups; ++g) {
        QV_UE_IN(p.top_left[g], 0, kInt32Max);
        QV_UE_IN(p.bottom_right[g], 0, kInt32Max);
      }
    } else if (p.slice_group_map_type >= 3 && p.slice_group_map_type <= 5) {
      QV_FLAG(p.slice_group_change_direction_flag);
      QV_UE_IN(p.slice_group_change_rate_minus1, 0, kInt32Max);
    } else if (p.slice_group_map_type == 6) {
      QV_UE_IN(p.pic_size_in_map_units_minus1, 0, kInt32Max);
      const int bits = zrintlog2(p.num_slice_groups_minus1 + 1);
      for (int32_t i = 0; i <= bounded(p.pic_size_in_map_units_minus1, kAvcMaxSliceGroupIds - 1) && io.more(); ++i)
        QV_U(bits, p.slice_group_id[i]);
    }
  }
  QV_UE_IN(p.num_ref_idx_l0_default_active_minus1, 0, 31);
  QV_UE_IN(p.num_ref_idx_l1_default_active_minus1, 0, 31);
  QV_FLAG(p.weighted_pred_flag);
  QV_U(2, p.weighted_bipred_idc);
  QV_SE_IN(p.pic_init_qp_minus26, -(26 + kMaxQpBdOffset), 25);
  QV_SE_IN(p.pic_init_qs_minus26, -26, 25);
  QV_SE_IN(p.chroma_qp_index_offset, -12, 12);
  QV_FLAG(p.deblocking_filter_control_present_flag);
  QV_FLAG(p.constrained_intra_pred_flag);
  QV_FLAG(p.redundant_pic_cnt_present_flag);
}

// The common reader frame: private unescaped copy in place of the caller's buffer, body, stop
// bit and alignment. `bodyAndTail(reader)` reads everything up to the stop bit.
template <class Record, class Body>
uint32_t readUnit(zr_bitstream* s, Record* record, bool isPps, Body&& bodyAndTail) {
  if (!record) return 0;
  if (!s || s->size <= 0 || !s->buffer) return 0;
  const size_t size = static_cast<size_t>(s->size);
  std::vector<uint8_t> copy;
  try {
    copy.assign(std::max<uint64_t>(size, s->length / 8 + 1) + 8, 0);
  } catch (const std::bad_alloc&) {
    return 0;
  }
  std::memcpy(copy.data(), s->buffer, size);
  size_t unescaped = size;
  if (isPps && size > 5)
    rbsp::removeAvcEmulationPrevention(copy.data(), unescaped, true, 2);
  else if (!isPps && size > 6)
    rbsp::removeAvcEmulationPrevention(copy.data(), unescaped, false, 4);

  std::memset(static_cast<void*>(record), 0, sizeof *record);
  uint8_t* callerBuffer = s->buffer;
  s->buffer = copy.data();
  SyntaxReader reader{s};
  const uint64_t start = s->position;
  bodyAndTail(reader);
  if (reader.failed) {  // a value outside its legal range: nothing is taken from the unit
    s->buffer = callerBuffer;
    s->position = start;
    return 0;
  }
  record->rbsp_stop_one_bit = static_cast<int32_t>(ReadBit(s));
  while (s->position % 8 != 0)
    if (ReadBit(s) == 0xFFFFFFFFu) break;
  s->buffer = callerBuffer;
  return static_cast<uint32_t>(s->position / 8);
}

// The common writer frame: a working buffer of twice the output's size, the body, trailing
// bits, then the bytes copied out with emulation prevention.
template <class Body>
uint32_t writeUnit(zr_bitstream* out, Body&& body) {
  if (!out || !out->buffer) return 0;
  const uint64_t outBytes = out->size > 0 ? static_cast<uint64_t>(out->size) : (out->length + 7) / 8;
  std::vector<uint8_t> work, escaped;
  try {
    work.assign(std::max<uint64_t>(2 * outBytes, 16), 0);
  } catch (const std::bad_alloc&) {
    return static_cast<uint32_t>(out->position / 8);
  }
  zr_bitstream w{work.data(), static_cast<int64_t>(work.size()), work.size() * 8, 0};
  AvcWriter writer{&w};
  body(writer);
  if (writer.failed) return static_cast<uint32_t>(out->position / 8);  // refused: nothing written
  WriteBit(&w, 1);  // rbsp_stop_one_bit
  while (w.position % 8) WriteBit(&w, 0);
  const size_t bytes = std::min<size_t>(w.position / 8, work.size());
  escaped.resize(bytes + bytes / 2 + 1);
  const size_t n = rbsp::addEmulationPrevention(work.data(), bytes, escaped.data());
  for (size_t i = 0; i < n; ++i) WriteBits(out, 8, escaped[i]);
  return static_cast<uint32_t>(out->position / 8);
}

struct ElementForwarder {
  klxutilParamElementSink sink;
  void* user;
  void operator()(std::string_view name, int64_t value, int bits) const {
    char text[96];
    size_t n = std::min(name.size(), sizeof text - 1);
    std::memcpy(text, name.data(), n);
    text[n] = 0;
    sink(user, text, value, bits);
  }
};

}  // namespace

uint32_t klxutilRead_SPS(zr_bitstream* s, SPS_DECODED* sps) {
  return readUnit(s, sps, false, [&](SyntaxReader& io) { spsBody(io, *sps); });
}

uint32_t klxutilRead_PPS(zr_bitstream* s, PPS_DECODED* pps) {
  return readUnit(s, pps, true, [&](SyntaxReader& io) {
    ppsBody(io, *pps);
    // more_rbsp_data(): any 1 among the next seven bits (offsets 1..7) means more fields follow.
    int32_t more = pps->more_rbsp_data_flag;
    for (int32_t offset = 1; offset <= 7 && io.s->position + static_cast<uint64_t>(offset) < io.s->length; ++offset)
      if (PeekBit(io.s, offset) == 1) more = 1;
    if (!more) return;
    pps->more_rbsp_data_flag = 1;
    ppsTail(io, *pps);
  });
}

uint32_t klxutilWrite_SPS(zr_bitstream* out, SPS_DECODED* sps) {
  if (!sps) return out ? static_cast<uint32_t>(out->position / 8) : 0;
  return writeUnit(out, [&](AvcWriter& io) { spsBody(io, *sps); });
}

uint32_t klxutilWrite_PPS(zr_bitstream* out, PPS_DECODED* pps) {
  if (!pps) return out ? static_cast<uint32_t>(out->position / 8) : 0;
  return writeUnit(out, [&](AvcWriter& io) {
    ppsBody(io, *pps);
    if (pps->more_rbsp_data_flag) ppsTail(io, *pps);
  });
}

void klxutilScalingListToDeltas(const int32_t* scale, int32_t size, int32_t* deltas) {
  int32_t last = 8;
  for (int32_t j = 0; j < size; ++j) {
    const int32_t value = scale[j];  // deltas may be the same array
    int32_t d = ((value - last) % 256 + 256) % 256;  // 0..255
    deltas[j] = d > 127 ? d - 256 : d;               // -128..127
    last = value;
  }
}

void klxutilList_SPS(const SPS_DECODED* sps, klxutilParamElementSink sink, void* user) {
  if (!sps || !sink) return;
  ElementForwarder forward{sink, user};
  syntax_io::SyntaxLister<ElementForwarder> io{forward};
  spsBody(io, const_cast<SPS_DECODED&>(*sps));  // listing never modifies the record
}

void klxutilList_PPS(const PPS_DECODED* pps, klxutilParamElementSink sink, void* user) {
  if (!pps || !sink) return;
  ElementForwarder forward{sink, user};
  syntax_io::SyntaxLister<ElementForwarder> io{forward};
  auto& p = const_cast<PPS_DECODED&>(*pps);
  ppsBody(io, p);
  if (p.more_rbsp_data_flag) ppsTail(io, p);
}
