// AudioSpecificConfig and ADTS header syntax. Each structure is described once, as a table of
// (field, width) in bitstream order, and that table drives both the reader and the writer.
#include "streamutil/aac.h"

#include <iterator>

namespace {

constexpr uint32_t kFrequencies[16] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                       16000, 12000, 11025, 8000,  7350,  0,     0,     0};
constexpr uint32_t kExplicitFrequencyIndex = 15;

template <typename Record>
struct Field {
  uint32_t Record::*member;
  int32_t bits;
};

using AacField = Field<AAC_AUDIO_CONFIG>;
// The explicit 24-bit frequency sits between the index and the channel configuration.
constexpr AacField kAacHead[] = {
    {&AAC_AUDIO_CONFIG::audioObjectType, 5},
    {&AAC_AUDIO_CONFIG::samplingFrequencyIndex, 4},
};
constexpr AacField kAacExplicitFrequency = {&AAC_AUDIO_CONFIG::samplingFrequency, 24};
constexpr AacField kAacTail[] = {
    {&AAC_AUDIO_CONFIG::channelConfiguration, 4},
    {&AAC_AUDIO_CONFIG::frameLengthFlag, 1},
    {&AAC_AUDIO_CONFIG::dependsOnCoreCoder, 1},
    {&AAC_AUDIO_CONFIG::extensionFlag, 1},
};

using AdtsField = Field<ADTS_HEADER>;
constexpr AdtsField kAdtsFields[] = {
    {&ADTS_HEADER::syncword, 12},
    {&ADTS_HEADER::ID, 1},
    {&ADTS_HEADER::layer, 2},
    {&ADTS_HEADER::protection_absent, 1},
    {&ADTS_HEADER::profile, 2},
    {&ADTS_HEADER::sampling_frequency_index, 4},
    {&ADTS_HEADER::private_bit, 1},
    {&ADTS_HEADER::channel_configuration, 3},
    {&ADTS_HEADER::original_copy, 1},
    {&ADTS_HEADER::home, 1},
    {&ADTS_HEADER::copyright_identification_bit, 1},
    {&ADTS_HEADER::copyright_identification_start, 1},
    {&ADTS_HEADER::aac_frame_length, 13},
    {&ADTS_HEADER::adts_buffer_fullness, 11},
    {&ADTS_HEADER::number_of_raw_data_blocks_in_frame, 2},
};
constexpr int32_t kCheckWordBits = 16;

template <typename Record, size_t N>
void readFields(zr_bitstream* s, Record* r, const Field<Record> (&fields)[N]) {
  for (const auto& f : fields) r->*f.member = ReadBits(s, f.bits);
}
template <typename Record, size_t N>
void writeFields(zr_bitstream* s, const Record* r, const Field<Record> (&fields)[N]) {
  for (const auto& f : fields) WriteBits(s, f.bits, r->*f.member);
}

}  // namespace

extern "C" uint32_t klxutilAACFrequency(uint32_t index) { return index < std::size(kFrequencies) ? kFrequencies[index] : 0; }

extern "C" int klxutilReadAAC(zr_bitstream* s, AAC_AUDIO_CONFIG* config) {
  if (!s || !config) return 0;
  readFields(s, config, kAacHead);
  config->samplingFrequency = klxutilAACFrequency(config->samplingFrequencyIndex);
  if (config->samplingFrequencyIndex == kExplicitFrequencyIndex)
    config->*kAacExplicitFrequency.member = ReadBits(s, kAacExplicitFrequency.bits);
  readFields(s, config, kAacTail);
  return 0;
}

extern "C" int klxutilWriteAAC(zr_bitstream* s, const AAC_AUDIO_CONFIG* config) {
  if (!s || !config) return 0;
  writeFields(s, config, kAacHead);
  if (config->samplingFrequencyIndex == kExplicitFrequencyIndex)
    WriteBits(s, kAacExplicitFrequency.bits, config->*kAacExplicitFrequency.member);
  writeFields(s, config, kAacTail);
  return 0;
}

extern "C" int klxutilReadADTS(zr_bitstream* s, ADTS_HEADER* header) {
  if (!s || !header) return 0;
  readFields(s, header, kAdtsFields);
  header->check_word = 0;
  if (header->protection_absent == 1) header->check_word = static_cast<uint16_t>(ReadBits(s, kCheckWordBits));
  return 0;
}

extern "C" int klxutilWriteADTS(zr_bitstream* s, const ADTS_HEADER* header) {
  if (!s || !header) return 0;
  writeFields(s, header, kAdtsFields);
  if (header->protection_absent == 1) WriteBits(s, kCheckWordBits, header->check_word);
  return 0;
}
