// One-line traces of a MEDIACMD and of a timecode value, through _DbgOut, for people reading
// logs. The texts are fixed (log readers and scripts match them).
#pragma once
#include "mediacmd_record.h"

extern "C" {
// "klx-Chan<n> <command> [Deferred ][UseSpeed (<percent>) ][UsePosition (<n>) ]..." .
// ctGetState and ctSetState are not traced. A null record is ignored.
void __dbgout_mediacmd(MEDIACMD* cmd);
// The value as timecode of the given type (low byte; 0 counts 30 fps non-drop).
void __dbgout_tc(unsigned value, unsigned type);
}
