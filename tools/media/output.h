// Where the commands write: never over the input, never over an existing file unless asked,
// and never a half-written file under OUT's name (the data goes to a temporary file beside OUT,
// renamed at the end). "-" is standard output.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

namespace media {

// True (with `refusal` set) when `out` is the same file as `in` (by device and inode, so
// links and other spellings of the path are caught too).
bool refuseSameFile(const std::string& in, const std::string& out, std::string& refusal);
// True (with `refusal` set) when `out` exists and `force` is not given, or is a directory.
bool refuseExisting(const std::string& out, bool force, std::string& refusal);

class OutputFile {
 public:
  // Creates the temporary file beside `target` ("-": standard output, nothing temporary).
  explicit OutputFile(const std::string& target);
  ~OutputFile();  // removes the temporary file unless committed
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  bool ok() const { return fd_ >= 0; }
  bool toStdout() const { return target_ == "-"; }
  // The temporary file's path (for writers that open files themselves), "" for stdout.
  const std::string& temporaryPath() const { return path_; }
  int fd() const { return fd_; }
  bool write(const uint8_t* data, size_t n);
  // Flushes, and renames the temporary file to the target.
  bool commit();

 private:
  std::string target_, path_;
  int fd_ = -1;
  bool committed_ = false;
};

}  // namespace media
