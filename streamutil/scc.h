// Scenarist SCC caption files: CEA-608 byte pairs tagged with SMPTE timecodes.
//
//   Scenarist_SCC V1.0
//
//   00:00:01:00<TAB>9420 9420 94ae 94ae 9452 9452 97a1 97a1 c1e2 ...
//
// Each line's words (two bytes, four hex digits, odd parity per byte as CEA-608 requires) are
// sent one per frame, the first at the line's timecode; a line whose timecode falls before the
// previous line has finished goes out right behind it. Timecodes use ':' or, for drop-frame,
// ';' before the frames.
#pragma once
#include <cstddef>
#include <cstdint>

extern "C" {

struct SCC_CAPTION {
  uint32_t frame;  // frame count in the timecode type given to the reader
  uint8_t data[2];  // the byte pair, parity bits included
};

// Reads SCC text. tcType is the timecode type of the stream the captions go with (1 24,
// 2 30, 4 29.97 drop-frame, 8 25, ...). Fills up to `capacity` pairs in frame order and sets
// *count to the number the file holds. Returns 0; -1 for malformed text (*errorLine is then
// the 1-based line); -2 when `capacity` is too small (*count says how many are needed; call
// again with room, or with a null `pairs` and 0 capacity to size first).
int klxutilReadScc(const char* text, size_t length, uint32_t tcType, SCC_CAPTION* pairs, uint32_t capacity,
                   uint32_t* count, uint32_t* errorLine);
}
