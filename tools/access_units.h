// Access units of a whole H.264 or HEVC elementary stream in memory, with each picture's place in
// display order: a layer over the library's cutter and display order (streamutil/access_units.h)
// kept for `quorvane stamp` until it moves onto the frame pipeline (tools/media/pipeline.h).
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "inspect.h"

struct NalUnitRef {
  size_t codeAt;  // first byte of the start code
  size_t header;  // first header byte
  size_t end;     // one past the unit (the next start code, or the end of the stream)
  int type;       // nal_unit_type
};

struct AccessUnitRef {
  size_t begin, end;  // byte range in the stream (start code of the first unit .. end of the last)
  std::vector<NalUnitRef> units;
  bool hasPicture = false;
  int32_t poc = 0;           // picture order count (0 when there is no picture)
  uint32_t sequence = 0;     // coded video sequence: increases at each IDR/BLA
  uint32_t displayIndex = 0;  // position in display order over the whole stream
};

// Lists the NAL units behind start codes. Leading bytes before the first start code are not a unit.
std::vector<NalUnitRef> listNalUnits(const uint8_t* data, size_t size);

// H.264 or HEVC from the first unit headers, kUnknown when neither fits.
StreamCodec detectCodec(const uint8_t* data, size_t size, const std::vector<NalUnitRef>& units);

// Groups units into access units (ITU-T H.264 7.4.1.2.3, H.265 7.4.2.4.4) and numbers the
// pictures in display order. Returns false with `error` set when a parameter set or slice
// header the ordering needs cannot be read.
bool splitAccessUnits(const uint8_t* data, size_t size, StreamCodec codec, std::vector<AccessUnitRef>& out,
                      std::string& error);
