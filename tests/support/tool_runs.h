// Helpers of the stream and caption tests that run the command and walk Annex B streams: a run
// that must succeed, the stamp and caption-extract runs most of them make, the timecodes ffprobe
// reads back from a stamped file, and the units of a stream one by one.
#pragma once
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/tcxlat.h"
#include "streamutil/access_units.h"
#include "support/ffmpeg_oracle.h"
#include "support/test_support.h"

namespace qtest {

// Runs the tool with the given arguments; a non-zero exit fails the calling test (arguments and
// stderr in the message).
inline CommandResult runToolOk(const std::string& args) {
  CommandResult r = runTool(args);
  EXPECT_EQ(r.exitCode, 0) << args << ": " << r.err;
  return r;
}

// quorvane stamp IN OUT <options>, which must succeed.
inline CommandResult stampOk(const std::string& in, const std::string& out, const std::string& options) {
  return runToolOk("stamp " + shellQuote(in) + " " + shellQuote(out) + " " + options);
}

// quorvane captions extract IN -o OUT ("-" for standard output), which must succeed.
inline CommandResult extractOk(const std::string& in, const std::string& out) {
  return runToolOk("captions extract " + shellQuote(in) + " -o " + (out == "-" ? out : shellQuote(out)));
}

// ffprobe reads `frames` frames from `path` (display order), frame i showing the timecode
// `start + i / picturesPerFrame` (counted as `type`) in every clock timestamp it has: exactly
// `timestampsPerFrame` of them, or at least one when that is 0.
inline void expectTimecodesCountOn(const std::string& path, size_t frames, uint32_t start, uint32_t type,
                                   size_t timestampsPerFrame = 1, uint32_t picturesPerFrame = 1) {
  const auto shown = oracle::frameTimecodes(path);
  ASSERT_EQ(shown.size(), frames);
  for (size_t i = 0; i < shown.size(); ++i) {
    if (timestampsPerFrame) {
      EXPECT_EQ(shown[i].size(), timestampsPerFrame) << "picture " << i;
    } else {
      EXPECT_FALSE(shown[i].empty()) << "picture " << i;
    }
    const std::string want = oracle::printedTimecode(start + uint32_t(i) / picturesPerFrame, type);
    for (const auto& v : shown[i]) EXPECT_EQ(v, want) << "picture " << i;
  }
}

// stamp IN OUT --tc START <options>, which must succeed; then ffprobe reads one frame of OUT for
// each picture FFmpeg decodes from IN, counting on from START (as expectTimecodesCountOn), and
// every picture decodes as it did in IN. The result is the stamp's.
inline CommandResult expectStampCountsOn(const std::string& in, const std::string& out, const std::string& start, uint32_t type,
                                         const std::string& options, size_t timestampsPerFrame = 1,
                                         uint32_t picturesPerFrame = 1) {
  CommandResult r = stampOk(in, out, "--tc '" + start + "' " + options);
  uint32_t first = 0;
  EXPECT_EQ(tc2Frame(start.c_str(), type | TCF_TEXT, &first), 0) << start;
  const auto pictures = oracle::pictureChecksums(in);
  expectTimecodesCountOn(out, pictures.size(), first, type, timestampsPerFrame, picturesPerFrame);
  EXPECT_EQ(oracle::pictureChecksums(out), pictures) << "pictures changed";
  return r;
}

// Calls visit(at, unit, size) for every unit of an Annex B stream, in order: `at` is the offset
// of its start code, `unit` its first header byte and `size` its length up to the next start code.
template <class Visit>
void forEachAnnexBUnit(const std::vector<uint8_t>& s, Visit&& visit) {
  size_t at = 0, next = 0;
  uint32_t length = 0, nextLength = 0;
  for (bool more = klxutilFindStartCode(s.data(), s.size(), 0, &at, &length) == 1; more; at = next, length = nextLength) {
    more = klxutilFindStartCode(s.data(), s.size(), at + length, &next, &nextLength) == 1;
    visit(at, s.data() + at + length, uint32_t((more ? next : s.size()) - at - length));
  }
}

}  // namespace qtest
