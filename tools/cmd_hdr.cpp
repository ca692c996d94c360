// quorvane hdr: set HDR static metadata SEI and the VUI colour description of an H.264 or HEVC
// elementary stream.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "access_units.h"
#include "cli.h"
#include "commands.h"
#include "hdr_plan.h"
#include "inspect_hdr.h"
#include "streamutil/framing.h"

namespace {

constexpr const char* kUsage =
    "usage: quorvane hdr IN OUT [--master-display G(x,y)B(x,y)R(x,y)WP(x,y)L(max,min)]\n"
    "                    [--max-cll MaxCLL,MaxFALL] [--atc TRANSFER] [--colour P,T,M]\n"
    "                    [--range limited|full] [--chroma-loc N] [-y] [--length-prefixed] [--json]\n\n"
    "Writes OUT: the H.264 or HEVC elementary stream IN with HDR metadata set.\n"
    "  --master-display S  mastering display colour volume (SMPTE ST 2086) in the notation of\n"
    "                      x265: chromaticities in 0.00002 units (G, B, R, white point),\n"
    "                      luminance in 0.0001 cd/m2, e.g.\n"
    "                      'G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)'\n"
    "  --max-cll C,F       content light level (CTA-861.3): MaxCLL and MaxFALL in cd/m2\n"
    "  --atc TRANSFER      alternative transfer characteristics SEI (e.g. hlg or 18)\n"
    "  --colour P,T,M      colour primaries, transfer characteristics and matrix of every SPS,\n"
    "                      by name or number (e.g. bt2020,pq,bt2020nc or 9,16,9)\n"
    "  --range R           limited or full (video_full_range_flag)\n"
    "  --chroma-loc N      chroma sample location type 0..5 (both fields)\n"
    "  -y, --force         overwrite an existing OUT\n"
    "  --length-prefixed   edit each access unit in 4-byte length-prefixed framing, as MP4\n"
    "                      hosts hold it (the output is start-code framed either way)\n"
    "  --json              print a summary as JSON\n"
    "The SEI messages go into every access unit with an SPS or an IRAP/IDR picture, in front of\n"
    "its first slice, replacing the messages of the same kind already there. OUT is never IN.\n";

bool sameFile(const std::string& a, const std::string& b) {
  std::error_code ec;
  return std::filesystem::exists(b, ec) && std::filesystem::equivalent(a, b, ec);
}

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
std::string planFromArgs(const cli::Args& args, HdrPlan& plan) {
  using hdrinfo::ColourKind;
  if (auto md = args.get("master-display")) {
    if (klxutilParseMasteringDisplay(md->c_str(), &plan.metadata.masteringDisplay) != 0)
      return "bad --master-display '" + *md + "' (G(x,y)B(x,y)R(x,y)WP(x,y)L(max,min))";
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
  if (!plan.metadata.present && !c.set) return "nothing to do: give --master-display, --max-cll, --atc, --colour, --range or --chroma-loc";
  return "";
}

// Written beside OUT and renamed over it only when complete.
class PartialOutput {
 public:
  explicit PartialOutput(const std::string& target) : target_(target), path_(target + ".partial") {
    file_ = std::fopen(path_.c_str(), "wb");
  }
  ~PartialOutput() {
    if (file_) std::fclose(file_);
    if (!committed_) std::remove(path_.c_str());
  }
  bool ok() const { return file_ != nullptr; }
  bool write(const uint8_t* p, size_t n) { return std::fwrite(p, 1, n, file_) == n; }
  bool commit() {
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    committed_ = closed && std::rename(path_.c_str(), target_.c_str()) == 0;
    return committed_;
  }

 private:
  std::string target_, path_;
  FILE* file_ = nullptr;
  bool committed_ = false;
};

// Edits one access unit in the framing asked for; the result is start-code framed.
int editAccessUnit(const HdrPlan& plan, std::vector<uint8_t>& buffer, DFRAME& frame, bool lengthPrefixed,
                   std::string& error) {
  if (!lengthPrefixed) return hdrAccessUnit(plan, frame, false, error);
  uint32_t prefixed = 0;
  if (klxUtilh264MarkerToSizeChecked(frame.pData, frame.nDataSize, frame.nBufferSize, &prefixed) != 0)
    return error = "no room to convert the access unit", -1;
  frame.nDataSize = prefixed;
  if (hdrAccessUnit(plan, frame, true, error) != 0) return -1;
  frame.nDataSize = klxUtilh264SizeToMarker(buffer.data(), frame.nDataSize);
  return 0;
}

}  // namespace

int cmdHdr(int argc, char** argv) {
  cli::Args args;
  std::vector<char*> rewritten(argv, argv + argc);
  for (auto& a : rewritten)
    if (!std::strcmp(a, "-y")) a = const_cast<char*>("--force");
  if (!args.parse(argc, rewritten.data(), {"master-display", "max-cll", "atc", "colour", "range", "chroma-loc"},
                  {"force", "length-prefixed", "json"}))
    return cli::fail("hdr", "%s", args.error().c_str());
  if (args.has("help")) {
    std::fputs(kUsage, stdout);
    return cli::kOk;
  }
  if (args.positional().size() != 2) return cli::fail("hdr", "give IN and OUT (see quorvane hdr --help)");
  const std::string inPath = args.positional()[0], outPath = args.positional()[1];
  HdrPlan plan;
  if (std::string problem = planFromArgs(args, plan); !problem.empty()) return cli::fail("hdr", "%s", problem.c_str());
  if (inPath == outPath || sameFile(inPath, outPath)) return cli::fail("hdr", "OUT must not be IN");
  std::error_code ec;
  if (std::filesystem::exists(outPath, ec) && !args.has("force"))
    return cli::fail("hdr", "%s exists (give -y to overwrite it)", outPath.c_str());

  auto input = cli::readFile(inPath);
  if (!input) return cli::failWith(cli::kFailed, "hdr", "cannot read %s: %s", inPath.c_str(), std::strerror(errno));
  const auto* data = reinterpret_cast<const uint8_t*>(input->data());
  const size_t size = input->size();
  if (size > 0xFFFFFFF0u) return cli::failWith(cli::kFailed, "hdr", "%s is too large", inPath.c_str());
  const StreamCodec codec = detectCodec(data, size, listNalUnits(data, size));
  std::vector<AccessUnitRef> aus;
  std::string error;
  if (!splitAccessUnits(data, size, codec, aus, error))
    return cli::failWith(cli::kFailed, "hdr", "%s: %s", inPath.c_str(), error.c_str());
  plan.hevc = codec == StreamCodec::kHevc;

  // (a) the stream pass: every parameter-set unit of the stream.
  std::vector<std::vector<uint8_t>> parameterSets;
  for (const auto& au : aus)
    for (const auto& u : au.units)
      if ((plan.hevc && u.type >= 32 && u.type <= 34) || (!plan.hevc && (u.type == 7 || u.type == 8)))
        parameterSets.emplace_back(data + u.header, data + u.end);
  if (!hdrParameterSets(plan, parameterSets, error)) return cli::failWith(cli::kFailed, "hdr", "%s: %s", inPath.c_str(), error.c_str());

  // (b) access unit by access unit.
  PartialOutput out(outPath);
  if (!out.ok()) return cli::failWith(cli::kFailed, "hdr", "cannot create %s: %s", outPath.c_str(), std::strerror(errno));
  const bool lengthPrefixed = args.has("length-prefixed");
  cli::Progress progress("hdr", aus.size());
  std::vector<uint8_t> buffer;
  uint64_t bytesIn = 0, bytesOut = 0;
  for (size_t i = 0; i < aus.size(); ++i) {
    const size_t length = aus[i].end - aus[i].begin;
    buffer.assign(length + kHdrSpareBytes + length / 2 + 16, 0);  // length prefixes may widen 3-byte codes
    std::memcpy(buffer.data(), data + aus[i].begin, length);
    DFRAME frame;
    klxutilInitFrame(&frame, buffer.data(), static_cast<uint32_t>(length), static_cast<uint32_t>(buffer.size()));
    if (editAccessUnit(plan, buffer, frame, lengthPrefixed, error) != 0)
      return cli::failWith(cli::kFailed, "hdr", "access unit %zu: %s", i, error.c_str());
    if (!out.write(frame.pData, frame.nDataSize))
      return cli::failWith(cli::kFailed, "hdr", "cannot write %s: %s", outPath.c_str(), std::strerror(errno));
    bytesIn += length, bytesOut += frame.nDataSize;
    progress.update(i + 1);
  }
  if (!out.commit()) return cli::failWith(cli::kFailed, "hdr", "cannot write %s: %s", outPath.c_str(), std::strerror(errno));

  if (args.has("json")) {
    cli::Json j;
    j.beginObject().str("codec", plan.hevc ? "hevc" : "h264").num("accessUnits", int64_t(aus.size()));
    j.num("spsRewritten", int64_t(plan.spsRewrites.size())).num("bytesIn", int64_t(bytesIn)).num("bytesOut", int64_t(bytesOut));
    j.endObject();
    std::printf("%s\n", j.text().c_str());
  } else {
    std::printf("%s: %zu access units, %zu SPS rewritten, %llu -> %llu bytes\n", plan.hevc ? "HEVC" : "H.264",
                aus.size(), plan.spsRewrites.size(), static_cast<unsigned long long>(bytesIn),
                static_cast<unsigned long long>(bytesOut));
  }
  return cli::kOk;
}
