// Public headers of the video subsystem in one include.
#pragma once
#include "transport.h"
#include "vidformat.h"
#include "vidrate.h"
#include "tctype_names.h"
