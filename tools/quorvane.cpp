// quorvane: every capability of the library from the command line.
#include <cstdio>
#include <cstring>

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
    {"nal", "list the NAL units of an elementary stream", cmdNal},
    {"reframe", "convert a stream between start codes and length prefixes", cmdReframe},
    {"inspect", "summarise a stream: units, parameter sets, format, timecodes", cmdInspect},
    {"stamp", "stamp SMPTE timecode and captions into a stream", cmdStamp},
    {"captions", "extract the captions of a stream as SCC, SRT or JSON cues", cmdCaptions},
    {"adts", "list the ADTS headers of an AAC stream", cmdAdts},
    {"names", "print file-type and codec labels", cmdNames},
};

void usage(FILE* out) {
  std::fprintf(out,
               "usage: quorvane <command> [options]\n"
               "       quorvane <command> --help\n\n"
               "Quorvane media utilities.\n\ncommands:\n");
  for (const auto& c : kCommands) std::fprintf(out, "  %-9s %s\n", c.name, c.summary);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    usage(stderr);
    return cli::kUsage;
  }
  const char* name = argv[1];
  if (!std::strcmp(name, "--help") || !std::strcmp(name, "-h") || !std::strcmp(name, "help")) {
    usage(stdout);
    return cli::kOk;
  }
  for (const auto& c : kCommands)
    if (!std::strcmp(c.name, name)) return c.run(argc - 2, argv + 2);
  return cli::fail("", "unknown command '%s' (see quorvane --help)", name);
}
