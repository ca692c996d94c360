// The units of an elementary stream read through a bounded window: the file is never held
// whole, only the units being looked at (the window grows only for a single unit larger than
// it, up to a fixed limit).
#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace media {

struct RawUnit {
  uint64_t offset;       // file offset of the start code / length field
  uint32_t prefix;       // its bytes
  const uint8_t* data;   // first header byte; valid until the next call
  uint32_t size;         // unit bytes
};

class WindowReader {
 public:
  // `head` holds the first bytes already read from `fd` (the content sniffing read them).
  WindowReader(int fd, std::vector<uint8_t> head, bool lengthPrefixed, int lengthSize);
  // The next unit; false at the end of the stream or on an error (error() set).
  bool next(RawUnit& unit);
  uint64_t position() const { return base_ + begin_; }
  const std::string& error() const { return error_; }

 private:
  bool fill();  // more bytes behind end_; false at the end of the file or on an error
  bool nextAnnexB(RawUnit& unit);
  bool nextLengthPrefixed(RawUnit& unit);

  int fd_;
  std::vector<uint8_t> buffer_;
  size_t begin_ = 0, end_ = 0;
  uint64_t base_ = 0;  // file offset of buffer_[0]
  bool eof_ = false, lengthPrefixed_;
  int lengthSize_;
  std::string error_;
};

}  // namespace media
