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

}  // namespace

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

}  // namespace units
