// See input.h. Content sniffing first (container signatures, then elementary streams by their
// unit headers), libavformat for everything else.
#include "input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <memory>

#include "config_record.h"
#include "window_reader.h"

#include "media/libav.h"
#include "streamutil/hevc_params.h"

namespace media {

void PacketDeleter::operator()(AVPacket* p) const { libav::api().av_packet_free(&p); }

int32_t cutterCodec(StreamCodec codec) {
  switch (codec) {
    case StreamCodec::kH264: return KLXUTIL_AU_H264;
    case StreamCodec::kHevc: return KLXUTIL_AU_HEVC;
    case StreamCodec::kMpeg2: return KLXUTIL_AU_MPEG2;
    default: return 0;
  }
}

const char* codecName(StreamCodec codec) {
  switch (codec) {
    case StreamCodec::kH264: return "h264";
    case StreamCodec::kHevc: return "hevc";
    case StreamCodec::kMpeg2: return "mpeg2";
    default: return "unknown";
  }
}

std::string describe(const StreamInfo& info) {
  static const char* const kNames[] = {"an H.264", "an HEVC", "an MPEG-2 video", "an unknown"};
  if (!info.elementary) return std::string(kNames[static_cast<int>(info.codec)]) + " track in " + info.container;
  return std::string(kNames[static_cast<int>(info.codec)]) + " elementary stream";
}

Input::~Input() = default;

namespace {

constexpr size_t kSniffBytes = size_t{1} << 20;

// HEVC keeps field coding in the SPS's VUI (field_seq_flag), out of the cutter's reach: an SPS
// unit is read whole and the cutter told, so that the pictures of a field stream are cut as
// fields. SPS units are rare, so the large record is allocated for each.
void teachFieldSequence(KLXUTIL_AU_CUTTER& cutter, const uint8_t* unit, uint32_t size) {
  if (cutter.codec != KLXUTIL_AU_HEVC || size < 3 || ((unit[0] >> 1) & 0x3F) != 33) return;
  auto sps = std::make_unique<HEVC_SPS_DECODED>();
  zr_bitstream bits{const_cast<uint8_t*>(unit), int64_t(size), uint64_t(size) * 8, 0};
  if (klxutilRead_HEVC_SPS(&bits, sps.get(), nullptr, 0) == 0xFFFFFFFFu) return;
  klxutilAuCutterSetFieldSequence(&cutter, uint32_t(sps->sps_seq_parameter_set_id),
                                  sps->vui_parameters_present_flag && sps->vui.field_seq_flag);
}

// ---------------------------------------------------------------- content sniffing

bool validH264Header(const uint8_t* u, size_t size) {
  if (size < 1 || (u[0] & 0x80)) return false;
  const int type = u[0] & 0x1F, ref = (u[0] >> 5) & 3;
  if (type == 0 || type > 20 || (type >= 16 && type <= 18)) return false;
  if (ref == 0 && type == 5) return false;
  return !(ref != 0 && (type == 6 || (type >= 9 && type <= 12)));
}

bool validHevcHeader(const uint8_t* u, size_t size) {
  if (size < 2 || (u[0] & 0x80) || (u[1] & 0x07) == 0) return false;
  const int type = (u[0] >> 1) & 0x3F, layer = ((u[0] & 1) << 5) | (u[1] >> 3);
  return layer == 0 && (type <= 40 || type >= 62) && !(type >= 10 && type <= 15) && !(type >= 22 && type <= 31);
}

struct Sample {
  std::vector<std::pair<const uint8_t*, size_t>> units;
};

Sample annexBSample(const Bytes& head, size_t limit = 64) {
  Sample s;
  size_t at = 0;
  uint32_t length = 0;
  if (klxutilFindStartCode(head.data(), head.size(), 0, &at, &length) != 1) return s;
  for (size_t i = 0; i < limit; ++i) {
    const size_t header = at + length;
    size_t next = 0;
    uint32_t nextLength = 0;
    const bool more = klxutilFindStartCode(head.data(), head.size(), header, &next, &nextLength) == 1;
    s.units.emplace_back(head.data() + header, (more ? next : head.size()) - header);
    if (!more) break;
    at = next, length = nextLength;
  }
  return s;
}

Sample lengthSample(const Bytes& head, size_t limit = 64) {
  Sample s;
  for (size_t at = 0; at + 4 <= head.size() && s.units.size() < limit;) {
    const size_t length = size_t(head[at]) << 24 | size_t(head[at + 1]) << 16 | size_t(head[at + 2]) << 8 | head[at + 3];
    if (length == 0) return {};
    if (length > head.size() - at - 4) {
      if (head.size() < kSniffBytes) return {};  // the whole file is in view: a bad chain
      s.units.emplace_back(head.data() + at + 4, head.size() - at - 4);
      break;
    }
    s.units.emplace_back(head.data() + at + 4, length);
    at += 4 + length;
  }
  return s;
}

// The codec whose headers fit every sampled unit (the first one above all), else kUnknown.
StreamCodec codecOf(const Sample& s, bool allowMpeg2) {
  if (s.units.empty()) return StreamCodec::kUnknown;
  const auto [first, firstSize] = s.units.front();
  if (allowMpeg2 && firstSize > 0 && first[0] == 0xB3) return StreamCodec::kMpeg2;
  size_t h264 = 0, hevc = 0;
  for (const auto& [u, size] : s.units) {
    h264 += validH264Header(u, size);
    hevc += validHevcHeader(u, size);
  }
  const size_t needed = s.units.size() - s.units.size() / 8;  // a few damaged units are tolerated
  if (validHevcHeader(first, firstSize) && hevc >= needed && hevc >= h264) return StreamCodec::kHevc;
  if (validH264Header(first, firstSize) && h264 >= needed) return StreamCodec::kH264;
  return StreamCodec::kUnknown;
}

bool adtsAt(const Bytes& head, size_t at, size_t* length) {
  if (at + 7 > head.size() || head[at] != 0xFF || (head[at + 1] & 0xF6) != 0xF0) return false;
  *length = (size_t(head[at + 3] & 3) << 11) | (size_t(head[at + 4]) << 3) | (head[at + 5] >> 5);
  return *length >= 7;
}

bool looksAdts(const Bytes& head) {
  size_t length = 0, next = 0;
  if (!adtsAt(head, 0, &length)) return false;
  return length >= head.size() || adtsAt(head, length, &next);
}

// The distinct parameter sets (MPEG-2: sequence headers) among the sampled units, in stream order.
void leadingParameterSets(StreamInfo& info, const Sample& sample) {
  for (const auto& [u, size] : sample.units) {
    if (size == 0) continue;
    const int type = info.codec == StreamCodec::kHevc ? (u[0] >> 1) & 0x3F : u[0] & 0x1F;
    const bool set = info.codec == StreamCodec::kHevc    ? type >= 32 && type <= 34
                     : info.codec == StreamCodec::kMpeg2 ? u[0] == 0xB3  // sequence header
                                                         : type == 7 || type == 8;
    if (!set) continue;
    Bytes unit(u, u + size);
    while (unit.size() > 1 && unit.back() == 0) unit.pop_back();  // trailing_zero_8bits
    if (std::find(info.leadingParameterSets.begin(), info.leadingParameterSets.end(), unit) == info.leadingParameterSets.end())
      info.leadingParameterSets.push_back(std::move(unit));
  }
}

// The HDR static metadata SEI in front of the first slice of `data` (a track's first sample, or an
// elementary stream's first megabyte): what OUT's container track is described with where IN's
// says nothing. None when the SEI cannot be read.
KLX_HDR_METADATA leadingHdrOf(const StreamInfo& info, const uint8_t* data, size_t size) {
  const bool avcOrHevc = info.codec == StreamCodec::kH264 || info.codec == StreamCodec::kHevc;
  const bool annexB = info.framing == Framing::kAnnexB;
  KLX_HDR_METADATA md{};
  if (!avcOrHevc || !data || (!annexB && info.lengthSize != 4) ||
      klxutilReadHdrSei(data, static_cast<uint32_t>(std::min<size_t>(size, UINT32_MAX)), annexB,
                        info.codec == StreamCodec::kHevc, &md) != 0)
    return {};
  return md;
}

// The container whose signature the first bytes carry ("" for none): those that could pass for a
// length-prefixed stream are caught here before any stream sniffing.
std::string containerSignature(const Bytes& head) {
  if (head.size() >= 189 && head[0] == 0x47 && head[188] == 0x47) return "MPEG-TS";
  if (head.size() >= 8) {
    static const char* const kBoxes[] = {"ftyp", "moov", "mdat", "free", "wide", "skip", "styp", "pnot"};
    for (const char* box : kBoxes)
      if (std::memcmp(head.data() + 4, box, 4) == 0) return "MP4/MOV";
  }
  static const uint8_t kEbml[] = {0x1A, 0x45, 0xDF, 0xA3}, kMxf[] = {0x06, 0x0E, 0x2B, 0x34};
  if (head.size() >= 4 && !std::memcmp(head.data(), kEbml, 4)) return "Matroska";
  if (head.size() >= 4 && !std::memcmp(head.data(), kMxf, 4)) return "MXF";
  return "";
}

// True when the top-level boxes of an MP4/MOV head reach an 'mdat' before the 'moov' (ISO/IEC
// 14496-12 4.2): libavformat then finds the sample tables only past the media and must seek back,
// which a pipe cannot. False when the moov comes first or the head does not tell.
bool mediaBeforeMovie(const Bytes& head) {
  auto be = [&](size_t at, int bytes) {
    uint64_t v = 0;
    for (int i = 0; i < bytes; ++i) v = (v << 8) | head[at + i];
    return v;
  };
  for (size_t at = 0; at + 8 <= head.size();) {
    if (!std::memcmp(head.data() + at + 4, "moov", 4)) return false;
    if (!std::memcmp(head.data() + at + 4, "mdat", 4)) return true;
    uint64_t size = be(at, 4);
    if (size == 1 && at + 16 <= head.size()) size = be(at + 8, 8);  // largesize
    if (size < 8 || size > head.size() - at) return false;
    at += size;
  }
  return false;
}

// ---------------------------------------------------------------- elementary streams

class EsInput : public Input {
 public:
  EsInput(int fd, Bytes head, const StreamInfo& info, const std::string& path)
      : fd_(fd), reader_(fd, std::move(head), info.framing == Framing::kLengthPrefixed, info.lengthSize) {
    info_ = info;
    path_ = path;
    klxutilAuCutterInit(&cutter_, cutterCodec(info.codec));
  }
  ~EsInput() override {
    if (fd_ > 0) ::close(fd_);
  }
  uint64_t position() const override { return reader_.position(); }

