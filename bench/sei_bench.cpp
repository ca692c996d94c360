// Timecode and caption SEI insertion into a 4K HEVC frame. The frame is 600 KB (an intra
// 3840x2160 picture at broadcast quality): access unit delimiter, parameter sets, a prefix SEI
// and one slice of data. Inserting a unit costs one memmove of the frame behind the insertion
// point; the benchmarks separate that from the insertion itself (finding the point, building
// the unit): BM_FrameTailMemmove measures one such move, and each insertion benchmark undoes
// its insertion with a second move, so insertion itself = insertion benchmark - 2 x memmove.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include "streamutil/captions.h"
#include "streamutil/sei.h"

namespace {

constexpr size_t kSliceBytes = 600 * 1024;
constexpr size_t kSpare = 4096;

std::vector<uint8_t> fourKFrame(size_t* dataSize) {
  const std::vector<uint8_t> head = {
      0, 0, 0, 1, 0x46, 0x01, 0x10,                                            // AUD
      0, 0, 0, 1, 0x40, 0x01, 0x0C, 0x01, 0xFF, 0xFF, 0x01, 0x60, 0x00, 0x00,  // VPS (start)
      0, 0, 0, 1, 0x42, 0x01, 0x01, 0x01, 0x60, 0x00, 0x00, 0x03, 0x00, 0xB0,  // SPS (start)
      0, 0, 0, 1, 0x44, 0x01, 0xC1, 0x72, 0xB4, 0x62, 0x40,                    // PPS
      0, 0, 0, 1, 0x4E, 0x01, 0x05, 0x04, 0x11, 0x22, 0x33, 0x44, 0x80,        // prefix SEI
      0, 0, 0, 1, 0x26, 0x01, 0xAF,                                            // IDR slice header
  };
  std::vector<uint8_t> frame(head);
  std::mt19937 rng(4096);
  for (size_t i = 0; i < kSliceBytes; ++i) frame.push_back(uint8_t(1 + rng() % 255));  // no start codes
  *dataSize = frame.size();
  frame.resize(frame.size() + kSpare);
  return frame;
}

void BM_FrameTailMemmove(benchmark::State& state) {
  size_t size = 0;
  auto frame = fourKFrame(&size);
  for (auto _ : state) {
    std::memmove(frame.data() + 64 + 15, frame.data() + 64, size - 64);
    benchmark::DoNotOptimize(frame.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(size));
}
BENCHMARK(BM_FrameTailMemmove)->Unit(benchmark::kMicrosecond);

void BM_TimeCodeSeiBuild(benchmark::State& state) {
  uint8_t out[512];
  uint32_t frameNumber = 0;
  for (auto _ : state) benchmark::DoNotOptimize(klxUtilAddHevcTimecodeSEIRate(out, frameNumber++, 59, false));
}
BENCHMARK(BM_TimeCodeSeiBuild)->Unit(benchmark::kMicrosecond);

void BM_TimeCodeSeiInsert4K(benchmark::State& state) {
  size_t size = 0;
  auto frame = fourKFrame(&size);
  DFRAME f;
  for (auto _ : state) {
    klxutilInitFrame(&f, frame.data(), uint32_t(size), uint32_t(frame.size()));
    f.nFrame = 107892;
    klxutilAddHEVCTimeCode(&f, 4);
    const uint32_t added = f.nDataSize - uint32_t(size);
    // Undo: the SEI went in front of the existing prefix SEI at byte 46.
    std::memmove(frame.data() + 46, frame.data() + 46 + added, size - 46);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_TimeCodeSeiInsert4K)->Unit(benchmark::kMicrosecond);

void BM_CaptionSeiInsert4K(benchmark::State& state) {
  size_t size = 0;
  auto frame = fourKFrame(&size);
  const uint8_t triplets[6] = {0xFC, 0x94, 0x20, 0xFD, 0x80, 0x80};
  uint8_t packet[64];
  const uint32_t packetLength = klxutilMakeCaptionPacket(packet, sizeof packet, triplets, 2, CDP_RATE_29_97, 0);
  DFRAME f;
  for (auto _ : state) {
    klxutilInitFrame(&f, frame.data(), uint32_t(size), uint32_t(frame.size()));
    f.pCaption = packet;
    f.nCaptionSize = packetLength;
    const uint32_t added = klxUtilAddHevcCaptions(&f, 0);
    std::memmove(frame.data() + 46, frame.data() + 46 + added, size - 46);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_CaptionSeiInsert4K)->Unit(benchmark::kMicrosecond);

}  // namespace
