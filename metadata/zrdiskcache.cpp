// Read-ahead disk cache: see zrdiskcache.h.
#include "metadata/zrdiskcache.h"

#include <cstddef>

#include "platform/zrfile.h"
#include "platform/zrlog.h"
#include "platform/zrmemory.h"

namespace {

ZRHANDLE fileOf(long long handle) { return reinterpret_cast<ZRHANDLE>(static_cast<intptr_t>(handle)); }

uint64_t alignDown(uint64_t value, uint64_t alignment) { return value - value % alignment; }

}  // namespace

CZRDiskCache::CZRDiskCache()
    : handle(0), buffer(nullptr), cacheBase(nullptr), cacheSize(0), cacheStart(0), cacheEnd(0), waitForData(0) {}

CZRDiskCache::~CZRDiskCache() { ZRFree(buffer); }

int CZRDiskCache::SetHandleAndCacheSize(long long newHandle, unsigned int newCacheSize, bool wait) {
  handle = newHandle;
  waitForData = wait ? 1 : 0;
  ZRFree(buffer);
  buffer = static_cast<unsigned char*>(ZRAlloc(static_cast<size_t>(newCacheSize) + ZR_DISKCACHE_EXTRA));
  cacheStart = cacheEnd = 0;
  if (!buffer) {
    cacheBase = nullptr;
    cacheSize = 0;
    return -1;
  }
  uintptr_t address = reinterpret_cast<uintptr_t>(buffer);
  uintptr_t aligned = (address + ZR_DISKCACHE_BUFFER_ALIGN - 1) & ~uintptr_t(ZR_DISKCACHE_BUFFER_ALIGN - 1);
  cacheBase = buffer + (aligned - address);
  cacheSize = newCacheSize;
  return 0;
}

// Large reads gain nothing from the cache: straight to the file. Errors come back as the OS
// reports them, without the flag bit the cached path adds (callers have always told the two
// paths apart this way).
int CZRDiskCache::readDirect(unsigned char* dst, unsigned long offset, unsigned int count, unsigned int* bytesRead) {
  ZRHANDLE file = fileOf(handle);
  if (zrOSSeek(file, static_cast<int64_t>(offset), ZR_FILE_BEGIN) != static_cast<int64_t>(offset)) {
    uint32_t error = zrOSGetLastError();
    return error ? static_cast<int>(error) : -1;
  }
  if (!zrOSReadFile(file, dst, count, bytesRead)) return static_cast<int>(zrOSGetLastError());
  return 0;
}

// How much one refill asks for: the whole region, or with ZR_DISKCACHE_READ_TO_FILE_SIZE no
// more than the file holds now (but always at least what the caller needs).
uint32_t CZRDiskCache::refillLength(uint32_t needed, unsigned int flags) {
  if ((flags & 6u) != ZR_DISKCACHE_READ_TO_FILE_SIZE) return cacheSize;
  int64_t fileSize = 0;
  if (!zrOSGetFileSizeEx(fileOf(handle), &fileSize)) return cacheSize;
  if (fileSize >= cacheStart + static_cast<int64_t>(cacheSize)) return cacheSize;
  if (fileSize < cacheStart + static_cast<int64_t>(needed)) return needed;
  return static_cast<uint32_t>(fileSize - cacheStart);
}

int CZRDiskCache::Read(unsigned char* dst, unsigned long offset, unsigned int count, unsigned int* bytesRead,
                       unsigned int flags) {
  unsigned int ignored = 0;
  if (!bytesRead) bytesRead = &ignored;
  *bytesRead = 0;
  if (!dst) return -1;
  if (count == 0) return 0;
  if (!cacheBase || static_cast<uint64_t>(count) + ZR_DISKCACHE_FILE_ALIGN > cacheSize)
    return readDirect(dst, offset, count, bytesRead);

  // Whatever the cached region already holds.
  uint64_t pos = offset;
  const uint64_t start = static_cast<uint64_t>(cacheStart), end = static_cast<uint64_t>(cacheEnd);
  if (start <= offset && offset < end) {
    if (offset + count < end) {
      CopyMemoryFast(dst, cacheBase + (offset - start), count);
      *bytesRead = count;
      return 0;
    }
    uint32_t cached = static_cast<uint32_t>(end - offset);
    CopyMemoryFast(dst, cacheBase + (offset - start), cached);
    *bytesRead = cached;
    pos = offset + cached;
  }

  // Refill from the aligned position at or before pos. Nothing is valid until it succeeds.
  ZRHANDLE file = fileOf(handle);
  cacheStart = cacheEnd = static_cast<int64_t>(alignDown(pos, ZR_DISKCACHE_FILE_ALIGN));
  if (zrOSSeek(file, cacheStart, ZR_FILE_BEGIN) != cacheStart) {
    uint32_t error = zrOSGetLastError();
    ErrOut("Diskcache seek failed 0x%08X ", error);
    return static_cast<int>(error | ZR_DISKCACHE_ERROR_FLAG);
  }
  const uint32_t skip = static_cast<uint32_t>(pos - static_cast<uint64_t>(cacheStart));
  const uint32_t remaining = count - *bytesRead;
  if (remaining == 0) return 0;  // the cached part was the whole answer; the region stays empty

  // The refill has succeeded once the requested range itself is in: a growing file may end
  // anywhere inside the aligned block that holds it.
  const uint32_t needed = skip + remaining;
  const uint32_t length = refillLength(needed, flags);
  const uint32_t began = zrOSGetMs();
  uint32_t total = 0, lastError = 0;
  bool complete = false;
  for (;;) {
    uint32_t got = 0;
    if (zrOSReadFile(file, cacheBase + total, length - total, &got))
      total += got;
    else
      lastError = zrOSGetLastError();
    if (total >= needed) {
      complete = true;
      break;
    }
    if (!waitForData || zrOSGetMs() - began >= ZR_DISKCACHE_WAIT_MS) break;
    zrOSSleep(ZR_DISKCACHE_RETRY_SLEEP_MS);
  }
  cacheEnd = cacheStart + total;

  // Hand over what arrived: all of it, or on failure the part that is there.
  uint32_t available = total > skip ? total - skip : 0;
  uint32_t copied = complete ? remaining : (available < remaining ? available : remaining);
  CopyMemoryFast(dst + *bytesRead, cacheBase + skip, copied);
  *bytesRead += copied;
  if (complete) return static_cast<int>(lastError);
  return lastError ? static_cast<int>(lastError | ZR_DISKCACHE_ERROR_FLAG) : 0;
}
