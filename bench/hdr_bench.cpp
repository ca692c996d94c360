// Frame-wide NAL unit search and HDR SEI insertion on one x265 4K intra frame (8 slices), made
// by ffmpeg on first use and cached next to this executable (the same file as syntax_bench's):
//   - klxutilFindNalUnitsHevc listing every unit, in both framings, beside find_nal_unit and
//     FFmpeg's avpriv_find_start_code walking the same frame;
//   - klxutilSetHdrSei inserting mastering display, light level and alternative transfer units
//     in front of the first slice, on the frame cut to its first 600 KB (as sei_bench's frame: a
//     broadcast-quality 4K intra picture; the whole 6 MB test frame makes the memmove noise
//     swamp the rest). Each insertion is undone by a second memmove, so the insertion itself =
//     BM_HdrSeiSet4K - 2 x BM_FrameTailMemmove4K.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "streamutil/framing.h"
#include "streamutil/hdr_sei.h"
#include "streamutil/nal_units.h"
#include "syntax/syntax.h"

#if defined(QUORVANE_HAVE_LIBAVCODEC)
extern "C" const uint8_t* avpriv_find_start_code(const uint8_t* p, const uint8_t* end, uint32_t* state);
#endif

namespace {

using Bytes = std::vector<uint8_t>;
constexpr uint32_t kSpare = 4096;

const Bytes& frame4k() {
  static Bytes bytes;
  if (!bytes.empty()) return bytes;
  char exe[PATH_MAX] = {};
  const ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
  std::string dir(exe, n > 0 ? static_cast<size_t>(n) : 0);
  dir = dir.substr(0, dir.rfind('/') == std::string::npos ? 0 : dir.rfind('/'));
  const std::string path = (dir.empty() ? "." : dir) + "/bench_hevc_4k_frame.hevc";
  if (!std::ifstream(path)) {
    std::fprintf(stderr, "making %s with ffmpeg/x265 (once)...\n", path.c_str());
    const std::string command =
        "ffmpeg -nostdin -y -v error -f lavfi -i testsrc2=size=3840x2160:rate=25,noise=alls=20:allf=t -frames:v 1 "
        "-c:v libx265 -preset ultrafast -x265-params log-level=error:qp=18:slices=8 -f hevc '" + path + ".partial' && mv '" +
        path + ".partial' '" + path + "'";
    if (std::system(command.c_str()) != 0) std::fprintf(stderr, "ffmpeg failed\n");
  }
  std::ifstream in(path, std::ios::binary);
  bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return bytes;
}

void BM_FindNalUnitsHevc_4kFrame(benchmark::State& state) {
  const Bytes& f = frame4k();
  if (f.empty()) return state.SkipWithError("no frame (ffmpeg with libx265 needed)");
  KLX_NAL_UNIT units[64];
  uint32_t count = 0;
  for (auto _ : state) {
    klxutilFindNalUnitsHevc(f.data(), static_cast<uint32_t>(f.size()), 1, units, 64, &count);
    benchmark::DoNotOptimize(units);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * f.size()));
  state.counters["units"] = count;
}
BENCHMARK(BM_FindNalUnitsHevc_4kFrame)->Unit(benchmark::kMicrosecond);

void BM_FindNalUnitsHevc_4kFrameLengthPrefixed(benchmark::State& state) {
  Bytes f = frame4k();
  if (f.empty()) return state.SkipWithError("no frame (ffmpeg with libx265 needed)");
  f.resize(klxUtilh264MarkerToSizeResult(f.data(), static_cast<uint32_t>(f.size())) + 8);
  const uint32_t size = klxUtilh264MarkerToSize(f.data(), static_cast<uint32_t>(frame4k().size()));
  KLX_NAL_UNIT units[64];
  uint32_t count = 0;
  for (auto _ : state) {
    klxutilFindNalUnitsHevc(f.data(), size, 0, units, 64, &count);
    benchmark::DoNotOptimize(units);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
  state.counters["units"] = count;
}
BENCHMARK(BM_FindNalUnitsHevc_4kFrameLengthPrefixed)->Unit(benchmark::kMicrosecond);

void BM_FindNalUnit_Walk4kFrame(benchmark::State& state) {
  const Bytes& f = frame4k();
  if (f.empty()) return state.SkipWithError("no frame (ffmpeg with libx265 needed)");
  size_t units = 0;
  for (auto _ : state) {
    units = 0;
    size_t offset = 0;
    while (offset < f.size()) {
      int start, end;
      if (find_nal_unit(f.data() + offset, static_cast<int>(f.size() - offset), &start, &end) <= 0) break;
      units++;
      offset += static_cast<size_t>(end);
    }
    benchmark::DoNotOptimize(units);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * f.size()));
  state.counters["units"] = static_cast<double>(units);
}
BENCHMARK(BM_FindNalUnit_Walk4kFrame)->Unit(benchmark::kMicrosecond);

