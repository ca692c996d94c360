// The metadata info record of a clip or channel: 99 text items and 50 numeric items, kept in the
// configuration store under "Quorvane\MetaData\Default" and optionally overridden by the
// per-user file "UserMetadata.xml" in the current directory.
//
// Item texts are owned by the record (ZRAlloc/ZRFree); a null text means the item is absent.
// A numeric item of 0xFFFFFFFF is not set.
#pragma once
#include <cstddef>
#include <cstdint>

#include "../platform/zrcfg.h"

class TiXmlElement;
struct KLXSYSTEM;
struct KLXVIDEO;
struct KLXAUDIO;
struct KLXINFO;

#define KLXINFO_TEXT_ITEMS 99
#define KLXINFO_NUMERIC_ITEMS 50
#define KLXINFO_NOT_SET 0xFFFFFFFFu
#define KLXINFO_TRAILING_RESET 0x7FFFFFFF

// The version every store read puts into the VersionString slot.
#define KLXINFO_VERSION_MAJOR 8
#define KLXINFO_VERSION_MINOR 0
#define KLXINFO_VERSION_RELEASE 0
#define KLXINFO_VERSION_BUILD 216
#define KLXINFO_VERSION_TEXT_SIZE 48

// Key paths in the store.
#define KLXINFO_DEFAULT_KEY "Quorvane\\MetaData\\Default"
#define KLXINFO_SWITCH_KEY "Quorvane\\MetaData"
#define KLXINFO_SWITCH_NAME "XMLDisable"
#define KLXINFO_USER_FILE "UserMetadata.xml"

// Description identifiers (klxInfoGetDescription): text items 0..78 (no identifier for the
// DoNotUse slot, so from 14 on an identifier is the slot index minus one), numeric items
// 4096 + slot (4097..4129), picture and stream description fields 0x10000..0x10022.
#define KLXINFO_DESC_TEXT_COUNT 79
#define KLXINFO_DESC_NUMERIC_BASE 4096
#define KLXINFO_DESC_NUMERIC_LAST 4129
#define KLXINFO_DESC_STREAM_BASE 0x10000
#define KLXINFO_DESC_STREAM_LAST 0x10022
#define KLXINFO_DESC_TEXT_SIZE 32  // room klxInfoGetDescription may fill

