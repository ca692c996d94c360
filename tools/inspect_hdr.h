// HDR and colour facts of a stream for `quorvane inspect` and `quorvane hdr`: names of the
// ITU-T H.273 colour code points, and the HDR SEI values of the first access unit that carries
// them, decoded (chromaticities, cd/m2).
#pragma once
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string_view>
#include <vector>

#include "cli.h"
#include "inspect.h"
#include "param_report.h"
#include "streamutil/hdr_sei.h"

namespace hdrinfo {

enum class ColourKind { kPrimaries, kTransfer, kMatrix };

// Short name of a code point ("bt709", "bt2020", "pq", "hlg", "bt2020nc"...), or "" when unnamed.
const char* colourName(ColourKind kind, int code);
// Code point of a name (any accepted spelling, e.g. "pq" or "smpte2084") or a decimal number
// 0..255; nullopt when neither.
std::optional<int> colourCode(ColourKind kind, std::string_view name);

// The "hdr" section: colour description of the first SPS and the first HDR SEI values found
// (MPEG-2: the colour description of its first sequence display extension). Prints nothing for
// other codecs. Called from the inspect report.
void inspectHdr(const params::StreamParams& sets, const KLX_HDR_METADATA& md, StreamCodec codec, FILE* out,
                cli::JsonValue* json);
// Merges the HDR SEI values of one access unit into `found` (values already found are kept).
void addHdrSei(const uint8_t* frame, uint32_t size, bool lengthPrefixed, bool hevc, KLX_HDR_METADATA& found);

}  // namespace hdrinfo
