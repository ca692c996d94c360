// Display labels of the system's file-type codes and of four-character codec codes, as shown
// to operators and written to logs. Both lookups return a constant string owned by the
// library; neither allocates nor fails.
#pragma once
#include <cstdint>

extern "C" {

// Label of a file-type code; "Unknown file type" for codes without one (0, 57, above 226).
const char* klxutilFileTypeString(uint32_t fileType);

// Label of a FOURCC held in the low 32 bits of `fourcc`, first character in the most
// significant byte ('hvc1' == 0x68766331). Codes outside the fixed table are classified by
// the fccIs… family tests; a code that nothing recognises gives "" (never null).
const char* klxutilCodecTypeString(uint64_t fourcc);
}
