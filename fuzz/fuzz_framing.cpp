// The unit search, NAL <-> RBSP conversions, HEVC NAL reader, frame conversions and unit lookup
// on arbitrary bytes: nothing reads or writes outside its buffer (the sanitizers watch), every
// reported unit lies inside the input, and escaping an RBSP then removing the escapes gives it
// back.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "streamutil/framing.h"
#include "syntax/syntax.h"
#include "fuzz_check.h"

namespace {

void searches(const uint8_t* data, int size) {
  int start = 0, end = 0;
  int n = find_nal_unit(data, size, &start, &end);
  check(start >= 0 && start <= end && end <= size && (n == 0 || n == end - start));
  n = find_nal_unit_4only(data, size, &start, &end);
  check(start >= 0 && start <= end && end <= size && (n <= 0 || n == end - start));
}

void conversions(const uint8_t* data, int size) {
  std::vector<uint8_t> rbsp(static_cast<size_t>(size) + 1);
  int nalSize = size, rbspSize = size;
  int n = nal_to_rbsp(data, &nalSize, rbsp.data(), &rbspSize);
  if (n < 0) return;
  check(n == rbspSize && n <= size);
  std::vector<uint8_t> nal(static_cast<size_t>(n) * 3 / 2 + 2);
  int capacity = static_cast<int>(nal.size());
  int m = rbsp_to_nal(rbsp.data(), &rbspSize, nal.data(), &capacity);
  check(m > 0 && m == capacity);
  int againNal = m, againRbsp = m;
  std::vector<uint8_t> back(static_cast<size_t>(m));
  int k = nal_to_rbsp(nal.data(), &againNal, back.data(), &againRbsp);
  // An RBSP that ends in zero bytes may lose its last escaped byte; anything else comes back.
  if (n > 0 && rbsp[static_cast<size_t>(n) - 1] != 0) {
    check(k == n && std::memcmp(back.data(), rbsp.data(), static_cast<size_t>(n)) == 0);
  }
}

void hevcReader(const uint8_t* data, int size) {
  h264_stream_t* h = h264_new();
  if (!h) return;
  int n = read_nal_unit_hevc(h, data, size);
  check(n == -1 || n == 0 || n == size);
  for (int i = 0; i < h->num_seis; i++) check(h->seis[i]->payloadSize <= size);
  h264_free(h);
}

void frames(const uint8_t* data, uint32_t size) {
  std::vector<uint8_t> frame(data, data + size);
  uint32_t room = klxUtilh264MarkerToSizeResult(frame.data(), size);
  check(room >= size && room - size <= size / 3 + 1);
  frame.resize(room);
  uint32_t newSize = 0;
  if (room > size) check(klxUtilh264MarkerToSizeChecked(frame.data(), size, room - 1, &newSize) == -1);
  check(klxUtilh264MarkerToSizeChecked(frame.data(), size, room, &newSize) == 0 && newSize == room);
  check(klxUtilh264SizeToMarker(frame.data(), newSize) <= newSize);

  for (uint32_t startCodes = 0; startCodes < 2; startCodes++) {
    uint8_t* unit = nullptr;
    uint32_t length = 0;
    std::vector<uint8_t> copy(data, data + size);
    uint8_t* base = copy.data();
    if (klxUtilFindSpecificNAL(base, size, startCodes, size > 4 ? data[4] : 0, &unit, &length)) {
      check(unit >= base && length > 0 && unit + length <= base + size);
    }
    uint8_t *sei = nullptr, *rpu = nullptr;
    uint32_t seiLength = 0, rpuLength = 0;
    klxUtilFindDolbyVisionMetadata(base, size, startCodes, &sei, &seiLength, &rpu, &rpuLength);
    if (sei) check(sei >= base && sei + seiLength <= base + size);
    if (rpu) check(rpu >= base && rpu + rpuLength <= base + size);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (1u << 20)) return 0;
  const int n = static_cast<int>(size);
  searches(data, n);
  conversions(data, n);
  hevcReader(data, n);
  frames(data, static_cast<uint32_t>(size));
  return 0;
}
