// The one description of a MEDIACMD's text form that both the XML and the JSON form follow.
//
// Writing: describeFields()/describePayload() walk the record and tell an Emitter which elements
// to produce, in order; the XML emitter turns them into a TinyXML tree and the JSON emitter into
// text. Reading: each form's reader walks its document and hands every element (XML) or key
// (JSON) to applyNode() through a NodeView. So element names, their order, their conditions and
// the meaning of every value are stated once, here and in mediacmd_payload.h.
#pragma once
#include <cstdint>
#include <string>
#include <string_view>

#include "mediacmd_payload.h"
#include "mediacmd_record.h"

namespace mediacmd {

class Emitter {
 public:
  virtual ~Emitter() = default;
  // An element holding only a number: XML <name Value="n" />, JSON "name":n.
  // jsonUnsigned: JSON writes the 32 bits as an unsigned number.
  virtual void number(const char* xmlName, const char* jsonName, int32_t value, bool jsonUnsigned = false) = 0;
  // An element holding only a text: XML <name>text</name>, JSON "name":"text".
  virtual void text(const char* name, std::string_view text) = 0;
  // A structured element: XML attributes and text, JSON an object of members.
  virtual void begin(const char* name) = 0;
  virtual void member(const char* name, int32_t value) = 0;
  virtual void member(const char* name, std::string_view value) = 0;
  // The element's text: XML writes it as the element's content (after the attributes), JSON as
  // the member `jsonName` at this point of the object.
  virtual void content(const char* jsonName, std::string_view text) = 0;
  virtual void end() = 0;
};

// Everything up to "End": links, identity, command and flags, speed, presets, time argument,
// position, start and end. tcType is the timecode type of the texts (0 frames, 1 film,
// 2 non-drop, 4 drop-frame, 8 PAL, ... as in platform/tcxlat.h; 255 means frames).
void describeFields(const MEDIACMD& cmd, unsigned tcType, Emitter& out);
// The payload elements (see mediacmd_payload.h).
void describePayload(const MEDIACMD& cmd, Emitter& out);

// Names shared by the forms and the debug dump.
const char* commandName(uint32_t cmd);  // "Stop".."Switch", "Unknown"
const char* timecodeTypeName(unsigned tcType);
// Timecode type for a "TcType" name; false for an unknown name.
bool timecodeTypeFromName(std::string_view name, unsigned* tcType);

// One element (XML) or key's value (JSON) as the reader sees it.
class NodeView {
 public:
  enum class Got { kAbsent, kOk, kBad };
  virtual ~NodeView() = default;
  // The node's own number: XML attribute "Value"; JSON the number itself or the object's "Value".
  virtual Got number(int64_t* out) const = 0;
  // A named number: XML attribute, JSON member of the object.
  virtual Got namedNumber(const char* name, int64_t* out) const = 0;
  // A named text: XML attribute, JSON string member.
  virtual Got namedText(const char* name, std::string* out) const = 0;
  // The node's text: XML the element's content; JSON the string itself, or the object's
  // "TcString" or "String" member.
  virtual Got text(std::string* out) const = 0;
};

struct ReaderState {
  ReaderState(bool byValue, unsigned tcType) : commandByValue(byValue), defaultTcType(tcType) {}
  bool commandByValue;      // JSON reads Cmd's "Value"; XML reads the command by name only
  unsigned defaultTcType;   // type of timecode texts whose element names none
  bool afterIpAddresses = false;
  PayloadBuilder payload;
  std::string error;        // first failure, as logged
};

// Applies one element to the record. Unknown names are ignored. Returns false (with
// state.error set) for a value of the wrong type or out of range, or a payload that cannot be
// laid out.
bool applyNode(MEDIACMD& cmd, std::string_view name, const NodeView& node, ReaderState& state);
// Writes the collected payload. Returns false with state.error set when it does not fit.
bool finishRead(MEDIACMD& cmd, ReaderState& state);

// Strict integer text: optional '-', decimal digits, within [INT32_MIN, UINT32_MAX].
bool parseInteger(std::string_view text, int64_t* out);

}  // namespace mediacmd
