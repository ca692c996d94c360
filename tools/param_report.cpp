// See param_report.h.
#include "param_report.h"

#include <algorithm>
#include <cinttypes>

#include "platform/zrlog.h"
#include "stream_units.h"

namespace params {

namespace {

struct ProfileName {
  int idc;
  const char* name;
};
// general_profile_idc, ITU-T H.265 A.3.
constexpr ProfileName kHevcProfiles[] = {
    {1, "Main"}, {2, "Main 10"}, {3, "Main Still Picture"}, {4, "Range Extensions"},
    {5, "High Throughput"}, {6, "Multiview Main"}, {7, "Scalable Main"}, {8, "3D Main"},
    {9, "Screen Content Coding"}, {10, "Scalable Range Extensions"}, {11, "High Throughput Screen Content Coding"},
};
// profile_idc, ITU-T H.264 A.2 and Annexes G, H.
constexpr ProfileName kAvcProfiles[] = {
    {66, "Baseline"}, {77, "Main"}, {88, "Extended"}, {100, "High"}, {110, "High 10"},
    {122, "High 4:2:2"}, {244, "High 4:4:4 Predictive"}, {44, "CAVLC 4:4:4 Intra"},
    {83, "Scalable Baseline"}, {86, "Scalable High"}, {118, "Multiview High"}, {128, "Stereo High"},
    {134, "MFC High"}, {135, "MFC Depth High"}, {138, "Multiview Depth High"}, {139, "Enhanced Multiview Depth High"},
};

std::string profileName(const ProfileName* table, size_t count, int idc) {
  for (size_t i = 0; i < count; ++i)
    if (table[i].idc == idc) return table[i].name;
  return "profile " + std::to_string(idc);
}

std::string levelText(int idc, int divisor) {
  std::string text = std::to_string(idc / divisor);
  if (idc % divisor) text += "." + std::to_string((idc % divisor) * 10 / divisor);
  return text;
}

constexpr const char* kChromaNames[] = {"4:0:0", "4:2:0", "4:2:2", "4:4:4"};

bool sameUnitSeen(const std::vector<Bytes>& units, const uint8_t* data, size_t size) {
  return std::any_of(units.begin(), units.end(),
                     [&](const Bytes& u) { return u.size() == size && std::equal(u.begin(), u.end(), data); });
}

struct TextLister {
  FILE* out;
  const char* indent;
  static void sink(void* user, const char* name, int64_t value, int32_t) {
    auto* self = static_cast<TextLister*>(user);
    std::fprintf(self->out, "%s%s = %" PRId64 "\n", self->indent, name, value);
  }
};

struct JsonLister {
  cli::JsonValue elements = cli::JsonValue::array();
  static void sink(void* user, const char* name, int64_t value, int32_t) {
    static_cast<JsonLister*>(user)->elements.push_back({{"name", name}, {"value", value}});
  }
};

void list(StreamCodec codec, const char* kind, const Decoded& d, klxutilParamElementSink sink, void* user) {
  const std::string k = kind;
  if (codec == StreamCodec::kHevc) {
    if (k == "VPS" && d.hevcVps) klxutilList_HEVC_VPS(d.hevcVps.get(), sink, user);
    if (k == "SPS" && d.hevcSps) klxutilList_HEVC_SPS(d.hevcSps.get(), sink, user);
    if (k == "PPS" && d.hevcPps) klxutilList_HEVC_PPS(d.hevcPps.get(), sink, user);
  } else {
    if (k == "SPS" && d.avcSps) klxutilList_SPS(d.avcSps.get(), sink, user);
    if (k == "PPS" && d.avcPps) klxutilList_PPS(d.avcPps.get(), sink, user);
  }
}

// A reader's result: bytes read, 0 for nothing, 0xFFFFFFFF for a rejected unit.
bool readOk(uint32_t result) { return result != 0 && result != 0xFFFFFFFFu; }

zr_bitstream over(const Bytes& unit) {
  return zr_bitstream{const_cast<uint8_t*>(unit.data()), static_cast<int64_t>(unit.size()), unit.size() * 8, 0};
}

}  // namespace

LogCollector::LogCollector() { zrLogSetSink(&LogCollector::sink, this); }
LogCollector::~LogCollector() { cli::installLogSink(); }
void LogCollector::sink(void* user, int, uint32_t, uint32_t, uint32_t, const char* text) {
  static_cast<LogCollector*>(user)->lines_.emplace_back(text ? text : "");
}
std::string LogCollector::trimmed(std::string t) {
  while (!t.empty() && (t.front() == '\n' || t.front() == '\r')) t.erase(t.begin());
  while (!t.empty() && (t.back() == '\n' || t.back() == '\r')) t.pop_back();
  return t;
}

void addUnit(StreamParams& p, const uint8_t* unit, size_t size) {
  if (size == 0) return;
  const int type = units::header(p.codec, unit, size).type;
  std::vector<Bytes>* into = nullptr;
  if (p.codec == StreamCodec::kHevc)
    into = type == 32 ? &p.vps : type == 33 ? &p.sps : type == 34 ? &p.pps : nullptr;
  else if (p.codec == StreamCodec::kH264)
    into = type == 7 ? &p.sps : type == 8 ? &p.pps : nullptr;
  else if (p.codec == StreamCodec::kMpeg2 && size >= 2) {  // start code value first; extension ids 1 and 2
    const int extensionId = unit[0] == 0xB5 ? unit[1] >> 4 : 0;
    into = unit[0] == 0xB3        ? &p.sequenceHeaders
           : extensionId == 1 ? &p.sequenceExtensions
           : extensionId == 2 ? &p.sequenceDisplayExtensions
                              : nullptr;
    // Trailing zero bytes may be stuffing (a container's copy keeps what the stream's splitter
    // dropped): the same header compares equal without them, and reads the same.
    while (size > 2 && unit[size - 1] == 0) --size;
  }
  if (into && !sameUnitSeen(*into, unit, size)) into->emplace_back(unit, unit + size);
}

bool complete(const StreamParams& p) {
  return !p.sps.empty() && !p.pps.empty() && (p.codec != StreamCodec::kHevc || !p.vps.empty());
}

bool collectFrom(media::Input& input, StreamParams& out) {
  out.codec = input.info().codec;
  for (const auto& unit : input.info().parameterSets) addUnit(out, unit.data(), unit.size());
  media::AccessUnit au;
  while (input.next(au)) {
    for (const auto& s : au.units) addUnit(out, au.unit(s), s.size);
    if (complete(out) && au.picture.hasPicture) return true;
  }
  return input.error().empty();
}

Summary summarize(const HEVC_SPS_DECODED& sps, const HEVC_VPS_DECODED* vps) {
  Summary s;
  s.codec = "HEVC";
  s.profile = profileName(kHevcProfiles, std::size(kHevcProfiles), sps.ptl.general_profile_idc);
  s.level = levelText(sps.ptl.general_level_idc, 30);
  s.chromaFormat = std::clamp(sps.chroma_format_idc, 0, 3);
  const int subWidth = (s.chromaFormat == 1 || s.chromaFormat == 2) && !sps.separate_colour_plane_flag ? 2 : 1;
  const int subHeight = s.chromaFormat == 1 && !sps.separate_colour_plane_flag ? 2 : 1;
  s.width = sps.pic_width_in_luma_samples;
  s.height = sps.pic_height_in_luma_samples;
  if (sps.conformance_window_flag) {
    s.width -= subWidth * (sps.conf_win_left_offset + sps.conf_win_right_offset);
    s.height -= subHeight * (sps.conf_win_top_offset + sps.conf_win_bottom_offset);
  }
  s.bitDepthLuma = sps.bit_depth_luma_minus8 + 8;
  s.bitDepthChroma = sps.bit_depth_chroma_minus8 + 8;
  const HEVC_VUI_PARAMETERS& v = sps.vui;
  if (sps.vui_parameters_present_flag && v.vui_timing_info_present_flag) {
    s.rate = v.vui_time_scale;
    s.scale = v.vui_num_units_in_tick;
  } else if (vps && vps->vps_timing_info_present_flag) {
    s.rate = vps->vps_time_scale;
    s.scale = vps->vps_num_units_in_tick;
  }
  if (sps.vui_parameters_present_flag && v.field_seq_flag) {
    s.interlaced = true;  // one picture per field: the frame is two of them
    s.height *= 2;
    s.scale *= 2;
  }
  if (sps.vui_parameters_present_flag && v.video_signal_type_present_flag) {
    s.fullRange = v.video_full_range_flag == 1;
    if (v.colour_description_present_flag) {
      s.colourDescription = true;
      s.colourPrimaries = v.colour_primaries;
      s.transferCharacteristics = v.transfer_characteristics;
      s.matrixCoefficients = v.matrix_coeffs;
    }
  }
  return s;
}

Summary summarize(const SPS_DECODED& sps) {
  Summary s;
  s.codec = "H.264";
  s.profile = profileName(kAvcProfiles, std::size(kAvcProfiles), sps.profile_idc);
  if (sps.profile_idc == 66 && sps.constraint_set1_flag) s.profile = "Constrained Baseline";
  s.level = sps.level_idc == 11 && sps.constraint_set3_flag && sps.profile_idc <= 88 ? "1b" : levelText(sps.level_idc, 10);
  s.chromaFormat = std::clamp(sps.chroma_format_idc, 0, 3);
  const int arrayType = sps.separate_colour_plane_flag ? 0 : s.chromaFormat;
  const int subWidth = arrayType == 1 || arrayType == 2 ? 2 : 1;
  const int subHeight = arrayType == 1 ? 2 : 1;
  const int frameFactor = 2 - (sps.frame_mbs_only_flag ? 1 : 0);
  s.width = (sps.pic_width_in_mbs_minus1 + 1) * 16;
  s.height = frameFactor * (sps.pic_height_in_map_units_minus1 + 1) * 16;
  if (sps.frame_cropping_flag) {
    s.width -= subWidth * (sps.frame_crop_left_offset + sps.frame_crop_right_offset);
    s.height -= subHeight * frameFactor * (sps.frame_crop_top_offset + sps.frame_crop_bottom_offset);
  }
  s.interlaced = !sps.frame_mbs_only_flag;
  s.bitDepthLuma = sps.bit_depth_luma_minus8 + 8;
  s.bitDepthChroma = sps.bit_depth_chroma_minus8 + 8;
  const AVC_VUI_PARAMETERS& v = sps.vui;
  if (sps.vui_parameters_present_flag && v.timing_info_present_flag) {
    s.rate = v.time_scale;  // two ticks per frame (ITU-T H.264 E.2.1)
    s.scale = 2 * v.num_units_in_tick;
  }
  if (sps.vui_parameters_present_flag && v.video_signal_type_present_flag) {
    s.fullRange = v.video_full_range_flag == 1;
    if (v.colour_description_present_flag) {
      s.colourDescription = true;
      s.colourPrimaries = v.colour_primaries;
      s.transferCharacteristics = v.transfer_characteristics;
      s.matrixCoefficients = v.matrix_coefficients;
    }
  }
  return s;
}

Summary summarize(const KLX_MPEG2_SEQUENCE& seq) {
  Summary s;
  s.codec = "MPEG-2";
  const char* profile = klxutilMpeg2ProfileName(seq.profile_and_level_indication);
  const char* level = klxutilMpeg2LevelName(seq.profile_and_level_indication);
  s.profile = !seq.hasExtension ? "none" : profile ? profile : "profile " + std::to_string(seq.profile_and_level_indication);
  s.level = !seq.hasExtension ? "none" : level ? level : "reserved";
  s.width = int(seq.horizontal_size);
  s.height = int(seq.vertical_size);
  s.rate = seq.frameRate;
  s.scale = seq.frameRateScale;
  s.interlaced = !seq.progressive_sequence;
  s.chromaFormat = int(std::clamp(seq.chroma_format, 1u, 3u));
  if (seq.hasDisplayExtension && seq.colour_description) {  // the code points of ITU-T H.273
    s.colourDescription = true;
    s.colourPrimaries = int(seq.colour_primaries);
    s.transferCharacteristics = int(seq.transfer_characteristics);
    s.matrixCoefficients = int(seq.matrix_coefficients);
  }
  return s;
}

namespace {

// MPEG-2: the first sequence header with the first sequence extension (ISO/IEC 11172-2 streams
// have none) and the first sequence display extension (optional).
bool summarizeMpeg2(const StreamParams& sets, Summary& out) {
  if (sets.sequenceHeaders.empty()) return false;
  KLX_MPEG2_SEQUENCE seq;
  const Bytes& header = sets.sequenceHeaders.front();
  if (klxutilReadMpeg2SequenceHeader(header.data(), uint32_t(header.size()), &seq) != 0) return false;
  if (!sets.sequenceExtensions.empty()) {
    const Bytes& ext = sets.sequenceExtensions.front();
    if (klxutilReadMpeg2SequenceExtension(ext.data(), uint32_t(ext.size()), &seq) != 0) return false;
  }
  if (!sets.sequenceDisplayExtensions.empty()) {  // an unreadable one leaves the colour unspecified
    const Bytes& display = sets.sequenceDisplayExtensions.front();
    klxutilReadMpeg2SequenceDisplayExtension(display.data(), uint32_t(display.size()), &seq);
  }
  out = summarize(seq);
  return true;
}

}  // namespace

bool summarizeFirst(const StreamParams& sets, Summary& out) {
  if (sets.codec == StreamCodec::kMpeg2) return summarizeMpeg2(sets, out);
  Decoded d;
  if (sets.sps.empty() || !decodeUnit(sets.codec, "SPS", sets.sps.front(), d)) return false;
  if (sets.codec == StreamCodec::kHevc) {
    if (!sets.vps.empty()) decodeUnit(sets.codec, "VPS", sets.vps.front(), d);
    out = summarize(*d.hevcSps, d.hevcVps.get());
  } else {
    out = summarize(*d.avcSps);
  }
  return true;
}

std::string summaryLine(const Summary& s) {
  char rate[48] = "rate not signalled";
  if (s.rate && s.scale)  // the fraction in lowest terms: H.264's ticks are fields, 50/2 is 25/1
    std::snprintf(rate, sizeof rate, "%.3f fps (%s)", double(s.rate) / s.scale, cli::rateText(s.rate, s.scale).c_str());
  char colour[64] = "colour unspecified";
  if (s.colourDescription)
    std::snprintf(colour, sizeof colour, "colour %d/%d/%d", s.colourPrimaries, s.transferCharacteristics,
                  s.matrixCoefficients);
  char line[320];
  std::snprintf(line, sizeof line, "%s %s, level %s, %dx%d%s, %s, %s, %d-bit, %s, %s range", s.codec, s.profile.c_str(),
                s.level.c_str(), s.width, s.height, s.interlaced ? " interlaced" : "", rate,
                kChromaNames[s.chromaFormat], s.bitDepthLuma, colour, s.fullRange ? "full" : "video");
  return line;
}

cli::JsonValue summaryJson(const Summary& s) {
  const std::string_view codec = s.codec;
  cli::JsonValue out{{"codec", codec == "HEVC" ? "hevc" : codec == "MPEG-2" ? "mpeg2" : "h264"},  // the command's codec names
                     {"profile", s.profile},
                     {"level", s.level},
                     {"width", s.width},
                     {"height", s.height},
                     {"interlaced", s.interlaced},
                     {"rate", s.rate},
                     {"scale", s.scale}};
  out["fps"] = s.rate && s.scale ? cli::JsonValue(double(s.rate) / s.scale) : cli::JsonValue();
  out["chromaFormat"] = kChromaNames[s.chromaFormat];
  out["bitDepthLuma"] = s.bitDepthLuma;
  out["bitDepthChroma"] = s.bitDepthChroma;
  out["fullRange"] = s.fullRange;
  if (s.colourDescription) {
    out["colourPrimaries"] = s.colourPrimaries;
    out["transferCharacteristics"] = s.transferCharacteristics;
    out["matrixCoefficients"] = s.matrixCoefficients;
  }
  return out;
}

bool decodeUnit(StreamCodec codec, const char* kind, const Bytes& unit, Decoded& d) {
  const std::string k = kind;
  zr_bitstream s = over(unit);
  if (codec == StreamCodec::kHevc) {
    if (k == "VPS") {
      d.hevcVps = std::make_unique<HEVC_VPS_DECODED>();
      return readOk(klxutilRead_HEVC_VPS(&s, d.hevcVps.get(), nullptr, 0));
    }
    if (k == "SPS") {
      d.hevcSps = std::make_unique<HEVC_SPS_DECODED>();
      return readOk(klxutilRead_HEVC_SPS(&s, d.hevcSps.get(), nullptr, 0));
    }
    d.hevcPps = std::make_unique<HEVC_PPS_DECODED>();
    return readOk(klxutilRead_HEVC_PPS(&s, d.hevcPps.get(), nullptr, 0));
  }
  if (k == "SPS") {
    d.avcSps = std::make_unique<SPS_DECODED>();
    return klxutilRead_SPS(&s, d.avcSps.get()) > 0;
  }
  d.avcPps = std::make_unique<PPS_DECODED>();
  return klxutilRead_PPS(&s, d.avcPps.get()) > 0;
}

void listText(FILE* out, StreamCodec codec, const char* kind, const Decoded& d, const char* indent) {
  TextLister lister{out, indent};
  list(codec, kind, d, &TextLister::sink, &lister);
}

cli::JsonValue listJson(StreamCodec codec, const char* kind, const Decoded& d) {
  JsonLister lister;
  list(codec, kind, d, &JsonLister::sink, &lister);
  return lister.elements;
}

namespace {
// The parameter set's own id (vps_video_parameter_set_id, seq_ / pic_parameter_set_id).
int unitId(StreamCodec codec, const std::string& kind, const Decoded& d) {
  if (codec == StreamCodec::kHevc) {
    if (kind == "VPS" && d.hevcVps) return d.hevcVps->vps_video_parameter_set_id;
    if (kind == "SPS" && d.hevcSps) return d.hevcSps->sps_seq_parameter_set_id;
    if (kind == "PPS" && d.hevcPps) return d.hevcPps->pps_pic_parameter_set_id;
  } else {
    if (kind == "SPS" && d.avcSps) return d.avcSps->seq_parameter_set_id;
    if (kind == "PPS" && d.avcPps) return d.avcPps->pic_parameter_set_id;
  }
  return -1;
}
}  // namespace

void listUnitsText(FILE* out, StreamCodec codec, const char* kind, const std::vector<Bytes>& units, LogCollector& log) {
  for (size_t i = 0; i < units.size(); ++i) {
    log.clear();
    Decoded d;
    const bool ok = decodeUnit(codec, kind, units[i], d);
    // "#i" counts the distinct units; the id is the one slices and other sets refer to.
    if (const int id = ok ? unitId(codec, kind, d) : -1; id >= 0)
      std::fprintf(out, "%s #%zu (id %d, %zu bytes)\n", kind, i, id, units[i].size());
    else
      std::fprintf(out, "%s #%zu (%zu bytes)%s\n", kind, i, units[i].size(), ok ? "" : ": not readable");
    for (const auto& line : log.lines()) std::fprintf(out, "  report: %s\n", LogCollector::trimmed(line).c_str());
    if (ok) listText(out, codec, kind, d, "  ");
  }
  log.clear();
}

cli::JsonValue listUnitsJson(StreamCodec codec, const char* kind, const std::vector<Bytes>& units, LogCollector& log) {
  cli::JsonValue list = cli::JsonValue::array();
  for (const auto& unit : units) {
    log.clear();
    Decoded d;
    const bool ok = decodeUnit(codec, kind, unit, d);
    cli::JsonValue reports = cli::JsonValue::array();
    for (const auto& line : log.lines()) reports.push_back(LogCollector::trimmed(line));
    list.push_back({{"bytes", unit.size()},
                    {"valid", ok},
                    {"reports", std::move(reports)},
                    {"elements", ok ? listJson(codec, kind, d) : cli::JsonValue::array()}});
  }
  log.clear();
  return list;
}

}  // namespace params
