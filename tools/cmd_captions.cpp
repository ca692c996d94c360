// quorvane captions extract: the CEA-608 captions of an H.264, HEVC or MPEG-2 stream as a
// Scenarist SCC file (byte pairs at their timecodes), as SRT text (decoded), or as JSON cues.
#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "caption_extract.h"
#include "cli.h"
#include "commands.h"
#include "media/command_input.h"
#include "media/output.h"
#include "platform/tcxlat.h"

namespace {

constexpr const char* kUsage =
    "usage: quorvane captions extract IN [-o OUT] [--format scc|srt] [--channel N] [-y] [--json]\n\n"
    "Reads the ATSC A/53 caption data (CEA-608 in cc_data) of every picture of the H.264, HEVC or\n"
    "MPEG-2 elementary stream IN, in display order, and writes:\n"
    "  -o OUT.scc           Scenarist SCC: the channel's byte pairs at their timecodes (the\n"
    "                       stream's own timecodes when it carries them, else counted from\n"
    "                       00:00:00:00 at the stream's rate)\n"
    "  -o OUT.srt           SubRip text decoded from the channel (pop-on, roll-up, paint-on)\n"
    "  -o -                 standard output (SRT unless --format scc)\n"
    "  --format scc|srt     output form when the extension does not say\n"
    "  --channel N          1..4: CC1, CC2 (field 1), CC3, CC4 (field 2); default 1\n"
    "  -y, --force          replace OUT when it exists\n"
    "  --json               list the decoded cues as JSON: {\"file\", \"codec\", \"channel\",\n"
    "                       \"pairs\", \"cues\":[{\"startFrame\", \"endFrame\", \"startMs\", \"endMs\",\n"
    "                       \"startTimecode\", \"text\"}]} (on stderr with -o -)\n"
    "Example: quorvane captions extract clip.264 -o clip.srt\n";

std::string timecodeText(uint32_t frames, uint32_t tcType) {
  char text[32] = {};
  tc2String(frames, tcType | TCF_FULL_TEXT, text, sizeof text);
  return text;
}

bool endsWith(const std::string& s, const char* tail) {
  const size_t n = std::strlen(tail);
  return s.size() >= n && s.compare(s.size() - n, n, tail) == 0;
}

}  // namespace

int cmdCaptions(int argc, char** argv) {
  cli::Command args("captions", "");
  args.usageText(kUsage).option("-o,--output", "").option("--format", "").option("--channel", "").forceFlag();
  media::addTrackOption(args);
  args.flag("--json", "").positionals("ARGS", "");
  if (auto exit = args.parse(argc, argv)) return *exit;
  const auto& pos = args.positional();
  if (pos.size() != 2 || pos[0] != "extract") return cli::fail("captions", "usage: quorvane captions extract IN -o OUT (see --help)");
  const std::string inPath = pos[1];
  const auto output = args.get("output");
  if (!output && !args.has("json")) return cli::fail("captions", "give -o OUT (.scc, .srt or -) or --json");
  const auto channel = args.get("channel") ? cli::parseU32(*args.get("channel")) : std::optional<uint32_t>(1);
  if (!channel || *channel < 1 || *channel > 4) return cli::fail("captions", "--channel takes 1, 2, 3 or 4");
  std::string format = args.get("format").value_or("");
  if (format.empty() && output) format = endsWith(*output, ".scc") ? "scc" : endsWith(*output, ".srt") || *output == "-" ? "srt" : "";
  if (output && format != "scc" && format != "srt")
    return cli::fail("captions", "cannot tell the output form of '%s': give --format scc or srt", output->c_str());
  if (output)
    if (int rc = cli::checkOutput("captions", *output, args.has("force"), {inPath}); rc != cli::kOk) return rc;

  int exitCode = 0;
  auto input = media::openInput("captions", inPath, args, exitCode);
  if (!input) return exitCode;
  std::unique_ptr<media::OutputFile> out;
  if (output) out = std::make_unique<media::OutputFile>(*output);
  if (out && !out->ok()) return cli::failWith(cli::kFailed, "captions", "cannot create %s: %s", output->c_str(), std::strerror(errno));
  const captions::TextForm form = !output ? captions::TextForm::kNone : format == "scc" ? captions::TextForm::kScc : captions::TextForm::kSrt;
  captions::Extraction e;
  std::string error;
  if (!captions::extract(*input, *channel, form, out.get(), args.has("json"), e, error))
    return cli::failWith(cli::kFailed, "captions", "%s: %s", inPath.c_str(), error.c_str());
  if (out && !out->commit())
    return cli::failWith(cli::kFailed, "captions", "cannot write %s: %s", output->c_str(), std::strerror(errno));
  const std::vector<captions::Cue>& cues = e.cues;
  if (args.has("json")) {
    static constexpr const char* kCodecs[] = {"h264", "hevc", "mpeg2", "unknown"};
    cli::JsonValue j{{"file", inPath}, {"codec", kCodecs[int(e.codec)]}, {"channel", *channel}, {"pairs", e.pairs},
                     {"cues", cli::JsonValue::array()}};
    for (const auto& c : cues) {
      j["cues"].push_back({{"startFrame", c.startFrame}, {"endFrame", c.endFrame},
                           {"startMs", std::llround(c.startFrame * 1000.0 / e.frameRate)},
                           {"endMs", std::llround(c.endFrame * 1000.0 / e.frameRate)},
                           {"startTimecode", timecodeText(c.startTimecode, e.tcType)}, {"text", c.text}});
    }
    // With the captions on standard output the JSON goes to stderr, as every command's summary
    // does then: each stream stays one readable document.
    cli::printJson(j, output && *output == "-" ? stderr : stdout);
  } else if (output && *output != "-") {
    std::printf("%s: %zu caption pair%s on CC%u, %zu cue%s -> %s\n", inPath.c_str(), e.pairs, e.pairs == 1 ? "" : "s",
                *channel, e.cueCount, e.cueCount == 1 ? "" : "s", output->c_str());
  }
  return cli::kOk;
}
