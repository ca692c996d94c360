#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "metadata/zrdiskcache.h"
#include "platform/zrfile.h"
#include "support/h16_process.h"
#include "support/test_support.h"

namespace {

using qtest::TempDir;

// Byte i of every test file: position-dependent, so a piece from the wrong place shows.
uint8_t patternByte(uint64_t i) { return static_cast<uint8_t>((i * 2654435761u) >> 13); }
std::vector<uint8_t> pattern(size_t size, uint64_t from = 0) {
  std::vector<uint8_t> bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = patternByte(from + i);
  return bytes;
}

struct OpenFile {
  ZRHANDLE handle;
  explicit OpenFile(const std::string& path, uint32_t access = ZR_GENERIC_READ)
      : handle(zrOSCreateFile(path.c_str(), access, ZR_FILE_SHARE_READ | ZR_FILE_SHARE_WRITE, ZR_OPEN_EXISTING, 0)) {}
  ~OpenFile() { zrOSCloseFile(handle); }
  long long id() const { return static_cast<long long>(reinterpret_cast<intptr_t>(handle)); }
};

// A file holding `bytes` in a fresh directory, open for reading.
struct TestFile {
  TempDir dir;
  std::string path;
  std::vector<uint8_t> bytes;
  OpenFile in;
  explicit TestFile(std::vector<uint8_t> content, const char* name = "data.bin")
      : path(written(dir.file(name), content)), bytes(std::move(content)), in(path) {}
  static std::string written(const std::string& path, const std::vector<uint8_t>& content) {
    qtest::writeBytes(path, content);
    return path;
  }
};

// Starts a second process that appends `total` pattern bytes (continuing at `from`) in pieces
// of `piece` bytes, sleeping `pauseUs` before each piece.
pid_t startAppender(const std::string& path, uint64_t from, size_t total, size_t piece, useconds_t pauseUs) {
  return qtest::spawn([=] {
    int fd = open(path.c_str(), O_WRONLY | O_APPEND);
    std::vector<uint8_t> bytes = pattern(total, from);
    for (size_t done = 0; fd >= 0 && done < total;) {
      usleep(pauseUs);
      size_t n = std::min(piece, total - done);
      ssize_t written = write(fd, bytes.data() + done, n);
      if (written <= 0) return 2;
      done += static_cast<size_t>(written);
    }
    return fd >= 0 ? 0 : 1;
  });
}

// Property: whatever the cache size, offsets, sizes and refill flags, a read returns exactly
// the file's bytes at that place (cut at the end of the file).
TEST(DiskCache, RandomReadsReturnTheFileBytes) {
  const size_t fileSize = 300007;
  std::mt19937 rng(7);
  TestFile f(pattern(fileSize));
  const std::vector<uint8_t>& file = f.bytes;
  ASSERT_NE(f.in.handle, ZR_INVALID_HANDLE);

  for (uint32_t cacheSize : {4096u, 5000u, 8192u, 65536u, 1u << 20}) {
    CZRDiskCache cache;
    ASSERT_EQ(cache.SetHandleAndCacheSize(f.in.id(), cacheSize, false), 0);
    std::vector<uint8_t> got(cacheSize + 1000);
    for (int i = 0; i < 3000; ++i) {
      unsigned long offset = rng() % (fileSize + 5000);
      uint32_t count = rng() % 8 == 0 ? rng() % (cacheSize + 1000) : 1 + rng() % 400;
      unsigned flags = (rng() % 4) * 2;  // 0, 2, 4, 6
      unsigned bytesRead = 12345;
      ASSERT_EQ(cache.Read(got.data(), offset, count, &bytesRead, flags), 0);
      size_t expected = offset >= fileSize ? 0 : std::min<size_t>(count, fileSize - offset);
      ASSERT_EQ(bytesRead, expected) << "cache " << cacheSize << " offset " << offset << " count " << count;
      ASSERT_TRUE(std::equal(got.begin(), got.begin() + expected, file.begin() + std::min<size_t>(offset, fileSize)))
          << "cache " << cacheSize << " offset " << offset << " count " << count << " flags " << flags;
    }
    // With no room beyond the 4096-byte reserve, every read goes straight to the file.
    EXPECT_TRUE(cacheSize != 4096 || cache.CachedEnd() == 0);
  }
}

TEST(DiskCache, ReadEndingAtTheCachedEndLeavesAnEmptyRegionAtTheNextBlock) {
  TestFile f(pattern(200000));
  const std::vector<uint8_t>& file = f.bytes;
  CZRDiskCache cache;
  ASSERT_EQ(cache.SetHandleAndCacheSize(f.in.id(), 65536, false), 0);
  std::vector<uint8_t> big(61441);
  unsigned n = 0;
  ASSERT_EQ(cache.Read(big.data(), 10, 100, &n, 0), 0);
  EXPECT_EQ(cache.CachedStart(), 0);
  EXPECT_EQ(cache.CachedEnd(), 65536);

  const struct {
    unsigned long offset;
    unsigned count;
    int64_t start, end;  // cached region afterwards
  } steps[] = {
      {65436, 100, 65536, 65536},  // ends exactly at the cached end: empty region at 65536
      {65536, 10, 65536, 131072},  // the next read refills from there
      {131000, 200, 131072, 196608},  // straddles: cached part, then a refill at 131072
      {196000, 4000, 196608, 200000},  // cached part, then a refill cut at the end of the file
      {1000, 61441, 196608, 200000},  // larger than cacheSize - 4096: straight to the file
  };
  for (const auto& s : steps) {
    ASSERT_EQ(cache.Read(big.data(), s.offset, s.count, &n, 0), 0) << s.offset;
    ASSERT_EQ(n, s.count);
    EXPECT_TRUE(std::equal(big.begin(), big.begin() + s.count, file.begin() + s.offset)) << s.offset;
    EXPECT_EQ(cache.CachedStart(), s.start) << s.offset;
    EXPECT_EQ(cache.CachedEnd(), s.end) << s.offset;
  }
}

// Errors of the cached path carry bit 31; the direct path reports the OS code as it is.
TEST(DiskCache, ErrorCodesWithAndWithoutTheFlagBit) {
  TestFile f(pattern(10000));
  OpenFile writeOnly(f.path, ZR_GENERIC_WRITE);
  ASSERT_NE(writeOnly.handle, ZR_INVALID_HANDLE);
  const long long invalid = -1;
  const struct {
    const char* label;
    long long handle;
    unsigned count;
    int result;
    const char* log;  // exact log line, or null for none
  } cases[] = {
      {"refill read refused", writeOnly.id(), 100, int(EACCES | 0x80000000u), nullptr},
      {"direct read refused", writeOnly.id(), 8192, EACCES, nullptr},
      {"refill seek on a bad handle", invalid, 100, int(EBADF | 0x80000000u), "Diskcache seek failed 0x00000009 "},
      {"direct seek on a bad handle", invalid, 8192, EBADF, nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    CZRDiskCache cache;
    ASSERT_EQ(cache.SetHandleAndCacheSize(c.handle, 8192, false), 0);
    std::vector<uint8_t> got(c.count);
    unsigned n = 77;
    qtest::LogCapture log;
    EXPECT_EQ(cache.Read(got.data(), 0, c.count, &n, 0), c.result);
    EXPECT_EQ(n, 0u);
    if (c.log) EXPECT_TRUE(log.contains(c.log));
    else EXPECT_TRUE(log.lines().empty());
  }
}

// A second process appends small pieces while the cache reads 188-byte packets right behind it:
// every packet arrives whole, and the bytes equal a plain read of the finished file.
TEST(DiskCache, FollowsAFileGrowingInAnotherProcess) {
  const size_t total = 188 * 1600;
  TestFile f({}, "growing.ts");
  CZRDiskCache cache;
  ASSERT_EQ(cache.SetHandleAndCacheSize(f.in.id(), 65536, true), 0);
  pid_t writer = startAppender(f.path, 0, total, 997, 500);
  ASSERT_GT(writer, 0);
  std::vector<uint8_t> seen(total);
  for (size_t offset = 0; offset < total; offset += 188) {
    unsigned n = 0;
    int result = cache.Read(seen.data() + offset, offset, 188, &n, 0);
    if (result != 0 || n != 188) {
      ADD_FAILURE() << "offset " << offset << " result " << result << " bytes " << n;
      break;
    }
  }
  ASSERT_EQ(qtest::exitCodeOf(writer), 0);
  EXPECT_EQ(seen, qtest::readBytes(f.path));
  EXPECT_EQ(seen, pattern(total));
}

TEST(DiskCache, WaitsUpToOneAndAHalfSecondsForAGrowingFile) {
  const struct {
    const char* label;
    bool wait;
    useconds_t writerPauseUs;  // before the writer appends the rest (0: no writer)
    unsigned expectedBytes;
    int minMs, maxMs;
  } cases[] = {
      {"writer catches up in time", true, 300000, 188, 250, 3000},  // 188 bytes: it did not time out
      {"writer stalls: partial count after 1.5 s", true, 0, 100, 1495, 3000},  // 1 ms clock granularity
      {"no waiting: partial count at once", false, 0, 100, 0, 1000},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    TestFile f(pattern(1000));
    CZRDiskCache cache;
    ASSERT_EQ(cache.SetHandleAndCacheSize(f.in.id(), 65536, c.wait), 0);
    pid_t writer = c.writerPauseUs ? startAppender(f.path, 1000, 1000, 1000, c.writerPauseUs) : 0;
    uint8_t got[188];
    unsigned n = 0;
    auto began = std::chrono::steady_clock::now();
    EXPECT_EQ(cache.Read(got, 900, sizeof got, &n, 0), 0);
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - began).count();
    if (writer) {
      EXPECT_EQ(qtest::exitCodeOf(writer), 0);
    }
    EXPECT_EQ(n, c.expectedBytes);
    std::vector<uint8_t> expected = pattern(n, 900);
    EXPECT_TRUE(std::equal(got, got + n, expected.begin()));
    EXPECT_GE(ms, c.minMs);
    EXPECT_LE(ms, c.maxMs);
  }
}

}  // namespace
