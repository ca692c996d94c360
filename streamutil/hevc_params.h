// HEVC video, sequence and picture parameter sets (ITU-T H.265 7.3.1.2, 7.3.2.1, 7.3.2.2,
// 7.3.2.3.1, E.2): flat decoded records, readers and writers.
//
// Readers take a zr_bitstream positioned at the two-byte NAL header and a bit length (0: the
// stream's length). They work on a private unescaped copy, return the bytes read from that copy
// (0 for a null record or an empty input, 0xFFFFFFFF on a header error) and, on success, move
// the input on by the whole bit length. Readers clear the record before filling it, except
// three large tables of the SPS record that are cleared only when the unit codes them: the
// short-term sets beyond num_short_term_ref_pic_sets, scaling_list when the SPS carries no
// scaling_list_data(), and the sub-layer HRD tables of sub-layers without NAL/VCL HRD keep
// their previous contents. Every element the coded counts and flags reach is set or cleared.
//
// Writers produce a whole NAL unit (header forced to layer 0, temporal id 1; emulation
// prevention applied) and return its byte count. Signed fields are written with
// WriteExponentialGolombCodeSigned, whose positive mapping differs from the reader's: a positive
// init_qp_minus26, chroma offset or scaling-list delta comes back as -(v + 1). The VPS writer
// forces both base-layer bits to 1, every layer_id_included_flag to 1, vps_num_hrd_parameters to
// 0 (also in the caller's record) and vps_extension_flag to 0.
#pragma once
#include <cstddef>
#include <cstdint>

#include "param_elements.h"
#include "zr_bitstream.h"

// hvcC header / profile summary (ISO/IEC 14496-15 8.3.3.1). Filled from profile_tier_level by
// the readers; the remaining fields are the caller's (or klxutilFillHvccHeader's).
struct HEVC_DECODED {
  uint32_t configurationVersion : 8;
  uint32_t general_profile_space : 2;
  uint32_t general_tier_flag : 1;
  uint32_t general_profile_idc : 5;
  uint32_t general_profile_compatibility_flags;
  uint64_t general_constraint_indicator_flags : 48;
  uint32_t general_level_idc : 8;
  uint32_t min_spatial_segmentation_idc : 12;
  uint32_t parallelismType : 2;
  uint32_t chromaFormat : 2;
  uint32_t bitDepthLumaMinus8 : 3;
  uint32_t bitDepthChromaMinus8 : 3;
  uint32_t avgFrameRate : 16;
  uint32_t constantFrameRate : 2;
  uint32_t numTemporalLayers : 3;
  uint32_t temporalIdNested : 1;
  uint32_t lengthSizeMinusOne : 2;
  uint32_t numOfArrays : 8;
};

// profile_tier_level(1, maxNumSubLayersMinus1), 7.3.3. The 48 bits after the compatibility flags
// (source flags, constraint flags, general_inbld_flag) are kept whole, as hvcC carries them.
// Per sub-layer, the 44 bits after the four source flags are read and dropped (written as 0).
struct HEVC_PROFILE_TIER_LEVEL {
  int32_t general_profile_space;
  int32_t general_tier_flag;
  int32_t general_profile_idc;
  uint32_t general_profile_compatibility_flags;
  uint64_t general_constraint_indicator_flags;
  int32_t general_level_idc;
  int32_t sub_layer_profile_present_flag[8];
  int32_t sub_layer_level_present_flag[8];
  int32_t sub_layer_profile_space[8];
  int32_t sub_layer_tier_flag[8];
  int32_t sub_layer_profile_idc[8];
  uint32_t sub_layer_profile_compatibility_flags[8];
  int32_t sub_layer_progressive_source_flag[8];
  int32_t sub_layer_interlaced_source_flag[8];
  int32_t sub_layer_non_packed_constraint_flag[8];
  int32_t sub_layer_frame_only_constraint_flag[8];
  int32_t sub_layer_level_idc[8];
};

