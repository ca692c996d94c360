// Whole files through the `quorvane` command beside ffprobe/ffmpeg doing the nearest job, in the
// same run: each job is a child process on files from the page cache, timed by wall clock
// (UseManualTime), with its peak resident memory from wait4() in a small launcher.
//
// The streams are made once per run in a temporary folder: one x264 1080p GOP and one x265 4K
// GOP, each repeated (every copy opens with an IDR) to QUORVANE_BENCH_MEDIA_MB megabytes
// (default 500), and the H.264 one muxed into MP4 with AAC audio. QUORVANE_BENCH_TOOL names the
// command to measure (default: the one built beside this executable).
//
//   build/release/bench/quorvane_bench --benchmark_filter=WholeFile
//
// Jobs that write to "-" send their output to /dev/null; the others write a file beside the
// input (stamp's OUT, as a user runs it).
//
// Counters: bestSeconds / bestMBps are the fastest of the iterations (the machine is shared, so
// the best run is the one least disturbed), cpuSeconds the least user + system time of the
// child (what the job costs whatever else the machine runs), peakRssMB the largest child peak,
// vsPeer the best time over the best time of the peer job named in the table (same run).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "bench_streams.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

// The files every job reads, made on first use and removed when the run ends.
class WholeFiles {
 public:
  static WholeFiles& get() {
    static WholeFiles files;
    return files;
  }
  bool ok() const { return error_.empty(); }
  const std::string& error() const { return error_; }
  std::string path(const std::string& name) const { return (dir_ / name).string(); }
  uint64_t size(const std::string& name) const { return fs::file_size(dir_ / name); }
  ~WholeFiles() {
    std::error_code ec;
    if (!dir_.empty()) fs::remove_all(dir_, ec);
  }

 private:
  WholeFiles() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/quorvane-media-bench-XXXXXX";
    if (!mkdtemp(pattern.data())) {
      error_ = "cannot make a temporary folder";
      return;
    }
    dir_ = pattern;
    const char* mb = std::getenv("QUORVANE_BENCH_MEDIA_MB");
    const uint64_t bytes = uint64_t(mb && std::atoi(mb) > 0 ? std::atoi(mb) : 500) << 20;
    std::fprintf(stderr, "making the %llu MB whole-file streams in %s (once)...\n",
                 static_cast<unsigned long long>(bytes >> 20), dir_.c_str());
    const std::string d = dir_.string();
    const std::string steps[] = {
        "ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=1920x1080:rate=25 -t 4 -c:v libx264 -preset veryfast "
        "-b:v 20M -g 50 -bf 3 -f h264 '" + d + "/gop.h264'",
        "ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=3840x2160:rate=25 -t 1 -c:v libx265 -preset ultrafast "
        "-b:v 60M -x265-params log-level=error:keyint=25 -f hevc '" + d + "/gop.hevc'",
    };
    for (const auto& step : steps)
      if (std::system(step.c_str()) != 0) {
        error_ = "ffmpeg could not make the streams (x264/x265 missing?)";
        return;
      }
    if (!repeat("gop.h264", "big.h264", bytes) || !repeat("gop.hevc", "big.hevc", bytes)) {
      error_ = "cannot write the streams";
      return;
    }
    const std::string mux = "ffmpeg -nostdin -v error -i '" + d + "/big.h264' -f lavfi -i sine=sample_rate=48000 -shortest "
                            "-c:v copy -c:a aac '" + d + "/big.mp4'";
    if (std::system(mux.c_str()) != 0) error_ = "ffmpeg could not make the MP4 file";
  }

  bool repeat(const std::string& gop, const std::string& big, uint64_t bytes) const {
    std::ifstream in(dir_ / gop, std::ios::binary);
    const std::string unit((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::ofstream out(dir_ / big, std::ios::binary);
    if (unit.empty()) return false;
    for (uint64_t written = 0; written < bytes; written += unit.size()) out.write(unit.data(), std::streamsize(unit.size()));
    return bool(out);
  }

  fs::path dir_;
  std::string error_;
};

std::string toolPath() {
  if (const char* t = std::getenv("QUORVANE_BENCH_TOOL"); t && *t) return t;
  return bench_streams::executableDir() + "/../tools/quorvane";
}

struct ChildRun {
  bool ok = false;
  double seconds = 0;
  long peakKb = 0;
  double cpuSeconds = 0;  // user + system
};

// Runs argv with standard input from /dev/null and its output into /dev/null, through the
// launcher that reports its peak memory (kB) and CPU time (wait4) into `peakFile`.
ChildRun runChild(const std::vector<std::string>& args, const std::string& peakFile) {
  const std::string launcher = bench_streams::executableDir() + "/quorvane_bench_launcher";
  std::vector<char*> argv{const_cast<char*>(launcher.c_str()), const_cast<char*>(peakFile.c_str())};
  for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  ChildRun run;
  pid_t pid = 0;
  const auto start = std::chrono::steady_clock::now();
  const int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) return run;
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) return run;
  run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::ifstream peak(peakFile);
  run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0 && (peak >> run.peakKb >> run.cpuSeconds);
  return run;
}

// One job: the input file, the command ({tool}, {in} and {out} replaced), and the job whose
// best time `vsPeer` divides by (empty: none).
struct Job {
  const char* name;
  const char* input;
  std::vector<std::string> command;
  const char* peer;
};

