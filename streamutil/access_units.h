// Access units of H.264, HEVC and MPEG-2 video streams, cut unit by unit as the units arrive,
// and the pictures' display order from their picture order count.
//
// A host hands the cutter every NAL unit (header byte onwards, no start code or length field)
// in stream order; the cutter says which unit opens a new access unit (ITU-T H.264 7.4.1.2.3,
// H.265 7.4.2.4.4) and what the finished access unit held: whether it has a picture, its picture
// order count (ITU-T H.264 8.2.1, H.265 8.3.1), its coded video sequence and whether the picture
// is a field. Parameter sets that travel outside the stream (avcC/hvcC records of MP4-style
// containers) are taught with klxutilAuCutterLearn. Nothing allocates; all state lives in the
// caller's records, so a recorder can cut and order a stream of any length in constant memory.
//
// The display order keeps a bounded window of pictures (the largest reorder depth of either
// standard, 16) and releases each picture once no later picture can precede it. It also counts
// fields, so that a host can give a pair of field pictures (H.264 field_pic_flag, MPEG-2
// picture_structure) one frame's timecode while frame pictures of the same stream get one each.
#pragma once
#include <cstddef>
#include <cstdint>

extern "C" {

enum {
  KLXUTIL_AU_H264 = 1,
  KLXUTIL_AU_HEVC = 2,
  KLXUTIL_AU_MPEG2 = 3,  // units are start-code units: the "header" is the start code value
};

// What is known of one access unit's picture.
struct KLXUTIL_AU_PICTURE {
  int32_t hasPicture;    // 1 when a slice (VCL unit) belongs to the access unit
  int32_t poc;           // picture order count (decode count for MPEG-2 and H.264 POC types 1, 2)
  uint32_t sequence;     // coded video sequence: grows at each IDR / BLA picture
  int32_t fieldPicture;  // 1 field, 0 frame, -1 not known (HEVC: until the host has said the
                         // SPS's field_seq_flag, klxutilAuCutterSetFieldSequence)
                         // (MPEG-2: picture_structure of the picture coding extension)
  int32_t randomAccess;  // 1 for IDR (H.264), IRAP (HEVC), sequence header (MPEG-2)
  uint64_t decodeIndex;  // access units before this one
  int32_t spsId;         // H.264/HEVC: the id of the SPS its first slice activates through its
                         // PPS (what lays out its picture timing SEI), -1 when not known
  int32_t notOutput;     // HEVC: 1 when a decoder outputs nothing for it (PicOutputFlag 0, ITU-T
                         // H.265 8.1.3): a RASL picture of a CRA that starts the stream or follows
                         // an end of sequence unit, or pic_output_flag 0. It has no display position.
};

// What the cutter learnt of one unit.
struct KLXUTIL_AU_UNIT {
  int32_t type;             // nal_unit_type (start code value for MPEG-2)
  int32_t isSlice;          // 1 for a VCL unit
  int32_t opensAccessUnit;  // 1 when this unit is the first of a new access unit
  int32_t finishedValid;    // 1 when `finished` describes the access unit this unit closed
  KLXUTIL_AU_PICTURE finished;
};

struct KLXUTIL_AU_HEVC_SPS {
  uint8_t valid, log2MaxPocLsb, separateColourPlanes;
  uint8_t fieldSeqKnown, fieldSeq;  // field_seq_flag, once the host has said it
};
struct KLXUTIL_AU_HEVC_PPS {
  uint8_t valid, spsId, outputFlagPresent, extraSliceHeaderBits;
};
struct KLXUTIL_AU_AVC_SPS {
  uint8_t valid, log2MaxFrameNum, pocType, log2MaxPocLsb, frameMbsOnly, separateColourPlanes;
};
struct KLXUTIL_AU_AVC_PPS {
  uint8_t valid, spsId;
  uint8_t bottomFieldPicOrder;  // bottom_field_pic_order_in_frame_present_flag
};

// The cutter's state: caller-owned, filled by klxutilAuCutterInit.
struct KLXUTIL_AU_CUTTER {
  int32_t codec;
  int32_t vclSeen;        // the current access unit already has a slice
  int32_t started;        // a unit has been pushed
  int32_t firstPicture;   // no picture yet
  int32_t prevPocLsb, prevPocMsb;  // H.264: POC type 0 reference; HEVC: prevPocLsb holds prevTid0Pic's POC
  uint64_t accessUnits;   // access units opened so far
  uint64_t pictures;      // pictures seen so far
  KLXUTIL_AU_PICTURE current;  // the access unit being cut
  KLXUTIL_AU_HEVC_SPS hevcSps[16];
  KLXUTIL_AU_HEVC_PPS hevcPps[64];
  KLXUTIL_AU_AVC_SPS avcSps[32];
  KLXUTIL_AU_AVC_PPS avcPps[256];
  int32_t mpeg2TemporalReference;  // MPEG-2: temporal_reference of the last picture header
  uint32_t mpeg2Groups;            // MPEG-2: group_of_pictures headers seen
  int32_t hevcEndOfSequence;       // HEVC: an end of sequence / bitstream unit since the last picture
  int32_t hevcNoRaslOutput;        // HEVC: NoRaslOutputFlag of the last IRAP picture
};

// 0, or -1 for an unknown codec or a null cutter.
int klxutilAuCutterInit(KLXUTIL_AU_CUTTER* cutter, int32_t codec);

// Reads a parameter set handed over outside the stream (avcC / hvcC arrays). Other units are
// ignored. 0, or -1 when the unit is a parameter set that cannot be read.
int klxutilAuCutterLearn(KLXUTIL_AU_CUTTER* cutter, const uint8_t* unit, uint32_t size);

// HEVC: the field_seq_flag of the SPS with sps_seq_parameter_set_id `spsId` (ITU-T H.265
// E.3.1). It sits in the VUI, behind the reference picture sets the cutter does not read, so a
// host that reads whole SPSs says it after handing the SPS over; every later picture of that
// SPS is then cut as a field (fieldPicture 1) or a frame (0). An SPS handed over again is not
// known until said again. 0, or -1 for a cutter that is not HEVC or an SPS it has not read.
int klxutilAuCutterSetFieldSequence(KLXUTIL_AU_CUTTER* cutter, uint32_t spsId, int32_t fieldSeq);

// Takes the next unit of the stream. 0 with `info` filled, or -1 (info->type still set) when a
// parameter set cannot be read or a slice names a parameter set not seen: the picture order of
// the access unit is then not known, and the cutting itself goes on.
int klxutilAuCutterPush(KLXUTIL_AU_CUTTER* cutter, const uint8_t* unit, uint32_t size, KLXUTIL_AU_UNIT* info);

// Starts a new access unit whatever the next unit is: for containers, where each sample is one
// access unit. Returns 1 and fills `finished` when an access unit was open, else 0.
int klxutilAuCutterBreak(KLXUTIL_AU_CUTTER* cutter, KLXUTIL_AU_PICTURE* finished);

// A container sample may hold both field pictures of a frame (two access units by ITU-T H.264
// 7.4.1.2.4). When `first` and `second` are field pictures of one coded video sequence, makes
// `first` describe the frame they form (it shows where its first field does, counts as a frame
// picture, is a random-access point when either field is) and returns 1; else 0, unchanged
// (-1 for a null argument).
int klxutilAuJoinFieldPair(KLXUTIL_AU_PICTURE* first, const KLXUTIL_AU_PICTURE* second);

// The fields a picture shows, as klxutilDisplayOrderAddFields takes them: 1 for a field picture,
// 2 for a frame or a picture whose coding is not known.
inline uint32_t klxutilAuPictureFields(const KLXUTIL_AU_PICTURE* picture) { return picture->fieldPicture == 1 ? 1 : 2; }

enum { KLXUTIL_REORDER_WINDOW = 16 };

struct KLXUTIL_DISPLAY_ENTRY {
  uint64_t decodeIndex;
  uint32_t sequence;
  int32_t poc;
  uint32_t fields;  // fields the picture shows: 1 for a field picture, 2 for a frame
};
struct KLXUTIL_DISPLAY_ORDER {
  uint32_t count;                 // pictures waiting
  uint64_t nextDisplayIndex;      // display index of the next picture released
  uint64_t nextDisplayField;      // fields shown by the pictures released so far
  KLXUTIL_DISPLAY_ENTRY pending[KLXUTIL_REORDER_WINDOW + 1];
};

int klxutilDisplayOrderInit(KLXUTIL_DISPLAY_ORDER* order);
// Adds a picture in decode order. -1 when the window is full: take pictures out first.
int klxutilDisplayOrderAdd(KLXUTIL_DISPLAY_ORDER* order, uint64_t decodeIndex, uint32_t sequence, int32_t poc);
// The same with the fields the picture shows (1 or 2; -1 for any other count).
int klxutilDisplayOrderAddFields(KLXUTIL_DISPLAY_ORDER* order, uint64_t decodeIndex, uint32_t sequence, int32_t poc,
                                 uint32_t fields);
// Releases the next picture in display order once it is certain (a picture of a later coded
// video sequence has arrived, the window is full, or `flush` says the stream has ended).
// 1 with both indices set, 0 when no picture is certain yet, -1 for a null argument.
int klxutilDisplayOrderNext(KLXUTIL_DISPLAY_ORDER* order, int32_t flush, uint64_t* decodeIndex, uint64_t* displayIndex);
// The same, also giving the fields shown before the picture in display order (a frame counting
// two): the picture belongs to frame displayField / 2, and is the second field of that frame
// when displayField is odd. With frames only, displayField is twice displayIndex.
int klxutilDisplayOrderNextField(KLXUTIL_DISPLAY_ORDER* order, int32_t flush, uint64_t* decodeIndex,
                                 uint64_t* displayIndex, uint64_t* displayField);

// The next Annex B start code (00 00 01, or 00 00 00 01 counted as four bytes) at or after
// `from`. 1 with *codeAt (its first zero byte) and *codeLength set, else 0.
int klxutilFindStartCode(const uint8_t* data, size_t size, size_t from, size_t* codeAt, uint32_t* codeLength);
}
