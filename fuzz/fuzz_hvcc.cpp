// hvcC reading on arbitrary bytes: the result is one of the documented codes. When the VPS, SPS
// and PPS it held write back, an hvcC built from the header read and those units reads back to
// the same header and to parameter sets that write the same bytes.
#include <cstdint>
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
    zr_bitstream in = readerOver(data, size);
    return klxutilRead_HEVC_CR(&in, &header, vps.get(), sps.get(), pps.get());
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
  Sets first;
  const uint32_t result = first.read(data, size);
  check(result == kFailed || result <= size);
  if (result == 0 || result == kFailed) return 0;
  Units units;
  if (!units.write(first)) return 0;  // a set the box did not hold, or one the writer refuses
  first.header.numOfArrays = 3;
  std::vector<uint8_t> box(23 + 15 + units.vpsLength + units.spsLength + units.ppsLength + 8);
  zr_bitstream out{box.data(), static_cast<int64_t>(box.size()), box.size() * 8, 0};
  WriteBits(&out, 32, uint32_t(box.size()));
  WriteBits(&out, 32, 0x68766343);  // 'hvcC'
  klxutilWrite_HEVC_CR(&out, &first.header, units.vps.data(), units.sps.data(), units.pps.data(), units.vpsLength,
                       units.spsLength, units.ppsLength);
  Sets second;
  const uint32_t again = second.read(box.data(), box.size());
  check(again != 0 && again != kFailed);
  check(sameHeader(first.header, second.header));
  Units rewritten;
  check(rewritten.write(second));
  check(rewritten == units);
  return 0;
}
