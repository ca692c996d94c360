// Shared set-up for the metadata tests: a self-freeing KLXINFOREC, and a private system store
// file plus working directory (where "UserMetadata.xml" lives) for the life of a test.
#pragma once
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "metadata/klxinfo.h"
#include "platform/zrcfg.h"
#include "platform/zrmemory.h"
#include "support/h16_process.h"
#include "support/test_support.h"

namespace qtest {

struct InfoRecord {
  KLXINFOREC rec{};
  InfoRecord() { klxInfoDelete(&rec); }
  ~InfoRecord() { klxInfoDelete(&rec); }
  InfoRecord(const InfoRecord&) = delete;
  InfoRecord& operator=(const InfoRecord&) = delete;

  void setText(int slot, const std::string& text) {
    ZRFree(rec.text[slot]);
    rec.text[slot] = static_cast<char*>(ZRAlloc(text.size() + 1));
    memcpy(rec.text[slot], text.c_str(), text.size() + 1);
  }
  std::string text(int slot) const { return rec.text[slot] ? rec.text[slot] : "<null>"; }
};

class StoreEnvironment {
 public:
  StoreEnvironment() {
    char* cwd = getcwd(nullptr, 0);
    oldCwd_ = cwd ? cwd : "/";
    free(cwd);
    if (chdir(dir_.path().c_str()) != 0) std::abort();
  }
  ~StoreEnvironment() {
    if (chdir(oldCwd_.c_str()) != 0) std::abort();
  }
  StoreEnvironment(const StoreEnvironment&) = delete;
  StoreEnvironment& operator=(const StoreEnvironment&) = delete;
  std::string userFile() const { return dir_.file("UserMetadata.xml"); }

 private:
  TempDir dir_;
  ScopedEnv config_{"QUORVANE_CONFIG", dir_.file("system-config.xml").c_str()};
  std::string oldCwd_;
};

// Sets the switch value that turns the first-read seeding of the system store off.
inline void enableStoreReading() {
  uint32_t zero = 0;
  ASSERT_EQ(zrCFGValueDword(ZR_CFG_SYSTEM, KLXINFO_SWITCH_KEY, KLXINFO_SWITCH_NAME, &zero, 1), ZR_CFG_OK);
}

}  // namespace qtest
