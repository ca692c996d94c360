// Reading timecode and captions back out of a real 4K access unit, and the H.264 timecode
// writer. The access units come from x264 and x265 (3840x2160, one intra picture, made with
// ffmpeg when the benchmark starts) and are stamped here with the library's writers, so the
// readers walk what a real stream carries in front of the slice (parameter sets, the encoder's
// own SEI, pic_timing or time_code, captions). FFmpeg's H.264 parser over the same access
// unit is measured beside them for scale.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "streamutil/avc_params.h"
#include "streamutil/captions.h"
#include "streamutil/sei.h"
#include "streamutil/sei_read.h"
#include "streamutil/sei_remove.h"

#ifdef QUORVANE_HAVE_LIBAVCODEC
extern "C" {
#include <libavcodec/avcodec.h>
}
#endif

namespace {

constexpr uint32_t kSpare = 8192;

std::vector<uint8_t> readFile(const std::string& path) {
  std::vector<uint8_t> out;
  if (FILE* f = std::fopen(path.c_str(), "rb")) {
    uint8_t buf[65536];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;) out.insert(out.end(), buf, buf + n);
    std::fclose(f);
  }
  return out;
}

// One 4K intra access unit from the named encoder, or empty when ffmpeg cannot make it.
std::vector<uint8_t> encoded4K(const char* codec, const char* format) {
  const std::string path = std::string("/tmp/quorvane-bench-4k.") + format;
  std::vector<uint8_t> data = readFile(path);
  if (!data.empty()) return data;
  const std::string command = std::string("ffmpeg -nostdin -y -v error -f lavfi -i testsrc2=size=3840x2160:rate=30000/1001 "
                                          "-frames:v 1 -pix_fmt yuv420p -c:v ") + codec +
                              (std::string(codec) == "libx265" ? " -x265-params log-level=error:pools=2" : " -preset veryfast") +
                              " -f " + format + " " + path + " 2>/dev/null";
  if (std::system(command.c_str()) != 0) return {};
  return readFile(path);
}

std::unique_ptr<SPS_DECODED> firstSps(const std::vector<uint8_t>& au) {
  auto sps = std::make_unique<SPS_DECODED>();
  for (size_t i = 0; i + 4 < au.size(); ++i)
    if (!au[i] && !au[i + 1] && au[i + 2] == 1 && (au[i + 3] & 0x1F) == 7) {
      zr_bitstream s{const_cast<uint8_t*>(au.data() + i + 3), int64_t(au.size() - i - 3), (au.size() - i - 3) * 8, 0};
      klxutilRead_SPS(&s, sps.get());
      return sps;
    }
  return nullptr;
}

struct Stamped {
  std::vector<uint8_t> buffer;
  uint32_t size = 0;
};

uint32_t captionPacket(uint8_t* packet) {
  const uint8_t triplets[6] = {0xFC, 0x94, 0x20, 0xFD, 0x80, 0x80};
  return klxutilMakeCaptionPacket(packet, 64, triplets, 2, CDP_RATE_29_97, 0);
}

// The x264 access unit with pic_timing clock timestamps and a caption SEI.
const Stamped& stampedAvc() {
  static Stamped s = [] {
    Stamped out;
    const auto au = encoded4K("libx264", "h264");
    const auto sps = firstSps(au);
    if (au.empty() || !sps) return out;
    out.buffer = au;
    out.buffer.resize(au.size() + kSpare);
    DFRAME f;
    klxutilInitFrame(&f, out.buffer.data(), uint32_t(au.size()), uint32_t(out.buffer.size()));
    f.nTimecode = 107892;
    uint8_t packet[64];
    const uint32_t n = captionPacket(packet);
    if (klxutilAddAVCTimeCode(&f, 4, sps.get(), 0, 0) != 0 || klxutilAddCaptionsSEI(&f, KLX_CODEC_H264, packet, n, 0) != 0) return out;
    out.size = f.nDataSize;
    return out;
  }();
  return s;
}

// The x265 access unit with a time_code SEI and a caption SEI.
const Stamped& stampedHevc() {
  static Stamped s = [] {
    Stamped out;
    const auto au = encoded4K("libx265", "hevc");
    if (au.empty()) return out;
    out.buffer = au;
    out.buffer.resize(au.size() + kSpare);
    DFRAME f;
    klxutilInitFrame(&f, out.buffer.data(), uint32_t(au.size()), uint32_t(out.buffer.size()));
    uint8_t unit[512], packet[64];
    const uint32_t length = klxUtilAddHevcTimecodeSEIRate(unit, 107892, 29, false);
    const uint32_t n = captionPacket(packet);
    if (klxutilInsertUnitBeforePicture(&f, KLX_CODEC_HEVC, 0, unit, length) != 0 ||
        klxutilAddCaptionsSEI(&f, KLX_CODEC_HEVC, packet, n, 0) != 0)
      return out;
    out.size = f.nDataSize;
    return out;
  }();
  return s;
}

