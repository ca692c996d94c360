#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "metadata/zrprojecttoxml.h"
#include "support/h16_text_files.h"
#include "support/test_support.h"

namespace {

namespace fs = std::filesystem;
using qtest::readBytes;
using qtest::readText;
using qtest::TempDir;
using qtest::writeBytes;
using qtest::writeText;

// One of the project's getters, as a string.
std::string get(CZRProjectToXML& p, int (CZRProjectToXML::*getter)(char*)) {
  char out[ZR_PROJECT_PATH_SIZE];
  (p.*getter)(out);
  return out;
}
std::string clipPath(CZRProjectToXML& p) { return get(p, &CZRProjectToXML::GetClipFile); }
std::string edlPath(CZRProjectToXML& p) { return get(p, &CZRProjectToXML::GetEDLName); }

// Texts that stress attribute encoding: quotes, markup characters, tabs, runs of spaces,
// line breaks, UTF-8.
const std::string kClipText =
    "000 crlf\r\n001  clip one\t\"quoted\" <tag> & 'apos'\n002  two  spaces   three\n\tindented\nÜnïcode ✓\n";
const std::string kEdlText = "TITLE: cut\nFCM: NON-DROP FRAME\n001  AX  V  C  01:00:00:00 01:00:10:00\n";

// Makes a project in `dir` naming clips.txt and cut.edl there, and saves it as project.xml.
std::string makeProject(const TempDir& dir) {
  writeText(dir.file("clips.txt"), kClipText);
  writeText(dir.file("cut.edl"), kEdlText);
  CZRProjectToXML p;
  EXPECT_EQ(p.SetXMLName(dir.file("project.xml").c_str()), 0);
  EXPECT_EQ(p.SetClipFile(dir.file("clips.txt").c_str()), 0);
  EXPECT_EQ(p.SetEDLName(dir.file("cut.edl").c_str()), 0);
  EXPECT_EQ(p.SetConfigString("Operator", "A. Smith & \"crew\""), 0);
  EXPECT_EQ(p.SetConfigDWORD("Channels", 8), 0);
  EXPECT_TRUE(p.SaveXMLFile());
  return dir.file("project.xml");
}

TEST(Project, SavedFileHasTheDocumentedShapeAndLoadsBack) {
  TempDir dir;
  std::string path = makeProject(dir);
  std::string text = readText(path);
  size_t at = 0;
  for (std::string part : {std::string("<?xml version=\"1.0\""), "<ClipList FileName=\"" + dir.file("clips.txt") + "\"",
                           "<EdlList EdlName=\"" + dir.file("cut.edl") + "\"", std::string("<Settings ")}) {
    at = text.find(part, at);
    ASSERT_NE(at, std::string::npos) << part << " in order in " << text;
  }
  EXPECT_NE(text.find("Channels=\"8\""), std::string::npos) << text;
  EXPECT_NE(text.find("encoding=\"ISO-8859-1\""), std::string::npos) << text;

  CZRProjectToXML p;
  ASSERT_TRUE(p.LoadXMLFile(path.c_str()));
  // The paths, texts and settings read back are ProjectRoundTrip.RandomFilesAndSettingsComeBackByteForByte's.
  EXPECT_EQ(get(p, &CZRProjectToXML::GetXMLName), path);

  // Missing settings and short buffers leave the outputs alone.
  EXPECT_EQ(p.GetConfigDWORD("NoSuchSetting"), 0u);
  char out[ZR_PROJECT_PATH_SIZE] = "untouched";
  EXPECT_EQ(p.GetConfigString("NoSuchSetting", out), 0);
  EXPECT_STREQ(out, "untouched");
  EXPECT_EQ(p.GetConfigString("Operator", nullptr), 0);
  char small[4] = "abc";
  EXPECT_EQ(p.GetConfigString("Operator", small, sizeof small), -1);
  EXPECT_EQ(p.GetClipFile(small, sizeof small), -1);
  EXPECT_STREQ(small, "abc");
}

// Hand-written projects: which files a load makes, and where.
TEST(Project, RecreationFollowsTheElementsPresent) {
  const struct {
    const char* label;
    const char* xml;  // %D is replaced by a directory that does not exist
    std::vector<std::pair<const char*, const char*>> expectedFiles;  // name in the project dir, text
    std::vector<const char*> absentFiles;
  } cases[] = {
      {"no clip list: the EDL is not looked at", "<EdlList EdlName=\"%D/b.edl\" Data=\"B\" />", {}, {"b.edl"}},
      {"empty data makes no file", "<ClipList FileName=\"%D/a.txt\" Data=\"\" />", {}, {"a.txt"}},
      {"no data makes no file", "<ClipList FileName=\"%D/a.txt\" /><EdlList EdlName=\"%D/b.edl\" Data=\"B\" />",
       {{"b.edl", "B"}}, {"a.txt"}},
      {"a climbing path lands in the project dir", "<ClipList FileName=\"%D/../../escape.txt\" Data=\"E\" />",
       {{"escape.txt", "E"}}, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    TempDir dir;
    std::string xml = c.xml;
    for (size_t at; (at = xml.find("%D")) != std::string::npos;) xml.replace(at, 2, dir.file("gone/deeper"));
    writeText(dir.file("p.xml"), "<?xml version=\"1.0\" ?>\n" + xml + "\n");
    CZRProjectToXML p;
    EXPECT_TRUE(p.LoadXMLFile(dir.file("p.xml").c_str()));
    for (auto& [name, text] : c.expectedFiles) EXPECT_EQ(readText(dir.file(name)), text) << name;
    for (const char* name : c.absentFiles) EXPECT_FALSE(fs::exists(dir.file(name))) << name;
    EXPECT_FALSE(fs::exists(dir.file("gone")));
  }
}

// Bad names, paths, list files and project files: refused, cut or dropped, and the object
// stays usable.
TEST(Project, BadInputIsRefusedAndTheObjectStaysUsable) {
  CZRProjectToXML p;
  for (const char* bad : {"", "two words", "1st", "a\"b", "<x>", "a=b"}) EXPECT_EQ(p.SetConfigString(bad, "v"), -1) << bad;
  EXPECT_EQ(p.SetConfigString(nullptr, "v"), -1);
  EXPECT_EQ(p.SetConfigString("ok", nullptr), -1);
  for (const char* good : {"a", "_x", "Mode-2", "ns:item", "v1.2"}) EXPECT_EQ(p.SetConfigString(good, "v"), 0) << good;
  EXPECT_EQ(p.GetConfigCount(), 5);
  std::string longPath(5000, 'p');  // paths are cut to the buffer
  p.SetXMLName(longPath.c_str());
  EXPECT_EQ(get(p, &CZRProjectToXML::GetXMLName), longPath.substr(0, ZR_PROJECT_PATH_SIZE - 1));

  // Setting a list file that cannot be read keeps its name but drops the previous file's text.
  TempDir dir;
  writeText(dir.file("first.txt"), "first list\n");
  p.SetClipFile(dir.file("first.txt").c_str());
  EXPECT_EQ(p.GetDataLength(true), 11u);
  EXPECT_EQ(p.SetClipFile(dir.file("missing.txt").c_str()), 0);
  EXPECT_EQ(clipPath(p), dir.file("missing.txt"));
  EXPECT_EQ(p.GetDataLength(true), 0u);

  writeText(dir.file("garbage.xml"), "<ClipList FileName=\"x\" Data=\"unterminated");
  writeText(dir.file("empty.xml"), "");
  // A directory opens for reading but reads nothing: refused like the missing file.
  for (const std::string& path :
       {dir.file("missing.xml"), dir.file("garbage.xml"), dir.file("empty.xml"), dir.path()}) {
    CZRProjectToXML bad;
    EXPECT_FALSE(bad.LoadXMLFile(path.c_str())) << path;
    EXPECT_EQ(bad.SetConfigDWORD("After", 3), 0);
    EXPECT_EQ(bad.GetConfigDWORD("After"), 3u);
  }
  EXPECT_FALSE(p.LoadXMLFile(nullptr));
}

// Project files carry the clip list and EDL files byte for byte and settings (texts of any byte
// but NUL, numbers of 32 bits) unchanged:
// load(save(x)) == x over random bytes; what cannot be carried is refused when the project is
// made, and a file that would not survive its own round trip is refused when it is read.


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
    // Saved away from its files. While they are still at their stored paths a load uses them
    // there and makes nothing; once they are gone it recreates them next to the project, but
    // never over a file of that name already there.
    const bool originalsStay = round % 3 == 0, clipListThere = round % 3 == 1;
    const std::vector<uint8_t> otherList = {'o', 't', 'h', 'e', 'r', '\n'};
    if (!originalsStay) {
      std::remove(made.file("clips.txt").c_str());
      std::remove(made.file("cut.edl").c_str());
    }
    if (clipListThere) writeBytes(moved.file("clips.txt"), otherList);
    qtest::LogCapture log;
    CZRProjectToXML back;
    ASSERT_TRUE(back.LoadXMLFile(moved.file("p.xml").c_str())) << (log.lines().empty() ? "" : log.lines().back().text);
    const TempDir& filesDir = originalsStay ? made : moved;
    EXPECT_EQ(clipPath(back), filesDir.file("clips.txt"));
    EXPECT_EQ(edlPath(back), filesDir.file("cut.edl"));
    EXPECT_EQ(readBytes(filesDir.file("clips.txt")), clipListThere ? otherList : clip);
    EXPECT_EQ(readBytes(filesDir.file("cut.edl")), edl);
    EXPECT_EQ(back.GetDataLength(true), clip.size());  // the embedded texts, whichever file is used
    EXPECT_EQ(back.GetDataLength(false), edl.size());
    if (originalsStay) {
      EXPECT_FALSE(fs::exists(moved.file("clips.txt")) || fs::exists(moved.file("cut.edl")));
    }
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
