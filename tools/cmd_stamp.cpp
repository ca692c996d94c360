// quorvane stamp: SMPTE timecode and CEA-608 captions into every access unit of an H.264 or
// HEVC elementary stream, replacing what the stream carried before.
//
// Two pieces are kept apart so that other front ends (container demuxers) can feed them:
// prepareStampPlan works on the stream's parameter-set units once, stampAccessUnit edits one
// access unit in either framing.
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "media/command_input.h"
#include "media/pipeline.h"
#include "stamp_plan.h"
#include "video/tctype_names.h"
#include "platform/tcxlat.h"
#include "streamutil/captions.h"
#include "streamutil/framing.h"
#include "streamutil/hevc_params.h"
#include "streamutil/mpeg2_sequence.h"
#include "streamutil/scc.h"
#include "streamutil/sei.h"
#include "streamutil/sei_read.h"
#include "streamutil/sei_remove.h"
#include <algorithm>

namespace {

constexpr const char* kUsage =
    "usage: quorvane stamp IN OUT --tc HH:MM:SS:FF [--rate R] [--captions FILE.scc] [--fields]\n"
    "                      [--keep-existing] [--length-prefixed] [--track N] [-y] [--json]\n\n"
    "Writes OUT: IN with every picture stamped. IN is an H.264 or HEVC elementary stream or a\n"
    "container (MP4, MOV, Matroska/WebM, MPEG-TS, MXF), or an MPEG-2 elementary stream. OUT is\n"
    "of the kind of IN (or the container kind its extension names), every other track copied\n"
    "unchanged; it is written frame by frame beside its final name and renamed when complete.\n"
    "  --tc HH:MM:SS:FF     timecode of the first picture in display order (';' before the\n"
    "                       frames is accepted for drop-frame rates)\n"
    "  --rate R             timecode rate: 23.98, 24, 25, 29.97df (drop-frame), 29.97, 30,\n"
    "                       50, 59.94df, 59.94 or 60 (or 30000/1001, drop-frame, pal... as\n"
    "                       everywhere); default: the stream's frame rate (VUI timing, not\n"
    "                       its field rate), else the container's, else 25; 29.97 and 59.94\n"
    "                       are then counted drop-frame\n"
    "  --captions FILE.scc  CEA-608 captions from a Scenarist SCC file, each byte pair in the\n"
    "                       picture shown at its timecode (SCC times are on the --tc clock)\n"
    "  --fields             each coded picture is one field: two pictures share a timecode\n"
    "                       (without it: H.264 field_pic_flag and MPEG-2 picture_structure\n"
    "                       say it picture by picture, HEVC the SPS's field_seq_flag)\n"
    "  --keep-existing      refuse, writing nothing, when IN already carries timecode or\n"
    "                       captions (by default they are replaced)\n"
    "  --length-prefixed    edit each frame in length-prefixed framing, as MP4 hosts hold it\n"
    "                       (an elementary-stream OUT keeps the framing of IN)\n"
    "  --track N            the video track of a container (as ffprobe numbers them)\n"
    "  -y, --force          replace OUT when it exists\n"
    "  --json               print a summary as JSON\n"
    "HEVC pictures get a time_code SEI, H.264 pictures clock timestamps in their pic_timing SEI\n"
    "(the SPS gains pic_struct_present_flag when it lacks it); captions go in as a registered\n"
    "user-data SEI in front of each picture. MPEG-2: each GOP header's time_code is rewritten\n"
    "in place (drop_frame_flag included) and captions go in as picture user data.\n"
    "Pictures reach the stream in decoding order; each is stamped with the timecode of its\n"
    "display position. The summary names the rate and timecode type used, and warns about SCC\n"
    "pairs outside the stamped timecodes. OUT is never IN, and is only created once the whole\n"
    "stream is stamped.\n";
constexpr const char* kFooter =
    "--json shape: {\"codec\": \"h264\"|\"hevc\"|\"mpeg2\", \"output\" (H.264/HEVC), \"accessUnits\"\n"
    "  (H.264/HEVC), \"pictures\", \"gopHeaders\" (MPEG-2), \"rate\", \"timecodeType\", \"rateSource\",\n"
    "  \"first\", \"last\", \"captionFrames\", \"replacedTimecodes\", \"replacedCaptions\" (H.264/HEVC),\n"
    "  \"rateChanges\": [{\"frame\", \"timecode\", \"rate\", \"fps\"}] (pictures whose SPS or MPEG-2\n"
    "  sequence header states another frame rate than the one before them; the timecode keeps\n"
    "  counting at \"rate\"; empty with --rate)}\n";

}  // namespace

