// The H.264 sequence parameter sets a stream has carried, by seq_parameter_set_id.
//
// The picture timing SEI is laid out by the SPS that its picture's slices activate (ITU-T H.264
// 7.4.1.2.1, D.1.3: the HRD delay lengths and pic_struct_present_flag), and a stream may carry
// several SPSs or give an id new contents (a spliced or concatenated stream). Reading or writing
// a picture's timecode with any other SPS misreads it or breaks it. A host hands every SPS over
// in decode order and asks, access unit by access unit, for the SPS its picture uses: the id
// the access-unit cutter reports (KLXUTIL_AU_PICTURE::spsId). The set is caller-owned and
// nothing allocates.
#pragma once
#include <cstdint>

#include "avc_params.h"

extern "C" {

struct KLXUTIL_AVC_SPS_SET {
  SPS_DECODED sps[32];
  uint8_t known[32];
  int32_t lastId;  // the SPS handed over last, -1 none
};

// 0, or -1 for a null set.
int klxutilAvcSpsSetInit(KLXUTIL_AVC_SPS_SET* set);

// Takes a unit (header byte first, emulation prevention as coded). An SPS replaces what its id
// held: 0. 1 for a unit that is not an SPS (ignored); -1 for an SPS that cannot be read, which
// leaves the set as it was.
int klxutilAvcSpsSetLearn(KLXUTIL_AVC_SPS_SET* set, const uint8_t* unit, uint32_t size);

// The SPS with id `spsId`, or, for a negative id (the picture's was not known), the SPS handed
// over last. Null when there is none.
const SPS_DECODED* klxutilAvcSpsSetFind(const KLXUTIL_AVC_SPS_SET* set, int32_t spsId);

}  // extern "C"
