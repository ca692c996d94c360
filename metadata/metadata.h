// Public headers of the metadata subsystem in one include.
#pragma once
#include "metadata/klxinfo.h"
#include "metadata/zrdiskcache.h"
#include "metadata/zrprojecttoxml.h"
