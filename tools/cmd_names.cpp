// quorvane names: labels of file-type codes and codec FOURCCs.
#include <cstdio>
#include <string>
#include <string_view>

#include "cli.h"
#include "commands.h"
#include "streamutil/typenames.h"

namespace {

constexpr const char* kAbout =
    "usage: quorvane names [--file-type N]... [--codec FOURCC]... [--json]\n\n"
    "Prints the display label of file-type codes and of codec four-character codes, one a\n"
    "line: file types first, then codecs, each in the order given. A code without a label\n"
    "(file type 0, 57 or above 226; a codec no table or test knows) is an error: exit 1,\n"
    "and nothing is printed.";
constexpr const char* kFooter =
    "--json shape: {\"fileTypes\": [{\"code\": N, \"label\": TEXT}],\n"
    "               \"codecs\": [{\"codec\": \"hvc1\", \"value\": N, \"label\": TEXT}]}\n"
    "Examples: quorvane names --file-type 203 --codec hvc1\n"
    "          quorvane names --codec 0x20574152 --json\n";

// Four characters are taken as they are; anything else must be a number.
std::optional<uint32_t> parseFourcc(const std::string& text) {
  if (text.size() == 4 && !(text[0] == '0' && (text[1] == 'x' || text[1] == 'X'))) {
    uint32_t code = 0;
    for (unsigned char c : text) code = code << 8 | c;
    return code;
  }
  return cli::parseU32(text);
}

std::string fourccText(uint32_t code) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    const auto c = static_cast<unsigned char>(code >> shift);
    text += (c >= 0x20 && c < 0x7F) ? static_cast<char>(c) : '.';
  }
  return text;
}

}  // namespace

int cmdNames(int argc, char** argv) {
  cli::Command args("names", kAbout, kFooter);
  args.repeatable("--file-type", "file-type code N (decimal or 0x hex)")
      .repeatable("--codec", "four characters (hvc1, 'AV1x') or the 32-bit value, first character in the top byte")
      .flag("--json", "print one JSON object (shape below)");
  if (auto exit = args.parse(argc, argv)) return *exit;
  const auto fileTypes = args.all("file-type");
  const auto codecs = args.all("codec");
  if (fileTypes.empty() && codecs.empty()) return cli::fail("names", "give --file-type N or --codec FOURCC");

  const char* unknownFileType = klxutilFileTypeString(0);
  cli::JsonValue out{{"fileTypes", cli::JsonValue::array()}, {"codecs", cli::JsonValue::array()}};
  std::string text;
  for (const auto& given : fileTypes) {
    auto code = cli::parseU32(given);
    if (!code) return cli::fail("names", "bad file-type code '%s'", given.c_str());
    const char* label = klxutilFileTypeString(*code);
    if (std::string_view(label) == unknownFileType)
      return cli::failWith(cli::kFailed, "names", "file-type code %u has no label", *code);
    out["fileTypes"].push_back({{"code", *code}, {"label", label}});
    text += std::string(label) + "\n";
  }
  for (const auto& given : codecs) {
    auto code = parseFourcc(given);
    if (!code) return cli::fail("names", "bad codec code '%s' (four characters or a 32-bit number)", given.c_str());
    const char* label = klxutilCodecTypeString(*code);
    if (!*label)
      return cli::failWith(cli::kFailed, "names", "codec '%s' (0x%08X) has no label", fourccText(*code).c_str(), *code);
    out["codecs"].push_back({{"codec", fourccText(*code)}, {"value", *code}, {"label", label}});
    text += std::string(label) + "\n";
  }
  if (args.has("json"))
    cli::printJson(out);
  else
    std::fputs(text.c_str(), stdout);
  return cli::kOk;
}