  bool next(AccessUnit& au) override {
    au.bytes.clear();
    au.units.clear();
    au.packet.reset();
    au.offsetKnown = true;
    if (!pending_.empty()) {
      au.bytes.swap(pending_);
      au.offset = pendingOffset_;
      au.units.push_back(UnitSpan{0, pendingPrefix_, static_cast<uint32_t>(au.bytes.size() - pendingPrefix_)});
      pending_.clear();
    } else if (done_) {
      return false;
    }
    RawUnit u;
    while (reader_.next(u)) {
      KLXUTIL_AU_UNIT info;
      const int rc = klxutilAuCutterPush(&cutter_, u.data, u.size, &info);
      teachFieldSequence(cutter_, u.data, u.size);
      if (info.opensAccessUnit) {
        const bool finishedKnown = currentKnown_;
        currentKnown_ = true;
        if (rc != 0) currentKnown_ = false;
        if (!au.units.empty()) {
          pending_.assign(u.data - u.prefix, u.data + u.size);
          pendingOffset_ = u.offset;
          pendingPrefix_ = u.prefix;
          au.picture = info.finished;
          au.orderKnown = finishedKnown;
          return true;
        }
        au.offset = u.offset;
      } else if (rc != 0) {
        currentKnown_ = false;
      }
      append(au, u);
    }
    done_ = true;
    error_ = reader_.error();
    if (au.units.empty()) return false;
    au.picture = cutter_.current;
    au.orderKnown = currentKnown_;
    return true;
  }

