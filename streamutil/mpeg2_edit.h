// MPEG-2 video (ISO/IEC 13818-2) access units edited in place, as a recorder stamps them: the
// group_of_pictures_header's time_code from a frame count, and ATSC A/53 caption user data
// replaced in front of the picture's first slice. Also the timecode of any picture, counted on
// from its group's time_code by temporal_reference. Every edit is bounds checked against the
// frame's capacity; nothing allocates.
#pragma once
#include <cstdint>

#include "dframe.h"
#include "sei_read.h"

extern "C" {

// The timecode of the picture `temporalReference` frames behind its group's time_code (the
// group's first picture in display order has temporal_reference 0, ISO/IEC 13818-2 6.3.9),
// counted at the rate of `frameRateCode` (Table 6-4), drop-frame when the group says so.
// 0 with *out filled, -1 for a null argument, a reserved rate code or an impossible time_code.
int klxutilMpeg2PictureTimeCode(const KLX_TIMECODE* gop, uint32_t frameRateCode, uint32_t temporalReference,
                                KLX_TIMECODE* out);

// Writes the frame's timecode (klxFrameTimecode) as the time_code of every
// group_of_pictures_header in front of its first slice, in timecode type `tcType` (1 24,
// 2 30, 4 29.97 drop-frame, 8 25, 16 50, 32 59.94 drop-frame, 64 60, 128 23.98);
// drop_frame_flag is set for the drop-frame types. Returns the number of headers rewritten (0
// when the frame opens no group), -1 for a bad argument or a count the type cannot show.
int klxutilAddMpeg2TimeCode(DFRAME* frame, uint32_t tcType);

// Removes every "GA94" cc_data user_data block (user_data_type_code 3) in front of the frame's
// first slice, with its start code. nDataSize shrinks (nSecondPartOffset moves with the data
// when DFRAME_TWO_PARTS and DFRAME_SECOND_PART_VALID are both set). Other user data stays.
// Returns the number of blocks removed, -1 for a bad argument.
int klxutilRemoveMpeg2Captions(DFRAME* frame);

// Inserts the caption packet's triplets (whole triplets, at most 31; see captions.h for the
// packet) as a "GA94" cc_data user_data block in front of the frame's first slice, behind the
// picture header and its extensions, with process_cc_data_flag set (ATSC A/53 Part 4 6.2.3).
// Existing caption blocks stay (remove them first). Returns 0; -1 for a bad argument, a packet
// the check rejects or a frame without a slice; KLX_CC_NO_ROOM (-102), frame untouched, when
// nBufferSize cannot take the block.
int klxutilInsertMpeg2Captions(DFRAME* frame, const uint8_t* packet, uint32_t packetLength);
}
