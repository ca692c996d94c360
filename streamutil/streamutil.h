// Public headers of the streamutil subsystem in one include.
#pragma once