namespace {
// Drop-frame entries come before the non-drop ones of the same rate: a stream's own 29.97 or
// 59.94 timing is stamped drop-frame, as broadcast practice has it.
constexpr RateInfo kRates[] = {
    {"23.98", "23.98 (counted as 24)", TC_2398, 24, CDP_RATE_23_976, 24000.0 / 1001},
    {"24", "24", TC_FILM, 24, CDP_RATE_24, 24},
    {"25", "25", TC_PAL, 25, CDP_RATE_25, 25},
    {"29.97df", "29.97 drop-frame", TC_DF2997, 29, CDP_RATE_29_97, 30000.0 / 1001},
    {"29.97", "29.97 non-drop", TC_NDF30, 30, CDP_RATE_29_97, 30000.0 / 1001},
    {"30", "30 non-drop", TC_NDF30, 30, CDP_RATE_30, 30},
    {"50", "50", TC_50, 50, CDP_RATE_50, 50},
    {"59.94df", "59.94 drop-frame", TC_DF5994, 59, CDP_RATE_59_94, 60000.0 / 1001},
    {"59.94", "59.94 non-drop", TC_60, 60, CDP_RATE_59_94, 60000.0 / 1001},
    {"60", "60", TC_60, 60, CDP_RATE_60, 60},
};

}  // namespace

// The rate a --rate name stands for: any spelling of the shared timecode-type table (29.97df,
// 30000/1001, drop-frame, pal...), matched on its counting and nominal rate.
const RateInfo* findRate(const std::string& name) {
  VIDTCTYPEINFO info{};
  if (vidTCTypeFromName(name.c_str(), &info) != 0 || !info.scale) return nullptr;
  const double fps = double(info.rate) / info.scale;
  for (const auto& r : kRates)
    if (r.tcType == info.tctype && std::fabs(r.fps - fps) < 0.01) return &r;
  return nullptr;
}

// The timecode rate nearest to a stream's frame rate, or null.
const RateInfo* rateForStream(double fps) {
  const RateInfo* best = nullptr;
  double bestDistance = 0.05;
  for (const auto& r : kRates) {
    const double d = fps > r.fps ? fps - r.fps : r.fps - fps;
    if (d < bestDistance) bestDistance = d, best = &r;
  }
  return best;
}

namespace {

zr_bitstream readerOver(const std::vector<uint8_t>& unit) {
  return zr_bitstream{const_cast<uint8_t*>(unit.data()), int64_t(unit.size()), uint64_t(unit.size()) * 8, 0};
}

}  // namespace

