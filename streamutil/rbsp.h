// Internal: emulation-prevention removal and insertion for the parameter-set readers/writers.
#pragma once
#include <cstddef>
#include <cstdint>

namespace rbsp {

// HEVC readers: from byte 0, every 00 00 03 loses its 03 (scanning goes on after the two
// zeros). `size` and `bitLength` shrink by one byte per removal.
void removeHevcEmulationPrevention(uint8_t* data, size_t& size, uint64_t& bitLength);

// AVC readers: from byte 3, every 00 00 <escape> loses its third byte while index + `guard`
// is below the size. The SPS reader knows only 03; the PPS reader also drops 0C.
void removeAvcEmulationPrevention(uint8_t* data, size_t& size, bool alsoTwelve, size_t guard);

// Writers: copies `size` bytes to `out`, inserting 03 wherever two zero bytes are followed by a
// byte below 4. `out` must hold size + size / 2 + 1 bytes. Returns the bytes written.
size_t addEmulationPrevention(const uint8_t* data, size_t size, uint8_t* out);

}  // namespace rbsp
