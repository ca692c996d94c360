// Field-picture (PAFF) streams rewritten at the bit level from two all-intra CAVLC x264 encodes
// of the same source: one of the 160x96 frames, one of their 160x48 fields (ffmpeg's
// separatefields). Both encodes share one PPS. The field encode's SPS becomes the stream's SPS
// with frame_mbs_only_flag 0 (ITU-T H.264 7.3.2.1.1): a map unit is then a macroblock row pair
// of the frame, so its pic_height_in_map_units_minus1 describes the 96-line frame. Slice headers
// (7.3.3) gain field_pic_flag/bottom_field_flag. Frame pictures keep x264's slice data, copied bit
// for bit behind the rewritten header. Field pictures can't: x264 ordered the coefficients of
// its progressive encode in zig-zag scan, while a field macroblock's are read in field scan order
// (8.5.6), which decodes without a single error into a garbled picture. Their slice data is
// therefore I_PCM macroblocks (7.3.5) holding the source field's samples, so the decoded pair is
// exactly the source frame.
// Deliberately independent of the library under test: own bit reader/writer and NAL splitting.
#include "support/paff_stream.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace qtest {
namespace {

using Bytes = std::vector<uint8_t>;

// A malformed or unexpected source stream; turned into a test failure by paffStream.
struct RewriteError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

void require(bool condition, const char* what) {
  if (!condition) throw RewriteError(what);
}

class BitReader {
 public:
  explicit BitReader(const Bytes& rbsp) : data_(rbsp) {}
  uint32_t u(int bits) {
    uint32_t v = 0;
    for (int i = 0; i < bits; ++i) {
      require(pos_ < data_.size() * 8, "bit reader ran past the end of a NAL unit");
      v = (v << 1) | ((data_[pos_ / 8] >> (7 - pos_ % 8)) & 1u);
      ++pos_;
    }
    return v;
  }
  uint32_t ue() {
    int zeros = 0;
    while (u(1) == 0) require(++zeros < 32, "Exp-Golomb code longer than 32 bits");
    return static_cast<uint32_t>((uint64_t{1} << zeros) - 1 + u(zeros));
  }
  int32_t se() {
    uint32_t k = ue();
    return (k & 1) ? static_cast<int32_t>((k + 1) / 2) : -static_cast<int32_t>(k / 2);
  }
  size_t position() const { return pos_; }
  // Bit position of rbsp_stop_one_bit: the last set bit of the RBSP.
  size_t stopBitPosition() const {
    size_t byte = data_.size();
    while (byte > 0 && data_[byte - 1] == 0) --byte;
    require(byte > 0, "NAL unit without rbsp_stop_one_bit");
    int lastSet = 7;
    while (!((data_[byte - 1] >> (7 - lastSet)) & 1)) --lastSet;
    return (byte - 1) * 8 + static_cast<size_t>(lastSet);
  }

 private:
  const Bytes& data_;
  size_t pos_ = 0;
};

class BitWriter {
 public:
  void u(int bits, uint32_t v) {
    for (int i = bits - 1; i >= 0; --i) bit((v >> i) & 1u);
  }
  void ue(uint32_t v) {
    uint64_t code = uint64_t{v} + 1;
    int length = 0;
    while ((code >> length) > 1) ++length;
    u(length, 0);
    for (int i = length; i >= 0; --i) bit(static_cast<uint32_t>((code >> i) & 1u));
  }
  void se(int32_t v) { ue(v > 0 ? static_cast<uint32_t>(2 * v - 1) : static_cast<uint32_t>(-2 * int64_t{v})); }
  bool aligned() const { return bits_ % 8 == 0; }
  // rbsp_trailing_bits (7.3.2.11).
  Bytes finish() {
    bit(1);
    while (bits_ % 8) bit(0);
    return bytes_;
  }

