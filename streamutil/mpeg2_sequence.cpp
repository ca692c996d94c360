// sequence_header(), sequence_extension() and sequence_display_extension() of ISO/IEC 13818-2
// (6.2.2.1, 6.2.2.3, 6.2.2.4, 6.3.3, 6.3.6).
#include "streamutil/mpeg2_sequence.h"

#include <cstddef>
#include <numeric>

namespace {

constexpr uint8_t kSequenceHeader = 0xB3, kExtension = 0xB5;
constexpr uint32_t kSequenceExtensionId = 1, kSequenceDisplayExtensionId = 2;
constexpr uint32_t kVideoFormatUnspecified = 5;  // Table 6-6
// The bytes up to and including each structure's marker_bit, start code value first.
constexpr uint32_t kHeaderBytes = 1 + 7, kExtensionBytes = 1 + 4;

// Big-endian bit fields. Bits past the end read as zero: a start-code splitter cannot tell a
// header's last zero bytes from the zero stuffing allowed in front of the next start code
// (ISO/IEC 13818-2 5.3), so a unit may come without them.
class Bits {
 public:
  Bits(const uint8_t* data, uint32_t size) : data_(data), size_(size) {}
  uint32_t take(uint32_t count) {
    uint32_t v = 0;
    for (uint32_t i = 0; i < count; ++i, ++at_)
      v = (v << 1) | ((at_ >> 3) < size_ ? (data_[at_ >> 3] >> (7 - (at_ & 7))) & 1 : 0);
    return v;
  }

 private:
  const uint8_t* data_;
  uint32_t size_;
  uint32_t at_ = 0;
};

// Table 6-4 frame_rate_value as a fraction.
struct Rate {
  uint32_t rate, scale;
};
constexpr Rate kFrameRates[16] = {{0, 0},    {24000, 1001}, {24, 1}, {25, 1}, {30000, 1001},
                                  {30, 1},   {50, 1},       {60000, 1001}, {60, 1}};

void deriveRate(KLX_MPEG2_SEQUENCE& s) {
  Rate r{};
  klxutilMpeg2FrameRateFraction(s.frame_rate_code, &r.rate, &r.scale);
  s.frameRate = r.rate * (s.frame_rate_extension_n + 1);
  s.frameRateScale = r.scale * (s.frame_rate_extension_d + 1);
  if (const uint32_t g = std::gcd(s.frameRate, s.frameRateScale)) s.frameRate /= g, s.frameRateScale /= g;
}

struct Name {
  uint32_t code;
  const char* name;
};
// profile_and_level_indication bits 6..4 and 3..0 (Tables 8-2, 8-3), and the escaped
// combinations (bit 7, Table 8-7) as profile and level.
constexpr Name kProfiles[] = {{1, "High"}, {2, "Spatially Scalable"}, {3, "SNR Scalable"}, {4, "Main"}, {5, "Simple"}};
constexpr Name kLevels[] = {{4, "High"}, {6, "High 1440"}, {8, "Main"}, {10, "Low"}};
struct Escape {
  uint32_t code;
  const char* profile;
  const char* level;
};
constexpr Escape kEscapes[] = {{0x82, "4:2:2", "High"},      {0x85, "4:2:2", "Main"},
                               {0x8A, "Multi-view", "High"}, {0x8B, "Multi-view", "High 1440"},
                               {0x8D, "Multi-view", "Main"}, {0x8E, "Multi-view", "Low"}};

template <size_t N>
const char* lookup(const Name (&table)[N], uint32_t code) {
  for (const Name& n : table)
    if (n.code == code) return n.name;
  return nullptr;
}

const Escape* escape(uint32_t code) {
  for (const Escape& e : kEscapes)
    if (e.code == code) return &e;
  return nullptr;
}

}  // namespace

