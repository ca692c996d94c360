// Files with Win32 semantics on POSIX.
//
// A handle is a heap record holding the descriptor and the access mask it was opened with, so
// that reads and writes are refused exactly when Win32 would refuse them (a handle opened
// without GENERIC_READ cannot read, even when the descriptor underneath could).
//
// Share modes are advisory and approximated with flock(2) on the file itself: a handle whose
// share mode includes FILE_SHARE_READ takes a shared lock, any other share mode (0, or write
// only) an exclusive one, both without waiting. So an exclusive opener is refused while any
// other handle is open and blocks every later opener, and readers sharing read coexist; two
// handles that both share read but deny write are not refused against each other. Only openers
// that go through zrOSCreateFile take part. A refused open fails with EBUSY (the sharing
// violation) and never truncates the file: truncation happens after the lock is granted.
#include "platform/zrfile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

namespace {

constexpr uint32_t kHandleMagic = 0x5A524648;  // "ZRFH"

struct FileHandle {
  uint32_t magic;
  int fd;
  bool canRead;
  bool canWrite;
};

thread_local uint32_t lastError = 0;

int fail(int error) {
  lastError = static_cast<uint32_t>(error);
  return 0;
}

FileHandle* handleOf(ZRHANDLE file) {
  if (file == nullptr || file == ZR_INVALID_HANDLE) return nullptr;
  auto* h = static_cast<FileHandle*>(file);
  return h->magic == kHandleMagic ? h : nullptr;
}

bool truncates(uint32_t disposition) { return disposition == ZR_CREATE_ALWAYS || disposition == ZR_TRUNCATE_EXISTING; }

// Opens the descriptor for a disposition. *existed tells whether the file was already there
// (CREATE_ALWAYS and OPEN_ALWAYS report that through the last error, as Win32 does).
int openForDisposition(const char* path, int rw, uint32_t disposition, bool* existed) {
  const int base = rw | O_CLOEXEC;
  *existed = true;
  switch (disposition) {
    case ZR_CREATE_NEW:
      *existed = false;
      return open(path, base | O_CREAT | O_EXCL, 0666);
    case ZR_OPEN_EXISTING:
    case ZR_TRUNCATE_EXISTING:
      return open(path, base);
    case ZR_CREATE_ALWAYS:
    case ZR_OPEN_ALWAYS:
      // Create exclusively first so we know whether the file existed; retry if it vanishes
      // between the two opens.
      for (int attempt = 0; attempt < 8; ++attempt) {
        int fd = open(path, base | O_CREAT | O_EXCL, 0666);
        if (fd >= 0 || errno != EEXIST) {
          *existed = false;
          return fd;
        }
        fd = open(path, base);
        if (fd >= 0 || errno != ENOENT) return fd;
      }
      errno = EAGAIN;
      return -1;
    default:
      errno = EINVAL;
      return -1;
  }
}

}  // namespace

