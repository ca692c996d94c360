// See libav.h.
#include "libav.h"

#include <dlfcn.h>

namespace media::libav {

namespace {

#define QUORVANE_SONAME(lib, major) "lib" #lib ".so." AV_STRINGIFY(major)
constexpr const char* kAvutil = QUORVANE_SONAME(avutil, LIBAVUTIL_VERSION_MAJOR);
constexpr const char* kAvcodec = QUORVANE_SONAME(avcodec, LIBAVCODEC_VERSION_MAJOR);
constexpr const char* kAvformat = QUORVANE_SONAME(avformat, LIBAVFORMAT_VERSION_MAJOR);

struct Loaded {
  Api api{};
  std::string error;
  bool ok = false;
};

Loaded loadAll() {
  Loaded l;
  void* avutil = dlopen(kAvutil, RTLD_NOW | RTLD_GLOBAL);
  void* avcodec = avutil ? dlopen(kAvcodec, RTLD_NOW | RTLD_GLOBAL) : nullptr;
  void* avformat = avcodec ? dlopen(kAvformat, RTLD_NOW | RTLD_GLOBAL) : nullptr;
  if (!avformat) {
    l.error = std::string("containers need FFmpeg's libraries (") + kAvformat + ", " + kAvcodec + ", " + kAvutil +
              "), which are not installed";
    return l;
  }
#define QUORVANE_LIBAV_LOOKUP(lib, name)                                       \
  l.api.name = reinterpret_cast<decltype(&::name)>(dlsym(lib, #name));         \
  if (!l.api.name) {                                                           \
    l.error = std::string("lib" #lib " lacks ") + #name;                       \
    return l;                                                                  \
  }
  QUORVANE_LIBAV_FUNCTIONS(QUORVANE_LIBAV_LOOKUP)
#undef QUORVANE_LIBAV_LOOKUP
  l.api.av_log_set_level(AV_LOG_QUIET);  // every failure reaches the user as the command's one line
  l.ok = true;
  return l;
}

}  // namespace

const Api* load(std::string& error) {
  static const Loaded loaded = loadAll();
  if (!loaded.ok) error = loaded.error;
  return loaded.ok ? &loaded.api : nullptr;
}

std::string errorText(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  api().av_strerror(code, text, sizeof text);
  return text;
}

const Api& api() {
  std::string unused;
  return *load(unused);
}

}  // namespace media::libav
