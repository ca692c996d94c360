// Field-picture (PAFF) streams written syntax element by syntax element: one SPS with
// frame_mbs_only_flag 0 (ITU-T H.264 7.3.2.1.1), one CAVLC PPS (7.3.2.2), and per picture one
// I slice (7.3.3) of I_PCM macroblocks (7.3.5) holding the source samples. I_PCM needs no
// encoder and decodes to exactly its samples (QP'Y is 0, so the deblocking filter leaves them
// alone, 8.7.2.2), which makes every decoded frame checkable against its source frame.
// Deliberately independent of the library under test.
#include "support/paff_stream.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <vector>

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace qtest {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr int kWidth = 160, kFrameHeight = 96, kFieldHeight = kFrameHeight / 2;
constexpr int kLog2MaxFrameNum = 4, kLog2MaxPocLsb = 4;

class BitWriter {
 public:
  void u(int bits, uint32_t v) {
    for (int i = bits - 1; i >= 0; --i) bit((v >> i) & 1u);
  }
  void ue(uint32_t v) {  // Exp-Golomb (9.1)
    const uint64_t code = uint64_t{v} + 1;
    int length = 0;
    while ((code >> (length + 1)) != 0) ++length;
    u(length, 0);
    for (int i = length; i >= 0; --i) bit(uint32_t((code >> i) & 1u));
  }
  void alignWithZeros() {
    while (bits_ % 8) bit(0);
  }
  Bytes finish() {  // rbsp_trailing_bits (7.3.2.11)
    bit(1);
    alignWithZeros();
    return bytes_;
  }

 private:
  void bit(uint32_t b) {
    if (bits_ % 8 == 0) bytes_.push_back(0);
    if (b) bytes_.back() |= uint8_t(0x80u >> (bits_ % 8));
    ++bits_;
  }
  Bytes bytes_;
  size_t bits_ = 0;
};

// Start code, header byte and the RBSP with emulation prevention.
void appendUnit(Bytes& out, uint8_t header, const Bytes& rbsp) {
  out.insert(out.end(), {0, 0, 0, 1, header});
  const Bytes payload = emulationPrevented(rbsp);
  out.insert(out.end(), payload.begin(), payload.end());
}

// Main profile (Baseline forbids field coding), level 3 (Table A-4: fields from 2.1, and the
// bit rate of uncoded samples), 160x96 frames of 3 map units (macroblock row pairs), VUI timing
// of `fps` frames (time_scale counts fields, as x264 writes it).
Bytes sequenceParameterSet(int fps) {
  BitWriter w;
  w.u(8, 77), w.u(8, 0x40), w.u(8, 30);  // profile_idc, constraint_set1_flag, level_idc
  w.ue(0);                                // seq_parameter_set_id
  w.ue(kLog2MaxFrameNum - 4);
  w.ue(0), w.ue(kLog2MaxPocLsb - 4);      // pic_order_cnt_type 0
  w.ue(1), w.u(1, 0);                     // max_num_ref_frames, gaps_in_frame_num_value_allowed_flag
  w.ue(kWidth / 16 - 1), w.ue(kFieldHeight / 16 - 1);
  w.u(1, 0), w.u(1, 0), w.u(1, 1);        // frame_mbs_only_flag, mb_adaptive_frame_field_flag, direct_8x8_inference_flag
  w.u(1, 0), w.u(1, 1);                   // frame_cropping_flag, vui_parameters_present_flag
  w.u(4, 0);                              // aspect ratio, overscan, video signal, chroma location: none
  w.u(1, 1), w.u(32, 1), w.u(32, uint32_t(2 * fps)), w.u(1, 1);  // timing, fixed_frame_rate_flag
  w.u(4, 0);                              // no HRD, pic_struct_present_flag, bitstream_restriction_flag
  return w.finish();
}

Bytes pictureParameterSet() {
  BitWriter w;
  w.ue(0), w.ue(0);         // pic_parameter_set_id, seq_parameter_set_id
  w.u(1, 0), w.u(1, 0);     // CAVLC, bottom_field_pic_order_in_frame_present_flag
  w.ue(0), w.ue(0), w.ue(0);  // one slice group, one reference index in each list
  w.u(1, 0), w.u(2, 0);     // weighted_pred_flag, weighted_bipred_idc
  w.ue(0), w.ue(0), w.ue(0);  // pic_init_qp_minus26, pic_init_qs_minus26, chroma_qp_index_offset (se(v) 0)
  w.u(3, 0);                // deblocking_filter_control_present_flag, constrained_intra_pred_flag, redundant_pic_cnt
  return w.finish();
}

struct SliceKind {
  bool field, bottom, idr;
  uint32_t idrPicId, pocLsb;
};

// One I slice covering the picture: `samples` is the frame or field as yuv420p.
Bytes slice(const SliceKind& k, const uint8_t* samples, int height) {
  BitWriter w;
  w.ue(0), w.ue(7), w.ue(0);  // first_mb_in_slice, slice_type I (all slices), pic_parameter_set_id
  w.u(kLog2MaxFrameNum, 0);   // frame_num: the second field of a reference frame shares the first's
  w.u(1, k.field);
  if (k.field) w.u(1, k.bottom);
  if (k.idr) w.ue(k.idrPicId);
  w.u(kLog2MaxPocLsb, k.pocLsb);
  w.u(k.idr ? 2 : 1, 0);      // dec_ref_pic_marking: IDR flags, or the sliding window
  w.ue(0);                    // slice_qp_delta (se(v) 0)
  const int widthMbs = kWidth / 16;
  const uint8_t* planes[3] = {samples, samples + kWidth * height, samples + kWidth * height * 5 / 4};
  for (int mb = 0; mb < widthMbs * (height / 16); ++mb) {
    w.ue(25);  // mb_type I_PCM (Table 7-11)
    w.alignWithZeros();
    const int x0 = (mb % widthMbs) * 16, y0 = (mb / widthMbs) * 16;
    for (int y = 0; y < 16; ++y)
      for (int x = 0; x < 16; ++x) w.u(8, planes[0][(y0 + y) * kWidth + x0 + x]);
    for (int c = 1; c <= 2; ++c)
      for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) w.u(8, planes[c][(y0 / 2 + y) * (kWidth / 2) + x0 / 2 + x]);
  }
  return w.finish();
}