// sub_layer_hrd_parameters(), E.2.3. CpbCnt is limited to 32 entries (cpb_cnt_minus1 <= 31).
struct HEVC_SUB_LAYER_HRD {
  uint32_t bit_rate_value_minus1[32];  // ue(v) up to 2^32 - 2, as the three below
  uint32_t cpb_size_value_minus1[32];
  uint32_t cpb_size_du_value_minus1[32];
  uint32_t bit_rate_du_value_minus1[32];
  int32_t cbr_flag[32];
};

// hrd_parameters(commonInfPresentFlag, maxNumSubLayersMinus1), E.2.2.
struct HEVC_HRD_PARAMETERS {
  int32_t nal_hrd_parameters_present_flag;
  int32_t vcl_hrd_parameters_present_flag;
  int32_t sub_pic_hrd_params_present_flag;
  int32_t tick_divisor_minus2;
  int32_t du_cpb_removal_delay_increment_length_minus1;
  int32_t sub_pic_cpb_params_in_pic_timing_sei_flag;
  int32_t dpb_output_delay_du_length_minus1;
  int32_t bit_rate_scale;
  int32_t cpb_size_scale;
  int32_t cpb_size_du_scale;
  int32_t initial_cpb_removal_delay_length_minus1;
  int32_t au_cpb_removal_delay_length_minus1;
  int32_t dpb_output_delay_length_minus1;
  int32_t fixed_pic_rate_general_flag[8];
  int32_t fixed_pic_rate_within_cvs_flag[8];  // 1 when inferred from fixed_pic_rate_general_flag
  int32_t elemental_duration_in_tc_minus1[8];
  int32_t low_delay_hrd_flag[8];
  int32_t cpb_cnt_minus1[8];
  HEVC_SUB_LAYER_HRD nal_sub_layer[8];
  HEVC_SUB_LAYER_HRD vcl_sub_layer[8];
};

// scaling_list_data(), 7.3.4. Deltas are kept as coded (scaling_list_dc_coef_minus8 is used for
// sizeId 2 and 3 only).
struct HEVC_SCALING_LIST_DATA {
  int32_t scaling_list_pred_mode_flag[4][6];
  int32_t scaling_list_pred_matrix_id_delta[4][6];
  int32_t scaling_list_dc_coef_minus8[4][6];
  int32_t scaling_list_delta_coef[4][6][64];
};

// st_ref_pic_set(stRpsIdx), 7.3.7. At most 16 negative and 16 positive pictures are kept (the
// loops are limited to 16); the predicted form keeps its flags for up to 33 reference deltas.
struct HEVC_ST_REF_PIC_SET {
  int32_t inter_ref_pic_set_prediction_flag;
  int32_t delta_rps_sign;
  int32_t abs_delta_rps_minus1;
  int32_t used_by_curr_pic_flag[33];
  int32_t use_delta_flag[33];  // 1 when not present
  int32_t num_negative_pics;
  int32_t num_positive_pics;
  int32_t delta_poc_s0_minus1[16];
  int32_t used_by_curr_pic_s0_flag[16];
  int32_t delta_poc_s1_minus1[16];
  int32_t used_by_curr_pic_s1_flag[16];
};

// vui_parameters(), E.2.1.
struct HEVC_VUI_PARAMETERS {
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
  int32_t matrix_coeffs;
  int32_t chroma_loc_info_present_flag;
  int32_t chroma_sample_loc_type_top_field;
  int32_t chroma_sample_loc_type_bottom_field;
  int32_t neutral_chroma_indication_flag;
  int32_t field_seq_flag;
  int32_t frame_field_info_present_flag;
  int32_t default_display_window_flag;
  int32_t def_disp_win_left_offset;
  int32_t def_disp_win_right_offset;
  int32_t def_disp_win_top_offset;
  int32_t def_disp_win_bottom_offset;
  int32_t vui_timing_info_present_flag;
  uint32_t vui_num_units_in_tick;
  uint32_t vui_time_scale;
  int32_t vui_poc_proportional_to_timing_flag;
  uint32_t vui_num_ticks_poc_diff_one_minus1;  // up to 2^32 - 2
  int32_t vui_hrd_parameters_present_flag;
  HEVC_HRD_PARAMETERS hrd;
  int32_t bitstream_restriction_flag;
  int32_t tiles_fixed_structure_flag;
  int32_t motion_vectors_over_pic_boundaries_flag;
  int32_t restricted_ref_pic_lists_flag;
  int32_t min_spatial_segmentation_idc;
  int32_t max_bytes_per_pic_denom;
  int32_t max_bits_per_min_cu_denom;
  int32_t log2_max_mv_length_horizontal;
  int32_t log2_max_mv_length_vertical;
};

