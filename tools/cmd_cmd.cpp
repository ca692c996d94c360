// quorvane cmd: build media commands, convert them between their XML and JSON forms, trace
// them as the debug log would, and list the get/set and flag vocabularies.
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "mediacmd/mediacmd.h"
#include "mediacmd/mediacmd_textform.h"
#include "platform/tcxlat.h"
#include "platform/zrlog.h"

namespace {

constexpr const char* kUsage =
    "usage: quorvane cmd new [COMMAND] [options] --xml|--json\n"
    "       quorvane cmd convert FILE|- --to xml|json [--tc-type NAME]\n"
    "       quorvane cmd dump FILE|- [--json]\n"
    "       quorvane cmd codes [--get-set|--flags] [--json]\n"
    "       quorvane cmd channels MASK [--json]\n"
    "       quorvane cmd speed X [--periods N] [--json]\n"
    "       quorvane cmd fourcc CODE [--json]\n\n"
    "new      builds a media command and prints its XML or JSON form. COMMAND is a command\n"
    "         name (stop, pause, play, record, recstop, eject, transfer, insert, blank, delete,\n"
    "         trim, chanselect, getstate, setstate, getvalue, setvalue, valuesupported, error,\n"
    "         terminate, abort, edit, switch) or code; --get/--set/--supported imply it.\n"
    "  --channel N        channel number\n"
    "  --speed X          speed as a multiple of normal play (1, -2, 0.5); --shuttle marks it\n"
    "  --position TC      position: timecode of --tc-type, or a frame count\n"
    "  --start TC, --end TC\n"
    "  --clip ID          clip identifier (up to 8 characters)\n"
    "  --file NAME        file name carried in the payload\n"
    "  --get CODE, --set CODE, --supported CODE\n"
    "                     get/set/value-supported command for a get/set code (name or number)\n"
    "  --value TEXT       a payload text of a get/set value (repeat for channel aliases,\n"
    "                     IP addresses, metadata tag/data/page)\n"
    "  --ms N             time argument in milliseconds\n"
    "  --flag NAME        set a control flag by name (repeatable; see 'cmd codes --flags')\n"
    "  --tc-type NAME     frames, film, non-drop-frame, drop-frame, pal, 50, 59.94, 60,\n"
    "                     film-drop, 23.98 (default drop-frame)\n"
    "  --fix              normalise as a server would (default speeds, unset masks)\n"
    "convert  reads either form (detected) and writes the one named by --to.\n"
    "dump     prints the debug trace line of a command in either form.\n"
    "codes    lists the get/set codes and the control flags with their names.\n"
    "channels lists the channels of a channel bit mask (decimal or 0x hex).\n"
    "speed    shows a speed (multiple of normal play) in command units, as a 16.16 rate, and\n"
    "         how a playout loop steps fields at it over --periods frame periods (default 8).\n"
    "fourcc   shows a four-character code (text or 0x hex number) in upper and lower case.\n"
    "Examples: quorvane cmd new play --channel 1 --speed 2 --position 01:00:00;00 --json\n"
    "          quorvane cmd new --get channelname --channel 2 --xml | quorvane cmd convert - --to json\n";

// The library reports reader failures through its log; the tool turns the last one into its
// own one-line error.
struct LogCollector {
  std::string lastError;
  std::string debugLine;
  static void sink(void* user, int kind, uint32_t, uint32_t, uint32_t, const char* text) {
    auto* self = static_cast<LogCollector*>(user);
    std::string line(text);
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    if (kind == ZR_LOG_DEBUG) self->debugLine = line;
    else self->lastError = line;
  }
  LogCollector() { zrLogSetSink(sink, this); }
  ~LogCollector() { zrLogSetSink(nullptr, nullptr); }
};

bool commandFromName(const std::string& name, uint32_t* code) {
  if (auto number = cli::parseU32(name)) {
    *code = *number;
    return true;
  }
  for (uint32_t c = ctStop; c <= ctSwitch; ++c) {
    if (strcasecmp(name.c_str(), mediacmd::commandName(c)) == 0) {
      *code = c;
      return true;
    }
  }
  return false;
}

bool getSetCode(const std::string& text, uint32_t* code) {
  if (auto number = cli::parseU32(text)) {
    *code = *number;
    return true;
  }
  unsigned found = 0;
  if (gsFromString(text.c_str(), &found) != 0) return false;
  *code = found;
  return true;
}

bool isDigits(const std::string& text) {
  if (text.empty()) return false;
  for (char c : text)
    if (c < '0' || c > '9') return false;
  return true;
}

bool pointFromText(const std::string& text, unsigned tcType, int32_t* out) {
  if (isDigits(text) || tcType == 0 || tcType == 255) {
    auto value = cli::parseInt(text);
    if (!value || *value < INT32_MIN || *value > UINT32_MAX) return false;
    *out = static_cast<int32_t>(static_cast<uint32_t>(*value));
    return true;
  }
  uint32_t frames = 0;
  if (tc2Frame(text.c_str(), tcType | TCF_TEXT, &frames) != 0) return false;
  *out = static_cast<int32_t>(frames);
  return true;
}

int printForm(MEDIACMD& cmd, unsigned tcType, bool json) {
  char* text = nullptr;
  int result = json ? MediaCmdToJSONString(&text, &cmd, tcType) : MediaCmdToXMLString(&text, &cmd, tcType);
  if (result != 0 || !text) return cli::failWith(cli::kFailed, "cmd", "cannot write the command");
  std::printf("%s\n", text);
  if (json) MediaCmdFreeJSONString(&text);
  else MediaCmdFreeXMLString(&text);
  return cli::kOk;
}

int runNew(const cli::Args& args) {
  const auto& pos = args.positional();
  if (args.has("xml") == args.has("json")) return cli::fail("cmd", "new needs exactly one of --xml and --json");
  unsigned tcType = 4;
  if (auto name = args.get("tc-type"); name && !mediacmd::timecodeTypeFromName(*name, &tcType))
    return cli::fail("cmd", "unknown timecode type '%s' (see --help)", name->c_str());

  MEDIACMD cmd;
  initMediaCmd(&cmd, ctStop);
  uint32_t code = ctStop;
  bool haveCommand = false;
  if (pos.size() > 2) return cli::fail("cmd", "new takes one command name");
  if (pos.size() == 2) {
    if (!commandFromName(pos[1], &code)) return cli::fail("cmd", "unknown command '%s' (see --help)", pos[1].c_str());
    haveCommand = true;
  }
  const struct {
    const char* option;
    uint32_t cmd;
  } getSetOptions[] = {{"get", ctGetValue}, {"set", ctSetValue}, {"supported", ctValueSupported}};
  for (const auto& o : getSetOptions) {
    auto value = args.get(o.option);
    if (!value) continue;
    if (haveCommand && code != o.cmd) return cli::fail("cmd", "--%s contradicts the command given", o.option);
    if (!getSetCode(*value, &cmd.CmdAlt)) return cli::fail("cmd", "unknown get/set code '%s' (see 'cmd codes')", value->c_str());
    code = o.cmd;
    haveCommand = true;
    cmd.CtrlFlags |= cfUseCmdAlt;
  }
  if (!haveCommand) return cli::fail("cmd", "new needs a command name or --get/--set/--supported");
  cmd.Cmd = code;

  if (auto v = args.get("channel")) {
    auto n = cli::parseU32(*v);
    if (!n) return cli::fail("cmd", "bad channel '%s'", v->c_str());
    cmd.Channel = *n;
  }
  if (auto v = args.get("speed")) {
    auto x = cli::parseDouble(*v);
    if (!x || std::fabs(*x * MEDIACMD_SPEED_NORMAL) >= 2147483647.0) return cli::fail("cmd", "bad speed '%s'", v->c_str());
    cmd.Speed = static_cast<int32_t>(std::lround(*x * MEDIACMD_SPEED_NORMAL));
    cmd.CtrlFlags |= cfUseSpeed;
  }
  if (args.has("shuttle")) cmd.CtrlFlags |= cfIsShuttle;
  const struct {
    const char* option;
    int32_t MEDIACMD::*field;
    uint32_t flag;
  } points[] = {{"position", &MEDIACMD::Position, cfUsePosition}, {"start", &MEDIACMD::Start, cfUseStart}, {"end", &MEDIACMD::End, cfUseEnd}};
  for (const auto& p : points) {
    auto v = args.get(p.option);
    if (!v) continue;
    if (!pointFromText(*v, tcType, &(cmd.*p.field)))
      return cli::fail("cmd", "bad --%s '%s' for timecode type %s", p.option, v->c_str(), mediacmd::timecodeTypeName(tcType));
    cmd.CtrlFlags |= p.flag;
  }
  if (auto v = args.get("ms")) {
    auto n = cli::parseU32(*v);
    if (!n) return cli::fail("cmd", "bad --ms '%s'", v->c_str());
    cmd.CmdAlt = *n;
    cmd.CtrlFlags |= cfTimeMs | cfUseCmdAlt;
  }
  if (auto v = args.get("clip")) {
    if (v->size() > 8) return cli::fail("cmd", "clip id '%s' is longer than 8 characters", v->c_str());
    std::memcpy(cmd.ClipID, v->data(), v->size());
    cmd.CtrlFlags |= cfUseClipID;
  }
  std::string payload;
  if (auto v = args.get("file")) {
    payload = *v + '\0';
    cmd.CtrlFlags |= cfUseClipID;
  }
  for (const std::string& value : args.all("value")) payload += value + '\0';
  if (payload.size() > sizeof cmd.Payload) return cli::fail("cmd", "payload texts are longer than %zu bytes", sizeof cmd.Payload);
  std::memcpy(cmd.Payload, payload.data(), payload.size());
  for (const std::string& name : args.all("flag")) {
    unsigned flag = 0;
    if (cfFromString(name.c_str(), &flag) != 0) return cli::fail("cmd", "unknown flag '%s' (see 'cmd codes --flags')", name.c_str());
    cmd.CtrlFlags |= flag;
  }
  if (args.has("fix")) fixMediaCmd(&cmd, 0);
  return printForm(cmd, tcType, args.has("json"));
}

// Reads a command in either form. Returns kOk, or prints the error and returns its exit code.
int readCommand(const std::string& path, MEDIACMD* cmd, unsigned* tcType) {
  auto text = cli::readFile(path);
  if (!text) return cli::failWith(cli::kFailed, "cmd", "cannot read %s: %s", path.c_str(), std::strerror(errno));
  size_t first = text->find_first_not_of(" \t\r\n");
  bool json = first != std::string::npos && (*text)[first] == '{';
  bool xml = first != std::string::npos && (*text)[first] == '<';
  if (!json && !xml) return cli::failWith(cli::kFailed, "cmd", "%s is neither XML nor JSON", path.c_str());
  if (text->find('\0') != std::string::npos) return cli::failWith(cli::kFailed, "cmd", "%s holds a NUL byte", path.c_str());
  LogCollector log;
  int result = json ? MediaCmdFromJSONString(cmd, tcType, text->c_str()) : MediaCmdFromXMLString(cmd, tcType, text->c_str());
  if (result != 0) {
    std::string why = log.lastError.empty() ? "not a media command (result " + std::to_string(result) + ")" : log.lastError;
    return cli::failWith(cli::kFailed, "cmd", "%s: %s", path.c_str(), why.c_str());
  }
  return cli::kOk;
}

int runConvert(const cli::Args& args) {
  const auto& pos = args.positional();
  if (pos.size() != 2) return cli::fail("cmd", "convert takes one FILE (or - for standard input)");
  auto to = args.get("to");
  if (!to || (*to != "xml" && *to != "json")) return cli::fail("cmd", "convert needs --to xml or --to json");
  unsigned tcType = 4;
  if (auto name = args.get("tc-type"); name && !mediacmd::timecodeTypeFromName(*name, &tcType))
    return cli::fail("cmd", "unknown timecode type '%s' (see --help)", name->c_str());
  MEDIACMD cmd;
  if (int rc = readCommand(pos[1], &cmd, &tcType); rc != cli::kOk) return rc;
  return printForm(cmd, tcType, *to == "json");
}

int runDump(const cli::Args& args) {
  const auto& pos = args.positional();
  if (pos.size() != 2) return cli::fail("cmd", "dump takes one FILE (or - for standard input)");
  MEDIACMD cmd;
  unsigned tcType = 4;
  if (int rc = readCommand(pos[1], &cmd, &tcType); rc != cli::kOk) return rc;
  LogCollector log;
  __dbgout_mediacmd(&cmd);
  if (args.has("json")) {
    cli::Json out;
    out.beginObject().boolean("traced", !log.debugLine.empty()).str("line", log.debugLine).endObject();
    std::printf("%s\n", out.text().c_str());
  } else if (!log.debugLine.empty()) {
    std::printf("%s\n", log.debugLine.c_str());
  }
  return cli::kOk;
}

int runCodes(const cli::Args& args) {
  const bool getSet = !args.has("flags"), flags = !args.has("get-set");
  if (args.has("json")) {
    cli::Json out;
    out.beginObject();
    if (getSet) {
      out.beginArray("getset");
      for (const MCMDXLAT& row : mcmdGSXlat) out.beginObject().num("code", int64_t(row.code)).str("name", row.name).endObject();
      out.endArray();
    }
    if (flags) {
      out.beginArray("flags");
      for (const MCMDXLAT& row : mcmdFLAGXlat) out.beginObject().num("flag", int64_t(row.code)).str("name", row.name).endObject();
      out.endArray();
    }
    std::printf("%s\n", out.endObject().text().c_str());
    return cli::kOk;
  }
  if (getSet)
    for (const MCMDXLAT& row : mcmdGSXlat) std::printf("getset 0x%08X %10u %s\n", row.code, row.code, row.name);
  if (flags)
    for (const MCMDXLAT& row : mcmdFLAGXlat) std::printf("flag   0x%08X %10u %s\n", row.code, row.code, row.name);
  return cli::kOk;
}

int runChannels(const cli::Args& args) {
  const auto& pos = args.positional();
  if (pos.size() != 2) return cli::fail("cmd", "channels takes one MASK");
  auto mask = cli::parseU32(pos[1]);
  if (!mask) return cli::fail("cmd", "bad mask '%s'", pos[1].c_str());
  std::vector<uint32_t> channels;
  for (unsigned i = 0; i < totalChannels(*mask); ++i) channels.push_back(findChannel(*mask, nullptr, i));
  if (args.has("json")) {
    cli::Json out;
    out.beginObject().num("mask", int64_t(*mask)).num("total", int64_t(channels.size())).beginArray("channels");
    for (uint32_t c : channels) out.num("", int64_t(c));
    std::printf("%s\n", out.endArray().endObject().text().c_str());
    return cli::kOk;
  }
  std::printf("mask 0x%08X: %zu channel%s", *mask, channels.size(), channels.size() == 1 ? "" : "s");
  for (size_t i = 0; i < channels.size(); ++i) std::printf("%s%u", i ? ", " : ": ", channels[i]);
  std::printf("\n");
  return cli::kOk;
}

int runSpeed(const cli::Args& args) {
  const auto& pos = args.positional();
  if (pos.size() != 2) return cli::fail("cmd", "speed takes one multiple of normal play (e.g. 1, -2, 0.5)");
  auto x = cli::parseDouble(pos[1]);
  if (!x || std::fabs(*x * MEDIACMD_SPEED_NORMAL) >= 2147483647.0) return cli::fail("cmd", "bad speed '%s'", pos[1].c_str());
  uint32_t periods = 8;
  if (auto v = args.get("periods")) {
    auto n = cli::parseU32(*v);
    if (!n || *n == 0 || *n > 100000) return cli::fail("cmd", "bad --periods '%s' (1..100000)", v->c_str());
    periods = *n;
  }
  const int speed = static_cast<int>(std::lround(*x * MEDIACMD_SPEED_NORMAL));
  const uint32_t rate = speedRate(speed);
  // A fresh stepper: a different speed first resets its accumulation.
  speedReps(nullptr, speed == 1 ? 2 : 1);
  std::vector<int> repeats;
  std::vector<unsigned> fields;
  unsigned count = 0;
  for (uint32_t i = 0; i < periods; ++i) {
    repeats.push_back(speedReps(&count, speed));
    fields.push_back(count);
  }
  if (args.has("json")) {
    cli::Json out;
    out.beginObject().num("speed", int64_t(speed)).num("rate", int64_t(rate)).beginArray("repeats");
    for (int r : repeats) out.num("", int64_t(r));
    out.endArray().beginArray("fieldCount");
    for (unsigned f : fields) out.num("", int64_t(f));
    std::printf("%s\n", out.endArray().endObject().text().c_str());
    return cli::kOk;
  }
  std::printf("speed %d (units of 1/65520), rate 0x%08X (%u + %u/65536)\n", speed, rate, rate >> 16, rate & 0xFFFF);
  std::printf("period  repeats  field count\n");
  for (uint32_t i = 0; i < periods; ++i) std::printf("%6u  %7d  %11u\n", i + 1, repeats[i], fields[i]);
  return cli::kOk;
}

int runFourcc(const cli::Args& args) {
  const auto& pos = args.positional();
  if (pos.size() != 2) return cli::fail("cmd", "fourcc takes one CODE");
  uint32_t code = 0;
  if (pos[1].size() == 4) {
    for (int i = 0; i < 4; ++i) code |= static_cast<uint32_t>(static_cast<uint8_t>(pos[1][i])) << (8 * i);
  } else if (auto n = cli::parseU32(pos[1]); n && pos[1].rfind("0x", 0) == 0) {
    code = *n;
  } else {
    return cli::fail("cmd", "'%s' is neither four characters nor a 0x number", pos[1].c_str());
  }
  auto text = [](uint32_t v) {
    std::string s;
    for (int i = 0; i < 4; ++i) {
      char c = static_cast<char>(v >> (8 * i));
      s += (c >= 0x20 && c < 0x7F) ? c : '.';
    }
    return s;
  };
  const uint32_t upper = fourccToUpper(code), lower = fourccToLower(code);
  if (args.has("json")) {
    cli::Json out;
    out.beginObject().num("code", int64_t(code)).num("upper", int64_t(upper)).str("upperText", text(upper));
    out.num("lower", int64_t(lower)).str("lowerText", text(lower)).endObject();
    std::printf("%s\n", out.text().c_str());
    return cli::kOk;
  }
  std::printf("upper 0x%08X %s\nlower 0x%08X %s\n", upper, text(upper).c_str(), lower, text(lower).c_str());
  return cli::kOk;
}

}  // namespace

int cmdCmd(int argc, char** argv) {
  cli::Args args;
  if (!args.parse(argc, argv, {"to", "tc-type", "channel", "speed", "position", "start", "end", "clip", "file", "get", "set",
                               "supported", "value", "ms", "flag", "periods"},
                  {"xml", "json", "shuttle", "flags", "get-set", "fix"}))
    return cli::fail("cmd", "%s", args.error().c_str());
  if (args.has("help")) {
    std::fputs(kUsage, stdout);
    return cli::kOk;
  }
  const auto& pos = args.positional();
  if (pos.empty()) return cli::fail("cmd", "give new, convert, dump, codes, channels, speed or fourcc (see --help)");
  const struct {
    const char* name;
    int (*run)(const cli::Args&);
  } actions[] = {{"new", runNew},   {"convert", runConvert},   {"dump", runDump}, {"codes", runCodes},
                 {"channels", runChannels}, {"speed", runSpeed}, {"fourcc", runFourcc}};
  for (const auto& a : actions)
    if (pos[0] == a.name) return a.run(args);
  return cli::fail("cmd", "unknown action '%s' (new, convert, dump, codes, channels, speed, fourcc)", pos[0].c_str());
}
