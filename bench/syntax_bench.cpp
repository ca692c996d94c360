// The hottest loops of the library on a 40 Mbit/s 1080p HEVC stream and a 4K frame, both made
// by x265 (through ffmpeg) on first use and cached next to this executable:
//   - find_nal_unit walking every unit, beside FFmpeg's avpriv_find_start_code doing the same;
//   - nal_to_rbsp / rbsp_to_nal over every unit;
//   - klxUtilh264MarkerToSize / klxUtilh264SizeToMarker on a whole 4K frame, in place.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "streamutil/framing.h"
#include "syntax/syntax.h"

#if defined(QUORVANE_HAVE_LIBAVCODEC)
extern "C" const uint8_t* avpriv_find_start_code(const uint8_t* p, const uint8_t* end, uint32_t* state);
#endif

namespace {

using Bytes = std::vector<uint8_t>;

std::string executableDir() {
  char path[PATH_MAX] = {};
  ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  std::string exe(path, n > 0 ? static_cast<size_t>(n) : 0);
  size_t slash = exe.rfind('/');
  return slash == std::string::npos ? "." : exe.substr(0, slash);
}

// The stream `name` next to the executable, made with ffmpeg on first use.
const Bytes& stream(const char* name, const char* ffmpegArgs) {
  static std::vector<std::pair<std::string, Bytes>> cache;
  for (const auto& [n, bytes] : cache)
    if (n == name) return bytes;
  const std::string path = executableDir() + "/" + name;
  std::ifstream probe(path, std::ios::binary);
  if (!probe) {
    std::fprintf(stderr, "making %s with ffmpeg/x265 (once)...\n", path.c_str());
    std::string command = std::string("ffmpeg -nostdin -y -v error ") + ffmpegArgs + " '" + path + ".partial' && mv '" +
                          path + ".partial' '" + path + "'";
    if (std::system(command.c_str()) != 0) std::fprintf(stderr, "ffmpeg failed: %s\n", command.c_str());
  }
  std::ifstream in(path, std::ios::binary);
  Bytes bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  cache.emplace_back(name, std::move(bytes));
  return cache.back().second;
}

const Bytes& hevc1080p() {
  return stream("bench_hevc_1080p_40mbps.hevc",
                "-f lavfi -i testsrc2=size=1920x1080:rate=25,noise=alls=30:allf=t -frames:v 50 -c:v libx265 "
                "-preset ultrafast -b:v 40M -maxrate 40M -bufsize 40M -x265-params log-level=error -f hevc");
}

// One 4K intra frame (its VPS/SPS/PPS/SEI and slices): the whole first access unit.
const Bytes& frame4k() {
  return stream("bench_hevc_4k_frame.hevc",
                "-f lavfi -i testsrc2=size=3840x2160:rate=25,noise=alls=20:allf=t -frames:v 1 -c:v libx265 "
                "-preset ultrafast -x265-params log-level=error:qp=18:slices=8 -f hevc");
}

struct Unit {
  size_t offset, size;
};
std::vector<Unit> unitsOf(const Bytes& s) {
  std::vector<Unit> units;
  size_t offset = 0;
  while (offset < s.size()) {
    int start, end;
    int n = find_nal_unit(s.data() + offset, static_cast<int>(s.size() - offset), &start, &end);
    if (n <= 0) break;
    units.push_back({offset + start, static_cast<size_t>(n)});
    offset += static_cast<size_t>(end);
  }
  return units;
}

void BM_FindNalUnit_Walk1080pHevc(benchmark::State& state) {
  const Bytes& s = hevc1080p();
  if (s.empty()) return state.SkipWithError("no stream (ffmpeg with libx265 needed)");
  size_t units = 0;
  for (auto _ : state) {
    units = 0;
    size_t offset = 0;
    while (offset < s.size()) {
      int start, end;
      int n = find_nal_unit(s.data() + offset, static_cast<int>(s.size() - offset), &start, &end);
      if (n <= 0) break;
      units++;
      offset += static_cast<size_t>(end);
    }
    benchmark::DoNotOptimize(units);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * s.size()));
  state.counters["units"] = static_cast<double>(units);
}
BENCHMARK(BM_FindNalUnit_Walk1080pHevc)->Unit(benchmark::kMillisecond);

#if defined(QUORVANE_HAVE_LIBAVCODEC)
void BM_FfmpegFindStartCode_Walk1080pHevc(benchmark::State& state) {
  const Bytes& s = hevc1080p();
  if (s.empty()) return state.SkipWithError("no stream (ffmpeg with libx265 needed)");
  size_t units = 0;
  for (auto _ : state) {
    units = 0;
    const uint8_t* p = s.data();
    const uint8_t* end = s.data() + s.size();
    uint32_t code = UINT32_MAX;
    while (p < end) {
      p = avpriv_find_start_code(p, end, &code);
      if ((code & 0xFFFFFF00) == 0x100) units++;
    }
    benchmark::DoNotOptimize(units);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * s.size()));
  state.counters["units"] = static_cast<double>(units);
}
BENCHMARK(BM_FfmpegFindStartCode_Walk1080pHevc)->Unit(benchmark::kMillisecond);
#endif