// Stream-level preparation over the parameter-set units (each from its header byte, with its
// emulation prevention): the rate (from --rate or the VUI timing), field coding, the active
// H.264 SPS and its rewrite for pic_struct.
bool prepareStampPlan(StampPlan& plan, const std::vector<std::vector<uint8_t>>& units, const RateInfo* givenRate,
                      std::string& error) {
  double fps = 0;
  std::string timing;
  for (const auto& unit : units) {
    if (unit.empty()) continue;
    std::vector<uint8_t> out = unit;
    if (plan.codec == StreamCodec::kHevc && ((unit[0] >> 1) & 0x3F) == 33 && fps == 0) {
      HEVC_SPS_DECODED sps{};
      zr_bitstream s = readerOver(unit);
      if (klxutilRead_HEVC_SPS(&s, &sps, nullptr, 0) != 0xFFFFFFFFu) {
        plan.fields = plan.fields || sps.vui.field_seq_flag;
        if (sps.vui.vui_timing_info_present_flag && sps.vui.vui_num_units_in_tick) {
          fps = double(sps.vui.vui_time_scale) / sps.vui.vui_num_units_in_tick / (sps.vui.field_seq_flag ? 2 : 1);
          timing = cli::rateText(sps.vui.vui_time_scale, uint64_t{sps.vui.vui_num_units_in_tick} * (sps.vui.field_seq_flag ? 2 : 1));
        }
      }
    } else if (plan.codec == StreamCodec::kH264 && (unit[0] & 0x1F) == 7) {
      if (!plan.avcSps) {
        plan.avcSps = std::make_shared<KLXUTIL_AVC_SPS_SET>();
        klxutilAvcSpsSetInit(plan.avcSps.get());
      }
      const bool first = plan.avcSps->lastId < 0;
      if (klxutilAvcSpsSetLearn(plan.avcSps.get(), unit.data(), uint32_t(unit.size())) != 0) {
        error = "cannot read the H.264 sequence parameter set";
        return false;
      }
      out.resize(unit.size() + 64);
      uint32_t n = 0;
      if (klxutilAVCSpsForTimeCode(unit.data(), uint32_t(unit.size()), out.data(), uint32_t(out.size()), &n) < 0) {
        error = "the H.264 sequence parameter set cannot be rewritten for pic_struct (an unusual scaling list?)";
        return false;
      }
      out.resize(n);
      const SPS_DECODED& sps = *klxutilAvcSpsSetFind(plan.avcSps.get(), -1);
      const AVC_VUI_PARAMETERS& v = sps.vui;
      if (first && sps.vui_parameters_present_flag && v.timing_info_present_flag && v.num_units_in_tick) {
        fps = double(v.time_scale) / (2.0 * v.num_units_in_tick);  // H.264 ticks are field periods
        timing = cli::rateText(v.time_scale, 2 * uint64_t{v.num_units_in_tick});
      }
    }
    plan.parameterSets.push_back(std::move(out));
  }
  if (plan.codec == StreamCodec::kH264 && !plan.avcSps) {
    error = "no H.264 sequence parameter set in the stream";
    return false;
  }
  if (givenRate) {
    plan.rate = givenRate;
    plan.rateSource = "given with --rate";
  } else if ((plan.rate = rateForStream(fps))) {
    plan.rateSource = "from the stream's VUI timing " + timing;
  } else {
    plan.rate = findRate("25");
    plan.rateSource = fps > 0 ? "the default: VUI timing " + timing + " is no timecode rate" : "the default: the stream carries no timing";
  }
  return true;
}

// Caption packet of one picture: the field-1 pair (CC1) or padding, and field-2 padding.
uint32_t captionPacketFor(const SCC_CAPTION* pair, uint32_t cdpRate, uint16_t sequence, uint8_t* out, uint32_t cap) {
  const uint8_t triplets[6] = {0xFC, pair ? pair->data[0] : uint8_t(0x80), pair ? pair->data[1] : uint8_t(0x80),
                               0xFD, 0x80, 0x80};
  return klxutilMakeCaptionPacket(out, cap, triplets, 2, cdpRate, sequence);
}

namespace {

uint32_t libraryCodec(StreamCodec codec) { return codec == StreamCodec::kHevc ? KLX_CODEC_HEVC : KLX_CODEC_H264; }

int timecodeInto(const StampPlan& plan, DFRAME& frame, bool lengthPrefixed, const SPS_DECODED* avcSps,
                 std::string& error) {
  const uint32_t framing = lengthPrefixed ? 1 : 0;
  int done = 0;
  if (plan.codec == StreamCodec::kHevc) {
    static constexpr uint32_t kTimeCode = 136;
    const int removed = klxutilRemoveSEIMessages(&frame, KLX_CODEC_HEVC, framing, &kTimeCode, 1);
    if (removed < 0) return error = "cannot edit the frame", -1;
    done |= removed > 0 ? kReplacedTimecode : 0;
    uint8_t unit[512];
    const uint32_t n = klxUtilAddHevcTimecodeSEIRate(unit, frame.nTimecode, plan.rate->hevcRate, false);
    if (klxutilInsertUnitBeforePicture(&frame, KLX_CODEC_HEVC, framing, unit, n) != 0) return error = "no room for the time_code SEI", -1;
    return done;
  }
  KLX_TIMECODE old{};
  if (klxUtilReadH264TimeCode(frame.pData, frame.nDataSize, framing, avcSps, &old) == 1) done |= kReplacedTimecode;
  const int rc = klxutilAddAVCTimeCode(&frame, plan.rate->tcType, avcSps, framing, plan.avcFlags);
  if (rc != 0) return error = rc == KLX_SEI_NO_ROOM ? "no room for the pic_timing SEI" : "cannot write the pic_timing SEI", -1;
  return done;
}

}  // namespace

