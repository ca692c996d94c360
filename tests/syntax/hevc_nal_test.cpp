// HEVC NAL header and prefix SEI reading: the documented cases on hand-made units that the real
// x264/x265 streams of RealStream.UnitWalkMatchesTraceHeaders (stream_interop_test.cpp) do not
// reach. That walk also compares each SEI unit's messages with ffmpeg's: a unit's messages
// replace the previous unit's.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "syntax/hevc_nal.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct Context {
  h264_stream_t* h = h264_new();
  ~Context() { h264_free(h); }
};

struct SeiMessage {
  int type;
  Bytes payload;
  bool operator==(const SeiMessage&) const = default;
};

std::vector<SeiMessage> messagesOf(const h264_stream_t* h) {
  std::vector<SeiMessage> out;
  for (int i = 0; i < h->num_seis; i++) {
    const sei_t* s = h->seis[i];
    out.push_back({s->payloadType, Bytes(s->data, s->data + s->payloadSize)});
  }
  return out;
}

struct HeaderCase {
  const char* name;
  Bytes unit;
  int result;  // -2: the unit's size
  int type, layer, temporalId, sizeofParsed;
  std::vector<SeiMessage> seis;
};

TEST(ReadNalUnitHevc, HeadersAndPrefixSei) {
  const HeaderCase cases[] = {
      {"payload type and size in FF runs", [] {
         Bytes u = {0x4E, 0x01, 0xFF, 0x05, 0xFF, 0x01};
         u.insert(u.end(), 256, 0x5A);
         u.push_back(0x80);
         return u;
       }(), -2, 39, 0, 0, 16, {{260, Bytes(256, 0x5A)}}},
      {"emulation prevention removed from the payload", {0x4E, 0x01, 0x05, 0x03, 0x00, 0x00, 0x03, 0x01, 0x80},
       -2, 39, 0, 0, 16, {{5, {0x00, 0x00, 0x01}}}},
      {"SEI payload running past the unit", {0x4E, 0x01, 0x05, 0x09, 0xAA}, -1, 39, 0, 0, 16, {{5, {0xAA}}}},
      // A later payloadType byte with its top bit set reads like a stop bit: the list ends there.
      {"later message with a high type ends the list", {0x4E, 0x01, 0x05, 0x01, 0x11, 0x89, 0x01, 0x22, 0x80}, -2, 39,
       0, 0, 16, {{5, {0x11}}}},
      {"suffix SEI is not parsed", {0x50, 0x01, 0x84, 0x01, 0x00, 0x80}, -2, 40, 0, 0, 0, {}},
      {"type 41 is unknown", {0x52, 0x01, 0x00}, 0, 41, 0, 0, 0, {}},
      {"layer and temporal id", {0x03, 0x0B, 0x11}, -2, 1, 33, 2, 0, {}},
      {"one-byte unit has temporal id -1", {0x26}, -2, 19, 0, -1, 0, {}},
      {"forbidden escape fails", {0x02, 0x01, 0x00, 0x00, 0x03, 0x07}, -1, 1, 0, 0, 0, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Context ctx;
    ASSERT_NE(ctx.h, nullptr);
    auto unit = std::make_unique<uint8_t[]>(c.unit.size());
    std::copy(c.unit.begin(), c.unit.end(), unit.get());
    const int size = static_cast<int>(c.unit.size());
    EXPECT_EQ(read_nal_unit_hevc(ctx.h, unit.get(), size), c.result == -2 ? size : c.result);
    EXPECT_EQ(ctx.h->nal->nal_unit_type, c.type);
    EXPECT_EQ(ctx.h->nal->nuh_layer_id, c.layer);
    EXPECT_EQ(ctx.h->nal->temporal_id, c.temporalId);
    EXPECT_EQ(ctx.h->nal->forbidden_zero_bit, 0);
    EXPECT_EQ(ctx.h->nal->sizeof_parsed, c.sizeofParsed);
    EXPECT_EQ(ctx.h->nal->parsed, c.sizeofParsed ? static_cast<void*>(ctx.h->sei) : nullptr);
    EXPECT_EQ(messagesOf(ctx.h), c.seis);
    if (!c.seis.empty()) {
      EXPECT_EQ(ctx.h->sei, ctx.h->seis[ctx.h->num_seis - 1]);
    }
  }
}

TEST(HevcParameterSetPlaceholders, SelectAndClearFirstRecord) {
  Context ctx;
  ctx.h->sps_table[0]->level_idc = 51;
  ctx.h->sps = ctx.h->sps_table[3];
  // SPS RBSP of an x265 stream: vps id 0, one sub-layer, Main profile, level 3.0.
  uint8_t sps[] = {0x01, 0x01, 0x60, 0x00, 0x00, 0x03, 0x00, 0x90, 0x00, 0x00, 0x03, 0x00, 0x00, 0x03, 0x00, 0x5A};
  bs_t b;
  bs_init(&b, sps, sizeof sps);
  read_hevc_seq_parameter_set_rbsp(ctx.h, &b);
  EXPECT_EQ(ctx.h->sps, ctx.h->sps_table[0]);
  EXPECT_EQ(ctx.h->sps_table[0]->level_idc, 0);

  ctx.h->pps_table[0]->pic_init_qp_minus26 = 4;
  ctx.h->pps = ctx.h->pps_table[9];
  uint8_t pps[] = {0x00, 0x01, 0x80};  // ue(v) with 15 leading zeros
  bs_init(&b, pps, sizeof pps);
  read_hevc_pic_parameter_set_rbsp(ctx.h, &b);
  EXPECT_EQ(ctx.h->pps, ctx.h->pps_table[0]);
  EXPECT_EQ(ctx.h->pps_table[0]->pic_init_qp_minus26, 0);
  EXPECT_EQ(bs_pos(&b), 31);
}

}  // namespace
