// quorvane adts: the ADTS headers of an AAC stream, and the AudioSpecificConfig they imply.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "cli.h"
#include "commands.h"
#include "media/audio_input.h"
#include "media/command_input.h"
#include "streamutil/aac.h"

namespace {

constexpr const char* kAbout =
    "usage: quorvane adts FILE [--json] [--track N]\n\n"
    "Lists the ADTS frame headers of an AAC stream (ISO/IEC 13818-7): offset, frame length,\n"
    "profile, sampling rate, channels, and prints the AudioSpecificConfig an MP4 file would carry\n"
    "for the stream (from the first header). FILE is a raw ADTS stream ('-': standard input) or\n"
    "a container whose AAC track carries ADTS headers (MPEG-TS); an MP4, MOV or Matroska AAC\n"
    "track has none, and is refused with the AudioSpecificConfig of its sample description.\n"
    "Stops with an error at the first byte that does not start a header or a frame that runs\n"
    "past the end of the file. Offsets in a raw file are file offsets; what stands in front of\n"
    "its first header (an ID3v2 tag, a frame cut short) is not listed.";
constexpr const char* kFooter =
    "--json shape: {\"file\", \"frames\": [{\"offset\", \"length\", \"profile\": \"Main\"|\"LC\"|\"SSR\"|\"LTP\",\n"
    "  \"sampleRate\", \"channels\", \"protectionAbsent\", \"rawDataBlocks\"}], \"audioSpecificConfig\": HEX}\n"
    "Example: quorvane adts audio.aac --json\n";

constexpr uint32_t kSyncword = 0xFFF;
constexpr uint32_t kHeaderBytes = 7;

const char* profileName(uint32_t profile) {
  static constexpr const char* kNames[] = {"Main", "LC", "SSR", "LTP"};
  return kNames[profile & 3];
}

// Bytes of the AudioSpecificConfig for an ADTS header: object type = profile + 1.
std::string audioSpecificConfigHex(const ADTS_HEADER& h) {
  AAC_AUDIO_CONFIG config{h.profile + 1, h.sampling_frequency_index, 0, h.channel_configuration, 0, 0, 0};
  uint8_t bytes[8] = {};
  zr_bitstream s{bytes, sizeof bytes, sizeof bytes * 8, 0};
  klxutilWriteAAC(&s, &config);
  std::string hex;
  char two[3];
  for (uint64_t i = 0; i < (s.position + 7) / 8; ++i) {
    std::snprintf(two, sizeof two, "%02x", bytes[i]);
    hex += two;
  }
  return hex;
}

}  // namespace

int cmdAdts(int argc, char** argv) {
  cli::Command args("adts", kAbout, kFooter);
  args.option("--track", "the AAC track N of a container (as ffprobe numbers them)")
      .flag("--json", "print one JSON object (shape below)")
      .positionals("FILE", "the ADTS stream or container, or - for standard input");
  if (auto exit = args.parse(argc, argv)) return *exit;
  if (args.positional().size() != 1) return cli::fail("adts", "give one AAC file (see quorvane adts --help)");
  const std::string path = args.positional()[0];
  int track = -1;
  if (auto t = args.get(media::kTrackOption)) {
    auto n = cli::parseU32(*t);
    if (!n || *n > 0xFFFF) return cli::fail("adts", "--track takes a track number as ffprobe counts them, not '%s'", t->c_str());
    track = static_cast<int>(*n);
  }
  std::string error;
  auto input = media::AudioInput::open(path, track, error);
  if (!input) return cli::failWith(cli::kFailed, "adts", "%s", error.c_str());

  const bool json = args.has("json");
  cli::JsonValue out{{"file", path}, {"frames", cli::JsonValue::array()}};
  ADTS_HEADER first{};
  size_t frames = 0;
  std::vector<uint8_t> chunk;
  uint64_t base = 0;
  while (input->next(chunk, base)) {
    const uint8_t* data = chunk.data();
    const size_t size = chunk.size();
    for (size_t pos = 0; pos < size;) {
      ADTS_HEADER h{};
      const uint64_t at = base + pos;
      if (size - pos < kHeaderBytes)
        return cli::failWith(cli::kFailed, "adts", "%s: %zu stray bytes at offset %llu", path.c_str(), size - pos,
                             static_cast<unsigned long long>(at));
      // The reader takes the 16-bit check word when protection_absent is 1; give it room to.
      uint8_t header[9] = {};
      std::memcpy(header, data + pos, std::min<size_t>(sizeof header, size - pos));
      zr_bitstream s{header, sizeof header, sizeof header * 8, 0};
      klxutilReadADTS(&s, &h);
      if (h.syncword != kSyncword)
        return cli::failWith(cli::kFailed, "adts", "%s: no ADTS header at offset %llu", path.c_str(),
                             static_cast<unsigned long long>(at));
      if (h.aac_frame_length < kHeaderBytes || h.aac_frame_length > size - pos)
        return cli::failWith(cli::kFailed, "adts", "%s: frame at offset %llu runs past the end (length %u)", path.c_str(),
                             static_cast<unsigned long long>(at), h.aac_frame_length);
      const uint32_t rate = klxutilAACFrequency(h.sampling_frequency_index);
      if (!frames) first = h;
      if (json) {
        out["frames"].push_back({{"offset", at},
                                 {"length", h.aac_frame_length},
                                 {"profile", profileName(h.profile)},
                                 {"sampleRate", rate},
                                 {"channels", h.channel_configuration},
                                 {"protectionAbsent", h.protection_absent == 1},
                                 {"rawDataBlocks", h.number_of_raw_data_blocks_in_frame + 1}});
      } else {
        std::printf("%8llu  length %5u  %s  %6u Hz  %u ch%s\n", static_cast<unsigned long long>(at), h.aac_frame_length,
                    profileName(h.profile), rate, h.channel_configuration, h.protection_absent == 1 ? "" : "  crc");
      }
      ++frames;
      pos += h.aac_frame_length;
    }
  }
  if (!input->error().empty()) return cli::failWith(cli::kFailed, "adts", "%s: %s", path.c_str(), input->error().c_str());
  if (!frames) return cli::failWith(cli::kFailed, "adts", "%s: empty file", path.c_str());
  const std::string asc = audioSpecificConfigHex(first);
  if (json) {
    out["audioSpecificConfig"] = asc;
    cli::printJson(out);
  } else {
    std::printf("%zu frames; AudioSpecificConfig %s\n", frames, asc.c_str());
  }
  return cli::kOk;
}