void BM_NalToRbsp_1080pHevc(benchmark::State& state) {
  const Bytes& s = hevc1080p();
  if (s.empty()) return state.SkipWithError("no stream (ffmpeg with libx265 needed)");
  const auto units = unitsOf(s);
  Bytes rbsp(s.size());
  size_t total = 0;
  for (const auto& u : units) total += u.size;
  for (auto _ : state) {
    for (const auto& u : units) {
      int nalSize = static_cast<int>(u.size), rbspSize = static_cast<int>(rbsp.size());
      benchmark::DoNotOptimize(nal_to_rbsp(s.data() + u.offset, &nalSize, rbsp.data(), &rbspSize));
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * total));
}
BENCHMARK(BM_NalToRbsp_1080pHevc)->Unit(benchmark::kMillisecond);

void BM_RbspToNal_1080pHevc(benchmark::State& state) {
  const Bytes& s = hevc1080p();
  if (s.empty()) return state.SkipWithError("no stream (ffmpeg with libx265 needed)");
  // The RBSPs of every unit, laid end to end.
  const auto units = unitsOf(s);
  Bytes rbsps(s.size());
  std::vector<Unit> rbspUnits;
  size_t at = 0, total = 0;
  for (const auto& u : units) {
    int nalSize = static_cast<int>(u.size), rbspSize = static_cast<int>(u.size);
    int n = nal_to_rbsp(s.data() + u.offset, &nalSize, rbsps.data() + at, &rbspSize);
    if (n < 0) continue;
    rbspUnits.push_back({at, static_cast<size_t>(n)});
    at += static_cast<size_t>(n);
    total += static_cast<size_t>(n);
  }
  Bytes nal(s.size() * 2);
  for (auto _ : state) {
    for (const auto& u : rbspUnits) {
      int rbspSize = static_cast<int>(u.size), nalSize = static_cast<int>(nal.size());
      benchmark::DoNotOptimize(rbsp_to_nal(rbsps.data() + u.offset, &rbspSize, nal.data(), &nalSize));
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * total));
}
BENCHMARK(BM_RbspToNal_1080pHevc)->Unit(benchmark::kMillisecond);

// Restoring the Annex B frame is part of each iteration; BM_Copy4kFrame measures that part alone.
void BM_MarkerToSize_4kFrame(benchmark::State& state) {
  const Bytes& frame = frame4k();
  if (frame.empty()) return state.SkipWithError("no frame (ffmpeg with libx265 needed)");
  const auto size = static_cast<uint32_t>(frame.size());
  Bytes work(frame.size() + frame.size() / 3 + 16);
  uint32_t newSize = 0;
  for (auto _ : state) {
    std::memcpy(work.data(), frame.data(), frame.size());
    newSize = klxUtilh264MarkerToSize(work.data(), size);
    benchmark::DoNotOptimize(newSize);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * frame.size()));
  state.counters["frame_bytes"] = size;
  state.counters["widened"] = newSize - size;
}
BENCHMARK(BM_MarkerToSize_4kFrame)->Unit(benchmark::kMicrosecond);

void BM_SizeToMarker_4kFrame(benchmark::State& state) {
  const Bytes& frame = frame4k();
  if (frame.empty()) return state.SkipWithError("no frame (ffmpeg with libx265 needed)");
  Bytes prefixed(frame.size() + frame.size() / 3 + 16);
  std::memcpy(prefixed.data(), frame.data(), frame.size());
  const uint32_t size = klxUtilh264MarkerToSize(prefixed.data(), static_cast<uint32_t>(frame.size()));
  Bytes work(prefixed.size());
  for (auto _ : state) {
    std::memcpy(work.data(), prefixed.data(), size);
    benchmark::DoNotOptimize(klxUtilh264SizeToMarker(work.data(), size));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}
BENCHMARK(BM_SizeToMarker_4kFrame)->Unit(benchmark::kMicrosecond);

void BM_Copy4kFrame(benchmark::State& state) {
  const Bytes& frame = frame4k();
  if (frame.empty()) return state.SkipWithError("no frame (ffmpeg with libx265 needed)");
  Bytes work(frame.size());
  for (auto _ : state) {
    std::memcpy(work.data(), frame.data(), frame.size());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * frame.size()));
}
BENCHMARK(BM_Copy4kFrame)->Unit(benchmark::kMicrosecond);

}  // namespace
