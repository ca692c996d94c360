// quorvane inspect: what a stream is. The container and track, codec and framing, the unit list
// summary, then the parameter-set and per-frame sections (inspect_params.cpp,
// inspect_frames.cpp). The input is read once, access unit by access unit.
#include <map>
#include <string>

#include "cli.h"
#include "commands.h"
#include "inspect.h"
#include "inspect_hdr.h"
#include "media/command_input.h"
#include "param_report.h"
#include "stream_units.h"

namespace {

constexpr const char* kAbout =
    "usage: quorvane inspect [--json] [--track N] FILE\n\n"
    "Summarises the video of FILE: an H.264, HEVC or MPEG-2 elementary stream (start codes or\n"
    "32-bit length prefixes) or the video track of a container (MP4, MOV, Matroska/WebM,\n"
    "MPEG-TS, MXF), recognised by its content. Shows the container and track, codec, framing,\n"
    "unit and frame counts, units by type, SEI payload types, then the parameter sets with the\n"
    "signal format derived from them, and per-picture timecodes and captions in display order.\n"
    "FILE may be '-' for an elementary stream on standard input.";
constexpr const char* kFooter =
    "--json shape: {\"file\", [\"container\", \"track\"], \"codec\": \"h264\"|\"hevc\"|\"mpeg2\",\n"
    "  \"framing\": \"annexb\"|\"length\", \"bytes\", \"units\", \"accessUnits\", \"frames\" (a pair of\n"
    "  H.264 or MPEG-2 field pictures is one frame, and so are two HEVC pictures of a stream\n"
    "  whose SPS sets field_seq_flag),\n"
    "  \"unitTypes\": [{\"type\", \"name\", \"count\"}], \"sei\": [{\"type\", \"count\"}],\n"
    "  \"parameterSets\": {\"vps\", \"sps\", \"pps\" (MPEG-2: \"sequenceHeaders\", \"sequenceExtensions\",\n"
    "  \"sequenceDisplayExtensions\"),\n"
    "  \"summary\" (as params; MPEG-2 from the first sequence header), \"signalFormat\": WORD|null,\n"
    "  \"signalFormatText\": TEXT|null, \"signalFormatExact\" (false: the word is only the nearest one,\n"
    "  its raster or rate differs from the stream's)}, \"hdr\": {\"colourDescription\", \"colourPrimaries\", ..., \"range\",\n"
    "  [\"masteringDisplay\", \"contentLightLevel\", \"alternativeTransfer\"] (H.264/HEVC)} (MPEG-2: the\n"
    "  colour of its sequence display extension),\n"
    "  \"pictures\": [{\"display\", \"decode\", \"poc\"|\"temporalReference\", \"timecode\": TEXT|null,\n"
    "  \"captions\"}] (or \"framesError\")}\n"
    "Example: quorvane inspect clip.mp4\n";

struct Summary {
  uint64_t bytes = 0;
  size_t units = 0;
  size_t accessUnits = 0;
  size_t fields = 0;  // fields the pictures show: a frame picture two, a field picture one
  size_t frames() const { return (fields + 1) / 2; }
  std::map<int, size_t> typeCounts;
  std::map<int, size_t> seiCounts;
};

void count(const media::AccessUnit& au, StreamCodec codec, Summary& s) {
  ++s.accessUnits;
  if (au.picture.hasPicture) s.fields += klxutilAuPictureFields(&au.picture);
  s.bytes += au.bytes.size();
  for (const auto& u : au.units) {
    ++s.units;
    const uint8_t* unit = au.unit(u);
    s.typeCounts[units::header(codec, unit, u.size).type]++;
    for (const auto& m : units::seiMessages(codec, unit, u.size)) s.seiCounts[m.payloadType]++;
  }
}

const char* framingName(const media::StreamInfo& info) {
  return info.framing == media::Framing::kLengthPrefixed ? "length" : "annexb";
}

void printText(const std::string& path, const media::StreamInfo& info, const Summary& s) {
  std::printf("file     %s\n", path.c_str());
  if (!info.elementary) std::printf("container %s, track %d\n", info.container.c_str(), info.track);
  std::printf("codec    %s, %s framing, %llu bytes\n", units::codecName(info.codec), framingName(info),
              static_cast<unsigned long long>(s.bytes));
  std::printf("units    %zu in %zu access units, %zu frames\n", s.units, s.accessUnits, s.frames());
  for (const auto& [type, n] : s.typeCounts) std::printf("  %3d %-18s %zu\n", type, units::typeName(info.codec, type), n);
  if (!s.seiCounts.empty()) {
    std::printf("sei      ");
    const char* sep = "";
    for (const auto& [type, n] : s.seiCounts) {
      std::printf("%stype %d x%zu", sep, type, n);
      sep = ", ";
    }
    std::printf("\n");
  }
}

cli::JsonValue summaryJson(const std::string& path, const media::StreamInfo& info, const Summary& s) {
  cli::JsonValue json{{"file", path}};
  if (!info.elementary) {
    json["container"] = info.container;
    json["track"] = info.track;
  }
  json["codec"] = units::codecName(info.codec);
  json["framing"] = framingName(info);
  json["bytes"] = s.bytes;
  json["units"] = s.units;
  json["accessUnits"] = s.accessUnits;
  json["frames"] = s.frames();
  json["unitTypes"] = cli::JsonValue::array();
  for (const auto& [type, n] : s.typeCounts)
    json["unitTypes"].push_back({{"type", type}, {"name", units::typeName(info.codec, type)}, {"count", n}});
  json["sei"] = cli::JsonValue::array();
  for (const auto& [type, n] : s.seiCounts) json["sei"].push_back({{"type", type}, {"count", n}});
  return json;
}

}  // namespace