// Every other line of a yuv420p frame, from line `first`: one field.
Bytes fieldOf(const uint8_t* frame, int first) {
  Bytes field;
  const uint8_t* plane = frame;
  for (int c = 0; c < 3; ++c) {
    const int width = c ? kWidth / 2 : kWidth, height = c ? kFrameHeight / 2 : kFrameHeight;
    for (int y = first; y < height; y += 2) field.insert(field.end(), plane + y * width, plane + (y + 1) * width);
    plane += width * height;
  }
  return field;
}

Bytes build(const Bytes& frames, const std::string& pattern, int fps) {
  Bytes out;
  appendUnit(out, 0x67, sequenceParameterSet(fps));
  appendUnit(out, 0x68, pictureParameterSet());
  const size_t frameBytes = size_t{kWidth} * kFrameHeight * 3 / 2;
  uint32_t idrPicId = 0;  // consecutive IDR pictures differ in idr_pic_id (7.4.3)
  for (size_t i = 0; i < pattern.size(); ++i, idrPicId = (idrPicId + 1) % 65536) {
    const uint8_t* frame = frames.data() + i * frameBytes;
    if (pattern[i] == 'F') {
      appendUnit(out, 0x65, slice({false, false, true, idrPicId, 0}, frame, kFrameHeight));
      continue;
    }
    appendUnit(out, 0x65, slice({true, false, true, idrPicId, 0}, fieldOf(frame, 0).data(), kFieldHeight));
    appendUnit(out, 0x61, slice({true, true, false, 0, 1}, fieldOf(frame, 1).data(), kFieldHeight));
  }
  return out;
}

}  // namespace

std::string paffStream(const std::string& name, const std::string& pattern, int fps) {
  namespace fs = std::filesystem;
  if (pattern.empty() || pattern.find_first_not_of("FP") != std::string::npos || fps <= 0 || fps > 1000) {
    ADD_FAILURE() << "paffStream: the pattern takes 'F' and 'P', the rate 1 to 1000";
    return "";
  }
  fs::path dir = fs::path(QUORVANE_BINARY_DIR) / "test-streams";
  fs::create_directories(dir);
  const fs::path target = dir / name;
  // One maker at a time per cache; the others wait and then find the file.
  const int lockFd = ::open((dir / ".lock").c_str(), O_CREAT | O_RDWR, 0644);
  if (lockFd >= 0) ::flock(lockFd, LOCK_EX);
  std::string result;
  if (fs::exists(target) && fs::file_size(target) > 0) {
    result = target.string();
  } else {
    TempDir work;
    const std::string raw = work.file("frames.yuv");
    const auto r = runCommand("ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=" + std::to_string(kWidth) + "x" +
                              std::to_string(kFrameHeight) + ":rate=" + std::to_string(fps) + " -frames:v " +
                              std::to_string(pattern.size()) + " -f rawvideo -pix_fmt yuv420p " + shellQuote(raw));
    const Bytes frames = readBytes(raw);
    if (r.exitCode != 0 || frames.size() != pattern.size() * kWidth * kFrameHeight * 3 / 2) {
      ADD_FAILURE() << "ffmpeg could not make the source frames: " << r.err;
    } else {
      const fs::path partial = fs::path(target) += ".partial";
      writeBytes(partial.string(), build(frames, pattern, fps));
      fs::rename(partial, target);
      result = target.string();
    }
  }
  if (lockFd >= 0) ::close(lockFd);
  return result;
}

}  // namespace qtest
