// quorvane stamp: SMPTE timecode and CEA-608 captions into every access unit of an H.264 or
// HEVC elementary stream.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "access_units.h"
#include "cli.h"
#include "commands.h"
#include "platform/tcxlat.h"
#include "streamutil/captions.h"
#include "streamutil/framing.h"
#include "streamutil/hevc_params.h"
#include "streamutil/scc.h"
#include "streamutil/sei.h"

namespace {

constexpr const char* kUsage =
    "usage: quorvane stamp IN OUT --tc HH:MM:SS:FF [--rate R] [--captions FILE.scc] [--fields]\n"
    "                      [--length-prefixed] [--json]\n\n"
    "Writes OUT: the H.264 or HEVC elementary stream IN with every picture stamped.\n"
    "  --tc HH:MM:SS:FF     timecode of the first picture in display order (';' before the\n"
    "                       frames is accepted for drop-frame rates)\n"
    "  --rate R             timecode rate: 23.98, 24, 25, 29.97 (drop-frame), 30, 50,\n"
    "                       59.94 (drop-frame) or 60; default: the HEVC stream's VUI timing\n"
    "                       (frame rate, not field rate), else 25\n"
    "  --captions FILE.scc  CEA-608 captions from a Scenarist SCC file, each byte pair in the\n"
    "                       picture shown at its timecode (SCC times are on the --tc clock)\n"
    "  --fields             each coded picture is one field: two pictures share a timecode\n"
    "                       (taken from the SPS's field_seq_flag for HEVC when not given)\n"
    "  --length-prefixed    edit each frame in length-prefixed framing, as MP4 hosts hold it\n"
    "                       (the output is start-code framed either way)\n"
    "  --json               print a summary as JSON\n"
    "HEVC pictures get a time_code SEI (and captions as a registered user-data SEI); H.264\n"
    "pictures get captions (an H.264 timecode SEI is not written). Pictures reach the stream\n"
    "in decoding order; each is stamped with the timecode of its display position. OUT is\n"
    "never IN, and is only created once the whole stream is stamped.\n";

struct RateInfo {
  const char* name;
  uint32_t tcType;      // counting of the timecode text
  uint32_t seiType;     // type handed to the time_code SEI writer
  uint32_t cdpRate;     // caption packet frame-rate code
};
constexpr RateInfo kRates[] = {
    {"23.98", TC_2398, TC_FILM, CDP_RATE_23_976}, {"23.976", TC_2398, TC_FILM, CDP_RATE_23_976},
    {"24", TC_FILM, TC_FILM, CDP_RATE_24},        {"25", TC_PAL, TC_PAL, CDP_RATE_25},
    {"29.97", TC_DF2997, TC_DF2997, CDP_RATE_29_97}, {"30", TC_NDF30, TC_NDF30, CDP_RATE_30},
    {"50", TC_50, TC_50, CDP_RATE_50},            {"59.94", TC_DF5994, TC_DF5994, CDP_RATE_59_94},
    {"60", TC_60, TC_60, CDP_RATE_60},
};

const RateInfo* findRate(const std::string& name) {
  for (const auto& r : kRates)
    if (name == r.name) return &r;
  return nullptr;
}

// What the first HEVC sequence parameter set says about timing: frames per second (0 when the
// VUI carries no timing) and whether each picture is one field.
struct StreamTiming {
  double framesPerSecond = 0;
  bool fieldPictures = false;
};

StreamTiming hevcTiming(const uint8_t* data, const std::vector<AccessUnitRef>& aus) {
  for (const auto& au : aus)
    for (const auto& u : au.units) {
      if (u.type != 33) continue;
      HEVC_SPS_DECODED sps{};
      zr_bitstream s{const_cast<uint8_t*>(data + u.header), static_cast<int64_t>(u.end - u.header),
                     uint64_t(u.end - u.header) * 8, 0};
      if (klxutilRead_HEVC_SPS(&s, &sps, nullptr, 0) == 0xFFFFFFFFu) return {};
      StreamTiming t;
      t.fieldPictures = sps.vui.field_seq_flag != 0;
      if (sps.vui.vui_timing_info_present_flag && sps.vui.vui_num_units_in_tick)
        t.framesPerSecond = double(sps.vui.vui_time_scale) / sps.vui.vui_num_units_in_tick / (t.fieldPictures ? 2 : 1);
      return t;
    }
  return {};
}

// The timecode rate nearest to a stream's frame rate; 25 when the stream does not say.
const RateInfo* rateForStream(double fps) {
  static constexpr struct {
    double fps;
    const char* name;
  } kNominal[] = {{24000.0 / 1001, "23.98"}, {24, "24"}, {25, "25"}, {30000.0 / 1001, "29.97"},
                  {30, "30"}, {50, "50"}, {60000.0 / 1001, "59.94"}, {60, "60"}};
  const char* best = "25";
  double bestDistance = 0.05;
  for (const auto& n : kNominal) {
    const double d = fps > n.fps ? fps - n.fps : n.fps - fps;
    if (d < bestDistance) bestDistance = d, best = n.name;
  }
  return findRate(best);
}

constexpr uint32_t kSpareBytes = 2048;  // room behind each frame for the inserted units
constexpr uint8_t kAccessUnitDelimiter[] = {0, 0, 0, 1, 0x09, 0xF0};  // primary_pic_type 7: any

// Caption triplets of one picture: the field-1 pair (CC1) or padding, and field-2 padding.
uint32_t captionPacketFor(const SCC_CAPTION* pair, uint32_t cdpRate, uint16_t sequence, uint8_t* out, uint32_t cap) {
  const uint8_t triplets[6] = {0xFC, pair ? pair->data[0] : uint8_t(0x80), pair ? pair->data[1] : uint8_t(0x80),
                               0xFD, 0x80, 0x80};
  return klxutilMakeCaptionPacket(out, cap, triplets, 2, cdpRate, sequence);
}

class PartialFile {
 public:
  explicit PartialFile(const std::string& target) : target_(target) {
    std::string pattern = target + ".partial-XXXXXX";
    fd_ = mkstemp(pattern.data());
    if (fd_ >= 0) path_ = pattern;
  }
  ~PartialFile() {
    if (fd_ >= 0) ::close(fd_);
    if (!committed_ && !path_.empty()) std::remove(path_.c_str());
  }
  bool ok() const { return fd_ >= 0; }
  bool write(const uint8_t* data, size_t n) {
    while (n) {
      const ssize_t w = ::write(fd_, data, n);
      if (w <= 0) return false;
      data += w, n -= static_cast<size_t>(w);
    }
    return true;
  }
  bool commit() {
    if (::fsync(fd_) != 0 || ::close(fd_) != 0) return false;
    fd_ = -1;
    ::chmod(path_.c_str(), 0644);
    if (std::rename(path_.c_str(), target_.c_str()) != 0) return false;
    committed_ = true;
    return true;
  }

