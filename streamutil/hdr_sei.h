// HDR static metadata SEI messages of ITU-T H.265 and H.264, written, read and placed in frames:
//   mastering display colour volume (H.265 D.2.28 / H.264 D.1.29, payloadType 137; the values of
//     SMPTE ST 2086),
//   content light level information (H.265 D.2.35 / H.264 D.1.31, payloadType 144; CTA-861.3
//     MaxCLL / MaxFALL),
//   alternative transfer characteristics (H.265 D.2.38 / H.264 D.1.34, payloadType 147).
// Each message travels in its own SEI NAL unit (HEVC prefix SEI, H.264 SEI), as the common
// encoders write them. Units are finished by CloseSEI. Nothing here allocates on the usual path.
#pragma once
#include <cstdint>

extern "C" {

constexpr uint32_t KLX_SEI_MASTERING_DISPLAY = 137;
constexpr uint32_t KLX_SEI_CONTENT_LIGHT_LEVEL = 144;
constexpr uint32_t KLX_SEI_ALTERNATIVE_TRANSFER = 147;

// Bits of KLX_HDR_METADATA.present.
constexpr uint32_t KLX_HDR_HAS_MASTERING_DISPLAY = 1;
constexpr uint32_t KLX_HDR_HAS_CONTENT_LIGHT_LEVEL = 2;
constexpr uint32_t KLX_HDR_HAS_ALTERNATIVE_TRANSFER = 4;

// mastering_display_colour_volume(): primaries c = 0, 1, 2 are green, blue, red (the order of
// the "G(x,y)B(x,y)R(x,y)" notation); chromaticities in units of 0.00002, luminance in units of
// 0.0001 cd/m2.
struct KLX_MASTERING_DISPLAY {
  uint16_t display_primaries_x[3];
  uint16_t display_primaries_y[3];
  uint16_t white_point_x;
  uint16_t white_point_y;
  uint32_t max_display_mastering_luminance;
  uint32_t min_display_mastering_luminance;
};

// content_light_level_info(): cd/m2.
struct KLX_CONTENT_LIGHT_LEVEL {
  uint16_t max_content_light_level;
  uint16_t max_pic_average_light_level;
};

struct KLX_HDR_METADATA {
  uint32_t present;  // KLX_HDR_HAS_... bits
  KLX_MASTERING_DISPLAY masteringDisplay;
  KLX_CONTENT_LIGHT_LEVEL contentLightLevel;
  uint8_t preferredTransferCharacteristics;  // alternative_transfer_characteristics()
};

// The payload bytes of one message (137, 144 or 147) from the record: 24, 4 or 1 bytes.
// Returns the byte count, 0 for an unknown type, a null argument or too small a capacity.
uint32_t klxutilWriteHdrSeiPayload(uint32_t payloadType, const KLX_HDR_METADATA* md, uint8_t* out, uint32_t capacity);

// One SEI NAL unit carrying that message, header first (no start code or length: the form
// klxutilAddNalUnits takes), emulation prevention applied. hevc: nonzero for an HEVC prefix SEI
// (header 4E 01), zero for an H.264 SEI (header 06). Returns the unit's bytes, 0 on refusal.
uint32_t klxutilWriteHdrSeiUnit(uint32_t hevc, uint32_t payloadType, const KLX_HDR_METADATA* md, uint8_t* out,
                                uint32_t capacity);

// Reads one payload (bytes as in the RBSP) into the record and sets its `present` bit. Returns 0,
// or -1 for an unknown type or a payload shorter than the message.
int klxutilReadHdrSeiPayload(uint32_t payloadType, const uint8_t* payload, uint32_t size, KLX_HDR_METADATA* md);

// Reads the HDR messages of the SEI units in front of a frame's first slice (the first of each
// type wins); md->present tells what was found. Returns 0, or -1 for a null argument or
// unreadable framing. The walk stops at the first slice without scanning it.
int klxutilReadHdrSei(const uint8_t* frame, uint32_t size, uint32_t startCodes, uint32_t hevc, KLX_HDR_METADATA* md);

// Replaces the HDR messages of a frame in place: every mastering display, content light level and
// alternative transfer message already in its SEI units is removed (a unit that carries other
// messages too keeps them), then one unit per message present in `md` goes in front of the first
// slice (at the end when there is none), after the parameter sets and the other SEI units.
// md->present = 0 only removes. A rewritten unit gets a 4-byte start code (or length) and its
// messages escaped afresh; a removed unit goes with its trailing zero bytes. Refused with
// KLX_SEI_NO_ROOM (-102) unless `capacity` holds the frame plus the new units (room freed by the
// removal is not counted) and the final frame (a rewrite can outgrow what it removed when the unit
// carried zero runs its writer did not escape); -1 for a null argument or unreadable framing, an
// SEI unit cut short behind one of these messages, an Annex B unit whose rewrite would begin with a
// start code (a forbidden HEVC header ending in a zero byte, then kept messages beginning 00 01),
// or a frame with more than 256 units in front of its first slice, before or after. Every change
// is planned before the first write: a refusal leaves the frame's bytes and *size as they were,
// and the call neither copies the frame nor allocates (the tail from the first slice on moves once).
int klxutilSetHdrSei(uint8_t* frame, uint32_t* size, uint32_t capacity, uint32_t startCodes, uint32_t hevc,
                     const KLX_HDR_METADATA* md);

// Parses the notation of x265 and x264: "G(x,y)B(x,y)R(x,y)WP(x,y)L(max,min)" (integers in the
// units above; spaces allowed) into the record. Returns 0, or -1 when the text does not fit or
// breaks ITU-T H.265 D.3.28 / H.264 D.2.29: every chromaticity in 0..50000, max above min.
int klxutilParseMasteringDisplay(const char* text, KLX_MASTERING_DISPLAY* out);

}  // extern "C"
