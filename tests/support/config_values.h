// Values of a configuration store as the tests state them: a value that is missing, or not of
// the asked type, reads as nullopt; writes give the store's result code. Used by the store's own
// tests and by the metadata and matrix tests that keep their settings in a store.
#pragma once
#include <cstdint>
#include <optional>
#include <string>

#include "platform/zrcfg.h"

namespace qtest {

inline std::optional<std::string> getString(ZRCFGHANDLE h, const char* key, const char* name) {
  uint32_t size = 0;
  if (zrCFGValueString(h, key, name, nullptr, &size, 0) != ZR_CFG_OK) return std::nullopt;
  std::string buf(size + 1, '\0');
  size = static_cast<uint32_t>(buf.size());
  if (zrCFGValueString(h, key, name, buf.data(), &size, 0) != ZR_CFG_OK) return std::nullopt;
  return std::string(buf.c_str());
}
inline int setString(ZRCFGHANDLE h, const char* key, const char* name, const std::string& text) {
  uint32_t size = static_cast<uint32_t>(text.size() + 1);
  return zrCFGValueString(h, key, name, const_cast<char*>(text.c_str()), &size, 1);
}
inline std::optional<uint32_t> getDword(ZRCFGHANDLE h, const char* key, const char* name) {
  uint32_t v = 0;
  if (zrCFGValueDword(h, key, name, &v, 0) != ZR_CFG_OK) return std::nullopt;
  return v;
}
inline int setDword(ZRCFGHANDLE h, const char* key, const char* name, uint32_t v) { return zrCFGValueDword(h, key, name, &v, 1); }

// Opens a store file for the life of the object.
struct Store {
  explicit Store(const std::string& path) : handle(zrCFGOpen(path.c_str())) {}
  ~Store() { zrCFGClose(handle, 1); }
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;
  ZRCFGHANDLE handle;
};

}  // namespace qtest
