// FOURCC families as constant tables.
//
// Codes are written here as their four characters, first character first, and held with the
// first character in the most significant byte ('hvc1' == 0x68766331). Byte-reversed forms (a
// code read from a little-endian header as a native integer) are not accepted: reversal is
// ambiguous ('UYVY' reversed is 'YVYU', a different layout), so callers normalise first.
//
// Decisions:
// - Dolby Vision streams carried in HEVC ('dvhe', 'dvh1') are HEVC bitstreams, so fccIsHEVC
//   accepts them as well as fccIsDolbyVision; likewise 'dvav' / 'dva1' are H.264.
// - 'dvh1' is Dolby Vision, not DVCPRO HD (fccIsDv100 does not take it).
// - 'hvcr' is taken as HEVC, as the product's codec names do; so are the layered-HEVC sample
//   entries 'hvc2' / 'hev2', whose base layer is plain HEVC ('lhv1' / 'lhe1' tracks are not).
// - The thirteen families that name a codec when the codec table does not know it (Avid JPEG
//   through HDCamSR) are disjoint: a code belongs to at most one of them. 8-bit D1 YUV is the
//   Cb Y Cr Y ("UYVY") order of ITU-R BT.601 D1; other 8-bit YCbCr layouts are YCbCr8.
#include "platform/zrfourcc.h"

#include <cstddef>

namespace {

constexpr uint32_t fcc(const char (&t)[5]) {
  return static_cast<uint32_t>(static_cast<unsigned char>(t[0])) << 24 |
         static_cast<uint32_t>(static_cast<unsigned char>(t[1])) << 16 |
         static_cast<uint32_t>(static_cast<unsigned char>(t[2])) << 8 | static_cast<unsigned char>(t[3]);
}

template <size_t N>
int inFamily(const uint32_t (&codes)[N], uint32_t code) {
  for (uint32_t c : codes)
    if (c == code) return 1;
  return 0;
}

constexpr uint32_t kHevc[] = {fcc("hvc1"), fcc("hev1"), fcc("hvc2"), fcc("hev2"), fcc("HEVC"),
                              fcc("hevc"), fcc("H265"), fcc("h265"), fcc("X265"), fcc("x265"),
                              fcc("hvcr"), fcc("dvhe"), fcc("dvh1")};

// Standard codes, AVC-Intra, Dolby Vision over AVC, and the product's own H.264 variants
// (XAVC, AVC-Intra Ultra/Varicam, Canon 4:4:4, 10-bit, intra-only, WebRTC).
constexpr uint32_t kH264[] = {
    fcc("avc1"), fcc("avc2"), fcc("avc3"), fcc("avc4"), fcc("AVC1"), fcc("H264"), fcc("h264"), fcc("X264"),
    fcc("x264"), fcc("DAVC"), fcc("davc"), fcc("VSSH"), fcc("dvav"), fcc("dva1"), fcc("ai12"), fcc("ai13"),
    fcc("ai15"), fcc("ai16"), fcc("ai1p"), fcc("ai1q"), fcc("ai22"), fcc("ai23"), fcc("ai25"), fcc("ai26"),
    fcc("ai2p"), fcc("ai2q"), fcc("ai52"), fcc("ai53"), fcc("ai55"), fcc("ai56"), fcc("ai5p"), fcc("ai5q"),
    fcc("AVin"), fcc("AVx5"), fcc("AVxa"), fcc("xavc"), fcc("xav4"), fcc("avca"), fcc("avcU"), fcc("avcV"),
    fcc("avLT"), fcc("a264"), fcc("I264"), fcc("wrtc")};

// Dolby Vision sample entries: over HEVC, over AVC, over AV1.
constexpr uint32_t kDolbyVision[] = {fcc("dvhe"), fcc("dvh1"), fcc("dvav"), fcc("dva1"), fcc("dav1")};

constexpr uint32_t kAvidJpeg[] = {fcc("AVRn"), fcc("ADJV"), fcc("AVRJ")};
constexpr uint32_t kAvidJfif[] = {fcc("AVDJ"), fcc("AJFF")};
constexpr uint32_t kJpeg[] = {fcc("MJPG"), fcc("mjpg"), fcc("JPEG"), fcc("jpeg"), fcc("JFIF"), fcc("jfif"), fcc("mjpa"),
                              fcc("mjpb"), fcc("LJPG"), fcc("dmb1"), fcc("IJPG"), fcc("AVI1"), fcc("CJPG"), fcc("JPGL")};

// DV at 25 Mb/s (DV, DVCAM, DVCPRO), 50 Mb/s (DVCPRO50) and 100 Mb/s (DVCPRO HD).
constexpr uint32_t kDv25[] = {fcc("dvsd"), fcc("DVSD"), fcc("dvc "), fcc("dvcp"), fcc("dvpp"),
                              fcc("dv25"), fcc("DV25"), fcc("dvsl"), fcc("CDVC"), fcc("cdvc")};
constexpr uint32_t kDv50[] = {fcc("dv5n"), fcc("dv5p"), fcc("dv50"), fcc("DV50"), fcc("CDV5")};
constexpr uint32_t kDv100[] = {fcc("dvhd"), fcc("DVHD"), fcc("dvhp"), fcc("dvhq"), fcc("dvh2"),
                               fcc("dvh3"), fcc("dvh5"), fcc("dvh6"), fcc("CDVH")};

constexpr uint32_t k8BitD1Yuv[] = {fcc("2vuy"), fcc("UYVY"), fcc("uyvy"), fcc("HDYC"), fcc("Y422"), fcc("UYNV")};
constexpr uint32_t kYCbCr8[] = {fcc("YUY2"), fcc("yuy2"), fcc("YUYV"), fcc("YUNV"), fcc("V422"), fcc("yuvs"),
                                fcc("YVYU"), fcc("v308"), fcc("v408"), fcc("AYUV"), fcc("I420"), fcc("IYUV"),
                                fcc("YV12"), fcc("NV12"), fcc("NV21"), fcc("YV16"), fcc("I422"), fcc("I444")};
constexpr uint32_t kYCbCr10[] = {fcc("v210"), fcc("V210"), fcc("v410"), fcc("Y210"), fcc("Y410"), fcc("P010"),
                                 fcc("P210"), fcc("v216"), fcc("Y10g")};
constexpr uint32_t kRawRgb[] = {fcc("raw "), fcc("RGB "), fcc("BGR "), fcc("RGBA"), fcc("BGRA"),
                                fcc("ARGB"), fcc("ABGR"), fcc("b48r"), fcc("b64a"), fcc("RGB3")};
// 10-bit RGB as film scans and SDI cards pack it.
constexpr uint32_t kDpx[] = {fcc("DPX "), fcc("dpx "), fcc("r210"), fcc("R10k"), fcc("R10g"), fcc("R10b")};
// Raw sensor data: generic Bayer codes and the four 2x2 phase orders at 8, 10, 12 and 16 bits.
constexpr uint32_t kBayer[] = {fcc("BYR1"), fcc("BYR2"), fcc("BA81"), fcc("GBRG"), fcc("GRBG"), fcc("RGGB"),
                               fcc("BG10"), fcc("GB10"), fcc("BA10"), fcc("RG10"), fcc("BG12"), fcc("GB12"),
                               fcc("BA12"), fcc("RG12"), fcc("BG16"), fcc("GB16"), fcc("GR16"),
                               fcc("RG16")};
constexpr uint32_t kHdCamSr[] = {fcc("HDSR"), fcc("hdsr"), fcc("HDS4"), fcc("hds4")};

}  // namespace

