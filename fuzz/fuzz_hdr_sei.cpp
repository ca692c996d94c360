// HDR SEI messages on arbitrary bytes: reading a frame's messages and single payloads, parsing
// the mastering display notation, and replacing a frame's messages in place. The replacement
// never writes past the capacity (the frame sits in a buffer of exactly that size), leaves the
// whole buffer untouched when it refuses, and what it wrote reads back as the record it was given.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "streamutil/hdr_sei.h"
#include "fuzz_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const uint32_t startCodes = data[0] & 1;
  const uint32_t hevc = data[0] & 2;
  const uint32_t spare = data[1] * 2u;
  const std::vector<uint8_t> frame(data + 2, data + size);
  const uint32_t frameSize = uint32_t(frame.size());

  KLX_HDR_METADATA md{};
  const int readRc = klxutilReadHdrSei(frame.data(), frameSize, startCodes, hevc, &md);
  check(readRc == 0 || readRc == -1);

  KLX_HDR_METADATA payload{};
  for (const uint32_t type : {KLX_SEI_MASTERING_DISPLAY, KLX_SEI_CONTENT_LIGHT_LEVEL, KLX_SEI_ALTERNATIVE_TRANSFER}) {
    const int rc = klxutilReadHdrSeiPayload(type, frame.data(), frameSize, &payload);
    check(rc == 0 || rc == -1);
  }

  const std::string text(frame.begin(), frame.end());
  KLX_MASTERING_DISPLAY display{};
  const int parseRc = klxutilParseMasteringDisplay(text.c_str(), &display);
  check(parseRc == 0 || parseRc == -1);

  // Set the payloads just read (or nothing) on the frame.
  payload.present &= (data[0] >> 2) & 7;
  std::vector<uint8_t> buffer(frame);
  buffer.resize(frameSize + spare);
  const std::vector<uint8_t> before = buffer;
  uint32_t newSize = frameSize;
  const int setRc = klxutilSetHdrSei(buffer.data(), &newSize, uint32_t(buffer.size()), startCodes, hevc, &payload);
  check(setRc == 0 || setRc == -1 || setRc == -102);
  check(newSize <= buffer.size());
  if (setRc != 0) {
    // Every change is planned before the first write: nothing in the buffer moved, spare room included.
    check(newSize == frameSize && buffer == before);
    return 0;
  }
  KLX_HDR_METADATA back{};
  check(klxutilReadHdrSei(buffer.data(), newSize, startCodes, hevc, &back) == 0);
  check(back.present == payload.present);
  if (payload.present & KLX_HDR_HAS_MASTERING_DISPLAY)
    check(std::memcmp(&back.masteringDisplay, &payload.masteringDisplay, sizeof payload.masteringDisplay) == 0);
  if (payload.present & KLX_HDR_HAS_CONTENT_LIGHT_LEVEL)
    check(std::memcmp(&back.contentLightLevel, &payload.contentLightLevel, sizeof payload.contentLightLevel) == 0);
  if (payload.present & KLX_HDR_HAS_ALTERNATIVE_TRANSFER)
    check(back.preferredTransferCharacteristics == payload.preferredTransferCharacteristics);
  return 0;
}
