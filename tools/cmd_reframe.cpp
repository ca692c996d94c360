// quorvane reframe: a stream between start codes (Annex B) and 32-bit length prefixes, or
// copied through the frame pipeline into another file of its container kind. Each access unit
// is converted in place with the library's frame converters.
#include <cstring>
#include <string>

#include "cli.h"
#include "commands.h"
#include "media/command_input.h"
#include "media/pipeline.h"

namespace {

constexpr const char* kAbout =
    "usage: quorvane reframe [--to length|annexb] [--track N] [-y] [--json] IN OUT\n\n"
    "Copies the video of IN frame by frame into OUT through the frame pipeline.\n"
    "  --to length   elementary-stream OUT with 4-byte big-endian length prefixes, as MP4\n"
    "                samples hold them (three-byte start codes are widened)\n"
    "  --to annexb   elementary-stream OUT with 00 00 00 01 start codes\n"
    "IN is an elementary stream (H.264, HEVC, MPEG-2; start codes or length prefixes) or a\n"
    "container (MP4, MOV, Matroska/WebM, MPEG-TS, MXF), recognised by its content. OUT is an\n"
    "elementary stream when IN is one or OUT is named .h264/.264/.hevc/.265/.m2v (an avcC/hvcC\n"
    "record's parameter sets then lead it); otherwise the container kind of IN, or the one OUT's\n"
    "extension names (.mp4 .mov .mkv .ts .mxf), with every other track copied unchanged and the\n"
    "timing kept. OUT is written beside its final name and renamed when complete.\n"
    "IN and OUT may be '-' (standard input/output; the summary then goes to stderr). A progress\n"
    "bar is shown on a terminal.";
constexpr const char* kFooter =
    "--json shape: {\"in\", \"out\", \"output\": OUT's kind, \"to\": \"length\"|\"annexb\"|null,\n"
    "  \"codec\": \"h264\"|\"hevc\"|\"mpeg2\", \"frames\", \"pictures\", \"inBytes\", \"outBytes\"}\n"
    "  (bytes of the video track: the other tracks are copied as they are)\n"
    "Example: quorvane reframe --to length clip.hevc clip.len\n";

struct Target {
  const char* name;
  media::Framing framing;
};
constexpr Target kTargets[] = {{"length", media::Framing::kLengthPrefixed}, {"annexb", media::Framing::kAnnexB}};

// The pipeline does the framing; this editor only checks that a frame's framing can change.
class Reframer : public media::FrameEditor {
 public:
  bool begin(const media::PipelineStream& stream, std::vector<media::Bytes>&, std::string& error) override {
    if (stream.codec == StreamCodec::kMpeg2 && converting_) {
      error = "MPEG-2 video has start codes only: --to does not apply";
      return false;
    }
    return true;
  }
  bool edit(media::PipelineFrame&, std::string&) override { return true; }
  bool converting_ = false;
};

}  // namespace

int cmdReframe(int argc, char** argv) {
  cli::Command args("reframe", kAbout, kFooter);
  args.option("--to", "length or annexb: the framing of an elementary-stream OUT")
      .forceFlag()
      .flag("--json", "print one JSON object when done (shape below)")
      .positionals("FILES", "the input and the output file ('-': standard input/output)");
  media::addTrackOption(args);
  if (auto exit = args.parse(argc, argv)) return *exit;
  const Target* target = nullptr;
  if (auto to = args.get("to")) {
    for (const auto& t : kTargets)
      if (*to == t.name) target = &t;
    if (!target) return cli::fail("reframe", "--to takes length or annexb, not '%s'", to->c_str());
  }
  if (args.positional().size() != 2) return cli::fail("reframe", "expected IN and OUT (see quorvane reframe --help)");
  const std::string inPath = args.positional()[0], outPath = args.positional()[1];
  if (int rc = cli::checkOutput("reframe", outPath, args.has("force"), {inPath}); rc != cli::kOk) return rc;

  int exitCode = 0;
  auto input = media::openInput("reframe", inPath, args, exitCode);
  if (!input) return exitCode;
  Reframer editor;
  editor.converting_ = target != nullptr;
  media::PipelineOptions options;
  options.force = args.has("force");
  options.esFramingGiven = target != nullptr;
  if (target) options.esFraming = target->framing;
  options.label = "reframe";
  media::PipelineResult result;
  std::string error;
  if (!media::runPipeline(*input, outPath, editor, options, result, error))
    return cli::failWith(cli::kFailed, "reframe", "%s", error.c_str());

  FILE* report = result.toStdout ? stderr : stdout;
  if (args.has("json")) {
    cli::printJson({{"in", inPath},
                    {"out", outPath},
                    {"output", result.outKind},
                    {"to", target ? cli::JsonValue(target->name) : cli::JsonValue()},
                    {"codec", media::codecName(input->info().codec)},
                    {"frames", result.accessUnits},
                    {"pictures", result.pictures},
                    {"inBytes", result.inBytes},
                    {"outBytes", result.outBytes}},
                   report);
  } else {
    std::fprintf(report, "%s: %llu frames, %llu -> %llu bytes (%s%s%s)\n", outPath.c_str(),
                 static_cast<unsigned long long>(result.accessUnits), static_cast<unsigned long long>(result.inBytes),
                 static_cast<unsigned long long>(result.outBytes), result.outKind.c_str(), target ? ", " : "",
                 target ? target->name : "");
  }
  return cli::kOk;
}
