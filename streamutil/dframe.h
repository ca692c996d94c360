// DFRAME: the host's record of one encoded frame, which the SEI, caption and timecode writers
// edit in place. The host owns the buffers; the writers only move bytes inside `pData` and
// grow `nDataSize` (and `nSecondPartOffset` where a unit lands in front of the second part).
#pragma once
#include <cstddef>
#include <cstdint>

extern "C" {

// A timecode or frame number slot that holds no value.
constexpr uint32_t DFRAME_NOT_SET = 0xFFFFFFFFu;

// nFlags bits. A frame that carries two separately coded parts (the two fields of an
// interlaced frame coded as field pictures) sets DFRAME_TWO_PARTS; DFRAME_SECOND_PART_VALID
// says nSecondPartOffset locates the first byte of the second part. Only with both set is
// that offset kept in step by the caption inserter.
constexpr uint32_t DFRAME_TWO_PARTS = 0x20000u;
constexpr uint32_t DFRAME_SECOND_PART_VALID = 0x40000u;

struct DFRAME {
  uint8_t* pData;              // coded frame: NAL units with start codes or 4-byte lengths
  uint32_t nBufferSize;        // capacity of pData in bytes (room behind the data included)
  uint32_t nDataSize;          // bytes of coded data in pData
  uint8_t* pCaption;           // caption packet for this frame, or null (see captions.h)
  uint32_t nCaptionSize;       // bytes in pCaption
  uint32_t nFlags;             // DFRAME_TWO_PARTS, DFRAME_SECOND_PART_VALID and host bits
  uint32_t nSecondPartOffset;  // offset of the second part in pData
  uint32_t nTimecode;          // timecode as a frame count, or DFRAME_NOT_SET
  uint32_t nTimecodeAlt;       // fallback timecode, or DFRAME_NOT_SET
  uint32_t nFrame;             // base frame number of the frame
};
// Hosts built separately share this layout: pin it on 64-bit targets.
static_assert(sizeof(void*) != 8 || sizeof(DFRAME) == 48, "DFRAME layout changed");
static_assert(sizeof(void*) != 8 || offsetof(DFRAME, nCaptionSize) == 24, "DFRAME layout changed");
static_assert(sizeof(void*) != 8 || offsetof(DFRAME, nFrame) == 44, "DFRAME layout changed");

// Fills a DFRAME over `data` (nDataSize bytes used of nBufferSize): no caption, no flags, both
// timecodes unset, frame number 0.
void klxutilInitFrame(DFRAME* frame, uint8_t* data, uint32_t nDataSize, uint32_t nBufferSize);

// The frame's timecode as a frame count: nTimecode when set, else nTimecodeAlt when set, else
// nFrame.
uint32_t klxFrameTimecode(const DFRAME* frame);
}
