// AAC AudioSpecificConfig (ISO/IEC 14496-3 1.6.2.1, up to the GASpecificConfig flags) and the
// ADTS frame header (ISO/IEC 13818-7 / 14496-3 1.A.2.2), read and written through a caller's
// zr_bitstream at its current position. All four functions return 0; like the bit cursor
// itself they do not test for the end of the data (reads past it yield ones).
#pragma once
#include <cstdint>

#include "zr_bitstream.h"

extern "C" {

struct AAC_AUDIO_CONFIG {
  uint32_t audioObjectType;         // 5 bits; the escape for 31 is not handled
  uint32_t samplingFrequencyIndex;  // 4 bits; 15 means an explicit 24-bit frequency follows
  uint32_t samplingFrequency;       // Hz, from the index (read) or written only for index 15
  uint32_t channelConfiguration;
  uint32_t frameLengthFlag;
  uint32_t dependsOnCoreCoder;
  uint32_t extensionFlag;
};
static_assert(sizeof(AAC_AUDIO_CONFIG) == 7 * 4, "seven 32-bit fields");

struct ADTS_HEADER {
  uint32_t syncword;  // 0xFFF in a valid header; neither tested on reading nor forced on writing
  uint32_t ID;
  uint32_t layer;
  uint32_t protection_absent;
  uint32_t profile;
  uint32_t sampling_frequency_index;
  uint32_t private_bit;
  uint32_t channel_configuration;
  uint32_t original_copy;
  uint32_t home;
  uint32_t copyright_identification_bit;
  uint32_t copyright_identification_start;
  uint32_t aac_frame_length;  // whole frame, header included
  uint32_t adts_buffer_fullness;
  uint32_t number_of_raw_data_blocks_in_frame;
  uint16_t check_word;
};

// The 16-bit check word follows the 56 header bits when protection_absent is 1 (the reverse of
// ISO/IEC 13818-7, where the CRC follows when it is 0). Reader and writer agree; stored streams
// and hosts depend on this layout, so it stays.
int klxutilReadAAC(zr_bitstream* s, AAC_AUDIO_CONFIG* config);
int klxutilWriteAAC(zr_bitstream* s, const AAC_AUDIO_CONFIG* config);
int klxutilReadADTS(zr_bitstream* s, ADTS_HEADER* header);
int klxutilWriteADTS(zr_bitstream* s, const ADTS_HEADER* header);

// Sampling frequency in Hz of an index (0 for 13, 14 and indexes above 15; 15 has none: 0).
uint32_t klxutilAACFrequency(uint32_t samplingFrequencyIndex);
}
