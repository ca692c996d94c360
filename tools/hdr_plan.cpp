// The stream pass and the access-unit pass of `quorvane hdr`.
#include "hdr_plan.h"

#include <cstring>

#include "streamutil/nal_units.h"

namespace {

std::vector<uint8_t> withoutTrailingZeros(const uint8_t* p, size_t n) {
  while (n > 0 && p[n - 1] == 0) --n;
  return std::vector<uint8_t>(p, p + n);
}

bool isSps(bool hevc, uint8_t type) { return hevc ? type == 33 : type == 7; }
// IRAP pictures (H.265 types 16..23) and IDR pictures (H.264 type 5) start where a decoder may
// join: they carry the static metadata.
bool isRandomAccess(bool hevc, uint8_t type) { return hevc ? (type >= 16 && type <= 23) : type == 5; }

std::vector<KLX_NAL_UNIT> unitsOf(const DFRAME& frame, bool hevc, bool lengthPrefixed, bool& ok) {
  auto finder = hevc ? klxutilFindNalUnitsHevc : klxutilFindNalUnits;
  uint32_t count = 0;
  int rc = finder(frame.pData, frame.nDataSize, lengthPrefixed ? 0 : 1, nullptr, 0, &count);
  std::vector<KLX_NAL_UNIT> units(count);
  if (rc != KLX_NAL_BAD) rc = finder(frame.pData, frame.nDataSize, lengthPrefixed ? 0 : 1, units.data(), count, &count);
  ok = rc == KLX_NAL_OK;
  return units;
}

bool rewriteSps(const HdrPlan& plan, const std::vector<uint8_t>& original, std::vector<uint8_t>& out) {
  out.assign(original.size() + 64, 0);
  uint32_t n = 0;
  const auto rewrite = plan.hevc ? klxutilRewriteColourHevcSps : klxutilRewriteColourAvcSps;
  if (rewrite(original.data(), static_cast<uint32_t>(original.size()), &plan.colour, out.data(),
              static_cast<uint32_t>(out.size()), &n) != 0)
    return false;
  out.resize(n);
  return true;
}

int replaceSps(const HdrPlan& plan, DFRAME& frame, bool lengthPrefixed, std::string& error) {
  bool ok = false;
  auto units = unitsOf(frame, plan.hevc, lengthPrefixed, ok);
  if (!ok) return error = "the access unit's framing is not readable", -1;
  for (size_t i = units.size(); i-- > 0;) {
    const KLX_NAL_UNIT& u = units[i];
    if (!isSps(plan.hevc, u.type)) continue;
    const auto original = withoutTrailingZeros(frame.pData + u.offset + u.prefixLength, u.size);
    std::vector<uint8_t> fresh;
    const std::vector<uint8_t>* rewritten = nullptr;
    if (auto it = plan.spsRewrites.find(original); it != plan.spsRewrites.end()) {
      rewritten = &it->second;
    } else {  // an SPS the stream pass did not see (only in band): rewritten here
      if (!rewriteSps(plan, original, fresh)) return error = "an SPS cannot be rewritten without changing its other elements", -1;
      rewritten = &fresh;
    }
    const auto index = static_cast<uint32_t>(i);
    if (klxutilRemoveNalUnits(frame.pData, &frame.nDataSize, lengthPrefixed ? 0 : 1, index, 1) != KLX_NAL_OK)
      return error = "cannot remove an SPS", -1;
    const uint8_t* unit[] = {rewritten->data()};
    const uint32_t size[] = {static_cast<uint32_t>(rewritten->size())};
    if (klxutilAddNalUnitsFrame(&frame, lengthPrefixed ? 0 : 1, index, unit, size, 1) != KLX_NAL_OK)
      return error = "no room for the rewritten SPS", -1;
  }
  return 0;
}

}  // namespace

bool hdrParameterSets(HdrPlan& plan, const std::vector<std::vector<uint8_t>>& units, std::string& error) {
  if (!plan.colour.set) return true;
  for (const auto& raw : units) {
    if (raw.empty()) continue;
    const uint8_t type = plan.hevc ? (raw[0] >> 1) & 0x3F : raw[0] & 0x1F;
    if (!isSps(plan.hevc, type)) continue;
    auto original = withoutTrailingZeros(raw.data(), raw.size());
    if (plan.spsRewrites.count(original)) continue;
    std::vector<uint8_t> rewritten;
    if (!rewriteSps(plan, original, rewritten)) {
      error = "an SPS cannot be rewritten without changing its other elements";
      return false;
    }
    plan.spsRewrites.emplace(std::move(original), std::move(rewritten));
  }
  return true;
}

bool hdrConfigRecord(const HdrPlan& plan, const std::vector<uint8_t>& record, std::vector<uint8_t>& out,
                     std::string& error) {
  if (!plan.colour.set) {
    out = record;
    return true;
  }
  out.assign(record.size() + 256, 0);
  uint32_t n = 0;
  const auto rewrite = plan.hevc ? klxutilRewriteColourHvcc : klxutilRewriteColourAvcc;
  if (rewrite(record.data(), static_cast<uint32_t>(record.size()), &plan.colour, out.data(),
              static_cast<uint32_t>(out.size()), &n) != 0) {
    error = plan.hevc ? "the hvcC record cannot be rewritten" : "the avcC record cannot be rewritten";
    return false;
  }
  out.resize(n);
  return true;
}

int hdrAccessUnit(const HdrPlan& plan, DFRAME& frame, bool lengthPrefixed, std::string& error) {
  if (!frame.pData || frame.nDataSize > frame.nBufferSize) return error = "bad frame", -1;
  if (plan.colour.set && replaceSps(plan, frame, lengthPrefixed, error) != 0) return -1;
  if (!plan.metadata.present && !plan.remove) return 0;

  bool ok = false;
  const auto units = unitsOf(frame, plan.hevc, lengthPrefixed, ok);
  if (!ok) return error = "the access unit's framing is not readable", -1;
  KLX_HDR_METADATA md{};
  if (klxutilReadHdrSei(frame.pData, frame.nDataSize, lengthPrefixed ? 0 : 1, plan.hevc, &md) != 0)
    return error = "the access unit's framing is not readable", -1;
  bool carries = md.present != 0;
  for (const auto& u : units) carries = carries || isSps(plan.hevc, u.type) || isRandomAccess(plan.hevc, u.type);
  if (!carries) return 0;

  const uint32_t had = md.present;
  const KLX_HDR_METADATA& want = plan.metadata;
  if (want.present & KLX_HDR_HAS_MASTERING_DISPLAY) md.masteringDisplay = want.masteringDisplay;
  if (want.present & KLX_HDR_HAS_CONTENT_LIGHT_LEVEL) md.contentLightLevel = want.contentLightLevel;
  if (want.present & KLX_HDR_HAS_ALTERNATIVE_TRANSFER) md.preferredTransferCharacteristics = want.preferredTransferCharacteristics;
  md.present = (md.present | want.present) & ~plan.remove;
  if (!want.present && md.present == had) return 0;  // nothing of what is removed is here
  const int rc = klxutilSetHdrSei(frame.pData, &frame.nDataSize, frame.nBufferSize, lengthPrefixed ? 0 : 1, plan.hevc, &md);
  if (rc == KLX_NAL_NO_ROOM) return error = "no room for the HDR SEI", -1;
  if (rc != 0) return error = "the access unit's SEI units are not readable", -1;
  return 0;
}