 private:
  void bit(uint32_t b) {
    if (bits_ % 8 == 0) bytes_.push_back(0);
    if (b) bytes_.back() |= static_cast<uint8_t>(0x80u >> (bits_ % 8));
    ++bits_;
  }
  Bytes bytes_;
  size_t bits_ = 0;
};

// Reads a syntax element and writes it unchanged.
uint32_t copyU(BitReader& r, BitWriter& w, int bits) {
  uint32_t v = r.u(bits);
  w.u(bits, v);
  return v;
}
uint32_t copyUe(BitReader& r, BitWriter& w) {
  uint32_t v = r.ue();
  w.ue(v);
  return v;
}
int32_t copySe(BitReader& r, BitWriter& w) {
  int32_t v = r.se();
  w.se(v);
  return v;
}
// Copies the rest of the RBSP up to (without) rbsp_stop_one_bit; returns the finished RBSP.
Bytes copyRestAndFinish(BitReader& r, BitWriter& w) {
  size_t stop = r.stopBitPosition();
  require(r.position() <= stop, "syntax ran into rbsp_trailing_bits");
  while (r.position() < stop) copyU(r, w, 1);
  return w.finish();
}

// ---- NAL units (7.3.1, 7.4.1) ---------------------------------------------------------------

struct Nal {
  uint8_t header = 0;  // forbidden_zero_bit, nal_ref_idc, nal_unit_type
  Bytes rbsp;          // emulation prevention removed
  int type() const { return header & 0x1F; }
  int refIdc() const { return (header >> 5) & 3; }
};

std::vector<Nal> splitAnnexB(const Bytes& s) {
  std::vector<size_t> starts;  // first byte after each start code
  for (size_t i = 0; i + 2 < s.size(); ++i)
    if (s[i] == 0 && s[i + 1] == 0 && s[i + 2] == 1) starts.push_back(i + 3);
  std::vector<Nal> nals;
  for (size_t k = 0; k < starts.size(); ++k) {
    size_t end = k + 1 < starts.size() ? starts[k + 1] - 3 : s.size();
    while (end > starts[k] && s[end - 1] == 0) --end;  // trailing_zero_8bits, zero_byte
    if (end <= starts[k]) continue;
    Nal nal;
    nal.header = s[starts[k]];
    int zeros = 0;
    for (size_t i = starts[k] + 1; i < end; ++i) {
      if (zeros >= 2 && s[i] == 3) {  // emulation_prevention_three_byte
        zeros = 0;
        continue;
      }
      zeros = s[i] == 0 ? zeros + 1 : 0;
      nal.rbsp.push_back(s[i]);
    }
    nals.push_back(std::move(nal));
  }
  return nals;
}

void appendAnnexB(Bytes& out, uint8_t header, const Bytes& rbsp) {
  out.insert(out.end(), {0, 0, 0, 1, header});
  int zeros = 0;
  for (uint8_t b : rbsp) {
    if (zeros >= 2 && b <= 3) {
      out.push_back(3);
      zeros = 0;
    }
    out.push_back(b);
    zeros = b == 0 ? zeros + 1 : 0;
  }
}

// ---- Parameter sets -------------------------------------------------------------------------

// What the slice headers of an x264 encode need from its SPS.
struct SpsFacts {
  int log2MaxFrameNum = 0;
  int pocType = 0;
  int log2MaxPocLsb = 0;
  uint32_t heightInMapUnitsMinus1 = 0;
};

// Level 3: Main allows field coding from level 2.1 (Table A-4), and its bit rate covers the
// I_PCM fields (9.2 Mbit/s of samples at 50 frames per second).
constexpr uint32_t kLevel30 = 30;

// The stream's picture order count: type 0 with 4-bit lsb (frames/top fields 0, bottom fields 1).
constexpr int kLog2MaxPocLsb = 4;

constexpr int kWidth = 160, kFieldHeight = 48;

constexpr int kNalSlice = 1, kNalIdrSlice = 5, kNalSps = 7, kNalPps = 8;

void rewriteHrd(BitReader& r, BitWriter& w) {  // E.1.2, copied unchanged
  uint32_t cpbCntMinus1 = copyUe(r, w);
  require(cpbCntMinus1 < 32, "cpb_cnt_minus1 out of range");
  copyU(r, w, 8);  // bit_rate_scale, cpb_size_scale
  for (uint32_t i = 0; i <= cpbCntMinus1; ++i) {
    copyUe(r, w);
    copyUe(r, w);
    copyU(r, w, 1);
  }
  copyU(r, w, 20);  // four 5-bit delay/length fields
}

// E.1.1 with the timing set to `fps` and a decoded picture buffer of at least one frame (the
// first field of a pair is held as a reference while the second is decoded).
void rewriteVui(BitReader& r, BitWriter& w, int fps) {
  if (copyU(r, w, 1) && copyU(r, w, 8) == 255) copyU(r, w, 32);  // aspect_ratio_info, sar
  if (copyU(r, w, 1)) copyU(r, w, 1);                            // overscan
  if (copyU(r, w, 1)) {                                          // video_signal_type
    copyU(r, w, 4);
    if (copyU(r, w, 1)) copyU(r, w, 24);  // colour description
  }
  if (copyU(r, w, 1)) {  // chroma_loc_info
    copyUe(r, w);
    copyUe(r, w);
  }
  if (r.u(1)) {  // x264's timing, replaced
    r.u(32);
    r.u(32);
    r.u(1);
  }
  w.u(1, 1);  // timing_info_present_flag
  w.u(32, 1);
  w.u(32, static_cast<uint32_t>(2 * fps));
  w.u(1, 1);  // fixed_frame_rate_flag
  bool nalHrd = copyU(r, w, 1);
  if (nalHrd) rewriteHrd(r, w);
  bool vclHrd = copyU(r, w, 1);
  if (vclHrd) rewriteHrd(r, w);
  if (nalHrd || vclHrd) copyU(r, w, 1);  // low_delay_hrd_flag
  copyU(r, w, 1);                        // pic_struct_present_flag
  if (copyU(r, w, 1)) {                  // bitstream_restriction_flag
    copyU(r, w, 1);
    for (int i = 0; i < 5; ++i) copyUe(r, w);  // ... max_num_reorder_frames
    w.ue(std::max<uint32_t>(r.ue(), 1));       // max_dec_frame_buffering
  }
}

SpsFacts readSps(const Nal& sps) {
  BitReader r(sps.rbsp);
  SpsFacts f;
  uint32_t profile = r.u(8);
  require(profile == 66 || profile == 77, "x264 wrote an SPS of a profile other than Baseline/Main");
  r.u(16);
  r.ue();
  f.log2MaxFrameNum = static_cast<int>(r.ue()) + 4;
  f.pocType = static_cast<int>(r.ue());
  require(f.pocType != 1, "pic_order_cnt_type 1 is not handled");
  if (f.pocType == 0) f.log2MaxPocLsb = static_cast<int>(r.ue()) + 4;
  r.ue();
  r.u(1);
  r.ue();
  f.heightInMapUnitsMinus1 = r.ue();
  require(r.u(1) == 1, "source SPS is already interlaced");
  return f;
}

// The field encode's SPS made the interlaced stream's SPS (7.3.2.1.1).
Bytes rewriteSps(const Nal& sps, int fps) {
  BitReader r(sps.rbsp);
  BitWriter w;
  r.u(8);
  w.u(8, 77);  // Main: x264 says Constrained Baseline for all-intra CAVLC, which forbids fields
  r.u(8);
  w.u(8, 0x40);      // constraint_set1_flag only
  r.u(8);
  w.u(8, kLevel30);  // level_idc
  copyUe(r, w);      // seq_parameter_set_id
  copyUe(r, w);      // log2_max_frame_num_minus4
  if (r.ue() == 0) r.ue();
  w.ue(0);           // pic_order_cnt_type
  w.ue(kLog2MaxPocLsb - 4);
  w.ue(std::max<uint32_t>(r.ue(), 1));  // max_num_ref_frames: the first field is a reference
  copyU(r, w, 1);    // gaps_in_frame_num_value_allowed_flag
  copyUe(r, w);      // pic_width_in_mbs_minus1
  copyUe(r, w);      // pic_height_in_map_units_minus1
  r.u(1);
  w.u(1, 0);  // frame_mbs_only_flag
  w.u(1, 0);  // mb_adaptive_frame_field_flag
  r.u(1);
  w.u(1, 1);  // direct_8x8_inference_flag (required when frame_mbs_only_flag is 0)
  if (copyU(r, w, 1))
    for (int i = 0; i < 4; ++i) copyUe(r, w);  // frame_crop_*_offset
  require(copyU(r, w, 1) == 1, "x264 wrote an SPS without VUI");  // vui_parameters_present_flag
  rewriteVui(r, w, fps);
  return copyRestAndFinish(r, w);
}

struct PpsFacts {
  bool bottomFieldPicOrderInFramePresent = false;
  bool deblockingFilterControlPresent = false;
  bool redundantPicCntPresent = false;
};

PpsFacts readPps(const Nal& pps) {  // 7.3.2.2
  BitReader r(pps.rbsp);
  PpsFacts f;
  r.ue();
  r.ue();
  require(r.u(1) == 0, "source PPS uses CABAC");
  f.bottomFieldPicOrderInFramePresent = r.u(1);
  require(r.ue() == 0, "slice groups are not handled");
  r.ue();
  r.ue();
  r.u(3);
  r.se();
  r.se();
  r.se();
  f.deblockingFilterControlPresent = r.u(1);
  r.u(1);
  f.redundantPicCntPresent = r.u(1);
  return f;
}

// ---- Slices -----------------------------------------------------------------------------------

struct SliceTarget {
  bool fieldPic = false;
  bool bottomField = false;
  bool idr = true;
  uint32_t idrPicId = 0;
  uint32_t pocLsb = 0;
};

// The header of one IDR I slice of an x264 encode, rewritten to `target` (7.3.3); leaves `r` at
// the start of slice_data. Returns first_mb_in_slice.
uint32_t rewriteSliceHeader(const Nal& slice, BitReader& r, BitWriter& w, const SpsFacts& sps, const PpsFacts& pps,
                            const SliceTarget& target) {
  uint32_t firstMb = copyUe(r, w);  // first_mb_in_slice
  require(copyUe(r, w) % 5 == 2, "source slice is not an I slice");
  copyUe(r, w);  // pic_parameter_set_id
  copyU(r, w, sps.log2MaxFrameNum);  // frame_num: 0, and the second field shares the first's
  w.u(1, target.fieldPic);
  if (target.fieldPic) w.u(1, target.bottomField);
  r.ue();  // idr_pic_id: x264 repeats it with every picture an IDR picture
  if (target.idr) w.ue(target.idrPicId);
  int32_t deltaBottom = 0;
  if (sps.pocType == 0) {
    r.u(sps.log2MaxPocLsb);
    if (pps.bottomFieldPicOrderInFramePresent) deltaBottom = r.se();
  }
  w.u(kLog2MaxPocLsb, target.pocLsb);
  if (pps.bottomFieldPicOrderInFramePresent && !target.fieldPic) w.se(deltaBottom);
  if (pps.redundantPicCntPresent) copyUe(r, w);
  // dec_ref_pic_marking (7.3.3.3)
  if (slice.refIdc() != 0) {
    uint32_t flags = r.u(2);  // no_output_of_prior_pics_flag, long_term_reference_flag
    if (target.idr)
      w.u(2, flags);
    else
      w.u(1, 0);  // adaptive_ref_pic_marking_mode_flag: sliding window
  }
  copySe(r, w);  // slice_qp_delta
  if (pps.deblockingFilterControlPresent && copyUe(r, w) != 1) {
    copySe(r, w);
    copySe(r, w);
  }
  return firstMb;
}

// A picture of 8-bit 4:2:0 samples (planar, as ffmpeg's rawvideo yuv420p writes it).
struct Picture {
  const uint8_t* samples = nullptr;
  int width = 0, height = 0;
  uint8_t at(int plane, int x, int y) const {
    const uint8_t* base = samples + (plane == 0 ? 0 : width * height + (plane - 1) * (width / 2) * (height / 2));
    return base[y * (plane == 0 ? width : width / 2) + x];
  }
};

// slice_data of I_PCM macroblocks (7.3.4, 7.3.5) from `firstMb` to the end of the picture. Their
// QP'Y is 0, so the deblocking filter leaves the samples alone (8.7.2.2): decoded exactly.
void writePcmSliceData(BitWriter& w, uint32_t firstMb, const Picture& picture) {
  constexpr uint32_t kMbTypeIPcm = 25;  // in I slices (Table 7-11)
  const int widthMbs = picture.width / 16, mbs = widthMbs * (picture.height / 16);
  for (int mb = static_cast<int>(firstMb); mb < mbs; ++mb) {
    w.ue(kMbTypeIPcm);
    while (!w.aligned()) w.u(1, 0);  // pcm_alignment_zero_bit
    int x0 = (mb % widthMbs) * 16, y0 = (mb / widthMbs) * 16;
    for (int y = 0; y < 16; ++y)
      for (int x = 0; x < 16; ++x) w.u(8, picture.at(0, x0 + x, y0 + y));
    for (int plane = 1; plane <= 2; ++plane)
      for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) w.u(8, picture.at(plane, x0 / 2 + x, y0 / 2 + y));
  }
}

