// Shared by the mediacmd tests: a record written as XML or JSON text, the buffer freed again.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "mediacmd/mediacmd.h"

namespace mctest {

inline std::string xmlOf(MEDIACMD& cmd, unsigned tcType) {
  char* text = nullptr;
  EXPECT_EQ(MediaCmdToXMLString(&text, &cmd, tcType), 0);
  std::string out = text ? text : "";
  EXPECT_EQ(MediaCmdFreeXMLString(&text), 0);
  EXPECT_EQ(text, nullptr);
  return out;
}

inline std::string jsonOf(MEDIACMD& cmd, unsigned tcType) {
  char* text = nullptr;
  EXPECT_EQ(MediaCmdToJSONString(&text, &cmd, tcType), 0);
  std::string out = text ? text : "";
  EXPECT_EQ(MediaCmdFreeJSONString(&text), 0);
  EXPECT_EQ(text, nullptr);
  return out;
}

}  // namespace mctest
