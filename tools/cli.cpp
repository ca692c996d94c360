#include "cli.h"

#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cmath>
#include <cstdarg>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <filesystem>
#include <iterator>
#include <sstream>

#include "media/output.h"
#include "platform/zrlog.h"

namespace cli {

namespace {
bool gJsonErrors = false;
bool gVerbose = false;
std::string gLastLibraryMessage;

int vfail(int code, const char* command, const char* format, va_list args) {
  char message[1024];
  std::vsnprintf(message, sizeof message, format, args);
  const bool named = command && *command;
  std::fprintf(stderr, "quorvane%s%s: %s\n", named ? " " : "", named ? command : "", message);
  if (gJsonErrors) {
    JsonValue error{{"error", message}, {"command", named ? command : ""}, {"exitCode", code}};
    printJson(error);
  }
  return code;
}

void librarySink(void*, int kind, uint32_t, uint32_t, uint32_t, const char* text) {
  std::string line(text ? text : "");
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
  if (kind != ZR_LOG_DEBUG) gLastLibraryMessage = line;
  if (gVerbose) std::fprintf(stderr, "quorvane: library: %s\n", line.c_str());
}
}  // namespace

void setJsonErrors(bool on) { gJsonErrors = on; }
void setVerbose(bool on) { gVerbose = on; }
void installLogSink() { zrLogSetSink(librarySink, nullptr); }
const std::string& lastLibraryMessage() { return gLastLibraryMessage; }

void printJson(const JsonValue& value, FILE* out) {
  // Invalid UTF-8 in user text is replaced rather than aborting the output.
  std::fprintf(out, "%s\n", value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

int checkOutput(const char* command, const std::string& output, bool force, const std::vector<std::string>& inputs) {
  std::string refusal;
  for (const auto& in : inputs)
    if (media::refuseSameFile(in, output, refusal)) return failWith(kFailed, command, "%s", refusal.c_str());
  if (media::refuseExisting(output, force, refusal)) return failWith(kFailed, command, "%s", refusal.c_str());
  return kOk;
}

int fail(const char* command, const char* format, ...) {
  va_list args;
  va_start(args, format);
  int code = vfail(kUsage, command, format, args);
  va_end(args);
  return code;
}

int failWith(int code, const char* command, const char* format, ...) {
  va_list args;
  va_start(args, format);
  vfail(code, command, format, args);
  va_end(args);
  return code;
}

std::optional<int64_t> parseInt(std::string_view text) {
  std::string s(text);
  if (s.empty()) return std::nullopt;
  errno = 0;
  char* end = nullptr;
  long long v = std::strtoll(s.c_str(), &end, 0);
  if (errno || end != s.c_str() + s.size()) return std::nullopt;
  return v;
}

std::optional<uint32_t> parseU32(std::string_view text) {
  auto v = parseInt(text);
  if (!v || *v < 0 || *v > 0xFFFFFFFFLL) return std::nullopt;
  return static_cast<uint32_t>(*v);
}

std::optional<double> parseDouble(std::string_view text) {
  std::string s(text);
  if (s.empty()) return std::nullopt;
  errno = 0;
  char* end = nullptr;
  double v = std::strtod(s.c_str(), &end);
  if (errno || end != s.c_str() + s.size() || !std::isfinite(v)) return std::nullopt;
  return v;
}

std::optional<std::string> readFile(const std::string& path) {
  if (path == "-") {
    std::ostringstream ss;
    ss << std::cin.rdbuf();
    return ss.str();
  }
  std::error_code ec;
  // A directory opens as a stream on some systems and then throws on the first read.
  if (std::filesystem::is_directory(path, ec)) {
    errno = EISDIR;
    return std::nullopt;
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  try {
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  } catch (const std::exception&) {
    if (errno == 0) errno = EIO;
    return std::nullopt;
  }
}

std::string jsonEscape(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 2);
  for (unsigned char c : text) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out;
}

Progress::Progress(const char* label, uint64_t total)
    : label_(label), total_(total), enabled_(isatty(STDERR_FILENO) && total > 0) {}

Progress::~Progress() {
  if (enabled_ && lastPercent_ >= 0) std::fputc('\n', stderr);
}

void Progress::update(uint64_t done) {
  if (!enabled_) return;
  int percent = static_cast<int>(done >= total_ ? 100 : done * 100 / total_);
  if (percent == lastPercent_) return;
  lastPercent_ = percent;
  const int width = 40;
  int filled = percent * width / 100;
  std::fprintf(stderr, "\r%s [%.*s%*s] %3d%%", label_, filled, "########################################",
               width - filled, "", percent);
  std::fflush(stderr);
}

}  // namespace cli
