// See output.h.
#include "output.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace media {

bool refuseSameFile(const std::string& in, const std::string& out, std::string& refusal) {
  if (in == "-" || out == "-") return false;
  struct stat a{}, b{};
  if (::stat(in.c_str(), &a) != 0 || ::stat(out.c_str(), &b) != 0) return false;
  if (a.st_dev != b.st_dev || a.st_ino != b.st_ino) return false;
  refusal = out + " is the input file " + in + ": choose another OUT";
  return true;
}

bool refuseExisting(const std::string& out, bool force, std::string& refusal) {
  if (out == "-") return false;
  struct stat st{};
  if (::stat(out.c_str(), &st) != 0) return false;
  if (S_ISDIR(st.st_mode)) {
    refusal = out + " is a directory";
    return true;
  }
  if (force) return false;
  refusal = out + " exists: give -y (--force) to replace it";
  return true;
}

OutputFile::OutputFile(const std::string& target) : target_(target) {
  if (target == "-") {
    fd_ = STDOUT_FILENO;
    return;
  }
  std::string pattern = target + ".partial-XXXXXX";
  fd_ = ::mkstemp(pattern.data());
  if (fd_ >= 0) path_ = pattern;
}

OutputFile::~OutputFile() {
  if (fd_ >= 0 && fd_ != STDOUT_FILENO) ::close(fd_);
  if (!committed_ && !path_.empty()) std::remove(path_.c_str());
}

bool OutputFile::write(const uint8_t* data, size_t n) {
  while (n) {
    const ssize_t w = ::write(fd_, data, n);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) return false;
    data += w, n -= static_cast<size_t>(w);
  }
  return true;
}

bool OutputFile::commit() {
  if (target_ == "-") return true;
  if (::close(fd_) != 0) return false;
  fd_ = -1;
  const mode_t mask = ::umask(0);
  ::umask(mask);
  ::chmod(path_.c_str(), 0666 & ~mask);
  if (std::rename(path_.c_str(), target_.c_str()) != 0) return false;
  committed_ = true;
  return true;
}

}  // namespace media
