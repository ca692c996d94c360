// MPEG-2 video (ISO/IEC 13818-2) elementary streams cut into pictures, each with the headers in
// front of it, and numbered in display order (GOP start + temporal_reference), for the
// timecode and caption readers and writers that work picture by picture.
#pragma once
#include <cstdint>

extern "C" {

struct KLX_MPEG2_PICTURE {
  uint32_t begin;              // first byte: the first header in front of the picture
  uint32_t end;                // one past its last slice
  uint32_t firstSlice;         // its first slice start code (end when it has none)
  uint32_t temporalReference;  // picture_header temporal_reference
  uint32_t pictureCodingType;  // 1 I, 2 P, 3 B
  uint32_t opensGop;           // a group_of_pictures_header is among its headers
  uint32_t displayIndex;       // pictures of earlier GOPs + temporal_reference
};

// Fills up to `capacity` pictures and returns how many the stream holds (call with 0 to
// size), -1 for a bad argument. *frameRateCode receives the first sequence header's
// frame_rate_code (Table 6-4; 0 when there is none).
int klxutilMpeg2Pictures(const uint8_t* data, uint32_t size, KLX_MPEG2_PICTURE* pictures, uint32_t capacity,
                         uint32_t* frameRateCode);

// Frames per second of a frame_rate_code (0 for a reserved code).
double klxutilMpeg2FrameRate(uint32_t frameRateCode);
}
