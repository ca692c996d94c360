// The frame pipeline of the commands that edit frames (reframe, stamp, hdr):
//
//   open IN (elementary stream or container)  ->  for each access unit in decode order, the
//   editor edits a DFRAME in place  ->  write OUT
//
// Before the first frame the editor learns the stream (codec, parameter sets of the extradata,
// frame rate, whether the extradata is an avcC/hvcC record) and may replace those parameter
// sets: the sample description's avcC/hvcC (or Annex B extradata) is rebuilt from them, so an
// SPS rewrite stays consistent. Every other track of a container is copied unchanged with its
// timing; every copied track keeps its stream side data (display matrix, stereo 3D, ...). OUT is
// the container kind of IN, or the one OUT's extension names; an elementary stream when IN is one
// (or OUT's extension names a raw stream: .h264 .264 .hevc .265 .m2v).
// OUT is written to a temporary file beside it and renamed when complete; an existing OUT is
// refused unless `force`, OUT equal to IN always. "-" writes an elementary stream, MPEG-TS or
// Matroska to standard output.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "media/input.h"
#include "streamutil/dframe.h"
#include "streamutil/hdr_sei.h"

namespace media {

// What the editor is told before the first frame.
struct PipelineStream {
  StreamCodec codec = StreamCodec::kUnknown;
  bool elementary = true;
  std::string container;      // input container ("" for an elementary stream)
  std::string outContainer;   // output container ("" for an elementary stream)
  Framing framing = Framing::kAnnexB;  // framing of the frames the editor gets
  bool configRecord = false;  // the extradata is an avcC / hvcC record
  // An elementary stream's parameter sets as found in its first megabyte (for reading timing
  // and field coding before the first frame); they stay in the frames, where edit() sees them.
  std::vector<Bytes> leadingParameterSets;
  int frameRateNum = 0, frameRateDen = 0;  // container frame rate, 0 when not known
};

// One access unit handed to the editor.
struct PipelineFrame {
  DFRAME* frame;               // pData holds the unit with room behind it (nBufferSize)
  Framing framing;             // 4-byte length fields (MP4, MOV, Matroska) or start codes
  StreamCodec codec;
  uint64_t decodeIndex;        // access units before this one
  uint64_t displayIndex;       // pictures before this one in display order (kNoDisplayIndex: none)
  uint64_t displayField;       // fields before this one in display order, a frame counting two
                               // (kNoDisplayIndex: none); its frame is displayField / 2
  bool hasPicture;
  int fieldPicture;            // 1 field, 0 frame, -1 not known
  bool randomAccess;           // IDR / IRAP / sequence header
  int spsId;                   // H.264/HEVC: id of the SPS its picture activates, -1 not known
  const std::vector<UnitSpan>* units;  // its units as handed over (offsets into pData before any edit)
};
inline constexpr uint64_t kNoDisplayIndex = UINT64_MAX;

// The HDR static metadata a container OUT describes its video track with (Matroska
// MasteringMetadata and MaxCLL/MaxFALL, MP4/MOV mdcv and clli). IN's track values are kept (where
// IN's track has none, as in an elementary stream or MPEG-TS: those of its first access unit's
// SEI), except those the editor sets (set.present: KLX_HDR_HAS_MASTERING_DISPLAY,
// KLX_HDR_HAS_CONTENT_LIGHT_LEVEL) or removes (the same bits); other bits are ignored.
struct ContainerHdr {
  KLX_HDR_METADATA set{};
  uint32_t remove = 0;
};

class FrameEditor {
 public:
  virtual ~FrameEditor() = default;
  // Before the first frame. `parameterSets` holds the extradata's units (header byte first; may
  // be empty when they travel in the stream); replace them to rewrite the extradata. False with
  // `error` set stops the run before anything is written.
  virtual bool begin(const PipelineStream& stream, std::vector<Bytes>& parameterSets, std::string& error) {
    (void)stream, (void)parameterSets, (void)error;
    return true;
  }
  // Each access unit, in decode order. Edit frame->pData in place (within nBufferSize) and set
  // nDataSize. False with `error` set stops the run (OUT is then not created).
  virtual bool edit(PipelineFrame& frame, std::string& error) = 0;
  // After begin(): the timecode text (HH:MM:SS:FF, ';' for drop-frame) that a container's own
  // timecode tag (MXF material package, a "timecode" tag copied from IN) should show instead of
  // the one copied from IN; "" leaves it alone. Only tags IN already had are replaced.
  virtual std::string containerTimecode() const { return {}; }
  // After begin(): how the container's HDR static metadata changes (none by default).
  virtual ContainerHdr containerHdr() const { return {}; }
};

struct PipelineOptions {
  bool force = false;              // replace an existing OUT
  bool esFramingGiven = false;     // elementary-stream output: write this framing
  Framing esFraming = Framing::kAnnexB;
  const char* label = "";          // command name for the progress bar
};

struct PipelineResult {
  uint64_t accessUnits = 0, pictures = 0, inBytes = 0, outBytes = 0;
  std::string outKind;  // "h264 elementary stream", "MP4" ...
  bool toStdout = false;
};

// Checks OUT (not IN, not existing unless forced, a muxer that can carry the codec), then runs
// the input through the editor into OUT. False with a one-line `error`.
bool runPipeline(Input& input, const std::string& outPath, FrameEditor& editor, const PipelineOptions& options,
                 PipelineResult& result, std::string& error);

}  // namespace media
