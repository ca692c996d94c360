// The units of a video stream as the quorvane commands show them: header fields, type names and
// SEI payload types. Shared by `quorvane nal` and `quorvane inspect`; finding the units and
// cutting access units is the media layer's and the library's (streamutil/access_units.h).
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "inspect.h"

namespace units {

const char* codecName(StreamCodec codec);  // "h264", "hevc", "mpeg2", "unknown"

struct Header {
  int type = -1;
  int refIdc = -1;      // H.264
  int layer = -1;       // HEVC
  int temporalId = -1;  // HEVC
};
Header header(StreamCodec codec, const uint8_t* unit, size_t size);
const char* typeName(StreamCodec codec, int type);

struct SeiMessage {
  int payloadType;
  int payloadSize;
};
// The SEI messages of an H.264 SEI unit or HEVC prefix SEI unit (empty for other units).
std::vector<SeiMessage> seiMessages(StreamCodec codec, const uint8_t* unit, size_t size);

}  // namespace units