 private:
  static void append(AccessUnit& au, const RawUnit& u) {
    au.units.push_back(UnitSpan{static_cast<uint32_t>(au.bytes.size()), u.prefix, u.size});
    au.bytes.insert(au.bytes.end(), u.data - u.prefix, u.data + u.size);
  }

  int fd_;
  WindowReader reader_;
  KLXUTIL_AU_CUTTER cutter_;
  Bytes pending_;
  uint64_t pendingOffset_ = 0;
  uint32_t pendingPrefix_ = 0;
  bool currentKnown_ = true, done_ = false;
};

// ---------------------------------------------------------------- containers

// libavformat reading standard input: first the bytes the sniffing took, then the rest.
struct PipeSource {
  int fd;
  Bytes head;
  size_t served = 0;
  static int read(void* opaque, uint8_t* buf, int size) {
    auto* self = static_cast<PipeSource*>(opaque);
    if (self->served < self->head.size()) {
      const size_t n = std::min(self->head.size() - self->served, static_cast<size_t>(size));
      std::memcpy(buf, self->head.data() + self->served, n);
      self->served += n;
      return static_cast<int>(n);
    }
    const ssize_t n = ::read(self->fd, buf, static_cast<size_t>(size));
    return n > 0 ? static_cast<int>(n) : AVERROR_EOF;
  }
};

std::string containerName(const AVFormatContext* fmt) {
  const std::string name = fmt->iformat->name;
  if (name.rfind("mov,mp4", 0) == 0) {
    const AVDictionaryEntry* brand = libav::api().av_dict_get(fmt->metadata, "major_brand", nullptr, 0);
    return brand && std::strncmp(brand->value, "qt", 2) == 0 ? "MOV" : "MP4";
  }
  if (name.rfind("matroska", 0) == 0) return "Matroska";
  if (name == "mpegts") return "MPEG-TS";
  if (name == "mxf") return "MXF";
  if (name == "mpeg") return "MPEG-PS";
  return fmt->iformat->long_name ? fmt->iformat->long_name : name;
}

StreamCodec codecOfStream(const AVStream* st) {
  if (st->codecpar->codec_type != AVMEDIA_TYPE_VIDEO || (st->disposition & AV_DISPOSITION_ATTACHED_PIC))
    return StreamCodec::kUnknown;
  switch (st->codecpar->codec_id) {
    case AV_CODEC_ID_H264: return StreamCodec::kH264;
    case AV_CODEC_ID_HEVC: return StreamCodec::kHevc;
    case AV_CODEC_ID_MPEG2VIDEO: return StreamCodec::kMpeg2;
    default: return StreamCodec::kUnknown;
  }
}

std::string trackList(const AVFormatContext* fmt) {
  std::string list;
  for (unsigned i = 0; i < fmt->nb_streams; ++i) {
    if (!list.empty()) list += ", ";
    list += std::to_string(i) + ": " + libav::api().avcodec_get_name(fmt->streams[i]->codecpar->codec_id);
  }
  return list.empty() ? "no tracks" : list;
}

class ContainerInput : public Input {
 public:
  ~ContainerInput() override {
    libav::api().avformat_close_input(&fmt_);
    if (avio_) {
      libav::api().av_freep(&avio_->buffer);
      libav::api().avio_context_free(&avio_);
    }
    if (pipe_.fd > 0) ::close(pipe_.fd);
  }