StampPosition stampPositionOf(const StampPlan& plan, uint64_t decodeIndex, uint64_t displayIndex, uint64_t displayField,
                              int fieldPicture) {
  StampPosition at;
  const bool placed = displayIndex != media::kNoDisplayIndex;
  at.picture = placed ? displayIndex : decodeIndex;
  at.fieldPicture = plan.fields || fieldPicture == 1;
  if (plan.fields) at.field = at.picture;
  else at.field = placed ? displayField : 2 * decodeIndex;
  return at;
}

// Edits one access unit in place (start codes, or 4-byte lengths when lengthPrefixed):
// timecode of its display position, and its caption pair. Returns kReplaced.../kWroteCaption
// bits, or -1 with `error` set.
int stampAccessUnit(const StampPlan& plan, DFRAME& frame, bool lengthPrefixed, const StampPosition& at, bool hasPicture,
                    const SPS_DECODED* avcSps, std::string& error) {
  if (!hasPicture) return 0;
  if (plan.codec == StreamCodec::kH264 && !avcSps) return error = "no sequence parameter set for its picture", -1;
  const uint64_t displayFrame = at.frame();
  const bool firstField = at.firstField();
  frame.nTimecode = static_cast<uint32_t>(plan.startFrame + displayFrame);
  const uint32_t codec = libraryCodec(plan.codec), framing = lengthPrefixed ? 1 : 0;
  if (plan.keepExisting) {
    KLX_TIMECODE tc{};
    const bool timecode = plan.codec == StreamCodec::kHevc
                              ? klxUtilReadHevcTimeCode(frame.pData, frame.nDataSize, framing, &tc) == 1
                              : klxUtilReadH264TimeCode(frame.pData, frame.nDataSize, framing, avcSps, &tc) == 1;
    const bool captions = plan.captions && (plan.codec == StreamCodec::kHevc
                                                ? klxUtilReadHevcCaptionsSEI(frame.pData, frame.nDataSize, framing, nullptr, 0)
                                                : klxUtilReadH264CaptionsSEI(frame.pData, frame.nDataSize, framing, nullptr, 0)) > 0;
    if (timecode || captions)
      return error = std::string("IN already carries ") + (timecode ? "timecode" : "captions") +
                     " and --keep-existing was given: nothing written",
             -1;
  }
  int done = timecodeInto(plan, frame, lengthPrefixed, avcSps, error);
  if (done < 0 || !plan.captions) return done;
  const int removed = klxutilRemoveSEIMessages(&frame, codec, framing, &KLX_SEI_CC_DATA, 1);
  done |= removed > 0 ? kReplacedCaptions : 0;
  const int32_t index = firstField && displayFrame < plan.captionAt.size() ? plan.captionAt[displayFrame] : -1;
  const SCC_CAPTION* pair = index >= 0 ? &plan.captionPairs[size_t(index)] : nullptr;
  uint8_t packet[64];
  const uint32_t packetLength = captionPacketFor(pair, plan.rate->cdpRate, uint16_t(at.picture), packet, sizeof packet);
  if (klxutilAddCaptionsSEI(&frame, codec, packet, packetLength, framing) != 0) return error = "no room for the caption SEI", -1;
  return done | (pair ? kWroteCaption : 0);
}

namespace {

std::string timecodeText(uint32_t frames, uint32_t tcType) {
  char text[32] = {};
  tc2String(frames, tcType | TCF_FULL_TEXT, text, sizeof text);
  return text;
}

bool readCaptions(const std::string& path, StampPlan& plan, std::string& error) {
  auto text = cli::readFile(path);
  if (!text) return error = "cannot read " + path + ": " + std::strerror(errno), false;
  uint32_t count = 0, line = 0;
  int rc = klxutilReadScc(text->data(), text->size(), plan.rate->tcType, nullptr, 0, &count, &line);
  if (rc == -2) {
    plan.captionPairs.resize(count);
    rc = klxutilReadScc(text->data(), text->size(), plan.rate->tcType, plan.captionPairs.data(), count, &count, &line);
  }
  if (rc != 0)
    return error = path + ":" + std::to_string(line) +
                   ": not a Scenarist SCC caption line (a timecode, then 4-digit hex byte pairs of odd parity)",
           false;
  plan.captions = true;
  for (size_t i = 0; i < plan.captionPairs.size(); ++i) {
    const SCC_CAPTION& c = plan.captionPairs[i];
    if (c.frame < plan.startFrame) continue;
    const uint32_t at = c.frame - plan.startFrame;
    if (at >= plan.captionAt.size()) plan.captionAt.resize(size_t(at) + 1, -1);
    plan.captionAt[at] = int32_t(i);
  }
  return true;
}

// One warning line for the caption pairs that fall outside the stamped timecodes.
void warnOutsideRange(const StampPlan& plan, uint32_t first, uint32_t last) {
  size_t outside = 0;
  for (const auto& c : plan.captionPairs) outside += (c.frame < first || c.frame > last) ? 1 : 0;
  if (!outside) return;
  const uint32_t type = plan.rate->tcType;
  std::fprintf(stderr,
               "quorvane stamp: warning: %zu of %zu caption byte pairs fall outside the stamped range %s-%s "
               "(the captions run %s-%s)\n",
               outside, plan.captionPairs.size(), timecodeText(first, type).c_str(), timecodeText(last, type).c_str(),
               timecodeText(plan.captionPairs.front().frame, type).c_str(),
               timecodeText(plan.captionPairs.back().frame, type).c_str());
}

}  // namespace

