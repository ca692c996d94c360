// zr_bitstream: the bit reader and writer under every parameter-set, configuration-record and
// SEI routine of the stream utilities. Most significant bit first: bit index p lives in byte p / 8
// and is bit 7 - (p % 8) of that byte.
//
// Past-the-end behaviour (kept exactly, callers rely on it):
//  - ReadBit tests `length < position`, so a read AT position == length still fetches the bit
//    from the byte that holds bit index `length`; only beyond that does it return 0xFFFFFFFF.
//    Either way position advances by one.
//  - PeekBit returns 1 for position + offset >= length (equality included).
//  - Multi-bit reads OR the shifted 0xFFFFFFFF in, so every bit from the first past-the-end bit
//    upwards becomes 1.
//
// Memory safety: `size`, when it is above 0, is the number of addressable bytes behind `buffer`.
// No function reads or writes a byte at or beyond it (a read there yields the past-the-end
// value 0xFFFFFFFF; a write there is dropped, position still advances). With size <= 0 the
// readers trust `length` (plus the one byte holding bit `length`) and the writers trust `length`
// as the capacity in bits. Results are those of the bit-by-bit definition in every case; whole
// bytes and words are used where the data allows.
#pragma once
#include <cstdint>

extern "C" {

struct zr_bitstream {
  uint8_t* buffer;    // the data; not owned
  int64_t size;       // bytes addressable behind buffer (maintained by the caller; 0 = not given)
  uint64_t length;    // number of valid bits: the limit the readers test against
  uint64_t position;  // index of the next bit to read or write
};
static_assert(sizeof(zr_bitstream) == 32, "zr_bitstream is four 8-byte fields");

// Number of significant bits of i (1 for 0 and 1, 2 for 2..3, ..., 8 for 128..255).
extern const int32_t len_table_mini[256];

// hrd_parameters() of ITU-T H.264 Annex E.1.2; at most 8 CPB entries are kept.
struct hdr_parameters_cpb {
  uint32_t bit_rate_value_minus1;  // ue(v) up to 2^32 - 2
  uint32_t cpb_size_value_minus1;
  int32_t cbr_flag;
};
struct hdr_parameters {
  int32_t cpb_cnt_minus1;
  int32_t bit_rate_scale;
  int32_t cpb_size_scale;
  hdr_parameters_cpb cpb[8];
  int32_t initial_cpb_removal_delay_length_minus1;
  int32_t cpb_removal_delay_length_minus1;
  int32_t dpb_output_delay_length_minus1;
  int32_t time_offset_length;
};
static_assert(sizeof(hdr_parameters) == 31 * 4, "hdr_parameters is 31 32-bit fields");

// Reading.
uint32_t PeekBit(zr_bitstream* s, int32_t offset);
uint32_t PeekBits(zr_bitstream* s, int32_t n);
bool IsEndOfStream(zr_bitstream* s);
uint32_t ReadBit(zr_bitstream* s);
uint32_t ReadBits(zr_bitstream* s, int32_t n);
uint64_t ReadBits64(zr_bitstream* s, int32_t n);
uint32_t ReadExponentialGolombCode(zr_bitstream* s);
int32_t ReadExponentialGolombCodeSigned(zr_bitstream* s);
uint32_t ReadCodedNumber(zr_bitstream* s);
void SkipBits(zr_bitstream* s, int32_t n);

// Writing.
void WriteBit(zr_bitstream* s, uint32_t bit);
void WriteBits(zr_bitstream* s, int32_t n, uint32_t value);
void WriteBits64(zr_bitstream* s, int32_t n, uint64_t value);
// ue(value). For values of 16777215 and above the code is 48 bits longer than ITU-T H.264 9.1
// would make it (the bit count is taken as table[x >> 24] + 48): kept as is.
void WriteExponentialGolombCode(zr_bitstream* s, uint32_t value);
// Signed code with code number -2v for v <= 0 and 2v + 2 for v >= 1: a positive value does NOT
// read back through ReadExponentialGolombCodeSigned (v comes back as -(v + 1)). The HEVC
// parameter-set writers depend on exactly this; write_scaling_list uses the standard mapping.
void WriteExponentialGolombCodeSigned(zr_bitstream* s, int32_t value);

// The checked form, for callers writing into a buffer of known capacity: `size` is that capacity
// in bytes, and 0 or less means no room at all (a stream that gives no size cannot be written
// through it). When every bit of the code fits it is written, position advances and the result
// is 0; otherwise nothing is written, position stays where it was and the result is
// ZR_BITSTREAM_NO_ROOM. n outside 0..32 (WriteBitsChecked) is refused as a bad argument (-1).
constexpr int32_t ZR_BITSTREAM_NO_ROOM = -102;
int32_t WriteBitsChecked(zr_bitstream* s, int32_t n, uint32_t value);
int32_t WriteExponentialGolombCodeChecked(zr_bitstream* s, uint32_t value);

// Bit length of ue(value), defined for 0..127 (only the low byte of value is used). A low byte
// of 128..255 gives the true length of ue(low byte) rather than indexing outside the table.
int32_t LengthExponentialGolombCode(uint32_t value);
// Ceiling of log2(x); 0 for x <= 1.
int32_t zrintlog2(int32_t x);

// Writes `size` delta_scale values (standard signed mapping, no run shortening), or `size`
// codes ue(0) when useDefault is non-zero.
void write_scaling_list(zr_bitstream* s, const int32_t* list, int32_t size, int32_t useDefault);

// hrd_parameters() of ITU-T H.264 E.1.2. The reader keeps cpb_cnt_minus1 limited to 7 and reads
// only entries 0..7 (a stream with more is misread after the eighth); the writer trusts the record.
void read_hrd_parameters(hdr_parameters* hrd, zr_bitstream* s);
void write_hrd_parameters(hdr_parameters* hrd, zr_bitstream* s);
}