extern "C" {

int klxutilMpeg2FrameRateFraction(uint32_t frameRateCode, uint32_t* rate, uint32_t* scale) {
  if (!rate || !scale) return -1;
  const Rate r = kFrameRates[frameRateCode & 15];
  *rate = r.rate, *scale = r.scale;
  return r.scale ? 0 : -1;
}

int klxutilReadMpeg2SequenceHeader(const uint8_t* unit, uint32_t size, KLX_MPEG2_SEQUENCE* seq) {
  if (!unit || !seq || size < kHeaderBytes || unit[0] != kSequenceHeader) return -1;
  Bits b(unit + 1, size - 1);
  KLX_MPEG2_SEQUENCE s{};
  s.horizontal_size = b.take(12);
  s.vertical_size = b.take(12);
  s.aspect_ratio_information = b.take(4);
  s.frame_rate_code = b.take(4);
  s.bit_rate = b.take(18);
  if (b.take(1) != 1) return -1;  // marker_bit
  s.vbv_buffer_size = b.take(10);
  s.progressive_sequence = 1;
  s.chroma_format = 1;
  s.video_format = kVideoFormatUnspecified;
  deriveRate(s);
  *seq = s;
  return 0;
}

int klxutilReadMpeg2SequenceExtension(const uint8_t* unit, uint32_t size, KLX_MPEG2_SEQUENCE* seq) {
  if (!unit || !seq || size < kExtensionBytes || unit[0] != kExtension) return -1;
  Bits b(unit + 1, size - 1);
  if (b.take(4) != kSequenceExtensionId) return -1;
  KLX_MPEG2_SEQUENCE s = *seq;
  s.profile_and_level_indication = b.take(8);
  s.progressive_sequence = b.take(1);
  s.chroma_format = b.take(2);
  s.horizontal_size = (s.horizontal_size & 0xFFF) | (b.take(2) << 12);
  s.vertical_size = (s.vertical_size & 0xFFF) | (b.take(2) << 12);
  s.bit_rate = (s.bit_rate & 0x3FFFF) | (b.take(12) << 18);
  if (b.take(1) != 1) return -1;  // marker_bit
  s.vbv_buffer_size = (s.vbv_buffer_size & 0x3FF) | (b.take(8) << 10);
  s.low_delay = b.take(1);
  s.frame_rate_extension_n = b.take(2);
  s.frame_rate_extension_d = b.take(5);
  s.hasExtension = 1;
  deriveRate(s);
  *seq = s;
  return 0;
}

int klxutilReadMpeg2SequenceDisplayExtension(const uint8_t* unit, uint32_t size, KLX_MPEG2_SEQUENCE* seq) {
  if (!unit || !seq || size < 2 || unit[0] != kExtension) return -1;
  Bits b(unit + 1, size - 1);
  if (b.take(4) != kSequenceDisplayExtensionId) return -1;
  KLX_MPEG2_SEQUENCE s = *seq;
  s.video_format = b.take(3);
  s.colour_description = b.take(1);
  s.colour_primaries = s.transfer_characteristics = s.matrix_coefficients = 0;
  if (s.colour_description) {
    s.colour_primaries = b.take(8);
    s.transfer_characteristics = b.take(8);
    s.matrix_coefficients = b.take(8);
  }
  // The bits up to and including the marker_bit: 4 + 3 + 1 (+ 24 colour) + 14 + 1.
  const uint32_t markerBits = s.colour_description ? 47 : 23;
  if (size < 1 + (markerBits + 7) / 8) return -1;
  s.display_horizontal_size = b.take(14);
  if (b.take(1) != 1) return -1;  // marker_bit
  s.display_vertical_size = b.take(14);
  s.hasDisplayExtension = 1;
  *seq = s;
  return 0;
}

const char* klxutilMpeg2ProfileName(uint32_t code) {
  if (code & 0x80) return escape(code) ? escape(code)->profile : nullptr;
  return lookup(kProfiles, (code >> 4) & 7);
}

const char* klxutilMpeg2LevelName(uint32_t code) {
  if (code & 0x80) return escape(code) ? escape(code)->level : nullptr;
  return lookup(kLevels, code & 15);
}

}  // extern "C"
