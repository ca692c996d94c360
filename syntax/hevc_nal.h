// HEVC NAL unit header reading (ITU-T H.265 7.3.1.2) into the stream context, with the prefix
// SEI messages of the unit, and the layer's HEVC parameter-set placeholders.
#pragma once
#include <cstdint>

#include "h264_stream.h"

extern "C" {

enum {
  kHevcNalPrefixSei = 39,
  kHevcNalSuffixSei = 40,
};

// Reads one unit (its bytes start at the first header byte; no start code). Fills h->nal's
// forbidden_zero_bit, nal_unit_type, nuh_layer_id, temporal_id, parsed, sizeof_parsed in every
// case. Returns `size` when the unit was accepted, 0 for a reserved/unspecified type (41..63),
// -1 on failure (memory, a forbidden emulation-prevention sequence, an SEI that runs past the
// unit). Prefix SEI units replace h->seis with their messages; nothing else is parsed.
int read_nal_unit_hevc(h264_stream_t* h, const uint8_t* buf, int size);

// Steps over the opening syntax of an HEVC SPS, then selects and zero-fills sps_table[0].
void read_hevc_seq_parameter_set_rbsp(h264_stream_t* h, bs_t* b);
// Steps over pps_pic_parameter_set_id, then selects and zero-fills pps_table[0].
void read_hevc_pic_parameter_set_rbsp(h264_stream_t* h, bs_t* b);

}  // extern "C"
