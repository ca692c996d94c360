// Shared by the mediacmd tests: a record written as XML or JSON text, the buffer freed again.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "mediacmd/mediacmd.h"

namespace mctest {

inline std::string textOf(MEDIACMD& cmd, unsigned tcType, bool json) {
  char* text = nullptr;
  EXPECT_EQ((json ? MediaCmdToJSONString : MediaCmdToXMLString)(&text, &cmd, tcType), 0);
  std::string out = text ? text : "";
  EXPECT_EQ((json ? MediaCmdFreeJSONString : MediaCmdFreeXMLString)(&text), 0);
  EXPECT_EQ(text, nullptr);
  return out;
}
inline std::string xmlOf(MEDIACMD& cmd, unsigned tcType) { return textOf(cmd, tcType, false); }
inline std::string jsonOf(MEDIACMD& cmd, unsigned tcType) { return textOf(cmd, tcType, true); }

}  // namespace mctest
