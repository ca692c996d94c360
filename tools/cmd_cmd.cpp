// quorvane cmd: build media commands, convert them between their XML and JSON forms, trace
// them as the debug log would, and list the get/set and flag vocabularies.
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "mediacmd/mediacmd.h"
#include "mediacmd/mediacmd_textform.h"
#include "platform/tcxlat.h"
#include "platform/zrlog.h"

namespace {

constexpr const char* kAbout =
    "usage: quorvane cmd new [COMMAND] [options] --xml|--wire-json|--json\n"
    "       quorvane cmd convert FILE|- --xml|--wire-json|--json [--tc-type NAME]\n"
    "       quorvane cmd dump FILE|- [--json]\n"
    "       quorvane cmd codes [--get-set|--flags] [--json]\n"
    "       quorvane cmd channels MASK [--json]\n"
    "       quorvane cmd speed X [--periods N] [--json]\n"
    "       quorvane cmd fourcc CODE [--json]\n\n"
    "new      builds a media command and prints it. COMMAND is a command name (stop, pause,\n"
    "         play, record, recstop, eject, transfer, insert, blank, delete, trim, chanselect,\n"
    "         getstate, setstate, getvalue, setvalue, valuesupported, error, terminate, abort,\n"
    "         edit, switch) or code; --get/--set/--supported imply it.\n"
    "convert  reads either wire form (detected) and prints the form asked for.\n"
    "         --xml and --wire-json print the command's XML and JSON wire forms exactly as a\n"
    "         server exchanges them (the wire JSON keeps its trailing commas, which strict JSON\n"
    "         parsers refuse); --json prints the same content as standard JSON.\n"
    "dump     prints the debug trace line of a command in either form.\n"
    "codes    lists the get/set codes and the control flags with their names.\n"
    "channels lists the channels of a channel bit mask (decimal or 0x hex).\n"
    "speed    shows a speed (multiple of normal play) in command units, as a 16.16 rate, and\n"
    "         how a playout loop steps fields at it over --periods frame periods (default 8).\n"
    "fourcc   shows a four-character code (text or 0x hex number) in upper and lower case.";
constexpr const char* kFooter =
    "TC (--position, --start, --end): HH:MM:SS:FF of --tc-type, or a frame count.\n"
    "NAME (--tc-type): frames, 23.98, 24, 25, 29.97, 29.97df, 30, 50, 59.94, 59.94df, 60, or\n"
    "  film, pal, drop-frame, non-drop-frame, film-drop, 30000/1001 ... (default 29.97df).\n"
    "  The wire forms write the library's word for the type (drop-frame, pal, ...).\n"
    "--json shapes:\n"
    "  new, convert: {\"mediaCmd\": {\"cmdID\", \"structSize\", \"channel\", \"cmd\": {\"value\",\n"
    "                \"string\"}, ...}}: the wire JSON's members with camelCase keys\n"
    "  dump:     {\"traced\": BOOL, \"line\": TEXT}\n"
    "  codes:    {\"getSet\": [{\"code\", \"name\"}], \"flags\": [{\"flag\", \"name\"}]}\n"
    "  channels: {\"mask\", \"total\", \"channels\": [N]}\n"
    "  speed:    {\"speed\", \"rate\", \"repeats\": [N], \"fieldCount\": [N]}\n"
    "  fourcc:   {\"code\", \"upper\", \"upperText\", \"lower\", \"lowerText\"}\n"
    "Examples: quorvane cmd new play --channel 1 --speed 2 --position '01:00:00;00' --json\n"
    "          quorvane cmd new --get channelname --channel 2 --xml | quorvane cmd convert - --wire-json\n";

// Captures the debug trace line of the command dump, then hands the log back.
struct DebugLineCollector {
  std::string line;
  static void sink(void* user, int kind, uint32_t, uint32_t, uint32_t, const char* text) {
    if (kind != ZR_LOG_DEBUG) return;
    std::string& line = static_cast<DebugLineCollector*>(user)->line;
    line = text;
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
  }
  DebugLineCollector() { zrLogSetSink(sink, this); }
  ~DebugLineCollector() { cli::installLogSink(); }
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

bool pointFromText(const std::string& text, unsigned tcType, int32_t* out, std::string* why) {
  if (isDigits(text) || tcType == 0 || tcType == 255) {
    auto value = cli::parseInt(text);
    if (!value || *value < INT32_MIN || *value > UINT32_MAX) {
      *why = "'" + text + "' is not a frame count";
      return false;
    }
    *out = static_cast<int32_t>(static_cast<uint32_t>(*value));
    return true;
  }
  auto frames = cli::parseTimecode(text, tcType, why);
  if (!frames) return false;
  *out = static_cast<int32_t>(*frames);
  return true;
}

enum class Form { kXml, kWireJson, kJson };

// The wire JSON leaves a comma after the last member of every object. Dropping those commas
// (outside strings) and starting each key in lower case gives standard, camelCase JSON.
std::optional<cli::JsonValue> standardJson(const std::string& wire) {
  std::string text;
  bool inString = false, escaped = false;
  for (size_t i = 0; i < wire.size(); ++i) {
    const char c = wire[i];
    if (inString) {
      if (escaped) escaped = false;
      else if (c == '\\') escaped = true;
      else if (c == '"') inString = false;
    } else if (c == '"') {
      inString = true;
    } else if (c == ',') {
      const size_t next = wire.find_first_not_of(" \t\r\n", i + 1);
      if (next != std::string::npos && (wire[next] == '}' || wire[next] == ']')) continue;
    }
    text += c;
  }
  cli::JsonValue parsed = cli::JsonValue::parse(text, nullptr, false);
  if (parsed.is_discarded()) return std::nullopt;
  auto camel = [](auto& self, const cli::JsonValue& v) -> cli::JsonValue {
    if (v.is_array()) {
      cli::JsonValue out = cli::JsonValue::array();
      for (const auto& e : v) out.push_back(self(self, e));
      return out;
    }
    if (!v.is_object()) return v;
    cli::JsonValue out = cli::JsonValue::object();
    for (const auto& [key, value] : v.items()) {
      std::string k = key;
      if (!k.empty()) k[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(k[0])));
      out[k] = self(self, value);
    }
    return out;
  };
  return camel(camel, parsed);
}

std::optional<Form> formOf(const cli::Command& args) {
  const int given = args.has("xml") + args.has("wire-json") + args.has("json");
  if (given != 1) return std::nullopt;
  return args.has("xml") ? Form::kXml : args.has("wire-json") ? Form::kWireJson : Form::kJson;
}

int printForm(MEDIACMD& cmd, unsigned tcType, Form form) {
  char* text = nullptr;
  const bool xml = form == Form::kXml;
  int result = xml ? MediaCmdToXMLString(&text, &cmd, tcType) : MediaCmdToJSONString(&text, &cmd, tcType);
  if (result != 0 || !text) return cli::failWith(cli::kFailed, "cmd", "cannot write the command");
  const std::string out = text;
  if (xml) MediaCmdFreeXMLString(&text);
  else MediaCmdFreeJSONString(&text);
  if (form != Form::kJson) {
    std::printf("%s\n", out.c_str());
    return cli::kOk;
  }
  auto json = standardJson(out);
  if (!json) return cli::failWith(cli::kFailed, "cmd", "the command's JSON form could not be read back");
  cli::printJson(*json);
  return cli::kOk;
}

// --tc-type: the shared vocabulary; the wire forms know the counting types only.
bool tcTypeOption(const cli::Command& args, unsigned* tcType) {
  auto name = args.get("tc-type");
  if (!name) return true;
  auto info = cli::tcType(*name);
  if (!info) return false;
  *tcType = info->tctype;
  return true;
}

int runNew(const cli::Command& args) {
  const auto& pos = args.positional();
  auto form = formOf(args);
  if (!form) return cli::fail("cmd", "new needs exactly one of --xml, --wire-json and --json");
  unsigned tcType = TC_DF2997;
  if (!tcTypeOption(args, &tcType))
    return cli::fail("cmd", "unknown timecode type '%s' (%s)", args.get("tc-type")->c_str(), cli::tcTypeNames().c_str());

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
    std::string why;
    if (!pointFromText(*v, tcType, &(cmd.*p.field), &why)) return cli::fail("cmd", "--%s: %s", p.option, why.c_str());
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
  return printForm(cmd, tcType, *form);
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
  const std::string before = cli::lastLibraryMessage();
  int result = json ? MediaCmdFromJSONString(cmd, tcType, text->c_str()) : MediaCmdFromXMLString(cmd, tcType, text->c_str());
  if (result != 0) {
    const std::string& said = cli::lastLibraryMessage();
    std::string why = said.empty() || said == before ? "not a media command (result " + std::to_string(result) + ")" : said;
    return cli::failWith(cli::kFailed, "cmd", "%s: %s", path.c_str(), why.c_str());
  }
  return cli::kOk;
}

int runConvert(const cli::Command& args) {
  const auto& pos = args.positional();
  if (pos.size() != 2) return cli::fail("cmd", "convert takes one FILE (or - for standard input)");
  auto form = formOf(args);
  if (!form) return cli::fail("cmd", "convert needs exactly one of --xml, --wire-json and --json");
  unsigned tcType = TC_DF2997;
  if (!tcTypeOption(args, &tcType))
    return cli::fail("cmd", "unknown timecode type '%s' (%s)", args.get("tc-type")->c_str(), cli::tcTypeNames().c_str());
  const bool typeGiven = args.has("tc-type");
  MEDIACMD cmd;
  unsigned readType = tcType;
  if (int rc = readCommand(pos[1], &cmd, &readType); rc != cli::kOk) return rc;
  return printForm(cmd, typeGiven ? tcType : readType, *form);
}

int runDump(const cli::Command& args) {
  const auto& pos = args.positional();
  if (pos.size() != 2) return cli::fail("cmd", "dump takes one FILE (or - for standard input)");
  MEDIACMD cmd;
  unsigned tcType = TC_DF2997;
  if (int rc = readCommand(pos[1], &cmd, &tcType); rc != cli::kOk) return rc;
  std::string line;
  {
    DebugLineCollector log;
    __dbgout_mediacmd(&cmd);
    line = log.line;
  }
  if (args.has("json"))
    cli::printJson({{"traced", !line.empty()}, {"line", line}});
  else if (!line.empty())
    std::printf("%s\n", line.c_str());
  return cli::kOk;
}

int runCodes(const cli::Command& args) {
  const bool getSet = !args.has("flags"), flags = !args.has("get-set");
  if (args.has("json")) {
    cli::JsonValue out = cli::JsonValue::object();
    if (getSet) {
      out["getSet"] = cli::JsonValue::array();
      for (const MCMDXLAT& row : mcmdGSXlat) out["getSet"].push_back({{"code", row.code}, {"name", row.name}});
    }
    if (flags) {
      out["flags"] = cli::JsonValue::array();
      for (const MCMDXLAT& row : mcmdFLAGXlat) out["flags"].push_back({{"flag", row.code}, {"name", row.name}});
    }
    cli::printJson(out);
    return cli::kOk;
  }
  if (getSet)
    for (const MCMDXLAT& row : mcmdGSXlat) std::printf("getset 0x%08X %10u %s\n", row.code, row.code, row.name);
  if (flags)
    for (const MCMDXLAT& row : mcmdFLAGXlat) std::printf("flag   0x%08X %10u %s\n", row.code, row.code, row.name);
  return cli::kOk;
}

int runChannels(const cli::Command& args) {
  const auto& pos = args.positional();
  if (pos.size() != 2) return cli::fail("cmd", "channels takes one MASK");
  auto mask = cli::parseU32(pos[1]);
  if (!mask) return cli::fail("cmd", "bad mask '%s'", pos[1].c_str());
  std::vector<uint32_t> channels;
  for (unsigned i = 0; i < totalChannels(*mask); ++i) channels.push_back(findChannel(*mask, nullptr, i));
  if (args.has("json")) {
    cli::printJson({{"mask", *mask}, {"total", channels.size()}, {"channels", channels}});
    return cli::kOk;
  }
  std::printf("mask 0x%08X: %zu channel%s", *mask, channels.size(), channels.size() == 1 ? "" : "s");
  for (size_t i = 0; i < channels.size(); ++i) std::printf("%s%u", i ? ", " : ": ", channels[i]);
  std::printf("\n");
  return cli::kOk;
}

int runSpeed(const cli::Command& args) {
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
    cli::printJson({{"speed", speed}, {"rate", rate}, {"repeats", repeats}, {"fieldCount", fields}});
    return cli::kOk;
  }
  std::printf("speed %d (units of 1/65520), rate 0x%08X (%u + %u/65536)\n", speed, rate, rate >> 16, rate & 0xFFFF);
  std::printf("period  repeats  field count\n");
  for (uint32_t i = 0; i < periods; ++i) std::printf("%6u  %7d  %11u\n", i + 1, repeats[i], fields[i]);
  return cli::kOk;
}

