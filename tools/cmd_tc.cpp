// quorvane tc: frame counts to SMPTE timecode text and back.
#include <cstdio>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "platform/tcxlat.h"

namespace {

constexpr const char* kUsage =
    "usage: quorvane tc [--type NAME] [--no-wrap] [--format WORD] [--json] VALUE...\n\n"
    "Converts each VALUE between a frame count and timecode text of one timecode type.\n"
    "A plain number is a frame count and is printed as timecode; text with ':', ';' or '.'\n"
    "separators (HH:MM:SS:FF, MM:SS:FF or SS:FF) is timecode and is printed as a frame count.\n"
    "  --type NAME     frames, 24 (film), 23.98, 25 (pal), 29.97df, 30, 50, 59.94df, 60;\n"
    "                  default 30\n"
    "  --no-wrap       counts at or past 24 hours keep growing hours instead of wrapping\n"
    "  --format WORD   a library format word used as it is (decimal or 0x hex, e.g. 0x10100 or\n"
    "                  0x404); its low byte is the type unless --type is given. A word with\n"
    "                  0x400 prints the four digit bytes: hours minutes seconds frames\n"
    "  --json          print {\"type\":..., \"results\":[{\"input\",\"frames\",\"timecode\"}]}\n"
    "Examples: quorvane tc --type 29.97df 107892      -> 01:00:00;00\n"
    "          quorvane tc --type 25 01:00:00:00      -> 90000\n";

struct TypeName {
  const char* name;
  uint32_t type;
};

// The first name of each type is the one reported back.
constexpr TypeName kTypeNames[] = {
    {"frames", TC_FRAMES}, {"24", TC_FILM},      {"film", TC_FILM},     {"23.98", TC_2398},
    {"23.976", TC_2398},   {"25", TC_PAL},       {"pal", TC_PAL},       {"29.97df", TC_DF2997},
    {"df", TC_DF2997},     {"30", TC_NDF30},     {"ndf", TC_NDF30},     {"50", TC_50},
    {"59.94df", TC_DF5994}, {"60", TC_60},
};

const TypeName* typeByName(const std::string& name) {
  for (const auto& t : kTypeNames)
    if (name == t.name) return &t;
  return nullptr;
}

const char* nameOfType(uint32_t type) {
  if (type == (TC_2398 | TC_DF2997)) type = TC_2398;
  for (const auto& t : kTypeNames)
    if (t.type == type) return t.name;
  return "unknown";
}

struct Conversion {
  std::string input;
  uint32_t frames = 0;
  std::string timecode;  // text, or the four digit bytes as numbers
  std::vector<int> digits;
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
  cli::Json out;
  out.beginObject().str("type", typeName).num("format", int64_t(word)).beginArray("results");
  for (const auto& r : results) {
    out.beginObject().str("input", r.input).num("frames", int64_t(r.frames)).str("timecode", r.timecode);
    if (!r.digits.empty()) {
      out.beginArray("digits");
      for (int d : r.digits) out.num("", int64_t(d));
      out.endArray();
    }
    out.endObject();
  }
  std::printf("%s\n", out.endArray().endObject().text().c_str());
}

}  // namespace

int cmdTc(int argc, char** argv) {
  cli::Args args;
  if (!args.parse(argc, argv, {"type", "format"}, {"json", "no-wrap"}))
    return cli::fail("tc", "%s", args.error().c_str());
  if (args.has("help")) {
    std::fputs(kUsage, stdout);
    return cli::kOk;
  }
  uint32_t word = TC_NDF30 | TCF_FULL_TEXT;
  if (auto format = args.get("format")) {
    auto value = cli::parseU32(*format);
    if (!value) return cli::fail("tc", "bad format word '%s'", format->c_str());
    word = *value;
  }
  if (auto name = args.get("type")) {
    const TypeName* t = typeByName(*name);
    if (!t)
      return cli::fail("tc", "unknown type '%s' (frames, 24, film, 23.98, 25, pal, 29.97df, 30, 50, 59.94df, 60)",
                       name->c_str());
    word = (word & ~TCF_TYPE_MASK) | t->type;
  }
  if (args.has("no-wrap")) word |= TCF_NO_WRAP;
  if (args.positional().empty()) return cli::fail("tc", "give a frame count or a timecode (see --help)");
  char probe[32];
  if (tc2String(0, word, probe, sizeof probe) != 0)
    return cli::fail("tc", "format word 0x%X has an unknown type or option bit (see --help)", word);

  const uint32_t type = word & TCF_TYPE_MASK;
  const char* typeName = nameOfType(type);
  const uint32_t parseWord = (word & ~TCF_DIGITS) | TCF_TEXT;
  std::vector<Conversion> results;
  for (const auto& value : args.positional()) {
    Conversion c;
    c.input = value;
    if (isCount(value) && type != TC_FRAMES) {
      auto frames = cli::parseU32(value);
      if (!frames) return cli::failWith(cli::kFailed, "tc", "frame count '%s' does not fit 32 bits", value.c_str());
      c.frames = *frames;
    } else if (tc2Frame(value.c_str(), parseWord, &c.frames) != 0) {
      return cli::failWith(cli::kFailed, "tc", "'%s' is not a valid %s timecode", value.c_str(), typeName);
    }
    if (!render(c.frames, word, &c))
      return cli::failWith(cli::kFailed, "tc", "cannot render %u as %s with format 0x%X", c.frames, typeName, word);
    results.push_back(std::move(c));
  }

  if (args.has("json")) {
    printJson(typeName, word, results);
    return cli::kOk;
  }
  for (const auto& r : results) {
    if (isCount(r.input) && type != TC_FRAMES)
      std::printf("%s\n", r.timecode.c_str());
    else
      std::printf("%u\n", r.frames);
  }
  return cli::kOk;
}
