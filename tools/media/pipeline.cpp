// See pipeline.h.
#include "pipeline.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>

#include "cli.h"
#include "media/command_input.h"
#include "media/config_record.h"
#include "media/output.h"
#include "param_report.h"
#include "streamutil/framing.h"

#include "media/libav.h"

namespace media {

namespace {

std::string extensionOf(const std::string& path) {
  const size_t slash = path.find_last_of('/'), dot = path.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
  std::string ext = path.substr(dot + 1);
  for (auto& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return ext;
}

struct ContainerKind {
  const char* extension;
  const char* muxer;
  const char* name;
};
// Output containers by extension; the names are those Input gives the input containers.
constexpr ContainerKind kContainers[] = {
    {"mp4", "mp4", "MP4"},      {"m4v", "mp4", "MP4"},           {"mov", "mov", "MOV"},
    {"mkv", "matroska", "Matroska"}, {"webm", "webm", "Matroska"}, {"ts", "mpegts", "MPEG-TS"},
    {"m2ts", "mpegts", "MPEG-TS"}, {"mts", "mpegts", "MPEG-TS"}, {"mxf", "mxf", "MXF"},
};
constexpr const char* kRawExtensions[] = {"h264", "264", "avc", "h265", "265", "hevc", "m2v", "mpv", "es", "bin", "len", "annexb"};

const ContainerKind* containerByExtension(const std::string& ext) {
  for (const auto& k : kContainers)
    if (ext == k.extension) return &k;
  return nullptr;
}
const ContainerKind* containerByName(const std::string& name) {
  for (const auto& k : kContainers)
    if (name == k.name) return &k;
  return nullptr;
}
bool rawExtension(const std::string& ext) {
  return std::find_if(std::begin(kRawExtensions), std::end(kRawExtensions), [&](const char* e) { return ext == e; }) !=
         std::end(kRawExtensions);
}

AVCodecID codecId(StreamCodec codec) {
  return codec == StreamCodec::kHevc ? AV_CODEC_ID_HEVC : codec == StreamCodec::kH264 ? AV_CODEC_ID_H264 : AV_CODEC_ID_MPEG2VIDEO;
}
const char* codecTitle(StreamCodec codec) {
  return codec == StreamCodec::kHevc ? "HEVC" : codec == StreamCodec::kH264 ? "H.264" : "MPEG-2";
}

// Units in one framing, concatenated (parameter sets put in front of the first frame).
Bytes framed(const std::vector<Bytes>& units, Framing framing) {
  Bytes out;
  for (const auto& u : units) {
    const size_t n = u.size();
    if (framing == Framing::kAnnexB)
      out.insert(out.end(), {0, 0, 0, 1});
    else
      out.insert(out.end(), {uint8_t(n >> 24), uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n)});
    out.insert(out.end(), u.begin(), u.end());
  }
  return out;
}

// The colour fields of an SPS's VUI (ITU-T H.265 E.2.1, H.264 E.1.1), as the track description
// carries them: FFmpeg's colour enums are the ITU-T H.273 code points, its chroma locations those
// of chroma_sample_loc_type plus one.
template <typename Vui>
void describeColour(bool vuiPresent, const Vui& vui, int matrix, AVCodecParameters* par) {
  const bool signal = vuiPresent && vui.video_signal_type_present_flag;
  const bool colour = signal && vui.colour_description_present_flag;
  par->color_primaries = colour ? AVColorPrimaries(vui.colour_primaries) : AVCOL_PRI_UNSPECIFIED;
  par->color_trc = colour ? AVColorTransferCharacteristic(vui.transfer_characteristics) : AVCOL_TRC_UNSPECIFIED;
  par->color_space = colour ? AVColorSpace(matrix) : AVCOL_SPC_UNSPECIFIED;
  par->color_range = !signal ? AVCOL_RANGE_UNSPECIFIED : vui.video_full_range_flag ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
  par->chroma_location = vuiPresent && vui.chroma_loc_info_present_flag
                             ? AVChromaLocation(vui.chroma_sample_loc_type_top_field + 1)
                             : AVCHROMA_LOC_UNSPECIFIED;
}

// The track description of a container OUT follows the stream's first SPS among `sets`, so that
// the container's own colour description (MP4/MOV colr, Matroska Colour) does not contradict
// an SPS that an editor rewrote. False when there is no readable SPS (the description stays).
bool describeFromSps(StreamCodec codec, const std::vector<Bytes>& sets, AVCodecParameters* par) {
  params::StreamParams p;
  p.codec = codec;
  for (const auto& u : sets) params::addUnit(p, u.data(), u.size());
  params::Decoded d;
  if (p.sps.empty() || !params::decodeUnit(codec, "SPS", p.sps.front(), d)) return false;
  if (codec == StreamCodec::kHevc)
    describeColour(d.hevcSps->vui_parameters_present_flag != 0, d.hevcSps->vui, d.hevcSps->vui.matrix_coeffs, par);
  else
    describeColour(d.avcSps->vui_parameters_present_flag != 0, d.avcSps->vui, d.avcSps->vui.matrix_coefficients, par);
  return true;
}

// SMPTE ST 2086 values as the SEI message holds them (chromaticities in 0.00002, luminance in
// 0.0001 cd/m2), as FFmpeg's track side data holds them (rationals; primaries in red, green,
// blue order where the message has green, blue, red).
AVMasteringDisplayMetadata masteringSideData(const KLX_MASTERING_DISPLAY& md) {
  auto ratio = [](uint32_t value, int unitsPerOne) {
    for (; value > INT32_MAX; value /= 10) unitsPerOne /= 10;  // at most once for 32 bits
    return AVRational{static_cast<int>(value), unitsPerOne};
  };
  constexpr int kMessageIndex[3] = {2, 0, 1};  // of red, green, blue
  AVMasteringDisplayMetadata m{};
  for (int c = 0; c < 3; ++c) {
    m.display_primaries[c][0] = ratio(md.display_primaries_x[kMessageIndex[c]], 50000);
    m.display_primaries[c][1] = ratio(md.display_primaries_y[kMessageIndex[c]], 50000);
  }
  m.white_point[0] = ratio(md.white_point_x, 50000);
  m.white_point[1] = ratio(md.white_point_y, 50000);
  m.max_luminance = ratio(md.max_display_mastering_luminance, 10000);
  m.min_luminance = ratio(md.min_display_mastering_luminance, 10000);
  m.has_primaries = m.has_luminance = 1;
  return m;
}

template <typename T>
Bytes bytesOf(const T& value) {
  const auto* p = reinterpret_cast<const uint8_t*>(&value);
  return Bytes(p, p + sizeof value);
}

// Where the HDR static metadata of OUT's video track comes from: what the editor sets wins;
// else, unless it removes it, IN's track value; else the first access unit's SEI (`stream`: all an
// elementary stream or an MPEG-TS has to describe it).
struct VideoHdr {
  const ContainerHdr& edit;
  const KLX_HDR_METADATA& stream;
};

struct HdrKind {
  uint32_t bit;
  AVPacketSideDataType type;
};
constexpr HdrKind kHdrKinds[] = {{KLX_HDR_HAS_MASTERING_DISPLAY, AV_PKT_DATA_MASTERING_DISPLAY_METADATA},
                                 {KLX_HDR_HAS_CONTENT_LIGHT_LEVEL, AV_PKT_DATA_CONTENT_LIGHT_LEVEL}};

bool isHdrKind(AVPacketSideDataType type) {
  return std::any_of(std::begin(kHdrKinds), std::end(kHdrKinds), [&](const HdrKind& k) { return k.type == type; });
}

// One HDR kind of a record as side data.
Bytes hdrSideData(const HdrKind& kind, const KLX_HDR_METADATA& md) {
  const KLX_CONTENT_LIGHT_LEVEL& cll = md.contentLightLevel;
  return kind.type == AV_PKT_DATA_CONTENT_LIGHT_LEVEL
             ? bytesOf(AVContentLightMetadata{cll.max_content_light_level, cll.max_pic_average_light_level})
             : bytesOf(masteringSideData(md.masteringDisplay));
}

bool addSideData(AVStream* out, AVPacketSideDataType type, const uint8_t* data, size_t size) {
  if (size == 0) return true;
  uint8_t* to = libav::api().av_stream_new_side_data(out, type, size);
  if (!to) return false;
  std::memcpy(to, data, size);
  return true;
}

// Every side data element of IN's track `in` (display matrix, stereo 3D, spherical mapping, HDR
// static metadata, whatever a demuxer finds) onto OUT's track `out`, as a stream copy keeps them;
// a muxer writes those it has a place for. `hdr` (the video track only) decides the HDR kinds.
// `in` is null for an elementary stream. False when side data cannot be allocated.
bool carrySideData(const AVStream* in, const VideoHdr* hdr, AVStream* out) {
  for (int i = 0; in && i < in->nb_side_data; ++i) {
    const AVPacketSideData& element = in->side_data[i];
    if (hdr && isHdrKind(element.type)) continue;  // below
    if (!addSideData(out, element.type, element.data, element.size)) return false;
  }
  if (!hdr) return true;
  for (const HdrKind& kind : kHdrKinds) {
    size_t size = 0;
    const uint8_t* track = in ? libav::api().av_stream_get_side_data(in, kind.type, &size) : nullptr;
    Bytes data;
    if (hdr->edit.set.present & kind.bit)
      data = hdrSideData(kind, hdr->edit.set);
    else if (hdr->edit.remove & kind.bit)
      continue;
    else if (track)
      data.assign(track, track + size);
    else if (hdr->stream.present & kind.bit)
      data = hdrSideData(kind, hdr->stream);
    if (!addSideData(out, kind.type, data.data(), data.size())) return false;
  }
  return true;
}

// Where the edited frames go.
class Sink {
 public:
  virtual ~Sink() = default;
  // `original`: the container packet the frame came from (timing, flags); null for an
  // elementary input, whose place in decode and display order is in `frame`.
  virtual bool write(const PipelineFrame& frame, const AVPacket* original, std::string& error) = 0;
  virtual bool finish(std::string& error) = 0;
  uint64_t outBytes = 0;  // of the video track, as the input's count is
};

class EsSink : public Sink {
 public:
  EsSink(OutputFile& file, Framing framing, Bytes prologue) : file_(file), framing_(framing), prologue_(std::move(prologue)) {}
  bool write(const PipelineFrame& pf, const AVPacket*, std::string& error) override {
    const DFRAME& f = *pf.frame;
    const Framing framing = pf.framing;
    uint32_t size = f.nDataSize;
    if (framing != framing_) {
      if (framing_ == Framing::kAnnexB) {
        size = klxUtilh264SizeToMarker(f.pData, size);
      } else if (klxUtilh264MarkerToSizeChecked(f.pData, size, f.nBufferSize, &size) != 0) {
        error = "a frame has no room for its length fields";
        return false;
      }
    }
    if (!prologue_.empty()) {
      if (!put(prologue_.data(), prologue_.size(), error)) return false;
      prologue_.clear();
    }
    return put(f.pData, size, error);
  }
  bool finish(std::string&) override { return true; }

