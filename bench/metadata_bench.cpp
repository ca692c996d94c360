// Reading a large file in 188-byte pieces (transport-stream packets): through CZRDiskCache
// against a plain read per piece. Reported: bytes per second, and read system calls per MB
// counted by the kernel (/proc/self/io "syscr").
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "metadata/zrdiskcache.h"
#include "platform/zrfile.h"

namespace {

constexpr size_t kFileSize = 32u << 20;
constexpr uint32_t kPiece = 188;

const std::string& testFile() {
  static const std::string path = [] {
    std::string p = "/tmp/quorvane-metadata-bench-" + std::to_string(getpid()) + ".bin";
    std::vector<char> bytes(kFileSize);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 131 + (i >> 9));
    std::ofstream(p, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    std::atexit([] { std::remove(testFile().c_str()); });
    return p;
  }();
  return path;
}

uint64_t readSyscalls() {
  std::ifstream io("/proc/self/io");
  std::string key;
  uint64_t value = 0;
  while (io >> key >> value)
    if (key == "syscr:") return value;
  return 0;
}

struct OpenedFile {
  ZRHANDLE handle = zrOSCreateFile(testFile().c_str(), ZR_GENERIC_READ, ZR_FILE_SHARE_READ, ZR_OPEN_EXISTING, 0);
  ~OpenedFile() { zrOSCloseFile(handle); }
};

void report(benchmark::State& state, uint64_t syscallsBefore) {
  const double megabytes = double(kFileSize) * double(state.iterations()) / (1 << 20);
  state.SetBytesProcessed(int64_t(kFileSize) * state.iterations());
  state.counters["read_calls_per_MB"] = double(readSyscalls() - syscallsBefore) / megabytes;
}

void BM_CacheRead188(benchmark::State& state) {
  OpenedFile file;
  CZRDiskCache cache;
  cache.SetHandleAndCacheSize(reinterpret_cast<intptr_t>(file.handle), static_cast<unsigned>(state.range(0)), false);
  unsigned char piece[kPiece];
  const uint64_t before = readSyscalls();
  for (auto _ : state) {
    for (unsigned long offset = 0; offset + kPiece <= kFileSize; offset += kPiece) {
      unsigned got = 0;
      cache.Read(piece, offset, kPiece, &got, 0);
      benchmark::DoNotOptimize(piece);
    }
  }
  report(state, before);
}
BENCHMARK(BM_CacheRead188)->Arg(64 << 10)->Arg(1 << 20)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PlainRead188(benchmark::State& state) {
  OpenedFile file;
  unsigned char piece[kPiece];
  const uint64_t before = readSyscalls();
  for (auto _ : state) {
    zrOSSeek(file.handle, 0, ZR_FILE_BEGIN);
    for (unsigned long offset = 0; offset + kPiece <= kFileSize; offset += kPiece) {
      uint32_t got = 0;
      zrOSReadFile(file.handle, piece, kPiece, &got);
      benchmark::DoNotOptimize(piece);
    }
  }
  report(state, before);
}
BENCHMARK(BM_PlainRead188)->Unit(benchmark::kMillisecond)->UseRealTime();

// What a parser that addresses each piece by offset does without the cache.
void BM_PlainSeekRead188(benchmark::State& state) {
  OpenedFile file;
  unsigned char piece[kPiece];
  const uint64_t before = readSyscalls();
  for (auto _ : state) {
    for (unsigned long offset = 0; offset + kPiece <= kFileSize; offset += kPiece) {
      uint32_t got = 0;
      zrOSSeek(file.handle, int64_t(offset), ZR_FILE_BEGIN);
      zrOSReadFile(file.handle, piece, kPiece, &got);
      benchmark::DoNotOptimize(piece);
    }
  }
  report(state, before);
}
BENCHMARK(BM_PlainSeekRead188)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
