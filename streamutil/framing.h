// Frames of H.264/HEVC elementary streams between Annex B framing (start codes) and the
// length-prefixed framing of MP4-style containers (a 32-bit big-endian size in front of each
// unit, ISO/IEC 14496-15), in place; and the lookup of one unit of a frame by its header byte.
// Nothing here allocates.
#pragma once
#include <cstdint>

extern "C" {

// Annex B -> length-prefixed, in place. Returns the new size: the old size plus one for every
// three-byte start code (each is widened to four bytes). A frame shorter than 4 bytes, one that
// does not begin with a start code, and one that already reads as a valid length-prefixed chain
// are returned unchanged. The caller must have that much room behind the frame; see the checked
// form below when that is not certain.
uint32_t klxUtilh264MarkerToSize(uint8_t* buf, uint32_t size);

// The same conversion, refused (-1, frame untouched) when the converted frame would not fit in
// `capacity` bytes; 0 and *newSize set otherwise.
int klxUtilh264MarkerToSizeChecked(uint8_t* buf, uint32_t size, uint32_t capacity, uint32_t* newSize);

// The room a conversion needs: the size klxUtilh264MarkerToSize would return. Reads only.
uint32_t klxUtilh264MarkerToSizeResult(const uint8_t* buf, uint32_t size);

// Length-prefixed -> Annex B (00 00 00 01 over each length field), in place. A zero length cuts
// the frame there (the result is its position); a length that overruns the frame stops the walk
// and returns `size` with the remaining fields as they were. A frame already beginning with
// 00 00 00 01 is returned unchanged.
uint32_t klxUtilh264SizeToMarker(uint8_t* buf, uint32_t size);

// Finds the first unit whose first header byte (the byte behind a four-byte start code or
// length field) equals `nalHeaderByte`. startCodes: nonzero for Annex B, 0 for length-prefixed.
// *unit points at the unit's start code / length field, *unitLength counts to the next unit.
// Returns 1 when found with a non-zero length, else 0.
int klxUtilFindSpecificNAL(uint8_t* buf, uint32_t size, uint32_t startCodes, uint8_t nalHeaderByte,
                           uint8_t** unit, uint32_t* unitLength);

// Finds the last HEVC prefix SEI (header byte 0x4E) and the last Dolby Vision RPU unit (0x7C) of
// a frame. Each pointer is set at the unit's second header byte. Returns 1 when an RPU was found,
// else 1 when a prefix SEI was found, else 0.
int klxUtilFindDolbyVisionMetadata(uint8_t* buf, uint32_t size, uint32_t startCodes, uint8_t** sei,
                                   uint32_t* seiLength, uint8_t** rpu, uint32_t* rpuLength);

}  // extern "C"
