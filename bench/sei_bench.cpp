// Timecode and caption SEI insertion into a real 4K HEVC access unit: the first access unit
// (VPS, SPS, PPS, x265's prefix SEI, intra slices) of a 3840x2160 stream that x265 codes at
// 50 Mbit/s, made by ffmpeg at set-up. Only the insertion call is timed; each iteration puts the
// frame back outside the timing. Inserting a unit moves the frame behind the insertion point:
// BM_AccessUnitTailMemmove measures one such move alone, so the rest of an insertion figure is
// finding the point and building the unit.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <vector>

#include "bench/bench_streams.h"
#include "streamutil/captions.h"
#include "streamutil/sei.h"

namespace {

using bench_streams::Bytes;

constexpr size_t kSpare = 4096;

const Bytes& accessUnit4k() {
  static const Bytes unit = bench_streams::firstAccessUnit(bench_streams::stream(
      "bench_hevc_4k_50mbps.hevc",
      "-f lavfi -i testsrc2=size=3840x2160:rate=25,noise=alls=20:allf=t -frames:v 2 -c:v libx265 -preset ultrafast "
      "-b:v 50M -maxrate 50M -bufsize 50M -x265-params log-level=error -f hevc"));
  return unit;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Times `insert(frame)` on a fresh copy of the access unit each iteration. `insert` returns the
// bytes it added; the copy is restored outside the timing.
template <class Insert>
void timeInsertion(benchmark::State& state, Insert&& insert) {
  const Bytes& au = accessUnit4k();
  if (au.empty()) return state.SkipWithError("no access unit (ffmpeg with libx265 needed)");
  Bytes frame(au.size() + kSpare);
  uint32_t added = 0;
  for (auto _ : state) {
    std::memcpy(frame.data(), au.data(), au.size());
    const auto start = std::chrono::steady_clock::now();
    added = insert(frame);
    benchmark::ClobberMemory();
    state.SetIterationTime(secondsSince(start));
  }
  if (added == 0) state.SkipWithError("nothing was inserted");
  state.counters["frame_bytes"] = static_cast<double>(au.size());
  state.counters["added"] = added;
}

void BM_AccessUnitTailMemmove(benchmark::State& state) {
  timeInsertion(state, [](Bytes& frame) {
    const size_t size = accessUnit4k().size();
    std::memmove(frame.data() + 64 + 15, frame.data() + 64, size - 64);
    return 15u;
  });
}
BENCHMARK(BM_AccessUnitTailMemmove)->UseManualTime()->Unit(benchmark::kMicrosecond);

void BM_TimeCodeSeiBuild(benchmark::State& state) {
  uint8_t out[512];
  uint32_t frameNumber = 0;
  for (auto _ : state) benchmark::DoNotOptimize(klxUtilAddHevcTimecodeSEIRate(out, frameNumber++, 59, false));
}
BENCHMARK(BM_TimeCodeSeiBuild)->Unit(benchmark::kMicrosecond);

void BM_TimeCodeSeiInsert4K(benchmark::State& state) {
  timeInsertion(state, [](Bytes& frame) {
    DFRAME f;
    klxutilInitFrame(&f, frame.data(), static_cast<uint32_t>(accessUnit4k().size()), static_cast<uint32_t>(frame.size()));
    f.nFrame = 107892;
    klxutilAddHEVCTimeCode(&f, 4);
    return f.nDataSize - static_cast<uint32_t>(accessUnit4k().size());
  });
}
BENCHMARK(BM_TimeCodeSeiInsert4K)->UseManualTime()->Unit(benchmark::kMicrosecond);

void BM_CaptionSeiInsert4K(benchmark::State& state) {
  const uint8_t triplets[6] = {0xFC, 0x94, 0x20, 0xFD, 0x80, 0x80};
  uint8_t packet[64];
  const uint32_t packetLength = klxutilMakeCaptionPacket(packet, sizeof packet, triplets, 2, CDP_RATE_29_97, 0);
  timeInsertion(state, [&](Bytes& frame) {
    DFRAME f;
    klxutilInitFrame(&f, frame.data(), static_cast<uint32_t>(accessUnit4k().size()), static_cast<uint32_t>(frame.size()));
    f.pCaption = packet;
    f.nCaptionSize = packetLength;
    return klxUtilAddHevcCaptions(&f, 0);
  });
}
BENCHMARK(BM_CaptionSeiInsert4K)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