 private:
  bool put(const uint8_t* data, size_t n, std::string& error) {
    outBytes += n;
    if (file_.write(data, n)) return true;
    error = std::string("cannot write the output: ") + std::strerror(errno);
    return false;
  }
  OutputFile& file_;
  Framing framing_;
  Bytes prologue_;
};

class ContainerSink : public Sink {
 public:
  ~ContainerSink() override {
    for (AVPacket*& p : undated_) libav::api().av_packet_free(&p);
    if (out_ && out_->pb) libav::api().avio_closep(&out_->pb);
    libav::api().avformat_free_context(out_);
  }

  // Sets up the muxer, its streams and its header. False with `error` before anything is written.
  bool open(Input& input, const ContainerKind& kind, const std::string& path, const std::vector<Bytes>& sets,
            bool setsReplaced, const std::string& timecode, const ContainerHdr& hdr, std::string& error) {
    in_ = input.format();
    video_ = input.info().track;
    const StreamCodec codec = input.info().codec;
    if (libav::api().avformat_alloc_output_context2(&out_, nullptr, kind.muxer, nullptr) < 0 || !out_) {
      error = std::string("no ") + kind.name + " writer in this libavformat";
      return false;
    }
    if (libav::api().avformat_query_codec(out_->oformat, codecId(codec), FF_COMPLIANCE_NORMAL) == 0 ||
        (std::strcmp(kind.muxer, "mxf") == 0 && codec == StreamCodec::kHevc)) {
      error = std::string(kind.name) + " cannot carry " + codecTitle(codec) + " video: write OUT as .mp4, .mov, .mkv or .ts";
      return false;
    }
    map_.assign(in_->nb_streams, -1);
    for (unsigned i = 0; i < in_->nb_streams; ++i) {
      const AVStream* ist = in_->streams[i];
      if (static_cast<int>(i) != video_ &&
          libav::api().avformat_query_codec(out_->oformat, ist->codecpar->codec_id, FF_COMPLIANCE_NORMAL) == 0)
        continue;  // a track this container cannot hold at all
      AVStream* ost = libav::api().avformat_new_stream(out_, nullptr);
      if (!ost || libav::api().avcodec_parameters_copy(ost->codecpar, ist->codecpar) < 0) {
        error = "cannot set up the output tracks";
        return false;
      }
      if (containerByName(input.info().container) != &kind) ost->codecpar->codec_tag = 0;
      ost->time_base = ist->time_base;
      // MXF edit units are frames: its video clock must be the frame rate.
      if (!std::strcmp(kind.muxer, "mxf") && static_cast<int>(i) == video_ && ist->avg_frame_rate.num)
        ost->time_base = av_inv_q(ist->avg_frame_rate);
      ost->avg_frame_rate = ist->avg_frame_rate;
      ost->r_frame_rate = ist->r_frame_rate;
      ost->disposition = ist->disposition;
      libav::api().av_dict_copy(&ost->metadata, ist->metadata, 0);
      const VideoHdr videoHdr{hdr, input.info().leadingHdr};
      if (!carrySideData(ist, static_cast<int>(i) == video_ ? &videoHdr : nullptr, ost)) {
        error = "cannot describe the output tracks (side data)";
        return false;
      }
      map_[i] = ost->index;
    }
    // Into another kind of container the timeline starts at 0, as ffmpeg -c copy has it: an MPEG-TS
    // clock that starts at 1.4 s would otherwise become an MP4 that shows nothing for 1.4 s.
    if (containerByName(input.info().container) != &kind && in_->start_time != AV_NOPTS_VALUE && in_->start_time > 0)
      startShift_ = in_->start_time;
    if (setsReplaced && !replaceExtradata(input.info(), sets, out_->streams[map_[video_]]->codecpar, error)) return false;
    if (setsReplaced) describeFromSps(codec, sets, out_->streams[map_[video_]]->codecpar);
    // The input is described by other parameter sets than its extradata's (libavformat made them
    // up while the stream carries its own): those are passed on.
    const AVCodecParameters* inPar = in_->streams[video_]->codecpar;
    const Bytes& described = input.info().extradata;
    if (!setsReplaced && Bytes(inPar->extradata, inPar->extradata + inPar->extradata_size) != described &&
        !replaceExtradata(input.info(), input.info().parameterSets, out_->streams[map_[video_]]->codecpar, error))
      return false;
    libav::api().av_dict_copy(&out_->metadata, in_->metadata, 0);
    if (!timecode.empty())
      for (AVDictionary** tags : {&out_->metadata, &out_->streams[map_[video_]]->metadata})
        if (libav::api().av_dict_get(*tags, "timecode", nullptr, 0)) libav::api().av_dict_set(tags, "timecode", timecode.c_str(), 0);
    return openFile(kind, path, codec, error);
  }

