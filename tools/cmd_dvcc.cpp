// quorvane dvcc: write a Dolby Vision configuration record (dvvC box) or print one.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "media/output.h"
#include "streamutil/hevc_config_record.h"

namespace {

constexpr const char* kUsage =
    "usage: quorvane dvcc -o dvvC.bin --profile N --level N [options] [-y] [--json]\n"
    "       quorvane dvcc --read FILE [--json]\n\n"
    "Writes a Dolby Vision decoder configuration record as a dvvC box (size, type, 24-byte\n"
    "record), or prints the record of a dvcC/dvvC/dvwC box or of a bare 24-byte record.\n\n"
    "  -o, --output FILE        where to write the box (an existing file only with -y, --force)\n"
    "  --read FILE              print a box instead\n"
    "  --version-major N        (default 1)      --version-minor N  (default 0)\n"
    "  --profile N              0..127           --level N          0..63\n"
    "  --rpu 0|1 (default 1)    --el 0|1 (default 0)    --bl 0|1 (default 1)\n"
    "  --compatibility N        dv_bl_signal_compatibility_id, 0..15 (default 0)\n"
    "  --json                   JSON output\n";

constexpr size_t kRecordBytes = 24;
constexpr size_t kBoxBytes = 8 + kRecordBytes;

// One bit field of the record: its JSON key, the option that sets it, width, default.
struct Field {
  const char* key;
  const char* option;
  int bits;
  uint32_t byDefault;
  uint32_t (*get)(const DOVI_DECODER_CONFIGURATION_RECORD&);
  void (*set)(DOVI_DECODER_CONFIGURATION_RECORD&, uint32_t);
};

#define DVCC_FIELD(key, option, bits, byDefault, member)                                              \
  Field {                                                                                             \
    key, option, bits, byDefault, [](const DOVI_DECODER_CONFIGURATION_RECORD& r) -> uint32_t {       \
      return r.member;                                                                                \
    },                                                                                                \
        [](DOVI_DECODER_CONFIGURATION_RECORD& r, uint32_t v) { r.member = v & ((1u << bits) - 1); } \
  }

const Field kFields[] = {
    DVCC_FIELD("versionMajor", "version-major", 8, 1, dv_version_major),
    DVCC_FIELD("versionMinor", "version-minor", 8, 0, dv_version_minor),
    DVCC_FIELD("profile", "profile", 7, 0, dv_profile),
    DVCC_FIELD("level", "level", 6, 0, dv_level),
    DVCC_FIELD("rpuPresent", "rpu", 1, 1, rpu_present_flag),
    DVCC_FIELD("elPresent", "el", 1, 0, el_present_flag),
    DVCC_FIELD("blPresent", "bl", 1, 1, bl_present_flag),
    DVCC_FIELD("blSignalCompatibilityId", "compatibility", 4, 0, dv_bl_signal_compatibility_id),
    DVCC_FIELD("reserved", nullptr, 28, 0, reserved),
};
#undef DVCC_FIELD

void printRecord(const DOVI_DECODER_CONFIGURATION_RECORD& r, const std::string& file, const char* type, bool asJson) {
  if (asJson) {
    cli::JsonValue json{{"file", file}, {"boxType", type}};
    for (const auto& f : kFields) json[f.key] = f.get(r);
    json["reservedWords"] = cli::JsonValue::array();
    for (uint32_t word : r.reserved_words) json["reservedWords"].push_back(word);
    cli::printJson(json);
    return;
  }
  std::printf("%s: %s, Dolby Vision %u.%u, profile %u, level %u\n", file.c_str(), type, r.dv_version_major,
              r.dv_version_minor, r.dv_profile, r.dv_level);
  for (const auto& f : kFields) std::printf("  %s = %u\n", f.key, f.get(r));
  for (uint32_t word : r.reserved_words) std::printf("  reservedWord = 0x%08X\n", word);
}

uint32_t bigEndian32(const uint8_t* p) {
  return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

int readBox(const std::string& path, bool asJson) {
  auto text = cli::readFile(path);
  if (!text) return cli::failWith(cli::kFailed, "dvcc", "cannot read %s: %s", path.c_str(), std::strerror(errno));
  std::vector<uint8_t> bytes(text->begin(), text->end());
  std::string type = "record";
  size_t offset = 0;
  if (bytes.size() >= 8 && (!std::memcmp(bytes.data() + 4, "dvcC", 4) || !std::memcmp(bytes.data() + 4, "dvvC", 4) ||
                            !std::memcmp(bytes.data() + 4, "dvwC", 4))) {
    type.assign(reinterpret_cast<const char*>(bytes.data() + 4), 4);
    if (bigEndian32(bytes.data()) != bytes.size())
      return cli::failWith(cli::kFailed, "dvcc", "%s: box size %u does not match the file's %zu bytes", path.c_str(),
                           bigEndian32(bytes.data()), bytes.size());
    offset = 8;
  }
  if (bytes.size() - offset != kRecordBytes)
    return cli::failWith(cli::kFailed, "dvcc", "%s: a Dolby Vision configuration record is %zu bytes, found %zu",
                         path.c_str(), kRecordBytes, bytes.size() - offset);
  zr_bitstream in{bytes.data(), static_cast<int64_t>(bytes.size()), bytes.size() * 8, offset * 8};
  DOVI_DECODER_CONFIGURATION_RECORD record{};
  if (klxutilRead_DVVC_CR(&in, &record) != kRecordBytes)
    return cli::failWith(cli::kFailed, "dvcc", "%s: not a readable Dolby Vision configuration record", path.c_str());
  printRecord(record, path, type.c_str(), asJson);
  return cli::kOk;
}

int writeBox(const cli::Command& args, const std::string& output, bool asJson) {
  DOVI_DECODER_CONFIGURATION_RECORD record{};
  for (const auto& f : kFields) {
    uint32_t value = f.byDefault;
    if (f.option)
      if (auto text = args.get(f.option)) {
        auto parsed = cli::parseU32(*text);
        if (!parsed || *parsed >= (1u << f.bits))
          return cli::fail("dvcc", "--%s must be a number from 0 to %u, not '%s'", f.option, (1u << f.bits) - 1,
                           text->c_str());
        value = *parsed;
      }
    f.set(record, value);
  }
  std::vector<uint8_t> box(kBoxBytes, 0);
  zr_bitstream out{box.data(), static_cast<int64_t>(box.size()), box.size() * 8, 64};
  uint32_t n = klxutilWrite_DVVC_CR(&out, &record);
  if (n != kBoxBytes) return cli::failWith(cli::kFailed, "dvcc", "internal size mismatch (%u <> %zu)", n, kBoxBytes);
  const uint8_t head[8] = {0, 0, 0, uint8_t(kBoxBytes), 'd', 'v', 'v', 'C'};
  std::memcpy(box.data(), head, 8);
  media::OutputFile file(output);
  if (!file.ok() || !file.write(box.data(), box.size()) || !file.commit())
    return cli::failWith(cli::kFailed, "dvcc", "cannot write %s", output.c_str());
  if (asJson) {
    printRecord(record, output, "dvvC", true);
  } else {
    std::printf("%s: wrote %zu-byte dvvC box (profile %u, level %u)\n", output.c_str(), kBoxBytes, record.dv_profile,
                record.dv_level);
  }
  return cli::kOk;
}

}  // namespace

int cmdDvcc(int argc, char** argv) {
  cli::Command args("dvcc", "");
  args.usageText(kUsage)
      .option("-o,--output", "where to write the box")
      .option("--read", "print a box instead")
      .flag("--json", "JSON output")
      .forceFlag()
      .positionals("ARGS", "none");
  for (const auto& f : kFields)
    if (f.option) args.option(std::string("--") + f.option, f.key);
  if (auto exit = args.parse(argc, argv)) return *exit;
  const bool asJson = args.has("json");
  if (!args.positional().empty()) return cli::fail("dvcc", "unexpected argument '%s' (see --help)", args.positional()[0].c_str());
  if (auto box = args.get("read")) {
    if (args.has("output")) return cli::fail("dvcc", "--read takes no -o (see --help)");
    return readBox(*box, asJson);
  }
  auto output = args.get("output");
  if (!output) return cli::fail("dvcc", "missing -o FILE or --read FILE (see --help)");
  if (!args.has("profile") || !args.has("level")) return cli::fail("dvcc", "--profile and --level are required (see --help)");
  if (int rc = cli::checkOutput("dvcc", *output, args.has("force")); rc != cli::kOk) return rc;
  return writeBox(args, *output, asJson);
}