int runFourcc(const cli::Command& args) {
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
    cli::printJson(
        {{"code", code}, {"upper", upper}, {"upperText", text(upper)}, {"lower", lower}, {"lowerText", text(lower)}});
    return cli::kOk;
  }
  std::printf("upper 0x%08X %s\nlower 0x%08X %s\n", upper, text(upper).c_str(), lower, text(lower).c_str());
  return cli::kOk;
}

}  // namespace

int cmdCmd(int argc, char** argv) {
  cli::Command args("cmd", kAbout, kFooter);
  args.option("--channel", "new: channel number")
      .option("--speed", "new: speed as a multiple of normal play (1, -2, 0.5)")
      .flag("--shuttle", "new: mark the speed as shuttle")
      .option("--position", "new: position TC")
      .option("--start", "new: start TC")
      .option("--end", "new: end TC")
      .option("--clip", "new: clip identifier (up to 8 characters)")
      .option("--file", "new: file name carried in the payload")
      .option("--get", "new: get-value command for a get/set code (name or number)")
      .option("--set", "new: set-value command for a get/set code")
      .option("--supported", "new: value-supported command for a get/set code")
      .repeatable("--value", "new: a payload text (repeat for channel aliases, addresses, tag/data/page)")
      .option("--ms", "new: time argument in milliseconds")
      .repeatable("--flag", "new: set a control flag by name (see 'cmd codes --flags')")
      .option("--tc-type", "new, convert: timecode type NAME of TC and of the wire forms")
      .flag("--fix", "new: normalise as a server would (default speeds, unset masks)")
      .flag("--xml", "new, convert: print the XML wire form")
      .flag("--wire-json", "new, convert: print the JSON wire form (trailing commas kept)")
      .flag("--json", "print standard JSON (shapes below)")
      .flag("--get-set", "codes: only the get/set codes")
      .flag("--flags", "codes: only the control flags")
      .option("--periods", "speed: frame periods to step (default 8)")
      .positionals("ARGS", "the action and its arguments");
  if (auto exit = args.parse(argc, argv)) return *exit;
  const auto& pos = args.positional();
  if (pos.empty()) return cli::fail("cmd", "give new, convert, dump, codes, channels, speed or fourcc (see --help)");
  const struct {
    const char* name;
    int (*run)(const cli::Command&);
  } actions[] = {{"new", runNew},   {"convert", runConvert},   {"dump", runDump}, {"codes", runCodes},
                 {"channels", runChannels}, {"speed", runSpeed}, {"fourcc", runFourcc}};
  for (const auto& a : actions)
    if (pos[0] == a.name) return a.run(args);
  return cli::fail("cmd", "unknown action '%s' (new, convert, dump, codes, channels, speed, fourcc)", pos[0].c_str());
}
