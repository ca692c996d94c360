// Signal-format derivation and text, rate snapping and transport stepping: called per frame by
// recorders and players, so they must cost nanoseconds.
#include <benchmark/benchmark.h>

#include "video/video.h"

namespace {

struct Measured {
  uint32_t rate, scale;
  int width, height;
};
constexpr Measured kMeasured[] = {
    {30000, 1001, 1920, 1080}, {25, 1, 720, 576},    {24000, 1001, 2048, 1080}, {60000, 1001, 1280, 720},
    {50, 1, 3840, 2160},       {125, 10, 1024, 768}, {48, 1, 1920, 1080},       {30, 1, 640, 480},
};

void BM_GetSignalFormat(benchmark::State& state) {
  size_t i = 0;
  for (auto _ : state) {
    const Measured& m = kMeasured[i++ % std::size(kMeasured)];
    benchmark::DoNotOptimize(vidGetSignalFormat(m.rate, m.scale, m.width, m.height, 0));
  }
}
BENCHMARK(BM_GetSignalFormat);

void BM_SignalFormatToStr20(benchmark::State& state) {
  constexpr uint32_t kWords[] = {0x1380B21D, 0x1100401D, 0x2640F017, 0x4640F017, 0x2380B20C, 0x11A04300};
  char text[21];
  size_t i = 0;
  for (auto _ : state) {
    vidSignalFormatToStr20(kWords[i++ % std::size(kWords)], text);
    benchmark::DoNotOptimize(text);
  }
}
BENCHMARK(BM_SignalFormatToStr20);

void BM_RateScaled(benchmark::State& state) {
  constexpr double kRates[] = {29.97, 25.0, 23.976, 59.94, 12.5, 119.88};
  uint32_t rate, scale;
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(vidRateScaled(kRates[i++ % std::size(kRates)], &rate, &scale));
  }
}
BENCHMARK(BM_RateScaled);

void BM_TransportStepQuarterSpeedLoop(benchmark::State& state) {
  CKLXTransTC tc;
  tc.SetRange(0, 1000);
  tc.SetTC(500);
  CKLXSpeed speed;
  speed.Set(1, 4);
  tc.SetSpeed(speed);
  for (auto _ : state) benchmark::DoNotOptimize(++tc);
}
BENCHMARK(BM_TransportStepQuarterSpeedLoop);

}  // namespace
