// One configuration store file: a parsed copy kept in line with the disk, and writes that can
// neither lose another process's values nor leave a half-written file behind.
//
// Readers take no lock: the file is only ever replaced by rename(2), so a reader sees the old
// file or the new one, never a mixture. Writers serialise on flock(2) of "<file>.lock" (a
// separate file, because the store file itself is replaced on every write) and re-read the
// file under that lock before applying their change.
#include "platform/zrcfgfile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "platform/zrcfg.h"
#include "platform/zrlog.h"
#include "platform/zrxmlguard.h"

namespace zrcfg {
namespace {

constexpr int kLockTimeoutMs = 10000;
constexpr const char* kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n";

// Reads the whole file; a missing file reads as empty. False (errno set) on any other failure.
bool readWhole(const std::string& path, std::string* bytes) {
  bytes->clear();
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno == ENOENT;
  char chunk[16384];
  for (;;) {
    const ssize_t n = ::read(fd, chunk, sizeof chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      const int error = errno;
      close(fd);
      errno = error;
      return n == 0;
    }
    bytes->append(chunk, static_cast<size_t>(n));
  }
}

bool writeAll(int fd, const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

bool isBlank(const std::string& bytes) { return bytes.find_first_not_of(" \t\r\n") == std::string::npos; }

std::string parentOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

void makeDirectories(const std::string& dir) {
  for (size_t i = 1; i <= dir.size(); ++i)
    if (i == dir.size() || dir[i] == '/') mkdir(dir.substr(0, i).c_str(), 0777);
}

// Where writes go: the file a symbolic link points at, so that the link survives.
std::string resolveTarget(const std::string& path) {
  char* real = realpath(path.c_str(), nullptr);
  if (real == nullptr) return path;
  std::string resolved(real);
  std::free(real);
  return resolved;
}

void syncDirectory(const std::string& dir) {
  const int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  fsync(fd);
  close(fd);
}

// The exclusive writer lock of one store, released when it goes out of scope (or the process dies).
class WriterLock {
 public:
  ~WriterLock() {
    if (fd_ >= 0) close(fd_);
  }
  bool acquire(const std::string& lockPath) {
    fd_ = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd_ < 0) return false;
    for (int waited = 0; flock(fd_, LOCK_EX | LOCK_NB) != 0; waited += 2) {
      if (errno != EWOULDBLOCK && errno != EINTR) return false;
      if (waited >= kLockTimeoutMs) {
        errno = ETIMEDOUT;
        return false;
      }
      usleep(2000);
    }
    return true;
  }

 private:
  int fd_ = -1;
};

// Length of the well-formed UTF-8 sequence (RFC 3629) starting at s[i] that may stand unescaped
// in the file (not ASCII, not U+FEFF, U+FFFE or U+FFFF), or 0.
size_t utf8Run(std::string_view s, size_t i) {
  if (static_cast<unsigned char>(s[i]) < 0x80) return 0;
  const size_t len = zrxml::utf8Length(s, i);
  const std::string_view seq = s.substr(i, len);
  if (seq == "\xEF\xBB\xBF" || seq == "\xEF\xBF\xBE" || seq == "\xEF\xBF\xBF") return 0;
  return len;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

std::string escapeText(std::string_view raw) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(raw.size());
  for (size_t i = 0; i < raw.size();) {
    const unsigned char c = static_cast<unsigned char>(raw[i]);
    if (c >= 0x20 && c < 0x7F && c != '%' && c != '&') {
      out += static_cast<char>(c);
      ++i;
    } else if (const size_t run = c >= 0x80 ? utf8Run(raw, i) : 0) {
      out.append(raw.substr(i, run));
      i += run;
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
      ++i;
    }
  }
  return out;
}

std::string unescapeText(std::string_view stored) {
  std::string out;
  out.reserve(stored.size());
  for (size_t i = 0; i < stored.size(); ++i) {
    const int hi = stored[i] == '%' && i + 2 < stored.size() ? hexValue(stored[i + 1]) : -1;
    const int lo = hi >= 0 ? hexValue(stored[i + 2]) : -1;
    if (lo >= 0) {
      out += static_cast<char>(hi << 4 | lo);
      i += 2;
    } else {
      out += stored[i];
    }
  }
  return out;
}

std::string printStore(const TiXmlDocument& doc) {
  std::string text = kDeclaration;
  if (const TiXmlElement* root = doc.RootElement()) {
    TiXmlPrinter printer;
    printer.SetIndent("  ");
    printer.SetLineBreak("\n");
    root->Accept(&printer);
    text += printer.Str();
  }
  return text;
}

StoreFile::StoreFile(std::string path, bool createParent) : path_(std::move(path)), createParent_(createParent) {}

const char* parseStore(const std::string& bytes, TiXmlDocument* parsed, int* line) {
  *line = 0;
  if (const char* problem = zrxml::parse(bytes, zrxml::Charset::kUtf8, parsed)) {
    *line = parsed->ErrorRow();
    return problem;
  }
  const TiXmlElement* root = parsed->RootElement();
  if (root == nullptr || std::strcmp(root->Value(), kRootElement) != 0) return "its root element is not QuorvaneConfig";
  // A file whose values would change on their way back through a write is as good as corrupt:
  // taking it as it is would refuse every later write of the store.
  const std::string printed = printStore(*parsed);
  TiXmlDocument again;
  if (zrxml::parse(printed, zrxml::Charset::kUtf8, &again) != nullptr || printStore(again) != printed)
    return "it would not read back as written";
  return nullptr;
}

const char* fileProblem(const std::string& path) {
  std::string bytes;
  if (!readWhole(path, &bytes)) return errno == ENOENT ? nullptr : "it cannot be read";
  if (isBlank(bytes)) return nullptr;
  TiXmlDocument parsed;
  int line = 0;
  const char* problem = parseStore(bytes, &parsed, &line);
  return problem ? "it is not a configuration store" : nullptr;
}

bool StoreFile::refresh() {
  std::string bytes;
  if (!readWhole(path_, &bytes)) {
    ErrOut("Configuration store \"%s\" cannot be read: %s\n", path_.c_str(), std::strerror(errno));
    return false;
  }
  if (loaded_ && bytes == bytes_) return true;
  bytes_ = std::move(bytes);
  loaded_ = true;
  corrupt_ = false;
  doc_ = TiXmlDocument();
  if (isBlank(bytes_)) return true;  // an empty (e.g. freshly touched) file is an empty store

  TiXmlDocument parsed;
  int line = 0;
  const char* problem = parseStore(bytes_, &parsed, &line);
  if (problem != nullptr) {
    corrupt_ = true;
    ErrOut("Configuration store \"%s\" is corrupt (%s, line %d); reading it as empty\n", path_.c_str(), problem, line);
    return true;
  }
  doc_ = parsed;
  return true;
}

bool StoreFile::keepCorruptCopy(const std::string& target) {
  for (int n = 0; n < 1000; ++n) {
    const std::string bad = target + ".bad" + (n ? std::to_string(n) : std::string());
    bool kept = link(target.c_str(), bad.c_str()) == 0;
    if (!kept && errno != EEXIST) {  // no hard links here: write a copy of what we read
      const int fd = open(bad.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
      if (fd < 0 && errno == EEXIST) continue;
      kept = fd >= 0 && writeAll(fd, bytes_) && fsync(fd) == 0;
      if (fd >= 0) close(fd);
    }
    if (kept) {
      ErrOut("Configuration store \"%s\": the corrupt file is kept as \"%s\"\n", path_.c_str(), bad.c_str());
      return true;
    }
    if (errno != EEXIST) break;
  }
  ErrOut("Configuration store \"%s\": cannot keep a copy of the corrupt file, so it is not replaced\n", path_.c_str());
  return false;
}

bool StoreFile::commit(const std::string& text) {
  const std::string target = resolveTarget(path_);
  if (corrupt_ && !keepCorruptCopy(target)) return false;
  const std::string temporary = target + ".tmp";
  const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) {
    ErrOut("Configuration store \"%s\" cannot be written: %s\n", path_.c_str(), std::strerror(errno));
    return false;
  }
  struct stat old;
  if (stat(target.c_str(), &old) == 0) fchmod(fd, old.st_mode & 07777);  // keep the file's permissions
  const bool written = writeAll(fd, text) && fsync(fd) == 0;
  const int error = errno;
  close(fd);
  if (!written || rename(temporary.c_str(), target.c_str()) != 0) {
    ErrOut("Configuration store \"%s\" cannot be written: %s\n", path_.c_str(), std::strerror(written ? errno : error));
    unlink(temporary.c_str());
    return false;
  }
  syncDirectory(parentOf(target));
  bytes_ = text;
  corrupt_ = false;
  return true;
}

int StoreFile::read(const std::function<int(const TiXmlDocument&)>& view) {
  std::lock_guard<std::mutex> guard(mutex_);
  if (batchDepth_ == 0 && !refresh()) return ZR_CFG_ERROR;
  return view(doc_);
}

int StoreFile::update(Edit edit) {
  std::lock_guard<std::mutex> guard(mutex_);
  if (batchDepth_ > 0) {
    // The batch sees the file as it was when the batch began, plus its own edits.
    const int result = edit(doc_);
    if (result == ZR_CFG_OK) pending_.push_back(std::move(edit));
    return result;
  }
  return transact(edit);
}

int StoreFile::beginBatch() {
  std::lock_guard<std::mutex> guard(mutex_);
  if (batchDepth_++ == 0 && !refresh()) {
    batchDepth_ = 0;
    return ZR_CFG_ERROR;
  }
  return ZR_CFG_OK;
}

int StoreFile::endBatch(bool commitEdits) {
  std::lock_guard<std::mutex> guard(mutex_);
  if (batchDepth_ == 0) return ZR_CFG_ERROR;
  if (--batchDepth_ > 0) return ZR_CFG_OK;
  std::vector<Edit> edits = std::move(pending_);
  pending_.clear();
  loaded_ = false;  // doc_ holds the batch's view: read the file afresh
  if (!commitEdits || edits.empty()) return ZR_CFG_OK;
  return transact([&](TiXmlDocument& doc) {
    for (const Edit& e : edits) e(doc);  // a delete whose value has gone meanwhile is no loss
    return ZR_CFG_OK;
  });
}

int StoreFile::endAllBatches(bool commitEdits) {
  {
    std::lock_guard<std::mutex> guard(mutex_);
    if (batchDepth_ == 0) return ZR_CFG_OK;
    batchDepth_ = 1;
  }
  return endBatch(commitEdits);
}

int StoreFile::transact(const std::function<int(TiXmlDocument&)>& edits) {
  const std::string target = resolveTarget(path_);
  if (createParent_) makeDirectories(parentOf(target));
  WriterLock lock;
  if (!lock.acquire(target + ".lock")) {
    ErrOut("Configuration store \"%s\" cannot be locked: %s\n", path_.c_str(), std::strerror(errno));
    return ZR_CFG_ERROR;
  }
  if (!refresh()) return ZR_CFG_ERROR;
  TiXmlDocument work = doc_;  // edit a copy, so a failed write leaves the cache matching the disk
  const int result = edits(work);
  if (result != ZR_CFG_OK) return result;
  const std::string text = printStore(work);
  if (!corrupt_ && text == bytes_) return ZR_CFG_OK;  // nothing changed: no write
  // Never write a file that would not read back as written.
  TiXmlDocument check;
  if (zrxml::parse(text, zrxml::Charset::kUtf8, &check) != nullptr || printStore(check) != text) {
    ErrOut("Configuration store \"%s\": the change cannot be stored faithfully and is refused\n", path_.c_str());
    return ZR_CFG_ERROR;
  }
  if (!commit(text)) return ZR_CFG_ERROR;
  doc_ = work;
  return ZR_CFG_OK;
}

}  // namespace zrcfg
