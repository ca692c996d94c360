// quorvane nal: the NAL units (or MPEG-2 start codes) of an elementary stream.
#include <cinttypes>
#include <cstring>
#include <string>

#include "cli.h"
#include "commands.h"
#include "media/command_input.h"
#include "stream_units.h"
#include "streamutil/nal_units.h"

namespace {

constexpr const char* kAbout =
    "usage: quorvane nal [--json] [--codec h264|hevc|mpeg2] [--track N] FILE\n\n"
    "Lists the units of the video stream of FILE (H.264, HEVC NAL units or MPEG-2 start codes),\n"
    "one line each: offset of the start code or length field, unit size (without it), its\n"
    "length, type and name, then nal_ref_idc (H.264) or layer and temporal id (HEVC), and the\n"
    "payload types/sizes of the SEI messages in SEI units. FILE is an elementary stream (start\n"
    "codes or 32-bit length prefixes) or a container (MP4, MOV, Matroska/WebM, MPEG-TS, MXF),\n"
    "recognised by its content; '-' reads an elementary stream from standard input. In a\n"
    "container the offset is the packet's position plus the unit's place in the packet.";
constexpr const char* kFooter =
    "--json shape: {\"file\", \"codec\": \"h264\"|\"hevc\"|\"mpeg2\", [\"container\", \"track\"], \"units\":\n"
    "  [{\"offset\", \"size\", \"startCode\", \"type\", \"name\", \"refIdc\" (H.264) | \"layer\", \"temporalId\"\n"
    "  (HEVC), \"sei\": [{\"type\", \"size\"}] (SEI units only)}], \"count\"}\n"
    "Example: quorvane nal clip.hevc\n";

struct CodecOption {
  const char* name;
  StreamCodec codec;
};
constexpr CodecOption kCodecOptions[] = {
    {"h264", StreamCodec::kH264}, {"avc", StreamCodec::kH264}, {"hevc", StreamCodec::kHevc},
    {"h265", StreamCodec::kHevc}, {"mpeg2", StreamCodec::kMpeg2},
};

std::string seiText(const std::vector<units::SeiMessage>& messages) {
  std::string text;
  for (const auto& m : messages) {
    if (!text.empty()) text += ",";
    text += std::to_string(m.payloadType) + "/" + std::to_string(m.payloadSize);
  }
  return text;
}


struct UnitRow {
  uint32_t at, prefix, size;
  units::Header h;
};

// The units of one access unit: H.264 and HEVC frames through the library's frame-wide search
// (one pass gives offsets, types, nal_ref_idc, layer and temporal id); MPEG-2 start codes, and
// frames the search cannot walk (length fields other than 4 bytes), as the input cut them.
std::vector<UnitRow> unitRows(const media::AccessUnit& au, StreamCodec codec, const media::StreamInfo& info,
                              std::vector<KLX_NAL_UNIT>& found) {
  std::vector<UnitRow> rows;
  const bool searchable = (codec == StreamCodec::kH264 || codec == StreamCodec::kHevc) &&
                          (info.framing == media::Framing::kAnnexB || info.lengthSize == 4) &&
                          au.bytes.size() <= 0xFFFFFFFFu;
  if (searchable) {
    auto search = codec == StreamCodec::kHevc ? klxutilFindNalUnitsHevc : klxutilFindNalUnits;
    const uint32_t startCodes = info.framing == media::Framing::kAnnexB ? 1 : 0;
    const uint32_t size = static_cast<uint32_t>(au.bytes.size());
    uint32_t n = 0;
    int rc = search(au.bytes.data(), size, startCodes, found.data(), uint32_t(found.size()), &n);
    if (rc == KLX_NAL_NO_ROOM) {
      found.resize(n);
      rc = search(au.bytes.data(), size, startCodes, found.data(), uint32_t(found.size()), &n);
    }
    if (rc == KLX_NAL_OK) {
      for (uint32_t i = 0; i < n; ++i) {
        const KLX_NAL_UNIT& u = found[i];
        units::Header h;
        h.type = u.type;
        if (codec == StreamCodec::kH264) h.refIdc = u.nalRefIdc;
        if (codec == StreamCodec::kHevc) h.layer = u.layer, h.temporalId = u.temporalId;
        rows.push_back(UnitRow{u.offset, u.prefixLength, u.size, h});
      }
      return rows;
    }
  }
  for (const auto& s : au.units) rows.push_back(UnitRow{s.at, s.prefix, s.size, units::header(codec, au.unit(s), s.size)});
  return rows;
}

}  // namespace

