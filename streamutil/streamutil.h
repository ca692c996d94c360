// Public headers of the streamutil subsystem in one include.
#pragma once
#include "dframe.h"
#include "captions.h"
#include "typenames.h"
#include "zr_bitstream.h"
#include "framing.h"
#include "sei.h"
#include "aac.h"
#include "scc.h"
#include "parameter_sets.h"
