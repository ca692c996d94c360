// The H.264 sequence parameter sets of a stream by id (see avc_sps_set.h).
#include "streamutil/avc_sps_set.h"

#include <cstring>

extern "C" {

int klxutilAvcSpsSetInit(KLXUTIL_AVC_SPS_SET* set) {
  if (!set) return -1;
  std::memset(static_cast<void*>(set->known), 0, sizeof set->known);
  set->lastId = -1;
  return 0;
}

int klxutilAvcSpsSetLearn(KLXUTIL_AVC_SPS_SET* set, const uint8_t* unit, uint32_t size) {
  if (!set || !unit || size < 2) return -1;
  if ((unit[0] & 0x1F) != 7) return 1;
  SPS_DECODED read{};
  zr_bitstream s{const_cast<uint8_t*>(unit), static_cast<int64_t>(size), uint64_t{size} * 8, 0};
  if (klxutilRead_SPS(&s, &read) == 0 || s.position > s.length) return -1;
  const int32_t id = read.seq_parameter_set_id;
  if (id < 0 || id > 31) return -1;
  set->sps[id] = read;
  set->known[id] = 1;
  set->lastId = id;
  return 0;
}

const SPS_DECODED* klxutilAvcSpsSetFind(const KLXUTIL_AVC_SPS_SET* set, int32_t spsId) {
  if (!set) return nullptr;
  const int32_t id = spsId < 0 ? set->lastId : spsId;
  return id >= 0 && id < 32 && set->known[id] ? &set->sps[id] : nullptr;
}

}  // extern "C"