namespace {

// "25", "29.97", "12.5": a frame rate to two decimals, as the warning names it.
std::string fpsText(double fps) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", fps);
  std::string t = text;
  while (t.back() == '0') t.pop_back();
  if (t.back() == '.') t.pop_back();
  return t;
}

// The frame rate each picture's SPS (MPEG-2: sequence header) states. A timecode counts at one
// rate, so a later SPS stating another (a splice of 25 and 29.97 material) changes nothing in the
// stamp, but each change is noted for the user. H.264 finds the picture's SPS in the plan's SPS
// set; HEVC keeps the rate of each sps_seq_parameter_set_id here as its SPS units go by; MPEG-2
// takes the rate of the sequence header an access unit carries.
class RateWatch {
 public:
  struct Rate {
    uint64_t rate = 0, scale = 0;  // in lowest terms; 0/0 not stated
    bool operator==(const Rate&) const = default;
  };
  struct Change {
    uint64_t frame;
    Rate from, to;
  };

  static Rate of(const SPS_DECODED* sps) {
    if (!sps || !sps->vui_parameters_present_flag || !sps->vui.timing_info_present_flag) return {};
    return reduced(sps->vui.time_scale, 2 * uint64_t{sps->vui.num_units_in_tick});  // ticks are field periods
  }
  // Takes an HEVC unit (header byte first): an SPS sets the rate of its id.
  void learnHevc(const uint8_t* unit, uint32_t size) {
    if (size < 2 || ((unit[0] >> 1) & 0x3F) != 33) return;
    if (!hevcSps_) hevcSps_ = std::make_unique<HEVC_SPS_DECODED>();
    zr_bitstream s{const_cast<uint8_t*>(unit), int64_t{size}, uint64_t{size} * 8, 0};
    if (klxutilRead_HEVC_SPS(&s, hevcSps_.get(), nullptr, 0) == 0xFFFFFFFFu) return;
    const HEVC_SPS_DECODED& sps = *hevcSps_;
    const uint32_t id = uint32_t(sps.sps_seq_parameter_set_id) & 15;
    Rate r;
    if (sps.vui_parameters_present_flag && sps.vui.vui_timing_info_present_flag)
      r = reduced(sps.vui.vui_time_scale, uint64_t{sps.vui.vui_num_units_in_tick} * (sps.vui.field_seq_flag ? 2 : 1));
    hevcRates_[id] = r;
    lastHevcId_ = int(id);
  }
  // An MPEG-2 access unit's units (start code value first): frame_rate_code of its
  // sequence_header() with the sequence_extension()'s frame_rate_extension_n/d (ISO/IEC 13818-2
  // 6.3.3); none when it carries no sequence header.
  static Rate ofMpeg2(const uint8_t* data, const std::vector<media::UnitSpan>& units) {
    KLX_MPEG2_SEQUENCE seq;
    bool header = false;
    for (const auto& u : units) {
      const uint8_t* unit = data + u.at + u.prefix;
      if (u.size > 0 && unit[0] == 0xB3) header = klxutilReadMpeg2SequenceHeader(unit, u.size, &seq) == 0;
      else if (header && u.size > 0 && unit[0] == 0xB5) klxutilReadMpeg2SequenceExtension(unit, u.size, &seq);
    }
    return header ? reduced(seq.frameRate, seq.frameRateScale) : Rate{};
  }
  Rate hevc(int spsId) const {
    const int id = spsId >= 0 ? spsId : lastHevcId_;
    return id >= 0 && id < 16 ? hevcRates_[id] : Rate{};
  }
  // A picture at display frame `frame` whose SPS states `r`: a change from the rate stated
  // before is kept. A picture whose SPS states none changes nothing.
  void picture(uint64_t frame, Rate r) {
    if (!r.scale) return;
    if (current_.scale && !(r == current_)) changes.push_back({frame, current_, r});
    current_ = r;
  }
  static double fps(const Rate& r) { return r.scale ? double(r.rate) / double(r.scale) : 0; }

