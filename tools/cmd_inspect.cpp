// quorvane inspect: what a stream is. The codec and framing, the unit list summary, then the
// parameter-set and per-frame sections (inspect_params.cpp, inspect_frames.cpp).
#include <cerrno>
#include <cstring>
#include <map>
#include <string>

#include "cli.h"
#include "commands.h"
#include "inspect.h"
#include "stream_units.h"
#include "streamutil/framing.h"

namespace {

constexpr const char* kUsage =
    "usage: quorvane inspect [--json] FILE\n\n"
    "Summarises an H.264, HEVC or MPEG-2 elementary stream: codec, framing (Annex B start codes\n"
    "or 32-bit length prefixes), unit and frame counts, units by type, SEI payload types, then\n"
    "the parameter sets with the signal format derived from them, and per-frame timecodes and\n"
    "captions. FILE may be '-' for standard input.\n"
    "  --json   print one JSON object: {\"file\", \"codec\", \"framing\", \"bytes\", \"units\",\n"
    "           \"frames\", \"unitTypes\":[{\"type\",\"name\",\"count\"}], \"sei\":[{\"type\",\"count\"}],\n"
    "           ...sections}\n"
    "Example: quorvane inspect clip.hevc\n";

struct Summary {
  StreamCodec codec = StreamCodec::kUnknown;
  const char* framing = "annexb";
  size_t units = 0;
  size_t frames = 0;
  std::map<int, size_t> typeCounts;
  std::map<int, size_t> seiCounts;
};

// The stream in Annex B form (a length-prefixed input is converted with the library's
// converter) and its units; false when it is neither.
bool readUnits(std::vector<uint8_t>& stream, std::vector<units::Span>& spans, Summary& summary) {
  spans = units::annexB(stream);
  if (!spans.empty() && spans.front().codeOffset == 0) return true;
  std::vector<units::Span> lengthSpans;
  size_t bad = 0;
  if (stream.empty() || stream.size() > UINT32_MAX || !units::lengthPrefixed(stream, &lengthSpans, &bad)) {
    return !spans.empty();  // start codes further in: take the stream as it is
  }
  uint32_t size = klxUtilh264SizeToMarker(stream.data(), static_cast<uint32_t>(stream.size()));
  stream.resize(size);
  summary.framing = "length";
  spans = units::annexB(stream);
  return !spans.empty();
}

void summarise(const std::vector<uint8_t>& stream, const std::vector<units::Span>& spans, Summary& summary) {
  summary.units = spans.size();
  summary.frames = units::accessUnitStarts(summary.codec, stream, spans).size();
  for (const auto& s : spans) {
    const uint8_t* unit = stream.data() + s.offset;
    summary.typeCounts[units::header(summary.codec, unit, s.size).type]++;
    for (const auto& m : units::seiMessages(summary.codec, unit, s.size)) summary.seiCounts[m.payloadType]++;
  }
}

void printText(const std::string& path, const std::vector<uint8_t>& stream, const Summary& s) {
  std::printf("file     %s\n", path.c_str());
  std::printf("codec    %s, %s framing, %zu bytes\n", units::codecName(s.codec), s.framing, stream.size());
  std::printf("units    %zu in %zu frames\n", s.units, s.frames);
  for (const auto& [type, count] : s.typeCounts)
    std::printf("  %3d %-18s %zu\n", type, units::typeName(s.codec, type), count);
  if (!s.seiCounts.empty()) {
    std::printf("sei      ");
    const char* sep = "";
    for (const auto& [type, count] : s.seiCounts) {
      std::printf("%stype %d x%zu", sep, type, count);
      sep = ", ";
    }
    std::printf("\n");
  }
}

void addJson(cli::Json& json, const std::string& path, const std::vector<uint8_t>& stream, const Summary& s) {
  json.str("file", path).str("codec", units::codecName(s.codec)).str("framing", s.framing);
  json.num("bytes", int64_t(stream.size())).num("units", int64_t(s.units)).num("frames", int64_t(s.frames));
  json.beginArray("unitTypes");
  for (const auto& [type, count] : s.typeCounts) {
    json.beginObject().num("type", int64_t{type}).str("name", units::typeName(s.codec, type));
    json.num("count", int64_t(count)).endObject();
  }
  json.endArray().beginArray("sei");
  for (const auto& [type, count] : s.seiCounts) json.beginObject().num("type", int64_t{type}).num("count", int64_t(count)).endObject();
  json.endArray();
}

}  // namespace

int cmdInspect(int argc, char** argv) {
  cli::Args args;
  if (!args.parse(argc, argv, {}, {"json", "help"})) return cli::fail("inspect", "%s", args.error().c_str());
  if (args.has("help")) {
    std::fputs(kUsage, stdout);
    return cli::kOk;
  }
  if (args.positional().size() != 1) return cli::fail("inspect", "expected one FILE (see quorvane inspect --help)");
  const std::string path = args.positional()[0];
  auto text = cli::readFile(path);
  if (!text) return cli::failWith(cli::kFailed, "inspect", "cannot read %s: %s", path.c_str(), std::strerror(errno));
  std::vector<uint8_t> stream(text->begin(), text->end());
  text.reset();

  Summary summary;
  std::vector<units::Span> spans;
  if (!readUnits(stream, spans, summary))
    return cli::failWith(cli::kFailed, "inspect", "%s: no start codes or length prefixes found", path.c_str());
  summary.codec = units::detect(stream, spans);
  if (summary.codec == StreamCodec::kUnknown)
    return cli::failWith(cli::kFailed, "inspect", "%s: not an H.264, HEVC or MPEG-2 stream", path.c_str());
  summarise(stream, spans, summary);

  if (args.has("json")) {
    cli::Json json;
    json.beginObject();
    addJson(json, path, stream, summary);
    inspectParams(stream, summary.codec, nullptr, &json);
    inspectFrames(stream, summary.codec, nullptr, &json);
    json.endObject();
    std::printf("%s\n", json.text().c_str());
  } else {
    printText(path, stream, summary);
    inspectParams(stream, summary.codec, stdout, nullptr);
    inspectFrames(stream, summary.codec, stdout, nullptr);
  }
  return cli::kOk;
}
