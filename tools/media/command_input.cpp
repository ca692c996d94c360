// See command_input.h.
#include "command_input.h"

namespace media {

void addTrackOption(cli::Command& command) {
  command.option(std::string("--") + kTrackOption, "the video track N of a container (as ffprobe numbers them)");
}

std::unique_ptr<Input> openInput(const char* command, const std::string& path, const std::optional<std::string>& track, int& exitCode) {
  OpenOptions options;
  if (track) {
    auto n = cli::parseU32(*track);
    if (!n || *n > 0xFFFF) {
      exitCode = cli::fail(command, "--track takes a track number as ffprobe counts them, not '%s'", track->c_str());
      return nullptr;
    }
    options.track = static_cast<int>(*n);
  }
  std::string error;
  auto input = Input::open(path, options, error);
  if (!input) exitCode = cli::failWith(cli::kFailed, command, "%s", error.c_str());
  return input;
}

}  // namespace media
