// The MPEG-2 video sequence_header(), sequence_extension() and sequence_display_extension()
// (ISO/IEC 13818-2 6.2.2.1, 6.2.2.3, 6.2.2.4): raster, frame rate, scan, profile/level, chroma
// format and colour description of a stream, as a host needs them to describe it. Plain reads on a caller-owned record; nothing is allocated.
#pragma once
#include <cstdint>

extern "C" {

struct KLX_MPEG2_SEQUENCE {
  uint32_t horizontal_size;  // horizontal_size_value, with horizontal_size_extension << 12 once read
  uint32_t vertical_size;    // vertical_size_value, with vertical_size_extension << 12 once read
  uint32_t aspect_ratio_information;
  uint32_t frame_rate_code;  // Table 6-4
  uint32_t bit_rate;         // units of 400 bit/s: bit_rate_value, with bit_rate_extension << 18
  uint32_t vbv_buffer_size;  // vbv_buffer_size_value, with vbv_buffer_size_extension << 10
  uint32_t hasExtension;     // a sequence_extension() was read (0: an ISO/IEC 11172-2 stream)
  uint32_t profile_and_level_indication;  // 0 without the extension
  uint32_t progressive_sequence;          // 1 without the extension (ISO/IEC 11172-2 is progressive)
  uint32_t chroma_format;                 // 1 4:2:0, 2 4:2:2, 3 4:4:4 (1 without the extension)
  uint32_t low_delay;
  uint32_t frame_rate_extension_n;
  uint32_t frame_rate_extension_d;
  uint32_t frameRate, frameRateScale;  // frames per second = frameRate / frameRateScale in lowest
                                       // terms (6.3.3); 0/0 for a reserved frame_rate_code
  // sequence_display_extension() (6.2.2.4, 6.3.6), when one was read (hasDisplayExtension).
  uint32_t hasDisplayExtension;
  uint32_t video_format;              // Table 6-6; 5 (unspecified) without the extension
  uint32_t colour_description;        // 1: the three code points below were coded
  uint32_t colour_primaries;          // Tables 6-7..6-9 (the ITU-T H.273 code points); 0 when
  uint32_t transfer_characteristics;  // not coded
  uint32_t matrix_coefficients;
  uint32_t display_horizontal_size;   // 0 without the extension
  uint32_t display_vertical_size;
};

// Reads a sequence_header(): `unit` starts at its start code value 0xB3 (the bytes after
// 00 00 01) and holds at least the fields up to its marker_bit (8 bytes); fields past the end
// read as zero, since a start-code splitter takes a header's last zero bytes for stuffing. The
// extension fields get their ISO/IEC 11172-2 meaning until the extension is read. Returns 0, or
// -1 for a null argument, another start code, a short unit or a missing marker bit.
int klxutilReadMpeg2SequenceHeader(const uint8_t* unit, uint32_t size, KLX_MPEG2_SEQUENCE* seq);

// Adds the sequence_extension() that follows the header: `unit` starts at 0xB5 with
// extension_start_code_identifier 1 and holds at least the fields up to its marker_bit (5 bytes;
// the rest reads as zero when cut). Returns 0, or -1 for a null argument, another start code or
// extension, a short unit or a missing marker bit (the record is then left as it was).
int klxutilReadMpeg2SequenceExtension(const uint8_t* unit, uint32_t size, KLX_MPEG2_SEQUENCE* seq);

// Adds a sequence_display_extension(): `unit` starts at 0xB5 with extension_start_code_identifier
// 2 and holds at least the fields up to its marker_bit (4 bytes, or 7 with colour_description;
// display_vertical_size reads as zero where cut). Returns 0, or -1 for a null argument, another
// start code or extension, a short unit or a missing marker bit (the record is then left as it was).
int klxutilReadMpeg2SequenceDisplayExtension(const uint8_t* unit, uint32_t size, KLX_MPEG2_SEQUENCE* seq);

// frame_rate_value of a frame_rate_code (Table 6-4) as a fraction: 0, or -1 (0/0) for a
// forbidden or reserved code.
int klxutilMpeg2FrameRateFraction(uint32_t frameRateCode, uint32_t* rate, uint32_t* scale);

// Profile and level names of a profile_and_level_indication (Tables 8-2, 8-3, 8-7 escapes):
// "Main" / "High 1440", "4:2:2" / "Main". Null for a reserved value.
const char* klxutilMpeg2ProfileName(uint32_t profileAndLevel);
const char* klxutilMpeg2LevelName(uint32_t profileAndLevel);
}
