// quorvane tc: frame counts to SMPTE timecode text and back.
#include <cstdio>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "platform/tcxlat.h"

namespace {

constexpr const char* kAbout =
    "usage: quorvane tc [--type NAME] [--no-wrap] [--format WORD] [--json] VALUE...\n\n"
    "Converts each VALUE between a frame count and timecode text of one timecode type.\n"
    "A plain number is a frame count and is printed as timecode; text HH:MM:SS:FF (';' or '.'\n"
    "before the frames allowed) is timecode and is printed as a frame count. Timecode needs\n"
    "all four fields: '23:59:59' is refused, since it could be HH:MM:SS or MM:SS:FF.";
constexpr const char* kFooter =
    "Timecode types (--type, and everywhere a type or rate is asked for):\n"
    "  frames, 23.98, 24, 25, 29.97, 29.97df, 30, 50, 59.94, 59.94df, 60; also the rate forms\n"
    "  24000/1001, 30000/1001, 60000/1001, 25/1 ..., and the words film, film-drop, pal,\n"
    "  drop-frame, non-drop-frame. 29.97 and 59.94 without 'df' count non-drop.\n"
    "--json prints {\"type\": NAME, \"format\": WORD, \"results\": [{\"input\": TEXT, \"frames\": N,\n"
    "  \"timecode\": TEXT, \"digits\": [H, M, S, F] (only for 0x400 words)}]}\n"
    "Examples: quorvane tc --type 29.97df 107892      -> 01:00:00;00\n"
    "          quorvane tc --type 25 01:00:00:00      -> 90000\n";

struct Conversion {
  std::string input;
  uint32_t frames = 0;
  std::string timecode;  // text, or the four digit bytes as numbers
  std::vector<int> digits;
  bool fromCount = false;
};

bool isCount(const std::string& text) {
  if (text.empty()) return false;
  for (char c : text)
    if (c < '0' || c > '9') return false;
  return true;
}

// Renders frames with the word; digits words give four numbers.
bool render(uint32_t frames, uint32_t word, Conversion* c) {
  if (word & TCF_DIGITS) {
    uint8_t b[4];
    if (tc2String(frames, word, b, sizeof b) != 0) return false;
    c->digits.assign(b, b + 4);
    c->timecode = std::to_string(b[0]) + " " + std::to_string(b[1]) + " " + std::to_string(b[2]) + " " +
                  std::to_string(b[3]);
    return true;
  }
  char text[32];
  if (tc2String(frames, word, text, sizeof text) != 0) return false;
  c->timecode = text;
  return true;
}

void printJson(const char* typeName, uint32_t word, const std::vector<Conversion>& results) {
  cli::JsonValue list = cli::JsonValue::array();
  for (const auto& r : results) {
    cli::JsonValue item{{"input", r.input}, {"frames", r.frames}, {"timecode", r.timecode}};
    if (!r.digits.empty()) item["digits"] = r.digits;
    list.push_back(std::move(item));
  }
  cli::printJson({{"type", typeName}, {"format", word}, {"results", std::move(list)}});
}

}  // namespace

int cmdTc(int argc, char** argv) {
  cli::Command command("tc", kAbout, kFooter);
  command.option("--type", "timecode type (default 30); see below")
      .flag("--no-wrap", "counts at or past 24 hours keep growing hours instead of wrapping")
      .option("--format",
              "a library format word used as it is (decimal or 0x hex, e.g. 0x10100 or 0x404); its low byte "
              "is the type unless --type is given; a word with 0x400 prints the four digit bytes")
      .flag("--json", "print one JSON object (shape below)")
      .positionals("VALUE", "frame counts or HH:MM:SS:FF timecodes");
  if (auto exit = command.parse(argc, argv)) return *exit;

  uint32_t word = TC_NDF30 | TCF_FULL_TEXT;
  if (auto format = command.get("format")) {
    auto value = cli::parseU32(*format);
    if (!value) return cli::fail("tc", "bad format word '%s'", format->c_str());
    word = *value;
  }
  const char* typeName = nullptr;
  if (auto name = command.get("type")) {
    auto t = cli::tcType(*name);
    if (!t) return cli::fail("tc", "unknown type '%s' (%s)", name->c_str(), cli::tcTypeNames().c_str());
    word = (word & ~TCF_TYPE_MASK) | t->tctype;
    typeName = t->name;
  }
  if (command.has("no-wrap")) word |= TCF_NO_WRAP;
  if (command.positional().empty()) return cli::fail("tc", "give a frame count or a timecode (see --help)");
  char probe[32];
  if (tc2String(0, word, probe, sizeof probe) != 0)
    return cli::fail("tc", "format word 0x%X has an unknown type or option bit (see --help)", word);

  const uint32_t type = word & TCF_TYPE_MASK;
  if (!typeName) typeName = vidTCTypeName(type);
  const uint32_t parseFlags = word & TCF_NO_WRAP;
  std::vector<Conversion> results;
  for (const auto& value : command.positional()) {
    Conversion c;
    c.input = value;
    c.fromCount = isCount(value) || type == TC_FRAMES;
    if (c.fromCount) {
      auto frames = cli::parseU32(value);
      if (!frames || !isCount(value))
        return cli::failWith(cli::kFailed, "tc", "'%s' is not a frame count that fits 32 bits", value.c_str());
      c.frames = *frames;
    } else {
      std::string why;
      auto frames = cli::parseTimecode(value, type | parseFlags, &why);
      if (!frames) return cli::failWith(cli::kFailed, "tc", "%s", why.c_str());
      c.frames = *frames;
    }
    if (!render(c.frames, word, &c))
      return cli::failWith(cli::kFailed, "tc", "cannot render %u as %s with format 0x%X", c.frames, typeName, word);
    results.push_back(std::move(c));
  }

  if (command.has("json")) {
    printJson(typeName, word, results);
    return cli::kOk;
  }
  for (const auto& r : results) {
    if (r.fromCount && type != TC_FRAMES)
      std::printf("%s\n", r.timecode.c_str());
    else
      std::printf("%u\n", r.frames);
  }
  return cli::kOk;
}
