// Parameter sets and configuration records: the bit reader/writer, HEVC and AVC parameter
// sets, hvcC and dvvC records.
#pragma once
#include "zr_bitstream.h"
#include "param_elements.h"
#include "hevc_params.h"
#include "avc_params.h"
#include "hevc_config_record.h"