  std::vector<Change> changes;

 private:
  static Rate reduced(uint64_t rate, uint64_t scale) {
    if (!rate || !scale) return {};
    const uint64_t g = std::gcd(rate, scale);
    return {rate / g, scale / g};
  }
  Rate current_;
  std::unique_ptr<HEVC_SPS_DECODED> hevcSps_;
  Rate hevcRates_[16];
  int lastHevcId_ = -1;
};

// The frame pipeline's editor: the plan is settled from the stream's parameter sets in begin(),
// then every access unit is stamped at its display position.
class Stamper : public media::FrameEditor {
 public:
  Stamper(const cli::Command& args, const std::string& inPath, const RateInfo* givenRate, const std::string& tcText)
      : args_(args), inPath_(inPath), givenRate_(givenRate), tcText_(tcText) {}

  bool begin(const media::PipelineStream& stream, std::vector<media::Bytes>& parameterSets, std::string& error) override {
    plan.codec = stream.codec;
    plan.fields = args_.has("fields");
    plan.keepExisting = args_.has("keep-existing");
    if (plan.codec != StreamCodec::kH264 && plan.codec != StreamCodec::kHevc && plan.codec != StreamCodec::kMpeg2)
      return error = inPath_ + ": not H.264, HEVC or MPEG-2 video", false;
    const auto& units = parameterSets.empty() ? stream.leadingParameterSets : parameterSets;
    if (plan.codec == StreamCodec::kMpeg2 ? !prepareMpeg2StampPlan(plan, units, givenRate_, error)
                                          : !prepareStampPlan(plan, units, givenRate_, error))
      return error = inPath_ + ": " + error, false;
    if (plan.codec == StreamCodec::kHevc)
      for (const auto& unit : units) rates.learnHevc(unit.data(), uint32_t(unit.size()));
    if (!givenRate_ && plan.rateSource.rfind("the default", 0) == 0 && stream.frameRateNum > 0 && stream.frameRateDen > 0) {
      if (const RateInfo* r = rateForStream(double(stream.frameRateNum) / stream.frameRateDen)) {
        plan.rate = r;
        plan.rateSource = "from the container frame rate " + std::to_string(stream.frameRateNum) + "/" +
                          std::to_string(stream.frameRateDen);
      }
    }
    if (tc2Frame(tcText_.c_str(), plan.rate->tcType | TCF_TEXT, &plan.startFrame) != 0) {
      usageError = true;
      return error = "bad timecode '" + tcText_ + "' at " + plan.rate->name, false;
    }
    if (auto sccPath = args_.get("captions"); sccPath && !readCaptions(*sccPath, plan, error)) return false;
    lastTimecode = plan.startFrame;
    if (stream.frameRateNum > 0 && stream.frameRateDen > 0) frameRate_ = double(stream.frameRateNum) / stream.frameRateDen;
    // The output's extradata carries the SPS rewritten for pic_struct (an elementary stream's
    // sets lead a container OUT only when they are replaced).
    if (plan.codec == StreamCodec::kH264 && (!parameterSets.empty() || !stream.outContainer.empty()))
      parameterSets = plan.parameterSets;
    return true;
  }

