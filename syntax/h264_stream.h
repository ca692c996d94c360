// The syntax layer's stream context and the small records it shares: NAL unit header, SEI
// message, access unit delimiter, AVC decoder configuration record.
#pragma once
#include <cstdint>
#include <cstdio>

#include "bs.h"

extern "C" {

// NAL unit header (ITU-T H.264 7.3.1, H.265 7.3.1.2).
typedef struct {
  int32_t forbidden_zero_bit;
  int32_t nal_ref_idc;    // AVC only
  int32_t nal_unit_type;  // 5 bits for AVC, 6 bits for HEVC
  void* parsed;           // record the payload was parsed into (an HEVC prefix SEI: the context's `sei`)
  int32_t sizeof_parsed;  // size of that record in bytes, 0 when nothing was parsed
  int32_t nuh_layer_id;   // HEVC
  int32_t temporal_id;    // HEVC nuh_temporal_id_plus1 - 1 (-1 for a header that carries 0)
} nal_t;

// One SEI message; `data` holds payloadSize bytes and is owned by the record.
typedef struct {
  int32_t payloadType;
  int32_t payloadSize;
  uint8_t* data;
} sei_t;
static_assert(sizeof(sei_t) == 16, "an SEI message record is 16 bytes (nal_t.sizeof_parsed)");

// access_unit_delimiter_rbsp().
typedef struct {
  int32_t primary_pic_type;
} aud_t;
static_assert(sizeof(aud_t) == 4, "aud_t holds one 32-bit field");

// Sequence parameter set record. One record type serves the AVC SPS and the layer's HEVC SPS
// placeholder; the fields are those of seq_parameter_set_data() (ITU-T H.264 7.3.2.1.1) that
// the layer's readers keep.
typedef struct {
  int32_t profile_idc;
  int32_t constraint_set_flags;  // constraint_set0_flag .. constraint_set5_flag, MSB first
  int32_t level_idc;
  int32_t seq_parameter_set_id;
  int32_t chroma_format_idc;
  int32_t separate_colour_plane_flag;
  int32_t bit_depth_luma_minus8;
  int32_t bit_depth_chroma_minus8;
  int32_t log2_max_frame_num_minus4;
  int32_t pic_order_cnt_type;
  int32_t log2_max_pic_order_cnt_lsb_minus4;
  int32_t max_num_ref_frames;
  int32_t pic_width_in_mbs_minus1;
  int32_t pic_height_in_map_units_minus1;
  int32_t frame_mbs_only_flag;
  int32_t vui_parameters_present_flag;
} sps_t;

// Picture parameter set record (ITU-T H.264 7.3.2.2, the fields the layer keeps).
typedef struct {
  int32_t pic_parameter_set_id;
  int32_t seq_parameter_set_id;
  int32_t entropy_coding_mode_flag;
  int32_t bottom_field_pic_order_in_frame_present_flag;
  int32_t num_slice_groups_minus1;
  int32_t num_ref_idx_l0_default_active_minus1;
  int32_t num_ref_idx_l1_default_active_minus1;
  int32_t weighted_pred_flag;
  int32_t weighted_bipred_idc;
  int32_t pic_init_qp_minus26;
  int32_t deblocking_filter_control_present_flag;
  int32_t transform_8x8_mode_flag;
} pps_t;

// Slice header record (ITU-T H.264 7.3.3, the opening fields the layer keeps).
typedef struct {
  int32_t first_mb_in_slice;
  int32_t slice_type;
  int32_t pic_parameter_set_id;
  int32_t frame_num;
  int32_t field_pic_flag;
  int32_t bottom_field_flag;
  int32_t idr_pic_id;
  int32_t pic_order_cnt_lsb;
} slice_header_t;

// Slice data record: declared for the context's layout, not used by this layer.
typedef struct slice_data_rbsp_t slice_data_rbsp_t;

enum { kH264MaxSps = 32, kH264MaxPps = 256 };

// The stream context: created by h264_new, released by h264_free.
typedef struct {
  nal_t* nal;        // current NAL unit header
  sps_t* sps;        // current SPS (the record last selected in sps_table)
  pps_t* pps;        // current PPS (the record last selected in pps_table)
  aud_t* aud;
  sei_t* sei;        // SEI message being read or written: borrowed from `seis`, never owned
  int32_t num_seis;  // entries in `seis`
  slice_header_t* sh;
  slice_data_rbsp_t* slice_data;  // left null here and never freed by this layer
  sps_t* sps_table[kH264MaxSps];  // indexed by seq_parameter_set_id, each record allocated
  pps_t* pps_table[kH264MaxPps];  // indexed by pic_parameter_set_id, each record allocated
  sei_t** seis;                   // num_seis message pointers, owned
  uint8_t reserved[64];           // zero-filled, unused by the readers of this layer
} h264_stream_t;

// AVC decoder configuration record (ISO/IEC 14496-15 5.3.3.1) in memory. The arrays are owned;
// the SPS/PPS records they point at belong to a stream context.
typedef struct {
  int32_t configurationVersion;
  int32_t AVCProfileIndication;
  int32_t profile_compatibility;
  int32_t AVCLevelIndication;
  int32_t lengthSizeMinusOne;
  int32_t numOfSequenceParameterSets;
  sps_t** sps_table;
  int32_t numOfPictureParameterSets;
  pps_t** pps_table;
} avcc_t;

// The layer's debug output stream (null: no debug output). Nothing in this layer writes to it.
extern FILE* h264_dbgfile;

// A new context with every record allocated and zero-filled, `sps`/`pps` at the first table
// entries; null when memory runs out (nothing is leaked then).
h264_stream_t* h264_new(void);
// Frees the context and everything it owns; null is ignored.
void h264_free(h264_stream_t* h);

sei_t* sei_new(void);
void sei_free(sei_t* s);  // frees `data`, then the record; null is ignored
avcc_t* avcc_new(void);
void avcc_free(avcc_t* avcc);  // frees the two arrays (not the records), then the record

// AVC one-byte NAL header: fills h->nal (all 0 for an empty buffer) and returns nal_unit_type,
// or -1 for a forbidden or reserved header, a reference flag on a type that never has one, or
// none on an IDR slice.
int peek_nal_unit(h264_stream_t* h, const uint8_t* buf, int size);

// 1 while RBSP data remains before the stop bit: the cursor is before `end` and its next bit is
// 0 (the next 1 is taken for the stop bit; trailing zero bytes are not examined).
int more_rbsp_data(h264_stream_t* h, bs_t* b);

// Bits needed to hold x, less one for an exact power of two (ceil(log2 x)); 0 for x < 1.
int intlog2(int x);

// 1 when the two slice_type values are equal once the 5..9 aliases are folded onto 0..4.
int is_slice_type(int slice_type, int cmp_type);

// SEI RBSP reading (ITU-T H.264 7.3.2.3 / H.265 7.3.2.4): read_sei_rbsp replaces the messages in
// h->seis with those read from the cursor (at least one) and leaves h->sei at the last one.
void read_sei_rbsp(h264_stream_t* h, bs_t* b);
void read_sei_message(h264_stream_t* h, bs_t* b);
// Copies payloadSize bytes into h->sei->data; bytes past the cursor's end read as 0.
void read_sei_payload(h264_stream_t* h, bs_t* b, int payloadType, int payloadSize);

// Writes the payloadSize bytes of h->sei (data[0] first) through the cursor; the two size and
// type arguments are not used.
void write_sei_payload(h264_stream_t* h, bs_t* b, int payloadType, int payloadSize);

}  // extern "C"
