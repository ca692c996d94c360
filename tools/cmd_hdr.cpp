// quorvane hdr: set HDR static metadata SEI and the VUI colour description of an H.264 or HEVC
// elementary stream.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "media/command_input.h"
#include "media/pipeline.h"
#include "hdr_plan.h"
#include "inspect_hdr.h"
#include "streamutil/framing.h"

namespace {

constexpr const char* kAbout =
    "usage: quorvane hdr IN OUT [--master-display G(x,y)B(x,y)R(x,y)WP(x,y)L(max,min)]\n"
    "                    [--max-cll MaxCLL,MaxFALL] [--atc TRANSFER] [--remove WHAT] [--colour P,T,M]\n"
    "                    [--range limited|full] [--chroma-loc N] [--track N] [-y] [--length-prefixed]\n"
    "                    [--json]\n\n"
    "Writes OUT: IN with HDR metadata set. IN is an H.264 or HEVC elementary stream or a container\n"
    "(MP4, MOV, Matroska/WebM, MPEG-TS, MXF); OUT is of its kind (or the container kind its\n"
    "extension names), every other track copied unchanged, the avcC/hvcC SPS rewritten too;\n"
    "a Matroska or MP4/MOV track's own mastering display and light level follow the SEI.\n"
    "The SEI messages go into every access unit with an SPS or an IRAP/IDR picture, in front of\n"
    "its first slice, replacing the messages of the same kind already there (the others stay);\n"
    "--remove takes messages out of every access unit. OUT is never IN.";
constexpr const char* kFooter =
    "--master-display is in the notation of x265: chromaticities in 0.00002 units (G, B, R,\n"
    "  white point; 0..50000), luminance in 0.0001 cd/m2 (max above min), e.g.\n"
    "  'G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)'\n"
    "--json shape: {\"codec\": \"h264\"|\"hevc\", \"output\": OUT's kind, \"accessUnits\", \"spsRewritten\",\n"
    "  \"bytesIn\", \"bytesOut\"}\n"
    "Example: quorvane hdr in.hevc out.hevc --max-cll 1000,400 --colour bt2020,pq,bt2020nc\n";

std::vector<std::string> splitComma(const std::string& text) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (;;) {
    const size_t comma = text.find(',', start);
    parts.push_back(text.substr(start, comma - start));
    if (comma == std::string::npos) return parts;
    start = comma + 1;
  }
}

