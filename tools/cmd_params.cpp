// quorvane params: the VPS/SPS/PPS of an H.264 or HEVC elementary stream, with a summary line.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cli.h"
#include "commands.h"
#include "param_report.h"
#include "media/command_input.h"
#include "stream_units.h"

namespace {

constexpr const char* kAbout =
    "usage: quorvane params FILE [--json] [--track N]\n\n"
    "Prints the parameter sets (HEVC VPS/SPS/PPS, H.264 SPS/PPS) of an elementary stream or of the\n"
    "video track of a container (MP4, MOV, Matroska/WebM, MPEG-TS, MXF; those of an avcC/hvcC\n"
    "record first, then those in the stream up to the first picture; the rest is not read):\n"
    "a summary line (picture size, rate, profile, level, chroma format, bit depth, colour\n"
    "description) and every syntax element of each distinct parameter set. The codec is detected.";
constexpr const char* kFooter =
    "--json shape: {\"file\", \"codec\": \"h264\"|\"hevc\", \"summary\": {\"codec\", \"profile\", \"level\",\n"
    "  \"width\", \"height\", \"interlaced\", \"rate\", \"scale\", \"fps\", \"chromaFormat\", \"bitDepthLuma\",\n"
    "  \"bitDepthChroma\", \"fullRange\", [\"colourPrimaries\", \"transferCharacteristics\",\n"
    "  \"matrixCoefficients\"]}, \"vps\" (HEVC only), \"sps\", \"pps\": [{\"bytes\", \"valid\", \"reports\": [TEXT],\n"
    "  \"elements\": [{\"name\": syntax element, \"value\": N}]}]}\n"
    "Example: quorvane params clip.hevc --json\n";

struct Kind {
  const char* name;  // "VPS", "SPS", "PPS"
  const char* key;   // JSON key
  const std::vector<params::Bytes>* units;
};

}  // namespace

int cmdParams(int argc, char** argv) {
  cli::Command args("params", kAbout, kFooter);
  args.flag("--json", "print one JSON object (shape below)").positionals("FILE", "the stream or container, or - for an elementary stream on standard input");
  media::addTrackOption(args);
  if (auto exit = args.parse(argc, argv)) return *exit;
  if (args.positional().size() != 1) return cli::fail("params", "expected one stream file (see --help)");
  const std::string& path = args.positional()[0];
  int exitCode = 0;
  auto input = media::openInput("params", path, args, exitCode);
  if (!input) return exitCode;
  if (input->info().codec != StreamCodec::kHevc && input->info().codec != StreamCodec::kH264)
    return cli::failWith(cli::kFailed, "params", "%s: %s has no parameter sets to list (H.264 and HEVC have)", path.c_str(),
                         media::describe(input->info()).c_str());
  params::LogCollector log;  // reader reports are shown with the unit they concern
  params::StreamParams sets;
  if (!params::collectFrom(*input, sets))
    return cli::failWith(cli::kFailed, "params", "%s: %s", path.c_str(), input->error().c_str());
  if (sets.sps.empty()) return cli::failWith(cli::kFailed, "params", "%s has no sequence parameter set", path.c_str());

  const Kind kinds[] = {{"VPS", "vps", &sets.vps}, {"SPS", "sps", &sets.sps}, {"PPS", "pps", &sets.pps}};
  // The summary comes from the first SPS (and first VPS for HEVC timing).
  params::Decoded first;
  log.clear();
  if (!params::decodeUnit(sets.codec, "SPS", sets.sps.front(), first))
    return cli::failWith(cli::kFailed, "params", "the first sequence parameter set of %s is not readable", path.c_str());
  if (sets.codec == StreamCodec::kHevc && !sets.vps.empty()) params::decodeUnit(sets.codec, "VPS", sets.vps.front(), first);
  log.clear();
  params::Summary summary = sets.codec == StreamCodec::kHevc
                                ? params::summarize(*first.hevcSps, first.hevcVps.get())
                                : params::summarize(*first.avcSps);

  if (args.has("json")) {
    cli::JsonValue json{{"file", path}, {"codec", units::codecName(sets.codec)}, {"summary", params::summaryJson(summary)}};
    for (const Kind& k : kinds) {
      if (sets.codec == StreamCodec::kH264 && std::string(k.name) == "VPS") continue;
      json[k.key] = params::listUnitsJson(sets.codec, k.name, *k.units, log);
    }
    cli::printJson(json);
    return cli::kOk;
  }
  std::printf("%s: %s\n%s\n", path.c_str(), units::codecName(sets.codec), params::summaryLine(summary).c_str());
  for (const Kind& k : kinds) params::listUnitsText(stdout, sets.codec, k.name, *k.units, log);
  return cli::kOk;
}
