// Constant memory on elementary streams of any size: the peak resident memory of inspect,
// reframe, nal and stamp on a generated ~300 MB stream stays within a fixed bound above the
// command's own footprint, and does not grow from a ~100 MB stream to the 300 MB one. Nothing
// is timed.
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
  struct Case {
    const char* name;
    std::vector<std::string> args;  // the stream's path is appended, then reframe's / stamp's OUT
  } cases[] = {{"inspect", {"inspect"}},
               {"reframe", {"reframe", "--to", "length"}},
               {"nal", {"nal"}},
               {"stamp", {"stamp", "--tc", "01:00:00:00", "-y"}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto withPath = [&](const std::string& path) {
      auto args = c.args;
      args.push_back(path);
      if (std::string(c.name) == "reframe") args.push_back("-");
      if (std::string(c.name) == "stamp") args.push_back(dir.file("stamped.h264"));  // a file: the whole write path
      return args;
    };
    const long peakSmall = peakKb(withPath(small)), peakLarge = peakKb(withPath(large));
    ASSERT_GT(peakSmall, 0);
    ASSERT_GT(peakLarge, 0);
    EXPECT_LT(peakLarge - footprint, kBoundKb) << "peak " << peakLarge << " KB, footprint " << footprint << " KB";
    EXPECT_LT(peakLarge - peakSmall, kGrowthKb) << "100 MB: " << peakSmall << " KB, 300 MB: " << peakLarge << " KB";
  }
}

}  // namespace
