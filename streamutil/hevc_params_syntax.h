// Internal: the HEVC parameter-set syntax of ITU-T H.265, described once for both directions
// (see syntax_io.h). Each function follows its clause line by line; where reading and writing
// deliberately differ (forced fields, extensions written but not read) the branch says so.
#pragma once
#include <cstdint>

#include "hevc_params.h"
#include "syntax_io.h"

namespace hevc_syntax {

using syntax_io::bounded;
using syntax_io::kInt32Max;
using syntax_io::kUeMax;
using syntax_io::widthOf;

// Bounds that the element ranges of ITU-T H.265 derive from: MaxDpbSize (A.4.2) is at most 16,
// CtbLog2SizeY at most 6 and MinCbLog2SizeY at least 3 (7.4.3.2.1), QpBdOffsetY at most 48
// (bit depths up to 16).
constexpr int64_t kMaxDpbSize = 16;
constexpr int64_t kMaxCtbLog2 = 6;
constexpr int64_t kMaxLog2DiffCtbMinCb = 3;
constexpr int64_t kMaxQpBdOffset = 48;

// 7.3.3 profile_tier_level(1, maxNumSubLayersMinus1)
template <class Io>
void profileTierLevel(Io& io, HEVC_PROFILE_TIER_LEVEL& p, int32_t maxNumSubLayersMinus1) {
  QV_U(2, p.general_profile_space);
  QV_FLAG(p.general_tier_flag);
  QV_U(5, p.general_profile_idc);
  QV_U(32, p.general_profile_compatibility_flags);
  QV_U64(48, p.general_constraint_indicator_flags);
  QV_U(8, p.general_level_idc);
  const int32_t subLayers = bounded(maxNumSubLayersMinus1, 7);
  for (int32_t i = 0; i < subLayers; ++i) {
    QV_FLAG(p.sub_layer_profile_present_flag[i]);
    QV_FLAG(p.sub_layer_level_present_flag[i]);
  }
  if (subLayers > 0)
    for (int32_t i = subLayers; i < 8; ++i) io.fixed(2, 0);  // reserved_zero_2bits
  for (int32_t i = 0; i < subLayers; ++i) {
    if (p.sub_layer_profile_present_flag[i]) {
      QV_U(2, p.sub_layer_profile_space[i]);
      QV_FLAG(p.sub_layer_tier_flag[i]);
      QV_U(5, p.sub_layer_profile_idc[i]);
      QV_U(32, p.sub_layer_profile_compatibility_flags[i]);
      QV_FLAG(p.sub_layer_progressive_source_flag[i]);
      QV_FLAG(p.sub_layer_interlaced_source_flag[i]);
      QV_FLAG(p.sub_layer_non_packed_constraint_flag[i]);
      QV_FLAG(p.sub_layer_frame_only_constraint_flag[i]);
      io.fixed(32, 0);  // 44 constraint/reserved bits: dropped on reading, zero on writing
      io.fixed(12, 0);
    }
    if (p.sub_layer_level_present_flag[i]) QV_U(8, p.sub_layer_level_idc[i]);
  }
}

// E.2.3 sub_layer_hrd_parameters()
template <class Io>
void subLayerHrd(Io& io, HEVC_SUB_LAYER_HRD& h, int32_t cpbCount, int32_t subPicParams) {
  io.clearBeforeReading(h);
  const int32_t entries = bounded(cpbCount, 32);
  for (int32_t i = 0; i < entries && io.more(); ++i) {
    QV_UE_IN(h.bit_rate_value_minus1[i], 0, kUeMax);
    QV_UE_IN(h.cpb_size_value_minus1[i], 0, kUeMax);
    if (subPicParams) {
      QV_UE_IN(h.cpb_size_du_value_minus1[i], 0, kUeMax);
      QV_UE_IN(h.bit_rate_du_value_minus1[i], 0, kUeMax);
    }
    QV_FLAG(h.cbr_flag[i]);
  }
}

// E.2.2 hrd_parameters(commonInfPresentFlag, maxNumSubLayersMinus1)
template <class Io>
void hrdParameters(Io& io, HEVC_HRD_PARAMETERS& h, int32_t commonInfPresent, int32_t maxNumSubLayersMinus1) {
  if (commonInfPresent) {
    QV_FLAG(h.nal_hrd_parameters_present_flag);
    QV_FLAG(h.vcl_hrd_parameters_present_flag);
    if (h.nal_hrd_parameters_present_flag || h.vcl_hrd_parameters_present_flag) {
      QV_FLAG(h.sub_pic_hrd_params_present_flag);
      if (h.sub_pic_hrd_params_present_flag) {
        QV_U(8, h.tick_divisor_minus2);
        QV_U(5, h.du_cpb_removal_delay_increment_length_minus1);
        QV_FLAG(h.sub_pic_cpb_params_in_pic_timing_sei_flag);
        QV_U(5, h.dpb_output_delay_du_length_minus1);
      }
      QV_U(4, h.bit_rate_scale);
      QV_U(4, h.cpb_size_scale);
      if (h.sub_pic_hrd_params_present_flag) QV_U(4, h.cpb_size_du_scale);
      QV_U(5, h.initial_cpb_removal_delay_length_minus1);
      QV_U(5, h.au_cpb_removal_delay_length_minus1);
      QV_U(5, h.dpb_output_delay_length_minus1);
    }
  }
  for (int32_t i = 0; i <= bounded(maxNumSubLayersMinus1, 7); ++i) {
    QV_FLAG(h.fixed_pic_rate_general_flag[i]);
    if (!h.fixed_pic_rate_general_flag[i])
      QV_FLAG(h.fixed_pic_rate_within_cvs_flag[i]);
    else if (Io::kReading)
      h.fixed_pic_rate_within_cvs_flag[i] = 1;
    const bool withinCvs = h.fixed_pic_rate_general_flag[i] || h.fixed_pic_rate_within_cvs_flag[i];
    if (withinCvs)
      QV_UE_IN(h.elemental_duration_in_tc_minus1[i], 0, 2047);
    else
      QV_FLAG(h.low_delay_hrd_flag[i]);
    const bool lowDelay = !withinCvs && h.low_delay_hrd_flag[i];
    if (!lowDelay) QV_UE_IN(h.cpb_cnt_minus1[i], 0, 31);
    const int32_t cpbCount = lowDelay ? 1 : h.cpb_cnt_minus1[i] + 1;
    if (h.nal_hrd_parameters_present_flag)
      subLayerHrd(io, h.nal_sub_layer[i], cpbCount, h.sub_pic_hrd_params_present_flag);
    if (h.vcl_hrd_parameters_present_flag)
      subLayerHrd(io, h.vcl_sub_layer[i], cpbCount, h.sub_pic_hrd_params_present_flag);
  }
}

// 7.3.4 scaling_list_data()
template <class Io>
void scalingListData(Io& io, HEVC_SCALING_LIST_DATA& d) {
  io.clearBeforeReading(d);
  for (int sizeId = 0; sizeId < 4; ++sizeId) {
    for (int matrixId = 0; matrixId < 6; matrixId += (sizeId == 3) ? 3 : 1) {
      QV_FLAG(d.scaling_list_pred_mode_flag[sizeId][matrixId]);
      if (!d.scaling_list_pred_mode_flag[sizeId][matrixId]) {
        QV_UE_IN(d.scaling_list_pred_matrix_id_delta[sizeId][matrixId], 0, sizeId == 3 ? matrixId / 3 : matrixId);
        continue;
      }
      const int coefNum = sizeId == 0 ? 16 : 64;
      if (sizeId > 1) QV_SE_IN(d.scaling_list_dc_coef_minus8[sizeId][matrixId], -7, 247);
      for (int i = 0; i < coefNum; ++i) QV_SE_IN(d.scaling_list_delta_coef[sizeId][matrixId][i], -128, 127);
    }
  }
}

// The derived picture lists of a short-term set (7.4.8), needed to size the predicted form of
// the sets that follow. 64-bit so hostile deltas cannot overflow. Left uninitialised: a set's
// entry is filled before any later set reads it, and only its first numNegative/numPositive
// deltas are ever read (clearing all 64 would cost more than reading a whole SPS).
struct RpsDerived {
  int32_t numNegative;
  int32_t numPositive;
  int64_t deltaPocS0[16];
  int64_t deltaPocS1[16];
};

// 7.3.7 st_ref_pic_set(stRpsIdx) as it appears in the SPS (stRpsIdx < num_short_term_ref_pic_sets).
template <class Io>
void stRefPicSet(Io& io, HEVC_ST_REF_PIC_SET* sets, RpsDerived* derived, int32_t idx, int64_t maxDecPicBufferingMinus1) {
  HEVC_ST_REF_PIC_SET& r = sets[idx];
  RpsDerived& out = derived[idx];
  io.clearBeforeReading(r);
  if (idx != 0) QV_FLAG(r.inter_ref_pic_set_prediction_flag);
  if (idx != 0 && r.inter_ref_pic_set_prediction_flag) {
    QV_FLAG(r.delta_rps_sign);
    QV_UE_IN(r.abs_delta_rps_minus1, 0, 32767);
    const RpsDerived& ref = derived[idx - 1];  // RefRpsIdx = stRpsIdx - (delta_idx_minus1 + 1), delta_idx_minus1 = 0
    const int32_t numDeltaPocs = ref.numNegative + ref.numPositive;
    for (int32_t j = 0; j <= numDeltaPocs; ++j) {
      QV_FLAG(r.used_by_curr_pic_flag[j]);
      if (!r.used_by_curr_pic_flag[j])
        QV_FLAG(r.use_delta_flag[j]);
      else if (Io::kReading)
        r.use_delta_flag[j] = 1;
    }
    auto useDelta = [&](int32_t j) { return r.used_by_curr_pic_flag[j] || r.use_delta_flag[j]; };
    const int64_t deltaRps = (r.delta_rps_sign ? -1 : 1) * (int64_t{static_cast<uint32_t>(r.abs_delta_rps_minus1)} + 1);
    int32_t i = 0;
    for (int32_t j = ref.numPositive - 1; j >= 0 && i < 16; --j) {
      int64_t dPoc = ref.deltaPocS1[j] + deltaRps;
      if (dPoc < 0 && useDelta(ref.numNegative + j)) out.deltaPocS0[i++] = dPoc;
    }
    if (deltaRps < 0 && useDelta(numDeltaPocs) && i < 16) out.deltaPocS0[i++] = deltaRps;
    for (int32_t j = 0; j < ref.numNegative && i < 16; ++j) {
      int64_t dPoc = ref.deltaPocS0[j] + deltaRps;
      if (dPoc < 0 && useDelta(j)) out.deltaPocS0[i++] = dPoc;
    }
    out.numNegative = i;
    i = 0;
    for (int32_t j = ref.numNegative - 1; j >= 0 && i < 16; --j) {
      int64_t dPoc = ref.deltaPocS0[j] + deltaRps;
      if (dPoc > 0 && useDelta(j)) out.deltaPocS1[i++] = dPoc;
    }
    if (deltaRps > 0 && useDelta(numDeltaPocs) && i < 16) out.deltaPocS1[i++] = deltaRps;
    for (int32_t j = 0; j < ref.numPositive && i < 16; ++j) {
      int64_t dPoc = ref.deltaPocS1[j] + deltaRps;
      if (dPoc > 0 && useDelta(ref.numNegative + j)) out.deltaPocS1[i++] = dPoc;
    }
    out.numPositive = i;
    return;
  }
  QV_UE_IN(r.num_negative_pics, 0, maxDecPicBufferingMinus1);
  QV_UE_IN(r.num_positive_pics, 0, maxDecPicBufferingMinus1 - r.num_negative_pics);
  out.numNegative = bounded(r.num_negative_pics, 16);
  out.numPositive = bounded(r.num_positive_pics, 16);
  int64_t poc = 0;
  for (int32_t i = 0; i < out.numNegative; ++i) {
    QV_UE_IN(r.delta_poc_s0_minus1[i], 0, 32767);
    QV_FLAG(r.used_by_curr_pic_s0_flag[i]);
    poc -= int64_t{static_cast<uint32_t>(r.delta_poc_s0_minus1[i])} + 1;
    out.deltaPocS0[i] = poc;
  }
  poc = 0;
  for (int32_t i = 0; i < out.numPositive; ++i) {
    QV_UE_IN(r.delta_poc_s1_minus1[i], 0, 32767);
    QV_FLAG(r.used_by_curr_pic_s1_flag[i]);
    poc += int64_t{static_cast<uint32_t>(r.delta_poc_s1_minus1[i])} + 1;
    out.deltaPocS1[i] = poc;
  }
}

// E.2.1 vui_parameters()
template <class Io>
void vuiParameters(Io& io, HEVC_VUI_PARAMETERS& v, int32_t maxNumSubLayersMinus1) {
  QV_FLAG(v.aspect_ratio_info_present_flag);
  if (v.aspect_ratio_info_present_flag) {
    QV_U(8, v.aspect_ratio_idc);
    if (v.aspect_ratio_idc == 255) {  // EXTENDED_SAR
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
      QV_U(8, v.matrix_coeffs);
    }
  }
  QV_FLAG(v.chroma_loc_info_present_flag);
  if (v.chroma_loc_info_present_flag) {
    QV_UE_IN(v.chroma_sample_loc_type_top_field, 0, 5);
    QV_UE_IN(v.chroma_sample_loc_type_bottom_field, 0, 5);
  }
  QV_FLAG(v.neutral_chroma_indication_flag);
  QV_FLAG(v.field_seq_flag);
  QV_FLAG(v.frame_field_info_present_flag);
  QV_FLAG(v.default_display_window_flag);
  if (v.default_display_window_flag) {
    QV_UE_IN(v.def_disp_win_left_offset, 0, kInt32Max);
    QV_UE_IN(v.def_disp_win_right_offset, 0, kInt32Max);
    QV_UE_IN(v.def_disp_win_top_offset, 0, kInt32Max);
    QV_UE_IN(v.def_disp_win_bottom_offset, 0, kInt32Max);
  }
  QV_FLAG(v.vui_timing_info_present_flag);
  if (v.vui_timing_info_present_flag) {
    QV_U(32, v.vui_num_units_in_tick);
    QV_U(32, v.vui_time_scale);
    QV_FLAG(v.vui_poc_proportional_to_timing_flag);
    if (v.vui_poc_proportional_to_timing_flag) QV_UE_IN(v.vui_num_ticks_poc_diff_one_minus1, 0, kUeMax);
    QV_FLAG(v.vui_hrd_parameters_present_flag);
    if (v.vui_hrd_parameters_present_flag) hrdParameters(io, v.hrd, 1, maxNumSubLayersMinus1);
  }
  QV_FLAG(v.bitstream_restriction_flag);
  if (v.bitstream_restriction_flag) {
    QV_FLAG(v.tiles_fixed_structure_flag);
    QV_FLAG(v.motion_vectors_over_pic_boundaries_flag);
    QV_FLAG(v.restricted_ref_pic_lists_flag);
    QV_UE_IN(v.min_spatial_segmentation_idc, 0, 4095);
    QV_UE_IN(v.max_bytes_per_pic_denom, 0, 16);
    QV_UE_IN(v.max_bits_per_min_cu_denom, 0, 16);
    QV_UE_IN(v.log2_max_mv_length_horizontal, 0, 15);
    QV_UE_IN(v.log2_max_mv_length_vertical, 0, 15);
  }
}

enum class BodyResult { kOk, kExtensionSkipped, kReservedBits, kOutOfRange };

// 7.3.2.1 video_parameter_set_rbsp() up to the trailing bits.
template <class Io>
BodyResult vpsBody(Io& io, HEVC_VPS_DECODED& v) {
  QV_U(4, v.vps_video_parameter_set_id);
  if (io.fixed(2, 3) != 3) return BodyResult::kReservedBits;  // base_layer internal + available
  QV_U(6, v.vps_max_layers_minus1);
  QV_U(3, v.vps_max_sub_layers_minus1);
  QV_FLAG(v.vps_temporal_id_nesting_flag);
  QV_U(16, v.vps_reserved_0xffff_16bits);
  if (Io::kReading && v.vps_reserved_0xffff_16bits != 0xFFFF) return BodyResult::kReservedBits;
  profileTierLevel(io, v.ptl, v.vps_max_sub_layers_minus1);
  QV_FLAG(v.vps_sub_layer_ordering_info_present_flag);
  const int32_t maxSub = bounded(v.vps_max_sub_layers_minus1, 7);
  for (int32_t i = v.vps_sub_layer_ordering_info_present_flag ? 0 : maxSub; i <= maxSub; ++i) {
    QV_UE_IN(v.vps_max_dec_pic_buffering_minus1, 0, kMaxDpbSize - 1);
    QV_UE_IN(v.vps_max_num_reorder_pics, 0, v.vps_max_dec_pic_buffering_minus1);
    QV_UE_IN(v.vps_max_latency_increase_plus1, 0, kUeMax);
  }
  QV_U(6, v.vps_max_layer_id);
  QV_UE_IN(v.vps_num_layer_sets_minus1, 0, 1023);
  const uint32_t layerSets = static_cast<uint32_t>(v.vps_num_layer_sets_minus1);
  for (uint32_t i = 1; i <= layerSets && io.more(); ++i)
    for (int32_t j = 0; j <= bounded(v.vps_max_layer_id, 63); ++j) io.fixed(1, 1);  // layer_id_included_flag
  QV_FLAG(v.vps_timing_info_present_flag);
  if (v.vps_timing_info_present_flag) {
    QV_U(32, v.vps_num_units_in_tick);
    QV_U(32, v.vps_time_scale);
    QV_FLAG(v.vps_poc_proportional_to_timing_flag);
    if (v.vps_poc_proportional_to_timing_flag) {
      uint32_t vps_num_ticks_poc_diff_one_minus1 = v.vps_num_ticks_poc_diff_one - 1u;  // 0 wraps: refused
      QV_UE_IN(vps_num_ticks_poc_diff_one_minus1, 0, kUeMax);
      v.vps_num_ticks_poc_diff_one = vps_num_ticks_poc_diff_one_minus1 + 1u;
    }
    if constexpr (Io::kReading) {
      QV_UE_IN(v.vps_num_hrd_parameters, 0, v.vps_num_layer_sets_minus1 + 1);
      const uint32_t count = static_cast<uint32_t>(v.vps_num_hrd_parameters);
      for (uint32_t i = 0; i < count && io.more(); ++i) {
        QV_UE_IN(v.hrd_layer_set_idx, 0, v.vps_num_layer_sets_minus1);
        if (i > 0)
          QV_FLAG(v.cprms_present_flag);
        else
          v.cprms_present_flag = 1;
        HEVC_HRD_PARAMETERS notKept{};  // read for its length and ranges only
        hrdParameters(io, notKept, v.cprms_present_flag, v.vps_max_sub_layers_minus1);
      }
    } else if constexpr (Io::kWriting) {
      v.vps_num_hrd_parameters = 0;  // forced, in the caller's record too
      io.fixedUe(0);
    } else {
      QV_UE_IN(v.vps_num_hrd_parameters, 0, v.vps_num_layer_sets_minus1 + 1);
    }
  }
  if constexpr (Io::kWriting)
    io.fixed(1, 0);
  else
    QV_FLAG(v.vps_extension_flag);
  return BodyResult::kOk;
}

// 7.3.2.2 seq_parameter_set_rbsp() up to the trailing bits.
template <class Io>
BodyResult spsBody(Io& io, HEVC_SPS_DECODED& s, HEVC_DECODED* summary);

// 7.3.2.3.1 pic_parameter_set_rbsp() up to pps_extension_present_flag.
template <class Io>
BodyResult ppsBody(Io& io, HEVC_PPS_DECODED& p) {
  QV_UE_IN(p.pps_pic_parameter_set_id, 0, 63);
  QV_UE_IN(p.pps_seq_parameter_set_id, 0, 15);
  QV_FLAG(p.dependent_slice_segments_enabled_flag);
  QV_FLAG(p.output_flag_present_flag);
  QV_U(3, p.num_extra_slice_header_bits);
  QV_FLAG(p.sign_data_hiding_enabled_flag);
  QV_FLAG(p.cabac_init_present_flag);
  QV_UE_IN(p.num_ref_idx_l0_default_active_minus1, 0, 14);
  QV_UE_IN(p.num_ref_idx_l1_default_active_minus1, 0, 14);
  QV_SE_IN(p.init_qp_minus26, -(26 + kMaxQpBdOffset), 25);
  QV_FLAG(p.constrained_intra_pred_flag);
  QV_FLAG(p.transform_skip_enabled_flag);
  QV_FLAG(p.cu_qp_delta_enabled_flag);
  if (p.cu_qp_delta_enabled_flag) QV_UE_IN(p.diff_cu_qp_delta_depth, 0, kMaxLog2DiffCtbMinCb);
  QV_SE_IN(p.pps_cb_qp_offset, -12, 12);
  QV_SE_IN(p.pps_cr_qp_offset, -12, 12);
  QV_FLAG(p.pps_slice_chroma_qp_offsets_present_flag);
  QV_FLAG(p.weighted_pred_flag);
  QV_FLAG(p.weighted_bipred_flag);
  QV_FLAG(p.transquant_bypass_enabled_flag);
  QV_FLAG(p.tiles_enabled_flag);
  QV_FLAG(p.entropy_coding_sync_enabled_flag);
  if (p.tiles_enabled_flag) {
    QV_UE_IN(p.num_tile_columns_minus1, 0, kInt32Max);
    QV_UE_IN(p.num_tile_rows_minus1, 0, kInt32Max);
    QV_FLAG(p.uniform_spacing_flag);
    if (!p.uniform_spacing_flag) {
      for (int32_t i = 0; i < bounded(p.num_tile_columns_minus1, 64); ++i) QV_UE_IN(p.column_width_minus1[i], 0, kInt32Max);
      for (int32_t i = 0; i < bounded(p.num_tile_rows_minus1, 64); ++i) QV_UE_IN(p.row_height_minus1[i], 0, kInt32Max);
    }
    QV_FLAG(p.loop_filter_across_tiles_enabled_flag);
  }
  QV_FLAG(p.pps_loop_filter_across_slices_enabled_flag);
  QV_FLAG(p.deblocking_filter_control_present_flag);
  if (p.deblocking_filter_control_present_flag) {
    QV_FLAG(p.deblocking_filter_override_enabled_flag);
    QV_FLAG(p.pps_deblocking_filter_disabled_flag);
    if (!p.pps_deblocking_filter_disabled_flag) {
      QV_SE_IN(p.pps_beta_offset_div2, -6, 6);
      QV_SE_IN(p.pps_tc_offset_div2, -6, 6);
    }
  }
  QV_FLAG(p.pps_scaling_list_data_present_flag);
  if (p.pps_scaling_list_data_present_flag) scalingListData(io, p.scaling_list);
  QV_FLAG(p.lists_modification_present_flag);
  QV_UE_IN(p.log2_parallel_merge_level_minus2, 0, kMaxCtbLog2 - 2);
  QV_FLAG(p.slice_segment_header_extension_present_flag);
  QV_FLAG(p.pps_extension_present_flag);
  return BodyResult::kOk;
}

template <class Io>
BodyResult spsBody(Io& io, HEVC_SPS_DECODED& s, HEVC_DECODED*) {
  QV_U(4, s.sps_video_parameter_set_id);
  QV_U(3, s.sps_max_sub_layers_minus1);
  QV_FLAG(s.sps_temporal_id_nesting_flag);
  profileTierLevel(io, s.ptl, s.sps_max_sub_layers_minus1);
  QV_UE_IN(s.sps_seq_parameter_set_id, 0, 15);
  QV_UE_IN(s.chroma_format_idc, 0, 3);
  if (s.chroma_format_idc == 3) QV_FLAG(s.separate_colour_plane_flag);
  QV_UE_IN(s.pic_width_in_luma_samples, 1, kInt32Max);
  QV_UE_IN(s.pic_height_in_luma_samples, 1, kInt32Max);
  QV_FLAG(s.conformance_window_flag);
  if (s.conformance_window_flag) {
    QV_UE_IN(s.conf_win_left_offset, 0, kInt32Max);
    QV_UE_IN(s.conf_win_right_offset, 0, kInt32Max);
    QV_UE_IN(s.conf_win_top_offset, 0, kInt32Max);
    QV_UE_IN(s.conf_win_bottom_offset, 0, kInt32Max);
  }
  QV_UE_IN(s.bit_depth_luma_minus8, 0, 8);
  QV_UE_IN(s.bit_depth_chroma_minus8, 0, 8);
  QV_UE_IN(s.log2_max_pic_order_cnt_lsb_minus4, 0, 12);
  QV_FLAG(s.sps_sub_layer_ordering_info_present_flag);
  const int32_t maxSub = bounded(s.sps_max_sub_layers_minus1, 7);
  for (int32_t i = s.sps_sub_layer_ordering_info_present_flag ? 0 : maxSub; i <= maxSub; ++i) {
    QV_UE_IN(s.sps_max_dec_pic_buffering_minus1[i], 0, kMaxDpbSize - 1);
    QV_UE_IN(s.sps_max_num_reorder_pics[i], 0, s.sps_max_dec_pic_buffering_minus1[i]);
    QV_UE_IN(s.sps_max_latency_increase_plus1[i], 0, kUeMax);
  }
  QV_UE_IN(s.log2_min_luma_coding_block_size_minus3, 0, kMaxCtbLog2 - 3);
  QV_UE_IN(s.log2_diff_max_min_luma_coding_block_size, 0, kMaxLog2DiffCtbMinCb);
  QV_UE_IN(s.log2_min_luma_transform_block_size_minus2, 0, 3);
  QV_UE_IN(s.log2_diff_max_min_luma_transform_block_size, 0, 3);
  QV_UE_IN(s.max_transform_hierarchy_depth_inter, 0, kMaxCtbLog2 - 2);
  QV_UE_IN(s.max_transform_hierarchy_depth_intra, 0, kMaxCtbLog2 - 2);
  QV_FLAG(s.scaling_list_enabled_flag);
  if (s.scaling_list_enabled_flag) {
    QV_FLAG(s.sps_scaling_list_data_present_flag);
    if (s.sps_scaling_list_data_present_flag) scalingListData(io, s.scaling_list);
  }
  QV_FLAG(s.amp_enabled_flag);
  QV_FLAG(s.sample_adaptive_offset_enabled_flag);
  QV_FLAG(s.pcm_enabled_flag);
  if (s.pcm_enabled_flag) {
    QV_U(4, s.pcm_sample_bit_depth_luma_minus1);
    QV_U(4, s.pcm_sample_bit_depth_chroma_minus1);
    QV_UE_IN(s.log2_min_pcm_luma_coding_block_size_minus3, 0, 2);
    QV_UE_IN(s.log2_diff_max_min_pcm_luma_coding_block_size, 0, 2);
    QV_FLAG(s.pcm_loop_filter_disabled_flag);
  }
  QV_UE_IN(s.num_short_term_ref_pic_sets, 0, 64);
  RpsDerived derived[64];
  const int64_t dpbMinus1 = s.sps_max_dec_pic_buffering_minus1[maxSub];
  for (int32_t i = 0; i < bounded(s.num_short_term_ref_pic_sets, 64) && io.more(); ++i)
    stRefPicSet(io, s.st_ref_pic_set, derived, i, dpbMinus1);
  QV_FLAG(s.long_term_ref_pics_present_flag);
  if (s.long_term_ref_pics_present_flag) {
    QV_UE_IN(s.num_long_term_ref_pics_sps, 0, 32);
    const int lsbBits = widthOf(s.log2_max_pic_order_cnt_lsb_minus4 + 4);
    for (int32_t i = 0; i < bounded(s.num_long_term_ref_pics_sps, 32); ++i) {
      QV_U(lsbBits, s.lt_ref_pic_poc_lsb_sps[i]);
      QV_FLAG(s.used_by_curr_pic_lt_sps_flag[i]);
    }
  }
  QV_FLAG(s.sps_temporal_mvp_enabled_flag);
  QV_FLAG(s.strong_intra_smoothing_enabled_flag);
  QV_FLAG(s.vui_parameters_present_flag);
  if (s.vui_parameters_present_flag) vuiParameters(io, s.vui, s.sps_max_sub_layers_minus1);
  QV_FLAG(s.sps_extension_present_flag);
  if (!s.sps_extension_present_flag) return BodyResult::kOk;
  QV_FLAG(s.sps_range_extension_flag);
  QV_FLAG(s.sps_multilayer_extension_flag);
  QV_FLAG(s.sps_3d_extension_flag);
  QV_FLAG(s.sps_scc_extension_flag);
  if constexpr (Io::kReading)
    s.sps_extension_4bits = static_cast<int32_t>(io.fixed(4, 0));
  else
    io.fixed(4, 0);
  if (s.sps_range_extension_flag) {  // 7.3.2.2.2
    QV_FLAG(s.transform_skip_rotation_enabled_flag);
    QV_FLAG(s.transform_skip_context_enabled_flag);
    QV_FLAG(s.implicit_rdpcm_enabled_flag);
    QV_FLAG(s.explicit_rdpcm_enabled_flag);
    QV_FLAG(s.extended_precision_processing_flag);
    QV_FLAG(s.intra_smoothing_disabled_flag);
    QV_FLAG(s.high_precision_offsets_enabled_flag);
    QV_FLAG(s.persistent_rice_adaptation_enabled_flag);
    QV_FLAG(s.cabac_bypass_alignment_enabled_flag);
  }
  if constexpr (Io::kWriting) {  // written from the record, never parsed
    if (s.sps_multilayer_extension_flag) QV_FLAG(s.inter_view_mv_vert_constraint_flag);
    if (s.sps_3d_extension_flag) {
      for (int round = 0; round < 2; ++round) {
        io.fixed(2, 0);
        io.fixedUe(0);
        io.fixed(5, 0);
      }
      s.sps_scc_extension_flag = 0;
    }
  }
  return BodyResult::kOk;
}

}  // namespace hevc_syntax
