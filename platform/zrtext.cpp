#include "platform/zrtext.h"

#include <cstring>

char* itoa(int value, char* str, int base) {
  if (!str) return str;
  if (base < 2 || base > 36) {
    str[0] = '\0';
    return str;
  }
  static const char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
  char reversed[34];
  size_t n = 0;
  bool negative = base == 10 && value < 0;
  // Work on the unsigned magnitude so INT_MIN needs no special case.
  unsigned magnitude = negative ? 0u - static_cast<unsigned>(value) : static_cast<unsigned>(value);
  do {
    reversed[n++] = kDigits[magnitude % static_cast<unsigned>(base)];
    magnitude /= static_cast<unsigned>(base);
  } while (magnitude);
  size_t pos = 0;
  if (negative) str[pos++] = '-';
  while (n) str[pos++] = reversed[--n];
  str[pos] = '\0';
  return str;
}

namespace {
const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int decodeChar(unsigned char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}
}  // namespace

size_t base64_encoded_length(size_t len) { return (len + 2) / 3 * 4; }

size_t base64_encode(const void* data, size_t len, char* out, size_t outSize) {
  size_t need = base64_encoded_length(len);
  if (!out || outSize <= need || (!data && len)) {
    if (out && outSize) out[0] = '\0';
    return 0;
  }
  const unsigned char* in = static_cast<const unsigned char*>(data);
  size_t o = 0;
  size_t i = 0;
  for (; i + 3 <= len; i += 3) {
    unsigned v = (in[i] << 16) | (in[i + 1] << 8) | in[i + 2];
    out[o++] = kAlphabet[(v >> 18) & 63];
    out[o++] = kAlphabet[(v >> 12) & 63];
    out[o++] = kAlphabet[(v >> 6) & 63];
    out[o++] = kAlphabet[v & 63];
  }
  if (size_t rest = len - i) {
    unsigned v = in[i] << 16;
    if (rest == 2) v |= in[i + 1] << 8;
    out[o++] = kAlphabet[(v >> 18) & 63];
    out[o++] = kAlphabet[(v >> 12) & 63];
    out[o++] = rest == 2 ? kAlphabet[(v >> 6) & 63] : '=';
    out[o++] = '=';
  }
  out[o] = '\0';
  return o;
}

int base64_decode(const char* text, size_t textLen, void* out, size_t outSize, size_t* outLen) {
  if (!text || !outLen || (!out && outSize)) return -1;
  while (textLen && text[textLen - 1] == '=') --textLen;  // padding is optional
  if (textLen % 4 == 1) return -1;
  size_t need = textLen / 4 * 3 + (textLen % 4 ? textLen % 4 - 1 : 0);
  if (need > outSize) return -1;
  unsigned char* dst = static_cast<unsigned char*>(out);
  unsigned acc = 0;
  int bits = 0;
  size_t o = 0;
  for (size_t i = 0; i < textLen; ++i) {
    int v = decodeChar(static_cast<unsigned char>(text[i]));
    if (v < 0) return -1;
    acc = (acc << 6) | static_cast<unsigned>(v);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      dst[o++] = static_cast<unsigned char>(acc >> bits);
    }
  }
  *outLen = o;
  return 0;
}
