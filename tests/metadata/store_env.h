// Points the system configuration store at a fresh file and the current directory at a fresh
// directory (where "UserMetadata.xml" lives) for the life of a test.
#pragma once
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "support/test_support.h"

namespace qtest {

class StoreEnvironment {
 public:
  StoreEnvironment() {
    char* cwd = getcwd(nullptr, 0);
    oldCwd_ = cwd ? cwd : "/";
    free(cwd);
    if (const char* old = getenv("QUORVANE_CONFIG")) oldConfig_ = old, hadConfig_ = true;
    setenv("QUORVANE_CONFIG", systemFile().c_str(), 1);
    if (chdir(dir_.path().c_str()) != 0) std::abort();
  }
  ~StoreEnvironment() {
    if (chdir(oldCwd_.c_str()) != 0) std::abort();
    if (hadConfig_) setenv("QUORVANE_CONFIG", oldConfig_.c_str(), 1);
    else unsetenv("QUORVANE_CONFIG");
  }
  StoreEnvironment(const StoreEnvironment&) = delete;
  StoreEnvironment& operator=(const StoreEnvironment&) = delete;

  std::string systemFile() const { return dir_.file("system-config.xml"); }
  std::string userFile() const { return dir_.file("UserMetadata.xml"); }
  const std::string& dir() const { return dir_.path(); }

 private:
  TempDir dir_;
  std::string oldCwd_, oldConfig_;
  bool hadConfig_ = false;
};

}  // namespace qtest
