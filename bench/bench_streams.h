// Real coded streams for the benchmarks: made by ffmpeg with x264/x265 on first use and cached
// next to the benchmark executable, so every figure is measured on what encoders really write.
#pragma once
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "syntax/syntax.h"

namespace bench_streams {

using Bytes = std::vector<uint8_t>;

inline std::string executableDir() {
  char path[PATH_MAX] = {};
  ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  std::string exe(path, n > 0 ? static_cast<size_t>(n) : 0);
  size_t slash = exe.rfind('/');
  return slash == std::string::npos ? "." : exe.substr(0, slash);
}

// The stream `name` next to the executable, made with ffmpeg on first use (empty when ffmpeg or
// its encoder is missing).
inline const Bytes& stream(const char* name, const char* ffmpegArgs) {
  static std::vector<std::pair<std::string, Bytes>> cache;
  for (const auto& [n, bytes] : cache)
    if (n == name) return bytes;
  const std::string path = executableDir() + "/" + name;
  std::ifstream probe(path, std::ios::binary);
  if (!probe) {
    std::fprintf(stderr, "making %s with ffmpeg (once)...\n", path.c_str());
    std::string command = std::string("ffmpeg -nostdin -y -v error ") + ffmpegArgs + " '" + path + ".partial' && mv '" +
                          path + ".partial' '" + path + "'";
    if (std::system(command.c_str()) != 0) std::fprintf(stderr, "ffmpeg failed: %s\n", command.c_str());
  }
  std::ifstream in(path, std::ios::binary);
  Bytes bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  cache.emplace_back(name, std::move(bytes));
  return cache.back().second;
}

#define QV_BENCH_SOURCE_1080P "-f lavfi -i testsrc2=size=1920x1080:rate=25,noise=alls=30:allf=t -frames:v 50 "

// 40 Mbit/s 1080p streams, 50 frames each: HEVC, H.264 with CABAC and H.264 with CAVLC (whose
// coded data holds far more zero bytes).
inline const Bytes& hevc1080p() {
  return stream("bench_hevc_1080p_40mbps.hevc", QV_BENCH_SOURCE_1080P
                "-c:v libx265 -preset ultrafast -b:v 40M -maxrate 40M -bufsize 40M -x265-params log-level=error -f hevc");
}
inline const Bytes& avcCabac1080p() {
  return stream("bench_h264_cabac_1080p_40mbps.h264", QV_BENCH_SOURCE_1080P
                "-c:v libx264 -preset ultrafast -x264-params cabac=1 -b:v 40M -maxrate 40M -bufsize 40M -f h264");
}
inline const Bytes& avcCavlc1080p() {
  return stream("bench_h264_cavlc_1080p_40mbps.h264", QV_BENCH_SOURCE_1080P
                "-c:v libx264 -preset ultrafast -x264-params cabac=0 -b:v 40M -maxrate 40M -bufsize 40M -f h264");
}

// One 4K intra frame (its VPS/SPS/PPS/SEI and eight slices): the whole first access unit.
inline const Bytes& frame4k() {
  return stream("bench_hevc_4k_frame.hevc",
                "-f lavfi -i testsrc2=size=3840x2160:rate=25,noise=alls=20:allf=t -frames:v 1 -c:v libx265 "
                "-preset ultrafast -x265-params log-level=error:qp=18:slices=8 -f hevc");
}

struct Unit {
  size_t offset, size;  // the unit behind its start code
};
inline std::vector<Unit> unitsOf(const Bytes& s) {
  std::vector<Unit> units;
  size_t offset = 0;
  while (offset < s.size()) {
    int start, end;
    int n = find_nal_unit(s.data() + offset, static_cast<int>(s.size() - offset), &start, &end);
    if (n <= 0) break;
    units.push_back({offset + start, static_cast<size_t>(n)});
    offset += static_cast<size_t>(end);
  }
  return units;
}

// The first unit whose header's nal_unit_type is `type` (HEVC: bits 1..6, H.264: bits 0..4).
inline Bytes firstUnit(const Bytes& s, bool hevc, int type) {
  for (const Unit& u : unitsOf(s)) {
    const uint8_t header = s[u.offset];
    if ((hevc ? (header >> 1) & 0x3F : header & 0x1F) == type)
      return Bytes(s.begin() + static_cast<std::ptrdiff_t>(u.offset),
                   s.begin() + static_cast<std::ptrdiff_t>(u.offset + u.size));
  }
  return {};
}

// The first access unit of an HEVC stream: everything before the second VCL unit with
// first_slice_segment_in_pic_flag set.
inline Bytes firstAccessUnit(const Bytes& s) {
  bool seenPicture = false;
  for (const Unit& u : unitsOf(s)) {
    const int type = (s[u.offset] >> 1) & 0x3F;
    if (type < 32 && u.size > 2 && (s[u.offset + 2] & 0x80)) {
      if (seenPicture) {
        size_t end = u.offset - 3;
        while (end > 0 && s[end - 1] == 0) end--;
        return Bytes(s.begin(), s.begin() + static_cast<std::ptrdiff_t>(end));
      }
      seenPicture = true;
    }
  }
  return s;
}

}  // namespace bench_streams
