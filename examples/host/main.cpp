// A tiny host: converts a frame count to drop-frame timecode and back, and encodes the text in
// base64, through the installed library. Prints one line; exits non-zero when anything is off.
#include <quorvane/quorvane.h>
#include <quorvane/video/vidrate.h>

#include <cstdio>
#include <cstring>

int main() {
  char text[16];
  if (tc2String(107892, TC_DF2997 | TCF_FULL_TEXT, text, sizeof text) != 0) return 1;
  uint32_t frames = 0;
  if (tc2Frame(text, TC_DF2997 | TCF_TEXT, &frames) != 0 || frames != 107892) return 2;
  char encoded[32];
  const size_t n = base64_encode(text, std::strlen(text), encoded, sizeof encoded);
  if (n == 0) return 3;
  if (vidTCMsPerFrame(TC_PAL) != 40) return 4;
  std::printf("%u %s %.*s\n", frames, text, static_cast<int>(n), encoded);
  return 0;
}
