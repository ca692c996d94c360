// The metadata info record read from a user's file: the bytes of "UserMetadata.xml" opened as a
// store (refused when they are not one, and then left alone) and read with klxInfoReadRegSet,
// as klxInfoReadReg does. Whatever was read is a set of terminated texts with the fixed
// VersionString, and it writes to a fresh store and reads back unchanged. The user's file keeps
// its bytes: reading never rewrites it.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "metadata/klxinfo.h"
#include "platform/zrcfg.h"
#include "platform/zrlog.h"
#include "fuzz_check.h"
#include "fuzz_files.h"

namespace {

struct Record {
  KLXINFOREC rec{};
  Record() { klxInfoDelete(&rec); }
  ~Record() { klxInfoDelete(&rec); }
};

bool sameText(const char* a, const char* b) { return (a == nullptr) == (b == nullptr) && (!a || std::strcmp(a, b) == 0); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zrLogSetSink(quietLog, nullptr);
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const std::string user = scratchDir() + "/" + KLXINFO_USER_FILE, copy = scratchDir() + "/copy.xml";
  for (const std::string& p : {user, user + ".bad", copy}) unlink(p.c_str());
  std::ofstream(user, std::ios::binary) << bytes;

  Record read;
  ZRCFGHANDLE store = zrCFGOpenEx(user.c_str(), ZR_CFG_OPEN_STORE_ONLY | ZR_CFG_OPEN_EXISTING);
  if (store != ZR_CFG_INVALID) {
    check(klxInfoReadRegSet(store, &read.rec) == 0);
    zrCFGClose(store, 1);
  }
  check(slurp(user) == bytes);
  check(access((user + ".bad").c_str(), F_OK) != 0);
  if (store == ZR_CFG_INVALID) return 0;

  check(read.rec.text[kxtVersionString] && std::strcmp(read.rec.text[kxtVersionString], "8.0.0.216") == 0);
  // Every other text came out of the file, so it is shorter than the file.
  for (int i = 0; i < KLXINFO_TEXT_ITEMS; ++i)
    check(i == kxtVersionString || !read.rec.text[i] || std::strlen(read.rec.text[i]) < size);

  ZRCFGHANDLE fresh = zrCFGOpen(copy.c_str());
  check(fresh != ZR_CFG_INVALID && klxInfoWriteRegSet(fresh, &read.rec) == 0);
  zrCFGClose(fresh, 1);
  Record back;
  fresh = zrCFGOpenEx(copy.c_str(), ZR_CFG_OPEN_STORE_ONLY | ZR_CFG_OPEN_EXISTING);
  check(fresh != ZR_CFG_INVALID);
  klxInfoReadRegSet(fresh, &back.rec);
  zrCFGClose(fresh, 0);
  for (int i = kxtChannelIdentifier; i < KLXINFO_TEXT_ITEMS; ++i) check(sameText(read.rec.text[i], back.rec.text[i]));
  check(std::memcmp(read.rec.numeric, back.rec.numeric, sizeof read.rec.numeric) == 0);
  return 0;
}
