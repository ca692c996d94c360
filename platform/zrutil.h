// The platform utility services in one include.
#pragma once
#include "platform/zrcfg.h"
#include "platform/zrfile.h"
#include "platform/zrfourcc.h"
#include "platform/zrlog.h"
#include "platform/zrmemory.h"
#include "platform/zrtext.h"
#include "platform/tcxlat.h"
