// Whole-record operations on KLXINFOREC: merge, reset, item names, timecode type in free text.
#include <strings.h>

#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "metadata/klxinfo.h"
#include "platform/tcxlat.h"
#include "platform/zrmemory.h"

namespace {

// A private copy of text in a ZRAlloc block with 4 bytes of slack, as every item text has.
char* duplicateItemText(const char* text) {
  size_t length = strlen(text);
  char* copy = static_cast<char*>(ZRAlloc(length + 4));
  if (copy) memcpy(copy, text, length + 1);
  return copy;
}

// The locators name the clip itself: a merge fills them in but never moves a clip.
constexpr int kFirstReplacedTextSlot = kxtTCPIPAddress;

// Picture and stream description fields, from 0x10000 on.
constexpr const char* kStreamFieldNames[] = {
    "Width", "Height", "Planes", "BitCount", "Compression", "SizeImage", "XPelsPerMeter",
    "YPelsPerMeter", "ClrUsed", "ClrImportant", "Reserved", "FccType", "FccHandler", "Flags",
    "Caps", "Priority", "Language", "Scale", "Rate", "Start", "Length", "InitialFrames",
    "SuggestedBufferSize", "Quality", "SampleSize", "EditCount", "FormatChangeCount", "Pitch",
    "DrFlags", "FileType", "ResBrontal", "AudioType", "AudioChannels", "AudioFrequency",
    "AudioBits"};
static_assert(sizeof(kStreamFieldNames) / sizeof(kStreamFieldNames[0]) ==
              KLXINFO_DESC_STREAM_LAST - KLXINFO_DESC_STREAM_BASE + 1);

// The name of a description identifier, or null when the identifier is unknown.
const char* descriptionName(uint32_t id) {
  if (id < KLXINFO_DESC_TEXT_COUNT) {
    // DoNotUse has no identifier: from there on the slot is one further than the identifier.
    uint32_t slot = id < kxtDoNotUse ? id : id + 1;
    return klxInfoTextItems[slot].name;
  }
  if (id > KLXINFO_DESC_NUMERIC_BASE && id <= KLXINFO_DESC_NUMERIC_LAST)
    return klxInfoNumericItems[id - KLXINFO_DESC_NUMERIC_BASE].name;
  if (id >= KLXINFO_DESC_STREAM_BASE && id <= KLXINFO_DESC_STREAM_LAST)
    return kStreamFieldNames[id - KLXINFO_DESC_STREAM_BASE];
  return nullptr;
}

// Timecode type names as they appear in "TcType=" attributes, tried in this order as
// case-insensitive prefixes (so "film-drop" must come before "film"). "non-drop-frame" giving
// the drop-frame type is how existing files have always been read.
struct TcTypeName {
  const char* prefix;
  uint32_t type;
};
constexpr TcTypeName kTcTypeNames[] = {
    {"frames", TC_FRAMES},        {"23.98", TC_2398 | TC_DF2997}, {"film-drop", TC_2398},
    {"film", TC_FILM},            {"pal", TC_PAL},                {"drop-frame", TC_DF2997},
    {"non-drop-frame", TC_DF2997}, {"50", TC_50},                  {"59.94", TC_DF5994},
    {"60", TC_60},
};
constexpr const char* kTcTypeMarkers[] = {"TcType=", "tctype=", "TCTYPE="};
constexpr size_t kTcTypeMarkerLength = 7;

}  // namespace

extern "C" {

int klxInfoSet(KLXINFOREC* dst, const KLXINFOREC* src) {
  if (!dst || !src) return -1;
  for (int slot = 0; slot < kFirstReplacedTextSlot; ++slot)
    if (!dst->text[slot] && src->text[slot]) dst->text[slot] = duplicateItemText(src->text[slot]);
  for (int slot = kFirstReplacedTextSlot; slot < KLXINFO_TEXT_ITEMS; ++slot) {
    if (!src->text[slot] || src->text[slot] == dst->text[slot]) continue;
    ZRFree(dst->text[slot]);
    dst->text[slot] = duplicateItemText(src->text[slot]);
  }
  for (int slot = kxnTimeCode; slot < KLXINFO_NUMERIC_ITEMS; ++slot)
    if (src->numeric[slot] != KLXINFO_NOT_SET) dst->numeric[slot] = src->numeric[slot];
  return 0;
}

int klxInfoDelete(KLXINFOREC* record) {
  if (!record) return -1;
  for (char*& text : record->text) {
    ZRFree(text);
    text = nullptr;
  }
  record->numeric[kxnUnnamed0] = 0;
  // Timecodes and the poster/A-frame positions start at zero; everything else is "not set".
  for (int slot = kxnTimeCode; slot < KLXINFO_NUMERIC_ITEMS; ++slot) record->numeric[slot] = KLXINFO_NOT_SET;
  for (int slot : {kxnTimeCode, kxnVITCTimeCode, kxnPosterFrame, kxnAFrame}) record->numeric[slot] = 0;
  record->trailing = KLXINFO_TRAILING_RESET;
  return 0;
}

int klxInfoGetDescriptionChecked(uint32_t id, char* text, size_t textSize) {
  if (!text) return -1;
  char answer[KLXINFO_DESC_TEXT_SIZE];
  const char* name = descriptionName(id);
  int result = 0;
  if (name) {
    snprintf(answer, sizeof answer, "%s", name);
  } else {
    snprintf(answer, sizeof answer, "Unk(%d) ", static_cast<int>(id));
    result = -1;
  }
  size_t needed = strlen(answer) + 1;
  if (needed > textSize) return -1;
  memcpy(text, answer, needed);
  return result;
}

int klxInfoGetDescription(uint32_t id, char* text) {
  return klxInfoGetDescriptionChecked(id, text, KLXINFO_DESC_TEXT_SIZE);
}

uint32_t sklxInfoFindTcType(const char* text) {
  if (!text) return 0;
  const char* match = nullptr;
  for (const char* marker : kTcTypeMarkers)
    if ((match = strstr(text, marker))) break;
  if (!match) return 0;
  // One character after the '=' is skipped: attribute values come quoted (TcType="pal").
  if (match[kTcTypeMarkerLength] == '\0') return 0;
  const char* value = match + kTcTypeMarkerLength + 1;
  for (const TcTypeName& name : kTcTypeNames)
    if (strncasecmp(value, name.prefix, strlen(name.prefix)) == 0) return name.type;
  return 0;
}

int klxInfoFindItem(const char* name) {
  if (!name || !*name) return -1;
  for (int slot = 0; slot < KLXINFO_TEXT_ITEMS; ++slot)
    if (klxInfoTextItems[slot].name && strcasecmp(klxInfoTextItems[slot].name, name) == 0) return slot;
  for (int slot = 0; slot < KLXINFO_NUMERIC_ITEMS; ++slot)
    if (klxInfoNumericItems[slot].name && strcasecmp(klxInfoNumericItems[slot].name, name) == 0)
      return KLXINFO_NUMERIC_FLAG + slot;
  return -1;
}

}  // extern "C"

int XMLFromKLXSystem(KLXSYSTEM*, TiXmlElement*) { return 1; }
int XMLFromKLXVideo(KLXVIDEO*, TiXmlElement*) { return 1; }
int XMLFromKLXAudio(KLXAUDIO*, TiXmlElement*) { return 1; }
int XMLFromKLXInfo(KLXINFO*, TiXmlElement*) { return 1; }
