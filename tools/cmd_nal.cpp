// quorvane nal: the NAL units (or MPEG-2 start codes) of an elementary stream.
#include <cinttypes>
#include <cstring>
#include <string>

#include "cli.h"
#include "commands.h"
#include "stream_units.h"

namespace {

constexpr const char* kUsage =
    "usage: quorvane nal [--json] [--codec h264|hevc] FILE\n\n"
    "Lists the units of an Annex B elementary stream (H.264, HEVC, or MPEG-2 start codes), one\n"
    "line each: offset of the start code, unit size (without start code), start-code length,\n"
    "type and name, then nal_ref_idc (H.264) or layer and temporal id (HEVC), and the payload\n"
    "types/sizes of the SEI messages in SEI units. FILE may be '-' for standard input.\n"
    "  --codec NAME   do not guess the codec from the unit headers\n"
    "  --json         print {\"file\", \"codec\", \"count\", \"units\":[{\"offset\", \"size\",\n"
    "                 \"startCode\", \"type\", \"name\", \"refIdc\"|\"layer\",\"temporalId\", \"sei\"}]}\n"
    "Example: quorvane nal clip.hevc\n";

struct CodecOption {
  const char* name;
  StreamCodec codec;
};
constexpr CodecOption kCodecOptions[] = {
    {"h264", StreamCodec::kH264}, {"avc", StreamCodec::kH264}, {"hevc", StreamCodec::kHevc},
    {"h265", StreamCodec::kHevc}, {"mpeg2", StreamCodec::kMpeg2},
};

std::string seiText(const std::vector<units::SeiMessage>& messages) {
  std::string text;
  for (const auto& m : messages) {
    if (!text.empty()) text += ",";
    text += std::to_string(m.payloadType) + "/" + std::to_string(m.payloadSize);
  }
  return text;
}

}  // namespace

int cmdNal(int argc, char** argv) {
  cli::Args args;
  if (!args.parse(argc, argv, {"codec"}, {"json", "help"})) return cli::fail("nal", "%s", args.error().c_str());
  if (args.has("help")) {
    std::fputs(kUsage, stdout);
    return cli::kOk;
  }
  if (args.positional().size() != 1) return cli::fail("nal", "expected one FILE (see quorvane nal --help)");
  const std::string path = args.positional()[0];
  auto text = cli::readFile(path);
  if (!text) return cli::failWith(cli::kFailed, "nal", "cannot read %s: %s", path.c_str(), std::strerror(errno));
  const std::vector<uint8_t> stream(text->begin(), text->end());
  const auto spans = units::annexB(stream);
  if (spans.empty()) return cli::failWith(cli::kFailed, "nal", "%s: no start code found", path.c_str());

  StreamCodec codec = units::detect(stream, spans);
  if (auto forced = args.get("codec")) {
    codec = StreamCodec::kUnknown;
    for (const auto& c : kCodecOptions)
      if (*forced == c.name) codec = c.codec;
    if (codec == StreamCodec::kUnknown) return cli::fail("nal", "unknown codec '%s' (h264, hevc, mpeg2)", forced->c_str());
  }
  if (codec == StreamCodec::kUnknown)
    return cli::failWith(cli::kFailed, "nal", "%s: not an H.264, HEVC or MPEG-2 stream", path.c_str());

  const bool json = args.has("json");
  cli::Json out;
  if (json) {
    out.beginObject().str("file", path).str("codec", units::codecName(codec)).num("count", int64_t(spans.size()));
    out.beginArray("units");
  } else {
    const char* tail = codec == StreamCodec::kHevc ? "layer tid  sei" : codec == StreamCodec::kH264 ? "ref  sei" : "";
    std::printf("%-10s %9s %2s  %-22s %s\n", "offset", "size", "sc", "type", tail);
  }
  for (const auto& s : spans) {
    const uint8_t* unit = stream.data() + s.offset;
    const units::Header h = units::header(codec, unit, s.size);
    const char* name = units::typeName(codec, h.type);
    const auto seis = units::seiMessages(codec, unit, s.size);
    if (json) {
      out.beginObject().num("offset", int64_t(s.codeOffset)).num("size", int64_t(s.size));
      out.num("startCode", int64_t{s.prefixLength}).num("type", int64_t{h.type}).str("name", name);
      if (codec == StreamCodec::kH264) out.num("refIdc", int64_t{h.refIdc});
      if (codec == StreamCodec::kHevc) out.num("layer", int64_t{h.layer}).num("temporalId", int64_t{h.temporalId});
      if (!seis.empty()) {
        out.beginArray("sei");
        for (const auto& m : seis) out.beginObject().num("type", int64_t{m.payloadType}).num("size", int64_t{m.payloadSize}).endObject();
        out.endArray();
      }
      out.endObject();
      continue;
    }
    std::string type = std::to_string(h.type) + " " + name;
    std::printf("%-10zu %9zu %2d  %-22s", s.codeOffset, s.size, s.prefixLength, type.c_str());
    if (codec == StreamCodec::kH264) std::printf(" %3d", h.refIdc);
    if (codec == StreamCodec::kHevc) std::printf(" %5d %3d", h.layer, h.temporalId);
    if (!seis.empty()) std::printf("  %s", seiText(seis).c_str());
    std::printf("\n");
  }
  if (json) {
    out.endArray().endObject();
    std::printf("%s\n", out.text().c_str());
  } else {
    std::printf("%zu units, %s\n", spans.size(), units::codecName(codec));
  }
  return cli::kOk;
}