extern "C" {
int fccIsHEVC(uint32_t code) { return inFamily(kHevc, code); }
int fccIsh264(uint32_t code) { return inFamily(kH264, code); }
int fccIsDolbyVision(uint32_t code) { return inFamily(kDolbyVision, code); }
int fccIsAvidJpeg(uint32_t code) { return inFamily(kAvidJpeg, code); }
int fccIsAvidJfif(uint32_t code) { return inFamily(kAvidJfif, code); }
int fccIsJpeg(uint32_t code) { return inFamily(kJpeg, code); }
int fccIsDv25(uint32_t code) { return inFamily(kDv25, code); }
int fccIsDv50(uint32_t code) { return inFamily(kDv50, code); }
int fccIsDv100(uint32_t code) { return inFamily(kDv100, code); }
int fccIs8BitD1YUV(uint32_t code) { return inFamily(k8BitD1Yuv, code); }
int fccIsYCbCr8(uint32_t code) { return inFamily(kYCbCr8, code); }
int fccIsYCbCr10(uint32_t code) { return inFamily(kYCbCr10, code); }
int fccIsRawRGB(uint32_t code) { return inFamily(kRawRgb, code); }
int fccIsDPX(uint32_t code) { return inFamily(kDpx, code); }
int fccIsBayer(uint32_t code) { return inFamily(kBayer, code); }
int fccIsHDCamSR(uint32_t code) { return inFamily(kHdCamSr, code); }
}
