// H.264 sequence and picture parameter sets (ITU-T H.264 7.3.2.1.1, 7.3.2.2, E.1): flat decoded
// records, readers and writers working on zr_bitstream.
//
// Readers: the stream covers the NAL unit from its one-byte header (`size` bytes, `length`
// bits). They unescape a private copy (the SPS reader drops the 03 of 00 00 03; the PPS reader
// also drops the 0C of 00 00 0C), point the caller's stream at it while reading, and return the
// position / 8 after the trailing bits (0 for a null record or an empty stream). Records are
// cleared first. No messages; truncated data reads as ones (see zr_bitstream.h).
//
// Scaling lists: readers keep the decoded scale values (7.3.2.1.1.1, zig-zag order); writers
// code the record's entries as delta_scale values through write_scaling_list, so convert scale
// values with klxutilScalingListToDeltas before writing. Signed fields use the standard mapping:
// AVC parameter sets round-trip.
#pragma once
#include <cstdint>

#include "param_elements.h"
#include "zr_bitstream.h"

struct AVC_VUI_PARAMETERS {
  int32_t aspect_ratio_info_present_flag;
  int32_t aspect_ratio_idc;
  int32_t sar_width;
  int32_t sar_height;
  int32_t overscan_info_present_flag;
  int32_t overscan_appropriate_flag;
  int32_t video_signal_type_present_flag;
  int32_t video_format;
  int32_t video_full_range_flag;
  int32_t colour_description_present_flag;
  int32_t colour_primaries;
  int32_t transfer_characteristics;
  int32_t matrix_coefficients;
  int32_t chroma_loc_info_present_flag;
  int32_t chroma_sample_loc_type_top_field;
  int32_t chroma_sample_loc_type_bottom_field;
  int32_t timing_info_present_flag;
  uint32_t num_units_in_tick;
  uint32_t time_scale;
  int32_t fixed_frame_rate_flag;
  int32_t nal_hrd_parameters_present_flag;
  hdr_parameters nal_hrd;
  int32_t vcl_hrd_parameters_present_flag;
  hdr_parameters vcl_hrd;
  int32_t low_delay_hrd_flag;
  int32_t pic_struct_present_flag;
  int32_t bitstream_restriction_flag;
  int32_t motion_vectors_over_pic_boundaries_flag;
  int32_t max_bytes_per_pic_denom;
  int32_t max_bits_per_mb_denom;
  int32_t log2_max_mv_length_horizontal;
  int32_t log2_max_mv_length_vertical;
  int32_t max_num_reorder_frames;
  int32_t max_dec_frame_buffering;
};

// Scaling matrices of an SPS or PPS: up to 12 lists (6 of 4x4, then 6 of 8x8).
struct AVC_SCALING_MATRIX {
  int32_t scaling_list_present_flag[12];
  int32_t ScalingList4x4[6][16];
  int32_t ScalingList8x8[6][64];
  int32_t UseDefaultScalingMatrix4x4Flag[6];
  int32_t UseDefaultScalingMatrix8x8Flag[6];
};

