// Public headers of the syntax subsystem in one include.
#pragma once
