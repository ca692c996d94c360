// Internal: the directions of a syntax description. Each parameter-set structure is written
// once as a template over an Io; SyntaxReader fills the record from a zr_bitstream,
// SyntaxWriter writes the record, and SyntaxLister reports each element present (name and
// value, in bitstream order) for printing. Reading and writing cannot drift apart.
//
// Descriptions name their elements with the QV_ macros, which pass the field expression's text
// as the element name ("p.sub_layer_level_idc[i]" is reported as "sub_layer_level_idc").
#pragma once
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "zr_bitstream.h"

#define QV_U(n, field) io.u(n, field, #field)
#define QV_U64(n, field) io.u64(n, field, #field)
#define QV_FLAG(field) io.flag(field, #field)
#define QV_UE(field) io.ue(field, #field)
#define QV_SE(field) io.se(field, #field)
// ue(v)/se(v) with the legal range of the element: a value outside [lo, hi] fails the read (the
// field is left at lo so nothing behind it computes with the bad value) and fails the write.
#define QV_UE_IN(field, lo, hi) io.ue(field, #field, syntax_io::Range{lo, hi})
#define QV_SE_IN(field, lo, hi) io.se(field, #field, syntax_io::Range{lo, hi})

namespace syntax_io {

// How a writer codes se(v): the HEVC writers use WriteExponentialGolombCodeSigned (positive
// values take code number 2v + 2); the AVC writers use ITU-T H.264 9.1.1 (2v - 1).
enum class SignedCode { kLibraryMapping, kStandardMapping };

// The legal range of an Exp-Golomb element, inclusive. 64-bit so every bound of ue(v)
// (0..2^32 - 2) and se(v) (-(2^31 - 1)..2^31 - 1) can be written.
struct Range {
  int64_t lo;
  int64_t hi;
  bool holds(int64_t v) const { return v >= lo && v <= hi; }
};
constexpr int64_t kUeMax = 4294967294;   // 2^32 - 2, the largest ue(v) of 32 leading zeros
constexpr int64_t kSeMax = 2147483647;   // 2^31 - 1
constexpr int64_t kInt32Max = 2147483647;  // elements bounded only by the picture size

// One ue(v) code number, or -1 for a code of 32 or more leading zero bits (no legal element
// has one: their values would pass 2^32 - 2).
inline int64_t readCodeNumber(zr_bitstream* s) {
  const uint64_t before = s->position;
  const uint32_t value = ReadExponentialGolombCode(s);
  return s->position - before > 63 ? -1 : int64_t{value};
}
// se(v) from its code number k (ITU-T H.264 9.1.1): (-1)^(k+1) * ceil(k / 2).
inline int64_t signedFromCode(int64_t k) { return (k & 1) ? (k + 1) / 2 : -(k / 2); }

struct SyntaxReader {
  static constexpr bool kReading = true;
  static constexpr bool kWriting = false;
  zr_bitstream* s;

  void u(int n, int32_t& field, const char*) { field = static_cast<int32_t>(ReadBits(s, n)); }
  void u(int n, uint32_t& field, const char*) { field = ReadBits(s, n); }
  void u64(int n, uint64_t& field, const char*) { field = ReadBits64(s, n); }
  void flag(int32_t& field, const char*) { field = static_cast<int32_t>(ReadBit(s)); }
  void ue(int32_t& field, const char*) { field = static_cast<int32_t>(ReadExponentialGolombCode(s)); }
  void se(int32_t& field, const char*) { field = ReadExponentialGolombCodeSigned(s); }
  template <class Field>
  void ue(Field& field, const char* name, Range range) {
    store(field, readCodeNumber(s), range, name);
  }
  void se(int32_t& field, const char* name, Range range) {
    const int64_t k = readCodeNumber(s);
    store(field, k < 0 ? range.lo - 1 : signedFromCode(k), range, name);
  }
  // Set by the first value outside its range (whose element is kept for the report); the read
  // then fails.
  bool failed = false;
  const char* refused = nullptr;
  std::string_view refusedName() const;
  template <class Field>
  void store(Field& field, int64_t value, Range range, const char* name) {
    if (!range.holds(value)) {
      if (!failed) refused = name;
      failed = true;
      value = range.lo;
    }
    field = static_cast<Field>(value);
  }
  // A field the writer emits with a fixed value; the reader returns what was there.
  uint32_t fixed(int n, uint32_t) { return ReadBits(s, n); }
  uint32_t fixedUe(uint32_t) { return ReadExponentialGolombCode(s); }
  // False once the data is exhausted or a value was refused: loops driven by coded counts stop.
  bool more() const { return !failed && s->position <= s->length; }
  // Clears a large part of a record just before its syntax is read (see clearForReading).
  template <class Part>
  void clearBeforeReading(Part& part) {
    std::memset(static_cast<void*>(&part), 0, sizeof part);
  }
};

template <SignedCode kSigned>
struct SyntaxWriter {
  static constexpr bool kReading = false;
  static constexpr bool kWriting = true;
  zr_bitstream* s;

