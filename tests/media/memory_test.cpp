// Constant memory on elementary streams of any size: the peak resident memory of inspect,
// reframe, nal, stamp, captions extract and MPEG-2 stamp on a generated ~300 MB stream stays
// within a fixed bound above the command's own footprint, and does not grow from a ~100 MB stream
// to the 300 MB one. Nothing is timed.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "support/test_support.h"

extern char** environ;

namespace {

constexpr long kBoundKb = 64 * 1024;   // above the footprint of a command that reads 1 MB
constexpr long kGrowthKb = 8 * 1024;   // from 100 MB to 300 MB of input

// Peak resident memory (KB) of one run of the tool, its output thrown away. The address
// sanitizer's quarantine of freed blocks would count as resident: keep it small.
long peakKb(const std::vector<std::string>& args) {
  std::vector<std::string> env;
  for (char** e = environ; *e; ++e)
    if (std::string(*e).rfind("ASAN_OPTIONS=", 0) != 0) env.emplace_back(*e);
  const char* asan = std::getenv("ASAN_OPTIONS");
  env.push_back(std::string("ASAN_OPTIONS=") + (asan ? std::string(asan) + ":" : "") + "quarantine_size_mb=4");
  std::vector<char*> envp, argv{const_cast<char*>(QUORVANE_TOOL)};
  for (auto& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  std::vector<std::string> copies = args;
  for (auto& a : copies) argv.push_back(a.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  const int rc = posix_spawn(&pid, QUORVANE_TOOL, &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) return -1;
  int status = 0;
  struct rusage usage{};
  if (wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return -1;
  return usage.ru_maxrss;
}

// One x264 GOP (IDR first) repeated until the file holds `megabytes`: a valid stream, since
// every IDR starts a new coded video sequence.
void repeatToSize(const std::string& gop, const std::string& path, size_t megabytes) {
  const auto bytes = qtest::readBytes(gop);
  std::ofstream out(path, std::ios::binary);
  for (size_t written = 0; written < megabytes << 20; written += bytes.size())
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

TEST(Memory, StreamCommandsStayBoundedWhateverTheSize) {
  if (!qtest::haveProgram("ffmpeg")) GTEST_SKIP() << "ffmpeg not installed";
  const std::string gop = qtest::encodedStream(
      "memory_gop.h264", "-f lavfi -i testsrc2=size=640x360:rate=25 -t 4 -c:v libx264 -g 100 -bf 3 -f h264");
  ASSERT_FALSE(gop.empty());
  qtest::TempDir dir;
  const std::string small = dir.file("100.h264"), large = dir.file("300.h264");
  repeatToSize(gop, small, 100);
  repeatToSize(gop, large, 300);
  const long footprint = peakKb({"params", gop});
  ASSERT_GT(footprint, 0);
  // The same GOP with captions in it, for captions extract; an MPEG-2 GOP for stamp.
  const std::string scc = dir.file("cc.scc"), captioned = dir.file("cc_gop.h264");
  const std::string sccText = "Scenarist_SCC V1.0\n\n00:00:00:10\t9420 9420 94ae 94ae 9452 9452 c8e5 ecec ef80 942f 942f\n\n"
                              "00:00:02:00\t942c 942c\n";
  qtest::writeBytes(scc, std::vector<uint8_t>(sccText.begin(), sccText.end()));
  auto r = qtest::runTool("stamp " + qtest::shellQuote(gop) + " " + qtest::shellQuote(captioned) + " --tc 00:00:00:00 --captions " +
                          qtest::shellQuote(scc));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const std::string mpeg2Gop = qtest::encodedStream(
      "memory_gop.m2v", "-f lavfi -i testsrc2=size=640x360:rate=25 -t 4 -c:v mpeg2video -b:v 8M -g 100 -bf 2 -flags +cgop -sc_threshold 1000000000 -f mpeg2video");
  ASSERT_FALSE(mpeg2Gop.empty());
  const std::string captionedSmall = dir.file("cc100.h264"), captionedLarge = dir.file("cc300.h264");
  const std::string mpeg2Small = dir.file("100.m2v"), mpeg2Large = dir.file("300.m2v");
  repeatToSize(captioned, captionedSmall, 100);
  repeatToSize(captioned, captionedLarge, 300);
  repeatToSize(mpeg2Gop, mpeg2Small, 100);
  repeatToSize(mpeg2Gop, mpeg2Large, 300);
  const std::string stamped = dir.file("stamped.h264");
  struct Case {
    const char* name;
    std::vector<std::string> args;  // "IN" is replaced by the stream's path
    const std::string &small, &large;
  } cases[] = {
      {"inspect", {"inspect", "IN"}, small, large},
      {"reframe", {"reframe", "--to", "length", "IN", "-"}, small, large},
      {"nal", {"nal", "IN"}, small, large},
      {"stamp", {"stamp", "IN", stamped, "--tc", "01:00:00:00", "-y"}, small, large},  // a file: the whole write path
      {"captions extract", {"captions", "extract", "IN", "-o", "-"}, captionedSmall, captionedLarge},
      {"mpeg2 stamp", {"stamp", "IN", "-", "--tc", "01:00:00:00", "--captions", scc}, mpeg2Small, mpeg2Large},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto withPath = [&](const std::string& path) {
      auto args = c.args;
      for (auto& a : args)
        if (a == "IN") a = path;
      return args;
    };
    const long peakSmall = peakKb(withPath(c.small)), peakLarge = peakKb(withPath(c.large));
    ASSERT_GT(peakSmall, 0);
    ASSERT_GT(peakLarge, 0);
    EXPECT_LT(peakLarge - footprint, kBoundKb) << "peak " << peakLarge << " KB, footprint " << footprint << " KB";
    EXPECT_LT(peakLarge - peakSmall, kGrowthKb) << "100 MB: " << peakSmall << " KB, 300 MB: " << peakLarge << " KB";
  }
}

}  // namespace
