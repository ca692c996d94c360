// quorvane format: decode a signal-format word, or derive one from a measured raster and rate.
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "cli.h"
#include "commands.h"
#include "format_verbs.h"
#include "video/video.h"

namespace {

constexpr const char* kAbout =
    "usage: quorvane format [--video-range] [--json] WORD\n"
    "       quorvane format [--scan progressive|interlaced|psf] [--field-rate] [--video-range] [--json]\n"
    "                       WIDTHxHEIGHT RATE\n"
    "       quorvane format rate [--json] RATE\n"
    "       quorvane format tc [--json] FRAMES RATE TYPE\n"
    "       quorvane format play [--from N] [--range FIRST:END] [--steps N] [--json] SPEED\n\n"
    "Decodes a signal-format word (decimal or 0x hex): raster, scan, frame rate (and field rate\n"
    "of an interlaced word), timecode type, aspect ratio, colour matrix and its 20-character text.\n"
    "Given a raster and a rate instead, derives the word first and then decodes it. RATE counts\n"
    "frames per second: 1920x1080 50 is 50 progressive frames a second. With --scan interlaced\n"
    "it is still frames (1920x1080 25 --scan interlaced is 1080i, 25 frames of two fields) unless\n"
    "--field-rate says it counts fields (1920x1080 50 --scan interlaced --field-rate: the same).\n"
    "Without --scan the picture is progressive where the raster has a progressive format at that\n"
    "rate, else what the raster carries (720x576 25 is PAL, interlaced).\n"
    "  rate    how a rate is normalised and snapped, its timecode type and frame duration\n"
    "  tc      re-counts FRAMES from the timecode type of RATE into TYPE so that the timecode\n"
    "          reads the same\n"
    "  play    steps a transport at SPEED (1/4, -3/2, 0.5, 2; 1 = normal play) and prints\n"
    "          each step's frame, fraction (1/65520 frame) and periods shown";
constexpr const char* kFooter =
    "RATE: a pair (30000/1001), a whole number (25), a decimal (29.97, 23.976) or a timecode\n"
    "type name (29.97df, pal). TYPE: frames, 23.98, 24, 25, 29.97, 29.97df, 30, 50, 59.94,\n"
    "59.94df, 60 (also film, pal, drop-frame, non-drop-frame, film-drop and rate forms).\n"
    "--json shapes:\n"
    "  WORD:  {\"derivedFrom\" (when derived), \"word\": \"0x2380B21D\", \"value\", \"text\", \"width\",\n"
    "          \"height\", \"fieldHeight\", \"scan\": \"progressive\"|\"interlaced\"|\"psf\"|\"none\",\n"
    "          \"frameRate\": \"30000/1001\"|null, \"fieldRate\": \"60000/1001\"|null, \"fps\",\n"
    "          \"msPerFrame\", \"tcType\", \"tcTypeName\", \"aspect\": \"16:9\"|null, \"matrix\",\n"
    "          \"matrixName\"}\n"
    "  rate:  {\"rate\", \"fps\", \"normalized\", \"snapped\", \"snappedExact\", \"tcType\", \"tcTypeName\",\n"
    "          \"msPerFrame\", \"msPerFrameRounded\"}\n"
    "  tc:    {\"frames\", \"fromType\", \"fromTypeName\", \"fromTimecode\", \"toType\", \"toTypeName\",\n"
    "          \"converted\", \"toTimecode\"}\n"
    "  play:  {\"speed\", \"speedRatio\", \"from\", \"start\", \"length\", \"steps\": [{\"periods\",\n"
    "          \"frame\", \"fraction\"}]}\n"
    "Examples: quorvane format 0x2380B21D\n"
    "          quorvane format 1920x1080 30000/1001\n"
    "          quorvane format 1920x1080 25 --scan psf\n"
    "          quorvane format tc 107892 29.97 pal\n"
    "          quorvane format play 1/4 --from 100 --range 0:200 --steps 8\n";

using formatcli::kCommand;

struct MatrixName {
  int code;
  const char* name;
};
constexpr MatrixName kMatrixNames[] = {
    {VID_MATRIX_SD_FULL, "BT.601 full range"},   {VID_MATRIX_SD_VIDEO, "BT.601 video range"},
    {VID_MATRIX_HD_FULL, "BT.709 full range"},   {VID_MATRIX_HD_VIDEO, "BT.709 video range"},
    {VID_MATRIX_UHD_FULL, "BT.2020 full range"}, {VID_MATRIX_UHD_VIDEO, "BT.2020 video range"},
};
const char* matrixName(int code) {
  for (const auto& m : kMatrixNames)
    if (m.code == code) return m.name;
  return "unknown";
}

const char* scanName(uint32_t word) {
  if (word & VID_FMT_PROGRESSIVE) return "progressive";
  if (word & VID_FMT_INTERLACED) return "interlaced";
  if (word & VID_FMT_SEGMENTED) return "psf";
  return "none";
}

enum class Scan { kAny, kProgressive, kInterlaced, kPsf };

// The word for a raster, rate and scan. The library's last argument asks for the progressive
// 1080-line words; without it 1080 lines are interlaced, or segmented frame at 23.98 and 24.
// PsF at 25, 29.97 and 30 carries the interlaced word's raster and rate as a segmented word.
uint32_t deriveWord(uint32_t rate, uint32_t scale, int width, int height, Scan scan) {
  if (scan == Scan::kAny) {
    const uint32_t progressive = vidGetSignalFormat(rate, scale, width, height, 1);
    return progressive;
  }
  const uint32_t word = vidGetSignalFormat(rate, scale, width, height, scan == Scan::kProgressive ? 1 : 0);
  if (word == VID_FMT_INVALID) return word;
  const uint32_t wanted = scan == Scan::kProgressive ? VID_FMT_PROGRESSIVE
                          : scan == Scan::kInterlaced ? VID_FMT_INTERLACED
                                                      : VID_FMT_SEGMENTED;
  if (scan == Scan::kPsf && (word & VID_FMT_INTERLACED) && (word & 0x0FF00000u) == (VID_FMT_1080I & 0x0FF00000u)) {
    const uint32_t segmented = (word & ~VID_FMT_SCAN_MASK) | VID_FMT_SEGMENTED;
    char text[21];
    vidSignalFormatToStr20(segmented, text);
    if (std::strstr(text, "psf")) return segmented;
  }
  return (word & VID_FMT_SCAN_MASK) == wanted ? word : VID_FMT_INVALID;
}

struct Raster {
  int width = 0, height = 0;
};
std::optional<Raster> parseRaster(const std::string& text) {
  size_t x = text.find_first_of("xX");
  if (x == std::string::npos) return std::nullopt;
  auto w = cli::parseInt(text.substr(0, x));
  auto h = cli::parseInt(text.substr(x + 1));
  if (!w || !h || *w <= 0 || *w > 65535 || *h < -65535 || *h > 65535 || *h == 0) return std::nullopt;
  return Raster{static_cast<int>(*w), static_cast<int>(*h)};
}

struct Decoded {
  uint32_t word = 0;
  char text[21] = {};
  int width = 0, height = 0, fieldHeight = 0;
  bool rateKnown = false;
  uint32_t rate = 0, scale = 0;
  double fps = 0;
  int msPerFrame = 0;
  uint32_t tcType = 0;
  uint32_t aspect = 0;
  int matrix = 0;
};

bool decode(uint32_t word, uint32_t matrixFlags, Decoded& d) {
  d.word = word;
  if (word == VID_FMT_INVALID || vidImageSize(word, &d.width, &d.height, 0) != 0) return false;
  vidImageSize(word, &d.width, &d.fieldHeight, 1);
  vidSignalFormatToStr20(word, d.text);
  d.rateKnown = vidRateScale(word, &d.rate, &d.scale) == 0 && d.rate && d.scale;
  if (d.rateKnown) {
    d.fps = static_cast<double>(d.rate) / d.scale;
    d.msPerFrame = vidMsPerFrame(word, 0, 0);
  }
  d.tcType = vidGetFPSTCTypeSignalFormat(word);
  d.aspect = vidGetAspectRatio(word, d.width, d.height);
  d.matrix = GetMatrixBySize(d.width, d.height, matrixFlags);
  return true;
}

std::string hexWord(uint32_t word) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", word);
  return text;
}

