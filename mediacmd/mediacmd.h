// Public headers of the mediacmd subsystem in one include.
#pragma once
