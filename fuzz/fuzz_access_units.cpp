// The access-unit cutter, the display order and the field-pair join on arbitrary bytes: the
// first byte picks the codec, the rest is cut at start codes into units. Nothing reads outside
// a unit (the sanitizers watch), the display order hands out every picture it took exactly
// once, display indices count up from 0, and display fields grow by the fields each picture
// shows. H.264 units also go to an SPS set, where each picture's SPS id must find an SPS of
// that id or none.
#include <cstdint>
#include <memory>
#include <vector>

#include "streamutil/access_units.h"
#include "streamutil/avc_sps_set.h"
#include "fuzz_check.h"

namespace {

struct Orderer {
  KLXUTIL_DISPLAY_ORDER order;
  uint64_t added = 0, released = 0, fields = 0;
  std::vector<uint32_t> fieldsOf;  // by decode index of the pictures added

  void add(const KLXUTIL_AU_PICTURE& p) {
    if (!p.hasPicture) return;
    release(0);
    const uint32_t shown = klxutilAuPictureFields(&p);
    check(klxutilDisplayOrderAddFields(&order, added, p.sequence, p.poc, shown) == 0);
    fieldsOf.push_back(shown);
    ++added;
  }
  void release(int32_t flush) {
    uint64_t decode = 0, display = 0, field = 0;
    while (klxutilDisplayOrderNextField(&order, flush, &decode, &display, &field) == 1) {
      check(decode < added && display == released && field == fields);
      fields += fieldsOf[decode];
      fieldsOf[decode] = 0;  // a picture handed out twice would add nothing the second time
      ++released;
    }
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const int32_t codec = KLXUTIL_AU_H264 + data[0] % 3;
  KLXUTIL_AU_CUTTER cutter;
  check(klxutilAuCutterInit(&cutter, codec) == 0);
  Orderer o;
  klxutilDisplayOrderInit(&o.order);
  static const auto spsSet = std::make_unique<KLXUTIL_AVC_SPS_SET>();
  check(klxutilAvcSpsSetInit(spsSet.get()) == 0);
  KLXUTIL_AU_PICTURE previous{};
  size_t at = 0, next = 0;
  uint32_t length = 0, nextLength = 0;
  for (bool more = klxutilFindStartCode(data, size, 1, &at, &length) == 1; more; at = next, length = nextLength) {
    more = klxutilFindStartCode(data, size, at + length, &next, &nextLength) == 1;
    const size_t end = more ? next : size;
    check(at + length <= end && end <= size);
    if (end == at + length) continue;
    // Each unit is copied to a buffer of exactly its size, so a read past it is seen.
    const std::vector<uint8_t> unit(data + at + length, data + end);
    KLXUTIL_AU_UNIT info;
    const int rc = klxutilAuCutterPush(&cutter, unit.data(), uint32_t(unit.size()), &info);
    check(rc == 0 || rc == -1);
    // A host that read an HEVC SPS whole says its field_seq_flag (any id, learnt or not).
    if (codec == KLXUTIL_AU_HEVC && info.type == 33) {
      const int said = klxutilAuCutterSetFieldSequence(&cutter, unit.back() & 31u, unit.back() & 32);
      check(said == 0 || said == -1);
    }
    if (codec == KLXUTIL_AU_H264) {
      const int learnt = klxutilAvcSpsSetLearn(spsSet.get(), unit.data(), uint32_t(unit.size()));
      check(learnt >= -1 && learnt <= 1);
    }
    if (!info.finishedValid) continue;
    if (codec == KLXUTIL_AU_H264 && info.finished.spsId >= 0) {
      const SPS_DECODED* sps = klxutilAvcSpsSetFind(spsSet.get(), info.finished.spsId);
      check(!sps || sps->seq_parameter_set_id == info.finished.spsId);
    }
    KLXUTIL_AU_PICTURE joined = previous;
    check(klxutilAuJoinFieldPair(&joined, &info.finished) >= 0);
    previous = info.finished;
    o.add(info.finished);
  }
  o.add(cutter.current);
  o.release(1);
  check(o.released == o.added && o.order.count == 0);
  return 0;
}
