// A KLXINFOREC that frees its texts when the test ends, and helpers to fill it.
#pragma once
#include <cstring>
#include <string>

#include "metadata/klxinfo.h"
#include "platform/zrmemory.h"

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

}  // namespace qtest
