// The media command record: the one structure in which every transport and control request
// (play, record, stop, shuttle, get/set of channel state, clip selection) travels between
// control clients and channel servers, and the small helpers that initialise, merge and
// normalise it.
//
// The record is a fixed head of 32-bit fields followed by a 9-byte clip identifier and a
// 4103-byte payload tail. Its length (4188 bytes) is part of the wire contract because it is
// stored in the record itself (StructSize), so the layout is packed to 4-byte alignment and
// pinned below with static_asserts.
#pragma once
#include <cstddef>
#include <cstdint>

extern "C" {

// Record signature held in CmdID.
#define MEDIACMD_SIGNATURE 0xFA250200u
// Length of the record as laid out here.
#define MEDIACMD_SIZE 4188u
// Offset of the payload tail; StructSize - MEDIACMD_PAYLOAD_OFFSET is the payload room.
#define MEDIACMD_PAYLOAD_OFFSET 85u
#define MEDIACMD_CLIPID_SIZE 9u
#define MEDIACMD_PAYLOAD_SIZE 4103u
// At most this many payload characters are ever copied from one record to another.
#define MEDIACMD_PAYLOAD_COPY_MAX 4099u

// Speed unit: 65520 is one frame per frame period (normal forward play); 0 is still;
// negative values run in reverse. MEDIACMD_SPEED_NONE means "no speed given".
#define MEDIACMD_SPEED_NORMAL 65520
#define MEDIACMD_SPEED_NONE 0x7FFFFFFF

// Command codes (MEDIACMD::Cmd).
enum MediaCmdCode : uint32_t {
  ctStop = 0,
  ctPause = 1,
  ctPlay = 2,
  ctRecord = 3,
  ctRecStop = 4,
  ctEject = 5,
  ctTransfer = 6,
  ctInsert = 7,
  ctBlank = 8,
  ctDelete = 9,
  ctTrim = 10,
  ctChanSelect = 11,
  ctGetState = 12,
  ctSetState = 13,
  ctGetValue = 14,
  ctSetValue = 15,
  ctValueSupported = 16,
  ctError = 17,
  ctTerminate = 18,
  ctAbort = 19,
  ctEdit = 20,
  ctSwitch = 21,
};

// Control flags (MEDIACMD::CtrlFlags). Bits the library does not interpret are copied and
// serialised unchanged; the channel servers give them their meaning.
enum MediaCmdFlag : uint32_t {
  cfDeferred = 0x00000001,
  cfTimeMs = 0x00000002,          // CmdAlt holds a time in milliseconds
  cfTimeTarget = 0x00000004,      // with cfTimeMs: CmdAlt is a target time
  cfTimeHouseClock = 0x00000008,  // with cfTimeMs: CmdAlt is a house-clock time
  cfUseSpeed = 0x00000010,
  cfUsePresets = 0x00000020,  // VideoChannels, AudioChannels, InfoChannels are valid
  cfUsePosition = 0x00000040,
  cfUsePositionOffset = 0x00000080,
  cfUseStart = 0x00000100,
  cfUseStartOffset = 0x00000200,
  cfUseEnd = 0x00000400,
  cfUseEndOffset = 0x00000800,
  cfUseAllIDs = 0x00001000,
  cfUseClipID = 0x00002000,  // ClipID and payload are valid
  cfCopy = 0x00004000,
  cfNoClipFiles = 0x00004000,  // same bit as cfCopy
  cfConvert = 0x00008000,
  cfNoTCSpaces = 0x00008000,  // same bit as cfConvert
  cfUseCmdAlt = 0x00010000,
  cfIsShuttle = 0x00020000,
  cfUsingCurrent = 0x00040000,
  cfUseFrameCount = 0x00080000,
  cfFields = 0x00100000,
  cfRipple = 0x00200000,
  cfLoop = 0x00400000,
  cfTrigger = 0x00800000,
  cfPreview = 0x01000000,
  cfRemoteCommand = 0x02000000,
  cfOver24Hours = 0x04000000,
  cfSecondField = 0x08000000,
  cfUseNextField = 0x08000000,  // same bit as cfSecondField
  cfInvert = 0x10000000,
  cfTest = 0x20000000,
  cfOverrideDeferred = 0x40000000,
  cfIgnore = 0x40000000,  // same bit as cfOverrideDeferred
  cfNoReturn = 0x80000000,
};

#pragma pack(push, 4)
typedef struct MEDIACMD {
  // Chaining words owned by the host. The library never follows them; the text forms carry
  // their low 32 bits as numbers, so they are opaque words rather than typed pointers (a
  // record read from text must never hand the host something that looks like a live pointer).
  uintptr_t prev;
  uintptr_t next;
  uintptr_t list;
  uint32_t CmdID;       // MEDIACMD_SIGNATURE in a valid record
  uint32_t StructSize;  // size of the record as allocated; bounds payload copies
  uint32_t Channel;     // 0xFFFFFFFF when not set
  uint32_t Cmd;         // MediaCmdCode
  uint32_t CtrlFlags;   // MediaCmdFlag bits
  int32_t Speed;        // units of 1/65520 of normal speed; MEDIACMD_SPEED_NONE when unset
  uint32_t VideoChannels;  // channel bit masks, valid with cfUsePresets
  uint32_t AudioChannels;
  uint32_t InfoChannels;
  uint32_t CmdAlt;  // time argument (cfTimeMs...) or, for get/set commands, the get/set code
  int32_t Position;
  int32_t Start;
  int32_t End;
  char ClipID[MEDIACMD_CLIPID_SIZE];    // up to 8 characters and a NUL
  char Payload[MEDIACMD_PAYLOAD_SIZE];  // command-specific data, see mediacmd_payload.h
} MEDIACMD;
#pragma pack(pop)

static_assert(sizeof(void*) == 8, "MEDIACMD is laid out for 64-bit hosts");
static_assert(sizeof(MEDIACMD) == MEDIACMD_SIZE, "MEDIACMD is 4188 bytes");
static_assert(offsetof(MEDIACMD, CmdID) == 24, "CmdID follows the three link words");
static_assert(offsetof(MEDIACMD, End) == 72, "head of 32-bit fields");
static_assert(offsetof(MEDIACMD, ClipID) == 76, "ClipID follows End");
static_assert(offsetof(MEDIACMD, Payload) == MEDIACMD_PAYLOAD_OFFSET, "payload at offset 85");

// Clears the record and sets the signature, size, command code and every "not set" value
// (Channel, masks, CmdAlt, Position, Start, End = 0xFFFFFFFF; Speed = MEDIACMD_SPEED_NONE).
// A null record is ignored.
void initMediaCmd(MEDIACMD* cmd, unsigned cmdCode);

// Merges src into dst: command, channel, the flags in flagMask, speed (defaulted by command),
// presets, time argument, position, start/end and, with cfUseClipID, the clip id and payload
// (bounded by both records' StructSize and MEDIACMD_PAYLOAD_COPY_MAX). Nulls are ignored.
void copyMediaCmd(MEDIACMD* dst, const MEDIACMD* src, unsigned flagMask);

// Normalises one record: masks unset without cfUsePresets; Play/Record default to normal speed
// and stop-like commands to speed 0 unless cfUseSpeed is set. flagMask 0 means all flags.
// Returns 0xFFFFFFFF always (a null record is ignored).
uint32_t fixMediaCmd(MEDIACMD* cmd, unsigned flagMask);

// Bit number of the index-th set bit of mask (index 0 = lowest set bit), or 0xFFFFFFFF when
// mask has no more than index set bits. rest (optional) receives mask without that bit, or
// mask unchanged when none is found.
uint32_t findChannel(unsigned mask, unsigned* rest, unsigned index);
// Mask holding only the bit findChannel finds, or 0.
uint32_t isolateChannel(unsigned mask, unsigned index);
// Number of set bits in mask.
uint32_t totalChannels(unsigned mask);

// toupper/tolower of each of the four bytes (as the C library sees a signed char), byte order kept.
uint32_t fourccToUpper(unsigned fourcc);
uint32_t fourccToLower(unsigned fourcc);

// Field-repetition stepper for a playout loop. Returns how many times the current field is to
// be repeated (slow motion), 1 when fields are to be skipped (fast play; *count advances by the
// fields to skip), or 0 for speed 0. MEDIACMD_SPEED_NONE keeps the previous speed. The state is
// process-wide and unguarded: one playout loop at a time.
int speedReps(unsigned* count, int speed);

// |speed| as a multiple of normal speed in unsigned 16.16 fixed point.
uint32_t speedRate(int speed);
}
