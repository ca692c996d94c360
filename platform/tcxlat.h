// Timecode translation (SMPTE ST 12-1): frame counts to timecode text or digits and back.
//
// A format word carries the timecode type in its low byte and option bits above it.
//
// Types (low byte). A type counts frames at its nominal rate; the two drop-frame types skip
// frame numbers at the start of every minute except minutes 00, 10, 20, 30, 40 and 50, so that
// the timecode keeps pace with the wall clock at 30000/1001 and 60000/1001 frames per second:
//   0    TC_FRAMES   a plain frame count, written as a decimal number
//   1    TC_FILM     24 frames per second
//   2    TC_NDF30    30 non-drop
//   4    TC_DF2997   29.97 drop-frame: frame numbers 00 and 01 are skipped
//   8    TC_PAL      25
//   16   TC_50       50 (frames 00..49)
//   32   TC_DF5994   59.94 drop-frame (frames 00..59): frame numbers 00..03 are skipped
//   64   TC_60       60 (frames 00..59)
//   128  TC_2398     23.98, counted exactly like 24
//   132  (128 with the drop-frame bit) is read as 128.
// Any other low byte is an unknown type: both functions return -1.
//
// Option bits:
//   TCF_TEXT       0x100    text output ("HH:MM:SS:FF"). Text is also what is written when
//                           neither TCF_TEXT nor TCF_DIGITS is given; TCF_TEXT says so explicitly.
//   TCF_DIGITS     0x400    four bytes instead of text: out[0] hours, out[1] minutes,
//                           out[2] seconds, out[3] frames (binary values, not BCD). outSize must
//                           be at least 4. Type TC_FRAMES has no fields and is refused. Giving
//                           both TCF_TEXT and TCF_DIGITS is refused.
//   TCF_DROP_MARK  0x2000   drop-frame types write ';' before the frames ("01:00:00;00").
//                           Without it every separator is ':'.
//   TCF_ALL_FIELDS 0x10000  always write all four fields. Without it leading fields that are
//                           zero are left out down to seconds:frames ("5:12", "1:00:00").
//   TCF_PAD        0x20000  the leading field has two digits too ("00:00:05:12" rather than
//                           "0:00:05:12"). Later fields always have two digits.
//   TCF_NO_WRAP    0x80000  counts at or past 24 hours are not wrapped: the hours field grows
//                           ("25:00:00:00", "123:00:00:00"). By default a count is taken modulo
//                           one day of its type, as timecode is.
// Any other bit set is refused (-1), so that a misspelt word is caught rather than guessed at.
//
// The format words the library's callers pass:
//   type | 0x32100  TCF_FULL_TEXT: full text "HH:MM:SS:FF" (';' before drop-frame frames),
//                   wrapping at 24 hours: command XML positions and timecode presets.
//   0xB2140         60 fps full text that does not wrap: values of service-setting commands,
//                   which are numbers rather than timecodes and must survive whole.
//   type | 0x10100  TCF_DEBUG_TEXT: terse trace text, all fields, leading field unpadded,
//                   ':' throughout ("1:00:00:00"); 0x10102 shows a plain count as 30 non-drop.
//   type | 0x100    for tc2Frame: parse text of that type.
//   0x400 | type    (0x401 .. 0x440) the four digit bytes of a timecode SEI.
#pragma once
#include <cstddef>
#include <cstdint>

extern "C" {

enum TcType : uint32_t {
  TC_FRAMES = 0,
  TC_FILM = 1,
  TC_NDF30 = 2,
  TC_DF2997 = 4,
  TC_PAL = 8,
  TC_50 = 16,
  TC_DF5994 = 32,
  TC_60 = 64,
  TC_2398 = 128,
};

// Option bits (plain constants so they combine freely with TcType values).
constexpr uint32_t TCF_TYPE_MASK = 0xFF;
constexpr uint32_t TCF_TEXT = 0x100;
constexpr uint32_t TCF_DIGITS = 0x400;
constexpr uint32_t TCF_DROP_MARK = 0x2000;
constexpr uint32_t TCF_ALL_FIELDS = 0x10000;
constexpr uint32_t TCF_PAD = 0x20000;
constexpr uint32_t TCF_NO_WRAP = 0x80000;
constexpr uint32_t TCF_FULL_TEXT = TCF_TEXT | TCF_DROP_MARK | TCF_ALL_FIELDS | TCF_PAD;  // 0x32100
constexpr uint32_t TCF_DEBUG_TEXT = TCF_TEXT | TCF_ALL_FIELDS;                           // 0x10100

// Renders frames in the type and form of format into out (outSize bytes; text is
// NUL-terminated). Returns 0, or -1 for a null or too small buffer, an unknown type or option
// bit, or digits whose hours do not fit a byte. On failure text output is left empty when
// there is room for the terminator.
int tc2String(uint32_t frames, uint32_t format, void* out, size_t outSize);

// Parses timecode of the given type into *frames. Flags as for tc2String: with TCF_DIGITS,
// text points at the four digit bytes tc2String writes; otherwise it is text of two to four
// fields (frames last, hours first), separated by ':', ';' or '.', later fields exactly two
// digits, blanks around the whole allowed. Type TC_FRAMES reads a decimal count. With
// TCF_NO_WRAP hours may exceed 23. Returns 0, or -1 for a null argument, malformed text,
// out-of-range fields, a dropped frame number, a count beyond 32 bits or an unknown type;
// *frames is untouched on failure.
int tc2Frame(const char* text, uint32_t type, uint32_t* frames);
}