// ---- Source encodes -------------------------------------------------------------------------

struct Encode {
  Nal sps, pps;
  std::vector<std::vector<Nal>> pictures;  // slices of each coded picture
};

Encode parseEncode(const Bytes& stream) {
  Encode e;
  bool haveSps = false, havePps = false;
  for (auto& nal : splitAnnexB(stream)) {
    if (nal.type() == kNalSps && !haveSps) {
      e.sps = nal;
      haveSps = true;
    } else if (nal.type() == kNalPps && !havePps) {
      e.pps = nal;
      havePps = true;
    } else if (nal.type() == kNalIdrSlice) {
      BitReader r(nal.rbsp);
      if (r.ue() == 0 || e.pictures.empty()) e.pictures.emplace_back();
      e.pictures.back().push_back(std::move(nal));
    } else {
      require(nal.type() != kNalSlice, "source encode holds a non-IDR picture");
    }  // SEI (x264's user data) and anything else is dropped
  }
  require(haveSps && havePps, "source encode without SPS/PPS");
  return e;
}

// `fieldSamples`: the source fields, 160x48 yuv420p each, in the order x264 coded them.
Bytes buildStream(const Bytes& frameStream, const Bytes& fieldStream, const Bytes& fieldSamples,
                  const std::string& pattern, int fps) {
  Encode frames = parseEncode(frameStream), fields = parseEncode(fieldStream);
  require(frames.pps.rbsp == fields.pps.rbsp && frames.pps.header == fields.pps.header,
          "the frame and field encodes have different PPSs");
  SpsFacts frameSps = readSps(frames.sps), fieldSps = readSps(fields.sps);
  require(frameSps.heightInMapUnitsMinus1 + 1 == 2 * (fieldSps.heightInMapUnitsMinus1 + 1),
          "frame height is not twice the field height");
  require(frameSps.log2MaxFrameNum == fieldSps.log2MaxFrameNum, "the encodes differ in frame_num length");
  require(frames.pictures.size() == pattern.size() && fields.pictures.size() == 2 * pattern.size(),
          "source encodes hold fewer pictures than asked");
  const size_t fieldBytes = size_t{kWidth} * kFieldHeight * 3 / 2;
  require(fieldSamples.size() == fieldBytes * fields.pictures.size(), "source fields of an unexpected size");
  PpsFacts pps = readPps(fields.pps);

  Bytes out;
  appendAnnexB(out, fields.sps.header, rewriteSps(fields.sps, fps));
  appendAnnexB(out, fields.pps.header, fields.pps.rbsp);
  uint32_t idrPicId = 0;  // consecutive IDR pictures differ in idr_pic_id (7.4.3)
  auto header = [](const Nal& slice, const SliceTarget& target) {
    return static_cast<uint8_t>((slice.header & 0x60) | (target.idr ? kNalIdrSlice : kNalSlice));
  };
  auto emitFrame = [&](const std::vector<Nal>& picture, const SliceTarget& target) {
    for (const auto& slice : picture) {
      BitReader r(slice.rbsp);
      BitWriter w;
      rewriteSliceHeader(slice, r, w, frameSps, pps, target);
      appendAnnexB(out, header(slice, target), copyRestAndFinish(r, w));
    }
  };
  auto emitField = [&](size_t index, const SliceTarget& target) {
    const auto& picture = fields.pictures[index];
    require(picture.size() == 1, "x264 wrote a field in several slices");
    BitReader r(picture[0].rbsp);
    BitWriter w;
    uint32_t firstMb = rewriteSliceHeader(picture[0], r, w, fieldSps, pps, target);
    writePcmSliceData(w, firstMb, Picture{fieldSamples.data() + index * fieldBytes, kWidth, kFieldHeight});
    appendAnnexB(out, header(picture[0], target), w.finish());
  };
  for (size_t i = 0; i < pattern.size(); ++i) {
    require(pattern[i] == 'F' || pattern[i] == 'P', "pattern letters are 'F' and 'P'");
    if (pattern[i] == 'F') {
      emitFrame(frames.pictures[i], SliceTarget{false, false, true, idrPicId, 0});
    } else {
      emitField(2 * i, SliceTarget{true, false, true, idrPicId, 0});
      emitField(2 * i + 1, SliceTarget{true, true, false, 0, 1});
    }
    idrPicId = (idrPicId + 1) % 65536;
  }
  return out;
}

