// Annex B NAL unit search and the NAL <-> RBSP conversions (emulation prevention,
// ITU-T H.264 7.4.1 / H.265 7.4.2). These are the hottest loops of the library: they scan
// whole frames at memory speed and never copy the input.
#pragma once
#include <cstdint>

extern "C" {

// Finds the first NAL unit behind a 00 00 01 or 00 00 00 01 start code in buf[0, size).
// Sets *nal_start/*nal_end (offsets in buf) and returns the unit's length (end - start); the
// last unit of a buffer runs to its end. Returns 0 with both outputs 0 when there is no start
// code. A buffer shorter than 4 bytes, and the four bytes 00 00 00 01, are returned whole
// (start 0, end size).
int find_nal_unit(const uint8_t* buf, int size, int* nal_start, int* nal_end);

// Like find_nal_unit, but only 00 00 00 01 starts a unit, and a unit ends at the first
// 00 00 00 behind it (an inner 00 00 01 does not end it). Returns -1, with *nal_end = size,
// when the unit runs to the end of the buffer.
int find_nal_unit_4only(const uint8_t* buf, int size, int* nal_start, int* nal_end);

// Removes emulation-prevention bytes. nal_buf[0] (the first header byte) is skipped, so the
// RBSP of an HEVC unit begins with its second header byte. In: *nal_size bytes, *rbsp_size
// capacity. Out: bytes consumed, RBSP length. Returns the RBSP length, or -1 when the RBSP
// buffer is too small or 00 00 03 is followed by a byte above 03 (sizes then unchanged).
int nal_to_rbsp(const uint8_t* nal_buf, int* nal_size, uint8_t* rbsp_buf, int* rbsp_size);

// Inserts emulation-prevention bytes. nal_buf[0] is reserved for the header (set to 00) and
// the payload starts at index 1. In: *nal_size capacity. Returns the NAL length including the
// header byte and stores it in *nal_size, or -1 when the NAL buffer is too small.
int rbsp_to_nal(const uint8_t* rbsp_buf, const int* rbsp_size, uint8_t* nal_buf, int* nal_size);

}  // extern "C"
