// HEVC VPS/SPS/PPS readers and writers: the common frame around the syntax of
// hevc_params_syntax.h (private unescaped copy, NAL header, trailing-bit check; working buffer,
// forced header, emulation prevention).
#include "streamutil/hevc_params.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <new>
#include <vector>

#include "platform/zrlog.h"
#include "streamutil/hevc_params_syntax.h"
#include "streamutil/rbsp.h"

namespace {

using hevc_syntax::BodyResult;
using syntax_io::SignedCode;
using syntax_io::SyntaxReader;
using HevcWriter = syntax_io::SyntaxWriter<SignedCode::kLibraryMapping>;

constexpr uint32_t kFailed = 0xFFFFFFFFu;
constexpr const char* kSourceName = "klxvidutil";

enum NalType : uint32_t { kVps = 32, kSps = 33, kPps = 34 };

struct UnitKind {
  NalType type;
  const char* readerName;  // in the trailing-bit reports
};
constexpr UnitKind kVpsKind{kVps, "klxutilRead_HEVC_VPS"};
constexpr UnitKind kSpsKind{kSps, "klxutilRead_HEVC_SPS"};
constexpr UnitKind kPpsKind{kPps, "klxutilRead_HEVC_PPS"};

void reportWrongType(NalType expected, uint32_t got) {
  switch (expected) {
    case kVps: ErrOut("Not a vps NAL %s %d", kSourceName, __LINE__); break;
    case kSps: ErrOut("Not a sps NAL %s %d", kSourceName, __LINE__); break;
    case kPps: ErrOut("Not a pps NAL (%d) %s %d", static_cast<int>(got), kSourceName, __LINE__); break;
  }
}

// rbsp_trailing_bits() check: reported, never failed.
void checkTrailingBits(zr_bitstream* s, uint64_t bitLength, const char* readerName) {
  uint32_t stopBit = ReadBit(s);
  uint32_t padding = 0;
  while (s->position % 8 != 0) {
    padding |= ReadBit(s);
    if (padding == 0xFFFFFFFFu) break;
  }
  if (s->position == bitLength) {
    if (stopBit != 1 || padding != 0)
      ErrOut("\n%s failed allignment bit = %d padding = %d current bit %d bit length %d", readerName,
             static_cast<int>(stopBit), static_cast<int>(padding), static_cast<int>(s->position),
             static_cast<int>(bitLength));
    return;
  }
  uint64_t remaining = s->position < bitLength ? std::min<uint64_t>(bitLength - s->position, 64) : 0;
  uint64_t rest = ReadBits64(s, static_cast<int32_t>(remaining));
  ErrOut("\n%s failed bit length is wrong = %d padding = %d current bit %d bit length %d 0x%08X 0x%08X", readerName,
         static_cast<int>(stopBit), static_cast<int>(padding), static_cast<int>(s->position),
         static_cast<int>(bitLength), static_cast<unsigned>(rest & 0xFFFFFFFFu), static_cast<unsigned>(rest >> 32));
}

void fillSummary(HEVC_DECODED* summary, const HEVC_PROFILE_TIER_LEVEL& p) {
  if (!summary) return;
  summary->general_profile_space = static_cast<uint32_t>(p.general_profile_space) & 3u;
  summary->general_tier_flag = static_cast<uint32_t>(p.general_tier_flag) & 1u;
  summary->general_profile_idc = static_cast<uint32_t>(p.general_profile_idc) & 31u;
  summary->general_profile_compatibility_flags = p.general_profile_compatibility_flags;
  summary->general_constraint_indicator_flags = p.general_constraint_indicator_flags & 0xFFFFFFFFFFFFull;
  summary->general_level_idc = static_cast<uint32_t>(p.general_level_idc) & 0xFFu;
}

// A reader sets every element of its record that the unit codes, and clears every other one,
// with one exception that keeps an SPS read cheaper than its 52 KB record: the short-term
// reference picture sets, the scaling lists and the sub-layer HRD tables are cleared only when
// the unit codes them (syntax_io's clearBeforeReading), so entries past the coded counts keep
// what they held. Nothing reads those entries: every user of the record follows the counts and
// flags, as the syntax does.
template <class Record>
void clearForReading(Record* record) {
  std::memset(static_cast<void*>(record), 0, sizeof *record);
}

void clearBetween(HEVC_SPS_DECODED* sps, size_t from, size_t to) {
  std::memset(reinterpret_cast<uint8_t*>(sps) + from, 0, to - from);
}

void clearForReading(HEVC_SPS_DECODED* sps) {
  using S = HEVC_SPS_DECODED;
  constexpr size_t scaling = offsetof(S, scaling_list), sets = offsetof(S, st_ref_pic_set);
  constexpr size_t nal = offsetof(S, vui) + offsetof(HEVC_VUI_PARAMETERS, hrd) +
                         offsetof(HEVC_HRD_PARAMETERS, nal_sub_layer);
  constexpr size_t vcl = offsetof(S, vui) + offsetof(HEVC_VUI_PARAMETERS, hrd) +
                         offsetof(HEVC_HRD_PARAMETERS, vcl_sub_layer);
  static_assert(scaling < sets && sets < nal && nal + sizeof(S::vui.hrd.nal_sub_layer) == vcl);
  clearBetween(sps, 0, scaling);
  clearBetween(sps, scaling + sizeof(S::scaling_list), sets);
  clearBetween(sps, sets + sizeof(S::st_ref_pic_set), nal);
  clearBetween(sps, vcl + sizeof(S::vui.hrd.vcl_sub_layer), sizeof(S));
}

// The reader frame shared by VPS, SPS and PPS. `body(reader)` reads the syntax into the record.
template <class Record, class Body>
uint32_t readUnit(zr_bitstream* in, Record* record, uint64_t bitLength, const UnitKind& kind, Body&& body) {
  if (!record || !in || !in->buffer) return 0;
  const uint64_t bits = bitLength ? bitLength : in->length;
  const uint64_t startByte = in->position / 8;
  const uint64_t haveBytes = in->size > 0 ? static_cast<uint64_t>(in->size) : (in->length + 7) / 8;
  const uint64_t available = haveBytes > startByte ? haveBytes - startByte : 0;
  const uint64_t bytes = std::min(bits / 8, available);
  if (bits == 0 || bytes == 0) return 0;
  // The private copy: twice the unit, zero behind the data. Parameter sets are small, so it
  // lives on the stack; only an unusually long unit takes the heap.
  const size_t copyBytes = std::max<uint64_t>(2 * bytes, bytes + 16);
  std::array<uint8_t, 1024> local;
  std::vector<uint8_t> heap;
  uint8_t* copy = local.data();
  if (copyBytes > local.size()) {
    try {
      heap.resize(copyBytes);
    } catch (const std::bad_alloc&) {
      return kFailed;
    }
    copy = heap.data();
  }
  std::memcpy(copy, in->buffer + startByte, bytes);
  std::memset(copy + bytes, 0, copyBytes - bytes);
  size_t size = bytes;
  uint64_t unescapedBits = bytes < bits / 8 ? bytes * 8 : bits;
  if (kind.type != kPps || size > 5) rbsp::removeHevcEmulationPrevention(copy, size, unescapedBits);

  clearForReading(record);
  zr_bitstream priv{copy, static_cast<int64_t>(copyBytes), unescapedBits, 0};
  ReadBit(&priv);  // forbidden_zero_bit
  const uint32_t type = ReadBits(&priv, 6);
  ReadBits(&priv, 6);  // nuh_layer_id
  ReadBits(&priv, 3);  // nuh_temporal_id_plus1
  if (type != kind.type) {
    reportWrongType(kind.type, type);
    in->position = startByte * 8 + priv.position;
    return kFailed;
  }
  SyntaxReader reader{&priv};
  BodyResult result = body(reader);
  if (reader.failed) result = BodyResult::kOutOfRange;
  switch (result) {
    case BodyResult::kOk: checkTrailingBits(&priv, unescapedBits, kind.readerName); break;
    case BodyResult::kExtensionSkipped: break;
    case BodyResult::kReservedBits:
      ErrOut("Vps Reserved bits incorrect %s %d", kSourceName, __LINE__);
      in->position = startByte * 8 + priv.position;
      return kFailed;
    case BodyResult::kOutOfRange:
      // Too many short-term sets has always failed silently (count stored as 0).
      if (reader.refusedName() != "num_short_term_ref_pic_sets")
        ErrOut("%s: %.*s out of range %s %d", kind.readerName, static_cast<int>(reader.refusedName().size()),
             reader.refusedName().data(), kSourceName, __LINE__);
      in->position = startByte * 8 + priv.position;
      return kFailed;
  }
  in->position += bits;
  return static_cast<uint32_t>(priv.position / 8);
}

// The writer frame: forced NAL header, body, trailing bits, emulation prevention.
constexpr size_t kWorkBytes = 1024;

template <class Body>
int32_t writeUnit(NalType type, uint8_t* out, size_t capacity, Body&& body) {
  std::array<uint8_t, kWorkBytes> work{};
  zr_bitstream w{work.data(), static_cast<int64_t>(work.size()), kWorkBytes * 8, 0};
  WriteBit(&w, 0);      // forbidden_zero_bit
  WriteBits(&w, 6, type);
  WriteBits(&w, 6, 0);  // nuh_layer_id
  WriteBits(&w, 3, 1);  // nuh_temporal_id_plus1
  HevcWriter writer{&w};
  body(writer);
  if (writer.failed) return -1;  // a field outside its legal range
  WriteBit(&w, 1);  // rbsp_stop_one_bit
  while (w.position % 8) WriteBit(&w, 0);
  const size_t rbspBytes = std::min<size_t>(w.position / 8, kWorkBytes);
  std::array<uint8_t, kHevcParamSetMaxBytes> escaped;
  size_t n = rbspBytes < 5 ? (std::memcpy(escaped.data(), work.data(), rbspBytes), rbspBytes)
                           : rbsp::addEmulationPrevention(work.data(), rbspBytes, escaped.data());
  if (!out || n > capacity) return -1;
  std::memcpy(out, escaped.data(), n);
  return static_cast<int32_t>(n);
}

}  // namespace