  bool edit(media::PipelineFrame& pf, std::string& error) override {
    DFRAME& frame = *pf.frame;
    const SPS_DECODED* avcSps = plan.codec == StreamCodec::kH264 ? activeSps(pf) : nullptr;
    // --length-prefixed edits start-code frames as an MP4 host holds them.
    const bool convert = args_.has("length-prefixed") && pf.framing == media::Framing::kAnnexB && plan.codec != StreamCodec::kMpeg2;
    const bool lengthPrefixed = convert || pf.framing == media::Framing::kLengthPrefixed;
    if (convert) {
      uint32_t prefixedSize = 0;
      if (klxUtilh264MarkerToSizeChecked(frame.pData, frame.nDataSize, frame.nBufferSize, &prefixedSize) != 0)
        return error = "access unit " + std::to_string(pf.decodeIndex) + ": cannot convert to length prefixes", false;
      frame.nDataSize = prefixedSize;
    }
    const StampPosition at = stampPositionOf(plan, pf.decodeIndex, pf.displayIndex, pf.displayField, pf.fieldPicture);
    if (pf.hasPicture && !givenRate_) rates.picture(at.frame(), statedRate(pf, avcSps));
    const int done = plan.codec == StreamCodec::kMpeg2 ? stampMpeg2AccessUnit(plan, groups, frame, at, pf.hasPicture, error)
                                                       : stampAccessUnit(plan, frame, lengthPrefixed, at, pf.hasPicture, avcSps, error);
    if (done < 0) return error = "access unit " + std::to_string(pf.decodeIndex) + ": " + error, false;
    if (convert) frame.nDataSize = klxUtilh264SizeToMarker(frame.pData, frame.nDataSize);
    if (pf.hasPicture) {
      ++pictures;
      lastTimecode = std::max(lastTimecode, frame.nTimecode);
      captioned += done & kWroteCaption ? 1 : 0;
      replacedTimecode += done & kReplacedTimecode ? 1 : 0;
      replacedCaptions += done & kReplacedCaptions ? 1 : 0;
      gopHeaders += done & kStampedGroup ? 1 : 0;
    }
    return true;
  }

  // The container's own timecode follows the stamp when it counts at the container's rate.
  std::string containerTimecode() const override {
    const bool sameRate = frameRate_ > 0 && std::fabs(frameRate_ - plan.rate->fps) < 0.01;
    return sameRate ? timecodeText(plan.startFrame, plan.rate->tcType) : std::string();
  }

  StampPlan plan;
  RateWatch rates;  // the frame rates the pictures' SPSs state (not watched with --rate)
  bool usageError = false;
  uint32_t pictures = 0, captioned = 0, lastTimecode = 0, replacedTimecode = 0, replacedCaptions = 0, gopHeaders = 0;
  Mpeg2Groups groups;

 private:
  // The SPS the access unit's picture activates, after the SPS units it carries (a spliced
  // stream's next SPS arrives with its first IDR) have been learnt. An SPS that cannot be read
  // is left out: the picture then finds the one its id held before, or none.
  const SPS_DECODED* activeSps(const media::PipelineFrame& pf) {
    for (const auto& u : *pf.units)
      if (u.size > 0 && (pf.frame->pData[u.at + u.prefix] & 0x1F) == 7)
        klxutilAvcSpsSetLearn(plan.avcSps.get(), pf.frame->pData + u.at + u.prefix, u.size);
    return klxutilAvcSpsSetFind(plan.avcSps.get(), pf.spsId);
  }

  // The rate the picture's SPS states: H.264 the SPS it activates, HEVC after the SPS units the
  // access unit carries, MPEG-2 the sequence header it carries.
  RateWatch::Rate statedRate(const media::PipelineFrame& pf, const SPS_DECODED* avcSps) {
    if (plan.codec == StreamCodec::kH264) return RateWatch::of(avcSps);
    if (plan.codec == StreamCodec::kMpeg2) return RateWatch::ofMpeg2(pf.frame->pData, *pf.units);
    for (const auto& u : *pf.units)
      if (u.size > 0) rates.learnHevc(pf.frame->pData + u.at + u.prefix, u.size);
    return rates.hevc(pf.spsId);
  }

  const cli::Command& args_;
  const std::string& inPath_;
  const RateInfo* givenRate_;
  const std::string& tcText_;
  double frameRate_ = 0;  // the container's frame rate, 0 when not known
};

}  // namespace

