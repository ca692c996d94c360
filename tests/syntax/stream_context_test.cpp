// The stream context's records and the small helpers of the syntax layer; HEVC NAL header and
// prefix SEI reading: the documented cases on hand-made units that the real x264/x265 streams of
// RealStream.UnitWalkMatchesTraceHeaders (stream_interop_test.cpp) do not reach. That walk also
// compares each SEI unit's messages with ffmpeg's: a unit's messages replace the previous unit's.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "syntax/syntax.h"

namespace {

using Bytes = std::vector<uint8_t>;

// A new context points at its first SPS/PPS records, each table entry its own record; sei_free
// frees a message's data, avcc_free leaves the records it borrows (AddressSanitizer reports a
// leak or a double free otherwise); every free takes null.
TEST(StreamContext, RecordsAndOwnership) {
  h264_stream_t* h = h264_new();
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(h->sps, h->sps_table[0]);
  EXPECT_EQ(h->pps, h->pps_table[0]);
  EXPECT_TRUE(h->seis == nullptr && h->sei == nullptr && h->num_seis == 0);
  ASSERT_TRUE(h->nal && h->aud && h->sh);
  for (int i = 0; i < kH264MaxSps; i++) {
    ASSERT_NE(h->sps_table[i], nullptr);
    for (int j = 0; j < i; j++) ASSERT_NE(h->sps_table[i], h->sps_table[j]);
  }
  for (int i = 1; i < kH264MaxPps; i++) ASSERT_TRUE(h->pps_table[i] && h->pps_table[i] != h->pps_table[i - 1]);

  sei_t* s = sei_new();
  ASSERT_NE(s, nullptr);
  s->data = static_cast<uint8_t*>(std::malloc(8));
  sei_free(s);
  avcc_t* avcc = avcc_new();
  ASSERT_NE(avcc, nullptr);
  avcc->numOfSequenceParameterSets = 1;
  avcc->sps_table = static_cast<sps_t**>(std::calloc(1, sizeof(sps_t*)));
  avcc->sps_table[0] = h->sps_table[0];  // borrowed from the context
  avcc_free(avcc);
  h->sps_table[0]->level_idc = 40;  // still alive
  h264_free(h);
  h264_free(nullptr);
  sei_free(nullptr);
  avcc_free(nullptr);
}

// Each refusal rule and the accepted bounds (the units of real x264 streams, types 1, 5, 6, 7,
// 8 and 9: RealStream.UnitWalkMatchesTraceHeaders).
TEST(PeekNalUnit, AcceptsAndRejectsHeaders) {
  struct Case {
    int byte;  // -1: empty buffer
    int result;
    int refIdc, type;
  } cases[] = {
      {0x06, 6, 0, 6},   {0x26, -1, 1, 6},  {0x05, -1, 0, 5},  {0x29, -1, 1, 9},  {0x2A, -1, 1, 10},
      {0x0B, 11, 0, 11}, {0x6C, -1, 3, 12}, {0x70, -1, 3, 16}, {0x72, -1, 3, 18}, {0x73, 19, 3, 19},
      {0x74, 20, 3, 20}, {0x75, -1, 3, 21}, {0x60, -1, 3, 0},  {0xE7, -1, 3, 7},  {-1, -1, 0, 0},
  };
  h264_stream_t* h = h264_new();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.byte);
    uint8_t b = static_cast<uint8_t>(c.byte);
    EXPECT_EQ(peek_nal_unit(h, &b, c.byte < 0 ? 0 : 1), c.result);
    EXPECT_EQ(h->nal->nal_ref_idc, c.refIdc);
    EXPECT_EQ(h->nal->nal_unit_type, c.type);
    EXPECT_EQ(h->nal->forbidden_zero_bit, c.byte >= 0x80 ? 1 : 0);
  }
  h264_free(h);
}

TEST(SmallHelpers, IntLog2AndSliceType) {
  // Against the definition: the smallest n with 2^n >= x.
  for (int x = -3; x < 5000; x++) {
    int n = 0;
    while (x > 0 && (int64_t{1} << n) < x) n++;
    ASSERT_EQ(intlog2(x), n) << x;
  }
  EXPECT_EQ(intlog2(INT32_MAX), 31);
  const int sliceCases[][3] = {{0, 0, 1}, {5, 0, 1}, {0, 5, 1}, {7, 2, 1}, {2, 7, 1}, {9, 9, 1},
                               {1, 6, 1}, {1, 2, 0}, {6, 2, 0}, {10, 0, 0}, {10, 5, 0}, {10, 10, 1}, {4, 9, 1}};
  for (const auto& c : sliceCases) EXPECT_EQ(is_slice_type(c[0], c[1]), c[2]) << c[0] << " " << c[1];
}