uint32_t klxutilRead_HEVC_VPS(zr_bitstream* in, HEVC_VPS_DECODED* vps, HEVC_DECODED* summary, uint64_t bitLength) {
  uint32_t result = readUnit(in, vps, bitLength, kVpsKind, [&](SyntaxReader& io) {
    BodyResult r = hevc_syntax::vpsBody(io, *vps);
    if (r == BodyResult::kOk && vps->vps_extension_flag == 1) {
      // The extension is not parsed: skip to the end of the unit, trailing bits included.
      io.s->position = io.s->length;
      r = BodyResult::kExtensionSkipped;
    }
    return r;
  });
  if (result != kFailed && result != 0) fillSummary(summary, vps->ptl);
  return result;
}

uint32_t klxutilRead_HEVC_SPS(zr_bitstream* in, HEVC_SPS_DECODED* sps, HEVC_DECODED* summary, uint64_t bitLength) {
  uint32_t result = readUnit(in, sps, bitLength, kSpsKind,
                             [&](SyntaxReader& io) { return hevc_syntax::spsBody(io, *sps, summary); });
  if (result != kFailed && result != 0) fillSummary(summary, sps->ptl);
  return result;
}

uint32_t klxutilRead_HEVC_PPS(zr_bitstream* in, HEVC_PPS_DECODED* pps, HEVC_DECODED*, uint64_t bitLength) {
  return readUnit(in, pps, bitLength, kPpsKind, [&](SyntaxReader& io) { return hevc_syntax::ppsBody(io, *pps); });
}

