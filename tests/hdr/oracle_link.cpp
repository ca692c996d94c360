// The independent parsers of the other test areas, built into this one: ffmpeg's trace_headers
// unit lists, packet cuts and MP4 samples (tests/syntax), and the parameter-set element traces
// (tests/params).
#include "params/params_support.cpp"
#include "syntax/ffmpeg_oracle.cpp"
