// Public headers of the video subsystem in one include.
#pragma once
#include "video/transport.h"
#include "video/vidformat.h"
#include "video/vidrate.h"
