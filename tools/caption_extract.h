// The captions of a stream read access unit by access unit (quorvane captions extract): each
// picture's cc_data and timecode read with the library's readers, put in display order by the
// library's display order, and written out as they come (SCC byte pairs at their timecodes, or
// SRT cues decoded by the library's CEA-608 decoder). Memory stays the same whatever the length
// of the stream; only the decoded cues are kept when asked for (JSON).
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "inspect.h"
#include "media/input.h"
#include "media/output.h"

namespace captions {

enum class TextForm { kNone, kScc, kSrt };

struct Cue {
  uint32_t startFrame, endFrame;  // display positions in frames (a pair of field pictures is one)
  uint32_t startTimecode;         // frame count of the timecode shown at startFrame
  std::string text;
};

struct Extraction {
  StreamCodec codec = StreamCodec::kUnknown;
  double frameRate = 25;    // frames per second of the cue positions
  uint32_t tcType = 0;      // timecode counting of the SCC lines and cue timecodes
  uint32_t pictures = 0;
  size_t pairs = 0;         // the channel's byte pairs, padding left out
  size_t cueCount = 0;      // decoded cues
  std::vector<Cue> cues;    // decoded cues, kept when keepCues is given
};

// Reads `input` to its end. Channel 1..4 (CC1..CC4). The text of `form` goes to `out` (null:
// none). False with a one-line `error` when the stream cannot be read or written.
bool extract(media::Input& input, uint32_t channel, TextForm form, media::OutputFile* out, bool keepCues,
             Extraction& result, std::string& error);

}  // namespace captions
