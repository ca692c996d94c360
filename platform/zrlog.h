// Logging services: errors, formatted warnings and debug tracing.
//
// By default every line goes to stderr with a prefix naming its kind ("error: ", "warning: ",
// "debug: "). A host (or a test) can install its own sink to receive the exact formatted text.
#pragma once
#include <cstdint>

extern "C" {

enum ZRLogKind : int {
  ZR_LOG_ERROR = 0,    // ErrOut
  ZR_LOG_FORMATTED = 1,  // ErrFmtOut; severity 0x80000000 is a warning
  ZR_LOG_DEBUG = 2,    // _DbgOut
};

// severity, a and b are ErrFmtOut's first three arguments (0 for the other kinds).
// text is the fully formatted message, exactly as the library produced it.
typedef void (*ZRLogSink)(void* user, int kind, uint32_t severity, uint32_t a, uint32_t b, const char* text);

// Installs a sink for every later message (null restores the stderr default). Process-wide.
void zrLogSetSink(ZRLogSink sink, void* user);

void ErrOut(const char* format, ...) __attribute__((format(printf, 1, 2)));
void ErrFmtOut(uint32_t severity, uint32_t a, uint32_t b, const char* format, ...) __attribute__((format(printf, 4, 5)));
void _DbgOut(const char* text);
}
