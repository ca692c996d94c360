// Frame rates and timecode types.
//
// A rate travels as two unsigned integers, rate and scale (frames per second = rate / scale).
// The canonical pairs are 15000/1001, 15/1, 24000/1001, 24/1, 25/1, 30000/1001, 30/1,
// 48000/1001, 48/1, 50/1, 60000/1001, 60/1, 72000/1001, 72/1, 100/1 and 120000/1001.
//
// A timecode type (tcxlat.h) says how a frame count is read as SMPTE ST 12-1 timecode:
// 0 frames, 1 film (24), 2 30 non-drop, 4 29.97 drop-frame, 8 PAL (25), 16 50, 32 59.94,
// 64 60, 128 23.98; 132 (128 with the 4 bit) is read as 128.
#pragma once
#include <cstdint>

extern "C" {

// Rate pair of a signal-format word. 0, or -1 for VID_FMT_INVALID, an unknown rate code or a
// null output.
int vidRateScale(uint32_t format, uint32_t* rate, uint32_t* scale);
// Snaps a loose pair (2997/100, 2400/100, 50000/1000 ...) onto its canonical pair in place.
// 0; -1 (nothing changed) for a null pointer or a zero scale.
int vidNormalizeRateScale(uint32_t* rate, uint32_t* scale);
// Pair of a floating-point rate: 0 exact (a canonical pair), 1 approximate (hundredths over
// 100), -1 null output. Multiples snap to their base rate (47.95 -> 24000/1001, 100 -> 25/1).
int vidRateScaled(double fps, uint32_t* rate, uint32_t* scale);
// Default rate of a raster. 0 (outputs untouched above 4096 wide), -1 for a null output.
int vidRateScaleFromSize(int width, int height, uint32_t* rate, uint32_t* scale);

// Frames per second of rate/scale when both are non-zero, else of the word; 29.97 when both
// fail. Never fails.
double vidFramesPerSecD(uint32_t format, uint32_t rate, uint32_t scale);
double vidMsPerFrameD(uint32_t format, uint32_t rate, uint32_t scale);
int vidMsPerFrame(uint32_t format, uint32_t rate, uint32_t scale);

// Timecode type of a floating-point rate (2 when it has none of its own).
uint32_t vidGetTCType(double fps);
// Timecode type of a word's rate code; the fast rates fold onto their base type.
uint32_t vidGetTCTypeSignalFormat(uint32_t format);
// Same, but 50, 59.94 and 60 keep their own types.
uint32_t vidGetFPSTCTypeSignalFormat(uint32_t format);

// Rate and frame duration of a timecode type. Type 2 (30 non-drop) counts 30 frames a second
// but lasts a 29.97 frame: the recorders pace 30 NDF timecode on 29.97 video.
double vidTCFramesPerSecD(uint32_t tctype);
double vidTCMsPerFrameD(uint32_t tctype);
int vidTCMsPerFrame(uint32_t tctype);

// Re-counts *frames from the timecode type of rate/scale into toType so that the timecode
// reads the same (a count from 59.94 or 60 comes back doubled). 0 (also when nothing needs
// converting, and for toType 0, a plain count), -1 for a null pointer, a zero scale or a
// timecode that does not exist in toType (*frames is then unchanged).
int vidConvertTC(uint32_t* frames, uint32_t toType, uint32_t rate, uint32_t scale);

}  // extern "C"
