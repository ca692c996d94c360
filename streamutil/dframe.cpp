// DFRAME helpers.
#include "streamutil/dframe.h"

extern "C" void klxutilInitFrame(DFRAME* frame, uint8_t* data, uint32_t nDataSize, uint32_t nBufferSize) {
  if (!frame) return;
  *frame = DFRAME{};
  frame->pData = data;
  frame->nDataSize = nDataSize;
  frame->nBufferSize = nBufferSize;
  frame->nTimecode = DFRAME_NOT_SET;
  frame->nTimecodeAlt = DFRAME_NOT_SET;
}

extern "C" uint32_t klxFrameTimecode(const DFRAME* frame) {
  if (!frame) return 0;
  if (frame->nTimecode != DFRAME_NOT_SET) return frame->nTimecode;
  if (frame->nTimecodeAlt != DFRAME_NOT_SET) return frame->nTimecodeAlt;
  return frame->nFrame;
}
