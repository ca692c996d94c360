// FOURCC classification tests. A FOURCC is held with its first character in the most
// significant byte ('hvc1' == 0x68766331). Each test returns 1 when the code belongs to the
// family, else 0.
#pragma once
#include <cstdint>

extern "C" {
int fccIsHEVC(uint32_t fcc);
int fccIsh264(uint32_t fcc);
int fccIsDolbyVision(uint32_t fcc);
int fccIsAvidJpeg(uint32_t fcc);
int fccIsAvidJfif(uint32_t fcc);
int fccIsJpeg(uint32_t fcc);
int fccIsDv25(uint32_t fcc);
int fccIsDv50(uint32_t fcc);
int fccIsDv100(uint32_t fcc);
int fccIs8BitD1YUV(uint32_t fcc);
int fccIsYCbCr8(uint32_t fcc);
int fccIsYCbCr10(uint32_t fcc);
int fccIsRawRGB(uint32_t fcc);
int fccIsDPX(uint32_t fcc);
int fccIsBayer(uint32_t fcc);
int fccIsHDCamSR(uint32_t fcc);
}
