// Signal-format words and frame sizes.
//
// Every video signal is described by one 32-bit word that packs the raster, the scan and the
// frame rate:
//
//   bits  0-8   rate code: the nominal integer rate (23 = 23.98, 29 = 29.97, 59 = 59.94 ...),
//               256 = rate unknown; vidRateScale (vidrate.h) maps it to an exact rate pair
//   bits  9-19  width token  (index into the size-token table)
//   bits 20-27  height token (index into the size-token table)
//   bit  28     interlaced (scan letter "i")
//   bit  29     progressive (scan letter "P")
//   bit  30     segmented frame, PsF (scan letter "s")
//
// The token values are stored in configuration and media files, so they never change, even
// where they look odd (token 104 reads 2650, the 8K words carry height token 101 = 4096).
#pragma once
#include <cstddef>
#include <cstdint>

extern "C" {

// ---- Word layout --------------------------------------------------------------------------
#define VID_FMT_RATE_MASK 0x000001FFu
#define VID_FMT_WIDTH_SHIFT 9
#define VID_FMT_WIDTH_MASK 0x7FFu
#define VID_FMT_HEIGHT_SHIFT 20
#define VID_FMT_HEIGHT_MASK 0xFFu
#define VID_FMT_INTERLACED 0x10000000u
#define VID_FMT_PROGRESSIVE 0x20000000u
#define VID_FMT_SEGMENTED 0x40000000u
#define VID_FMT_SCAN_MASK 0x70000000u
// The word that means "no valid format".
#define VID_FMT_INVALID 0xF0000000u
// Rate code of a word whose rate is not known.
#define VID_RATE_UNKNOWN 256u

// Rate codes (low 9 bits of a word).
enum VidRateCode : uint32_t {
  VID_RATE_14_98 = 14,
  VID_RATE_15 = 15,
  VID_RATE_23_98 = 23,
  VID_RATE_24 = 24,
  VID_RATE_25 = 25,
  VID_RATE_29_97 = 29,
  VID_RATE_30 = 30,
  VID_RATE_47_95 = 47,
  VID_RATE_48 = 48,
  VID_RATE_50 = 50,
  VID_RATE_59_94 = 59,
  VID_RATE_60 = 60,
  VID_RATE_71_93 = 71,
  VID_RATE_72 = 72,
  VID_RATE_100 = 100,
  VID_RATE_119_88 = 119,
};

// Raster families: a family word OR a rate code gives a complete word
// (VID_FMT_1080P | VID_RATE_29_97 = 0x2380B21D).
inline constexpr uint32_t VID_FMT_NTSC = 0x11004000u;  // 640x480i
inline constexpr uint32_t VID_FMT_NTSC_601 = 0x11204200u;  // 720x486i
inline constexpr uint32_t VID_FMT_PAL = 0x11A04000u;  // 640x576i
inline constexpr uint32_t VID_FMT_PAL_601 = 0x11A04200u;  // 720x576i
inline constexpr uint32_t VID_FMT_1035I = 0x1310B200u;  // 1920x1035i
inline constexpr uint32_t VID_FMT_1080I = 0x1380B200u;  // 1920x1080i
inline constexpr uint32_t VID_FMT_720P = 0x22109000u;  // 1280x720P
inline constexpr uint32_t VID_FMT_1080P = 0x2380B200u;  // 1920x1080P
inline constexpr uint32_t VID_FMT_1080PSF = 0x4380B200u;  // 1920x1080 PsF
inline constexpr uint32_t VID_FMT_2K_1080P = 0x2380C000u;  // 2048x1080P
inline constexpr uint32_t VID_FMT_2K_1080PSF = 0x4380C000u;  // 2048x1080 PsF
inline constexpr uint32_t VID_FMT_2560_1080P = 0x2380D000u;  // 2560x1080P (width token 104)
inline constexpr uint32_t VID_FMT_1400_1050P = 0x23409600u;  // 1400x1050P
inline constexpr uint32_t VID_FMT_2K_1536P = 0x2500C000u;  // 2048x1536P
inline constexpr uint32_t VID_FMT_2K_1536PSF = 0x4500C000u;  // 2048x1536 PsF
inline constexpr uint32_t VID_FMT_2K_1556P = 0x2510C000u;  // 2048x1556P
inline constexpr uint32_t VID_FMT_2K_1556PSF = 0x4510C000u;  // 2048x1556 PsF
inline constexpr uint32_t VID_FMT_4K_1714P = 0x25710000u;  // 4096x1714P
inline constexpr uint32_t VID_FMT_UHD_P = 0x2640F000u;  // 3840x2160P
inline constexpr uint32_t VID_FMT_UHD_PSF = 0x4640F000u;  // 3840x2160 PsF
inline constexpr uint32_t VID_FMT_4K_2160P = 0x26410000u;  // 4096x2160P
inline constexpr uint32_t VID_FMT_4K_2160PSF = 0x46410000u;  // 4096x2160 PsF
inline constexpr uint32_t VID_FMT_8K_7680P = 0x2650B600u;  // 7680x4320P (height token 101)
inline constexpr uint32_t VID_FMT_8K_8192P = 0x2650B800u;  // 8192x4320P (height token 101)
inline constexpr uint32_t VID_FMT_4K_3112P = 0x26B10000u;  // 4096x3112P
inline constexpr uint32_t VID_FMT_4K_3112PSF = 0x46B10000u;  // 4096x3112 PsF

// ---- The video sub-record of a channel ----------------------------------------------------
// Scan flags in KLXVIDEO::Flags.
#define KLXVID_INTERLACED 0x00000100u
#define KLXVID_SEGMENTED 0x00000200u

// Picture description filled by vidSignalFormatToKLXVid.
typedef struct KLXVIDEO {
  uint32_t Rate;         // frames per second = Rate / Scale
  uint32_t Scale;
  int32_t Width;         // active picture
  int32_t Height;        // frame height (not field height)
  int32_t XOffset;       // active picture offset inside the total raster
  int32_t YOffset;
  int32_t TotalWidth;    // offset + picture
  int32_t TotalHeight;
  uint32_t Flags;        // KLXVID_INTERLACED, KLXVID_SEGMENTED
} KLXVIDEO;
static_assert(sizeof(KLXVIDEO) == 36, "KLXVIDEO is shared with hosts: keep its layout");

// ---- Functions ----------------------------------------------------------------------------
// Pixels of a size token: -1 for a token outside 1..128 or one with no size.
int vidGetSizeFromToken(int token);
// Token of a measured size, by buckets; -1 below 240 or above 8192. 1035 gives token 48, and
// 2160, 3840, 7680 never come out of it (UHD words come only from vidGetSignalFormat).
int vidGetTokenFromSize(int pixels);
// Width and height of a word; field height (frame height / 2) for interlaced words when
// fieldHeight is non-zero. 0, or -1 for an unknown size or a null output.
int vidImageSize(uint32_t format, int* width, int* height, int fieldHeight);
// Format word of a measured raster and rate; VID_FMT_INVALID when a size has no token or
// scale is 0. psf selects progressive over interlaced/segmented where both are possible.
uint32_t vidGetSignalFormat(uint32_t rate, uint32_t scale, int width, int height, int psf);
// 20-character display text of a word into text[21] (space padded, zero terminated). 0, or -1
// for a null buffer.
int vidSignalFormatToStr20(uint32_t format, char* text);
// Checked form: refuses (-1) a buffer smaller than 21 bytes.
int vidSignalFormatToStr20s(uint32_t format, char* text, size_t textSize);
// Fills rate, size, offsets, total size and scan flags of video. 0, or -1 for an unknown
// rate or size or a null record.
int vidSignalFormatToKLXVid(uint32_t format, KLXVIDEO* video);

// Colour matrix codes of GetMatrixBySize: even = full range, odd = video range.
enum VidMatrix : int {
  VID_MATRIX_SD_FULL = 0,   // ITU-R BT.601
  VID_MATRIX_SD_VIDEO = 1,
  VID_MATRIX_HD_FULL = 4,   // ITU-R BT.709
  VID_MATRIX_HD_VIDEO = 5,
  VID_MATRIX_UHD_FULL = 6,  // ITU-R BT.2020
  VID_MATRIX_UHD_VIDEO = 7,
};
// Flag of GetMatrixBySize: the caller asks for the video-range matrix.
#define VID_MATRIX_FLAG_VIDEO_RANGE 0x1000u

// "ForceVideoRangeMatrix" under "Quorvane\Advanced", read from the configuration store on
// the first GetMatrixBySize call (-1 until then; set it back to -1 to read again).
extern int m_gForceVideoRangeMatrix;
int GetMatrixBySize(int width, int height, uint32_t flags);

// Picture aspect ratio of a raster as (numerator << 16) | denominator, 0 when unknown. The
// height is taken absolute. When width and height are both 0 the raster of format is used.
uint32_t vidGetAspectRatio(uint32_t format, int width, int height);

}  // extern "C"
