// Path splitting and joining in the manner of _splitpath / _makepath.
//
// Both '/' and '\' separate directories when splitting, so a path written on Windows (as a
// project file may hold) still yields its file name and extension. The drive is always empty:
// a "C:" prefix stays part of the directory. The extension starts at the last '.' of the final
// component, as _splitpath does ("archive.tar.gz" -> "archive.tar" + ".gz", ".profile" ->
// "" + ".profile"). Every output is cut to ZR_MAX_PATH - 1 characters, never overrun.
#include <cstring>
#include <string_view>

#include "platform/zrfile.h"

namespace {

bool isSeparator(char c) { return c == '/' || c == '\\'; }

void copyOut(char* out, std::string_view part) {
  if (out == nullptr) return;
  const size_t n = part.size() < ZR_MAX_PATH - 1 ? part.size() : ZR_MAX_PATH - 1;
  if (n) std::memcpy(out, part.data(), n);
  out[n] = '\0';
}

// Appends part to path (holding *used characters), cutting at the buffer's end.
void append(char* path, size_t* used, std::string_view part) {
  const size_t room = ZR_MAX_PATH - 1 - *used;
  const size_t n = part.size() < room ? part.size() : room;
  if (n) std::memcpy(path + *used, part.data(), n);
  *used += n;
  path[*used] = '\0';
}

}  // namespace

extern "C" {

void zrOSSplitPath(const char* path, char* drive, char* dir, char* fname, char* ext) {
  const std::string_view whole = path ? std::string_view(path) : std::string_view();
  size_t nameStart = 0;
  for (size_t i = whole.size(); i > 0; --i)
    if (isSeparator(whole[i - 1])) {
      nameStart = i;
      break;
    }
  const std::string_view name = whole.substr(nameStart);
  const size_t dot = name.rfind('.');
  const size_t extStart = dot == std::string_view::npos ? name.size() : dot;
  copyOut(drive, {});
  copyOut(dir, whole.substr(0, nameStart));
  copyOut(fname, name.substr(0, extStart));
  copyOut(ext, name.substr(extStart));
}

void zrOSMakePath(char* path, const char* drive, const char* dir, const char* fname, const char* ext) {
  if (path == nullptr) return;
  size_t used = 0;
  path[0] = '\0';
  if (drive && *drive) append(path, &used, drive);
  if (dir && *dir) {
    const std::string_view d(dir);
    append(path, &used, d);
    if (!isSeparator(d.back())) append(path, &used, "/");
  }
  if (fname) append(path, &used, fname);
  if (ext && *ext) {
    if (*ext != '.') append(path, &used, ".");
    append(path, &used, ext);
  }
}
}
