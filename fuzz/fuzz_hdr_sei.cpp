// HDR SEI messages on arbitrary bytes: reading a frame's messages and single payloads, parsing
// the mastering display notation, and replacing a frame's messages in place. The replacement
// never writes past the capacity (the frame sits in a buffer of exactly that size), leaves the
// whole buffer untouched when it refuses, what it wrote reads back as the record it was given, and
// the other SEI messages in front of the first slice read back as they were, in order.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "streamutil/hdr_sei.h"
#include "streamutil/nal_units.h"
#include "fuzz_check.h"

namespace {

bool isHdrMessage(uint32_t type) {
  return type == KLX_SEI_MASTERING_DISPLAY || type == KLX_SEI_CONTENT_LIGHT_LEVEL ||
         type == KLX_SEI_ALTERNATIVE_TRANSFER;
}

// The payload of a NAL unit as nal_unit() reads it (ITU-T H.265 7.3.1.1, H.264 7.3.1): every
// 00 00 03 behind the header loses its 03. The last non-zero byte (rbsp_trailing_bits) is left out.
std::vector<uint8_t> rbspOf(const uint8_t* body, size_t size) {
  while (size > 0 && body[size - 1] == 0) --size;
  std::vector<uint8_t> rbsp;
  int zeros = 0;
  for (size_t i = 0; i + 1 < size; ++i) {
    if (zeros >= 2 && body[i] == 3) {
      zeros = 0;
      continue;
    }
    rbsp.push_back(body[i]);
    zeros = body[i] == 0 ? zeros + 1 : 0;
  }
  return rbsp;
}

// Every SEI message other than the HDR ones in the units in front of the first slice, as
// (type, size, payload) in order; a unit cut short adds what it has left and a marker.
std::vector<uint32_t> otherSeiMessages(const uint8_t* frame, uint32_t size, uint32_t startCodes, uint32_t hevc) {
  std::vector<uint32_t> out;
  uint32_t count = 0;
  auto find = hevc ? klxutilFindNalUnitsHevc : klxutilFindNalUnits;
  find(frame, size, startCodes, nullptr, 0, &count);
  std::vector<KLX_NAL_UNIT> units(count);
  find(frame, size, startCodes, units.data(), count, &count);
  const uint32_t headerBytes = hevc ? 2 : 1;
  for (const KLX_NAL_UNIT& u : units) {
    if (hevc ? u.type < 32 : (u.type >= 1 && u.type <= 5)) break;
    if (u.type != (hevc ? 39 : 6) || u.size <= headerBytes) continue;
    const std::vector<uint8_t> rbsp = rbspOf(frame + u.offset + u.prefixLength + headerBytes, u.size - headerBytes);
    size_t i = 0;
    auto coded = [&](uint32_t& v) {
      v = 0;
      do {
        if (i == rbsp.size()) return false;
        v += rbsp[i];
      } while (rbsp[i++] == 0xFF);
      return true;
    };
    while (i < rbsp.size()) {
      uint32_t type = 0, payloadSize = 0;
      if (!coded(type) || !coded(payloadSize) || payloadSize > rbsp.size() - i) {
        out.push_back(UINT32_MAX);
        break;
      }
      if (!isHdrMessage(type)) {
        out.insert(out.end(), {type, payloadSize});
        out.insert(out.end(), rbsp.begin() + i, rbsp.begin() + i + payloadSize);
      }
      i += payloadSize;
    }
  }
  return out;
}

}  // namespace

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
  check(otherSeiMessages(buffer.data(), newSize, startCodes, hevc) ==
        otherSeiMessages(frame.data(), frameSize, startCodes, hevc));
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
