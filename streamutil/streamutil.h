// Public headers of the streamutil subsystem in one include.
#pragma once
#include "streamutil/dframe.h"
#include "streamutil/captions.h"
#include "streamutil/typenames.h"
#include "streamutil/zr_bitstream.h"
#include "streamutil/framing.h"
#include "streamutil/sei.h"
#include "streamutil/aac.h"
#include "streamutil/scc.h"
#include "streamutil/parameter_sets.h"
