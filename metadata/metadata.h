// Public headers of the metadata subsystem in one include.
#pragma once
