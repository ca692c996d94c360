// Parameter sets and configuration records: the bit reader/writer, HEVC and AVC parameter
// sets, hvcC and dvvC records.
#pragma once
#include "streamutil/zr_bitstream.h"
#include "streamutil/param_elements.h"
#include "streamutil/hevc_params.h"
#include "streamutil/avc_params.h"
#include "streamutil/hevc_config_record.h"
