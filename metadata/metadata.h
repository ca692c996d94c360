// Public headers of the metadata subsystem in one include.
#pragma once
#include "klxinfo.h"
#include "zrdiskcache.h"
#include "zrprojecttoxml.h"