std::string aspectText(uint32_t aspect) {
  if (!aspect) return "unknown";
  return std::to_string(aspect >> 16) + ":" + std::to_string(aspect & 0xFFFF);
}

void printText(const Decoded& d) {
  std::printf("word        %s\n", hexWord(d.word).c_str());
  std::printf("text        \"%s\"\n", d.text);
  std::printf("raster      %dx%d", d.width, d.height);
  if (d.fieldHeight != d.height) std::printf(" (field %dx%d)", d.width, d.fieldHeight);
  std::printf("\nscan        %s\n", scanName(d.word));
  if (d.rateKnown) {
    std::printf("rate        %s frames per second (%.3f fps, %d ms per frame)", cli::rateText(d.rate, d.scale).c_str(),
                d.fps, d.msPerFrame);
    if (d.word & VID_FMT_INTERLACED) std::printf(", %s fields per second", cli::rateText(d.rate * 2, d.scale).c_str());
    std::printf("\n");
  } else {
    std::printf("rate        unknown\n");
  }
  std::printf("timecode    %s (%u)\n", vidTCTypeName(d.tcType), d.tcType);
  std::printf("aspect      %s\n", aspectText(d.aspect).c_str());
  std::printf("matrix      %d (%s)\n", d.matrix, matrixName(d.matrix));
}

cli::JsonValue nullOr(bool known, cli::JsonValue value) { return known ? std::move(value) : cli::JsonValue(); }

