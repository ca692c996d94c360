// Listing the syntax elements of a decoded parameter set: every element present, in bitstream
// order, with its ITU-T name (array subscripts dropped) and value. Used for printing and for
// comparing against other parsers.
#pragma once
#include <cstdint>

// bits: the fixed width of the element, or 0 for ue(v)/se(v).
typedef void (*klxutilParamElementSink)(void* user, const char* name, int64_t value, int32_t bits);
