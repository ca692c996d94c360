// See caption_extract.h.
#include "caption_extract.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>

#include "platform/tcxlat.h"
#include "stamp_plan.h"
#include "streamutil/avc_sps_set.h"
#include "streamutil/cea608.h"
#include "streamutil/hevc_params.h"
#include "streamutil/mpeg2_edit.h"
#include "streamutil/mpeg2_pictures.h"
#include "streamutil/sei_read.h"

namespace captions {

namespace {

// Timecode counting for a stream rate (the nearest of the timecode types).
uint32_t timecodeTypeFor(double fps, bool dropFrame) {
  if (fps > 55) return dropFrame || std::fabs(fps - 59.94) < 0.03 ? TC_DF5994 : TC_60;
  if (fps > 45) return TC_50;
  if (fps > 27) return dropFrame || std::fabs(fps - 29.97) < 0.02 ? TC_DF2997 : TC_NDF30;
  if (fps > 24.5) return TC_PAL;
  return std::fabs(fps - 23.976) < 0.01 ? TC_2398 : TC_FILM;
}

std::string timecodeText(uint32_t frames, uint32_t tcType) {
  char text[32] = {};
  tc2String(frames, tcType | TCF_FULL_TEXT, text, sizeof text);
  return text;
}

std::string srtTime(uint32_t frame, double rate) {
  const uint64_t ms = uint64_t(std::llround(frame * 1000.0 / rate));
  char text[32];
  std::snprintf(text, sizeof text, "%02llu:%02llu:%02llu,%03llu", (unsigned long long)(ms / 3600000),
                (unsigned long long)(ms / 60000 % 60), (unsigned long long)(ms / 1000 % 60), (unsigned long long)(ms % 1000));
  return text;
}

// What one picture carries for the channel, waiting for its display position.
struct Picture {
  bool hasTimecode = false;
  KLX_TIMECODE timecode{};
  std::vector<uint8_t> pairs;  // byte pairs of the channel's field, padding left out
};

class Extractor {
 public:
  Extractor(const media::StreamInfo& info, uint32_t channel, TextForm form, media::OutputFile* out, bool keepCues,
            Extraction& result)
      : info_(info), form_(form), out_(out), keepCues_(keepCues), r_(result), field_(channel <= 2 ? 0 : 1) {
    r_.codec = info.codec;
    klxutilDisplayOrderInit(&order_);
    klxutilAvcSpsSetInit(avcSps_.get());
    klxutilCea608Init(decoder_.get(), channel);
    for (const auto& unit : info.parameterSets) learn(unit.data(), uint32_t(unit.size()));
    // Each caption line opens with its blank separator line, so the header takes no line end of
    // its own: one blank line follows it, as between caption lines.
    if (form_ == TextForm::kScc) text_ = "Scenarist_SCC V1.0";
  }

  bool add(const media::AccessUnit& au, std::string& error) {
    for (const auto& u : au.units) learn(au.unit(u), u.size);
    const uint8_t* frame = au.bytes.data();
    const uint32_t size = uint32_t(au.bytes.size());
    const uint32_t lengthPrefixed = info_.framing == media::Framing::kLengthPrefixed ? 1 : 0;
    if (info_.codec == StreamCodec::kMpeg2 && klxUtilReadMpeg2TimeCode(frame, size, &gop_) == 1) haveGop_ = true;
    if (!au.picture.hasPicture) return true;
    if (!au.orderKnown) {
      error = info_.codec == StreamCodec::kHevc ? "cannot read an HEVC slice header (missing parameter sets?)"
                                                : "cannot read an H.264 slice header (missing parameter sets?)";
      return false;
    }
    if (au.picture.notOutput) return true;  // not shown by a decoder, nor are its captions
    Picture p;
    uint8_t triplets[3 * 64];
    int n = 0;
    switch (info_.codec) {
      case StreamCodec::kHevc:
        p.hasTimecode = klxUtilReadHevcTimeCode(frame, size, lengthPrefixed, &p.timecode) == 1;
        n = klxUtilReadHevcCaptionsSEI(frame, size, lengthPrefixed, triplets, 64);
        break;
      case StreamCodec::kH264:
        p.hasTimecode = klxUtilReadH264TimeCode(frame, size, lengthPrefixed, klxutilAvcSpsSetFind(avcSps_.get(), au.picture.spsId),
                                                &p.timecode) == 1;
        n = klxUtilReadH264CaptionsSEI(frame, size, lengthPrefixed, triplets, 64);
        break;
      case StreamCodec::kMpeg2:
        p.hasTimecode = haveGop_ && klxutilMpeg2PictureTimeCode(&gop_, mpeg2RateCode_, uint32_t(std::max(au.picture.poc, 0)),
                                                                &p.timecode) == 0;
        n = klxUtilReadMpeg2Captions(frame, size, triplets, 64);
        break;
      default:
        error = "not H.264, HEVC or MPEG-2 video";
        return false;
    }
    for (int i = 0; i < std::min(n, 64); ++i) {
      const uint8_t* t = triplets + 3 * i;
      if (!(t[0] & 0x04) || (t[0] & 3) != field_) continue;  // cc_valid, cc_type
      if ((t[1] & 0x7F) == 0 && (t[2] & 0x7F) == 0) continue;  // padding
      p.pairs.push_back(t[1]), p.pairs.push_back(t[2]);
    }
    waiting_[au.picture.decodeIndex] = std::move(p);
    // A field picture shows one field: a pair of them is one frame (one cue position).
    const uint32_t fields = klxutilAuPictureFields(&au.picture);  // HEVC: the input reads field_seq_flag
    klxutilDisplayOrderAddFields(&order_, au.picture.decodeIndex, au.picture.sequence, au.picture.poc, fields);
    return release(0, error);
  }

