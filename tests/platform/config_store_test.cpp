// The configuration store: values, sizes, names, handles, the system store, and the promises
// about never losing data (merging concurrent writers, surviving killed writers, keeping corrupt
// files aside). Files are checked independently by parsing them with TinyXML directly.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tinyxml.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "platform/zrcfg.h"
#include "support/config_values.h"
#include "support/h16_process.h"
#include "support/h16_text_files.h"
#include "support/test_support.h"

namespace {

using qtest::getDword;
using qtest::getString;
using qtest::setDword;
using qtest::setString;
using qtest::Store;

// An independent reading of a store file: the "data" attribute of a value, found by walking
// the XML with TinyXML.
std::optional<std::string> dataInFile(const std::string& path, const std::vector<std::string>& keys, const std::string& name) {
  TiXmlDocument doc;
  const std::string text = qtest::readText(path);
  doc.Parse(text.c_str());
  if (doc.Error() || !doc.RootElement()) return std::nullopt;
  const TiXmlElement* e = doc.RootElement();
  for (const auto& k : keys) {
    const TiXmlElement* next = nullptr;
    for (const TiXmlElement* c = e->FirstChildElement("Key"); c; c = c->NextSiblingElement("Key"))
      if (c->Attribute("name") && k == c->Attribute("name")) next = c;
    if (!next) return std::nullopt;
    e = next;
  }
  for (const TiXmlElement* v = e->FirstChildElement("Value"); v; v = v->NextSiblingElement("Value"))
    if (v->Attribute("name") && name == v->Attribute("name")) return std::string(v->Attribute("data") ? v->Attribute("data") : "");
  return std::nullopt;
}

// UTF-8 the long way (surrogates included): a lead byte with as many high bits as there are
// bytes, then six bits per continuation byte.
void appendUtf8(std::string& s, uint32_t cp) {
  const int extra = cp < 0x80 ? 0 : cp < 0x800 ? 1 : cp < 0x10000 ? 2 : 3;
  const uint32_t lead = extra ? (0xFF00u >> (extra + 1) & 0xFF) : 0;
  s += static_cast<char>(lead | cp >> 6 * extra);
  for (int i = extra - 1; i >= 0; --i) s += static_cast<char>(0x80 | (cp >> 6 * i & 0x3F));
}

TEST(ConfigStore, NamesTextsAndNumbersRoundTripThroughTheFile) {
  qtest::TempDir dir;
  const std::string path = dir.file("random.xml");
  std::mt19937 rng(11);
  // Hand-picked texts first, then random ones: half arbitrary bytes (but NUL), half well-formed
  // UTF-8 from every plane (surrogates included, which are not well-formed and must be escaped).
  std::vector<std::string> texts = {
      "plain",         "  two  spaces and trailing  ", "line\nbreak\r\nand\ttab", "<markup attr=\"x\">&amp;'",
      "UTF-8: Čeština ✓", std::string("\x01\x02\x1f\x7f", 4), "\xff\xfe invalid utf-8 \xc3",
      std::string(70000, 'L')};
  const size_t handPicked = texts.size();
  texts.resize(handPicked + 60);
  std::vector<std::string> names(texts.size());
  for (size_t i = 0; i < texts.size(); ++i) {
    for (std::string* s : {&texts[i], &names[i]}) {
      const size_t length = i < handPicked ? 0 : rng() % 40;  // hand-picked ones get plain names
      for (size_t k = 0; k < length; ++k) {
        if (i % 2) appendUtf8(*s, 1 + rng() % 0x10FFFF);
        else *s += static_cast<char>(1 + rng() % 255);
      }
    }
    names[i] += "#" + std::to_string(i);  // distinct whatever the case
  }
  const uint32_t dwords[] = {0, 1, 65520, 0x80000000u, 0xFFFFFFFFu};
  {
    Store s(path);
    for (size_t i = 0; i < texts.size(); ++i) ASSERT_EQ(setString(s.handle, "R", names[i].c_str(), texts[i]), ZR_CFG_OK) << i;
    for (uint32_t d : dwords) ASSERT_EQ(setDword(s.handle, "N", std::to_string(d).c_str(), d), ZR_CFG_OK);
  }
  Store again(path);
  // Writing every value again as it stands leaves the file alone: a write would have renamed a
  // new file into place.
  struct stat before, after;
  ASSERT_EQ(stat(path.c_str(), &before), 0);
  for (size_t i = 0; i < texts.size(); ++i) ASSERT_EQ(setString(again.handle, "R", names[i].c_str(), texts[i]), ZR_CFG_OK);
  ASSERT_EQ(stat(path.c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  for (size_t i = 0; i < texts.size(); ++i) {
    EXPECT_EQ(getString(again.handle, "R", names[i].c_str()), texts[i]) << i;
    char name[1024];
    uint32_t size = sizeof name;
    ASSERT_EQ(zrCFGEnumValue(again.handle, "R", static_cast<uint32_t>(i), name, &size, nullptr), ZR_CFG_OK);
    EXPECT_EQ(std::string(name), names[i]);  // names come back as written, in writing order
  }
  for (uint32_t d : dwords) {
    EXPECT_EQ(getDword(again.handle, "N", std::to_string(d).c_str()), d);
    EXPECT_EQ(dataInFile(path, {"N"}, std::to_string(d)), std::to_string(d));
  }
  EXPECT_EQ(dataInFile(path, {"R"}, names[1]), texts[1]);
  EXPECT_EQ(dataInFile(path, {"R"}, names[4]), texts[4]);  // UTF-8 stays readable in the file
}

TEST(ConfigStore, StringReadsReportSizesLikeTheRegistry) {
  qtest::TempDir dir;
  Store s(dir.file("sizes.xml"));
  ASSERT_EQ(setString(s.handle, "K", "abc", "abc"), ZR_CFG_OK);
  ASSERT_EQ(setString(s.handle, "K", "empty", ""), ZR_CFG_OK);
  struct Case {
    const char* name;
    bool withBuffer;
    uint32_t bufferSize;
    int result;
    uint32_t sizeAfter;
    const char* bufferAfter;  // "#####" = untouched
  };
  const Case cases[] = {
      {"abc", false, 0, ZR_CFG_OK, 4, "#####"}, {"abc", true, 3, ZR_CFG_MORE_DATA, 4, "#####"},
      {"abc", true, 4, ZR_CFG_OK, 4, "abc"}, {"empty", true, 5, ZR_CFG_OK, 0, ""},
      {"missing", true, 5, ZR_CFG_NOT_FOUND, 5, "#####"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.name) + " " + std::to_string(c.bufferSize));
    char buffer[6] = "#####";
    uint32_t size = c.bufferSize;
    EXPECT_EQ(zrCFGValueString(s.handle, "K", c.name, c.withBuffer ? buffer : nullptr, &size, 0), c.result);
    EXPECT_EQ(size, c.sizeAfter);
    EXPECT_STREQ(buffer, c.bufferAfter);
  }
  // A write stores at most *size bytes, up to the NUL.
  uint32_t size = 3;
  char text[] = "abcdef";
  ASSERT_EQ(zrCFGValueString(s.handle, "K", "cut", text, &size, 1), ZR_CFG_OK);
  EXPECT_EQ(getString(s.handle, "K", "cut"), "abc");
  ASSERT_EQ(zrCFGValueString(s.handle, "K", "whole", text, nullptr, 1), ZR_CFG_OK);
  EXPECT_EQ(getString(s.handle, "K", "whole"), "abcdef");
  EXPECT_EQ(zrCFGValueString(s.handle, "K", "x", nullptr, &size, 1), ZR_CFG_ERROR);
  EXPECT_EQ(zrCFGValueString(s.handle, "K", "abc", nullptr, nullptr, 0), ZR_CFG_ERROR);
}

TEST(ConfigStore, NamesAndPathsMatchLikeRegistryNames) {
  qtest::TempDir dir;
  const std::string path = dir.file("names.xml");
  Store s(path);
  ASSERT_EQ(setDword(s.handle, "Quorvane\\MetaData", "XMLDisable", 7), ZR_CFG_OK);
  struct Case { const char* key; const char* name; bool found; };
  const Case cases[] = {
      {"Quorvane\\MetaData", "XMLDisable", true}, {"QUORVANE\\metadata", "xmldisable", true},
      {"\\Quorvane\\\\MetaData\\", "XMLDisable", true}, {"Quorvane", "XMLDisable", false},
      {"Quorvane\\MetaData\\Default", "XMLDisable", false}, {"Quorvane\\MetaDat", "XMLDisable", false},
      {"Quorvane\\MetaData", "XMLDisabl", false}, {"Quorvane/MetaData", "XMLDisable", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.key) + " " + c.name);
    EXPECT_EQ(getDword(s.handle, c.key, c.name).has_value(), c.found);
  }
  // Writing through another spelling updates the one value and keeps its first spelling.
  ASSERT_EQ(setDword(s.handle, "quorvane\\METADATA", "xmldisable", 8), ZR_CFG_OK);
  EXPECT_EQ(dataInFile(path, {"Quorvane", "MetaData"}, "XMLDisable"), "8");
  // The unnamed value and the root key.
  ASSERT_EQ(setString(s.handle, nullptr, nullptr, "root default"), ZR_CFG_OK);
  EXPECT_EQ(getString(s.handle, "", ""), "root default");
}

TEST(ConfigStore, TypesDeletionAndExistenceTests) {
  qtest::TempDir dir;
  Store s(dir.file("types.xml"));
  ASSERT_EQ(setDword(s.handle, "K", "num", 5), ZR_CFG_OK);
  ASSERT_EQ(setString(s.handle, "K", "text", "5"), ZR_CFG_OK);
  ASSERT_EQ(setString(s.handle, "K", "keep", "me"), ZR_CFG_OK);
  uint32_t size = 0;
  EXPECT_EQ(zrCFGValueDword(s.handle, "K", "num", nullptr, 0), ZR_CFG_OK);
  EXPECT_EQ(zrCFGValueDword(s.handle, "K", "text", nullptr, 0), ZR_CFG_OK);
  EXPECT_EQ(zrCFGValueDword(s.handle, "K", "none", nullptr, 0), ZR_CFG_NOT_FOUND);
  EXPECT_EQ(zrCFGValueDword(s.handle, "K", "num", nullptr, 1), ZR_CFG_ERROR);
  EXPECT_FALSE(getDword(s.handle, "K", "text"));  // no silent conversion between types
  EXPECT_EQ(zrCFGValueString(s.handle, "K", "num", nullptr, &size, 0), ZR_CFG_ERROR);
  // A write of the other type replaces the value.
  ASSERT_EQ(setString(s.handle, "K", "num", "now text"), ZR_CFG_OK);
  EXPECT_EQ(getString(s.handle, "K", "num"), "now text");

  EXPECT_EQ(zrCFGDeleteValue(s.handle, "K", "num"), ZR_CFG_OK);
  EXPECT_EQ(zrCFGDeleteValue(s.handle, "K", "num"), ZR_CFG_NOT_FOUND);
  EXPECT_EQ(zrCFGDeleteValue(s.handle, "No\\Such\\Key", "num"), ZR_CFG_NOT_FOUND);
  EXPECT_EQ(zrCFGValueDword(s.handle, "K", "num", nullptr, 0), ZR_CFG_NOT_FOUND);
  EXPECT_EQ(getString(s.handle, "K", "keep"), "me");
}

TEST(ConfigStore, HandlesAreCheckedAndOpenIsStrictAboutPaths) {
  qtest::TempDir dir;
  EXPECT_EQ(zrCFGOpen(nullptr), ZR_CFG_INVALID);
  EXPECT_EQ(zrCFGOpen(""), ZR_CFG_INVALID);
  EXPECT_EQ(zrCFGOpen(dir.path().c_str()), ZR_CFG_INVALID);
  EXPECT_EQ(zrCFGOpen(dir.file("missing/dir/x.xml").c_str()), ZR_CFG_INVALID);
  // A missing file opens as an empty store and is only created by a write.
  const std::string path = dir.file("later.xml");
  ZRCFGHANDLE h = zrCFGOpen(path.c_str());
  ASSERT_NE(h, ZR_CFG_INVALID);
  EXPECT_FALSE(getDword(h, "K", "v"));
  EXPECT_FALSE(std::filesystem::exists(path));
  ASSERT_EQ(setDword(h, "K", "v", 1), ZR_CFG_OK);
  EXPECT_TRUE(std::filesystem::exists(path));
  EXPECT_EQ(zrCFGClose(h, 0), ZR_CFG_OK);
  EXPECT_EQ(zrCFGClose(h, 0), ZR_CFG_ERROR);
  for (ZRCFGHANDLE bad : {h, ZR_CFG_INVALID, ZRCFGHANDLE{987654}}) {
    uint32_t v = 0, size = 0;
    EXPECT_EQ(zrCFGValueDword(bad, "K", "v", &v, 0), ZR_CFG_ERROR);
    EXPECT_EQ(zrCFGValueDword(bad, "K", "v", &v, 1), ZR_CFG_ERROR);
    EXPECT_EQ(zrCFGValueString(bad, "K", "v", nullptr, &size, 0), ZR_CFG_ERROR);
    EXPECT_EQ(zrCFGDeleteValue(bad, "K", "v"), ZR_CFG_ERROR);
    EXPECT_EQ(zrCFGEnumValue(bad, "K", 0, nullptr, &size, nullptr), ZR_CFG_ERROR);
  }
  // A relative path is fixed at open: a later change of directory does not move the store.
  char* old = getcwd(nullptr, 0);
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  h = zrCFGOpen("UserMetadata.xml");
  ASSERT_EQ(chdir(old), 0);
  free(old);
  ASSERT_NE(h, ZR_CFG_INVALID);
  ASSERT_EQ(setString(h, "Quorvane\\MetaData\\Default", "Title", "Reel one"), ZR_CFG_OK);
  zrCFGClose(h, 1);
  EXPECT_EQ(dataInFile(dir.file("UserMetadata.xml"), {"Quorvane", "MetaData", "Default"}, "Title"), "Reel one");
}

TEST(ConfigStore, SystemStoreFollowsTheEnvironment) {
  qtest::TempDir dir;
  struct Case {
    const char* quorvaneConfig;  // relative to the temp dir, or null
    const char* xdg;
    const char* home;
    const char* expectedFile;
  };
  const Case cases[] = {
      {"explicit.xml", "xdg", "home", "explicit.xml"}, {nullptr, "xdg", "home", "xdg/quorvane/config.xml"},
      {nullptr, nullptr, "home", "home/.config/quorvane/config.xml"},
      {"", "", "home", "home/.config/quorvane/config.xml"},
  };
  uint32_t n = 100;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expectedFile);
    auto inDir = [&](const char* p) { return p ? (*p ? dir.file(p) : std::string()) : std::string(); };
    const std::string qc = inDir(c.quorvaneConfig), xdg = inDir(c.xdg), home = inDir(c.home);
    qtest::ScopedEnv e1("QUORVANE_CONFIG", c.quorvaneConfig ? qc.c_str() : nullptr);
    qtest::ScopedEnv e2("XDG_CONFIG_HOME", c.xdg ? xdg.c_str() : nullptr);
    qtest::ScopedEnv e3("HOME", home.c_str());
    ASSERT_EQ(setDword(ZR_CFG_SYSTEM, "Quorvane\\Advanced", "ForceVideoRangeMatrix", ++n), ZR_CFG_OK);
    EXPECT_EQ(dataInFile(dir.file(c.expectedFile), {"Quorvane", "Advanced"}, "ForceVideoRangeMatrix"), std::to_string(n));
    char path[4096];
    uint32_t size = sizeof path;
    ASSERT_EQ(zrCFGGetPath(ZR_CFG_SYSTEM, path, &size), ZR_CFG_OK);
    EXPECT_EQ(std::string(path), dir.file(c.expectedFile));
    EXPECT_EQ(zrCFGClose(ZR_CFG_SYSTEM, 1), ZR_CFG_OK);  // stays usable
    EXPECT_EQ(getDword(ZR_CFG_SYSTEM, "Quorvane\\Advanced", "ForceVideoRangeMatrix"), n);
  }
}