int cmdStamp(int argc, char** argv) {
  cli::Command args("stamp", "", kFooter);
  args.usageText(kUsage).option("--tc", "").option("--rate", "").option("--captions", "").flag("--fields", "");
  args.flag("--keep-existing", "").flag("--length-prefixed", "").forceFlag().flag("--json", "").positionals("FILES", "");
  media::addTrackOption(args);
  if (auto exit = args.parse(argc, argv)) return *exit;
  if (args.positional().size() != 2) return cli::fail("stamp", "give IN and OUT (see quorvane stamp --help)");
  const std::string inPath = args.positional()[0], outPath = args.positional()[1];
  const auto tcText = args.get("tc");
  if (!tcText) return cli::fail("stamp", "give the first timecode with --tc HH:MM:SS:FF");
  const RateInfo* givenRate = args.get("rate") ? findRate(*args.get("rate")) : nullptr;
  if (args.get("rate") && !givenRate)
    return cli::fail("stamp", "unknown rate '%s' (23.98, 24, 25, 29.97, 29.97df, 30, 50, 59.94, 59.94df, 60, or a fraction such as 30000/1001)", args.get("rate")->c_str());
  if (int rc = cli::checkOutput("stamp", outPath, args.has("force"), {inPath}); rc != cli::kOk) return rc;

  int exitCode = 0;
  auto input = media::openInput("stamp", inPath, args, exitCode);
  if (!input) return exitCode;
  Stamper stamper(args, inPath, givenRate, *tcText);
  media::PipelineOptions options;
  options.force = args.has("force");
  options.label = "stamp";
  media::PipelineResult result;
  std::string error;
  if (!media::runPipeline(*input, outPath, stamper, options, result, error)) {
    if (stamper.usageError) return cli::fail("stamp", "%s", error.c_str());
    return cli::failWith(cli::kFailed, "stamp", "%s", error.c_str());
  }
  const StampPlan& plan = stamper.plan;
  if (plan.captions) warnOutsideRange(plan, plan.startFrame, stamper.lastTimecode);
  cli::JsonValue rateChanges = cli::JsonValue::array();
  for (const auto& c : stamper.rates.changes) {
    std::fprintf(stderr,
                 "quorvane stamp: warning: the stream changes rate at frame %llu (%s fps to %s fps); timecodes keep "
                 "counting at %s fps\n",
                 static_cast<unsigned long long>(c.frame), fpsText(RateWatch::fps(c.from)).c_str(),
                 fpsText(RateWatch::fps(c.to)).c_str(), fpsText(plan.rate->fps).c_str());
    rateChanges.push_back({{"frame", c.frame},
                           {"timecode", timecodeText(plan.startFrame + static_cast<uint32_t>(c.frame), plan.rate->tcType)},
                           {"rate", cli::rateText(c.to.rate, c.to.scale)},
                           {"fps", RateWatch::fps(c.to)}});
  }

  FILE* report = result.toStdout ? stderr : stdout;
  const char* codecName = media::codecName(plan.codec);
  const std::string first = timecodeText(plan.startFrame, plan.rate->tcType),
                    last = timecodeText(stamper.lastTimecode, plan.rate->tcType);
  if (args.has("json")) {
    cli::JsonValue j{{"codec", codecName}, {"output", result.outKind}, {"accessUnits", result.accessUnits},
                     {"pictures", stamper.pictures}, {"rate", plan.rate->name}, {"timecodeType", plan.rate->typeName},
                     {"rateSource", plan.rateSource}, {"first", first}, {"last", last}, {"captionFrames", stamper.captioned},
                     {"replacedTimecodes", stamper.replacedTimecode}, {"replacedCaptions", stamper.replacedCaptions},
                     {"rateChanges", std::move(rateChanges)}};
    if (plan.codec == StreamCodec::kMpeg2) j["gopHeaders"] = stamper.gopHeaders;
    cli::printJson(j, report);
  } else {
    std::fprintf(report, "%s: %u pictures stamped, timecode %s .. %s at %s (rate %s)",
                 stampCodecTitle(plan.codec), stamper.pictures, first.c_str(), last.c_str(),
                 plan.rate->typeName, plan.rateSource.c_str());
    if (plan.captions) std::fprintf(report, ", captions in %u frames", stamper.captioned);
    if (plan.codec == StreamCodec::kMpeg2) std::fprintf(report, ", %u GOP headers", stamper.gopHeaders);
    if (stamper.replacedTimecode || stamper.replacedCaptions)
      std::fprintf(report, "; replaced the timecode of %u and the captions of %u pictures", stamper.replacedTimecode,
                   stamper.replacedCaptions);
    std::fprintf(report, "\n");
  }
  return cli::kOk;
}
