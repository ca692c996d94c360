// Temporary placeholders for platform services under construction. Every function here fails
// cleanly; each is removed from this file as its real implementation lands.
#include "platform/zrfourcc.h"

int fccIsHEVC(uint32_t) { return 0; }
int fccIsh264(uint32_t) { return 0; }
int fccIsDolbyVision(uint32_t) { return 0; }
int fccIsAvidJpeg(uint32_t) { return 0; }
int fccIsAvidJfif(uint32_t) { return 0; }
int fccIsJpeg(uint32_t) { return 0; }
int fccIsDv25(uint32_t) { return 0; }
int fccIsDv50(uint32_t) { return 0; }
int fccIsDv100(uint32_t) { return 0; }
int fccIs8BitD1YUV(uint32_t) { return 0; }
int fccIsYCbCr8(uint32_t) { return 0; }
int fccIsYCbCr10(uint32_t) { return 0; }
int fccIsRawRGB(uint32_t) { return 0; }
int fccIsDPX(uint32_t) { return 0; }
int fccIsBayer(uint32_t) { return 0; }
int fccIsHDCamSR(uint32_t) { return 0; }
