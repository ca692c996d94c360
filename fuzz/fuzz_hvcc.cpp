// hvcC reading on arbitrary bytes: the result is one of the documented codes. When the box held
// a VPS, SPS and PPS that write back and read back alone, an hvcC built from the header read and
// those units reads back to the same header and to parameter sets that write the same bytes.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "streamutil/hevc_config_record.h"
#include "fuzz_check.h"
#include "fuzz_params.h"

namespace {
constexpr uint32_t kFailed = 0xFFFFFFFFu;

struct Sets {
  HEVC_DECODED header{};
  std::unique_ptr<HEVC_VPS_DECODED> vps = std::make_unique<HEVC_VPS_DECODED>();
  std::unique_ptr<HEVC_SPS_DECODED> sps = std::make_unique<HEVC_SPS_DECODED>();
  std::unique_ptr<HEVC_PPS_DECODED> pps = std::make_unique<HEVC_PPS_DECODED>();
  uint32_t read(const uint8_t* data, size_t size) {
    // A reader clears its record first: what still holds the pattern was not in the box.
    std::memset(static_cast<void*>(vps.get()), kUnread, sizeof *vps);
    std::memset(static_cast<void*>(sps.get()), kUnread, sizeof *sps);
    std::memset(static_cast<void*>(pps.get()), kUnread, sizeof *pps);
    zr_bitstream in = readerOver(data, size);
    return klxutilRead_HEVC_CR(&in, &header, vps.get(), sps.get(), pps.get());
  }
  static constexpr uint8_t kUnread = 0xA5;
  template <class Record>
  static bool wasRead(const Record& r) {
    return *reinterpret_cast<const uint8_t*>(&r) != kUnread;
  }
  bool allRead() const { return wasRead(*vps) && wasRead(*sps) && wasRead(*pps); }
  // A unit its reader refused leaves a partly filled record behind (the walk goes on), and one
  // that ended early holds values no writer codes: neither is expected to round-trip.
  bool writable() const {
    for (const Listing& l : {listOf(*vps, klxutilList_HEVC_VPS), listOf(*sps, klxutilList_HEVC_SPS),
                             listOf(*pps, klxutilList_HEVC_PPS)})
      if (l.longCode || l.pastEnd) return false;
    return true;
  }
};

struct Units {
  std::vector<uint8_t> vps = std::vector<uint8_t>(kHevcParamSetMaxBytes);
  std::vector<uint8_t> sps = std::vector<uint8_t>(kHevcParamSetMaxBytes);
  std::vector<uint8_t> pps = std::vector<uint8_t>(kHevcParamSetMaxBytes);
  int32_t vpsLength = -1, spsLength = -1, ppsLength = -1;
  bool write(Sets& sets) {
    vpsLength = klxutilWriteChecked_HEVC_VPS(sets.vps.get(), vps.data(), vps.size());
    spsLength = klxutilWriteChecked_HEVC_SPS(sets.sps.get(), sps.data(), sps.size());
    ppsLength = klxutilWriteChecked_HEVC_PPS(sets.pps.get(), pps.data(), pps.size());
    return vpsLength > 0 && spsLength > 0 && ppsLength > 0;
  }
  // Each written unit is accepted by its reader on its own (a refused unit's record may not be).
  bool readBackAlone() const {
    auto v = std::make_unique<HEVC_VPS_DECODED>();
    auto s = std::make_unique<HEVC_SPS_DECODED>();
    auto p = std::make_unique<HEVC_PPS_DECODED>();
    zr_bitstream a = readerOver(vps.data(), size_t(vpsLength));
    zr_bitstream b = readerOver(sps.data(), size_t(spsLength));
    zr_bitstream c = readerOver(pps.data(), size_t(ppsLength));
    return accepted(klxutilRead_HEVC_VPS(&a, v.get(), nullptr, 0)) &&
           accepted(klxutilRead_HEVC_SPS(&b, s.get(), nullptr, 0)) &&
           accepted(klxutilRead_HEVC_PPS(&c, p.get(), nullptr, 0));
  }
  static bool accepted(uint32_t r) { return r != 0 && r != kFailed; }
  bool operator==(const Units& o) const {
    return vpsLength == o.vpsLength && spsLength == o.spsLength && ppsLength == o.ppsLength &&
           std::equal(vps.begin(), vps.begin() + vpsLength, o.vps.begin()) &&
           std::equal(sps.begin(), sps.begin() + spsLength, o.sps.begin()) &&
           std::equal(pps.begin(), pps.begin() + ppsLength, o.pps.begin());
  }
};

bool sameHeader(const HEVC_DECODED& a, const HEVC_DECODED& b) {
  return a.configurationVersion == b.configurationVersion && a.general_profile_space == b.general_profile_space &&
         a.general_tier_flag == b.general_tier_flag && a.general_profile_idc == b.general_profile_idc &&
         a.general_profile_compatibility_flags == b.general_profile_compatibility_flags &&
         a.general_constraint_indicator_flags == b.general_constraint_indicator_flags &&
         a.general_level_idc == b.general_level_idc &&
         a.min_spatial_segmentation_idc == b.min_spatial_segmentation_idc && a.parallelismType == b.parallelismType &&
         a.chromaFormat == b.chromaFormat && a.bitDepthLumaMinus8 == b.bitDepthLumaMinus8 &&
         a.bitDepthChromaMinus8 == b.bitDepthChromaMinus8 && a.avgFrameRate == b.avgFrameRate &&
         a.constantFrameRate == b.constantFrameRate && a.numTemporalLayers == b.numTemporalLayers &&
         a.temporalIdNested == b.temporalIdNested && a.lengthSizeMinusOne == b.lengthSizeMinusOne &&
         a.numOfArrays == b.numOfArrays;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 8192) return 0;
  HVCC_ENTRY entries[64];
  uint32_t count = 0;
  const int listed = klxutilHvccEntries(data, uint32_t(size), entries, 64, &count);
  check(listed == 0 || listed == -1 || listed == -102);
  for (uint32_t i = 0; listed == 0 && i < count; ++i) check(entries[i].offset + uint64_t{entries[i].size} <= size);
  Sets first;
  const uint32_t result = first.read(data, size);
  check(result == kFailed || result <= size);
  if (result == 0 || result == kFailed) return 0;
  Units units;
  if (!first.allRead() || !first.writable()) return 0;
  if (!units.write(first) || !units.readBackAlone()) return 0;
  first.header.numOfArrays = 3;
  std::vector<uint8_t> box(23 + 15 + units.vpsLength + units.spsLength + units.ppsLength + 8);
  zr_bitstream out{box.data(), static_cast<int64_t>(box.size()), box.size() * 8, 0};
  WriteBits(&out, 32, uint32_t(box.size()));
  WriteBits(&out, 32, 0x68766343);  // 'hvcC'
  klxutilWrite_HEVC_CR(&out, &first.header, units.vps.data(), units.sps.data(), units.pps.data(), units.vpsLength,
                       units.spsLength, units.ppsLength);
  // The built box lists its three units where they were written.
  check(klxutilHvccEntries(box.data(), uint32_t(box.size()), entries, 64, &count) == 0 && count == 3);
  check(entries[1].nal_unit_type == 33 && entries[1].size == uint32_t(units.spsLength) &&
        std::equal(units.sps.begin(), units.sps.begin() + units.spsLength, box.begin() + entries[1].offset));
  Sets second;
  const uint32_t again = second.read(box.data(), box.size());
  check(again != 0 && again != kFailed);
  check(sameHeader(first.header, second.header));
  Units rewritten;
  check(rewritten.write(second));
  check(rewritten == units);
  return 0;
}