 private:
  std::string target_, path_;
  int fd_ = -1;
  bool committed_ = false;
};

bool sameFile(const std::string& a, const std::string& b) {
  std::error_code ec;
  return std::filesystem::exists(b, ec) && std::filesystem::equivalent(a, b, ec);
}

std::string timecodeText(uint32_t frames, uint32_t tcType) {
  char text[32] = {};
  tc2String(frames, tcType | TCF_FULL_TEXT, text, sizeof text);
  return text;
}

}  // namespace

int cmdStamp(int argc, char** argv) {
  cli::Args args;
  if (!args.parse(argc, argv, {"tc", "rate", "captions"}, {"fields", "length-prefixed", "json"}))
    return cli::fail("stamp", "%s", args.error().c_str());
  if (args.has("help")) {
    std::fputs(kUsage, stdout);
    return cli::kOk;
  }
  if (args.positional().size() != 2) return cli::fail("stamp", "give IN and OUT (see quorvane stamp --help)");
  const std::string inPath = args.positional()[0], outPath = args.positional()[1];
  const auto tcText = args.get("tc");
  if (!tcText) return cli::fail("stamp", "give the first timecode with --tc HH:MM:SS:FF");
  const RateInfo* rate = args.get("rate") ? findRate(*args.get("rate")) : nullptr;
  if (args.get("rate") && !rate)
    return cli::fail("stamp", "unknown rate '%s' (23.98, 24, 25, 29.97, 30, 50, 59.94, 60)", args.get("rate")->c_str());
  if (inPath == outPath || sameFile(inPath, outPath)) return cli::fail("stamp", "OUT must not be IN");
  const bool lengthPrefixed = args.has("length-prefixed");

  auto input = cli::readFile(inPath);
  if (!input) return cli::failWith(cli::kFailed, "stamp", "cannot read %s: %s", inPath.c_str(), std::strerror(errno));
  const auto* data = reinterpret_cast<const uint8_t*>(input->data());
  const size_t size = input->size();
  const auto units = listNalUnits(data, size);
  const StreamCodec codec = detectCodec(data, size, units);
  std::vector<AccessUnitRef> aus;
  std::string error;
  if (!splitAccessUnits(data, size, codec, aus, error)) return cli::failWith(cli::kFailed, "stamp", "%s: %s", inPath.c_str(), error.c_str());
  const StreamTiming timing = codec == StreamCodec::kHevc ? hevcTiming(data, aus) : StreamTiming{};
  if (!rate) rate = rateForStream(timing.framesPerSecond);
  const bool fields = args.has("fields") || timing.fieldPictures;
  uint32_t startFrame = 0;
  if (tc2Frame(tcText->c_str(), rate->tcType | TCF_TEXT, &startFrame) != 0)
    return cli::fail("stamp", "bad timecode '%s' at %s", tcText->c_str(), rate->name);

  std::vector<SCC_CAPTION> captions;
  if (auto sccPath = args.get("captions")) {
    auto text = cli::readFile(*sccPath);
    if (!text) return cli::failWith(cli::kFailed, "stamp", "cannot read %s: %s", sccPath->c_str(), std::strerror(errno));
    uint32_t count = 0, line = 0;
    int rc = klxutilReadScc(text->data(), text->size(), rate->tcType, nullptr, 0, &count, &line);
    if (rc == -2) {
      captions.resize(count);
      rc = klxutilReadScc(text->data(), text->size(), rate->tcType, captions.data(), count, &count, &line);
    }
    if (rc != 0) return cli::failWith(cli::kFailed, "stamp", "%s:%u: not a Scenarist SCC caption line", sccPath->c_str(), line);
  }
  // Display frame -> caption pair.
  std::vector<const SCC_CAPTION*> captionAt;
  for (const auto& c : captions) {
    if (c.frame < startFrame) continue;
    const uint32_t at = c.frame - startFrame;
    if (at >= captionAt.size()) captionAt.resize(at + 1, nullptr);
    captionAt[at] = &c;
  }
  const bool withCaptions = args.has("captions");
  if (codec == StreamCodec::kH264 && !withCaptions)
    return cli::fail("stamp", "H.264 streams take captions only: give --captions FILE.scc");

  PartialFile out(outPath);
  if (!out.ok()) return cli::failWith(cli::kFailed, "stamp", "cannot create %s: %s", outPath.c_str(), std::strerror(errno));
  cli::Progress progress("stamp", aus.size());
  std::vector<uint8_t> buffer;
  uint32_t pictures = 0, captioned = 0, lastTimecode = startFrame;
  for (size_t i = 0; i < aus.size(); ++i) {
    const AccessUnitRef& au = aus[i];
    const bool addAud = codec == StreamCodec::kH264 && au.units.front().type != 9;
    const size_t audBytes = addAud ? sizeof kAccessUnitDelimiter : 0;
    const size_t length = au.end - au.begin;
    buffer.assign(length + audBytes + kSpareBytes, 0);
    if (addAud) std::memcpy(buffer.data(), kAccessUnitDelimiter, audBytes);
    std::memcpy(buffer.data() + audBytes, data + au.begin, length);
    DFRAME frame;
    klxutilInitFrame(&frame, buffer.data(), static_cast<uint32_t>(length + audBytes), static_cast<uint32_t>(buffer.size()));
    if (au.hasPicture) {
      const uint32_t displayFrame = fields ? au.displayIndex / 2 : au.displayIndex;
      const bool firstField = !fields || au.displayIndex % 2 == 0;
      frame.nTimecode = startFrame + displayFrame;
      lastTimecode = std::max(lastTimecode, frame.nTimecode);
      if (codec == StreamCodec::kHevc && klxutilAddHEVCTimeCodeChecked(&frame, rate->seiType) != 0)
        return cli::failWith(cli::kFailed, "stamp", "access unit %zu: no room for the time_code SEI", i);
      if (withCaptions) {
        const SCC_CAPTION* pair = firstField && displayFrame < captionAt.size() ? captionAt[displayFrame] : nullptr;
        uint8_t packet[64];
        const uint32_t packetLength = captionPacketFor(pair, rate->cdpRate, uint16_t(au.displayIndex), packet, sizeof packet);
        captioned += pair ? 1 : 0;
        int rc = 0;
        if (codec == StreamCodec::kHevc) {
          frame.pCaption = packet;
          frame.nCaptionSize = packetLength;
          const uint32_t added = klxUtilAddHevcCaptions(&frame, 0);
          frame.nDataSize += added;
          rc = added ? 0 : -1;
        } else if (lengthPrefixed) {
          uint32_t prefixedSize = 0;
          rc = klxUtilh264MarkerToSizeChecked(frame.pData, frame.nDataSize, frame.nBufferSize, &prefixedSize);
          if (rc == 0) {
            frame.nDataSize = prefixedSize;
            rc = klxutilAddAVCCaptions(&frame, packet, packetLength, 1);
            frame.nDataSize = klxUtilh264SizeToMarker(frame.pData, frame.nDataSize);
          }
        } else {
          rc = klxutilAddAVCCaptions(&frame, packet, packetLength, 0);
        }
        if (rc != 0) return cli::failWith(cli::kFailed, "stamp", "access unit %zu: captions not inserted (%d)", i, rc);
      }
      ++pictures;
    }
    if (!out.write(frame.pData, frame.nDataSize))
      return cli::failWith(cli::kFailed, "stamp", "cannot write %s: %s", outPath.c_str(), std::strerror(errno));
    progress.update(i + 1);
  }
  if (!out.commit()) return cli::failWith(cli::kFailed, "stamp", "cannot write %s: %s", outPath.c_str(), std::strerror(errno));

  const char* codecName = codec == StreamCodec::kHevc ? "HEVC" : "H.264";
  const std::string first = timecodeText(startFrame, rate->tcType), last = timecodeText(lastTimecode, rate->tcType);
  if (args.has("json")) {
    cli::Json j;
    j.beginObject().str("codec", codecName).num("accessUnits", int64_t(aus.size())).num("pictures", int64_t(pictures));
    j.boolean("timecode", codec == StreamCodec::kHevc).str("rate", rate->name).str("first", first).str("last", last);
    j.num("captionFrames", int64_t(captioned)).endObject();
    std::printf("%s\n", j.text().c_str());
  } else {
    std::printf("%s: %u pictures stamped", codecName, pictures);
    if (codec == StreamCodec::kHevc) std::printf(", timecode %s .. %s at %s", first.c_str(), last.c_str(), rate->name);
    if (withCaptions) std::printf(", captions in %u frames", captioned);
    std::printf("\n");
  }
  return cli::kOk;
}