struct SPS_DECODED {
  int32_t forbidden_zero_bit;
  int32_t nal_ref_idc;
  int32_t nal_unit_type;
  int32_t profile_idc;
  int32_t constraint_set0_flag;
  int32_t constraint_set1_flag;
  int32_t constraint_set2_flag;
  int32_t constraint_set3_flag;
  int32_t constraint_set4_flag;
  int32_t constraint_set5_flag;
  int32_t reserved_zero_2bits;
  int32_t level_idc;
  int32_t seq_parameter_set_id;
  int32_t chroma_format_idc;  // 1 (4:2:0) when the profile has no such field
  int32_t separate_colour_plane_flag;
  int32_t bit_depth_luma_minus8;
  int32_t bit_depth_chroma_minus8;
  int32_t qpprime_y_zero_transform_bypass_flag;
  int32_t seq_scaling_matrix_present_flag;
  AVC_SCALING_MATRIX seq_scaling;  // seq_scaling_list_present_flag[i] and the lists
  int32_t log2_max_frame_num_minus4;
  int32_t pic_order_cnt_type;
  int32_t log2_max_pic_order_cnt_lsb_minus4;
  int32_t delta_pic_order_always_zero_flag;
  int32_t offset_for_non_ref_pic;
  int32_t offset_for_top_to_bottom_field;
  int32_t num_ref_frames_in_pic_order_cnt_cycle;  // offsets kept for up to 256 frames
  int32_t offset_for_ref_frame[256];
  int32_t max_num_ref_frames;
  int32_t gaps_in_frame_num_value_allowed_flag;
  int32_t pic_width_in_mbs_minus1;
  int32_t pic_height_in_map_units_minus1;
  int32_t frame_mbs_only_flag;
  int32_t mb_adaptive_frame_field_flag;
  int32_t direct_8x8_inference_flag;
  int32_t frame_cropping_flag;
  int32_t frame_crop_left_offset;
  int32_t frame_crop_right_offset;
  int32_t frame_crop_top_offset;
  int32_t frame_crop_bottom_offset;
  int32_t vui_parameters_present_flag;
  AVC_VUI_PARAMETERS vui;
  int32_t rbsp_stop_one_bit;
};

constexpr int32_t kAvcMaxSliceGroupIds = 8704;  // picture size in map units up to level 4.2

struct PPS_DECODED {
  int32_t forbidden_zero_bit;
  int32_t nal_ref_idc;
  int32_t nal_unit_type;
  int32_t pic_parameter_set_id;
  int32_t seq_parameter_set_id;
  int32_t entropy_coding_mode_flag;
  int32_t bottom_field_pic_order_in_frame_present_flag;
  int32_t num_slice_groups_minus1;
  int32_t slice_group_map_type;
  int32_t run_length_minus1[8];
  int32_t top_left[8];
  int32_t bottom_right[8];
  int32_t slice_group_change_direction_flag;
  int32_t slice_group_change_rate_minus1;
  int32_t pic_size_in_map_units_minus1;
  int32_t slice_group_id[kAvcMaxSliceGroupIds];
  int32_t num_ref_idx_l0_default_active_minus1;
  int32_t num_ref_idx_l1_default_active_minus1;
  int32_t weighted_pred_flag;
  int32_t weighted_bipred_idc;
  int32_t pic_init_qp_minus26;
  int32_t pic_init_qs_minus26;
  int32_t chroma_qp_index_offset;
  int32_t deblocking_filter_control_present_flag;
  int32_t constrained_intra_pred_flag;
  int32_t redundant_pic_cnt_present_flag;
  int32_t more_rbsp_data_flag;  // the fields below were present
  int32_t transform_8x8_mode_flag;
  int32_t pic_scaling_matrix_present_flag;
  AVC_SCALING_MATRIX pic_scaling;  // lists for chroma_format_idc != 3 (at most 8)
  int32_t second_chroma_qp_index_offset;
  int32_t rbsp_stop_one_bit;
};

uint32_t klxutilRead_SPS(zr_bitstream* s, SPS_DECODED* sps);
uint32_t klxutilRead_PPS(zr_bitstream* s, PPS_DECODED* pps);
// Writers: the output stream's `size` (bytes) is its capacity; bits beyond it are dropped and
// the returned position / 8 then exceeds the size.
uint32_t klxutilWrite_SPS(zr_bitstream* out, SPS_DECODED* sps);
uint32_t klxutilWrite_PPS(zr_bitstream* out, PPS_DECODED* pps);

// The delta_scale values (7.3.2.1.1.1, no run shortening) that code `size` scale values, as the
// writers expect them in the record. `deltas` may be `scale` itself.
void klxutilScalingListToDeltas(const int32_t* scale, int32_t size, int32_t* deltas);

// Every element present in a decoded record, in bitstream order (see param_elements.h). Scaling
// lists are reported as their scale values under the names ScalingList4x4 / ScalingList8x8.
void klxutilList_SPS(const SPS_DECODED* sps, klxutilParamElementSink sink, void* user);
void klxutilList_PPS(const PPS_DECODED* pps, klxutilParamElementSink sink, void* user);