int cmdNal(int argc, char** argv) {
  cli::Command args("nal", kAbout, kFooter);
  args.option("--codec", "h264, hevc or mpeg2: read an elementary stream as this codec instead of recognising it")
      .flag("--json", "print one JSON object (shape below)")
      .positionals("FILE", "the stream or container, or - for an elementary stream on standard input");
  media::addTrackOption(args);
  if (auto exit = args.parse(argc, argv)) return *exit;
  if (args.positional().size() != 1) return cli::fail("nal", "expected one FILE (see quorvane nal --help)");
  const std::string path = args.positional()[0];
  StreamCodec forced = StreamCodec::kUnknown;
  if (auto name = args.get("codec")) {
    for (const auto& c : kCodecOptions)
      if (*name == c.name) forced = c.codec;
    if (forced == StreamCodec::kUnknown) return cli::fail("nal", "unknown codec '%s' (h264, hevc, mpeg2)", name->c_str());
  }
  int exitCode = 0;
  auto input = media::openInput("nal", path, args, exitCode);
  if (!input) return exitCode;
  const StreamCodec codec = forced != StreamCodec::kUnknown && input->info().elementary ? forced : input->info().codec;

  const bool json = args.has("json");
  cli::JsonValue out{{"file", path}, {"codec", units::codecName(codec)}};
  if (json) {
    if (!input->info().elementary) {
      out["container"] = input->info().container;
      out["track"] = input->info().track;
    }
    out["units"] = cli::JsonValue::array();
  } else {
    const char* tail = codec == StreamCodec::kHevc ? "layer tid  sei" : codec == StreamCodec::kH264 ? "ref  sei" : "";
    std::printf("%-10s %9s %2s  %-22s %s\n", "offset", "size", "sc", "type", tail);
  }
  media::InputProgress progress("nal", *input);
  media::AccessUnit au;
  std::vector<KLX_NAL_UNIT> found(256);
  size_t count = 0;
  while (input->next(au)) {
    progress.tick();
    for (const UnitRow& row : unitRows(au, codec, input->info(), found)) {
      ++count;
      const uint8_t* unit = au.bytes.data() + row.at + row.prefix;
      const char* name = units::typeName(codec, row.h.type);
      const auto seis = units::seiMessages(codec, unit, row.size);
      const uint64_t offset = au.offset + row.at;
      const units::Header& h = row.h;
      if (json) {
        cli::JsonValue entry{{"offset", offset}, {"size", row.size}, {"startCode", row.prefix}, {"type", h.type}, {"name", name}};
        if (codec == StreamCodec::kH264) entry["refIdc"] = h.refIdc;
        if (codec == StreamCodec::kHevc) {
          entry["layer"] = h.layer;
          entry["temporalId"] = h.temporalId;
        }
        if (!seis.empty()) {
          entry["sei"] = cli::JsonValue::array();
          for (const auto& m : seis) entry["sei"].push_back({{"type", m.payloadType}, {"size", m.payloadSize}});
        }
        out["units"].push_back(std::move(entry));
        continue;
      }
      std::string type = std::to_string(h.type) + " " + name;
      std::printf("%-10" PRIu64 " %9u %2u  %-22s", offset, row.size, row.prefix, type.c_str());
      if (codec == StreamCodec::kH264) std::printf(" %3d", h.refIdc);
      if (codec == StreamCodec::kHevc) std::printf(" %5d %3d", h.layer, h.temporalId);
      if (!seis.empty()) std::printf("  %s", seiText(seis).c_str());
      std::printf("\n");
    }
  }
  progress.done();
  if (!input->error().empty()) return cli::failWith(cli::kFailed, "nal", "%s: %s", path.c_str(), input->error().c_str());
  if (count == 0) return cli::failWith(cli::kFailed, "nal", "%s: no units found", path.c_str());
  if (json) {
    out["count"] = count;
    cli::printJson(out);
  } else {
    std::printf("%zu units, %s\n", count, units::codecName(codec));
  }
  return cli::kOk;
}