int32_t klxutilWriteChecked_HEVC_VPS(HEVC_VPS_DECODED* vps, uint8_t* out, size_t capacity) {
  if (!vps) return -1;
  return writeUnit(kVps, out, capacity, [&](HevcWriter& io) { hevc_syntax::vpsBody(io, *vps); });
}
int32_t klxutilWriteChecked_HEVC_SPS(HEVC_SPS_DECODED* sps, uint8_t* out, size_t capacity) {
  if (!sps) return -1;
  return writeUnit(kSps, out, capacity, [&](HevcWriter& io) { hevc_syntax::spsBody(io, *sps, nullptr); });
}
int32_t klxutilWriteChecked_HEVC_PPS(HEVC_PPS_DECODED* pps, uint8_t* out, size_t capacity) {
  if (!pps) return -1;
  return writeUnit(kPps, out, capacity, [&](HevcWriter& io) { hevc_syntax::ppsBody(io, *pps); });
}

int32_t klxutilWrite_HEVC_VPS(HEVC_VPS_DECODED* vps, uint8_t* out) {
  return klxutilWriteChecked_HEVC_VPS(vps, out, kHevcParamSetMaxBytes);
}
int32_t klxutilWrite_HEVC_SPS(HEVC_SPS_DECODED* sps, uint8_t* out, uint64_t) {
  return klxutilWriteChecked_HEVC_SPS(sps, out, kHevcParamSetMaxBytes);
}
int32_t klxutilWrite_HEVC_PPS(HEVC_PPS_DECODED* pps, uint8_t* out) {
  return klxutilWriteChecked_HEVC_PPS(pps, out, kHevcParamSetMaxBytes);
}

