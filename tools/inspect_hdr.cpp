// Colour code names (ITU-T H.273) and the HDR section of `quorvane inspect`.
#include "inspect_hdr.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "param_report.h"
#include "streamutil/hdr_sei.h"
#include "streamutil/nal_units.h"

namespace hdrinfo {

namespace {

struct CodeName {
  int code;
  const char* name;  // the name printed
  const char* alias;  // another accepted spelling, or null
};

// ITU-T H.273 Tables 2, 3 and 4 (names as FFmpeg and the encoders spell them).
constexpr CodeName kPrimaries[] = {
    {1, "bt709", nullptr},       {2, "unspecified", "undef"}, {4, "bt470m", nullptr},
    {5, "bt470bg", nullptr},     {6, "smpte170m", nullptr},   {7, "smpte240m", nullptr},
    {8, "film", nullptr},        {9, "bt2020", nullptr},      {10, "smpte428", "xyz"},
    {11, "smpte431", "dci-p3"},  {12, "smpte432", "display-p3"}, {22, "ebu3213", nullptr},
};
constexpr CodeName kTransfer[] = {
    {1, "bt709", nullptr},         {2, "unspecified", "undef"},     {4, "bt470m", nullptr},
    {5, "bt470bg", nullptr},       {6, "smpte170m", nullptr},       {7, "smpte240m", nullptr},
    {8, "linear", nullptr},        {9, "log100", nullptr},          {10, "log316", nullptr},
    {11, "iec61966-2-4", nullptr}, {12, "bt1361e", nullptr},        {13, "srgb", "iec61966-2-1"},
    {14, "bt2020-10", nullptr},    {15, "bt2020-12", nullptr},      {16, "pq", "smpte2084"},
    {17, "smpte428", nullptr},     {18, "hlg", "arib-std-b67"},
};
constexpr CodeName kMatrix[] = {
    {0, "gbr", "rgb"},        {1, "bt709", nullptr},       {2, "unspecified", "undef"},
    {4, "fcc", nullptr},      {5, "bt470bg", nullptr},     {6, "smpte170m", nullptr},
    {7, "smpte240m", nullptr}, {8, "ycgco", nullptr},      {9, "bt2020nc", nullptr},
    {10, "bt2020c", nullptr}, {11, "smpte2085", nullptr},  {12, "chroma-derived-nc", nullptr},
    {13, "chroma-derived-c", nullptr}, {14, "ictcp", nullptr},
};

const CodeName* begin(ColourKind k, size_t& n) {
  switch (k) {
    case ColourKind::kPrimaries: n = std::size(kPrimaries); return kPrimaries;
    case ColourKind::kTransfer: n = std::size(kTransfer); return kTransfer;
    default: n = std::size(kMatrix); return kMatrix;
  }
}

// The first HDR SEI value of each kind in the stream (Annex B).

// Divided, not multiplied by 0.00002 / 0.0001: 7500 units are then the double nearest 0.15, where
// the product gave 0.15000000000000002 in the JSON.
constexpr double kChromaticityUnitsPerOne = 50000;
constexpr double kLuminanceUnitsPerCdm2 = 10000;
double chromaticity(uint32_t units) { return units / kChromaticityUnitsPerOne; }
double luminance(uint32_t units) { return units / kLuminanceUnitsPerCdm2; }
constexpr const char* kPrimaryNames[3] = {"green", "blue", "red"};

std::string label(ColourKind kind, int code) {
  const char* name = colourName(kind, code);
  return std::string(*name ? name : "reserved") + " (" + std::to_string(code) + ")";
}

void colourText(FILE* out, const params::Summary& s) {
  if (!s.colourDescription) {
    std::fprintf(out, "  colour description: none (unspecified), range %s\n", s.fullRange ? "full" : "limited");
    return;
  }
  std::fprintf(out, "  colour: primaries %s, transfer %s, matrix %s, range %s\n",
               label(ColourKind::kPrimaries, s.colourPrimaries).c_str(),
               label(ColourKind::kTransfer, s.transferCharacteristics).c_str(),
               label(ColourKind::kMatrix, s.matrixCoefficients).c_str(), s.fullRange ? "full" : "limited");
}

void hdrText(FILE* out, const KLX_HDR_METADATA& md) {
  if (md.present & KLX_HDR_HAS_MASTERING_DISPLAY) {
    const KLX_MASTERING_DISPLAY& m = md.masteringDisplay;
    std::fprintf(out, "  mastering display:");
    for (int c = 0; c < 3; ++c)
      std::fprintf(out, " %c(%.5f,%.5f)", "GBR"[c], chromaticity(m.display_primaries_x[c]),
                   chromaticity(m.display_primaries_y[c]));
    std::fprintf(out, " WP(%.5f,%.5f), luminance %.4f .. %.4f cd/m2\n", chromaticity(m.white_point_x),
                 chromaticity(m.white_point_y), luminance(m.max_display_mastering_luminance),
                 luminance(m.min_display_mastering_luminance));
  }
  if (md.present & KLX_HDR_HAS_CONTENT_LIGHT_LEVEL)
    std::fprintf(out, "  content light level: MaxCLL %u cd/m2, MaxFALL %u cd/m2\n",
                 md.contentLightLevel.max_content_light_level, md.contentLightLevel.max_pic_average_light_level);
  if (md.present & KLX_HDR_HAS_ALTERNATIVE_TRANSFER)
    std::fprintf(out, "  alternative transfer: %s\n",
                 label(ColourKind::kTransfer, md.preferredTransferCharacteristics).c_str());
  if (!md.present) std::fprintf(out, "  no HDR SEI (mastering display, content light level)\n");
}

cli::JsonValue hdrJson(const params::Summary& s, const KLX_HDR_METADATA& md) {
  cli::JsonValue j{{"colourDescription", s.colourDescription},
                   {"colourPrimaries", s.colourPrimaries},
                   {"colourPrimariesName", colourName(ColourKind::kPrimaries, s.colourPrimaries)},
                   {"transferCharacteristics", s.transferCharacteristics},
                   {"transferCharacteristicsName", colourName(ColourKind::kTransfer, s.transferCharacteristics)},
                   {"matrixCoefficients", s.matrixCoefficients},
                   {"matrixCoefficientsName", colourName(ColourKind::kMatrix, s.matrixCoefficients)},
                   {"range", s.fullRange ? "full" : "limited"}};
  if (md.present & KLX_HDR_HAS_MASTERING_DISPLAY) {
    const KLX_MASTERING_DISPLAY& m = md.masteringDisplay;
    cli::JsonValue primaries = cli::JsonValue::array();
    for (int c = 0; c < 3; ++c)
      primaries.push_back({{"colour", kPrimaryNames[c]},
                           {"x", chromaticity(m.display_primaries_x[c])},
                           {"y", chromaticity(m.display_primaries_y[c])}});
    j["masteringDisplay"] = {{"primaries", std::move(primaries)},
                             {"whitePoint", {{"x", chromaticity(m.white_point_x)}, {"y", chromaticity(m.white_point_y)}}},
                             {"maxLuminance", luminance(m.max_display_mastering_luminance)},
                             {"minLuminance", luminance(m.min_display_mastering_luminance)}};
  }
  if (md.present & KLX_HDR_HAS_CONTENT_LIGHT_LEVEL)
    j["contentLightLevel"] = {{"maxCll", md.contentLightLevel.max_content_light_level},
                              {"maxFall", md.contentLightLevel.max_pic_average_light_level}};
  if (md.present & KLX_HDR_HAS_ALTERNATIVE_TRANSFER) {
    j["alternativeTransfer"] = md.preferredTransferCharacteristics;
    j["alternativeTransferName"] = colourName(ColourKind::kTransfer, md.preferredTransferCharacteristics);
  }
  return j;
}

}  // namespace

const char* colourName(ColourKind kind, int code) {
  size_t n = 0;
  const CodeName* table = begin(kind, n);
  for (size_t i = 0; i < n; ++i)
    if (table[i].code == code) return table[i].name;
  return "";
}

std::optional<int> colourCode(ColourKind kind, std::string_view name) {
  size_t n = 0;
  const CodeName* table = begin(kind, n);
  for (size_t i = 0; i < n; ++i)
    if (name == table[i].name || (table[i].alias && name == table[i].alias)) return table[i].code;
  auto number = cli::parseInt(name);
  if (number && *number >= 0 && *number <= 255) return static_cast<int>(*number);
  return std::nullopt;
}

void addHdrSei(const uint8_t* frame, uint32_t size, bool lengthPrefixed, bool hevc, KLX_HDR_METADATA& found) {
  const uint32_t all = KLX_HDR_HAS_MASTERING_DISPLAY | KLX_HDR_HAS_CONTENT_LIGHT_LEVEL | KLX_HDR_HAS_ALTERNATIVE_TRANSFER;
  if ((found.present & all) == all) return;
  KLX_HDR_METADATA one{};
  if (klxutilReadHdrSei(frame, size, lengthPrefixed ? 0 : 1, hevc, &one) != 0) return;
  const uint32_t fresh = one.present & ~found.present;
  if (fresh & KLX_HDR_HAS_MASTERING_DISPLAY) found.masteringDisplay = one.masteringDisplay;
  if (fresh & KLX_HDR_HAS_CONTENT_LIGHT_LEVEL) found.contentLightLevel = one.contentLightLevel;
  if (fresh & KLX_HDR_HAS_ALTERNATIVE_TRANSFER) found.preferredTransferCharacteristics = one.preferredTransferCharacteristics;
  found.present |= fresh;
}

void inspectHdr(const params::StreamParams& sets, const KLX_HDR_METADATA& md, StreamCodec codec, FILE* out,
                cli::JsonValue* json) {
  if (codec != StreamCodec::kHevc && codec != StreamCodec::kH264 && codec != StreamCodec::kMpeg2) return;
  params::Summary summary;
  params::summarizeFirst(sets, summary);  // none readable: the colour stays unspecified
  if (json) {
    (*json)["hdr"] = hdrJson(summary, md);
    return;
  }
  std::fprintf(out, "hdr:\n");
  colourText(out, summary);
  if (codec != StreamCodec::kMpeg2) hdrText(out, md);  // MPEG-2 video has no HDR SEI
}

}  // namespace hdrinfo
