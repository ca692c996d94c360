// avcC records on arbitrary bytes: reading a record (with and without a stream context) and
// building one from a frame. A built record never passes the capacity and reads back.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "streamutil/avcc.h"
#include "streamutil/nal_units.h"
#include "fuzz_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const uint32_t startCodes = data[0] & 1;
  const bool withContext = data[0] & 2;
  const uint32_t capacity = data[1] * 4u;
  const uint8_t* bytes = data + 2;
  const uint32_t length = uint32_t(size - 2);

  avcc_t* avcc = avcc_new();
  h264_stream_t* h = withContext ? h264_new() : nullptr;
  AVCC_HIGH_PROFILE_FIELDS ext{};
  SPS_DECODED sps{};
  PPS_DECODED pps{};
  const int readRc = klxutilReadAvcc(bytes, length, avcc, h, &ext, &sps, &pps);
  check(readRc == 0 || readRc == -1);
  // Every entry lies inside the bytes given, and a record whose entries list reads.
  AVCC_ENTRY entries[31 + 255 + 255];
  uint32_t count = 0;
  const int listed = klxutilAvccEntries(bytes, length, entries, 31 + 255 + 255, &count);
  check(listed == 0 || listed == -1);
  check(listed != 0 || readRc == 0);
  for (uint32_t i = 0; listed == 0 && i < count; ++i) check(entries[i].offset + uint64_t{entries[i].size} <= length);

  std::vector<uint8_t> out(capacity);
  uint32_t outSize = 0;
  const int getRc = klxutilGetAvcc(bytes, length, startCodes, out.data(), capacity, &outSize);
  check(getRc == 0 || getRc == -1 || getRc == KLX_NAL_NO_ROOM);
  if (getRc == 0) {
    check(outSize <= capacity);
    check(klxutilReadAvcc(out.data(), outSize, avcc, h, &ext, &sps, &pps) == 0);
    check(klxutilAvccEntries(out.data(), outSize, entries, 31 + 255 + 255, &count) == 0);
    check(count == uint32_t(avcc->numOfSequenceParameterSets + avcc->numOfPictureParameterSets + ext.numOfSequenceParameterSetExt));
  }
  if (h) h264_free(h);
  avcc_free(avcc);
  return 0;
}
