#include "streamutil/rbsp.h"

#include <cstring>

namespace rbsp {

namespace {
void dropByte(uint8_t* data, size_t& size, size_t index) {
  std::memmove(data + index, data + index + 1, size - index - 1);
  --size;
  data[size] = 0;  // the copy keeps its length; the freed tail reads as zero
}
}  // namespace

void removeHevcEmulationPrevention(uint8_t* data, size_t& size, uint64_t& bitLength) {
  size_t i = 0;
  while (i + 2 < size) {
    if (data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 3) {
      dropByte(data, size, i + 2);
      bitLength = bitLength >= 8 ? bitLength - 8 : 0;
      i += 2;
      if (i + 3 >= size) break;
    } else {
      ++i;
    }
  }
}

void removeAvcEmulationPrevention(uint8_t* data, size_t& size, bool alsoTwelve, size_t guard) {
  for (size_t i = 3; i + guard < size; ++i) {
    if (data[i] == 0 && data[i + 1] == 0 && (data[i + 2] == 3 || (alsoTwelve && data[i + 2] == 12))) {
      dropByte(data, size, i + 2);
      ++i;  // continue after the two zeros
    }
  }
}

size_t addEmulationPrevention(const uint8_t* data, size_t size, uint8_t* out) {
  size_t n = 0;
  int zeros = 0;
  for (size_t i = 0; i < size; ++i) {
    if (zeros >= 2 && data[i] < 4) {
      out[n++] = 3;
      zeros = 0;
    }
    out[n++] = data[i];
    zeros = data[i] == 0 ? zeros + 1 : 0;
  }
  return n;
}

}  // namespace rbsp
