// Timecode translation: one conversion per recorded frame (SEI stamping, command XML), so it
// must cost nanoseconds and never allocate.
#include <benchmark/benchmark.h>

#include "platform/tcxlat.h"

namespace {

void BM_Tc2StringText(benchmark::State& state) {
  const auto type = static_cast<uint32_t>(state.range(0));
  char text[32];
  uint32_t frame = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(tc2String(frame, type | TCF_FULL_TEXT, text, sizeof text));
    benchmark::DoNotOptimize(text);
    frame += 7919;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Tc2StringText)->Arg(TC_PAL)->Arg(TC_DF2997)->Arg(TC_DF5994);

void BM_Tc2StringDigits(benchmark::State& state) {
  uint8_t digits[4];
  uint32_t frame = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(tc2String(frame, 0x404, digits, sizeof digits));
    benchmark::DoNotOptimize(digits);
    frame += 7919;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Tc2StringDigits);

void BM_Tc2Frame(benchmark::State& state) {
  uint32_t frames = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(tc2Frame("13:27:45;17", TC_DF2997 | TCF_TEXT, &frames));
    benchmark::DoNotOptimize(frames);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Tc2Frame);

}  // namespace
