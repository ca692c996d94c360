// Opening a command's input: the --track option, the one-line refusal, the progress bar.
#pragma once
#include <memory>
#include <optional>
#include <string>

#include "cli.h"
#include "media/input.h"

namespace media {

// The option every stream command adds to its parser: addTrackOption(command).
inline constexpr const char* kTrackOption = "track";
void addTrackOption(cli::Command& command);

// Opens `path` for `command`. On failure prints "quorvane <command>: <message>" and returns
// null with `exitCode` set (kUsage for a bad --track value, kFailed otherwise).
// `track` is the --track value given, if any.
std::unique_ptr<Input> openInput(const char* command, const std::string& path, const std::optional<std::string>& track,
                                 int& exitCode);
inline std::unique_ptr<Input> openInput(const char* command, const std::string& path, const cli::Command& args, int& exitCode) {
  return openInput(command, path, args.get(kTrackOption), exitCode);
}

// A progress bar over the input's bytes (shown only when stderr is a terminal and the size is
// known); ended with a newline when it goes out of scope.
class InputProgress {
 public:
  InputProgress(const char* label, const Input& input) : input_(input), bar_(label, input.info().size) {}
  void tick() {
    if (++calls_ % 64 == 0) bar_.update(input_.position());
  }
  void done() { bar_.update(input_.info().size); }

 private:
  const Input& input_;
  cli::Progress bar_;
  uint64_t calls_ = 0;
};

}  // namespace media
