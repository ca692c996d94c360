// Access units and display order of a whole stream held in memory, for `quorvane stamp` until it
// moves onto the frame pipeline: a thin layer over the library's cutter and display order
// (streamutil/access_units.h).
#include "access_units.h"

#include "streamutil/access_units.h"

std::vector<NalUnitRef> listNalUnits(const uint8_t* data, size_t size) {
  std::vector<NalUnitRef> units;
  size_t at = 0, next = 0;
  uint32_t length = 0, nextLength = 0;
  for (bool more = klxutilFindStartCode(data, size, 0, &at, &length) == 1; more; at = next, length = nextLength) {
    more = klxutilFindStartCode(data, size, at + length, &next, &nextLength) == 1;
    units.push_back(NalUnitRef{at, at + length, more ? next : size, 0});
  }
  return units;
}

StreamCodec detectCodec(const uint8_t* data, size_t, const std::vector<NalUnitRef>& units) {
  if (units.empty() || units.front().end == units.front().header) return StreamCodec::kUnknown;
  const NalUnitRef& u = units.front();
  const uint8_t h0 = data[u.header];
  if (h0 & 0x80) return StreamCodec::kUnknown;
  const int hevcType = (h0 >> 1) & 0x3F;
  const bool hevcHeader = u.end > u.header + 1 && (data[u.header + 1] & 7) != 0 && (data[u.header + 1] >> 3) == 0;
  if (hevcHeader && ((hevcType >= 32 && hevcType <= 35) || hevcType == 39 || hevcType < 22)) return StreamCodec::kHevc;
  const int avcType = h0 & 0x1F;
  if (avcType == 9 || avcType == 7 || avcType == 6 || avcType == 5 || avcType == 1) return StreamCodec::kH264;
  return StreamCodec::kUnknown;
}

namespace {

std::string failure(bool hevc, int type) {
  const bool sps = hevc ? type == 33 : type == 7, pps = hevc ? type == 34 : type == 8;
  const std::string codec = hevc ? "an HEVC" : "an H.264";
  if (sps) return "cannot read " + codec + " sequence parameter set";
  if (pps) return "cannot read " + codec + " picture parameter set";
  return "cannot read " + codec + " slice header (missing parameter sets?)";
}

}  // namespace

bool splitAccessUnits(const uint8_t* data, size_t size, StreamCodec codec, std::vector<AccessUnitRef>& out,
                      std::string& error) {
  out.clear();
  if (codec != StreamCodec::kHevc && codec != StreamCodec::kH264) {
    error = "not an H.264 or HEVC elementary stream";
    return false;
  }
  const bool hevc = codec == StreamCodec::kHevc;
  KLXUTIL_AU_CUTTER cutter;
  klxutilAuCutterInit(&cutter, hevc ? KLXUTIL_AU_HEVC : KLXUTIL_AU_H264);
  KLXUTIL_DISPLAY_ORDER order;
  klxutilDisplayOrderInit(&order);
  auto finish = [&](const KLXUTIL_AU_PICTURE& p, int32_t flush) {
    AccessUnitRef& au = out.back();
    au.hasPicture = p.hasPicture != 0;
    au.poc = p.poc;
    au.sequence = p.sequence;
    if (au.hasPicture) klxutilDisplayOrderAdd(&order, out.size() - 1, p.sequence, p.poc);
    uint64_t decode = 0, display = 0;
    while (klxutilDisplayOrderNext(&order, flush, &decode, &display) == 1) out[decode].displayIndex = uint32_t(display);
  };
  for (NalUnitRef u : listNalUnits(data, size)) {
    if (u.end == u.header) continue;
    KLXUTIL_AU_UNIT info;
    const int rc = klxutilAuCutterPush(&cutter, data + u.header, uint32_t(u.end - u.header), &info);
    u.type = info.type;
    if (info.finishedValid) finish(info.finished, 0);
    if (rc != 0) {
      error = failure(hevc, info.type);
      return false;
    }
    if (info.opensAccessUnit) out.push_back(AccessUnitRef{u.codeAt, u.end, {}});
    out.back().units.push_back(u);
    out.back().end = u.end;
  }
  if (!out.empty()) finish(cutter.current, 1);
  return true;
}
