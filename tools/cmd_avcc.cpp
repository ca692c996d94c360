// quorvane avcc: write the AVC decoder configuration record (avcC box) of an H.264 stream, or
// print one.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "cli.h"
#include "commands.h"
#include "media/command_input.h"
#include "param_report.h"
#include "streamutil/avcc.h"

namespace {

constexpr const char* kAbout =
    "usage: quorvane avcc FILE -o avcC.bin [-y] [--json] [--track N]\n"
    "       quorvane avcc --read avcC.bin [--json]\n\n"
    "Builds the AVCDecoderConfigurationRecord (ISO/IEC 14496-15 5.3.3.1) of an H.264 elementary\n"
    "stream from its distinct SPS and PPS units and writes it as an avcC box (size, type,\n"
    "record). With --read, prints the fields and every parameter set of an avcC box (or of a\n"
    "bare record), in record order.";
constexpr const char* kFooter =
    "--json shape (writing): {\"file\", \"output\", \"bytes\"}\n"
    "--json shape (--read):  {\"file\", \"record\": {FIELD: N}, \"summary\" (as params, of the first SPS),\n"
    "  \"sps\", \"pps\": [{\"bytes\", \"valid\", \"reports\", \"elements\": [{\"name\": syntax element,\n"
    "  \"value\": N}]}] (every set, in record order, as params lists them),\n"
    "  \"spsExt\": [{\"bytes\", \"data\": HEX}] (High-profile records' SPS extensions)}\n"
    "FIELD: the record's field names of ISO/IEC 14496-15 (AVCProfileIndication, chroma_format...).\n"
    "Example: quorvane avcc clip.mp4 -o avcC.bin\n";

struct Field {
  const char* name;
  int64_t value;
};

void printFields(const std::vector<Field>& fields, FILE* out, cli::JsonValue* json) {
  for (const auto& f : fields) {
    if (json)
      (*json)[f.name] = f.value;
    else
      std::fprintf(out, "  %s = %lld\n", f.name, static_cast<long long>(f.value));
  }
}

// The record's parameter sets, every one in record order.
struct RecordUnits {
  std::vector<params::Bytes> sps, pps, spsExt;
};

bool unitsOf(const uint8_t* record, uint32_t size, RecordUnits& out) {
  AVCC_ENTRY entries[31 + 255 + 255];
  uint32_t count = 0;
  if (klxutilAvccEntries(record, size, entries, static_cast<uint32_t>(std::size(entries)), &count) != 0) return false;
  for (uint32_t i = 0; i < count; ++i) {
    const AVCC_ENTRY& e = entries[i];
    auto& into = e.nal_unit_type == 7 ? out.sps : e.nal_unit_type == 8 ? out.pps : out.spsExt;
    into.emplace_back(record + e.offset, record + e.offset + e.size);
  }
  return true;
}

std::string hexText(const params::Bytes& bytes) {
  std::string text;
  char two[3];
  for (uint8_t b : bytes) std::snprintf(two, sizeof two, "%02X", b), text += two;
  return text;
}

int readBox(const std::string& path, bool asJson) {
  auto text = cli::readFile(path);
  if (!text) return cli::failWith(cli::kFailed, "avcc", "cannot read %s: %s", path.c_str(), std::strerror(errno));
  const auto* bytes = reinterpret_cast<const uint8_t*>(text->data());
  avcc_t* avcc = avcc_new();
  if (!avcc) return cli::failWith(cli::kFailed, "avcc", "out of memory");
  AVCC_HIGH_PROFILE_FIELDS ext{};
  params::Decoded d;
  d.avcSps = std::make_unique<SPS_DECODED>();
  d.avcPps = std::make_unique<PPS_DECODED>();
  const int rc = klxutilReadAvcc(bytes, static_cast<uint32_t>(text->size()), avcc, nullptr, &ext, d.avcSps.get(), d.avcPps.get());
  std::vector<Field> fields = {{"configurationVersion", avcc->configurationVersion},
                               {"AVCProfileIndication", avcc->AVCProfileIndication},
                               {"profile_compatibility", avcc->profile_compatibility},
                               {"AVCLevelIndication", avcc->AVCLevelIndication},
                               {"lengthSizeMinusOne", avcc->lengthSizeMinusOne},
                               {"numOfSequenceParameterSets", avcc->numOfSequenceParameterSets},
                               {"numOfPictureParameterSets", avcc->numOfPictureParameterSets}};
  if (ext.present)
    fields.insert(fields.end(), {{"chroma_format", ext.chroma_format},
                                 {"bit_depth_luma_minus8", ext.bit_depth_luma_minus8},
                                 {"bit_depth_chroma_minus8", ext.bit_depth_chroma_minus8},
                                 {"numOfSequenceParameterSetExt", ext.numOfSequenceParameterSetExt}});
  avcc_free(avcc);
  RecordUnits units;
  if (rc != 0 || !unitsOf(bytes, static_cast<uint32_t>(text->size()), units))
    return cli::failWith(cli::kFailed, "avcc", "%s is not a readable avcC record", path.c_str());
  params::LogCollector log;  // reader reports are shown with the unit they concern
  if (asJson) {
    cli::JsonValue record = cli::JsonValue::object();
    printFields(fields, nullptr, &record);
    cli::JsonValue extensions = cli::JsonValue::array();
    for (const auto& unit : units.spsExt) extensions.push_back({{"bytes", unit.size()}, {"data", hexText(unit)}});
    cli::printJson({{"file", path},
                    {"record", std::move(record)},
                    {"summary", params::summaryJson(params::summarize(*d.avcSps))},
                    {"sps", params::listUnitsJson(StreamCodec::kH264, "SPS", units.sps, log)},
                    {"pps", params::listUnitsJson(StreamCodec::kH264, "PPS", units.pps, log)},
                    {"spsExt", std::move(extensions)}});
    return cli::kOk;
  }
  std::printf("%s: avcC, %zu bytes\n", path.c_str(), text->size());
  printFields(fields, stdout, nullptr);
  std::printf("%s\n", params::summaryLine(params::summarize(*d.avcSps)).c_str());
  params::listUnitsText(stdout, StreamCodec::kH264, "SPS", units.sps, log);
  params::listUnitsText(stdout, StreamCodec::kH264, "PPS", units.pps, log);
  for (size_t i = 0; i < units.spsExt.size(); ++i)  // no reader for them: their bytes
    std::printf("SPS extension #%zu (%zu bytes)\n  data = %s\n", i, units.spsExt[i].size(), hexText(units.spsExt[i]).c_str());
  return cli::kOk;
}

int writeBox(const std::string& path, const std::string& output, const cli::Command& args, bool force, bool asJson) {
  if (int rc = cli::checkOutput("avcc", output, force, {path}); rc != cli::kOk) return rc;
  int exitCode = 0;
  auto input = media::openInput("avcc", path, args, exitCode);
  if (!input) return exitCode;
  if (input->info().codec != StreamCodec::kH264)
    return cli::failWith(cli::kFailed, "avcc", "%s: %s, not H.264", path.c_str(), media::describe(input->info()).c_str());
  params::StreamParams sets;
  if (!params::collectFrom(*input, sets))
    return cli::failWith(cli::kFailed, "avcc", "%s: %s", path.c_str(), input->error().c_str());
  // The parameter sets as one start-code frame, the form klxutilGetAvcc reads.
  std::vector<uint8_t> stream;
  for (const auto* list : {&sets.sps, &sets.pps})
    for (const auto& unit : *list) {
      stream.insert(stream.end(), {0, 0, 0, 1});
      stream.insert(stream.end(), unit.begin(), unit.end());
    }
  if (stream.size() > 0xFFFFFFF0u) return cli::failWith(cli::kFailed, "avcc", "%s is too large", path.c_str());
  uint32_t n = 0;
  int rc = klxutilGetAvcc(stream.data(), static_cast<uint32_t>(stream.size()), 1, nullptr, 0, &n);
  std::vector<uint8_t> box(8 + static_cast<size_t>(n));
  if (rc == -102) rc = klxutilGetAvcc(stream.data(), static_cast<uint32_t>(stream.size()), 1, box.data() + 8, n, &n);
  if (rc != 0) return cli::failWith(cli::kFailed, "avcc", "%s lacks a readable SPS or PPS", path.c_str());
  const uint32_t total = n + 8;
  const uint8_t head[8] = {uint8_t(total >> 24), uint8_t(total >> 16), uint8_t(total >> 8), uint8_t(total), 'a', 'v', 'c', 'C'};
  std::memcpy(box.data(), head, 8);
  std::ofstream file(output, std::ios::binary | std::ios::trunc);
  if (!file.write(reinterpret_cast<const char*>(box.data()), static_cast<std::streamsize>(box.size())) || !file.flush())
    return cli::failWith(cli::kFailed, "avcc", "cannot write %s", output.c_str());
  if (asJson) {
    cli::printJson({{"file", path}, {"output", output}, {"bytes", total}});
  } else {
    std::printf("%s: wrote %u-byte avcC box\n", output.c_str(), total);
  }
  return cli::kOk;
}

}  // namespace

int cmdAvcc(int argc, char** argv) {
  cli::Command args("avcc", kAbout, kFooter);
  args.option("-o,--output", "where to write the avcC box (an existing file only with -y)")
      .option("--read", "print the avcC box FILE instead")
      .forceFlag()
      .flag("--json", "print one JSON object (shapes below)")
      .positionals("FILE", "the H.264 stream or container");
  media::addTrackOption(args);
  if (auto exit = args.parse(argc, argv)) return *exit;
  const bool asJson = args.has("json");
  if (auto box = args.get("read")) {
    if (!args.positional().empty() || args.has("output")) return cli::fail("avcc", "--read takes no other file (see --help)");
    return readBox(*box, asJson);
  }
  if (args.positional().size() != 1) return cli::fail("avcc", "expected one H.264 stream file (see --help)");
  auto output = args.get("output");
  if (!output) return cli::fail("avcc", "missing -o FILE for the avcC box (see --help)");
  return writeBox(args.positional()[0], *output, args, args.has("force"), asJson);
}
