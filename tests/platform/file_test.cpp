// Files with Win32 semantics: dispositions, access, sharing, I/O, sizes, paths, clock.
// File contents are checked through the C++ standard library, not through the API under test.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "platform/zrfile.h"
#include "support/h16_text_files.h"
#include "support/test_support.h"

namespace {

constexpr uint32_t kRW = ZR_GENERIC_READ | ZR_GENERIC_WRITE;
constexpr uint32_t kShareRW = ZR_FILE_SHARE_READ | ZR_FILE_SHARE_WRITE;

TEST(ZrFile, CreationDispositionsAgainstExistingAndMissingFiles) {
  enum Content { kKept, kEmpty, kAbsent };
  struct Case {
    const char* name;
    uint32_t disposition;
    uint32_t access;
    bool fileExists;
    bool opens;
    uint32_t lastError;  // after failure, or after success (EEXIST = "already existed")
    Content after;
  };
  const Case cases[] = {
      {"create-new on existing", ZR_CREATE_NEW, kRW, true, false, EEXIST, kKept},
      {"create-new on missing", ZR_CREATE_NEW, kRW, false, true, 0, kEmpty},
      {"create-always on existing", ZR_CREATE_ALWAYS, kRW, true, true, EEXIST, kEmpty},
      {"create-always on missing", ZR_CREATE_ALWAYS, kRW, false, true, 0, kEmpty},
      {"create-always read-only still truncates", ZR_CREATE_ALWAYS, ZR_GENERIC_READ, true, true, EEXIST, kEmpty},
      {"open-existing on existing", ZR_OPEN_EXISTING, ZR_GENERIC_READ, true, true, 0, kKept},
      {"open-existing on missing", ZR_OPEN_EXISTING, ZR_GENERIC_READ, false, false, ENOENT, kAbsent},
      {"open-always on existing", ZR_OPEN_ALWAYS, kRW, true, true, EEXIST, kKept},
      {"open-always on missing", ZR_OPEN_ALWAYS, kRW, false, true, 0, kEmpty},
      {"truncate-existing on existing", ZR_TRUNCATE_EXISTING, ZR_GENERIC_WRITE, true, true, 0, kEmpty},
      {"truncate-existing on missing", ZR_TRUNCATE_EXISTING, ZR_GENERIC_WRITE, false, false, ENOENT, kAbsent},
      {"truncate-existing without write access", ZR_TRUNCATE_EXISTING, ZR_GENERIC_READ, true, false, EINVAL, kKept},
      {"unknown disposition 0", 0, kRW, true, false, EINVAL, kKept},
      {"unknown disposition 6", 6, kRW, false, false, EINVAL, kAbsent},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    qtest::TempDir dir;
    const std::string path = dir.file("f.bin");
    if (c.fileExists) qtest::writeText(path, "old contents");
    ZRHANDLE h = zrOSCreateFile(path.c_str(), c.access, ZR_FILE_SHARE_READ, c.disposition, 0);
    EXPECT_EQ(h != ZR_INVALID_HANDLE, c.opens);
    EXPECT_EQ(zrOSGetLastError(), c.lastError);
    if (h != ZR_INVALID_HANDLE) {
      EXPECT_EQ(zrOSCloseFile(h), 1);
    }
    switch (c.after) {
      case kKept: EXPECT_EQ(qtest::readText(path), "old contents"); break;
      case kEmpty: EXPECT_TRUE(std::filesystem::exists(path)); EXPECT_EQ(qtest::readText(path), ""); break;
      case kAbsent: EXPECT_FALSE(std::filesystem::exists(path)); break;
    }
  }
}

TEST(ZrFile, AccessMaskDecidesWhatAHandleMayDo) {
  struct Case { uint32_t access; bool reads; bool writes; };
  const Case cases[] = {{ZR_GENERIC_READ, true, false},
                        {ZR_GENERIC_WRITE, false, true},
                        {kRW, true, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.access);
    qtest::TempDir dir;
    const std::string path = dir.file("a.bin");
    qtest::writeText(path, "abcdef");
    ZRHANDLE h = zrOSCreateFile(path.c_str(), c.access, kShareRW, ZR_OPEN_EXISTING, 0);
    ASSERT_NE(h, ZR_INVALID_HANDLE);
    char buf[4] = {};
    uint32_t n = 99;
    EXPECT_EQ(zrOSReadFile(h, buf, 3, &n), c.reads ? 1 : 0);
    EXPECT_EQ(n, c.reads ? 3u : 0u);
    if (!c.reads) {
      EXPECT_EQ(zrOSGetLastError(), uint32_t{EACCES});
    }
    EXPECT_EQ(zrOSWriteFile(h, "XY", 2, &n), c.writes ? 1 : 0);
    EXPECT_EQ(n, c.writes ? 2u : 0u);
    if (!c.writes) {
      EXPECT_EQ(zrOSGetLastError(), uint32_t{EACCES});
    }
    EXPECT_EQ(zrOSCloseFile(h), 1);
    const std::string expect = !c.writes ? "abcdef" : c.reads ? "abcXYf" : "XYcdef";
    EXPECT_EQ(qtest::readText(path), expect);
  }
}

TEST(ZrFile, ShareModesRefuseConflictingOpeners) {
  struct Case { const char* name; uint32_t firstAccess, firstShare, secondAccess, secondShare; bool secondOpens; };
  const Case cases[] = {
      {"two readers sharing read", ZR_GENERIC_READ, ZR_FILE_SHARE_READ, ZR_GENERIC_READ, ZR_FILE_SHARE_READ, true},
      {"writer sharing read, reader sharing all", ZR_GENERIC_WRITE, ZR_FILE_SHARE_READ, ZR_GENERIC_READ, kShareRW, true},
      {"exclusive holder refuses a reader", ZR_GENERIC_READ, 0, ZR_GENERIC_READ, kShareRW, false},
      {"reader refuses an exclusive opener", ZR_GENERIC_READ, ZR_FILE_SHARE_READ, kRW, 0, false},
      {"write-only share is exclusive", kRW, ZR_FILE_SHARE_WRITE, ZR_GENERIC_READ, kShareRW, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    qtest::TempDir dir;
    const std::string path = dir.file("s.bin");
    qtest::writeText(path, "shared");
    ZRHANDLE first = zrOSCreateFile(path.c_str(), c.firstAccess, c.firstShare, ZR_OPEN_EXISTING, 0);
    ASSERT_NE(first, ZR_INVALID_HANDLE);
    ZRHANDLE second = zrOSCreateFile(path.c_str(), c.secondAccess, c.secondShare, ZR_OPEN_EXISTING, 0);
    EXPECT_EQ(second != ZR_INVALID_HANDLE, c.secondOpens);
    if (second == ZR_INVALID_HANDLE) {
      EXPECT_EQ(zrOSGetLastError(), uint32_t{EBUSY});
      // A refused create-always must not have truncated the file under its holder.
      EXPECT_EQ(zrOSCreateFile(path.c_str(), kRW, c.secondShare, ZR_CREATE_ALWAYS, 0), ZR_INVALID_HANDLE);
      EXPECT_EQ(qtest::readText(path), "shared");
    } else {
      EXPECT_EQ(zrOSCloseFile(second), 1);
    }
    EXPECT_EQ(zrOSCloseFile(first), 1);
    // Once the holder has gone, the second opener gets in.
    second = zrOSCreateFile(path.c_str(), c.secondAccess, c.secondShare, ZR_OPEN_EXISTING, 0);
    EXPECT_NE(second, ZR_INVALID_HANDLE);
    zrOSCloseFile(second);
  }
}

TEST(ZrFile, WriteSeekReadRoundTripMatchesTheBytesOnDisk) {
  qtest::TempDir dir;
  const std::string path = dir.file("io.bin");
  std::mt19937 rng(3);
  std::vector<char> data(70000);
  for (auto& b : data) b = static_cast<char>(rng());
  ZRHANDLE h = zrOSCreateFile(path.c_str(), kRW, 0, ZR_CREATE_NEW, 0);
  ASSERT_NE(h, ZR_INVALID_HANDLE);
  uint32_t n = 0;
  ASSERT_EQ(zrOSWriteFile(h, data.data(), static_cast<uint32_t>(data.size()), &n), 1);
  EXPECT_EQ(n, data.size());
  EXPECT_EQ(qtest::readText(path), std::string(data.begin(), data.end()));

  struct Seek {
    int64_t offset;
    uint32_t origin;
    int64_t expect;  // -1: refused
  };
  const Seek seeks[] = {{0, ZR_FILE_BEGIN, 0},         {100, ZR_FILE_CURRENT, 100}, {-50, ZR_FILE_CURRENT, 50},
                        {-10, ZR_FILE_END, 69990},     {-1, ZR_FILE_BEGIN, -1},    {0, 3, -1},
                        {12345, ZR_FILE_BEGIN, 12345}, {-70001, ZR_FILE_END, -1}};
  int64_t pos = 0;
  for (const auto& s : seeks) {
    SCOPED_TRACE(s.offset);
    const int64_t got = zrOSSeek(h, s.offset, s.origin);
    EXPECT_EQ(got, s.expect);
    if (got < 0) {
      EXPECT_EQ(zrOSGetLastError(), uint32_t{EINVAL});
      continue;
    }
    pos = got;
  }
  std::vector<char> back(1000);
  ASSERT_EQ(zrOSReadFile(h, back.data(), 1000, &n), 1);
  ASSERT_EQ(n, 1000u);
  EXPECT_TRUE(std::equal(back.begin(), back.end(), data.begin() + pos));
  // (Reads across and past the end are DiskCache.RandomReadsReturnTheFileBytes's direct reads.)
  EXPECT_EQ(zrOSCloseFile(h), 1);
}

TEST(ZrFile, SizesBeyondFourGigabytesSplitIntoHighAndLowWords) {
  qtest::TempDir dir;
  const std::string path = dir.file("big.bin");
  ZRHANDLE h = zrOSCreateFile(path.c_str(), kRW, 0, ZR_CREATE_NEW, 0);
  ASSERT_NE(h, ZR_INVALID_HANDLE);
  const int64_t sizes[] = {0, 1, 0xFFFFFFFFll, 0x100000000ll + 0x1234, 0x2FFFFFFFFll};
  for (int64_t size : sizes) {
    SCOPED_TRACE(size);
    if (size > 0) {  // sparse: seek to the last byte and write it
      ASSERT_EQ(zrOSSeek(h, size - 1, ZR_FILE_BEGIN), size - 1);
      uint32_t n = 0;
      ASSERT_EQ(zrOSWriteFile(h, "z", 1, &n), 1);
    }
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    ASSERT_EQ(st.st_size, size);
    int64_t ex = -1;
    EXPECT_EQ(zrOSGetFileSizeEx(h, &ex), 1);
    EXPECT_EQ(ex, size);
    uint32_t high = 0xDEAD;
    EXPECT_EQ(zrOSGetFileSize(h, &high), static_cast<uint32_t>(size));
    EXPECT_EQ(high, static_cast<uint32_t>(size >> 32));
    EXPECT_EQ(zrOSGetLastError(), 0u);  // tells a 0xFFFFFFFF low word from failure
  }
  EXPECT_EQ(zrOSCloseFile(h), 1);
}

TEST(ZrFile, BadHandlesAndPathsFailCleanly) {
  qtest::TempDir dir;
  ZRHANDLE bad[] = {ZR_INVALID_HANDLE, nullptr};
  for (ZRHANDLE h : bad) {
    char buf[4];
    uint32_t n = 5;
    int64_t size = 0;
    EXPECT_EQ(zrOSReadFile(h, buf, 4, &n), 0);
    EXPECT_EQ(n, 0u);
    EXPECT_EQ(zrOSWriteFile(h, buf, 4, &n), 0);
    EXPECT_EQ(zrOSSeek(h, 0, ZR_FILE_BEGIN), -1);
    EXPECT_EQ(zrOSGetFileSize(h, nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(zrOSGetFileSizeEx(h, &size), 0);
    EXPECT_EQ(zrOSCloseFile(h), 0);
    EXPECT_EQ(zrOSGetLastError(), uint32_t{EBADF});
  }
  EXPECT_EQ(zrOSCreateFile(nullptr, kRW, 0, ZR_OPEN_ALWAYS, 0), ZR_INVALID_HANDLE);
  EXPECT_EQ(zrOSCreateFile("", kRW, 0, ZR_OPEN_ALWAYS, 0), ZR_INVALID_HANDLE);
  EXPECT_EQ(zrOSCreateFile(dir.path().c_str(), ZR_GENERIC_READ, kShareRW, ZR_OPEN_EXISTING, 0), ZR_INVALID_HANDLE);
  EXPECT_EQ(zrOSGetLastError(), uint32_t{EISDIR});
  EXPECT_EQ(zrOSCreateFile(dir.file("no/such/dir/f").c_str(), kRW, 0, ZR_CREATE_ALWAYS, 0), ZR_INVALID_HANDLE);
  EXPECT_EQ(zrOSGetLastError(), uint32_t{ENOENT});
  qtest::writeText(dir.file("here"), "x");
  EXPECT_TRUE(zrOSFileExists(dir.file("here").c_str()));
  EXPECT_TRUE(zrOSFileExists(dir.path().c_str()));
  EXPECT_FALSE(zrOSFileExists(dir.file("gone").c_str()));
  EXPECT_FALSE(zrOSFileExists(""));
  EXPECT_FALSE(zrOSFileExists(nullptr));
}

TEST(ZrPath, SplitPathLikeSplitpath) {
  struct Case { const char* path; const char* dir; const char* fname; const char* ext; };
  const Case cases[] = {
      {"/media/clips/take1.mov", "/media/clips/", "take1", ".mov"}, {"take1.mov", "", "take1", ".mov"},
      {"/media/clips/", "/media/clips/", "", ""}, {"archive.tar.gz", "", "archive.tar", ".gz"},
      {"/a.b/noext", "/a.b/", "noext", ""}, {".profile", "", "", ".profile"},
      {"C:\\clips\\reel 2.mxf", "C:\\clips\\", "reel 2", ".mxf"}, {"dir/trailingdot.", "dir/", "trailingdot", "."},
      {"", "", "", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    char drive[ZR_MAX_PATH] = "x", dir[ZR_MAX_PATH], fname[ZR_MAX_PATH], ext[ZR_MAX_PATH];
    zrOSSplitPath(c.path, drive, dir, fname, ext);
    EXPECT_STREQ(drive, "");
    EXPECT_STREQ(dir, c.dir);
    EXPECT_STREQ(fname, c.fname);
    EXPECT_STREQ(ext, c.ext);
    // Joining the parts gives the path back.
    char joined[ZR_MAX_PATH];
    zrOSMakePath(joined, drive, dir, fname, ext);
    EXPECT_STREQ(joined, c.path);
    zrOSSplitPath(c.path, nullptr, nullptr, fname, nullptr);  // null outputs are skipped
    EXPECT_STREQ(fname, c.fname);
  }
}

TEST(ZrPath, MakePathAddsMissingSeparatorsAndDots) {
  struct Case { const char *dir, *fname, *ext, *path; };
  const Case cases[] = {
      {"/proj", "clip", "mov", "/proj/clip.mov"}, {"/proj/", "clip", ".mov", "/proj/clip.mov"},
      {"", "clip", "mov", "clip.mov"}, {nullptr, "clip", nullptr, "clip"}, {"/proj", nullptr, nullptr, "/proj/"},
      {"C:\\proj\\", "a", "b", "C:\\proj\\a.b"},
  };
  for (const auto& c : cases) {
    char path[ZR_MAX_PATH];
    zrOSMakePath(path, nullptr, c.dir, c.fname, c.ext);
    EXPECT_STREQ(path, c.path);
  }
}

TEST(ZrPath, OverlongPartsAreCutNotOverrun) {
  const std::string longDir(ZR_MAX_PATH + 100, 'd');
  const std::string longPath = longDir + "/" + std::string(ZR_MAX_PATH * 2, 'n') + ".ext";
  char dir[ZR_MAX_PATH], fname[ZR_MAX_PATH], ext[ZR_MAX_PATH];
  zrOSSplitPath(longPath.c_str(), nullptr, dir, fname, ext);
  EXPECT_EQ(std::string(dir), longDir.substr(0, ZR_MAX_PATH - 1));
  EXPECT_EQ(std::string(fname).size(), size_t{ZR_MAX_PATH - 1});
  EXPECT_STREQ(ext, ".ext");
  char path[ZR_MAX_PATH];
  zrOSMakePath(path, nullptr, longDir.c_str(), "name", "ext");
  EXPECT_EQ(std::string(path), longDir.substr(0, ZR_MAX_PATH - 1));
}

TEST(ZrClock, MillisecondsFollowTheSteadyClockAndSleepWaits) {
  for (uint32_t ms : {0u, 5u, 40u}) {
    SCOPED_TRACE(ms);
    const auto t0 = std::chrono::steady_clock::now();
    const uint32_t z0 = zrOSGetMs();
    zrOSSleep(ms);
    const uint32_t elapsed = zrOSGetMs() - z0;
    const auto oracle = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count();
    EXPECT_GE(elapsed + 1, ms);  // the ms counter may tick just after the sleep began
    EXPECT_LE(elapsed, static_cast<uint32_t>(oracle) + 1);
    EXPECT_GE(static_cast<int64_t>(oracle), static_cast<int64_t>(ms));
  }
}

}  // namespace
