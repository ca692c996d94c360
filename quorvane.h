// Quorvane media utilities: every public header in one include.
#pragma once
#include "platform/zrutil.h"
#include "mediacmd/mediacmd.h"
#include "video/video.h"
#include "metadata/metadata.h"
#include "streamutil/streamutil.h"
#include "syntax/syntax.h"
