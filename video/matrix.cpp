// Choosing the colour matrix of a raster: ITU-R BT.601 for SD, BT.709 for HD, BT.2020 for UHD,
// in their full-range or video-range forms.
#include <cstdlib>

#include "platform/zrcfg.h"
#include "video/vidformat.h"

int m_gForceVideoRangeMatrix = -1;

namespace {

constexpr const char* kAdvancedKey = "Quorvane\\Advanced";
constexpr const char* kForceValue = "ForceVideoRangeMatrix";
constexpr long long kFirstUhdHeight = 1126;
constexpr int kLastSdWidth = 720;

// Loads the setting once; a missing value is written back as its default 0 so that it shows
// up in the store for the operator to change.
void loadForceSetting() {
  m_gForceVideoRangeMatrix = 0;
  uint32_t value = 0;
  if (zrCFGValueDword(ZR_CFG_SYSTEM, kAdvancedKey, kForceValue, &value, 0) == ZR_CFG_OK) {
    m_gForceVideoRangeMatrix = static_cast<int>(value);
  } else {
    value = 0;
    zrCFGValueDword(ZR_CFG_SYSTEM, kAdvancedKey, kForceValue, &value, 1);
  }
}

}  // namespace

extern "C" int GetMatrixBySize(int width, int height, uint32_t flags) {
  if (m_gForceVideoRangeMatrix == -1) loadForceSetting();
  bool uhd = std::llabs(static_cast<long long>(height)) >= kFirstUhdHeight;
  // A forced value of 1 keeps the full-range matrices even when video range is asked for.
  if (m_gForceVideoRangeMatrix != 1 && (flags & VID_MATRIX_FLAG_VIDEO_RANGE)) {
    if (uhd) return VID_MATRIX_UHD_VIDEO;
    return width <= kLastSdWidth ? VID_MATRIX_SD_VIDEO : VID_MATRIX_HD_VIDEO;
  }
  if (uhd) return VID_MATRIX_UHD_FULL;
  return width <= kLastSdWidth ? VID_MATRIX_SD_FULL : VID_MATRIX_HD_FULL;
}
