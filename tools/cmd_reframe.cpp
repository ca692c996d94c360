// quorvane reframe: a whole H.264/HEVC stream between start codes (Annex B) and 32-bit length
// prefixes, converted access unit by access unit in place with the library's frame converters.
#include <cerrno>
#include <cstring>
#include <string>

#include "cli.h"
#include "commands.h"
#include "stream_units.h"
#include "streamutil/framing.h"

namespace {

constexpr const char* kUsage =
    "usage: quorvane reframe --to length|annexb [--json] IN OUT\n\n"
    "Converts an H.264 or HEVC elementary stream frame by frame:\n"
    "  --to length   Annex B (00 00 01 / 00 00 00 01 start codes) to 4-byte big-endian length\n"
    "                prefixes, as MP4 samples hold them; three-byte start codes are widened\n"
    "  --to annexb   length prefixes to 00 00 00 01 start codes\n"
    "  --json        print {\"in\", \"out\", \"to\", \"codec\", \"frames\", \"units\", \"inBytes\",\n"
    "                \"outBytes\"} when done\n"
    "IN may be '-' for standard input. A progress bar is shown on a terminal.\n"
    "Example: quorvane reframe --to length clip.hevc clip.len\n";

struct Target {
  const char* name;
  bool toLength;
};
constexpr Target kTargets[] = {{"length", true}, {"annexb", false}};

struct Summary {
  size_t frames = 0;
  size_t units = 0;
  size_t outBytes = 0;
};

// Converts frame after frame into `out`, each in a buffer with the room its conversion needs.
bool convert(const std::vector<uint8_t>& stream, const std::vector<units::Span>& spans,
             const std::vector<size_t>& frameStarts, bool toLength, FILE* out, Summary* summary) {
  cli::Progress progress("reframe", stream.size());
  std::vector<uint8_t> frame;
  for (size_t f = 0; f < frameStarts.size(); f++) {
    const size_t begin = spans[frameStarts[f]].codeOffset;
    const size_t end = f + 1 < frameStarts.size() ? spans[frameStarts[f + 1]].codeOffset : stream.size();
    frame.assign(stream.begin() + begin, stream.begin() + end);
    const auto size = static_cast<uint32_t>(frame.size());
    uint32_t newSize = size;
    if (toLength) {
      uint32_t room = klxUtilh264MarkerToSizeResult(frame.data(), size);
      frame.resize(room);
      if (klxUtilh264MarkerToSizeChecked(frame.data(), size, room, &newSize) != 0) return false;
    } else {
      newSize = klxUtilh264SizeToMarker(frame.data(), size);
    }
    if (std::fwrite(frame.data(), 1, newSize, out) != newSize) return false;
    summary->outBytes += newSize;
    progress.update(end);
  }
  summary->frames = frameStarts.size();
  summary->units = spans.size();
  return true;
}

}  // namespace

int cmdReframe(int argc, char** argv) {
  cli::Args args;
  if (!args.parse(argc, argv, {"to"}, {"json", "help"})) return cli::fail("reframe", "%s", args.error().c_str());
  if (args.has("help")) {
    std::fputs(kUsage, stdout);
    return cli::kOk;
  }
  const Target* target = nullptr;
  if (auto to = args.get("to")) {
    for (const auto& t : kTargets)
      if (*to == t.name) target = &t;
    if (!target) return cli::fail("reframe", "--to takes length or annexb, not '%s'", to->c_str());
  } else {
    return cli::fail("reframe", "--to length|annexb is required (see quorvane reframe --help)");
  }
  if (args.positional().size() != 2) return cli::fail("reframe", "expected IN and OUT (see quorvane reframe --help)");
  const std::string inPath = args.positional()[0], outPath = args.positional()[1];

  auto text = cli::readFile(inPath);
  if (!text) return cli::failWith(cli::kFailed, "reframe", "cannot read %s: %s", inPath.c_str(), std::strerror(errno));
  const std::vector<uint8_t> stream(text->begin(), text->end());
  text.reset();

  std::vector<units::Span> spans;
  if (target->toLength) {
    spans = units::annexB(stream);
    if (spans.empty() || spans.front().codeOffset != 0)
      return cli::failWith(cli::kFailed, "reframe", "%s: not an Annex B stream (no start code at offset 0)",
                           inPath.c_str());
  } else {
    size_t bad = 0;
    if (stream.empty() || !units::lengthPrefixed(stream, &spans, &bad))
      return cli::failWith(cli::kFailed, "reframe", "%s: not a length-prefixed stream (bad length at offset %zu)",
                           inPath.c_str(), bad);
  }
  const StreamCodec codec = units::detect(stream, spans);
  if (codec != StreamCodec::kH264 && codec != StreamCodec::kHevc)
    return cli::failWith(cli::kFailed, "reframe", "%s: not an H.264 or HEVC stream", inPath.c_str());
  const auto frameStarts = units::accessUnitStarts(codec, stream, spans);
  for (size_t f = 0; f < frameStarts.size(); f++) {
    size_t end = f + 1 < frameStarts.size() ? spans[frameStarts[f + 1]].codeOffset : stream.size();
    if (end - spans[frameStarts[f]].codeOffset > UINT32_MAX - UINT32_MAX / 3)
      return cli::failWith(cli::kFailed, "reframe", "%s: frame %zu is too large", inPath.c_str(), f);
  }

  FILE* out = std::fopen(outPath.c_str(), "wb");
  if (!out) return cli::failWith(cli::kFailed, "reframe", "cannot write %s: %s", outPath.c_str(), std::strerror(errno));
  Summary summary;
  bool ok = convert(stream, spans, frameStarts, target->toLength, out, &summary);
  ok = std::fclose(out) == 0 && ok;
  if (!ok) return cli::failWith(cli::kFailed, "reframe", "writing %s failed: %s", outPath.c_str(), std::strerror(errno));

  if (args.has("json")) {
    cli::Json json;
    json.beginObject().str("in", inPath).str("out", outPath).str("to", target->name).str("codec", units::codecName(codec));
    json.num("frames", int64_t(summary.frames)).num("units", int64_t(summary.units));
    json.num("inBytes", int64_t(stream.size())).num("outBytes", int64_t(summary.outBytes)).endObject();
    std::printf("%s\n", json.text().c_str());
  } else {
    std::printf("%s: %zu frames, %zu units, %zu -> %zu bytes (%s)\n", outPath.c_str(), summary.frames, summary.units,
                stream.size(), summary.outBytes, target->name);
  }
  return cli::kOk;
}