int cmdInspect(int argc, char** argv) {
  cli::Command args("inspect", kAbout, kFooter);
  args.flag("--json", "print one JSON object (shape below)")
      .positionals("FILE", "the stream or container, or - for an elementary stream on standard input");
  media::addTrackOption(args);
  if (auto exit = args.parse(argc, argv)) return *exit;
  if (args.positional().size() != 1) return cli::fail("inspect", "expected one FILE (see quorvane inspect --help)");
  const std::string path = args.positional()[0];
  int exitCode = 0;
  auto input = media::openInput("inspect", path, args, exitCode);
  if (!input) return exitCode;
  const media::StreamInfo& info = input->info();
  const bool json = args.has("json");

  Summary summary;
  params::LogCollector log;  // damaged parameter sets are reported in the parameter-set section
  params::StreamParams sets;
  sets.codec = info.codec;
  for (const auto& unit : info.parameterSets) params::addUnit(sets, unit.data(), unit.size());
  KLX_HDR_METADATA hdr{};
  FrameReport frames(info.codec, info.framing == media::Framing::kLengthPrefixed, json);
  {
    media::InputProgress progress("inspect", *input);
    media::AccessUnit au;
    while (input->next(au)) {
      progress.tick();
      count(au, info.codec, summary);
      for (const auto& u : au.units) params::addUnit(sets, au.unit(u), u.size);
      frames.add(au);
      hdrinfo::addHdrSei(au.bytes.data(), static_cast<uint32_t>(au.bytes.size()), info.framing == media::Framing::kLengthPrefixed,
                info.codec == StreamCodec::kHevc, hdr);
    }
    progress.done();
  }
  if (!input->error().empty()) return cli::failWith(cli::kFailed, "inspect", "%s: %s", path.c_str(), input->error().c_str());
  if (summary.units == 0) return cli::failWith(cli::kFailed, "inspect", "%s: no units found", path.c_str());
  frames.finish();

  if (json) {
    cli::JsonValue out = summaryJson(path, info, summary);
    inspectParams(sets, nullptr, &out);
    hdrinfo::inspectHdr(sets, hdr, info.codec, nullptr, &out);
    frames.print(nullptr, &out);
    cli::printJson(out);
  } else {
    printText(path, info, summary);
    inspectParams(sets, stdout, nullptr);
    hdrinfo::inspectHdr(sets, hdr, info.codec, stdout, nullptr);
    frames.print(stdout, nullptr);
  }
  return cli::kOk;
}
