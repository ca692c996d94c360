// HEVC NAL unit header and prefix SEI reading (ITU-T H.265 7.3.1.2, 7.3.2.4, 7.3.5).
#include "syntax/hevc_nal.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "syntax/nal_framing.h"

namespace {

struct FreeDeleter {
  void operator()(uint8_t* p) const { std::free(p); }
};

void readHeader(nal_t* nal, const uint8_t* buf, int size) {
  const uint8_t b0 = size > 0 ? buf[0] : 0;
  const uint8_t b1 = size > 1 ? buf[1] : 0;  // a byte beyond the unit reads as 0
  nal->forbidden_zero_bit = b0 >> 7;
  nal->nal_unit_type = (b0 >> 1) & 0x3F;
  nal->nuh_layer_id = ((b0 & 0x01) << 5) | (b1 >> 3);
  nal->temporal_id = (b1 & 0x07) - 1;
  nal->parsed = nullptr;
  nal->sizeof_parsed = 0;
}

// profile_tier_level(1, maxNumSubLayersMinus1) (ITU-T H.265 7.3.3), values not kept.
void skipProfileTierLevel(bs_t* b, int maxNumSubLayersMinus1) {
  bs_skip_u(b, 2 + 1 + 5);  // general_profile_space, general_tier_flag, general_profile_idc
  bs_skip_u(b, 32);         // general_profile_compatibility_flag[32]
  bs_skip_u(b, 4 + 43 + 1); // source flags, constraint flags, general_inbld/reserved flag
  bs_skip_u(b, 8);          // general_level_idc
  bool profilePresent[8] = {};
  bool levelPresent[8] = {};
  for (int i = 0; i < maxNumSubLayersMinus1; i++) {
    profilePresent[i] = bs_read_u1(b) != 0;
    levelPresent[i] = bs_read_u1(b) != 0;
  }
  if (maxNumSubLayersMinus1 > 0) {
    for (int i = maxNumSubLayersMinus1; i < 8; i++) bs_skip_u(b, 2);  // reserved_zero_2bits
  }
  for (int i = 0; i < maxNumSubLayersMinus1; i++) {
    if (profilePresent[i]) bs_skip_u(b, 88);
    if (levelPresent[i]) bs_skip_u(b, 8);
  }
}

}  // namespace

extern "C" {

int read_nal_unit_hevc(h264_stream_t* h, const uint8_t* buf, int size) {
  nal_t* nal = h->nal;
  readHeader(nal, buf, size);

  const int capacity = size > 0 ? size : 0;
  std::unique_ptr<uint8_t, FreeDeleter> rbsp(static_cast<uint8_t*>(std::malloc(capacity > 0 ? capacity : 1)));
  if (!rbsp) return -1;
  int nalSize = capacity;
  int rbspSize = capacity;
  if (nal_to_rbsp(buf, &nalSize, rbsp.get(), &rbspSize) < 0) return -1;

  bs_t b;
  bs_init(&b, rbsp.get(), rbspSize);
  const int type = nal->nal_unit_type;
  if (type == kHevcNalPrefixSei) {
    bs_skip_u(&b, 8);  // the RBSP begins with the second header byte
    read_sei_rbsp(h, &b);
    nal->parsed = h->sei;
    nal->sizeof_parsed = sizeof(sei_t);
    return bs_overrun(&b) ? -1 : size;
  }
  if (type <= kHevcNalSuffixSei) return size;  // suffix SEI units are deliberately not parsed
  nal->parsed = nullptr;
  nal->sizeof_parsed = 0;
  return 0;  // 41..63: reserved and unspecified types
}

void read_hevc_seq_parameter_set_rbsp(h264_stream_t* h, bs_t* b) {
  bs_skip_u(b, 4);  // sps_video_parameter_set_id
  int maxSubLayersMinus1 = static_cast<int>(bs_read_u(b, 3));
  bs_skip_u(b, 1);  // sps_temporal_id_nesting_flag
  if (maxSubLayersMinus1 > 6) return;  // not a valid SPS: stop here
  skipProfileTierLevel(b, maxSubLayersMinus1);
  if (bs_overrun(b)) return;
  h->sps = h->sps_table[0];
  std::memset(h->sps, 0, sizeof(*h->sps));
}

void read_hevc_pic_parameter_set_rbsp(h264_stream_t* h, bs_t* b) {
  bs_read_ue(b);  // pps_pic_parameter_set_id, not kept
  h->pps = h->pps_table[0];
  std::memset(h->pps, 0, sizeof(*h->pps));
}

}  // extern "C"
