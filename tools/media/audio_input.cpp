// See audio_input.h.
#include "audio_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>


#include "media/libav.h"

namespace media {

namespace {

bool adtsSync(const uint8_t* p, size_t n) { return n >= 2 && p[0] == 0xFF && (p[1] & 0xF6) == 0xF0; }

// A raw stream in chunks of whole ADTS frames (a chunk ends where a header says the frame ends;
// what follows is handed on as is, so the caller reports the first bad header at its offset).
class RawAdts : public AudioInput {
 public:
  explicit RawAdts(int fd) : fd_(fd) {}
  ~RawAdts() override { ::close(fd_); }
  bool next(std::vector<uint8_t>& bytes, uint64_t& offset) override {
    bytes.swap(carry_);
    carry_.clear();
    size_t got = bytes.size();
    bytes.resize(kChunk);
    bool end = false;
    while (got < bytes.size()) {
      const ssize_t n = ::read(fd_, bytes.data() + got, bytes.size() - got);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) error_ = std::string("read error: ") + std::strerror(errno);
      if (n <= 0) {
        end = true;
        break;
      }
      got += static_cast<size_t>(n);
    }
    bytes.resize(got);
    // Hand on whole frames; a frame cut by the chunk's end waits for the next chunk.
    size_t whole = 0;
    while (whole + 7 <= got && adtsSync(bytes.data() + whole, got - whole)) {
      const size_t length = (size_t(bytes[whole + 3] & 3) << 11) | (size_t(bytes[whole + 4]) << 3) | (bytes[whole + 5] >> 5);
      if (length < 7 || whole + length > got) break;
      whole += length;
    }
    if (!end && whole > 0 && whole < got) {
      carry_.assign(bytes.begin() + static_cast<long>(whole), bytes.end());
      bytes.resize(whole);
    }
    offset = position_;
    position_ += bytes.size();
    return !bytes.empty();
  }

 private:
  static constexpr size_t kChunk = size_t{1} << 20;
  int fd_;
  uint64_t position_ = 0;
  std::vector<uint8_t> carry_;
};

class ContainerAdts : public AudioInput {
 public:
  ~ContainerAdts() override { libav::api().avformat_close_input(&fmt_); }
  bool open(const std::string& path, int track, std::string& error) {
    if (libav::api().avformat_open_input(&fmt_, path.c_str(), nullptr, nullptr) < 0 || libav::api().avformat_find_stream_info(fmt_, nullptr) < 0) {
      error = "neither an ADTS stream nor a known container";
      return false;
    }
    const std::string name = fmt_->iformat->name;
    // A raw ADTS file libavformat had to open because its first bytes are no header (an ID3v2
    // tag, or a cut through a frame): its packets are pieces of the file, at their own places.
    rawFile_ = name == "aac";
    container_ = name.rfind("mov,mp4", 0) == 0 ? "MP4/MOV" : name.rfind("matroska", 0) == 0 ? "Matroska"
               : name == "mpegts" ? "MPEG-TS" : name == "mxf" ? "MXF" : fmt_->iformat->long_name ? fmt_->iformat->long_name : name;
    std::vector<int> aac;
    for (unsigned i = 0; i < fmt_->nb_streams; ++i)
      if (fmt_->streams[i]->codecpar->codec_id == AV_CODEC_ID_AAC) aac.push_back(static_cast<int>(i));
    if (track >= 0) {
      if (track >= static_cast<int>(fmt_->nb_streams) || fmt_->streams[track]->codecpar->codec_id != AV_CODEC_ID_AAC) {
        error = container_ + " track " + std::to_string(track) + " is not an AAC track";
        return false;
      }
      track_ = track;
    } else if (aac.size() != 1) {
      error = container_ + (aac.empty() ? " with no AAC track" : " with " + std::to_string(aac.size()) + " AAC tracks: choose one with --track");
      return false;
    } else {
      track_ = aac.front();
    }
    const AVCodecParameters* par = fmt_->streams[track_]->codecpar;
    if (par->extradata_size > 0) {  // raw AAC: the configuration is in the sample description
      std::string hex;
      char two[3];
      for (int i = 0; i < par->extradata_size; ++i) std::snprintf(two, sizeof two, "%02x", par->extradata[i]), hex += two;
      error = container_ + " track " + std::to_string(track_) + " holds AAC without ADTS headers (AudioSpecificConfig " +
              hex + "): ffmpeg -i IN -map 0:" + std::to_string(track_) + " -c copy -f adts OUT.aac makes an ADTS stream";
      return false;
    }
    return true;
  }
  bool next(std::vector<uint8_t>& bytes, uint64_t& offset) override {
    AVPacket* packet = libav::api().av_packet_alloc();
    bool got = false;
    while (!got && libav::api().av_read_frame(fmt_, packet) >= 0) {
      if (packet->stream_index == track_) {
        bytes.assign(packet->data, packet->data + packet->size);
        // In a container: the offset in the ADTS stream the track holds; in a raw file: the
        // file offset, past the bytes in front of the first header (not ADTS, never listed).
        offset = rawFile_ && packet->pos >= 0 ? static_cast<uint64_t>(packet->pos) : position_;
        position_ += bytes.size();
        got = true;
      }
      libav::api().av_packet_unref(packet);
    }
    libav::api().av_packet_free(&packet);
    return got;
  }

 private:
  AVFormatContext* fmt_ = nullptr;
  int track_ = -1;
  uint64_t position_ = 0;
  bool rawFile_ = false;
};

}  // namespace

std::unique_ptr<AudioInput> AudioInput::open(const std::string& path, int track, std::string& error) {
  const std::string name = path == "-" ? "standard input" : path;
  int fd = path == "-" ? ::dup(STDIN_FILENO) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat st{};
  if (fd < 0 || ::fstat(fd, &st) != 0) {
    error = "cannot read " + path + ": " + std::strerror(errno);
    if (fd >= 0) ::close(fd);
    return nullptr;
  }
  if (S_ISDIR(st.st_mode)) {
    error = path + " is a directory";
    ::close(fd);
    return nullptr;
  }
  uint8_t head[2] = {};
  const ssize_t n = ::pread(fd, head, sizeof head, 0);
  if (path == "-" || (n == 2 && adtsSync(head, 2))) {
    if (track > 0) {
      error = name + ": an ADTS stream has one track; --track " + std::to_string(track) + " does not exist";
      ::close(fd);
      return nullptr;
    }
    return std::make_unique<RawAdts>(fd);
  }
  ::close(fd);
  if (n == 0) {
    error = name + " is empty";
    return nullptr;
  }
  if (std::string missing; !libav::load(missing)) {
    error = name + ": not an ADTS stream, and " + missing;
    return nullptr;
  }
  auto container = std::make_unique<ContainerAdts>();
  if (!container->open(path, track, error)) {
    error = name + ": " + error;
    return nullptr;
  }
  return container;
}

}  // namespace media