  // Opens the container and chooses the track; false with a one-line `error`.
  bool open(const std::string& path, int fd, Bytes head, uint64_t size, const OpenOptions& options, std::string& error) {
    path_ = path;
    info_.size = size;
    fmt_ = libav::api().avformat_alloc_context();
    if (path == "-") {
      moovAfterMediaOnPipe_ = signature_ == "MP4/MOV" && mediaBeforeMovie(head);
      pipe_ = PipeSource{fd, std::move(head), 0};
      constexpr int kBuffer = 1 << 16;
      auto* buffer = static_cast<uint8_t*>(libav::api().av_malloc(kBuffer));
      avio_ = libav::api().avio_alloc_context(buffer, kBuffer, 0, &pipe_, &PipeSource::read, nullptr, nullptr);
      fmt_->pb = avio_;
    } else {
      ::close(fd);
    }
    if (libav::api().avformat_open_input(&fmt_, path == "-" ? "" : path.c_str(), nullptr, nullptr) < 0) {
      fmt_ = nullptr;  // freed by the failed open
      error = signature_.empty() ? "no H.264, HEVC or MPEG-2 video found (neither an elementary stream nor a known container)"
                                 : "a damaged or cut-short " + signature_ + " file (libavformat cannot open it)";
      return false;
    }
    if (libav::api().avformat_find_stream_info(fmt_, nullptr) < 0) {
      error = "cannot read the streams of this " + std::string(fmt_->iformat->name) + " file";
      return false;
    }
    info_.elementary = false;
    info_.container = containerName(fmt_);
    return chooseTrack(options, error) && describeTrack(error);
  }

  uint64_t position() const override { return fmt_->pb ? static_cast<uint64_t>(std::max<int64_t>(libav::api().avio_seek(fmt_->pb, 0, SEEK_CUR), 0)) : 0; }
  AVFormatContext* format() override { return fmt_; }

