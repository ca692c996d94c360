// Configuration store files from arbitrary bytes: opening, enumerating and reading never crash;
// a write afterwards always leaves a file that reads back with the new value, and a file that
// did not parse is kept aside byte for byte. The same bytes also go in as a value and a name,
// which must come back unchanged (up to the first NUL).
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/zrcfg.h"
#include "platform/zrlog.h"
#include "fuzz_files.h"

namespace {

// Reads every value and sub-key below key, a few levels deep.
void walk(ZRCFGHANDLE store, const std::string& key, int depth) {
  char name[4096];
  for (uint32_t i = 0; i < 64; ++i) {
    uint32_t size = sizeof name, type = 0;
    if (zrCFGEnumValue(store, key.c_str(), i, name, &size, &type) != ZR_CFG_OK) break;
    uint32_t dword = 0, needed = 0;
    zrCFGValueDword(store, key.c_str(), name, &dword, 0);
    zrCFGValueString(store, key.c_str(), name, nullptr, &needed, 0);
  }
  for (uint32_t i = 0; depth > 0 && i < 64; ++i) {
    uint32_t size = sizeof name;
    if (zrCFGEnumKey(store, key.c_str(), i, name, &size) != ZR_CFG_OK) break;
    walk(store, key.empty() ? name : key + "\\" + name, depth - 1);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zrLogSetSink(quietLog, nullptr);
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const std::string path = scratchDir() + "/store.xml";
  for (const char* suffix : {"", ".bad", ".bad1"}) unlink((path + suffix).c_str());
  std::ofstream(path, std::ios::binary) << bytes;

  ZRCFGHANDLE store = zrCFGOpen(path.c_str());
  if (store == ZR_CFG_INVALID) std::abort();
  walk(store, "", 4);

  const std::string text = bytes.substr(0, bytes.find('\0'));
  uint32_t length = static_cast<uint32_t>(text.size() + 1);
  if (zrCFGValueString(store, "Fuzz", text.c_str(), const_cast<char*>(text.c_str()), &length, 1) != ZR_CFG_OK) std::abort();
  zrCFGClose(store, 1);

  // A fresh handle sees the value; a file that was replaced while corrupt was kept.
  store = zrCFGOpen(path.c_str());
  std::string back(text.size() + 1, '\0');
  length = static_cast<uint32_t>(back.size());
  if (zrCFGValueString(store, "Fuzz", text.c_str(), back.data(), &length, 0) != ZR_CFG_OK) std::abort();
  if (std::strcmp(back.c_str(), text.c_str()) != 0) std::abort();
  zrCFGClose(store, 0);
  struct stat st;
  if (stat((path + ".bad").c_str(), &st) == 0 && slurp(path + ".bad") != bytes) std::abort();
  return 0;
}
