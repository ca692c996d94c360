// Small text helpers: integer formatting and base64.
#pragma once
#include <cstddef>
#include <cstdint>

extern "C" {
// Classic itoa: writes value in base 2..36 into str (negative values with '-' only in base 10,
// other bases print the 32-bit two's complement). Returns str. str must hold 34 bytes.
char* itoa(int value, char* str, int base);

// Number of characters (without the terminating NUL) that base64_encode writes for len bytes.
size_t base64_encoded_length(size_t len);

// RFC 4648 base64 with '=' padding. Writes the text and a NUL into out (outSize bytes).
// Returns the text length, or 0 with out[0] = 0 (when outSize > 0) if out is too small.
size_t base64_encode(const void* data, size_t len, char* out, size_t outSize);

// Decodes RFC 4648 base64 (padding optional, no white space). Writes at most outSize bytes.
// Returns 0 and the decoded length in *outLen, or -1 for malformed text or too small a buffer.
int base64_decode(const char* text, size_t textLen, void* out, size_t outSize, size_t* outLen);
}