  bool finish(std::string& error) {
    if (!release(1, error)) return false;
    if (!settled_) settle();
    const uint32_t frames = uint32_t((order_.nextDisplayField + 1) / 2);
    if (klxutilCea608Flush(decoder_.get(), frames, cue_.get()) == 1) addCue();
    if (form_ == TextForm::kScc) text_ += "\n";
    return flush(error, true);
  }

 private:
  // Parameter sets and sequence headers: the rate, field coding and the active H.264 SPS.
  void learn(const uint8_t* unit, uint32_t size) {
    if (size < 2) return;
    zr_bitstream s{const_cast<uint8_t*>(unit), int64_t(size), uint64_t(size) * 8, 0};
    if (info_.codec == StreamCodec::kH264 && (unit[0] & 0x1F) == 7) {
      if (klxutilAvcSpsSetLearn(avcSps_.get(), unit, size) != 0) return;
      const SPS_DECODED& sps = *klxutilAvcSpsSetFind(avcSps_.get(), -1);
      const AVC_VUI_PARAMETERS& v = sps.vui;
      if (!fps_ && sps.vui_parameters_present_flag && v.timing_info_present_flag && v.num_units_in_tick)
        fps_ = double(v.time_scale) / (2.0 * v.num_units_in_tick);  // H.264 ticks are field periods
    } else if (info_.codec == StreamCodec::kHevc && ((unit[0] >> 1) & 0x3F) == 33 && !fps_) {
      auto h = std::make_unique<HEVC_SPS_DECODED>();
      if (klxutilRead_HEVC_SPS(&s, h.get(), nullptr, 0) == 0xFFFFFFFFu || !h->vui.vui_timing_info_present_flag ||
          !h->vui.vui_num_units_in_tick)
        return;
      fps_ = double(h->vui.vui_time_scale) / h->vui.vui_num_units_in_tick / (h->vui.field_seq_flag ? 2 : 1);
    } else if (info_.codec == StreamCodec::kMpeg2 && unit[0] == 0xB3 && size >= 5) {
      mpeg2RateCode_ = unit[4] & 0x0F;
      if (!fps_) fps_ = klxutilMpeg2FrameRate(mpeg2RateCode_);
    }
  }

  // The counting of the SCC timecodes, fixed when the first picture is placed: the timecode rate
  // `stamp` takes (the stream's rate, else the container's, when it is one; else 25), drop-frame
  // when a picture's timecode says so. Cue times follow the stream's own rate.
  void settle() {
    const double containerFps =
        info_.frameRateNum > 0 && info_.frameRateDen > 0 ? double(info_.frameRateNum) / info_.frameRateDen : 0;
    const double fps = fps_ > 0 ? fps_ : containerFps > 0 ? containerFps : 25;
    const RateInfo* counting = rateForStream(fps_);
    if (!counting) counting = rateForStream(containerFps);
    bool drop = false;
    for (const auto& [decode, p] : waiting_) drop = drop || (p.hasTimecode && p.timecode.dropFrame);
    r_.tcType = timecodeTypeFor(counting ? counting->fps : 25, drop);
    r_.frameRate = fps;
    settled_ = true;
  }

  bool release(int32_t flush, std::string& error) {
    uint64_t decode = 0, display = 0, field = 0;
    while (klxutilDisplayOrderNextField(&order_, flush, &decode, &display, &field) == 1) {
      if (!settled_) settle();
      auto it = waiting_.find(decode);
      if (it == waiting_.end()) continue;
      place(it->second, uint32_t(field / 2));
      waiting_.erase(it);
      if (!this->flush(error, false)) return false;
    }
    return true;
  }