struct HEVC_VPS_DECODED {
  int32_t vps_video_parameter_set_id;
  int32_t vps_max_layers_minus1;
  int32_t vps_max_sub_layers_minus1;
  int32_t vps_temporal_id_nesting_flag;
  int32_t vps_reserved_0xffff_16bits;
  HEVC_PROFILE_TIER_LEVEL ptl;
  int32_t vps_sub_layer_ordering_info_present_flag;
  // Only the values of the last sub-layer read are kept.
  int32_t vps_max_dec_pic_buffering_minus1;
  int32_t vps_max_num_reorder_pics;
  uint32_t vps_max_latency_increase_plus1;  // up to 2^32 - 2
  int32_t vps_max_layer_id;
  int32_t vps_num_layer_sets_minus1;
  int32_t vps_timing_info_present_flag;
  uint32_t vps_num_units_in_tick;
  uint32_t vps_time_scale;
  int32_t vps_poc_proportional_to_timing_flag;
  uint32_t vps_num_ticks_poc_diff_one;  // the coded _minus1 value plus one: 1 .. 2^32 - 1
  int32_t vps_num_hrd_parameters;
  int32_t cprms_present_flag;  // of the last HRD entry
  int32_t hrd_layer_set_idx;   // of the last HRD entry
  int32_t vps_extension_flag;
};

struct HEVC_SPS_DECODED {
  int32_t sps_video_parameter_set_id;
  int32_t sps_max_sub_layers_minus1;
  int32_t sps_temporal_id_nesting_flag;
  HEVC_PROFILE_TIER_LEVEL ptl;
  int32_t sps_seq_parameter_set_id;
  int32_t chroma_format_idc;
  int32_t separate_colour_plane_flag;
  int32_t pic_width_in_luma_samples;
  int32_t pic_height_in_luma_samples;
  int32_t conformance_window_flag;
  int32_t conf_win_left_offset;
  int32_t conf_win_right_offset;
  int32_t conf_win_top_offset;
  int32_t conf_win_bottom_offset;
  int32_t bit_depth_luma_minus8;
  int32_t bit_depth_chroma_minus8;
  int32_t log2_max_pic_order_cnt_lsb_minus4;
  int32_t sps_sub_layer_ordering_info_present_flag;
  int32_t sps_max_dec_pic_buffering_minus1[8];
  int32_t sps_max_num_reorder_pics[8];
  uint32_t sps_max_latency_increase_plus1[8];  // up to 2^32 - 2
  int32_t log2_min_luma_coding_block_size_minus3;
  int32_t log2_diff_max_min_luma_coding_block_size;
  int32_t log2_min_luma_transform_block_size_minus2;
  int32_t log2_diff_max_min_luma_transform_block_size;
  int32_t max_transform_hierarchy_depth_inter;
  int32_t max_transform_hierarchy_depth_intra;
  int32_t scaling_list_enabled_flag;
  int32_t sps_scaling_list_data_present_flag;
  HEVC_SCALING_LIST_DATA scaling_list;
  int32_t amp_enabled_flag;
  int32_t sample_adaptive_offset_enabled_flag;
  int32_t pcm_enabled_flag;
  int32_t pcm_sample_bit_depth_luma_minus1;
  int32_t pcm_sample_bit_depth_chroma_minus1;
  int32_t log2_min_pcm_luma_coding_block_size_minus3;
  int32_t log2_diff_max_min_pcm_luma_coding_block_size;
  int32_t pcm_loop_filter_disabled_flag;
  int32_t num_short_term_ref_pic_sets;  // at most 64
  HEVC_ST_REF_PIC_SET st_ref_pic_set[64];
  int32_t long_term_ref_pics_present_flag;
  int32_t num_long_term_ref_pics_sps;  // entries beyond 32 are neither read nor written
  int32_t lt_ref_pic_poc_lsb_sps[32];
  int32_t used_by_curr_pic_lt_sps_flag[32];
  int32_t sps_temporal_mvp_enabled_flag;
  int32_t strong_intra_smoothing_enabled_flag;
  int32_t vui_parameters_present_flag;
  HEVC_VUI_PARAMETERS vui;
  int32_t sps_extension_present_flag;
  int32_t sps_range_extension_flag;
  int32_t sps_multilayer_extension_flag;
  int32_t sps_3d_extension_flag;
  int32_t sps_scc_extension_flag;
  int32_t sps_extension_4bits;
  // sps_range_extension(), 7.3.2.2.2
  int32_t transform_skip_rotation_enabled_flag;
  int32_t transform_skip_context_enabled_flag;
  int32_t implicit_rdpcm_enabled_flag;
  int32_t explicit_rdpcm_enabled_flag;
  int32_t extended_precision_processing_flag;
  int32_t intra_smoothing_disabled_flag;
  int32_t high_precision_offsets_enabled_flag;
  int32_t persistent_rice_adaptation_enabled_flag;
  int32_t cabac_bypass_alignment_enabled_flag;
  // sps_multilayer_extension(): written from the record, not read.
  int32_t inter_view_mv_vert_constraint_flag;
};

