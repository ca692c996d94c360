// quorvane: every capability of the library from the command line.
#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

#include "cli.h"
#include "commands.h"

namespace {

constexpr SubCommand kCommands[] = {
    {"tc", "convert frame counts to SMPTE timecode text and back", cmdTc},
    {"cmd", "build, convert and dump media commands (XML, JSON)", cmdCmd},
    {"format", "decode a signal-format word or derive one from raster and rate", cmdFormat},
    {"config", "read and write values of the configuration store", cmdConfig},
    {"meta", "show and edit the metadata record in the configuration store", cmdMeta},
    {"project", "print or create a project file", cmdProject},
    {"params", "print the parameter sets of an H.264 or HEVC stream", cmdParams},
    {"hvcc", "write or read an HEVC decoder configuration record", cmdHvcc},
    {"avcc", "write or read an AVC decoder configuration record", cmdAvcc},
    {"dvcc", "write or read a Dolby Vision configuration record (dvvC)", cmdDvcc},
    {"nal", "list the NAL units of an elementary stream", cmdNal},
    {"reframe", "convert a stream between start codes and length prefixes", cmdReframe},
    {"inspect", "summarise a stream: units, parameter sets, format, timecodes", cmdInspect},
    {"stamp", "stamp SMPTE timecode and captions into a stream", cmdStamp},
    {"hdr", "set HDR metadata SEI and the colour description of a stream", cmdHdr},
    {"captions", "extract the captions of a stream as SCC, SRT or JSON cues", cmdCaptions},
    {"adts", "list the ADTS headers of an AAC stream", cmdAdts},
    {"names", "print file-type and codec labels", cmdNames},
};

void usage(FILE* out) {
  std::fprintf(out,
               "usage: quorvane [-v|--verbose] [--json] <command> [options]\n"
               "       quorvane <command> --help     (or: quorvane help <command>)\n"
               "       quorvane --version\n\n"
               "Quorvane media utilities.\n\ncommands:\n");
  for (const auto& c : kCommands) std::fprintf(out, "  %-9s %s\n", c.name, c.summary);
  std::fprintf(out,
               "\nEvery command takes --json (before or after its name) for one JSON document on standard\n"
               "output (a failure under --json prints {\"error\", \"command\", \"exitCode\"} too). -v shows\n"
               "the library's own log lines on stderr.\n");
}

const SubCommand* find(const char* name) {
  for (const auto& c : kCommands)
    if (!std::strcmp(c.name, name)) return &c;
  return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  // -v/--verbose and --json are the whole command's: taken here, before the subcommand's parser.
  std::vector<char*> args;
  bool verbose = false, json = false, jsonBeforeCommand = false, positionalOnly = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view a = argv[i];
    if (!positionalOnly && (a == "-v" || a == "--verbose")) {
      verbose = true;
      continue;
    }
    if (a == "--") positionalOnly = true;
    if (!positionalOnly && a == "--json") {
      json = true;
      if (args.empty()) {  // "quorvane --json inspect f": the command's option, written before it
        jsonBeforeCommand = true;
        continue;
      }
    }
    args.push_back(argv[i]);
  }
  static char jsonOption[] = "--json";
  if (jsonBeforeCommand && !args.empty() && find(args[0])) args.insert(args.begin() + 1, jsonOption);
  cli::setVerbose(verbose);
  cli::setJsonErrors(json);
  cli::installLogSink();

  if (args.empty()) {
    usage(stderr);
    return cli::kUsage;
  }
  const char* name = args[0];
  if (!std::strcmp(name, "--version")) {
    std::printf("quorvane %s\n", QUORVANE_VERSION);
    return cli::kOk;
  }
  if (!std::strcmp(name, "--help") || !std::strcmp(name, "-h") || !std::strcmp(name, "help")) {
    if (args.size() >= 2 && std::strcmp(name, "help") == 0) {
      const SubCommand* c = find(args[1]);
      if (!c) return cli::fail("", "unknown command '%s' (see quorvane --help)", args[1]);
      char help[] = "--help";
      char* helpArgs[] = {help, nullptr};
      return c->run(1, helpArgs);
    }
    usage(stdout);
    return cli::kOk;
  }
  if (const SubCommand* c = find(name)) {
    args.push_back(nullptr);
    return c->run(static_cast<int>(args.size()) - 2, args.data() + 1);
  }
  return cli::fail("", "unknown command '%s' (see quorvane --help)", name);
}
