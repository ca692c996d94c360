// Timecode and caption triplets of every picture of an H.264, HEVC or MPEG-2 elementary stream
// (start codes), in display order, read with the library's readers. Shared by the frame
// section of `quorvane inspect` and by `quorvane captions`.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "inspect.h"
#include "streamutil/sei_read.h"

struct PictureMetadata {
  uint32_t display = 0;  // position in display order
  uint32_t decode = 0;   // access unit (picture) number in decoding order
  int32_t order = 0;     // picture order count (H.264, HEVC) or temporal_reference (MPEG-2)
  bool hasTimecode = false;
  KLX_TIMECODE timecode{};  // MPEG-2: the GOP time_code plus temporal_reference
  std::vector<uint8_t> triplets;  // cc_data triplets
};

struct StreamPictures {
  std::vector<PictureMetadata> pictures;  // display order
  double framesPerSecond = 0;             // from the VUI or sequence header; 0 when unknown
  bool fieldPictures = false;             // each picture is one field (HEVC field_seq_flag)
};

// False with `error` set when the stream cannot be split into pictures.
bool readStreamPictures(const uint8_t* data, size_t size, StreamCodec codec, StreamPictures& out, std::string& error);

// MPEG-2: the timecode of the picture `temporalReference` frames behind its group's time_code,
// counted at the sequence header's rate (ISO/IEC 13818-2 6.3.8, 6.3.9). False when unreadable.
bool mpeg2PictureTimecode(const KLX_TIMECODE& gop, double framesPerSecond, uint32_t temporalReference,
                          KLX_TIMECODE& out);

// "HH:MM:SS:FF" (';' before the frames for drop-frame counting).
std::string timecodeString(const KLX_TIMECODE& tc);
