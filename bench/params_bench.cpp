// Parameter sets and the bit reader: SPS read/write per call on the SPS units that x265 and
// x264 write for a 1080p stream (made by ffmpeg at set-up), beside GStreamer's
// gst_h265_parser_parse_sps / gst_h264_parser_parse_sps on the same units in the same run when
// its codec parsers are available; raw ReadBits / ReadExponentialGolombCode throughput.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include "bench/bench_streams.h"
#include "streamutil/avc_params.h"
#include "streamutil/hevc_params.h"
#include "streamutil/zr_bitstream.h"

#if defined(QUORVANE_HAVE_GST_CODECPARSERS)
#define GST_USE_UNSTABLE_API 1  // the codec parsers' API is marked unstable; we only time them
#include <gst/codecparsers/gsth264parser.h>
#include <gst/codecparsers/gsth265parser.h>
#endif

namespace {

using bench_streams::Bytes;

// The SPS unit (header included, emulation-prevention bytes as coded) of the 1080p streams.
const Bytes& hevcSps() {
  static const Bytes unit = bench_streams::firstUnit(bench_streams::hevc1080p(), true, 33);
  return unit;
}
const Bytes& avcSps() {
  static const Bytes unit = bench_streams::firstUnit(bench_streams::avcCabac1080p(), false, 7);
  return unit;
}

zr_bitstream over(const Bytes& unit) {
  return zr_bitstream{const_cast<uint8_t*>(unit.data()), static_cast<int64_t>(unit.size()), unit.size() * 8, 0};
}

void BM_HevcSpsRead(benchmark::State& state) {
  const Bytes& unit = hevcSps();
  if (unit.empty()) return state.SkipWithError("no SPS (ffmpeg with libx265 needed)");
  auto sps = std::make_unique<HEVC_SPS_DECODED>();
  for (auto _ : state) {
    zr_bitstream s = over(unit);
    benchmark::DoNotOptimize(klxutilRead_HEVC_SPS(&s, sps.get(), nullptr, 0));
  }
  state.counters["sps_bytes"] = static_cast<double>(unit.size());
}
BENCHMARK(BM_HevcSpsRead);

void BM_HevcSpsWrite(benchmark::State& state) {
  const Bytes& unit = hevcSps();
  if (unit.empty()) return state.SkipWithError("no SPS (ffmpeg with libx265 needed)");
  auto sps = std::make_unique<HEVC_SPS_DECODED>();
  zr_bitstream s = over(unit);
  klxutilRead_HEVC_SPS(&s, sps.get(), nullptr, 0);
  uint8_t out[kHevcParamSetMaxBytes];
  for (auto _ : state) benchmark::DoNotOptimize(klxutilWrite_HEVC_SPS(sps.get(), out, 0));
}
BENCHMARK(BM_HevcSpsWrite);

void BM_AvcSpsRead(benchmark::State& state) {
  const Bytes& unit = avcSps();
  if (unit.empty()) return state.SkipWithError("no SPS (ffmpeg with libx264 needed)");
  auto sps = std::make_unique<SPS_DECODED>();
  for (auto _ : state) {
    zr_bitstream s = over(unit);
    benchmark::DoNotOptimize(klxutilRead_SPS(&s, sps.get()));
  }
  state.counters["sps_bytes"] = static_cast<double>(unit.size());
}
BENCHMARK(BM_AvcSpsRead);

void BM_AvcSpsWrite(benchmark::State& state) {
  const Bytes& unit = avcSps();
  if (unit.empty()) return state.SkipWithError("no SPS (ffmpeg with libx264 needed)");
  auto sps = std::make_unique<SPS_DECODED>();
  zr_bitstream s = over(unit);
  klxutilRead_SPS(&s, sps.get());
  uint8_t out[256];
  for (auto _ : state) {
    zr_bitstream o{out, sizeof out, sizeof out * 8, 0};
    benchmark::DoNotOptimize(klxutilWrite_SPS(&o, sps.get()));
  }
}
BENCHMARK(BM_AvcSpsWrite);

#if defined(QUORVANE_HAVE_GST_CODECPARSERS)
// GStreamer's parsers take the unit behind a start code; the unit is identified once, outside
// the loop, and parse_sps (VUI included) is the call timed, as ours is.
Bytes withStartCode(const Bytes& unit) {
  Bytes annexB(unit.size() + 4, 0);
  annexB[3] = 1;
  std::copy(unit.begin(), unit.end(), annexB.begin() + 4);
  return annexB;
}

void BM_GstreamerHevcSpsRead(benchmark::State& state) {
  const Bytes& unit = hevcSps();
  if (unit.empty()) return state.SkipWithError("no SPS (ffmpeg with libx265 needed)");
  const Bytes vps = withStartCode(bench_streams::firstUnit(bench_streams::hevc1080p(), true, 32));
  const Bytes sps = withStartCode(unit);
  GstH265Parser* parser = gst_h265_parser_new();
  GstH265NalUnit nalu;
  GstH265VPS vpsRecord;
  if (gst_h265_parser_identify_nalu_unchecked(parser, vps.data(), 0, vps.size(), &nalu) == GST_H265_PARSER_OK)
    gst_h265_parser_parse_vps(parser, &nalu, &vpsRecord);
  if (gst_h265_parser_identify_nalu_unchecked(parser, sps.data(), 0, sps.size(), &nalu) != GST_H265_PARSER_OK) {
    gst_h265_parser_free(parser);
    return state.SkipWithError("GStreamer did not identify the SPS");
  }
  auto record = std::make_unique<GstH265SPS>();
  for (auto _ : state) benchmark::DoNotOptimize(gst_h265_parser_parse_sps(parser, &nalu, record.get(), TRUE));
  if (gst_h265_parser_parse_sps(parser, &nalu, record.get(), TRUE) != GST_H265_PARSER_OK)
    state.SkipWithError("GStreamer rejected the SPS");
  gst_h265_parser_free(parser);
}
BENCHMARK(BM_GstreamerHevcSpsRead);

void BM_GstreamerAvcSpsRead(benchmark::State& state) {
  const Bytes& unit = avcSps();
  if (unit.empty()) return state.SkipWithError("no SPS (ffmpeg with libx264 needed)");
  const Bytes sps = withStartCode(unit);
  GstH264NalParser* parser = gst_h264_nal_parser_new();
  GstH264NalUnit nalu;
  if (gst_h264_parser_identify_nalu_unchecked(parser, sps.data(), 0, sps.size(), &nalu) != GST_H264_PARSER_OK) {
    gst_h264_nal_parser_free(parser);
    return state.SkipWithError("GStreamer did not identify the SPS");
  }
  auto record = std::make_unique<GstH264SPS>();
  for (auto _ : state) {
    benchmark::DoNotOptimize(gst_h264_parser_parse_sps(parser, &nalu, record.get()));
    gst_h264_sps_clear(record.get());
  }
  gst_h264_nal_parser_free(parser);
}
BENCHMARK(BM_GstreamerAvcSpsRead);
#endif

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