// What a listing holds, in order and with its types, from the root down, is the list rows of
// ConfigCli.SetGetDeleteThroughTheCommandMatchTheLibrary; here the codes and sizes a caller loops on.
TEST(ConfigStore, EnumerationCodesAndSizes) {
  qtest::TempDir dir;
  Store s(dir.file("enum.xml"));
  ASSERT_EQ(setDword(s.handle, "A", "one", 1), ZR_CFG_OK);
  ASSERT_EQ(setString(s.handle, "A", "two", "2"), ZR_CFG_OK);
  ASSERT_EQ(setDword(s.handle, "A\\Sub1", "x", 1), ZR_CFG_OK);
  ASSERT_EQ(setDword(s.handle, "A\\Sub2", "x", 1), ZR_CFG_OK);
  char name[8];
  uint32_t size = 4, type = 99;  // exactly "one" and its NUL
  ASSERT_EQ(zrCFGEnumValue(s.handle, "A", 0, name, &size, &type), ZR_CFG_OK);
  EXPECT_STREQ(name, "one");
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(type, uint32_t{ZR_CFG_TYPE_DWORD});
  size = 3;
  EXPECT_EQ(zrCFGEnumValue(s.handle, "A", 1, name, &size, &type), ZR_CFG_MORE_DATA);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(type, uint32_t{ZR_CFG_TYPE_STRING});
  EXPECT_EQ(zrCFGEnumValue(s.handle, "A", 2, name, &size, nullptr), ZR_CFG_NO_MORE_ITEMS);
  EXPECT_EQ(zrCFGEnumValue(s.handle, "B", 0, name, &size, nullptr), ZR_CFG_NOT_FOUND);
  const char* keys[] = {"Sub1", "Sub2"};  // in writing order; key paths are case-blind here too
  for (uint32_t i = 0; i < 2; ++i) {
    size = sizeof name;
    ASSERT_EQ(zrCFGEnumKey(s.handle, "a", i, name, &size), ZR_CFG_OK);
    EXPECT_STREQ(name, keys[i]);
  }
  EXPECT_EQ(zrCFGEnumKey(s.handle, "A", 2, name, &size), ZR_CFG_NO_MORE_ITEMS);
  Store empty(dir.file("none.xml"));
  EXPECT_EQ(zrCFGEnumKey(empty.handle, "", 0, name, &size), ZR_CFG_NO_MORE_ITEMS);
}