TEST(BitCursor, ReadsPastTheEndAsZeroAndWritesAreDropped) {
  uint8_t bytes[2] = {0xA5, 0xFF};
  bs_t b;
  bs_init(&b, bytes, 1);
  EXPECT_EQ(bs_read_u(&b, 8), 0xA5u);
  EXPECT_FALSE(bs_overrun(&b));
  EXPECT_EQ(bs_read_u(&b, 4), 0u);  // bytes[1] is not the cursor's
  EXPECT_TRUE(bs_overrun(&b));
  EXPECT_EQ(bs_pos(&b), 12);

  uint8_t out[3] = {0x00, 0x00, 0x77};
  bs_init(&b, out, 2);
  bs_write_u(&b, 12, 0xABC);
  bs_write_u(&b, 4, 0xF);
  EXPECT_FALSE(bs_overrun(&b));
  bs_write_u(&b, 8, 0x11);  // past the end: dropped, position advances
  EXPECT_TRUE(bs_overrun(&b));
  EXPECT_EQ(out[0], 0xAB);
  EXPECT_EQ(out[1], 0xCF);
  EXPECT_EQ(out[2], 0x77);

  // Writing clears the bit before setting it.
  uint8_t ones = 0xFF;
  bs_init(&b, &ones, 1);
  bs_write_u(&b, 3, 0x2);
  EXPECT_EQ(ones, 0x5F);
}

TEST(BitCursor, ExpGolombRoundTripsOnRandomValues) {
  std::mt19937 rng(3);
  std::vector<uint32_t> values = {0, 1, 2, 3, 254, 255, 256, 65535, 0x7FFFFFFE, 0xFFFFFFFE};
  for (int i = 0; i < 500; i++) values.push_back(rng() >> (rng() % 32));
  std::vector<uint8_t> buf(values.size() * 9 + 8);
  bs_t w;
  bs_init(&w, buf.data(), static_cast<int64_t>(buf.size()));
  for (uint32_t v : values) {
    bs_write_ue(&w, v);
    bs_write_se(&w, static_cast<int32_t>(v / 2) * ((v & 1) ? -1 : 1));
  }
  ASSERT_FALSE(bs_overrun(&w));
  bs_t r;
  bs_init(&r, buf.data(), static_cast<int64_t>(buf.size()));
  for (uint32_t v : values) {
    ASSERT_EQ(bs_read_ue(&r), v);
    ASSERT_EQ(bs_read_se(&r), static_cast<int32_t>(v / 2) * ((v & 1) ? -1 : 1));
  }
  EXPECT_EQ(bs_pos(&r), bs_pos(&w));
}

TEST(MoreRbspData, StopsAtTheNextOneBit) {
  struct Case {
    std::vector<uint8_t> bytes;
    int skipBits;
    int expected;
  } cases[] = {
      // A byte-aligned stop bit, payload types below and above 128: ReadNalUnitHevc.HeadersAndPrefixSei.
      {{0xFF}, 8, 0},       // at the end
      {{0x00, 0x00}, 0, 1}, // trailing zero bytes are not examined
      {{0xA0}, 1, 1},
      {{0xA0}, 2, 0},
  };
  h264_stream_t* h = h264_new();
  for (const auto& c : cases) {
    bs_t b;
    std::vector<uint8_t> bytes = c.bytes;
    bs_init(&b, bytes.data(), static_cast<int64_t>(bytes.size()));
    bs_skip_u(&b, c.skipBits);
    EXPECT_EQ(more_rbsp_data(h, &b), c.expected);
  }
  h264_free(h);
}

// write_sei_payload writes the current message's bytes, the first first, at any bit position;
// the payloadType and payloadSize arguments are not used, and a count of 0 writes nothing.
// (read_sei_rbsp: ReadNalUnitHevc.HeadersAndPrefixSei and RealStream.UnitWalkMatchesTraceHeaders.)
TEST(SeiPayload, WritesTheCurrentMessagesBytes) {
  h264_stream_t* h = h264_new();
  sei_t* s = sei_new();
  s->payloadSize = 260;
  s->data = static_cast<uint8_t*>(std::malloc(260));
  for (int i = 0; i < 260; i++) s->data[i] = static_cast<uint8_t>(i * 7);
  h->sei = s;
  std::vector<uint8_t> rbsp(300, 0xEE), expected(300, 0xEE);
  bs_t b, e;
  bs_init(&b, rbsp.data(), static_cast<int64_t>(rbsp.size()));
  bs_init(&e, expected.data(), static_cast<int64_t>(expected.size()));
  bs_write_u(&b, 3, 5);
  bs_write_u(&e, 3, 5);
  write_sei_payload(h, &b, 999, 1);
  for (int i = 0; i < 260; i++) bs_write_u8(&e, s->data[i]);
  EXPECT_EQ(bs_pos(&b), 3 + 260 * 8);
  EXPECT_EQ(rbsp, expected);

  s->payloadSize = 0;
  bs_init(&b, rbsp.data(), 4);
  write_sei_payload(h, &b, 0, 0);
  EXPECT_EQ(bs_pos(&b), 0);
  h->sei = nullptr;
  sei_free(s);
  h264_free(h);
}

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
