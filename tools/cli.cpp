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

void printJson(const JsonValue& value) {
  // Invalid UTF-8 in user text is replaced rather than aborting the output.
  std::printf("%s\n", value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

int checkOutput(const char* command, const std::string& output, bool force, const std::vector<std::string>& inputs) {
  namespace fs = std::filesystem;
  std::error_code ec;
  const bool exists = fs::exists(output, ec);
  for (const auto& in : inputs)
    if (exists && in != "-" && fs::equivalent(in, output, ec))
      return fail(command, "%s is also the input; write to another file", output.c_str());
  if (exists && !force) return failWith(kFailed, command, "%s exists; give -y/--force to overwrite it", output.c_str());
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

bool Args::parse(int argc, char** argv, std::initializer_list<std::string_view> valued,
                 std::initializer_list<std::string_view> flags) {
  auto isIn = [](std::initializer_list<std::string_view> list, std::string_view name) {
    for (auto n : list)
      if (n == name) return true;
    return false;
  };
  bool onlyPositional = false;
  for (int i = 0; i < argc; ++i) {
    std::string_view a = argv[i];
    if (onlyPositional || a == "-" || a.size() < 2 || a[0] != '-' ||
        (a[1] != '-' && a != "-h" && !std::isalpha(static_cast<unsigned char>(a[1])))) {
      positional_.emplace_back(a);
      continue;
    }
    if (a == "--") {
      onlyPositional = true;
      continue;
    }
    if (a == "-h") a = "--help";
    if (a[1] != '-') {
      error_ = "unknown option '" + std::string(a) + "'";
      return false;
    }
    std::string_view name = a.substr(2);
    std::optional<std::string_view> inlineValue;
    if (auto eq = name.find('='); eq != std::string_view::npos) {
      inlineValue = name.substr(eq + 1);
      name = name.substr(0, eq);
    }
    if (isIn(valued, name)) {
      if (inlineValue) {
        options_.emplace(std::string(name), std::string(*inlineValue));
      } else if (i + 1 < argc) {
        options_.emplace(std::string(name), std::string(argv[++i]));
      } else {
        error_ = "option '--" + std::string(name) + "' needs a value";
        return false;
      }
    } else if (isIn(flags, name) || name == "help") {
      if (inlineValue) {
        error_ = "option '--" + std::string(name) + "' takes no value";
        return false;
      }
      options_.emplace(std::string(name), std::string());
    } else {
      error_ = "unknown option '--" + std::string(name) + "'";
      return false;
    }
  }
  return true;
}

std::optional<std::string> Args::get(std::string_view name) const {
  auto range = options_.equal_range(std::string(name));
  if (range.first == range.second) return std::nullopt;
  return std::prev(range.second)->second;  // the last one given wins
}

std::vector<std::string> Args::all(std::string_view name) const {
  std::vector<std::string> out;
  auto range = options_.equal_range(std::string(name));
  for (auto it = range.first; it != range.second; ++it) out.push_back(it->second);
  return out;
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

void Json::separator(std::string_view key) {
  if (!first_.back()) out_ += ',';
  first_.back() = false;
  if (!key.empty()) quoted(key) += ':';
}
std::string& Json::quoted(std::string_view text) {
  out_ += '"';
  out_ += jsonEscape(text);
  out_ += '"';
  return out_;
}
Json& Json::beginObject(std::string_view key) {
  separator(key);
  out_ += '{';
  first_.push_back(true);
  return *this;
}
Json& Json::endObject() {
  out_ += '}';
  first_.pop_back();
  return *this;
}
Json& Json::beginArray(std::string_view key) {
  separator(key);
  out_ += '[';
  first_.push_back(true);
  return *this;
}
Json& Json::endArray() {
  out_ += ']';
  first_.pop_back();
  return *this;
}
Json& Json::str(std::string_view key, std::string_view value) {
  separator(key);
  quoted(value);
  return *this;
}
Json& Json::num(std::string_view key, int64_t value) {
  separator(key);
  out_ += std::to_string(value);
  return *this;
}
Json& Json::num(std::string_view key, double value) {
  separator(key);
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.17g", value);
  out_ += std::isfinite(value) ? buf : "null";
  return *this;
}
Json& Json::boolean(std::string_view key, bool value) {
  separator(key);
  out_ += value ? "true" : "false";
  return *this;
}
Json& Json::null(std::string_view key) {
  separator(key);
  out_ += "null";
  return *this;
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
