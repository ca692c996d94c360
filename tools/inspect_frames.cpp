// Frame section of `quorvane inspect`: placeholder until timecode and caption reading lands.
#include "inspect.h"

void inspectFrames(const std::vector<uint8_t>&, StreamCodec, FILE*, cli::Json*) {}