void hvcc_read_profile_tier_level(zr_bitstream* s, int32_t maxNumSubLayersMinus1, HEVC_PROFILE_TIER_LEVEL* ptl,
                                  HEVC_DECODED* summary) {
  if (!s || !ptl) return;
  SyntaxReader io{s};
  hevc_syntax::profileTierLevel(io, *ptl, maxNumSubLayersMinus1);
  fillSummary(summary, *ptl);
}
void hvcc_read_profile_tier_level(zr_bitstream* s, int32_t maxNumSubLayersMinus1, HEVC_SPS_DECODED* sps,
                                  HEVC_DECODED* summary) {
  if (sps) hvcc_read_profile_tier_level(s, maxNumSubLayersMinus1, &sps->ptl, summary);
}
void hvcc_read_profile_tier_level(zr_bitstream* s, int32_t maxNumSubLayersMinus1, HEVC_VPS_DECODED* vps,
                                  HEVC_DECODED* summary) {
  if (vps) hvcc_read_profile_tier_level(s, maxNumSubLayersMinus1, &vps->ptl, summary);
}
void hvcc_write_profile_tier_level(zr_bitstream* s, int32_t maxNumSubLayersMinus1, HEVC_PROFILE_TIER_LEVEL* ptl) {
  if (!s || !ptl) return;
  HevcWriter io{s};
  hevc_syntax::profileTierLevel(io, *ptl, maxNumSubLayersMinus1);
}
void hvcc_write_profile_tier_level(zr_bitstream* s, int32_t maxNumSubLayersMinus1, HEVC_SPS_DECODED* sps) {
  if (sps) hvcc_write_profile_tier_level(s, maxNumSubLayersMinus1, &sps->ptl);
}
void hvcc_write_profile_tier_level(zr_bitstream* s, int32_t maxNumSubLayersMinus1, HEVC_VPS_DECODED* vps) {
  if (vps) hvcc_write_profile_tier_level(s, maxNumSubLayersMinus1, &vps->ptl);
}

void klxutil_read_hevc_hrd(zr_bitstream* s, int32_t commonInfPresentFlag, int32_t maxNumSubLayersMinus1) {
  if (!s) return;
  HEVC_HRD_PARAMETERS scratch{};
  SyntaxReader io{s};
  hevc_syntax::hrdParameters(io, scratch, commonInfPresentFlag, maxNumSubLayersMinus1);
}

void klxutil_decode_sublayer_hrd(zr_bitstream* s, int32_t CpbCnt, int32_t sub_pic_hrd_params_present_flag) {
  if (!s) return;
  HEVC_SUB_LAYER_HRD scratch{};
  SyntaxReader io{s};
  hevc_syntax::subLayerHrd(io, scratch, CpbCnt, sub_pic_hrd_params_present_flag);
}

namespace {
// Forwards listed elements to the C callback with a terminated name.
struct ElementForwarder {
  klxutilParamElementSink sink;
  void* user;
  void operator()(std::string_view name, int64_t value, int bits) const {
    char text[96];
    size_t n = std::min(name.size(), sizeof text - 1);
    std::memcpy(text, name.data(), n);
    text[n] = 0;
    sink(user, text, value, bits);
  }
};
template <class Record, class Body>
void listRecord(const Record* record, klxutilParamElementSink sink, void* user, Body&& body) {
  if (!record || !sink) return;
  ElementForwarder forward{sink, user};
  syntax_io::SyntaxLister<ElementForwarder> io{forward};
  body(io, const_cast<Record&>(*record));  // listing never modifies the record
}
}  // namespace

void klxutilList_HEVC_VPS(const HEVC_VPS_DECODED* vps, klxutilParamElementSink sink, void* user) {
  listRecord(vps, sink, user, [](auto& io, HEVC_VPS_DECODED& r) { hevc_syntax::vpsBody(io, r); });
}
void klxutilList_HEVC_SPS(const HEVC_SPS_DECODED* sps, klxutilParamElementSink sink, void* user) {
  listRecord(sps, sink, user, [](auto& io, HEVC_SPS_DECODED& r) { hevc_syntax::spsBody(io, r, nullptr); });
}
void klxutilList_HEVC_PPS(const HEVC_PPS_DECODED* pps, klxutilParamElementSink sink, void* user) {
  listRecord(pps, sink, user, [](auto& io, HEVC_PPS_DECODED& r) { hevc_syntax::ppsBody(io, r); });
}
