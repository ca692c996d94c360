// Timecode translation (SMPTE ST 12-1): frame counts to timecode text or digits and back.
//
// A format word passed to tc2String carries the timecode type in its low byte (0 frames,
// 1 film/24, 2 30 non-drop, 4 29.97 drop-frame, 8 PAL/25, 16 50, 32 59.94 drop-frame, 64 60,
// 128 23.98 counted like 24; 132 behaves as 128) and option bits above it. The flag bits and
// the output forms are documented in full beside their definitions below.
#pragma once
#include <cstddef>
#include <cstdint>

extern "C" {

enum TcType : uint32_t {
  TC_FRAMES = 0,
  TC_FILM = 1,
  TC_NDF30 = 2,
  TC_DF2997 = 4,
  TC_PAL = 8,
  TC_50 = 16,
  TC_DF5994 = 32,
  TC_60 = 64,
  TC_2398 = 128,
};

// Renders frames in the type and form of format into out (outSize bytes). Returns 0, or -1 for
// a null or too small buffer or an unknown type.
int tc2String(uint32_t frames, uint32_t format, void* out, size_t outSize);

// Parses timecode text of the given type (flags above the low byte as for tc2String) into
// *frames. Returns 0, or -1 for malformed text, out-of-range fields or a dropped frame number.
int tc2Frame(const char* text, uint32_t type, uint32_t* frames);
}