  // An elementary stream into a container: one video track described from its parameter sets;
  // the packets get timestamps on a clock of one tick per frame (display order for pts, decode
  // order less the reorder depth for dts).
  bool openElementary(const StreamInfo& info, const ContainerKind& kind, const std::string& path,
                      const std::vector<Bytes>& sets, const ContainerHdr& hdr, std::string& error) {
    const auto& av = libav::api();
    if (av.avformat_alloc_output_context2(&out_, nullptr, kind.muxer, nullptr) < 0 || !out_) {
      error = std::string("no ") + kind.name + " writer in this libavformat";
      return false;
    }
    if (av.avformat_query_codec(out_->oformat, codecId(info.codec), FF_COMPLIANCE_NORMAL) == 0 ||
        (std::strcmp(kind.muxer, "mxf") == 0 && info.codec == StreamCodec::kHevc)) {
      error = std::string(kind.name) + " cannot carry " + codecTitle(info.codec) + " video: write OUT as .mp4, .mov, .mkv or .ts";
      return false;
    }
    params::StreamParams p;
    p.codec = info.codec;
    for (const auto& u : sets) params::addUnit(p, u.data(), u.size());
    params::Decoded d;
    if (p.sps.empty() || !params::decodeUnit(info.codec, "SPS", p.sps.front(), d)) {
      error = "no readable sequence parameter set in the first megabyte: the container needs one";
      return false;
    }
    const params::Summary summary = info.codec == StreamCodec::kHevc ? params::summarize(*d.hevcSps, nullptr) : params::summarize(*d.avcSps);
    reorder_ = KLXUTIL_REORDER_WINDOW;
    if (info.codec == StreamCodec::kHevc)
      reorder_ = d.hevcSps->sps_max_num_reorder_pics[std::clamp(d.hevcSps->sps_max_sub_layers_minus1, 0, 7)];
    else if (d.avcSps->vui_parameters_present_flag && d.avcSps->vui.bitstream_restriction_flag)
      reorder_ = d.avcSps->vui.max_num_reorder_frames;
    reorder_ = std::clamp<int64_t>(reorder_, 0, KLXUTIL_REORDER_WINDOW);
    AVStream* st = av.avformat_new_stream(out_, nullptr);
    if (!st) {
      error = "cannot set up the output track";
      return false;
    }
    st->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
    st->codecpar->codec_id = codecId(info.codec);
    st->codecpar->width = summary.width;
    st->codecpar->height = summary.height;
    describeFromSps(info.codec, sets, st->codecpar);
    const VideoHdr videoHdr{hdr, info.leadingHdr};
    if (!carrySideData(nullptr, &videoHdr, st)) {
      error = "cannot describe the output track's HDR metadata";
      return false;
    }
    const AVRational rate = summary.rate && summary.scale ? AVRational{int(summary.rate), int(summary.scale)} : AVRational{25, 1};
    st->time_base = AVRational{rate.den, rate.num};
    st->avg_frame_rate = st->r_frame_rate = rate;
    const Bytes extradata = framed(sets, Framing::kAnnexB);
    st->codecpar->extradata = static_cast<uint8_t*>(av.av_mallocz(extradata.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    std::memcpy(st->codecpar->extradata, extradata.data(), extradata.size());
    st->codecpar->extradata_size = static_cast<int>(extradata.size());
    video_ = 0;
    map_.assign(1, 0);
    frameClock_ = st->time_base;
    return openFile(kind, path, info.codec, error);
  }

  // The timestamps of an elementary stream's frame (no packet to copy them from).
  void stamp(AVPacket* packet, uint64_t decodeIndex, uint64_t displayIndex, bool randomAccess) const {
    packet->dts = static_cast<int64_t>(decodeIndex) - reorder_;
    packet->pts = displayIndex == kNoDisplayIndex ? packet->dts + reorder_ : static_cast<int64_t>(displayIndex);
    if (packet->pts < packet->dts) packet->pts = packet->dts;
    packet->duration = 1;
    if (randomAccess) packet->flags |= AV_PKT_FLAG_KEY;
  }
  bool elementary() const { return frameClock_.num != 0; }

  // Moves a packet of the input's clock (time base `tb`) by the start shift.
  void shiftStart(AVPacket* packet, AVRational tb) const {
    if (!startShift_) return;
    const int64_t by = libav::api().av_rescale_q(startShift_, AVRational{1, AV_TIME_BASE}, tb);
    if (packet->pts != AV_NOPTS_VALUE) packet->pts -= by;
    if (packet->dts != AV_NOPTS_VALUE) packet->dts -= by;
  }

  static void other(void* user, AVPacket* packet) {
    auto* self = static_cast<ContainerSink*>(user);
    const int to = self->map_[packet->stream_index];
    if (to < 0 || !self->error_.empty()) return;
    self->shiftStart(packet, self->in_->streams[packet->stream_index]->time_base);
    libav::api().av_packet_rescale_ts(packet, self->in_->streams[packet->stream_index]->time_base, self->out_->streams[to]->time_base);
    packet->stream_index = to;
    packet->pos = -1;
    if (const int rc = libav::api().av_interleaved_write_frame(self->out_, packet); rc < 0)
      self->error_ = "cannot write a packet of track " + std::to_string(to) + ": " + libav::errorText(rc);
  }

  bool write(const PipelineFrame& pf, const AVPacket* original, std::string& error) override {
    if (!error_.empty()) {
      error = error_;
      return false;
    }
    DFRAME& f = *pf.frame;
    if (!original && pf.framing == Framing::kLengthPrefixed) f.nDataSize = klxUtilh264SizeToMarker(f.pData, f.nDataSize);
    AVPacket* packet = libav::api().av_packet_alloc();
    bool ok = packet && libav::api().av_new_packet(packet, static_cast<int>(f.nDataSize)) == 0;
    if (ok) {
      std::memcpy(packet->data, f.pData, f.nDataSize);
      const int to = map_[video_];
      if (original) {
        libav::api().av_packet_copy_props(packet, original);
        shiftStart(packet, in_->streams[video_]->time_base);
        libav::api().av_packet_rescale_ts(packet, in_->streams[video_]->time_base, out_->streams[to]->time_base);
      } else {
        stamp(packet, pf.decodeIndex, pf.displayIndex, pf.randomAccess);
        libav::api().av_packet_rescale_ts(packet, frameClock_, out_->streams[to]->time_base);
      }
      packet->stream_index = to;
      packet->pos = -1;
      outBytes += f.nDataSize;
      if (packet->dts == AV_NOPTS_VALUE && packet->pts != AV_NOPTS_VALUE) {
        // A Matroska track cut in front of its keyframe: libavformat gives the leading packets
        // no dts. They wait for the first packet that has one, which bounds theirs.
        undated_.push_back(packet);
        ++packets_;
        return true;
      }
      ok = writeUndated(packet->dts, error) && writeVideo(packet, error);
    } else {
      error = "out of memory";
    }
    ++packets_;
    libav::api().av_packet_free(&packet);
    return ok;
  }

  bool finish(std::string& error) override {
    if (error_.empty() && !undated_.empty()) {
      int64_t first = undated_.front()->pts;
      for (const AVPacket* p : undated_) first = std::min(first, p->pts);
      if (!writeUndated(first, error)) return false;
    }
    if (!error_.empty() || libav::api().av_write_trailer(out_) < 0 || libav::api().avio_closep(&out_->pb) < 0) {
      error = error_.empty() ? "cannot finish the output" : error_;
      return false;
    }
    return true;
  }

 private:
  bool openFile(const ContainerKind& kind, const std::string& path, StreamCodec codec, std::string& error) {
    if (libav::api().avio_open(&out_->pb, path.c_str(), AVIO_FLAG_WRITE) < 0) {
      error = "cannot write " + path;
      return false;
    }
    if (libav::api().avformat_write_header(out_, nullptr) < 0) {
      // The writer does not say which track it refused: with other tracks beside the video, all
      // are named (MXF takes neither MP2 audio nor 44.1 kHz, for one).
      const std::string what = out_->nb_streams > 1 ? "these tracks (" + trackNames() + ")"
                                                    : "this " + std::string(codecTitle(codec)) + " track";
      error = std::string(kind.name) + " cannot carry " + what + ": write OUT as .mp4, .mkv or .ts";
      return false;
    }
    return true;
  }

  // "mpeg2video, mp2 44100 Hz": the output's tracks as the refusal names them.
  std::string trackNames() const {
    std::string names;
    for (unsigned i = 0; i < out_->nb_streams; ++i) {
      const AVCodecParameters* par = out_->streams[i]->codecpar;
      names += (i ? ", " : "") + std::string(libav::api().avcodec_get_name(par->codec_id));
      if (par->codec_type == AVMEDIA_TYPE_AUDIO && par->sample_rate > 0) names += " " + std::to_string(par->sample_rate) + " Hz";
    }
    return names;
  }

  static bool replaceExtradata(const StreamInfo& info, const std::vector<Bytes>& sets, AVCodecParameters* par,
                               std::string& error) {
    Bytes record;
    if (info.configRecord)
      record = info.codec == StreamCodec::kHevc ? rewriteHvcC(info.extradata, sets) : rewriteAvcC(info.extradata, sets);
    else
      record = framed(sets, Framing::kAnnexB);
    if (record.empty() && !sets.empty()) {
      error = "cannot rebuild the decoder configuration record";
      return false;
    }
    libav::api().av_freep(&par->extradata);
    par->extradata_size = 0;
    if (record.empty()) return true;
    par->extradata = static_cast<uint8_t*>(libav::api().av_mallocz(record.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    std::memcpy(par->extradata, record.data(), record.size());
    par->extradata_size = static_cast<int>(record.size());
    return true;
  }

  // Writes a video packet whose dts is not below its pts. A dts that does not rise (libavformat's
  // guess for the packets of a Matroska track behind a cut, where B-frames lost their
  // references) is moved one tick past the last one while that stays at or below the pts.
  bool writeVideo(AVPacket* packet, std::string& error) {
    if (lastDts_ != AV_NOPTS_VALUE && packet->dts != AV_NOPTS_VALUE && packet->dts <= lastDts_ &&
        (packet->pts == AV_NOPTS_VALUE || lastDts_ < packet->pts))
      packet->dts = lastDts_ + 1;
    if (packet->dts != AV_NOPTS_VALUE) lastDts_ = packet->dts;
    const int rc = libav::api().av_interleaved_write_frame(out_, packet);
    if (rc < 0) error = "cannot write video packet " + std::to_string(packets_) + ": " + libav::errorText(rc);
    return rc >= 0;
  }

  // Gives the packets that came without a dts one in front of `next` (the first dts read after
  // them, or their earliest pts at the end), a frame apart and never above their pts, so the
  // decode clock rises as the muxer requires; then writes them.
  bool writeUndated(int64_t next, std::string& error) {
    if (undated_.empty()) return true;
    const AVStream* st = out_->streams[map_[video_]];
    const int64_t frame = st->avg_frame_rate.num > 0 ? std::max<int64_t>(1, libav::api().av_rescale_q(1, av_inv_q(st->avg_frame_rate), st->time_base)) : 1;
    for (size_t i = undated_.size(); i-- > 0;) {
      AVPacket* p = undated_[i];
      next = std::min(next - (p->duration > 0 ? p->duration : frame), p->pts);
      p->dts = next;
    }
    bool ok = true;
    for (AVPacket*& p : undated_) {
      if (ok) ok = writeVideo(p, error);
      libav::api().av_packet_free(&p);
    }
    undated_.clear();
    return ok;
  }

  AVFormatContext* in_ = nullptr;
  AVFormatContext* out_ = nullptr;
  int video_ = -1;
  uint64_t packets_ = 0;
  int64_t reorder_ = 0;
  AVRational frameClock_{0, 1};  // elementary input: one tick per frame
  int64_t startShift_ = 0;       // AV_TIME_BASE units taken off every input timestamp
  std::vector<int> map_;
  std::vector<AVPacket*> undated_;  // video packets waiting for a dts (owned)
  int64_t lastDts_ = AV_NOPTS_VALUE;  // of the last video packet written
  std::string error_;
};

// Access units wait here until their display index is known.
struct Waiting {
  AccessUnit au;
  uint64_t displayIndex = kNoDisplayIndex;
  uint64_t displayField = kNoDisplayIndex;
  bool placed = false;
};

}  // namespace

bool runPipeline(Input& input, const std::string& outPath, FrameEditor& editor, const PipelineOptions& options,
                 PipelineResult& result, std::string& error) {
  const StreamInfo& info = input.info();
  if (refuseSameFile(input.path(), outPath, error) || refuseExisting(outPath, options.force, error)) return false;
  const std::string ext = outPath == "-" ? "" : extensionOf(outPath);
  const ContainerKind* kind = nullptr;
  if (!info.elementary && !rawExtension(ext)) {
    kind = containerByExtension(ext);
    if (!kind) kind = containerByName(info.container);
    if (options.esFramingGiven) {
      error = "--to chooses the framing of an elementary-stream OUT; " + std::string(kind ? kind->name : info.container) +
              " OUT keeps the container's framing";
      return false;
    }
    if (!kind) {
      error = "cannot write " + info.container + ": name OUT .mp4, .mov, .mkv, .ts or .mxf";
      return false;
    }
    if (outPath == "-" && std::strcmp(kind->muxer, "mpegts") && std::strcmp(kind->muxer, "matroska")) {
      error = std::string(kind->name) + " cannot be written to standard output (elementary streams, MPEG-TS and Matroska can): give OUT a file name";
      return false;
    }
  } else if (info.elementary && containerByExtension(ext)) {
    kind = containerByExtension(ext);
    if (options.esFramingGiven) {
      error = std::string("--to chooses the framing of an elementary-stream OUT; ") + kind->name + " OUT keeps the container's framing";
      return false;
    }
    if (info.codec == StreamCodec::kMpeg2 || !std::strcmp(kind->muxer, "mxf")) {
      error = std::string("elementary streams of this kind go into ") + kind->name + " with ffmpeg -i IN -c copy OUT";
      return false;
    }
    if (std::string missing; !libav::load(missing)) {
      error = "writing " + std::string(kind->name) + ": " + missing;
      return false;
    }
  }
  const Framing esFraming = options.esFramingGiven ? options.esFraming : info.elementary ? info.framing : Framing::kAnnexB;
  if (info.framing == Framing::kLengthPrefixed && info.lengthSize != 4) {
    error = "length fields of " + std::to_string(info.lengthSize) + " bytes are not supported (4 are)";
    return false;
  }

  PipelineStream stream;
  stream.codec = info.codec;
  stream.elementary = info.elementary;
  stream.container = info.container;
  stream.outContainer = kind ? kind->name : "";
  stream.framing = info.framing;
  stream.configRecord = info.configRecord;
  stream.leadingParameterSets = info.leadingParameterSets;
  stream.frameRateNum = info.frameRateNum;
  stream.frameRateDen = info.frameRateDen;
  std::vector<Bytes> sets = info.parameterSets;
  if (!editor.begin(stream, sets, error)) return false;
  const bool setsReplaced = sets != info.parameterSets;

  OutputFile file(outPath);
  if (!file.ok()) {
    error = "cannot create " + outPath + ": " + std::strerror(errno);
    return false;
  }
  std::unique_ptr<Sink> sink;
  if (kind) {
    auto container = std::make_unique<ContainerSink>();
    const std::string target = outPath == "-" ? "pipe:1" : file.temporaryPath();
    if (info.elementary) {
      if (!container->openElementary(info, *kind, target, setsReplaced ? sets : info.leadingParameterSets, editor.containerHdr(), error))
        return false;
    } else {
      if (!container->open(input, *kind, target, sets, setsReplaced, editor.containerTimecode(), editor.containerHdr(), error))
        return false;
      input.setOtherPackets(&ContainerSink::other, container.get());
    }
    sink = std::move(container);
    result.outKind = kind->name;
  } else {
    // Parameter sets that travelled in the extradata lead the elementary stream.
    sink = std::make_unique<EsSink>(file, esFraming, info.configRecord ? framed(sets, esFraming) : Bytes{});
    result.outKind = std::string(codecName(info.codec)) + " elementary stream";
  }
  result.toStdout = outPath == "-";

  KLXUTIL_DISPLAY_ORDER order;
  klxutilDisplayOrderInit(&order);
  std::deque<Waiting> queue;
  Bytes buffer;
  auto place = [&](int32_t flush) {
    uint64_t decode = 0, display = 0, field = 0;
    while (klxutilDisplayOrderNextField(&order, flush, &decode, &display, &field) == 1)
      for (auto& w : queue)
        if (w.au.picture.decodeIndex == decode && w.au.picture.hasPicture) {
          w.displayIndex = display, w.displayField = field;
          w.placed = true;
        }
  };
  auto drain = [&]() -> bool {
    while (!queue.empty() && queue.front().placed) {
      Waiting& w = queue.front();
      const AccessUnit& au = w.au;
      const size_t room = au.bytes.size() + 4096 + au.bytes.size() / 3;
      if (room > UINT32_MAX) {
        error = "an access unit larger than 3 GB";
        return false;
      }
      // The buffer only grows: clearing the room behind every access unit would cost a pass
      // over memory as long as the frame, and the editors write that room before reading it.
      if (buffer.size() < room) buffer.resize(room);
      std::memcpy(buffer.data(), au.bytes.data(), au.bytes.size());
      DFRAME frame;
      klxutilInitFrame(&frame, buffer.data(), static_cast<uint32_t>(au.bytes.size()), static_cast<uint32_t>(room));
      frame.nFrame = static_cast<uint32_t>(result.accessUnits);
      // A picture no decoder outputs has no display position: the editors pass it as it is.
      PipelineFrame pf{&frame, info.framing, info.codec, result.accessUnits, w.displayIndex, w.displayField,
                       au.picture.hasPicture != 0 && !au.picture.notOutput, au.picture.fieldPicture, au.picture.randomAccess != 0,
                       au.picture.spsId, &au.units};
      if (!editor.edit(pf, error)) return false;
      if (frame.nDataSize > frame.nBufferSize) {
        error = "the editor overran a frame";
        return false;
      }
      if (!sink->write(pf, au.packet.get(), error)) return false;
      ++result.accessUnits;
      result.pictures += au.picture.hasPicture && !au.picture.notOutput ? 1 : 0;
      result.inBytes += au.bytes.size();
      queue.pop_front();
    }
    return true;
  };

  InputProgress progress(options.label, input);
  for (;;) {
    Waiting w;
    if (!input.next(w.au)) break;
    progress.tick();
    if (w.au.picture.hasPicture && w.au.orderKnown && !w.au.picture.notOutput) {
      klxutilDisplayOrderAddFields(&order, w.au.picture.decodeIndex, w.au.picture.sequence, w.au.picture.poc,
                                   klxutilAuPictureFields(&w.au.picture));
    } else {
      w.placed = true;  // no picture, or its order cannot be read: no display index
    }
    queue.push_back(std::move(w));
    place(0);
    if (!drain()) return false;
  }
  if (!input.error().empty()) {
    error = input.error();
    return false;
  }
  place(1);
  if (!drain()) return false;
  progress.done();
  if (result.accessUnits == 0) {
    error = "no access units found";
    return false;
  }
  if (!sink->finish(error)) return false;
  if (!file.commit()) {
    error = "cannot write " + outPath + ": " + std::strerror(errno);
    return false;
  }
  result.outBytes = sink->outBytes;
  return true;
}

}  // namespace media
