// quorvane format's verbs beyond decoding a word: rate pairs, timecode re-counting and
// transport stepping. Shared parsing helpers for all of quorvane format.
#pragma once
#include <cstdint>
#include <optional>
#include <string>

#include "cli.h"

namespace formatcli {

struct RatePair {
  uint32_t rate = 0;
  uint32_t scale = 1;
};
// "30000/1001", "25", a decimal kept exact ("29.97" -> 2997/100), or a timecode-type name with a
// rate ("29.97df" -> 30000/1001).
std::optional<RatePair> parseRate(const std::string& text);

// quorvane format rate RATE
int runRate(const cli::Command& args);
// quorvane format tc FRAMES RATE TYPE
int runTc(const cli::Command& args);
// quorvane format play SPEED [--from N] [--range A:B] [--steps N]
int runPlay(const cli::Command& args);

constexpr const char* kCommand = "format";

}  // namespace formatcli