#if defined(QUORVANE_HAVE_LIBAVCODEC)
void BM_FfmpegFindStartCode_Walk4kFrame(benchmark::State& state) {
  const Bytes& f = frame4k();
  if (f.empty()) return state.SkipWithError("no frame (ffmpeg with libx265 needed)");
  size_t units = 0;
  for (auto _ : state) {
    units = 0;
    const uint8_t* p = f.data();
    const uint8_t* end = f.data() + f.size();
    uint32_t code = UINT32_MAX;
    while (p < end) {
      p = avpriv_find_start_code(p, end, &code);
      if ((code & 0xFFFFFF00) == 0x100) units++;
    }
    benchmark::DoNotOptimize(units);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * f.size()));
  state.counters["units"] = static_cast<double>(units);
}
BENCHMARK(BM_FfmpegFindStartCode_Walk4kFrame)->Unit(benchmark::kMicrosecond);
#endif

KLX_HDR_METADATA staticMetadata() {
  KLX_HDR_METADATA md{};
  klxutilParseMasteringDisplay("G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)", &md.masteringDisplay);
  md.contentLightLevel = {1000, 400};
  md.preferredTransferCharacteristics = 18;
  md.present = KLX_HDR_HAS_MASTERING_DISPLAY | KLX_HDR_HAS_CONTENT_LIGHT_LEVEL | KLX_HDR_HAS_ALTERNATIVE_TRANSFER;
  return md;
}

// Offset of the first slice of the frame: where the SEI units go and where the undo moves from.
uint32_t firstSliceOffset(const Bytes& f, uint32_t size) {
  KLX_NAL_UNIT units[64];
  uint32_t count = 0;
  klxutilFindNalUnitsHevc(f.data(), size, 1, units, 64, &count);
  for (uint32_t i = 0; i < count && i < 64; ++i)
    if (units[i].type < 32) return units[i].offset;
  return size;
}

constexpr size_t kInsertionFrameBytes = 600 * 1024;

Bytes insertionFrame() {
  const Bytes& f = frame4k();
  return Bytes(f.begin(), f.begin() + static_cast<long>(std::min(f.size(), kInsertionFrameBytes)));
}

void BM_FrameTailMemmove4K(benchmark::State& state) {
  Bytes f = insertionFrame();
  if (f.empty()) return state.SkipWithError("no frame (ffmpeg with libx265 needed)");
  const uint32_t size = static_cast<uint32_t>(f.size());
  const uint32_t at = firstSliceOffset(f, size);
  f.resize(size + kSpare);
  for (auto _ : state) {
    std::memmove(f.data() + at + 56, f.data() + at, size - at);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_FrameTailMemmove4K)->Unit(benchmark::kMicrosecond);

void BM_HdrSeiUnitsBuild(benchmark::State& state) {
  const KLX_HDR_METADATA md = staticMetadata();
  uint8_t out[3][64];
  for (auto _ : state) {
    benchmark::DoNotOptimize(klxutilWriteHdrSeiUnit(1, KLX_SEI_MASTERING_DISPLAY, &md, out[0], 64));
    benchmark::DoNotOptimize(klxutilWriteHdrSeiUnit(1, KLX_SEI_CONTENT_LIGHT_LEVEL, &md, out[1], 64));
    benchmark::DoNotOptimize(klxutilWriteHdrSeiUnit(1, KLX_SEI_ALTERNATIVE_TRANSFER, &md, out[2], 64));
  }
}
BENCHMARK(BM_HdrSeiUnitsBuild)->Unit(benchmark::kMicrosecond);

void BM_HdrSeiSet4K(benchmark::State& state) {
  Bytes f = insertionFrame();
  if (f.empty()) return state.SkipWithError("no frame (ffmpeg with libx265 needed)");
  const uint32_t original = static_cast<uint32_t>(f.size());
  const uint32_t at = firstSliceOffset(f, original);
  f.resize(original + kSpare);
  const KLX_HDR_METADATA md = staticMetadata();
  for (auto _ : state) {
    uint32_t size = original;
    if (klxutilSetHdrSei(f.data(), &size, static_cast<uint32_t>(f.size()), 1, 1, &md) != 0)
      return state.SkipWithError("insertion refused");
    std::memmove(f.data() + at, f.data() + at + (size - original), original - at);  // undo
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_HdrSeiSet4K)->Unit(benchmark::kMicrosecond);

}  // namespace