extern "C" {

ZRHANDLE zrOSCreateFile(const char* path, uint32_t access, uint32_t shareMode, uint32_t disposition, uint32_t flags) {
  if (path == nullptr || *path == '\0') {
    lastError = path ? ENOENT : EINVAL;
    return ZR_INVALID_HANDLE;
  }
  const bool canRead = (access & ZR_GENERIC_READ) != 0;
  const bool canWrite = (access & ZR_GENERIC_WRITE) != 0;
  if (disposition == ZR_TRUNCATE_EXISTING && !canWrite) {  // Win32 demands write access here
    lastError = EINVAL;
    return ZR_INVALID_HANDLE;
  }
  // Truncation needs a writable descriptor even when the caller asked for read access only.
  const bool wantWrite = canWrite || truncates(disposition);
  const int rw = wantWrite ? (canRead ? O_RDWR : O_WRONLY) : O_RDONLY;

  bool existed = false;
  const int fd = openForDisposition(path, rw, disposition, &existed);
  if (fd < 0) {
    lastError = static_cast<uint32_t>(errno);
    return ZR_INVALID_HANDLE;
  }
  auto refuse = [fd](int error) {
    close(fd);
    lastError = static_cast<uint32_t>(error);
    return ZR_INVALID_HANDLE;
  };
  struct stat st;
  if (fstat(fd, &st) != 0) return refuse(errno);
  if (S_ISDIR(st.st_mode)) return refuse(EISDIR);  // Win32 refuses directories without backup semantics

  const int lockKind = (shareMode & ZR_FILE_SHARE_READ) ? LOCK_SH : LOCK_EX;
  if (flock(fd, lockKind | LOCK_NB) != 0) {
    const int error = errno;
    // A file we just created must not stay behind when its open is refused.
    if (!existed && S_ISREG(st.st_mode)) unlink(path);
    return refuse(error == EWOULDBLOCK ? EBUSY : error);
  }
  if (existed && truncates(disposition) && S_ISREG(st.st_mode) && ftruncate(fd, 0) != 0) return refuse(errno);
  if (flags & ZR_FILE_FLAG_NO_BUFFERING) posix_fadvise(fd, 0, 0, POSIX_FADV_NOREUSE);

  auto* h = new (std::nothrow) FileHandle{kHandleMagic, fd, canRead, canWrite};
  if (h == nullptr) return refuse(ENOMEM);
  // Win32 reports ERROR_ALREADY_EXISTS after CREATE_ALWAYS / OPEN_ALWAYS found the file.
  const bool reportsExisting = disposition == ZR_CREATE_ALWAYS || disposition == ZR_OPEN_ALWAYS;
  lastError = (reportsExisting && existed) ? EEXIST : 0;
  return h;
}

int zrOSReadFile(ZRHANDLE file, void* buffer, uint32_t count, uint32_t* bytesRead) {
  if (bytesRead) *bytesRead = 0;
  FileHandle* h = handleOf(file);
  if (h == nullptr) return fail(EBADF);
  if (!h->canRead) return fail(EACCES);
  if (buffer == nullptr && count != 0) return fail(EFAULT);
  uint32_t total = 0;
  while (total < count) {
    const ssize_t n = read(h->fd, static_cast<char*>(buffer) + total, count - total);
    if (n < 0) {
      if (errno == EINTR) continue;
      if (bytesRead) *bytesRead = total;
      return fail(errno);
    }
    if (n == 0) break;  // end of file: success with what was read
    total += static_cast<uint32_t>(n);
  }
  if (bytesRead) *bytesRead = total;
  return 1;
}

int zrOSWriteFile(ZRHANDLE file, const void* buffer, uint32_t count, uint32_t* bytesWritten) {
  if (bytesWritten) *bytesWritten = 0;
  FileHandle* h = handleOf(file);
  if (h == nullptr) return fail(EBADF);
  if (!h->canWrite) return fail(EACCES);
  if (buffer == nullptr && count != 0) return fail(EFAULT);
  uint32_t total = 0;
  while (total < count) {
    const ssize_t n = write(h->fd, static_cast<const char*>(buffer) + total, count - total);
    if (n < 0) {
      if (errno == EINTR) continue;
      if (bytesWritten) *bytesWritten = total;
      return fail(errno);
    }
    total += static_cast<uint32_t>(n);
  }
  if (bytesWritten) *bytesWritten = total;
  return 1;
}

int64_t zrOSSeek(ZRHANDLE file, int64_t offset, uint32_t origin) {
  static constexpr int kWhence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
  FileHandle* h = handleOf(file);
  if (h == nullptr) return fail(EBADF), -1;
  if (origin > ZR_FILE_END) return fail(EINVAL), -1;
  const off_t pos = lseek(h->fd, static_cast<off_t>(offset), kWhence[origin]);
  if (pos < 0) return fail(errno), -1;
  return static_cast<int64_t>(pos);
}

int zrOSCloseFile(ZRHANDLE file) {
  FileHandle* h = handleOf(file);
  if (h == nullptr) return fail(EBADF);
  h->magic = 0;
  const int rc = close(h->fd);  // releases the share lock too
  delete h;
  return rc == 0 ? 1 : fail(errno);
}

int zrOSGetFileSizeEx(ZRHANDLE file, int64_t* size) {
  FileHandle* h = handleOf(file);
  if (h == nullptr) return fail(EBADF);
  if (size == nullptr) return fail(EFAULT);
  struct stat st;
  if (fstat(h->fd, &st) != 0) return fail(errno);
  *size = static_cast<int64_t>(st.st_size);
  return 1;
}

uint32_t zrOSGetFileSize(ZRHANDLE file, uint32_t* high) {
  int64_t size = 0;
  if (!zrOSGetFileSizeEx(file, &size)) return 0xFFFFFFFFu;
  if (high) *high = static_cast<uint32_t>(static_cast<uint64_t>(size) >> 32);
  lastError = 0;  // a size whose low word is 0xFFFFFFFF is told from failure by the last error
  return static_cast<uint32_t>(size);
}

int zrOSFileExists(const char* path) {
  struct stat st;
  return path != nullptr && *path != '\0' && stat(path, &st) == 0;
}

uint32_t zrOSGetLastError(void) { return lastError; }

uint32_t zrOSGetMs(void) {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  // Wraps every 49.7 days like GetTickCount; compare with unsigned differences.
  return static_cast<uint32_t>(static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u);
}

void zrOSSleep(uint32_t ms) {
  timespec left{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}
}
