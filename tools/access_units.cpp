// Access units and display order. The picture order count is all that is needed of each
// slice, so only the opening fields of the parameter sets and slice headers are read, through
// the library's bit reader over the unit's RBSP.
#include "access_units.h"

#include <algorithm>
#include <map>

#include "streamutil/zr_bitstream.h"
#include "syntax/nal_framing.h"

namespace {

constexpr int kRbspPeekBytes = 96;  // enough for any slice header up to the POC

// The RBSP of a unit from its second byte on (nal_to_rbsp skips the first header byte), at most
// `limit` input bytes.
std::vector<uint8_t> rbspOf(const uint8_t* data, const NalUnitRef& u, size_t limit) {
  int nalSize = static_cast<int>(std::min(u.end - u.header, limit));
  int rbspSize = nalSize;
  std::vector<uint8_t> rbsp(static_cast<size_t>(nalSize) + 8, 0);  // zero tail: reads past the end see 0
  if (nal_to_rbsp(data + u.header, &nalSize, rbsp.data(), &rbspSize) < 0) rbspSize = 0;
  rbsp.resize(static_cast<size_t>(rbspSize) + 8);
  return rbsp;
}

struct Reader {
  std::vector<uint8_t> bytes;
  zr_bitstream s;
  explicit Reader(std::vector<uint8_t> b) : bytes(std::move(b)) {
    s = zr_bitstream{bytes.data(), static_cast<int64_t>(bytes.size()), (bytes.size() - 8) * 8, 0};
  }
  uint32_t u(int n) { return ReadBits(&s, n); }
  uint32_t ue() { return ReadExponentialGolombCode(&s); }
  int32_t se() { return ReadExponentialGolombCodeSigned(&s); }
  void skip(int n) { SkipBits(&s, n); }
  bool overran() const { return s.position > s.length; }
};

// ---------------------------------------------------------------- HEVC

bool isHevcVcl(int type) { return type < 32; }
bool isHevcIdr(int type) { return type == 19 || type == 20; }
bool isHevcBla(int type) { return type >= 16 && type <= 18; }
bool isHevcIrap(int type) { return type >= 16 && type <= 23; }
bool isHevcRaslRadl(int type) { return type >= 6 && type <= 9; }
bool isHevcSubLayerNonRef(int type) { return type <= 14 && type % 2 == 0; }
// AUD, VPS, SPS, PPS, prefix SEI and the reserved types 41..44, 48..55 open a new access unit.
bool opensHevcAu(int type) {
  return (type >= 32 && type <= 35) || type == 39 || (type >= 41 && type <= 44) || (type >= 48 && type <= 55);
}

struct HevcSps {
  uint32_t log2MaxPocLsb = 4;
  bool separateColourPlanes = false;
};
struct HevcPps {
  uint32_t spsId = 0;
  bool dependentSlices = false, outputFlagPresent = false;
  uint32_t extraSliceHeaderBits = 0;
};

void skipProfileTierLevel(Reader& r, uint32_t maxSubLayersMinus1) {
  r.skip(96);  // general profile, compatibility, constraint flags and level
  bool profilePresent[8] = {}, levelPresent[8] = {};
  for (uint32_t i = 0; i < maxSubLayersMinus1; ++i) {
    profilePresent[i] = r.u(1);
    levelPresent[i] = r.u(1);
  }
  if (maxSubLayersMinus1 > 0)
    for (uint32_t i = maxSubLayersMinus1; i < 8; ++i) r.skip(2);
  for (uint32_t i = 0; i < maxSubLayersMinus1; ++i) {
    if (profilePresent[i]) r.skip(88);
    if (levelPresent[i]) r.skip(8);
  }
}

bool readHevcSps(Reader& r, std::map<uint32_t, HevcSps>& table) {
  r.skip(8);  // second header byte
  r.skip(4);
  const uint32_t maxSubLayersMinus1 = std::min<uint32_t>(r.u(3), 6);
  r.skip(1);
  skipProfileTierLevel(r, maxSubLayersMinus1);
  const uint32_t id = r.ue();
  HevcSps sps;
  if (r.ue() == 3) sps.separateColourPlanes = r.u(1);
  r.ue(), r.ue();  // picture width and height
  if (r.u(1)) r.ue(), r.ue(), r.ue(), r.ue();  // conformance window
  r.ue(), r.ue();                              // bit depths
  sps.log2MaxPocLsb = r.ue() + 4;
  if (r.overran() || id > 15 || sps.log2MaxPocLsb > 16) return false;
  table[id] = sps;
  return true;
}

bool readHevcPps(Reader& r, std::map<uint32_t, HevcPps>& table) {
  r.skip(8);
  const uint32_t id = r.ue();
  HevcPps pps;
  pps.spsId = r.ue();
  pps.dependentSlices = r.u(1);
  pps.outputFlagPresent = r.u(1);
  pps.extraSliceHeaderBits = r.u(3);
  if (r.overran() || id > 63) return false;
  table[id] = pps;
  return true;
}

// slice_pic_order_cnt_lsb of the first slice segment of a picture (0 for IDR pictures).
bool readHevcPocLsb(Reader& r, int type, const std::map<uint32_t, HevcSps>& spss,
                    const std::map<uint32_t, HevcPps>& ppss, uint32_t& lsb, uint32_t& log2MaxLsb) {
  r.skip(8);
  r.skip(1);  // first_slice_segment_in_pic_flag (known to be 1)
  if (isHevcIrap(type)) r.skip(1);  // no_output_of_prior_pics_flag
  auto pps = ppss.find(r.ue());
  if (pps == ppss.end()) return false;
  auto sps = spss.find(pps->second.spsId);
  if (sps == spss.end()) return false;
  log2MaxLsb = sps->second.log2MaxPocLsb;
  lsb = 0;
  if (isHevcIdr(type)) return !r.overran();
  r.skip(static_cast<int>(pps->second.extraSliceHeaderBits));
  r.ue();  // slice_type
  if (pps->second.outputFlagPresent) r.skip(1);
  if (sps->second.separateColourPlanes) r.skip(2);
  lsb = r.u(static_cast<int>(log2MaxLsb));
  return !r.overran();
}

// ---------------------------------------------------------------- H.264

bool isAvcVcl(int type) { return type >= 1 && type <= 5; }
bool opensAvcAu(int type) { return type == 6 || type == 7 || type == 8 || type == 9 || (type >= 14 && type <= 18); }

struct AvcSps {
  uint32_t log2MaxFrameNum = 4, pocType = 0, log2MaxPocLsb = 4;
  bool frameMbsOnly = true, separateColourPlanes = false;
};
struct AvcPps {
  uint32_t spsId = 0;
};

void skipScalingList(Reader& r, int size) {
  int last = 8, next = 8;
  for (int j = 0; j < size && !r.overran(); ++j) {
    if (next != 0) next = (last + r.se() + 256) % 256;
    last = next == 0 ? last : next;
  }
}

bool readAvcSps(Reader& r, std::map<uint32_t, AvcSps>& table) {
  const uint32_t profile = r.u(8);
  r.skip(16);
  const uint32_t id = r.ue();
  AvcSps sps;
  static constexpr uint32_t kHighProfiles[] = {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135};
  if (std::find(std::begin(kHighProfiles), std::end(kHighProfiles), profile) != std::end(kHighProfiles)) {
    const uint32_t chroma = r.ue();
    if (chroma == 3) sps.separateColourPlanes = r.u(1);
    r.ue(), r.ue(), r.skip(1);
    if (r.u(1))
      for (int i = 0; i < (chroma != 3 ? 8 : 12); ++i)
        if (r.u(1)) skipScalingList(r, i < 6 ? 16 : 64);
  }
  sps.log2MaxFrameNum = r.ue() + 4;
  sps.pocType = r.ue();
  if (sps.pocType == 0) {
    sps.log2MaxPocLsb = r.ue() + 4;
  } else if (sps.pocType == 1) {
    r.skip(1), r.se(), r.se();
    const uint32_t cycle = r.ue();
    for (uint32_t i = 0; i < cycle && i < 256; ++i) r.se();
  }
  r.ue(), r.skip(1), r.ue(), r.ue();  // max_num_ref_frames, gaps, width, height
  sps.frameMbsOnly = r.u(1);
  if (r.overran() || id > 31 || sps.log2MaxFrameNum > 16 || sps.log2MaxPocLsb > 16) return false;
  table[id] = sps;
  return true;
}

bool readAvcPps(Reader& r, std::map<uint32_t, AvcPps>& table) {
  const uint32_t id = r.ue();
  AvcPps pps;
  pps.spsId = r.ue();
  if (r.overran() || id > 255) return false;
  table[id] = pps;
  return true;
}

struct AvcSliceOrder {
  uint32_t pocLsb = 0, log2MaxPocLsb = 4, pocType = 0;
};

bool readAvcSlice(Reader& r, int type, const std::map<uint32_t, AvcSps>& spss, const std::map<uint32_t, AvcPps>& ppss,
                  AvcSliceOrder& out) {
  r.ue(), r.ue();  // first_mb_in_slice, slice_type
  auto pps = ppss.find(r.ue());
  if (pps == ppss.end()) return false;
  auto sps = spss.find(pps->second.spsId);
  if (sps == spss.end()) return false;
  const AvcSps& s = sps->second;
  if (s.separateColourPlanes) r.skip(2);
  r.skip(static_cast<int>(s.log2MaxFrameNum));
  if (!s.frameMbsOnly && r.u(1)) r.skip(1);  // field_pic_flag, bottom_field_flag
  if (type == 5) r.ue();                     // idr_pic_id
  out.pocType = s.pocType;
  out.log2MaxPocLsb = s.log2MaxPocLsb;
  out.pocLsb = s.pocType == 0 ? r.u(static_cast<int>(s.log2MaxPocLsb)) : 0;
  return !r.overran();
}

// Picture order count from its lsb (ITU-T H.264 8.2.1.1, H.265 8.3.1).
int32_t pocFromLsb(uint32_t lsb, uint32_t log2MaxLsb, int32_t prevLsb, int32_t prevMsb) {
  const int32_t maxLsb = 1 << log2MaxLsb, l = static_cast<int32_t>(lsb);
  int32_t msb = prevMsb;
  if (l < prevLsb && prevLsb - l >= maxLsb / 2)
    msb = prevMsb + maxLsb;
  else if (l > prevLsb && l - prevLsb > maxLsb / 2)
    msb = prevMsb - maxLsb;
  return msb + l;
}

bool orderHevc(const uint8_t* data, std::vector<AccessUnitRef>& aus, std::string& error) {
  std::map<uint32_t, HevcSps> spss;
  std::map<uint32_t, HevcPps> ppss;
  int32_t prevTid0Poc = 0;
  uint32_t sequence = 0;
  bool first = true;
  for (auto& au : aus) {
    for (const auto& u : au.units) {
      if (u.type == 33 || u.type == 34) {
        Reader r(rbspOf(data, u, 4096));
        if (!(u.type == 33 ? readHevcSps(r, spss) : readHevcPps(r, ppss))) {
          error = u.type == 33 ? "cannot read an HEVC sequence parameter set" : "cannot read an HEVC picture parameter set";
          return false;
        }
      }
      if (!isHevcVcl(u.type) || au.hasPicture) continue;
      Reader r(rbspOf(data, u, kRbspPeekBytes));
      uint32_t lsb = 0, log2Max = 4;
      if (!readHevcPocLsb(r, u.type, spss, ppss, lsb, log2Max)) {
        error = "cannot read an HEVC slice header (missing parameter sets?)";
        return false;
      }
      const bool noRaslOutput = isHevcIdr(u.type) || isHevcBla(u.type) || (first && isHevcIrap(u.type));
      if (noRaslOutput && !first) ++sequence;
      const int32_t prevMsb = prevTid0Poc - (prevTid0Poc & ((1 << log2Max) - 1));
      const int32_t prevLsb = prevTid0Poc & ((1 << log2Max) - 1);
      au.poc = noRaslOutput ? static_cast<int32_t>(lsb) : pocFromLsb(lsb, log2Max, prevLsb, prevMsb);
      if (isHevcIdr(u.type)) au.poc = 0;
      const int temporalId = (data[u.header + 1] & 7) - 1;
      if (temporalId == 0 && !isHevcRaslRadl(u.type) && !isHevcSubLayerNonRef(u.type)) prevTid0Poc = au.poc;
      au.sequence = sequence;
      au.hasPicture = true;
      first = false;
    }
  }
  return true;
}

bool orderAvc(const uint8_t* data, std::vector<AccessUnitRef>& aus, std::string& error) {
  std::map<uint32_t, AvcSps> spss;
  std::map<uint32_t, AvcPps> ppss;
  int32_t prevLsb = 0, prevMsb = 0;
  uint32_t sequence = 0, decodeIndex = 0;
  bool first = true;
  for (auto& au : aus) {
    for (const auto& u : au.units) {
      if (u.type == 7 || u.type == 8) {
        Reader r(rbspOf(data, u, 4096));
        if (!(u.type == 7 ? readAvcSps(r, spss) : readAvcPps(r, ppss))) {
          error = u.type == 7 ? "cannot read an H.264 sequence parameter set" : "cannot read an H.264 picture parameter set";
          return false;
        }
      }
      if (!isAvcVcl(u.type) || au.hasPicture) continue;
      Reader r(rbspOf(data, u, kRbspPeekBytes));
      AvcSliceOrder slice;
      if (!readAvcSlice(r, u.type, spss, ppss, slice)) {
        error = "cannot read an H.264 slice header (missing parameter sets?)";
        return false;
      }
      const bool idr = u.type == 5;
      if (idr && !first) ++sequence;
      if (idr) prevLsb = prevMsb = 0;
      if (slice.pocType == 0) {
        au.poc = pocFromLsb(slice.pocLsb, slice.log2MaxPocLsb, prevLsb, prevMsb);
        if ((data[u.header] >> 5) & 3) {  // a reference picture sets the reference for the next
          prevLsb = static_cast<int32_t>(slice.pocLsb);
          prevMsb = au.poc - prevLsb;
        }
      } else {
        au.poc = static_cast<int32_t>(2 * decodeIndex);  // types 1 and 2: output follows decoding
      }
      ++decodeIndex;
      au.sequence = sequence;
      au.hasPicture = true;
      first = false;
    }
  }
  return true;
}

}  // namespace

