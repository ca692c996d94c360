// The hottest loops of the library on 40 Mbit/s 1080p streams (HEVC, H.264 CABAC, H.264 CAVLC)
// and a 4K HEVC frame, all made by x264/x265 (through ffmpeg) on first use:
//   - find_nal_unit walking every unit, beside FFmpeg's avpriv_find_start_code doing the same
//     on the same stream in the same run;
//   - nal_to_rbsp / rbsp_to_nal over every unit;
//   - klxUtilh264MarkerToSize / klxUtilh264SizeToMarker on a whole 4K frame, in place: only the
//     call is timed, the frame is restored outside the timed region.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <vector>

#include "bench/bench_streams.h"
#include "streamutil/framing.h"
#include "syntax/syntax.h"

#if defined(QUORVANE_HAVE_LIBAVCODEC)
extern "C" const uint8_t* avpriv_find_start_code(const uint8_t* p, const uint8_t* end, uint32_t* state);
#endif

namespace {

using bench_streams::Bytes;
using bench_streams::frame4k;
using bench_streams::hevc1080p;
using bench_streams::Unit;
using bench_streams::unitsOf;

using StreamMaker = const Bytes& (*)();
// state.range(0) picks the stream.
constexpr StreamMaker kStreams[] = {bench_streams::hevc1080p, bench_streams::avcCabac1080p,
                                    bench_streams::avcCavlc1080p};
constexpr const char* kStreamNames[] = {"hevc", "h264_cabac", "h264_cavlc"};

void nameStreams(benchmark::internal::Benchmark* b) {
  b->ArgName("stream");
  for (int i = 0; i < 3; ++i) b->Arg(i);
}

void BM_FindNalUnit_Walk1080p(benchmark::State& state) {
  const Bytes& s = kStreams[state.range(0)]();
  if (s.empty()) return state.SkipWithError("no stream (ffmpeg with libx264/libx265 needed)");
  state.SetLabel(kStreamNames[state.range(0)]);
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
BENCHMARK(BM_FindNalUnit_Walk1080p)->Apply(nameStreams)->Unit(benchmark::kMillisecond);

#if defined(QUORVANE_HAVE_LIBAVCODEC)
void BM_FfmpegFindStartCode_Walk1080p(benchmark::State& state) {
  const Bytes& s = kStreams[state.range(0)]();
  if (s.empty()) return state.SkipWithError("no stream (ffmpeg with libx264/libx265 needed)");
  state.SetLabel(kStreamNames[state.range(0)]);
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
BENCHMARK(BM_FfmpegFindStartCode_Walk1080p)->Apply(nameStreams)->Unit(benchmark::kMillisecond);
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

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Annex B to length-prefixed in place. Each call widens the frame's three-byte start codes (one
// move of the tail each), so the frame is copied back after every call, outside the timing.
void BM_MarkerToSize_4kFrame(benchmark::State& state) {
  const Bytes& frame = frame4k();
  if (frame.empty()) return state.SkipWithError("no frame (ffmpeg with libx265 needed)");
  const auto size = static_cast<uint32_t>(frame.size());
  Bytes work(frame.size() + frame.size() / 3 + 16);
  uint32_t newSize = 0;
  for (auto _ : state) {
    std::memcpy(work.data(), frame.data(), frame.size());
    const auto start = std::chrono::steady_clock::now();
    newSize = klxUtilh264MarkerToSize(work.data(), size);
    benchmark::DoNotOptimize(newSize);
    benchmark::ClobberMemory();
    state.SetIterationTime(secondsSince(start));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * frame.size()));
  state.counters["frame_bytes"] = size;
  state.counters["widened"] = newSize - size;
}
BENCHMARK(BM_MarkerToSize_4kFrame)->UseManualTime()->Unit(benchmark::kMicrosecond);

// Length-prefixed to Annex B in place: the call rewrites each unit's four length bytes, so only
// those are put back after the call, outside the timing.
void BM_SizeToMarker_4kFrame(benchmark::State& state) {
  const Bytes& frame = frame4k();
  if (frame.empty()) return state.SkipWithError("no frame (ffmpeg with libx265 needed)");
  Bytes work(frame.size() + frame.size() / 3 + 16);
  std::memcpy(work.data(), frame.data(), frame.size());
  const uint32_t size = klxUtilh264MarkerToSize(work.data(), static_cast<uint32_t>(frame.size()));
  std::vector<std::pair<uint32_t, uint32_t>> lengths;  // (offset, big-endian length field)
  for (uint32_t at = 0; at + 4 <= size;) {
    uint32_t field;
    std::memcpy(&field, work.data() + at, 4);
    lengths.emplace_back(at, field);
    at += 4 + __builtin_bswap32(field);
  }
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(klxUtilh264SizeToMarker(work.data(), size));
    benchmark::ClobberMemory();
    state.SetIterationTime(secondsSince(start));
    for (const auto& [at, field] : lengths) std::memcpy(work.data() + at, &field, 4);
  }
  state.counters["frame_bytes"] = size;  // not a rate: the call touches only the length fields
  state.counters["units"] = static_cast<double>(lengths.size());
}
BENCHMARK(BM_SizeToMarker_4kFrame)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