  bool next(AccessUnit& au) override {
    PacketPtr packet(libav::api().av_packet_alloc());
    for (;;) {
      const int rc = readPacket(packet.get());
      if (rc == AVERROR_EOF) return false;
      if (rc < 0) {
        // Small files still read (libavformat seeks back inside its buffer); larger ones fail here.
        error_ = moovAfterMediaOnPipe_ ? "an MP4/MOV file with its moov box after the media data cannot be read from a "
                                         "pipe; give the file name, or remux it: ffmpeg -i IN -c copy -movflags +faststart OUT"
                                       : "read error in the container";
        return false;
      }
      if (packet->stream_index == info_.track) break;
      if (otherSink_) otherSink_(otherUser_, packet.get());
      libav::api().av_packet_unref(packet.get());
    }
    au.bytes.assign(packet->data, packet->data + packet->size);
    au.units.clear();
    au.offset = packet->pos >= 0 ? static_cast<uint64_t>(packet->pos) : 0;
    au.offsetKnown = packet->pos >= 0;
    au.packet = std::move(packet);
    if (!split(au)) return false;
    KLXUTIL_AU_PICTURE unused;
    klxutilAuCutterBreak(&cutter_, &unused);
    au.orderKnown = true;
    KLXUTIL_AU_PICTURE firstField{};  // the first picture when the sample holds two
    for (const UnitSpan& s : au.units) {
      if (!s.size) continue;
      KLXUTIL_AU_UNIT info;
      if (klxutilAuCutterPush(&cutter_, au.unit(s), s.size, &info) != 0 && info.isSlice) au.orderKnown = false;
      teachFieldSequence(cutter_, au.unit(s), s.size);
      if (info.finishedValid && info.finished.hasPicture) firstField = info.finished;
    }
    au.picture = cutter_.current;
    // A sample holding both field pictures of a frame is one frame here.
    if (klxutilAuJoinFieldPair(&firstField, &cutter_.current) == 1) {
      firstField.decodeIndex = cutter_.current.decodeIndex;  // the sample's own, unique index
      au.picture = firstField;
    }
    ++packets_;
    return true;
  }

 private:
  bool chooseTrack(const OpenOptions& options, std::string& error) {
    std::vector<int> candidates;
    for (unsigned i = 0; i < fmt_->nb_streams; ++i)
      if (codecOfStream(fmt_->streams[i]) != StreamCodec::kUnknown) candidates.push_back(static_cast<int>(i));
    if (options.track >= 0) {
      if (options.track >= static_cast<int>(fmt_->nb_streams) ||
          codecOfStream(fmt_->streams[options.track]) == StreamCodec::kUnknown) {
        error = info_.container + " track " + std::to_string(options.track) +
                " is not an H.264, HEVC or MPEG-2 video track (tracks: " + trackList(fmt_) + ")";
        return false;
      }
      info_.track = options.track;
      return true;
    }
    if (candidates.empty()) {
      error = info_.container + " with no H.264, HEVC or MPEG-2 video track (found: " + trackList(fmt_) + ")";
      return false;
    }
    if (candidates.size() > 1) {
      error = info_.container + " with " + std::to_string(candidates.size()) +
              " video tracks: choose one with --track (" + trackList(fmt_) + ")";
      return false;
    }
    info_.track = candidates.front();
    return true;
  }