// ---- what is on disk ----

TEST(ConfigStore, UnknownContentSymlinksAndPermissionsSurviveAWrite) {
  qtest::TempDir dir;
  const std::string real = dir.file("real.xml");
  qtest::writeText(real,
       "<?xml version=\"1.0\" ?>\n<QuorvaneConfig>\n"
       "  <Key name=\"K\"><Value name=\"future\" type=\"qword\" data=\"123456789012\" /></Key>\n"
       "  <Extension kind=\"later\">kept</Extension>\n</QuorvaneConfig>\n");
  chmod(real.c_str(), 0600);
  const std::string link = dir.file("link.xml");
  ASSERT_EQ(symlink(real.c_str(), link.c_str()), 0);
  Store s(link);
  uint32_t type = 99, size = 16;
  char name[16];
  ASSERT_EQ(zrCFGEnumValue(s.handle, "K", 0, name, &size, &type), ZR_CFG_OK);
  EXPECT_EQ(type, ZR_CFG_TYPE_NONE);
  EXPECT_FALSE(getDword(s.handle, "K", "future"));
  ASSERT_EQ(setDword(s.handle, "K", "now", 1), ZR_CFG_OK);
  const std::string text = qtest::readText(real);
  EXPECT_NE(text.find("<Extension kind=\"later\">kept</Extension>"), std::string::npos) << text;
  EXPECT_EQ(dataInFile(real, {"K"}, "future"), "123456789012");
  EXPECT_EQ(dataInFile(real, {"K"}, "now"), "1");
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(std::filesystem::status(real).permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST(ConfigStore, CorruptFilesAreReportedReadAsEmptyAndKeptAside) {
  struct Case { const char* name; std::string contents; bool corrupt; };
  const Case cases[] = {
      {"truncated", "<?xml version=\"1.0\" ?>\n<QuorvaneConfig>\n  <Key name=\"K\">\n    <Value name=", true},
      {"foreign root", "<Settings><Key name=\"K\" /></Settings>", true}, {"empty file", "", false},
      {"blank file", " \n\t\n", false},
      // A file the XML gate refuses (every reason it gives is in XmlGuard's table): corrupt.
      {"ends inside a UTF-8 sequence", "<QuorvaneConfig>\xc5", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    qtest::TempDir dir;
    const std::string path = dir.file("UserMetadata.xml");
    qtest::writeText(path, c.contents);
    qtest::LogCapture log;
    Store s(path);
    EXPECT_FALSE(getString(s.handle, "K", "v"));  // read as empty
    EXPECT_FALSE(getString(s.handle, "K", "v"));  // and reported once, not on every read
    const std::string report = "Configuration store \"" + path + "\" is corrupt";
    size_t reports = 0;
    for (const auto& line : log.lines()) reports += line.text.rfind(report, 0) == 0 && line.kind == 0;
    EXPECT_EQ(reports, c.corrupt ? 1u : 0u);
    ASSERT_EQ(setString(s.handle, "K", "v", "fresh"), ZR_CFG_OK);
    EXPECT_EQ(dataInFile(path, {"K"}, "v"), "fresh");
    EXPECT_EQ(std::filesystem::exists(path + ".bad"), c.corrupt);
    if (c.corrupt) {
      EXPECT_EQ(qtest::readText(path + ".bad"), c.contents);
      EXPECT_TRUE(log.contains("Configuration store \"" + path + "\": the corrupt file is kept as \"" + path + ".bad\"\n"));
      // A second corruption does not overwrite the first copy.
      qtest::writeText(path, "garbage two");
      ASSERT_EQ(setString(s.handle, "K", "v", "fresher"), ZR_CFG_OK);
      EXPECT_EQ(qtest::readText(path + ".bad"), c.contents);
      EXPECT_EQ(qtest::readText(path + ".bad1"), "garbage two");
      EXPECT_EQ(getString(s.handle, "K", "v"), "fresher");
    }
  }
}

TEST(ConfigStore, BatchesReachTheFileTogetherOrNotAtAll) {
  struct Case {
    const char* name;
    int nesting;
    bool viaClose;  // end the batch by closing the handle
    bool commit;
  };
  const Case cases[] = {{"commit", 1, false, true},       {"drop", 1, false, false}, {"nested commit", 3, false, true},
                        {"close with flush", 2, true, true}, {"close without flush", 1, true, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    qtest::TempDir dir;
    const std::string path = dir.file("batch.xml");
    Store other(path);
    ASSERT_EQ(setString(other.handle, "K", "gone", "to be deleted"), ZR_CFG_OK);
    const std::string before = qtest::readText(path);
    ZRCFGHANDLE h = zrCFGOpen(path.c_str());
    for (int i = 0; i < c.nesting; ++i) ASSERT_EQ(zrCFGBeginBatch(h), ZR_CFG_OK);
    for (uint32_t i = 0; i < 30; ++i) ASSERT_EQ(setDword(h, "K", ("v" + std::to_string(i)).c_str(), i), ZR_CFG_OK);
    ASSERT_EQ(zrCFGDeleteValue(h, "K", "gone"), ZR_CFG_OK);
    EXPECT_EQ(getDword(h, "K", "v7"), 7u);  // the batch sees its own writes...
    EXPECT_FALSE(getString(h, "K", "gone"));
    EXPECT_FALSE(getDword(other.handle, "K", "v7"));  // ...nobody else does yet
    ASSERT_EQ(setString(other.handle, "K", "meanwhile", "kept"), ZR_CFG_OK);
    for (int i = 1; i < c.nesting && !c.viaClose; ++i) {
      ASSERT_EQ(zrCFGEndBatch(h, 1), ZR_CFG_OK);
      EXPECT_FALSE(dataInFile(path, {"K"}, "v7"));  // inner ends write nothing
    }
    if (c.viaClose) {
      ASSERT_EQ(zrCFGClose(h, c.commit), ZR_CFG_OK);
    } else {
      ASSERT_EQ(zrCFGEndBatch(h, c.commit), ZR_CFG_OK);
      EXPECT_EQ(zrCFGEndBatch(h, 1), ZR_CFG_ERROR);  // no batch open any more
    }
    for (uint32_t i = 0; i < 30; ++i)
      EXPECT_EQ(dataInFile(path, {"K"}, "v" + std::to_string(i)), c.commit ? std::optional(std::to_string(i)) : std::nullopt);
    EXPECT_EQ(dataInFile(path, {"K"}, "gone").has_value(), !c.commit);
    EXPECT_EQ(dataInFile(path, {"K"}, "meanwhile"), "kept");  // merged, not overwritten
    if (!c.viaClose) {
      EXPECT_EQ(getDword(h, "K", "v7").has_value(), c.commit);  // a dropped batch is forgotten
      EXPECT_EQ(getString(h, "K", "meanwhile"), "kept");
      zrCFGClose(h, 1);
    }
  }
}

// ---- several processes ----

TEST(ConfigStore, AHandleSeesWhatAnotherProcessWrote) {
  qtest::TempDir dir;
  const std::string path = dir.file("shared.xml");
  Store mine(path);
  for (uint32_t round = 1; round <= 5; ++round) {
    ASSERT_EQ(setDword(mine.handle, "K", "mine", round), ZR_CFG_OK);
    const pid_t child = qtest::spawn([&] {
      const ZRCFGHANDLE h = zrCFGOpen(path.c_str());
      // Same size file each round: only the contents tell the versions apart.
      return setDword(h, "K", "theirs", round) == ZR_CFG_OK && getDword(h, "K", "mine") == round ? 0 : 1;
    });
    ASSERT_EQ(qtest::exitCodeOf(child), 0);
    EXPECT_EQ(getDword(mine.handle, "K", "theirs"), round);
  }
}

TEST(ConfigStore, TwoProcessesWritingAtOnceBothKeepTheirValues) {
  qtest::TempDir dir;
  const std::string path = dir.file("busy.xml");
  constexpr int kValues = 40;
  int go[2];
  ASSERT_EQ(pipe(go), 0);
  auto writer = [&](const char* prefix) {
    return qtest::spawn([&, prefix] {
      close(go[1]);
      char start;
      if (read(go[0], &start, 1) != 0) return 3;  // wait for the starting gun (the pipe closing)
      const ZRCFGHANDLE h = zrCFGOpen(path.c_str());
      for (int i = 0; i < kValues; ++i) {
        const std::string name = prefix + std::to_string(i);
        if (setString(h, "Quorvane\\Busy", name.c_str(), name + " from " + prefix) != ZR_CFG_OK) return 1;
        if (setDword(h, "Quorvane\\Busy", "last", static_cast<uint32_t>(i)) != ZR_CFG_OK) return 2;
      }
      return 0;
    });
  };
  const pid_t a = writer("a"), b = writer("b");
  close(go[0]);
  close(go[1]);
  EXPECT_EQ(qtest::exitCodeOf(a), 0);
  EXPECT_EQ(qtest::exitCodeOf(b), 0);
  Store s(path);
  for (const char* prefix : {"a", "b"})
    for (int i = 0; i < kValues; ++i) {
      const std::string name = prefix + std::to_string(i);
      EXPECT_EQ(dataInFile(path, {"Quorvane", "Busy"}, name), name + " from " + prefix);
    }
  EXPECT_EQ(getDword(s.handle, "Quorvane\\Busy", "last"), uint32_t{kValues - 1});
}

TEST(ConfigStore, AWriterDyingPartWayThroughWritingTheFileLeavesTheOldFile) {
  // RLIMIT_FSIZE stops the writer with SIGXFSZ once it has written that many bytes of a file:
  // a crash at an exact point of the write.
  const rlim_t limits[] = {1, 4096, 100000, 190000};
  for (rlim_t limit : limits) {
    SCOPED_TRACE(limit);
    qtest::TempDir dir;
    const std::string path = dir.file("cut.xml");
    const std::string before(200000, 'o'), after(200000, 'n');
    {
      Store s(path);
      ASSERT_EQ(setString(s.handle, "K", "v", before), ZR_CFG_OK);
    }
    const pid_t child = qtest::spawn([&] {
      const ZRCFGHANDLE h = zrCFGOpen(path.c_str());
      const rlimit noCore{0, 0}, cut{limit, limit};
      setrlimit(RLIMIT_CORE, &noCore);
      setrlimit(RLIMIT_FSIZE, &cut);
      setString(h, "K", "v", after);
      return 0;
    });
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGXFSZ) << status;
    EXPECT_EQ(dataInFile(path, {"K"}, "v"), before);
    Store s(path);  // the next writer is neither blocked nor confused by the leftovers
    EXPECT_EQ(getString(s.handle, "K", "v"), before);  // the cut-short temporary file is never read
    ASSERT_EQ(setString(s.handle, "K", "v", after), ZR_CFG_OK);
    EXPECT_EQ(dataInFile(path, {"K"}, "v"), after);
  }
}

TEST(ConfigStore, KillingAWriterMidWriteLeavesTheOldOrTheNewFileAndReadersNeverSeeHalfAFile) {
  qtest::TempDir dir;
  const std::string path = dir.file("killed.xml");
  // The payload names its counter and is big enough that the kill often lands mid-write.
  auto payload = [](uint32_t counter) { return std::to_string(counter) + ":" + std::string(200000 + counter % 7, 'a' + counter % 26); };
  {
    Store s(path);
    ASSERT_EQ(setString(s.handle, "K", "payload", payload(0)), ZR_CFG_OK);
  }
  std::mt19937 rng(5);
  uint32_t counter = 0;
  for (int round = 0; round < 20; ++round) {
    int acks[2];
    ASSERT_EQ(pipe(acks), 0);
    const uint32_t first = counter + 1;
    const pid_t child = qtest::spawn([&] {
      close(acks[0]);
      const ZRCFGHANDLE h = zrCFGOpen(path.c_str());
      for (uint32_t c = first;; ++c) {
        if (setString(h, "K", "payload", payload(c)) != ZR_CFG_OK) return 1;
        if (write(acks[1], &c, sizeof c) != sizeof c) return 2;
      }
    });
    close(acks[1]);
    // While the writer runs, a reader must never see half a file.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::microseconds(1000 + rng() % 30000);
    do {
      const auto seen = dataInFile(path, {"K"}, "payload");
      ASSERT_TRUE(seen.has_value()) << "a reader saw a partial file in round " << round;
      ASSERT_EQ(*seen, payload(static_cast<uint32_t>(std::stoul(*seen))));
    } while (std::chrono::steady_clock::now() < deadline);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    uint32_t acked = counter, c = 0;
    while (read(acks[0], &c, sizeof c) == sizeof c) acked = c;
    close(acks[0]);

    SCOPED_TRACE(round);
    const auto onDisk = dataInFile(path, {"K"}, "payload");  // the file always parses...
    ASSERT_TRUE(onDisk.has_value()) << "round " << round;
    const uint32_t stored = static_cast<uint32_t>(std::stoul(*onDisk));
    EXPECT_TRUE(stored == acked || stored == acked + 1) << stored << " vs acked " << acked;  // ...old or new
    EXPECT_EQ(*onDisk, payload(stored));
    counter = stored;
  }
  // No corruption was ever seen, and the dead writers' lock is free.
  qtest::LogCapture log;
  Store s(path);
  ASSERT_EQ(setDword(s.handle, "K", "after", 1), ZR_CFG_OK);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_FALSE(std::filesystem::exists(path + ".bad"));
}

}  // namespace