std::vector<NalUnitRef> listNalUnits(const uint8_t* data, size_t size) {
  std::vector<NalUnitRef> units;
  size_t pos = 0;
  while (pos < size) {
    const size_t rest = std::min<size_t>(size - pos, 0x7FFFFFFF);
    int start = 0, end = 0;
    const int n = find_nal_unit(data + pos, static_cast<int>(rest), &start, &end);
    if (n <= 0 || start < 3) break;
    size_t codeAt = pos + static_cast<size_t>(start) - 3;
    if (codeAt > pos && data[codeAt - 1] == 0) --codeAt;
    NalUnitRef u{codeAt, pos + static_cast<size_t>(start), pos + static_cast<size_t>(end), 0};
    units.push_back(u);
    pos += static_cast<size_t>(end);
  }
  return units;
}

StreamCodec detectCodec(const uint8_t* data, size_t, const std::vector<NalUnitRef>& units) {
  if (units.empty()) return StreamCodec::kUnknown;
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

bool splitAccessUnits(const uint8_t* data, size_t size, StreamCodec codec, std::vector<AccessUnitRef>& out,
                      std::string& error) {
  out.clear();
  if (codec != StreamCodec::kHevc && codec != StreamCodec::kH264) {
    error = "not an H.264 or HEVC elementary stream";
    return false;
  }
  const bool hevc = codec == StreamCodec::kHevc;
  auto units = listNalUnits(data, size);
  bool vclSeen = false;  // the current access unit already has a picture
  for (auto& u : units) {
    const uint8_t h0 = data[u.header];
    u.type = hevc ? (h0 >> 1) & 0x3F : h0 & 0x1F;
    const bool vcl = hevc ? isHevcVcl(u.type) : isAvcVcl(u.type);
    // The first slice of a picture: first_slice_segment_in_pic_flag (HEVC) or first_mb_in_slice
    // == 0 (H.264, the leading bit of its ue(v) code) is the first bit behind the header.
    const size_t firstPayload = u.header + (hevc ? 2 : 1);
    const bool firstSlice = vcl && firstPayload < u.end && (data[firstPayload] & 0x80);
    const bool opens = hevc ? opensHevcAu(u.type) : opensAvcAu(u.type);
    if (out.empty() || (vclSeen && (opens || firstSlice))) {
      out.push_back(AccessUnitRef{u.codeAt, u.end, {}});
      vclSeen = false;
    }
    out.back().units.push_back(u);
    out.back().end = u.end;
    vclSeen = vclSeen || vcl;
  }
  if (!(hevc ? orderHevc(data, out, error) : orderAvc(data, out, error))) return false;
  // Display order: by coded video sequence, then picture order count; decode order breaks ties.
  std::vector<size_t> order;
  for (size_t i = 0; i < out.size(); ++i)
    if (out[i].hasPicture) order.push_back(i);
  std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) {
    if (out[a].sequence != out[b].sequence) return out[a].sequence < out[b].sequence;
    return out[a].poc < out[b].poc;
  });
  for (size_t i = 0; i < order.size(); ++i) out[order[i]].displayIndex = static_cast<uint32_t>(i);
  return true;
}