void printJson(const Decoded& d, const std::optional<std::string>& derivedFrom) {
  cli::JsonValue out = cli::JsonValue::object();
  if (derivedFrom) out["derivedFrom"] = *derivedFrom;
  const bool interlaced = d.word & VID_FMT_INTERLACED;
  out.update({{"word", hexWord(d.word)},
              {"value", d.word},
              {"text", d.text},
              {"width", d.width},
              {"height", d.height},
              {"fieldHeight", d.fieldHeight},
              {"scan", scanName(d.word)},
              {"frameRate", nullOr(d.rateKnown, cli::rateText(d.rate, d.scale))},
              {"fieldRate", nullOr(d.rateKnown && interlaced, cli::rateText(d.rate * 2, d.scale))},
              {"fps", nullOr(d.rateKnown, d.fps)},
              {"msPerFrame", nullOr(d.rateKnown, d.msPerFrame)},
              {"tcType", d.tcType},
              {"tcTypeName", vidTCTypeName(d.tcType)},
              {"aspect", nullOr(d.aspect != 0, aspectText(d.aspect))},
              {"matrix", d.matrix},
              {"matrixName", matrixName(d.matrix)}});
  cli::printJson(out);
}

}  // namespace

int cmdFormat(int argc, char** argv) {
  cli::Command args(kCommand, kAbout, kFooter);
  args.option("--scan", "deriving: progressive, interlaced or psf (segmented frame)")
      .flag("--field-rate", "deriving: RATE counts fields of an interlaced picture")
      .flag("--video-range", "report the video-range colour matrix rather than the full-range one")
      .option("--from", "play: first frame (default 0)")
      .option("--range", "play: loop between frames FIRST:END (END excluded)")
      .option("--steps", "play: number of steps (default 10, at most 100000)")
      .flag("--json", "print one JSON object (shapes below)")
      .positionals("ARGS", "WORD, or WIDTHxHEIGHT RATE, or a verb and its arguments");
  if (auto exit = args.parse(argc, argv)) return *exit;
  const auto& pos = args.positional();
  const std::string verb = pos.empty() ? "" : pos[0];
  const bool playing = verb == "play";
  for (const char* option : {"from", "range", "steps"})
    if (args.has(option) && !playing) return cli::fail(kCommand, "--%s applies only to play", option);
  const bool decoding = verb != "play" && verb != "rate" && verb != "tc";
  for (const char* option : {"scan", "field-rate", "video-range"})
    if (args.has(option) && !decoding) return cli::fail(kCommand, "--%s does not apply to %s", option, verb.c_str());
  if (verb == "rate") return formatcli::runRate(args);
  if (verb == "tc") return formatcli::runTc(args);
  if (playing) return formatcli::runPlay(args);
  const uint32_t matrixFlags = args.has("video-range") ? VID_MATRIX_FLAG_VIDEO_RANGE : 0;
  uint32_t word = 0;
  std::optional<std::string> derivedFrom;
  if (pos.size() == 1) {
    if (args.has("scan") || args.has("field-rate"))
      return cli::fail(kCommand, "--scan and --field-rate apply only when deriving from a raster and rate");
    auto value = cli::parseU32(pos[0]);
    if (!value) return cli::fail(kCommand, "'%s' is not a format word (decimal or 0x hex)", pos[0].c_str());
    word = *value;
  } else if (pos.size() == 2) {
    auto raster = parseRaster(pos[0]);
    if (!raster) return cli::fail(kCommand, "'%s' is not a raster (WIDTHxHEIGHT, e.g. 1920x1080)", pos[0].c_str());
    auto rate = formatcli::parseRate(pos[1]);
    if (!rate) return cli::fail(kCommand, "'%s' is not a rate (30000/1001, 25, 29.97 or 29.97df)", pos[1].c_str());
    Scan scan = Scan::kAny;
    const std::string scanText = args.get("scan").value_or("");
    if (scanText == "progressive") scan = Scan::kProgressive;
    else if (scanText == "interlaced") scan = Scan::kInterlaced;
    else if (scanText == "psf") scan = Scan::kPsf;
    else if (!scanText.empty())
      return cli::fail(kCommand, "--scan takes progressive, interlaced or psf, not '%s'", scanText.c_str());
    if (args.has("field-rate")) {
      if (scan != Scan::kInterlaced) return cli::fail(kCommand, "--field-rate needs --scan interlaced");
      if (rate->scale > UINT32_MAX / 2) return cli::fail(kCommand, "'%s' is not a rate", pos[1].c_str());
      rate->scale *= 2;  // two fields make a frame
    }
    word = deriveWord(rate->rate, rate->scale, raster->width, raster->height, scan);
    // Said back as typed: "59.94" is what the user meant, its exact fraction 2997/50 is not.
    const std::string asked = pos[0] + " at " + pos[1] + (args.has("field-rate") ? " fields" : " frames") +
                              " per second" + (scanText.empty() ? "" : " " + scanText);
    if (word == VID_FMT_INVALID) return cli::failWith(cli::kFailed, kCommand, "no format word for %s", asked.c_str());
    derivedFrom = asked;
  } else {
    return cli::fail(kCommand, "give a format word, or a raster and a rate (see --help)");
  }

  Decoded d;
  if (!decode(word, matrixFlags, d))
    return cli::failWith(cli::kFailed, kCommand, "%s is not a valid format word (no raster)", hexWord(word).c_str());
  if (args.has("json"))
    printJson(d, derivedFrom);
  else
    printText(d);
  return cli::kOk;
}