// `count` frames of testsrc2 at 160x96, or their 2 * count fields, as raw yuv420p. separatefields
// puts the bottom field first unless the frame says top field first (setfield).
CommandResult rawSource(const std::string& out, size_t count, bool asFields, int fps) {
  return runCommand("ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=160x96:rate=" + std::to_string(fps) +
                    (asFields ? " -vf setfield=tff,separatefields" : "") + " -frames:v " +
                    std::to_string(asFields ? 2 * count : count) + " -f rawvideo -pix_fmt yuv420p " + shellQuote(out));
}

// All-intra CAVLC x264 encode of a raw yuv420p file.
CommandResult x264Encode(const std::string& in, const std::string& out, int height, int fps) {
  return runCommand("x264 --quiet --demuxer raw --input-csp i420 --input-res " + std::to_string(kWidth) + "x" +
                    std::to_string(height) + " --fps " + std::to_string(fps) +
                    " --profile main --no-cabac --keyint 1 --bframes 0 --threads 1 -o " + shellQuote(out) + " " +
                    shellQuote(in));
}

std::optional<Bytes> makeStream(const std::string& workDir, const std::string& pattern, int fps) {
  Bytes encodes[2], fieldSamples;
  for (bool asFields : {false, true}) {
    std::string raw = workDir + (asFields ? "/fields.yuv" : "/frames.yuv");
    std::string coded = workDir + (asFields ? "/fields.264" : "/frames.264");
    auto r = rawSource(raw, pattern.size(), asFields, fps);
    if (r.exitCode == 0) r = x264Encode(raw, coded, asFields ? kFieldHeight : 2 * kFieldHeight, fps);
    encodes[asFields] = readBytes(coded);
    if (r.exitCode != 0 || encodes[asFields].empty()) {
      ADD_FAILURE() << "making the source encodes failed: " << r.err;
      return std::nullopt;
    }
    if (asFields) fieldSamples = readBytes(raw);
  }
  try {
    return buildStream(encodes[0], encodes[1], fieldSamples, pattern, fps);
  } catch (const RewriteError& e) {
    ADD_FAILURE() << "field-picture stream for \"" << pattern << "\": " << e.what();
    return std::nullopt;
  }
}

}  // namespace

