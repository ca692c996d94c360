#include "format_verbs.h"

#include <cstdio>
#include <string>
#include <vector>

#include "platform/tcxlat.h"
#include "video/video.h"

namespace formatcli {

namespace {

constexpr uint32_t kMaxSteps = 100000;

// Timecode text of a count in a type ("" when it cannot be written).
std::string timecodeText(uint32_t frames, uint32_t type) {
  char text[32];
  if (tc2String(frames, type | TCF_FULL_TEXT, text, sizeof text) != 0) return {};
  return text;
}

}  // namespace

std::optional<RatePair> parseRate(const std::string& text) {
  if (auto named = cli::tcType(text); named && named->scale && text.find('/') == std::string::npos &&
                                      text.find_first_not_of("0123456789.") != std::string::npos)
    return RatePair{named->rate, named->scale};
  size_t slash = text.find('/');
  if (slash != std::string::npos) {
    auto r = cli::parseU32(text.substr(0, slash));
    auto s = cli::parseU32(text.substr(slash + 1));
    if (!r || !s || *s == 0) return std::nullopt;
    return RatePair{*r, *s};
  }
  size_t dot = text.find('.');
  std::string digits = dot == std::string::npos ? text : text.substr(0, dot) + text.substr(dot + 1);
  size_t decimals = dot == std::string::npos ? 0 : text.size() - dot - 1;
  if (decimals > 6 || digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos)
    return std::nullopt;
  uint64_t value = 0;
  for (char c : digits) {
    value = value * 10 + static_cast<uint64_t>(c - '0');
    if (value > UINT32_MAX) return std::nullopt;
  }
  uint32_t scale = 1;
  for (size_t i = 0; i < decimals; ++i) scale *= 10;
  return RatePair{static_cast<uint32_t>(value), scale};
}

int runRate(const cli::Command& args) {
  const auto& pos = args.positional();
  if (pos.size() != 2) return cli::fail(kCommand, "rate takes one RATE (see --help)");
  auto in = parseRate(pos[1]);
  if (!in) return cli::fail(kCommand, "'%s' is not a rate (30000/1001, 25 or 29.97)", pos[1].c_str());
  const double fps = static_cast<double>(in->rate) / in->scale;
  RatePair normalized = *in, snapped;
  vidNormalizeRateScale(&normalized.rate, &normalized.scale);
  const bool exact = vidRateScaled(fps, &snapped.rate, &snapped.scale) == 0;
  const uint32_t type = vidGetTCType(fps);
  const double ms = vidMsPerFrameD(0, in->rate, in->scale);
  const int msRounded = vidMsPerFrame(0, in->rate, in->scale);
  if (args.has("json")) {
    cli::printJson({{"rate", cli::rateText(in->rate, in->scale)},
                    {"fps", fps},
                    {"normalized", cli::rateText(normalized.rate, normalized.scale)},
                    {"snapped", cli::rateText(snapped.rate, snapped.scale)},
                    {"snappedExact", exact},
                    {"tcType", type},
                    {"tcTypeName", vidTCTypeName(type)},
                    {"msPerFrame", ms},
                    {"msPerFrameRounded", msRounded}});
    return cli::kOk;
  }
  std::printf("rate        %s (%.3f fps)\n", cli::rateText(in->rate, in->scale).c_str(), fps);
  std::printf("normalized  %s\n", cli::rateText(normalized.rate, normalized.scale).c_str());
  std::printf("snapped     %s (%s)\n", cli::rateText(snapped.rate, snapped.scale).c_str(), exact ? "exact" : "approximate");
  std::printf("timecode    %s (%u)\n", vidTCTypeName(type), type);
  std::printf("frame       %.3f ms (%d)\n", ms, msRounded);
  return cli::kOk;
}

int runTc(const cli::Command& args) {
  const auto& pos = args.positional();
  if (pos.size() != 4) return cli::fail(kCommand, "tc takes FRAMES RATE TYPE (see --help)");
  auto frames = cli::parseU32(pos[1]);
  if (!frames) return cli::fail(kCommand, "'%s' is not a frame count", pos[1].c_str());
  auto rate = parseRate(pos[2]);
  if (!rate) return cli::fail(kCommand, "'%s' is not a rate (30000/1001, 25 or 29.97)", pos[2].c_str());
  auto toInfo = cli::tcType(pos[3]);
  if (!toInfo) return cli::fail(kCommand, "unknown timecode type '%s' (%s)", pos[3].c_str(), cli::tcTypeNames().c_str());
  const uint32_t* to = &toInfo->tctype;
  auto tcTypeName = [&](uint32_t type) { return type == *to ? toInfo->name : vidTCTypeName(type); };
  const uint32_t from = vidGetTCType(static_cast<double>(rate->rate) / rate->scale);
  const std::string fromText = timecodeText(*frames, from);
  uint32_t converted = *frames;
  if (vidConvertTC(&converted, *to, rate->rate, rate->scale) != 0)
    return cli::failWith(cli::kFailed, kCommand, "%s (%s) does not exist in %s timecode", fromText.c_str(),
                         tcTypeName(from), tcTypeName(*to));
  const std::string toText = *to == TC_FRAMES ? std::to_string(converted) : timecodeText(converted, *to);
  if (args.has("json")) {
    cli::printJson({{"frames", *frames},
                    {"fromType", from},
                    {"fromTypeName", vidTCTypeName(from)},
                    {"fromTimecode", fromText},
                    {"toType", *to},
                    {"toTypeName", toInfo->name},
                    {"converted", converted},
                    {"toTimecode", toText}});
    return cli::kOk;
  }
  std::printf("from        %u %s %s\n", *frames, vidTCTypeName(from), fromText.c_str());
  std::printf("to          %u %s %s\n", converted, tcTypeName(*to), toText.c_str());
  return cli::kOk;
}

int runPlay(const cli::Command& args) {
  const auto& pos = args.positional();
  if (pos.size() != 2) return cli::fail(kCommand, "play takes one SPEED (see --help)");
  CKLXSpeed speed;
  size_t slash = pos[1].find('/');
  if (slash != std::string::npos) {
    auto num = cli::parseInt(pos[1].substr(0, slash));
    auto den = cli::parseInt(pos[1].substr(slash + 1));
    if (!num || !den || *den == 0 || *num < INT32_MIN || *num > INT32_MAX || *den < INT32_MIN || *den > INT32_MAX)
      return cli::fail(kCommand, "'%s' is not a speed (1/4, -3/2, 0.5, 2)", pos[1].c_str());
    speed.Set(static_cast<int>(*num), static_cast<int>(*den));
  } else {
    auto value = cli::parseDouble(pos[1]);
    if (!value) return cli::fail(kCommand, "'%s' is not a speed (1/4, -3/2, 0.5, 2)", pos[1].c_str());
    speed = *value;
  }
  CKLXTransTC tc;
  std::string rangeText;
  if (auto range = args.get("range")) {
    size_t colon = range->find(':');
    auto a = colon == std::string::npos ? std::nullopt : cli::parseInt(range->substr(0, colon));
    auto b = colon == std::string::npos ? std::nullopt : cli::parseInt(range->substr(colon + 1));
    if (!a || !b || *a < INT32_MIN || *a > INT32_MAX || *b < INT32_MIN || *b > INT32_MAX)
      return cli::fail(kCommand, "--range takes FIRST:END frame numbers, e.g. 0:300");
    tc.SetRange(static_cast<int>(*a), static_cast<int>(*b));
  }
  int64_t from = 0;
  if (auto text = args.get("from")) {
    auto value = cli::parseInt(*text);
    if (!value || *value < INT32_MIN || *value > INT32_MAX) return cli::fail(kCommand, "--from takes a frame number");
    from = *value;
  }
  uint32_t steps = 10;
  if (auto text = args.get("steps")) {
    auto value = cli::parseU32(*text);
    if (!value || *value == 0 || *value > kMaxSteps) return cli::fail(kCommand, "--steps takes 1..%u", kMaxSteps);
    steps = *value;
  }
  tc.SetTC(static_cast<int>(from));
  tc.SetSpeed(speed);

  struct Step {
    uint32_t periods;
    int32_t frames, fraction;
  };
  std::vector<Step> out;
  out.reserve(steps);
  for (uint32_t i = 0; i < steps; ++i) {
    uint32_t periods = tc.PlayCount();
    ++tc;
    out.push_back({periods, tc.position.frames, tc.position.fraction});
  }
  if (args.has("json")) {
    cli::JsonValue list = cli::JsonValue::array();
    for (const auto& s : out) list.push_back({{"periods", s.periods}, {"frame", s.frames}, {"fraction", s.fraction}});
    cli::printJson({{"speed", speed.value},
                    {"speedRatio", speed.Double()},
                    {"from", from},
                    {"start", tc.start},
                    {"length", tc.length},
                    {"steps", std::move(list)}});
    return cli::kOk;
  }
  std::printf("speed %d (%.4f x normal play) from frame %lld", speed.value, speed.Double(), static_cast<long long>(from));
  if (tc.length) std::printf(", looping %u..%u", tc.start, tc.start + tc.length - 1);
  std::printf("\nstep  periods  frame  fraction\n");
  for (size_t i = 0; i < out.size(); ++i)
    std::printf("%-5zu %-8u %-6d %d\n", i + 1, out[i].periods, out[i].frames, out[i].fraction);
  return cli::kOk;
}

}  // namespace formatcli
