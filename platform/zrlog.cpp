#include "platform/zrlog.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>

namespace {

struct SinkSlot {
  std::mutex lock;
  ZRLogSink sink = nullptr;
  void* user = nullptr;
};

SinkSlot& slot() {
  static SinkSlot s;
  return s;
}

// Formats into a string of any length; messages are never truncated.
std::string vformat(const char* format, va_list args) {
  char small[512];
  va_list copy;
  va_copy(copy, args);
  int n = std::vsnprintf(small, sizeof small, format ? format : "", copy);
  va_end(copy);
  if (n < 0) return {};
  if (static_cast<size_t>(n) < sizeof small) return std::string(small, static_cast<size_t>(n));
  std::string out(static_cast<size_t>(n) + 1, '\0');
  std::vsnprintf(out.data(), out.size(), format, args);
  out.resize(static_cast<size_t>(n));
  return out;
}

const char* prefixOf(int kind, uint32_t severity) {
  if (kind == ZR_LOG_ERROR) return "error: ";
  if (kind == ZR_LOG_DEBUG) return "debug: ";
  return (severity & 0x80000000u) ? "warning: " : "info: ";
}

void emit(int kind, uint32_t severity, uint32_t a, uint32_t b, const char* text) {
  SinkSlot& s = slot();
  std::lock_guard<std::mutex> guard(s.lock);
  if (s.sink) {
    s.sink(s.user, kind, severity, a, b, text);
    return;
  }
  std::fprintf(stderr, "%s%s", prefixOf(kind, severity), text);
  size_t len = std::char_traits<char>::length(text);
  if (len == 0 || (text[len - 1] != '\n' && text[len - 1] != '\r')) std::fputc('\n', stderr);
}

}  // namespace

void zrLogSetSink(ZRLogSink sink, void* user) {
  SinkSlot& s = slot();
  std::lock_guard<std::mutex> guard(s.lock);
  s.sink = sink;
  s.user = user;
}

void ErrOut(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string text = vformat(format, args);
  va_end(args);
  emit(ZR_LOG_ERROR, 0, 0, 0, text.c_str());
}

void ErrFmtOut(uint32_t severity, uint32_t a, uint32_t b, const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string text = vformat(format, args);
  va_end(args);
  emit(ZR_LOG_FORMATTED, severity, a, b, text.c_str());
}

void _DbgOut(const char* text) { emit(ZR_LOG_DEBUG, 0, 0, 0, text ? text : ""); }
