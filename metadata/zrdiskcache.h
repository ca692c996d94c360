// A read-ahead cache in front of a file handle that is read in many small pieces (elementary
// stream parsing, 188-byte transport packets). Reads inside the cached region are memory
// copies; a miss refills the region with one large read from a 4096-aligned file position into
// a 1024-aligned buffer, so unbuffered (O_DIRECT-style) handles work too. In growing-file mode
// a refill that comes up short is retried for 1.5 s while another process writes the file.
#pragma once
#include <cstdint>

#define ZR_DISKCACHE_FILE_ALIGN 4096u      // refills start on this file boundary
#define ZR_DISKCACHE_BUFFER_ALIGN 1024u    // the cached region starts on this memory boundary
#define ZR_DISKCACHE_EXTRA 2048u           // allocation slack that covers the alignment
#define ZR_DISKCACHE_WAIT_MS 1500u         // growing-file mode gives up after this long
#define ZR_DISKCACHE_RETRY_SLEEP_MS 2u
#define ZR_DISKCACHE_ERROR_FLAG 0x80000000u  // set on errors of the cached path
// Read flags: with (flags & 6) == 4 a refill is cut to the file's current size.
#define ZR_DISKCACHE_READ_TO_FILE_SIZE 4u

class CZRDiskCache {
 public:
  CZRDiskCache();
  virtual ~CZRDiskCache();
  CZRDiskCache(const CZRDiskCache&) = delete;
  CZRDiskCache& operator=(const CZRDiskCache&) = delete;

  // handle is a platform file handle (ZRHANDLE) as an integer. Allocates cacheSize + 2048
  // bytes; -1 when that fails (every later read then goes straight to the file).
  int SetHandleAndCacheSize(long long handle, unsigned int cacheSize, bool waitForData);

  // Reads count bytes at offset into dst. Result 0 with *bytesRead = count; 0 with a smaller
  // *bytesRead at the end of the file (or when a growing file did not grow in time); or an
  // error: the OS error code as it is for reads larger than cacheSize - 4096 (which bypass the
  // cache), the OS error code | 0x80000000 for a failed seek or refill.
  int Read(unsigned char* dst, unsigned long offset, unsigned int count, unsigned int* bytesRead,
           unsigned int flags);

  // The cached file region [CachedStart, CachedEnd).
  int64_t CachedStart() const { return cacheStart; }
  int64_t CachedEnd() const { return cacheEnd; }

 private:
  int readDirect(unsigned char* dst, unsigned long offset, unsigned int count, unsigned int* bytesRead);
  uint32_t refillLength(uint32_t needed, unsigned int flags);

  long long handle;
  unsigned char* buffer;
  unsigned char* cacheBase;
  uint32_t cacheSize;
  int64_t cacheStart;
  int64_t cacheEnd;
  uint32_t waitForData;
};
