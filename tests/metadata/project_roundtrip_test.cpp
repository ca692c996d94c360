// Project files carry the clip list and EDL files byte for byte and settings (texts of any byte
// but NUL, numbers of 32 bits) unchanged:
// load(save(x)) == x over random bytes; what cannot be carried is refused when the project is
// made, and a file that would not survive its own round trip is refused when it is read.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "metadata/zrprojecttoxml.h"
#include "support/test_support.h"

namespace {

using qtest::readBytes;
using qtest::TempDir;
using qtest::writeBytes;

std::vector<uint8_t> randomBytes(std::mt19937& rng, size_t most) {
  std::vector<uint8_t> bytes(rng() % most + 1);
  for (uint8_t& b : bytes) b = static_cast<uint8_t>(rng() % 255 + 1);  // any byte but NUL
  // Now and then the sequences TinyXML treats specially.
  static const std::string kSpecial[] = {"&#x41;", "&#x", "&amp;", "\r\n", "\xc3\xa9", "]]>", "\"'", " "};
  if (rng() % 2) {
    const std::string& s = kSpecial[rng() % 8];
    bytes.insert(bytes.begin() + rng() % bytes.size(), s.begin(), s.end());
  }
  return bytes;
}

std::string asText(const std::vector<uint8_t>& bytes) { return {bytes.begin(), bytes.end()}; }

TEST(ProjectRoundTrip, RandomFilesAndSettingsComeBackByteForByte) {
  std::mt19937 rng(2024);
  for (int round = 0; round < 60; ++round) {
    SCOPED_TRACE(round);
    TempDir made, moved;
    const std::vector<uint8_t> clip = randomBytes(rng, 600), edl = randomBytes(rng, 300);
    writeBytes(made.file("clips.txt"), clip);
    writeBytes(made.file("cut.edl"), edl);
    std::vector<std::pair<std::string, std::string>> settings;
    std::vector<std::pair<std::string, uint32_t>> numbers;  // over the whole 32-bit range
    {
      CZRProjectToXML p;
      ASSERT_EQ(p.SetClipFile(made.file("clips.txt").c_str()), 0);
      ASSERT_EQ(p.SetEDLName(made.file("cut.edl").c_str()), 0);
      for (int i = rng() % 6; i > 0; --i) {
        settings.emplace_back("S" + std::to_string(settings.size()), asText(randomBytes(rng, 40)));
        ASSERT_EQ(p.SetConfigString(settings.back().first.c_str(), settings.back().second.c_str()), 0);
      }
      for (int i = rng() % 4; i > 0; --i) {
        numbers.emplace_back("N" + std::to_string(numbers.size()), static_cast<uint32_t>(rng()));
        ASSERT_EQ(p.SetConfigDWORD(numbers.back().first.c_str(), numbers.back().second), 0);
      }
      p.SetXMLName(moved.file("p.xml").c_str());
      ASSERT_TRUE(p.SaveXMLFile());
    }
    // Moved away from its files: loading recreates them next to the project.
    std::remove(made.file("clips.txt").c_str());
    std::remove(made.file("cut.edl").c_str());
    qtest::LogCapture log;
    CZRProjectToXML back;
    ASSERT_TRUE(back.LoadXMLFile(moved.file("p.xml").c_str())) << (log.lines().empty() ? "" : log.lines().back().text);
    EXPECT_EQ(readBytes(moved.file("clips.txt")), clip);
    EXPECT_EQ(readBytes(moved.file("cut.edl")), edl);
    ASSERT_EQ(back.GetConfigCount(), static_cast<int>(settings.size() + numbers.size()));
    for (const auto& [name, expected] : numbers) EXPECT_EQ(back.GetConfigDWORD(name.c_str()), expected) << name;
    static char value[4096];
    for (const auto& [name, expected] : settings) {
      ASSERT_EQ(back.GetConfigString(name.c_str(), value, sizeof value), 0);
      EXPECT_EQ(std::string(value), expected) << name;
    }
  }
}

TEST(ProjectRoundTrip, AFileHoldingNulIsRefusedWhenTheProjectIsMade) {
  TempDir dir;
  writeBytes(dir.file("clips.txt"), {'a', 0, 'b'});
  CZRProjectToXML p;
  EXPECT_EQ(p.SetClipFile(dir.file("clips.txt").c_str()), -1);
  EXPECT_EQ(p.GetDataLength(true), 0u);  // the name alone, never a cut-short text
}

TEST(ProjectRoundTrip, HostileOrUnfaithfulFilesAreRefusedWithALogLine) {
  const std::pair<const char*, std::string> cases[] = {
      // One text the XML gate refuses stands for all its reasons (XmlGuard's table).
      {"empty", ""}, {"blank", " \n"}, {"reference to NUL", "<ClipList FileName=\"x\" Data=\"a&#x0;b\" />"},
  };
  for (const auto& [what, text] : cases) {
    SCOPED_TRACE(what);
    TempDir dir;
    writeBytes(dir.file("p.xml"), std::vector<uint8_t>(text.begin(), text.end()));
    qtest::LogCapture log;
    CZRProjectToXML p;
    const bool loaded = p.ReadXMLFile(dir.file("p.xml").c_str());
    EXPECT_FALSE(loaded);
    ASSERT_FALSE(log.lines().empty());
    EXPECT_EQ(log.lines().back().text.rfind("Project file \"" + dir.file("p.xml") + "\" is refused: ", 0), 0u)
        << log.lines().back().text;
  }
}

}  // namespace
