// Debug traces of media commands.
#include "mediacmd/mediacmd_debug.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <algorithm>

#include "mediacmd/mediacmd_tables.h"
#include "platform/tcxlat.h"
#include "platform/zrlog.h"

namespace {

constexpr size_t kLineSize = 16384;

// Command names as traced; ctGetValue is traced with its get/set code instead.
const char* const kTraceNames[] = {"ctStop ",      "ctPause ",   "ctPlay ",     "ctRecord ",  "ctRecStop ",
                                   "ctEject ",     "ctTransfer ", "ctInsert ",  "ctBlank ",   "ctDelete ",
                                   "ctTrim ",      "ctChanSelect ", "ctGetState ", "ctSetState ", nullptr,
                                   "ctSetValue ",  "ctValueSupported ", "ctError ", "ctTerminate ", "ctAbort ",
                                   "ctEdit ",      "ctSwitch "};

class Line {
 public:
  void add(const char* format, ...) __attribute__((format(printf, 2, 3))) {
    if (used_ >= kLineSize - 1) return;
    va_list args;
    va_start(args, format);
    int n = std::vsnprintf(text_ + used_, kLineSize - used_, format, args);
    va_end(args);
    if (n > 0) used_ = std::min(kLineSize - 1, used_ + static_cast<size_t>(n));
  }
  const char* text() const { return text_; }

 private:
  char text_[kLineSize] = {};
  size_t used_ = 0;
};

void addCommand(Line& line, const MEDIACMD& cmd) {
  if (cmd.Cmd == ctGetValue) {
    if (const char* name = gsName(cmd.CmdAlt)) line.add("ctGetValue(%s)", name);
    else line.add("ctGetValue(%d, 0x%X) ", static_cast<int>(cmd.CmdAlt), cmd.CmdAlt);
  } else if (cmd.Cmd < std::size(kTraceNames)) {
    line.add("%s", kTraceNames[cmd.Cmd]);
  }
}

const char* timeArgumentLabel(uint32_t flags) {
  if ((flags & cfTimeMs) && (flags & cfTimeTarget)) return "CmdTarget: ";
  if ((flags & cfTimeMs) && (flags & cfTimeHouseClock)) return "CmdHouse: ";
  if (flags & cfTimeMs) return "CmdTime: ";
  return "CmdAlt: ";
}

}  // namespace

void __dbgout_mediacmd(MEDIACMD* cmd) {
  if (!cmd || cmd->Cmd == ctGetState || cmd->Cmd == ctSetState) return;
  const uint32_t flags = cmd->CtrlFlags;
  auto line = std::make_unique<Line>();
  line->add("klx-Chan%1d ", static_cast<int>(cmd->Channel));
  addCommand(*line, *cmd);
  if (flags & cfDeferred) line->add("Deferred ");
  if (flags & cfUseSpeed) line->add("UseSpeed (%" PRId64 ") ", static_cast<int64_t>(cmd->Speed) * 100 / MEDIACMD_SPEED_NORMAL);
  if (flags & cfUsePosition) line->add("UsePosition (%d) ", cmd->Position);
  if (flags & cfUseStart) line->add("Use Start (%d) ", cmd->Start);
  if (flags & cfUseStartOffset) line->add("UseStartOffset (%d) ", cmd->Start);
  if (flags & cfUseEnd) line->add("UseEnd (%d) ", cmd->End);
  if (flags & cfUseEndOffset) line->add("UseEndOffset (%d) ", cmd->End);
  if (flags & cfUseCmdAlt) line->add("%s(%d) ", timeArgumentLabel(flags), static_cast<int>(cmd->CmdAlt));
  // Keyed on the position flag, not the presets flag: log readers expect the channels with
  // every positioned command.
  if (flags & cfUsePosition)
    line->add("UsePresets: V(%d)A(%d)I(%d) ", static_cast<int>(cmd->VideoChannels), static_cast<int>(cmd->AudioChannels),
              static_cast<int>(cmd->InfoChannels));
  if (flags & cfUseClipID)
    line->add("UseClipId: (%.*s)(%.*s) ", static_cast<int>(strnlen(cmd->ClipID, MEDIACMD_CLIPID_SIZE)), cmd->ClipID,
              static_cast<int>(strnlen(cmd->Payload, MEDIACMD_PAYLOAD_SIZE)), cmd->Payload);
  _DbgOut(line->text());
}

void __dbgout_tc(unsigned value, unsigned type) {
  const uint32_t format = (type & 0xFF) ? ((type & 0xFF) | 0x10100) : 0x10102;
  char text[64] = {};
  tc2String(value, format, text, sizeof text);
  _DbgOut(text);
}
