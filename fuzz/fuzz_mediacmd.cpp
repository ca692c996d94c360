// Feeds arbitrary text to both command readers; whatever they accept must write back and read
// back again.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "mediacmd/mediacmd.h"
#include "platform/zrlog.h"
#include "fuzz_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zrLogSetSink(quietLog, nullptr);
  const std::string text(reinterpret_cast<const char*>(data), size);
  MEDIACMD cmd, again;
  if (MediaCmdFromXMLString(&cmd, nullptr, text.c_str()) == 0) {
    char* xml = nullptr;
    if (MediaCmdToXMLString(&xml, &cmd, 4) != 0 || MediaCmdFromXMLString(&again, nullptr, xml) != 0) std::abort();
    MediaCmdFreeXMLString(&xml);
  }
  if (MediaCmdFromJSONString(&cmd, nullptr, text.c_str()) == 0) {
    char* json = nullptr;
    if (MediaCmdToJSONString(&json, &cmd, 4) != 0) std::abort();
    // The wire form may exceed the reader's 100 tokens (-1); any other refusal is a fault.
    const int reread = MediaCmdFromJSONString(&again, nullptr, json);
    if (reread != 0 && reread != -1) std::abort();
    MediaCmdFreeJSONString(&json);
  }
  __dbgout_mediacmd(&cmd);
  return 0;
}