void BM_ReadH264TimecodeAndCaptions4K(benchmark::State& state) {
  const Stamped& s = stampedAvc();
  const auto sps = firstSps(s.buffer);
  if (!s.size || !sps) return state.SkipWithError("ffmpeg/libx264 could not make the 4K access unit");
  KLX_TIMECODE tc{};
  uint8_t triplets[96];
  for (auto _ : state) {
    benchmark::DoNotOptimize(klxUtilReadH264TimeCode(s.buffer.data(), s.size, 0, sps.get(), &tc));
    benchmark::DoNotOptimize(klxUtilReadH264CaptionsSEI(s.buffer.data(), s.size, 0, triplets, 32));
  }
  state.counters["accessUnitBytes"] = double(s.size);
  state.counters["bytesBeforeSlice"] = double(ReadSEIEnd(s.buffer.data(), s.size, KLX_CODEC_H264, 0));
}
BENCHMARK(BM_ReadH264TimecodeAndCaptions4K)->Unit(benchmark::kMicrosecond);

void BM_ReadHevcTimecodeAndCaptions4K(benchmark::State& state) {
  const Stamped& s = stampedHevc();
  if (!s.size) return state.SkipWithError("ffmpeg/libx265 could not make the 4K access unit");
  KLX_TIMECODE tc{};
  uint8_t triplets[96];
  for (auto _ : state) {
    benchmark::DoNotOptimize(klxUtilReadHevcTimeCode(s.buffer.data(), s.size, 0, &tc));
    benchmark::DoNotOptimize(klxUtilReadHevcCaptionsSEI(s.buffer.data(), s.size, 0, triplets, 32));
  }
  state.counters["accessUnitBytes"] = double(s.size);
  state.counters["bytesBeforeSlice"] = double(ReadSEIEnd(s.buffer.data(), s.size, KLX_CODEC_HEVC, 0));
}
BENCHMARK(BM_ReadHevcTimecodeAndCaptions4K)->Unit(benchmark::kMicrosecond);

// One move of the access unit's tail by the size of a pic_timing unit: what any insertion costs.
void BM_AvcTailMemmove4K(benchmark::State& state) {
  const auto au = encoded4K("libx264", "h264");
  if (au.empty()) return state.SkipWithError("no 4K access unit");
  std::vector<uint8_t> buffer(au);
  buffer.resize(au.size() + kSpare);
  const uint32_t at = ReadSEIEnd(buffer.data(), uint32_t(au.size()), KLX_CODEC_H264, 0);
  for (auto _ : state) {
    std::memmove(buffer.data() + at + 20, buffer.data() + at, au.size() - at);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_AvcTailMemmove4K)->Unit(benchmark::kMicrosecond);

// klxutilAddAVCTimeCode on the unstamped x264 access unit (SPS already carrying
// pic_struct_present_flag, so the insertion alone), undone with a second move:
// writer = this - 2 x BM_AvcTailMemmove4K.
void BM_AvcTimecodeInsert4K(benchmark::State& state) {
  auto au = encoded4K("libx264", "h264");
  auto sps = firstSps(au);
  if (au.empty() || !sps) return state.SkipWithError("no 4K access unit");
  // Give the stream's SPS the flag first, as the stream-level preparation does.
  DFRAME f;
  std::vector<uint8_t> buffer(au);
  buffer.resize(au.size() + kSpare);
  klxutilInitFrame(&f, buffer.data(), uint32_t(au.size()), uint32_t(buffer.size()));
  klxutilAddAVCTimeCode(&f, 4, sps.get(), 0, 0);
  constexpr uint32_t kPicTiming = 1;  // and take the pic_timing out again
  klxutilRemoveSEIMessages(&f, KLX_CODEC_H264, 0, &kPicTiming, 1);
  sps = firstSps(std::vector<uint8_t>(buffer.begin(), buffer.begin() + f.nDataSize));
  const uint32_t size = f.nDataSize;
  const uint32_t at = ReadSEIEnd(buffer.data(), size, KLX_CODEC_H264, 0);
  uint32_t frame = 0;
  for (auto _ : state) {
    klxutilInitFrame(&f, buffer.data(), size, uint32_t(buffer.size()));
    f.nTimecode = frame++ % 100000;
    klxutilAddAVCTimeCode(&f, 4, sps.get(), 0, 0);
    const uint32_t added = f.nDataSize - size;
    std::memmove(buffer.data() + at, buffer.data() + at + added, size - at);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_AvcTimecodeInsert4K)->Unit(benchmark::kMicrosecond);

#ifdef QUORVANE_HAVE_LIBAVCODEC
// FFmpeg's H.264 parser over the same stamped access unit (it splits the frame and reads
// the SEI and slice header it needs), for scale.
void BM_FfmpegH264Parser4K(benchmark::State& state) {
  const Stamped& s = stampedAvc();
  if (!s.size) return state.SkipWithError("no 4K access unit");
  const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_H264);
  AVCodecContext* ctx = avcodec_alloc_context3(codec);
  std::vector<uint8_t> padded(s.buffer.begin(), s.buffer.begin() + s.size);
  padded.resize(s.size + AV_INPUT_BUFFER_PADDING_SIZE, 0);
  for (auto _ : state) {
    AVCodecParserContext* parser = av_parser_init(AV_CODEC_ID_H264);
    uint8_t* out = nullptr;
    int outSize = 0;
    av_parser_parse2(parser, ctx, &out, &outSize, padded.data(), int(s.size), 0, 0, 0);
    av_parser_parse2(parser, ctx, &out, &outSize, nullptr, 0, 0, 0, 0);  // flush: the whole unit
    benchmark::DoNotOptimize(outSize);
    av_parser_close(parser);
  }
  avcodec_free_context(&ctx);
}
BENCHMARK(BM_FfmpegH264Parser4K)->Unit(benchmark::kMicrosecond);
#endif

}  // namespace
