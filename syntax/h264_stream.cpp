// Stream context lifecycle, the shared small records, and the helpers every syntax reader uses.
#include "syntax/h264_stream.h"

#include <climits>
#include <cstdlib>
#include <cstring>

namespace {

template <typename T>
T* allocZeroed() {
  return static_cast<T*>(std::calloc(1, sizeof(T)));
}

void freeSeis(h264_stream_t* h) {
  if (h->seis != nullptr) {
    for (int i = 0; i < h->num_seis; i++) sei_free(h->seis[i]);
    std::free(h->seis);
  }
  h->seis = nullptr;
  h->num_seis = 0;
  h->sei = nullptr;
}

// Appends a fresh message to h->seis and makes it current; false when memory runs out.
bool appendSei(h264_stream_t* h) {
  sei_t* s = sei_new();
  if (s == nullptr) return false;
  auto** grown = static_cast<sei_t**>(std::realloc(h->seis, sizeof(sei_t*) * (static_cast<size_t>(h->num_seis) + 1)));
  if (grown == nullptr) {
    sei_free(s);
    return false;
  }
  h->seis = grown;
  h->seis[h->num_seis++] = s;
  h->sei = s;
  return true;
}

// payloadType / payloadSize coding: a run of FF bytes worth 255 each, then a last byte.
int32_t readSeiCount(bs_t* b) {
  int64_t value = 0;
  uint32_t byte;
  while ((byte = bs_read_u8(b)) == 0xFF) {
    if (value < INT32_MAX) value += 255;
  }
  value += byte;
  return value > INT32_MAX ? INT32_MAX : static_cast<int32_t>(value);
}

}  // namespace

extern "C" {

FILE* h264_dbgfile = nullptr;

h264_stream_t* h264_new(void) {
  auto* h = allocZeroed<h264_stream_t>();
  if (h == nullptr) return nullptr;
  h->nal = allocZeroed<nal_t>();
  h->aud = allocZeroed<aud_t>();
  h->sh = allocZeroed<slice_header_t>();
  bool complete = h->nal && h->aud && h->sh;
  for (auto& sps : h->sps_table) complete = (sps = allocZeroed<sps_t>()) != nullptr && complete;
  for (auto& pps : h->pps_table) complete = (pps = allocZeroed<pps_t>()) != nullptr && complete;
  if (!complete) {
    h264_free(h);
    return nullptr;
  }
  h->sps = h->sps_table[0];
  h->pps = h->pps_table[0];
  return h;
}

void h264_free(h264_stream_t* h) {
  if (h == nullptr) return;
  std::free(h->nal);
  for (auto* sps : h->sps_table) std::free(sps);
  for (auto* pps : h->pps_table) std::free(pps);
  std::free(h->aud);
  freeSeis(h);
  std::free(h->sh);
  std::free(h);
}

sei_t* sei_new(void) { return allocZeroed<sei_t>(); }

void sei_free(sei_t* s) {
  if (s == nullptr) return;
  std::free(s->data);
  std::free(s);
}

avcc_t* avcc_new(void) { return allocZeroed<avcc_t>(); }

void avcc_free(avcc_t* avcc) {
  if (avcc == nullptr) return;
  std::free(avcc->sps_table);
  std::free(avcc->pps_table);
  std::free(avcc);
}

int peek_nal_unit(h264_stream_t* h, const uint8_t* buf, int size) {
  nal_t* nal = h->nal;
  uint8_t header = size > 0 ? buf[0] : 0;
  nal->forbidden_zero_bit = header >> 7;
  nal->nal_ref_idc = (header >> 5) & 0x03;
  nal->nal_unit_type = header & 0x1F;
  const int type = nal->nal_unit_type;
  if (nal->forbidden_zero_bit != 0) return -1;
  if (type == 0 || type > 20) return -1;  // unspecified / reserved (ITU-T H.264 Table 7-1)
  if (type >= 16 && type <= 18) return -1;  // reserved
  if (nal->nal_ref_idc == 0 && type == 5) return -1;  // an IDR slice is always a reference
  const bool neverReference = type == 6 || type == 9 || type == 10 || type == 11 || type == 12;
  if (nal->nal_ref_idc != 0 && neverReference) return -1;
  return type;
}

int more_rbsp_data(h264_stream_t*, bs_t* b) {
  if (bs_eof(b)) return 0;
  return bs_peek_u1(b) == 0 ? 1 : 0;
}

int intlog2(int x) {
  if (x < 1) return 0;
  unsigned v = static_cast<unsigned>(x);
  int bits = 32 - __builtin_clz(v);
  return (v & (v - 1)) == 0 ? bits - 1 : bits;
}

int is_slice_type(int slice_type, int cmp_type) {
  if (slice_type >= 5) slice_type -= 5;
  if (cmp_type >= 5) cmp_type -= 5;
  return slice_type == cmp_type ? 1 : 0;
}

void read_sei_rbsp(h264_stream_t* h, bs_t* b) {
  freeSeis(h);
  do {
    read_sei_message(h, b);
  } while (h->sei != nullptr && more_rbsp_data(h, b));
}

void read_sei_message(h264_stream_t* h, bs_t* b) {
  if (!appendSei(h)) {
    h->sei = nullptr;
    return;
  }
  int32_t payloadType = readSeiCount(b);
  int32_t payloadSize = readSeiCount(b);
  read_sei_payload(h, b, payloadType, payloadSize);
}

void read_sei_payload(h264_stream_t* h, bs_t* b, int payloadType, int payloadSize) {
  sei_t* s = h->sei;
  if (s == nullptr) return;
  s->payloadType = payloadType;
  s->payloadSize = payloadSize > 0 ? payloadSize : 0;
  std::free(s->data);
  s->data = nullptr;
  if (s->payloadSize == 0) return;

  // A payload longer than the bytes left is cut to what is there, and the cursor is moved past
  // `end` by the missing amount so that the caller sees the overrun.
  int64_t left = bs_eof(b) ? 0 : static_cast<int64_t>(bs_address(b->end) - bs_address(b->p));
  if (b->bits_left != 8 && left > 0) left--;  // a partly read byte does not give a whole one
  int64_t present = s->payloadSize <= left ? s->payloadSize : left;
  if (present > 0) {
    s->data = static_cast<uint8_t*>(std::malloc(static_cast<size_t>(present)));
    if (s->data == nullptr) {
      s->payloadSize = 0;
      return;
    }
    for (int64_t i = 0; i < present; i++) s->data[i] = static_cast<uint8_t>(bs_read_u8(b));
  }
  if (present < s->payloadSize) {
    b->p = reinterpret_cast<uint8_t*>(bs_address(b->end) + static_cast<uintptr_t>(s->payloadSize - present));
    b->bits_left = 8;
    s->payloadSize = static_cast<int32_t>(present);
  }
}

void write_sei_payload(h264_stream_t* h, bs_t* b, int, int) {
  const sei_t* s = h->sei;
  if (s == nullptr || s->data == nullptr) return;
  for (int i = 0; i < s->payloadSize; i++) bs_write_u8(b, s->data[i]);
}

}  // extern "C"
