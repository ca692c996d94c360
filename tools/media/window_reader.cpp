// See window_reader.h.
#include "window_reader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "streamutil/access_units.h"

namespace media {

namespace {
constexpr size_t kWindow = size_t{4} << 20;        // read window
constexpr size_t kLargestUnit = size_t{1} << 30;   // a unit beyond this is refused
}  // namespace

WindowReader::WindowReader(int fd, std::vector<uint8_t> head, bool lengthPrefixed, int lengthSize)
    : fd_(fd), buffer_(std::move(head)), lengthPrefixed_(lengthPrefixed), lengthSize_(lengthSize) {
  end_ = buffer_.size();
  buffer_.resize(std::max(kWindow, buffer_.size()));
}

bool WindowReader::fill() {
  if (eof_) return false;
  if (begin_ > 0) {  // keep only what is still needed
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    base_ += begin_;
    begin_ = 0;
  }
  if (end_ == buffer_.size()) {
    if (buffer_.size() >= kLargestUnit) {
      error_ = "a unit larger than 1 GB at offset " + std::to_string(base_);
      return false;
    }
    buffer_.resize(buffer_.size() * 2);
  }
  for (;;) {
    const ssize_t n = ::read(fd_, buffer_.data() + end_, buffer_.size() - end_);
    if (n > 0) {
      end_ += static_cast<size_t>(n);
      return true;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) error_ = std::string("read error: ") + std::strerror(errno);
    eof_ = true;
    return false;
  }
}

bool WindowReader::next(RawUnit& unit) { return lengthPrefixed_ ? nextLengthPrefixed(unit) : nextAnnexB(unit); }

bool WindowReader::nextAnnexB(RawUnit& unit) {
  size_t codeAt = 0;
  uint32_t codeLength = 0;
  // The start code of this unit (bytes before the first one are not a unit).
  while (klxutilFindStartCode(buffer_.data(), end_, begin_, &codeAt, &codeLength) != 1) {
    if (end_ - begin_ > 3) begin_ = end_ - 3;
    if (!fill()) return false;
  }
  begin_ = codeAt;
  size_t scanFrom = begin_ + codeLength;
  for (;;) {
    size_t nextAt = 0;
    uint32_t nextLength = 0;
    const bool found = klxutilFindStartCode(buffer_.data(), end_, scanFrom, &nextAt, &nextLength) == 1;
    if (found || eof_) {
      const size_t header = begin_ + codeLength, stop = found ? nextAt : end_;
      if (stop - header > UINT32_MAX) {
        error_ = "a unit larger than 4 GB";
        return false;
      }
      unit = RawUnit{base_ + begin_, codeLength, buffer_.data() + header, static_cast<uint32_t>(stop - header)};
      begin_ = stop;
      return true;
    }
    const size_t scanned = end_ > begin_ + codeLength + 3 ? end_ - 3 - begin_ : codeLength;
    if (!fill() && !eof_) return false;
    if (!error_.empty()) return false;
    scanFrom = begin_ + scanned;
  }
}

bool WindowReader::nextLengthPrefixed(RawUnit& unit) {
  const size_t prefix = static_cast<size_t>(lengthSize_);
  while (end_ - begin_ < prefix) {
    if (!fill()) {
      if (error_.empty() && end_ != begin_)
        error_ = std::to_string(end_ - begin_) + " stray bytes at offset " + std::to_string(base_ + begin_);
      return false;
    }
  }
  size_t length = 0;
  for (size_t i = 0; i < prefix; ++i) length = length << 8 | buffer_[begin_ + i];
  if (length > kLargestUnit) {
    error_ = "bad length " + std::to_string(length) + " at offset " + std::to_string(base_ + begin_);
    return false;
  }
  while (end_ - begin_ < prefix + length) {
    if (!fill()) {
      if (error_.empty())
        error_ = "the unit at offset " + std::to_string(base_ + begin_) + " runs past the end (length " +
                 std::to_string(length) + ")";
      return false;
    }
  }
  unit = RawUnit{base_ + begin_, static_cast<uint32_t>(prefix), buffer_.data() + begin_ + prefix,
                 static_cast<uint32_t>(length)};
  begin_ += prefix + length;
  return true;
}

}  // namespace media