  bool describeTrack(std::string& error) {
    const AVStream* st = fmt_->streams[info_.track];
    info_.codec = codecOfStream(st);
    klxutilAuCutterInit(&cutter_, cutterCodec(info_.codec));
    info_.frameRateNum = st->avg_frame_rate.num ? st->avg_frame_rate.num : st->r_frame_rate.num;
    info_.frameRateDen = st->avg_frame_rate.num ? st->avg_frame_rate.den : st->r_frame_rate.den;
    const AVCodecParameters* par = st->codecpar;
    info_.extradata.assign(par->extradata, par->extradata + par->extradata_size);
    if (!info_.extradata.empty() && info_.extradata[0] == 1 && info_.codec != StreamCodec::kMpeg2) {
      ConfigRecord record;
      const bool ok = info_.codec == StreamCodec::kHevc ? readHvcC(par->extradata, size_t(par->extradata_size), record)
                                                        : readAvcC(par->extradata, size_t(par->extradata_size), record);
      if (!ok) {
        error = info_.container + " track " + std::to_string(info_.track) + ": the " +
                (info_.codec == StreamCodec::kHevc ? "hvcC" : "avcC") + " record is damaged";
        return false;
      }
      info_.configRecord = true;
      info_.framing = Framing::kLengthPrefixed;
      info_.lengthSize = record.lengthSize;
      info_.parameterSets = std::move(record.units);
    } else if (!info_.extradata.empty()) {
      for (const auto& [u, size] : annexBSample(info_.extradata).units) info_.parameterSets.emplace_back(u, u + size);
      // libavformat's MXF reader makes up AVC-Intra parameter sets for some rasters; a stream
      // that carries its own is described by those.
      std::vector<Bytes> inBand = firstSampleParameterSets();
      if (!inBand.empty() && inBand != info_.parameterSets) {
        info_.extradata.clear();
        for (const Bytes& unit : inBand) {
          info_.extradata.insert(info_.extradata.end(), {0, 0, 0, 1});
          info_.extradata.insert(info_.extradata.end(), unit.begin(), unit.end());
        }
        info_.parameterSets = std::move(inBand);
      }
    }
    for (const auto& ps : info_.parameterSets) {
      klxutilAuCutterLearn(&cutter_, ps.data(), static_cast<uint32_t>(ps.size()));
      teachFieldSequence(cutter_, ps.data(), static_cast<uint32_t>(ps.size()));
    }
    readLeadingHdr();
    return true;
  }

  // The next packet of the container: those read ahead first, in their order.
  int readPacket(AVPacket* packet) {
    if (lookahead_.empty()) return libav::api().av_read_frame(fmt_, packet);
    libav::api().av_packet_move_ref(packet, lookahead_.front().get());
    lookahead_.pop_front();
    return 0;
  }

  // The track's first sample, read ahead (at most 256 packets, those of other tracks in front of
  // it included) and kept for next(); null when there is none.
  const AVPacket* firstTrackSample() {
    for (const PacketPtr& p : lookahead_)
      if (p->stream_index == info_.track) return p.get();
    while (lookahead_.size() < 256) {
      PacketPtr packet(libav::api().av_packet_alloc());
      if (!packet || libav::api().av_read_frame(fmt_, packet.get()) < 0) return nullptr;
      lookahead_.push_back(std::move(packet));
      if (lookahead_.back()->stream_index == info_.track) return lookahead_.back().get();
    }
    return nullptr;
  }

  // The parameter sets of the track's first sample (Annex B), when it holds an SPS; else none.
  std::vector<Bytes> firstSampleParameterSets() {
    const bool hevc = info_.codec == StreamCodec::kHevc;
    const AVPacket* p = firstTrackSample();
    if (!p) return {};
    const Bytes sample(p->data, p->data + p->size);
    std::vector<Bytes> sets;
    bool sps = false;
    for (const auto& [u, size] : annexBSample(sample).units) {
      const int type = size == 0 ? -1 : hevc ? (u[0] >> 1) & 0x3F : u[0] & 0x1F;
      if (hevc ? type < 32 || type > 34 : type != 7 && type != 8) continue;
      sps = sps || type == (hevc ? 33 : 7);
      sets.emplace_back(u, u + size);
    }
    return sps ? sets : std::vector<Bytes>{};
  }

  // The HDR static metadata SEI of the track's first sample: what OUT's track is described with
  // where IN's track says nothing (an MPEG-TS has no place for it).
  void readLeadingHdr() {
    const AVPacket* p = info_.codec == StreamCodec::kH264 || info_.codec == StreamCodec::kHevc ? firstTrackSample() : nullptr;
    info_.leadingHdr = p ? leadingHdrOf(info_, p->data, size_t(p->size)) : KLX_HDR_METADATA{};
  }

  // The units of the packet in `au.bytes`.
  bool split(AccessUnit& au) {
    const Bytes& b = au.bytes;
    if (info_.framing == Framing::kLengthPrefixed) {
      const size_t prefix = static_cast<size_t>(info_.lengthSize);
      for (size_t at = 0; at < b.size();) {
        size_t length = 0;
        for (size_t i = 0; i < prefix && at + i < b.size(); ++i) length = length << 8 | b[at + i];
        if (b.size() - at < prefix || length > b.size() - at - prefix) {
          error_ = "video packet " + std::to_string(packets_) + ": a unit length runs past the sample";
          return false;
        }
        au.units.push_back(UnitSpan{uint32_t(at), uint32_t(prefix), uint32_t(length)});
        at += prefix + length;
      }
      return true;
    }
    size_t at = 0, next = 0;
    uint32_t length = 0, nextLength = 0;
    if (klxutilFindStartCode(b.data(), b.size(), 0, &at, &length) != 1) return true;
    for (;;) {
      const bool more = klxutilFindStartCode(b.data(), b.size(), at + length, &next, &nextLength) == 1;
      const size_t stop = more ? next : b.size();
      au.units.push_back(UnitSpan{uint32_t(at), length, uint32_t(stop - at - length)});
      if (!more) return true;
      at = next, length = nextLength;
    }
  }

