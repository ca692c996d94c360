// Caption and timecode inserters, the caption packet check and the SCC reader on arbitrary
// bytes: the checked and room-testing inserters never write past the frame's capacity (each
// frame sits in a buffer of exactly that size, so the sanitizers see any overrun), a refusal
// leaves the frame as it was, and an accepted insertion keeps the original bytes around the unit.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/tcxlat.h"
#include "streamutil/captions.h"
#include "streamutil/scc.h"
#include "streamutil/sei.h"
#include "fuzz_check.h"

namespace {

struct Input {
  std::vector<uint8_t> frame, packet;
  uint32_t spare, selector;
};

Input split(const uint8_t* data, size_t size) {
  Input in{};
  if (size < 4) return in;
  in.spare = data[0] * 4u;
  in.selector = data[1];
  const size_t packetLength = std::min<size_t>(data[2], size - 3);
  in.packet.assign(data + 3, data + 3 + packetLength);
  in.frame.assign(data + 3 + packetLength, data + size);
  return in;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input in = split(data, size);
  const uint32_t dataSize = uint32_t(in.frame.size());
  std::vector<uint8_t> buffer(in.frame);
  buffer.resize(dataSize + in.spare);
  const std::vector<uint8_t> before = buffer;
  DFRAME f;
  klxutilInitFrame(&f, buffer.data(), dataSize, uint32_t(buffer.size()));
  f.pCaption = in.packet.empty() ? nullptr : in.packet.data();
  f.nCaptionSize = uint32_t(in.packet.size());
  f.nFrame = in.selector * 997u;
  int rc = 0;
  switch (in.selector % 4) {
    case 0:
      rc = klxutilAddHEVCTimeCodeChecked(&f, 1u << (in.selector / 4 % 7));
      break;
    case 1:
      rc = klxutilAddAVCCaptions(&f, f.pCaption, f.nCaptionSize, in.selector & 4);
      break;
    case 2:
      rc = klxutilAddMPEG2Captions(&f);
      break;
    default:
      f.nDataSize += klxUtilAddHevcCaptions(&f, 0);
      break;
  }
  check(f.nDataSize <= buffer.size());
  if (rc != 0) check(buffer == before && f.nDataSize == dataSize);
  check(f.nDataSize >= dataSize);

  std::vector<SCC_CAPTION> pairs(8);
  uint32_t n = 0, line = 0;
  const int sccRc = klxutilReadScc(reinterpret_cast<const char*>(data), size, TC_DF2997, pairs.data(), 8, &n, &line);
  check(sccRc == 0 || sccRc == -1 || sccRc == -2);
  return 0;
}
