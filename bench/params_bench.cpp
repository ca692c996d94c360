// Parameter sets and the bit reader: SPS read/write per call (HEVC and H.264, 1080p units as
// x265 and x264 write them) and raw ReadBits / ReadExponentialGolombCode throughput.
#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <vector>

#include "streamutil/avc_params.h"
#include "streamutil/hevc_params.h"
#include "streamutil/zr_bitstream.h"

namespace {

// 1920x1080 Main profile SPS from x265 (VUI, emulation-prevention bytes included).
const uint8_t kHevcSps1080[] = {
    0x42, 0x01, 0x01, 0x01, 0x60, 0x00, 0x00, 0x03, 0x00, 0x90, 0x00, 0x00, 0x03, 0x00, 0x00, 0x03, 0x00, 0x78, 0xA0, 0x03, 0xC0,
    0x80, 0x10, 0xE5, 0x96, 0x56, 0x69, 0x24, 0xCA, 0xF0, 0x16, 0x80, 0x80, 0x00, 0x00, 0x03, 0x00, 0x80, 0x00, 0x00, 0x0C, 0x84};
// 1920x1080 High profile SPS from x264.
const uint8_t kAvcSps1080[] = {0x67, 0x64, 0x00, 0x28, 0xAC, 0xD9, 0x40, 0x78, 0x02, 0x27, 0xE5, 0xC0, 0x44, 0x00,
                               0x00, 0x03, 0x00, 0x04, 0x00, 0x00, 0x03, 0x00, 0xC8, 0x3C, 0x60, 0xC6, 0x58};

zr_bitstream over(const uint8_t* data, size_t size) {
  return zr_bitstream{const_cast<uint8_t*>(data), static_cast<int64_t>(size), size * 8, 0};
}

void BM_HevcSpsRead(benchmark::State& state) {
  auto sps = std::make_unique<HEVC_SPS_DECODED>();
  for (auto _ : state) {
    zr_bitstream s = over(kHevcSps1080, sizeof kHevcSps1080);
    benchmark::DoNotOptimize(klxutilRead_HEVC_SPS(&s, sps.get(), nullptr, 0));
  }
}
BENCHMARK(BM_HevcSpsRead);

void BM_HevcSpsWrite(benchmark::State& state) {
  auto sps = std::make_unique<HEVC_SPS_DECODED>();
  zr_bitstream s = over(kHevcSps1080, sizeof kHevcSps1080);
  klxutilRead_HEVC_SPS(&s, sps.get(), nullptr, 0);
  uint8_t out[kHevcParamSetMaxBytes];
  for (auto _ : state) benchmark::DoNotOptimize(klxutilWrite_HEVC_SPS(sps.get(), out, 0));
}
BENCHMARK(BM_HevcSpsWrite);

void BM_AvcSpsRead(benchmark::State& state) {
  auto sps = std::make_unique<SPS_DECODED>();
  for (auto _ : state) {
    zr_bitstream s = over(kAvcSps1080, sizeof kAvcSps1080);
    benchmark::DoNotOptimize(klxutilRead_SPS(&s, sps.get()));
  }
}
BENCHMARK(BM_AvcSpsRead);

void BM_AvcSpsWrite(benchmark::State& state) {
  auto sps = std::make_unique<SPS_DECODED>();
  zr_bitstream s = over(kAvcSps1080, sizeof kAvcSps1080);
  klxutilRead_SPS(&s, sps.get());
  uint8_t out[64];
  for (auto _ : state) {
    zr_bitstream o{out, sizeof out, sizeof out * 8, 0};
    benchmark::DoNotOptimize(klxutilWrite_SPS(&o, sps.get()));
  }
}
BENCHMARK(BM_AvcSpsWrite);

std::vector<uint8_t> randomBytes(size_t n) {
  std::vector<uint8_t> data(n + 8);
  std::mt19937 rng(5);
  for (auto& b : data) b = static_cast<uint8_t>(rng());
  return data;
}

// Bytes per second of ReadBits(n) over 1 MiB of data.
void BM_ReadBits(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  auto data = randomBytes(1 << 20);
  for (auto _ : state) {
    zr_bitstream s{data.data(), static_cast<int64_t>(data.size()), (1u << 20) * 8, 0};
    uint32_t sum = 0;
    while (s.position + static_cast<uint64_t>(n) <= s.length) sum += ReadBits(&s, n);
    benchmark::DoNotOptimize(sum);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * (1 << 20));
}
BENCHMARK(BM_ReadBits)->Arg(1)->Arg(8)->Arg(13)->Arg(32);

// Codes per second of ReadExponentialGolombCode over values typical of parameter sets and
// slice headers (mostly short codes).
void BM_ReadExponentialGolombCode(benchmark::State& state) {
  std::vector<uint8_t> data(1 << 20, 0);
  zr_bitstream w{data.data(), static_cast<int64_t>(data.size()), data.size() * 8, 0};
  std::mt19937 rng(9);
  int64_t codes = 0;
  while (w.position + 64 < w.length) {
    WriteExponentialGolombCode(&w, rng() % 64);
    ++codes;
  }
  for (auto _ : state) {
    zr_bitstream s{data.data(), static_cast<int64_t>(data.size()), w.position, 0};
    uint32_t sum = 0;
    for (int64_t i = 0; i < codes; ++i) sum += ReadExponentialGolombCode(&s);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * codes);
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(w.position / 8));
}
BENCHMARK(BM_ReadExponentialGolombCode);

}  // namespace
