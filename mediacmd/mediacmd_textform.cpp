// Element vocabulary of the MEDIACMD text forms, for writing and for reading.
#include "mediacmd/mediacmd_textform.h"

#include <cctype>
#include <cstring>

#include "platform/tcxlat.h"
#include "platform/zrtext.h"

namespace mediacmd {
namespace {

constexpr uint32_t kTimeFlags = cfTimeMs | cfTimeTarget | cfTimeHouseClock | cfUseCmdAlt;
// Service-settings codes (0x10C8E0 up) keep a start point in the long timecode form.
constexpr uint32_t kServiceSettingsFloor = 1100000;
constexpr uint32_t kTcTextFormat = 0x32100;
constexpr uint32_t kServiceStartFormat = 0xB2140;
constexpr uint32_t kTcParseFlags = 0x100;

const char* const kCommandNames[] = {"Stop",     "Pause",    "Play",     "Record",     "RecStop",
                                     "Eject",    "Transfer", "Insert",   "Blank",      "Delete",
                                     "Trim",     "ChanSelect", "GetState", "SetState", "GetValue",
                                     "SetValue", "ValueSupported", "Error", "Terminate", "Abort",
                                     "Edit",     "Switch"};
// Names a reader turns back into a command code. "switch" is not among them: a written
// "Switch" is not read back by name (kept that way for compatibility with existing peers).
const char* const kReadableCommands[] = {"stop",     "pause",    "play",       "record",   "recstop",  "eject",
                                         "transfer", "insert",   "blank",      "delete",   "trim",     "chanselect",
                                         "getstate", "setstate", "getvalue",   "setvalue", "valuesupported",
                                         "error",    "terminate", "abort",     "edit"};

struct NamedFlag {
  const char* name;
  uint32_t bit;
};
// Flags the "Cmd" element carries, in the order they are written.
const NamedFlag kCommandFlagsWritten[] = {
    {"Deferred", cfDeferred}, {"OverrideDeferred", cfOverrideDeferred}, {"Loop", cfLoop},
    {"Trigger", cfTrigger},   {"Ripple", cfRipple},   {"Invert", cfInvert}, {"Test", cfTest},
    {"NoReturn", cfNoReturn}, {"UseAllIDs", cfUseAllIDs}, {"UseClipID", cfUseClipID},
    {"NoClipFiles", cfNoClipFiles}, {"NoTCSpaces", cfNoTCSpaces}};
// Flags a reader takes from "Cmd". The override flag is read under its two historical spellings
// and not under the name the writer uses (an asymmetry peers rely on).
const NamedFlag kCommandFlagsRead[] = {
    {"Deferred", cfDeferred}, {"cfOverideDeferred", cfOverrideDeferred}, {"cfOverrideDeferred", cfOverrideDeferred},
    {"Loop", cfLoop},         {"Trigger", cfTrigger}, {"Ripple", cfRipple}, {"Invert", cfInvert}, {"Test", cfTest},
    {"NoReturn", cfNoReturn}, {"UseAllIDs", cfUseAllIDs}, {"UseClipID", cfUseClipID},
    {"NoClipFiles", cfNoClipFiles}, {"NoTCSpaces", cfNoTCSpaces}};
const NamedFlag kTimeArgumentFlags[] = {{"TimeMs", cfTimeMs}, {"TimeTarget", cfTimeTarget}, {"TimeHouseClock", cfTimeHouseClock}};
// Flags every point element (Position, Start, End) carries after its offset flag.
const NamedFlag kPointFlags[] = {{"UsingCurrent", cfUsingCurrent}, {"UsingFrameCount", cfUseFrameCount}, {"IsFieldCount", cfFields}};

struct TypeName {
  unsigned type;
  const char* name;
};
const TypeName kTimecodeTypeNames[] = {{0, "frames"}, {1, "film"},  {2, "non-drop-frame"}, {8, "pal"},
                                       {16, "50"},   {32, "59.94"}, {64, "60"}, {128, "film-drop"},
                                       {132, "23.98"}, {4, "drop-frame"}};

std::string timecodeDigits(uint32_t value, uint32_t format) {
  char text[64] = {};
  if (tc2String(value, format, text, sizeof text) != 0) return {};
  return text;
}

// Text of a point: the plain number for frame counts, else the timecode.
std::string pointText(int32_t value, unsigned tcType) {
  if (tcType == 0) return std::to_string(value);
  return timecodeDigits(static_cast<uint32_t>(value), tcType | kTcTextFormat);
}

void writeFlags(const MEDIACMD& cmd, const NamedFlag* begin, const NamedFlag* end, Emitter& out) {
  for (const NamedFlag* f = begin; f != end; ++f)
    if (cmd.CtrlFlags & f->bit) out.member(f->name, 1);
}
template <size_t N>
void writeFlags(const MEDIACMD& cmd, const NamedFlag (&flags)[N], Emitter& out) {
  writeFlags(cmd, flags, flags + N, out);
}

void writePoint(const char* name, int32_t value, uint32_t offsetFlag, const std::string& text, unsigned tcType,
                const MEDIACMD& cmd, Emitter& out) {
  out.begin(name);
  out.member("Value", value);
  out.member("TcType", timecodeTypeName(tcType));
  out.content("TcString", text);
  if (cmd.CtrlFlags & offsetFlag) out.member("IsOffset", 1);
  writeFlags(cmd, kPointFlags, out);
  out.end();
}

// ---- reading ----

bool fail(ReaderState& st, std::string message) {
  if (st.error.empty()) st.error = std::move(message);
  return false;
}

bool badValue(ReaderState& st, std::string_view name, const char* member = nullptr) {
  std::string what(name);
  if (member) (what += '.') += member;
  return fail(st, "Bad value for " + what);
}

// Reads the node's number into *out when present. False only for a malformed number.
template <typename T>
bool readNumber(const NodeView& node, std::string_view name, T* out, ReaderState& st, bool* found = nullptr) {
  int64_t v = 0;
  NodeView::Got got = node.number(&v);
  if (found) *found = got == NodeView::Got::kOk;
  if (got == NodeView::Got::kBad) return badValue(st, name);
  if (got == NodeView::Got::kOk) *out = static_cast<T>(static_cast<uint32_t>(v));
  return true;
}

template <size_t N>
bool readFlags(MEDIACMD& cmd, std::string_view name, const NodeView& node, const NamedFlag (&flags)[N], ReaderState& st) {
  for (const NamedFlag& f : flags) {
    int64_t v = 0;
    NodeView::Got got = node.namedNumber(f.name, &v);
    if (got == NodeView::Got::kBad) return badValue(st, name, f.name);
    if (got == NodeView::Got::kOk) cmd.CtrlFlags = v ? cmd.CtrlFlags | f.bit : cmd.CtrlFlags & ~f.bit;
  }
  return true;
}

bool readLink(uintptr_t MEDIACMD::*field, MEDIACMD& cmd, std::string_view name, const NodeView& node, ReaderState& st) {
  uint32_t low = 0;
  bool found = false;
  if (!readNumber(node, name, &low, st, &found)) return false;
  if (found) cmd.*field = low;
  return true;
}

// A point's value: its number, or (in a hand-written document) its timecode text.
bool readPoint(int32_t* field, std::string_view name, const NodeView& node, ReaderState& st) {
  bool found = false;
  if (!readNumber(node, name, field, st, &found)) return false;
  if (found) return true;
  std::string text;
  NodeView::Got got = node.text(&text);
  if (got == NodeView::Got::kBad) return badValue(st, name);
  if (got == NodeView::Got::kAbsent || text.empty()) return true;
  unsigned type = st.defaultTcType;
  std::string typeName;
  got = node.namedText("TcType", &typeName);
  if (got == NodeView::Got::kBad || (got == NodeView::Got::kOk && !timecodeTypeFromName(typeName, &type)))
    return badValue(st, name, "TcType");
  if (type == 255) type = 0;
  int64_t frames = 0;
  if (type == 0) {
    if (!parseInteger(text, &frames)) return badValue(st, name);
  } else {
    uint32_t parsed = 0;
    if (tc2Frame(text.c_str(), type | kTcParseFlags, &parsed) != 0) return fail(st, "Bad timecode for " + std::string(name) + ": " + text);
    frames = parsed;
  }
  *field = static_cast<int32_t>(static_cast<uint32_t>(frames));
  return true;
}

bool readCommand(MEDIACMD& cmd, std::string_view name, const NodeView& node, ReaderState& st) {
  if (st.commandByValue && !readNumber(node, name, &cmd.Cmd, st)) return false;
  std::string text;
  NodeView::Got got = node.text(&text);
  if (got == NodeView::Got::kBad) return badValue(st, name);
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  for (size_t code = 0; code < std::size(kReadableCommands); ++code)
    if (text == kReadableCommands[code]) cmd.Cmd = static_cast<uint32_t>(code);
  return readFlags(cmd, name, node, kCommandFlagsRead, st);
}

bool readSpeed(MEDIACMD& cmd, std::string_view name, const NodeView& node, ReaderState& st) {
  bool found = false;
  if (!readNumber(node, name, &cmd.Speed, st, &found)) return false;
  if (!found) {
    // Hand-written: a percentage of normal speed.
    std::string text;
    int64_t percent = 0;
    if (node.text(&text) == NodeView::Got::kOk && !text.empty()) {
      if (!parseInteger(text, &percent) || percent > 32767 || percent < -32767) return badValue(st, name);
      cmd.Speed = static_cast<int32_t>(percent * MEDIACMD_SPEED_NORMAL / 100);
    }
  }
  cmd.CtrlFlags |= cfUseSpeed;
  int64_t shuttle = 0;
  NodeView::Got got = node.namedNumber("IsShuttle", &shuttle);
  if (got == NodeView::Got::kBad) return badValue(st, name, "IsShuttle");
  if (got == NodeView::Got::kOk) cmd.CtrlFlags = shuttle ? cmd.CtrlFlags | cfIsShuttle : cmd.CtrlFlags & ~cfIsShuttle;
  return true;
}

bool readMask(uint32_t MEDIACMD::*field, bool setsPresets, MEDIACMD& cmd, std::string_view name, const NodeView& node,
              ReaderState& st) {
  bool found = false;
  if (!readNumber(node, name, &(cmd.*field), st, &found)) return false;
  if (found && setsPresets) cmd.CtrlFlags |= cfUsePresets;
  return true;
}

bool readCmdAlt(MEDIACMD& cmd, std::string_view name, const NodeView& node, ReaderState& st) {
  if (!readNumber(node, name, &cmd.CmdAlt, st)) return false;
  cmd.CtrlFlags |= cfUseCmdAlt;
  return readFlags(cmd, name, node, kTimeArgumentFlags, st);
}

bool readPointElement(int32_t MEDIACMD::*field, uint32_t validFlag, uint32_t offsetFlag, MEDIACMD& cmd,
                      std::string_view name, const NodeView& node, ReaderState& st) {
  if (!readPoint(&(cmd.*field), name, node, st)) return false;
  int64_t offset = 0;
  NodeView::Got got = node.namedNumber("IsOffset", &offset);
  if (got == NodeView::Got::kBad) return badValue(st, name, "IsOffset");
  cmd.CtrlFlags |= (got == NodeView::Got::kOk && offset) ? offsetFlag : validFlag;
  return readFlags(cmd, name, node, kPointFlags, st);
}

bool readClipId(MEDIACMD& cmd, std::string_view name, const NodeView& node, ReaderState& st) {
  std::string text;
  NodeView::Got got = node.text(&text);
  if (got == NodeView::Got::kBad) return badValue(st, name);
  if (text.size() >= MEDIACMD_CLIPID_SIZE) return fail(st, "Text too long for ClipID: " + std::to_string(text.size()) + " characters");
  std::memset(cmd.ClipID, 0, sizeof cmd.ClipID);
  std::memcpy(cmd.ClipID, text.data(), text.size());
  return true;
}

bool readPayloadText(std::string_view name, const NodeView& node, ReaderState& st) {
  std::string text;
  NodeView::Got got = node.text(&text);
  if (got == NodeView::Got::kBad) return badValue(st, name);
  if (name == "destinationipaddress" || name == "sourceipaddress" || name == "interfaceipaddress") st.afterIpAddresses = true;
  std::string error = st.payload.addText(name, text);
  return error.empty() || fail(st, error);
}

bool readArbitrary(std::string_view name, const NodeView& node, ReaderState& st) {
  std::string type, text;
  int64_t length = -1;
  if (node.namedText("Type", &type) != NodeView::Got::kOk) return badValue(st, name, "Type");
  if (node.namedNumber("length", &length) == NodeView::Got::kBad) return badValue(st, name, "length");
  if (node.text(&text) == NodeView::Got::kBad) return badValue(st, name);
  std::string error = st.payload.addArbitrary(type, length, text);
  return error.empty() || fail(st, error);
}

using Handler = bool (*)(MEDIACMD&, std::string_view, const NodeView&, ReaderState&);
struct NodeHandler {
  const char* name;
  Handler handle;
};

const NodeHandler kHandlers[] = {
    {"prev", [](MEDIACMD& c, std::string_view n, const NodeView& v, ReaderState& s) { return readLink(&MEDIACMD::prev, c, n, v, s); }},
    {"next", [](MEDIACMD& c, std::string_view n, const NodeView& v, ReaderState& s) { return readLink(&MEDIACMD::next, c, n, v, s); }},
    {"list", [](MEDIACMD& c, std::string_view n, const NodeView& v, ReaderState& s) { return readLink(&MEDIACMD::list, c, n, v, s); }},
    {"CmdID", [](MEDIACMD& c, std::string_view n, const NodeView& v, ReaderState& s) { return readNumber(v, n, &c.CmdID, s); }},
    {"StructSize", [](MEDIACMD& c, std::string_view n, const NodeView& v, ReaderState& s) { return readNumber(v, n, &c.StructSize, s); }},
    {"Channel", [](MEDIACMD& c, std::string_view n, const NodeView& v, ReaderState& s) { return readNumber(v, n, &c.Channel, s); }},
    {"Cmd", readCommand},
    {"Speed", readSpeed},
    {"ctltimecode", [](MEDIACMD& c, std::string_view n, const NodeView& v, ReaderState& s) { return readMask(&MEDIACMD::VideoChannels, false, c, n, v, s); }},
    {"ltctimecode", [](MEDIACMD& c, std::string_view n, const NodeView& v, ReaderState& s) { return readMask(&MEDIACMD::AudioChannels, false, c, n, v, s); }},
    {"vitctimecode", [](MEDIACMD& c, std::string_view n, const NodeView& v, ReaderState& s) { return readMask(&MEDIACMD::InfoChannels, false, c, n, v, s); }},
    {"VideoChannels", [](MEDIACMD& c, std::string_view n, const NodeView& v, ReaderState& s) { return readMask(&MEDIACMD::VideoChannels, true, c, n, v, s); }},
    {"AudioChannels", [](MEDIACMD& c, std::string_view n, const NodeView& v, ReaderState& s) { return readMask(&MEDIACMD::AudioChannels, true, c, n, v, s); }},
    {"InfoChannels", [](MEDIACMD& c, std::string_view n, const NodeView& v, ReaderState& s) { return readMask(&MEDIACMD::InfoChannels, true, c, n, v, s); }},
    {"CmdAlt", readCmdAlt},
    {"Position", [](MEDIACMD& c, std::string_view n, const NodeView& v, ReaderState& s) { return readPointElement(&MEDIACMD::Position, 0, cfUsePositionOffset, c, n, v, s); }},
    {"Start", [](MEDIACMD& c, std::string_view n, const NodeView& v, ReaderState& s) { return readPointElement(&MEDIACMD::Start, cfUseStart, cfUseStartOffset, c, n, v, s); }},
    {"End", [](MEDIACMD& c, std::string_view n, const NodeView& v, ReaderState& s) { return readPointElement(&MEDIACMD::End, cfUseEnd, cfUseEndOffset, c, n, v, s); }},
    // The IP video settings repeat the record's start, end and audio channels as plain values.
    {"start", [](MEDIACMD& c, std::string_view n, const NodeView& v, ReaderState& s) { return readNumber(v, n, &c.Start, s); }},
    {"end", [](MEDIACMD& c, std::string_view n, const NodeView& v, ReaderState& s) { return readNumber(v, n, &c.End, s); }},
    {"audiochannels", [](MEDIACMD& c, std::string_view n, const NodeView& v, ReaderState& s) { return readNumber(v, n, &c.AudioChannels, s); }},
    {"ClipID", readClipId},
    {"arbID", [](MEDIACMD&, std::string_view n, const NodeView& v, ReaderState& s) { return readArbitrary(n, v, s); }},
};

}  // namespace

const char* commandName(uint32_t cmd) { return cmd < std::size(kCommandNames) ? kCommandNames[cmd] : "Unknown"; }

const char* timecodeTypeName(unsigned tcType) {
  for (const TypeName& t : kTimecodeTypeNames)
    if (t.type == tcType) return t.name;
  return tcType == 255 ? "frames" : "drop-frame";
}

bool timecodeTypeFromName(std::string_view name, unsigned* tcType) {
  for (const TypeName& t : kTimecodeTypeNames) {
    if (name == t.name) {
      *tcType = t.type;
      return true;
    }
  }
  return false;
}

bool parseInteger(std::string_view text, int64_t* out) {
  size_t i = 0;
  bool negative = !text.empty() && text[0] == '-';
  if (negative) ++i;
  if (i == text.size() || text.size() - i > 10) return false;
  int64_t v = 0;
  for (; i < text.size(); ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
    v = v * 10 + (text[i] - '0');
  }
  if (negative) v = -v;
  if (v < INT32_MIN || v > static_cast<int64_t>(UINT32_MAX)) return false;
  *out = v;
  return true;
}

void describeFields(const MEDIACMD& cmd, unsigned tcType, Emitter& out) {
  if (tcType == 255) tcType = 0;
  const uint32_t flags = cmd.CtrlFlags;
  if (cmd.prev) out.number("prev", "prev", static_cast<int32_t>(cmd.prev));
  if (cmd.next) out.number("next", "next", static_cast<int32_t>(cmd.next));
  if (cmd.list) out.number("list", "list", static_cast<int32_t>(cmd.list));
  out.number("CmdID", "CmdID", static_cast<int32_t>(cmd.CmdID), true);
  out.number("StructSize", "StructSize", static_cast<int32_t>(cmd.StructSize), true);
  out.number("Channel", "Channel", static_cast<int32_t>(cmd.Channel), true);

  out.begin("Cmd");
  out.member("Value", static_cast<int32_t>(cmd.Cmd));
  out.content("String", commandName(cmd.Cmd));
  writeFlags(cmd, kCommandFlagsWritten, out);
  out.end();

  if ((flags & cfUseSpeed) || cmd.Cmd == ctPlay || cmd.Cmd == ctRecord || (flags & cfIsShuttle)) {
    out.begin("Speed");
    out.member("Value", (flags & cfUseSpeed) ? cmd.Speed : MEDIACMD_SPEED_NORMAL);
    // Percent of normal speed from the stored speed, in wrapping 32-bit arithmetic as peers do.
    char percent[34];
    out.content("String", itoa(static_cast<int32_t>(static_cast<uint32_t>(cmd.Speed) * 100u) / MEDIACMD_SPEED_NORMAL, percent, 10));
    if (flags & cfIsShuttle) out.member("IsShuttle", 1);
    out.end();
  }
  if ((flags & cfUsePresets) && (flags & cfUseFrameCount)) {
    const struct {
      const char* name;
      uint32_t value;
    } presets[] = {{"ctltimecode", cmd.VideoChannels}, {"ltctimecode", cmd.AudioChannels}, {"vitctimecode", cmd.InfoChannels}};
    for (const auto& p : presets) {
      out.begin(p.name);
      out.member("Value", static_cast<int32_t>(p.value));
      out.member("TcType", timecodeTypeName(tcType));
      out.content("TcString", timecodeDigits(p.value, tcType | kTcTextFormat));
      out.end();
    }
  }
  if (flags & cfUsePresets) {
    out.number("VideoChannels", "VideoChannels", static_cast<int32_t>(cmd.VideoChannels));
    out.number("AudioChannels", "AudioChannels", static_cast<int32_t>(cmd.AudioChannels));
    out.number("InfoChannels", "InfoChannels", static_cast<int32_t>(cmd.InfoChannels));
  }
  if (flags & kTimeFlags) {
    out.begin("CmdAlt");
    out.member("Value", static_cast<int32_t>(cmd.CmdAlt));
    writeFlags(cmd, kTimeArgumentFlags, out);
    out.end();
  }
  writePoint("Position", cmd.Position, cfUsePositionOffset, pointText(cmd.Position, tcType), tcType, cmd, out);
  if (flags & (cfUseStart | cfUseStartOffset)) {
    std::string text = cmd.CmdAlt > kServiceSettingsFloor ? timecodeDigits(static_cast<uint32_t>(cmd.Start), kServiceStartFormat)
                                                          : pointText(cmd.Start, tcType);
    writePoint("Start", cmd.Start, cfUseStartOffset, text, tcType, cmd, out);
  }
  if (flags & (cfUseEnd | cfUseEndOffset)) writePoint("End", cmd.End, cfUseEndOffset, pointText(cmd.End, tcType), tcType, cmd, out);
}

void describePayload(const MEDIACMD& cmd, Emitter& out) {
  PayloadView view(cmd);
  for (size_t i = 0; i < view.size(); ++i) {
    const PayloadItem& item = view[i];
    switch (item.kind) {
      case PayloadItem::Kind::kText: out.text(item.xmlName, item.text); break;
      case PayloadItem::Kind::kNumber: out.number(item.xmlName, item.jsonName, item.number); break;
      case PayloadItem::Kind::kArbitrary:
        out.begin(item.xmlName);
        out.member("Type", item.arbType);
        out.member("length", static_cast<int32_t>(item.arbLength));
        out.content("String", item.text);
        out.end();
        break;
    }
  }
}

bool applyNode(MEDIACMD& cmd, std::string_view name, const NodeView& node, ReaderState& state) {
  if (PayloadBuilder::isPayloadText(name)) return readPayloadText(name, node, state);
  for (const NodeHandler& h : kHandlers)
    if (name == h.name) return h.handle(cmd, name, node, state);
  return true;  // unknown elements are left for newer peers
}

bool finishRead(MEDIACMD& cmd, ReaderState& state) {
  std::string error = state.payload.finish(cmd);
  return error.empty() || fail(state, error);
}

}  // namespace mediacmd
