// Public headers of the syntax subsystem in one include.
#pragma once
#include "syntax/bs.h"
#include "syntax/h264_stream.h"
#include "syntax/hevc_nal.h"
#include "syntax/nal_framing.h"