// Fills the plan from the options; "" on success, else the message.
std::string planFromArgs(const cli::Command& args, HdrPlan& plan) {
  using hdrinfo::ColourKind;
  if (auto md = args.get("master-display")) {
    if (klxutilParseMasteringDisplay(md->c_str(), &plan.metadata.masteringDisplay) != 0)
      return "bad --master-display '" + *md +
             "' (G(x,y)B(x,y)R(x,y)WP(x,y)L(max,min): primaries and white point 0..50000, "
             "maximum luminance above minimum)";
    plan.metadata.present |= KLX_HDR_HAS_MASTERING_DISPLAY;
  }
  if (auto cll = args.get("max-cll")) {
    auto parts = splitComma(*cll);
    auto maxCll = parts.size() == 2 ? cli::parseU32(parts[0]) : std::nullopt;
    auto maxFall = parts.size() == 2 ? cli::parseU32(parts[1]) : std::nullopt;
    if (!maxCll || !maxFall || *maxCll > 0xFFFF || *maxFall > 0xFFFF) return "bad --max-cll '" + *cll + "' (MaxCLL,MaxFALL)";
    plan.metadata.contentLightLevel = {static_cast<uint16_t>(*maxCll), static_cast<uint16_t>(*maxFall)};
    plan.metadata.present |= KLX_HDR_HAS_CONTENT_LIGHT_LEVEL;
  }
  if (auto atc = args.get("atc")) {
    auto code = hdrinfo::colourCode(ColourKind::kTransfer, *atc);
    if (!code) return "bad --atc '" + *atc + "' (a transfer name or 0..255)";
    plan.metadata.preferredTransferCharacteristics = static_cast<uint8_t>(*code);
    plan.metadata.present |= KLX_HDR_HAS_ALTERNATIVE_TRANSFER;
  }
  if (auto remove = args.get("remove")) {
    struct Name {
      const char* name;
      uint32_t bit;
    };
    constexpr Name kNames[] = {{"master-display", KLX_HDR_HAS_MASTERING_DISPLAY},
                               {"max-cll", KLX_HDR_HAS_CONTENT_LIGHT_LEVEL},
                               {"atc", KLX_HDR_HAS_ALTERNATIVE_TRANSFER},
                               {"all", KLX_HDR_HAS_MASTERING_DISPLAY | KLX_HDR_HAS_CONTENT_LIGHT_LEVEL | KLX_HDR_HAS_ALTERNATIVE_TRANSFER}};
    for (const auto& part : splitComma(*remove)) {
      const Name* found = nullptr;
      for (const Name& n : kNames)
        if (part == n.name) found = &n;
      if (!found) return "bad --remove '" + *remove + "' (master-display, max-cll, atc or all, comma-separated)";
      plan.remove |= found->bit;
    }
    if (plan.remove & plan.metadata.present) return "--remove takes out a message that another option sets: give one of them";
  }
  KLX_COLOUR_DESCRIPTION& c = plan.colour;
  if (auto colour = args.get("colour")) {
    auto parts = splitComma(*colour);
    auto p = parts.size() == 3 ? hdrinfo::colourCode(ColourKind::kPrimaries, parts[0]) : std::nullopt;
    auto t = parts.size() == 3 ? hdrinfo::colourCode(ColourKind::kTransfer, parts[1]) : std::nullopt;
    auto m = parts.size() == 3 ? hdrinfo::colourCode(ColourKind::kMatrix, parts[2]) : std::nullopt;
    if (!p || !t || !m) return "bad --colour '" + *colour + "' (primaries,transfer,matrix, e.g. bt2020,pq,bt2020nc)";
    c.colour_primaries = *p, c.transfer_characteristics = *t, c.matrix_coeffs = *m;
    c.set |= KLX_COLOUR_SET_PRIMARIES | KLX_COLOUR_SET_TRANSFER | KLX_COLOUR_SET_MATRIX;
  }
  if (auto range = args.get("range")) {
    if (*range != "limited" && *range != "full") return "bad --range '" + *range + "' (limited or full)";
    c.video_full_range_flag = *range == "full";
    c.set |= KLX_COLOUR_SET_RANGE;
  }
  if (auto loc = args.get("chroma-loc")) {
    auto v = cli::parseU32(*loc);
    if (!v || *v > 5) return "bad --chroma-loc '" + *loc + "' (0..5)";
    c.chroma_sample_loc_type_top_field = c.chroma_sample_loc_type_bottom_field = static_cast<int32_t>(*v);
    c.set |= KLX_COLOUR_SET_CHROMA_LOCATION;
  }
  if (!plan.metadata.present && !plan.remove && !c.set)
    return "nothing to do: give --master-display, --max-cll, --atc, --remove, --colour, --range or --chroma-loc";
  return "";
}

// The frame pipeline's editor: every SPS of the extradata (or of an elementary stream's head)
// is rewritten in begin(), each access unit in edit().
class HdrEditor : public media::FrameEditor {
 public:
  HdrEditor(HdrPlan& plan, bool lengthPrefixed) : plan_(plan), lengthPrefixed_(lengthPrefixed) {}

  bool begin(const media::PipelineStream& stream, std::vector<media::Bytes>& parameterSets, std::string& error) override {
    if (stream.codec != StreamCodec::kH264 && stream.codec != StreamCodec::kHevc)
      return error = "not H.264 or HEVC video", false;
    plan_.hevc = stream.codec == StreamCodec::kHevc;
    const bool fromExtradata = !parameterSets.empty();
    std::vector<media::Bytes> sets = fromExtradata ? parameterSets : stream.leadingParameterSets;
    if (!hdrParameterSets(plan_, sets, error)) return false;
    for (auto& unit : sets)
      if (auto it = plan_.spsRewrites.find(unit); it != plan_.spsRewrites.end()) unit = it->second;
    // An elementary stream's sets lead a container OUT only when they are replaced.
    if (fromExtradata || !stream.outContainer.empty()) parameterSets = std::move(sets);
    return true;
  }

