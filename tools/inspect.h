// Sections of `quorvane inspect`. cmd_inspect.cpp reads the stream, lists its units, and asks
// each section to add its part of the report, as text on `out` or into `json` when --json is
// given (exactly one of the two is non-null). Each section lives in its own file.
#pragma once
#include <cstdint>
#include <cstdio>
#include <vector>

#include "cli.h"

enum class StreamCodec { kH264, kHevc, kMpeg2, kUnknown };

// Parameter sets (VPS/SPS/PPS) and the signal format derived from them.  inspect_params.cpp
void inspectParams(const std::vector<uint8_t>& stream, StreamCodec codec, FILE* out, cli::Json* json);
// Per-frame timecodes and caption counts found in SEI/user data.          inspect_frames.cpp
void inspectFrames(const std::vector<uint8_t>& stream, StreamCodec codec, FILE* out, cli::Json* json);