  void u(int n, int32_t& field, const char*) { WriteBits(s, n, static_cast<uint32_t>(field)); }
  void u(int n, uint32_t& field, const char*) { WriteBits(s, n, field); }
  void u64(int n, uint64_t& field, const char*) { WriteBits64(s, n, field); }
  void flag(int32_t& field, const char*) { WriteBit(s, static_cast<uint32_t>(field)); }
  void ue(int32_t& field, const char*) { WriteExponentialGolombCode(s, static_cast<uint32_t>(field)); }
  template <class Field>
  void ue(Field& field, const char*, Range range) {
    if (!range.holds(int64_t{field})) failed = true;
    WriteExponentialGolombCode(s, static_cast<uint32_t>(field));
  }
  void se(int32_t& field, const char* name, Range range) {
    if (!range.holds(int64_t{field})) failed = true;
    se(field, name);
  }
  // Set by the first field outside its range; the write then fails.
  bool failed = false;
  void se(int32_t& field, const char*) {
    if constexpr (kSigned == SignedCode::kLibraryMapping) {
      WriteExponentialGolombCodeSigned(s, field);
    } else {
      uint32_t v = static_cast<uint32_t>(field);
      WriteExponentialGolombCode(s, field <= 0 ? (0u - 2u * v) : (2u * v - 1u));
    }
  }
  uint32_t fixed(int n, uint32_t value) {
    WriteBits(s, n, value);
    return value;
  }
  uint32_t fixedUe(uint32_t value) {
    WriteExponentialGolombCode(s, value);
    return value;
  }
  // False once the working buffer is full or a field was refused: a hostile record cannot
  // make a writer spin.
  bool more() const { return !failed && s->position <= s->length; }
  template <class Part>
  void clearBeforeReading(Part&) {}
};

// Element name from the field expression: the member after the last '.', without subscripts.
inline std::string_view elementName(const char* expression) {
  std::string_view text(expression);
  size_t dot = text.find_last_of('.');
  if (dot != std::string_view::npos) text.remove_prefix(dot + 1);
  size_t bracket = text.find('[');
  if (bracket != std::string_view::npos) text = text.substr(0, bracket);
  return text;
}

// Reports every element present in a decoded record, in bitstream order, through a callback
// `sink(name, value, bits)` (bits = 0 for ue(v)/se(v)). Fixed and reserved fields are not reported.
template <class Sink>
struct SyntaxLister {
  static constexpr bool kReading = false;
  static constexpr bool kWriting = false;
  Sink& sink;
  zr_bitstream* s = nullptr;  // unused: listing reads nothing

  void u(int n, int32_t& field, const char* name) { sink(elementName(name), int64_t{field}, n); }
  void u(int n, uint32_t& field, const char* name) { sink(elementName(name), int64_t{field}, n); }
  void u64(int n, uint64_t& field, const char* name) { sink(elementName(name), static_cast<int64_t>(field), n); }
  void flag(int32_t& field, const char* name) { sink(elementName(name), int64_t{field}, 1); }
  void ue(int32_t& field, const char* name) { sink(elementName(name), int64_t{field}, 0); }
  void se(int32_t& field, const char* name) { sink(elementName(name), int64_t{field}, 0); }
  void ue(uint32_t& field, const char* name) { sink(elementName(name), int64_t{field}, 0); }
  template <class Field>
  void ue(Field& field, const char* name, Range) { ue(field, name); }
  void se(int32_t& field, const char* name, Range) { se(field, name); }
  uint32_t fixed(int, uint32_t value) { return value; }
  uint32_t fixedUe(uint32_t value) { return value; }
  // A budget of loop steps, so a hostile record cannot make a listing spin.
  uint64_t steps = 0;
  bool more() { return ++steps < 100000; }
  template <class Part>
  void clearBeforeReading(Part&) {}
};

inline std::string_view SyntaxReader::refusedName() const {
  return refused ? elementName(refused) : std::string_view("element");
}

// Loop count for a coded count kept in an array of `capacity` entries.
inline int32_t bounded(int32_t coded, int32_t capacity) { return std::clamp(coded, 0, capacity); }

// u(v) widths taken from the stream are limited to 32 bits.
inline int widthOf(int32_t coded) { return std::clamp(coded, 0, 32); }

}  // namespace syntax_io
