// The units of an elementary stream as the quorvane commands see them: where each unit is, which
// codec the stream is, unit type names, SEI payload types, and access-unit (frame) boundaries.
// Shared by `quorvane nal`, `quorvane reframe` and `quorvane inspect`.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "inspect.h"

namespace units {

struct Span {
  size_t codeOffset = 0;  // start code or length field
  size_t offset = 0;      // first header byte
  size_t size = 0;        // unit bytes (no start code / length field)
  int prefixLength = 0;   // 3 or 4 (start code), 4 (length field)
};

// Every unit behind a start code, found with find_nal_unit. Empty when there is none.
std::vector<Span> annexB(const std::vector<uint8_t>& stream);

// Every unit of a length-prefixed stream (32-bit big-endian sizes). False, with the offset of
// the bad length field, when a length runs past the end.
bool lengthPrefixed(const std::vector<uint8_t>& stream, std::vector<Span>* spans, size_t* badOffset);

// H.264, HEVC or MPEG-2 video from the units' header bytes (kUnknown when nothing fits).
StreamCodec detect(const std::vector<uint8_t>& stream, const std::vector<Span>& spans);
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

// True when the unit is a VCL (slice) unit.
bool isVcl(StreamCodec codec, int type);
// True when this unit opens a new access unit, given whether a VCL unit came before it in the
// current one (ITU-T H.264 7.4.1.2.3, H.265 7.4.2.4.4: delimiters, parameter sets and prefix SEI
// after a picture, or the first slice of a new picture).
bool opensAccessUnit(StreamCodec codec, const uint8_t* unit, size_t size, bool vclSeen);

// Indices into `spans` where each access unit begins.
std::vector<size_t> accessUnitStarts(StreamCodec codec, const std::vector<uint8_t>& stream,
                                     const std::vector<Span>& spans);

}  // namespace units
