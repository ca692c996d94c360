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

#include "access_units.h"
#include "cli.h"
#include "commands.h"
#include "picture_metadata.h"
#include "platform/tcxlat.h"
#include "streamutil/cea608.h"

namespace {

constexpr const char* kUsage =
    "usage: quorvane captions extract IN [-o OUT] [--format scc|srt] [--channel N] [--force] [--json]\n\n"
    "Reads the ATSC A/53 caption data (CEA-608 in cc_data) of every picture of the H.264, HEVC or\n"
    "MPEG-2 elementary stream IN, in display order, and writes:\n"
    "  -o OUT.scc           Scenarist SCC: the channel's byte pairs at their timecodes (the\n"
    "                       stream's own timecodes when it carries them, else counted from\n"
    "                       00:00:00:00 at the stream's rate)\n"
    "  -o OUT.srt           SubRip text decoded from the channel (pop-on, roll-up, paint-on)\n"
    "  -o -                 standard output (SRT unless --format scc)\n"
    "  --format scc|srt     output form when the extension does not say\n"
    "  --channel N          1..4: CC1, CC2 (field 1), CC3, CC4 (field 2); default 1\n"
    "  --force              replace OUT when it exists\n"
    "  --json               list the decoded cues as JSON: {\"file\", \"codec\", \"channel\",\n"
    "                       \"pairs\", \"cues\":[{\"startFrame\", \"endFrame\", \"startMs\", \"endMs\",\n"
    "                       \"startTimecode\", \"text\"}]}\n"
    "Example: quorvane captions extract clip.264 -o clip.srt\n";

// Timecode counting for a stream rate (the nearest of the timecode types).
uint32_t timecodeTypeFor(double fps, bool dropFrame) {
  if (fps > 55) return dropFrame || std::fabs(fps - 59.94) < 0.03 ? TC_DF5994 : TC_60;
  if (fps > 45) return TC_50;
  if (fps > 27) return dropFrame || std::fabs(fps - 29.97) < 0.02 ? TC_DF2997 : TC_NDF30;
  if (fps > 24.5) return TC_PAL;
  return std::fabs(fps - 23.976) < 0.01 ? TC_2398 : TC_FILM;
}

struct Pair {
  uint32_t display;   // picture position in display order
  uint32_t timecode;  // frame count of the picture's timecode
  uint8_t b1, b2;
};

struct Extracted {
  StreamCodec codec = StreamCodec::kUnknown;
  double pictureRate = 0;  // pictures per second
  uint32_t tcType = TC_PAL;
  uint32_t pictures = 0;
  std::vector<Pair> pairs;  // the channel's field, padding and invalid triplets left out
};

StreamCodec detect(const std::string& stream) {
  const auto* d = reinterpret_cast<const uint8_t*>(stream.data());
  for (size_t i = 0; i + 3 < stream.size() && i < 64; ++i)
    if (!d[i] && !d[i + 1] && d[i + 2] == 1) {
      if (d[i + 3] == 0xB3) return StreamCodec::kMpeg2;
      break;
    }
  return detectCodec(d, stream.size(), listNalUnits(d, stream.size()));
}

bool extract(const std::string& stream, uint32_t channel, Extracted& out, std::string& error) {
  out.codec = detect(stream);
  StreamPictures s;
  if (!readStreamPictures(reinterpret_cast<const uint8_t*>(stream.data()), stream.size(), out.codec, s, error)) return false;
  bool drop = false, stamped = false;
  for (const auto& p : s.pictures) drop = drop || (p.hasTimecode && p.timecode.dropFrame), stamped = stamped || p.hasTimecode;
  const double fps = s.framesPerSecond > 0 ? s.framesPerSecond : 25;
  out.tcType = timecodeTypeFor(fps, drop);
  out.pictureRate = fps * (s.fieldPictures ? 2 : 1);
  out.pictures = uint32_t(s.pictures.size());
  const uint8_t ccType = channel <= 2 ? 0 : 1;  // NTSC field 1 or field 2
  for (const auto& p : s.pictures) {
    uint32_t timecode = s.fieldPictures ? p.display / 2 : p.display;
    if (stamped && p.hasTimecode) {
      const uint8_t digits[4] = {p.timecode.hours, p.timecode.minutes, p.timecode.seconds, p.timecode.frames};
      if (tc2Frame(reinterpret_cast<const char*>(digits), out.tcType | 0x400, &timecode) != 0) continue;
    }
    for (size_t i = 0; i + 2 < p.triplets.size(); i += 3) {
      const uint8_t marker = p.triplets[i];
      if (!(marker & 0x04) || (marker & 3) != ccType) continue;  // cc_valid, cc_type
      const uint8_t b1 = p.triplets[i + 1], b2 = p.triplets[i + 2];
      if ((b1 & 0x7F) == 0 && (b2 & 0x7F) == 0) continue;  // padding
      out.pairs.push_back(Pair{p.display, timecode, b1, b2});
    }
  }
  return true;
}

std::string timecodeText(uint32_t frames, uint32_t tcType) {
  char text[32] = {};
  tc2String(frames, tcType | TCF_FULL_TEXT, text, sizeof text);
  return text;
}

std::string sccText(const Extracted& e) {
  std::string out = "Scenarist_SCC V1.0\n";
  uint32_t next = 0;
  bool open = false;
  for (const auto& p : e.pairs) {
    if (!open || p.timecode != next) {  // a gap starts a new line
      out += "\n\n" + timecodeText(p.timecode, e.tcType) + "\t";
      open = true;
    } else {
      out += ' ';
    }
    char word[8];
    std::snprintf(word, sizeof word, "%02x%02x", p.b1, p.b2);
    out += word;
    next = p.timecode + 1;
  }
  return out + "\n";
}

struct Cue {
  uint32_t startFrame, endFrame;
  std::string text;
};

std::vector<Cue> decodeCues(const Extracted& e, uint32_t channel) {
  auto decoder = std::make_unique<CEA608_DECODER>();
  auto cue = std::make_unique<CEA608_CUE>();
  klxutilCea608Init(decoder.get(), channel);
  std::vector<Cue> cues;
  for (const auto& p : e.pairs)
    if (klxutilCea608Feed(decoder.get(), p.display, p.b1, p.b2, cue.get()) == 1) cues.push_back({cue->startFrame, cue->endFrame, cue->text});
  if (klxutilCea608Flush(decoder.get(), e.pictures, cue.get()) == 1) cues.push_back({cue->startFrame, cue->endFrame, cue->text});
  return cues;
}

std::string srtTime(uint32_t frame, double rate) {
  const uint64_t ms = uint64_t(std::llround(frame * 1000.0 / rate));
  char text[32];
  std::snprintf(text, sizeof text, "%02llu:%02llu:%02llu,%03llu", (unsigned long long)(ms / 3600000),
                (unsigned long long)(ms / 60000 % 60), (unsigned long long)(ms / 1000 % 60), (unsigned long long)(ms % 1000));
  return text;
}

std::string srtText(const std::vector<Cue>& cues, double rate) {
  std::string out;
  for (size_t i = 0; i < cues.size(); ++i)
    out += std::to_string(i + 1) + "\n" + srtTime(cues[i].startFrame, rate) + " --> " + srtTime(cues[i].endFrame, rate) + "\n" +
           cues[i].text + "\n\n";
  return out;
}

bool writeOutput(const std::string& path, const std::string& text, std::string& error) {
  if (path == "-") return std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return error = std::strerror(errno), false;
  const bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
  if (std::fclose(f) != 0 || !ok) return error = std::strerror(errno), false;
  return true;
}

bool endsWith(const std::string& s, const char* tail) {
  const size_t n = std::strlen(tail);
  return s.size() >= n && s.compare(s.size() - n, n, tail) == 0;
}

}  // namespace

