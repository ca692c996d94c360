// Public headers of the syntax subsystem in one include.
#pragma once
#include "bs.h"
#include "h264_stream.h"
#include "hevc_nal.h"
#include "nal_framing.h"
