// quorvane format: decode a signal-format word, or derive one from a measured raster and rate.
#include <cinttypes>
#include <cstdio>
#include <optional>
#include <string>

#include "cli.h"
#include "commands.h"
#include "format_verbs.h"
#include "video/video.h"

namespace {

constexpr const char* kUsage =
    "usage: quorvane format [--video-range] [--json] WORD\n"
    "       quorvane format [--psf] [--video-range] [--json] WIDTHxHEIGHT RATE\n"
    "       quorvane format rate [--json] RATE\n"
    "       quorvane format tc [--json] FRAMES RATE TYPE\n"
    "       quorvane format play [--from N] [--range FIRST:END] [--steps N] [--json] SPEED\n\n"
    "Decodes a signal-format word (decimal or 0x hex): raster, scan, rate pair, timecode type,\n"
    "aspect ratio, colour matrix and its 20-character text. Given a measured raster and rate\n"
    "instead, derives the word first and then decodes it.\n"
    "  rate    how a rate is normalised and snapped, its timecode type and frame duration\n"
    "  tc      re-counts FRAMES from the timecode type of RATE into TYPE (frames, film,\n"
    "          non-drop-frame, drop-frame, pal, 50, 59.94, 60, film-drop) so that the\n"
    "          timecode reads the same\n"
    "  play    steps a transport at SPEED (1/4, -3/2, 0.5, 2; 1 = normal play) and prints\n"
    "          each step's frame, fraction (1/65520 frame) and periods shown\n"
    "  RATE            a pair (30000/1001), a whole number (25) or a decimal (29.97, 23.976)\n"
    "  --psf           a 1080-line picture is progressive (at 23.98/24: not segmented frame)\n"
    "  --video-range   report the video-range colour matrix rather than the full-range one\n"
    "  --from N        play: first frame (default 0)\n"
    "  --range F:E     play: loop between frames F and E (E excluded)\n"
    "  --steps N       play: number of steps (default 10, at most 100000)\n"
    "  --json          print one JSON object\n"
    "Examples: quorvane format 0x2380B21D\n"
    "          quorvane format 1920x1080 30000/1001 --psf\n"
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
  if (word & VID_FMT_SEGMENTED) return "segmented frame";
  return "none";
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
  if (d.rateKnown)
    std::printf("rate        %u/%u (%.3f fps, %d ms per frame)\n", d.rate, d.scale, d.fps, d.msPerFrame);
  else
    std::printf("rate        unknown\n");
  std::printf("timecode    %s (%u)\n", formatcli::tcTypeName(d.tcType), d.tcType);
  std::printf("aspect      %s\n", aspectText(d.aspect).c_str());
  std::printf("matrix      %d (%s)\n", d.matrix, matrixName(d.matrix));
}

void printJson(const Decoded& d, const std::optional<std::string>& derivedFrom) {
  cli::Json out;
  out.beginObject();
  if (derivedFrom) out.str("derivedFrom", *derivedFrom);
  out.str("word", hexWord(d.word)).num("value", int64_t{d.word}).str("text", d.text);
  out.num("width", int64_t{d.width}).num("height", int64_t{d.height}).num("fieldHeight", int64_t{d.fieldHeight});
  out.str("scan", scanName(d.word));
  if (d.rateKnown)
    out.num("rate", int64_t{d.rate}).num("scale", int64_t{d.scale}).num("fps", d.fps).num("msPerFrame", int64_t{d.msPerFrame});
  else
    out.null("rate").null("scale").null("fps").null("msPerFrame");
  out.num("tcType", int64_t{d.tcType}).str("tcTypeName", formatcli::tcTypeName(d.tcType));
  if (d.aspect)
    out.str("aspect", aspectText(d.aspect));
  else
    out.null("aspect");
  out.num("matrix", int64_t{d.matrix}).str("matrixName", matrixName(d.matrix));
  std::printf("%s\n", out.endObject().text().c_str());
}

}  // namespace

int cmdFormat(int argc, char** argv) {
  cli::Args args;
  if (!args.parse(argc, argv, {"from", "range", "steps"}, {"json", "psf", "video-range"}))
    return cli::fail(kCommand, "%s", args.error().c_str());
  if (args.has("help")) {
    std::fputs(kUsage, stdout);
    return cli::kOk;
  }
  const auto& pos = args.positional();
  const std::string verb = pos.empty() ? "" : pos[0];
  const bool playing = verb == "play";
  for (const char* option : {"from", "range", "steps"})
    if (args.has(option) && !playing) return cli::fail(kCommand, "--%s applies only to play", option);
  const bool decoding = verb != "play" && verb != "rate" && verb != "tc";
  for (const char* option : {"psf", "video-range"})
    if (args.has(option) && !decoding) return cli::fail(kCommand, "--%s does not apply to %s", option, verb.c_str());
  if (verb == "rate") return formatcli::runRate(args);
  if (verb == "tc") return formatcli::runTc(args);
  if (playing) return formatcli::runPlay(args);
  const uint32_t matrixFlags = args.has("video-range") ? VID_MATRIX_FLAG_VIDEO_RANGE : 0;
  uint32_t word = 0;
  std::optional<std::string> derivedFrom;
  if (pos.size() == 1) {
    if (args.has("psf")) return cli::fail(kCommand, "--psf applies only when deriving from a raster and rate");
    auto value = cli::parseU32(pos[0]);
    if (!value) return cli::fail(kCommand, "'%s' is not a format word (decimal or 0x hex)", pos[0].c_str());
    word = *value;
  } else if (pos.size() == 2) {
    auto raster = parseRaster(pos[0]);
    if (!raster) return cli::fail(kCommand, "'%s' is not a raster (WIDTHxHEIGHT, e.g. 1920x1080)", pos[0].c_str());
    auto rate = formatcli::parseRate(pos[1]);
    if (!rate) return cli::fail(kCommand, "'%s' is not a rate (30000/1001, 25 or 29.97)", pos[1].c_str());
    word = vidGetSignalFormat(rate->rate, rate->scale, raster->width, raster->height, args.has("psf"));
    if (word == VID_FMT_INVALID)
      return cli::failWith(cli::kFailed, kCommand, "no format word for %dx%d at %u/%u", raster->width, raster->height,
                           rate->rate, rate->scale);
    derivedFrom = pos[0] + " " + std::to_string(rate->rate) + "/" + std::to_string(rate->scale) +
                  (args.has("psf") ? " psf" : "");
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
