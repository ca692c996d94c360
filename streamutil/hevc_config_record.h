// HEVCDecoderConfigurationRecord (hvcC, ISO/IEC 14496-15 8.3.3) and the Dolby Vision
// configuration record carried in a dvvC box.
#pragma once
#include <cstdint>

#include "hevc_params.h"
#include "zr_bitstream.h"

// Dolby Vision decoder configuration: eight bytes of bit fields, then four reserved words.
struct DOVI_DECODER_CONFIGURATION_RECORD {
  uint8_t dv_version_major;
  uint8_t dv_version_minor;
  uint16_t dv_profile : 7;
  uint16_t dv_level : 6;
  uint16_t rpu_present_flag : 1;
  uint16_t el_present_flag : 1;
  uint16_t bl_present_flag : 1;
  uint32_t dv_bl_signal_compatibility_id : 4;
  uint32_t reserved : 28;
  uint32_t reserved_words[4];
};
static_assert(sizeof(DOVI_DECODER_CONFIGURATION_RECORD) == 24, "dvvC payload is 24 bytes");

// Writes the 23-byte header (when `header` is given) and one VPS, SPS and PPS array (complete
// NAL units, two-byte header included, as the HEVC writers produce them). numOfArrays comes from
// the header record as is. The output stream's size is its capacity (bits beyond it are
// dropped). Returns the output position / 8.
uint32_t klxutilWrite_HEVC_CR(zr_bitstream* out, HEVC_DECODED* header, const uint8_t* vps, const uint8_t* sps,
                              const uint8_t* pps, int32_t vpsLength, int32_t spsLength, int32_t ppsLength);

// Writes the 24-byte dvvC payload (nothing for a null record). Returns the output position / 8.
uint32_t klxutilWrite_DVVC_CR(zr_bitstream* out, DOVI_DECODER_CONFIGURATION_RECORD* record);

// Reads the 24-byte dvvC payload at the input's position into `record`, field for field as the
// writer lays it out (reserved bits and words kept, so writing the record again gives the same
// bytes). Returns 24 (bytes read, position advanced by 192 bits), or 0xFFFFFFFF without touching
// the record or the position when an argument is null or fewer than 24 bytes remain before the
// stream's length (and, when given, its size).
uint32_t klxutilRead_DVVC_CR(zr_bitstream* in, DOVI_DECODER_CONFIGURATION_RECORD* record);

// Reads an hvcC box (size and type words first) into the header record and the first VPS, SPS
// and PPS found (each record may be null). The box's size word bounds what both passes read
// (the box as stored, escapes included; 0: it runs to the end of the input). Returns the byte offset past
// the last VPS or SPS parsed; 0 for a null header, an empty input or no arrays; 0xFFFFFFFF when
// the size word is larger than the bytes given or smaller than the 8-byte box header, the
// reserved bits stay wrong after a retry on an unescaped copy, or a unit runs past the data.
uint32_t klxutilRead_HEVC_CR(zr_bitstream* in, HEVC_DECODED* header, HEVC_VPS_DECODED* vps, HEVC_SPS_DECODED* sps,
                             HEVC_PPS_DECODED* pps);

// One NAL unit of an hvcC array: its type (32 VPS, 33 SPS, 34 PPS, 39/40 SEI...) and where its
// bytes lie in the bytes given to klxutilHvccEntries.
struct HVCC_ENTRY {
  uint32_t nal_unit_type;
  uint32_t offset;
  uint32_t size;
};

// Lists every NAL unit of every array of an hvcC box (size and type words first, bounded by its
// size word as klxutilRead_HEVC_CR takes it), in record order, where klxutilRead_HEVC_CR reads
// only the first of each type. The bytes are taken as stored: a box stored with emulation
// prevention (its header's reserved bits read wrong, where klxutilRead_HEVC_CR retries on an
// unescaped copy) is refused. Returns 0 with *count set; -1 for a null argument, such a box, a
// box whose size word is beyond the bytes or below its header, or a record cut short (a unit
// running past it included); -102 when there are more than `capacity` units (*count then tells how many).
int klxutilHvccEntries(const uint8_t* box, uint32_t size, HVCC_ENTRY* entries, uint32_t capacity, uint32_t* count);

// Kept for callers of the old entry point: builds nothing and returns -1 (all bits set); build
// an hvcC with klxutilWrite_HEVC_CR.
int64_t klxutilGetHvcc(const uint8_t* frame, uint32_t frameSize, uint8_t* out, uint32_t outSize);

// Fills an hvcC header the way ISO/IEC 14496-15 derives it from the parameter sets:
// configurationVersion 1, the profile_tier_level fields of the SPS, chroma format and bit
// depths, min_spatial_segmentation_idc from the VUI, parallelismType from the PPS (0 when
// min_spatial_segmentation_idc is 0), numTemporalLayers and temporalIdNested from the SPS,
// lengthSizeMinusOne 3, three arrays, no frame-rate information. `pps` may be null.
void klxutilFillHvccHeader(HEVC_DECODED* header, const HEVC_SPS_DECODED* sps, const HEVC_PPS_DECODED* pps);
