// The platform utility services in one include.
#pragma once
#include "zrcfg.h"
#include "zrfile.h"
#include "zrfourcc.h"
#include "zrlog.h"
#include "zrmemory.h"
#include "zrtext.h"
#include "tcxlat.h"