struct HEVC_PPS_DECODED {
  int32_t pps_pic_parameter_set_id;
  int32_t pps_seq_parameter_set_id;
  int32_t dependent_slice_segments_enabled_flag;
  int32_t output_flag_present_flag;
  int32_t num_extra_slice_header_bits;
  int32_t sign_data_hiding_enabled_flag;
  int32_t cabac_init_present_flag;
  int32_t num_ref_idx_l0_default_active_minus1;
  int32_t num_ref_idx_l1_default_active_minus1;
  int32_t init_qp_minus26;
  int32_t constrained_intra_pred_flag;
  int32_t transform_skip_enabled_flag;
  int32_t cu_qp_delta_enabled_flag;
  int32_t diff_cu_qp_delta_depth;
  int32_t pps_cb_qp_offset;
  int32_t pps_cr_qp_offset;
  int32_t pps_slice_chroma_qp_offsets_present_flag;
  int32_t weighted_pred_flag;
  int32_t weighted_bipred_flag;
  int32_t transquant_bypass_enabled_flag;
  int32_t tiles_enabled_flag;
  int32_t entropy_coding_sync_enabled_flag;
  int32_t num_tile_columns_minus1;  // widths kept for up to 64 columns and rows
  int32_t num_tile_rows_minus1;
  int32_t uniform_spacing_flag;
  int32_t column_width_minus1[64];
  int32_t row_height_minus1[64];
  int32_t loop_filter_across_tiles_enabled_flag;
  int32_t pps_loop_filter_across_slices_enabled_flag;
  int32_t deblocking_filter_control_present_flag;
  int32_t deblocking_filter_override_enabled_flag;
  int32_t pps_deblocking_filter_disabled_flag;
  int32_t pps_beta_offset_div2;
  int32_t pps_tc_offset_div2;
  int32_t pps_scaling_list_data_present_flag;
  HEVC_SCALING_LIST_DATA scaling_list;
  int32_t lists_modification_present_flag;
  int32_t log2_parallel_merge_level_minus2;
  int32_t slice_segment_header_extension_present_flag;
  int32_t pps_extension_present_flag;
};