extern "C" {

struct KLXINFOREC {
  char* text[KLXINFO_TEXT_ITEMS];
  uint32_t numeric[KLXINFO_NUMERIC_ITEMS];
  int32_t trailing;  // not stored; reset to 0x7FFFFFFF by klxInfoDelete
};
static_assert(sizeof(char*) != 8 || sizeof(KLXINFOREC) == 99 * 8 + 50 * 4 + 4 + 4,
              "KLXINFOREC: 99 pointers, 50 DWORDs, one int (padded to pointer alignment)");

// Text slots, in record order.
enum KlxInfoTextSlot : int {
  kxtFileName, kxtNativeLocator, kxtUniversalLocator, kxtTCPIPAddress, kxtSourceLocator,
  kxtChannelIdentifier, kxtChannelName, kxtChannelDescription, kxtTitle, kxtSubject,
  kxtCategory, kxtKeywords, kxtRatings, kxtComments, kxtDoNotUse, kxtOwner, kxtEditor,
  kxtSupplier, kxtSource, kxtProject, kxtStatus, kxtAuthor, kxtRevisionNumber, kxtProduced,
  kxtAlbum, kxtArtist, kxtComposer, kxtCopyright, kxtCreationData, kxtDescription, kxtDirector,
  kxtDisclaimer, kxtEncodedBy, kxtFullName, kxtGenre, kxtHostComputer, kxtInformation, kxtMake,
  kxtModel, kxtOriginalArtist, kxtOriginalFormat, kxtPerformers, kxtProducer, kxtProduct,
  kxtSoftware, kxtSpecialPlaybackRequirements, kxtTrack, kxtWarning, kxtURL, kxtEditData1,
  kxtEditData2, kxtEditData3, kxtEditData4, kxtEditData5, kxtEditData6, kxtEditData7,
  kxtEditData8, kxtEditData9, kxtVersionString, kxtManufacturer, kxtLanguage, kxtFormat,
  kxtInputDevice, kxtDeviceModelNum, kxtDeviceSerialNum, kxtReel, kxtShot, kxtTake,
  kxtSlateInfo, kxtFrameAttribute, kxtEpisode, kxtScene, kxtDailyRoll, kxtCamRoll, kxtSoundRoll,
  kxtLabRoll, kxtKeyNumberPrefix, kxtInkNumberPrefix, kxtPictureIcon, kxtProxyFile,
  kxtUnnamed80, kxtImageInfo, kxtUMID, kxtXML, kxtXML_XMP, kxtXML_MediaInfo,
  kxtNotUsed_87,  // NotUsed_87 .. NotUsed_99 follow
  kxtTextSlotCount = KLXINFO_TEXT_ITEMS
};

// Numeric slots, in record order.
enum KlxInfoNumericSlot : int {
  kxnUnnamed0, kxnTimeCode, kxnUserBits, kxnVITCTimeCode, kxnVITCUserBits, kxnVITCExtraData,
  kxnPosterFrame, kxnAFrame, kxnAspectRatio, kxnOriginalRate, kxnOriginalScale,
  kxnTotalConversions, kxnVersionNumber, kxnFileSize, kxnFileDate, kxnFileTime,
  kxnSequenceNumber, kxnTotalStreams, kxnTotalLength, kxnFilmManufacturerCode, kxnFilmTypeCode,
  kxnWhitePoint, kxnBlackPoint, kxnBlackGain, kxnBreakPoint, kxnGamma1000, kxnTagNumber,
  kxnFlags, kxnTimeCodeType, kxnLTCTimeCodeType, kxnVITCTimeCodeType, kxnProdDate, kxnUniqueID,
  kxnCustomMetadataBlockType, kxnCustomMetadataBlockSize, kxnNorthSouthEastWest, kxnLatitude,
  kxnLongitude, kxnExposure, kxnRedGain, kxnBlueGain, kxnWhiteBalance, kxnMatrix, kxnISO,
  kxnGreenGain, kxnFileSizeHi, kxnNumericNotUsed_46,  // .. NumericNotUsed_49 follow
  kxnNumericSlotCount = KLXINFO_NUMERIC_ITEMS
};

// One slot of the record: its item name (null for the two unnamed slots) and whether the
// configuration store keeps it under that name.
struct KlxInfoItem {
  const char* name;
  bool stored;
};
extern const KlxInfoItem klxInfoTextItems[KLXINFO_TEXT_ITEMS];
extern const KlxInfoItem klxInfoNumericItems[KLXINFO_NUMERIC_ITEMS];

// --- store (klxinfo_store.cpp) ---

// Reads every stored item from store (ZR_CFG_SYSTEM = the system store). Missing keys leave
// their slots as they were; a failed text read leaves its slot null, a failed numeric read
// keeps the old value. VersionString is always reset to "8.0.0.216". Result 0.
int klxInfoReadRegSet(ZRCFGHANDLE store, KLXINFOREC* record);
// Writes every stored item: texts (null texts and unset numerics delete their keys).
// Result 0 or the first store error.
int klxInfoWriteRegSet(ZRCFGHANDLE store, KLXINFOREC* record);
// Writes one item (a text slot, or KLXINFO_NUMERIC_FLAG + a numeric slot) by the rules of
// klxInfoWriteRegSet, leaving every other key alone. Result 0, the store's error, or -1 for an
// item the store does not keep.
int klxInfoWriteRegItem(ZRCFGHANDLE store, const KLXINFOREC* record, int item);
// fromSystem: reads the system store, or seeds it from the record when "XMLDisable" does not
// exist yet. fromUserFile: then overrides from "UserMetadata.xml" when that file exists. Result 0.
int klxInfoReadReg(KLXINFOREC* record, int fromSystem, int fromUserFile);
// Writes to the system store and/or to "UserMetadata.xml" (only when it exists). Result 0, or
// the first store error: a write that was not stored is never reported as done.
int klxInfoWriteReg(KLXINFOREC* record, int toSystem, int toUserFile);

// --- record operations (klxinfo_ops.cpp) ---

// Merges src into dst (see klxinfo_ops.cpp for which slots). Result 0 (-1 for a null record).
int klxInfoSet(KLXINFOREC* dst, const KLXINFOREC* src);
// Frees every text and resets the record to its nothing-set state. Result 0 (-1 for null).
int klxInfoDelete(KLXINFOREC* record);
// Writes the name of item `id` into text (which must hold KLXINFO_DESC_TEXT_SIZE bytes).
// Result 0, or -1 with "Unk(<id>) " for an unknown identifier.
int klxInfoGetDescription(uint32_t id, char* text);
// Checked form: refuses (-1, text untouched) when textSize cannot hold the whole answer.
int klxInfoGetDescriptionChecked(uint32_t id, char* text, size_t textSize);
// The timecode type named by "TcType=" inside free text; 0 when none.
uint32_t sklxInfoFindTcType(const char* text);

// Record index of the item with this name (case-insensitive): 0..98 for a text item,
// 0x100 + slot for a numeric item, -1 when unknown.
int klxInfoFindItem(const char* name);
#define KLXINFO_NUMERIC_FLAG 0x100
}

// Conversions of the other KLX records to XML: not supported; each returns 1.
int XMLFromKLXSystem(KLXSYSTEM* system, TiXmlElement* element);
int XMLFromKLXVideo(KLXVIDEO* video, TiXmlElement* element);
int XMLFromKLXAudio(KLXAUDIO* audio, TiXmlElement* element);
int XMLFromKLXInfo(KLXINFO* info, TiXmlElement* element);
