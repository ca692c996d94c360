// quorvane stamp on MPEG-2 video (ISO/IEC 13818-2), one access unit at a time: each group of
// pictures header gets the timecode of the group's first picture in display order, and each
// picture its caption pair as ATSC A/53 user data in front of its first slice.
#include <string>
#include <vector>

#include "stamp_plan.h"
#include "streamutil/captions.h"
#include "streamutil/mpeg2_edit.h"
#include "streamutil/mpeg2_pictures.h"

bool prepareMpeg2StampPlan(StampPlan& plan, const std::vector<std::vector<uint8_t>>& units, const RateInfo* givenRate,
                           std::string&) {
  double fps = 0;
  for (const auto& unit : units)
    if (unit.size() >= 5 && unit[0] == 0xB3 && fps == 0) fps = klxutilMpeg2FrameRate(unit[4] & 0x0F);
  if (givenRate) {
    plan.rate = givenRate;
    plan.rateSource = "given with --rate";
  } else if ((plan.rate = rateForStream(fps))) {
    plan.rateSource = "from the sequence header";
  } else {
    plan.rate = findRate("25");
    plan.rateSource = "the default: no sequence header with a frame rate in the first megabyte";
  }
  return true;
}

namespace {

bool opensGroup(const DFRAME& frame) {
  KLX_TIMECODE unused{};
  return klxUtilReadMpeg2TimeCode(frame.pData, frame.nDataSize, &unused) == 1;
}

}  // namespace

int stampMpeg2AccessUnit(const StampPlan& plan, Mpeg2Groups& groups, DFRAME& frame, const StampPosition& at,
                         bool hasPicture, std::string& error) {
  int done = 0;
  if (opensGroup(frame)) {
    groups.groupStart = groups.fields;
    frame.nTimecode = static_cast<uint32_t>(plan.startFrame + groups.groupStart / 2);
    if (klxutilAddMpeg2TimeCode(&frame, plan.rate->tcType) < 0) return error = "timecode out of range", -1;
    done |= kStampedGroup;
  }
  if (!hasPicture) return done;
  groups.fields += at.fieldPicture ? 1 : 2;
  const uint64_t displayFrame = at.frame();
  const bool firstField = at.firstField();
  frame.nTimecode = static_cast<uint32_t>(plan.startFrame + displayFrame);
  if (!plan.captions) return done;
  const int removed = klxutilRemoveMpeg2Captions(&frame);
  if (removed > 0 && plan.keepExisting)
    return error = "IN already carries captions and --keep-existing was given: nothing written", -1;
  done |= removed > 0 ? kReplacedCaptions : 0;
  const int32_t index = firstField && displayFrame < plan.captionAt.size() ? plan.captionAt[displayFrame] : -1;
  const SCC_CAPTION* pair = index >= 0 ? &plan.captionPairs[size_t(index)] : nullptr;
  uint8_t packet[64];
  const uint32_t length = captionPacketFor(pair, plan.rate->cdpRate, uint16_t(at.picture), packet, sizeof packet);
  const int rc = klxutilInsertMpeg2Captions(&frame, packet, length);
  if (rc != 0) return error = rc == KLX_CC_NO_ROOM ? "no room for the caption user data" : "a picture without slices", -1;
  return done | (pair ? kWroteCaption : 0);
}
