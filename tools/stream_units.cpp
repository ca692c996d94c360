// See stream_units.h.
#include "stream_units.h"

#include <algorithm>
#include <climits>
#include <memory>

#include "syntax/syntax.h"

namespace units {

namespace {

struct TypeLabel {
  int type;
  const char* name;
};

// ITU-T H.264 Table 7-1.
constexpr TypeLabel kH264Types[] = {
    {1, "slice"},        {2, "slice_data_a"},  {3, "slice_data_b"},   {4, "slice_data_c"},
    {5, "idr_slice"},    {6, "sei"},           {7, "sps"},            {8, "pps"},
    {9, "aud"},          {10, "end_of_seq"},   {11, "end_of_stream"}, {12, "filler"},
    {13, "sps_ext"},     {14, "prefix_nal"},   {15, "subset_sps"},    {16, "dps"},
    {19, "aux_slice"},   {20, "slice_ext"},    {21, "slice_ext_3d"},
};

// ITU-T H.265 Table 7-1.
constexpr TypeLabel kHevcTypes[] = {
    {0, "TRAIL_N"},   {1, "TRAIL_R"},     {2, "TSA_N"},       {3, "TSA_R"},     {4, "STSA_N"},
    {5, "STSA_R"},    {6, "RADL_N"},      {7, "RADL_R"},      {8, "RASL_N"},    {9, "RASL_R"},
    {16, "BLA_W_LP"}, {17, "BLA_W_RADL"}, {18, "BLA_N_LP"},   {19, "IDR_W_RADL"}, {20, "IDR_N_LP"},
    {21, "CRA_NUT"},  {32, "VPS"},        {33, "SPS"},        {34, "PPS"},      {35, "AUD"},
    {36, "EOS"},      {37, "EOB"},        {38, "FD"},         {39, "SEI_PREFIX"}, {40, "SEI_SUFFIX"},
    {62, "DV_RPU"},   {63, "DV_EL"},
};

// ISO/IEC 13818-2 Table 6-1 start code values (slices 01..AF are named by range below).
constexpr TypeLabel kMpeg2Types[] = {
    {0x00, "picture"},  {0xB2, "user_data"},  {0xB3, "sequence_header"}, {0xB4, "sequence_error"},
    {0xB5, "extension"}, {0xB7, "sequence_end"}, {0xB8, "group"},
};

template <size_t N>
const char* lookup(const TypeLabel (&table)[N], int type) {
  for (const auto& t : table)
    if (t.type == type) return t.name;
  return nullptr;
}

int hevcType(uint8_t b0) { return (b0 >> 1) & 0x3F; }

// One stream context for the whole command run (the readers only overwrite it).
struct ContextDeleter {
  void operator()(h264_stream_t* h) const { h264_free(h); }
};
h264_stream_t* context() {
  static std::unique_ptr<h264_stream_t, ContextDeleter> shared(h264_new());
  return shared.get();
}

// One vote per unit header that is valid in the codec.
bool validH264(const uint8_t* unit, size_t size) {
  h264_stream_t* h = context();
  return h && peek_nal_unit(h, unit, static_cast<int>(std::min<size_t>(size, 1))) >= 0;
}
bool validHevc(const uint8_t* unit, size_t size) {
  if (size < 2 || (unit[0] & 0x80) || (unit[1] & 0x07) == 0) return false;
  int type = hevcType(unit[0]);
  int layer = ((unit[0] & 1) << 5) | (unit[1] >> 3);
  return layer == 0 && (type <= 40 || type >= 62) && !(type >= 10 && type <= 15) && !(type >= 22 && type <= 31);
}

}  // namespace

std::vector<Span> annexB(const std::vector<uint8_t>& stream) {
  std::vector<Span> spans;
  size_t offset = 0;
  while (offset < stream.size()) {
    // find_nal_unit works on int sizes: look at most INT_MAX bytes ahead.
    const int window = static_cast<int>(std::min<size_t>(stream.size() - offset, INT_MAX));
    int start = 0, end = 0;
    find_nal_unit(stream.data() + offset, window, &start, &end);
    // No start code left, or a short tail / lone start code returned whole: not a unit.
    if (start == 0) break;
    Span s;
    s.offset = offset + static_cast<size_t>(start);
    s.size = static_cast<size_t>(end - start);
    s.prefixLength = (start >= 4 && stream[s.offset - 4] == 0) ? 4 : 3;
    s.codeOffset = s.offset - static_cast<size_t>(s.prefixLength);
    spans.push_back(s);
    offset += static_cast<size_t>(end);
  }
  return spans;
}

bool lengthPrefixed(const std::vector<uint8_t>& stream, std::vector<Span>* spans, size_t* badOffset) {
  size_t p = 0;
  while (p < stream.size()) {
    if (stream.size() - p < 4) {
      *badOffset = p;
      return false;
    }
    size_t length = (size_t{stream[p]} << 24) | (size_t{stream[p + 1]} << 16) | (size_t{stream[p + 2]} << 8) |
                    stream[p + 3];
    if (length > stream.size() - p - 4) {
      *badOffset = p;
      return false;
    }
    spans->push_back({p, p + 4, length, 4});
    p += 4 + length;
  }
  return true;
}

StreamCodec detect(const std::vector<uint8_t>& stream, const std::vector<Span>& spans) {
  if (spans.empty()) return StreamCodec::kUnknown;
  // MPEG-2 video opens with a sequence header start code (00 00 01 B3).
  if (stream[spans.front().offset] == 0xB3) return StreamCodec::kMpeg2;
  int h264 = 0, hevc = 0;
  const size_t sample = std::min<size_t>(spans.size(), 64);
  for (size_t i = 0; i < sample; i++) {
    const uint8_t* unit = stream.data() + spans[i].offset;
    if (spans[i].size == 0) continue;
    h264 += validH264(unit, spans[i].size);
    hevc += validHevc(unit, spans[i].size);
  }
  if (h264 == 0 && hevc == 0) return StreamCodec::kUnknown;
  return hevc > h264 ? StreamCodec::kHevc : StreamCodec::kH264;
}

const char* codecName(StreamCodec codec) {
  switch (codec) {
    case StreamCodec::kH264: return "h264";
    case StreamCodec::kHevc: return "hevc";
    case StreamCodec::kMpeg2: return "mpeg2";
    default: return "unknown";
  }
}

Header header(StreamCodec codec, const uint8_t* unit, size_t size) {
  Header h;
  if (size == 0) return h;
  if (codec == StreamCodec::kH264) {
    h.type = unit[0] & 0x1F;
    h.refIdc = (unit[0] >> 5) & 0x03;
  } else if (codec == StreamCodec::kHevc) {
    h264_stream_t* ctx = context();
    if (!ctx) return h;
    // Only the two header bytes are needed here.
    read_nal_unit_hevc(ctx, unit, static_cast<int>(std::min<size_t>(size, 2)));
    h.type = ctx->nal->nal_unit_type;
    h.layer = ctx->nal->nuh_layer_id;
    h.temporalId = ctx->nal->temporal_id;
  } else {
    h.type = unit[0];
  }
  return h;
}

const char* typeName(StreamCodec codec, int type) {
  const char* name = nullptr;
  if (codec == StreamCodec::kH264) name = lookup(kH264Types, type);
  if (codec == StreamCodec::kHevc) name = lookup(kHevcTypes, type);
  if (codec == StreamCodec::kMpeg2) {
    name = lookup(kMpeg2Types, type);
    if (!name && type >= 0x01 && type <= 0xAF) name = "slice";
  }
  return name ? name : "reserved";
}

std::vector<SeiMessage> seiMessages(StreamCodec codec, const uint8_t* unit, size_t size) {
  std::vector<SeiMessage> out;
  const bool h264Sei = codec == StreamCodec::kH264 && size > 0 && (unit[0] & 0x1F) == 6;
  const bool hevcSei = codec == StreamCodec::kHevc && size > 0 && hevcType(unit[0]) == kHevcNalPrefixSei;
  if ((!h264Sei && !hevcSei) || size > INT_MAX) return out;
  h264_stream_t* h = context();
  if (!h) return out;
  if (hevcSei) {
    read_nal_unit_hevc(h, unit, static_cast<int>(size));
  } else {
    std::vector<uint8_t> rbsp(size);
    int nalSize = static_cast<int>(size), rbspSize = static_cast<int>(size);
    if (nal_to_rbsp(unit, &nalSize, rbsp.data(), &rbspSize) < 0) return out;
    bs_t b;
    bs_init(&b, rbsp.data(), rbspSize);
    read_sei_rbsp(h, &b);
  }
  for (int i = 0; i < h->num_seis; i++) out.push_back({h->seis[i]->payloadType, h->seis[i]->payloadSize});
  return out;
}

bool isVcl(StreamCodec codec, int type) {
  if (codec == StreamCodec::kH264) return type >= 1 && type <= 5;
  if (codec == StreamCodec::kHevc) return type >= 0 && type <= 31;
  return false;
}

bool opensAccessUnit(StreamCodec codec, const uint8_t* unit, size_t size, bool vclSeen) {
  if (size == 0 || !vclSeen) return false;
  if (codec == StreamCodec::kH264) {
    const int type = unit[0] & 0x1F;
    if (type == 9 || type == 7 || type == 8 || type == 6 || (type >= 14 && type <= 18)) return true;
    // first_mb_in_slice == 0 codes as ue(v) '1': the top bit of the byte after the header.
    return (type == 1 || type == 5) && size > 1 && (unit[1] & 0x80);
  }
  if (codec == StreamCodec::kHevc) {
    const int type = hevcType(unit[0]);
    if (type == 35 || type == 32 || type == 33 || type == 34 || type == 39 || (type >= 41 && type <= 44)) return true;
    // first_slice_segment_in_pic_flag: the top bit after the two header bytes.
    return type <= 31 && size > 2 && (unit[2] & 0x80);
  }
  if (codec == StreamCodec::kMpeg2) {
    return unit[0] == 0x00 || unit[0] == 0xB3 || unit[0] == 0xB8;
  }
  return false;
}

std::vector<size_t> accessUnitStarts(StreamCodec codec, const std::vector<uint8_t>& stream,
                                     const std::vector<Span>& spans) {
  std::vector<size_t> starts;
  bool vclSeen = false;
  for (size_t i = 0; i < spans.size(); i++) {
    const uint8_t* unit = stream.data() + spans[i].offset;
    if (i == 0 || opensAccessUnit(codec, unit, spans[i].size, vclSeen)) {
      starts.push_back(i);
      vclSeen = false;
    }
    if (codec == StreamCodec::kMpeg2) {
      vclSeen = vclSeen || (spans[i].size > 0 && unit[0] >= 0x01 && unit[0] <= 0xAF);
    } else {
      vclSeen = vclSeen || isVcl(codec, header(codec, unit, spans[i].size).type);
    }
  }
  return starts;
}

}  // namespace units
