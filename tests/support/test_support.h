// Helpers shared by the test areas.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "platform/zrlog.h"

namespace qtest {

// Captures every library log line while alive (restores the default sink afterwards).
class LogCapture {
 public:
  struct Line {
    int kind;
    uint32_t severity;
    std::string text;
  };
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  const std::vector<Line>& lines() const { return lines_; }
  // True when some captured line's text equals `text` exactly.
  bool contains(const std::string& text) const;
  void clear() { lines_.clear(); }

 private:
  static void sink(void* user, int kind, uint32_t severity, uint32_t a, uint32_t b, const char* text);
  std::vector<Line> lines_;
};

// A fresh empty directory under the system temp dir, removed (recursively) on destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

struct CommandResult {
  int exitCode = -1;
  std::string out;  // stdout
  std::string err;  // stderr
};
// Runs a shell command line (sh -c), capturing stdout and stderr.
CommandResult runCommand(const std::string& commandLine);
// Runs the quorvane tool with the given argument string (already shell-quoted as needed).
CommandResult runTool(const std::string& args);
// Single-quotes text for sh.
std::string shellQuote(const std::string& text);

// Whole-file helpers.
std::vector<uint8_t> readBytes(const std::string& path);
void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes);
std::string samplePath(const std::string& name);
// A NAL unit payload with emulation_prevention_three_byte inserted (ITU-T H.264 7.4.1): written
// here, apart from the library, for the tests that build units bit by bit.
std::vector<uint8_t> emulationPrevented(const std::vector<uint8_t>& rbsp);
// True when the named program is on PATH (ffmpeg, ffprobe, x264, x265).
bool haveProgram(const std::string& name);

}  // namespace qtest

namespace qtest {

// Path of an elementary stream made by ffmpeg on first use and cached under the build tree
// (safe when several test processes ask at once). `name` is the cache file name (its extension
// picks the output muxer unless ffmpegArgs says otherwise, e.g. "-f hevc"); ffmpegArgs are the
// arguments between "ffmpeg -y -v error" and the output path, for example
//   "-f lavfi -i testsrc2=size=320x240:rate=25 -frames:v 10 -c:v libx265 -f hevc".
// Fails the calling test (and returns "") when ffmpeg is missing or fails.
std::string encodedStream(const std::string& name, const std::string& ffmpegArgs);

}  // namespace qtest
