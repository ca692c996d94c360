// quorvane hvcc: write the HEVC decoder configuration record (hvcC box) of a stream, or print one.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

#include "cli.h"
#include "commands.h"
#include "media/command_input.h"
#include "media/output.h"
#include "param_report.h"
#include "streamutil/hevc_config_record.h"

namespace {

constexpr const char* kAbout =
    "usage: quorvane hvcc FILE -o hvcC.bin [-y] [--json] [--track N]\n"
    "       quorvane hvcc --read hvcC.bin [--json]\n\n"
    "Builds the HEVCDecoderConfigurationRecord of an HEVC stream (elementary, or the video track\n"
    "of a container) from its first VPS, SPS and PPS (header derived from them) and writes it as\n"
    "an hvcC box (size, type, record). Reading stops once the parameter sets are found.\n"
    "With --read, prints the header fields and every parameter set of an hvcC box (or of a bare\n"
    "record without the box words), in record order.";
constexpr const char* kFooter =
    "--json shape (writing): {\"file\", \"output\", \"bytes\", \"header\": {FIELD: N}}\n"
    "--json shape (--read):  {\"file\", \"header\": {FIELD: N}, \"summary\" (as params, of the first SPS,\n"
    "  when the record has one), \"vps\", \"sps\", \"pps\": [{\"bytes\", \"valid\", \"reports\",\n"
    "  \"elements\": [{\"name\": syntax element, \"value\": N}]}] (every set, in record order, as\n"
    "  params lists them)}\n"
    "FIELD: the record's field names of ISO/IEC 14496-15 (configurationVersion, general_profile_idc...).\n"
    "Example: quorvane hvcc clip.hevc -o hvcC.bin\n";

void headerFields(const HEVC_DECODED& h, FILE* out, cli::JsonValue* json) {
  const struct {
    const char* name;
    uint64_t value;
  } fields[] = {
      {"configurationVersion", h.configurationVersion},
      {"general_profile_space", h.general_profile_space},
      {"general_tier_flag", h.general_tier_flag},
      {"general_profile_idc", h.general_profile_idc},
      {"general_profile_compatibility_flags", h.general_profile_compatibility_flags},
      {"general_constraint_indicator_flags", h.general_constraint_indicator_flags},
      {"general_level_idc", h.general_level_idc},
      {"min_spatial_segmentation_idc", h.min_spatial_segmentation_idc},
      {"parallelismType", h.parallelismType},
      {"chromaFormat", h.chromaFormat},
      {"bitDepthLumaMinus8", h.bitDepthLumaMinus8},
      {"bitDepthChromaMinus8", h.bitDepthChromaMinus8},
      {"avgFrameRate", h.avgFrameRate},
      {"constantFrameRate", h.constantFrameRate},
      {"numTemporalLayers", h.numTemporalLayers},
      {"temporalIdNested", h.temporalIdNested},
      {"lengthSizeMinusOne", h.lengthSizeMinusOne},
      {"numOfArrays", h.numOfArrays},
  };
  cli::JsonValue header = cli::JsonValue::object();
  for (const auto& f : fields) {
    if (json)
      header[f.name] = f.value;
    else
      std::fprintf(out, "  %s = 0x%llX (%llu)\n", f.name, static_cast<unsigned long long>(f.value),
                   static_cast<unsigned long long>(f.value));
  }
  if (json) (*json)["header"] = std::move(header);
}

constexpr uint32_t kMaxEntries = 1024;

// The box without the 03 of every 00 00 03 behind its box words, its size word made to match:
// the copy klxutilRead_HEVC_CR reads when the box as stored does not parse.
std::vector<uint8_t> unescapedBox(const std::vector<uint8_t>& box) {
  std::vector<uint8_t> plain(box.begin(), box.begin() + 8);
  size_t zeros = 0;
  for (size_t i = 8; i < box.size(); ++i) {
    if (zeros >= 2 && box[i] == 3) {
      zeros = 0;
      continue;
    }
    zeros = box[i] ? 0 : zeros + 1;
    plain.push_back(box[i]);
  }
  const uint32_t size = static_cast<uint32_t>(plain.size());
  for (int b = 0; b < 4; ++b) plain[b] = static_cast<uint8_t>(size >> (24 - 8 * b));
  return plain;
}

int readBox(const std::string& path, bool asJson) {
  auto text = cli::readFile(path);
  if (!text) return cli::failWith(cli::kFailed, "hvcc", "cannot read %s: %s", path.c_str(), std::strerror(errno));
  std::vector<uint8_t> box(text->begin(), text->end());
  const bool bare = box.size() < 8 || std::memcmp(box.data() + 4, "hvcC", 4) != 0;
  if (bare) {  // a bare record: add the box words
    uint32_t size = static_cast<uint32_t>(box.size() + 8);
    std::vector<uint8_t> head = {uint8_t(size >> 24), uint8_t(size >> 16), uint8_t(size >> 8), uint8_t(size), 'h', 'v', 'c', 'C'};
    box.insert(box.begin(), head.begin(), head.end());
  }
  HEVC_DECODED header{};
  params::Decoded d;
  d.hevcVps = std::make_unique<HEVC_VPS_DECODED>();
  d.hevcSps = std::make_unique<HEVC_SPS_DECODED>();
  d.hevcPps = std::make_unique<HEVC_PPS_DECODED>();
  zr_bitstream in{box.data(), static_cast<int64_t>(box.size()), box.size() * 8, 0};
  params::LogCollector log;
  uint32_t result = klxutilRead_HEVC_CR(&in, &header, d.hevcVps.get(), d.hevcSps.get(), d.hevcPps.get());
  if (result == 0xFFFFFFFFu)
    return cli::failWith(cli::kFailed, "hvcc", "%s is not a readable hvcC record (%s)", path.c_str(), log.first().c_str());
  for (const auto& line : log.lines()) std::fprintf(stderr, "quorvane hvcc: reader report: %s\n", line.c_str());
  log.clear();
  // Every VPS, SPS and PPS in record order (the reader above takes the first of each type).
  HVCC_ENTRY entries[kMaxEntries];
  uint32_t count = 0;
  if (klxutilHvccEntries(box.data(), static_cast<uint32_t>(box.size()), entries, kMaxEntries, &count) != 0) {
    // The reader's retry takes a box stored with emulation-prevention bytes: list the units of
    // the box as it reads it.
    box = unescapedBox(box);
    if (klxutilHvccEntries(box.data(), static_cast<uint32_t>(box.size()), entries, kMaxEntries, &count) != 0)
      return cli::failWith(cli::kFailed, "hvcc", "cannot list the units of %s (more than %u)", path.c_str(), kMaxEntries);
  }
  const struct {
    const char* kind;
    const char* key;
    uint32_t type;
  } kinds[] = {{"VPS", "vps", 32}, {"SPS", "sps", 33}, {"PPS", "pps", 34}};
  std::vector<params::Bytes> units[std::size(kinds)];
  for (uint32_t i = 0; i < count; ++i)
    for (size_t k = 0; k < std::size(kinds); ++k)
      if (entries[i].nal_unit_type == kinds[k].type)
        units[k].emplace_back(box.data() + entries[i].offset, box.data() + entries[i].offset + entries[i].size);
  const bool haveSps = d.hevcSps->pic_width_in_luma_samples > 0;
  if (asJson) {
    cli::JsonValue json{{"file", path}};
    headerFields(header, nullptr, &json);
    if (haveSps) json["summary"] = params::summaryJson(params::summarize(*d.hevcSps, d.hevcVps.get()));
    for (size_t k = 0; k < std::size(kinds); ++k)
      json[kinds[k].key] = params::listUnitsJson(StreamCodec::kHevc, kinds[k].kind, units[k], log);
    cli::printJson(json);
    return cli::kOk;
  }
  std::printf("%s: %s, %zu bytes\n", path.c_str(), bare ? "record" : "hvcC", text->size());  // as in the file
  headerFields(header, stdout, nullptr);
  if (haveSps) std::printf("%s\n", params::summaryLine(params::summarize(*d.hevcSps, d.hevcVps.get())).c_str());
  for (size_t k = 0; k < std::size(kinds); ++k) params::listUnitsText(stdout, StreamCodec::kHevc, kinds[k].kind, units[k], log);
  return cli::kOk;
}

int writeBox(const std::string& path, const std::string& output, const cli::Command& args, bool asJson) {
  int exitCode = 0;
  auto input = media::openInput("hvcc", path, args, exitCode);
  if (!input) return exitCode;
  if (input->info().codec != StreamCodec::kHevc)
    return cli::failWith(cli::kFailed, "hvcc", "%s: %s, not HEVC", path.c_str(), media::describe(input->info()).c_str());
  params::StreamParams sets;
  if (!params::collectFrom(*input, sets))
    return cli::failWith(cli::kFailed, "hvcc", "%s: %s", path.c_str(), input->error().c_str());
  if (sets.vps.empty() || sets.sps.empty() || sets.pps.empty())
    return cli::failWith(cli::kFailed, "hvcc", "%s lacks a VPS, SPS or PPS", path.c_str());
  params::Decoded d;
  if (!params::decodeUnit(StreamCodec::kHevc, "SPS", sets.sps.front(), d) ||
      !params::decodeUnit(StreamCodec::kHevc, "PPS", sets.pps.front(), d))
    return cli::failWith(cli::kFailed, "hvcc", "the parameter sets of %s are not readable", path.c_str());
  for (const auto* unit : {&sets.vps.front(), &sets.sps.front(), &sets.pps.front()})
    if (unit->size() > 0xFFFF) return cli::failWith(cli::kFailed, "hvcc", "a parameter set is too long for hvcC");
  HEVC_DECODED header;
  klxutilFillHvccHeader(&header, d.hevcSps.get(), d.hevcPps.get());
  const size_t capacity = 8 + 23 + 15 + sets.vps.front().size() + sets.sps.front().size() + sets.pps.front().size();
  std::vector<uint8_t> box(capacity, 0);
  zr_bitstream out{box.data(), static_cast<int64_t>(box.size()), box.size() * 8, 64};
  uint32_t n = klxutilWrite_HEVC_CR(&out, &header, sets.vps.front().data(), sets.sps.front().data(),
                                    sets.pps.front().data(), static_cast<int32_t>(sets.vps.front().size()),
                                    static_cast<int32_t>(sets.sps.front().size()),
                                    static_cast<int32_t>(sets.pps.front().size()));
  if (n != capacity) return cli::failWith(cli::kFailed, "hvcc", "internal size mismatch (%u <> %zu)", n, capacity);
  const uint8_t head[8] = {uint8_t(n >> 24), uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n), 'h', 'v', 'c', 'C'};
  std::memcpy(box.data(), head, 8);
  media::OutputFile file(output);
  if (!file.ok() || !file.write(box.data(), box.size()) || !file.commit())
    return cli::failWith(cli::kFailed, "hvcc", "cannot write %s", output.c_str());
  if (asJson) {
    cli::JsonValue json{{"file", path}, {"output", output}, {"bytes", n}};
    headerFields(header, nullptr, &json);
    cli::printJson(json);
  } else {
    std::printf("%s: wrote %u-byte hvcC box (%s)\n", output.c_str(), n,
                params::summaryLine(params::summarize(*d.hevcSps, nullptr)).c_str());
  }
  return cli::kOk;
}

}  // namespace

int cmdHvcc(int argc, char** argv) {
  cli::Command args("hvcc", kAbout, kFooter);
  args.option("-o,--output", "where to write the hvcC box (an existing file only with -y)")
      .option("--read", "print the hvcC box FILE instead")
      .forceFlag()
      .flag("--json", "print one JSON object (shapes below)")
      .positionals("FILE", "the HEVC stream or container, or - for an elementary stream on standard input");
  media::addTrackOption(args);
  if (auto exit = args.parse(argc, argv)) return *exit;
  const bool asJson = args.has("json");
  if (auto box = args.get("read")) {
    if (!args.positional().empty() || args.has("output")) return cli::fail("hvcc", "--read takes no other file (see --help)");
    return readBox(*box, asJson);
  }
  if (args.positional().size() != 1) return cli::fail("hvcc", "expected one HEVC stream file (see --help)");
  auto output = args.get("output");
  if (!output) return cli::fail("hvcc", "missing -o FILE for the hvcC box (see --help)");
  if (int rc = cli::checkOutput("hvcc", *output, args.has("force"), {args.positional()[0]}); rc != cli::kOk) return rc;
  return writeBox(args.positional()[0], *output, args, asJson);
}