  bool edit(media::PipelineFrame& pf, std::string& error) override {
    DFRAME& frame = *pf.frame;
    // --length-prefixed edits start-code frames as an MP4 host holds them.
    const bool convert = lengthPrefixed_ && pf.framing == media::Framing::kAnnexB;
    if (convert) {
      uint32_t prefixed = 0;
      if (klxUtilh264MarkerToSizeChecked(frame.pData, frame.nDataSize, frame.nBufferSize, &prefixed) != 0)
        return error = "access unit " + std::to_string(pf.decodeIndex) + ": no room to convert the access unit", false;
      frame.nDataSize = prefixed;
    }
    if (hdrAccessUnit(plan_, frame, convert || pf.framing == media::Framing::kLengthPrefixed, error) != 0)
      return error = "access unit " + std::to_string(pf.decodeIndex) + ": " + error, false;
    if (convert) frame.nDataSize = klxUtilh264SizeToMarker(frame.pData, frame.nDataSize);
    return true;
  }

  // A container keeps the track description in step with the SEI messages written and removed.
  media::ContainerHdr containerHdr() const override { return {plan_.metadata, plan_.remove}; }

 private:
  HdrPlan& plan_;
  bool lengthPrefixed_;
};

}  // namespace

int cmdHdr(int argc, char** argv) {
  cli::Command args("hdr", kAbout, kFooter);
  args.option("--master-display", "mastering display colour volume (SMPTE ST 2086): G(x,y)B(x,y)R(x,y)WP(x,y)L(max,min)")
      .option("--max-cll", "content light level (CTA-861.3): MaxCLL,MaxFALL in cd/m2")
      .option("--atc", "alternative transfer characteristics SEI (e.g. hlg or 18)")
      .option("--remove", "HDR SEI messages to take out: master-display, max-cll, atc or all (comma-separated)")
      .option("--colour", "colour primaries, transfer and matrix of every SPS, by name or number (bt2020,pq,bt2020nc or 9,16,9)")
      .option("--range", "limited or full (video_full_range_flag)")
      .option("--chroma-loc", "chroma sample location type 0..5 (both fields)")
      .forceFlag()
      .flag("--length-prefixed", "edit each access unit in 4-byte length-prefixed framing, as MP4 hosts hold it (an elementary-stream OUT keeps the framing of IN)")
      .flag("--json", "print a summary as one JSON object (shape below)")
      .positionals("FILES", "IN and OUT");
  media::addTrackOption(args);
  if (auto exit = args.parse(argc, argv)) return *exit;
  if (args.positional().size() != 2) return cli::fail("hdr", "give IN and OUT (see quorvane hdr --help)");
  const std::string inPath = args.positional()[0], outPath = args.positional()[1];
  HdrPlan plan;
  if (std::string problem = planFromArgs(args, plan); !problem.empty()) return cli::fail("hdr", "%s", problem.c_str());
  if (int rc = cli::checkOutput("hdr", outPath, args.has("force"), {inPath}); rc != cli::kOk) return rc;

  int exitCode = 0;
  auto input = media::openInput("hdr", inPath, args, exitCode);
  if (!input) return exitCode;
  HdrEditor editor(plan, args.has("length-prefixed"));
  media::PipelineOptions options;
  options.force = args.has("force");
  options.label = "hdr";
  media::PipelineResult result;
  std::string error;
  if (!media::runPipeline(*input, outPath, editor, options, result, error))
    return cli::failWith(cli::kFailed, "hdr", "%s: %s", inPath.c_str(), error.c_str());
  const uint64_t bytesIn = result.inBytes, bytesOut = result.outBytes;
  const uint64_t accessUnits = result.accessUnits;
  FILE* report = result.toStdout ? stderr : stdout;

  if (args.has("json")) {
    cli::printJson({{"codec", plan.hevc ? "hevc" : "h264"},
                    {"output", result.outKind},
                    {"accessUnits", accessUnits},
                    {"spsRewritten", plan.spsRewrites.size()},
                    {"bytesIn", bytesIn},
                    {"bytesOut", bytesOut}},
                   report);
  } else {
    std::fprintf(report, "%s: %llu access units, %zu SPS rewritten, %llu -> %llu bytes\n", plan.hevc ? "HEVC" : "H.264",
                static_cast<unsigned long long>(accessUnits), plan.spsRewrites.size(), static_cast<unsigned long long>(bytesIn),
                static_cast<unsigned long long>(bytesOut));
  }
  return cli::kOk;
}