// Readers: result as described above.
uint32_t klxutilRead_HEVC_VPS(zr_bitstream* in, HEVC_VPS_DECODED* vps, HEVC_DECODED* summary, uint64_t bitLength);
uint32_t klxutilRead_HEVC_SPS(zr_bitstream* in, HEVC_SPS_DECODED* sps, HEVC_DECODED* summary, uint64_t bitLength);
uint32_t klxutilRead_HEVC_PPS(zr_bitstream* in, HEVC_PPS_DECODED* pps, HEVC_DECODED* summary, uint64_t bitLength);

// Writers: the caller's buffer must hold the unit (at most 1024 bytes of payload plus
// emulation-prevention bytes; kHevcParamSetMaxBytes is always enough).
constexpr size_t kHevcParamSetMaxBytes = 1024 + 1024 / 2 + 1;
int32_t klxutilWrite_HEVC_VPS(HEVC_VPS_DECODED* vps, uint8_t* out);
int32_t klxutilWrite_HEVC_SPS(HEVC_SPS_DECODED* sps, uint8_t* out, uint64_t unused);
int32_t klxutilWrite_HEVC_PPS(HEVC_PPS_DECODED* pps, uint8_t* out);
// Checked forms: -1 (nothing written) when the unit does not fit in `capacity` bytes.
int32_t klxutilWriteChecked_HEVC_VPS(HEVC_VPS_DECODED* vps, uint8_t* out, size_t capacity);
int32_t klxutilWriteChecked_HEVC_SPS(HEVC_SPS_DECODED* sps, uint8_t* out, size_t capacity);
int32_t klxutilWriteChecked_HEVC_PPS(HEVC_PPS_DECODED* pps, uint8_t* out, size_t capacity);

// profile_tier_level on its own; `summary` (may be null) receives the general fields.
void hvcc_read_profile_tier_level(zr_bitstream* s, int32_t maxNumSubLayersMinus1, HEVC_PROFILE_TIER_LEVEL* ptl,
                                  HEVC_DECODED* summary = nullptr);
void hvcc_read_profile_tier_level(zr_bitstream* s, int32_t maxNumSubLayersMinus1, HEVC_SPS_DECODED* sps,
                                  HEVC_DECODED* summary = nullptr);
void hvcc_read_profile_tier_level(zr_bitstream* s, int32_t maxNumSubLayersMinus1, HEVC_VPS_DECODED* vps,
                                  HEVC_DECODED* summary = nullptr);
void hvcc_write_profile_tier_level(zr_bitstream* s, int32_t maxNumSubLayersMinus1, HEVC_PROFILE_TIER_LEVEL* ptl);
void hvcc_write_profile_tier_level(zr_bitstream* s, int32_t maxNumSubLayersMinus1, HEVC_SPS_DECODED* sps);
void hvcc_write_profile_tier_level(zr_bitstream* s, int32_t maxNumSubLayersMinus1, HEVC_VPS_DECODED* vps);

// hrd_parameters() and sub_layer_hrd_parameters() of E.2.2/E.2.3, read and not kept (the VPS
// reader uses them). CpbCnt is the number of CPB entries (cpb_cnt_minus1 + 1).
void klxutil_read_hevc_hrd(zr_bitstream* s, int32_t commonInfPresentFlag, int32_t maxNumSubLayersMinus1);
void klxutil_decode_sublayer_hrd(zr_bitstream* s, int32_t CpbCnt, int32_t sub_pic_hrd_params_present_flag);

// Every element present in a decoded record, in bitstream order (see param_elements.h). The
// profile_tier_level fields are reported as the record holds them (compatibility flags as one
// 32-bit value, the 48 constraint bits as general_constraint_indicator_flags).
void klxutilList_HEVC_VPS(const HEVC_VPS_DECODED* vps, klxutilParamElementSink sink, void* user);
void klxutilList_HEVC_SPS(const HEVC_SPS_DECODED* sps, klxutilParamElementSink sink, void* user);
void klxutilList_HEVC_PPS(const HEVC_PPS_DECODED* pps, klxutilParamElementSink sink, void* user);