std::string paffStream(const std::string& name, const std::string& pattern, int fps) {
  namespace fs = std::filesystem;
  if (!haveProgram("ffmpeg") || !haveProgram("x264")) {
    ADD_FAILURE() << "paffStream needs ffmpeg and x264";
    return "";
  }
  if (pattern.empty() || fps <= 0 || fps > 1000) {
    ADD_FAILURE() << "paffStream: empty pattern or absurd frame rate";
    return "";
  }
  fs::path dir = fs::path(QUORVANE_BINARY_DIR) / "test-streams";
  fs::create_directories(dir);
  fs::path target = dir / name;
  // One maker at a time per cache; the others wait and then find the file.
  int lockFd = ::open((dir / ".lock").c_str(), O_CREAT | O_RDWR, 0644);
  if (lockFd >= 0) ::flock(lockFd, LOCK_EX);
  std::string result;
  if (fs::exists(target) && fs::file_size(target) > 0) {
    result = target.string();
  } else {
    TempDir work;
    if (auto stream = makeStream(work.path(), pattern, fps)) {
      fs::path partial = target;
      partial += ".partial";
      writeBytes(partial.string(), *stream);
      fs::rename(partial, target);
      result = target.string();
    }
  }
  if (lockFd >= 0) ::close(lockFd);
  return result;
}

}  // namespace qtest
