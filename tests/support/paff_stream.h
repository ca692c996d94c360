// H.264 streams coded as field pictures (field_pic_flag 1), written by hand: no encoder on the
// machine writes them, and the timecode and caption tests need a pair of field pictures to
// count as one frame.
#pragma once
#include <string>

namespace qtest {

// Path of an H.264 Annex B elementary stream (160x96 frames, fields of 160x48, Main profile,
// every macroblock I_PCM) whose coded pictures follow `pattern`: 'F' one frame picture
// (field_pic_flag 0, an IDR picture), 'P' a pair of field pictures, top field then bottom field
// (the top field an IDR picture, the bottom field a non-IDR reference field of the same frame).
// The SPS and PPS come once, in front of the stream; no SEI. VUI timing says `fps` frames per
// second (time_scale = 2 * fps, num_units_in_tick = 1). Picture order counts: type 0, lsb 0 for
// frames and top fields, 1 for bottom fields. The picture content is ffmpeg's testsrc2 at `fps`,
// one source frame per letter, which every picture decodes to exactly.
// Made on first use and cached under the build tree as `name` (safe when several test processes
// ask at once). Fails the calling test and returns "" when ffmpeg is missing or fails.
std::string paffStream(const std::string& name, const std::string& pattern, int fps = 25);

}  // namespace qtest