int cmdCaptions(int argc, char** argv) {
  cli::Command args("captions", "");
  args.usageText(kUsage).option("-o,--output", "").option("--format", "").option("--channel", "").forceFlag();
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
  std::error_code ec;
  if (output && *output != "-") {
    if (std::filesystem::exists(*output, ec) && std::filesystem::equivalent(*output, inPath, ec))
      return cli::fail("captions", "OUT must not be IN");
    if (!args.has("force") && std::filesystem::exists(*output, ec))
      return cli::fail("captions", "%s exists (give --force to replace it)", output->c_str());
  }

  auto input = cli::readFile(inPath);
  if (!input) return cli::failWith(cli::kFailed, "captions", "cannot read %s: %s", inPath.c_str(), std::strerror(errno));
  Extracted e;
  std::string error;
  if (!extract(*input, *channel, e, error)) return cli::failWith(cli::kFailed, "captions", "%s: %s", inPath.c_str(), error.c_str());
  const std::vector<Cue> cues = decodeCues(e, *channel);
  if (output) {
    const std::string text = format == "scc" ? sccText(e) : srtText(cues, e.pictureRate);
    if (!writeOutput(*output, text, error))
      return cli::failWith(cli::kFailed, "captions", "cannot write %s: %s", output->c_str(), error.c_str());
  }
  if (args.has("json")) {
    static constexpr const char* kCodecs[] = {"h264", "hevc", "mpeg2", "unknown"};
    cli::JsonValue j{{"file", inPath}, {"codec", kCodecs[int(e.codec)]}, {"channel", *channel}, {"pairs", e.pairs.size()},
                     {"cues", cli::JsonValue::array()}};
    for (const auto& c : cues) {
      uint32_t timecode = c.startFrame;
      for (const auto& p : e.pairs)
        if (p.display >= c.startFrame) {
          timecode = p.timecode - (p.display - c.startFrame);
          break;
        }
      j["cues"].push_back({{"startFrame", c.startFrame}, {"endFrame", c.endFrame},
                           {"startMs", std::llround(c.startFrame * 1000.0 / e.pictureRate)},
                           {"endMs", std::llround(c.endFrame * 1000.0 / e.pictureRate)},
                           {"startTimecode", timecodeText(timecode, e.tcType)}, {"text", c.text}});
    }
    if (output && *output == "-") std::fputc('\n', stdout);
    cli::printJson(j);
  } else if (output && *output != "-") {
    std::printf("%s: %zu caption pairs on CC%u, %zu cues -> %s\n", inPath.c_str(), e.pairs.size(), *channel, cues.size(),
                output->c_str());
  }
  return cli::kOk;
}
