// quorvane stamp in two pieces, so that any front end (elementary streams here, container
// demuxers elsewhere) can drive it: prepareStampPlan once over the stream's parameter-set
// units, then stampAccessUnit on every access unit, in start-code or 4-byte length framing.
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "inspect.h"
#include "streamutil/avc_params.h"
#include "streamutil/avc_sps_set.h"
#include "streamutil/dframe.h"
#include "streamutil/scc.h"

// A timecode rate of the command.
struct RateInfo {
  const char* name;
  const char* typeName;  // as the summary says it
  uint32_t tcType;       // counting of the timecode text (and of the H.264 clock timestamps)
  uint32_t hevcRate;     // integer rate for the HEVC time_code SEI writer
  uint32_t cdpRate;      // caption packet frame-rate code
  double fps;
};
// The rate a --rate name stands for, or null (to give way to a shared table of rate names).
const RateInfo* findRate(const std::string& name);
// The timecode rate nearest to a stream's frame rate, or null.
const RateInfo* rateForStream(double fps);

// Everything stampAccessUnit needs, settled once per stream.
struct StampPlan {
  StreamCodec codec = StreamCodec::kUnknown;
  const RateInfo* rate = nullptr;
  std::string rateSource;  // where the rate came from, for the summary
  bool fields = false;     // each picture is one field: two pictures per timecode frame
  uint32_t startFrame = 0;
  bool captions = false;
  std::vector<SCC_CAPTION> captionPairs;
  std::vector<int32_t> captionAt;  // display frame (from startFrame) -> index in captionPairs, -1 none
  bool keepExisting = false;
  // H.264: the SPSs the input has carried so far, by id. Learnt in decode order (the editor
  // hands each access unit's SPS units over before stamping it): a picture's pic_timing is read
  // and written by the SPS it activates, which in a spliced stream need not be the first one.
  std::shared_ptr<KLXUTIL_AVC_SPS_SET> avcSps;
  uint32_t avcFlags = 0;
  // The parameter-set units (from their header byte) as the output carries them: H.264 SPS
  // rewritten with pic_struct_present_flag. For carriers that keep them outside the frames.
  std::vector<std::vector<uint8_t>> parameterSets;
};

// Where a picture shows. A frame picture counts two fields and a field picture one, so a pair
// of field pictures shares one frame's timecode and a frame picture has a timecode of its own.
struct StampPosition {
  uint64_t picture = 0;       // pictures before it in display order
  uint64_t field = 0;         // fields before it in display order: its frame is field / 2
  bool fieldPicture = false;  // it shows one field (--fields, the HEVC VUI or its slice header)
  uint64_t frame() const { return field / 2; }
  bool firstField() const { return field % 2 == 0; }
};

// The position the stamp gives a picture of the frame pipeline: --fields (plan.fields) makes
// every picture a field, whatever its slice header says; a picture without a display position
// (its order could not be read) takes its decode position.
StampPosition stampPositionOf(const StampPlan& plan, uint64_t decodeIndex, uint64_t displayIndex, uint64_t displayField,
                              int fieldPicture);

// What stampAccessUnit and stampMpeg2AccessUnit did, as bits of their result.
constexpr int kReplacedTimecode = 1, kReplacedCaptions = 2, kWroteCaption = 4, kStampedGroup = 8;

// "H.264", "HEVC", "MPEG-2" as the summary names them.
inline const char* stampCodecTitle(StreamCodec codec) {
  return codec == StreamCodec::kHevc ? "HEVC" : codec == StreamCodec::kMpeg2 ? "MPEG-2" : "H.264";
}

// Caption packet of one picture: the field-1 pair (CC1) or padding, and field-2 padding.
uint32_t captionPacketFor(const SCC_CAPTION* pair, uint32_t cdpRate, uint16_t sequence, uint8_t* out, uint32_t cap);

// Stream-level preparation over the parameter-set units (each from its header byte, with its
// emulation prevention): the rate (givenRate, else the first SPS's VUI timing, else 25), field
// coding, the H.264 SPSs and their rewrite for pic_struct (plan.parameterSets). plan.codec,
// plan.fields (when forced) and plan.keepExisting are set by the caller first. False with
// `error` set when the H.264 SPS is missing or cannot be rewritten.
bool prepareStampPlan(StampPlan& plan, const std::vector<std::vector<uint8_t>>& units, const RateInfo* givenRate,
                      std::string& error);

// Edits one access unit in place (start codes, or 4-byte lengths when lengthPrefixed; the
// frame's nBufferSize is its capacity): the timecode of its display position (replacing what
// it carried), and its caption pair (captions replaced too). `avcSps` (H.264) is the SPS its
// picture activates. Returns kReplaced.../kWroteCaption bits, or -1 with `error` set (no room,
// no SPS, or existing timecode/captions with keepExisting).
int stampAccessUnit(const StampPlan& plan, DFRAME& frame, bool lengthPrefixed, const StampPosition& at, bool hasPicture,
                    const SPS_DECODED* avcSps, std::string& error);

// MPEG-2 video (stamp_mpeg2.cpp). The rate: givenRate, else the frame_rate_code of the first
// sequence header among `units` (start-code units from their start code value), else 25 with
// plan.rateSource starting "the default".
bool prepareMpeg2StampPlan(StampPlan& plan, const std::vector<std::vector<uint8_t>>& units, const RateInfo* givenRate,
                           std::string& error);

// The pictures of the groups stamped so far, in decode order: a group's time_code is the
// timecode of its first picture in display order, which follows every picture of the groups
// before it (ISO/IEC 13818-2 6.3.8: temporal_reference restarts at each group).
struct Mpeg2Groups {
  uint64_t fields = 0;         // fields of the pictures before this access unit
  uint64_t groupStart = 0;     // fields before the current group's first picture
};

// Edits one MPEG-2 access unit (start codes) in place: the time_code of a group header it
// carries, and its caption user data (replaced) in front of its first slice. Returns
// kStampedGroup/kReplacedCaptions/kWroteCaption bits, or -1 with `error` set.
int stampMpeg2AccessUnit(const StampPlan& plan, Mpeg2Groups& groups, DFRAME& frame, const StampPosition& at,
                         bool hasPicture, std::string& error);
