// What `quorvane adts` reads: a raw ADTS stream (read frame by frame, never whole), or the AAC
// track of a container whose packets carry ADTS headers (MPEG-TS). An AAC track without them
// (MP4, MOV, Matroska) is refused with the AudioSpecificConfig of its sample description.
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace media {

class AudioInput {
 public:
  // Null with a one-line `error` when `path` holds no ADTS stream; `track` -1 chooses.
  static std::unique_ptr<AudioInput> open(const std::string& path, int track, std::string& error);
  virtual ~AudioInput() = default;
  // The next run of ADTS frames (a whole stream chunk or one packet) and the offset of its first
  // byte in the ADTS stream (the file for a raw stream; the track's bytes for a container). False at the end or on an error (error() set).
  virtual bool next(std::vector<uint8_t>& bytes, uint64_t& offset) = 0;
  const std::string& error() const { return error_; }
  const std::string& container() const { return container_; }  // "" for a raw stream

 protected:
  std::string error_, container_;
};

}  // namespace media
