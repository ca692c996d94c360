// What the stream commands read: an elementary stream (Annex B or length-prefixed H.264, HEVC,
// MPEG-2 video) through a bounded read window, or the video track of a container (MP4, MOV,
// Matroska/WebM, MPEG-TS, MXF, ...) through libavformat. The kind is found from the content,
// never from the file name. Either way the commands get the stream's access units one at a time
// in decode order, each cut (and its picture order read) by the library's access-unit cutter.
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "inspect.h"
#include "streamutil/access_units.h"
#include "streamutil/hdr_sei.h"

struct AVFormatContext;
struct AVPacket;

namespace media {

using Bytes = std::vector<uint8_t>;

enum class Framing { kAnnexB, kLengthPrefixed };

struct PacketDeleter {
  void operator()(AVPacket* p) const;
};
using PacketPtr = std::unique_ptr<AVPacket, PacketDeleter>;

// One unit inside an access unit's bytes.
struct UnitSpan {
  uint32_t at;      // first byte of the start code / length field
  uint32_t prefix;  // bytes of start code / length field (3 or 4)
  uint32_t size;    // unit bytes behind it
};

struct AccessUnit {
  Bytes bytes;  // as stored: start codes or length fields in front of each unit
  std::vector<UnitSpan> units;
  uint64_t offset = 0;      // file offset of the first byte (elementary streams; packet position else)
  bool offsetKnown = true;  // false for container packets without a position
  KLXUTIL_AU_PICTURE picture{};
  bool orderKnown = true;   // the picture order count could be read
  PacketPtr packet;         // container input: the packet (timing, flags) the bytes came from
  const uint8_t* unit(const UnitSpan& s) const { return bytes.data() + s.at + s.prefix; }
};

struct StreamInfo {
  StreamCodec codec = StreamCodec::kUnknown;
  bool elementary = true;
  std::string container;             // "MP4", "MOV", "Matroska", "MPEG-TS", "MXF" ... ("" for ES)
  Framing framing = Framing::kAnnexB;
  int lengthSize = 4;
  int track = -1;                    // container stream index of the video track
  std::vector<Bytes> parameterSets;  // from the extradata (avcC/hvcC arrays or Annex B)
  std::vector<Bytes> leadingParameterSets;  // elementary streams: those in the first megabyte (MPEG-2: sequence headers)
  // H.264/HEVC: the HDR static metadata SEI messages of the first access unit (present = 0 when it
  // has none), which describe a container OUT's track where IN's track says nothing.
  KLX_HDR_METADATA leadingHdr{};
  Bytes extradata;
  bool configRecord = false;         // extradata is an avcC / hvcC record
  int frameRateNum = 0, frameRateDen = 0;  // container frame rate (0 when not known)
  uint64_t size = 0;                 // bytes of the input (0 when not known: a pipe)
};

struct OpenOptions {
  int track = -1;            // --track N, -1: choose
  bool allowAdts = false;    // the adts command: ADTS is accepted (no video then)
};

class Input {
 public:
  // Opens and identifies `path` ("-" is standard input). On failure returns null with `error`
  // set to one line that says what was found and what would work.
  static std::unique_ptr<Input> open(const std::string& path, const OpenOptions& options, std::string& error);
  virtual ~Input();

  const StreamInfo& info() const { return info_; }
  const std::string& path() const { return path_; }
  // The next access unit in decode order. False at the end or on a read error (error() set).
  virtual bool next(AccessUnit& au) = 0;
  const std::string& error() const { return error_; }
  // Bytes consumed so far (for progress).
  virtual uint64_t position() const = 0;
  // The demuxer of a container input (null for elementary streams).
  virtual AVFormatContext* format() { return nullptr; }
  // Container input: packets of every other track are handed here instead of being dropped.
  void setOtherPackets(void (*sink)(void* user, AVPacket* packet), void* user) {
    otherSink_ = sink;
    otherUser_ = user;
  }

 protected:
  StreamInfo info_;
  std::string path_, error_;
  void (*otherSink_)(void*, AVPacket*) = nullptr;
  void* otherUser_ = nullptr;
};

// The library cutter's codec number for a stream codec.
int32_t cutterCodec(StreamCodec codec);
// "h264", "hevc", "mpeg2" (codec names of the JSON output), "unknown".
const char* codecName(StreamCodec codec);
// What the input is, as the refusals name it: "MPEG-TS", "an H.264 elementary stream" ...
std::string describe(const StreamInfo& info);

}  // namespace media
