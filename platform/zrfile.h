// Files with Win32 semantics on POSIX: handles, access masks, share modes, creation dispositions.
#pragma once
#include <cstddef>
#include <cstdint>

extern "C" {

typedef void* ZRHANDLE;
#define ZR_INVALID_HANDLE ((ZRHANDLE)(intptr_t)-1)  // all ones, like INVALID_HANDLE_VALUE

// Access mask
#define ZR_GENERIC_READ   0x80000000u
#define ZR_GENERIC_WRITE  0x40000000u
// Share mode
#define ZR_FILE_SHARE_READ   0x1u
#define ZR_FILE_SHARE_WRITE  0x2u
#define ZR_FILE_SHARE_DELETE 0x4u
// Creation disposition
#define ZR_CREATE_NEW        1u
#define ZR_CREATE_ALWAYS     2u
#define ZR_OPEN_EXISTING     3u
#define ZR_OPEN_ALWAYS       4u
#define ZR_TRUNCATE_EXISTING 5u
// Flags
#define ZR_FILE_FLAG_NO_BUFFERING 0x20000000u
// Seek origins
#define ZR_FILE_BEGIN   0u
#define ZR_FILE_CURRENT 1u
#define ZR_FILE_END     2u

// Longest path the path helpers produce, NUL included.
#define ZR_MAX_PATH 4096

// Opens or creates a file. Returns ZR_INVALID_HANDLE on failure (zrOSGetLastError tells why:
// EEXIST, ENOENT, EINVAL for a bad disposition or TRUNCATE_EXISTING without write access, EISDIR,
// EBUSY for a sharing violation). After CREATE_ALWAYS / OPEN_ALWAYS the last error is EEXIST when
// the file was already there, else 0. Share modes are advisory, taken with flock(2): a share mode
// with FILE_SHARE_READ is a shared lock, any other an exclusive one (two handles that share read
// but deny write are not refused against each other). Truncation happens after the lock is won.
ZRHANDLE zrOSCreateFile(const char* path, uint32_t access, uint32_t shareMode, uint32_t disposition, uint32_t flags);
// Read/write like ReadFile/WriteFile: 1 on success (a read at end of file succeeds with 0 bytes), 0 on failure.
int zrOSReadFile(ZRHANDLE file, void* buffer, uint32_t count, uint32_t* bytesRead);
int zrOSWriteFile(ZRHANDLE file, const void* buffer, uint32_t count, uint32_t* bytesWritten);
// Moves the file pointer; returns the new absolute position, or -1 on failure.
int64_t zrOSSeek(ZRHANDLE file, int64_t offset, uint32_t origin);
// 1 on success, 0 on failure (an invalid handle fails).
int zrOSCloseFile(ZRHANDLE file);
// GetFileSize: low 32 bits returned, high 32 bits in *high when given; 0xFFFFFFFF on failure.
uint32_t zrOSGetFileSize(ZRHANDLE file, uint32_t* high);
// GetFileSizeEx: 1 and the size in *size, or 0 on failure.
int zrOSGetFileSizeEx(ZRHANDLE file, int64_t* size);
// 1 when path names an existing file or directory.
int zrOSFileExists(const char* path);
// _splitpath: any output may be null; each non-null output must hold ZR_MAX_PATH bytes.
// drive is always empty on POSIX; dir keeps its trailing '/'; ext keeps its leading '.'.
void zrOSSplitPath(const char* path, char* drive, char* dir, char* fname, char* ext);
// _makepath: joins the parts into path (ZR_MAX_PATH bytes), adding '/' and '.' where missing.
void zrOSMakePath(char* path, const char* drive, const char* dir, const char* fname, const char* ext);
// errno of the last failed file call on this thread.
uint32_t zrOSGetLastError(void);
// Monotonic milliseconds.
uint32_t zrOSGetMs(void);
void zrOSSleep(uint32_t ms);
}
