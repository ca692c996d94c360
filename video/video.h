// Public headers of the video subsystem in one include.
#pragma once
