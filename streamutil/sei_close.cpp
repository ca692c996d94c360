// CloseSEI: the common tail of every SEI NAL unit the stream utilities write.
#include <algorithm>

#include "streamutil/sei.h"

namespace {

// Byte capacity of an output stream: its size when given, else its length in bits.
uint64_t capacityBytes(const zr_bitstream* s) {
  return s->size > 0 ? static_cast<uint64_t>(s->size) : s->length / 8;
}

// rbsp_trailing_bits() / payload alignment: a 1 bit, then 0 bits up to the byte boundary.
void writeStopBitAndAlign(zr_bitstream* s) {
  WriteBit(s, 1);
  while (s->position % 8) WriteBit(s, 0);
}

class ByteSink {
 public:
  explicit ByteSink(zr_bitstream* out) : out_(out), capacity_(capacityBytes(out)) {}
  void put(uint8_t byte) {
    const uint64_t at = out_->position / 8;
    if (at < capacity_) out_->buffer[at] = byte;
    out_->position += 8;
  }
  void putAt(uint64_t at, uint8_t byte) {
    if (at < capacity_) out_->buffer[at] = byte;
  }

 private:
  zr_bitstream* out_;
  uint64_t capacity_;
};

}  // namespace

extern "C" void CloseSEI(zr_bitstream* work, zr_bitstream* out, uint32_t payloadSizeIndex, bool lengthPrefix) {
  if (!work || !out || !work->buffer || !out->buffer) return;
  if (work->position % 8) writeStopBitAndAlign(work);  // payload_bit_equal_to_one + alignment
  const uint64_t payloadEnd = work->position / 8;
  if (payloadSizeIndex != SEI_NO_PAYLOAD_SIZE_PATCH && payloadSizeIndex < payloadEnd)
    work->buffer[payloadSizeIndex] = static_cast<uint8_t>(payloadEnd - payloadSizeIndex - 1);
  writeStopBitAndAlign(work);  // rbsp_trailing_bits

  const uint8_t* in = work->buffer;
  const uint64_t n = std::min<uint64_t>(work->position / 8, capacityBytes(work));
  out->position -= out->position % 8;  // units start on a byte boundary
  const uint64_t start = out->position / 8;
  ByteSink sink(out);
  uint64_t i = 0;
  if (work->position > 31)
    for (; i < 4; ++i) sink.put(in[i]);  // the start code goes out unescaped
  // Emulation prevention (ITU-T H.265 7.4.2): 00 00 followed by 00..03 becomes 00 00 03 xx.
  while (i + 2 < n) {
    if (in[i] == 0 && in[i + 1] == 0 && in[i + 2] <= 3) {
      sink.put(0);
      sink.put(0);
      sink.put(3);
      i += 2;
    } else {
      sink.put(in[i++]);
    }
  }
  for (; i < n; ++i) sink.put(in[i]);

  const uint64_t written = out->position / 8 - start;
  const uint32_t prefix = lengthPrefix ? static_cast<uint32_t>(written >= 4 ? written - 4 : 0) : 1u;
  for (int k = 0; k < 4; ++k) sink.putAt(start + k, static_cast<uint8_t>(prefix >> (24 - 8 * k)));
}