  AVFormatContext* fmt_ = nullptr;
  AVIOContext* avio_ = nullptr;

 public:
  std::string signature_;  // the container its first bytes name, "" when they name none

 private:
  PipeSource pipe_{-1, {}, 0};
  bool moovAfterMediaOnPipe_ = false;
  KLXUTIL_AU_CUTTER cutter_{};
  uint64_t packets_ = 0;
  std::deque<PacketPtr> lookahead_;  // packets read ahead by firstTrackSample, for next()
};

// ---------------------------------------------------------------- opening

// Opens the file (or takes standard input) and reads its first bytes.
bool openAndSniff(const std::string& path, int& fd, Bytes& head, uint64_t& size, std::string& error) {
  if (path == "-") {
    fd = ::dup(STDIN_FILENO);
  } else {
    struct stat st{};
    if (::stat(path.c_str(), &st) != 0) {
      error = "cannot read " + path + ": " + std::strerror(errno);
      return false;
    }
    if (S_ISDIR(st.st_mode)) {
      error = path + " is a directory";
      return false;
    }
    size = S_ISREG(st.st_mode) ? static_cast<uint64_t>(st.st_size) : 0;
    fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  }
  if (fd < 0) {
    error = "cannot read " + path + ": " + std::strerror(errno);
    return false;
  }
  head.resize(kSniffBytes);
  size_t got = 0;
  while (got < head.size()) {
    const ssize_t n = ::read(fd, head.data() + got, head.size() - got);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      error = "cannot read " + path + ": " + std::strerror(errno);
      ::close(fd);
      return false;
    }
    if (n == 0) break;
    got += static_cast<size_t>(n);
  }
  head.resize(got);
  if (head.empty()) {
    error = (path == "-" ? std::string("standard input") : path) + " is empty";
    ::close(fd);
    return false;
  }
  return true;
}

}  // namespace

std::unique_ptr<Input> Input::open(const std::string& path, const OpenOptions& options, std::string& error) {
  int fd = -1;
  Bytes head;
  StreamInfo info;
  if (!openAndSniff(path, fd, head, info.size, error)) return nullptr;
  const std::string name = path == "-" ? "standard input" : path;
  const std::string signature = containerSignature(head);
  if (signature.empty()) {
    const Sample annexB = annexBSample(head);
    if (!annexB.units.empty() && annexB.units.front().first - head.data() <= 4) {
      info.codec = codecOf(annexB, true);
    }
    if (info.codec == StreamCodec::kUnknown) {
      info.codec = codecOf(lengthSample(head), false);
      if (info.codec != StreamCodec::kUnknown) info.framing = Framing::kLengthPrefixed;
    }
    if (info.codec != StreamCodec::kUnknown) {
      if (options.track > 0) {
        error = name + ": " + describe(info) + " has one track; --track " + std::to_string(options.track) + " does not exist";
        ::close(fd);
        return nullptr;
      }
      leadingParameterSets(info, info.framing == Framing::kAnnexB ? annexBSample(head, SIZE_MAX) : lengthSample(head, SIZE_MAX));
      info.leadingHdr = leadingHdrOf(info, head.data(), head.size());
      return std::make_unique<EsInput>(fd, std::move(head), info, path);
    }
    if (looksAdts(head)) {
      error = name + ": an ADTS (AAC audio) stream, no video: quorvane adts reads it";
      ::close(fd);
      return nullptr;
    }
  }
  if (std::string missing; !libav::load(missing)) {
    error = name + ": not an elementary stream, and " + missing;
    ::close(fd);
    return nullptr;
  }
  auto container = std::make_unique<ContainerInput>();
  container->signature_ = signature;
  if (!container->open(path, fd, std::move(head), info.size, options, error)) {
    error = name + ": " + error;
    return nullptr;
  }
  return container;
}

}  // namespace media