  // One picture in display order, shown in frame `display`: its pairs to the SCC lines and the
  // decoder.
  void place(const Picture& p, uint32_t display) {
    ++r_.pictures;
    uint32_t timecode = display;
    if (p.hasTimecode) {
      // A timecode the counting cannot hold (stamped at another rate) is not dropped with its
      // pairs: the count goes on from the last picture placed.
      const uint8_t digits[4] = {p.timecode.hours, p.timecode.minutes, p.timecode.seconds, p.timecode.frames};
      if (tc2Frame(reinterpret_cast<const char*>(digits), r_.tcType | TCF_DIGITS, &timecode) != 0)
        timecode = havePlaced_ ? lastTimecode_ + (display - lastDisplay_) : display;
    }
    havePlaced_ = true;
    lastDisplay_ = display;
    lastTimecode_ = timecode;
    for (size_t i = 0; i + 1 < p.pairs.size(); i += 2) {
      const uint8_t b1 = p.pairs[i], b2 = p.pairs[i + 1];
      ++r_.pairs;
      note(display, timecode);
      if (form_ == TextForm::kScc) {
        if (!lineOpen_ || timecode != nextTimecode_) {  // a gap starts a new line
          text_ += "\n\n" + timecodeText(timecode, r_.tcType) + "\t";
          lineOpen_ = true;
        } else {
          text_ += ' ';
        }
        char word[8];
        std::snprintf(word, sizeof word, "%02x%02x", b1, b2);
        text_ += word;
        nextTimecode_ = timecode + 1;
      }
      if (klxutilCea608Feed(decoder_.get(), display, b1, b2, cue_.get()) == 1) addCue();
    }
  }

  // Display position -> timecode, kept as runs over which the two step together.
  void note(uint32_t display, uint32_t timecode) {
    const int64_t offset = int64_t(timecode) - int64_t(display);
    if (!runs_.empty() && runs_.back().offset == offset)
      runs_.back().last = display;
    else
      runs_.push_back(Run{display, offset});
  }
  uint32_t timecodeAt(uint32_t display) const {
    size_t k = runs_.size();
    while (k > 0 && runs_[k - 1].last >= display) --k;  // the first run reaching `display`
    if (k == runs_.size()) return display;
    return uint32_t(runs_[k].offset + int64_t(display));
  }

  void addCue() {
    ++r_.cueCount;
    const Cue cue{cue_->startFrame, cue_->endFrame, timecodeAt(cue_->startFrame), cue_->text};
    if (form_ == TextForm::kSrt)
      text_ += std::to_string(++srtIndex_) + "\n" + srtTime(cue.startFrame, r_.frameRate) + " --> " +
               srtTime(cue.endFrame, r_.frameRate) + "\n" + cue.text + "\n\n";
    if (keepCues_) r_.cues.push_back(cue);
  }

  bool flush(std::string& error, bool all) {
    if (!out_ || (!all && text_.size() < (1u << 16))) return true;
    if (!out_->write(reinterpret_cast<const uint8_t*>(text_.data()), text_.size())) {
      error = "cannot write the output";
      return false;
    }
    text_.clear();
    return true;
  }

  struct Run {
    uint32_t last;
    int64_t offset;
  };

  const media::StreamInfo& info_;
  TextForm form_;
  media::OutputFile* out_;
  bool keepCues_;
  Extraction& r_;
  uint8_t field_;  // cc_type of the channel: 0 field 1 (CC1, CC2), 1 field 2 (CC3, CC4)
  double fps_ = 0;
  bool settled_ = false;
  bool havePlaced_ = false;
  uint32_t lastDisplay_ = 0, lastTimecode_ = 0;  // the last picture placed and its timecode
  // The H.264 SPSs seen so far, by id: a picture's pic_timing is read by the one it activates.
  std::unique_ptr<KLXUTIL_AVC_SPS_SET> avcSps_ = std::make_unique<KLXUTIL_AVC_SPS_SET>();
  uint32_t mpeg2RateCode_ = 0;
  KLX_TIMECODE gop_{};
  bool haveGop_ = false;
  KLXUTIL_DISPLAY_ORDER order_{};
  std::map<uint64_t, Picture> waiting_;
  std::unique_ptr<CEA608_DECODER> decoder_ = std::make_unique<CEA608_DECODER>();
  std::unique_ptr<CEA608_CUE> cue_ = std::make_unique<CEA608_CUE>();
  std::vector<Run> runs_;
  std::string text_;
  bool lineOpen_ = false;
  uint32_t nextTimecode_ = 0, srtIndex_ = 0;
};

}  // namespace

bool extract(media::Input& input, uint32_t channel, TextForm form, media::OutputFile* out, bool keepCues,
             Extraction& result, std::string& error) {
  Extractor extractor(input.info(), channel, form, out, keepCues, result);
  media::AccessUnit au;
  while (input.next(au))
    if (!extractor.add(au, error)) return false;
  if (!input.error().empty()) return error = input.error(), false;
  return extractor.finish(error);
}

}  // namespace captions
