// Names of the get/set value codes (carried in CmdAlt by ctGetValue, ctSetValue and
// ctValueSupported) and of the control-flag bits, with look-ups in both directions.
//
// The tables are exported so that clients can walk them. They are in a deliberate order, not
// sorted: look-ups scan from the first row and take the first match, so a code with two names
// (0x4E23, 0xC35F, 0xC360; flag bits 0x4000, 0x8000, 0x8000000, 0x40000000) turns into the
// name that stands first, while every name is accepted by the reverse look-ups.
#pragma once
#include <cstddef>
#include <cstdint>

extern "C" {

typedef struct MCMDXLAT {
  uint32_t code;
  const char* name;  // lower case
} MCMDXLAT;

#define MCMD_GS_ROWS 460
#define MCMD_FLAG_ROWS 36
// Longest name in either table (30 characters) plus its NUL.
#define MCMD_NAME_MAX 31

extern const MCMDXLAT mcmdGSXlat[MCMD_GS_ROWS];
// Same shape as mcmdGSXlat, zero-filled; reserved for clients, never read or filled here.
extern MCMDXLAT mcmdGSStringXlat[MCMD_GS_ROWS];
extern const MCMDXLAT mcmdFLAGXlat[MCMD_FLAG_ROWS];

// Get/set codes the text forms give a payload layout to (see mediacmd_payload.h).
enum MediaCmdGetSetCode : uint32_t {
  gsFrameData = 0x19,
  gsMetadata = 0x96,
  gsMetabaseFileName = 0xA2,
  gsMetabaseGetTag = 0xA6,
  gsIpVideoSettings = 0x321,
  gsIpVideoClock = 0x322,
  gsChannelName = 0x41E,
  gsKlxType = 0xEA62,
  gsPreviewFrame = 0xF4247,
};

// Code to name. Returns 0 and copies the first matching row's name (with its NUL) into name
// when name is not null; returns -1 (0xFFFFFFFF) when the code is absent, leaving name alone.
// name must hold MCMD_NAME_MAX bytes.
int gsToString(int code, char* name);
// Name to code, ASCII case ignored, whole names only. Returns 0 (code stored when not null)
// or -1 when no row matches.
int gsFromString(const char* name, unsigned* code);
// The same over the flag table; flag must be exactly one row's value (not a combination).
int cfToString(int flag, char* name);
int cfFromString(const char* name, unsigned* flag);

// Checked forms of gsToString/cfToString: also -1 (name untouched) when the name and its NUL
// do not fit in nameSize bytes.
int gsToStringN(int code, char* name, size_t nameSize);
int cfToStringN(int flag, char* name, size_t nameSize);

// Row look-ups without copying: the first row's name, or null.
const char* gsName(uint32_t code);
const char* cfName(uint32_t flag);
}
