// How the payload tail of a MEDIACMD is laid out for the commands whose text forms split it
// into several named values, and the two directions between the record and those values.
// Both text forms (XML and JSON) go through this one description, so they cannot disagree.
//
// The layout is chosen from Cmd and CmdAlt (the get/set code):
//
//   ctGetValue/ctSetValue/ctValueSupported with
//     channelname (0x41E)      up to eight NUL-terminated texts one after another: the channel's
//                              alias, then aliases 1..7; the list ends at the first empty text.
//                              -> "channelalias", "channel1alias" .. "channel7alias"
//     klxtype (0xEA62)         one text                       -> "chanName"
//     ipvideosettings (0x321)  three NUL-terminated texts: destination, source and interface
//                              address -> "destinationipaddress", "sourceipaddress",
//                              "interfaceipaddress"; then the record's own Start, End and
//                              AudioChannels values repeated as the settings' start, end and
//                              audio channels (XML "Start", "End", "AudioChannels" after the
//                              addresses; JSON "start", "end", "audiochannels")
//     ipvideoclock (0x322)     one text                       -> "clockipaddress"
//     framedata (0x19), previewframe (0xF4247)
//                              arbitrary bytes: a little-endian 32-bit byte count n (at most
//                              4099) followed by the n bytes -> "arbID", with "Type" "hex" (two
//                              upper-case digits a byte) when n <= 32, else "base64", and
//                              "length" n. JSON carries the encoded bytes in "String".
//   any command with CmdAlt
//     metabasefilename (0xA2)  "ClipID" from ClipID; the payload text split at its first "$":
//                              the part before it is "UniqueID", the rest "FileName". Without a
//                              "$" there is no "UniqueID" and the whole text is "FileName". A
//                              reader rebuilds the text as UniqueID "$" FileName.
//     metabasegettag (0xA6)    three NUL-terminated texts -> "MetaTag", "MetaData", "PageRequest"
//   anything else              "ClipID" when ClipID is not empty, "FileName" (the payload text)
//                              when the payload is not empty; a get/set command for metadata
//                              (0x96) writes no "FileName".
//
// Texts are at most 8 characters for ClipID and must fit the 4103-byte payload with their NULs;
// a reader refuses longer ones rather than cutting them. A document mixing the elements of two
// layouts is refused too. The readers choose the layout from the elements present, not from
// CmdAlt, so a get/set code that the text does not carry (no "CmdAlt" element) loses nothing.
#pragma once
#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "mediacmd_record.h"

namespace mediacmd {

enum class PayloadLayout {
  kClipAndFile,  // the default
  kChannelAliases,
  kChannelName,
  kIpVideoSettings,
  kIpVideoClock,
  kArbitraryData,
  kMetabaseFileName,
  kMetabaseTag,
};

PayloadLayout payloadLayoutOf(const MEDIACMD& cmd);

// One value of the payload as the text forms show it.
struct PayloadItem {
  enum class Kind { kText, kNumber, kArbitrary } kind;
  const char* xmlName;
  const char* jsonName;
  std::string_view text;  // kText; kArbitrary: the encoded bytes
  int32_t number = 0;     // kNumber
  const char* arbType = nullptr;  // kArbitrary: "hex" or "base64"
  uint32_t arbLength = 0;         // kArbitrary: byte count
};

// The payload values of a record, in the order the text forms write them.
class PayloadView {
 public:
  explicit PayloadView(const MEDIACMD& cmd);
  size_t size() const { return count_; }
  const PayloadItem& operator[](size_t i) const { return items_[i]; }

 private:
  void add(const PayloadItem& item) { items_[count_++] = item; }
  void addText(const char* name, std::string_view text) { add({PayloadItem::Kind::kText, name, name, text}); }
  std::array<PayloadItem, 8> items_{};
  size_t count_ = 0;
  std::string encoded_;  // arbitrary bytes in text form
};

// Collects payload values while a text form is read and writes them into the record at the end.
class PayloadBuilder {
 public:
  // True when `name` (an XML element or JSON key) is a payload text; ClipID is not one of them.
  static bool isPayloadText(std::string_view name);
  // Records a payload text. Returns an error message, or empty.
  std::string addText(std::string_view name, std::string_view text);
  // Records arbitrary bytes given as text of the given type; length < 0 when not given.
  std::string addArbitrary(std::string_view type, int64_t length, std::string_view text);
  // Writes the collected values into cmd's payload. Returns an error message, or empty.
  std::string finish(MEDIACMD& cmd) const;

 private:
  std::string claim(PayloadLayout layout, std::string_view name);
  bool any_ = false;
  PayloadLayout layout_ = PayloadLayout::kClipAndFile;
  std::string firstName_;
  std::array<std::string, 8> texts_;
  std::array<bool, 8> present_{};
  std::string bytes_;  // kArbitraryData
};

}  // namespace mediacmd
