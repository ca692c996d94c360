// Signal-format words and transport arithmetic on arbitrary input: never crashes, never
// overflows (UBSan), and keeps the invariants the players rely on.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "video/video.h"

namespace {

struct Reader {
  const uint8_t* data;
  size_t size;
  bool take(void* out, size_t n) {
    if (size < n) return false;
    std::memcpy(out, data, n);
    data += n;
    size -= n;
    return true;
  }
};

void checkWord(uint32_t word) {
  char text[21];
  if (vidSignalFormatToStr20(word, text) != 0 || std::strlen(text) > 20) std::abort();
  int w, h;
  vidImageSize(word, &w, &h, 1);
  KLXVIDEO video{};
  vidSignalFormatToKLXVid(word, &video);
  vidGetAspectRatio(word, 0, 0);
  vidFramesPerSecD(word, 0, 0);
  vidGetFPSTCTypeSignalFormat(word);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Reader in{data, size};
  uint32_t rate, scale;
  int32_t width, height;
  if (!in.take(&rate, 4) || !in.take(&scale, 4) || !in.take(&width, 4) || !in.take(&height, 4)) return 0;
  checkWord(rate);
  uint32_t word = vidGetSignalFormat(rate, scale, width, height, width & 1);
  checkWord(word);
  vidNormalizeRateScale(&rate, &scale);
  double fps;
  std::memcpy(&fps, data, sizeof fps);
  vidRateScaled(fps, &rate, &scale);
  vidGetTCType(fps);

  // Transport: a program of operations.
  CKLXTransTC2 tc;
  bool wrapped = false;  // the position has been through Modulo since the range was set
  uint8_t op;
  int32_t a, b;
  while (in.take(&op, 1) && in.take(&a, 4) && in.take(&b, 4)) {
    switch (op % 9) {
      case 0: tc.SetRange(a, b); wrapped = false; break;
      case 1: tc.SetTC(a); wrapped = true; break;
      case 2: { CKLXSpeed s; s.Set(a, b); tc.SetSpeed(s); break; }
      case 3: tc.SetSpeedZero(CKLXSpeed(a)); break;
      case 4: ++tc; wrapped = true; break;
      case 5: --tc; wrapped = true; break;
      case 6: tc += a; wrapped = true; break;
      case 7: tc -= a; wrapped = true; break;
      case 8: { CKLXPos p; p.SetAsFrac(a, b); tc.SetTC(p); wrapped = true; break; }
    }
    if (tc.position.fraction < 0 || tc.position.fraction > 65519) std::abort();
    if (tc.length && wrapped && static_cast<uint32_t>(tc.position.frames) - tc.start >= tc.length) std::abort();
  }
  return 0;
}
