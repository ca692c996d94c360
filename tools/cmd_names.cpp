// quorvane names: labels of file-type codes and codec FOURCCs.
#include <cstdio>
#include <string>

#include "cli.h"
#include "commands.h"
#include "streamutil/typenames.h"

namespace {

constexpr const char* kUsage =
    "usage: quorvane names --file-type N | --codec FOURCC [--json]\n\n"
    "Prints the display label of a file-type code or of a codec four-character code.\n"
    "  --file-type N    file-type code (decimal or 0x hex)\n"
    "  --codec FOURCC   four characters (e.g. hvc1, 'AV1x') or the 32-bit value, first\n"
    "                   character in the most significant byte (e.g. 0x20574152)\n"
    "  --json           print {\"code\":..., \"label\":...}\n"
    "Either option may be repeated; labels are printed one a line in the order given.\n"
    "An unrecognised codec prints an empty line.\n";

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
  cli::Args args;
  if (!args.parse(argc, argv, {"file-type", "codec"}, {"json"})) return cli::fail("names", "%s", args.error().c_str());
  if (args.has("help")) {
    std::fputs(kUsage, stdout);
    return cli::kOk;
  }
  const auto fileTypes = args.all("file-type");
  const auto codecs = args.all("codec");
  if (!args.positional().empty()) return cli::fail("names", "unexpected argument '%s'", args.positional()[0].c_str());
  if (fileTypes.empty() && codecs.empty()) return cli::fail("names", "give --file-type N or --codec FOURCC");

  const bool json = args.has("json");
  cli::Json out;
  if (json) out.beginArray();
  for (const auto& text : fileTypes) {
    auto code = cli::parseU32(text);
    if (!code) return cli::fail("names", "bad file-type code '%s'", text.c_str());
    const char* label = klxutilFileTypeString(*code);
    if (json)
      out.beginObject().num("fileType", int64_t(*code)).str("label", label).endObject();
    else
      std::printf("%s\n", label);
  }
  for (const auto& text : codecs) {
    auto code = parseFourcc(text);
    if (!code) return cli::fail("names", "bad codec code '%s' (four characters or a 32-bit number)", text.c_str());
    const char* label = klxutilCodecTypeString(*code);
    if (json)
      out.beginObject().str("codec", fourccText(*code)).num("value", int64_t(*code)).str("label", label).endObject();
    else
      std::printf("%s\n", label);
  }
  if (json) std::printf("%s\n", out.endArray().text().c_str());
  return cli::kOk;
}