const std::vector<Job>& jobs() {
  static const std::vector<Job> table = {
      {"params/h264", "big.h264", {"{tool}", "params", "{in}"}, ""},
      {"params/hevc", "big.hevc", {"{tool}", "params", "{in}"}, ""},
      {"ffprobe_show_packets/h264", "big.h264", {"ffprobe", "-v", "error", "-show_packets", "{in}"}, ""},
      {"nal/h264", "big.h264", {"{tool}", "nal", "{in}"}, "ffprobe_show_packets/h264"},
      {"inspect/h264", "big.h264", {"{tool}", "inspect", "{in}"}, "ffprobe_show_packets/h264"},
      {"ffprobe_show_packets/hevc", "big.hevc", {"ffprobe", "-v", "error", "-show_packets", "{in}"}, ""},
      {"nal/hevc", "big.hevc", {"{tool}", "nal", "{in}"}, "ffprobe_show_packets/hevc"},
      {"inspect/hevc", "big.hevc", {"{tool}", "inspect", "{in}"}, "ffprobe_show_packets/hevc"},
      {"ffmpeg_copy/h264", "big.h264", {"ffmpeg", "-nostdin", "-v", "error", "-i", "{in}", "-c", "copy", "-f", "h264", "-"}, ""},
      {"reframe_to_length/h264", "big.h264", {"{tool}", "reframe", "--to", "length", "{in}", "-"}, "ffmpeg_copy/h264"},
      {"stamp_to_stdout/h264", "big.h264", {"{tool}", "stamp", "{in}", "-", "--tc", "01:00:00:00"}, "ffmpeg_copy/h264"},
      {"stamp/h264", "big.h264", {"{tool}", "stamp", "{in}", "{out}.h264", "--tc", "01:00:00:00", "-y"}, "ffmpeg_copy/h264"},
      {"ffmpeg_copy/hevc", "big.hevc", {"ffmpeg", "-nostdin", "-v", "error", "-i", "{in}", "-c", "copy", "-f", "hevc", "-"}, ""},
      {"reframe_to_length/hevc", "big.hevc", {"{tool}", "reframe", "--to", "length", "{in}", "-"}, "ffmpeg_copy/hevc"},
      {"stamp_to_stdout/hevc", "big.hevc", {"{tool}", "stamp", "{in}", "-", "--tc", "01:00:00:00"}, "ffmpeg_copy/hevc"},
      {"stamp/hevc", "big.hevc", {"{tool}", "stamp", "{in}", "{out}.hevc", "--tc", "01:00:00:00", "-y"}, "ffmpeg_copy/hevc"},
      {"ffmpeg_copy/mp4", "big.mp4", {"ffmpeg", "-nostdin", "-v", "error", "-y", "-i", "{in}", "-c", "copy", "{out}.mp4"}, ""},
      {"reframe/mp4", "big.mp4", {"{tool}", "reframe", "{in}", "{out}.mp4", "-y"}, "ffmpeg_copy/mp4"},
      {"stamp/mp4", "big.mp4", {"{tool}", "stamp", "{in}", "{out}.mp4", "--tc", "01:00:00:00", "-y"}, "ffmpeg_copy/mp4"},
  };
  return table;
}

std::map<std::string, double>& bestTimes() {
  static std::map<std::string, double> best;
  return best;
}

std::string replaced(std::string arg, const std::string& key, const std::string& value) {
  for (size_t at; (at = arg.find(key)) != std::string::npos;) arg.replace(at, key.size(), value);
  return arg;
}

void BM_WholeFile(benchmark::State& state, const Job* job) {
  WholeFiles& files = WholeFiles::get();
  if (!files.ok()) {
    state.SkipWithError(files.error().c_str());
    return;
  }
  const std::string out = files.path("out");
  std::vector<std::string> argv;
  for (const auto& a : job->command)
    argv.push_back(replaced(replaced(replaced(a, "{tool}", toolPath()), "{in}", files.path(job->input)), "{out}", out));
  const uint64_t bytes = files.size(job->input);
  runChild({"cat", files.path(job->input)}, out + ".peak");  // into the page cache
  double best = 1e30, bestCpu = 1e30;
  long peakKb = 0;
  for (auto _ : state) {
    std::error_code ec;
    for (const char* ext : {".h264", ".hevc", ".mp4"}) fs::remove(out + ext, ec);
    const ChildRun run = runChild(argv, out + ".peak");
    if (!run.ok) {
      state.SkipWithError(("failed: " + argv[0] + " " + argv[1]).c_str());
      return;
    }
    state.SetIterationTime(run.seconds);
    best = std::min(best, run.seconds);
    bestCpu = std::min(bestCpu, run.cpuSeconds);
    peakKb = std::max(peakKb, run.peakKb);
  }
  bestTimes()[job->name] = best;
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes));
  state.counters["fileMB"] = double(bytes) / (1 << 20);
  state.counters["bestSeconds"] = best;
  state.counters["cpuSeconds"] = bestCpu;
  state.counters["bestMBps"] = double(bytes) / (1 << 20) / best;
  state.counters["peakRssMB"] = double(peakKb) / 1024;
  if (auto peer = bestTimes().find(job->peer); *job->peer && peer != bestTimes().end())
    state.counters["vsPeer"] = best / peer->second;
}

// Registered in table order, so each peer runs before the jobs compared with it.
const bool registered = [] {
  for (const auto& job : jobs())
    benchmark::RegisterBenchmark(("BM_WholeFile/" + std::string(job.name)).c_str(), BM_WholeFile, &job)
        ->UseManualTime()
        ->Iterations(3)
        ->Unit(benchmark::kMillisecond);
  return true;
}();

}  // namespace
