// One vocabulary of timecode-type names for every caller that asks a user for a type or a rate.
//
// Each entry is one way of counting SMPTE ST 12-1 timecode at one nominal rate, under one
// canonical name: "frames", "23.98", "24", "25", "29.97", "29.97df", "30", "50", "59.94",
// "59.94df", "60". Non-drop 29.97 and 59.94 count like 30 and 60 (the library's types 2 and 64)
// but run at 30000/1001 and 60000/1001; "df" marks the drop-frame counts (types 4 and 32).
// Every entry is also found by its rate forms ("30000/1001" is 29.97, "24/1" is 24, "23.976" is
// 23.98) and by the words the command text forms use ("pal", "film", "film-drop", "drop-frame",
// "non-drop-frame"). The command XML's word "59.94" names type 32 (drop-frame); here "59.94" is
// the non-drop count and the drop-frame one is "59.94df" or type 32's number.
#pragma once
#include <cstdint>

extern "C" {

typedef struct VIDTCTYPEINFO {
  const char* name;   // canonical name ("29.97df")
  uint32_t tctype;    // how the timecode text counts (tcxlat.h TC_* type)
  uint32_t rate;      // nominal rate it runs at, rate/scale (0/0 for "frames")
  uint32_t scale;
  uint32_t seiType;   // type for the HEVC time_code SEI writer (klxutilAddHEVCTimeCode)
  uint32_t cdpRate;   // CTA-708 caption distribution packet cdp_frame_rate code (0: none)
} VIDTCTYPEINFO;

// Finds a timecode type by name, rate form or text-form word (case-insensitive, blanks around
// allowed). 0 and *info filled, or -1 for an unknown or null text or a null info.
int vidTCTypeFromName(const char* text, VIDTCTYPEINFO* info);
// The entry of a library type value (type 2 is "30", 64 is "60", 132 is "23.98"). 0, or -1 for
// a value that is no type or a null info.
int vidTCTypeFromValue(uint32_t tctype, VIDTCTYPEINFO* info);
// Canonical name of a type value; "unknown" (never null) for a value that is no type.
const char* vidTCTypeName(uint32_t tctype);
// The n-th canonical entry (n from 0), for listing the vocabulary. 0, or -1 past the end.
int vidTCTypeAt(uint32_t n, VIDTCTYPEINFO* info);

}  // extern "C"
