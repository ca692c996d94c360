// CEA-608 (CTA-608-E) line 21 caption decoding: the byte pairs of one caption channel turned
// into timed text. Pop-on, roll-up (2 to 4 rows) and paint-on captions; the basic, special
// and extended North American character sets, written as UTF-8. Text mode (TR/RTD) and XDS
// are skipped.
#pragma once
#include <cstdint>

extern "C" {

constexpr uint32_t CEA608_ROWS = 15;
constexpr uint32_t CEA608_COLUMNS = 32;
constexpr uint32_t CEA608_TEXT_BYTES = CEA608_ROWS * (CEA608_COLUMNS * 3 + 1) + 1;

// A caption as shown: from startFrame up to (not including) endFrame. Text is UTF-8, rows top
// to bottom joined by '\n', each row without its leading and trailing blanks (as FFmpeg's
// decoder gives it).
struct CEA608_CUE {
  uint32_t startFrame;
  uint32_t endFrame;
  char text[CEA608_TEXT_BYTES];
};

// Decoder state for one channel; fill with klxutilCea608Init, then feed every pair of the
// channel's field in order. 2 bytes per cell: character code and character set.
struct CEA608_DECODER {
  uint32_t channel;  // 1..4: CC1, CC2 (field 1), CC3, CC4 (field 2)
  uint32_t mode;     // 0 none, 1 pop-on, 2 roll-up, 3 paint-on, 4 text
  uint32_t rollRows;
  uint32_t row, column;
  uint32_t activeChannel;  // data channel (0 or 1) of the last control code in this field
  uint8_t lastControl[2];
  uint32_t lastControlValid;
  uint32_t shownSince;  // frame the displayed memory started to show its current text
  uint32_t shown;       // displayed memory holds text
  uint16_t memory[2][CEA608_ROWS][CEA608_COLUMNS];  // [0] displayed, [1] non-displayed
};

// channel 1..4. Returns 0, -1 for a bad argument.
int klxutilCea608Init(CEA608_DECODER* decoder, uint32_t channel);

// Feeds the byte pair (parity bits included) that the channel's field carries in `frame`.
// Returns 1 when a caption stopped showing at this frame (then *cue holds it), else 0;
// -1 for a bad argument. Pairs with bad parity are ignored.
int klxutilCea608Feed(CEA608_DECODER* decoder, uint32_t frame, uint8_t byte1, uint8_t byte2, CEA608_CUE* cue);

// Ends what is still shown at `frame` (the end of the stream). Returns 1 with *cue, or 0.
int klxutilCea608Flush(CEA608_DECODER* decoder, uint32_t frame, CEA608_CUE* cue);
}
