// In-place conversion of one frame between Annex B and length-prefixed framing.
//
// Start codes are found through their 00 00 01 triples (syntax/byte_scan.h): a triple with a
// zero byte in front of it is a four-byte code, otherwise a three-byte one. Because a start code
// ends in 01, codes never overlap, so the same set of codes is found scanning forwards or
// backwards. Widening the three-byte codes therefore takes two passes and no allocation: one
// forward to find them, one backward that moves each unit up by the number of three-byte codes
// at or in front of it and writes its length in front of it.
#include "streamutil/framing.h"

#include <cstring>

#include "syntax/byte_scan.h"

namespace {

using quorvane::scan::findFirst;
using quorvane::scan::findLast;
using quorvane::scan::Third;

uint32_t readBE32(const uint8_t* p) {
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | uint32_t{p[3]};
}
void writeBE32(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v >> 24);
  p[1] = static_cast<uint8_t>(v >> 16);
  p[2] = static_cast<uint8_t>(v >> 8);
  p[3] = static_cast<uint8_t>(v);
}

bool beginsWithStartCode(const uint8_t* buf, uint32_t size) {
  if (size >= 3 && buf[0] == 0 && buf[1] == 0 && buf[2] == 1) return true;
  return size >= 4 && buf[0] == 0 && buf[1] == 0 && buf[2] == 0 && buf[3] == 1;
}

// 00 00 00 01 is also the length field of a one-byte unit: a frame that walks as a valid chain
// of lengths (each within the frame, each unit with forbidden_zero_bit clear), possibly followed
// by zero padding, is length-prefixed already.
bool isLengthPrefixedChain(const uint8_t* buf, uint32_t size) {
  uint64_t pos = 0;
  while (size - pos >= 4) {
    uint32_t length = readBE32(buf + pos);
    if (length == 0) {
      if (pos == 0) return false;
      break;
    }
    if (length > size - pos - 4) return false;
    if (buf[pos + 4] & 0x80) return false;
    pos += 4 + uint64_t{length};
  }
  for (; pos < size; pos++) {
    if (buf[pos] != 0) return false;
  }
  return true;
}

struct StartCode {
  uint32_t pos;
  uint32_t length;  // 3 or 4
};

StartCode codeOfTriple(const uint8_t* buf, uint32_t t) {
  if (t >= 1 && buf[t - 1] == 0) return {t - 1, 4};
  return {t, 3};
}

// The conversion scan looks at positions up to size - 4.
bool scanned(StartCode code, uint32_t size) { return code.pos + 4 <= size; }

// Start codes found by the forward pass. Most frames hold a few dozen units, so their codes are
// remembered in a small fixed table on the stack; when a frame holds more, the backward pass
// finds them again by scanning.
struct CodeTable {
  static constexpr uint32_t kCapacity = 512;
  StartCode codes[kCapacity];
  uint32_t count = 0;       // codes found
  uint32_t threeByte = 0;   // of which three-byte codes
  bool complete() const { return count <= kCapacity; }
};

void findCodes(const uint8_t* buf, uint32_t size, CodeTable* table) {
  const uint32_t limit = size - 2;  // size >= 4 here
  for (uint32_t from = 0; from < limit;) {
    auto t = static_cast<uint32_t>(findFirst<Third::kOne>(buf, from, limit));
    if (t >= limit) break;
    StartCode code = codeOfTriple(buf, t);
    if (scanned(code, size)) {
      if (table->count < CodeTable::kCapacity) table->codes[table->count] = code;
      table->count++;
      if (code.length == 3) table->threeByte++;
    }
    from = t + 3;
  }
}

bool needsConversion(const uint8_t* buf, uint32_t size) {
  return size >= 4 && beginsWithStartCode(buf, size) && !isLengthPrefixedChain(buf, size);
}

// Writes the length field of the unit behind `code`, moving the unit up by `shift` first.
void placeUnit(uint8_t* buf, StartCode code, uint32_t unitEnd, uint32_t shift) {
  const uint32_t dataStart = code.pos + code.length;
  const uint32_t dataLength = unitEnd - dataStart;
  if (shift != 0) std::memmove(buf + dataStart + shift, buf + dataStart, dataLength);
  writeBE32(buf + dataStart + shift - 4, dataLength);
}

// Backward pass over a frame that begins with a start code. Each unit moves up by the number of
// three-byte codes at or in front of it.
void convertToLengths(uint8_t* buf, uint32_t size, const CodeTable& table) {
  uint32_t shift = table.threeByte;
  uint32_t unitEnd = size;
  if (table.complete()) {
    for (uint32_t k = table.count; k-- > 0;) {
      const StartCode code = table.codes[k];
      placeUnit(buf, code, unitEnd, shift);
      if (code.length == 3) shift--;
      unitEnd = code.pos;
    }
    return;
  }
  auto limit = static_cast<uint32_t>(size - 2);
  for (;;) {
    auto t = static_cast<uint32_t>(findLast<Third::kOne>(buf, 0, limit));
    if (t >= limit) return;  // unreachable: the frame begins with a start code
    StartCode code = codeOfTriple(buf, t);
    if (!scanned(code, size)) {
      limit = t;
      continue;
    }
    placeUnit(buf, code, unitEnd, shift);
    if (code.length == 3) shift--;
    if (code.pos == 0) return;
    unitEnd = code.pos;
    // No triple can start at code.pos - 1 or - 2 (the code's second byte is 00), and the bytes
    // from code.pos on may already hold a length: search strictly below.
    limit = code.pos - 2;
  }
}

}  // namespace

extern "C" {

uint32_t klxUtilh264MarkerToSizeResult(const uint8_t* buf, uint32_t size) {
  if (buf == nullptr || !needsConversion(buf, size)) return size;
  CodeTable table;
  findCodes(buf, size, &table);
  return size + table.threeByte;
}

uint32_t klxUtilh264MarkerToSize(uint8_t* buf, uint32_t size) {
  if (buf == nullptr || !needsConversion(buf, size)) return size;
  CodeTable table;
  findCodes(buf, size, &table);
  convertToLengths(buf, size, table);
  return size + table.threeByte;
}

int klxUtilh264MarkerToSizeChecked(uint8_t* buf, uint32_t size, uint32_t capacity, uint32_t* newSize) {
  if ((buf == nullptr && size != 0) || size > capacity) return -1;
  if (buf == nullptr || !needsConversion(buf, size)) {
    if (newSize) *newSize = size;
    return 0;
  }
  CodeTable table;
  findCodes(buf, size, &table);
  if (uint64_t{size} + table.threeByte > capacity) return -1;
  convertToLengths(buf, size, table);
  if (newSize) *newSize = size + table.threeByte;
  return 0;
}

uint32_t klxUtilh264SizeToMarker(uint8_t* buf, uint32_t size) {
  if (buf == nullptr) return size;
  if (size >= 4 && readBE32(buf) == 1) return size;
  uint64_t pos = 0;
  while (pos < size) {
    // A length field cut by the end of the frame reads its missing bytes as 0.
    uint8_t field[4] = {0, 0, 0, 0};
    std::memcpy(field, buf + pos, size - pos < 4 ? size - pos : 4);
    uint32_t length = readBE32(field);
    if (length == 0) return static_cast<uint32_t>(pos);  // trailing zero bytes are dropped
    if (length >= size - pos) return size;  // corrupt length: stop, leave the rest as it is
    writeBE32(buf + pos, 1);
    pos += 4 + uint64_t{length};
  }
  return size;
}

}  // extern "C"
